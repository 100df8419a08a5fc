// Listings of a client's keys, macros and hot keys in a worksheet.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// Listings of a client's keys, macros and hot keys in a worksheet.
///
/// Each member writes its array as a list a person can read and filter:
///  - the top label (default "Quazel") in A1, bold;
///  - a header row in row 3, bold, with the filter buttons on it: "Key", "Description" for
///    keys; "Macro", "Description" for macros; "Hot Key", "Macro", "Description" for hot keys
///    (columns beyond those are headed "Column 4", "Column 5", ...);
///  - one row per entry from row 4, every column fitted to its longest text.
///
/// The array is one-dimensional, one element per entry. An element that is itself an array
/// gives the entry's columns in order (a two-dimensional array arrives as rows of columns, the
/// first index being the entry); a plain value fills the first column alone. Entries with
/// nothing in them are left out, so that the list has no gaps for the filter to stop at.
/// Texts are written as text, never as formulas, whatever they begin with ("+^A", "=x").
///
/// `vWks` is the sheet to write on, the active sheet when it is missing (nothing is written
/// when that is a chart sheet or no workbook is open). Its working area (`iWorksheet.
/// QZUsedRange`, from A1 to its last cell) is cleared first. A value that is no array writes
/// nothing. The sheet is left active with A1 selected.
class iDisplay final : public _iDisplay {
 public:
  String type_name() const override { return u"iDisplay"; }
  void DisplayKeyArray(const Variant& vKeyArray, const host::WorksheetPtr& vWks,
                       const String& vTopLabel) override;
  void DisplayMacroArray(const Variant& vMacroArray, const host::WorksheetPtr& vWks,
                         const String& vTopLabel) override;
  void DisplayHotKeyArray(const Variant& vHotKeyArray, const host::WorksheetPtr& vWks,
                          const String& vTopLabel) override;
};

}  // namespace qz
