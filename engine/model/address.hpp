// Cell addresses as text: reading "A1", "$A$1:B2", "A:A", "1:3" and sheet qualifiers, and
// writing addresses in A1 and R1C1 notation the way the application writes them.
#pragma once

#include <optional>
#include <vector>

#include "engine/model/cells.hpp"
#include "vocab/columns.hpp"

namespace qz::engine {

/// One area in A1 notation: "A1", "$B$2:C3", "A:C", "$2:$5" (no sheet, no union). Nothing
/// when the text is no such area or lies outside the sheet.
std::optional<Rect> parse_area(StringView text);

/// A reference split into its qualifier and areas.
struct QualifiedText {
  String workbook;  ///< "Book1.xlsx" from "[Book1.xlsx]Sheet1!A1", or ""
  String sheet;     ///< sheet name without quotes, or "" when unqualified
  String rest;      ///< what follows "!" (or everything)
};
/// Splits "'My Sheet'!A1", "Sheet1!Total", "[B.xlsx]S!A1", "'[B.xlsx]My S'!A1". Raises for an
/// unterminated quote.
QualifiedText split_qualifier(StringView text);

/// Splits at top-level commas (outside quotes and brackets).
std::vector<String> split_union(StringView text);

/// Whether a sheet name must be quoted in a reference ("My Sheet", "2024", "A1").
bool sheet_needs_quotes(StringView name);
/// The name as a reference prefix: "Sheet1!" or "'My Sheet'!".
String sheet_prefix(StringView name);

/// An area in A1 notation with the absolute switches ("$A$1:$B$2", "A:A", "$1:$3").
String area_a1(const Rect& r, bool row_abs, bool col_abs);
/// An area in R1C1 notation; relative parts are counted from `base`.
String area_r1c1(const Rect& r, bool row_abs, bool col_abs, CellRef base);

/// Whether a rectangle spans all rows / all columns of the sheet.
inline bool whole_columns(const Rect& r) {
  return r.row1 == 0 && r.row2 == kLastRow;
}
inline bool whole_rows(const Rect& r) {
  return r.col1 == 0 && r.col2 == kLastCol;
}

/// Normalises a rectangle given by any two corners.
inline Rect span(const Rect& a, const Rect& b) {
  return {std::min(a.row1, b.row1), std::min(a.col1, b.col1), std::max(a.row2, b.row2),
          std::max(a.col2, b.col2)};
}
std::optional<Rect> intersection(const Rect& a, const Rect& b);

/// Joins areas as the application writes a union: an area inside another goes; two areas that
/// share a full edge (same columns and touching rows, or same rows and touching columns)
/// become one. Repeats until nothing joins; the joined area takes the earlier one's place.
void join_areas(std::vector<Rect>& areas);

}  // namespace qz::engine
