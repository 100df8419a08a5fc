// Command bars as the application has them: the worksheet menu bar, the chart menu bar and the
// Standard toolbar with their built-in menus and buttons under the Office control ids, plus
// the bars, popups and buttons that add-ins create. The host objects are the model: a handle
// to a control is the control, so two lookups of one control give the same object.
#include <algorithm>

#include "engine/host/engine.hpp"
#include "engine/host/interaction.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

namespace {

namespace mso = host::mso;

[[noreturn]] void invalid(const std::string& what) {
  throw Error(err::invalid_call, "Invalid procedure call or argument: " + what);
}

class EControl;
using ControlPtr = std::shared_ptr<EControl>;

// What holds controls: a bar or a popup.
class Holder {
 public:
  virtual ~Holder() = default;
  std::vector<ControlPtr> kids;
  /// Raises when the holder itself has been deleted.
  virtual void check_alive() const = 0;
  virtual ObjectPtr self() = 0;
};

// Find criteria shared by CommandBars.FindControl and CommandBar.FindControl.
struct Criteria {
  std::optional<int32_t> type, id;
  std::optional<String> tag;
  bool visible_only = false;
  bool recursive = false;

  explicit Criteria(const host::FindControlArgs& a) {
    if (!a.type.is_missing()) type = to_long(a.type);
    if (!a.id.is_missing()) id = to_long(a.id);
    if (!a.tag.is_missing()) tag = to_string(a.tag);
    if (!a.visible.is_missing()) visible_only = to_bool(a.visible);
    if (!a.recursive.is_missing()) recursive = to_bool(a.recursive);
  }
};

class EControl final : public host::CommandBarControl, public Holder {
 public:
  EControl(std::weak_ptr<AppState> app, int32_t id, int32_t type, String caption)
      : app_(std::move(app)), id_(id), type_(type), caption_(std::move(caption)) {}

  int32_t id() override { return alive().id_; }
  int32_t type() override { return type_; }
  String caption() override {
    alive();
    // Undo and Redo say what they would do now; every copy of them says the same.
    if (auto app = app_.lock()) {
      if (id_ == mso::IdUndo) return undo_caption(*app);
      if (id_ == mso::IdRedo) return redo_caption(*app);
    }
    return caption_;
  }
  void set_caption(const String& caption) override { alive().caption_ = caption; }
  String on_action() override { return alive().on_action_; }
  void set_on_action(const String& macro) override { alive().on_action_ = macro; }
  bool begin_group() override { return alive().begin_group_; }
  void set_begin_group(bool begin) override { alive().begin_group_ = begin; }
  int32_t face_id() override { return alive().face_id_; }
  void set_face_id(int32_t face) override {
    alive();
    if (type_ != mso::ControlButton) invalid("only a button has a face");
    face_id_ = face;
  }
  String shortcut_text() override { return alive().shortcut_; }
  void set_shortcut_text(const String& text) override {
    alive();
    if (type_ != mso::ControlButton) invalid("only a button shows a shortcut");
    shortcut_ = text;
  }
  String tag() override { return alive().tag_; }
  void set_tag(const String& tag) override { alive().tag_ = tag; }
  int32_t state() override { return alive().state_; }
  void set_state(int32_t state) override {
    alive();
    if (type_ != mso::ControlButton) invalid("only a button has a state");
    if (state != mso::ButtonUp && state != mso::ButtonDown && state != 2)
      invalid("State " + std::to_string(state));
    state_ = state;
  }
  bool enabled() override {
    alive();
    // A cell in edit greys out the application's own commands; add-ins' controls keep their
    // state.
    if (id_ != 1)
      if (auto app = app_.lock(); app && interaction(*app).editing) return false;
    return enabled_;
  }
  void set_enabled(bool enabled) override { alive().enabled_ = enabled; }
  bool visible() override { return alive().visible_; }
  void set_visible(bool visible) override { alive().visible_ = visible; }
  int32_t index() override {
    Holder& h = holder();
    auto it = std::find_if(h.kids.begin(), h.kids.end(),
                           [&](const ControlPtr& c) { return c.get() == this; });
    return static_cast<int32_t>(it - h.kids.begin()) + 1;
  }
  ObjectPtr parent() override { return holder().self(); }
  host::CommandBarControlsPtr controls() override;
  void execute() override;
  void delete_(const Variant&) override {
    Holder& h = holder();
    ControlPtr keep = std::static_pointer_cast<EControl>(shared_from_this());
    std::erase_if(h.kids, [&](const ControlPtr& c) { return c.get() == this; });
    mark_deleted();
  }

  // Holder
  void check_alive() const override {
    if (deleted_) fail("the command bar control has been deleted");
  }
  ObjectPtr self() override { return shared_from_this(); }

