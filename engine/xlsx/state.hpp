// What the file layer keeps between loading a workbook and saving it: the package it came
// from (every unchanged part is copied from there) and, per part, just enough to patch a
// changed part in place of regenerating it.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "engine/model/book.hpp"
#include "engine/xlsx/package.hpp"

namespace qz::engine::xlsx {

/// Per worksheet or chart sheet.
struct SheetState {
  std::string part;      ///< "xl/worksheets/sheet1.xml"
  std::string rel_id;    ///< the workbook relationship that names it
  std::string sheet_id;  ///< the sheetId attribute in the workbook part
  /// Where <sheetData> begins and ends in the part's text (npos when it has none); a save
  /// that changes cells replaces exactly this span.
  size_t data_begin = std::string::npos;
  size_t data_end = std::string::npos;
  /// The part's text before and after <sheetData> (all of it in `head` when it has none).
  std::string head, tail;
  /// Attributes of value cells the model does not describe (cm, vm, ph), by position. Formula
  /// cells keep theirs in FileFormula.
  std::map<std::pair<int32_t, int32_t>, std::vector<std::pair<std::string, std::string>>>
      cell_attrs;
  /// Hyperlink relationship ids and their targets as loaded.
  std::map<std::string, std::string> hyperlink_targets;
  /// The drawing part holding the sheet's chart objects, and each object's name as loaded
  /// (by ChartObjectRec::file_key).
  std::string drawing_part;
  std::map<String, String> chart_names;
  /// The part's root element name ("worksheet"; macro sheets and dialog sheets differ).
  std::string root;
  /// Formula cells as loaded (or last saved); a different count means formulas changed.
  size_t formulas = 0;
};

/// Per workbook.
struct BookState {
  std::shared_ptr<const Package> package;
  std::string workbook_part;
  std::string styles_part;        ///< "" when the package has none
  std::string strings_part;       ///< "" when the package has none
  std::string custom_props_part;  ///< "" when the package has none
  /// Style table sizes: how many records the styles part holds (records past these are
  /// appended when the part is written), and how many the model held after loading (it
  /// supplies a record 0 where the part has none; the part is written only when the engine
  /// added records since).
  struct Counts {
    size_t fonts = 0, fills = 0, borders = 0, xfs = 0;
    friend bool operator==(const Counts&, const Counts&) = default;
  };
  Counts in_file, in_model;
  std::unordered_set<uint32_t> numfmt_ids;
  std::array<int32_t, 56> palette{};
  bool custom_palette = false;
  /// Shared strings as loaded; pool entries past this were added since.
  size_t strings = 0;
  /// Shared strings in the package (those loaded plus those earlier saves appended), and
  /// where earlier saves put pool entries they appended.
  size_t strings_in_file = 0;
  std::map<uint32_t, uint32_t> appended_strings;
  /// Pool entries that came from inline strings (written back inline, not shared).
  std::unordered_set<uint32_t> inline_strings;
  /// Custom properties as loaded, to tell whether they changed.
  std::vector<CustomProperty> props;
  /// Sheets as loaded: their workbook relationship ids and parts (a sheet deleted since is
  /// dropped from the package), and how many there were.
  std::vector<std::pair<std::string, std::string>> sheet_parts;
  size_t sheets_loaded = 0;
};

}  // namespace qz::engine::xlsx
