// The style tables and the colours they use, and formatting a workbook's cells: formats changed
// over areas, font colours set cell by cell, and file colours resolved to RGB.
#include "engine/model/styles.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "engine/model/address.hpp"
#include "engine/model/book.hpp"
#include "engine/model/fail.hpp"
#include "engine/numfmt/numfmt.hpp"

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
// Colours

namespace {

void rgb_to_hls(double r, double g, double b, double& h, double& l, double& s) {
  double mx = std::max({r, g, b}), mn = std::min({r, g, b});
  l = (mx + mn) / 2;
  if (mx == mn) {
    h = s = 0;
    return;
  }
  double d = mx - mn;
  s = l > 0.5 ? d / (2 - mx - mn) : d / (mx + mn);
  if (mx == r)
    h = (g - b) / d + (g < b ? 6 : 0);
  else if (mx == g)
    h = (b - r) / d + 2;
  else
    h = (r - g) / d + 4;
  h /= 6;
}

double hue_to_rgb(double p, double q, double t) {
  if (t < 0) t += 1;
  if (t > 1) t -= 1;
  if (t < 1.0 / 6) return p + (q - p) * 6 * t;
  if (t < 0.5) return q;
  if (t < 2.0 / 3) return p + (q - p) * (2.0 / 3 - t) * 6;
  return p;
}

uint32_t apply_tint(uint32_t rrggbb, double tint) {
  if (tint == 0) return rrggbb;
  double r = ((rrggbb >> 16) & 0xFF) / 255.0, g = ((rrggbb >> 8) & 0xFF) / 255.0,
         b = (rrggbb & 0xFF) / 255.0, h, l, s;
  rgb_to_hls(r, g, b, h, l, s);
  l = tint < 0 ? l * (1 + tint) : l * (1 - tint) + tint;
  if (s == 0) {
    r = g = b = l;
  } else {
    double q = l < 0.5 ? l * (1 + s) : l + s - l * s, p = 2 * l - q;
    r = hue_to_rgb(p, q, h + 1.0 / 3);
    g = hue_to_rgb(p, q, h);
    b = hue_to_rgb(p, q, h - 1.0 / 3);
  }
  auto byte = [](double v) {
    return static_cast<uint32_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255));
  };
  return (byte(r) << 16) | (byte(g) << 8) | byte(b);
}

int32_t to_long_color(uint32_t rrggbb) {
  return static_cast<int32_t>(((rrggbb >> 16) & 0xFF) | (rrggbb & 0xFF00) |
                              ((rrggbb & 0xFF) << 16));
}
uint32_t from_long_color(int32_t c) {
  uint32_t v = static_cast<uint32_t>(c);
  return ((v & 0xFF) << 16) | (v & 0xFF00) | ((v >> 16) & 0xFF);
}

}  // namespace

int32_t Book::rgb(const Color& c, int32_t automatic) const {
  uint32_t base;
  switch (c.kind) {
    case Color::Kind::Auto:
      return automatic;
    case Color::Kind::Rgb:
      base = c.argb & 0xFFFFFF;
      break;
    case Color::Kind::Indexed: {
      static const uint32_t fixed[8] = {0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00,
                                        0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF};
      if (c.index >= 0 && c.index < 8)
        base = fixed[c.index];
      else if (c.index >= 8 && c.index < 64)
        base = from_long_color(palette[c.index - 8]);
      else if (c.index == 65)
        base = 0xFFFFFF;
      else
        return automatic;
      break;
    }
    case Color::Kind::Theme: {
      // Files number the first four theme colours light 1, dark 1, light 2, dark 2, while a
      // theme lists them dark first.
      static const int map[4] = {1, 0, 3, 2};
      int i = c.index < 4 && c.index >= 0 ? map[c.index] : c.index;
      if (i < 0 || i >= 12) return automatic;
      base = theme[static_cast<size_t>(i)];
      break;
    }
    default:
      return automatic;
  }
  return to_long_color(apply_tint(base, c.tint));
}

