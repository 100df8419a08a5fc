// Cells: typed entries, values, displayed text, formulas of constants, the 1904 system and the
// sparse store underneath.
#include <algorithm>
#include <random>
#include <tuple>

#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using CellEntries = EngineTest;

TEST_F(CellEntries, NumbersReadWithSeparatorsSignsAndExponents) {
  struct Case {
    const char* typed;
    double value;
  } cases[] = {{"1234.5", 1234.5}, {"1,234.5", 1234.5}, {"-7", -7},       {"(12)", -12},
               {"1e3", 1000},      {"1.5E-2", 0.015},   {"$1,000", 1000}, {" 42 ", 42}};
  for (const auto& c : cases) {
    put("A1", c.typed);
    Variant v = value("A1");
    ASSERT_TRUE(v.is_number()) << c.typed;
    EXPECT_DOUBLE_EQ(v.dbl(), c.value) << c.typed;
    EXPECT_FALSE(r("A1")->has_formula()) << c.typed;
  }
}

TEST_F(CellEntries, PercentEntryKeepsItsFormatAndReadsBackAsTyped) {
  put("A1", "5%");
  EXPECT_DOUBLE_EQ(value("A1").dbl(), 0.05);
  EXPECT_EQ(text("A1"), "5%");
  EXPECT_EQ(formula("A1"), "5%");
  put("A2", "12.5%");
  EXPECT_EQ(text("A2"), "12.50%");
  // A percentage typed into a cell that already has a number format keeps that format.
  r("A3")->set_number_format(u"0.000");
  put("A3", "5%");
  EXPECT_EQ(text("A3"), "0.050");
}

TEST_F(CellEntries, DatesAndTimesBecomeSerialsWithDateValues) {
  put("A1", "11/14/2026");
  Variant v = value("A1");
  ASSERT_TRUE(v.is_date());
  EXPECT_DOUBLE_EQ(v.date().serial, 46340);
  EXPECT_EQ(formula("A1"), "11/14/2026");

  put("A2", "9:30 PM");
  ASSERT_TRUE(value("A2").is_date());
  EXPECT_NEAR(value("A2").date().serial, 21.5 / 24, 1e-9);
  EXPECT_NE(text("A2").find(':'), std::string::npos);

  put("A3", "11/14/2026 9:30");
  ASSERT_TRUE(value("A3").is_date());
  EXPECT_NEAR(value("A3").date().serial, 46340 + 9.5 / 24, 1e-9);
  // Re-typing what Formula gives must reproduce the same serial.
  std::string again = formula("A3");
  put("A4", again.c_str());
  EXPECT_NEAR(value("A4").date().serial, 46340 + 9.5 / 24, 1e-6);
}

TEST_F(CellEntries, BooleansErrorsTextAndApostrophes) {
  put("A1", "true");
  EXPECT_TRUE(value("A1").is_bool());
  EXPECT_TRUE(value("A1").boolean());
  EXPECT_EQ(formula("A1"), "TRUE");

  put("A2", "#N/A");
  ASSERT_TRUE(value("A2").is_error());
  EXPECT_EQ(value("A2").error().code, cell_error::na);
  EXPECT_EQ(text("A2"), "#N/A");

  put("A3", "'123");
  ASSERT_TRUE(value("A3").is_string());
  EXPECT_EQ(to_utf8(value("A3").str()), "123");
  EXPECT_EQ(to_utf8(r("A3")->prefix_character()), "'");
  EXPECT_EQ(formula("A3"), "123");
  // A later plain entry drops the apostrophe.
  put("A3", "124");
  EXPECT_EQ(to_utf8(r("A3")->prefix_character()), "");
  EXPECT_TRUE(value("A3").is_number());

  put("A4", "hello world");
  EXPECT_EQ(to_utf8(value("A4").str()), "hello world");
  put("A4", "");
  EXPECT_TRUE(value("A4").is_empty());
  EXPECT_EQ(formula("A4"), "");
}

