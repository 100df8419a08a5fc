// Telling, without parsing, that a formula's text is already what the renderer would write.
#pragma once

#include <string_view>

#include "engine/calc/calc.hpp"

namespace qz::engine::calc {

/// Whether parsing `text` (a formula as a file stores it: UTF-8, without the "=") in A1 at
/// any cell and rendering the result in A1 at that cell gives `text` back, byte for byte; a
/// reader may then show the text as it is. True only for what is certain: cell references
/// and areas in upper case, sheet prefixes that name a sheet exactly and need no quotes,
/// names, functions spelled in upper case, plain numbers, texts and operators, without
/// blanks. False says nothing: the formula is then parsed and rendered as usual.
bool renders_as_written(std::string_view text, const SheetResolver& sheets);

}  // namespace qz::engine::calc
