// Add-ins, the startup template, the number formats a workbook offers, palette indices.
#include <algorithm>
#include <filesystem>

#include "workbook/library_fixture.hpp"

namespace qz::test {
namespace {

namespace fs = std::filesystem;

class AddIns : public LibraryTest {
 protected:
  iWorkbookPtr wbk = lib->NewWorkbook();
};

TEST_F(AddIns, FoundByExactNameWithTheirTitles) {
  app->add_ins()->add(write_book("Addin.xla"));
  EXPECT_TRUE(wbk->InAddInCollection(u"Addin.xla"));
  EXPECT_FALSE(wbk->InAddInCollection(u"ADDIN.XLA"));  // binary comparison
  EXPECT_EQ(wbk->GetTitle(u"Addin.xla"), u"Addin");
  EXPECT_EQ(wbk->GetTitle(u"Other.xla"), u"");
}

TEST_F(AddIns, InstallUsesTheApplicationAtHandAndQuitsOnlyOneItStarted) {
  add_book();
  String tools = write_book("Tools.xla");
  EXPECT_TRUE(wbk->InstallAddIn(tools));
  EXPECT_TRUE(app->add_ins()->item(Variant(u"Tools.xla"))->installed());
  EXPECT_EQ(app->workbooks()->count(), 1);  // the session's application stays
  EXPECT_FALSE(wbk->InstallAddIn(u16((dir / "Missing.xla").string())));

  // No application in the session: one is started for the install and quits again.
  frame::session().XLApp = nullptr;
  auto started = engine::create_application();
  started->workbooks()->add();
  scope.platform->can_start = true;
  scope.platform->after_start = started;
  EXPECT_TRUE(wbk->InstallAddIn(tools));
  EXPECT_TRUE(started->add_ins()->item(Variant(int32_t{1}))->installed());
  EXPECT_EQ(started->workbooks()->count(), 0);

  scope.platform->running = nullptr;
  scope.platform->can_start = false;
  EXPECT_FALSE(wbk->InstallAddIn(tools));  // no application to be had
}

class Templates : public AddIns {
 protected:
  Templates() {
    scope.platform->app_data = u16((dir / "user").string());
    for (auto d : {"alt", "user/Microsoft/Excel/XLStart", "program/XLStart", "src"})
      fs::create_directories(dir / d);
    app->set_alt_startup_path(u16((dir / "alt").string()));
    write_book("src/Tpl.xlt", "Client");
  }
  std::vector<std::string> copies() {
    std::vector<std::string> out;
    for (auto d : {"alt", "user/Microsoft/Excel/XLStart", "program/XLStart"})
      if (fs::exists(dir / d / "Tpl.xlt")) out.push_back(d);
    return out;
  }
  String source_folder() { return u16((dir / "src").string()); }
};

TEST_F(Templates, SyncCopiesToTheFirstStartupFolderAndRemovesTheOthers) {
  write_book("user/Microsoft/Excel/XLStart/Tpl.xlt");
  write_book("program/XLStart/Tpl.xlt");
  EXPECT_EQ(wbk->SyncTemplate(source_folder(), u"Tpl.xlt"), u"");
  EXPECT_EQ(copies(), std::vector<std::string>{"alt"});

  // Without an alternate folder the user's own comes first.
  app->set_alt_startup_path(u"");
  EXPECT_EQ(wbk->SyncTemplate(source_folder(), u"Tpl.xlt"), u"");
  EXPECT_EQ(copies(), (std::vector<std::string>{"alt", "user/Microsoft/Excel/XLStart"}));
}

TEST_F(Templates, SyncReportsWhatWentWrong) {
  String missing = wbk->SyncTemplate(source_folder(), u"Gone.xlt");
  EXPECT_EQ(missing, u"The source file at '" + source_folder() +
                         u"/Gone.xlt' could not be found.  It may have been moved or deleted.");
  EXPECT_TRUE(copies().empty());

  // A folder in the way of the copy: it cannot be written.
  fs::create_directory(dir / "alt" / "Tpl.xlt");
  EXPECT_EQ(wbk->SyncTemplate(source_folder(), u"Tpl.xlt"),
            u"Could not write to the following destination: " + u16((dir / "alt").string()) +
                u"\\Tpl.xlt\r\rPlease check the write permissions to the folder listed above.");

  // No startup folder at all: nothing is copied to the root of the drive. The template has a
  // name of this test's own, so that a copy that went there anyway is found and taken away.
  for (auto d : {"alt", "user", "program"}) fs::remove_all(dir / d);
  const std::string own = dir.path().filename().string() + ".xlt";
  write_book("src/" + own);
  EXPECT_EQ(wbk->SyncTemplate(source_folder(), u16(own)),
            u"No valid template path could be located.");
  EXPECT_FALSE(fs::remove(fs::path("/") / own));
}

TEST_F(Templates, RestoreRemovesEveryCopyAndSavesTheOpenOneFirst) {
  ASSERT_EQ(wbk->SyncTemplate(source_folder(), u"Tpl.xlt"), u"");
  write_book("program/XLStart/Tpl.xlt");
  auto open = app->workbooks()->open({u16((dir / "alt" / "Tpl.xlt").string())});
  open->worksheets()->add()->set_name(u"Added");
  auto model = engine::book_of(open);
  wbk->RestoreDefaultTemplate(u"Tpl.xlt");
  EXPECT_TRUE(copies().empty());
  EXPECT_EQ(books(), 0);
  EXPECT_TRUE(model->saved);  // saved before its file went

  // A template of that name open from elsewhere is not the one removed: it stays open.
  ASSERT_EQ(wbk->SyncTemplate(source_folder(), u"Tpl.xlt"), u"");
  app->workbooks()->open({u16((dir / "src" / "Tpl.xlt").string())});
  wbk->RestoreDefaultTemplate(u"Tpl.xlt");
  EXPECT_TRUE(copies().empty());
  EXPECT_EQ(books(), 1);
}

TEST_F(AddIns, ColorIndexComesFromThePaletteAndTheProbeKeepsItsFill) {
  auto book = add_book();
  auto probe = sheet(book)->range(Variant(u"A1"));
  EXPECT_EQ(wbk->ColorIndexFromColor(255, book), 3);  // pure red
  EXPECT_EQ(wbk->ColorIndexFromColor(0xFE0000), 5);   // nearly pure blue
  EXPECT_EQ(to_long(probe->interior()->color_index()), host::xl::ColorIndexNone);

  probe->interior()->set_color_index(Variant(int32_t{6}));
  EXPECT_EQ(wbk->ColorIndexFromColor(0x00FF00, book), 4);
  EXPECT_EQ(to_long(probe->interior()->color_index()), 6);
}

TEST_F(AddIns, NumberFormatsAreWalkedToTheEndOfTheList) {
  auto book = add_book();
  auto ws = sheet(book);
  ws->range(Variant(u"A1"))->set_number_format(u"0.0%");
  ws->range(Variant(u"B2"))->set_number_format(u"0.000\" kg\"");
  ws->range(Variant(u"B3"))->set_number_format(u"[Blue]#,##0;[Red]-#,##0");
  engine::book_of(book)->add_sheet(u"Chart1", engine::SheetKind::Chart, 0);
  book->charts()->item(Variant(int32_t{1}))->activate();  // not a worksheet: the first one is used

  Variant got = wbk->WkbCustomNumFormats();
  ASSERT_TRUE(got.is_array() && got.array().lower == 1);
  std::vector<std::string> f;
  for (const Variant& v : got.array().items) f.push_back(to_utf8(v.str()));
  ASSERT_GE(f.size(), 4u);
  EXPECT_EQ(f.front(), "0");  // the entry after General
  EXPECT_EQ(std::vector<std::string>(f.end() - 3, f.end()),
            (std::vector<std::string>{"0.0%", "0.000\" kg\"", "[Blue]#,##0;[Red]-#,##0"}));
  EXPECT_EQ(std::count(f.begin(), f.end(), "General"), 0);

  // The probe and the application are as they were.
  EXPECT_EQ(ws->range(Variant(u"A1"))->number_format(), Variant(u"0.0%"));
  EXPECT_TRUE(app->calculation() == host::xl::CalculationAutomatic && app->display_alerts());
  EXPECT_EQ(app->active_sheet()->type_name(), u"Chart");
}

}  // namespace
}  // namespace qz::test
