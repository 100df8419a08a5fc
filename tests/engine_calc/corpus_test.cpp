// Formulas written by real workbooks must come back exactly as they were read: parsing and
// rendering them again is how the engine shows a formula it loaded.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "calc_fixture.hpp"
#include "engine/calc/as_written.hpp"
#include "engine/calc/formula.hpp"
#include "support/test_support.hpp"

namespace qz::engine::calc::test {
namespace {

struct Sample {
  std::string text;
  CellRef at;
  std::string where;
};

/// The corpus TSV files escape backslashes, tabs and line breaks.
std::string unescape(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 1 < s.size()) {
      char n = s[++i];
      out.push_back(n == 'n' ? '\n' : n == 't' ? '\t' : n == 'r' ? '\r' : n);
    } else {
      out.push_back(s[i]);
    }
  }
  return out;
}

/// The text with function names upper-cased, as the application shows formulas that other
/// programs wrote in lower case.
String upper_functions(const String& s) {
  String out = s;
  bool quoted = false;
  for (size_t i = 0; i < out.size(); ++i) {
    if (out[i] == u'"') quoted = !quoted;
    if (quoted || out[i] != u'(') continue;
    size_t j = i;
    while (j > 0 && (std::isalnum(out[j - 1]) || out[j - 1] == u'.' || out[j - 1] == u'_')) --j;
    for (size_t k = j; k < i; ++k)
      if (out[k] >= u'a' && out[k] <= u'z') out[k] -= 32;
  }
  return out;
}

std::vector<Sample> corpus_formulas() {
  std::vector<Sample> out;
  auto dir = qz::test::corpus_dir();
  if (dir.empty()) return out;
  std::ifstream json(dir / "formulas/fx/benchmark_formulas.json");
  if (json) {
    auto arr = nlohmann::json::parse(json);
    for (size_t i = 0; i < arr.size(); ++i)
      out.push_back({arr[i].get<std::string>(), CellRef{99, 25}, "fx #" + std::to_string(i)});
  }
  std::ifstream tsv(dir / "formulas/xlsx_corpus/cell_formulas.tsv");
  std::string line;
  std::getline(tsv, line);  // header
  while (std::getline(tsv, line)) {
    std::vector<std::string> f;
    std::stringstream ss(line);
    std::string field;
    while (std::getline(ss, field, '\t')) f.push_back(field);
    if (f.size() < 6 || f[5].empty()) continue;
    out.push_back({unescape(f[5]), cell(f[2]), f[0] + "!" + f[1] + "!" + f[2]});
  }
  std::ifstream names(dir / "formulas/xlsx_corpus/defined_names.tsv");
  std::getline(names, line);
  while (std::getline(names, line)) {
    std::vector<std::string> f;
    std::stringstream ss(line);
    std::string field;
    while (std::getline(ss, field, '\t')) f.push_back(field);
    if (f.size() < 5 || f[4].empty()) continue;
    out.push_back({unescape(f[4]), CellRef{0, 0}, f[0] + " name " + f[1]});
  }
  return out;
}

TEST(CorpusFormulas, ParseAndRenderGiveBackTheText) {
  auto samples = corpus_formulas();
  if (samples.empty()) GTEST_SKIP() << "corpus not present";
  size_t parsed = 0, exact = 0, shown = 0, kept = 0;
  std::vector<std::string> refused;
  for (const Sample& s : samples) {
    String text = u16(s.text);
    // Each formula gets its own workbook, whose sheets are named as the formula spells them.
    TestBook book(std::vector<std::string>{});
    book.create_sheets = true;
    // A text the engine shows without parsing must be the one parsing and rendering give.
    const bool as_written = renders_as_written(s.text, book);
    kept += as_written;
    FormulaPtr f;
    try {
      f = parse(text, Notation::A1, s.at, 0, book);
    } catch (const Error& e) {
      refused.push_back(s.where + ": " + s.text + "  [" + e.message() + "]");
      continue;
    }
    ++parsed;
    String back = render(*f, Notation::A1, s.at, 0, book);
    if (as_written && back != text)
      ADD_FAILURE() << s.where << " taken as written\n  read:     " << s.text
                    << "\n  rendered: " << to_utf8(back);
    if (back == text || back == upper_functions(text)) {
      ++exact;
    } else if (shown++ < 20) {
      ADD_FAILURE() << s.where << "\n  read:     " << s.text << "\n  rendered: " << to_utf8(back);
    }
    // The same formula in R1C1 reads back to the same A1 text.
    String r1c1 = render(*f, Notation::R1C1, s.at, 0, book);
    FormulaPtr g;
    try {
      g = parse(r1c1, Notation::R1C1, s.at, 0, book);
    } catch (const Error& e) {
      if (shown++ < 20)
        ADD_FAILURE() << s.where << ": R1C1 " << to_utf8(r1c1) << " " << e.message();
      continue;
    }
    String again = render(*g, Notation::A1, s.at, 0, book);
    if (again != back && shown++ < 20)
      ADD_FAILURE() << s.where << "\n  via R1C1: " << to_utf8(r1c1)
                    << "\n  back:     " << to_utf8(again);
  }
  for (size_t i = 0; i < refused.size() && i < 40; ++i)
    std::cout << "refused " << refused[i] << "\n";
  std::cout << samples.size() << " formulas, " << parsed << " parsed, " << exact
            << " rendered exactly, " << kept << " shown as written\n";
  EXPECT_EQ(exact, parsed);
  // Most formulas of real workbooks are spelled as the engine writes them.
  EXPECT_GE(kept * 2, samples.size());
  // What does not parse is formula text the application itself would refuse (the corpus
  // keeps some deliberately broken samples).
  EXPECT_GE(parsed * 1000, samples.size() * 995);
}

