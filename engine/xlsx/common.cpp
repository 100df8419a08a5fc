#include "engine/xlsx/common.hpp"

#include <cmath>
#include <cstdio>

#include "engine/xlsx/xml_scan.hpp"
#include "vocab/columns.hpp"

namespace qz::engine::xlsx {

std::optional<CellRef> parse_cell(std::string_view t) {
  size_t i = 0;
  if (i < t.size() && t[i] == '$') ++i;
  int64_t col = 0;
  size_t letters = 0;
  for (; i < t.size(); ++i, ++letters) {
    char c = t[i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    if (c < 'A' || c > 'Z') break;
    col = col * 26 + (c - 'A' + 1);
    if (col > calc::kMaxCols) return std::nullopt;
  }
  if (letters == 0) return std::nullopt;
  if (i < t.size() && t[i] == '$') ++i;
  int64_t row = 0;
  size_t digits = 0;
  for (; i < t.size(); ++i, ++digits) {
    char c = t[i];
    if (c < '0' || c > '9') return std::nullopt;
    row = row * 10 + (c - '0');
    if (row > calc::kMaxRows) return std::nullopt;
  }
  if (digits == 0 || row == 0) return std::nullopt;
  return CellRef{static_cast<int32_t>(row - 1), static_cast<int32_t>(col - 1)};
}

std::optional<Rect> parse_ref(std::string_view t) {
  size_t colon = t.find(':');
  auto a = parse_cell(t.substr(0, colon));
  if (!a) return std::nullopt;
  if (colon == std::string_view::npos) return Rect{a->row, a->col, a->row, a->col};
  auto b = parse_cell(t.substr(colon + 1));
  if (!b) return std::nullopt;
  return Rect{std::min(a->row, b->row), std::min(a->col, b->col), std::max(a->row, b->row),
              std::max(a->col, b->col)};
}

char* write_cell(char* p, int32_t row, int32_t col) {
  p = write_column_letters(p, col);
  return std::to_chars(p, p + 12, row + 1).ptr;
}

void append_cell(std::string& out, int32_t row, int32_t col) {
  char buf[24];
  out.append(buf, write_cell(buf, row, col));
}

std::string cell_text(int32_t row, int32_t col) {
  std::string s;
  append_cell(s, row, col);
  return s;
}

std::string ref_text(const Rect& r) {
  std::string s = cell_text(r.row1, r.col1);
  if (r.row1 != r.row2 || r.col1 != r.col2) {
    s += ':';
    append_cell(s, r.row2, r.col2);
  }
  return s;
}

bool parse_bool(std::string_view t, bool fallback) {
  if (t == "1" || t == "true" || t == "on") return true;
  if (t == "0" || t == "false" || t == "off") return false;
  return fallback;
}

std::optional<double> parse_double(std::string_view t) {
  while (!t.empty() &&
         (t.front() == ' ' || t.front() == '\t' || t.front() == '\n' || t.front() == '\r'))
    t.remove_prefix(1);
  while (!t.empty() &&
         (t.back() == ' ' || t.back() == '\t' || t.back() == '\n' || t.back() == '\r'))
    t.remove_suffix(1);
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  if (t.empty()) return std::nullopt;
  // Nearly every number in a sheet is a short decimal such as "12" or "-48.25". With at most
  // 15 digits those digits make an integer a double holds exactly, and one division by an
  // exact power of ten rounds once, correctly: the same double the general conversion gives,
  // for a fraction of its work. Anything else (exponents, long digit strings) goes to it.
  {
    static constexpr double kTens[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    size_t i = t.front() == '-' ? 1 : 0;
    uint64_t m = 0;
    size_t whole = 0, fraction = 0;
    for (; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i, ++whole) m = m * 10 + (t[i] - '0');
    if (i < t.size() && t[i] == '.')
      for (++i; i < t.size() && t[i] >= '0' && t[i] <= '9'; ++i, ++fraction)
        m = m * 10 + (t[i] - '0');
    if (i == t.size() && whole > 0 && (fraction > 0 || t.back() != '.') && whole + fraction <= 15) {
      double d = static_cast<double>(m) / kTens[fraction];
      return t.front() == '-' ? -d : d;
    }
  }
  double d = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), d);
  if (r.ec != std::errc() || r.ptr != t.data() + t.size() || !std::isfinite(d)) return std::nullopt;
  return d;
}

std::optional<int64_t> parse_int(std::string_view t) {
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  int64_t v = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), v);
  if (r.ec != std::errc() || r.ptr != t.data() + t.size()) {
    // Some writers put "1.0" where an integer belongs.
    if (auto d = parse_double(t); d && *d == std::floor(*d) && std::fabs(*d) < 9e15)
      return static_cast<int64_t>(*d);
    return std::nullopt;
  }
  return v;
}