TEST_F(CellEntries, ConstantsTypedBackGiveTheSameCell) {
  const char* entries[] = {"0.1",     "-3.25",    "1E+20", "7%",       "TRUE",
                           "#DIV/0!", "3/1/2024", "text",  "1/2/1900", "0:15"};
  for (const char* e : entries) {
    put("B1", e);
    std::string f = formula("B1");
    Variant before = value("B1");
    put("B2", f.c_str());
    EXPECT_EQ(value("B2"), before) << e << " -> " << f;
  }
}

TEST_F(CellEntries, SettingValuesByType) {
  r("A1")->set_value(Variant(Date{46340.25}));
  ASSERT_TRUE(value("A1").is_date());
  EXPECT_DOUBLE_EQ(value("A1").date().serial, 46340.25);
  r("A2")->set_value(Variant(int32_t{5}));
  EXPECT_DOUBLE_EQ(value("A2").dbl(), 5);
  // Text given as a value goes through the entry rules, as in the application.
  r("A3")->set_value(V("25%"));
  EXPECT_DOUBLE_EQ(value("A3").dbl(), 0.25);
  r("A4")->set_value(V("=A2*2"));
  EXPECT_TRUE(r("A4")->has_formula());
  EXPECT_THROW(r("A5")->set_value(Variant(ObjectPtr(wb))), Error);
  // A rows-of-values array fills a block; cells beyond the array get #N/A.
  r("C1:D2")->set_value(
      Variant(one_based({Variant(one_based({V(1), V(2)})), Variant(one_based({V(3)}))})));
  EXPECT_DOUBLE_EQ(value("D1").dbl(), 2);
  EXPECT_DOUBLE_EQ(value("C2").dbl(), 3);
  EXPECT_TRUE(value("D2").is_error());
  Variant block = r("C1:D2")->value();
  ASSERT_TRUE(block.is_array());
  EXPECT_EQ(block.array().lower, 1);
  EXPECT_DOUBLE_EQ(block.array().at(2).array().at(1).dbl(), 3);
}

TEST_F(CellEntries, DateFormatDecidesWhetherValueIsADate) {
  r("A1")->set_value(Variant(46340.0));
  EXPECT_FALSE(value("A1").is_date());
  r("A1")->set_number_format(u"d-mmm-yy");
  EXPECT_TRUE(value("A1").is_date());
  EXPECT_EQ(text("A1"), "14-Nov-26");
  r("A1")->set_number_format(u"0.00");
  EXPECT_FALSE(value("A1").is_date());
  EXPECT_EQ(text("A1"), "46340.00");
}

TEST_F(CellEntries, TextRendersElapsedTimesFractionsAndSections) {
  struct Case {
    double v;
    const char* format;
    const char* shown;
  } cases[] = {{1.5, "[h]:mm", "36:00"},
               {1.25, "# ?/?", "1 1/4"},
               {46340, "mmm d, yyyy", "Nov 14, 2026"},
               {46340.75, "h:mm AM/PM", "6:00 PM"},
               {-5, "0.0;(0.0)", "(5.0)"},
               {1234567, "#,##0", "1,234,567"},
               {0.123, "0.0%", "12.3%"}};
  for (const auto& c : cases) {
    r("A1")->set_value(Variant(c.v));
    r("A1")->set_number_format(u16(c.format));
    EXPECT_EQ(text("A1"), c.shown) << c.format;
  }
  r("A2")->set_value(V("abc"));
  r("A2")->set_number_format(u"\"<\"@\">\"");
  EXPECT_EQ(text("A2"), "<abc>");
}

TEST_F(CellEntries, BadFormatsAndFormulasRaiseAndLeaveTheCell) {
  put("A1", "5");
  EXPECT_THROW(r("A1")->set_formula(u"=SUM(1,"), Error);
  EXPECT_DOUBLE_EQ(value("A1").dbl(), 5);
  EXPECT_THROW(r("A1")->set_number_format(u"0.0\"unterminated"), Error);
  EXPECT_EQ(to_utf8(to_string(r("A1")->number_format())), "General");
  EXPECT_THROW(ws->range(V("A0")), Error);
  EXPECT_THROW(ws->range(V("XFE1")), Error);
  EXPECT_THROW(ws->range(V("A1048577")), Error);
}

