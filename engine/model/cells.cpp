#include "engine/model/cells.hpp"

#include <algorithm>
#include <queue>

#include "qzxl/convert.hpp"

namespace qz::engine {

// ---------------------------------------------------------------------------------------------
// Cell store

namespace {
struct RowLess {
  bool operator()(const Cell& c, int32_t row) const { return c.row < row; }
  bool operator()(int32_t row, const Cell& c) const { return row < c.row; }
};
}  // namespace

Cell* CellStore::find_in(Column& col, int32_t row) {
  auto& chunks = col.chunks;
  // The last chunk whose first row is <= row.
  auto it = std::upper_bound(chunks.begin(), chunks.end(), row,
                             [](int32_t r, const Chunk& ch) { return r < ch.front().row; });
  if (it == chunks.begin()) return nullptr;
  --it;
  auto c = std::lower_bound(it->begin(), it->end(), row, RowLess{});
  return c != it->end() && c->row == row ? &*c : nullptr;
}

const Cell* CellStore::find(int32_t row, int32_t col) const {
  if (col < 0 || col >= static_cast<int32_t>(cols_.size())) return nullptr;
  return find_in(const_cast<Column&>(cols_[col]), row);
}

Cell* CellStore::find(int32_t row, int32_t col) {
  if (col < 0 || col >= static_cast<int32_t>(cols_.size())) return nullptr;
  return find_in(cols_[col], row);
}

Cell& CellStore::get_or_create(int32_t row, int32_t col, uint32_t style) {
  if (col >= static_cast<int32_t>(cols_.size())) cols_.resize(col + 1);
  auto& chunks = cols_[col].chunks;
  Cell fresh;
  fresh.row = row;
  fresh.set_style(style);
  if (chunks.empty()) {
    chunks.emplace_back();
    chunks.back().push_back(fresh);
    ++size_;
    ++shape_;
    return chunks.back().back();
  }
  // Loading and filling go down the column: a cell past the last one is appended without a
  // search, to the last chunk or (when that is full) a new one, so chunks stay full.
  if (Chunk& last = chunks.back(); row > last.back().row) {
    ++size_;
    ++shape_;
    if (last.size() < kChunk) return last.emplace_back(fresh);
    // A column that filled a chunk this way is being filled densely: the next chunk gets its
    // full size at once rather than growing (and copying itself) step by step up to it.
    Chunk next;
    next.reserve(kChunk);
    next.push_back(fresh);
    return chunks.emplace_back(std::move(next)).front();
  }
  auto it = std::upper_bound(chunks.begin(), chunks.end(), row,
                             [](int32_t r, const Chunk& ch) { return r < ch.front().row; });
  if (it != chunks.begin()) --it;
  Chunk& ch = *it;
  auto pos = std::lower_bound(ch.begin(), ch.end(), row, RowLess{});
  if (pos != ch.end() && pos->row == row) return *pos;
  ++size_;
  ++shape_;
  if (ch.size() < kChunk) return *ch.insert(pos, fresh);
  size_t ci = static_cast<size_t>(it - chunks.begin());
  if (pos == ch.end()) {
    // Appending past a full chunk (the usual order of loading and filling) starts a new one,
    // so chunks stay full and memory stays near 16 bytes a cell.
    chunks.insert(chunks.begin() + static_cast<long>(ci) + 1, Chunk{fresh});
    return chunks[ci + 1].front();
  }
  size_t at = static_cast<size_t>(pos - ch.begin());
  Chunk right(ch.begin() + kChunk / 2, ch.end());
  ch.erase(ch.begin() + kChunk / 2, ch.end());
  chunks.insert(chunks.begin() + static_cast<long>(ci) + 1, std::move(right));
  Chunk& target = at <= kChunk / 2 ? chunks[ci] : chunks[ci + 1];
  size_t off = at <= kChunk / 2 ? at : at - kChunk / 2;
  return *target.insert(target.begin() + static_cast<long>(off), fresh);
}

void CellStore::erase(int32_t row, int32_t col) {
  if (col < 0 || col >= static_cast<int32_t>(cols_.size())) return;
  auto& chunks = cols_[col].chunks;
  auto it = std::upper_bound(chunks.begin(), chunks.end(), row,
                             [](int32_t r, const Chunk& ch) { return r < ch.front().row; });
  if (it == chunks.begin()) return;
  --it;
  auto pos = std::lower_bound(it->begin(), it->end(), row, RowLess{});
  if (pos == it->end() || pos->row != row) return;
  it->erase(pos);
  --size_;
  ++shape_;
  if (it->empty()) chunks.erase(it);
}

void CellStore::for_each_in_column(int32_t col, int32_t r1, int32_t r2,
                                   const std::function<bool(int32_t, const Cell&)>& visit) const {
  if (col < 0 || col >= static_cast<int32_t>(cols_.size())) return;
  const auto& chunks = cols_[col].chunks;
  auto it = std::upper_bound(chunks.begin(), chunks.end(), r1,
                             [](int32_t r, const Chunk& ch) { return r < ch.front().row; });
  if (it != chunks.begin()) --it;
  for (; it != chunks.end(); ++it) {
    if (it->front().row > r2) return;
    auto c = std::lower_bound(it->begin(), it->end(), r1, RowLess{});
    for (; c != it->end(); ++c) {
      if (c->row > r2) return;
      if (!visit(c->row, *c)) return;
    }
  }
}

void CellStore::for_each(const Rect& area,
                         const std::function<bool(int32_t, int32_t, const Cell&)>& visit) const {
  int32_t c1 = std::max(area.col1, 0);
  int32_t c2 = std::min(area.col2, static_cast<int32_t>(cols_.size()) - 1);
  if (c1 > c2) return;
  if (c1 == c2) {
    for_each_in_column(c1, area.row1, area.row2,
                       [&](int32_t r, const Cell& c) { return visit(r, c1, c); });
    return;
  }
  if (area.row1 == area.row2) {
    // One row (a formula summing the cells to its left, say): a lookup per column finds the
    // cells in order, without setting up a merge.
    for (int32_t col = c1; col <= c2; ++col)
      if (const Cell* cell = find_in(const_cast<Column&>(cols_[col]), area.row1))
        if (!visit(area.row1, col, *cell)) return;
    return;
  }
  // Row order over several columns: merge the columns' cursors.
  struct Cursor {
    int32_t col;
    size_t chunk, pos;
  };
  std::vector<Cursor> cur;
  for (int32_t col = c1; col <= c2; ++col) {
    const auto& chunks = cols_[col].chunks;
    if (chunks.empty()) continue;
    auto it = std::upper_bound(chunks.begin(), chunks.end(), area.row1,
                               [](int32_t r, const Chunk& ch) { return r < ch.front().row; });
    if (it != chunks.begin()) --it;
    size_t ci = static_cast<size_t>(it - chunks.begin());
    size_t p = static_cast<size_t>(std::lower_bound(it->begin(), it->end(), area.row1, RowLess{}) -
                                   it->begin());
    if (p == it->size()) {
      ++ci;
      p = 0;
    }
    if (ci < chunks.size()) cur.push_back({col, ci, p});
  }
  auto row_of = [&](const Cursor& c) { return cols_[c.col].chunks[c.chunk][c.pos].row; };
  auto greater = [&](const Cursor& a, const Cursor& b) {
    int32_t ra = row_of(a), rb = row_of(b);
    return ra != rb ? ra > rb : a.col > b.col;
  };
  std::priority_queue<Cursor, std::vector<Cursor>, decltype(greater)> heap(greater, std::move(cur));
  while (!heap.empty()) {
    Cursor c = heap.top();
    heap.pop();
    const auto& chunks = cols_[c.col].chunks;
    const Cell& cell = chunks[c.chunk][c.pos];
    if (cell.row > area.row2) continue;
    if (!visit(cell.row, c.col, cell)) return;
    if (++c.pos == chunks[c.chunk].size()) {
      ++c.chunk;
      c.pos = 0;
    }
    if (c.chunk < chunks.size()) heap.push(c);
  }
}

void CellStore::for_each_mut(const Rect& area,
                             const std::function<void(int32_t, int32_t, Cell&)>& visit) {
  for_each(area, [&](int32_t r, int32_t c, const Cell& cell) {
    visit(r, c, const_cast<Cell&>(cell));
    return true;
  });
}

size_t CellStore::count_in(const Rect& area) const {
  size_t n = 0;
  int32_t c2 = std::min(area.col2, static_cast<int32_t>(cols_.size()) - 1);
  for (int32_t col = std::max(area.col1, 0); col <= c2; ++col)
    for_each_in_column(col, area.row1, area.row2, [&](int32_t, const Cell&) {
      ++n;
      return true;
    });
  return n;
}

std::optional<int32_t> CellStore::next_content_in_column(int32_t col, int32_t row,
                                                         bool down) const {
  if (col < 0 || col >= static_cast<int32_t>(cols_.size())) return std::nullopt;
  const auto& chunks = cols_[col].chunks;
  if (down) {
    std::optional<int32_t> found;
    for_each_in_column(col, row + 1, kLastRow, [&](int32_t r, const Cell& c) {
      if (!c.has_content()) return true;
      found = r;
      return false;
    });
    return found;
  }
  for (auto it = chunks.rbegin(); it != chunks.rend(); ++it) {
    if (it->front().row >= row) continue;
    for (auto c = it->rbegin(); c != it->rend(); ++c)
      if (c->row < row && c->has_content()) return c->row;
  }
  return std::nullopt;
}

std::optional<Rect> CellStore::extent() const {
  std::optional<Rect> r;
  for (int32_t col = 0; col < static_cast<int32_t>(cols_.size()); ++col) {
    const auto& chunks = cols_[col].chunks;
    if (chunks.empty()) continue;
    int32_t top = chunks.front().front().row, bottom = chunks.back().back().row;
    if (!r) {
      r = Rect{top, col, bottom, col};
    } else {
      r->row1 = std::min(r->row1, top);
      r->row2 = std::max(r->row2, bottom);
      r->col2 = col;
    }
  }
  return r;
}

void CellStore::insert_rows(int32_t at, int32_t count) {
  ++shape_;
  for (auto& col : cols_) {
    for (auto& ch : col.chunks)
      for (auto& c : ch)
        if (c.row >= at) c.row += count;
    // Cells pushed off the sheet's last row are lost, as they are in the application.
    while (!col.chunks.empty() && col.chunks.back().back().row > kLastRow) {
      col.chunks.back().pop_back();
      --size_;
      if (col.chunks.back().empty()) col.chunks.pop_back();
    }
  }
}

void CellStore::delete_rows(int32_t at, int32_t count,
                            const std::function<void(const Cell&)>& removed) {
  ++shape_;
  int32_t end = at + count;
  for (auto& col : cols_) {
    for (auto& ch : col.chunks) {
      auto keep = std::remove_if(ch.begin(), ch.end(), [&](const Cell& c) {
        if (c.row < at || c.row >= end) return false;
        removed(c);
        --size_;
        return true;
      });
      ch.erase(keep, ch.end());
      for (auto& c : ch)
        if (c.row >= end) c.row -= count;
    }
    col.chunks.erase(std::remove_if(col.chunks.begin(), col.chunks.end(),
                                    [](const Chunk& ch) { return ch.empty(); }),
                     col.chunks.end());
  }
}

void CellStore::insert_cols(int32_t at, int32_t count) {
  ++shape_;
  if (at >= static_cast<int32_t>(cols_.size())) return;
  cols_.insert(cols_.begin() + at, static_cast<size_t>(count), Column{});
  while (static_cast<int32_t>(cols_.size()) > calc::kMaxCols) {
    for (auto& ch : cols_.back().chunks) size_ -= ch.size();
    cols_.pop_back();
  }
}

void CellStore::delete_cols(int32_t at, int32_t count,
                            const std::function<void(const Cell&)>& removed) {
  ++shape_;
  if (at >= static_cast<int32_t>(cols_.size())) return;
  int32_t end = std::min<int32_t>(at + count, static_cast<int32_t>(cols_.size()));
  for (int32_t c = at; c < end; ++c)
    for (auto& ch : cols_[c].chunks)
      for (auto& cell : ch) {
        removed(cell);
        --size_;
      }
  cols_.erase(cols_.begin() + at, cols_.begin() + end);
}

void CellStore::clear() {
  ++shape_;
  cols_.clear();
  size_ = 0;
}

size_t CellStore::memory_bytes() const {
  size_t n = cols_.capacity() * sizeof(Column);
  for (const auto& col : cols_) {
    n += col.chunks.capacity() * sizeof(Chunk);
    for (const auto& ch : col.chunks) n += ch.capacity() * sizeof(Cell);
  }
  return n;
}

// ---------------------------------------------------------------------------------------------
// Formulas as read

const String& FileFormula::ref() const {
  static const String none;
  return rare ? rare->ref : none;
}

String FileFormula::type_text() const {
  switch (type) {
    case Type::None:
      return String();
    case Type::Normal:
      return u"normal";
    case Type::Shared:
      return u"shared";
    case Type::Array:
      return u"array";
    case Type::DataTable:
      return u"dataTable";
    case Type::Other:
      return rare ? rare->type : String();
  }
  return String();
}

void FileFormula::set_type(std::string_view t) {
  if (t == "shared") {
    type = Type::Shared;
  } else if (t == "array") {
    type = Type::Array;
  } else if (t == "normal") {
    type = Type::Normal;
  } else if (t == "dataTable") {
    type = Type::DataTable;
  } else {
    type = Type::Other;
    more().type = from_utf8(t);
  }
}

void FileFormula::add_attr(std::string_view name, std::string_view value) {
  if (name == "aca" && value == "false" && !aca_false && (!rare || rare->attrs.empty())) {
    aca_false = true;
    return;
  }
  auto& attrs = more().attrs;
  if (aca_false) {
    // More than the one attribute: all of them in the list, in the file's order.
    attrs.emplace_back(u"aca", u"false");
    aca_false = false;
  }
  attrs.emplace_back(from_utf8(name), from_utf8(value));
}

String FileFormula::text16() const {
  return from_utf8(text);
}

}  // namespace qz::engine
