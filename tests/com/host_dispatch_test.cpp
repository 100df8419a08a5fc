// Late binding over the host model, against the embedded engine: what the COM test host and
// any script client rely on when they reach the application's objects by name.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "engine/host/engine.hpp"
#include "host/dispatch.hpp"
#include "host/environment.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz::host {
namespace {

class HostDispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    app = engine::create_application();
    app->workbooks()->add();
  }

  Variant call(const ObjectPtr& o, StringView name, std::vector<Variant> args = {},
               Invoke kind = Invoke::Method) {
    return invoke_member(o, name, kind, args);
  }
  Variant get(const ObjectPtr& o, StringView name, std::vector<Variant> args = {}) {
    return call(o, name, std::move(args), Invoke::Get);
  }
  void put(const ObjectPtr& o, StringView name, Variant value, std::vector<Variant> index = {}) {
    index.push_back(std::move(value));
    invoke_member(o, name, Invoke::Put, index);
  }
  ObjectPtr obj(const Variant& v) {
    EXPECT_TRUE(v.is_object()) << to_utf8(type_name(v));
    return v.is_object() ? v.object() : nullptr;
  }
  int32_t code_of(const std::function<void()>& f) {
    try {
      f();
    } catch (const Error& e) {
      return e.code();
    }
    return 0;
  }

  ApplicationPtr app;
};

TEST_F(HostDispatch, MembersAreFoundByTheApplicationsNamesWithoutRegardToCase) {
  auto cell = obj(get(app, u"Range", {Variant(u"B2")}));
  put(cell, u"Value", Variant(int32_t(42)));
  EXPECT_EQ(to_double(get(cell, u"value")), 42);
  EXPECT_EQ(to_double(app->range(Variant(u"B2"))->value()), 42) << "the put reached the cell";
  EXPECT_EQ(to_string(get(cell, u"ADDRESS")), u"$B$2");
  EXPECT_TRUE(has_member(cell, u"formula"));
  EXPECT_FALSE(has_member(cell, u"NoSuchMember"));
}

TEST_F(HostDispatch, PropertiesConvertWhatIsAssignedToTheirType) {
  auto cell = obj(get(app, u"Range", {Variant(u"A1")}));
  put(cell, u"Formula", Variant(u"=1+2"));
  EXPECT_EQ(to_double(get(cell, u"Value")), 3);
  // A number assigned where text is expected is written as its text.
  put(cell, u"NumberFormat", Variant(int32_t(0)));
  EXPECT_EQ(to_string(get(cell, u"NumberFormat")), u"0");
  put(app, u"Calculation", Variant(u"-4135"));
  EXPECT_EQ(app->calculation(), xl::CalculationManual);
  auto font = obj(get(cell, u"Font"));
  put(font, u"Bold", Variant(true));
  EXPECT_EQ(app->range(Variant(u"A1"))->font()->bold(), Variant(true));
}

TEST_F(HostDispatch, CollectionsTakeAnIndexAndHaveADefaultMember) {
  auto book = obj(get(app, u"ActiveWorkbook"));
  auto first = obj(get(book, u"Worksheets", {Variant(int32_t(1))}));
  EXPECT_EQ(first->type_name(), u"Worksheet");
  auto sheets = obj(get(book, u"Worksheets"));
  EXPECT_EQ(to_long(get(sheets, u"Count")), app->active_workbook()->worksheets()->count());
  auto by_name = obj(get(sheets, u"_Default", {get(first, u"Name")}));
  EXPECT_EQ(to_string(get(by_name, u"Name")), to_string(get(first, u"Name")));

  auto c3 = obj(get(first, u"Cells", {Variant(int32_t(2)), Variant(int32_t(3))}));
  EXPECT_EQ(to_string(get(c3, u"Address")), u"$C$2");
  auto block = obj(get(first, u"Range", {Variant(u"B2:C3")}));
  // Item(i) runs row by row; the default member with an index is the same cell.
  EXPECT_EQ(to_string(get(obj(get(block, u"Item", {Variant(int32_t(3))})), u"Address")), u"$B$3");
  EXPECT_EQ(to_string(get(obj(get(block, u"_Default", {Variant(int32_t(2))})), u"Address")),
            u"$C$2");
  // Without an index a range's default member is its value.
  put(block, u"_Default", Variant(int32_t(7)));
  EXPECT_EQ(to_double(app->range(Variant(u"C3"))->value()), 7);
}