int32_t Book::nearest_color_index(int32_t color) const {
  uint32_t want = from_long_color(color);
  int best = 0;
  long best_d = -1;
  for (int i = 0; i < 56; ++i) {
    uint32_t p = from_long_color(palette[static_cast<size_t>(i)]);
    long dr = static_cast<long>((p >> 16) & 0xFF) - static_cast<long>((want >> 16) & 0xFF);
    long dg = static_cast<long>((p >> 8) & 0xFF) - static_cast<long>((want >> 8) & 0xFF);
    long db = static_cast<long>(p & 0xFF) - static_cast<long>(want & 0xFF);
    long d = dr * dr + dg * dg + db * db;
    if (best_d < 0 || d < best_d) {
      best_d = d;
      best = i;
    }
  }
  return best + 1;
}

// ---------------------------------------------------------------------------------------------
// Styles over areas

uint32_t Book::derived_xf(uint32_t old, const Xf& x) {
  uint32_t idx = styles.xf_index(x);
  // A format made from another remembers where it came from.
  if (idx == styles.xfs.size() - 1 && idx != old && styles.xfs[idx].derived_from < 0 &&
      !(styles.xfs[idx] == styles.xf(old)))
    styles.xfs[idx].derived_from = static_cast<int32_t>(old);
  return idx;
}

void Book::restyle_one(Sheet& s, int32_t row, int32_t col,
                       const std::function<uint32_t(uint32_t)>& next) {
  if (Cell* c = s.cells.find(row, col))
    c->set_style(next(c->style()));
  else
    s.cells.get_or_create(row, col, next(s.style_at(row, col)));
  touch(s);
}

void Book::restyle(Sheet& s, const Rect& area, const std::function<Xf(const Xf&)>& change) {
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  auto restyled = [&](uint32_t old) { return derived_xf(old, change(styles.xf(old))); };
  if (area.row1 == area.row2 && area.col1 == area.col2 && !whole_rows(area) &&
      !whole_columns(area)) {
    // One cell, as formatting the cells of a run one at a time does: no memo, no walk.
    restyle_one(s, area.row1, area.col1, restyled);
    return;
  }
  std::unordered_map<uint32_t, uint32_t> memo;
  auto next = [&](uint32_t old) {
    auto it = memo.find(old);
    if (it != memo.end()) return it->second;
    uint32_t idx = restyled(old);
    memo.emplace(old, idx);
    return idx;
  };
  bool cols_whole = whole_columns(area), rows_whole = whole_rows(area);
  // Cells the line styles would otherwise decide must be made real first, where the other
  // direction's lines carry a style of their own.
  auto materialise = [&](int32_t r, int32_t c) {
    if (!s.cells.find(r, c)) s.cells.get_or_create(r, c, s.style_at(r, c));
  };
  if (cols_whole || rows_whole) {
    if (cols_whole && !rows_whole) {
      for (auto& [r, info] : s.rows)
        if (info.has_style)
          for (int32_t c = area.col1; c <= area.col2; ++c) materialise(r, c);
      for (int32_t c = area.col1; c <= area.col2; ++c) {
        LineInfo& li = s.cols[c];
        li.style = next(li.has_style ? li.style : 0);
        li.has_style = true;
      }
    } else if (rows_whole && !cols_whole) {
      for (auto& [c, info] : s.cols)
        if (info.has_style)
          for (int32_t r = area.row1; r <= area.row2; ++r) materialise(r, c);
      for (int32_t r = area.row1; r <= area.row2; ++r) {
        LineInfo& li = s.rows[r];
        li.style = next(li.has_style ? li.style : 0);
        li.has_style = true;
      }
    } else {
      // The whole sheet: every column carries the new format, rows with their own lose it.
      for (int32_t c = 0; c <= kLastCol; ++c) {
        LineInfo& li = s.cols[c];
        li.style = next(li.has_style ? li.style : 0);
        li.has_style = true;
      }
      for (auto& [r, info] : s.rows)
        if (info.has_style) info.style = next(info.style);
    }
    s.cells.for_each_mut(area, [&](int32_t, int32_t, Cell& c) { c.set_style(next(c.style())); });
    s.changed.layout = true;
    touch(s);
    return;
  }
  int64_t cells = static_cast<int64_t>(area.row2 - area.row1 + 1) * (area.col2 - area.col1 + 1);
  if (cells > 20'000'000) fail("the range is too large to format cell by cell");
  s.cells.for_each_mut(area, [&](int32_t, int32_t, Cell& c) { c.set_style(next(c.style())); });
  if (static_cast<int64_t>(s.cells.count_in(area)) < cells) {
    for (int32_t c = area.col1; c <= area.col2; ++c)
      for (int32_t r = area.row1; r <= area.row2; ++r)
        if (!s.cells.find(r, c)) {
          uint32_t st = next(s.style_at(r, c));
          s.cells.get_or_create(r, c, st);
        }
  }
  touch(s);
}

