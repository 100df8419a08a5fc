#include "engine/core/model.hpp"

#include <algorithm>
#include <cstring>
#include <queue>

#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

// ---------------------------------------------------------------------------------------------
// Colours and palettes

Color Color::rgb(int32_t bgr_long) {
  uint32_t v = static_cast<uint32_t>(bgr_long);
  uint32_t r = v & 0xFF, g = (v >> 8) & 0xFF, b = (v >> 16) & 0xFF;
  Color c;
  c.kind = Kind::Rgb;
  c.argb = 0xFF000000u | (r << 16) | (g << 8) | b;
  return c;
}

namespace {
constexpr int32_t bgr(uint32_t rrggbb) {
  return static_cast<int32_t>(((rrggbb >> 16) & 0xFF) | (rrggbb & 0xFF00) |
                              ((rrggbb & 0xFF) << 16));
}
}  // namespace

const std::array<int32_t, 56>& default_palette() {
  static const std::array<int32_t, 56> p = [] {
    const uint32_t rgb[56] = {0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFF00, 0xFF00FF,
                              0x00FFFF, 0x800000, 0x008000, 0x000080, 0x808000, 0x800080, 0x008080,
                              0xC0C0C0, 0x808080, 0x9999FF, 0x993366, 0xFFFFCC, 0xCCFFFF, 0x660066,
                              0xFF8080, 0x0066CC, 0xCCCCFF, 0x000080, 0xFF00FF, 0xFFFF00, 0x00FFFF,
                              0x800080, 0x800000, 0x008080, 0x0000FF, 0x00CCFF, 0xCCFFFF, 0xCCFFCC,
                              0xFFFF99, 0x99CCFF, 0xFF99CC, 0xCC99FF, 0xFFCC99, 0x3366FF, 0x33CCCC,
                              0x99CC00, 0xFFCC00, 0xFF9900, 0xFF6600, 0x666699, 0x969696, 0x003366,
                              0x339966, 0x003300, 0x333300, 0x993300, 0x993366, 0x333399, 0x333333};
    std::array<int32_t, 56> out{};
    for (size_t i = 0; i < 56; ++i) out[i] = bgr(rgb[i]);
    return out;
  }();
  return p;
}

const ThemePalette& default_theme() {
  static const ThemePalette t = {0x000000, 0xFFFFFF, 0x44546A, 0xE7E6E6, 0x4472C4, 0xED7D31,
                                 0xA5A5A5, 0xFFC000, 0x5B9BD5, 0x70AD47, 0x0563C1, 0x954F72};
  return t;
}

// ---------------------------------------------------------------------------------------------
// Styles

namespace {
inline void mix(size_t& h, size_t v) {
  h ^= v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2);
}
size_t hash_str(const String& s) {
  return std::hash<String>{}(s);
}
size_t hash_dbl(double d) {
  uint64_t u;
  std::memcpy(&u, &d, sizeof u);
  return std::hash<uint64_t>{}(u);
}
size_t hash_color(const Color& c) {
  size_t h = static_cast<size_t>(c.kind);
  mix(h, c.argb);
  mix(h, static_cast<size_t>(c.index));
  mix(h, hash_dbl(c.tint));
  return h;
}
size_t hash_of(const FontRec& f) {
  size_t h = hash_str(f.name);
  mix(h, hash_dbl(f.size));
  mix(h, (f.bold ? 1 : 0) | (f.italic ? 2 : 0) | (f.strike ? 4 : 0) | (f.outline ? 8 : 0) |
             (f.shadow ? 16 : 0) | (f.condense ? 32 : 0) | (f.extend ? 64 : 0));
  mix(h, static_cast<size_t>(f.underline) * 7 + static_cast<size_t>(f.vert_align));
  mix(h, hash_color(f.color));
  mix(h, static_cast<size_t>(f.family));
  mix(h, static_cast<size_t>(f.charset));
  mix(h, hash_str(f.scheme));
  return h;
}
size_t hash_of(const FillRec& f) {
  size_t h = hash_str(f.pattern);
  mix(h, hash_color(f.fg));
  mix(h, hash_color(f.bg));
  mix(h, f.gradient);
  return h;
}
size_t hash_of(const BorderSide& s) {
  size_t h = hash_str(s.style);
  mix(h, hash_color(s.color));
  return h;
}
size_t hash_of(const BorderRec& b) {
  size_t h = hash_of(b.left);
  mix(h, hash_of(b.right));
  mix(h, hash_of(b.top));
  mix(h, hash_of(b.bottom));
  mix(h, hash_of(b.diagonal));
  mix(h, b.diagonal_up * 2 + b.diagonal_down);
  return h;
}
size_t hash_of(const Xf& x) {
  size_t h = x.font;
  mix(h, x.fill);
  mix(h, x.border);
  mix(h, x.numfmt);
  mix(h, x.xf_id);
  mix(h, static_cast<size_t>(x.align.horizontal));
  mix(h, hash_str(x.align.vertical));
  mix(h, (x.align.wrap ? 1 : 0) | (x.align.shrink ? 2 : 0) | (x.locked ? 4 : 0) |
             (x.hidden ? 8 : 0) | (x.quote_prefix ? 16 : 0));
  mix(h, static_cast<size_t>(x.align.indent) * 1000 + static_cast<size_t>(x.align.rotation));
  mix(h, x.apply);
  return h;
}
}  // namespace

