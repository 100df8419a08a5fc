// Structural changes: sheets renamed and deleted, rows and columns inserted and deleted (cells,
// formulas everywhere, names, hyperlinks and merged areas follow), and cells copied.
#include <algorithm>
#include <unordered_map>

#include "engine/model/book.hpp"
#include "engine/model/fail.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

void Book::rename_sheet(Sheet& s, StringView new_name) {
  layout_as_read_ = false;
  check_sheet_name(new_name, s.id);
  if (s.name == new_name) return;
  // Formulas that name the sheet must be parsed under the old name before it changes; their
  // file text then no longer holds.
  String old = s.name;
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);
  s.name = String(new_name);
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live && f.file && f.parsed && instr_text(1, f.file->text16(), old) > 0) {
        f.file.reset();
        sh->changed.cells = true;
      }
  for (size_t i = 0; i < names_.size(); ++i) {
    const DefinedName& n = names_[i];
    if (n.parsed)
      names_.set_definition(i, calc::render(*n.parsed, calc::Notation::A1, {}, n.scope, *this),
                            n.parsed);
  }
  s.changed.sheet = true;
  changed.workbook = true;
  saved = false;
}

// ---------------------------------------------------------------------------------------------
// Tables

std::optional<std::pair<Sheet*, TableRec*>> Book::find_table(StringView table_name) {
  for (auto& s : sheets)
    for (TableRec& t : s->tables)
      if (equals_text(t.name, table_name)) return std::make_pair(s.get(), &t);
  return std::nullopt;
}

void Book::table_changed(const calc::TableChange& change) {
  layout_as_read_ = false;
  for (auto& sh : sheets)
    for (auto& f : sh->formulas) {
      if (!f.live || !ensure_parsed(*sh, f)) continue;
      calc::FormulaPtr adjusted = calc::adjust_table(f.parsed, f.at, sh->id, change);
      if (adjusted == f.parsed) continue;
      // A shared formula's children share its parsed form, so each takes the adjusted one and
      // the whole group is written out anew.
      f.parsed = std::move(adjusted);
      f.file.reset();
      f.shared_master.reset();
      f.dirty = true;
      sh->changed.cells = true;
    }
  for (size_t i = 0; i < names_.size(); ++i) {
    const DefinedName& n = names_[i];
    if (!n.parsed) continue;
    calc::FormulaPtr adjusted = calc::adjust_table(n.parsed, {}, n.scope, change);
    if (adjusted == n.parsed) continue;
    String text = calc::render(*adjusted, calc::Notation::A1, {}, n.scope, *this);
    names_.set_definition(i, std::move(text), std::move(adjusted));
    changed.workbook = true;
  }
  saved = false;
  graph_valid_ = false;
}

void Book::rename_table(StringView table_name, StringView new_name) {
  layout_as_read_ = false;
  auto found = find_table(table_name);
  if (!found) fail("there is no table \"" + to_utf8(table_name) + "\"");
  auto [s, t] = *found;
  check_name_text(new_name);
  if (auto other = find_table(new_name); other && other->second != t)
    fail("a table \"" + to_utf8(new_name) + "\" already exists");
  for (size_t i = 0; i < names_.size(); ++i)
    if (equals_text(names_[i].name, new_name))
      fail("a name \"" + to_utf8(new_name) + "\" already exists");
  if (t->name == new_name) return;
  // Formulas are parsed before the table changes, so that they read as they did.
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);
  calc::TableChange change{t->name, String(new_name), s->id, t->ref, {}};
  t->name = String(new_name);
  t->changed = true;
  table_changed(change);
  invalidate_graph();
}

void Book::rename_table_column(StringView table_name, int32_t column, StringView new_name) {
  layout_as_read_ = false;
  auto found = find_table(table_name);
  if (!found) fail("there is no table \"" + to_utf8(table_name) + "\"");
  auto [s, t] = *found;
  if (column < 0 || column >= static_cast<int32_t>(t->columns.size()))
    fail("the table has no such column");
  if (new_name.empty()) fail("a column needs a name");
  for (size_t k = 0; k < t->columns.size(); ++k)
    if (static_cast<int32_t>(k) != column && equals_text(t->columns[k], new_name))
      fail("the table already has a column \"" + to_utf8(new_name) + "\"");
  String old = t->columns[column];
  if (old == new_name) return;
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);
  calc::TableChange change{t->name, t->name, s->id, t->ref, {{old, String(new_name)}}};
  t->columns[column] = String(new_name);
  t->changed = true;
  // The header cell holds the column's name.
  if (t->header_rows > 0)
    set_constant(*s, t->ref.row1, t->ref.col1 + column, calc::Value::str(String(new_name)));
  table_changed(change);
  invalidate_graph();
}

