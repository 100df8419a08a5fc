// Tags and landmarks against the engine's defined names.
#include "frame/session.hpp"
#include "library_fixture.hpp"
#include "support/fake_host.hpp"
#include "vblib/vblib.hpp"

namespace qz::test {
namespace {

class Tags : public LibraryTest {
 protected:
  void name(const char16_t* text, const char16_t* refers_to, bool visible = true) {
    define(ws->names(), text, refers_to, visible);
  }
  std::string find(const char* a, bool look = false) {
    return to_utf8(ranges->FindQZTag(r(a), u"_bqz.", 5, u".eqz", 4, look));
  }
  std::string specific(const char* a) {
    return to_utf8(ranges->FindSpecificQZTag(r(a), u"_bqz.", 5, u".eqz", 4));
  }
};

TEST_F(Tags, FindingATagOverACellOrOfExactlyIt) {
  name(u"_bqz.BLOCK.eqz", u"=Sheet1!$A$1:$C$3", false);
  name(u"_bqz.OWN.eqz", u"=Sheet1!$C$3", false);
  name(u"total", u"=Sheet1!$A$1");
  name(u"Total2", u"=Sheet1!$B$2");
  // The cell's own name decides first: a lower-case one sorts after the prefix, so there
  // is no search at all; a capital one falls back to the search.
  EXPECT_EQ(find("A1"), "");
  EXPECT_EQ(find("B2"), "_bqz.BLOCK.eqz");
  EXPECT_EQ(find("C3"), "_bqz.OWN.eqz");
  // Without a name of its own a cell is searched for only when asked.
  EXPECT_EQ(find("A2"), "");
  EXPECT_EQ(find("A2", true), "_bqz.BLOCK.eqz");
  EXPECT_EQ(find("E5", true), "");
  // The specific search wants a tag of exactly the cell.
  EXPECT_EQ(specific("A2"), "");
  EXPECT_EQ(specific("B2"), "");
  EXPECT_EQ(specific("C3"), "_bqz.OWN.eqz");
  EXPECT_EQ(to_utf8(ranges->SrchForQZTag(r("B2"), u"_BQZ.", 5, u".eqz", 4)), "");
}

TEST_F(Tags, AssignRangeTagCreatesAHiddenTagOnceAndMarksTheWorkbook) {
  String wks_name, landmark;
  bool created = false;
  EXPECT_TRUE(ranges->AssignRangeTag(r("B2:C3"), wks_name, landmark, u"QZDirty", &created));
  EXPECT_TRUE(created);
  ASSERT_EQ(landmark.size(), 5u + 32u + 4u) << to_utf8(landmark);
  EXPECT_EQ(landmark.substr(0, 5) + landmark.substr(37), u"_bqz..eqz");
  auto tag = ws->names()->item(Variant(landmark));
  EXPECT_FALSE(tag->visible());
  EXPECT_EQ(addr(tag->refers_to_range()), "B2:C3");
  EXPECT_EQ(vblib::DocProps::get_text(wb, u"QZDirty"), u"true");

  // The range has its name now: the caller's landmark stands, and since it is one of the
  // sheet's own names the answer is False. A stale landmark is replaced by that name.
  const String first = landmark;
  created = false;
  EXPECT_FALSE(ranges->AssignRangeTag(r("B2:C3"), wks_name, landmark, u"QZDirty", &created));
  EXPECT_FALSE(created);
  landmark = u"Elsewhere";
  ranges->AssignRangeTag(r("B2:C3"), wks_name, landmark, u"QZDirty", nullptr);
  EXPECT_EQ(landmark, first);
  // A landmark that is no name but reaches the same cells stands, and is none of the sheet's
  // names.
  landmark = u"$B$2:$C$3";
  EXPECT_TRUE(ranges->AssignRangeTag(r("B2:C3"), wks_name, landmark, u"QZDirty", nullptr));
  EXPECT_EQ(landmark, u"$B$2:$C$3");
}

TEST_F(Tags, WithoutTheSiblingServicesNoTagIsMadeThoughTheStepsSaySo) {
  vblib::set_load_failure(true);
  frame::ReleaseGlobals();
  String unused;
  lib->NewPublic(unused);
  lib->InitXL(app);
  String wks_name = u"kept", landmark = u"Sheet1!Mine";
  bool created = false;
  EXPECT_TRUE(ranges->AssignRangeTag(r("B2"), wks_name, landmark, u"QZDirty", &created));
  EXPECT_TRUE(created);
  EXPECT_EQ(ws->names()->count() + wb->names()->count(), 0);
  EXPECT_EQ(wks_name + u"|" + landmark, u"kept|Mine");
  EXPECT_EQ(vblib::DocProps::get_text(wb, u"QZDirty"), u"");
}

// A worksheet whose names come in the order given, as a host that keeps its own order lists
// them; each name refers to a cell known only by its address.
class Spot : public UnsupportedRange {
 public:
  Spot(String where, host::WorksheetPtr sheet) : where_(std::move(where)), sheet_(sheet) {}
  String address(bool, bool, int32_t, bool, const host::RangePtr&) override { return where_; }
  host::WorksheetPtr worksheet() override { return sheet_; }

