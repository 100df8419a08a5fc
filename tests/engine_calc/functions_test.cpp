// The functions, family by family, with values the application gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "calc_fixture.hpp"

namespace qz::engine::calc::test {
namespace {

/// Expects a number within a relative 1e-9.
void near(TestBook& book, std::u16string_view f, double want) {
  Value v = book.eval(f);
  ASSERT_EQ(v.kind, Value::Kind::Number) << to_utf8(f);
  EXPECT_NEAR(v.number, want, 1e-9 * std::max(1.0, std::fabs(want))) << to_utf8(f);
}

class Functions : public ::testing::Test {
 protected:
  void SetUp() override {
    // A1:A6 numbers, B1:B6 labels, C1:C6 dates.
    double nums[] = {10, 20, 30, 40, 50, 60};
    const char16_t* labels[] = {u"apple", u"banana", u"cherry", u"apple", u"date", u"Apple pie"};
    for (int i = 0; i < 6; ++i) {
      book.set("A" + std::to_string(i + 1), nums[i]);
      book.set("B" + std::to_string(i + 1), labels[i]);
      book.set("C" + std::to_string(i + 1), 46023 + 31 * i);  // 1 Jan 2026, monthly-ish
    }
  }
  TestBook book;
};

TEST_F(Functions, Arithmetic) {
  EXPECT_EQ(book.eval(u"SUM(A1:A6)"), N(210));
  EXPECT_EQ(book.eval(u"PRODUCT(2,3,4)"), N(24));
  EXPECT_EQ(book.eval(u"ABS(-3)"), N(3));
  EXPECT_EQ(book.eval(u"ROUND(2.5,0)"), N(3));
  EXPECT_EQ(book.eval(u"ROUND(-2.5,0)"), N(-3));
  EXPECT_EQ(book.eval(u"ROUND(1234.567,-2)"), N(1200));
  EXPECT_EQ(book.eval(u"ROUND(2.675,2)"), N(2.68));
  EXPECT_EQ(book.eval(u"ROUNDUP(3.21,1)"), N(3.3));
  EXPECT_EQ(book.eval(u"ROUNDUP(-3.21,1)"), N(-3.3));
  EXPECT_EQ(book.eval(u"ROUNDDOWN(3.29,1)"), N(3.2));
  EXPECT_EQ(book.eval(u"INT(-2.5)"), N(-3));
  EXPECT_EQ(book.eval(u"TRUNC(-2.5)"), N(-2));
  EXPECT_EQ(book.eval(u"MOD(-7,3)"), N(2));
  EXPECT_EQ(book.eval(u"MOD(7,-3)"), N(-2));
  EXPECT_EQ(book.eval(u"MOD(5,0)"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"POWER(2,10)"), N(1024));
  EXPECT_EQ(book.eval(u"SQRT(-1)"), E(cell_error::num));
  near(book, u"EXP(1)", 2.718281828459045);
  near(book, u"LN(100)/LN(10)", 2);
  EXPECT_EQ(book.eval(u"LOG(8,2)"), N(3));
  EXPECT_EQ(book.eval(u"LOG10(1000)"), N(3));
  EXPECT_EQ(book.eval(u"SIGN(-0.1)"), N(-1));
  EXPECT_EQ(book.eval(u"CEILING(2.1,0.5)"), N(2.5));
  EXPECT_EQ(book.eval(u"CEILING(-2.1,-1)"), N(-3));
  EXPECT_EQ(book.eval(u"CEILING(2.1,-1)"), E(cell_error::num));
  // A tiny quotient is not noise around zero; a quotient a hair off a whole number is.
  EXPECT_EQ(book.eval(u"CEILING(1E-10,1)"), N(1));
  EXPECT_EQ(book.eval(u"FLOOR(-1E-10,1)"), N(-1));
  near(book, u"CEILING(0.3,0.1)", 0.3);
  EXPECT_EQ(book.eval(u"FLOOR(2.9,0.5)"), N(2.5));
  EXPECT_EQ(book.eval(u"MROUND(10,3)"), N(9));
  EXPECT_EQ(book.eval(u"MROUND(-10,3)"), E(cell_error::num));
  near(book, u"PI()", 3.141592653589793);
  EXPECT_EQ(book.eval(u"EVEN(1.5)"), N(2));
  EXPECT_EQ(book.eval(u"ODD(2)"), N(3));
  EXPECT_EQ(book.eval(u"FACT(5)"), N(120));
  EXPECT_EQ(book.eval(u"GCD(12,18)"), N(6));
  // Huge counts end at once, in #NUM! where the result overflows, rather than counting up to
  // 1E+15.
  EXPECT_EQ(book.eval(u"FACT(1E+15)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FACTDOUBLE(1E+15)"), E(cell_error::num));
  near(book, u"MULTINOMIAL(2,1E+15,4)", 1e90 / 48);
  EXPECT_EQ(book.eval(u"MULTINOMIAL(2000,1E+15)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"MULTINOMIAL(2,3,4)"), N(1260));
  EXPECT_EQ(book.eval(u"COMBIN(1E+15,1E+15-1)"), N(1e15));
  EXPECT_EQ(book.eval(u"COMBIN(10,7)"), N(120));
  EXPECT_EQ(book.eval(u"COMBINA(4,3)"), N(20));
  near(book, u"COMBINA(1E+15,2)", 5e29);
  EXPECT_EQ(book.eval(u"QUOTIENT(-7,2)"), N(-3));
  Value r = book.eval(u"RAND()");
  EXPECT_TRUE(r.number >= 0 && r.number < 1);
  Value rb = book.eval(u"RANDBETWEEN(3,5)");
  EXPECT_TRUE(rb.number >= 3 && rb.number <= 5 && rb.number == std::floor(rb.number));
}

TEST_F(Functions, ConditionalSumsAndCounts) {
  EXPECT_EQ(book.eval(u"SUMIF(B1:B6,\"apple\",A1:A6)"), N(50));
  EXPECT_EQ(book.eval(u"SUMIF(B1:B6,\"app*\",A1:A6)"), N(110));  // wildcards, no case
  EXPECT_EQ(book.eval(u"SUMIF(A1:A6,\">=30\")"), N(180));
  EXPECT_EQ(book.eval(u"SUMIF(A1:A6,\"<>30\")"), N(180));
  EXPECT_EQ(book.eval(u"SUMIF(B1:B6,\"?????\",A1:A6)"), N(10 + 40 + 0));  // five letters
  EXPECT_EQ(book.eval(u"SUMIFS(A1:A6,B1:B6,\"apple\",A1:A6,\">15\")"), N(40));
  EXPECT_EQ(book.eval(u"COUNTIF(B1:B6,\"apple\")"), N(2));
  EXPECT_EQ(book.eval(u"COUNTIF(A1:A6,\">\"&A3)"), N(3));
  EXPECT_EQ(book.eval(u"COUNTIF(D1:D6,\"\")"), N(6));  // blanks match ""
  EXPECT_EQ(book.eval(u"COUNTIF(B1:B6,\"<>apple\")"), N(4));
  EXPECT_EQ(book.eval(u"COUNTIFS(B1:B6,\"*a*\",A1:A6,\"<50\")"), N(3));
  EXPECT_EQ(book.eval(u"COUNTBLANK(A1:A10)"), N(4));
  EXPECT_EQ(book.eval(u"AVERAGEIF(B1:B6,\"apple\",A1:A6)"), N(25));
  EXPECT_EQ(book.eval(u"AVERAGEIF(B1:B6,\"kiwi\",A1:A6)"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"AVERAGEIFS(A1:A6,A1:A6,\">10\",A1:A6,\"<60\")"), N(35));
  EXPECT_EQ(book.eval(u"MAXIFS(A1:A6,B1:B6,\"apple\")"), N(40));
  EXPECT_EQ(book.eval(u"MINIFS(A1:A6,B1:B6,\"kiwi\")"), N(0));
  EXPECT_EQ(book.eval(u"SUMIFS(A1:A6,B1:B4,\"apple\")"), E(cell_error::value));  // sizes differ
  // So for the range averaged or searched, which SUMIF would stretch from its top-left cell.
  EXPECT_EQ(book.eval(u"MAXIFS(A1:A5,B1:B6,\"apple\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"AVERAGEIFS(A1,B1:B6,\"apple\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SUMIF(B1:B6,\"apple\",A1)"), N(50));
  EXPECT_EQ(book.eval(u"SUM(SUMIF(B1:B6,{\"apple\",\"date\"},A1:A6))"), N(100));
}

TEST_F(Functions, Statistics) {
  EXPECT_EQ(book.eval(u"AVERAGE(A1:A6)"), N(35));
  EXPECT_EQ(book.eval(u"MIN(A1:A6,5)"), N(5));
  EXPECT_EQ(book.eval(u"MAX(A1:A6)"), N(60));
  EXPECT_EQ(book.eval(u"MEDIAN(A1:A5,100)"), N(35));
  EXPECT_EQ(book.eval(u"LARGE(A1:A6,2)"), N(50));
  EXPECT_EQ(book.eval(u"SMALL(A1:A6,7)"), E(cell_error::num));
  near(book, u"STDEV(A1:A6)", 18.708286933869708);
  near(book, u"STDEVP(A1:A6)", 17.07825127659933);
  EXPECT_EQ(book.eval(u"VAR(A1:A6)"), N(350));
  EXPECT_EQ(book.eval(u"VARP(A1:A6)"), N(291.6666666666667));
  EXPECT_EQ(book.eval(u"RANK(40,A1:A6)"), N(3));
  EXPECT_EQ(book.eval(u"RANK(40,A1:A6,1)"), N(4));
  EXPECT_EQ(book.eval(u"RANK(45,A1:A6)"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"PERCENTILE(A1:A6,0.5)"), N(35));
  EXPECT_EQ(book.eval(u"QUARTILE(A1:A6,1)"), N(22.5));
  EXPECT_EQ(book.eval(u"MODE(1,2,2,3,3)"), N(2));
  EXPECT_EQ(book.eval(u"STDEV(1)"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"SUBTOTAL(9,A1:A6)"), N(210));
  EXPECT_EQ(book.eval(u"SUBTOTAL(101,A1:A6)"), N(35));
}

TEST_F(Functions, SubtotalsLeaveOutOtherSubtotalsHiddenRowsAndErrorsWhenAsked) {
  book.formula("A7", u"SUBTOTAL(9,A1:A6)");  // 210, itself a subtotal
  book.set("A8", Value::error(cell_error::div0));
  book.hide_row(2);                                    // A2 (20) hidden
  EXPECT_EQ(book.eval(u"SUBTOTAL(9,A1:A7)"), N(210));  // A7 is not counted again
  EXPECT_EQ(book.eval(u"SUBTOTAL(109,A1:A7)"), N(190));
  EXPECT_EQ(book.eval(u"SUBTOTAL(9,A1:A8)"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"SUM(A1:A7)"), N(420));
  EXPECT_EQ(book.eval(u"AGGREGATE(9,6,A1:A8)"), N(420));  // errors left out only
  EXPECT_EQ(book.eval(u"AGGREGATE(9,7,A1:A8)"), N(400));  // and hidden rows
  EXPECT_EQ(book.eval(u"AGGREGATE(9,3,A1:A8)"), N(190));  // and nested subtotals
  EXPECT_EQ(book.eval(u"AGGREGATE(4,0,A1:A6)"), N(60));
  EXPECT_EQ(book.eval(u"AGGREGATE(14,6,A1:A8,2)"), N(60));  // LARGE(...,2) past the error
  EXPECT_EQ(book.eval(u"AGGREGATE(3,6,A1:A8)"), N(7));
  EXPECT_EQ(book.eval(u"AGGREGATE(20,0,A1:A6)"), E(cell_error::value));
}

// A block laid out to tell AGGREGATE's options apart, with the results the application gave
// for every function number under every option. Row 6 is hidden; rows 10 and 11 hold a
// nested AGGREGATE and SUBTOTAL; E5 is an error; F repeats values for the mode (F5 is 28 only
// to within rounding, so it is not a repeat).
TEST(Aggregate, EveryFunctionNumberUnderEveryOption) {
  TestBook book;
  double c[] = {15, 77, 0, 28, 31, 96, 77, 53, 34};
  double d[] = {8, 65, 60, 63, 53, 71, 55, 83, -500, 91, 89};
  double e[] = {15, 77, 0, 28, 0, 12, 77, 53, 34};
  double f[] = {15, 77, 0, 28, 0, 28, 77, 53, 34};
  for (int r = 1; r <= 11; ++r) {
    std::string n = std::to_string(r);
    book.set("D" + n, d[r - 1]);
    if (r > 9) continue;
    book.set("C" + n, c[r - 1]);
    book.set("E" + n, e[r - 1]);
    book.set("F" + n, f[r - 1]);
  }
  book.set("K3", 30);
  book.formula("C3", u"K3");
  book.formula("E3", u"K3");
  book.formula("F3", u"L3");
  book.formula("E5", u"1/0");
  book.formula("F5", u"2.8/0.1");
  // As files store it, with the prefix of functions newer than the file format.
  book.formula("C10", u"_xlfn.AGGREGATE(1,4,D1:D11)");
  book.formula("E10", u"AGGREGATE(1,4,D2:D11)");
  book.formula("F10", u"AGGREGATE(1,4,D2:D11)");
  for (const char* col : {"C", "E", "F"})
    book.formula(std::string(col) + "11", u"SUBTOTAL(4,D1:D11)");
  book.hide_row(6);

  struct Case {
    int option;
    const char* columns;  // the column each function number reads, 1 to 19
    double k[6];          // for 14 to 19
    double want[19];
  };
  const Case cases[] = {
      {0,
       "CCCCCCCCCCCCFCCCCCC",
       {2, 2, 0.4, 1, 0.8, 1},
       {49, 9, 9, 96, 15, 400626533260800, 28.062430400804562, 26.457513110645905, 441, 787.5, 700,
        34, 77, 77, 28, 31.6, 30, 77, 29}},
      {1,
       "CCCCCCCCCCCCFCCCCCC",
       {2, 2, 0.4, 2, 0.3, 2},
       {43.125, 8, 8, 77, 15, 4173193054800, 23.344852598745252, 21.837110042311, 345,
        544.9821428571429, 476.859375, 32.5, 77, 77, 28, 30.8, 32.5, 29.4, 32.5}},
      {2,
       "EEEEEEEEEEEEFDDDDDD",
       {1, 2, 0.4, 2, 0.3, 2},
       {40.75, 8, 8, 77, 12, 1615429569600, 25.611102503183485, 23.956992716115266, 326,
        655.9285714285714, 573.9375, 32, 77, 91, 8, 60, 63, 54.2, 63}},
      {3,
       "CCCCECCCCCCCFCCCCCC",
       {2, 2, 0.4, 2, 0.3, 2},
       {43.125, 8, 8, 77, 15, 4173193054800, 23.344852598745252, 21.837110042311, 345,
        544.9821428571429, 476.859375, 32.5, 77, 77, 28, 30.8, 32.5, 29.4, 32.5}},
      {4,
       "CCCCCCCCCCCCFCCCCCC",
       {2, 2, 0.4, 1, 0.8, 1},
       {49.50413223140495, 11, 11, 96, 12.545454545454545, 4.573698186081024e+17,
        30.643332458992404, 29.217271109464395, 544.5454545454545, 939.0138241923374,
        853.6489310839429, 34, 77, 91, 15, 31, 29, 85.40000000000002, 28}},
      {5,
       "CCCCCCCCCCCCFCCCCCC",
       {1, 2, 0.4, 2, 0.3, 2},
       {44.85454545454546, 10, 10, 91, 12.545454545454545, 4764268943834400, 27.9127329575057,
        26.48034355972978, 448.54545454545456, 779.1206611570249, 701.2085950413224, 32.5, 77, 91,
        15, 30.6, 32.5, 28.6, 32.5}},
      {6,
       "EEEEEEEEEEEEFDDDDDD",
       {1, 2, 0.4, 2, 0.3, 2},
       {43, 10, 10, 91, 12, 1911053180836800, 29.507061301774304, 27.992856231545932, 430,
        870.6666666666666, 783.6, 32, 77, 91, 8, 60, 63, 54.2, 63}},
      {7,
       "CCCCECCCCCCCFDDDDDD",
       {1, 2, 0.4, 2, 0.3, 2},
       {44.85454545454546, 10, 10, 91, 13, 4764268943834400, 27.9127329575057, 26.48034355972978,
        448.54545454545456, 779.1206611570249, 701.2085950413224, 32.5, 77, 91, 8, 58, 61.5, 53.6,
        61.5}},
  };
  for (const Case& t : cases) {
    for (int code = 1; code <= 19; ++code) {
      std::string col(1, t.columns[code - 1]);
      std::string text = "AGGREGATE(" + std::to_string(code) + "," + std::to_string(t.option) +
                         "," + col + "1:" + col + "11";
      if (code >= 14) {
        char k[32];
        std::snprintf(k, sizeof k, ",%g", t.k[code - 14]);
        text += k;
      }
      text += ")";
      near(book, u16(text), t.want[code - 1]);
    }
  }
  // Without a k the array form has nothing to rank by; an error among the values stops
  // every option that does not leave errors out.
  EXPECT_EQ(book.eval(u"AGGREGATE(14,6,D1:D11)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"AGGREGATE(9,5,E1:E11)"), E(cell_error::div0));
  EXPECT_EQ(book.eval(u"AGGREGATE(9,8,D1:D11)"), E(cell_error::value));
  // The array form over a computed array: the #DIV/0! the filter leaves are skipped.
  EXPECT_EQ(book.eval(u"AGGREGATE(14,6,D1:D11/(D1:D11>60),1)"), N(91));
  EXPECT_EQ(book.eval(u"AGGREGATE(15,6,D1:D11/(D1:D11>60),1)"), N(63));
  EXPECT_EQ(book.eval(u"AGGREGATE(15,4,D1:D11/(D1:D11>60),1)"), E(cell_error::div0));
}

TEST_F(Functions, DistributionsAndRegression) {
  near(book, u"NORMSDIST(1.96)", 0.9750021048517795);
  near(book, u"NORM.S.DIST(0,FALSE)", 0.3989422804014327);
  near(book, u"NORM.DIST(42,40,1.5,TRUE)", 0.9087887802741321);
  near(book, u"NORMSINV(0.975)", 1.959963984540054);
  near(book, u"NORM.INV(0.908789,40,1.5)", 42.00000200956616);
  near(book, u"NORMSINV(0.0000001)", -5.199337582192818);
  EXPECT_EQ(book.eval(u"NORMSINV(1)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"NORM.DIST(1,0,0,TRUE)"), E(cell_error::num));
  near(book, u"SLOPE({2,4,6},{1,2,3})", 2);
  near(book, u"INTERCEPT({3,5,7},{1,2,3})", 1);
  near(book, u"FORECAST(4,{3,5,7},{1,2,3})", 9);
  near(book, u"CORREL({1,2,3},{2,4,7})", 0.9933992677987828);
  near(book, u"COVARIANCE.S({1,2,3},{2,4,7})", 2.5);
  near(book, u"AVEDEV(2,4,6)", 4.0 / 3);
  near(book, u"DEVSQ(2,4,6)", 8);
  near(book, u"PERCENTRANK({1,2,3,4},3)", 0.666);
  near(book, u"SUMX2MY2({2,3},{1,1})", 11);
  near(book, u"INDEX(MMULT({1,2;3,4},{5;6}),2,1)", 39);
  EXPECT_EQ(book.eval(u"SUMXMY2({\"a\"},{1})"), E(cell_error::div0));  // no pair of numbers
  // The smallest count whose cumulative probability reaches the level, for few trials and
  // for so many that counting up one by one would never end.
  EXPECT_EQ(book.eval(u"BINOM.INV(10,0.5,0.5)"), N(5));
  EXPECT_EQ(book.eval(u"CRITBINOM(6,0.5,0.75)"), N(4));
  near(book, u"BINOM.INV(1E+15,0.5,0.5)/1E+15", 0.5);
  Value many = book.eval(u"BINOM.INV(1E+15,0.5,0.75)");
  EXPECT_TRUE(many.number > 5e14 && many.number < 5e14 + 2e7) << many.number;
  // BESSELK keeps the digits of the polynomial fits workbooks were saved with (the exact
  // K1(1.5) is 0.2773878004568), on both sides of x = 2 and up the recurrence.
  near(book, u"BESSELK(1.5,1)", 0.277387803602702);
  near(book, u"BESSELK(1.5,0)", 0.21380556576365);
  near(book, u"BESSELK(1.5,7)", 2457.70043954872);
  EXPECT_EQ(book.eval(u"BESSELK(0,1)"), E(cell_error::num));
}

TEST_F(Functions, Logic) {
  EXPECT_EQ(book.eval(u"IF(A1>5,\"big\",\"small\")"), S(u"big"));
  EXPECT_EQ(book.eval(u"IF(FALSE,1)"), B(false));
  EXPECT_EQ(book.eval(u"IF(\"TRUE\",1,2)"), N(1));
  EXPECT_EQ(book.eval(u"IF(\"x\",1,2)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"IF(TRUE,1,1/0)"), N(1));  // the other branch is not evaluated
  EXPECT_EQ(book.eval(u"IFS(A1>50,\"a\",A1>5,\"b\")"), S(u"b"));
  EXPECT_EQ(book.eval(u"IFS(A1>50,\"a\")"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"AND(A1:A6)"), B(true));
  EXPECT_EQ(book.eval(u"AND(TRUE,0)"), B(false));
  EXPECT_EQ(book.eval(u"OR(B1:B6)"), E(cell_error::value));  // nothing logical to read
  EXPECT_EQ(book.eval(u"XOR(TRUE,TRUE,TRUE)"), B(true));
  EXPECT_EQ(book.eval(u"NOT(0)"), B(true));
  EXPECT_EQ(book.eval(u"CHOOSE(2,\"a\",\"b\",\"c\")"), S(u"b"));
  EXPECT_EQ(book.eval(u"CHOOSE(4,\"a\",\"b\",\"c\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SUM(CHOOSE(2,A1:A2,A3:A4))"), N(70));
  EXPECT_EQ(book.eval(u"SWITCH(2,1,\"one\",2,\"two\",\"many\")"), S(u"two"));
  EXPECT_EQ(book.eval(u"SWITCH(9,1,\"one\",\"many\")"), S(u"many"));
  EXPECT_EQ(book.eval(u"TRUE()"), B(true));
}

TEST_F(Functions, Information) {
  book.set("D1", Value::error(cell_error::na));
  book.set("D2", Value::error(cell_error::ref));
  EXPECT_EQ(book.eval(u"ISBLANK(D9)"), B(true));
  EXPECT_EQ(book.eval(u"ISBLANK(\"\")"), B(false));
  EXPECT_EQ(book.eval(u"ISNA(D1)"), B(true));
  EXPECT_EQ(book.eval(u"ISERR(D1)"), B(false));
  EXPECT_EQ(book.eval(u"ISERR(D2)"), B(true));
  EXPECT_EQ(book.eval(u"ISNUMBER(A1)"), B(true));
  EXPECT_EQ(book.eval(u"ISNUMBER(\"1\")"), B(false));
  EXPECT_EQ(book.eval(u"ISTEXT(B1)"), B(true));
  EXPECT_EQ(book.eval(u"ISLOGICAL(TRUE)"), B(true));
  EXPECT_EQ(book.eval(u"ISREF(A1:B2)"), B(true));
  EXPECT_EQ(book.eval(u"ISREF(1)"), B(false));
  EXPECT_EQ(book.eval(u"ISEVEN(-2.5)"), B(true));
  EXPECT_EQ(book.eval(u"ISODD(3)"), B(true));
  EXPECT_EQ(book.eval(u"NA()"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"ERROR.TYPE(D2)"), N(4));
  EXPECT_EQ(book.eval(u"ERROR.TYPE(1)"), E(cell_error::na));
  book.formula("D3", u"SUM( A1:A2 )*2");
  EXPECT_EQ(book.eval(u"ISFORMULA(D3)"), B(true));
  EXPECT_EQ(book.eval(u"ISFORMULA(A1)"), B(false));
  EXPECT_EQ(book.eval(u"FORMULATEXT(D3)"), S(u"=SUM( A1:A2 )*2"));
  EXPECT_EQ(book.eval(u"FORMULATEXT(A1)"), E(cell_error::na));
}

TEST_F(Functions, Text) {
  EXPECT_EQ(book.eval(u"LEN(B2)"), N(6));
  EXPECT_EQ(book.eval(u"LEFT(B2,3)&RIGHT(B2,2)&MID(B2,2,3)"), S(u"bannaana"));
  EXPECT_EQ(book.eval(u"LEFT(B2)"), S(u"b"));
  EXPECT_EQ(book.eval(u"MID(B2,10,2)"), S(u""));
  EXPECT_EQ(book.eval(u"LEFT(B2,-1)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"UPPER(\"abc\")&LOWER(\"DéF\")"), S(u"ABCdéf"));
  EXPECT_EQ(book.eval(u"PROPER(\"hello wORLD-again 2nd\")"), S(u"Hello World-Again 2Nd"));
  EXPECT_EQ(book.eval(u"TRIM(\"  a   b  \")"), S(u"a b"));
  EXPECT_EQ(book.eval(u"CONCATENATE(\"a\",1,TRUE)"), S(u"a1TRUE"));
  EXPECT_EQ(book.eval(u"CONCAT(B1:B2,\"!\")"), S(u"applebanana!"));
  EXPECT_EQ(book.eval(u"TEXTJOIN(\", \",TRUE,B1:B3,D1)"), S(u"apple, banana, cherry"));
  // Delimiters from a range or array take turns, an empty one among them too.
  EXPECT_EQ(book.eval(u"TEXTJOIN({\"-\",\"/\"},FALSE,A1:A4)"), S(u"10-20/30-40"));
  EXPECT_EQ(book.eval(u"TEXTJOIN(D1:D2,TRUE,B1:B3)"), S(u"applebananacherry"));
  EXPECT_EQ(book.eval(u"TEXT(1234.5,\"#,##0.00\")"), S(u"1,234.50"));
  EXPECT_EQ(book.eval(u"TEXT(C1,\"mmm d, yyyy\")"), S(u"Jan 1, 2026"));
  EXPECT_EQ(book.eval(u"TEXT(0.25,\"0%\")"), S(u"25%"));
  EXPECT_EQ(book.eval(u"VALUE(\"1,234.5\")"), N(1234.5));
  EXPECT_EQ(book.eval(u"VALUE(\"abc\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"FIND(\"an\",B2)"), N(2));
  EXPECT_EQ(book.eval(u"FIND(\"AN\",B2)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SEARCH(\"AN\",B2,3)"), N(4));
  EXPECT_EQ(book.eval(u"SEARCH(\"c?e\",B3)"), N(1));
  EXPECT_EQ(book.eval(u"SUBSTITUTE(\"a-b-c\",\"-\",\"+\")"), S(u"a+b+c"));
  EXPECT_EQ(book.eval(u"SUBSTITUTE(\"a-b-c\",\"-\",\"+\",2)"), S(u"a-b+c"));
  EXPECT_EQ(book.eval(u"REPLACE(\"abcdef\",2,3,\"X\")"), S(u"aXef"));
  EXPECT_EQ(book.eval(u"REPT(\"ab\",3)"), S(u"ababab"));
  EXPECT_EQ(book.eval(u"EXACT(\"a\",\"A\")"), B(false));
  EXPECT_EQ(book.eval(u"CHAR(65)&CHAR(128)"), S(u"A€"));
  EXPECT_EQ(book.eval(u"CODE(\"€\")"), N(128));
  EXPECT_EQ(book.eval(u"DOLLAR(-1234.567)"), S(u"($1,234.57)"));
  EXPECT_EQ(book.eval(u"DOLLAR(1234.567,-2)"), S(u"$1,200"));
  EXPECT_EQ(book.eval(u"FIXED(1234.567,1)"), S(u"1,234.6"));
  EXPECT_EQ(book.eval(u"FIXED(1234.567,1,TRUE)"), S(u"1234.6"));
  EXPECT_EQ(book.eval(u"T(B1)&T(A1)"), S(u"apple"));
  EXPECT_EQ(book.eval(u"N(A1)+N(B1)+N(TRUE)"), N(11));
}

TEST_F(Functions, DatesAndTimes) {
  EXPECT_EQ(book.eval(u"DATE(2026,11,14)"), N(46340));
  EXPECT_EQ(book.eval(u"DATE(2026,14,1)"), N(46419));  // month 14 rolls into next year
  EXPECT_EQ(book.eval(u"DATE(26,1,1)"), N(9498));      // two-digit years are 1900-based
  EXPECT_EQ(book.eval(u"YEAR(46340)&\"-\"&MONTH(46340)&\"-\"&DAY(46340)"), S(u"2026-11-14"));
  EXPECT_EQ(book.eval(u"DAY(60)"), N(29));
  EXPECT_EQ(book.eval(u"TODAY()"), N(46000));
  EXPECT_EQ(book.eval(u"NOW()"), N(46000.75));
  EXPECT_EQ(book.eval(u"TIME(25,30,0)"), N(1.5 / 24));
  EXPECT_EQ(book.eval(u"HOUR(0.75)&\":\"&MINUTE(0.7507)&\":\"&SECOND(0.75+1/86400)"), S(u"18:1:1"));
  EXPECT_EQ(book.eval(u"WEEKDAY(46340)"), N(7));  // Saturday
  EXPECT_EQ(book.eval(u"WEEKDAY(46340,2)"), N(6));
  EXPECT_EQ(book.eval(u"WEEKDAY(46340,3)"), N(5));
  EXPECT_EQ(book.eval(u"EDATE(DATE(2026,1,31),1)"), N(46081));  // 28 Feb 2026
  EXPECT_EQ(book.eval(u"EOMONTH(DATE(2026,1,15),1)"), N(46081));
  EXPECT_EQ(book.eval(u"EOMONTH(DATE(2024,1,15),1)"), N(45351));  // 29 Feb 2024
  EXPECT_EQ(book.eval(u"EOMONTH(DATE(1900,1,15),1)"), N(60));     // the 29 February 1900 counted
  EXPECT_EQ(book.eval(u"EDATE(DATE(1900,1,31),1)"), N(60));
  EXPECT_EQ(book.eval(u"DATEDIF(DATE(2020,5,15),DATE(2026,3,10),\"Y\")"), N(5));
  EXPECT_EQ(book.eval(u"DATEDIF(DATE(2020,5,15),DATE(2026,3,10),\"M\")"), N(69));
  EXPECT_EQ(book.eval(u"DATEDIF(DATE(2020,5,15),DATE(2026,3,10),\"MD\")"), N(23));
  EXPECT_EQ(book.eval(u"DATEDIF(DATE(2026,1,2),DATE(2026,1,1),\"D\")"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"DAYS(DATE(2026,3,1),DATE(2026,2,1))"), N(28));
  EXPECT_EQ(book.eval(u"DAYS(DATE(2026,3,1),-1)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"NETWORKDAYS(DATE(2026,11,2),DATE(2026,11,13))"), N(10));
  EXPECT_EQ(book.eval(u"NETWORKDAYS(DATE(2026,11,2),DATE(2026,11,13),DATE(2026,11,11))"), N(9));
  EXPECT_EQ(book.eval(u"WORKDAY(DATE(2026,11,13),1)"), N(46342));  // Friday -> Monday
  EXPECT_EQ(book.eval(u"WORKDAY(DATE(2026,11,16),-1)"), N(46339));
  near(book, u"YEARFRAC(DATE(2026,1,1),DATE(2026,7,1))", 0.5);
  near(book, u"YEARFRAC(DATE(2026,1,1),DATE(2026,7,1),1)", 181.0 / 365);
  near(book, u"YEARFRAC(DATE(2026,1,1),DATE(2026,7,1),3)", 181.0 / 365);
  EXPECT_EQ(book.eval(u"DATEVALUE(\"11/14/2026\")"), N(46340));
  EXPECT_EQ(book.eval(u"DATEVALUE(\"abc\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"TIMEVALUE(\"6:00 PM\")"), N(0.75));
  EXPECT_EQ(book.eval(u"YEAR(-1)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"MONTH(\"3/15/2026\")"), N(3));
}

TEST_F(Functions, Lookups) {
  EXPECT_EQ(book.eval(u"VLOOKUP(\"cherry\",B1:C6,2,FALSE)"), N(46085));
  EXPECT_EQ(book.eval(u"VLOOKUP(\"CHER*\",B1:C6,2,0)"), N(46085));
  EXPECT_EQ(book.eval(u"VLOOKUP(\"kiwi\",B1:C6,2,FALSE)"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"VLOOKUP(35,A1:B6,2)"), S(u"cherry"));  // sorted: the last not above
  EXPECT_EQ(book.eval(u"VLOOKUP(5,A1:B6,2)"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"VLOOKUP(30,A1:B6,3,FALSE)"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"VLOOKUP(30,A1:B6,0,FALSE)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"VLOOKUP(\"30\",A1:B6,2,FALSE)"),
            E(cell_error::na));  // no text-number match
  EXPECT_EQ(book.eval(u"HLOOKUP(20,A1:A6,1,FALSE)"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"HLOOKUP(\"b\",{\"a\",\"b\";1,2},2,FALSE)"), N(2));
  EXPECT_EQ(book.eval(u"MATCH(40,A1:A6,0)"), N(4));
  EXPECT_EQ(book.eval(u"MATCH(45,A1:A6)"), N(4));
  EXPECT_EQ(book.eval(u"MATCH(45,{60,50,40,30},-1)"), N(2));
  EXPECT_EQ(book.eval(u"MATCH(\"b*\",B1:B6,0)"), N(2));
  EXPECT_EQ(book.eval(u"INDEX(A1:B6,3,2)"), S(u"cherry"));
  EXPECT_EQ(book.eval(u"INDEX(A1:A6,4)"), N(40));
  EXPECT_EQ(book.eval(u"SUM(INDEX(A1:B6,0,1))"), N(210));
  EXPECT_EQ(book.eval(u"INDEX(A1:A6,7)"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"SUM(A1:INDEX(A1:A6,3))"), N(60));  // INDEX gives a reference
  EXPECT_EQ(book.eval(u"LOOKUP(35,A1:A6,B1:B6)"), S(u"cherry"));
  EXPECT_EQ(book.eval(u"XLOOKUP(\"date\",B1:B6,A1:A6)"), N(50));
  EXPECT_EQ(book.eval(u"XLOOKUP(\"kiwi\",B1:B6,A1:A6,\"none\")"), S(u"none"));
  EXPECT_EQ(book.eval(u"XLOOKUP(\"apple\",B1:B6,A1:A6,,0,-1)"), N(40));  // last to first
  EXPECT_EQ(book.eval(u"XLOOKUP(35,A1:A6,B1:B6,,-1)"), S(u"cherry"));    // next smaller
  EXPECT_EQ(book.eval(u"XLOOKUP(35,A1:A6,B1:B6,,1)"), S(u"apple"));      // next larger
  EXPECT_EQ(book.eval(u"SUM(OFFSET(A1,1,0,3,1))"), N(90));
  EXPECT_EQ(book.eval(u"OFFSET(A1,-1,0)"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"INDIRECT(\"A\"&2)"), N(20));
  EXPECT_EQ(book.eval(u"SUM(INDIRECT(\"Sheet1!A1:A3\"))"), N(60));
  EXPECT_EQ(book.eval(u"INDIRECT(\"R2C1\",FALSE)"), N(20));
  EXPECT_EQ(book.eval(u"INDIRECT(\"nowhere!A1\")"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"ROW()"), N(100));
  EXPECT_EQ(book.eval(u"ROW(C7:D9)+COLUMN(C7)"), N(10));
  EXPECT_EQ(book.eval(u"ROWS(A1:B6)*COLUMNS(A1:B6)"), N(12));
  EXPECT_EQ(book.eval(u"ROWS({1,2;3,4;5,6})"), N(3));
  EXPECT_EQ(book.eval(u"ADDRESS(2,3)"), S(u"$C$2"));
  EXPECT_EQ(book.eval(u"ADDRESS(2,3,4)"), S(u"C2"));
  EXPECT_EQ(book.eval(u"ADDRESS(2,3,2,FALSE)"), S(u"R2C[3]"));
  EXPECT_EQ(book.eval(u"ADDRESS(1,1,1,TRUE,\"My Sheet\")"), S(u"'My Sheet'!$A$1"));
}

TEST_F(Functions, Finance) {
  near(book, u"PMT(0.05/12,360,200000)", -1073.6432460242797);
  near(book, u"PMT(0,12,1200)", -100);
  near(book, u"PMT(0.1,2,1000,0,1)", -523.8095238095239);
  near(book, u"PV(0.08/12,240,-500)", 59777.14585118155);
  near(book, u"FV(0.06/12,10,-200,-500,1)", 2581.4033740601185);
  near(book, u"NPV(0.1,-10000,3000,4200,6800)", 1188.4434123352207);
  near(book, u"IRR({-70000,12000,15000,18000,21000,26000})", 0.08663094803653171);
  near(book, u"NPER(0.12/12,-100,-1000,10000,1)", 59.67386567429457);
  near(book, u"RATE(48,-200,8000)", 0.007701472488246008);
  near(book, u"IPMT(0.1/12,1,36,8000)", -66.66666666666667);
  near(book, u"PPMT(0.1/12,1,24,2000)", -75.62318600836664);
  near(book, u"IPMT(0.1,2,2,1000,0,1)", -47.61904761904762);
  near(book, u"XNPV(0.09,{-10000,2750,4250,3250,2750},{39448,39508,39751,39859,39904})",
       2086.6476020315354);
  near(book, u"XIRR({-10000,2750,4250,3250,2750},{39448,39508,39751,39859,39904})",
       0.3733625335188314);
  EXPECT_EQ(book.eval(u"SLN(30000,7500,10)"), N(2250));
  EXPECT_EQ(book.eval(u"IRR({1,2,3})"), E(cell_error::num));  // no sign change
}

TEST_F(Functions, CriteriaOnTextDatesBooleansAndEscapes) {
  book.set("D1", u"a*b");
  book.set("D2", u"axb");
  book.set_bool("D3", true);
  book.set("D4", u"TRUE");
  EXPECT_EQ(book.eval(u"COUNTIF(C1:C6,\">\"&DATE(2026,3,1))"), N(4));
  EXPECT_EQ(book.eval(u"COUNTIF(C1:C6,\"<=3/4/2026\")"), N(3));  // a typed date in the text
  EXPECT_EQ(book.eval(u"COUNTIF(D1:D4,\"a~*b\")"), N(1));        // ~ makes * literal
  EXPECT_EQ(book.eval(u"COUNTIF(D1:D4,\"a*b\")"), N(2));
  EXPECT_EQ(book.eval(u"COUNTIF(D1:D4,TRUE)"), N(1));          // the Boolean, not the text
  EXPECT_EQ(book.eval(u"SUMIF(B1:B6,\"<c\",A1:A6)"), N(130));  // text order, no case
  EXPECT_EQ(book.eval(u"COUNTIF(A1:A6,\"=20\")+COUNTIF(A1:A6,20)"), N(2));
  EXPECT_EQ(book.eval(u"COUNTIF(A1:A9,\"=\")"), N(3));  // the empty A7:A9
  EXPECT_EQ(book.eval(u"COUNTIF(A1:A9,\"<>\")"), N(6));
}

TEST_F(Functions, LookupsOverDuplicatesMixedKindsAndAreas) {
  EXPECT_EQ(book.eval(u"MATCH(2,{1,2,2,2,3})"), N(4));  // the last of equal values
  EXPECT_EQ(book.eval(u"MATCH(3,{1,\"x\",3,\"y\"})"), N(3));
  EXPECT_EQ(book.eval(u"VLOOKUP(\"c\",{\"a\",1;\"b\",2;\"d\",4},2)"), N(2));
  EXPECT_EQ(book.eval(u"MATCH(\"B*\",{\"apple\",\"Banana\"},0)"), N(2));
  EXPECT_EQ(book.eval(u"INDEX((A1:A2,C1:C2),2,1,2)"), N(46054));
  EXPECT_EQ(book.eval(u"INDEX((A1:A2,C1:C2),1,1,3)"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"SUM(OFFSET(A4,0,0,-2,1))"), N(70));
  EXPECT_EQ(book.eval(u"XMATCH(45,A1:A6,1)"), N(5));
  EXPECT_EQ(book.eval(u"XMATCH(\"d*\",B1:B6,2)"), N(5));
  EXPECT_EQ(book.eval(u"SUM(XLOOKUP(\"date\",B1:B6,A1:C6))"), N(50 + 46147));  // a whole row
}

TEST_F(Functions, DateEdgesAndTheOtherDateSystem) {
  near(book, u"YEARFRAC(DATE(2024,1,1),DATE(2025,7,1),1)", 547 / 365.5);
  EXPECT_EQ(book.eval(u"DAYS360(DATE(2026,1,31),DATE(2026,3,31))"), N(60));
  EXPECT_EQ(book.eval(u"DAYS360(DATE(2026,2,28),DATE(2026,3,31))"), N(30));
  EXPECT_EQ(book.eval(u"DAYS360(DATE(2026,2,28),DATE(2026,3,31),TRUE)"), N(32));
  EXPECT_EQ(book.eval(u"NETWORKDAYS.INTL(DATE(2026,11,2),DATE(2026,11,15),11)"), N(12));
  EXPECT_EQ(book.eval(u"NETWORKDAYS.INTL(DATE(2026,11,2),DATE(2026,11,15),\"0000011\")"), N(10));
  EXPECT_EQ(book.eval(u"NETWORKDAYS(DATE(2026,11,13),DATE(2026,11,2))"), N(-10));
  // A holiday typed as text counts when it reads as a date and is refused when it does not.
  EXPECT_EQ(book.eval(u"NETWORKDAYS(DATE(2026,11,2),DATE(2026,11,13),\"2026-11-11\")"), N(9));
  EXPECT_EQ(book.eval(u"WORKDAY(DATE(2026,11,13),1,\"none\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"WORKDAY.INTL(DATE(2026,11,13),1,\"0000001\")"),
            N(46340));  // Saturday works
  EXPECT_EQ(book.eval(u"WEEKNUM(DATE(2026,1,4))"), N(2));
  EXPECT_EQ(book.eval(u"WEEKNUM(DATE(2026,1,4),2)"), N(1));
  EXPECT_EQ(book.eval(u"ISOWEEKNUM(DATE(2027,1,1))"), N(53));
  EXPECT_EQ(book.eval(u"EDATE(DATE(2026,3,31),-1)"), N(46081));
  // "MD" counts against the length of the month before the end date, and so goes below
  // zero after a long month, as the application's does.
  EXPECT_EQ(book.eval(u"DATEDIF(DATE(2026,1,31),DATE(2026,3,1),\"MD\")"), N(-2));
  EXPECT_EQ(book.eval(u"DATEDIF(DATE(2025,12,25),DATE(2026,1,5),\"YD\")"), N(11));
  book.use_1904 = true;
  EXPECT_EQ(book.eval(u"DATE(2026,11,14)"), N(46340 - 1462));
  EXPECT_EQ(book.eval(u"YEAR(0)"), N(1904));
  EXPECT_EQ(book.eval(u"WEEKDAY(0)"), N(6));  // 1 January 1904 was a Friday
  EXPECT_EQ(book.eval(u"TEXT(0,\"d mmm yyyy\")"), S(u"1 Jan 1904"));
}

TEST_F(Functions, FinanceRelationsAndSchedules) {
  // Each annuity function undoes the others.
  near(book, u"PMT(RATE(10,-100,800),10,800)", -100);
  near(book, u"PV(0.01,NPER(0.01,-100,1000),-100)", 1000);
  near(book, u"FV(0.05,10,PMT(0.05,10,0,5000))", 5000);
  near(book, u"PV(RATE(10,-100,800,0,1),10,-100,0,1)", 800);
  near(book, u"CUMIPMT(0.09/12,360,125000,13,24,0)", -11135.232130750845);
  near(book, u"CUMPRINC(0.09/12,360,125000,13,24,0)", -934.1071234208765);
  near(book, u"SUM(IPMT(0.1/12,{1,2,3},36,8000))-CUMIPMT(0.1/12,36,8000,1,3,0)", 0);
  near(book, u"DDB(2400,300,10,2)", 384);
  near(book, u"DB(1000000,100000,6,1,7)", 186083.33333333334);
  near(book, u"SYD(30000,7500,10,1)", 4090.909090909091);
  near(book, u"EFFECT(0.0525,4)", 0.05354266737075841);
  near(book, u"NOMINAL(EFFECT(0.0525,4),4)", 0.0525);
  Value mirr = book.eval(u"MIRR({-120000,39000,30000,21000,37000,46000},0.1,0.12)");
  EXPECT_NEAR(mirr.number, 0.126094, 1e-6);
  EXPECT_EQ(book.eval(u"PMT(0.1,0,1000)"), E(cell_error::num));
}

TEST_F(Functions, TextFormatsSearchesAndNumbers) {
  EXPECT_EQ(book.eval(u"TEXT(-1234.5,\"$#,##0.00;($#,##0.00)\")"), S(u"($1,234.50)"));
  EXPECT_EQ(book.eval(u"TEXT(0.5,\"h:mm AM/PM\")"), S(u"12:00 PM"));
  EXPECT_EQ(book.eval(u"TEXT(46340,\"dddd\")"), S(u"Saturday"));
  EXPECT_EQ(book.eval(u"TEXT(\"abc\",\"0.00\")"), S(u"abc"));
  EXPECT_EQ(book.eval(u"TEXT(\"12\",\"0.00\")"), S(u"12.00"));  // number-like text formats
  EXPECT_EQ(book.eval(u"TEXT(1,\"[Purple]0\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SEARCH(\"~*\",\"a*b\")"), N(2));
  EXPECT_EQ(book.eval(u"SEARCH(\"a?c\",\"xxabc\")"), N(3));
  EXPECT_EQ(book.eval(u"FIND(\"\",\"abc\",2)"), N(2));
  EXPECT_EQ(book.eval(u"NUMBERVALUE(\"1.234,5\",\",\",\".\")"), N(1234.5));
  EXPECT_EQ(book.eval(u"NUMBERVALUE(\"50%\")"), N(0.5));
  EXPECT_EQ(book.eval(u"VALUE(\"9:30 PM\")"), N(21.5 / 24));
  EXPECT_EQ(book.eval(u"LEN(1/3)"), N(17));  // "0.333333333333333"
  EXPECT_EQ(book.eval(u"\"\"&1E+20&\"|\"&0.00001&\"|\"&-0"), S(u"1E+20|0.00001|0"));
  EXPECT_EQ(book.eval(u"UNICHAR(128512)"), S(u"\U0001F600"));
  EXPECT_EQ(book.eval(u"UNICODE(UNICHAR(128512))"), N(128512));
  EXPECT_EQ(book.eval(u"CLEAN(\"a\"&CHAR(9)&\"b\")"), S(u"ab"));
  EXPECT_EQ(book.eval(u"REPT(\"ab\",20000)"), E(cell_error::value));  // past 32,767 characters
}

TEST_F(Functions, SelectionsFilterSortAndUnique) {
  // The whole result, as it spills: "rows x cols: v1 v2 ..." for short messages.
  auto spill = [&](std::u16string_view text) {
    auto f = parse(text, Notation::A1, cell("H1"), 0, book);
    Spill s = evaluate_spill(*f, cell("H1"), 0, book);
    std::string out = std::to_string(s.rows) + "x" + std::to_string(s.cols) + ":";
    for (const Value& v : s.values)
      out += " " + (v.kind == Value::Kind::Number    ? std::to_string(static_cast<int>(v.number))
                    : v.kind == Value::Kind::Text    ? to_utf8(v.text)
                    : v.kind == Value::Kind::Boolean ? (v.number != 0 ? "TRUE" : "FALSE")
                                                     : to_utf8(error_text(v.error_code())));
    return out;
  };
  EXPECT_EQ(spill(u"FILTER(A1:A6,B1:B6=\"apple\")"), "2x1: 10 40");
  EXPECT_EQ(spill(u"FILTER(A1:B6,A1:A6>=50)"), "2x2: 50 date 60 Apple pie");
  EXPECT_EQ(spill(u"FILTER(A1:C2,{1,0,1})"), "2x2: 10 46023 20 46054");
  EXPECT_EQ(spill(u"FILTER(A1:A6,A1:A6>100)"), "1x1: #CALC!");
  EXPECT_EQ(spill(u"FILTER(A1:A6,A1:A6>100,\"none\")"), "1x1: none");
  EXPECT_EQ(spill(u"FILTER(A1:A6,{1,0})"), "1x1: #VALUE!");
  EXPECT_EQ(spill(u"FILTER(A1:A2,{1;\"x\"})"), "1x1: #VALUE!");
  EXPECT_EQ(spill(u"UNIQUE(B1:B6)"), "5x1: apple banana cherry date Apple pie");
  EXPECT_EQ(spill(u"UNIQUE(B1:B6,,TRUE)"), "4x1: banana cherry date Apple pie");
  EXPECT_EQ(spill(u"UNIQUE({1,1,2},TRUE)"), "1x2: 1 2");
  EXPECT_EQ(spill(u"SORT(B1:B6)"), "6x1: apple apple Apple pie banana cherry date");
  EXPECT_EQ(spill(u"SORT(A1:B3,2,-1)"), "3x2: 30 cherry 20 banana 10 apple");
  EXPECT_EQ(spill(u"SORT({3,\"b\",TRUE,1},1,1,TRUE)"), "1x4: 1 3 b TRUE");
  EXPECT_EQ(spill(u"SORT({2,\"b\";1,\"b\";3,\"a\"},{2,1},{1,-1})"), "3x2: 3 a 2 b 1 b");
  EXPECT_EQ(spill(u"SORT(A1:B3,3)"), "1x1: #VALUE!");
  EXPECT_EQ(spill(u"SORT(A1:A3,1,0)"), "1x1: #VALUE!");
  EXPECT_EQ(spill(u"SORTBY(B1:B3,A1:A3,-1)"), "3x1: cherry banana apple");
  EXPECT_EQ(spill(u"SORTBY(A1:A4,B1:B4,1,A1:A4,-1)"), "4x1: 40 10 20 30");
  EXPECT_EQ(spill(u"SORTBY(A1:A4,B1:B3)"), "1x1: #VALUE!");
  // A plain cell shows the top-left value; the condition is still read whole.
  EXPECT_EQ(book.eval(u"FILTER(A1:A6,B1:B6=\"banana\")"), N(20));
  EXPECT_EQ(book.eval(u"_xlfn._xlws.SORT(A1:A6,1,-1)"), N(60));
  EXPECT_EQ(book.eval(u"ROWS(_xlfn.UNIQUE(B1:B6))"), N(5));
  EXPECT_EQ(function_file_name(u"filter"), u"_xlfn._xlws.FILTER");
  EXPECT_EQ(function_file_name(u"SORTBY"), u"_xlfn.SORTBY");
  EXPECT_EQ(function_file_name(u"UNIQUE"), u"_xlfn.UNIQUE");
}

TEST_F(Functions, SortFilterAndUniquePickAndOrderWholeLines) {
  auto joined = [&](std::u16string_view f) {
    return book.eval(u"TEXTJOIN(\",\",FALSE," + std::u16string(f) + u")");
  };
  // Ties keep their order, text ignores case, and kinds sort numbers, text, Booleans.
  EXPECT_EQ(joined(u"SORT(B1:B6)"), S(u"apple,apple,Apple pie,banana,cherry,date"));
  EXPECT_EQ(joined(u"TAKE(SORT(A1:B6,2,-1),,1)"), S(u"50,30,20,60,10,40"));
  EXPECT_EQ(joined(u"SORT({3;\"a\";TRUE;1})"), S(u"1,3,a,TRUE"));
  EXPECT_EQ(joined(u"SORT({1,\"b\";2,\"a\";1,\"a\"},{1,2},{1,-1})"), S(u"1,b,1,a,2,a"));
  EXPECT_EQ(joined(u"SORT({3,1,2},1,1,TRUE)"), S(u"1,2,3"));
  EXPECT_EQ(book.eval(u"SORT(A1:B6,3)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"SORT(A1:B6,1,0)"), E(cell_error::value));
  EXPECT_EQ(joined(u"SORTBY(B1:B6,A1:A6,-1)"), S(u"Apple pie,date,apple,cherry,banana,apple"));
  EXPECT_EQ(joined(u"SORTBY({\"x\",\"y\",\"z\"},{2,3,1})"), S(u"z,x,y"));
  EXPECT_EQ(book.eval(u"SORTBY(B1:B6,A1:A5)"), E(cell_error::value));
  EXPECT_EQ(joined(u"FILTER(A1:A6,B1:B6=\"apple\")"), S(u"10,40"));
  EXPECT_EQ(joined(u"FILTER({1,2,3},{TRUE,FALSE,1})"), S(u"1,3"));
  EXPECT_EQ(book.eval(u"FILTER(A1:A6,A1:A6>100)"), E(2050));  // #CALC!
  EXPECT_EQ(book.eval(u"FILTER(A1:A6,A1:A6>100,\"none\")"), S(u"none"));
  EXPECT_EQ(book.eval(u"FILTER(A1:A6,{1;0})"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"FILTER(A1,1)"), N(10));
  EXPECT_EQ(joined(u"UNIQUE(B1:B6)"), S(u"apple,banana,cherry,date,Apple pie"));
  EXPECT_EQ(joined(u"UNIQUE(B1:B6,FALSE,TRUE)"), S(u"banana,cherry,date,Apple pie"));
  EXPECT_EQ(joined(u"UNIQUE({1,1,2;1,1,2},TRUE)"), S(u"1,2,1,2"));
  EXPECT_EQ(book.eval(u"UNIQUE({1;1},,TRUE)"), E(2050));
  // Files name the two older worksheet ones with both prefixes.
  EXPECT_EQ(function_file_name(u"sort"), u"_xlfn._xlws.SORT");
  EXPECT_EQ(function_file_name(u"UNIQUE"), u"_xlfn.UNIQUE");
}

TEST_F(Functions, AddInDateAndFinanceFunctionsRefuseBooleansTheCoreOnesCount) {
  book.set_bool("D1", true);
  const Value refused = E(cell_error::value);
  // Typed, from a cell, anywhere in the argument list, and for each element of an array.
  EXPECT_EQ(book.eval(u"EDATE(TRUE,1)"), refused);
  EXPECT_EQ(book.eval(u"EOMONTH(D1,0)"), refused);
  EXPECT_EQ(book.eval(u"YEARFRAC(39448,39630,FALSE)"), refused);
  EXPECT_EQ(book.eval(u"WORKDAY(39722,151,TRUE)"), refused);
  EXPECT_EQ(book.eval(u"COUPNUM(40568,40862,2,D1)"), refused);
  EXPECT_EQ(book.eval(u"XNPV(TRUE,{-100,110},{39448,39813})"), refused);
  EXPECT_EQ(book.eval(u"CUMIPMT(0.0075,360,125000,13,24,FALSE)"), refused);
  EXPECT_EQ(book.eval(u"COUNT(EDATE({39448,TRUE},1))"), N(1));
  // ACCRINT's last argument is the one meant to be a Boolean.
  near(book, u"ACCRINT(39508,39691,39569,0.1,1000,2,0,D1)", 16.666666666666668);
  near(book, u"ACCRINT(39508,39691,39569,0.1,1000,2,0,FALSE)", 16.666666666666668);
  // The core functions read TRUE as 1.
  EXPECT_EQ(book.eval(u"DATE(2008,D1,TRUE)"), N(39448));
  near(book, u"PMT(0.1,2,D1)", -0.5761904761904762);
}

TEST_F(Functions, TheOldCeilingRefusesMixedSignsAndRoundsAwayFromZero) {
  EXPECT_EQ(book.eval(u"ECMA.CEILING(2.1,0.5)"), N(2.5));
  EXPECT_EQ(book.eval(u"_xlfn.ECMA.CEILING(-2.1,-1)"), N(-3));
  EXPECT_EQ(book.eval(u"ECMA.CEILING(-2.1,1)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"CEILING(-2.1,1)"), N(-2));
  EXPECT_EQ(book.eval(u"ECMA.CEILING(5,0)"), N(0));
}

/// A spilled result as "rows x cols: v1 v2 ...", empty text shown as "-".
std::string spilled(TestBook& book, std::u16string_view text) {
  auto f = parse(text, Notation::A1, cell("H1"), 0, book);
  Spill s = evaluate_spill(*f, cell("H1"), 0, book);
  std::string out = std::to_string(s.rows) + "x" + std::to_string(s.cols) + ":";
  for (const Value& v : s.values) {
    char num[32];
    std::snprintf(num, sizeof num, "%.10g", v.number);
    out += " " + (v.kind == Value::Kind::Number    ? std::string(num)
                  : v.kind == Value::Kind::Text    ? (v.text.empty() ? "-" : to_utf8(v.text))
                  : v.kind == Value::Kind::Boolean ? (v.number != 0 ? "TRUE" : "FALSE")
                                                   : to_utf8(error_text(v.error_code())));
  }
  return out;
}

TEST_F(Functions, RegexMatchesLeftmostFirstAndRefusesWhatItCannotRun) {
  EXPECT_EQ(book.eval(uR"(REGEXTEST("abc123","\d+"))"), B(true));
  EXPECT_EQ(book.eval(uR"(REGEXTEST("ABC","abc"))"), B(false));
  EXPECT_EQ(book.eval(uR"(REGEXTEST("ABC","abc",1))"), B(true));
  EXPECT_EQ(book.eval(uR"(REGEXTEST("Q","(?i)[a-z]"))"), B(true));
  EXPECT_EQ(book.eval(uR"(REGEXTEST("Q","[^a-z]",1))"), B(false));
  EXPECT_EQ(book.eval(uR"(REGEXTEST("a{x}","^a{x}$"))"), B(true));
  EXPECT_EQ(book.eval(u"REGEXTEST(\"a\nb\",\"(?m)^b$\")"), B(true));
  // Alternatives in the order written, greedy and lazy repeats, as a backtracker finds them.
  EXPECT_EQ(book.eval(uR"(REGEXEXTRACT("abcd","b|bc"))"), S(u"b"));
  EXPECT_EQ(book.eval(uR"(REGEXEXTRACT("abcd","bc|b"))"), S(u"bc"));
  EXPECT_EQ(book.eval(uR"(REGEXEXTRACT("<a><b>","<.+?>"))"), S(u"<a>"));
  EXPECT_EQ(book.eval(uR"(REGEXEXTRACT("<a><b>","<.+>"))"), S(u"<a><b>"));
  EXPECT_EQ(book.eval(uR"(REGEXEXTRACT("aaaa","a{2,3}"))"), S(u"aaa"));
  EXPECT_EQ(book.eval(uR"(REGEXEXTRACT("xyz","\d"))"), E(cell_error::na));
  EXPECT_EQ(spilled(book, uR"(REGEXEXTRACT("a1b22c333","\d+",1))"), "3x1: 1 22 333");
  EXPECT_EQ(spilled(book, uR"(REGEXEXTRACT("2026-11-24","(\d+)-(\d+)(x)?",2))"), "1x3: 2026 11 -");
  EXPECT_EQ(spilled(book, uR"(REGEXTEST({"a1","b"},"\d"))"), "1x2: TRUE FALSE");
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("a1b22","\d+","#"))"), S(u"a#b#"));
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("a1b22c3","\d+","#",2))"), S(u"a1b#c3"));
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("a1b22c3","\d+","#",-3))"), S(u"a#b22c3"));
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("a1","\d+","#",2))"), S(u"a1"));
  EXPECT_EQ(book.eval(uR"x(REGEXREPLACE("2026-11","(\d+)-(\d+)","$2/$1 $$"))x"), S(u"11/2026 $"));
  EXPECT_EQ(book.eval(uR"x(REGEXREPLACE("ab","(?<x>a)","[${x}]"))x"), S(u"[a]b"));
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("baaac","a*","-"))"), S(u"-b--c-"));
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("cat concat","\bcat\b","dog"))"), S(u"dog concat"));
  EXPECT_EQ(book.eval(uR"(REGEXREPLACE("ab","a","$2"))"), E(cell_error::value));
  // Bad patterns and what needs backtracking are #VALUE!; hostile ones end quickly.
  for (const char16_t* bad :
       {u"(", u"a**", u"[b-a]", uR"((a)\1)", u"(?=a)", u"a++", u"[[:alpha:]]"})
    EXPECT_EQ(book.eval(u"REGEXTEST(\"a\",\"" + std::u16string(bad) + u"\")"), E(cell_error::value))
        << to_utf8(bad);
  EXPECT_EQ(book.eval(u"REGEXTEST(REPT(\"a\",40)&\"!\",\"(a*)*b\")"), B(false));
  EXPECT_EQ(book.eval(u"REGEXTEST(REPT(\"a\",30000),\"^(a|aa)+$\")"), B(true));
  EXPECT_EQ(book.eval(u"REGEXTEST(\"x\",REPT(\"(\",500)&\"x\"&REPT(\")\",500))"),
            E(cell_error::value));
  EXPECT_EQ(book.eval(u"REGEXTEST(\"a\",\"(a{1000}){1000}\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"REGEXTEST(REPT(\"a\",30000),REPT(\"(a?)\",900)&\"b\")"),
            E(cell_error::value));
  EXPECT_EQ(function_file_name(u"regexreplace"), u"_xlfn.REGEXREPLACE");
}

TEST_F(Functions, GroupbyAndPivotbySummariseByFieldsWithTotals) {
  EXPECT_EQ(spilled(book, u"GROUPBY(B1:B6,A1:A6,SUM)"),
            "6x2: apple 50 Apple pie 60 banana 20 cherry 30 date 50 Total 210");
  // By the value column, descending, ties in key order; no totals.
  EXPECT_EQ(spilled(book, u"GROUPBY(B1:B6,A1:A6,SUM,,0,-2)"),
            "5x2: Apple pie 60 apple 50 date 50 cherry 30 banana 20");
  EXPECT_EQ(spilled(book, u"GROUPBY(B1:B6,A1:A6,LAMBDA(x,COUNT(x)),0,-1,-1,A1:A6>35)"),
            "4x2: Total 3 date 1 Apple pie 1 apple 1");
  EXPECT_EQ(spilled(book, u"GROUPBY(B1:B3,A1:A3,PERCENTOF,0,0)"),
            "3x2: apple 0.1666666667 banana 0.3333333333 cherry 0.5");
  // Two levels: a subtotal under each parent, then the grand total.
  EXPECT_EQ(spilled(book, u"GROUPBY({\"x\",\"a\";\"y\",\"a\";\"x\",\"b\"},{1;3;2},SUM)"),
            "6x3: x a 1 x b 2 x - 3 y a 3 y - 3 Total - 6");
  EXPECT_EQ(spilled(book, u"GROUPBY({\"x\",\"a\";\"y\",\"a\"},{1;3},SUM,,1,,,1)"),
            "3x3: x a 1 y a 3 Total - 4");
  // A header above the first number is read as one, and shown when asked.
  EXPECT_EQ(spilled(book, u"GROUPBY({\"k\";\"a\";\"b\";\"a\"},{\"v\";1;2;3},SUM)"),
            "3x2: a 4 b 2 Total 6");
  EXPECT_EQ(spilled(book, u"GROUPBY({\"k\";\"a\";\"b\";\"a\"},{\"v\";1;2;3},SUM,3,0)"),
            "3x2: k v a 4 b 2");
  EXPECT_EQ(spilled(book, u"PIVOTBY(B1:B4,{\"x\";\"y\";\"x\";\"y\"},A1:A4,SUM)"),
            "5x4: - x y Total apple 10 40 50 banana - 20 20 cherry 30 - 30 Total 40 60 100");
  EXPECT_EQ(spilled(book, u"PIVOTBY(B1:B2,{\"x\";\"y\"},A1:A2,SUM,,0,,0)"),
            "3x3: - x y apple 10 - banana - 20");
  EXPECT_EQ(book.eval(u"GROUPBY(B1:B6,A1:A5,SUM)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"GROUPBY(B1:B6,A1:A6,1)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"GROUPBY(B1:B6,A1:A6,SUM,,,3)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"GROUPBY(B1:B6,A1:A6,SUM,,,,A1:A6>99)"), E(2050));
  EXPECT_EQ(spilled(book, u"GROUPBY({\"a\";\"a\"},{1;2},LAMBDA(x,x),0,0)"), "1x2: a #CALC!");
  EXPECT_EQ(function_file_name(u"pivotby"), u"_xlfn.PIVOTBY");
}

TEST_F(Functions, TrimrangeAndPercentof) {
  book.set("F9", 1);
  EXPECT_EQ(book.eval(u"ROWS(TRIMRANGE(A1:H20))&\"x\"&COLUMNS(TRIMRANGE(A1:H20))"), S(u"9x6"));
  EXPECT_EQ(book.eval(u"ROWS(TRIMRANGE(E7:H20))&\"x\"&COLUMNS(TRIMRANGE(E7:H20))"), S(u"1x1"));
  EXPECT_EQ(book.eval(u"ROW(TRIMRANGE(E7:H20,1,1))&\"x\"&COLUMNS(TRIMRANGE(E7:H20,1,1))"),
            S(u"9x3"));
  EXPECT_EQ(book.eval(u"ROWS(TRIMRANGE(E7:H20,2,0))&\"x\"&COLUMNS(TRIMRANGE(E7:H20,2,0))"),
            S(u"3x4"));
  EXPECT_EQ(book.eval(u"SUM(TRIMRANGE(A1:A100))"), N(210));
  EXPECT_EQ(book.eval(u"TRIMRANGE(D1:D5)"), E(cell_error::ref));
  EXPECT_EQ(book.eval(u"TRIMRANGE(A1:A5,4)"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"PERCENTOF(A1:A2,A1:A6)"), N(30.0 / 210));
  EXPECT_EQ(book.eval(u"PERCENTOF(B1:B2,A1)"), N(0));
  EXPECT_EQ(book.eval(u"PERCENTOF(1,{1,-1})"), E(cell_error::div0));
  // Functions that need something outside the file are named as such.
  EXPECT_EQ(book.eval(u"_xlfn.IMPORTCSV(\"a.csv\")"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"_xlfn.COPILOT(\"hi\")"), E(2046));
  for (const char16_t* f : {u"IMPORTTEXT", u"_xlfn.FILTERXML", u"COPILOT"})
    EXPECT_TRUE(function_not_computable(f)) << to_utf8(f);
}

TEST_F(Functions, ExponentialSmoothingFindsTrendAndSeasonOnAnyRegularTimeline) {
  // A line is forecast exactly and has no season; a missing step is filled in between.
  near(book, u"FORECAST.ETS(13,SEQUENCE(12)*10,SEQUENCE(12))", 130);
  near(book, u"FORECAST.ETS(8,{10,20,40,50,60},{1,2,4,5,6})", 80);
  near(book, u"FORECAST.ETS.CONFINT(13,SEQUENCE(12)*10,SEQUENCE(12))", 0);
  EXPECT_EQ(book.eval(u"FORECAST.ETS.SEASONALITY(SEQUENCE(12)*10,SEQUENCE(12))"), N(0));
  // A trend of 1 a step under a pattern of four: found, and continued.
  const std::u16string y = u"{6,-3,6,1,10,1,10,5,14,5,14,9,18,9,18,13}";
  EXPECT_EQ(book.eval(u"FORECAST.ETS.SEASONALITY(" + y + u",SEQUENCE(16))"), N(4));
  near(book, u"FORECAST.ETS(17," + y + u",SEQUENCE(16))", 22);
  near(book, u"FORECAST.ETS(18," + y + u",SEQUENCE(16),4)", 13);
  // Order of the timeline does not matter; equal dates are aggregated (7: summed).
  near(book, u"FORECAST.ETS(6,{50,10,40,20,30},{5,1,4,2,3})", 60);
  near(book, u"FORECAST.ETS(5,{5,5,20,30,40},{1,1,2,3,4},0,1,7)", 50);
  EXPECT_EQ(book.eval(u"FORECAST.ETS.STAT({3,6,9,12},{10,20,30,40},8)"), N(10));
  Value alpha = book.eval(u"FORECAST.ETS.STAT(" + y + u",SEQUENCE(16),1)");
  EXPECT_TRUE(alpha.kind == Value::Kind::Number && alpha.number >= 0 && alpha.number <= 1);
  Value wide = book.eval(u"FORECAST.ETS.CONFINT(20,{1,5,2,6,3,4,8,2},SEQUENCE(8),0.9)");
  EXPECT_TRUE(wide.kind == Value::Kind::Number && wide.number > 0);
  // Far ahead is no slower than near, and wider.
  Value far = book.eval(u"FORECAST.ETS.CONFINT(1E+12,{1,5,2,6,3,4,8,2},SEQUENCE(8),0.9)");
  EXPECT_TRUE(far.kind == Value::Kind::Number && far.number > wide.number);
  // The argument checks.
  EXPECT_EQ(book.eval(u"FORECAST.ETS(5,{1,2,3},{1,2})"), E(cell_error::na));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(5,{1,2,3,4},{1,2,3.5,4})"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(0,{1,2,3,4},{1,2,3,4})"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(5,{1,2,3,4},{1,2,3,4},8761)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(5,{1,2,3,4},{1,2,3,4},3)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(5,{1,2,3,4},{1,2,3,4},0,2)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(5,{1,2,3,4},{1,2,3,\"x\"})"), E(cell_error::value));
  EXPECT_EQ(book.eval(u"FORECAST.ETS(50,{1,2,3,4},{1,2,3,40})"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS.CONFINT(5,{1,2,3,4},{1,2,3,4},1)"), E(cell_error::num));
  EXPECT_EQ(book.eval(u"FORECAST.ETS.STAT({1,2,3,4},{1,2,3,4},9)"), E(cell_error::num));
  EXPECT_EQ(function_file_name(u"forecast.ets.stat"), u"_xlfn.FORECAST.ETS.STAT");
}

TEST(FunctionNames, AtLeastEightyAndSorted) {
  auto names = function_names();
  EXPECT_GE(names.size(), 80u);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << "a name twice";
  for (const char16_t* must : {u"SUMIFS", u"XLOOKUP", u"NETWORKDAYS", u"XIRR", u"TEXTJOIN", u"IFS"})
    EXPECT_TRUE(std::binary_search(names.begin(), names.end(), String(must))) << to_utf8(must);
}

}  // namespace
}  // namespace qz::engine::calc::test