  EControl& alive() {
    check_alive();
    return *this;
  }
  Holder& holder() {
    check_alive();
    auto p = parent_.lock();
    auto* h = dynamic_cast<Holder*>(p.get());
    if (!h) fail("the command bar control has been deleted");
    h->check_alive();
    return *h;
  }
  void mark_deleted() {
    deleted_ = true;
    for (auto& k : kids) k->mark_deleted();
  }
  bool matches(const Criteria& c) const {
    if (c.type && *c.type != type_) return false;
    if (c.id && *c.id != id_) return false;
    if (c.tag && *c.tag != tag_) return false;
    if (c.visible_only && !visible_) return false;
    return true;
  }

  std::weak_ptr<Object> parent_;
  bool temporary_ = false;

 private:
  std::weak_ptr<AppState> app_;
  int32_t id_;
  int32_t type_;
  String caption_;
  String on_action_, shortcut_, tag_;
  bool begin_group_ = false;
  int32_t face_id_ = 0;
  int32_t state_ = mso::ButtonUp;
  bool enabled_ = true, visible_ = true;
  bool deleted_ = false;
};

// Depth first, in order: the first match is what the application's search finds.
ControlPtr find_in(const std::vector<ControlPtr>& kids, const Criteria& c, bool recursive) {
  for (const auto& k : kids) {
    if (k->matches(c)) return k;
    if (recursive && !k->kids.empty())
      if (auto found = find_in(k->kids, c, true)) return found;
  }
  return nullptr;
}

class EBar final : public host::CommandBar, public Holder {
 public:
  EBar(std::weak_ptr<AppState> app, String name, int32_t type, bool builtin)
      : app_(std::move(app)), name_(std::move(name)), type_(type), builtin_(builtin) {}

  String name() override { return alive().name_; }
  int32_t index() override;
  int32_t type() override { return alive().type_; }
  bool visible() override { return alive().visible_; }
  void set_visible(bool visible) override {
    alive();
    if (type_ == mso::BarTypeMenuBar && !visible) invalid("a menu bar cannot be hidden");
    visible_ = visible;
  }
  host::CommandBarControlsPtr controls() override;
  host::CommandBarControlPtr find_control(const host::FindControlArgs& args) override {
    alive();
    Criteria c(args);
    return find_in(kids, c, c.recursive);
  }
  void delete_() override;

  void check_alive() const override {
    if (deleted_) fail("the command bar has been deleted");
  }
  ObjectPtr self() override { return shared_from_this(); }
  EBar& alive() {
    check_alive();
    return *this;
  }

  std::weak_ptr<BarSet> set_;
  bool visible_ = false;
  bool temporary_ = false;
  int32_t position_ = mso::BarTop;
  bool deleted_ = false;

 private:
  std::weak_ptr<AppState> app_;
  String name_;
  int32_t type_;
  bool builtin_;
};

class EControls final : public host::CommandBarControls {
 public:
  EControls(std::shared_ptr<AppState> app, std::shared_ptr<Object> owner)
      : app_(std::move(app)), owner_(std::move(owner)) {}

  int32_t count() override { return static_cast<int32_t>(holder().kids.size()); }
  host::CommandBarControlPtr item(const Variant& index) override {
    Holder& h = holder();
    if (index.is_string()) {
      for (auto& k : h.kids)
        if (equals_text(k->caption(), index.str())) return k;
      not_found("Controls(\"" + to_utf8(index.str()) + "\")");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > static_cast<int32_t>(h.kids.size()))
      not_found("Controls(" + std::to_string(i) + ")");
    return h.kids[static_cast<size_t>(i - 1)];
  }
  host::CommandBarControlPtr add(const host::ControlAddArgs& args) override {
    Holder& h = holder();
    int32_t type = args.type.is_missing() ? mso::ControlButton : to_long(args.type);
    if (type < 1 || type > 26) invalid("Type " + std::to_string(type));
    int32_t id = args.id.is_missing() ? 1 : to_long(args.id);
    size_t at = h.kids.size();
    if (!args.before.is_missing()) {
      int32_t before = to_long(args.before);
      if (before < 1 || before > static_cast<int32_t>(h.kids.size()) + 1)
        invalid("Before " + std::to_string(before));
      at = static_cast<size_t>(before - 1);
    }
    // A built-in id copies that control's caption; a custom control starts blank.
    String caption = id != 1 ? builtin_caption(id) : String();
    auto c = std::make_shared<EControl>(app_, id, type, caption);
    c->parent_ = h.self();
    c->temporary_ = !args.temporary.is_missing() && to_bool(args.temporary);
    h.kids.insert(h.kids.begin() + static_cast<long>(at), c);
    return c;
  }

  static String builtin_caption(int32_t id);

