// Reading and colouring many cells of a range without an object per cell. A host whose
// ranges can answer for their cells in place offers this beside `Range`; a caller that finds
// it missing (another host, or a range wrapped by `host::intercept`) walks the cells one
// `Range` at a time, which gives the same answers.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "qzxl/variant.hpp"

namespace qz::host {

/// What a scan reads of one cell whose `Value` is not Empty. Every answer is what the same
/// member of that one cell's `Range` gives; an answer that cannot be read is left as it is
/// here.
struct ScannedCell {
  /// The sheet row and column (1-based).
  int32_t row = 0, column = 0;
  Variant value;
  /// `PrefixCharacter`.
  String prefix;
  /// `Formula` when it can start with "=" (formulas and texts); "" for numbers, Booleans and
  /// errors, whose `Formula` is their value written out.
  String formula;
  /// `Hyperlinks.Count`, when asked for.
  int32_t hyperlinks = 0;
  /// Whether `Text`, the value as it is shown, holds a colon (as times do): asked for, it is
  /// read for values that are neither texts, Booleans, errors nor dates.
  bool shows_colon = false;
  /// `Font.Color`, when asked for; Null when it cannot be read.
  Variant font_color = Variant::null();
};

/// Which of the optional answers a scan reads.
struct ScanRequest {
  bool hyperlinks = false;
  bool colons = false;
  bool font_colors = false;
  /// The visitor reaches no host object while the scan runs, so the host may read cells
  /// ahead of it on another thread; the visitor is still called on the caller's thread, in
  /// order.
  bool visitor_stays_out = false;
};

/// One colour to set: the cell's sheet row and column (1-based) and the colour.
struct Paint {
  int32_t row = 0, column = 0, colour = 0;
};

/// The cells of one range, addressed by their sheet row and column (1-based).
class CellScan {
 public:
  virtual ~CellScan() = default;

  /// Visits the cells whose `Value` is not Empty, row by row, left to right, with what
  /// `request` asks of them; stops when `visit` returns false. False, visiting nothing, when
  /// this range cannot be walked so (whole rows or columns, for instance): the caller then
  /// walks it cell by cell. A value that cannot be read ends the scan with the host's error,
  /// after the cells before it were visited.
  virtual bool scan(const ScanRequest& request,
                    const std::function<bool(const ScannedCell& cell)>& visit) = 0;
  /// `Formula`, when it can start with "=": as `ScannedCell::formula`, for one cell.
  virtual std::optional<String> formula(int32_t row, int32_t column) = 0;
  /// Sets `Font.Color` of each cell as that member does, in the order given; a colour that
  /// cannot be set is skipped. A cell whose row or column is hidden is handed to `hidden` at
  /// its turn instead and left to it.
  virtual void set_font_colors(const std::vector<Paint>& paints,
                               const std::function<void(const Paint& paint)>& hidden) = 0;
};

}  // namespace qz::host
