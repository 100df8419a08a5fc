// A small workbook for the formula tests: sheets by name, cells holding values or formulas,
// defined names, a fixed clock. Formulas are calculated on demand, as the engine's workbook
// does, so tests can chain them.
#pragma once

#include <map>
#include <ostream>
#include <set>
#include <string>
#include <tuple>

#include "engine/calc/calc.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {

/// Readable values in test failures.
inline void PrintTo(const Value& v, std::ostream* os) {
  switch (v.kind) {
    case Value::Kind::Empty:
      *os << "Empty";
      break;
    case Value::Kind::Number:
      *os << "Number(" << v.number << ")";
      break;
    case Value::Kind::Text:
      *os << "Text(\"" << to_utf8(v.text) << "\")";
      break;
    case Value::Kind::Boolean:
      *os << (v.number != 0 ? "TRUE" : "FALSE");
      break;
    case Value::Kind::Error:
      *os << to_utf8(error_text(v.error_code()));
      break;
  }
}

}  // namespace qz::engine::calc

namespace qz::engine::calc::test {

/// "B12" to a 0-based cell.
inline CellRef cell(std::string_view a1) {
  int32_t col = 0, row = 0;
  size_t i = 0;
  while (i < a1.size() && a1[i] >= 'A' && a1[i] <= 'Z') col = col * 26 + (a1[i++] - 'A' + 1);
  while (i < a1.size()) row = row * 10 + (a1[i++] - '0');
  return CellRef{row - 1, col - 1};
}

/// A 0-based cell as "B12".
inline std::string a1(CellRef c) {
  std::string letters;
  for (int32_t v = c.col + 1; v > 0; v = (v - 1) / 26)
    letters.insert(letters.begin(), char('A' + (v - 1) % 26));
  return letters + std::to_string(c.row + 1);
}

class TestBook : public EvalContext, public SheetResolver {
 public:
  explicit TestBook(std::vector<std::string> sheet_names = {"Sheet1", "Sheet2", "Sheet3"}) {
    for (auto& n : sheet_names) sheets_.push_back(u16(n));
  }

  /// When set, any sheet name a formula mentions is created on the fly (for corpus text).
  bool create_sheets = false;
  double clock = 46000.75;  // 9 December 2025, 18:00
  bool use_1904 = false;

  SheetId id(std::string_view name) const { return *sheet_id(u16(name)); }

  void set(std::string_view a1, Value v, SheetId sheet = 0) {
    CellRef c = cell(a1);
    formulas_.erase({sheet, c.row, c.col});
    if (v.kind == Value::Kind::Empty)
      values_.erase({sheet, c.row, c.col});
    else
      values_[{sheet, c.row, c.col}] = std::move(v);
  }
  void set(std::string_view a1, double d, SheetId sheet = 0) { set(a1, Value::num(d), sheet); }
  void set(std::string_view a1, const char16_t* s, SheetId sheet = 0) {
    set(a1, Value::str(s), sheet);
  }
  void set_bool(std::string_view a1, bool b, SheetId sheet = 0) {
    set(a1, Value::boolean(b), sheet);
  }

  /// Puts a formula (without "=") in a cell.
  void formula(std::string_view a1, std::u16string_view text, SheetId sheet = 0) {
    CellRef c = cell(a1);
    formulas_[{sheet, c.row, c.col}] = parse(text, Notation::A1, c, sheet, *this);
    values_[{sheet, c.row, c.col}] = Value::num(0);  // occupies the cell
  }

  /// Defines a name referring to `text` (parsed at A1 of `home`); scope -1 is the workbook.
  void define(std::u16string_view name, std::u16string_view text, SheetId scope = kNoSheet) {
    SheetId home = scope == kNoSheet ? 0 : scope;
    NameDefinition d{parse(text, Notation::A1, CellRef{0, 0}, home, *this), scope};
    names_[{to_upper(name), scope}] = d;
  }

  /// Evaluates formula text as if it were in `at` on `sheet`.
  Value eval(std::u16string_view text, std::string_view at = "Z100", SheetId sheet = 0) {
    CellRef c = cell(at);
    auto f = parse(text, Notation::A1, c, sheet, *this);
    return evaluate(*f, c, sheet, *this);
  }

  // ---- SheetResolver -------------------------------------------------------------------