void Book::delete_sheet(SheetId id) {
  layout_as_read_ = false;
  int32_t pos = sheet_position(id);
  if (pos < 0) fail("the sheet no longer exists");
  size_t visible = 0;
  for (auto& s : sheets)
    if (s->visibility == kSheetVisible) ++visible;
  if (sheets.size() == 1 || (visible == 1 && sheets[pos]->visibility == kSheetVisible))
    fail("a workbook must contain at least one visible sheet");
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);
  auto victim = sheets[pos];
  sheets.erase(sheets.begin() + pos);
  names_.sheets_changed();
  victim->book = nullptr;
  names_.erase_scope(id);
  if (active_sheet >= static_cast<int32_t>(sheets.size()))
    active_sheet = static_cast<int32_t>(sheets.size()) - 1;
  else if (active_sheet > pos)
    --active_sheet;
  // References to the deleted sheet now evaluate as #REF!; recalculate everything.
  changed.workbook = true;
  saved = false;
  graph_valid_ = false;
  for (auto& sh : sheets) sh->changed.cells = true;
  recalc_everything();
}

// ---------------------------------------------------------------------------------------------
// Structure

namespace {
int32_t shift_index(int32_t v, int32_t at, int32_t count) {
  // New position of line `v` after inserting (count > 0) or deleting (count < 0) at `at`;
  // -1 when it was deleted.
  if (v < at) return v;
  if (count > 0) return v + count;
  if (v < at - count) return -1;
  return v + count;
}

std::optional<Rect> shift_rect(Rect r, bool rows, int32_t at, int32_t count) {
  int32_t& lo = rows ? r.row1 : r.col1;
  int32_t& hi = rows ? r.row2 : r.col2;
  int32_t last = rows ? kLastRow : kLastCol;
  if (count > 0) {
    if (lo >= at) lo += count;
    if (hi >= at) hi += count;
    if (lo > last) return std::nullopt;
    hi = std::min(hi, last);
    return r;
  }
  int32_t del_end = at - count - 1;
  if (lo >= at && hi <= del_end) return std::nullopt;
  auto move = [&](int32_t v, bool is_hi) {
    if (v < at) return v;
    if (v > del_end) return v + count;
    return is_hi ? at - 1 : at;
  };
  lo = move(lo, false);
  hi = move(hi, true);
  if (hi < lo) return std::nullopt;
  return r;
}

void shift_lines(std::map<int32_t, LineInfo>& lines, int32_t at, int32_t count, int32_t last) {
  std::map<int32_t, LineInfo> out;
  for (auto& [i, info] : lines) {
    int32_t n = shift_index(i, at, count);
    if (n >= 0 && n <= last) out.emplace(n, std::move(info));
  }
  lines.swap(out);
}
}  // namespace

