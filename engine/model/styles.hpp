// The style tables of a workbook: fonts, fills, borders, number formats and the cell formats
// (xf records) combining them, and the colours they use. The tables are append-only: an index,
// once handed out, keeps its meaning; a new combination is appended (or found again through a
// dedupe map).
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "qzxl/variant.hpp"

namespace qz::engine {

// ---------------------------------------------------------------------------------------------
// Colours

/// A colour as a workbook file stores it. `resolve` (Book::rgb) turns it into an RGB value.
struct Color {
  enum class Kind : uint8_t {
    Auto,     ///< the automatic colour (window text for fonts); also "not set"
    Rgb,      ///< `argb` holds 0xAARRGGBB
    Theme,    ///< `index` is a theme slot as files number them (0 light 1, 1 dark 1, ...)
    Indexed,  ///< `index` is a legacy palette index: 0-7 fixed, 8-63 the workbook palette
              ///< (Workbook.Colors 1..56), 64 system foreground, 65 system background
  };
  Kind kind = Kind::Auto;
  uint32_t argb = 0;
  int32_t index = 0;
  double tint = 0;  ///< -1..1, darkens or lightens theme and other colours

  static Color rgb(int32_t bgr_long);  ///< from an automation colour (R + 256 G + 65536 B)
  static Color automatic() { return {}; }
  friend bool operator==(const Color&, const Color&) = default;
};

// ---------------------------------------------------------------------------------------------
// Styles

enum class Underline : uint8_t { None, Single, Double, SingleAccounting, DoubleAccounting };
enum class VertAlign : uint8_t { Baseline, Superscript, Subscript };

/// A font record (a cell's font, or a rich-text run's own font).
struct FontRec {
  String name = u"Calibri";
  double size = 11;
  bool bold = false;
  bool italic = false;
  bool strike = false;
  bool outline = false;
  bool shadow = false;
  bool condense = false;
  bool extend = false;
  Underline underline = Underline::None;
  VertAlign vert_align = VertAlign::Baseline;
  Color color;
  int32_t family = 0;    ///< 0 = not written
  int32_t charset = -1;  ///< -1 = not written
  String scheme;         ///< "minor", "major" or "" (none)
  friend bool operator==(const FontRec&, const FontRec&) = default;
};

/// A fill record. Pattern fills only; gradient fills read from a file keep their index and
/// are written back by the file layer from what it retained.
struct FillRec {
  String pattern = u"none";  ///< "none", "solid", "gray125", ...
  Color fg;
  Color bg;
  bool gradient = false;  ///< a gradient fill the model does not describe
  friend bool operator==(const FillRec&, const FillRec&) = default;
};

struct BorderSide {
  String style;  ///< "" none, "thin", "medium", "double", ...
  Color color;
  friend bool operator==(const BorderSide&, const BorderSide&) = default;
};

struct BorderRec {
  BorderSide left, right, top, bottom, diagonal;
  bool diagonal_up = false;
  bool diagonal_down = false;
  friend bool operator==(const BorderRec&, const BorderRec&) = default;
};

/// Horizontal alignment with the application's numbers (`xl::HAlign...`).
enum class HAlign : uint8_t {
  General,
  Left,
  Center,
  Right,
  Fill,
  Justify,
  CenterContinuous,
  Distributed
};

struct Alignment {
  HAlign horizontal = HAlign::General;
  String vertical;  ///< "" (bottom), "top", "center", "justify", "distributed"
  bool wrap = false;
  bool shrink = false;
  int32_t indent = 0;
  int32_t rotation = 0;
  friend bool operator==(const Alignment&, const Alignment&) = default;
};

/// A cell format (an xf record): what a cell's style index points at.
struct Xf {
  uint32_t font = 0;
  uint32_t fill = 0;
  uint32_t border = 0;
  uint32_t numfmt = 0;  ///< number format id: built-in (0..163) or custom (164..)
  uint32_t xf_id = 0;   ///< the named cell style it is based on
  Alignment align;
  bool locked = true;
  bool hidden = false;
  /// The entry began with an apostrophe: the application keeps that on the format, and
  /// `PrefixCharacter` reports "'".
  bool quote_prefix = false;
  /// Which apply* flags a file wrote (bit 0 numfmt, 1 font, 2 fill, 3 border, 4 alignment,
  /// 5 protection); kept for writing back.
  uint8_t apply = 0;
  /// For an xf the engine appended: the xf it was derived from (so a writer can copy what the
  /// model does not describe); -1 for loaded ones.
  int32_t derived_from = -1;
  bool operator==(const Xf& o) const {
    // derived_from is provenance, not part of the format.
    return font == o.font && fill == o.fill && border == o.border && numfmt == o.numfmt &&
           xf_id == o.xf_id && align == o.align && locked == o.locked && hidden == o.hidden &&
           quote_prefix == o.quote_prefix && apply == o.apply;
  }
};

/// The style tables of a workbook. Append-only: indices and ids never change meaning. A new
/// workbook starts with the records every workbook has (font 0, fills "none" and "gray125",
/// an empty border, xf 0).
class StyleTable {
 public:
  StyleTable();

  std::vector<FontRec> fonts;
  std::vector<FillRec> fills;
  std::vector<BorderRec> borders;
  std::vector<Xf> xfs;
  /// Custom number formats by id (164 and up, or loaded ids that override nothing built in).
  std::map<uint32_t, String> numfmts;

  /// Clears everything, for a loader that fills the tables from a file (no default records).
  void clear();

  /// The index of an equal record, appending one when there is none.
  uint32_t font_index(const FontRec& f);
  uint32_t fill_index(const FillRec& f);
  uint32_t border_index(const BorderRec& b);
  uint32_t xf_index(const Xf& x);
  /// The id of a number format code: built-in id, existing custom id, or a new custom id.
  uint32_t numfmt_id(StringView code);
  /// The code of a number format id ("General" for unknown ids).
  String numfmt_code(uint32_t id) const;

  const Xf& xf(uint32_t index) const { return xfs[index < xfs.size() ? index : 0]; }
  const FontRec& font(uint32_t index) const { return fonts[index < fonts.size() ? index : 0]; }
  const FillRec& fill(uint32_t index) const { return fills[index < fills.size() ? index : 0]; }

  /// Set whenever a record is appended or the palette changes (the styles part must be
  /// rewritten).
  bool changed = false;

 private:
  template <class T>
  uint32_t find_or_add(std::vector<T>& table, std::unordered_multimap<size_t, uint32_t>& index,
                       size_t& indexed_upto, const T& rec, size_t hash);
  std::unordered_multimap<size_t, uint32_t> font_map_, fill_map_, border_map_, xf_map_;
  size_t indexed_fonts_ = 0, indexed_fills_ = 0, indexed_borders_ = 0, indexed_xfs_ = 0;
};

/// The default 56-colour palette (Workbook.Colors 1..56), as automation colours.
const std::array<int32_t, 56>& default_palette();

/// Theme colours in the order a theme lists them: dk1, lt1, dk2, lt2, accent1..6, hlink,
/// folHlink (as 0xRRGGBB).
using ThemePalette = std::array<uint32_t, 12>;
const ThemePalette& default_theme();

}  // namespace qz::engine
