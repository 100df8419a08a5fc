// Tokenizing the corpus's benchmark formulas with range replacement off: in A1 notation
// untrimmed, as AutoColor reads every formula cell, and trimmed, as the tokenize command shows
// them; in R1C1 notation trimmed. The formulas come from
// $QZXL_CORPUS/formulas/fx/benchmark_formulas.json (default ../shared/corpus from the
// working directory).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "formula/formula.hpp"
#include "qzxl/convert.hpp"

namespace {

const std::vector<qz::String>& formulas() {
  static const std::vector<qz::String> list = [] {
    std::filesystem::path corpus = "../shared/corpus";
    if (const char* d = std::getenv("QZXL_CORPUS"); d && *d) corpus = d;
    std::ifstream in(corpus / "formulas/fx/benchmark_formulas.json");
    std::vector<qz::String> out;
    if (!in) return out;
    for (const auto& f : nlohmann::json::parse(in)) {
      qz::String text = qz::from_utf8(f.get<std::string>());
      if (text.empty() || text.front() != u'=') text.insert(text.begin(), u'=');
      out.push_back(std::move(text));
    }
    return out;
  }();
  return list;
}

void run(benchmark::State& state, bool r1c1, bool trim) {
  const auto& list = formulas();
  if (list.empty()) {
    state.SkipWithError("benchmark_formulas.json not found (set QZXL_CORPUS)");
    return;
  }
  qz::iFormula parser;
  qz::FmlaPieces pieces;
  size_t count = 0;
  // The parser takes each formula by reference (it may rewrite it when asked to replace
  // ranges, which is off here); one writable copy is made outside the timing.
  std::vector<qz::String> texts = list;
  for (auto _ : state) {
    for (auto& formula : texts) {
      if (r1c1)
        parser.ParseCellFormulaR1C1(formula, pieces, trim, false);
      else
        parser.ParseCellFormula(formula, pieces, trim, false);
      count += pieces.size();
      benchmark::DoNotOptimize(pieces.data());
    }
  }
  state.counters["formulas"] = static_cast<double>(list.size());
  state.counters["pieces_per_pass"] =
      static_cast<double>(count) / static_cast<double>(state.iterations());
}

void BM_TokenizeCorpusA1(benchmark::State& state) {
  run(state, false, false);
}
void BM_TokenizeCorpusA1Trimmed(benchmark::State& state) {
  run(state, false, true);
}
void BM_TokenizeCorpusR1C1(benchmark::State& state) {
  run(state, true, true);
}
BENCHMARK(BM_TokenizeCorpusA1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TokenizeCorpusA1Trimmed)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TokenizeCorpusR1C1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
