// Helpers of the formula rewriting that tests reach directly.
#pragma once

#include "qzxl/variant.hpp"

namespace qz::formula {

/// Moves the relative parts of one R1C1 reference (without sheet prefix) by `row_adj` rows
/// and `col_adj` columns: R[n] and C[n] change by the offsets (a zero result drops the
/// brackets), "RC" gains a row offset, a "C" that ends the reference gains a column offset,
/// absolute numbers stay. Offsets are 16-bit; one that overflows keeps the previous value.
String adjust_r1c1_ref(StringView ref, int32_t row_adj, int32_t col_adj);

}  // namespace qz::formula
