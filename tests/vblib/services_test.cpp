#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "qzxl/convert.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"
#include "vblib/vblib.hpp"

namespace qz::vblib {
namespace {

namespace fs = std::filesystem;

TEST(Guid, IsThirtyTwoHexDigitsAndNeverRepeats) {
  std::set<String> seen;
  for (int i = 0; i < 2000; ++i) {
    String id = Guid::new_guid();
    ASSERT_EQ(id.size(), 32u);
    for (char16_t c : id) ASSERT_TRUE((c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'F'));
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 2000u);
}

TEST(Guid, AForkedProcessDoesNotRepeatItsParent) {
  Guid::new_guid();  // the parent's generator is in use before the fork
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::string id = to_utf8(Guid::new_guid());
    (void)!::write(fds[1], id.data(), id.size());
    ::_exit(0);
  }
  ::close(fds[1]);
  char buf[64] = {};
  ssize_t n = ::read(fds[0], buf, sizeof buf);
  ::close(fds[0]);
  ::waitpid(child, nullptr, 0);
  ASSERT_EQ(n, 32);
  EXPECT_NE(from_utf8(std::string(buf, 32)), Guid::new_guid());
}

// A workbook whose custom properties are kept in memory, by name without regard to case.
class PropsWorkbook : public test::UnsupportedWorkbook {
 public:
  std::vector<std::pair<String, Variant>> values;

  struct Prop : host::DocumentProperty {
    Prop(PropsWorkbook& b, size_t i) : book(b), key(b.values[i].first) {}
    String name() override { return key; }
    Variant value() override { return find()->second; }
    void set_value(const Variant& v) override { find()->second = v; }
    int32_t type() override { return 4; }
    void delete_() override { book.values.erase(find()); }
    std::vector<std::pair<String, Variant>>::iterator find() {
      return std::find_if(book.values.begin(), book.values.end(),
                          [&](auto& v) { return equals_text(v.first, key); });
    }
    PropsWorkbook& book;
    String key;
  };
  struct Props : host::DocumentProperties {
    explicit Props(PropsWorkbook& b) : book(b) {}
    int32_t count() override { return static_cast<int32_t>(book.values.size()); }
    host::DocumentPropertyPtr item(const Variant& index) override {
      for (size_t i = 0; i < book.values.size(); ++i)
        if (equals_text(book.values[i].first, index.str())) return std::make_shared<Prop>(book, i);
      throw Error(err::invalid_call, "no such property");
    }
    host::DocumentPropertyPtr add(const String& name, bool, int32_t type,
                                  const Variant& value) override {
      EXPECT_EQ(type, 4);  // text
      book.values.emplace_back(name, value);
      return std::make_shared<Prop>(book, book.values.size() - 1);
    }
    PropsWorkbook& book;
  };
  host::DocumentPropertiesPtr custom_document_properties() override {
    return std::make_shared<Props>(*this);
  }
};

TEST(DocProps, WriteReadAndReplaceATextProperty) {
  auto wkb = std::make_shared<PropsWorkbook>();
  EXPECT_EQ(DocProps::get_text(wkb, u"QZDirty"), u"");
  EXPECT_TRUE(DocProps::prepare(wkb, u"QZDirty"));  // nothing to remove yet
  EXPECT_TRUE(DocProps::set_text(wkb, u"QZDirty", u"true"));
  EXPECT_EQ(DocProps::get_text(wkb, u"qzdirty"), u"true");
  EXPECT_TRUE(DocProps::set_text(wkb, u"QZDirty", u"again"));
  EXPECT_EQ(wkb->values.size(), 1u);
  EXPECT_TRUE(DocProps::prepare(wkb, u"QZDirty"));
  EXPECT_TRUE(wkb->values.empty());
  EXPECT_FALSE(DocProps::set_text(nullptr, u"QZDirty", u"true"));
  EXPECT_EQ(DocProps::get_text(nullptr, u"QZDirty"), u"");
}

class FilesTest : public ::testing::Test {
 protected:
  String path(const std::string& name) { return from_utf8((dir / name).string()); }
  void touch(const std::string& name, const std::string& text = "x") {
    std::ofstream(dir / name) << text;
  }
  test::TempDir dir;
};

TEST_F(FilesTest, TellFilesFromFoldersAndMissingOnes) {
  touch("a.xlt");
  EXPECT_TRUE(Files::exists(path("a.xlt")));
  EXPECT_FALSE(Files::exists(path("")));
  EXPECT_FALSE(Files::exists(path("missing.xlt")));
  EXPECT_FALSE(Files::exists(u""));
  EXPECT_TRUE(Files::folder_exists(path("")));
  EXPECT_FALSE(Files::folder_exists(path("a.xlt")));
}

TEST_F(FilesTest, ReadOnlyMeansTheFileIsMarkedSoWhoeverAsks) {
  touch("ro.xls");
  touch("rw.xls");
  ::chmod((dir / "ro.xls").c_str(), 0444);
  EXPECT_TRUE(Files::is_read_only(path("ro.xls")));  // also when running as root
  EXPECT_FALSE(Files::is_read_only(path("rw.xls")));
  EXPECT_FALSE(Files::is_read_only(path("missing.xls")));
}

TEST_F(FilesTest, CopyAndDelete) {
  touch("from.xlt", "new");
  touch("to.xlt", "old");
  EXPECT_FALSE(Files::copy(path("from.xlt"), path("to.xlt"), false));
  EXPECT_TRUE(Files::copy(path("from.xlt"), path("to.xlt")));
  std::ifstream in(dir / "to.xlt");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "new");
  EXPECT_FALSE(Files::copy(path("missing.xlt"), path("x.xlt")));
  EXPECT_TRUE(Files::remove(path("to.xlt")));
  EXPECT_FALSE(Files::exists(path("to.xlt")));
  EXPECT_TRUE(Files::remove(path("to.xlt")));  // already gone is no failure
}

