// The loader's working state (internal to the workbook layer).
#pragma once

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
  explicit Loader(std::shared_ptr<const Package> pkg);
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
  void read_worksheet(Sheet& s, SheetState& ss);
  void read_sheet_extras(Sheet& s, SheetState& ss, bool dialog);
  void read_drawing(Sheet& s, SheetState& ss, const std::string& part);
  void read_selection(XmlScanner& x, Sheet& s);
  void read_cols(XmlScanner& x, Sheet& s);
  void read_rows(XmlScanner& x, Sheet& s, SheetState& ss, PartBuffer* buffer);
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
  int32_t read_cell(XmlScanner& x, Sheet& s, SheetState& ss, int32_t row, int32_t col);
  bool read_plain_cell(XmlScanner& x, Sheet& s, SheetState& ss, int32_t row, int32_t& col);
  void store_cell(XmlScanner& x, Sheet& s, SheetState& ss, CellData& d);
  void read_custom_props(const std::string& part);

  std::shared_ptr<const Package> pkg_;
  std::shared_ptr<BookState> state_;
  BookPtr book_;
  std::vector<Relationship> workbook_rels_;
};

}  // namespace qz::engine::xlsx
