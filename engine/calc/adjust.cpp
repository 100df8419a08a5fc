// Following cells when rows or columns are inserted or deleted.
#include <algorithm>

#include "engine/calc/eval.hpp"
#include "engine/calc/formula.hpp"

namespace qz::engine::calc {
namespace {

/// Where index `i` goes: -1 when it was deleted.
int32_t move_index(int32_t i, const StructuralChange& c, int32_t limit) {
  if (c.count > 0) {
    if (i < c.at) return i;
    int32_t moved = i + c.count;
    return moved < limit ? moved : -1;
  }
  int32_t gone = -c.count;
  if (i < c.at) return i;
  if (i < c.at + gone) return -1;
  return i - gone;
}

/// Moves the span [lo, hi]; false when every index in it was deleted. An insertion inside
/// the span widens it; one at its first index moves it; a deletion inside shrinks it.
bool move_span(int32_t& lo, int32_t& hi, const StructuralChange& c, int32_t limit) {
  if (c.count > 0) {
    int32_t nlo = lo >= c.at ? lo + c.count : lo;
    int32_t nhi = hi >= c.at ? hi + c.count : hi;
    if (nlo >= limit) return false;
    lo = nlo;
    hi = std::min(nhi, limit - 1);
    return true;
  }
  int32_t gone = -c.count, end = c.at + gone;  // deleted: [at, end)
  if (lo >= c.at && hi < end) return false;
  int32_t nlo = lo < c.at ? lo : (lo >= end ? lo - gone : c.at);
  int32_t nhi = hi < c.at ? hi : (hi >= end ? hi - gone : c.at - 1);
  lo = nlo;
  hi = nhi;
  return true;
}

/// move_span for corners written in either order ("B2:A1" keeps its orientation).
bool move_ordered(int32_t& a, int32_t& b, const StructuralChange& c, int32_t limit) {
  bool swapped = a > b;
  int32_t lo = std::min(a, b), hi = std::max(a, b);
  if (!move_span(lo, hi, c, limit)) return false;
  a = swapped ? hi : lo;
  b = swapped ? lo : hi;
  return true;
}

}  // namespace

FormulaPtr adjust(const FormulaPtr& f, CellRef origin, CellRef new_origin, SheetId home,
                  const StructuralChange& change) {
  if (!f || change.count == 0) {
    if (!f || origin == new_origin) return f;
  }
  std::vector<RefInfo> refs = f->refs;
  bool changed = false;
  for (RefInfo& r : refs) {
    if (r.name_only || r.deleted) continue;
    SheetId target = r.sheet == kNoSheet ? home : r.sheet;
    // A 3-D reference spans sheets in workbook order, which this layer does not know;
    // its cells follow the change only when it starts or ends on the changed sheet.
    // References to other workbooks (or to a deleted sheet) do not move, but their
    // relative parts are kept relative to where the formula now is.
    bool affected = change.count != 0 && !r.external && !r.sheet_deleted &&
                    (target == change.sheet || (r.sheet2 != kNoSheet && r.sheet2 == change.sheet));

    // Absolute positions before the change.
    int32_t r1 = r.a.row_abs ? r.a.row : r.a.row + origin.row;
    int32_t c1 = r.a.col_abs ? r.a.col : r.a.col + origin.col;
    int32_t r2 = r.b.row_abs ? r.b.row : r.b.row + origin.row;
    int32_t c2 = r.b.col_abs ? r.b.col : r.b.col + origin.col;
    if (r.kind == RefKind::Cell) {
      r2 = r1;
      c2 = c1;
    }
    bool alive = true;
    if (affected) {
      bool rows = change.rows;
      bool spans_rows = r.kind != RefKind::Cols;  // whole columns ignore row changes
      bool spans_cols = r.kind != RefKind::Rows;
      if (rows && spans_rows) {
        if (r.kind == RefKind::Cell) {
          r1 = r2 = move_index(r1, change, kMaxRows);
          alive = r1 >= 0;
        } else {
          alive = move_ordered(r1, r2, change, kMaxRows);
        }
      } else if (!rows && spans_cols) {
        if (r.kind == RefKind::Cell) {
          c1 = c2 = move_index(c1, change, kMaxCols);
          alive = c1 >= 0;
        } else {
          alive = move_ordered(c1, c2, change, kMaxCols);
        }
      }
    }
    if (!alive) {
      r.deleted = true;
      changed = true;
      continue;
    }
    RefInfo before = r;
    auto encode = [&](RefPart& p, int32_t row, int32_t col) {
      p.row = p.row_abs ? row : row - new_origin.row;
      p.col = p.col_abs ? col : col - new_origin.col;
    };
    if (r.kind != RefKind::Cols) {
      encode(r.a, r1, c1);
      encode(r.b, r2, c2);
    }
    if (r.kind == RefKind::Cols) {
      r.a.col = r.a.col_abs ? c1 : c1 - new_origin.col;
      r.b.col = r.b.col_abs ? c2 : c2 - new_origin.col;
    }
    if (r.kind == RefKind::Rows) {
      r.a.col = r.b.col = 0;
    }
    if (r.kind == RefKind::Cols) {
      r.a.row = r.b.row = 0;
    }
    if (r.kind == RefKind::Cell) r.b = RefPart{};
    if (!(r.a == before.a) || !(r.b == before.b)) changed = true;
  }
  if (!changed) return f;
  auto out = std::make_shared<Formula>(*f);
  out->refs = std::move(refs);
  return out;
}

namespace {

/// A structured reference spelled back in the form it was written in: "Table1[@Qty]" stays
/// short, everything else as files write it.
String respell(const StructuredRef& r, StringView written) {
  bool short_this_row = written.find(u'@') != StringView::npos && r.this_row && !r.all &&
                        !r.headers && !r.data && !r.totals;
  if (!short_this_row) return render_structured(r);
  StructuredRef cols = r;
  cols.this_row = false;
  String plain = render_structured(cols);  // "Table1[Qty]", "Table1[[a]:[b]]" or "Table1[]"
  StringView body = StringView(plain).substr(r.table.size() + 1);
  body.remove_suffix(1);
  return r.table + u"[@" + String(body) + u"]";
}

}  // namespace

FormulaPtr adjust_table(const FormulaPtr& f, CellRef origin, SheetId sheet,
                        const TableChange& change) {
  if (!f) return f;
  std::shared_ptr<Formula> out;
  auto copy = [&]() -> Formula& {
    if (!out) out = std::make_shared<Formula>(*f);
    return *out;
  };
  const bool renamed = change.name != change.new_name;
  auto new_column = [&](const String& col) -> const String* {
    for (const auto& [from, to] : change.columns)
      if (text_equal(from, col)) return &to;
    return nullptr;
  };
  for (size_t i = 0; i < f->nodes.size(); ++i) {
    const Node& n = f->nodes[i];
    if (n.kind == NodeKind::Name && n.ref == kNoRef && renamed &&
        text_equal(f->text(n.str), change.name)) {
      // The table's name alone stands for its data.
      Formula& g = copy();
      g.nodes[i].str = static_cast<uint32_t>(g.pool.size());
      g.pool.push_back(change.new_name);
      continue;
    }
    if (n.kind != NodeKind::Opaque) continue;
    StringView written = f->text(n.str);
    auto r = read_structured(written);
    if (!r) continue;
    bool mine = r->table.empty() ? sheet == change.sheet && change.ref.contains(origin)
                                 : text_equal(r->table, change.name);
    if (!mine) continue;
    bool touched = false;
    if (!r->table.empty() && renamed) {
      r->table = change.new_name;
      touched = true;
    }
    bool gone = false;
    for (String* col : {&r->first_column, &r->last_column}) {
      if (col->empty()) continue;
      if (const String* to = new_column(*col)) {
        if (to->empty()) gone = true;
        *col = *to;
        touched = true;
      }
    }
    if (!touched) continue;
    Formula& g = copy();
    if (gone) {
      // A reference to a column that no longer exists cannot be spelled: it is #REF!.
      g.nodes[i].kind = NodeKind::Error;
      g.nodes[i].number = cell_error::ref;
      continue;
    }
    g.nodes[i].str = static_cast<uint32_t>(g.pool.size());
    g.pool.push_back(respell(*r, written));
  }
  return out ? FormulaPtr(out) : f;
}

}  // namespace qz::engine::calc