TEST(NormaliseFolder, ResolvesDotsAndSeparatorsTextually) {
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"C:\\Program Files\\Excel\\", u"C:\\Program Files\\Excel"},
      {u"C:\\a\\.\\b\\..\\c", u"C:\\a\\c"},
      {u"C:/a//b/", u"C:\\a\\b"},
      {u"C:\\..\\x", u"C:\\x"},
      {u"C:\\", u"C:\\"},
      {u"\\\\server\\share\\dir\\..", u"\\\\server\\share"},
      {u"/home/u/./.config//qzxl/", u"/home/u/.config/qzxl"},
      {u"/..", u"/"},
      {u"../a/../../b", u"../../b"},
      {u"./", u"."},
      {u"", u""},
  };
  for (auto [in, out] : cases) EXPECT_EQ(Files::normalise_folder(in), out) << to_utf8(in);
}

TEST(UiServices, GoThroughTheSeams) {
  test::SessionScope scope;
  scope.platform->app_data = u"/data/someone";
  EXPECT_EQ(Files::app_data_folder(), u"/data/someone");

  scope.ui->file_answers.push_back(u"/tmp/Book1.xlsx");
  host::FileDialogArgs args;
  args.title = u"Open";
  EXPECT_EQ(Files::choose_file(args), u"/tmp/Book1.xlsx");
  EXPECT_EQ(Files::choose_file(args), u"");  // cancelled
  ASSERT_EQ(scope.ui->file_dialogs.size(), 2u);
  EXPECT_EQ(scope.ui->file_dialogs[0].title, u"Open");

  auto progress = Screen().new_progress();
  progress->show(u"before start", 0);  // nothing to show on yet
  progress->start(nullptr, nullptr, 10, 0.005, 16777215, 8388608);
  progress->show(u"AutoColoring Sheet1...", 40);
  EXPECT_EQ(scope.ui->progress_starts,
            (std::vector<std::pair<int32_t, int32_t>>{{16777215, 8388608}}));
  EXPECT_EQ(scope.ui->progress_shown,
            (std::vector<std::pair<String, int32_t>>{{u"AutoColoring Sheet1...", 40}}));

  EXPECT_TRUE(WinApi().bring_to_front(77));
  EXPECT_EQ(scope.platform->brought_to_front, std::vector<intptr_t>{77});
}

TEST(Collection, KeepsOrderAndFindsByPositionOrKeyAlsoLateBound) {
  auto c = std::make_shared<Collection>();
  c->add(Variant(u"first"));
  Variant added[2] = {Variant(u"second"), Variant(u"Two")};
  late::call(c, u"Add", added);
  c->add(Variant(u"third"));
  EXPECT_EQ(late::get(c, u"Count"), Variant(3));
  EXPECT_EQ(c->item(3), Variant(u"third"));
  EXPECT_THROW(c->item(0), Error);
  EXPECT_THROW(c->item(4), Error);
  EXPECT_THROW(c->add(Variant(1), u"TWO"), Error);  // keys ignore case
  Variant key[1] = {Variant(u"two")};
  EXPECT_EQ(late::call(c, u"Item", key), Variant(u"second"));
  late::call(c, u"Remove", key);
  c->remove(Variant(1.0));
  EXPECT_EQ(c->count(), 1);
  EXPECT_EQ(c->item(1), Variant(u"third"));
  EXPECT_THROW(late::get(c, u"Keys"), Error);
  // A script finds the members it may call by name before calling them.
  for (const char16_t* name : {u"count", u"Item", u"ADD", u"Remove"})
    EXPECT_TRUE(c->has_member(name)) << to_utf8(name);
  EXPECT_FALSE(c->has_member(u"Keys"));
}

}  // namespace
}  // namespace qz::vblib
