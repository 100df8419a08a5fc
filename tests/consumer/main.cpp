// A client of the installed library: creates the factory as an add-in does, cuts a formula
// into pieces and reads a public constant. Exits 0 when both come out as documented.
#include <cstdio>

#include "qzxl/qzxl.hpp"

int main() {
  auto lib = qz::create_iXLLibPublic();
  auto formula = lib->NewFormula();
  qz::String text = u"=SUM(A1:B2)*1.05";
  qz::FmlaPieces pieces;
  formula->ParseCellFormula(text, pieces, true, false);
  int ranges = 0, values = 0;
  for (const auto& p : pieces) {
    ranges += p.IsRange ? 1 : 0;
    values += p.IsValue ? 1 : 0;
  }
  const int32_t input_colour = lib->NewConst()->qzDefaultInputColor();
  std::printf("%zu pieces, %d range, %d value, input colour %d\n", pieces.size(), ranges, values,
              input_colour);
  return ranges == 1 && values == 1 && input_colour > 0 ? 0 : 1;
}