TEST_F(CellEntries, DateSystem1904ShiftsAutomationDates) {
  book().date1904 = true;
  r("A1")->set_value(Variant(0.0));
  r("A1")->set_number_format(u"m/d/yyyy");
  ASSERT_TRUE(value("A1").is_date());
  EXPECT_DOUBLE_EQ(value("A1").date().serial, 1462);
  EXPECT_EQ(text("A1"), "1/1/1904");
  EXPECT_TRUE(wb->date1904());
}

TEST_F(CellEntries, ArbitraryTextNeverBreaksACellOrAnAddress) {
  // Whatever is typed or asked for, the engine answers or refuses with qz::Error, and the
  // workbook stays usable.
  const std::string alphabet = "=+-*/^&%$!:;,.'\"()[]{}#@ ?<>0123456789ABCXYZabcRCe \t";
  std::mt19937 rng(12345);
  std::uniform_int_distribution<size_t> pick(0, alphabet.size() - 1), len(0, 14);
  for (int i = 0; i < 3000; ++i) {
    std::string s;
    for (size_t n = len(rng); n > 0; --n) s += alphabet[pick(rng)];
    String text = u16(s);
    try {
      r("B2")->set_formula(text);
      (void)r("B2")->text();
      (void)r("B2")->formula();
      (void)r("B2")->formula_r1c1();
      (void)r("B2")->value();
    } catch (const Error&) {
    }
    try {
      (void)ws->range(Variant(text))->address();
    } catch (const Error&) {
    }
    try {
      r("C3")->set_number_format(text);
      (void)r("C3")->text();
    } catch (const Error&) {
    }
  }
  put("A1", "1e999");
  (void)text("A1");
  put("A1", "2");
  put("A2", "=A1*3");
  EXPECT_EQ(value("A2"), Variant(6.0));
}

TEST(CellStoreTest, KeepsCellsOrderedWhateverTheInsertionOrder) {
  CellStore store;
  std::vector<std::pair<int32_t, int32_t>> cells;
  for (int32_t r = 0; r < 3000; r += 3)
    for (int32_t c = 0; c < 4; ++c) cells.emplace_back(r, c);
  std::mt19937 rng(7);
  std::shuffle(cells.begin(), cells.end(), rng);
  for (auto [r, c] : cells) {
    Cell& cell = store.get_or_create(r, c);
    cell.set_kind(CellKind::Number);
    cell.num = r * 10 + c;
  }
  ASSERT_EQ(store.size(), cells.size());
  // Row-major order over several columns, each cell once.
  int32_t last_r = -1, last_c = -1;
  size_t seen = 0;
  store.for_each(Rect{0, 0, kLastRow, kLastCol}, [&](int32_t r, int32_t c, const Cell& cell) {
    EXPECT_TRUE(r > last_r || (r == last_r && c > last_c));
    EXPECT_DOUBLE_EQ(cell.num, r * 10 + c);
    last_r = r;
    last_c = c;
    ++seen;
    return true;
  });
  EXPECT_EQ(seen, cells.size());
  EXPECT_EQ(store.count_in(Rect{3, 1, 9, 2}), 6u);
  // One row: its cells left to right, none of the rows around it, and a stop when asked.
  std::vector<int32_t> in_row;
  store.for_each(Rect{9, 1, 9, kLastCol}, [&](int32_t r, int32_t c, const Cell&) {
    in_row.push_back(r * 10 + c);
    return c < 2;
  });
  EXPECT_EQ(in_row, (std::vector<int32_t>{91, 92}));
  in_row.clear();
  store.for_each(Rect{10, 0, 10, 3}, [&](int32_t r, int32_t c, const Cell&) {
    in_row.push_back(r * 10 + c);
    return true;
  });
  EXPECT_TRUE(in_row.empty());
  for (auto [r, c] : cells)
    if (r % 2 == 0) store.erase(r, c);
  EXPECT_EQ(store.find(6, 0), nullptr);
  ASSERT_NE(store.find(9, 3), nullptr);
  EXPECT_DOUBLE_EQ(store.find(9, 3)->num, 93);
  auto e = store.extent();
  ASSERT_TRUE(e);
  EXPECT_EQ(e->row2, 2997);
  EXPECT_EQ(e->col2, 3);
}