StyleTable::StyleTable() {
  FontRec f;
  f.family = 2;
  f.scheme = u"minor";
  fonts.push_back(f);
  fills.push_back(FillRec{});
  FillRec gray;
  gray.pattern = u"gray125";
  fills.push_back(gray);
  borders.push_back(BorderRec{});
  xfs.push_back(Xf{});
}

void StyleTable::clear() {
  fonts.clear();
  fills.clear();
  borders.clear();
  xfs.clear();
  numfmts.clear();
  font_map_.clear();
  fill_map_.clear();
  border_map_.clear();
  xf_map_.clear();
  indexed_fonts_ = indexed_fills_ = indexed_borders_ = indexed_xfs_ = 0;
}

template <class T>
uint32_t StyleTable::find_or_add(std::vector<T>& table,
                                 std::unordered_multimap<size_t, uint32_t>& index,
                                 size_t& indexed_upto, const T& rec, size_t hash) {
  // The dedupe map is brought up to date lazily, so a loader can push records directly.
  size_t* indexed = &indexed_upto;
  for (; *indexed < table.size(); ++*indexed)
    index.emplace(hash_of(table[*indexed]), static_cast<uint32_t>(*indexed));
  auto [lo, hi] = index.equal_range(hash);
  uint32_t best = UINT32_MAX;
  for (auto it = lo; it != hi; ++it)
    if (table[it->second] == rec) best = std::min(best, it->second);
  if (best != UINT32_MAX) return best;
  table.push_back(rec);
  index.emplace(hash, static_cast<uint32_t>(table.size() - 1));
  *indexed = table.size();
  changed = true;
  return static_cast<uint32_t>(table.size() - 1);
}

uint32_t StyleTable::font_index(const FontRec& f) {
  return find_or_add(fonts, font_map_, indexed_fonts_, f, hash_of(f));
}
uint32_t StyleTable::fill_index(const FillRec& f) {
  return find_or_add(fills, fill_map_, indexed_fills_, f, hash_of(f));
}
uint32_t StyleTable::border_index(const BorderRec& b) {
  return find_or_add(borders, border_map_, indexed_borders_, b, hash_of(b));
}
uint32_t StyleTable::xf_index(const Xf& x) {
  return find_or_add(xfs, xf_map_, indexed_xfs_, x, hash_of(x));
}

uint32_t StyleTable::numfmt_id(StringView code) {
  for (const auto& [id, c] : numfmts)
    if (c == code) return id;
  if (auto b = numfmt::builtin_id(code)) return static_cast<uint32_t>(*b);
  uint32_t id = 164;
  if (!numfmts.empty()) id = std::max<uint32_t>(164, numfmts.rbegin()->first + 1);
  numfmts.emplace(id, String(code));
  changed = true;
  return id;
}

String StyleTable::numfmt_code(uint32_t id) const {
  if (auto it = numfmts.find(id); it != numfmts.end()) return it->second;
  if (auto b = numfmt::builtin_code(static_cast<int32_t>(id))) return *b;
  return u"General";
}

// ---------------------------------------------------------------------------------------------
// Shared strings

namespace {
uint64_t hash_text(StringView s) {
  uint64_t h = 1469598103934665603ull;
  for (char16_t c : s) {
    h ^= static_cast<uint64_t>(c);
    h *= 1099511628211ull;
  }
  return h;
}
}  // namespace

uint32_t StringPool::append(StringView text, std::vector<Run> runs) {
  uint32_t idx = static_cast<uint32_t>(starts_.size());
  if (text.size() >= kBlock - 1) {
    long_.emplace(idx, String(text));
    starts_.push_back(UINT32_MAX);
  } else {
    uint32_t need = static_cast<uint32_t>(text.size()) + 1;
    if (fill_ + need > kBlock) {
      blocks_.push_back(std::make_unique<char16_t[]>(kBlock));
      fill_ = 0;
    }
    char16_t* p = blocks_.back().get() + fill_;
    p[0] = static_cast<char16_t>(text.size());
    std::copy(text.begin(), text.end(), p + 1);
    starts_.push_back(static_cast<uint32_t>((blocks_.size() - 1) << 16) | fill_);
    fill_ += need;
  }
  if (!runs.empty()) runs_.emplace(idx, std::move(runs));
  changed = true;
  return idx;
}