TEST_F(HostDispatch, NamedArgumentsHaveTheApplicationsPositions) {
  auto names = obj(get(obj(get(app, u"ActiveWorkbook")), u"Names"));
  EXPECT_EQ(param_index(names, u"Add", u"Name"), 0);
  EXPECT_EQ(param_index(names, u"add", u"refersto"), 1);
  EXPECT_EQ(param_index(names, u"Add", u"Visible"), 2);
  EXPECT_EQ(param_index(names, u"Add", u"NoSuchArgument"), -1);
  EXPECT_EQ(param_index(names, u"Count", u"Name"), -1);
  auto books = obj(get(app, u"Workbooks"));
  EXPECT_EQ(param_index(books, u"Open", u"Editable"), 9);
  auto controls_owner = obj(get(app, u"CommandBars"));
  EXPECT_EQ(param_index(controls_owner, u"FindControl", u"Id"), 1);

  // Positional with a gap: Name, RefersTo, Visible left out.
  auto name =
      obj(call(names, u"Add", {Variant(u"Total"), Variant(u"=Sheet1!$A$1"), Variant::missing()}));
  EXPECT_EQ(to_string(get(name, u"RefersTo")), u"=Sheet1!$A$1");
  EXPECT_TRUE(to_bool(get(name, u"Visible")));
  auto hidden = obj(call(names, u"Add", {Variant(u"Hidden"), Variant(u"=1"), Variant(false)}));
  EXPECT_FALSE(to_bool(get(hidden, u"Visible")));
}

TEST_F(HostDispatch, ForEachVisitsCellsRowByRowAndTheItemsOfCollections) {
  auto block = app->range(Variant(u"A1:B2"));
  std::vector<String> seen;
  for (const Variant& cell : items_of(block))
    seen.push_back(cell.as<Range>()->address(false, false));
  EXPECT_EQ(seen, (std::vector<String>{u"A1", u"B1", u"A2", u"B2"}));
  app->workbooks()->add();
  auto books = items_of(app->workbooks());
  ASSERT_EQ(books.size(), 2u);
  EXPECT_EQ(books[1].as<Workbook>()->name(), app->workbooks()->item(Variant(int32_t(2)))->name());
  EXPECT_EQ(code_of([&] { items_of(app->range(Variant(u"A1"))->font()); }), err::not_supported);
}

TEST_F(HostDispatch, RefusalsCarryTheRuntimesErrorNumbers) {
  auto cell = app->range(Variant(u"A1"));
  EXPECT_EQ(code_of([&] { get(cell, u"NoSuchMember"); }), err::not_supported);
  // More arguments than the member takes.
  EXPECT_EQ(code_of([&] { get(cell, u"Row", {Variant(int32_t(1))}); }), err::wrong_arguments);
  // A required argument left out.
  EXPECT_EQ(code_of([&] { call(cell, u"End"); }), err::wrong_arguments);
  EXPECT_EQ(code_of([&] { call(cell, u"End", {Variant::missing()}); }), err::wrong_arguments);
  // Assigning a read-only property.
  EXPECT_EQ(code_of([&] { put(cell, u"Row", Variant(int32_t(3))); }), err::wrong_arguments);
  // Values that do not convert.
  EXPECT_EQ(code_of([&] { put(app, u"Calculation", Variant(u"manual")); }), err::type_mismatch);
  EXPECT_EQ(code_of([&] {
              call(app, u"Union", {Variant(u"A1"), Variant(u"B1")});
            }),
            err::type_mismatch);
  // What the host refuses comes through unchanged.
  EXPECT_EQ(code_of([&] { get(app->workbooks(), u"Item", {Variant(u"NoSuchBook.xlsx")}); }),
            err::subscript);
  EXPECT_EQ(code_of([&] { invoke_member(nullptr, u"Name", Invoke::Get, {}); }),
            err::object_required);
}

