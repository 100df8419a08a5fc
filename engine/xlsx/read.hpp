// The loader's working state (internal to the workbook layer).
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "engine/model/book.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/state.hpp"
#include "engine/xlsx/xml_scan.hpp"

namespace qz::engine::xlsx {

/// Text as UTF-16, quickly when it is ASCII (as formulas nearly always are).
String widen(std::string_view s);

class Loader {
 public:
  /// `parse_uncached`: parse the formulas kept without a value while reading their sheets.
  explicit Loader(std::shared_ptr<const Package> pkg, bool parse_uncached = false);
  /// Reads the whole package into a new Book named `book_name`.
  BookPtr run(String book_name);

 private:
  std::string where(std::string_view part) const;
  [[noreturn]] void fail(std::string_view part, const std::string& problem) const;

  void read_workbook();
  void read_theme(const std::string& part);
  void read_styles();
  void read_strings(const std::string& part);
  void read_rich(XmlScanner& x, String& text, std::vector<Run>& runs);
  // One sheet's part being read. Worksheets are read side by side, so what reading one would
  // add to the workbook waits here until `merge_sheet` hands it over, in sheet order.
  struct SheetJob {
    enum class Kind { Worksheet, Chart, Dialog };
    SheetJob(Sheet& sheet, SheetState& state, Kind k) : s(sheet), ss(state), kind(k) {}
    Sheet& s;
    SheetState& ss;
    Kind kind;
    Book::SheetLoad formulas;
    // Inline texts, numbered in the order read: the cells holding them carry kLocalText |
    // that number until the texts join the workbook's pool.
    std::vector<std::pair<String, std::vector<Run>>> texts;
    std::vector<CellRef> text_cells;
    // Formulas without a value, parsed ahead, by slot (with a cache of the sheet's own).
    std::vector<std::pair<uint32_t, calc::FormulaPtr>> parses;
    std::exception_ptr error;  // what stopped the reading
  };
  static constexpr uint32_t kLocalText = 1u << 31;
  void read_sheets(std::vector<std::unique_ptr<SheetJob>>& jobs);
  void read_sheet(SheetJob& job);
  void merge_sheet(SheetJob& job);
  void parse_ahead(SheetJob& job);
  void read_worksheet(SheetJob& job);
  void read_sheet_extras(Sheet& s, SheetState& ss, bool dialog);
  void read_drawing(Sheet& s, SheetState& ss, const std::string& part);
  void read_table(Sheet& s, const std::string& part);
  void read_selection(XmlScanner& x, Sheet& s);
  void read_cols(XmlScanner& x, Sheet& s);
  void read_rows(XmlScanner& x, SheetJob& job, PartBuffer* buffer);
  // One cell as read, before it goes into the model.
  struct CellData {
    int32_t row = 0, col = 0;
    uint32_t style = 0;
    std::string_view type = "n";  // views into the part's text, or into value_store
    bool has_v = false, has_is = false;
    std::string_view value;
    std::string value_store;
    std::unique_ptr<FileFormula> ff;
    String is_text;
    std::vector<Run> is_runs;
    std::vector<std::pair<std::string, std::string>> extra;
  };
  int32_t read_cell(XmlScanner& x, SheetJob& job, int32_t row, int32_t col);
  bool read_plain_cell(XmlScanner& x, SheetJob& job, int32_t row, int32_t& col);
  void store_cell(XmlScanner& x, SheetJob& job, CellData& d);
  void read_custom_props(const std::string& part);
  void read_external_link(const std::string& part, ExternalLink& link);

  std::shared_ptr<const Package> pkg_;
  std::shared_ptr<BookState> state_;
  BookPtr book_;
  std::vector<Relationship> workbook_rels_;
  bool parse_uncached_ = false;
};

}  // namespace qz::engine::xlsx
