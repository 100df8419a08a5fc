#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "qzxl/convert.hpp"
#include "support/fake_env.hpp"
#include "vblib/vblib.hpp"

namespace qz::vblib {
namespace {

constexpr int32_t kUser = kHkeyCurrentUser;

class SettingsStore : public ::testing::Test {
 protected:
  // Runs the settings tool as a separate process on this test's store; returns its output.
  std::string tool(const std::string& args, int* status = nullptr) {
    std::string command = "QZXL_CONFIG_DIR='" + scope.settings_dir().string() + "' " +
                          QZXL_SETTINGS_TOOL + " " + args;
    return run(command, status);
  }

  static std::string run(const std::string& command, int* status = nullptr) {
    std::string out;
    FILE* p = ::popen(command.c_str(), "r");
    if (!p) return out;
    char buf[256];
    while (size_t n = std::fread(buf, 1, sizeof buf, p)) out.append(buf, n);
    int rc = ::pclose(p);
    if (status) *status = rc;
    return out;
  }

  std::shared_ptr<Settings> open(const String& section) { return Public().settings(section); }

  test::SessionScope scope;
};

TEST_F(SettingsStore, ReadsBackWhatWasWrittenAndNothingElse) {
  auto s = open(u"AutoColor");
  EXPECT_EQ(s->read(kUser, u"InputColor"), u"");
  s->write(kUser, u"InputColor", u"16711680");
  s->write(kUser, u"On", u"True");
  EXPECT_EQ(s->read(kUser, u"InputColor"), u"16711680");
  EXPECT_EQ(open(u"AutoColor")->read(kUser, u"On"), u"True");
  EXPECT_EQ(open(u"Other")->read(kUser, u"On"), u"");
  s->remove(kUser, u"On");
  EXPECT_EQ(s->read(kUser, u"On"), u"");
  EXPECT_EQ(s->read(kUser, u"InputColor"), u"16711680");
  EXPECT_THROW(s->read(0x80000002, u"On"), Error);
}

TEST_F(SettingsStore, ComparesNamesWithoutRegardToCaseAsTheRegistryDoes) {
  auto s = open(u"AutoColor");
  s->write(kUser, u"InputColor", u"1");
  s->write(kUser, u"INPUTCOLOR", u"2");
  EXPECT_EQ(s->read(kUser, u"inputcolor"), u"2");
  EXPECT_EQ(open(u"autocolor")->read(kUser, u"InputColor"), u"2");
  EXPECT_EQ(settings_backend()->names(u"AutoColor"), std::vector<String>{u"InputColor"});
}

TEST_F(SettingsStore, KeepsAnyTextIntactInNamesAndValues) {
  auto s = open(u"Odd [section]");
  const String names[] = {u"a=b", u"[x]", u";comment", u"#hash", u"back\\slash", u"caf\u00E9"};
  const String value = u"line 1\r\nline 2\\n = [not a section]\n;\u65E5\u672C \U0001F600 ";
  for (const String& n : names) s->write(kUser, n, value + n);
  for (const String& n : names) EXPECT_EQ(s->read(kUser, n), value + n) << to_utf8(n);
  EXPECT_EQ(settings_backend()->names(u"Odd [section]").size(), std::size(names));
}

TEST_F(SettingsStore, IgnoresForeignLinesInTheFile) {
  open(u"AutoColor")->write(kUser, u"On", u"False");
  {
    std::ofstream f(scope.settings_dir() / "settings.ini", std::ios::app);
    f << "; a note someone added\n\nno separator here\n[AutoColor]\nText=True\r\n";
  }
  auto s = open(u"AutoColor");
  EXPECT_EQ(s->read(kUser, u"On"), u"False");
  EXPECT_EQ(s->read(kUser, u"Text"), u"True");
}

TEST_F(SettingsStore, ValuesWrittenInOneProcessAreReadInAnother) {
  int status = -1;
  tool("set AutoColor InputColor 255", &status);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(open(u"AutoColor")->read(kUser, u"InputColor"), u"255");

  open(u"AutoColor")->write(kUser, u"WkbLinkColor", u"6697881");
  EXPECT_EQ(tool("get AutoColor wkblinkcolor"), "6697881");
  EXPECT_EQ(tool("get AutoColor InputColor"), "255");
}

TEST_F(SettingsStore, ConcurrentWritersKeepEachOthersValues) {
  std::string each;
  for (const char* prefix : {"a", "b", "c", "d"})
    each += "QZXL_CONFIG_DIR='" + scope.settings_dir().string() + "' " + QZXL_SETTINGS_TOOL +
            " fill Race " + prefix + " 40 & ";
  int status = -1;
  run("sh -c \"" + each + "wait\"", &status);
  ASSERT_EQ(status, 0);
  auto s = open(u"Race");
  EXPECT_EQ(settings_backend()->names(u"Race").size(), 160u);
  for (const char16_t* prefix : {u"a", u"b", u"c", u"d"})
    for (int i : {0, 17, 39})
      EXPECT_EQ(s->read(kUser, prefix + u16(std::to_string(i))), u16("value " + std::to_string(i)));
}

}  // namespace
}  // namespace qz::vblib
