// Calculation: parsing formula cells when they are needed, the dependency graph over them, and
// evaluating dirty formulas after an edit (or all of them), deep chains included.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <set>
#include <unordered_set>

#include "engine/calc/check.hpp"
#include "engine/model/address.hpp"
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
/// The error a formula shows when its result cannot spill (#SPILL!).
constexpr int32_t kErrorSpill = 2045;

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
    if (!s->array_blocks.empty())
      if (auto v = b_.array_result(*s, c)) return *v;
    Cell* cell = s->cells.find(c.row, c.col);
    if (!cell) return calc::Value::empty();
    return value_of(*s, *cell);
  }

  void for_each_value(SheetId sid, const Rect& area,
                      const std::function<void(CellRef, const calc::Value&)>& visit) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return;
    if (!s->array_blocks.empty()) {
      // The blocks of array formulas show their latest results; collect first, since
      // calculating a block's formula may store cells.
      std::vector<std::pair<CellRef, calc::Value>> seen;
      s->cells.for_each(area, [&](int32_t r, int32_t c, const Cell& cell) {
        if (cell.has_content()) seen.push_back({CellRef{r, c}, calc::Value()});
        return true;
      });
      for (auto& [at, v] : seen) v = cell_value(sid, at);
      for (auto& [at, v] : seen) visit(at, v);
      return;
    }
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

  std::optional<calc::TableDefinition> table(StringView text) override {
    for (auto& s : b_.sheets)
      for (const TableRec& t : s->tables)
        if (equals_text(t.name, text)) return definition(*s, t);
    return std::nullopt;
  }
  std::optional<Rect> spill_area(SheetId sid, CellRef c) override {
    cell_value(sid, c);  // brings the block up to date with the result
    Sheet* s = b_.sheet(sid);
    Cell* cell = s ? s->cells.find(c.row, c.col) : nullptr;
    if (!cell || cell->kind() != CellKind::Formula || !s->formula(*cell).spills) return {};
    return s->formula(*cell).array_ref;
  }
  std::optional<calc::TableDefinition> table_at(SheetId sid, CellRef c) override {
    if (Sheet* s = b_.sheet(sid))
      for (const TableRec& t : s->tables)
        if (t.ref.contains(c)) return definition(*s, t);
    return std::nullopt;
  }
  static calc::TableDefinition definition(const Sheet& s, const TableRec& t) {
    return calc::TableDefinition{t.name, s.id, t.ref, t.header_rows, t.totals_rows, t.columns};
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
  std::optional<calc::Value> external_value(StringView prefix, CellRef cell) override {
    return b_.external_value(prefix, cell);
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
    if (f.in_progress) {
      // A circle: the cell gives the value it had (its previous pass when iterating).
      if (b_.circular_.size() < 100000) b_.circular_.emplace_back(s.id, f.at);
      // Without iteration that value depends on where the calculation entered the circle.
      if (!b_.calc_settings.iterate) b_.reads_uncertain_ = true;
    } else if (f.dirty) {
      if (b_.eval_depth_ < kMaxEvalDepth)
        b_.evaluate_cell(s, f);
      else if (!b_.deferred_)
        b_.deferred_ = std::make_pair(s.id, index);
    }
    const FormulaCell& g = s.formulas[index];
    if (g.uncertain) b_.reads_uncertain_ = true;
    return g.value;
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
      f.parsed = formula_cache_.parse(f.file->text16(), calc::Notation::A1, f.at, s.id, *this);
    } catch (const Error&) {
      // Left unparsed: the loaded value stands and the text is written back as read.
    }
  }
  if (f.parsed) f.is_volatile = calc::is_volatile(*f.parsed);
  return f.parsed.get();
}

calc::FormulaPtr Book::share_parse(calc::FormulaPtr parsed) {
  return formula_cache_.intern(std::move(parsed));
}

