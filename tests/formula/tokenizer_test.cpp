// The tokenizer: hand-checked cases by theme, a golden file, and invariants over the corpus.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "corpus_formulas.hpp"
#include "formula/formula.hpp"
#include "qzxl/convert.hpp"
#include "support/test_support.hpp"

namespace qz {
namespace {

// Reading options, combined as bits (0..3 covers every combination).
constexpr int kTrim = 1, kR1C1 = 2;

const char* kind(const FmlaPiece& p) {
  if (p.IsOperator) return "op";
  if (p.IsFunction) return "fn";
  if (p.IsRange) return "ref";
  if (p.IsObjectKey) return "key";
  if (p.IsValue) return "num";
  if (p.IsSimpleText) return "txt";
  return "none";
}

std::string render(const FmlaPieces& pieces, const char* sep = " | ") {
  std::string out;
  for (const auto& p : pieces) {
    if (!out.empty()) out += sep;
    out += std::to_string(p.StartPos) + " " + kind(p) + " " + to_utf8(p.ThePiece);
  }
  return out;
}

FmlaPieces parse(const String& text, int opts) {
  iFormula f;
  String formula = text;
  FmlaPieces pieces;
  if (opts & kR1C1)
    f.ParseCellFormulaR1C1(formula, pieces, opts & kTrim, false);
  else
    f.ParseCellFormula(formula, pieces, opts & kTrim, false);
  EXPECT_EQ(formula, text) << "the text changed with replacement off";
  return pieces;
}

std::string tok(const char* text, int opts = kTrim) {
  return render(parse(u16(text), opts));
}

TEST(Tokenizer, OperatorsAndSigns) {
  EXPECT_EQ(tok("=SUM(A1:B2)", 0), "1 op = | 2 fn SUM | 5 op ( | 6 ref A1:B2 | 11 op )");
  // Two operators in a row give no empty operand between them.
  EXPECT_EQ(tok("=A1<>B1"), "1 op = | 2 ref A1 | 4 op < | 5 op > | 6 ref B1");
  EXPECT_EQ(tok("=((1))"), "1 op = | 2 op ( | 3 op ( | 4 num 1 | 5 op ) | 6 op )");
  // A sign is an operator like any other, even inside a number's exponent.
  EXPECT_EQ(tok("=-5"), "1 op = | 2 op - | 3 num 5");
  EXPECT_EQ(tok("=1E-3"), "1 op = | 2 ref 1E | 4 op - | 5 num 3");
  EXPECT_EQ(tok("=2^3&4/5*6"),
            "1 op = | 2 num 2 | 3 op ^ | 4 num 3 | 5 op & | 6 num 4 | 7 op / | 8 num 5 | 9 op * | "
            "10 num 6");
  // "%", ":" and "!" do not cut; the numeric test takes a currency sign but not a percent.
  EXPECT_EQ(tok("=$5+7%"), "1 op = | 2 num $5 | 4 op + | 5 ref 7%");
  EXPECT_EQ(tok("=1.5E3"), "1 op = | 2 num 1.5E3");
}

TEST(Tokenizer, QuotesAndApostrophes) {
  EXPECT_EQ(tok("=\"a,b\"&C1"), "1 op = | 2 txt \"a,b\" | 7 op & | 8 ref C1");
  EXPECT_EQ(tok("=\"a\"\"-b\"&C1"), "1 op = | 2 txt \"a\"\"-b\" | 9 op & | 10 ref C1");
  EXPECT_EQ(tok("='My Sheet'!A1+1"), "1 op = | 2 ref 'My Sheet'!A1 | 15 op + | 16 num 1");
  EXPECT_EQ(tok("='Bob''s-1'!A1*2"), "1 op = | 2 ref 'Bob''s-1'!A1 | 15 op * | 16 num 2");
  // The apostrophe inside the text opens a single-quote state that the closing double quote
  // clears, so the "&" after it still cuts.
  EXPECT_EQ(tok("=\"it's\"&A1"), "1 op = | 2 txt \"it's\" | 8 op & | 9 ref A1");
  // An apostrophe outside any text hides every operator after it.
  EXPECT_EQ(tok("=A'1+B1"), "1 op = | 2 ref A'1+B1");
  // A lone double quote is both the first and the last character of its piece.
  EXPECT_EQ(tok("=1&\""), "1 op = | 2 num 1 | 3 op & | 4 txt \"");
  EXPECT_EQ(tok("=\"ab"), "1 op = | 2 ref \"ab");
}

TEST(Tokenizer, R1C1Brackets) {
  EXPECT_EQ(tok("=R[-1]C+R1C[2]", kTrim | kR1C1), "1 op = | 2 ref R[-1]C | 8 op + | 9 ref R1C[2]");
  // The same text in A1 notation cuts at the minus inside the brackets.
  EXPECT_EQ(tok("=R[-1]C+R1C[2]"),
            "1 op = | 2 ref R[ | 4 op - | 5 ref 1]C | 8 op + | 9 ref R1C[2]");
  EXPECT_EQ(tok("=SUM(R[-2]C:R[-1]C)", kTrim | kR1C1),
            "1 op = | 2 fn SUM | 5 op ( | 6 ref R[-2]C:R[-1]C | 19 op )");
  // A "[" inside a text is cleared with the text's closing quote.
  EXPECT_EQ(tok("=\"[\"&R[-1]C", kTrim | kR1C1), "1 op = | 2 txt \"[\" | 5 op & | 6 ref R[-1]C");
  // Brackets mean nothing in A1 notation beyond their own characters.
  EXPECT_EQ(tok("=Tbl[[#This Row],[Qty]]*2"),
            "1 op = | 2 ref Tbl[[#This Row] | 17 op , | 18 ref [Qty]] | 24 op * | 25 num 2");
}

TEST(Tokenizer, TrimmingAndPositions) {
  EXPECT_EQ(tok("= A1 + 2"), "1 op = | 3 ref A1 | 6 op + | 8 num 2");
  EXPECT_EQ(tok("= A1 + 2", 0), "1 op = | 2 ref  A1  | 6 op + | 7 num  2");
  // A blank-only segment is no operand, trimmed or not.
  EXPECT_EQ(tok("=A1+ (B1)", 0), "1 op = | 2 ref A1 | 4 op + | 6 op ( | 7 ref B1 | 9 op )");
  // Blanks between a name and its "(" still make it a function; other blanks are not cut.
  EXPECT_EQ(tok("=SUM (A1 B1)"), "1 op = | 2 fn SUM | 6 op ( | 7 ref A1 B1 | 12 op )");
  // Only spaces are blanks; a line break stays part of the piece.
  EXPECT_EQ(tok("=1+\nA2 "), "1 op = | 2 num 1 | 3 op + | 4 ref \nA2");
}

TEST(Tokenizer, BrokenReferences) {
  EXPECT_EQ(tok("=#REF!+1"), "1 op = | 2 none #REF! | 7 op + | 8 num 1");
  EXPECT_EQ(tok("=Sheet1!#ref!*2"), "1 op = | 2 none Sheet1!#ref! | 14 op * | 15 num 2");
  // Without the "!" it is no broken reference, just an unknown name.
  EXPECT_EQ(tok("=SUM(#REF)"), "1 op = | 2 fn SUM | 5 op ( | 6 ref #REF | 10 op )");
  // A function whose name holds #REF! is still a function: that test comes first.
  EXPECT_EQ(tok("=#REF!(1)"), "1 op = | 2 fn #REF! | 7 op ( | 8 num 1 | 9 op )");
}

TEST(Tokenizer, TextThatIsNoFormula) {
  EXPECT_EQ(tok(""), "1 txt ");
  EXPECT_EQ(tok("abc"), "1 txt abc");
  EXPECT_EQ(tok("TRUE"), "1 txt TRUE");
  EXPECT_EQ(tok("SUM(A1)"), "1 txt SUM(A1)");
  // Numbers as the runtime reads them: blanks, sign, grouping, currency, exponent.
  EXPECT_EQ(tok(" 1,000 "), "1 num  1,000 ");
  EXPECT_EQ(tok("-$5"), "1 num -$5");
  EXPECT_EQ(tok("1E3", kR1C1), "1 num 1E3");
  EXPECT_EQ(tok("="), "1 op =");
  // A leading blank means it is no formula.
  EXPECT_EQ(tok(" =1"), "1 txt  =1");
}

// Golden output for a wider set of formulas; regenerate with QZXL_UPDATE_GOLDEN=1 and review
// the difference before committing it.
TEST(Tokenizer, GoldenFile) {
  const std::string dir = QZXL_FORMULA_GOLDEN_DIR;
  std::ifstream cases(dir + "/tokenizer_cases.txt");
  ASSERT_TRUE(cases) << "missing " << dir << "/tokenizer_cases.txt";
  std::string line, actual;
  while (std::getline(cases, line)) {
    if (line.empty() || line[0] == '#') continue;
    const auto space = line.find(' ');
    const std::string mode = line.substr(0, space), formula = line.substr(space + 1);
    const int opts = mode == "a1" ? kTrim : mode == "r1c1" ? kTrim | kR1C1 : 0;
    actual += mode + " " + formula + "\n  " + render(parse(u16(formula), opts), "\n  ") + "\n";
  }
  const std::string expected_path = dir + "/tokenizer_expected.txt";
  if (std::getenv("QZXL_UPDATE_GOLDEN")) std::ofstream(expected_path) << actual;
  std::stringstream expected;
  expected << std::ifstream(expected_path).rdbuf();
  EXPECT_EQ(actual, expected.str());
}

// Properties every reading must have, over formulas nobody on this team wrote.
TEST(Tokenizer, CorpusInvariants) {
  const auto dir = test::corpus_dir();
  if (dir.empty()) {
    GTEST_SKIP() << "the shared corpus is not present";
  }
  const auto formulas = test::load_corpus_formulas(dir / "formulas");
  ASSERT_GT(formulas.size(), 15675u);
  iFormula parser;
  for (const auto& [source, text] : formulas) {
    for (int opts : {0, 1, 2, 3}) {
      String formula = text;
      FmlaPieces pieces;
      if (opts & kR1C1)
        parser.ParseCellFormulaR1C1(formula, pieces, opts & kTrim, false);
      else
        parser.ParseCellFormula(formula, pieces, opts & kTrim, false);
      SCOPED_TRACE(source + " " + to_utf8(text) + " mode " + std::to_string(opts));
      ASSERT_EQ(formula, text);
      ASSERT_FALSE(pieces.empty());
      String laid(text.size(), u' ');
      for (const auto& p : pieces) {
        const int flags =
            p.IsOperator + p.IsFunction + p.IsRange + p.IsObjectKey + p.IsValue + p.IsSimpleText;
        ASSERT_LE(flags, 1) << to_utf8(p.ThePiece);
        ASSERT_FALSE(p.IsObjectKey);
        ASSERT_GE(p.StartPos, 1);
        ASSERT_LE(p.StartPos + p.ThePiece.size(), text.size() + 1) << to_utf8(p.ThePiece);
        // Trimmed or not, each piece stands in the formula at its position.
        ASSERT_EQ(text.substr(p.StartPos - 1, p.ThePiece.size()), p.ThePiece);
        laid.replace(p.StartPos - 1, p.ThePiece.size(), p.ThePiece);
      }
      // Untrimmed, the pieces cover everything but blank-only stretches between operators.
      if (!(opts & kTrim)) {
        ASSERT_EQ(to_utf8(laid), to_utf8(text));
      }
    }
  }
}

}  // namespace
}  // namespace qz
