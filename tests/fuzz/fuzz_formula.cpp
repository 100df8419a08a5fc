// The formula tokenizer on any text, in A1 and R1C1 notation, with and without trimming, and
// the R1C1 rewriting built on it. Every piece must be the text found at its position.
#include <cstdlib>

#include "formula/formula.hpp"
#include "formula/tokenizer.hpp"
#include "qzxl/convert.hpp"

using namespace qz;

namespace {

void check_pieces(const String& formula, const FmlaPieces& pieces) {
  for (const FmlaPiece& p : pieces) {
    if (p.StartPos < 1 || static_cast<size_t>(p.StartPos) - 1 > formula.size()) std::abort();
    if (formula.compare(static_cast<size_t>(p.StartPos) - 1, p.ThePiece.size(), p.ThePiece) != 0)
      std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const String text = from_utf8(std::string_view(reinterpret_cast<const char*>(data), size));
  for (bool r1c1 : {false, true}) {
    for (bool trim : {false, true}) {
      String formula = text;
      FmlaPieces pieces;
      formula::parse_formula(formula, pieces, formula::ParseMode{r1c1, true, trim, true});
      if (formula != text) std::abort();  // kept ranges leave the text alone
      check_pieces(formula, pieces);
    }
  }
  const int32_t shift = size > 0 ? static_cast<int8_t>(data[0]) * 300 : 0;
  (void)iFormula().AdjustR1C1Fmla(text, shift, -shift);
  return 0;
}