std::optional<uint32_t> Book::RecolorMemo::find(uint32_t from, const Color& color,
                                                size_t table_size) {
  // A loader that clears the tables starts them over.
  if (table_size < size_) seen_.clear();
  if (last_ < seen_.size() && seen_[last_].from == from && seen_[last_].color == color)
    return seen_[last_].result;
  for (size_t i = 0; i < seen_.size(); ++i)
    if (seen_[i].from == from && seen_[i].color == color) {
      last_ = i;
      return seen_[i].result;
    }
  return std::nullopt;
}

void Book::RecolorMemo::remember(uint32_t from, const Color& color, uint32_t result,
                                 size_t table_size) {
  // Few styles meet few colours; past that the search would cost more than it saves.
  if (seen_.size() >= 64) return;
  seen_.push_back({from, color, result});
  size_ = table_size;
}

uint32_t Book::recolored_xf(uint32_t old, const Color& color) {
  if (auto hit = recolored_xfs_.find(old, color, styles.xfs.size())) return *hit;
  // Made as restyle makes it, provenance included.
  Xf x = styles.xf(old);
  x.font = font_with_color(x.font, color);
  uint32_t idx = derived_xf(old, x);
  recolored_xfs_.remember(old, color, idx, styles.xfs.size());
  return idx;
}

void Book::recolor_cell(Sheet& s, int32_t row, int32_t col, const Color& color) {
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  restyle_one(s, row, col, [&](uint32_t old) { return recolored_xf(old, color); });
}

void Book::recolor_cell(Sheet& s, Cell& c, const Color& color) {
  c.set_style(recolored_xf(c.style(), color));
  touch(s);
}

uint32_t Book::font_with_color(uint32_t font, const Color& color) {
  if (auto hit = recolored_fonts_.find(font, color, styles.fonts.size())) return *hit;
  FontRec f = styles.font(font);
  f.color = color;
  const uint32_t result = styles.font_index(f);
  recolored_fonts_.remember(font, color, result, styles.fonts.size());
  return result;
}

std::vector<uint32_t> Book::styles_in(const Sheet& s, const Rect& area, size_t cap) const {
  std::vector<uint32_t> out;
  auto add = [&](uint32_t x) {
    if (std::find(out.begin(), out.end(), x) == out.end()) out.push_back(x);
    return out.size() < cap;
  };
  s.cells.for_each(area, [&](int32_t, int32_t, const Cell& c) { return add(c.style()); });
  if (out.size() >= cap) return out;
  int64_t total = static_cast<int64_t>(area.row2 - area.row1 + 1) * (area.col2 - area.col1 + 1);
  if (static_cast<int64_t>(s.cells.count_in(area)) == total) return out;
  if (total <= 4096) {
    for (int32_t r = area.row1; r <= area.row2; ++r)
      for (int32_t c = area.col1; c <= area.col2; ++c)
        if (!s.cells.find(r, c) && !add(s.style_at(r, c))) return out;
    return out;
  }
  // Large areas: the styles of the lines crossing them, and the default where lines have none.
  size_t styled_rows = 0, styled_cols = 0;
  for (auto it = s.rows.lower_bound(area.row1); it != s.rows.end() && it->first <= area.row2; ++it)
    if (it->second.has_style) {
      ++styled_rows;
      if (!add(it->second.style)) return out;
    }
  for (auto it = s.cols.lower_bound(area.col1); it != s.cols.end() && it->first <= area.col2; ++it)
    if (it->second.has_style) {
      ++styled_cols;
      if (!add(it->second.style)) return out;
    }
  if (styled_rows < static_cast<size_t>(area.row2 - area.row1 + 1) &&
      styled_cols < static_cast<size_t>(area.col2 - area.col1 + 1))
    add(0);
  return out;
}

}  // namespace qz::engine
