// Bulk housekeeping of defined names: showing, hiding and deleting the library's tagged names
// of a workbook or of one sheet, and removing names that point at nothing.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>

#include "host/intercept.hpp"
#include "support/fake_host.hpp"
#include "workbook/library_fixture.hpp"

namespace qz::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class NameHousekeeping : public LibraryTest {
 protected:
  NameHousekeeping() {
    book = add_book();
    sheet1 = sheet(book);
    data = book->worksheets()->add(Variant::missing(), Variant(sheet1));
    data->set_name(u"Data");
    sheet1->activate();
  }

  void define(const String& text, const String& refers, bool visible = true) {
    host::NameAddArgs args;
    args.name = Variant(text);
    args.refers_to = Variant(refers);
    args.visible = Variant(visible);
    book->names()->add(args);
  }

  // Every name of the book as "text" (visible) or "(text)" (hidden), in enumeration order.
  std::vector<std::string> listing() {
    std::vector<std::string> out;
    auto names = book->names();
    for (int32_t i = 1; i <= names->count(); ++i) {
      auto n = names->item(Variant(i));
      const std::string text = to_utf8(n->name());
      out.push_back(n->visible() ? text : "(" + text + ")");
    }
    return out;
  }

  iWorkbookPtr wkb = lib->NewWorkbook();
  iWorksheetPtr wks = lib->NewWorksheet();
  host::WorkbookPtr book;
  host::WorksheetPtr sheet1, data;
};

TEST_F(NameHousekeeping, ShowingAndHidingSelectTagsByTheirTextWithoutTheSheet) {
  define(u"_bqz.a.eqz", u"=Sheet1!$A$1", false);
  define(u"Data!_bqz.b.eqz", u"=Data!$B$2", false);
  define(u"_BQZ.c", u"=Sheet1!$C$3", false);  // the prefix is compared with regard to case
  define(u"Total", u"=Sheet1!$D$4", false);
  define(u"_bq", u"=Sheet1!$E$5", false);  // shorter than the prefix

  wkb->ShowNames(book);
  EXPECT_THAT(listing(), UnorderedElementsAre("_bqz.a.eqz", "Data!_bqz.b.eqz", "(_BQZ.c)",
                                              "(Total)", "(_bq)"));
  wkb->HideNames(book);
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.a.eqz)", "(Data!_bqz.b.eqz)", "(_BQZ.c)",
                                              "(Total)", "(_bq)"));

  // Another prefix, and all names.
  wkb->ShowNames(book, true, u"Tot");
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.a.eqz)", "(Data!_bqz.b.eqz)", "(_BQZ.c)",
                                              "Total", "(_bq)"));
  wkb->ShowNames(book, false);
  EXPECT_THAT(listing(),
              UnorderedElementsAre("_bqz.a.eqz", "Data!_bqz.b.eqz", "_BQZ.c", "Total", "_bq"));
  // An empty prefix matches every name.
  wkb->HideNames(book, true, u"");
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.a.eqz)", "(Data!_bqz.b.eqz)", "(_BQZ.c)",
                                              "(Total)", "(_bq)"));
}

TEST_F(NameHousekeeping, WithoutABookTheActiveOneIsTidied) {
  define(u"_bqz.mine", u"=Sheet1!$A$1", false);
  auto other = add_book();  // now the active workbook
  host::NameAddArgs args;
  args.name = Variant(u"_bqz.theirs");
  args.refers_to = Variant(u"=Sheet1!$A$1");
  args.visible = Variant(false);
  other->names()->add(args);

  wkb->ShowNames();
  EXPECT_TRUE(other->names()->item(Variant(u"_bqz.theirs"))->visible());
  EXPECT_THAT(listing(), ElementsAre("(_bqz.mine)"));

  wkb->DeleteNames();
  EXPECT_EQ(other->names()->count(), 0);
  EXPECT_THAT(listing(), ElementsAre("(_bqz.mine)"));
}

