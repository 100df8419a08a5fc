// Navigation: the used part of the selection, the nearest filled cell in each direction, the
// last cell of a range, and strips from a cell to the sheet's edge. None of these changes the
// selection or the sheet.
#include "range/range.hpp"
#include "range/support.hpp"

namespace qz {

using range_support::is_empty_cell;
using range_support::xl;

namespace {

// The nearest filled cell from `cell` along a row or column: the neighbour when it is
// filled, else the cell the end-of-block jump lands on, unless that is empty (the sheet's
// edge came first).
host::RangePtr next_filled(const host::RangePtr& cell, int32_t rows, int32_t columns,
                           int32_t direction) {
  const host::RangePtr neighbour =
      value_or(host::RangePtr(), [&] { return require(cell)->offset(rows, columns); });
  if (!neighbour) return nullptr;
  if (!is_empty_cell(neighbour)) return neighbour;
  const host::RangePtr reached =
      value_or(host::RangePtr(), [&] { return require(cell)->end(direction); });
  if (!reached || is_empty_cell(reached)) return nullptr;
  return reached;
}

enum class Edge { left, right, top, bottom };

// The strip from the top-left cell of `cell` to one edge of its sheet, on its row or column;
// without the cell itself when `exclude_me`, and nothing when that leaves no cell.
host::RangePtr strip_to_edge(const host::RangePtr& cell, bool exclude_me, Edge edge) {
  return value_or(host::RangePtr(), [&]() -> host::RangePtr {
    const host::RangePtr c = require(require(cell)->cell(1, 1));
    const host::WorksheetPtr wks = require(c->worksheet());
    const int32_t row = c->row(), column = c->column();
    const int32_t step_in = exclude_me ? 1 : 0;
    int32_t r1 = row, r2 = row, c1 = column, c2 = column;
    // The sheet's size is asked of the host each time, never assumed.
    switch (edge) {
      case Edge::left:
        c1 = 1;
        c2 = column - step_in;
        if (c2 < 1) return nullptr;
        break;
      case Edge::right:
        c1 = column + step_in;
        c2 = static_cast<int32_t>(require(wks->columns())->count());
        if (c1 > c2) return nullptr;
        break;
      case Edge::top:
        r1 = 1;
        r2 = row - step_in;
        if (r2 < 1) return nullptr;
        break;
      case Edge::bottom:
        r1 = row + step_in;
        r2 = static_cast<int32_t>(require(wks->rows())->count());
        if (r1 > r2) return nullptr;
        break;
    }
    return wks->range(Variant(wks->cell(r1, c1)), Variant(wks->cell(r2, c2)));
  });
}

}  // namespace

host::RangePtr iRange::QZSelection() {
  return value_or(host::RangePtr(), [] {
    host::Application& app = xl();
    // A selection that is no range (a chart, a shape) has no used part.
    const auto selection = require(std::dynamic_pointer_cast<host::Range>(app.selection()));
    const auto sheet = require(std::dynamic_pointer_cast<host::Worksheet>(app.active_sheet()));
    return app.intersect(selection, sheet->used_range());
  });
}

host::RangePtr iRange::NextLeft(const host::RangePtr& vCell) {
  return next_filled(vCell, 0, -1, host::xl::ToLeft);
}
host::RangePtr iRange::NextRight(const host::RangePtr& vCell) {
  return next_filled(vCell, 0, 1, host::xl::ToRight);
}
host::RangePtr iRange::NextUp(const host::RangePtr& vCell) {
  return next_filled(vCell, -1, 0, host::xl::Up);
}
host::RangePtr iRange::NextDown(const host::RangePtr& vCell) {
  return next_filled(vCell, 1, 0, host::xl::Down);
}

host::RangePtr iRange::LastCellInRange(const host::RangePtr& vRange, bool* bByRow) {
  const bool by_row = bByRow ? *bByRow : true;
  host::RangePtr candidate;
  int32_t best = 0;
  host::AreasPtr areas;
  int32_t count = 0;
  step([&] {
    areas = require(require(vRange)->areas());
    count = areas->count();
  });
  for (int32_t a = 1; a <= count; ++a) {
    step([&] {
      const host::RangePtr area = require(areas->item(a));
      const host::RangePtr cells = require(area->cells());
      const host::RangePtr last = require(cells->item(cells->count()));
      const int32_t key = by_row ? last->row() : last->column();
      // Only a strictly greater row (or column) replaces the candidate: on a tie the
      // earlier area's cell stays.
      if (!candidate || key > best) {
        candidate = last;
        best = key;
      }
    });
  }
  return candidate;
}

host::RangePtr iRange::FromHereLeft(const host::RangePtr& vCell, bool bExcludeMe) {
  return strip_to_edge(vCell, bExcludeMe, Edge::left);
}
host::RangePtr iRange::FromHereRight(const host::RangePtr& vCell, bool bExcludeMe) {
  return strip_to_edge(vCell, bExcludeMe, Edge::right);
}
host::RangePtr iRange::FromHereUp(const host::RangePtr& vCell, bool bExcludeMe) {
  return strip_to_edge(vCell, bExcludeMe, Edge::top);
}
host::RangePtr iRange::FromHereDown(const host::RangePtr& vCell, bool bExcludeMe) {
  return strip_to_edge(vCell, bExcludeMe, Edge::bottom);
}

}  // namespace qz