  std::optional<SheetId> sheet_id(StringView name) const override {
    for (size_t i = 0; i < sheets_.size(); ++i)
      if (equals_text(sheets_[i], name)) return static_cast<SheetId>(i);
    if (create_sheets) {
      sheets_.emplace_back(name);
      return static_cast<SheetId>(sheets_.size() - 1);
    }
    return std::nullopt;
  }
  String sheet_name(SheetId id) const override {
    if (id < 0 || id >= static_cast<SheetId>(sheets_.size())) return String();
    return sheets_[id];
  }
  std::vector<SheetId> sheets_between(SheetId first, SheetId last) const override {
    std::vector<SheetId> out;
    for (SheetId s = std::min(first, last); s <= std::max(first, last); ++s) out.push_back(s);
    return out;
  }
  void rename(SheetId id, std::string_view name) { sheets_[id] = u16(name); }

  // ---- EvalContext ---------------------------------------------------------------------

  Value cell_value(SheetId sheet, CellRef c) override {
    auto key = std::make_tuple(sheet, c.row, c.col);
    auto f = formulas_.find(key);
    if (f != formulas_.end()) {
      if (busy_.count(key)) return values_[key];  // a circle: the last value
      busy_.insert(key);
      Value v = evaluate(*f->second, c, sheet, *this);
      busy_.erase(key);
      values_[key] = v;
      return v;
    }
    auto it = values_.find(key);
    return it == values_.end() ? Value::empty() : it->second;
  }
  void for_each_value(SheetId sheet, const Rect& area,
                      const std::function<void(CellRef, const Value&)>& visit) override {
    auto it = values_.lower_bound({sheet, area.row1, area.col1});
    std::vector<CellRef> hits;
    for (; it != values_.end(); ++it) {
      auto [s, r, c] = it->first;
      if (s != sheet || r > area.row2) break;
      if (c >= area.col1 && c <= area.col2) hits.push_back(CellRef{r, c});
    }
    for (CellRef c : hits) {
      Value v = cell_value(sheet, c);
      if (v.kind != Value::Kind::Empty) visit(c, v);
    }
  }
  CellRef used_extent(SheetId sheet) override {
    CellRef e{-1, -1};
    for (auto& [k, v] : values_) {
      if (std::get<0>(k) != sheet) continue;
      e.row = std::max(e.row, std::get<1>(k));
      e.col = std::max(e.col, std::get<2>(k));
    }
    return e;
  }
  std::optional<NameDefinition> name(StringView text, SheetId scope) override {
    String key = to_upper(text);
    auto it = names_.find({key, scope});
    if (it != names_.end()) return it->second;
    it = names_.find({key, kNoSheet});
    if (it != names_.end()) return it->second;
    return std::nullopt;
  }
  FormulaPtr formula_at(SheetId sheet, CellRef c) override {
    auto it = formulas_.find({sheet, c.row, c.col});
    return it == formulas_.end() ? nullptr : it->second;
  }
  bool row_hidden(SheetId sheet, int32_t row) override { return hidden_.count({sheet, row}) > 0; }
  /// Hides a row (1-based, as shown).
  void hide_row(int32_t row1, SheetId sheet = 0) { hidden_.insert({sheet, row1 - 1}); }
  std::optional<TableDefinition> table(StringView text) override {
    for (const TableDefinition& t : tables)
      if (equals_text(t.name, text)) return t;
    return std::nullopt;
  }
  std::optional<TableDefinition> table_at(SheetId sheet, CellRef c) override {
    for (const TableDefinition& t : tables)
      if (t.sheet == sheet && t.range.contains(c)) return t;
    return std::nullopt;
  }
  std::vector<TableDefinition> tables;
  const SheetResolver& sheets() override { return *this; }
  bool date1904() override { return use_1904; }
  double now() override { return clock; }

 private:
  mutable std::vector<String> sheets_;
  std::map<std::tuple<SheetId, int32_t, int32_t>, Value> values_;
  std::map<std::tuple<SheetId, int32_t, int32_t>, FormulaPtr> formulas_;
  std::set<std::tuple<SheetId, int32_t, int32_t>> busy_;
  std::set<std::pair<SheetId, int32_t>> hidden_;
  std::map<std::pair<String, SheetId>, NameDefinition> names_;
};

/// Value constructors that read well in expectations.
inline Value N(double d) {
  return Value::num(d);
}
inline Value S(const char16_t* s) {
  return Value::str(s);
}
inline Value B(bool b) {
  return Value::boolean(b);
}
inline Value E(int32_t code) {
  return Value::error(code);
}

}  // namespace qz::engine::calc::test
