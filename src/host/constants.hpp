// The application's enumeration values that the library and the hosts use, by the
// application's numbers.
#pragma once

#include <cstdint>

namespace qz::host {

/// The application's enumeration values that the library uses.
namespace xl {
inline constexpr int32_t ToLeft = -4159;
inline constexpr int32_t ToRight = -4161;
inline constexpr int32_t Up = -4162;
inline constexpr int32_t Down = -4121;
inline constexpr int32_t CalculationManual = -4135;
inline constexpr int32_t CalculationAutomatic = -4105;
inline constexpr int32_t CalculationSemiautomatic = 2;
inline constexpr int32_t Worksheet = -4167;
inline constexpr int32_t Chart = -4109;
inline constexpr int32_t A1 = 1;
inline constexpr int32_t R1C1 = -4150;
inline constexpr int32_t Screen = 1;
inline constexpr int32_t Printer = 2;
inline constexpr int32_t Bitmap = 2;
inline constexpr int32_t Picture = -4147;
inline constexpr int32_t ColorIndexAutomatic = -4105;
inline constexpr int32_t ColorIndexNone = -4142;
inline constexpr int32_t UnderlineStyleNone = -4142;
inline constexpr int32_t UnderlineStyleSingle = 2;
inline constexpr int32_t UnderlineStyleDouble = -4119;
inline constexpr int32_t UnderlineStyleSingleAccounting = 4;
inline constexpr int32_t UnderlineStyleDoubleAccounting = 5;
inline constexpr int32_t HAlignGeneral = 1;
inline constexpr int32_t HAlignLeft = -4131;
inline constexpr int32_t HAlignCenter = -4108;
inline constexpr int32_t HAlignRight = -4152;
inline constexpr int32_t ShiftDown = -4121;
inline constexpr int32_t ShiftToRight = -4161;
inline constexpr int32_t ShiftUp = -4162;
inline constexpr int32_t ShiftToLeft = -4159;
inline constexpr int32_t SheetVisible = -1;
inline constexpr int32_t SheetHidden = 0;
inline constexpr int32_t SheetVeryHidden = 2;
inline constexpr int32_t DialogFormatNumber = 42;
}  // namespace xl

/// Office command-bar enumeration values.
namespace mso {
inline constexpr int32_t ControlButton = 1;
inline constexpr int32_t ControlPopup = 10;
inline constexpr int32_t ButtonUp = 0;
inline constexpr int32_t ButtonDown = -1;
inline constexpr int32_t BarTop = 1;
inline constexpr int32_t BarFloating = 4;
inline constexpr int32_t BarTypeNormal = 0;
inline constexpr int32_t BarTypeMenuBar = 1;
inline constexpr int32_t BarTypePopup = 2;
inline constexpr int32_t IdFile = 30002;
inline constexpr int32_t IdEdit = 30003;
inline constexpr int32_t IdView = 30004;
inline constexpr int32_t IdInsert = 30005;
inline constexpr int32_t IdFormat = 30006;
inline constexpr int32_t IdTools = 30007;
inline constexpr int32_t IdWindow = 30009;
inline constexpr int32_t IdHelp = 30010;
inline constexpr int32_t IdData = 30011;
inline constexpr int32_t IdFileNew = 18;
inline constexpr int32_t IdUndo = 128;
inline constexpr int32_t IdRedo = 129;
}  // namespace mso

}  // namespace qz::host
