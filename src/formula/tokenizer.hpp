// The formula tokenizer behind both public entries of iFormula. It works on the text alone
// and needs no application unless it is asked to replace multi-cell references, which it
// expands through the session's iRange.SplitRange.
#pragma once

#include "qzxl/types.hpp"

namespace qz::formula {

/// How one formula is read.
struct ParseMode {
  /// R1C1 notation: text between "[" and "]" is never cut, so the minus of R[-1]C stays.
  bool r1c1 = false;
  /// Mark references IsRange (every public entry does); otherwise IsObjectKey, and no
  /// reference is ever replaced.
  bool mark_ranges = true;
  /// Strip blanks around operands (their StartPos then points at the first non-blank).
  bool trim = true;
  /// Leave the formula text alone; when false, each reference holding ":" is replaced in
  /// the formula by the comma-separated list of its cells.
  bool keep_ranges = true;
};

/// True for one of the twelve operator characters that cut a formula: * + - / ^ < = > & ( ) ,
/// (a blank, ":", "!", "%", "[" and "]" do not cut).
constexpr bool is_break_char(char16_t c) noexcept {
  switch (c) {
    case u'*':
    case u'+':
    case u'-':
    case u'/':
    case u'^':
    case u'<':
    case u'=':
    case u'>':
    case u'&':
    case u'(':
    case u')':
    case u',':
      return true;
    default:
      return false;
  }
}

/// Cuts `formula` into `pieces` (cleared first). Text not starting with "=" is one piece.
/// With `mode.keep_ranges` false, `formula` is rewritten and every StartPos refers to the
/// rewritten text. Never throws on any text; a reference that cannot be expanded is cut out
/// of the rewritten text, while its piece keeps the reference's text.
void parse_formula(String& formula, FmlaPieces& pieces, const ParseMode& mode);

}  // namespace qz::formula
