#include <gtest/gtest.h>

#include <map>
#include <set>

#include "control/control.hpp"
#include "engine/host/engine.hpp"
#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"

namespace qz {
namespace {

using Log = std::vector<std::string>;
using Props = std::map<std::string, Variant>;

// A forms object: named properties (a missing one raises 438), SetFocus, and a log of what
// was done to it.
class FormObject : public Object {
 public:
  explicit FormObject(Props props, Log* log = nullptr) : props(std::move(props)), log_(log) {}
  String type_name() const override { return u"Control"; }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    std::string member = to_utf8(name);
    auto it = props.find(member);
    if (kind == Invoke::Method && member == "SetFocus")
      note("SetFocus");
    else if (it == props.end())
      return Object::invoke(name, kind, args);
    else if (kind == Invoke::Get)
      return it->second;
    else
      it->second = args[0], note(member + "=" + to_utf8(to_string(args[0])));
    return Variant();
  }
  Props props;

 private:
  void note(const std::string& s) {
    if (log_) log_->push_back(s);
  }
  Log* log_;
};

// A Controls collection: 0-based Item, Remove by name (later controls move down); controls
// placed at design time refuse to go.
class Controls : public Object {
 public:
  std::vector<std::shared_ptr<FormObject>> items;
  std::set<std::string> fixed;
  Log removed;
  String type_name() const override { return u"Controls"; }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    if (same_member(name, u"Count")) return static_cast<int32_t>(items.size());
    if (same_member(name, u"Item")) return ObjectPtr(items.at(to_long(args[0])));
    if (!same_member(name, u"Remove")) return Object::invoke(name, kind, args);
    std::string target = to_utf8(args[0].str());
    if (fixed.count(target)) throw Error(err::host_failure, "cannot remove");
    std::erase_if(items, [&](auto& c) { return to_utf8(c->props["Name"].str()) == target; });
    removed.push_back(target);
    return Variant();
  }
};

std::shared_ptr<FormObject> control(double left, double top, double width, double height,
                                    const char16_t* name = u"ctl") {
  return std::make_shared<FormObject>(
      Props{{"Left", left}, {"Top", top}, {"Width", width}, {"Height", height}, {"Name", name}});
}

// A form or frame holding the given controls.
std::pair<ObjectPtr, std::shared_ptr<Controls>> container(
    std::vector<std::shared_ptr<FormObject>> items = {}) {
  auto controls = std::make_shared<Controls>();
  controls->items = std::move(items);
  return {std::make_shared<FormObject>(Props{{"Controls", ObjectPtr(controls)}}), controls};
}

class ControlTest : public ::testing::Test {
 protected:
  iControl impl;
  _iControl& c = impl;  // the defaults are the interface's, as clients call it
  Log log;
};

using Layout = ControlTest;

TEST_F(Layout, NextControlTopGoesBelowTheLastControlAdded) {
  EXPECT_EQ(c.NextControlTop(nullptr), 0);
  EXPECT_EQ(c.NextControlTop(container().first), 10);
  EXPECT_EQ(c.NextControlTop(container().first, false, 4, 0, 20), 20);
  auto one = container({control(8, 10, 60, 18)}).first;
  EXPECT_EQ(c.NextControlTop(one), 32);
  EXPECT_EQ(c.NextControlTop(one, true), 10);
  EXPECT_EQ(c.NextControlTop(one, false, 6), 34);
  EXPECT_EQ(c.NextControlTop(one, false, 4, 2), 40);  // the label adjustment counts four times
  EXPECT_EQ(c.NextControlTop(one, true, 4, -1), 6);
  // Item is 0-based: the last one added decides, wherever it sits.
  EXPECT_EQ(c.NextControlTop(container({control(8, 100, 60, 18), control(8, 10, 60, 18)}).first),
            32);
  EXPECT_EQ(c.NextControlTop(container({control(0, 10.5, 0, 18)}).first), 32);  // 32.5 to even
  EXPECT_EQ(c.NextControlTop(container({control(0, 11.5, 0, 18)}).first), 34);  // 33.5 to even
  EXPECT_EQ(c.NextControlTop(control(0, 0, 10, 10)), 0);  // a control has no controls
}

