// The application around a person: its own undo of an entry, the commands macros take over,
// the macros it runs by name, timers, and a person playing at its keyboard.
#include <algorithm>
#include <chrono>
#include <ctime>

#include "engine/host/interaction.hpp"
#include "qzxl/convert.hpp"
#include "vocab/dates.hpp"

namespace qz::engine::detail {

bool TextLess::operator()(const String& a, const String& b) const {
  return compare_text(a, b) < 0;
}

bool CellState::operator==(const CellState& o) const {
  // Whether the store keeps an empty cell with the sheet's plain format is bookkeeping, not
  // something a person sees; everything else is.
  return at == o.at && kind == o.kind && value == o.value && formula == o.formula &&
         runs == o.runs && xf == o.xf && font == o.font;
}

Interaction& interaction(AppState& app) {
  if (!app.interaction) app.interaction = std::make_shared<Interaction>();
  return *app.interaction;
}

namespace {

constexpr char16_t kUndoTyping[] = u"&Undo Typing";
constexpr char16_t kRedoTyping[] = u"&Redo Typing";
constexpr char16_t kCannotUndo[] = u"Can't &Undo";
constexpr char16_t kCannotRedo[] = u"Can't &Redo";
// A procedure that keeps rescheduling itself as due would otherwise never let idle end.
constexpr int kMaxTimersPerIdle = 10000;

CellState capture(Book& b, Sheet& s, int32_t row, int32_t col) {
  CellState st;
  st.at = CellRef{row, col};
  st.xf = b.styles.xf(s.style_at(row, col));
  st.font = b.styles.font(st.xf.font);
  const Cell* c = s.cells.find(row, col);
  if (!c) return st;
  st.stored = true;
  st.kind = c->kind();
  switch (st.kind) {
    case CellKind::Blank:
      break;
    case CellKind::Formula:
      st.formula = b.formula_text(s, row, col, calc::Notation::A1).substr(1);
      break;
    case CellKind::Text:
      st.value = calc::Value::str(String(b.strings.text(c->index)));
      st.runs = b.strings.runs(c->index);
      break;
    default:
      st.value = b.cell_value(s, *c);
      break;
  }
  return st;
}

std::vector<CellState> capture_all(Book& b, Sheet& s, const std::vector<Rect>& areas) {
  std::vector<CellState> out;
  for (const Rect& a : areas)
    for (int32_t r = a.row1; r <= a.row2; ++r)
      for (int32_t c = a.col1; c <= a.col2; ++c) out.push_back(capture(b, s, r, c));
  return out;
}

void restore(Book& b, Sheet& s, const CellState& st) {
  const int32_t row = st.at.row, col = st.at.col;
  const Rect here{row, col, row, col};
  switch (st.kind) {
    case CellKind::Blank:
      b.clear_contents(s, here);
      break;
    case CellKind::Formula:
      b.set_formula(s, row, col, st.formula, calc::Notation::A1);
      break;
    case CellKind::Text:
      if (!st.runs.empty()) {
        b.set_rich_text(s, row, col, st.value.text, st.runs);
        break;
      }
      [[fallthrough]];
    default:
      b.set_constant(s, row, col, st.value);
      break;
  }
  if (st.stored) {
    b.restyle(s, here, [&](const Xf&) { return st.xf; });
  } else if (s.cells.find(row, col)) {
    s.cells.erase(row, col);
    b.note_cell_change(s, row, col);
  }
}

// The memory's book and sheet while both are still open and the cells hold `expected`.
struct Target {
  BookPtr book;
  std::shared_ptr<Sheet> sheet;
};
std::optional<Target> holds(const EntryMemory& m, const std::vector<CellState>& expected) {
  Target t{m.book.lock(), m.sheet.lock()};
  if (!t.book || !t.sheet || t.sheet->deleted()) return std::nullopt;
  if (capture_all(*t.book, *t.sheet, m.areas) != expected) return std::nullopt;
  return t;
}

std::optional<Target> undoable(Interaction& in) {
  if (!in.memory || in.memory->undone) return std::nullopt;
  return holds(*in.memory, in.memory->after);
}

std::optional<Target> redoable(Interaction& in) {
  if (!in.memory || !in.memory->undone) return std::nullopt;
  return holds(*in.memory, in.memory->before);
}

void put_back(const Target& t, const std::vector<CellState>& states) {
  for (const CellState& st : states) restore(*t.book, *t.sheet, st);
  t.book->commit();
}

double now_serial(AppState& app) {
  if (app.options.clock) return app.options.clock();
  // Days since 30 December 1899 in local time: the automation date serial.
  std::time_t t = std::time(nullptr);
  long offset = 0;
#ifndef _WIN32
  std::tm local{};
  localtime_r(&t, &local);
  offset = local.tm_gmtoff;
#endif
  return dates::serial_from_unix_seconds(static_cast<double>(t) + static_cast<double>(offset));
}

// Runs a procedure a taken-over command names (the command was handed back first).
void run_taken(AppState& app, std::optional<TakenCommand>& slot) {
  String procedure = slot->procedure;
  slot.reset();
  if (!procedure.empty()) application_run(app, procedure, {});
}

}  // namespace

String undo_caption(AppState& app) {
  Interaction& in = interaction(app);
  if (in.undo) return in.undo->text;
  return undoable(in) ? kUndoTyping : kCannotUndo;
}

String redo_caption(AppState& app) {
  Interaction& in = interaction(app);
  if (in.repeat) return in.repeat->text;
  return redoable(in) ? kRedoTyping : kCannotRedo;
}

void press_undo(AppState& app) {
  Interaction& in = interaction(app);
  if (in.undo) return run_taken(app, in.undo);
  if (auto t = undoable(in)) {
    put_back(*t, in.memory->before);
    in.memory->undone = true;
  }
}

void press_redo(AppState& app) {
  Interaction& in = interaction(app);
  if (in.repeat) return run_taken(app, in.repeat);
  if (auto t = redoable(in)) {
    put_back(*t, in.memory->after);
    in.memory->undone = false;
  }
}

void application_undo(AppState& app) {
  press_undo(app);
}

void application_on_undo(AppState& app, const String& text, const String& procedure) {
  Interaction& in = interaction(app);
  if (text.empty() && procedure.empty())
    in.undo.reset();
  else
    in.undo = TakenCommand{text, procedure};
}

void application_on_repeat(AppState& app, const String& text, const String& procedure) {
  Interaction& in = interaction(app);
  if (text.empty() && procedure.empty())
    in.repeat.reset();
  else
    in.repeat = TakenCommand{text, procedure};
}

void application_on_time(AppState& app, const Variant& earliest, const String& procedure,
                         const Variant& latest, const Variant& schedule) {
  Interaction& in = interaction(app);
  if (procedure.empty()) fail("OnTime needs a procedure");
  double when = earliest.is_string() ? to_date(earliest).serial : to_double(earliest);
  if (!schedule.is_missing() && !to_bool(schedule)) {
    auto it = std::find_if(in.timers.begin(), in.timers.end(), [&](const Timer& t) {
      return t.when == when && equals_text(t.procedure, procedure);
    });
    if (it == in.timers.end()) fail("Method 'OnTime' failed: nothing of that name is scheduled");
    in.timers.erase(it);
    return;
  }
  in.timers.push_back(Timer{when, procedure, in.timer_order++});
}

Variant application_run(AppState& app, const String& macro, std::span<Variant> args) {
  Interaction& in = interaction(app);
  auto it = in.macros.find(macro);
  if (it == in.macros.end()) {
    // "Book1.xls!mDOM.Proc" names the procedure after the workbook.
    size_t bang = macro.rfind(u'!');
    if (bang != String::npos) it = in.macros.find(macro.substr(bang + 1));
  }
  if (it == in.macros.end())
    fail("Cannot run the macro '" + to_utf8(macro) +
         "'. The macro may not be available in this workbook.");
  // A copy: the macro may register or replace macros while it runs.
  Macro m = it->second;
  return m(args);
}

}  // namespace qz::engine::detail

