// What the workbook and worksheet services reach through the session: the application they
// serve and the sibling services. Each raises when the session lacks it, so that the step
// asking for it is skipped, as every step is under the library's error convention.
#pragma once

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz::wb {

/// The session's application.
inline const host::ApplicationPtr& app() {
  return require(frame::session().XLApp);
}

/// The sibling services of the session.
inline const diQZVBLib& vblib() {
  return *require(frame::session().VBLib);
}
inline vblib::Files& files() {
  return *require(vblib().iFile);
}
inline vblib::Strings& strings() {
  return *require(vblib().iString);
}

/// Whether two file or folder names are the same to the file system: without regard to case,
/// "/" and "\\" alike (names are joined with "\\" everywhere, but the engine reports the
/// folders of files it opened outside Windows with "/").
inline bool same_path(StringView a, StringView b) {
  auto key = [](StringView s) {
    String k = to_upper(s);
    for (char16_t& c : k)
      if (c == u'/') c = u'\\';
    return k;
  };
  return key(a) == key(b);
}

/// The decimal digits of a whole number, as `CStr` writes it.
inline String digits(int64_t n) {
  std::string s = std::to_string(n);
  return String(s.begin(), s.end());
}

}  // namespace qz::wb