TEST_F(Layout, NextControlLeftStartsRowsAtTheMarginAndFollowsOnTheSameRow) {
  auto one = container({control(8, 10, 60, 18)}).first;
  EXPECT_EQ(c.NextControlLeft(one), 8);
  EXPECT_EQ(c.NextControlLeft(one, false, 6), 14);  // only a non-default spacing is added
  EXPECT_EQ(c.NextControlLeft(one, false, 4, 12), 12);
  EXPECT_EQ(c.NextControlLeft(one, true), 72);
  EXPECT_EQ(c.NextControlLeft(one, true, 6), 74);
  EXPECT_EQ(c.NextControlLeft(container().first, true), 8);
  EXPECT_EQ(c.NextControlLeft(nullptr, true), 0);
  EXPECT_EQ(c.NextControlLeft(control(0, 0, 10, 10), true), 0);
  EXPECT_EQ(c.NextControlLeft(control(0, 0, 10, 10), false), 0);
}

TEST_F(ControlTest, DeleteControlsRemovesEveryControlThatCanGo) {
  auto [form, controls] = container({control(0, 0, 1, 1, u"a"), control(0, 0, 1, 1, u"fixed"),
                                     control(0, 0, 1, 1, u"b"), control(0, 0, 1, 1, u"c")});
  controls->fixed.insert("fixed");
  c.DeleteControls(form);
  EXPECT_EQ(controls->removed, (Log{"a", "b", "c"}));
  ASSERT_EQ(controls->items.size(), 1u);
  auto [empty, none] = container();
  c.DeleteControls(empty);
  EXPECT_TRUE(none->removed.empty());
  c.DeleteControls(nullptr);
  c.DeleteControls(control(0, 0, 1, 1));
}

TEST_F(ControlTest, SetLockedTextMakesTheBoxAReadOnlyDisplay) {
  Props props{{"Value", u""}, {"SelStart", 3}, {"Locked", false}, {"BackColor", 0}};
  c.SetLockedText(std::make_shared<FormObject>(props, &log), u"C:\\Data\\Book1.xls");
  EXPECT_EQ(log, (Log{"Value=C:\\Data\\Book1.xls", "SelStart=0", "Locked=True",
                      "BackColor=-2147483633"}));
  log.clear();
  props.erase("Locked");  // a box that refuses one step still gets the others
  c.SetLockedText(std::make_shared<FormObject>(props, &log), u"x", 0xFFFFFF);
  EXPECT_EQ(log, (Log{"Value=x", "SelStart=0", "BackColor=16777215"}));
  c.SetLockedText(nullptr, u"x");
}

class Validation : public ControlTest {
 protected:
  void SetUp() override { create_iXLLibPublic(); }
  std::shared_ptr<FormObject> box(const char16_t* value, bool visible = true, bool enabled = true) {
    return std::make_shared<FormObject>(Props{{"Value", value},
                                              {"Visible", visible},
                                              {"Enabled", enabled},
                                              {"SelStart", 5},
                                              {"SelLength", 0}},
                                        &log);
  }
  std::vector<String> prompts() const {
    std::vector<String> out;
    for (const auto& m : scope.ui->messages) out.push_back(m.prompt);
    return out;
  }
  test::SessionScope scope;
};

TEST_F(Validation, AcceptsWholeNumbersUpToTheLimit) {
  EXPECT_TRUE(c.IsValidNumber(box(u"12"), u"Quantity"));
  EXPECT_TRUE(c.IsValidNumber(box(u"100"), u"Quantity", 100));
  EXPECT_TRUE(c.IsValidNumber(box(u" 999999 "), u"Quantity", 0));  // 0: no upper limit
  EXPECT_TRUE(c.IsValidNumber(box(u"-5"), u"Offset", 0, true));
  EXPECT_TRUE(c.IsValidNumber(box(u"100.5"), u"Quantity", 100));  // reads as 100
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_TRUE(log.empty());
}

TEST_F(Validation, ExplainsEachRefusalInClearEnglish) {
  EXPECT_FALSE(c.IsValidNumber(box(u"101"), u"Quantity", 100));
  EXPECT_FALSE(c.IsValidNumber(box(u"-1"), u"Quantity"));
  EXPECT_FALSE(c.IsValidNumber(box(u"ten"), u"Quantity"));
  EXPECT_FALSE(c.IsValidNumber(box(u"2147483648"), u"Quantity"));  // too big to be read at all
  EXPECT_EQ(prompts(), (std::vector<String>{
                           u"The number entered is too large for Quantity.  The largest number "
                           u"allowed is 100.",
                           u"A negative number is not allowed for Quantity.",
                           u"Please enter a whole number for Quantity.",
                           u"Please enter a whole number for Quantity.",
                       }));
  for (const auto& m : scope.ui->messages) {
    EXPECT_EQ(m.style, msgbox::OKOnly);
    EXPECT_EQ(m.title, u"Quazel");
  }
  c.IsValidNumber(box(u"x"), u"Width", 0, false, nullptr, 0, u"Chart Wizard");
  EXPECT_EQ(scope.ui->messages.back().title, u"Chart Wizard");
}