 private:
  Holder& holder() {
    auto* h = dynamic_cast<Holder*>(owner_.get());
    if (!h) fail("the command bar has been deleted");
    h->check_alive();
    return *h;
  }
  std::shared_ptr<AppState> app_;
  std::shared_ptr<Object> owner_;
};

host::CommandBarControlsPtr EControl::controls() {
  alive();
  if (type_ != mso::ControlPopup) throw Error(err::not_supported, "a button has no controls");
  auto app = app_.lock();
  if (!app) fail("the application has gone");
  return std::make_shared<EControls>(app, shared_from_this());
}

// Built-in items: (id, caption) pairs, and a menu's items under it.
struct Item {
  int32_t id;
  const char16_t* caption;
};
struct Menu {
  int32_t id;
  const char16_t* caption;
  std::vector<Item> items;
};

const std::vector<Menu>& worksheet_menus() {
  static const std::vector<Menu> menus = {
      {mso::IdFile,
       u"&File",
       {{mso::IdFileNew, u"&New..."},
        {23, u"&Open..."},
        {106, u"&Close"},
        {3, u"&Save"},
        {748, u"Save &As..."},
        {4, u"&Print..."},
        {752, u"E&xit"}}},
      {mso::IdEdit,
       u"&Edit",
       {{mso::IdUndo, u"&Undo"},
        {mso::IdRedo, u"&Redo"},
        {21, u"Cu&t"},
        {19, u"&Copy"},
        {22, u"&Paste"},
        {478, u"&Delete..."},
        {1849, u"&Find..."}}},
      {mso::IdView, u"&View", {{723, u"&Normal"}, {925, u"&Zoom..."}}},
      {mso::IdInsert,
       u"&Insert",
       {{296, u"&Rows"}, {297, u"&Columns"}, {852, u"&Worksheet"}, {385, u"&Function..."}}},
      {mso::IdFormat,
       u"F&ormat",
       {{855, u"C&ells..."}, {786, u"&AutoFormat..."}, {254, u"&Style..."}}},
      {mso::IdTools,
       u"&Tools",
       {{2, u"&Spelling..."}, {943, u"Add-&Ins..."}, {522, u"&Options..."}}},
      {mso::IdData,
       u"&Data",
       {{928, u"&Sort..."}, {929, u"Su&btotals..."}, {6004, u"Va&lidation..."}}},
      {mso::IdWindow,
       u"&Window",
       {{303, u"&New Window"}, {298, u"&Arrange..."}, {443, u"&Freeze Panes"}}},
      {mso::IdHelp, u"&Help", {{984, u"&Contents and Index"}, {927, u"&About"}}},
  };
  return menus;
}

// The chart menu bar has a Chart menu where the worksheet bar has Data.
std::vector<Menu> chart_menus() {
  std::vector<Menu> out;
  for (const Menu& m : worksheet_menus()) {
    if (m.id == mso::IdData) {
      out.push_back({30022, u"&Chart", {{30023, u"Chart &Type..."}, {30024, u"&Source Data..."}}});
      continue;
    }
    out.push_back(m);
  }
  return out;
}

const std::vector<Item>& standard_buttons() {
  static const std::vector<Item> items = {
      {2520, u"&New"},   {23, u"&Open..."},       {3, u"&Save"},
      {2521, u"&Print"}, {21, u"Cu&t"},           {19, u"&Copy"},
      {22, u"&Paste"},   {mso::IdUndo, u"&Undo"}, {mso::IdRedo, u"&Redo"},
  };
  return items;
}

String EControls::builtin_caption(int32_t id) {
  for (const Menu& m : worksheet_menus()) {
    if (m.id == id) return m.caption;
    for (const Item& i : m.items)
      if (i.id == id) return i.caption;
  }
  for (const Item& i : standard_buttons())
    if (i.id == id) return i.caption;
  return String();
}

}  // namespace

// The application's bars in index order.
class BarSet {
 public:
  std::vector<std::shared_ptr<EBar>> bars;
  int32_t next_custom = 1;
};