TEST_F(NameHousekeeping, SheetMethodsReachOnlyTheSheetsOwnNames) {
  define(u"_bqz.book", u"=Data!$A$1", false);  // workbook-level, although on Data
  define(u"Data!_bqz.data", u"=Data!$B$2", false);
  define(u"Sheet1!_bqz.one", u"=Sheet1!$B$2", false);
  define(u"Data!Local", u"=Data!$C$3", false);

  wks->ShowWksNames(data);
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.book)", "Data!_bqz.data", "(Sheet1!_bqz.one)",
                                              "(Data!Local)"));
  wks->ShowWksNames(data, false);
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.book)", "Data!_bqz.data", "(Sheet1!_bqz.one)",
                                              "Data!Local"));
  wks->HideWksNames(data, true, u"Loc");
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.book)", "Data!_bqz.data", "(Sheet1!_bqz.one)",
                                              "(Data!Local)"));

  // Without a sheet: the active one (Sheet1).
  wks->ShowWksNames();
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.book)", "Data!_bqz.data", "Sheet1!_bqz.one",
                                              "(Data!Local)"));

  wks->DeleteWksNames(data);
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.book)", "Sheet1!_bqz.one", "(Data!Local)"));
  wks->DeleteWksNames(data, false);
  EXPECT_THAT(listing(), UnorderedElementsAre("(_bqz.book)", "Sheet1!_bqz.one"));
}

TEST_F(NameHousekeeping, AnActiveChartSheetLeavesEveryNameAlone) {
  define(u"Sheet1!_bqz.one", u"=Sheet1!$B$2", false);
  engine::book_of(book)->add_sheet(u"Chart1", engine::SheetKind::Chart);
  book->charts()->item(Variant(int32_t{1}))->activate();
  wks->ShowWksNames();
  wks->DeleteWksNames(nullptr, false);
  EXPECT_THAT(listing(), ElementsAre("(Sheet1!_bqz.one)"));
}

TEST_F(NameHousekeeping, DeletingTakesEveryTagOfABookAndLeavesTheRest) {
  define(u"Total", u"=Sheet1!$A$1");
  define(u"_bqz.a", u"=Sheet1!$A$2", false);
  define(u"Data!_bqz.b", u"=Data!$A$3", false);
  define(u"_bqz.c", u"=Sheet1!$A$4", false);
  define(u"zeta", u"=Sheet1!$A$5");

  // A list whose length cannot be read is walked no further than it could be.
  auto counting_refused = host::intercept(app, [](const host::HostCall& call) {
    if (call.member == u"Names.Count") throw Error(err::host_failure, "refused");
  });
  wkb->DeleteNames(counting_refused->workbooks()->item(Variant(book->name())), false);
  EXPECT_EQ(listing().size(), 5u);

  wkb->DeleteNames(book);
  EXPECT_THAT(listing(), ElementsAre("Total", "zeta"));
  wkb->DeleteNames(book, false);
  EXPECT_THAT(listing(), IsEmpty());
}

TEST_F(NameHousekeeping, DeadNamesGoWhateverTheyAreCalled) {
  define(u"Kept", u"=Sheet1!$A$1");
  define(u"Rate", u"=0.05");
  define(u"Gone", u"=#REF!$A$1");
  define(u"_bqz.dead", u"=#REF!", false);
  define(u"Elsewhere", u"=[Other.xlsx]Sheet1!$A$1");
  define(u"Label", u"=\"[draft]\"");  // a bracket in a text counts: the test is loose

  wkb->CleanUpNames(book);
  EXPECT_THAT(listing(), UnorderedElementsAre("Kept", "Rate"));
}

// --- A host that enumerates names in an order of its own ----------------------------------

