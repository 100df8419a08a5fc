// Every formula of the shared corpus's formula collections, as UTF-16 text with a leading "=".
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "qzxl/variant.hpp"

namespace qz::test {

struct CorpusFormula {
  std::string source;  ///< file name and line (or index) the formula came from
  String text;
};

/// Reads the JSON, JSON-lines, CSV, TSV and text inputs under `formulas_dir`; formulas that
/// lack a leading "=" get one. Empty when the folder is absent.
std::vector<CorpusFormula> load_corpus_formulas(const std::filesystem::path& formulas_dir);

}  // namespace qz::test
