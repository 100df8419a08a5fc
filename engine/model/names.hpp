// A workbook's defined names: the records as a file lists them, and the table that holds them.
// The table keeps what the records alone cannot: the enumeration order collections walk the
// names in, cached between changes, which only stays right if every change goes through it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "engine/calc/calc.hpp"
#include "qzxl/variant.hpp"

namespace qz::engine {

using calc::SheetId;

/// A defined name.
struct DefinedName {
  String name;                     ///< without sheet qualifier
  SheetId scope = calc::kNoSheet;  ///< the sheet of a sheet-level name
  bool hidden = false;
  String comment;
  String formula;           ///< what it refers to, A1 text without "="
  calc::FormulaPtr parsed;  ///< parsed `formula` relative to A1; nullptr when the text
                            ///< does not parse (kept as text)
  /// Attributes the model does not describe (function, vbProcedure, shortcutKey, ...).
  std::vector<std::pair<String, String>> attrs;
};

/// The defined names of a workbook, in the order they were added (a file's order). A name is
/// found by its text (without regard to case) and scope; its index holds until a name before
/// it is removed.
class NameTable {
 public:
  /// A sheet's position in tab order: sheet-level names of one text sort by it.
  using SheetPosition = std::function<int32_t(SheetId)>;

  size_t size() const { return names_.size(); }
  const DefinedName& operator[](size_t index) const { return names_[index]; }
  std::vector<DefinedName>::const_iterator begin() const { return names_.begin(); }
  std::vector<DefinedName>::const_iterator end() const { return names_.end(); }

  /// Index of the name of that text at exactly that scope.
  std::optional<size_t> find(StringView text, SheetId scope) const;
  /// The name as a formula sees it from `from`: sheet-level first, then workbook-level.
  const DefinedName* resolve(StringView text, SheetId from) const;
  /// Indices in enumeration order (see Book::sorted_names); `scope` filters to one sheet's.
  std::vector<size_t> sorted(const SheetPosition& position,
                             std::optional<SheetId> scope = std::nullopt) const;

  /// Appends a name (no check for another of that text and scope); returns its index.
  size_t add(DefinedName name);
  void erase(size_t index);
  /// Removes the names of one sheet's scope (the sheet is gone).
  void erase_scope(SheetId scope);
  void rename(size_t index, String text);
  void set_hidden(size_t index, bool hidden);
  /// Replaces what a name refers to.
  void set_definition(size_t index, String formula, calc::FormulaPtr parsed);
  /// Sheets were added, removed or reordered: sheet-level names sort anew.
  void sheets_changed() { ++generation_; }

 private:
  std::vector<DefinedName> names_;
  // Collections walk the names by index, one lookup at a time, so the order is kept until a
  // change to the names (or the sheets) makes it stale.
  uint64_t generation_ = 0;
  mutable uint64_t sorted_generation_ = UINT64_MAX;
  mutable std::vector<size_t> sorted_;
};

}  // namespace qz::engine