namespace qz::engine {

using detail::AppState;
using detail::interaction;

namespace {

AppState& state(const host::ApplicationPtr& app) {
  auto s = detail::state_of(app);
  if (!s) throw Error(err::invalid_call, "not an application of the engine");
  return *s;
}

}  // namespace

void register_macro(const host::ApplicationPtr& app, const String& name, Macro macro) {
  interaction(state(app)).macros[name] = std::move(macro);
}

void on_key(const host::ApplicationPtr& app, const String& key, const String& procedure) {
  auto& keys = interaction(state(app)).keys;
  if (procedure.empty())
    keys.erase(key);
  else
    keys[key] = procedure;
}

User::User(host::ApplicationPtr app) : app_(std::move(app)) {
  state(app_);
}

void User::select(StringView address) {
  AppState& a = state(app_);
  auto sheet = a.active_sheet();
  if (!sheet || sheet->kind != SheetKind::Worksheet) detail::fail("no worksheet is active");
  auto r = detail::resolve(a, a.active, sheet, address);
  if (r.sheet != sheet) detail::fail("a person selects cells on the active sheet");
  sheet->selection.areas = r.areas;
  sheet->selection.active = CellRef{r.areas[0].row1, r.areas[0].col1};
  a.selected_object.reset();
}

namespace {

// One entry into `areas` of the active sheet, remembered for Undo, then OnEntry's macro.
void enter(AppState& a, const std::vector<Rect>& areas, StringView text, StringView key) {
  detail::Interaction& in = interaction(a);
  if (auto k = in.keys.find(String(key)); k != in.keys.end())
    detail::application_run(a, k->second, {});
  BookPtr book = a.active;
  auto sheet = a.active_sheet();
  if (!book || !sheet || sheet->kind != SheetKind::Worksheet)
    detail::fail("no worksheet is active");
  detail::EntryMemory m;
  m.book = book;
  m.sheet = sheet;
  m.areas = areas;
  m.before = detail::capture_all(*book, *sheet, areas);
  a.range(book, sheet, areas)->set_formula(String(text));
  m.after = detail::capture_all(*book, *sheet, areas);
  // A person's own action takes Undo and Redo back from whatever macro held them.
  in.memory = std::move(m);
  in.undo.reset();
  in.repeat.reset();
  if (!in.on_entry.empty()) detail::application_run(a, in.on_entry, {});
}

}  // namespace

void User::type(StringView text) {
  AppState& a = state(app_);
  interaction(a).editing.reset();
  auto sheet = a.active_sheet();
  if (!sheet) detail::fail("no worksheet is active");
  CellRef at = sheet->selection.active;
  enter(a, {Rect{at.row, at.col, at.row, at.col}}, text, u"~");
}

void User::type(StringView address, StringView text) {
  select(address);
  type(text);
}

void User::start_typing(StringView text) {
  AppState& a = state(app_);
  if (!a.active_sheet()) detail::fail("no worksheet is active");
  interaction(a).editing = String(text);
}

void User::press_enter() {
  auto& editing = interaction(state(app_)).editing;
  if (!editing) return;
  const String text = std::move(*editing);
  type(text);
}

void User::press_escape() {
  interaction(state(app_)).editing.reset();
}

void User::ctrl_enter(StringView text) {
  AppState& a = state(app_);
  interaction(a).editing.reset();
  auto sheet = a.active_sheet();
  if (!sheet) detail::fail("no worksheet is active");
  enter(a, sheet->selection.areas, text, u"^~");
}

void User::press_undo() {
  detail::press_undo(state(app_));
}
void User::press_redo() {
  detail::press_redo(state(app_));
}

void User::idle() {
  AppState& a = state(app_);
  detail::Interaction& in = interaction(a);
  // The application is not idle while a cell is in edit.
  if (in.editing) return;
  for (int n = 0; n < detail::kMaxTimersPerIdle; ++n) {
    double now = detail::now_serial(a);
    auto due = in.timers.end();
    for (auto it = in.timers.begin(); it != in.timers.end(); ++it)
      if (it->when <= now && (due == in.timers.end() || it->when < due->when ||
                              (it->when == due->when && it->order < due->order)))
        due = it;
    if (due == in.timers.end()) return;
    String procedure = due->procedure;
    in.timers.erase(due);
    detail::application_run(a, procedure, {});
  }
}

void User::click(const host::CommandBarControlPtr& control) {
  if (!control) throw Error(err::object_required, "Object required");
  control->execute();
}

String User::undo_caption() const {
  return detail::undo_caption(state(app_));
}
String User::redo_caption() const {
  return detail::redo_caption(state(app_));
}

}  // namespace qz::engine
