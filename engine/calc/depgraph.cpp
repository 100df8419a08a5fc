// The dependency graph: which formula cells read which cells.
//
// Single-cell reads sit in a hash map keyed by the cell. Range reads are indexed by column
// (narrow ranges under each of their columns, wider ones under bands of 64 columns or the
// whole sheet) and, within a column, by rows in an interval tree over a fixed binary
// partition of the sheet's rows: a range is stored once, at the smallest power-of-two block
// of rows that holds it, and so spans that block's midpoint. Finding the ranges over a row
// visits the ~20 blocks that contain the row and, in each, reads a list sorted from the
// midpoint outwards only as far as the ranges still reach the row. A change thus costs about
// the number of ranges that really contain the cell, however many ranges the sheet has or
// how they overlap (running totals SUM(A$1:A<n>) included).
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "engine/calc/calc.hpp"

namespace qz::engine::calc {
namespace {

constexpr int32_t kNarrow = 4;           // ranges this wide go under each column
constexpr int32_t kBandWidth = 64;       // columns per band
constexpr int32_t kBandLimit = 4;        // bands before a range counts as sheet-wide
constexpr int32_t kBandKeys = kMaxCols;  // column keys kMaxCols.. are bands
constexpr int32_t kSheetWide = kMaxCols + kMaxCols / kBandWidth;
constexpr int kLevels = 21;  // row blocks of 1 .. 2^20 rows

uint64_t cell_key(SheetId sheet, int32_t row, int32_t col) {
  return (static_cast<uint64_t>(static_cast<uint32_t>(sheet)) << 34) |
         (static_cast<uint64_t>(row) << 14) | static_cast<uint64_t>(col);
}

struct RangeEntry {
  Rect r;
  uint32_t slot;
  uint32_t gen;
};

/// The ranges stored at one block: all of them span the block's midpoint.
struct Block {
  std::vector<RangeEntry> by_start;  // first row ascending
  std::vector<RangeEntry> by_end;    // last row descending
  bool sorted = true;
};

/// The blocks of one column key.
struct Column {
  uint32_t levels = 0;  // bit h: some block of level h holds ranges
  std::unordered_map<uint64_t, Block> blocks;
  size_t entries = 0;
};

/// The level and index of the smallest power-of-two block of rows holding [r1, r2].
std::pair<int, int32_t> block_of(int32_t r1, int32_t r2) {
  uint32_t x = static_cast<uint32_t>(r1 ^ r2);
  int h = 0;
  while (x) {
    ++h;
    x >>= 1;
  }
  return {h, r1 >> h};
}
uint64_t block_key(int h, int32_t index) {
  return (static_cast<uint64_t>(h) << 32) | static_cast<uint32_t>(index);
}

struct Slot {
  SheetId sheet = kNoSheet;
  CellRef cell;
  uint32_t gen = 0;
  bool live = false;
};

}  // namespace

struct DependencyGraph::Impl {
  std::vector<Slot> slots;
  std::vector<uint32_t> free_slots;
  std::unordered_map<uint64_t, uint32_t> slot_of;  // formula cell -> slot
  // Single-cell reads: cell -> (slot, generation) of its readers.
  std::unordered_map<uint64_t, std::vector<std::pair<uint32_t, uint32_t>>> cell_readers;
  // Range reads: (sheet, column key) -> blocks.
  std::unordered_map<uint64_t, Column> columns;
  size_t stale = 0, registered = 0;

  bool live(uint32_t slot, uint32_t gen) const {
    return slot < slots.size() && slots[slot].live && slots[slot].gen == gen;
  }
  static uint64_t column_key(SheetId sheet, int32_t key) {
    return (static_cast<uint64_t>(static_cast<uint32_t>(sheet)) << 20) | static_cast<uint32_t>(key);
  }

  uint32_t acquire(SheetId sheet, CellRef cell) {
    uint64_t key = cell_key(sheet, cell.row, cell.col);
    auto it = slot_of.find(key);
    if (it != slot_of.end()) {
      ++slots[it->second].gen;  // earlier registrations of this cell become stale
      ++stale;
      return it->second;
    }
    uint32_t id;
    if (!free_slots.empty()) {
      id = free_slots.back();
      free_slots.pop_back();
    } else {
      id = static_cast<uint32_t>(slots.size());
      slots.emplace_back();
    }
    Slot& s = slots[id];
    s.sheet = sheet;
    s.cell = cell;
    s.live = true;
    ++s.gen;
    slot_of[key] = id;
    return id;
  }

  void add_to(SheetId sheet, int32_t key, const RangeEntry& e) {
    Column& c = columns[column_key(sheet, key)];
    auto [h, index] = block_of(e.r.row1, e.r.row2);
    Block& b = c.blocks[block_key(h, index)];
    b.by_start.push_back(e);
    b.by_end.push_back(e);
    b.sorted = false;
    c.levels |= 1u << h;
    ++c.entries;
  }

  void add_read(uint32_t slot, SheetId sheet, const Rect& r) {
    uint32_t gen = slots[slot].gen;
    ++registered;
    if (r.row1 == r.row2 && r.col1 == r.col2) {
      cell_readers[cell_key(sheet, r.row1, r.col1)].push_back({slot, gen});
      return;
    }
    RangeEntry e{r, slot, gen};
    int32_t width = r.col2 - r.col1 + 1;
    if (width <= kNarrow) {
      for (int32_t c = r.col1; c <= r.col2; ++c) add_to(sheet, c, e);
      return;
    }
    int32_t b1 = r.col1 / kBandWidth, b2 = r.col2 / kBandWidth;
    if (b2 - b1 + 1 <= kBandLimit) {
      for (int32_t b = b1; b <= b2; ++b) add_to(sheet, kBandKeys + b, e);
      return;
    }
    add_to(sheet, kSheetWide, e);
  }

