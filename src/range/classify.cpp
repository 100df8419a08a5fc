// Cell classification: what a cell holds, and whether it is a typed-in input.
#include "qzxl/convert.hpp"
#include "range/range.hpp"
#include "range/support.hpp"

namespace qz {

using range_support::xl;

QZCellType iRange::CellType(const host::RangePtr& vRange) {
  // A worksheet formula that reaches this method recalculates on every calculation.
  step([] { xl().volatile_(true); });
  host::RangePtr cell;
  step([&] { cell = require(vRange)->range(Variant(u"A1")); });

  // Each test reads as False when its host call fails, and evaluation falls through.
  Variant value;
  const bool have_value = step([&] { value = require(cell)->value(); });
  if (have_value && value.is_empty()) return CellEmpty;
  // The three tests share one argument and one WorksheetFunction: this runs for every cell
  // of a colouring run.
  host::WorksheetFunctionPtr functions;
  step([&] { functions = xl().worksheet_function(); });
  const Variant argument = cell ? Variant(ObjectPtr(cell)) : Variant();
  auto worksheet_test = [&](bool (host::WorksheetFunction::*test)(const Variant&)) {
    return value_or(false, [&] {
      require(cell);
      return (*require(functions).*test)(argument);
    });
  };
  if (worksheet_test(&host::WorksheetFunction::is_text)) return CellText;
  if (worksheet_test(&host::WorksheetFunction::is_logical)) return CellBool;
  if (worksheet_test(&host::WorksheetFunction::is_error)) return CellErr;

  // Dates, date-times and times are told apart by two facts only: whether the value comes
  // back as a date, and whether the displayed text shows a colon. A date value shown as a
  // time alone ("9:30") is therefore a date-time.
  auto shows_colon = [&] {
    return value_or(false, [&] { return instr(1, require(cell)->text(), u":") > 0; });
  };
  if (have_value && is_date(value)) return shows_colon() ? CellDateTime : CellDate;
  if (shows_colon()) return CellTime;
  if (have_value && is_numeric(value)) return CellNumeric;
  return CellUnknown;
}

bool iRange::IsInput(const host::RangePtr& vCell) {
  host::RangePtr cell;
  step([&] { cell = require(vCell)->cell(1, 1); });
  if (!cell) return false;

  Variant value;
  if (step([&] { value = cell->value(); }) && !is_numeric(value)) return false;
  const QZCellType type = CellType(cell);
  if (type == CellDate || type == CellDateTime || type == CellTime) return false;

  String typed;
  step([&] { typed += cell->prefix_character(); });
  step([&] { typed += cell->formula(); });
  if (typed.empty() || typed.front() != u'=') return true;

  // A formula is calculated when any letter appears in it (a reference, a name, a function,
  // even an exponent's "E"); one of digits, operators, parentheses, points and blanks alone
  // is a typed number written as arithmetic, and so an input.
  for (size_t i = 1; i < typed.size(); ++i) {
    char16_t c = typed[i];
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    if (c >= u'A' && c <= u'Z') return false;
  }
  return true;
}

}  // namespace qz
