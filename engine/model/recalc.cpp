// Calculation: parsing formula cells when they are needed, the dependency graph over them, and
// evaluating dirty formulas after an edit (or all of them), deep chains included.
#include <chrono>
#include <unordered_set>

#include "engine/model/book.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"
#include "vocab/dates.hpp"

namespace qz::engine {

namespace {

// Evaluation recurses through dirty precedents up to this depth; deeper chains are finished
// from an explicit stack, so a long chain of formulas cannot exhaust the call stack.
constexpr int32_t kMaxEvalDepth = 128;

double system_now() {
  using namespace std::chrono;
  auto t = system_clock::now();
  std::time_t tt = system_clock::to_time_t(t);
  std::tm local{};
#if defined(_WIN32)
  localtime_s(&local, &tt);
#else
  localtime_r(&tt, &local);
#endif
  double day =
      numfmt::serial_from_date(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, false);
  return day + (local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) / 86400.0;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Evaluation context

class CalcContext final : public calc::EvalContext {
 public:
  explicit CalcContext(Book& b) : b_(b) {}

  calc::Value cell_value(SheetId sid, CellRef c) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return calc::Value::error(cell_error::ref);
    Cell* cell = s->cells.find(c.row, c.col);
    if (!cell) return calc::Value::empty();
    return value_of(*s, *cell);
  }

  void for_each_value(SheetId sid, const Rect& area,
                      const std::function<void(CellRef, const calc::Value&)>& visit) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return;
    s->cells.for_each(area, [&](int32_t r, int32_t c, const Cell& cell) {
      if (cell.has_content()) visit(CellRef{r, c}, value_of(*s, const_cast<Cell&>(cell)));
      return true;
    });
  }

  CellRef used_extent(SheetId sid) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return {};
    auto e = s->cells.extent();
    return e ? CellRef{e->row2, e->col2} : CellRef{};
  }

  std::optional<calc::NameDefinition> name(StringView text, SheetId scope) override {
    const DefinedName* n = b_.resolve_name(text, scope);
    if (!n || !n->parsed) return std::nullopt;
    return calc::NameDefinition{n->parsed, n->scope};
  }

  const calc::SheetResolver& sheets() override { return b_; }
  bool date1904() override { return b_.date1904; }

  // SUBTOTAL and AGGREGATE leave out the totals nested in their ranges, and hidden rows when
  // asked; only the workbook knows which cells hold formulas and which rows are hidden.
  calc::FormulaPtr formula_at(SheetId sid, CellRef c) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return nullptr;
    Cell* cell = s->cells.find(c.row, c.col);
    if (!cell || cell->kind() != CellKind::Formula) return nullptr;
    FormulaCell& f = s->formula(*cell);
    b_.ensure_parsed(*s, f);
    return f.parsed;
  }
  bool row_hidden(SheetId sid, int32_t row) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return false;
    auto it = s->rows.find(row);
    return it != s->rows.end() && it->second.hidden;
  }
  // CELL reads a cell's format, column width, alignment and protection; CELL and INFO
  // read where the file is and how it calculates.
  std::optional<calc::CellFacts> cell_facts(SheetId sid, CellRef c) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return std::nullopt;
    calc::CellFacts f;
    f.number_format = b_.format_code(*s, c.row, c.col);
    auto col = s->cols.find(c.col);
    f.column_width =
        col != s->cols.end() && col->second.size >= 0 ? col->second.size : s->default_col_width;
    const Xf& xf = b_.styles.xf(s->style_at(c.row, c.col));
    f.locked = xf.locked;
    switch (xf.align.horizontal) {
      case HAlign::Left:
        f.alignment = u'l';
        break;
      case HAlign::Right:
        f.alignment = u'r';
        break;
      case HAlign::Center:
      case HAlign::CenterContinuous:
        f.alignment = u'c';
        break;
      case HAlign::Fill:
        f.alignment = u'f';
        break;
      default:
        break;
    }
    return f;
  }
  std::optional<calc::WorkbookFacts> workbook_facts() override {
    return calc::WorkbookFacts{b_.path, b_.name, !b_.auto_calc};
  }

  double now() override {
    // The clock counts in the 1900 system; a 1904 workbook counts 1462 days fewer.
    double n = b_.clock ? b_.clock() : system_now();
    return b_.date1904 ? n - dates::k1904Shift : n;
  }

 private:
  calc::Value value_of(Sheet& s, const Cell& cell) {
    if (cell.kind() != CellKind::Formula) return b_.cell_value(s, cell);
    uint32_t index = cell.index;
    FormulaCell& f = s.formulas[index];
    if (f.dirty && !f.in_progress) {
      if (b_.eval_depth_ < kMaxEvalDepth)
        b_.evaluate_cell(s, f);
      else if (!b_.deferred_)
        b_.deferred_ = std::make_pair(s.id, index);
    }
    return s.formulas[index].value;
  }
  Book& b_;
};

