// The dependency graph: which formula cells a change reaches.
#include <gtest/gtest.h>

#include <algorithm>

#include "calc_fixture.hpp"

namespace qz::engine::calc::test {
namespace {

using Cells = std::vector<std::pair<SheetId, CellRef>>;

Rect rect(std::string_view a, std::string_view b) {
  CellRef x = cell(a), y = cell(b);
  return Rect{x.row, x.col, y.row, y.col};
}
Rect one(std::string_view a) {
  return rect(a, a);
}

/// The dependents as sorted "Sheet:A1" strings.
std::vector<std::string> reached(const DependencyGraph& g, Cells changed) {
  std::vector<std::string> out;
  for (auto [s, c] : g.dependents(changed)) out.push_back(std::to_string(s) + ":" + a1(c));
  std::sort(out.begin(), out.end());
  return out;
}

TEST(DependencyGraph, CellsRangesAndChainsEachOnce) {
  DependencyGraph g;
  g.set(0, cell("B1"), {{0, one("A1")}});                  // B1 = A1
  g.set(0, cell("C1"), {{0, rect("A1", "A10")}});          // C1 = SUM(A1:A10)
  g.set(0, cell("D1"), {{0, one("B1")}, {0, one("C1")}});  // D1 = B1 + C1 (a diamond)
  g.set(0, cell("E1"), {{0, one("D1")}});
  g.set(1, cell("A1"), {{0, rect("A5", "A6")}});  // another sheet reads A5:A6
  EXPECT_EQ(reached(g, {{0, cell("A1")}}),
            (std::vector<std::string>{"0:B1", "0:C1", "0:D1", "0:E1"}));
  EXPECT_EQ(reached(g, {{0, cell("A5")}}),
            (std::vector<std::string>{"0:C1", "0:D1", "0:E1", "1:A1"}));
  EXPECT_EQ(reached(g, {{0, cell("A11")}}), std::vector<std::string>{});
  EXPECT_EQ(reached(g, {{1, cell("A5")}}), std::vector<std::string>{});
  EXPECT_EQ(reached(g, {{0, cell("A1")}, {0, cell("A2")}}).size(), 4u);
}

TEST(DependencyGraph, SettingReplacesAndRemovingForgets) {
  DependencyGraph g;
  g.set(0, cell("B1"), {{0, one("A1")}});
  g.set(0, cell("B1"), {{0, one("A2")}});
  EXPECT_TRUE(reached(g, {{0, cell("A1")}}).empty());
  EXPECT_EQ(reached(g, {{0, cell("A2")}}), std::vector<std::string>{"0:B1"});
  g.remove(0, cell("B1"));
  EXPECT_TRUE(reached(g, {{0, cell("A2")}}).empty());
  g.set(0, cell("C1"), {{0, rect("A1", "Z9")}});
  g.clear();
  EXPECT_TRUE(reached(g, {{0, cell("B2")}}).empty());
}

TEST(DependencyGraph, WholeColumnsRowsAndWideRanges) {
  DependencyGraph g;
  g.set(0, cell("A1"), {{0, Rect{0, 3, kMaxRows - 1, 3}}});  // SUM(D:D)
  g.set(0, cell("A2"), {{0, Rect{4, 0, 4, kMaxCols - 1}}});  // SUM(5:5)
  g.set(0, cell("A3"), {{0, rect("B2", "XFD3")}});           // wide and short
  EXPECT_EQ(reached(g, {{0, CellRef{kMaxRows - 1, 3}}}), std::vector<std::string>{"0:A1"});
  EXPECT_EQ(reached(g, {{0, cell("D5")}}), (std::vector<std::string>{"0:A1", "0:A2"}));
  EXPECT_EQ(reached(g, {{0, cell("XFA3")}}), std::vector<std::string>{"0:A3"});
  EXPECT_EQ(reached(g, {{0, cell("C4")}}), std::vector<std::string>{});
}

TEST(DependencyGraph, AReusedSlotDoesNotInheritOldReads) {
  DependencyGraph g;
  g.set(0, cell("B1"), {{0, one("A1")}, {0, rect("A5", "A9")}});
  g.remove(0, cell("B1"));
  g.set(2, cell("C7"), {{2, one("Z9")}});  // takes the freed slot
  EXPECT_TRUE(reached(g, {{0, cell("A1")}}).empty());
  EXPECT_TRUE(reached(g, {{0, cell("A6")}}).empty());
  EXPECT_EQ(reached(g, {{2, cell("Z9")}}), std::vector<std::string>{"2:C7"});
  // Many removals and re-registrations: only the latest reads count.
  for (int round = 0; round < 5; ++round)
    for (int r = 0; r < 2000; ++r) g.set(1, CellRef{r, 5}, {{1, Rect{r, 0, r + round, 0}}});
  EXPECT_EQ(g.dependents({{1, CellRef{1000, 0}}}).size(), 5u);  // rows 996..1000 reach it
}

TEST(DependencyGraph, CirclesEnd) {
  DependencyGraph g;
  g.set(0, cell("A1"), {{0, one("B1")}});
  g.set(0, cell("B1"), {{0, one("A1")}});
  EXPECT_EQ(reached(g, {{0, cell("A1")}}), (std::vector<std::string>{"0:A1", "0:B1"}));
}

TEST(DependencyGraph, ManyOverlappingRangesFindExactlyTheirReaders) {
  // Running totals: row r of column B sums A1:Ar. A change in A<k> reaches B<k>..B<n>.
  DependencyGraph g;
  const int n = 3000;
  for (int r = 0; r < n; ++r) g.set(0, CellRef{r, 1}, {{0, Rect{0, 0, r, 0}}});
  for (int k : {0, 1, 777, 2048, n - 1}) {
    auto out = g.dependents({{0, CellRef{k, 0}}});
    ASSERT_EQ(out.size(), static_cast<size_t>(n - k)) << k;
    for (auto [s, c] : out) EXPECT_GE(c.row, k);
  }
  // Replacing every formula keeps the answers exact (stale entries are dropped).
  for (int r = 0; r < n; ++r) g.set(0, CellRef{r, 1}, {{0, Rect{r, 0, r, 0}}});
  EXPECT_EQ(g.dependents({{0, CellRef{5, 0}}}).size(), 1u);
}

}  // namespace
}  // namespace qz::engine::calc::test