// The writer's whole-store walk merges columns its own way; it must see exactly what the
// general row-order walk sees: ragged columns, rows crossing chunk ends, cells erased, and
// sheets too wide for the per-row scan.
TEST(CellStoreTest, WholeStoreWalkMatchesTheRowOrderWalk) {
  using Seen = std::vector<std::tuple<int32_t, int32_t, double>>;
  auto walks = [](const CellStore& store) {
    Seen general, whole;
    store.for_each(Rect{0, 0, kLastRow, kLastCol}, [&](int32_t r, int32_t c, const Cell& cell) {
      general.emplace_back(r, c, cell.num);
      return true;
    });
    store.for_each_cell(
        [&](int32_t r, int32_t c, const Cell& cell) { whole.emplace_back(r, c, cell.num); });
    return std::make_pair(general, whole);
  };
  std::mt19937 rng(11);
  for (int32_t columns : {1, 3, 12, 70, 300, -300}) {
    // Negative: as wide, but each row holds only a few of the columns.
    const bool sparse = columns < 0;
    columns = std::abs(columns);
    CellStore store;
    for (int32_t r = 0; r < 2500; ++r)
      for (int32_t c = 0; c < columns; ++c)
        if (sparse ? rng() % 100 == 0 : rng() % 4 != 0)
          store.get_or_create(r * 2 + (c % 3 == 0), c * 2).num = r * 1000 + c;
    // The last row, in a column of its own; in a wide store that would send the walk to
    // its heap, which the sparse one takes already.
    if (columns <= 12) store.get_or_create(kLastRow, 5).num = -1;
    for (int32_t r = 0; r < 600; ++r) store.erase(r, 0);  // a column's head, whole chunks
    auto [general, whole] = walks(store);
    EXPECT_EQ(whole.size(), store.size()) << columns << " columns";
    EXPECT_EQ(whole, general) << columns << " columns";
  }
  CellStore empty;
  auto [general, whole] = walks(empty);
  EXPECT_TRUE(whole.empty());
}

TEST(CellStoreTest, AppendedColumnsStayNearSixteenBytesACell) {
  CellStore store;
  for (int32_t r = 0; r < 100000; ++r) store.get_or_create(r, 0).num = r;
  EXPECT_LT(store.memory_bytes(), 100000u * 20);
}

TEST(StringPoolTest, InternsPlainTextsAndKeepsRichOnesApart) {
  StringPool pool;
  uint32_t a = pool.intern(u"alpha");
  uint32_t b = pool.intern(u"beta");
  EXPECT_EQ(pool.intern(u"alpha"), a);
  EXPECT_NE(a, b);
  FontRec bold;
  bold.bold = true;
  uint32_t rich = pool.add_rich(u"alpha", {engine::Run{0, std::nullopt}, engine::Run{2, bold}});
  EXPECT_NE(rich, a);
  EXPECT_EQ(pool.runs(rich).size(), 2u);
  EXPECT_TRUE(pool.runs(a).empty());
  // Entries a loader appended join the dedupe table.
  uint32_t loaded = pool.append(u"gamma");
  EXPECT_EQ(pool.intern(u"gamma"), loaded);
  for (int i = 0; i < 5000; ++i) pool.intern(u16("k" + std::to_string(i)));
  EXPECT_EQ(to_utf8(pool.text(pool.intern(u"k4321"))), "k4321");
  EXPECT_EQ(pool.intern(u"alpha"), a);
}

}  // namespace
}  // namespace qz::engine::test