// Collections that keep the named arguments they are given, so that a test sees which field
// each late-bound position lands in.
struct Kept {
  NameAddArgs name;
  OpenArgs open;
  BarAddArgs bar;
  FindControlArgs find;
  ControlAddArgs control;
};
class KeepingNames final : public Names {
 public:
  explicit KeepingNames(Kept& k) : k_(k) {}
  int32_t count() override { return 0; }
  NamePtr item(const Variant&) override { return nullptr; }
  NamePtr add(const NameAddArgs& a) override {
    k_.name = a;
    return nullptr;
  }

 private:
  Kept& k_;
};
class KeepingWorkbooks final : public Workbooks {
 public:
  explicit KeepingWorkbooks(Kept& k) : k_(k) {}
  int32_t count() override { return 0; }
  WorkbookPtr item(const Variant&) override { return nullptr; }
  WorkbookPtr add(const Variant&) override { return nullptr; }
  WorkbookPtr open(const OpenArgs& a) override {
    k_.open = a;
    return nullptr;
  }

 private:
  Kept& k_;
};
class KeepingBars final : public CommandBars {
 public:
  explicit KeepingBars(Kept& k) : k_(k) {}
  int32_t count() override { return 0; }
  CommandBarPtr item(const Variant&) override { return nullptr; }
  CommandBarControlPtr find_control(const FindControlArgs& a) override {
    k_.find = a;
    return nullptr;
  }
  CommandBarPtr add(const BarAddArgs& a) override {
    k_.bar = a;
    return nullptr;
  }

 private:
  Kept& k_;
};
class KeepingControls final : public CommandBarControls {
 public:
  explicit KeepingControls(Kept& k) : k_(k) {}
  int32_t count() override { return 0; }
  CommandBarControlPtr item(const Variant&) override { return nullptr; }
  CommandBarControlPtr add(const ControlAddArgs& a) override {
    k_.control = a;
    return nullptr;
  }

 private:
  Kept& k_;
};

// Argument i of a late-bound call carries 100 + i; `at` reads i back from a field.
int at(const Variant& v) {
  return v.is_missing() ? -1 : static_cast<int>(to_double(v)) - 100;
}

// Calls `member` with `names.size()` arguments by position, and checks that each argument
// name resolves to its position.
void call_numbered(const ObjectPtr& o, StringView member, std::vector<const char16_t*> names) {
  std::vector<Variant> args;
  for (size_t i = 0; i < names.size(); ++i) {
    args.emplace_back(int32_t(100 + i));
    EXPECT_EQ(param_index(o, member, names[i]), static_cast<int>(i)) << to_utf8(names[i]);
  }
  invoke_member(o, member, Invoke::Method, args);
}