namespace {

int32_t EBar::index() {
  alive();
  if (auto set = set_.lock())
    for (size_t i = 0; i < set->bars.size(); ++i)
      if (set->bars[i].get() == this) return static_cast<int32_t>(i + 1);
  fail("the command bar has been deleted");
}

void EBar::delete_() {
  alive();
  if (builtin_) invalid("a built-in command bar cannot be deleted");
  if (auto set = set_.lock())
    std::erase_if(set->bars, [&](const std::shared_ptr<EBar>& b) { return b.get() == this; });
  deleted_ = true;
  for (auto& k : kids) k->mark_deleted();
}

host::CommandBarControlsPtr EBar::controls() {
  alive();
  auto app = app_.lock();
  if (!app) fail("the application has gone");
  return std::make_shared<EControls>(app, shared_from_this());
}

void EControl::execute() {
  alive();
  auto app = app_.lock();
  if (!app) fail("the application has gone");
  if (!enabled()) fail("the control is disabled");
  if (id_ == mso::IdUndo) return press_undo(*app);
  if (id_ == mso::IdRedo) return press_redo(*app);
  if (!on_action_.empty()) {
    application_run(*app, on_action_, {});
    return;
  }
  if (id_ == mso::IdFileNew || id_ == 2520) app->application()->workbooks()->add();
}

void fill(const std::weak_ptr<AppState>& app, Holder& holder, const std::vector<Item>& items) {
  for (const Item& i : items) {
    auto c = std::make_shared<EControl>(app, i.id, mso::ControlButton, i.caption);
    c->parent_ = holder.self();
    holder.kids.push_back(c);
  }
}

std::shared_ptr<EBar> menu_bar(const std::shared_ptr<AppState>& app, const String& name,
                               const std::vector<Menu>& menus) {
  auto bar = std::make_shared<EBar>(app, name, mso::BarTypeMenuBar, true);
  bar->visible_ = true;
  for (const Menu& m : menus) {
    auto popup = std::make_shared<EControl>(app, m.id, mso::ControlPopup, m.caption);
    popup->parent_ = bar;
    bar->kids.push_back(popup);
    fill(app, *popup, m.items);
  }
  return bar;
}

class ECommandBars final : public host::CommandBars {
 public:
  ECommandBars(std::shared_ptr<AppState> app, std::shared_ptr<BarSet> set)
      : app_(std::move(app)), set_(std::move(set)) {}

  int32_t count() override { return static_cast<int32_t>(set_->bars.size()); }
  host::CommandBarPtr item(const Variant& index) override {
    if (index.is_string()) {
      for (auto& b : set_->bars)
        if (equals_text(b->name(), index.str())) return b;
      not_found("CommandBars(\"" + to_utf8(index.str()) + "\")");
    }
    int32_t i = to_long(index);
    if (i < 1 || i > count()) not_found("CommandBars(" + std::to_string(i) + ")");
    return set_->bars[static_cast<size_t>(i - 1)];
  }
  host::CommandBarControlPtr find_control(const host::FindControlArgs& args) override {
    // Across every bar, menus and their items included.
    Criteria c(args);
    for (auto& b : set_->bars)
      if (auto found = find_in(b->kids, c, true)) return found;
    return nullptr;
  }
  host::CommandBarPtr add(const host::BarAddArgs& args) override {
    String name;
    if (!args.name.is_missing()) name = to_string(args.name);
    if (name.empty()) {
      do {
        name = u"Custom " + u16(std::to_string(set_->next_custom++));
      } while (find(name));
    } else if (find(name)) {
      invalid("a command bar named \"" + to_utf8(name) + "\" exists");
    }
    int32_t position = args.position.is_missing() ? mso::BarTop : to_long(args.position);
    if (position < 0 || position > 6) invalid("Position " + std::to_string(position));
    bool menu = !args.menu_bar.is_missing() && to_bool(args.menu_bar);
    auto bar =
        std::make_shared<EBar>(app_, name, menu ? mso::BarTypeMenuBar : mso::BarTypeNormal, false);
    bar->position_ = position;
    bar->temporary_ = !args.temporary.is_missing() && to_bool(args.temporary);
    bar->set_ = set_;
    set_->bars.push_back(bar);
    return bar;
  }

 private:
  bool find(const String& name) const {
    for (auto& b : set_->bars)
      if (equals_text(b->name(), name)) return true;
    return false;
  }
  std::shared_ptr<AppState> app_;
  std::shared_ptr<BarSet> set_;
};

}  // namespace

host::CommandBarsPtr make_command_bars(const std::shared_ptr<AppState>& app) {
  Interaction& in = interaction(*app);
  if (!in.bars) {
    in.bars = std::make_shared<BarSet>();
    auto add = [&](std::shared_ptr<EBar> bar) {
      bar->set_ = in.bars;
      in.bars->bars.push_back(std::move(bar));
    };
    add(menu_bar(app, u"Worksheet Menu Bar", worksheet_menus()));
    add(menu_bar(app, u"Chart Menu Bar", chart_menus()));
    auto standard = std::make_shared<EBar>(app, u"Standard", mso::BarTypeNormal, true);
    standard->visible_ = true;
    fill(app, *standard, standard_buttons());
    add(standard);
  }
  return std::make_shared<ECommandBars>(app, in.bars);
}

}  // namespace qz::engine::detail

namespace qz::engine {

std::optional<bool> is_temporary(const ObjectPtr& bar_or_control) {
  if (auto c = std::dynamic_pointer_cast<detail::EControl>(bar_or_control)) return c->temporary_;
  if (auto b = std::dynamic_pointer_cast<detail::EBar>(bar_or_control)) return b->temporary_;
  return std::nullopt;
}

}  // namespace qz::engine
