// The library's C++ entry: what a client creates first, as an automation client would
// create the two creatable classes by their class ids.
#pragma once

#include "qzxl/convert.hpp"
#include "qzxl/interfaces.hpp"
#include "qzxl/types.hpp"
#include "qzxl/variant.hpp"

namespace qz {

/// Creates the factory `iXLLibPublic`. The first object created in a process loads the
/// session (the sibling services and the library's service objects).
iXLLibPublicPtr create_iXLLibPublic();

/// Creates `iChartXL`, the other class clients may create directly.
iChartXLPtr create_iChartXL();

}  // namespace qz
