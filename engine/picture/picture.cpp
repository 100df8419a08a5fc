#include "engine/picture/picture.hpp"

#include <cairo-svg.h>
#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <memory>

#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

namespace qz::engine::picture {

namespace {

constexpr double kPixelsPerPoint = 96.0 / 72.0;
constexpr int kPadding = 2;               // between a cell's edge and its text
constexpr uint32_t kGridline = 0xD4D4D4;  // the screen's gridlines, as 0xRRGGBB

// The visible rows and columns of an area and where each begins, in pixels.
struct Layout {
  std::vector<int32_t> rows, cols;  // model indices (0-based)
  std::vector<int> x, y;            // left and top edges; one more than lines: the far edge
  int width() const { return x.back(); }
  int height() const { return y.back(); }
};

int column_pixels(const Sheet& s, int32_t col) {
  const auto it = s.cols.find(col);
  if (it != s.cols.end() && it->second.hidden) return 0;
  // A width counts characters of the default font's digits, seven pixels each on screen. A
  // column's own width, as files keep it, includes the cell's padding; the sheet's default
  // counts characters only, and the padding (five pixels) comes on top.
  if (it != s.cols.end() && it->second.size >= 0)
    return static_cast<int>(std::lround(it->second.size * 7));
  return s.default_col_width > 0 ? static_cast<int>(std::lround(s.default_col_width * 7 + 5)) : 0;
}

int row_pixels(const Sheet& s, int32_t row) {
  const auto it = s.rows.find(row);
  if (it != s.rows.end() && it->second.hidden) return 0;
  const double points =
      it != s.rows.end() && it->second.size >= 0 ? it->second.size : s.default_row_height;
  return static_cast<int>(std::lround(points * kPixelsPerPoint));
}

Layout layout(const Sheet& s, const Rect& area) {
  Layout l;
  l.x.push_back(0);
  for (int32_t c = area.col1; c <= area.col2; ++c)
    if (const int w = column_pixels(s, c); w > 0) {
      l.cols.push_back(c);
      l.x.push_back(l.x.back() + w);
    }
  l.y.push_back(0);
  for (int32_t r = area.row1; r <= area.row2; ++r)
    if (const int h = row_pixels(s, r); h > 0) {
      l.rows.push_back(r);
      l.y.push_back(l.y.back() + h);
    }
  return l;
}

// An automation colour (R + 256 G + 65536 B) as cairo's source.
void set_colour(cairo_t* cr, int32_t bgr) {
  cairo_set_source_rgb(cr, (bgr & 0xFF) / 255.0, ((bgr >> 8) & 0xFF) / 255.0,
                       ((bgr >> 16) & 0xFF) / 255.0);
}

int32_t bgr_of(uint32_t rgb) {
  return static_cast<int32_t>(((rgb & 0xFF) << 16) | (rgb & 0xFF00) | ((rgb >> 16) & 0xFF));
}

// A border side as lines on the pixel row or column `at` (a horizontal side when
// `horizontal`), from `from` to `to`.
void stroke_side(cairo_t* cr, const Book& book, const BorderSide& side, bool horizontal, int at,
                 int from, int to) {
  if (side.style.empty() || side.style == u"none") return;
  set_colour(cr, book.rgb(side.color, 0));
  double width = 1;
  if (side.style == u"medium" || side.style == u"mediumDashed" || side.style == u"mediumDashDot" ||
      side.style == u"mediumDashDotDot")
    width = 2;
  else if (side.style == u"thick")
    width = 3;
  if (side.style.find(u"ashDotDot") != String::npos) {
    const double dashes[] = {6, 2, 2, 2, 2, 2};
    cairo_set_dash(cr, dashes, 6, 0);
  } else if (side.style.find(u"ashDot") != String::npos) {
    const double dashes[] = {6, 2, 2, 2};
    cairo_set_dash(cr, dashes, 4, 0);
  } else if (side.style.find(u"ashed") != String::npos) {
    const double dashes[] = {4, 2};
    cairo_set_dash(cr, dashes, 2, 0);
  } else if (side.style == u"dotted" || side.style == u"hair") {
    const double dashes[] = {1, 1};
    cairo_set_dash(cr, dashes, 2, 0);
  }
  auto line = [&](double offset) {
    const double p = at + 0.5 + offset;
    if (horizontal) {
      cairo_move_to(cr, from, p);
      cairo_line_to(cr, to, p);
    } else {
      cairo_move_to(cr, p, from);
      cairo_line_to(cr, p, to);
    }
  };
  cairo_set_line_width(cr, side.style == u"double" ? 1 : width);
  if (side.style == u"double") {
    line(-1);
    line(1);
  } else {
    line(width == 2 ? -0.5 : 0);
  }
  cairo_stroke(cr);
  cairo_set_dash(cr, nullptr, 0, 0);
}

struct Text {
  String shown;
  bool number = false;   // numbers and dates: "###" when they do not fit, right by default
  bool centred = false;  // truth values and errors, by default
};

Text text_of(const Book& book, const Sheet& s, int32_t row, int32_t col) {
  Text t;
  t.shown = book.text(s, row, col);
  if (t.shown.empty()) return t;
  const Variant v = book.value_variant(s, row, col);
  t.number = v.is_number() || v.is_date();
  t.centred = v.is_bool() || v.is_error();
  return t;
}

PangoLayout* text_layout(cairo_t* cr, const FontRec& font, const std::string& text) {
  PangoLayout* pl = pango_cairo_create_layout(cr);
  PangoFontDescription* fd = pango_font_description_new();
  pango_font_description_set_family(fd, to_utf8(font.name).c_str());
  pango_font_description_set_weight(fd, font.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_font_description_set_style(fd, font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
  pango_font_description_set_absolute_size(
      fd, std::max(1.0, font.size) * kPixelsPerPoint * PANGO_SCALE);
  pango_layout_set_font_description(pl, fd);
  pango_font_description_free(fd);
  PangoAttrList* attrs = pango_attr_list_new();
  if (font.underline != Underline::None) {
    const bool twice =
        font.underline == Underline::Double || font.underline == Underline::DoubleAccounting;
    pango_attr_list_insert(
        attrs, pango_attr_underline_new(twice ? PANGO_UNDERLINE_DOUBLE : PANGO_UNDERLINE_SINGLE));
  }
  if (font.strike) pango_attr_list_insert(attrs, pango_attr_strikethrough_new(true));
  pango_layout_set_attributes(pl, attrs);
  pango_attr_list_unref(attrs);
  pango_layout_set_text(pl, text.c_str(), static_cast<int>(text.size()));
  return pl;
}

// A number that does not fit shows as many "#" as the column holds; `w` and `h` get the
// size of what the layout then shows.
void fit(PangoLayout* pl, bool number, int room, int& w, int& h) {
  pango_layout_get_pixel_size(pl, &w, &h);
  if (!number || w <= room) return;
  pango_layout_set_text(pl, "#", 1);
  int hash = 1;
  pango_layout_get_pixel_size(pl, &hash, &h);
  const std::string hashes(static_cast<size_t>(std::max(1, room / std::max(1, hash))), '#');
  pango_layout_set_text(pl, hashes.c_str(), static_cast<int>(hashes.size()));
  pango_layout_get_pixel_size(pl, &w, &h);
}

bool is_empty_cell(const Book& book, const Sheet& s, int32_t row, int32_t col) {
  return book.text(s, row, col).empty();
}

void paint(cairo_t* cr, const Sheet& s, const Layout& l) {
  const Book& book = *s.book;
  const StyleTable& styles = book.styles;
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);
  set_colour(cr, 0xFFFFFF);
  cairo_paint(cr);

  // Gridlines on each cell's right and bottom pixels; fills cover them, as on screen.
  set_colour(cr, bgr_of(kGridline));
  cairo_set_line_width(cr, 1);
  for (size_t i = 1; i < l.x.size(); ++i) {
    cairo_move_to(cr, l.x[i] - 0.5, 0);
    cairo_line_to(cr, l.x[i] - 0.5, l.height());
  }
  for (size_t j = 1; j < l.y.size(); ++j) {
    cairo_move_to(cr, 0, l.y[j] - 0.5);
    cairo_line_to(cr, l.width(), l.y[j] - 0.5);
  }
  cairo_stroke(cr);

  for (size_t j = 0; j < l.rows.size(); ++j)
    for (size_t i = 0; i < l.cols.size(); ++i) {
      const Xf& xf = styles.xf(s.style_at(l.rows[j], l.cols[i]));
      const FillRec& fill = styles.fill(xf.fill);
      if (fill.pattern.empty() || fill.pattern == u"none") continue;
      // Patterns other than solid show as their foreground colour.
      set_colour(cr, book.rgb(fill.fg, 0xFFFFFF));
      cairo_rectangle(cr, l.x[i], l.y[j], l.x[i + 1] - l.x[i], l.y[j + 1] - l.y[j]);
      cairo_fill(cr);
    }

  cairo_set_antialias(cr, CAIRO_ANTIALIAS_DEFAULT);
  for (size_t j = 0; j < l.rows.size(); ++j)
    for (size_t i = 0; i < l.cols.size(); ++i) {
      const int32_t row = l.rows[j], col = l.cols[i];
      Text t = text_of(book, s, row, col);
      if (t.shown.empty()) continue;
      const Xf& xf = styles.xf(s.style_at(row, col));
      const FontRec& font = styles.font(xf.font);
      const int x0 = l.x[i], x1 = l.x[i + 1], y0 = l.y[j], y1 = l.y[j + 1];
      const int room = x1 - x0 - 2 * kPadding;
      PangoLayout* pl = text_layout(cr, font, to_utf8(t.shown));
      if (xf.align.wrap && !t.number) {
        pango_layout_set_width(pl, std::max(1, room) * PANGO_SCALE);
        pango_layout_set_wrap(pl, PANGO_WRAP_WORD_CHAR);
      }
      int w = 0, h = 0;
      fit(pl, t.number, room, w, h);
      HAlign align = xf.align.horizontal;
      if (align == HAlign::General)
        align = t.number ? HAlign::Right : t.centred ? HAlign::Center : HAlign::Left;
      int x = x0 + kPadding;
      if (align == HAlign::Right)
        x = x1 - kPadding - w;
      else if (align == HAlign::Center || align == HAlign::CenterContinuous)
        x = x0 + (x1 - x0 - w) / 2;
      x += align == HAlign::Left ? xf.align.indent * 9 : 0;
      int y = y1 - 1 - h;
      if (xf.align.vertical == u"top")
        y = y0 + 1;
      else if (xf.align.vertical == u"center")
        y = y0 + (y1 - y0 - h) / 2;
      // Text runs on over empty cells to its right; everything else stays in its cell.
      int clip_right = x1;
      if (!t.number && !xf.align.wrap && align == HAlign::Left)
        for (size_t k = i + 1; k < l.cols.size() && x + w > clip_right; ++k) {
          if (!is_empty_cell(book, s, row, l.cols[k])) break;
          clip_right = l.x[k + 1];
        }
      cairo_save(cr);
      cairo_rectangle(cr, x0, y0, clip_right - x0, y1 - y0);
      cairo_clip(cr);
      set_colour(cr, book.rgb(font.color, 0));
      cairo_move_to(cr, x, y);
      pango_cairo_show_layout(cr, pl);
      cairo_restore(cr);
      g_object_unref(pl);
    }

  // Borders last, over fills and gridlines. A left or top side sits on the line between the
  // cell and its neighbour, as the screen draws it.
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);
  for (size_t j = 0; j < l.rows.size(); ++j)
    for (size_t i = 0; i < l.cols.size(); ++i) {
      const Xf& xf = styles.xf(s.style_at(l.rows[j], l.cols[i]));
      if (xf.border >= styles.borders.size()) continue;
      const BorderRec& b = styles.borders[xf.border];
      const int x0 = l.x[i], x1 = l.x[i + 1], y0 = l.y[j], y1 = l.y[j + 1];
      stroke_side(cr, book, b.left, false, std::max(0, x0 - 1), y0, y1);
      stroke_side(cr, book, b.right, false, x1 - 1, y0, y1);
      stroke_side(cr, book, b.top, true, std::max(0, y0 - 1), x0, x1);
      stroke_side(cr, book, b.bottom, true, y1 - 1, x0, x1);
    }
}

[[noreturn]] void refuse(const std::string& message) {
  throw Error(err::not_supported, message);
}

}  // namespace

String shown(const Sheet& sheet, int32_t row, int32_t col) {
  const Book& book = *sheet.book;
  const Text t = text_of(book, sheet, row, col);
  if (t.shown.empty()) return t.shown;
  const FontRec& font = book.styles.font(book.styles.xf(sheet.style_at(row, col)).font);
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1, 1);
  cairo_t* cr = cairo_create(surface);
  PangoLayout* pl = text_layout(cr, font, to_utf8(t.shown));
  int w = 0, h = 0;
  fit(pl, t.number, column_pixels(sheet, col) - 2 * kPadding, w, h);
  String out = from_utf8(pango_layout_get_text(pl));
  g_object_unref(pl);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
  return out;
}

