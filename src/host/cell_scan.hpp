// Reading and colouring many cells of a range without an object per cell. A host whose
// ranges can answer for their cells in place offers this beside `Range`; a caller that finds
// it missing (another host, or a range wrapped by `host::intercept`) walks the cells one
// `Range` at a time, which gives the same answers.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "qzxl/variant.hpp"

namespace qz::host {

/// The cells of one range, addressed by their sheet row and column (1-based). Every read
/// answers as the same member of that one cell's `Range` would.
class CellScan {
 public:
  virtual ~CellScan() = default;

  /// Visits the cells whose `Value` is not Empty, row by row, left to right, with their
  /// value; stops when `visit` returns false. False, visiting nothing, when this range cannot
  /// be walked so (whole rows or columns, for instance): the caller then walks it cell by
  /// cell.
  virtual bool scan(
      const std::function<bool(int32_t row, int32_t column, const Variant& value)>& visit) = 0;
  /// `Formula`, when it can start with "=": formulas and texts; nothing for numbers, Booleans
  /// and errors, whose `Formula` is their value written out.
  virtual std::optional<String> formula(int32_t row, int32_t column) = 0;
  /// `PrefixCharacter`.
  virtual String prefix_character(int32_t row, int32_t column) = 0;
  /// Whether `Text`, the value as it is shown, holds a colon (as times do).
  virtual bool shows_colon(int32_t row, int32_t column) = 0;
  /// `Hyperlinks.Count`.
  virtual int32_t hyperlinks(int32_t row, int32_t column) = 0;
  /// Whether the cell's row or column is hidden.
  virtual bool line_hidden(int32_t row, int32_t column) = 0;
  /// `Font.Color`.
  virtual Variant font_color(int32_t row, int32_t column) = 0;
  /// Sets `Font.Color` as that member does, in the order called.
  virtual void set_font_color(int32_t row, int32_t column, int32_t colour) = 0;
};

}  // namespace qz::host
