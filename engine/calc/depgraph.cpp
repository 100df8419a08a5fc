// The dependency graph: which formula cells read which cells.
//
// Single-cell reads sit in a hash map keyed by the cell. Range reads sit in per-sheet
// indexes over column bands; inside a band, ranges are grouped by the power of two of their
// height and kept sorted by first row, so that finding the ranges over a cell looks at a
// short window of each group instead of every range. A cell change therefore costs about
// the number of ranges that really contain it, not the number of ranges on the sheet.
#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "engine/calc/calc.hpp"

namespace qz::engine::calc {
namespace {

constexpr int32_t kBandWidth = 64;                 // columns per band
constexpr int32_t kBands = kMaxCols / kBandWidth;  // 256
constexpr int32_t kWideBands = 4;                  // wider ranges go to the sheet-wide index
constexpr int kClasses = 21;                       // heights 1 .. 2^20

uint64_t cell_key(SheetId sheet, int32_t row, int32_t col) {
  return (static_cast<uint64_t>(static_cast<uint32_t>(sheet)) << 34) |
         (static_cast<uint64_t>(row) << 14) | static_cast<uint64_t>(col);
}

int height_class(int32_t rows) {
  int k = 0;
  while (k + 1 < kClasses && (int32_t{1} << (k + 1)) <= rows) ++k;
  return k;
}

struct RangeEntry {
  Rect r;
  uint32_t slot;
  uint32_t gen;
};

/// Ranges grouped by height class, each group sorted by first row on demand.
class RangeIndex {
 public:
  void add(const Rect& r, uint32_t slot, uint32_t gen) {
    int k = height_class(r.row2 - r.row1 + 1);
    classes_[k].push_back({r, slot, gen});
    sorted_[k] = false;
    ++size_;
  }
  template <class Live, class F>
  void query(int32_t row, int32_t col, Live&& live, F&& f) {
    for (int k = 0; k < kClasses; ++k) {
      auto& v = classes_[k];
      if (v.empty()) continue;
      if (!sorted_[k]) {
        // Drop stale entries while sorting.
        v.erase(std::remove_if(v.begin(), v.end(), [&](const RangeEntry& e) { return !live(e); }),
                v.end());
        std::sort(v.begin(), v.end(),
                  [](const RangeEntry& a, const RangeEntry& b) { return a.r.row1 < b.r.row1; });
        sorted_[k] = true;
      }
      // Heights in this class are below 2^(k+1): a range over `row` starts after row - 2^(k+1).
      int32_t lo_row = row - (int32_t{1} << (k + 1)) + 1;
      auto first = std::lower_bound(v.begin(), v.end(), lo_row,
                                    [](const RangeEntry& e, int32_t r) { return e.r.row1 < r; });
      for (auto it = first; it != v.end() && it->r.row1 <= row; ++it) {
        if (it->r.row2 >= row && it->r.col1 <= col && it->r.col2 >= col && live(*it)) f(it->slot);
      }
    }
  }
  size_t size() const { return size_; }
  /// Sorting again drops stale entries.
  void invalidate() {
    for (bool& s : sorted_) s = false;
  }

 private:
  std::vector<RangeEntry> classes_[kClasses];
  bool sorted_[kClasses] = {};
  size_t size_ = 0;
};

struct SheetIndex {
  std::unordered_map<int32_t, RangeIndex> bands;  // band number -> index
  RangeIndex wide;
};

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
  std::unordered_map<SheetId, SheetIndex> sheets;
  size_t stale = 0, registered = 0;

  bool live(uint32_t slot, uint32_t gen) const {
    return slot < slots.size() && slots[slot].live && slots[slot].gen == gen;
  }

  uint32_t acquire(SheetId sheet, CellRef cell) {
    uint64_t key = cell_key(sheet, cell.row, cell.col);
    auto it = slot_of.find(key);
    if (it != slot_of.end()) {
      Slot& s = slots[it->second];
      ++s.gen;  // earlier registrations of this cell become stale
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

  void add_read(uint32_t slot, SheetId sheet, const Rect& r) {
    uint32_t gen = slots[slot].gen;
    ++registered;
    if (r.row1 == r.row2 && r.col1 == r.col2) {
      cell_readers[cell_key(sheet, r.row1, r.col1)].push_back({slot, gen});
      return;
    }
    SheetIndex& si = sheets[sheet];
    int32_t b1 = r.col1 / kBandWidth, b2 = r.col2 / kBandWidth;
    if (b2 - b1 + 1 > kWideBands) {
      si.wide.add(r, slot, gen);
      return;
    }
    for (int32_t b = b1; b <= b2; ++b) si.bands[b].add(r, slot, gen);
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
    auto sit = sheets.find(sheet);
    if (sit == sheets.end()) return;
    auto alive = [&](const RangeEntry& e) { return live(e.slot, e.gen); };
    auto bit = sit->second.bands.find(col / kBandWidth);
    if (bit != sit->second.bands.end()) bit->second.query(row, col, alive, f);
    if (sit->second.wide.size()) sit->second.wide.query(row, col, alive, f);
  }

  void compact() {
    // Rebuild the indexes when stale registrations outnumber the live ones.
    if (stale < 1024 || stale * 2 < registered) return;
    for (auto& [key, v] : cell_readers)
      v.erase(std::remove_if(v.begin(), v.end(),
                             [&](const auto& p) { return !live(p.first, p.second); }),
              v.end());
    for (auto& [id, si] : sheets) {
      for (auto& [band, index] : si.bands) index.invalidate();
      si.wide.invalidate();
    }
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