void StringPool::grow_table() {
  size_t n = table_.empty() ? 1024 : table_.size() * 2;
  std::vector<uint32_t> t(n, 0);
  for (uint32_t slot : table_) {
    if (!slot) continue;
    size_t i = hash_text(text(slot - 1)) & (n - 1);
    while (t[i]) i = (i + 1) & (n - 1);
    t[i] = slot;
  }
  table_.swap(t);
}

uint32_t StringPool::intern(StringView s) {
  // Entries appended by a loader join the dedupe table lazily, on the first intern.
  if (table_used_ < size()) {
    for (size_t i = table_used_; i < size(); ++i) {
      if (runs_.count(static_cast<uint32_t>(i))) continue;
      if ((table_used_ + 1) * 10 > table_.size() * 7) grow_table();
      size_t mask = table_.size() - 1, j = hash_text(text(static_cast<uint32_t>(i))) & mask;
      bool dup = false;
      while (table_[j]) {
        if (text(table_[j] - 1) == text(static_cast<uint32_t>(i))) {
          dup = true;
          break;
        }
        j = (j + 1) & mask;
      }
      if (!dup) table_[j] = static_cast<uint32_t>(i + 1);
      table_used_ = i + 1;
    }
  }
  if ((size() + 1) * 10 > table_.size() * 7) grow_table();
  size_t mask = table_.size() - 1, i = hash_text(s) & mask;
  while (table_[i]) {
    if (text(table_[i] - 1) == s) return table_[i] - 1;
    i = (i + 1) & mask;
  }
  uint32_t idx = append(s);
  table_[i] = idx + 1;
  table_used_ = size();
  return idx;
}

uint32_t StringPool::add_rich(StringView text, std::vector<Run> runs) {
  if (runs.empty()) return intern(text);
  return append(text, std::move(runs));
}

StringView StringPool::text(uint32_t index) const {
  if (index >= starts_.size()) return {};
  uint32_t at = starts_[index];
  if (at == UINT32_MAX) return long_.at(index);
  const char16_t* p = blocks_[at >> 16].get() + (at & 0xFFFF);
  return StringView(p + 1, p[0]);
}

const std::vector<Run>& StringPool::runs(uint32_t index) const {
  static const std::vector<Run> none;
  auto it = runs_.find(index);
  return it == runs_.end() ? none : it->second;
}

size_t StringPool::memory_bytes() const {
  size_t n = blocks_.size() * kBlock * sizeof(char16_t) + starts_.capacity() * sizeof(uint32_t) +
             table_.capacity() * sizeof(uint32_t) + runs_.size() * 64;
  for (const auto& [i, t] : long_) n += t.capacity() * sizeof(char16_t);
  return n;
}

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
    return chunks.back().back();
  }
  // Loading and filling go down the column: a cell past the last one is appended without a
  // search, to the last chunk or (when that is full) a new one, so chunks stay full.
  if (Chunk& last = chunks.back(); row > last.back().row) {
    ++size_;
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
  if (at >= static_cast<int32_t>(cols_.size())) return;
  cols_.insert(cols_.begin() + at, static_cast<size_t>(count), Column{});
  while (static_cast<int32_t>(cols_.size()) > calc::kMaxCols) {
    for (auto& ch : cols_.back().chunks) size_ -= ch.size();
    cols_.pop_back();
  }
}

void CellStore::delete_cols(int32_t at, int32_t count,
                            const std::function<void(const Cell&)>& removed) {
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
// Sheet

uint32_t Sheet::style_at(int32_t row, int32_t col) const {
  if (const Cell* c = cells.find(row, col)) return c->style();
  if (auto r = rows.find(row); r != rows.end() && r->second.has_style) return r->second.style;
  if (auto c = cols.find(col); c != cols.end() && c->second.has_style) return c->second.style;
  return 0;
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

String FileFormula::text16() const {
  return from_utf8(text);
}

uint32_t Sheet::new_formula() {
  if (!free_formulas.empty()) {
    uint32_t i = free_formulas.back();
    free_formulas.pop_back();
    formulas[i] = FormulaCell{};
    formulas[i].live = true;
    return i;
  }
  formulas.emplace_back();
  formulas.back().live = true;
  return static_cast<uint32_t>(formulas.size() - 1);
}

void Sheet::free_formula(uint32_t index) {
  formulas[index] = FormulaCell{};
  free_formulas.push_back(index);
}

}  // namespace qz::engine