void Book::shift(Sheet& s, bool rows, int32_t at, int32_t count) {
  layout_as_read_ = false;
  if (count == 0) return;
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  int32_t last = rows ? kLastRow : kLastCol;
  if (at < 0 || at > last) fail("rows or columns outside the sheet");
  if (count < 0) count = -std::min(-count, last - at + 1);
  // References move with their cells: every formula of the workbook takes part, so each must
  // be parsed before positions change.
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);

  auto removed = [&](const Cell& c) {
    if (c.kind() == CellKind::Formula) s.free_formula(c.index);
  };
  if (rows) {
    if (count > 0)
      s.cells.insert_rows(at, count);
    else
      s.cells.delete_rows(at, -count, removed);
    shift_lines(s.rows, at, count, kLastRow);
  } else {
    if (count > 0)
      s.cells.insert_cols(at, count);
    else
      s.cells.delete_cols(at, -count, removed);
    shift_lines(s.cols, at, count, kLastCol);
  }

  // Tables move with their cells and grow or shrink with lines inserted or deleted inside.
  std::vector<calc::TableChange> table_changes;
  for (TableRec& t : s.tables) {
    int32_t& first = rows ? t.ref.row1 : t.ref.col1;
    int32_t& end = rows ? t.ref.row2 : t.ref.col2;
    int32_t n1 = first, n2 = end;
    if (count > 0) {
      if (at <= first) n1 += count;
      if (at <= end) n2 += count;
      if (!rows && at > first && at <= end)
        for (int32_t k = 0; k < count; ++k) {
          String name = u"Column" + from_utf8(std::to_string(t.columns.size() + 1));
          t.columns.insert(t.columns.begin() + (at - first) + k, name);
        }
    } else {
      int32_t gone_end = at - count - 1;
      n1 = first < at ? first : first > gone_end ? first + count : at;
      n2 = end < at ? end : end > gone_end ? end + count : at - 1;
      if (n2 < n1) continue;  // every line of it deleted: the application refuses that
      if (!rows) {
        int32_t lo = std::max(first, at) - first, hi = std::min(end, gone_end) - first;
        if (hi >= lo && hi < static_cast<int32_t>(t.columns.size())) {
          calc::TableChange gone{t.name, t.name, s.id, t.ref, {}};
          for (int32_t k = lo; k <= hi; ++k) gone.columns.emplace_back(t.columns[k], String());
          table_changes.push_back(std::move(gone));
          t.columns.erase(t.columns.begin() + lo, t.columns.begin() + hi + 1);
        }
      }
    }
    if (n1 != first || n2 != end) {
      first = n1;
      end = n2;
      t.changed = true;
    }
  }

  // References by name to the columns deleted become #REF! while formulas are still where
  // they were.
  for (const calc::TableChange& gone : table_changes) table_changed(gone);

  calc::StructuralChange change{s.id, rows, at, count};
  for (auto& sh : sheets) {
    bool any = false;
    for (auto& f : sh->formulas) {
      if (!f.live) continue;
      CellRef old = f.at;
      if (sh.get() == &s) {
        int32_t& v = rows ? f.at.row : f.at.col;
        int32_t n = shift_index(v, at, count);
        if (n >= 0) v = n;
        if (f.array) {
          // The block moves with its top-left cell, and grows or shrinks with lines
          // inserted or deleted inside it.
          int32_t& first = rows ? f.array_ref.row1 : f.array_ref.col1;
          int32_t& end = rows ? f.array_ref.row2 : f.array_ref.col2;
          int32_t size = end - first + 1;
          if (count > 0 && at > first && at <= end) size += count;
          if (count < 0) {
            int32_t lo = std::max(first, at), hi = std::min(end, at - count - 1);
            if (hi >= lo && lo > first) size -= hi - lo + 1;
          }
          first = v;
          end = v + std::max(size, 1) - 1;
        }
      }
      if (f.parsed) {
        calc::FormulaPtr adjusted = calc::adjust(f.parsed, old, f.at, sh->id, change);
        if (adjusted != f.parsed) {
          f.parsed = std::move(adjusted);
          any = true;
        }
      }
      if (!(old == f.at)) any = true;
    }
    if (any || sh.get() == &s) {
      // The sheet part is rewritten: formulas are written from what they now are.
      for (auto& f : sh->formulas) {
        if (f.live && f.parsed) {
          f.file.reset();
          f.shared_master.reset();
        }
      }
      sh->changed.cells = true;
    }
  }
  // Cells pushed off the sheet were dropped by the store; free any formula slot left behind.
  for (size_t i = 0; i < s.formulas.size(); ++i) {
    FormulaCell& f = s.formulas[i];
    if (!f.live) continue;
    const Cell* c = s.cells.find(f.at.row, f.at.col);
    if (!c || c->kind() != CellKind::Formula || c->index != i)
      s.free_formula(static_cast<uint32_t>(i));
  }

  for (size_t i = 0; i < names_.size(); ++i) {
    const DefinedName& n = names_[i];
    if (!n.parsed) continue;
    calc::FormulaPtr adjusted = calc::adjust(n.parsed, {}, {}, n.scope, change);
    if (adjusted != n.parsed) {
      String text = calc::render(*adjusted, calc::Notation::A1, {}, n.scope, *this);
      names_.set_definition(i, std::move(text), std::move(adjusted));
      changed.workbook = true;
    }
  }
  std::vector<HyperlinkRec> links;
  for (auto& h : s.hyperlinks)
    if (auto r = shift_rect(h.ref, rows, at, count)) {
      h.ref = *r;
      links.push_back(std::move(h));
    }
  s.hyperlinks.swap(links);
  std::vector<Rect> merged;
  for (auto& m : s.merged)
    if (auto r = shift_rect(m, rows, at, count)) merged.push_back(*r);
  s.merged.swap(merged);
  if (s.auto_filter) s.auto_filter = shift_rect(*s.auto_filter, rows, at, count);
  for (auto& a : s.selection.areas)
    if (auto r = shift_rect(a, rows, at, count)) a = *r;

  s.changed.all();
  saved = false;
  graph_valid_ = false;
  volatile_.clear();
  pending_.clear();
  // Values of formulas whose ranges grew or shrank change; recalculate the workbook.
  recalc_everything();
}