TEST_F(Validation, WithoutANameRefusesSilently) {
  EXPECT_FALSE(c.IsValidNumber(box(u"101"), u"", 100));
  EXPECT_FALSE(c.IsValidNumber(box(u"-1"), u""));
  EXPECT_FALSE(c.IsValidNumber(box(u"ten"), u""));
  EXPECT_FALSE(c.IsValidNumber(nullptr, u""));
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_TRUE(log.empty());
}

TEST_F(Validation, SelectsTheRefusedEntryOnItsPage) {
  auto pages = std::make_shared<FormObject>(Props{{"Value", 0}}, &log);
  c.IsValidNumber(box(u"-12"), u"Rows", 0, false, pages, 2);
  EXPECT_EQ(log, (Log{"Value=2", "SetFocus", "SelStart=0", "SelLength=3"}));
  log.clear();
  c.IsValidNumber(box(u"-12", false), u"Rows", 0, false, pages, 1);
  c.IsValidNumber(box(u"-12", true, false), u"Rows");
  EXPECT_EQ(log, Log{"Value=1"});  // a hidden or disabled box cannot take the focus
}

TEST_F(Validation, ParseTextboxHandsBackTheEntries) {
  std::vector<String> entries{u"old"};
  c.ParseTextbox(u"North\r\nSouth\r\n\r\n East ", entries);
  EXPECT_EQ(entries, (std::vector<String>{u"North", u"South", u"East"}));
}

TEST_F(ControlTest, WithoutTheSiblingServicesRefusesWithoutAMessage) {
  test::SessionScope scope;
  vblib::set_load_failure(true);
  create_iXLLibPublic();
  scope.ui->messages.clear();  // the failed load's own message
  auto box = std::make_shared<FormObject>(
      Props{{"Value", u"abc"}, {"Visible", true}, {"Enabled", true}}, &log);
  EXPECT_FALSE(c.IsValidNumber(box, u"Quantity"));
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_EQ(log, Log{"SetFocus"});
  std::vector<String> entries{u"kept"};
  c.ParseTextbox(u"a\nb", entries);
  EXPECT_EQ(entries, std::vector<String>{u"kept"});
}

// Reference boxes against the engine: Book1.xlsx with Sheet1 (active), Sheet2 and "My Data",
// and Book2.xlsx with Data.
class RefEdit : public Validation {
 protected:
  void SetUp() override {
    Validation::SetUp();
    frame::session().XLApp = app;
    auto book2 = app->workbooks()->add();
    engine::book_of(book2)->name = u"Book2.xlsx";
    book2->worksheets()->item(Variant(int32_t{1}))->set_name(u"Data");
    auto book1 = app->workbooks()->add();
    engine::book_of(book1)->name = u"Book1.xlsx";
    auto first = book1->worksheets()->item(Variant(int32_t{1}));
    for (const char16_t* name : {u"My Data", u"Sheet2"})
      book1->worksheets()->add(Variant::missing(), Variant(first))->set_name(name);
    first->activate();
  }
  std::shared_ptr<FormObject> box(const char16_t* text, bool enabled = true) {
    return std::make_shared<FormObject>(Props{{"Text", text},
                                              {"Enabled", enabled},
                                              {"Visible", true},
                                              {"SelStart", 0},
                                              {"SelLength", 0}},
                                        &log);
  }
  // "Sheet!address" of a resolved range, or "" for Nothing.
  static std::string where(const host::RangePtr& r) {
    return r ? to_utf8(r->worksheet()->name() + u"!" + r->address(false, false)) : "";
  }
  host::WorksheetPtr sheet(const char16_t* name) {
    return app->workbooks()->item(Variant(u"Book1.xlsx"))->worksheets()->item(Variant(name));
  }
  host::ApplicationPtr app = engine::create_application();
};

