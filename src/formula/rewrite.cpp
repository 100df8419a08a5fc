// Rewriting formula text with the tokenizer: merging the arguments of SUM calls and moving
// the relative references of an R1C1 formula.
#include <cstdint>
#include <string>

#include "formula/formula.hpp"
#include "formula/rewrite.hpp"
#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz {

namespace formula {

String adjust_r1c1_ref(StringView ref, int32_t row_adj, int32_t col_adj) {
  enum class Bracket { none, row, column } state = Bracket::none;
  // A sentinel after the reference lets "C" see that it ends the reference.
  String s(ref);
  s.push_back(u'X');
  String out;
  out.reserve(s.size() + 8);
  String number;
  // The offset lives in a 16-bit variable: a sum that does not fit leaves the previous
  // offset standing, as a failed assignment would.
  int16_t offset = 0;
  auto write_offset = [&](int64_t adj) {
    out.push_back(u'[');
    out.append(u16(std::to_string(adj)));
    out.push_back(u']');
  };
  for (size_t i = 0; i < s.size(); ++i) {
    const char16_t c = s[i];
    const char16_t next = i + 1 < s.size() ? s[i + 1] : u'\0';
    if (c == u'R') {
      out.push_back(u'R');
      if (row_adj != 0) {
        if (next == u'[') {
          state = Bracket::row;
          out.push_back(u'[');
          ++i;
        } else if (next == u'C') {
          // "RC": the same row becomes a relative one. An absolute row number stays.
          write_offset(row_adj);
        }
      }
    } else if (c == u'C') {
      out.push_back(u'C');
      if (col_adj != 0) {
        if (next == u'[') {
          state = Bracket::column;
          out.push_back(u'[');
          ++i;
        } else if (next == u'X') {
          // Only a "C" that ends the reference takes the offset; "RC:RC" moves the last "C"
          // alone. Rows have no such restriction: the rule is deliberately lopsided.
          write_offset(col_adj);
        }
      }
    } else if (c == u']') {
      if (state == Bracket::none) {
        out.push_back(u']');
        continue;
      }
      const int32_t adj = state == Bracket::row ? row_adj : col_adj;
      step([&] {
        const int64_t sum = static_cast<int64_t>(to_integer(Variant(number))) + adj;
        if (sum < INT16_MIN || sum > INT16_MAX) throw Error(err::overflow, "Overflow");
        offset = static_cast<int16_t>(sum);
      });
      if (offset != 0) {
        out.append(u16(std::to_string(offset)));
        out.push_back(u']');
      } else {
        out.pop_back();  // the "[": R[0] is plain R
      }
      state = Bracket::none;
      number.clear();
    } else if (state != Bracket::none) {
      number.push_back(c);
    } else {
      out.push_back(c);
    }
  }
  out.pop_back();  // the sentinel
  return out;
}

}  // namespace formula

String iFormula::MergeRangesInSumFormula(const String& vFormula) {
  String result = vFormula;
  // The first failure (no application or services to merge with) ends the method: what was
  // merged before it stands, the rest of the formula is left as it was.
  try {
    String copy = vFormula;
    FmlaPieces pieces;
    ParseCellFormula(copy, pieces, true, false);
    bool in_sum = false, closed = false;
    size_t open = 0, close = 0;
    for (size_t i = 0; i < pieces.size(); ++i) {
      const FmlaPiece& p = pieces[i];
      if (p.IsFunction && p.ThePiece == u"SUM") {
        in_sum = true;
        open = i + 1;
      } else if (in_sum && p.IsOperator && p.ThePiece == u")") {
        // The first ")" closes the SUM, even one that belongs to a call nested inside it.
        close = i;
        closed = true;
      }
      if (!closed) continue;
      const int32_t from = pieces.at(open).StartPos;
      const int32_t count = pieces.at(close).StartPos - from - 1;
      if (count < 0) throw Error(err::invalid_call, "no argument list");
      const String args = copy.substr(static_cast<size_t>(from), static_cast<size_t>(count));
      const String merged = require(frame::session().LibRange)->MergeRanges(args, nullptr);
      // MergeRanges answers "" when it could not merge the list (an argument that is no
      // reference, references on two sheets). That is its own failure, handled there, not
      // one of this method: this SUM keeps its arguments, rather than losing them to the
      // empty answer, and the next SUM is merged as usual.
      if (!merged.empty() && StringView(merged).substr(0, args.size()) != StringView(args))
        result = vblib::Strings::replace(result, args, merged, 1, -1, 1);
      in_sum = closed = false;
    }
  } catch (...) {
  }
  return result;
}

String iFormula::AdjustR1C1Fmla(const String& vFmla, int32_t vRowAdj, int32_t vColAdj) {
  String copy = vFmla;
  FmlaPieces pieces;
  ParseCellFormulaR1C1(copy, pieces, true, false);
  String result;
  result.reserve(vFmla.size() + 16);
  for (const FmlaPiece& p : pieces) {
    if (p.IsRange) {
      String prefix;
      const String ref = vblib::Strings::qualifier_split(p.ThePiece, false, prefix);
      result += prefix;
      result += formula::adjust_r1c1_ref(ref, vRowAdj, vColAdj);
    } else {
      result += p.ThePiece;
    }
  }
  return result;
}

}  // namespace qz
