// Speed of the formula language.
//
//   qzxl_bench_engine_calc                         all figures
//   qzxl_bench_engine_calc --benchmark_filter=Graph
//
// The parse/render figures read the corpus's benchmark formulas (../shared/corpus from the
// project root, or QZXL_CORPUS); they are skipped when it is absent.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "engine_calc/calc_fixture.hpp"

namespace {

using namespace qz;
using namespace qz::engine::calc;
using qz::engine::calc::test::TestBook;

std::vector<String> corpus_formulas() {
  std::filesystem::path dir = "../shared/corpus";
  if (const char* d = std::getenv("QZXL_CORPUS"); d && *d) dir = d;
  std::ifstream in(dir / "formulas/fx/benchmark_formulas.json");
  std::vector<String> out;
  if (!in) return out;
  for (const auto& f : nlohmann::json::parse(in)) out.push_back(u16(f.get<std::string>()));
  return out;
}

void BM_ParseCorpusFormulas(benchmark::State& state) {
  auto formulas = corpus_formulas();
  if (formulas.empty()) return state.SkipWithError("corpus not present");
  TestBook book(std::vector<std::string>{});
  book.create_sheets = true;
  size_t n = 0, chars = 0;
  for (auto _ : state) {
    for (const String& f : formulas) {
      try {
        benchmark::DoNotOptimize(parse(f, Notation::A1, CellRef{99, 25}, 0, book));
        ++n;
        chars += f.size();
      } catch (const Error&) {
      }
    }
  }
  state.counters["formulas/s"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
  state.counters["chars/s"] =
      benchmark::Counter(static_cast<double>(chars), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ParseCorpusFormulas)->Unit(benchmark::kMillisecond);

void BM_RenderCorpusFormulas(benchmark::State& state) {
  auto formulas = corpus_formulas();
  if (formulas.empty()) return state.SkipWithError("corpus not present");
  TestBook book(std::vector<std::string>{});
  book.create_sheets = true;
  std::vector<FormulaPtr> parsed;
  for (const String& f : formulas) {
    try {
      parsed.push_back(parse(f, Notation::A1, CellRef{99, 25}, 0, book));
    } catch (const Error&) {
    }
  }
  size_t n = 0;
  for (auto _ : state) {
    for (const auto& f : parsed)
      benchmark::DoNotOptimize(render(*f, Notation::A1, CellRef{120, 30}, 0, book));
    n += parsed.size();
  }
  state.counters["formulas/s"] =
      benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_RenderCorpusFormulas)->Unit(benchmark::kMillisecond);

/// A column of 10,000 numbers and labels for the evaluation figures.
TestBook& data_book() {
  static TestBook book = [] {
    TestBook b;
    for (int r = 1; r <= 10000; ++r) {
      b.set("A" + std::to_string(r), r * 1.5);
      b.set("B" + std::to_string(r), Value::str(u"key" + u16(std::to_string(r))));
    }
    return b;
  }();
  return book;
}

void BM_EvaluateSumOf10000Cells(benchmark::State& state) {
  TestBook& book = data_book();
  auto f = parse(u"SUM(A1:A10000)", Notation::A1, CellRef{0, 5}, 0, book);
  for (auto _ : state) benchmark::DoNotOptimize(evaluate(*f, CellRef{0, 5}, 0, book));
}
BENCHMARK(BM_EvaluateSumOf10000Cells)->Unit(benchmark::kMicrosecond);

void BM_EvaluateExactVlookupIn10000Rows(benchmark::State& state) {
  TestBook& book = data_book();
  auto f = parse(u"VLOOKUP(\"key7500\",B1:C10000,1,FALSE)", Notation::A1, CellRef{0, 5}, 0, book);
  for (auto _ : state) benchmark::DoNotOptimize(evaluate(*f, CellRef{0, 5}, 0, book));
}
BENCHMARK(BM_EvaluateExactVlookupIn10000Rows)->Unit(benchmark::kMicrosecond);

void BM_EvaluateSumifsOver10000Rows(benchmark::State& state) {
  TestBook& book = data_book();
  auto f = parse(u"SUMIFS(A1:A10000,B1:B10000,\"key1*\",A1:A10000,\">100\")", Notation::A1,
                 CellRef{0, 5}, 0, book);
  for (auto _ : state) benchmark::DoNotOptimize(evaluate(*f, CellRef{0, 5}, 0, book));
}
BENCHMARK(BM_EvaluateSumifsOver10000Rows)->Unit(benchmark::kMicrosecond);

/// 200,000 formula cells, each reading the cell to its left and a running range of the
/// input column above it (B<r> = A<r> + SUM(A$1:A<r>)), as a model's running totals do.
DependencyGraph running_totals(int n) {
  DependencyGraph g;
  for (int r = 0; r < n; ++r)
    g.set(0, CellRef{r, 1}, {{0, Rect{r, 0, r, 0}}, {0, Rect{0, 0, r, 0}}});
  return g;
}

void BM_GraphBuild200kRangeReaders(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(running_totals(200000));
}
BENCHMARK(BM_GraphBuild200kRangeReaders)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_GraphDependentsOfOneInput(benchmark::State& state) {
  // A change near the bottom reaches few formulas; the index must not look at them all.
  static DependencyGraph g = running_totals(200000);
  int row = static_cast<int>(state.range(0));
  size_t reached = 0;
  for (auto _ : state) reached = g.dependents({{0, CellRef{row, 0}}}).size();
  state.counters["reached"] = static_cast<double>(reached);
}
BENCHMARK(BM_GraphDependentsOfOneInput)
    ->Arg(199990)
    ->Arg(100000)
    ->Arg(0)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
