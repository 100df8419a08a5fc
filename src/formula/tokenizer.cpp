#include "formula/tokenizer.hpp"

#include <vector>

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"

namespace qz::formula {

namespace {

// One operand is classified in a fixed order; the first test that holds decides, so a
// piece never carries two flags.
void classify_operand(FmlaPiece& piece, StringView text, bool followed_by_paren, bool mark_ranges) {
  if (followed_by_paren) {
    piece.IsFunction = true;
  } else if (text.front() == u'"' && text.back() == u'"') {
    // A lone double quote is both its own first and last character.
    piece.IsSimpleText = true;
  } else if (parse_number(text)) {
    piece.IsValue = true;
  } else if (instr_text(1, text, u"#REF!") > 0) {
    // A broken reference is neither a value nor something that can be followed.
  } else if (mark_ranges) {
    piece.IsRange = true;
  } else {
    piece.IsObjectKey = true;
  }
}

// Expands the reference `segment` (untrimmed, as it stands in the formula) into its cells
// and splices them into `formula` after the operator at `op_pos` (1-based, in rewritten
// coordinates). `rest` is the original text from the next operator on. Appends the cell
// pieces after `piece`. Returns the change in length, or nothing when the reference could
// not be expanded: an unresolvable reference then stays in the formula as written rather
// than being cut out of it.
std::optional<int32_t> replace_range(String& formula, FmlaPieces& pieces, FmlaPiece piece,
                                     StringView segment, int32_t op_pos, StringView rest) {
  std::vector<String> parts;
  int32_t change = 0;
  String replacement = value_or(String(), [&] {
    return frame::session().LibRange->SplitRange(String(segment), parts, &change, false);
  });
  if (replacement.empty() || parts.empty()) return std::nullopt;

  String rewritten;
  rewritten.reserve(static_cast<size_t>(op_pos) + replacement.size() + rest.size());
  rewritten.append(StringView(formula).substr(0, static_cast<size_t>(op_pos)));
  rewritten.append(replacement);
  rewritten.append(rest);
  formula = std::move(rewritten);

  piece.ThePiece = std::move(parts[0]);
  int32_t next_pos = piece.StartPos + static_cast<int32_t>(piece.ThePiece.size());
  pieces.push_back(std::move(piece));
  for (size_t i = 1; i < parts.size(); ++i) {
    FmlaPiece comma;
    comma.ThePiece = u",";
    comma.StartPos = next_pos;
    comma.IsOperator = true;
    pieces.push_back(std::move(comma));
    FmlaPiece cell;
    cell.ThePiece = std::move(parts[i]);
    cell.StartPos = next_pos + 1;
    cell.IsRange = true;
    next_pos = cell.StartPos + static_cast<int32_t>(cell.ThePiece.size());
    pieces.push_back(std::move(cell));
  }
  return change;
}

}  // namespace

void parse_formula(String& formula, FmlaPieces& pieces, const ParseMode& mode) {
  pieces.clear();
  const bool may_rewrite = !mode.keep_ranges && mode.mark_ranges;
  // Segments are always cut from the text as it was on entry; only the reported positions
  // follow the rewritten formula. A copy is needed only when the formula may change.
  String entry_copy;
  if (may_rewrite) entry_copy = formula;
  const StringView f = may_rewrite ? StringView(entry_copy) : StringView(formula);

  if (f.empty() || f.front() != u'=') {
    FmlaPiece whole;
    whole.ThePiece = String(f);
    whole.StartPos = 1;
    if (parse_number(f))
      whole.IsValue = true;
    else
      whole.IsSimpleText = true;
    pieces.push_back(std::move(whole));
    return;
  }

  // Positions (1-based) of the operators that cut the text. Quotes hide operators: a single
  // quote toggles whatever else is open (an apostrophe inside a double-quoted text flips it
  // too, and the closing double quote clears it again).
  std::vector<int32_t> breaks;
  breaks.reserve(f.size() / 3 + 2);
  bool in_double = false, in_single = false, in_brackets = false;
  const auto length = static_cast<int32_t>(f.size());
  for (int32_t i = 0; i < length; ++i) {
    const char16_t c = f[static_cast<size_t>(i)];
    if (c == u'"') {
      if (in_double) {
        in_double = in_single = false;
        if (mode.r1c1) in_brackets = false;
      } else {
        in_double = true;
      }
    } else if (c == u'\'') {
      in_single = !in_single;
    } else if (mode.r1c1 && c == u'[') {
      in_brackets = true;
    } else if (mode.r1c1 && c == u']') {
      in_brackets = false;
    } else if (is_break_char(c) && !in_double && !in_single && !in_brackets) {
      breaks.push_back(i + 1);
    }
  }

  pieces.reserve(breaks.size() * 2);
  int32_t shift = 0;  // growth of the formula from the replacements made so far
  for (size_t k = 0; k < breaks.size(); ++k) {
    const int32_t at = breaks[k];
    const int32_t next = k + 1 < breaks.size() ? breaks[k + 1] : length + 1;

    FmlaPiece op;
    op.ThePiece = String(1, f[static_cast<size_t>(at - 1)]);
    op.StartPos = at + shift;
    op.IsOperator = true;
    pieces.push_back(std::move(op));

    const StringView segment =
        f.substr(static_cast<size_t>(at), static_cast<size_t>(next - at - 1));
    const StringView text = trim(segment);
    // Adjacent operators ("<>", ">=", "((") produce no empty operand between them.
    if (text.empty()) continue;

    FmlaPiece piece;
    if (mode.trim) {
      piece.ThePiece = String(text);
      piece.StartPos = at + shift + static_cast<int32_t>(text.data() - segment.data()) + 1;
    } else {
      piece.ThePiece = String(segment);
      piece.StartPos = at + shift + 1;
    }
    const bool followed_by_paren = next <= length && f[static_cast<size_t>(next - 1)] == u'(';
    classify_operand(piece, text, followed_by_paren, mode.mark_ranges);

    if (may_rewrite && piece.IsRange && text.find(u':') != StringView::npos) {
      const StringView rest = f.substr(static_cast<size_t>(next - 1));
      if (auto change = replace_range(formula, pieces, piece, segment, at + shift, rest)) {
        shift += *change;
        continue;
      }
    }
    pieces.push_back(std::move(piece));
  }
}

}  // namespace qz::formula