 private:
  String where_;
  host::WorksheetPtr sheet_;
};
class Listed : public UnsupportedName {
 public:
  Listed(String text, host::RangePtr target) : text_(std::move(text)), target_(target) {}
  String name() override { return text_; }
  host::RangePtr refers_to_range() override { return target_; }

 private:
  String text_;
  host::RangePtr target_;
};
class InOrder : public UnsupportedNames {
 public:
  std::vector<host::NamePtr> list;
  int32_t count() override { return static_cast<int32_t>(list.size()); }
  host::NamePtr item(const Variant& i) override { return list.at(to_long(i) - 1); }
};
class OwnOrderSheet : public UnsupportedWorksheet {
 public:
  std::shared_ptr<InOrder> names_ = std::make_shared<InOrder>();
  host::NamesPtr names() override { return names_; }
};
class Overlapping : public UnsupportedApplication {
 public:
  host::RangePtr intersect(const host::RangePtr& a, const host::RangePtr& b) override {
    return a->address() == b->address() ? a : nullptr;
  }
};

TEST_F(Tags, TheSearchStopsAtTheFirstNameSortingAfterThePrefixInTheHostsOwnOrder) {
  auto sheet = std::make_shared<OwnOrderSheet>();
  auto cell = std::make_shared<Spot>(u"$B$2", sheet);
  frame::session().XLApp = std::make_shared<Overlapping>();
  auto scan = [&](const char16_t* first) {
    sheet->names_->list = {std::make_shared<Listed>(first, cell),
                           std::make_shared<Listed>(u"Sheet1!_bqz.T.eqz", cell)};
    return to_utf8(ranges->SrchForQZTag(cell, u"_bqz.", 5, u".eqz", 4) + u"|" +
                   ranges->SrchForQZCellTag(cell, u"_bqz.", 5, u".eqz", 4));
  };
  // "zeta" sorts after "_bqz." by character code and ends the walk; "Zeta" sorts before it.
  EXPECT_EQ(scan(u"zeta"), "|");
  EXPECT_EQ(scan(u"Sheet1!zeta"), "|");
  EXPECT_EQ(scan(u"Zeta"), "_bqz.T.eqz|_bqz.T.eqz");
  EXPECT_EQ(scan(u"_bqz.T.eqy"), "_bqz.T.eqz|_bqz.T.eqz");
  sheet->names_->list.clear();  // the names point back at the sheet through the cell
}

TEST_F(Tags, RangeFromLandmarkResolvesWorkbookLevelNames) {
  define(wb->names(), u"Anchor", u"=Sheet1!$E$5:$F$6");
  EXPECT_EQ(addr(ranges->RangeFromLandmark(wb, u"Anchor", u"", Variant::missing())), "E5:F6");
  EXPECT_FALSE(ranges->RangeFromLandmark(wb, u"", u"", Variant::missing()));
  EXPECT_FALSE(ranges->RangeFromLandmark(wb, u"Missing", u"", Variant::missing()));
}

TEST_F(Tags, EraseNamesInRangeDeletesEveryNameTouchingIt) {
  name(u"_bqz.A.eqz", u"=Sheet1!$A$1:$B$2", false);
  name(u"Inside", u"=Sheet1!$C$3");
  name(u"Outside", u"=Sheet1!$H$8");
  name(u"Rate", u"=0.05");  // refers to no range: passed over
  ranges->EraseNamesInRange(r("B2:C3"));
  auto names = ws->names();
  ASSERT_EQ(names->count(), 2);
  EXPECT_EQ(names->item(Variant(1))->name() + names->item(Variant(2))->name(),
            u"Sheet1!OutsideSheet1!Rate");
  r("H8")->select();  // without a range, the selection
  ranges->EraseNamesInRange(nullptr);
  EXPECT_EQ(ws->names()->count(), 1);
}

}  // namespace
}  // namespace qz::test
