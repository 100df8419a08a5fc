#include "engine/host/engine.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::xlsx {

void register_format() {
  FileFormat f;
  f.extensions = {u"xlsx", u"xlsm", u"xltx", u"xltm", u"xlam"};
  f.open = [](const String& path, const host::OpenArgs&) {
    return load(std::filesystem::path(to_utf8(path)));
  };
  f.save = [](Book& book, const String& path) { save(book, std::filesystem::path(to_utf8(path))); };
  register_file_format(std::move(f));
}

}  // namespace qz::engine::xlsx