const calc::Formula* Book::ensure_parsed(Sheet& s, FormulaCell& f) {
  if (f.parsed) return f.parsed.get();
  if (f.shared_master) {
    Cell* m = s.cells.find(f.shared_master->row, f.shared_master->col);
    if (m && m->kind() == CellKind::Formula) {
      FormulaCell& master = s.formula(*m);
      if (&master != &f && ensure_parsed(s, master)) f.parsed = master.parsed;
    }
  } else if (f.file && !f.file->text.empty()) {
    try {
      f.parsed = calc::parse(f.file->text16(), calc::Notation::A1, f.at, s.id, *this);
    } catch (const Error&) {
      // Left unparsed: the loaded value stands and the text is written back as read.
    }
  }
  if (f.parsed) f.is_volatile = calc::is_volatile(*f.parsed);
  return f.parsed.get();
}

calc::FormulaPtr Book::parsed_for_reading(Sheet& s, const FormulaCell& f) {
  // Showing a formula needs its parse only for as long as the text is rendered. Keeping it
  // would pin a parsed tree on every formula a reader merely looks at (colouring a workbook
  // reads them all) until the workbook closes; calculation and edits parse, and keep, what
  // they actually use.
  if (f.parsed) return f.parsed;
  if (f.shared_master) {
    const Cell* m = s.cells.find(f.shared_master->row, f.shared_master->col);
    if (m && m->kind() == CellKind::Formula) {
      const FormulaCell& master = s.formula(*m);
      if (&master != &f) return parsed_for_reading(s, master);
    }
  } else if (f.file && !f.file->text.empty()) {
    try {
      return calc::parse(f.file->text16(), calc::Notation::A1, f.at, s.id, *this);
    } catch (const Error&) {
      // Unparsable text is shown as read.
    }
  }
  return nullptr;
}

std::vector<std::pair<SheetId, Rect>> Book::reads_of(Sheet& s, FormulaCell& f,
                                                     std::vector<String>* names_used) {
  std::vector<std::pair<SheetId, Rect>> reads;
  if (!f.parsed) return reads;
  // With the workbook as resolver, a 3-D reference lists the sheets between its ends too.
  calc::References refs = calc::references(*f.parsed, f.at, s.id, this);
  reads = std::move(refs.ranges);
  // Names stand for their own references, followed a few levels deep.
  std::vector<String> todo = std::move(refs.names);
  std::unordered_set<String> seen;
  for (size_t i = 0; i < todo.size() && i < 64; ++i) {
    String key = to_upper(todo[i]);
    if (!seen.insert(key).second) continue;
    if (names_used) names_used->push_back(key);
    const DefinedName* n = resolve_name(todo[i], s.id);
    if (!n || !n->parsed) continue;
    calc::References nr =
        calc::references(*n->parsed, f.at, n->scope == calc::kNoSheet ? s.id : n->scope, this);
    reads.insert(reads.end(), nr.ranges.begin(), nr.ranges.end());
    todo.insert(todo.end(), nr.names.begin(), nr.names.end());
    if (nr.is_volatile) f.is_volatile = true;
  }
  if (refs.is_volatile) f.is_volatile = true;
  return reads;
}

void Book::register_formula(Sheet& s, FormulaCell& f) {
  if (!ensure_parsed(s, f)) return;
  std::vector<String> names_used;
  graph_.set(s.id, f.at, reads_of(s, f, &names_used));
  auto slot = std::make_pair(s.id, static_cast<uint32_t>(&f - s.formulas.data()));
  if (f.is_volatile) volatile_.push_back(slot);
  for (String& n : names_used) name_users_[std::move(n)].push_back(slot);
}

void Book::name_changed(StringView text) {
  changed.workbook = true;
  saved = false;
  if (!graph_valid_) {
    recalc_everything();
    return;
  }
  // Only the formulas that use the name read other cells now, and only they and their
  // dependents change value.
  auto it = name_users_.find(to_upper(text));
  if (it != name_users_.end()) {
    auto users = it->second;
    for (auto [sid, i] : users) {
      Sheet* sh = sheet(sid);
      if (!sh || i >= sh->formulas.size() || !sh->formulas[i].live) continue;
      FormulaCell& f = sh->formulas[i];
      graph_.set(sid, f.at, reads_of(*sh, f, nullptr));
      if (!f.dirty) {
        f.dirty = true;
        dirty_.emplace_back(sid, i);
      }
      pending_.emplace_back(sid, f.at);
    }
  }
  commit();
}

void Book::invalidate_graph() {
  graph_valid_ = false;
  recalc_everything();
}

void Book::rebuild_graph() {
  graph_.clear();
  volatile_.clear();
  name_users_.clear();
  for (auto& s : sheets)
    for (auto& f : s->formulas)
      if (f.live) register_formula(*s, f);
  graph_valid_ = true;
}

