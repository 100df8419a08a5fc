// Memory per cell and recalculation times of the embedded engine.
//
//   qzxl_engine_bench                       all figures
//   qzxl_engine_bench --benchmark_filter=Memory
//
// Memory is the growth of the C heap in use (glibc's mallinfo2) while a sheet is filled,
// divided by the number of cells; the workbook's fixed overhead is measured before filling.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <string>

#include "engine/host/engine.hpp"
#include "qzxl/convert.hpp"

namespace {

using namespace qz;
using namespace qz::engine;

size_t heap_in_use() {
#if defined(__GLIBC__)
  return mallinfo2().uordblks;
#else
  return 0;
#endif
}

constexpr int kRows = 100000, kCols = 10;  // a million cells

void BM_MemoryNumericCells(benchmark::State& state) {
  for (auto _ : state) {
    auto app = create_application();
    auto wb = app->workbooks()->add();
    Book& b = *book_of(wb);
    Sheet& s = *b.sheets[0];
    size_t base = heap_in_use();
    for (int r = 0; r < kRows; ++r)
      for (int c = 0; c < kCols; ++c) b.set_constant(s, r, c, calc::Value::num(r * 0.5 + c));
    b.commit();
    size_t used = heap_in_use() - base;
    state.counters["bytes_per_cell"] = static_cast<double>(used) / (kRows * kCols);
    state.counters["cells"] = static_cast<double>(s.cells.size());
  }
}
BENCHMARK(BM_MemoryNumericCells)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_MemoryDistinctShortTexts(benchmark::State& state) {
  for (auto _ : state) {
    auto app = create_application();
    auto wb = app->workbooks()->add();
    Book& b = *book_of(wb);
    Sheet& s = *b.sheets[0];
    size_t base = heap_in_use();
    int n = 0;
    for (int r = 0; r < kRows; ++r)
      for (int c = 0; c < kCols; ++c)
        b.set_constant(s, r, c, calc::Value::str(u16("item" + std::to_string(n++))));
    b.commit();
    size_t used = heap_in_use() - base;
    state.counters["bytes_per_cell"] = static_cast<double>(used) / (kRows * kCols);
    state.counters["texts"] = static_cast<double>(b.strings.size());
  }
}
BENCHMARK(BM_MemoryDistinctShortTexts)->Iterations(1)->Unit(benchmark::kMillisecond);

// A model of 10,000 rows: an input in column A, twenty formula columns each building on the
// one to its left and on the row's input, and a block total every 100 rows: 200,000 formulas.
struct Model {
  host::ApplicationPtr app;
  BookPtr book;
  Sheet* sheet;
};

Model build_model() {
  Model m;
  m.app = create_application();
  auto wb = m.app->workbooks()->add();
  m.app->set_calculation(host::xl::CalculationManual);
  m.book = book_of(wb);
  m.sheet = m.book->sheets[0].get();
  Book& b = *m.book;
  Sheet& s = *m.sheet;
  const int rows = 10000;
  for (int r = 0; r < rows; ++r) {
    b.set_constant(s, r, 0, calc::Value::num(r % 97 + 1));
    for (int c = 1; c <= 20; ++c) {
      std::string prev = std::string(1, static_cast<char>('A' + c - 1)) + std::to_string(r + 1);
      std::string f = prev + "*1.01+$A" + std::to_string(r + 1);
      if (c == 20 && r % 100 == 99)
        f = "SUM(T" + std::to_string(r - 98) + ":T" + std::to_string(r + 1) + ")";
      b.set_formula(s, r, c, u16(f), calc::Notation::A1);
    }
  }
  b.commit();
  return m;
}

void BM_FullRecalc200kFormulas(benchmark::State& state) {
  Model m = build_model();
  for (auto _ : state) m.book->calculate(true);
  state.counters["formulas"] = 200000;
}
BENCHMARK(BM_FullRecalc200kFormulas)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_OneInputRecalc200kFormulas(benchmark::State& state) {
  Model m = build_model();
  m.book->calculate(true);
  m.book->auto_calc = true;
  uint64_t touched = 0;
  int i = 0;
  for (auto _ : state) {
    uint64_t before = m.book->evaluations();
    ++i;
    m.book->set_constant(*m.sheet, 4 + (i % 50) * 100, 0, calc::Value::num(i));
    m.book->commit();
    touched = m.book->evaluations() - before;
  }
  state.counters["formulas_recalculated"] = static_cast<double>(touched);
}
BENCHMARK(BM_OneInputRecalc200kFormulas)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
