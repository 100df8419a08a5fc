// The public record type, enumeration and constant values of the library.
#pragma once

#include <cstdint>
#include <vector>

#include "qzxl/variant.hpp"

namespace qz {

/// What a cell holds, as `iRange.CellType` reports it.
enum QZCellType : int32_t {
  CellUnknown = 0,
  CellEmpty = 1,
  CellText = 2,
  CellBool = 3,
  CellErr = 4,
  CellDate = 5,
  CellDateTime = 6,
  CellTime = 7,
  CellNumeric = 8,
};

/// One piece of a parsed formula. Arrays of pieces are 1-based at the automation boundary;
/// in C++ they are vectors whose element 0 is piece 1.
struct FmlaPiece {
  String ThePiece;
  int32_t StartPos = 0;  ///< 1-based position of the piece's first character in the formula
  bool IsOperator = false;
  bool IsFunction = false;
  bool IsRange = false;
  bool IsObjectKey = false;
  bool IsValue = false;
  bool IsSimpleText = false;
  friend bool operator==(const FmlaPiece&, const FmlaPiece&) = default;
};
using FmlaPieces = std::vector<FmlaPiece>;

/// The values behind `iXLLibConst` (colours are red + 256 * green + 65536 * blue).
namespace consts {
inline constexpr int32_t qzDarkGreen = 32768;
inline constexpr int32_t qzPlum = 6697881;
inline constexpr int32_t qzOrange = 26367;
inline constexpr bool qzDefaultAutoColorOn = true;
inline constexpr bool qzDefaultAutoColorHyperlinks = true;
inline constexpr bool qzDefaultAutoColorText = false;
inline constexpr bool qzDefaultAutoColorDates = false;
inline constexpr int32_t qzDefaultInputColor = 16711680;
inline constexpr int32_t qzDefaultPartialInputColor = 255;
inline constexpr int32_t qzDefaultFormulaColor = 0;
inline constexpr int32_t qzDefaultWksLinkColor = 0;
inline constexpr int32_t qzDefaultWkbLinkColor = 255;
inline constexpr int32_t qzDefaultHyperLinkColor = 6697881;
inline constexpr int32_t qzDefaultDummyNumberColor = 255;
}  // namespace consts

/// The title of the library's message boxes.
inline constexpr char16_t kMsgBoxTitle[] = u"Quazel";

/// Message-box styles and answers, as the runtime numbers them.
namespace msgbox {
inline constexpr int32_t OKOnly = 0;
inline constexpr int32_t OKCancel = 1;
inline constexpr int32_t AbortRetryIgnore = 2;
inline constexpr int32_t YesNoCancel = 3;
inline constexpr int32_t YesNo = 4;
inline constexpr int32_t RetryCancel = 5;
inline constexpr int32_t Critical = 16;
inline constexpr int32_t Question = 32;
inline constexpr int32_t Exclamation = 48;
inline constexpr int32_t Information = 64;
inline constexpr int32_t OK = 1;
inline constexpr int32_t Cancel = 2;
inline constexpr int32_t Abort = 3;
inline constexpr int32_t Retry = 4;
inline constexpr int32_t Ignore = 5;
inline constexpr int32_t Yes = 6;
inline constexpr int32_t No = 7;
}  // namespace msgbox

}  // namespace qz