// Names in the order given, as a host that does not sort them would hand them out; deleting
// one removes it from the list.
struct ListedNames : fakes::UnsupportedWorkbook {
  struct Entry : UnsupportedName {
    Entry(ListedNames& owner, String text, String refers, bool locked)
        : owner(owner), text(std::move(text)), refers(std::move(refers)), locked(locked) {}
    String name() override { return text; }
    bool visible() override { return shown; }
    void set_visible(bool v) override { shown = v; }
    String refers_to() override { return refers; }
    void delete_() override {
      if (locked) throw Error(err::host_failure, "this name cannot be deleted");
      auto& v = owner.entries;
      v.erase(std::find_if(v.begin(), v.end(), [&](auto& e) { return e.get() == this; }));
    }
    ListedNames& owner;
    String text, refers;
    bool locked;
    bool shown = false;
  };
  struct Collection : UnsupportedNames {
    explicit Collection(ListedNames& owner) : owner(owner) {}
    int32_t count() override { return static_cast<int32_t>(owner.entries.size()); }
    host::NamePtr item(const Variant& index) override {
      return owner.entries.at(static_cast<size_t>(to_long(index) - 1));
    }
    ListedNames& owner;
  };

  ListedNames(std::initializer_list<const char16_t*> texts) {
    for (const char16_t* t : texts) {
      const String text = t;
      const bool locked = text.find(u"locked") != String::npos;
      entries.push_back(std::make_shared<Entry>(*this, text, u"=Sheet1!$A$1", locked));
    }
  }
  host::NamesPtr names() override { return std::make_shared<Collection>(*this); }
  std::vector<std::string> left() const {
    std::vector<std::string> out;
    for (auto& e : entries) out.push_back(to_utf8(e->text));
    return out;
  }
  std::vector<std::shared_ptr<Entry>> entries;
};

TEST_F(NameHousekeeping, DeletingTagsStopsAtTheFirstUntaggedNameAfterTheRun) {
  auto interrupted = std::make_shared<ListedNames>(
      std::initializer_list<const char16_t*>{u"_bqz.a", u"_bqz.b", u"Total", u"_bqz.z"});
  wkb->DeleteNames(interrupted);
  EXPECT_THAT(interrupted->left(), ElementsAre("Total", "_bqz.z"));

  // Untagged names before the first tag do not stop the walk.
  auto leading = std::make_shared<ListedNames>(
      std::initializer_list<const char16_t*>{u"Total", u"Sheet1!_bqz.a", u"_bqz.b", u"zeta"});
  wkb->DeleteNames(leading);
  EXPECT_THAT(leading->left(), ElementsAre("Total", "zeta"));

  // A tag that refuses to go is passed over, and the run goes on.
  auto locked = std::make_shared<ListedNames>(
      std::initializer_list<const char16_t*>{u"_bqz.locked", u"_bqz.b", u"Total", u"_bqz.z"});
  wkb->DeleteNames(locked);
  EXPECT_THAT(locked->left(), ElementsAre("_bqz.locked", "Total", "_bqz.z"));

  // An empty prefix matches everything, so nothing stops the walk.
  auto all = std::make_shared<ListedNames>(
      std::initializer_list<const char16_t*>{u"_bqz.a", u"Total", u"_bqz.z"});
  wkb->DeleteNames(all, true, u"");
  EXPECT_THAT(all->left(), IsEmpty());

  // Deleting every name has no early stop either.
  auto every = std::make_shared<ListedNames>(
      std::initializer_list<const char16_t*>{u"_bqz.a", u"Total", u"_bqz.z", u"_bqz.locked"});
  wkb->DeleteNames(every, false);
  EXPECT_THAT(every->left(), ElementsAre("_bqz.locked"));
}

TEST_F(NameHousekeeping, ShowingWalksTheWholeListWhateverItsOrder) {
  auto names = std::make_shared<ListedNames>(
      std::initializer_list<const char16_t*>{u"_bqz.a", u"Total", u"_bqz.z"});
  wkb->ShowNames(names);
  std::map<std::string, bool> shown;
  for (auto& e : names->entries) shown[to_utf8(e->text)] = e->shown;
  EXPECT_EQ(shown,
            (std::map<std::string, bool>{{"_bqz.a", true}, {"Total", false}, {"_bqz.z", true}}));
}

}  // namespace
}  // namespace qz::test
