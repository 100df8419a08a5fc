#include <gtest/gtest.h>

#include <map>
#include <set>

#include "control/control.hpp"
#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"
#include "support/fake_host.hpp"

namespace qz {
namespace {

using Log = std::vector<std::string>;

// A forms object: named properties, the SetFocus method, and a log of what was done to it.
class FormObject : public Object {
 public:
  explicit FormObject(std::map<std::string, Variant> props, Log* log = nullptr)
      : props_(std::move(props)), log_(log) {}
  String type_name() const override { return u"Control"; }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    std::string member = to_utf8(name);
    if (kind == Invoke::Method && member == "SetFocus") {
      note("SetFocus");
      return Variant();
    }
    auto it = props_.find(member);
    if (it == props_.end() || refused_.count(member)) return Object::invoke(name, kind, args);
    if (kind == Invoke::Get) return it->second;
    it->second = args[0];
    note(member + "=" + to_utf8(to_string(args[0])));
    return Variant();
  }
  Variant& operator[](const std::string& p) { return props_[p]; }
  void refuse(const std::string& p) { refused_.insert(p); }

 private:
  void note(const std::string& s) {
    if (log_) log_->push_back(s);
  }
  std::map<std::string, Variant> props_;
  std::set<std::string> refused_;
  Log* log_;
};

// A Controls collection: 0-based Item, Remove by name (later controls move down).
class Controls : public Object {
 public:
  std::vector<std::shared_ptr<FormObject>> items;
  std::set<std::string> fixed;  // controls placed at design time, which cannot be removed
  Log removed;
  String type_name() const override { return u"Controls"; }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    if (same_member(name, u"Count")) return static_cast<int32_t>(items.size());
    if (same_member(name, u"Item"))
      return ObjectPtr(items.at(static_cast<size_t>(to_long(args[0]))));
    if (same_member(name, u"Remove")) {
      std::string target = to_utf8(args[0].str());
      if (fixed.count(target)) throw Error(err::host_failure, "cannot remove");
      std::erase_if(items, [&](auto& c) { return to_utf8((*c)["Name"].str()) == target; });
      removed.push_back(target);
      return Variant();
    }
    return Object::invoke(name, kind, args);
  }
};

std::shared_ptr<FormObject> control(double left, double top, double width, double height,
                                    const char16_t* name = u"ctl") {
  return std::make_shared<FormObject>(std::map<std::string, Variant>{
      {"Left", left}, {"Top", top}, {"Width", width}, {"Height", height}, {"Name", name}});
}

// A form or frame holding the given controls.
std::pair<ObjectPtr, std::shared_ptr<Controls>> container(
    std::vector<std::shared_ptr<FormObject>> items = {}) {
  auto controls = std::make_shared<Controls>();
  controls->items = std::move(items);
  auto form = std::make_shared<FormObject>(
      std::map<std::string, Variant>{{"Controls", ObjectPtr(controls)}});
  return {form, controls};
}

// The service as clients reach it, through its interface (which carries the defaults).
std::shared_ptr<_iControl> control_service() {
  return std::make_shared<iControl>();
}

class Layout : public ::testing::Test {
 protected:
  iControl impl;
  _iControl& c = impl;  // the defaults are the interface's, as clients call it
  ObjectPtr textbox = control(0, 0, 10, 10);  // a control, which has no controls of its own
};

TEST_F(Layout, NextControlTopGoesBelowTheLastControlAdded) {
  EXPECT_EQ(c.NextControlTop(nullptr), 0);
  EXPECT_EQ(c.NextControlTop(container().first), 10);
  EXPECT_EQ(c.NextControlTop(container().first, false, 4, 0, 20), 20);
  auto one = container({control(8, 10, 60, 18)}).first;
  EXPECT_EQ(c.NextControlTop(one), 32);
  EXPECT_EQ(c.NextControlTop(one, true), 10);
  EXPECT_EQ(c.NextControlTop(one, false, 6), 34);
  // The label adjustment counts four times.
  EXPECT_EQ(c.NextControlTop(one, false, 4, 2), 40);
  EXPECT_EQ(c.NextControlTop(one, true, 4, -1), 6);
  // Item is 0-based: the last one added decides, wherever it sits.
  EXPECT_EQ(c.NextControlTop(container({control(8, 100, 60, 18), control(8, 10, 60, 18)}).first),
            32);
  EXPECT_EQ(c.NextControlTop(textbox), 0);
}

