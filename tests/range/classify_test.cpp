// Cell classification against the engine, with real number formats.
#include "library_fixture.hpp"
#include "support/fake_host.hpp"

namespace qz::test {
namespace {

class Classify : public LibraryTest {
 protected:
  // Enters each text in column A from row 1 on and answers "type/input" per cell.
  std::string classify(std::initializer_list<const char*> typed) {
    std::string out;
    int row = 1;
    for (const char* t : typed) {
      auto cell = ws->cell(row++, 1);
      if (*t) cell->set_formula(u16(t));
      out += std::to_string(ranges->CellType(cell)) + (ranges->IsInput(cell) ? "i " : "- ");
    }
    return out;
  }
};

TEST_F(Classify, ConstantsAndFormulasByWhatTheyHold) {
  // Empty, text, text forced by an apostrophe, Boolean, error, number; then formulas giving
  // a number, a text and an error.
  EXPECT_EQ(classify({"", "hello", "'123", "TRUE", "#N/A", "42", "=A6*2", "=A2&\"!\"", "=1/0"}),
            "1i 2- 2i 3i 4- 8i 8- 2- 4- ");
}

TEST_F(Classify, InputsAreConstantsAndLetterFreeArithmetic) {
  // Any letter (a reference, a function, an exponent's E) makes a formula a calculation.
  EXPECT_EQ(classify({"=100+20", "=(3+4)/2", "=A1+1", "=SUM(1,2)", "=1E3"}), "8i 8i 8- 8- 8- ");
}

TEST_F(Classify, DatesTimesAndDateTimesAreToldApartByTheColonShown) {
  const char16_t* formats[] = {u"dd/mm/yyyy", u"dd/mm/yyyy hh:mm", u"h:mm", u"0\":\"00"};
  for (int row = 1; row <= 4; ++row) {
    ws->cell(row, 1)->set_formula(u"46340.3958333333");
    ws->cell(row, 1)->set_number_format(formats[row - 1]);
  }
  // A date value shown as a time alone is a date-time; a plain number whose format prints a
  // colon is a time. None of them is an input.
  std::string got;
  for (int row = 1; row <= 4; ++row)
    got += std::to_string(ranges->CellType(ws->cell(row, 1))) +
           (ranges->IsInput(ws->cell(row, 1)) ? "i " : "- ");
  EXPECT_EQ(got, "5- 6- 6- 7- ");
}

TEST_F(Classify, OnlyTheTopLeftCellCounts) {
  put("A1", "x");
  put("B2", "5");
  EXPECT_EQ(ranges->CellType(r("B2:C3")), CellNumeric);
  EXPECT_TRUE(ranges->IsInput(r("B2:C3")));
  EXPECT_FALSE(ranges->IsInput(r("A1:B2")));
}

class CountingApp : public UnsupportedApplication {
 public:
  void volatile_(bool on) override { calls += on; }
  int calls = 0;
};

TEST_F(Classify, AnUnreadableRangeIsUnknownAndStillMarksTheCallerVolatile) {
  auto counting = std::make_shared<CountingApp>();
  lib->InitXL(counting);
  EXPECT_EQ(ranges->CellType(std::make_shared<UnsupportedRange>()), CellUnknown);
  EXPECT_EQ(counting->calls, 1);
  EXPECT_FALSE(ranges->IsInput(std::make_shared<UnsupportedRange>()));
  EXPECT_FALSE(ranges->IsInput(nullptr));
}

}  // namespace
}  // namespace qz::test
