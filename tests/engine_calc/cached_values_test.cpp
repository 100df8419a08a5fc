// The calculation check over the shared corpus: formulas recalculated against the cached
// values of their inputs give the values the application saved. The cells are read by
// corpus_cells.py (with the openpyxl package) so that this check does not depend on our own
// file reader; set QZXL_CALC_CELLS to a file it wrote to skip reading the workbooks again.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "calc_fixture.hpp"
#include "engine/calc/check.hpp"
#include "support/test_support.hpp"

namespace qz::engine::calc::test {
namespace {

namespace fs = std::filesystem;

std::optional<CellRef> a1_cell(const std::string& a1) {
  if (a1.empty() || a1[0] < 'A' || a1[0] > 'Z') return std::nullopt;
  return cell(a1);
}

CheckWorkbook to_check(const nlohmann::json& j) {
  CheckWorkbook b;
  b.label = j["file"].get<std::string>();
  b.date1904 = j["date1904"].get<bool>();
  for (const auto& s : j["sheets"]) b.sheets.push_back(u16(s.get<std::string>()));
  for (const auto& n : j["names"]) {
    if (n[2].is_null()) continue;
    b.names.push_back(
        {u16(n[0].get<std::string>()), n[1].get<int>(), u16(n[2].get<std::string>())});
  }
  if (j.contains("hidden_rows"))
    for (const auto& h : j["hidden_rows"])
      b.hidden_rows.emplace_back(h[0].get<int>(), h[1].get<int>());
  for (const auto& c : j["cells"]) {
    CheckCell cc;
    cc.sheet = c[0].get<int>();
    auto at = a1_cell(c[1].get<std::string>());
    if (!at) continue;
    cc.cell = *at;
    std::string kind = c[2].get<std::string>();
    if (kind == "n")
      cc.cached = Value::num(c[3].get<double>());
    else if (kind == "s")
      cc.cached = Value::str(u16(c[3].get<std::string>()));
    else if (kind == "b")
      cc.cached = Value::boolean(c[3].get<bool>());
    else if (kind == "e")
      cc.cached =
          Value::error(error_from_text(u16(c[3].get<std::string>())).value_or(cell_error::na));
    else if (kind == "t")
      cc.data_table = true;
    else
      cc.has_cached = false;
    if (!c[4].is_null()) cc.formula = u16(c[4].get<std::string>());
    if (!c[5].is_null()) {
      std::string ref = c[5].get<std::string>();
      size_t colon = ref.find(':');
      auto a = a1_cell(ref.substr(0, colon));
      auto z = colon == std::string::npos ? a : a1_cell(ref.substr(colon + 1));
      if (a && z) {
        cc.array = true;
        cc.array_range = Rect{a->row, a->col, z->row, z->col};
      }
    }
    b.cells.push_back(std::move(cc));
  }
  return b;
}

TEST(CachedValues, RecalculatingTheCorpusGivesTheSavedValues) {
  fs::path corpus = qz::test::corpus_dir();
  if (corpus.empty()) GTEST_SKIP() << "corpus not present";
  qz::test::TempDir tmp;
  fs::path cells;
  if (const char* pre = std::getenv("QZXL_CALC_CELLS"); pre && *pre) {
    cells = pre;
  } else {
    if (std::system("/usr/bin/python3 -c 'import openpyxl' 2>/dev/null") != 0)
      GTEST_SKIP() << "python3-openpyxl not installed";
    // The workbooks with formulas that the reader can open, from the corpus inventory.
    std::ifstream inv(corpus / "workbooks-inventory.jsonl");
    std::string line, args;
    while (std::getline(inv, line)) {
      auto j = nlohmann::json::parse(line, nullptr, false);
      if (j.is_discarded() || !j.contains("raw") || !j.contains("opx")) continue;
      if (j["raw"].value("formula_cells", 0) == 0 || !j["opx"].value("loads", false)) continue;
      args += " '" + (corpus / "workbooks" / j["file"].get<std::string>()).string() + "'";
    }
    cells = tmp / "cells.jsonl";
    fs::path script = fs::path(QZXL_CALC_TEST_DIR) / "corpus_cells.py";
    std::string cmd = "/usr/bin/python3 '" + script.string() + "' '" + cells.string() + "'" + args;
    ASSERT_EQ(std::system(cmd.c_str()), 0);
  }
  std::ifstream in(cells);
  ASSERT_TRUE(in) << cells;
  CheckReport total;
  std::string line;
  while (std::getline(in, line)) {
    CheckWorkbook book = to_check(nlohmann::json::parse(line));
    total.add(check_cached_values(book, 1000), 2000);
  }
  for (const auto& d : total.disagreements) std::cout << "  " << d << "\n";
  for (const auto& [why, n] : total.skipped) std::cout << "skipped (" << why << "): " << n << "\n";
  std::cout << total.formulas << " formula cells, " << total.checked << " checked, " << total.agreed
            << " agree (" << total.agreement() * 100 << "%)\n";
  EXPECT_GE(total.agreement(), 0.98);
}

}  // namespace
}  // namespace qz::engine::calc::test