char* write_double(char* p, double d) {
  if (d == 0) d = 0;  // no "-0"
  // Most numbers in a sheet are whole. The shortest text of a whole number is its digits
  // unless the exponent form is shorter ("1e+05"), which needs at least five digits ending in
  // zero; the integer conversion writes those digits at a fraction of the cost.
  if (d > -1e15 && d < 1e15) {
    const auto whole = static_cast<int64_t>(d);
    if (static_cast<double>(whole) == d && (whole % 10 != 0 || (whole > -10000 && whole < 10000)))
      return std::to_chars(p, p + 32, whole).ptr;
  }
  return std::to_chars(p, p + 32, d).ptr;
}

void append_double(std::string& out, double d) {
  char buf[32];
  out.append(buf, write_double(buf, d));
}

std::string double_text(double d) {
  std::string s;
  append_double(s, d);
  return s;
}

void append_color(std::string& out, std::string_view tag, const Color& c) {
  out += '<';
  out += tag;
  char buf[16];
  switch (c.kind) {
    case Color::Kind::Auto:
      out += " auto=\"1\"";
      break;
    case Color::Kind::Rgb:
      std::snprintf(buf, sizeof buf, "%08X", c.argb);
      out += " rgb=\"";
      out += buf;
      out += '"';
      break;
    case Color::Kind::Theme:
      out += " theme=\"" + std::to_string(c.index) + "\"";
      break;
    case Color::Kind::Indexed:
      out += " indexed=\"" + std::to_string(c.index) + "\"";
      break;
  }
  if (c.tint != 0) {
    out += " tint=\"";
    append_double(out, c.tint);
    out += '"';
  }
  out += "/>";
}

void append_font(std::string& out, const FontRec& f, bool run) {
  auto val = [&](std::string_view tag, std::string_view v) {
    out += '<';
    out += tag;
    out += " val=\"";
    append_escaped(out, v, true);
    out += "\"/>";
  };
  if (run) {
    // Runs list the face first, as the application writes them.
    val("rFont", to_utf8(f.name));
    if (f.charset >= 0) val("charset", std::to_string(f.charset));
    if (f.family) val("family", std::to_string(f.family));
  }
  if (f.bold) out += "<b/>";
  if (f.italic) out += "<i/>";
  if (f.strike) out += "<strike/>";
  if (f.condense) out += "<condense/>";
  if (f.extend) out += "<extend/>";
  if (f.outline) out += "<outline/>";
  if (f.shadow) out += "<shadow/>";
  switch (f.underline) {
    case Underline::None:
      break;
    case Underline::Single:
      out += "<u/>";
      break;
    case Underline::Double:
      val("u", "double");
      break;
    case Underline::SingleAccounting:
      val("u", "singleAccounting");
      break;
    case Underline::DoubleAccounting:
      val("u", "doubleAccounting");
      break;
  }
  if (f.vert_align == VertAlign::Superscript) val("vertAlign", "superscript");
  if (f.vert_align == VertAlign::Subscript) val("vertAlign", "subscript");
  val("sz", double_text(f.size));
  if (f.color.kind != Color::Kind::Auto || f.color.tint != 0) append_color(out, "color", f.color);
  if (!run) {
    val("name", to_utf8(f.name));
    if (f.family) val("family", std::to_string(f.family));
    if (f.charset >= 0) val("charset", std::to_string(f.charset));
  }
  if (!f.scheme.empty()) val("scheme", to_utf8(f.scheme));
}

std::string_view rel_id_of(const pugi::xml_node& n) {
  for (pugi::xml_attribute a : n.attributes()) {
    std::string_view name = a.name();
    if (name.size() > 3 && name.substr(name.size() - 3) == ":id") return a.value();
  }
  return {};
}

}  // namespace qz::engine::xlsx