TEST_F(RefEdit, ResolvesWhatThePersonPickedOrTyped) {
  host::WorkbookPtr wkb;
  EXPECT_EQ(where(c.RefEditRange(box(u"Sheet2!$A$1:$B$3"), nullptr, Variant::missing(), &wkb)),
            "Sheet2!A1:B3");
  ASSERT_TRUE(wkb);
  EXPECT_EQ(wkb->name(), u"Book1.xlsx");
  EXPECT_EQ(where(c.RefEditRange(box(u" =B2 "))), "Sheet1!B2");  // the active sheet
  EXPECT_EQ(where(c.RefEditRange(box(u"'My Data'!C3"))), "My Data!C3");
  wkb = nullptr;  // a workbook passed in would bound the reference
  EXPECT_EQ(where(c.RefEditRange(box(u"[Book2.xlsx]Data!D4"), nullptr, Variant::missing(), &wkb)),
            "Data!D4");
  EXPECT_EQ(wkb->name(), u"Book2.xlsx");
  EXPECT_TRUE(scope.ui->messages.empty());
}

TEST_F(RefEdit, GivesNothingQuietlyWhenNothingWasChosen) {
  EXPECT_EQ(c.RefEditRange(nullptr), nullptr);
  EXPECT_EQ(c.RefEditRange(box(u"Sheet1!A1", false)), nullptr);  // disabled
  EXPECT_EQ(c.RefEditRange(box(u"")), nullptr);
  EXPECT_EQ(c.RefEditRange(box(u"  = ")), nullptr);
  EXPECT_TRUE(scope.ui->messages.empty());
}

TEST_F(RefEdit, AGivenSheetReadsPlainAddressesAndBoundsQualifiedOnes) {
  EXPECT_EQ(where(c.RefEditRange(box(u"A1"), sheet(u"Sheet2"))), "Sheet2!A1");
  EXPECT_EQ(where(c.RefEditRange(box(u"Sheet2!A1"), sheet(u"Sheet2"))), "Sheet2!A1");
  EXPECT_EQ(
      c.RefEditRange(box(u"Sheet1!A1"), sheet(u"Sheet2"), Variant::missing(), nullptr, u"Setup"),
      nullptr);
  ASSERT_EQ(scope.ui->messages.size(), 1u);
  EXPECT_EQ(scope.ui->messages[0].prompt,
            u"The reference entered is not a valid range on the sheet Sheet2.");
  EXPECT_EQ(scope.ui->messages[0].style, msgbox::OKOnly);
  EXPECT_EQ(scope.ui->messages[0].title, u"Setup");

  // A sheet that is gone bounds nothing it could be checked against: the reference is refused.
  auto gone = sheet(u"Sheet2");
  gone->delete_();
  EXPECT_EQ(c.RefEditRange(box(u"Sheet1!A1"), gone), nullptr);
  EXPECT_EQ(scope.ui->messages.back().prompt,
            u"The reference entered is not a valid range on the sheet Sheet1.");
}

TEST_F(RefEdit, AGivenWorkbookBoundsTheReference) {
  host::WorkbookPtr wkb = sheet(u"Sheet1")->parent();
  EXPECT_EQ(c.RefEditRange(box(u"[Book2.xlsx]Data!A1"), nullptr, Variant::missing(), &wkb),
            nullptr);
  EXPECT_EQ(wkb->name(), u"Book1.xlsx");  // kept on refusal
  EXPECT_EQ(scope.ui->messages.back().prompt,
            u"The reference entered is not a valid range on the sheet Data.");
  EXPECT_EQ(where(c.RefEditRange(box(u"Sheet2!A1"), nullptr, Variant::missing(), &wkb)),
            "Sheet2!A1");
}

TEST_F(RefEdit, ReportsWhatDoesNotResolveAndSelectsItForRetyping) {
  EXPECT_EQ(c.RefEditRange(box(u"Sheet2!Total")), nullptr);
  EXPECT_EQ(log, (Log{"SetFocus", "SelStart=0", "SelLength=12"}));
  EXPECT_EQ(c.RefEditRange(box(u"nonsense")), nullptr);
  EXPECT_EQ(c.RefEditRange(box(u"Nowhere!A1")), nullptr);
  EXPECT_EQ(prompts(), (std::vector<String>{
                           u"The reference entered is not a valid range on the sheet Sheet2.",
                           u"The reference entered is not a valid range on the sheet Sheet1.",
                           u"The reference entered is not a valid range on the sheet Nowhere.",
                       }));
}

TEST_F(RefEdit, ASimpleAbortSaysNothing) {
  EXPECT_EQ(c.RefEditRange(box(u"nonsense"), nullptr, Variant(true)), nullptr);
  EXPECT_EQ(c.RefEditRange(box(u"Sheet1!A1"), sheet(u"Sheet2"), Variant(true)), nullptr);
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(c.RefEditRange(box(u"nonsense"), nullptr, Variant(false)), nullptr);
  EXPECT_EQ(scope.ui->messages.size(), 1u);
}

}  // namespace
}  // namespace qz