TEST_F(Layout, NextControlTopRoundsHalfToEven) {
  EXPECT_EQ(c.NextControlTop(container({control(0, 10.5, 0, 18)}).first), 32);  // 32.5
  EXPECT_EQ(c.NextControlTop(container({control(0, 11.5, 0, 18)}).first), 34);  // 33.5
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
  EXPECT_EQ(c.NextControlLeft(textbox, true), 0);
  EXPECT_EQ(c.NextControlLeft(textbox, false), 0);
}

TEST(DeleteControls, RemovesEveryControlByName) {
  iControl impl;
  _iControl& c = impl;
  auto [form, controls] =
      container({control(0, 0, 1, 1, u"a"), control(0, 0, 1, 1, u"b"), control(0, 0, 1, 1, u"c")});
  c.DeleteControls(form);
  EXPECT_TRUE(controls->items.empty());
  EXPECT_EQ(controls->removed, (Log{"a", "b", "c"}));
}

TEST(DeleteControls, SkipsWhatCannotBeRemovedAndNeedsAContainer) {
  iControl impl;
  _iControl& c = impl;
  auto [form, controls] = container({control(0, 0, 1, 1, u"fixed"), control(0, 0, 1, 1, u"b")});
  controls->fixed.insert("fixed");
  c.DeleteControls(form);
  EXPECT_EQ(controls->removed, Log{"b"});
  ASSERT_EQ(controls->items.size(), 1u);

  auto [empty, none] = container();
  c.DeleteControls(empty);
  EXPECT_TRUE(none->removed.empty());
  c.DeleteControls(nullptr);
  c.DeleteControls(control(0, 0, 1, 1));
}

class Validation : public ::testing::Test {
 protected:
  void SetUp() override { create_iXLLibPublic(); }

