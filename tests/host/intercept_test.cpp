// The forwarding host: an engine application seen through a hook that records every call,
// and refuses the ones a test chooses.
#include "host/intercept.hpp"

#include <gtest/gtest.h>

#include "engine/host/engine.hpp"
#include "host/dispatch.hpp"
#include "qzxl/convert.hpp"

namespace qz::host {
namespace {

class Intercept : public ::testing::Test {
 protected:
  void SetUp() override {
    inner = engine::create_application();
    inner->workbooks()->add();
    app = intercept(inner, [this](const HostCall& call) {
      seen.push_back(to_utf8(describe(call)));
      if (refuse == call.member) throw Error(err::host_failure, "refused");
    });
  }

  ApplicationPtr inner;
  ApplicationPtr app;
  std::vector<std::string> seen;
  StringView refuse;
};

TEST_F(Intercept, ForwardsEachCallAfterTheHookSawIt) {
  auto sheet = app->active_workbook()->worksheets()->item(Variant(int32_t(1)));
  sheet->range(Variant(u"A1"))->set_formula(u"=1+\"2\"");
  EXPECT_EQ(to_double(inner->range(Variant(u"A1"))->value()), 3);
  EXPECT_EQ(seen,
            (std::vector<std::string>{"Application.ActiveWorkbook", "Workbook.Worksheets",
                                      "Worksheets.Item(Index:=1)", "Worksheet.Range(Cell1:=\"A1\")",
                                      "Range.Formula = \"=1+\"\"2\"\"\""}));
  // What the host hands out comes wrapped, under the host's own type names.
  EXPECT_NE(unwrap(sheet), sheet);
  EXPECT_EQ(unwrap(sheet)->type_name(), u"Worksheet");
  EXPECT_EQ(sheet->type_name(), u"Worksheet");
  EXPECT_NE(std::dynamic_pointer_cast<Worksheet>(app->active_sheet()), nullptr);
  EXPECT_NE(unwrap(app->active_sheet()), app->active_sheet());
}

TEST_F(Intercept, ObjectsHandedBackReachTheHostAsItsOwn) {
  auto block = app->range(Variant(u"B2:C3"));
  // The engine takes only its own ranges: as a struct field inside a Variant, and as an
  // object argument.
  NameAddArgs args;
  args.name = Variant(u"Total");
  args.refers_to = Variant(block);
  args.visible = Variant(false);
  app->active_workbook()->names()->add(args);
  EXPECT_EQ(seen.back(), "Names.Add(Name:=\"Total\", RefersTo:=<Range>, Visible:=False)");
  EXPECT_EQ(inner->active_workbook()->names()->item(Variant(u"Total"))->refers_to(),
            u"=Sheet1!$B$2:$C$3");
  auto joined = app->union_(block, app->range(Variant(u"E5")));
  EXPECT_EQ(joined->address(), u"$B$2:$C$3,$E$5");
  EXPECT_EQ(seen.back(),
            "Range.Address(RowAbsolute:=True, ColumnAbsolute:=True, "
            "ReferenceStyle:=1, External:=False, RelativeTo:=Nothing)");
}

TEST_F(Intercept, AHookThatRaisesRefusesTheCallBeforeTheHostSeesIt) {
  auto cell = app->range(Variant(u"A1"));
  refuse = u"Range.Formula";
  try {
    cell->set_formula(u"=1");
    FAIL() << "the refusal did not reach the caller";
  } catch (const Error& e) {
    EXPECT_EQ(e.code(), err::host_failure);
  }
  EXPECT_EQ(inner->range(Variant(u"A1"))->formula(), u"");
  // Only that member is refused.
  cell->set_value(Variant(int32_t(4)));
  EXPECT_EQ(to_double(inner->range(Variant(u"A1"))->value()), 4);
}

TEST_F(Intercept, CellsVisitedAndLateBoundCallsGoThroughTheHookToo) {
  std::vector<String> visited;
  app->range(Variant(u"A1:B1"))->for_each_cell([&](const RangePtr& cell) {
    visited.push_back(cell->address(false, false));
    return true;
  });
  EXPECT_EQ(visited, (std::vector<String>{u"A1", u"B1"}));
  EXPECT_EQ(seen[1], "Range._NewEnum");
  EXPECT_EQ(seen[2].rfind("Range.Address(RowAbsolute:=False", 0), 0u);

  // Late binding finds a wrapper's members by its host class.
  seen.clear();
  Variant index[] = {Variant(int32_t(3)), Variant(int32_t(255))};
  invoke_member(app->active_workbook(), u"Colors", Invoke::Put, index);
  EXPECT_EQ(seen,
            (std::vector<std::string>{"Application.ActiveWorkbook", "Workbook.Colors(3) = 255"}));
  EXPECT_EQ(inner->active_workbook()->colors(3), 255);
}

}  // namespace
}  // namespace qz::host