void Book::set_parse(Sheet& s, uint32_t slot, calc::FormulaPtr shared) {
  FormulaCell& f = s.formulas[slot];
  f.parsed = std::move(shared);
  if (f.parsed) f.is_volatile = calc::is_volatile(*f.parsed);
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
  // "A1#" reads the block its anchor spilled into, which only the workbook knows; any read
  // of an anchor is taken to read its block.
  if (array_blocks_)
    for (size_t k = 0, n = reads.size(); k < n; ++k) {
      auto [sid, r] = reads[k];
      Sheet* on = sheet(sid);
      Cell* c =
          on && r.row1 == r.row2 && r.col1 == r.col2 ? on->cells.find(r.row1, r.col1) : nullptr;
      if (c && c->kind() == CellKind::Formula && on->formula(*c).spills)
        reads.emplace_back(sid, on->formula(*c).array_ref);
    }
  // A structured reference reads its table; a table's name alone, the table too.
  bool any_tables = false;
  for (auto& sh : sheets) any_tables = any_tables || !sh->tables.empty();
  auto tables_read = [&](const calc::References& r, SheetId home) {
    if (!any_tables) return;
    std::vector<String> named = r.tables;
    named.insert(named.end(), r.names.begin(), r.names.end());
    for (const String& table_name : named)
      for (auto& sh : sheets)
        for (const TableRec& t : sh->tables)
          if (table_name.empty() ? sh->id == home && t.ref.contains(f.at)
                                 : equals_text(t.name, table_name))
            reads.emplace_back(sh->id, t.ref);
  };
  tables_read(refs, s.id);
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
    tables_read(nr, s.id);
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
  layout_as_read_ = false;
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
  layout_as_read_ = false;
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
  if (keep_linked_values && [&] {
        CalcContext ctx(*this);
        return calc::reads_other_workbook(*p, ctx, s.id);
      }()) {
    f.dirty = false;
    f.uncertain = trace_uncertain;
    if (f.uncertain) reads_uncertain_ = true;
    return;
  }
  f.in_progress = true;
  ++eval_depth_;
  const bool outer_uncertain = reads_uncertain_;
  reads_uncertain_ = false;
  calc::Value v;
  std::vector<calc::Value> block;
  {
    CalcContext ctx(*this);
    try {
      if (f.spills) {
        block = spill(s, index, calc::evaluate_spill(*p, f.at, s.id, ctx));
        v = block[0];
      } else if (f.array) {
        // An array formula works element by element over its whole block.
        Rect r = f.array_ref;
        block = calc::evaluate_array(*p, f.at, s.id, ctx, r.row2 - r.row1 + 1, r.col2 - r.col1 + 1);
        v = block[0];
      } else {
        v = calc::evaluate(*p, f.at, s.id, ctx);
      }
    } catch (const Error&) {
      v = calc::Value::error(cell_error::value);
    }
  }
  const bool uncertain = trace_uncertain && (reads_uncertain_ || uncertain_reason(s, f));
  reads_uncertain_ = outer_uncertain || uncertain;
  --eval_depth_;
  ++evaluations_;
  // The formula table does not grow during evaluation, but take the slot afresh anyway.
  FormulaCell& g = s.formulas[index];
  g.in_progress = false;
  // A precedent deeper than the recursion limit was put off: this result used its old value
  // and is thrown away; the cell stays dirty and is done again once the precedent is.
  if (deferred_) return;
  if (v.kind == calc::Value::Kind::Empty) v = calc::Value::num(0);
  if (block.size() > 1 || g.spills)
    s.array_results[static_cast<uint32_t>(index)] = std::move(block);
  if (!(g.value == v)) {
    s.changed.cells = true;
    double change = v.kind == calc::Value::Kind::Number && g.value.kind == v.kind
                        ? std::fabs(v.number - g.value.number)
                        : HUGE_VAL;
    largest_change_ = std::max(largest_change_, change);
  }
  g.value = std::move(v);
  g.uncertain = uncertain;
  g.dirty = false;
}

std::vector<calc::Value> Book::spill(Sheet& s, size_t index, calc::Spill result) {
  FormulaCell& f = s.formulas[index];
  const Rect old = f.array_ref;
  Rect want{f.at.row, f.at.col, f.at.row + result.rows - 1, f.at.col + result.cols - 1};
  if (want == old) return std::move(result.values);
  // A result spills only over empty cells of the sheet (its own earlier block aside); where
  // something is in the way, or the block would run off the sheet, the anchor shows #SPILL!
  // and nothing spills.
  bool blocked = want.row2 > kLastRow || want.col2 > kLastCol;
  if (!blocked)
    s.cells.for_each(want, [&](int32_t r, int32_t c, const Cell& cell) {
      if (cell.has_content() && !old.contains(CellRef{r, c}) && !(CellRef{r, c} == f.at))
        blocked = true;
      return !blocked;
    });
  if (blocked) {
    want = Rect{f.at.row, f.at.col, f.at.row, f.at.col};
    result.values.assign(1, calc::Value::error(kErrorSpill));
  }
  if (want == old) return std::move(result.values);
  s.vacated.push_back(old);
  f.array_ref = want;
  // The file keeps where the result spilled in the formula's ref.
  if (f.file) f.file->more().ref = area_a1(want, false, false);
  s.changed.cells = true;
  graph_valid_ = false;
  array_blocks_ = true;
  return std::move(result.values);
}

std::optional<calc::Value> Book::array_result(Sheet& s, CellRef at) {
  for (uint32_t i : s.array_blocks) {
    if (i >= s.formulas.size()) continue;
    FormulaCell& f = s.formulas[i];
    if (!f.live || !f.array || !f.array_ref.contains(at) || f.at == at) continue;
    if (f.dirty && !f.in_progress && eval_depth_ < kMaxEvalDepth) evaluate_cell(s, f);
    // A result that spills may have left the cell.
    if (!f.array_ref.contains(at)) continue;
    auto it = s.array_results.find(static_cast<uint32_t>(i));
    if (it == s.array_results.end()) return std::nullopt;
    const Rect& r = f.array_ref;
    size_t k = static_cast<size_t>(at.row - r.row1) * (r.col2 - r.col1 + 1) + (at.col - r.col1);
    if (k < it->second.size()) return it->second[k];
    return std::nullopt;
  }
  return std::nullopt;
}

