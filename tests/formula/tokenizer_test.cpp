// The tokenizer: cases by theme in a golden file, range replacement against the engine, and
// invariants over the corpus.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "formula/formula.hpp"
#include "qzxl/convert.hpp"
#include "range/library_fixture.hpp"
#include "support/test_support.hpp"

namespace qz {
namespace {

// Reading options, combined as bits (0..3 covers every combination without replacement).
constexpr int kTrim = 1, kR1C1 = 2, kReplace = 4;

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

// Reads `text` as the options say. With replacement off the text never changes and each
// piece stands at its position in it; with it on, the golden file shows where they stand.
FmlaPieces parse(String& text, int opts) {
  const String entry = text;
  FmlaPieces pieces;
  if (opts & kR1C1)
    iFormula().ParseCellFormulaR1C1(text, pieces, opts & kTrim, opts & kReplace);
  else
    iFormula().ParseCellFormula(text, pieces, opts & kTrim, opts & kReplace);
  if (opts & kReplace) return pieces;
  EXPECT_EQ(text, entry) << "the text changed with replacement off";
  for (const auto& p : pieces)
    EXPECT_EQ(text.substr(p.StartPos - 1, p.ThePiece.size()), p.ThePiece)
        << to_utf8(p.ThePiece) << " is not at " << p.StartPos << " in " << to_utf8(text);
  return pieces;
}

// The cases by theme; regenerate the expected file with QZXL_UPDATE_GOLDEN=1 and review the
// difference before committing it. Range replacement resolves references in the engine.
class Tokenizer : public test::LibraryTest {};

TEST_F(Tokenizer, GoldenFile) {
  const std::string dir = QZXL_FORMULA_GOLDEN_DIR;
  std::ifstream cases(dir + "/tokenizer_cases.txt");
  ASSERT_TRUE(cases) << "missing " << dir << "/tokenizer_cases.txt";
  const std::map<std::string, int> modes = {{"a1", kTrim},
                                            {"a1-raw", 0},
                                            {"r1c1", kTrim | kR1C1},
                                            {"a1-replace", kTrim | kReplace},
                                            {"a1-raw-replace", kReplace},
                                            {"r1c1-replace", kTrim | kR1C1 | kReplace}};
  std::string line, actual;
  while (std::getline(cases, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const auto space = line.find(' ');
    const std::string mode = line.substr(0, space), formula = line.substr(space + 1);
    String text = u16(formula);
    const std::string pieces = render(parse(text, modes.at(mode)), "\n  ");
    actual += mode + " " + formula + "\n";
    if (text != u16(formula)) actual += "  -> " + to_utf8(text) + "\n";
    actual += "  " + pieces + "\n";
  }
  const std::string expected_path = dir + "/tokenizer_expected.txt";
  if (std::getenv("QZXL_UPDATE_GOLDEN")) std::ofstream(expected_path) << actual;
  std::stringstream expected;
  expected << std::ifstream(expected_path).rdbuf();
  EXPECT_EQ(actual, expected.str());
}

TEST_F(Tokenizer, BothPublicEntriesTrimAndReplaceUnlessToldNot) {
  const iFormulaPtr f = lib->NewFormula();
  String a1 = u"= B1:B2 ", r1c1 = u"=SUM(R1C1:R2C1)", kept = u"=B1:B2";
  FmlaPieces pieces;
  f->ParseCellFormula(a1, pieces);
  EXPECT_EQ(render(pieces), "1 op = | 3 ref B1 | 5 op , | 6 ref B2");
  // An R1C1 reference is no address the application reads: it drops out of the text.
  f->ParseCellFormulaR1C1(r1c1, pieces);
  f->ParseCellFormula(kept, pieces, true, false);
  EXPECT_EQ(to_utf8(a1 + u" " + r1c1 + u" " + kept), "=B1,B2 =SUM() =B1:B2");
}

// Whether an operand that looks like a name is a number depends on the locale's currency:
// written with letters, or as "$" with letters after it, the symbol makes numbers of
// operands that read as names or references elsewhere.
TEST(TokenizerLocale, ACurrencyOfLettersMakesNumbersOfNames) {
  const std::vector<std::pair<String, std::string>> cases = {
      {u"kr",
       "1 op = | 2 num kr5 | 5 op + | 6 ref A1 | 8 op * | 9 num kr 5 | 13 op - | 14 ref krA"},
      {u"US$", "1 op = | 2 num US$5 | 6 op + | 7 ref A1 | 9 op - | 10 ref $A$1"},
      {u"$US", "1 op = | 2 num $US5 | 6 op + | 7 ref $A1 | 10 op + | 11 ref $5"},
      {u"R", "1 op = | 2 num R5 | 4 op + | 5 ref R1C1"}};
  const std::vector<std::string> formulas = {"=kr5+A1*kr 5-krA", "=US$5+A1-$A$1", "=$US5+$A1+$5",
                                             "=R5+R1C1"};
  for (size_t i = 0; i < cases.size(); ++i) {
    Locale locale;
    locale.currency = cases[i].first;
    const Locale old = set_locale(locale);
    String text = u16(formulas[i]);
    const std::string actual = render(parse(text, kTrim));
    set_locale(old);
    EXPECT_EQ(actual, cases[i].second) << formulas[i];
  }
}

struct CorpusFormula {
  std::string source;  // file and line
  String text;
};

void add(std::vector<CorpusFormula>& out, const std::string& source, std::string text) {
  if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);  // a byte-order mark
  if (text.empty()) return;
  String f = from_utf8(text);
  if (f.front() != u'=') f.insert(f.begin(), u'=');
  out.push_back({source, std::move(f)});
}

// Every string of a JSON document: the inputs sit at varying depths, and an extra string
// (an expected token's name) is one more formula to read.
void add_strings(std::vector<CorpusFormula>& out, const std::string& source,
                 const nlohmann::json& j) {
  if (j.is_string()) add(out, source, j.get<std::string>());
  if (j.is_structured())
    for (const auto& item : j) add_strings(out, source, item);
}

// Every formula of the corpus's JSON, JSON-lines, CSV, TSV and text inputs.
std::vector<CorpusFormula> load_corpus_formulas(const std::filesystem::path& dir) {
  std::vector<CorpusFormula> out;
  std::vector<std::filesystem::path> files;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir))
    files.push_back(e.path());
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    const std::string ext = path.extension().string(), name = path.filename().string();
    std::ifstream in(path, std::ios::binary);
    if (ext == ".json") add_strings(out, name, nlohmann::json::parse(in, nullptr, false));
    if ((ext != ".jsonl" && ext != ".csv" && ext != ".tsv" && ext != ".txt") ||
        name == "SOURCE.txt")
      continue;
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      const std::string where = name + ":" + std::to_string(n);
      if (ext == ".jsonl") {
        const auto j = nlohmann::json::parse(line, nullptr, false);
        for (const char* key : {"formula", "expr"})
          if (j.is_object() && j.contains(key) && j[key].is_string()) add(out, where, j[key]);
      } else if (ext == ".tsv") {
        // The formula is the last column of both tables; the first line is the header.
        if (n > 1) add(out, where, line.substr(line.rfind('\t') + 1));
      } else if (line.size() >= 2 && line.front() == '"' && line.back() == '"') {
        std::string field;  // a CSV-quoted field, quotes doubled inside
        for (size_t i = 1; i + 1 < line.size(); ++i) {
          field += line[i];
          if (line[i] == '"' && line[i + 1] == '"') ++i;
        }
        add(out, where, field);
      } else {
        add(out, where, line);
      }
    }
  }
  return out;
}