Bitmap draw(const Sheet& sheet, const Rect& area) {
  const Layout l = layout(sheet, area);
  Bitmap b;
  if (l.cols.empty() || l.rows.empty()) return b;
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, l.width(), l.height());
  cairo_t* cr = cairo_create(surface);
  paint(cr, sheet, l);
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  b.width = l.width();
  b.height = l.height();
  b.pixels.resize(static_cast<size_t>(b.width) * b.height);
  const unsigned char* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < b.height; ++y) {
    const auto* row = reinterpret_cast<const uint32_t*>(data + static_cast<ptrdiff_t>(y) * stride);
    for (int x = 0; x < b.width; ++x)
      b.pixels[static_cast<size_t>(y) * b.width + x] = 0xFF000000u | (row[x] & 0xFFFFFF);
  }
  cairo_surface_destroy(surface);
  return b;
}

bool write_bmp(const Bitmap& b, const std::filesystem::path& path) {
  const uint32_t row_bytes = (static_cast<uint32_t>(b.width) * 3 + 3) & ~3u;
  const uint32_t image = row_bytes * static_cast<uint32_t>(b.height);
  std::string out;
  auto u16 = [&](uint32_t v) {
    out += static_cast<char>(v & 0xFF);
    out += static_cast<char>((v >> 8) & 0xFF);
  };
  auto u32 = [&](uint32_t v) {
    u16(v & 0xFFFF);
    u16(v >> 16);
  };
  out += "BM";
  u32(54 + image);
  u32(0);
  u32(54);
  u32(40);
  u32(static_cast<uint32_t>(b.width));
  u32(static_cast<uint32_t>(b.height));  // positive: rows bottom to top
  u16(1);
  u16(24);
  u32(0);
  u32(image);
  u32(3780);  // 96 dots per inch, in dots per metre
  u32(3780);
  u32(0);
  u32(0);
  for (int y = b.height - 1; y >= 0; --y) {
    for (int x = 0; x < b.width; ++x) {
      const uint32_t p = b.at(x, y);
      out += static_cast<char>(p & 0xFF);
      out += static_cast<char>((p >> 8) & 0xFF);
      out += static_cast<char>((p >> 16) & 0xFF);
    }
    out.append(row_bytes - static_cast<uint32_t>(b.width) * 3, '\0');
  }
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(out.data(), static_cast<std::streamsize>(out.size()));
  return static_cast<bool>(f);
}