// The application's order of the named arguments, written out here rather than taken from
// the description the tables are generated from, so that a field read from the wrong
// position shows.
TEST(HostDispatchArguments, EachPositionLandsInTheFieldOfTheApplicationsArgument) {
  Kept kept;
  using V = std::vector<int>;
  call_numbered(
      std::make_shared<KeepingNames>(kept), u"Add",
      {u"Name", u"RefersTo", u"Visible", u"MacroType", u"ShortcutKey", u"Category", u"NameLocal",
       u"RefersToLocal", u"CategoryLocal", u"RefersToR1C1", u"RefersToR1C1Local"});
  const NameAddArgs& n = kept.name;
  EXPECT_EQ((V{at(n.name), at(n.refers_to), at(n.visible), at(n.macro_type), at(n.shortcut_key),
               at(n.category), at(n.name_local), at(n.refers_to_local), at(n.category_local),
               at(n.refers_to_r1c1), at(n.refers_to_r1c1_local)}),
            (V{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));

  call_numbered(std::make_shared<KeepingWorkbooks>(kept), u"Open",
                {u"Filename", u"UpdateLinks", u"ReadOnly", u"Format", u"Password",
                 u"WriteResPassword", u"IgnoreReadOnlyRecommended", u"Origin", u"Delimiter",
                 u"Editable", u"Notify", u"Converter", u"AddToMru"});
  const OpenArgs& o = kept.open;
  EXPECT_EQ(kept.open.filename, u"100");
  EXPECT_EQ((V{at(o.update_links), at(o.read_only), at(o.format), at(o.password),
               at(o.write_res_password), at(o.ignore_read_only_recommended), at(o.origin),
               at(o.delimiter), at(o.editable), at(o.notify), at(o.converter), at(o.add_to_mru)}),
            (V{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));

  auto bars = std::make_shared<KeepingBars>(kept);
  call_numbered(bars, u"Add", {u"Name", u"Position", u"MenuBar", u"Temporary"});
  const BarAddArgs& b = kept.bar;
  EXPECT_EQ((V{at(b.name), at(b.position), at(b.menu_bar), at(b.temporary)}), (V{0, 1, 2, 3}));
  call_numbered(bars, u"FindControl", {u"Type", u"Id", u"Tag", u"Visible", u"Recursive"});
  const FindControlArgs& f = kept.find;
  EXPECT_EQ((V{at(f.type), at(f.id), at(f.tag), at(f.visible), at(f.recursive)}),
            (V{0, 1, 2, 3, 4}));

  call_numbered(std::make_shared<KeepingControls>(kept), u"Add",
                {u"Type", u"Id", u"Parameter", u"Before", u"Temporary"});
  const ControlAddArgs& c = kept.control;
  EXPECT_EQ((V{at(c.type), at(c.id), at(c.parameter), at(c.before), at(c.temporary)}),
            (V{0, 1, 2, 3, 4}));
}

// An object of no host class: its own members answer.
class Counter final : public Object {
 public:
  String type_name() const override { return u"Counter"; }
  Variant invoke(StringView name, Invoke, std::span<Variant> args) override {
    if (!same_member(name, u"Bump")) return Object::invoke(name, Invoke::Method, args);
    if (!args.empty()) args[0] = Variant(to_long(args[0]) + 1);
    return Variant(++count_);
  }
  bool has_member(StringView name) const override { return same_member(name, u"bump"); }

 private:
  int32_t count_ = 0;
};

TEST_F(HostDispatch, OtherObjectsAnswerThroughTheirOwnMembers) {
  auto counter = std::make_shared<Counter>();
  std::vector<Variant> args{Variant(int32_t(10))};
  EXPECT_EQ(to_long(invoke_member(counter, u"BUMP", Invoke::Method, args)), 1);
  EXPECT_EQ(to_long(args[0]), 11) << "by-reference arguments are written back";
  EXPECT_TRUE(has_member(counter, u"Bump"));
  EXPECT_FALSE(has_member(counter, u"Value"));
  EXPECT_EQ(param_index(counter, u"Bump", u"By"), -1);
  EXPECT_EQ(code_of([&] { invoke_member(counter, u"Value", Invoke::Get, {}); }),
            err::not_supported);
  EXPECT_EQ(code_of([&] { items_of(counter); }), err::not_supported);
}

// Without a desktop, the library's settings live in the per-user data folder of a Linux
// desktop: XDG_DATA_HOME when it is set and not empty, else ~/.local/share, else here.
TEST(HeadlessPlatform, KeepsDataWhereTheDesktopConventionSays) {
  auto saved = [](const char* name) -> std::optional<std::string> {
    const char* v = std::getenv(name);
    return v ? std::optional<std::string>(v) : std::nullopt;
  };
  const auto xdg = saved("XDG_DATA_HOME"), home = saved("HOME");
  auto platform = headless_platform();
  ::setenv("HOME", "/home/ann", 1);
  ::setenv("XDG_DATA_HOME", "/srv/data", 1);
  EXPECT_EQ(platform->app_data_folder(), u"/srv/data");
  ::setenv("XDG_DATA_HOME", "", 1);
  EXPECT_EQ(platform->app_data_folder(), u"/home/ann/.local/share");
  ::unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(platform->app_data_folder(), u"/home/ann/.local/share");
  ::setenv("HOME", "", 1);
  EXPECT_EQ(platform->app_data_folder(), u".");
  ::unsetenv("HOME");
  EXPECT_EQ(platform->app_data_folder(), u".");
  for (const auto& [name, value] : {std::pair{"XDG_DATA_HOME", xdg}, std::pair{"HOME", home}})
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
}

}  // namespace
}  // namespace qz::host