void Book::evaluate_cell(Sheet& s, FormulaCell& f) {
  size_t index = static_cast<size_t>(&f - s.formulas.data());
  const calc::Formula* p = ensure_parsed(s, f);
  if (!p) {
    f.dirty = false;
    return;
  }
  f.in_progress = true;
  ++eval_depth_;
  calc::Value v;
  {
    CalcContext ctx(*this);
    try {
      v = calc::evaluate(*p, f.at, s.id, ctx);
    } catch (const Error&) {
      v = calc::Value::error(cell_error::value);
    }
  }
  --eval_depth_;
  ++evaluations_;
  // The formula table does not grow during evaluation, but take the slot afresh anyway.
  FormulaCell& g = s.formulas[index];
  g.in_progress = false;
  // A precedent deeper than the recursion limit was put off: this result used its old value
  // and is thrown away; the cell stays dirty and is done again once the precedent is.
  if (deferred_) return;
  if (v.kind == calc::Value::Kind::Empty) v = calc::Value::num(0);
  if (!(g.value == v)) s.changed.cells = true;
  g.value = std::move(v);
  g.dirty = false;
}

void Book::recalc_dirty() {
  std::vector<std::pair<SheetId, uint32_t>> work;
  work.swap(dirty_);
  size_t limit = 0;
  for (auto& s : sheets) limit += s->formulas.size();
  for (auto& item : work) {
    std::vector<std::pair<SheetId, uint32_t>> stack{item};
    size_t steps = 0;
    while (!stack.empty()) {
      auto [sid, i] = stack.back();
      Sheet* s = sheet(sid);
      if (!s || i >= s->formulas.size() || !s->formulas[i].live || !s->formulas[i].dirty) {
        stack.pop_back();
        continue;
      }
      deferred_.reset();
      evaluate_cell(*s, s->formulas[i]);
      if (deferred_ && ++steps <= 4 * limit + 16) {
        stack.push_back(*deferred_);
      } else {
        if (deferred_) s->formulas[i].dirty = false;  // give up on a pathological chain
        stack.pop_back();
      }
      deferred_.reset();
    }
  }
}

void Book::commit() {
  if (pending_.empty() && dirty_.empty()) return;
  if (!graph_valid_) rebuild_graph();
  if (!pending_.empty()) {
    auto deps = graph_.dependents(pending_);
    // A large edit leaves a large list behind; give its memory back.
    std::vector<std::pair<SheetId, CellRef>>().swap(pending_);
    for (auto& [sid, at] : deps) {
      Sheet* s = sheet(sid);
      if (!s) continue;
      Cell* c = s->cells.find(at.row, at.col);
      if (!c || c->kind() != CellKind::Formula) continue;
      FormulaCell& f = s->formula(*c);
      if (!f.dirty) {
        f.dirty = true;
        dirty_.emplace_back(sid, c->index);
      }
    }
    // Volatile formulas recalculate whenever anything does.
    for (auto& [sid, i] : volatile_) {
      Sheet* s = sheet(sid);
      if (s && i < s->formulas.size() && s->formulas[i].live && !s->formulas[i].dirty) {
        s->formulas[i].dirty = true;
        dirty_.emplace_back(sid, i);
      }
    }
  }
  if (auto_calc) recalc_dirty();
}

void Book::calculate(bool all) {
  if (!graph_valid_) rebuild_graph();
  if (all) {
    dirty_.clear();
    for (auto& s : sheets)
      for (size_t i = 0; i < s->formulas.size(); ++i)
        if (s->formulas[i].live) {
          s->formulas[i].dirty = true;
          dirty_.emplace_back(s->id, static_cast<uint32_t>(i));
        }
    pending_.clear();
    recalc_dirty();
    return;
  }
  bool saved_mode = auto_calc;
  auto_calc = true;
  for (auto& [sid, i] : volatile_) {
    Sheet* s = sheet(sid);
    if (s && i < s->formulas.size() && s->formulas[i].live && !s->formulas[i].dirty) {
      s->formulas[i].dirty = true;
      dirty_.emplace_back(sid, i);
    }
  }
  commit();
  recalc_dirty();
  auto_calc = saved_mode;
}

void Book::recalc_everything() {
  dirty_.clear();
  for (auto& sh : sheets)
    for (size_t i = 0; i < sh->formulas.size(); ++i)
      if (sh->formulas[i].live) {
        sh->formulas[i].dirty = true;
        dirty_.emplace_back(sh->id, static_cast<uint32_t>(i));
      }
  // In manual mode the workbook waits for Calculate, as after any other edit.
  if (auto_calc) {
    if (!graph_valid_) rebuild_graph();
    recalc_dirty();
  }
}

}  // namespace qz::engine
