// Small pieces the reading and writing halves of the workbook layer share: cell references,
// numbers and Booleans as the format writes them, colours and fonts.
#pragma once

#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include <pugixml.hpp>

#include "engine/model/cells.hpp"
#include "engine/model/styles.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::xlsx {

/// "A1" -> (0, 0); "$B$2" works too. Nothing for text that is no cell reference.
std::optional<CellRef> parse_cell(std::string_view text);
/// "A1:B2" or "A1" (a one-cell area).
std::optional<Rect> parse_ref(std::string_view text);
/// "A1:B2", or "A1" when the area is one cell.
std::string ref_text(const Rect& r);
std::string cell_text(int32_t row, int32_t col);
void append_cell(std::string& out, int32_t row, int32_t col);
/// Writes what append_cell appends at `p`, which has room for 24 characters; returns the end.
char* write_cell(char* p, int32_t row, int32_t col);

/// An xsd:boolean: "1"/"true" are true, "0"/"false" false; anything else `fallback`.
bool parse_bool(std::string_view text, bool fallback);
std::optional<double> parse_double(std::string_view text);
std::optional<int64_t> parse_int(std::string_view text);

/// A number the way the file stores it: the shortest text that reads back as the same double.
void append_double(std::string& out, double d);
/// Writes what append_double appends at `p`, which has room for 32 characters; returns the end.
char* write_double(char* p, double d);
std::string double_text(double d);

/// A colour element's attributes (rgb, theme, tint, indexed, auto).
template <class Get>
Color read_color(Get&& get) {
  Color c;
  if (auto rgb = get("rgb")) {
    c.kind = Color::Kind::Rgb;
    std::string_view v = *rgb;
    uint32_t argb = 0;
    std::from_chars(v.data(), v.data() + v.size(), argb, 16);
    // Six-digit values (written by some tools) carry no alpha; treat them as opaque.
    if (v.size() <= 6) argb |= 0xFF000000u;
    c.argb = argb;
  } else if (auto th = get("theme")) {
    c.kind = Color::Kind::Theme;
    c.index = static_cast<int32_t>(parse_int(*th).value_or(0));
  } else if (auto ix = get("indexed")) {
    c.kind = Color::Kind::Indexed;
    c.index = static_cast<int32_t>(parse_int(*ix).value_or(0));
  } else {
    c.kind = Color::Kind::Auto;
  }
  if (auto t = get("tint")) c.tint = parse_double(*t).value_or(0);
  return c;
}

/// Applies one child element of a font (<b/>, <sz val="11"/>, <color .../> ...) to `f`.
/// Cell fonts name the face in <name>, rich-text runs in <rFont>; both are read.
template <class Get>
void apply_font_child(FontRec& f, std::string_view tag, Get&& get) {
  auto flag = [&] {
    auto v = get("val");
    return v ? parse_bool(*v, true) : true;
  };
  auto val = [&]() -> std::string { return std::string(get("val").value_or("")); };
  if (tag == "b")
    f.bold = flag();
  else if (tag == "i")
    f.italic = flag();
  else if (tag == "strike")
    f.strike = flag();
  else if (tag == "outline")
    f.outline = flag();
  else if (tag == "shadow")
    f.shadow = flag();
  else if (tag == "condense")
    f.condense = flag();
  else if (tag == "extend")
    f.extend = flag();
  else if (tag == "sz")
    f.size = parse_double(val()).value_or(f.size);
  else if (tag == "name" || tag == "rFont")
    f.name = from_utf8(val());
  else if (tag == "family")
    f.family = static_cast<int32_t>(parse_int(val()).value_or(0));
  else if (tag == "charset")
    f.charset = static_cast<int32_t>(parse_int(val()).value_or(-1));
  else if (tag == "scheme")
    f.scheme = from_utf8(val());
  else if (tag == "color")
    f.color = read_color(get);
  else if (tag == "u") {
    std::string v = val();
    f.underline = v.empty() || v == "single" ? Underline::Single
                  : v == "double"            ? Underline::Double
                  : v == "singleAccounting"  ? Underline::SingleAccounting
                  : v == "doubleAccounting"  ? Underline::DoubleAccounting
                                             : Underline::None;
  } else if (tag == "vertAlign") {
    std::string v = val();
    f.vert_align = v == "superscript" ? VertAlign::Superscript
                   : v == "subscript" ? VertAlign::Subscript
                                      : VertAlign::Baseline;
  }
}

/// A font's elements, as a cell font (`run` false) or a run's properties (`run` true).
void append_font(std::string& out, const FontRec& f, bool run);
void append_color(std::string& out, std::string_view tag, const Color& c);

/// A pugixml node's attribute as an optional view (absent -> nothing).
inline std::optional<std::string_view> node_attr(const pugi::xml_node& n, const char* name) {
  pugi::xml_attribute a = n.attribute(name);
  if (!a) return std::nullopt;
  return std::string_view(a.value());
}

/// The relationship id attribute of an element ("r:id" under whatever prefix the part
/// binds to the relationships namespace).
std::string_view rel_id_of(const pugi::xml_node& n);

}  // namespace qz::engine::xlsx