// Properties every reading must have, over formulas nobody on this team wrote.
TEST(TokenizerCorpus, Invariants) {
  const auto dir = test::corpus_dir();
  if (dir.empty()) {
    GTEST_SKIP() << "the shared corpus is not present";
  }
  const auto formulas = load_corpus_formulas(dir / "formulas");
  ASSERT_GT(formulas.size(), 15675u);
  // One array read into again and again, as AutoColor reads cell after cell: each reading
  // overwrites pieces of other lengths, kinds and modes, and must leave nothing of them.
  FmlaPieces reused;
  for (const auto& [source, text] : formulas) {
    for (int opts = 0; opts < 4; ++opts) {
      SCOPED_TRACE(source + " " + to_utf8(text) + " mode " + std::to_string(opts));
      String formula = text;
      const FmlaPieces pieces = parse(formula, opts);
      ASSERT_FALSE(pieces.empty());
      String again = text;
      if (opts & kR1C1)
        iFormula().ParseCellFormulaR1C1(again, reused, opts & kTrim, false);
      else
        iFormula().ParseCellFormula(again, reused, opts & kTrim, false);
      ASSERT_EQ(render(reused), render(pieces));
      String laid(text.size(), u' ');
      for (const auto& p : pieces) {
        ASSERT_LE(
            p.IsOperator + p.IsFunction + p.IsRange + p.IsObjectKey + p.IsValue + p.IsSimpleText,
            1);
        ASSERT_FALSE(p.IsObjectKey);
        ASSERT_GE(p.StartPos, 1);
        ASSERT_LE(p.StartPos + p.ThePiece.size(), text.size() + 1) << to_utf8(p.ThePiece);
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