// What real workbooks call must be there: a function the engine lacks evaluates to #NAME?
// and poisons every cell that reads it. The application writes its own functions in upper
// case; a name in mixed case, in another workbook ("[3]!F") or an add-in's (_xll.) is the
// file's own code, which no engine has.
TEST(CorpusFormulas, CallsReachImplementedFunctions) {
  auto samples = corpus_formulas();
  if (samples.empty()) GTEST_SKIP() << "corpus not present";
  size_t calls = 0, reached = 0;
  std::map<std::string, size_t> missing;
  for (const Sample& s : samples) {
    TestBook book(std::vector<std::string>{});
    book.create_sheets = true;
    FormulaPtr f;
    try {
      f = parse(u16(s.text), Notation::A1, s.at, 0, book);
    } catch (const Error&) {
      continue;
    }
    for (const Node& n : f->nodes) {
      if (n.kind != NodeKind::Func) continue;
      std::string name = to_utf8(f->text(n.str));
      bool own = name.rfind("_xll.", 0) == 0 || name.find('!') != std::string::npos ||
                 std::any_of(name.begin(), name.end(), [](char c) { return c >= 'a' && c <= 'z'; });
      if (own) continue;
      ++calls;
      if (n.func >= 0)
        ++reached;
      else
        ++missing[name];
    }
  }
  std::vector<std::pair<size_t, std::string>> worst;
  for (const auto& [name, n] : missing) worst.push_back({n, name});
  std::sort(worst.rbegin(), worst.rend());
  for (size_t i = 0; i < worst.size() && i < 20; ++i)
    std::cout << "missing " << worst[i].second << ": " << worst[i].first << " calls\n";
  std::cout << calls << " calls, " << reached << " reach a function ("
            << 100.0 * static_cast<double>(reached) / static_cast<double>(calls) << "%)\n";
  // What else stays unknown is mostly add-ins' functions that happen to be upper case
  // (EV_PRO, EV_DES, ...), which spelling cannot tell from the application's own.
  EXPECT_GE(reached * 1000, calls * 998);
}

}  // namespace
}  // namespace qz::engine::calc::test

namespace qz::engine::calc::test {
namespace {

/// Inputs other projects use to test their formula parsers: what parses must render back.
TEST(CorpusFormulas, OtherParsersInputsRoundTrip) {
  auto dir = qz::test::corpus_dir();
  if (dir.empty()) GTEST_SKIP() << "corpus not present";
  std::vector<std::string> inputs;
  auto jsonl = [&](const char* path, const char* key) {
    std::ifstream in(dir / path);
    std::string line;
    while (std::getline(in, line)) {
      auto j = nlohmann::json::parse(line, nullptr, false);
      if (j.is_discarded() || !j.contains(key)) continue;
      if (j.contains("kind") && j["kind"] != "parse_ok") continue;
      std::string f = j[key].get<std::string>();
      if (!f.empty() && f[0] == '=') f.erase(0, 1);
      inputs.push_back(f);
    }
  };
  jsonl("formulas/xlparser/parser_tests_inputs.jsonl", "formula");
  jsonl("formulas/fx/tokenize_expected.jsonl", "expr");
  jsonl("formulas/fx/tokenize_srefs_expected.jsonl", "expr");
  jsonl("formulas/openpyxl/tokenizer_expected.jsonl", "formula");
  {
    std::ifstream in(dir / "formulas/xlparser/testformulas/structured_references.txt");
    std::string line;
    while (std::getline(in, line)) {
      if (line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!line.empty() && line[0] == '=') inputs.push_back(line.substr(1));
    }
  }
  // Other programs' inputs need not be spelled as the application writes formulas: case
  // and quoting may differ, but what parses must read back the same once rendered.
  auto loose = [](const String& s) {
    String out;
    bool quoted = false;
    for (char16_t c : s) {
      if (c == u'"') quoted = !quoted;
      if (!quoted && c == u'\'') continue;
      out.push_back(!quoted && c >= u'a' && c <= u'z' ? c - 32 : c);
    }
    return out;
  };
  size_t parsed = 0, exact = 0, refused = 0;
  for (const std::string& s : inputs) {
    TestBook book(std::vector<std::string>{});
    book.create_sheets = true;
    String text = u16(s);
    if (renders_as_written(s, book)) {
      // Unparsable text is shown as read; what parses must render back unchanged.
      String back = text;
      try {
        back = render(*parse(text, Notation::A1, CellRef{99, 25}, 0, book), Notation::A1,
                      CellRef{99, 25}, 0, book);
      } catch (const Error&) {
      }
      EXPECT_EQ(to_utf8(back), s) << "taken as written";
    }
    for (Notation n : {Notation::A1, Notation::R1C1}) {
      try {
        auto f = parse(text, n, CellRef{99, 25}, 0, book);
        ++parsed;
        String back = render(*f, n, CellRef{99, 25}, 0, book);
        String again =
            render(*parse(back, n, CellRef{99, 25}, 0, book), n, CellRef{99, 25}, 0, book);
        if (loose(back) == loose(text) && again == back)
          ++exact;
        else
          std::cout << "differs: " << s << " -> " << to_utf8(back) << "\n";
        break;
      } catch (const Error& e) {
        if (n == Notation::R1C1 && ++refused <= 10)
          std::cout << "refused: " << s << "  [" << e.message() << "]\n";
      }
    }
  }
  std::cout << inputs.size() << " inputs, " << parsed << " parsed, " << exact << " exact\n";
  EXPECT_EQ(exact, parsed);
  // The rest are not formulas the application accepts (unbalanced quotes, "$C", "A1:$1",
  // trimmed-range operators of later versions).
  EXPECT_GE(parsed * 100, inputs.size() * 85);
}

}  // namespace
}  // namespace qz::engine::calc::test