  void sort_block(Block& b) {
    auto stale_entry = [&](const RangeEntry& e) { return !live(e.slot, e.gen); };
    b.by_start.erase(std::remove_if(b.by_start.begin(), b.by_start.end(), stale_entry),
                     b.by_start.end());
    b.by_end.erase(std::remove_if(b.by_end.begin(), b.by_end.end(), stale_entry), b.by_end.end());
    std::sort(b.by_start.begin(), b.by_start.end(),
              [](const RangeEntry& x, const RangeEntry& y) { return x.r.row1 < y.r.row1; });
    std::sort(b.by_end.begin(), b.by_end.end(),
              [](const RangeEntry& x, const RangeEntry& y) { return x.r.row2 > y.r.row2; });
    b.sorted = true;
  }

  template <class F>
  void query_column(SheetId sheet, int32_t key, int32_t row, int32_t col, F&& f) {
    auto it = columns.find(column_key(sheet, key));
    if (it == columns.end()) return;
    Column& c = it->second;
    for (int h = 0; h < kLevels; ++h) {
      if (!(c.levels & (1u << h))) continue;
      auto bit = c.blocks.find(block_key(h, row >> h));
      if (bit == c.blocks.end()) continue;
      Block& b = bit->second;
      if (!b.sorted) sort_block(b);
      auto take = [&](const RangeEntry& e) {
        if (e.r.col1 <= col && e.r.col2 >= col && live(e.slot, e.gen)) f(e.slot);
      };
      int32_t mid = h == 0 ? row : ((row >> h) << h) + (int32_t{1} << (h - 1));
      if (row < mid) {
        // In the lower half: every range here reaches past the midpoint, so it holds the
        // row when it starts at or before it.
        for (const RangeEntry& e : b.by_start) {
          if (e.r.row1 > row) break;
          take(e);
        }
      } else {
        for (const RangeEntry& e : b.by_end) {
          if (e.r.row2 < row) break;
          if (e.r.row1 <= row) take(e);
        }
      }
    }
  }

  template <class F>
  void readers(SheetId sheet, int32_t row, int32_t col, F&& f) {
    auto it = cell_readers.find(cell_key(sheet, row, col));
    if (it != cell_readers.end()) {
      auto& v = it->second;
      v.erase(std::remove_if(v.begin(), v.end(),
                             [&](const auto& p) { return !live(p.first, p.second); }),
              v.end());
      for (const auto& p : v) f(p.first);
      if (v.empty()) cell_readers.erase(it);
    }
    query_column(sheet, col, row, col, f);
    query_column(sheet, kBandKeys + col / kBandWidth, row, col, f);
    query_column(sheet, kSheetWide, row, col, f);
  }

  void compact() {
    // Drop stale registrations once they outnumber the live ones.
    if (stale < 1024 || stale * 2 < registered) return;
    for (auto& [key, v] : cell_readers)
      v.erase(std::remove_if(v.begin(), v.end(),
                             [&](const auto& p) { return !live(p.first, p.second); }),
              v.end());
    for (auto& [key, c] : columns)
      for (auto& [bk, b] : c.blocks) sort_block(b);
    registered -= std::min(registered, stale);
    stale = 0;
  }
};

DependencyGraph::DependencyGraph() : impl_(std::make_unique<Impl>()) {}
DependencyGraph::~DependencyGraph() = default;
DependencyGraph::DependencyGraph(DependencyGraph&&) noexcept = default;
DependencyGraph& DependencyGraph::operator=(DependencyGraph&&) noexcept = default;

void DependencyGraph::set(SheetId sheet, CellRef cell,
                          const std::vector<std::pair<SheetId, Rect>>& reads) {
  uint32_t slot = impl_->acquire(sheet, cell);
  for (const auto& [s, r] : reads) {
    Rect c{std::max(0, std::min(r.row1, r.row2)), std::max(0, std::min(r.col1, r.col2)),
           std::min(kMaxRows - 1, std::max(r.row1, r.row2)),
           std::min(kMaxCols - 1, std::max(r.col1, r.col2))};
    impl_->add_read(slot, s, c);
  }
  impl_->compact();
}

void DependencyGraph::remove(SheetId sheet, CellRef cell) {
  auto it = impl_->slot_of.find(cell_key(sheet, cell.row, cell.col));
  if (it == impl_->slot_of.end()) return;
  Slot& s = impl_->slots[it->second];
  s.live = false;
  ++s.gen;
  ++impl_->stale;
  impl_->free_slots.push_back(it->second);
  impl_->slot_of.erase(it);
  impl_->compact();
}

void DependencyGraph::clear() {
  impl_ = std::make_unique<Impl>();
}

std::vector<std::pair<SheetId, CellRef>> DependencyGraph::dependents(
    const std::vector<std::pair<SheetId, CellRef>>& changed) const {
  std::vector<std::pair<SheetId, CellRef>> out;
  std::unordered_set<uint32_t> seen;
  std::vector<std::pair<SheetId, CellRef>> queue(changed.begin(), changed.end());
  for (size_t q = 0; q < queue.size(); ++q) {
    auto [sheet, cell] = queue[q];
    impl_->readers(sheet, cell.row, cell.col, [&](uint32_t slot) {
      if (!seen.insert(slot).second) return;
      const Slot& s = impl_->slots[slot];
      out.emplace_back(s.sheet, s.cell);
      queue.emplace_back(s.sheet, s.cell);
    });
  }
  return out;
}

}  // namespace qz::engine::calc
