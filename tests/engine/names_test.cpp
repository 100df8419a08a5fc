// Defined names: adding, lookup by text and index, the enumeration order the library's tag
// scans rely on, RefersTo and RefersToRange, Range.Name, and bad names.
#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using Names = EngineTest;

host::NamePtr add_name(const host::NamesPtr& names, const char* name, Variant refers_to,
                       bool visible = true) {
  host::NameAddArgs args;
  args.name = V(name);
  args.refers_to = std::move(refers_to);
  if (!visible) args.visible = Variant(false);
  return names->add(args);
}

std::vector<std::string> listed(const host::NamesPtr& names) {
  std::vector<std::string> out;
  for (int32_t i = 1; i <= names->count(); ++i) out.push_back(to_utf8(names->item(V(i))->name()));
  return out;
}

TEST_F(Names, EnumerationIsByCodeUnitsOfTheUnqualifiedText) {
  auto names = wb->names();
  add_name(names, "total", V("=Sheet1!$A$1"));
  add_name(names, "_bqz.0F.eqz", V("=Sheet1!$A$2"), false);
  add_name(names, "Total", V("=Sheet1!$A$3"));  // same text, other case: the same name
  add_name(names, "Zeta", V("=Sheet1!$A$4"));
  add_name(ws->names(), "Alpha", V("=Sheet1!$A$6"));
  add_name(names, "Alpha", V("=Sheet1!$A$7"));
  // Capitals and digits sort before "_", lower case after; a workbook-level name comes
  // before a sheet-level name of the same text.
  EXPECT_EQ(listed(names),
            (std::vector<std::string>{"Alpha", "Sheet1!Alpha", "Zeta", "_bqz.0F.eqz", "total"}));
  EXPECT_EQ(listed(ws->names()), (std::vector<std::string>{"Sheet1!Alpha"}));
  EXPECT_EQ(names->item(V("Zeta"))->index(), 3);
}

TEST_F(Names, LookupByTextFindsWorkbookThenSheetLevelNames) {
  auto other = wb->worksheets()->add(Variant::missing(), Variant(ObjectPtr(ws)));
  add_name(other->names(), "Rate", V("=Sheet2!$B$1"));
  auto names = wb->names();
  EXPECT_EQ(to_utf8(names->item(V("Rate"))->name()), "Sheet2!Rate");
  EXPECT_EQ(to_utf8(names->item(V("Sheet2!Rate"))->name()), "Sheet2!Rate");
  add_name(names, "Rate", V("=Sheet1!$C$1"));
  EXPECT_EQ(to_utf8(names->item(V("rate"))->name()), "Rate");
  EXPECT_THROW(names->item(V("Sheet1!Rate")), Error);
  EXPECT_THROW(names->item(V("Missing")), Error);
  EXPECT_THROW(names->item(V(99)), Error);
  // Deleting the workbook-level name uncovers the sheet-level one.
  names->item(V("Rate"))->delete_();
  EXPECT_EQ(to_utf8(names->item(V("Rate"))->name()), "Sheet2!Rate");
  EXPECT_EQ(names->item(V("Rate"))->parent()->type_name(), u"Worksheet");
}

TEST_F(Names, RefersToAndRefersToRange) {
  auto n = add_name(wb->names(), "Block", Variant(ObjectPtr(r("B2:C3"))));
  EXPECT_EQ(to_utf8(n->refers_to()), "=Sheet1!$B$2:$C$3");
  EXPECT_EQ(to_utf8(n->refers_to_r1c1()), "=Sheet1!R2C2:R3C3");
  EXPECT_EQ(addr(n->refers_to_range()), "B2:C3");
  EXPECT_EQ(addr(ws->range(V("Block"))), "B2:C3");
  EXPECT_EQ(to_utf8(r("B2:C3")->name()->name()), "Block");
  EXPECT_EQ(r("B2:C4")->name(), nullptr);  // only an exact reference names a range
  auto k = add_name(wb->names(), "Rate", V("=0.05"));
  EXPECT_EQ(to_utf8(k->refers_to()), "=0.05");
  EXPECT_THROW(k->refers_to_range(), Error);
  ws->set_name(u"Data Sheet");
  EXPECT_EQ(to_utf8(n->refers_to()), "='Data Sheet'!$B$2:$C$3");
  auto all = add_name(wb->names(), "_bqz.1.eqz", Variant(ObjectPtr(ws->cells())), false);
  EXPECT_EQ(to_utf8(all->refers_to()), "='Data Sheet'!$1:$1048576");
  EXPECT_EQ(to_utf8(ws->cells()->name()->name()), "_bqz.1.eqz");
  EXPECT_FALSE(all->visible());
}

TEST_F(Names, BadNamesAreRefused) {
  auto names = wb->names();
  for (const char* bad : {"", "A1", "R1C1", "R", "1abc", "has space", "a-b", "XFD1048576"})
    EXPECT_THROW(add_name(names, bad, V("=1")), Error) << bad;
  EXPECT_THROW(add_name(names, "Good", V("=SUM(")), Error);
  EXPECT_EQ(names->count(), 0);
  for (const char* good : {"_x", "\\back", "Sales.2024", "A1B", "R1C1X", "Über"})
    EXPECT_NO_THROW(add_name(names, good, V("=1"))) << good;
}

TEST_F(Names, RenamingAndHiding) {
  auto n = add_name(wb->names(), "Old", V("=Sheet1!$A$1"));
  add_name(wb->names(), "Middle", V("=1"));
  EXPECT_EQ(listed(wb->names()), (std::vector<std::string>{"Middle", "Old"}));
  n->set_name(u"New");
  EXPECT_EQ(listed(wb->names()), (std::vector<std::string>{"Middle", "New"}));
  n->set_name(u"Alpha");
  EXPECT_EQ(listed(wb->names()), (std::vector<std::string>{"Alpha", "Middle"}));
  n->set_name(u"New");
  EXPECT_EQ(to_utf8(wb->names()->item(V("New"))->name()), "New");
  EXPECT_THROW(wb->names()->item(V("Old")), Error);
  n->set_visible(false);
  EXPECT_FALSE(wb->names()->item(V("New"))->visible());
  add_name(wb->names(), "Other", V("=1"));
  EXPECT_THROW(n->set_name(u"other"), Error);  // taken, whatever the case
}

}  // namespace
}  // namespace qz::engine::test