  std::shared_ptr<FormObject> box(const char16_t* value, bool visible = true, bool enabled = true) {
    return std::make_shared<FormObject>(std::map<std::string, Variant>{{"Value", value},
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
  iControl impl;
  _iControl& c = impl;
  Log log;
};

TEST_F(Validation, AcceptsWholeNumbersUpToTheLimit) {
  EXPECT_TRUE(c.IsValidNumber(box(u"12"), u"Quantity"));
  EXPECT_TRUE(c.IsValidNumber(box(u"100"), u"Quantity", 100));
  EXPECT_TRUE(c.IsValidNumber(box(u" 999999 "), u"Quantity", 0));  // 0: no upper limit
  EXPECT_TRUE(c.IsValidNumber(box(u"-5"), u"Offset", 0, true));
  EXPECT_TRUE(c.IsValidNumber(box(u"0"), u"Quantity"));
  EXPECT_TRUE(c.IsValidNumber(box(u"100.5"), u"Quantity", 100));  // reads as 100
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_TRUE(log.empty());
}

TEST_F(Validation, ExplainsEachRefusalInClearEnglish) {
  EXPECT_FALSE(c.IsValidNumber(box(u"101"), u"Quantity", 100));
  EXPECT_FALSE(c.IsValidNumber(box(u"-1"), u"Quantity"));
  EXPECT_FALSE(c.IsValidNumber(box(u"ten"), u"Quantity"));
  EXPECT_FALSE(c.IsValidNumber(box(u""), u"Quantity"));
  EXPECT_FALSE(c.IsValidNumber(box(u"2147483648"), u"Quantity"));  // too big to be read at all
  EXPECT_EQ(prompts(), (std::vector<String>{
                           u"The number entered is too large for Quantity.  The largest number "
                           u"allowed is 100.",
                           u"A negative number is not allowed for Quantity.",
                           u"Please enter a whole number for Quantity.",
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
  auto pages = std::make_shared<FormObject>(std::map<std::string, Variant>{{"Value", 0}}, &log);
  c.IsValidNumber(box(u"-12"), u"Rows", 0, false, pages, 2);
  EXPECT_EQ(log, (Log{"Value=2", "SetFocus", "SelStart=0", "SelLength=3"}));

  log.clear();
  c.IsValidNumber(box(u"-12", false), u"Rows", 0, false, pages, 1);
  c.IsValidNumber(box(u"-12", true, false), u"Rows");
  EXPECT_EQ(log, Log{"Value=1"});  // a hidden or disabled box cannot take the focus
}

TEST(ValidationWithoutServices, RefusesWithoutAMessage) {
  test::SessionScope scope;
  vblib::set_load_failure(true);
  create_iXLLibPublic();
  scope.ui->messages.clear();  // the failed load's own message
  Log log;
  auto box = std::make_shared<FormObject>(
      std::map<std::string, Variant>{
          {"Value", u"abc"}, {"Visible", true}, {"Enabled", true}, {"SelStart", 0}},
      &log);
  EXPECT_FALSE(control_service()->IsValidNumber(box, u"Quantity"));
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_EQ(log.front(), "SetFocus");

  std::vector<String> entries{u"kept"};
  control_service()->ParseTextbox(u"a\nb", entries);
  EXPECT_EQ(entries, std::vector<String>{u"kept"});
}

TEST_F(Validation, ParseTextboxHandsBackTheEntries) {
  std::vector<String> entries{u"old"};
  c.ParseTextbox(u"North\r\nSouth\r\n\r\n East ", entries);
  EXPECT_EQ(entries, (std::vector<String>{u"North", u"South", u"East"}));
  c.ParseTextbox(u"", entries);
  EXPECT_TRUE(entries.empty());
}

TEST(SetLockedText, MakesTheBoxAReadOnlyDisplay) {
  Log log;
  auto box = std::make_shared<FormObject>(
      std::map<std::string, Variant>{
          {"Value", u""}, {"SelStart", 3}, {"Locked", false}, {"BackColor", 0}},
      &log);
  control_service()->SetLockedText(box, u"C:\\Data\\Book1.xls");
  EXPECT_EQ(log, (Log{"Value=C:\\Data\\Book1.xls", "SelStart=0", "Locked=True",
                      "BackColor=-2147483633"}));
  log.clear();
  box->refuse("Locked");
  control_service()->SetLockedText(box, u"x", 0xFFFFFF);
  EXPECT_EQ(log, (Log{"Value=x", "SelStart=0", "BackColor=16777215"}));
  control_service()->SetLockedText(nullptr, u"x");
}

// A tiny host for reference boxes: workbooks of named sheets whose cells are written as
// column letters and a row number ("B2", "$A$1:$C$3").
class Book : public test::UnsupportedWorkbook {
 public:
  explicit Book(String name) : name_(std::move(name)) {}
  String name() override { return name_; }

 private:
  String name_;
};

class Sheet;
class Cells : public test::UnsupportedRange {
 public:
  Cells(std::shared_ptr<Sheet> sheet, String address)
      : sheet_(std::move(sheet)), address_(std::move(address)) {}
  host::WorksheetPtr worksheet() override;
  String address(bool, bool, int32_t, bool, const host::RangePtr&) override { return address_; }

 private:
  std::shared_ptr<Sheet> sheet_;
  String address_;
};

bool is_address(StringView a) {
  size_t i = 0;
  for (int part = 0; part < 2; ++part) {
    size_t letters = 0, digits = 0;
    if (i < a.size() && a[i] == u'$') ++i;
    while (i < a.size() && a[i] >= u'A' && a[i] <= u'Z') ++i, ++letters;
    if (i < a.size() && a[i] == u'$') ++i;
    while (i < a.size() && a[i] >= u'0' && a[i] <= u'9') ++i, ++digits;
    if (letters == 0 || letters > 3 || digits == 0) return false;
    if (i == a.size()) return true;
    if (a[i++] != u':') return false;
  }
  return false;
}

class Sheet : public test::UnsupportedWorksheet {
 public:
  Sheet(String name, std::shared_ptr<Book> book) : name_(std::move(name)), book_(std::move(book)) {}
  String name() override { return name_; }
  host::WorkbookPtr parent() override { return book_; }
  host::RangePtr range(const Variant& cell1, const Variant& = Variant::missing()) override {
    if (!is_address(cell1.str())) throw Error(err::host_failure, "Method 'Range' failed");
    return std::make_shared<Cells>(std::static_pointer_cast<Sheet>(shared_from_this()),
                                   cell1.str());
  }
  Variant invoke(StringView member, Invoke kind, std::span<Variant> args) override {
    if (same_member(member, u"Name")) return name_;
    return Object::invoke(member, kind, args);
  }

 private:
  String name_;
  std::shared_ptr<Book> book_;
};

host::WorksheetPtr Cells::worksheet() {
  return sheet_;
}

class Excel : public test::UnsupportedApplication {
 public:
  std::vector<std::shared_ptr<Sheet>> sheets;
  std::shared_ptr<Sheet> active;
  ObjectPtr active_sheet() override { return active; }
  // Reads "[Book]Sheet!A1", "'My Sheet'!A1", "Sheet!A1" or "A1" (on the active sheet).
  host::RangePtr range(const Variant& cell1, const Variant&) override {
    String text = cell1.str(), book, sheet;
    String rest = vblib::Strings::strip_wkb_name(text, &book, true);
    String address = vblib::Strings::qualifier_split(rest, true, sheet);
    if (sheet.empty()) return active->range(Variant(address));
    for (auto& s : sheets)
      if (s->name() == sheet && (book.empty() || s->parent()->name() == book))
        return s->range(Variant(address));
    throw Error(err::host_failure, "Method 'Range' failed");
  }
};

class RefEdit : public ::testing::Test {
 protected:
  void SetUp() override {
    create_iXLLibPublic();
    auto book1 = std::make_shared<Book>(u"Book1.xlsx");
    auto book2 = std::make_shared<Book>(u"Book2.xlsx");
    for (auto [name, book] : {std::pair{u"Sheet1", book1}, std::pair{u"Sheet2", book1},
                              std::pair{u"My Data", book1}, std::pair{u"Data", book2}})
      excel->sheets.push_back(std::make_shared<Sheet>(name, book));
    excel->active = excel->sheets[0];
    frame::session().XLApp = excel;
  }
  std::shared_ptr<FormObject> box(const char16_t* text, bool enabled = true) {
    return std::make_shared<FormObject>(std::map<std::string, Variant>{{"Text", text},
                                                                       {"Enabled", enabled},
                                                                       {"Visible", true},
                                                                       {"SelStart", 0},
                                                                       {"SelLength", 0}},
                                        &log);
  }
  // "Sheet!address" of a resolved range, or "" for Nothing.
  static std::string where(const host::RangePtr& r) {
    if (!r) return "";
    return to_utf8(r->worksheet()->name() + u"!" + r->address());
  }
  host::WorksheetPtr sheet(size_t i) { return excel->sheets[i]; }

  test::SessionScope scope;
  std::shared_ptr<Excel> excel = std::make_shared<Excel>();
  iControl impl;
  _iControl& c = impl;
  Log log;
};

TEST_F(RefEdit, ResolvesWhatThePersonPickedOrTyped) {
  host::WorkbookPtr wkb;
  EXPECT_EQ(where(c.RefEditRange(box(u"Sheet2!$A$1:$B$3"), nullptr, Variant::missing(), &wkb)),
            "Sheet2!$A$1:$B$3");
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
  EXPECT_EQ(where(c.RefEditRange(box(u"A1"), sheet(1))), "Sheet2!A1");
  EXPECT_EQ(where(c.RefEditRange(box(u"Sheet2!A1"), sheet(1))), "Sheet2!A1");
  EXPECT_EQ(c.RefEditRange(box(u"Sheet1!A1"), sheet(1), Variant::missing(), nullptr, u"Setup"),
            nullptr);
  ASSERT_EQ(scope.ui->messages.size(), 1u);
  EXPECT_EQ(scope.ui->messages[0].prompt,
            u"The reference entered is not a valid range on the sheet Sheet2.");
  EXPECT_EQ(scope.ui->messages[0].style, msgbox::OKOnly);
  EXPECT_EQ(scope.ui->messages[0].title, u"Setup");
}

TEST_F(RefEdit, AGivenWorkbookBoundsTheReference) {
  host::WorkbookPtr wkb = sheet(0)->parent();
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
  std::vector<String> prompts;
  for (const auto& m : scope.ui->messages) prompts.push_back(m.prompt);
  EXPECT_EQ(prompts, (std::vector<String>{
                         u"The reference entered is not a valid range on the sheet Sheet2.",
                         u"The reference entered is not a valid range on the sheet Sheet1.",
                         u"The reference entered is not a valid range on the sheet Nowhere.",
                     }));
}

TEST_F(RefEdit, ASimpleAbortSaysNothing) {
  EXPECT_EQ(c.RefEditRange(box(u"nonsense"), nullptr, Variant(true)), nullptr);
  EXPECT_EQ(c.RefEditRange(box(u"Sheet1!A1"), sheet(1), Variant(true)), nullptr);
  EXPECT_TRUE(scope.ui->messages.empty());
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(c.RefEditRange(box(u"nonsense"), nullptr, Variant(false)), nullptr);
  EXPECT_EQ(scope.ui->messages.size(), 1u);
}

}  // namespace
}  // namespace qz
