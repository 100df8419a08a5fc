// Finding, opening and inspecting workbooks.
#include <filesystem>

#include "host/intercept.hpp"
#include "support/fake_host.hpp"
#include "workbook/library_fixture.hpp"

namespace qz::test {
namespace {

class Workbooks : public LibraryTest {
 protected:
  iWorkbookPtr wbk = lib->NewWorkbook();
};

TEST_F(Workbooks, TheApplicationIsAskedToOpenWithTheArgumentsGivenAndNoOthers) {
  // Each Workbooks.Open as the application receives it, the test's folder shown as "~".
  std::vector<std::string> opens;
  auto log = host::intercept(app, [&](const host::HostCall& call) {
    if (call.member != u"Workbooks.Open") return;
    std::string line = to_utf8(host::describe(call));
    line.replace(line.find(to_utf8(folder())), folder().size(), "~");
    opens.push_back(line);
  });
  lib->InitXL(log);
  scope.ui->file_answers = {write_book("Plan.xls"), write_book("Quiet.xls")};
  ASSERT_NE(wbk->OpenWkbFromUser(), nullptr);
  const auto& asked = scope.ui->file_dialogs.at(0);
  EXPECT_EQ(asked.default_name + u"|" + asked.default_folder + u"|" + asked.default_extension,
            u"||xls");
  EXPECT_TRUE(asked.must_exist);
  ASSERT_NE(wbk->OpenWkbFromUser(u"Quiet.xls", folder(), false), nullptr);
  EXPECT_EQ(scope.ui->file_dialogs.at(1).default_name, u"Quiet.xls");

  write_book("Data.xls");
  write_book("Notes.xls");
  wbk->GetWkb(log, u"Data.xls", folder(), true, nullptr, nullptr, nullptr, nullptr, nullptr,
              nullptr, nullptr, Variant(true));
  wbk->GetWkb(log, u"Notes.xls", folder(), false);
  EXPECT_EQ(
      opens,
      (std::vector<std::string>{
          R"(Workbooks.Open(Filename:="~/Plan.xls"))",
          R"(Workbooks.Open(Filename:="~/Quiet.xls", UpdateLinks:=0, IgnoreReadOnlyRecommended:=True))",
          R"(Workbooks.Open(Filename:="~\Data.xls", UpdateLinks:=False, ReadOnly:=True, Editable:=True))",
          R"(Workbooks.Open(Filename:="~\Notes.xls", UpdateLinks:=False, ReadOnly:=False))"}));
}

TEST_F(Workbooks, OpenFromUserAsksOnceAndPrefersTheOpenNamesake) {
  EXPECT_EQ(wbk->OpenWkbFromUser(u"Plan.xls", u"C:\\data"), nullptr);  // cancelled
  ASSERT_EQ(scope.ui->file_dialogs.size(), 1u);
  const auto& asked = scope.ui->file_dialogs[0];
  EXPECT_EQ(asked.filter, String(u"Excel Files (*.XLS)") + u'\0' + u"*.xls");
  EXPECT_EQ(asked.title, u"Quazel -- Choose File");

  scope.ui->file_answers.push_back(write_book("Plan.xls", "Inputs\nOutputs"));
  auto plan = wbk->OpenWkbFromUser(u"", u"", false);
  ASSERT_NE(plan, nullptr);
  EXPECT_EQ(plan->name(), u"Plan.xls");
  EXPECT_EQ(plan->sheets()->count(), 2);

  // The same name from another folder: the copy already open comes back, nothing opens.
  std::filesystem::create_directory(dir / "other");
  scope.ui->file_answers.push_back(write_book("other/Plan.xls"));
  EXPECT_EQ(wbk->OpenWkbFromUser(), plan);
  EXPECT_EQ(books(), 1);
}

TEST_F(Workbooks, StateOfOpenWorkbooks) {
  auto book = add_book();
  EXPECT_TRUE(wbk->IsOpen(nullptr, book->name()));
  EXPECT_FALSE(wbk->IsOpen(nullptr, u"Nowhere.xls"));
  EXPECT_TRUE(wbk->IsOpen(book, u"ignored when a workbook is given"));

  EXPECT_EQ(wbk->GetWkbCodeName(book), u"ThisWorkbook");  // never compiled
  engine::book_of(book)->code_name = u"wbPlan";
  EXPECT_EQ(wbk->GetWkbCodeName(book), u"wbPlan");
  EXPECT_EQ(wbk->GetWkbCodeName(nullptr), u"");

  // Two windows, one hidden, is not hidden; with both hidden it is.
  engine::book_of(book)->windows.push_back({});
  book->windows()->item(Variant(int32_t{1}))->set_visible(false);
  EXPECT_FALSE(wbk->WkbIsHidden(book));
  book->windows()->item(Variant(int32_t{2}))->set_visible(false);
  EXPECT_TRUE(wbk->WkbIsHidden(book));
}

// Every output of GetWkb, set to values the method must either write or leave alone.
struct Outputs {
  bool opened = true, conflict = true, alerts = true, save_calc = true, changed = false;
  String blank = u"untouched";
  int32_t calc = 12345;
  std::string line() const {
    return std::string(opened ? "opened " : "") + (conflict ? "conflict " : "") +
           (changed ? "changed " : "") + "calc=" + std::to_string(calc) +
           (alerts ? " alerts" : "") + (save_calc ? " save" : "");
  }
};

class GetWkb : public Workbooks {
 protected:
  host::WorkbookPtr get(const String& name, bool read_only, Outputs& o, String path = u"") {
    return wbk->GetWkb(app, name, path.empty() ? folder() : path, read_only, &o.opened, &o.conflict,
                       &o.blank, &o.calc, &o.alerts, &o.save_calc, &o.changed);
  }
};

TEST_F(GetWkb, FindsTheOpenCopyByFolderWithoutRegardToCase) {
  auto book = add_book();
  engine::book_of(book)->path = u"C:\\a";
  Outputs o;
  EXPECT_EQ(get(book->name(), false, o, u"c:\\A"), book);
  EXPECT_EQ(o.line(), "calc=12345 alerts save");
  EXPECT_EQ(o.blank, u"");

  // From another folder it is a conflict, even though the file exists there.
  write_book("Budget.xls");
  engine::book_of(book)->name = u"Budget.xls";
  EXPECT_EQ(get(u"Budget.xls", false, o), nullptr);
  EXPECT_EQ(o.line(), "conflict calc=12345 alerts save");
  EXPECT_EQ(books(), 1);
}

TEST_F(GetWkb, QuietReadOnlyOpenChangesTheSettingsOnlyWhenItMust) {
  Outputs o;
  EXPECT_EQ(get(u"Missing.xls", true, o), nullptr);
  EXPECT_EQ(o.line(), "calc=12345 alerts save");
  EXPECT_EQ(books(), 0);

  // No workbook open: a blank one is added, and the settings are handed back.
  write_book("Data.xls");
  auto data = get(u"Data.xls", true, o);
  ASSERT_TRUE(data && data->read_only());
  EXPECT_EQ(o.line(), "opened changed calc=-4105 alerts save");
  EXPECT_TRUE(wbk->IsOpen(nullptr, o.blank));
  EXPECT_EQ(books(), 2);
  EXPECT_EQ(app->calculation(), -4135);
  EXPECT_FALSE(app->display_alerts() || app->calculate_before_save());

  // With the quiet settings in place, nothing is changed or handed back.
  write_book("More.xls");
  Outputs again;
  ASSERT_NE(get(u"More.xls", true, again), nullptr);
  EXPECT_EQ(again.line(), "opened calc=12345 alerts save");
  EXPECT_EQ(again.blank, u"");
}

TEST_F(GetWkb, WritableOpenReplacesAReadOnlyCopyAndHonoursTheFileMark) {
  write_book("Data.xls");
  Outputs o;
  ASSERT_NE(get(u"Data.xls", true, o), nullptr);
  auto second = get(u"Data.xls", false, o);
  ASSERT_TRUE(second && !second->read_only());
  EXPECT_FALSE(o.opened);  // it was open before the call
  EXPECT_EQ(books(), 2);   // the blank book and the reopened one

  write_book("Locked.xls");
  std::filesystem::permissions(dir / "Locked.xls", std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::remove);
  auto locked = get(u"Locked.xls", false, o);
  ASSERT_TRUE(locked && locked->read_only());
  EXPECT_TRUE(o.opened);
}

TEST_F(Workbooks, SetWksCountDeletesFromTheEndOrAdds) {
  auto book = add_book();
  for (int i = 0; i < 4; ++i)
    book->worksheets()->add(Variant::missing(), Variant(sheet(book, i + 1)));
  ASSERT_EQ(book->worksheets()->count(), 5);
  EXPECT_TRUE(wbk->SetWksCount(book, 3));
  EXPECT_EQ(book->worksheets()->count(), 3);
  EXPECT_EQ(sheet(book, 3)->name(), u"Sheet3");

  EXPECT_TRUE(wbk->SetWksCount(book, 1));
  EXPECT_TRUE(wbk->SetWksCount());  // the active workbook, to the default three
  EXPECT_EQ(book->worksheets()->count(), 3);

  book->close();
  EXPECT_FALSE(wbk->SetWksCount());  // no workbook to count in
}

TEST_F(Workbooks, SetWksCountAddsBeforeTheActiveSheet) {
  auto book = add_book();
  book->worksheets()->add(Variant::missing(), Variant(sheet(book, 1)))->set_name(u"Last");
  sheet(book, 1)->set_name(u"First");
  sheet(book, 2)->activate();
  EXPECT_TRUE(wbk->SetWksCount(book, 4));
  std::vector<String> order;
  for (int32_t i = 1; i <= 4; ++i) order.push_back(sheet(book, i)->name());
  EXPECT_EQ(order.front() + u"," + order.back(), u"First,Last");
}

}  // namespace
}  // namespace qz::test