void save(const Sheet& sheet, const Rect& area, const std::filesystem::path& path) {
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ext == ".bmp") {
    const Bitmap b = draw(sheet, area);
    if (b.width == 0) refuse("the range shows no cells (its rows or columns are hidden)");
    if (!write_bmp(b, path)) refuse(path.string() + ": cannot write");
    return;
  }
  if (ext != ".png" && ext != ".svg") refuse(path.string() + ": give a .png, .bmp or .svg file");
  const Layout l = layout(sheet, area);
  if (l.cols.empty() || l.rows.empty())
    refuse("the range shows no cells (its rows or columns are hidden)");
  cairo_surface_t* surface =
      ext == ".svg" ? cairo_svg_surface_create(path.c_str(), l.width(), l.height())
                    : cairo_image_surface_create(CAIRO_FORMAT_RGB24, l.width(), l.height());
  cairo_t* cr = cairo_create(surface);
  paint(cr, sheet, l);
  cairo_destroy(cr);
  cairo_status_t status = CAIRO_STATUS_SUCCESS;
  if (ext == ".png") status = cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_finish(surface);
  if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_status(surface);
  cairo_surface_destroy(surface);
  if (status != CAIRO_STATUS_SUCCESS)
    refuse(path.string() + ": cannot write (" + cairo_status_to_string(status) + ")");
}

}  // namespace qz::engine::picture