void Book::shift_cells(Sheet&, const Rect&, bool, bool) {
  throw Error(err::not_supported,
              "inserting or deleting part of a row or column is not supported; insert or "
              "delete entire rows or columns");
}

void Book::copy(Sheet& src, const Rect& from, Sheet& dst, const Rect& to) {
  if (src.kind != SheetKind::Worksheet || dst.kind != SheetKind::Worksheet)
    fail("a chart sheet has no cells");
  Book& sb = *src.book;
  int32_t h = from.row2 - from.row1 + 1, w = from.col2 - from.col1 + 1;
  // A destination that is a multiple of the source in both directions is filled with copies;
  // any other destination takes one copy at its top-left cell.
  int32_t th = to.row2 - to.row1 + 1, tw = to.col2 - to.col1 + 1;
  int32_t reps_r = th % h == 0 ? th / h : 1, reps_c = tw % w == 0 ? tw / w : 1;
  if (to.row1 + h * reps_r - 1 > kLastRow || to.col1 + w * reps_c - 1 > kLastCol)
    fail("the copy would go past the edge of the sheet");
  struct Item {
    int32_t dr, dc;
    uint32_t style;
    CellKind kind;
    double num;
    String text;
    std::vector<Run> runs;
    calc::FormulaPtr formula;
  };
  std::vector<Item> items;
  src.cells.for_each(from, [&](int32_t r, int32_t c, const Cell& cell) {
    Item it{r - from.row1, c - from.col1, cell.style(), cell.kind(), cell.num, {}, {}, {}};
    if (cell.kind() == CellKind::Text) {
      it.text = String(sb.strings.text(cell.index));
      it.runs = sb.strings.runs(cell.index);
    } else if (cell.kind() == CellKind::Formula) {
      FormulaCell& f = src.formulas[cell.index];
      sb.ensure_parsed(src, f);
      it.formula = f.parsed;
      it.num = 0;
    }
    items.push_back(std::move(it));
    return true;
  });
  // Formats travel across workbooks record by record.
  std::unordered_map<uint32_t, uint32_t> style_map;
  auto map_style = [&](uint32_t xf) {
    if (&sb == this) return xf;
    auto found = style_map.find(xf);
    if (found != style_map.end()) return found->second;
    Xf x = sb.styles.xf(xf);
    x.font = styles.font_index(sb.styles.font(x.font));
    x.fill = styles.fill_index(sb.styles.fill(x.fill));
    x.border =
        styles.border_index(sb.styles.borders[x.border < sb.styles.borders.size() ? x.border : 0]);
    x.numfmt = styles.numfmt_id(sb.styles.numfmt_code(x.numfmt));
    x.derived_from = -1;
    uint32_t out = styles.xf_index(x);
    style_map.emplace(xf, out);
    return out;
  };
  for (int32_t rr = 0; rr < reps_r; ++rr)
    for (int32_t rc = 0; rc < reps_c; ++rc) {
      Rect block{to.row1 + rr * h, to.col1 + rc * w, to.row1 + rr * h + h - 1,
                 to.col1 + rc * w + w - 1};
      clear_all(dst, block);
      for (const Item& it : items) {
        int32_t r = block.row1 + it.dr, c = block.col1 + it.dc;
        uint32_t st = map_style(it.style);
        switch (it.kind) {
          case CellKind::Blank:
            dst.cells.get_or_create(r, c, st);
            break;
          case CellKind::Number:
            set_constant(dst, r, c, calc::Value::num(it.num));
            break;
          case CellKind::Boolean:
            set_constant(dst, r, c, calc::Value::boolean(it.num != 0));
            break;
          case CellKind::Error:
            set_constant(dst, r, c, calc::Value::error(static_cast<int32_t>(it.num)));
            break;
          case CellKind::Text:
            if (it.runs.empty())
              set_constant(dst, r, c, calc::Value::str(it.text));
            else
              set_rich_text(dst, r, c, it.text, it.runs);
            break;
          case CellKind::Formula:
            if (&sb == this && it.formula) {
              set_parsed_formula(dst, r, c, it.formula);
            } else if (it.formula) {
              try {
                // Into another workbook the formula travels as text, written at its new cell
                // so relative references have moved, and read there by that workbook's sheets.
                String text =
                    calc::render(*it.formula, calc::Notation::A1, CellRef{r, c}, src.id, sb);
                set_formula(dst, r, c, text, calc::Notation::A1);
              } catch (const Error&) {
                set_constant(dst, r, c, calc::Value::error(cell_error::ref));
              }
            }
            break;
        }
        if (Cell* cell = dst.cells.find(r, c)) cell->set_style(st);
      }
    }
  touch(dst);
}

}  // namespace qz::engine