bool Book::store_array_results() {
  bool changed_any = false;
  for (auto& s : sheets) {
    auto results = std::move(s->array_results);
    s->array_results.clear();
    // Cells a spilled result has left are emptied, unless another block now covers them.
    auto vacated = std::move(s->vacated);
    s->vacated.clear();
    for (const Rect& r : vacated)
      for (int32_t row = r.row1; row <= r.row2; ++row)
        for (int32_t col = r.col1; col <= r.col2; ++col) {
          Cell* c = s->cells.find(row, col);
          if (!c || c->kind() == CellKind::Formula || array_result(*s, CellRef{row, col})) continue;
          clear_contents(*s, Rect{row, col, row, col});
          changed_any = true;
        }
    for (auto& [i, block] : results) {
      if (i >= s->formulas.size() || !s->formulas[i].live || !s->formulas[i].array) continue;
      Rect r = s->formulas[i].array_ref;
      CellRef master = s->formulas[i].at;
      size_t k = 0;
      for (int32_t row = r.row1; row <= r.row2; ++row)
        for (int32_t col = r.col1; col <= r.col2; ++col, ++k) {
          if (k >= block.size() || CellRef{row, col} == master) continue;
          Cell* c = s->cells.find(row, col);
          if (c && c->kind() == CellKind::Formula) continue;  // not the block's own cell
          calc::Value v = block[k];
          if (v.kind == calc::Value::Kind::Empty) v = calc::Value::num(0);
          if (c && cell_value(*s, *c) == v) continue;
          set_constant(*s, row, col, v);
          changed_any = true;
        }
    }
  }
  return changed_any;
}

void Book::recalc_dirty() {
  // Storing the results of array formulas in their blocks changes cells that other formulas
  // may read; those recalculate in another round.
  for (int round = 0; round < 16; ++round) {
    recalc_dirty_once();
    if (!array_blocks_ || !store_array_results()) break;
    dirty_dependents();
  }
}

void Book::recalc_dirty_once() {
  std::vector<std::pair<SheetId, uint32_t>> work;
  work.swap(dirty_);
  size_t limit = 0;
  for (auto& s : sheets) limit += s->formulas.size();
  uint64_t first = evaluations_, done = 0;
  // One stack serves every item: most formulas are done in one step, and a stack of their
  // own would cost each of them an allocation.
  std::vector<std::pair<SheetId, uint32_t>> stack;
  for (auto& item : work) {
    if (progress && (++done & 0x3FFF) == 0) progress(evaluations_ - first, work.size());
    stack.assign(1, item);
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
  dirty_dependents();
  if (auto_calc) recalc_dirty();
}

void Book::dirty_dependents() {
  if (!pending_.empty()) {
    if (!graph_valid_) rebuild_graph();
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
}

void Book::calculate(bool all) {
  if (all) {
    // Every formula is calculated, each one's dirty precedents first, so this needs no
    // dependency graph; one that is out of date is rebuilt when an edit first asks it for
    // dependents. A workbook that is only recalculated and saved never builds one.
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
  if (!graph_valid_) rebuild_graph();
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

void Book::calculate_uncached() {
  if (uncached_.empty()) return;
  for (auto& [sid, i] : uncached_) {
    Sheet* s = sheet(sid);
    if (s && i < s->formulas.size() && s->formulas[i].live && !s->formulas[i].dirty &&
        s->formulas[i].value.kind == calc::Value::Kind::Empty) {
      s->formulas[i].dirty = true;
      dirty_.emplace_back(sid, i);
    }
  }
  std::vector<std::pair<SheetId, uint32_t>>().swap(uncached_);
  // Only these formulas are calculated (what they read on demand): an ordinary recalculation
  // would also redo the volatile ones and the dependents of array results.
  recalc_dirty_once();
  if (array_blocks_) store_array_results();
  pending_.clear();
}

CalcOutcome Book::recalculate_all() {
  CalcOutcome out;
  circular_.clear();
  largest_change_ = 0;
  calculate(true);
  if (!circular_.empty() && calc_settings.iterate) {
    // Each pass starts from the last one's values; a circle reads its previous pass.
    const int32_t passes = std::max<int32_t>(1, calc_settings.iterate_count);
    out.converged = false;
    while (out.passes < passes) {
      largest_change_ = 0;
      ++out.passes;
      calculate(true);
      if (largest_change_ < calc_settings.iterate_delta) {
        out.converged = true;
        break;
      }
    }
  }
  std::set<std::pair<SheetId, std::pair<int32_t, int32_t>>> seen;
  for (const auto& [sid, at] : circular_)
    if (seen.insert({sid, {at.row, at.col}}).second) out.circular.emplace_back(sid, at);
  circular_.clear();
  return out;
}

const char* Book::uncertain_reason(Sheet& s, FormulaCell& f) {
  const calc::Formula* p = ensure_parsed(s, f);
  if (!p) return "does not parse";
  CalcContext ctx(*this);
  return calc::reason_not_checked(*p, ctx, s.id);
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
