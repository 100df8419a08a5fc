// Every function against another spreadsheet program: a typical call of each function
// (golden/function_samples.txt) is varied argument by argument over numbers of all signs and
// sizes, text, Booleans, an error, an empty cell, a range and an array. LibreOffice
// recalculates the calls and saves them; the engine must agree with every value it cached,
// except where the application is known to differ from LibreOffice: there the application's
// value is written down in golden/libreoffice_differences.txt, which the engine must meet
// whether or not LibreOffice is installed.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "calc_fixture.hpp"
#include "engine/calc/check.hpp"
#include "support/test_support.hpp"

namespace qz::engine::calc::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kHere = QZXL_CALC_TEST_DIR;

// ---- the inputs the calls read ----------------------------------------------------------

struct Input {
  std::string at;
  Value value;
};

/// Sheet In: single values of every kind in A, two number columns (B, D), a mixed column
/// (C), a small list with labels and criteria (E:G), probabilities (G6:G9) and dated cash
/// flows (H:I).
std::vector<Input> inputs() {
  std::vector<Input> in = {
      {"A1", N(1.5)},    {"A2", N(-2)},       {"A3", N(0)},
      {"A4", N(1e15)},   {"A5", S(u"abc")},   {"A6", S(u"7")},
      {"A7", B(true)},   {"A8", B(false)},    {"A9", E(cell_error::div0)},
      {"C1", N(2)},      {"C2", S(u"x")},     {"C3", B(true)},
      {"C5", N(-1)},     {"C6", N(0.5)},      {"E1", S(u"Name")},
      {"F1", S(u"Age")}, {"G1", S(u"Score")}, {"E2", S(u"Ann")},
      {"F2", N(30)},     {"G2", N(85)},       {"E3", S(u"Bob")},
      {"F3", N(45)},     {"G3", N(72)},       {"E4", S(u"Cy")},
      {"F4", N(28)},     {"G4", N(91)},       {"E5", S(u"Dee")},
      {"F5", N(45)},     {"G5", N(64)},       {"E8", S(u"Age")},
      {"E9", S(u">29")}, {"F8", S(u"Name")},  {"F9", S(u"B")},
      {"G6", N(0.2)},    {"G7", N(0.3)},      {"G8", N(0.1)},
      {"G9", N(0.4)},
  };
  const double b[] = {3, 1, 4, 1, 5, 9};
  const double d[] = {36526, 39448, 43101, 44927, 45000, 45292};
  const double h[] = {-10000, 2750, 4250, 3250, 2750};
  const double i[] = {39448, 39508, 39751, 39859, 39904};
  for (int r = 0; r < 6; ++r) {
    in.push_back({"B" + std::to_string(r + 1), N(b[r])});
    in.push_back({"D" + std::to_string(r + 1), N(d[r])});
  }
  for (int r = 0; r < 5; ++r) {
    in.push_back({"H" + std::to_string(r + 1), N(h[r])});
    in.push_back({"I" + std::to_string(r + 1), N(i[r])});
  }
  return in;
}

/// The first row of the calls: below the inputs' rows, so that a range where one value is
/// wanted meets no row of its own and every call gives the same value wherever it stands.
constexpr int32_t kFirstRow = 20;

// ---- the calls -----------------------------------------------------------------------------

struct Sample {
  std::string name;
  std::vector<std::string> args;
  size_t required = 0;
};

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
  return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

std::vector<Sample> samples() {
  std::vector<Sample> out;
  std::ifstream in(kHere / "golden/function_samples.txt");
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    Sample s;
    size_t at = 0;
    bool first = true;
    for (;;) {
      size_t bar = line.find(" | ", at);
      std::string part = trim(line.substr(at, bar == std::string::npos ? bar : bar - at));
      if (first) {
        s.name = part;
        first = false;
      } else {
        bool optional = !part.empty() && part[0] == '?';
        if (optional) part.erase(0, 1);
        if (!optional) s.required = s.args.size() + 1;
        s.args.push_back(part);
      }
      if (bar == std::string::npos) break;
      at = bar + 3;
    }
    out.push_back(std::move(s));
  }
  return out;
}

/// What replaces each argument in turn.
const char* const kPalette[] = {"0",     "-1",    "0.5",     "-2.5",     "7",
                                "1E+15", "1E-10", "\"abc\"", "\"7\"",    "TRUE",
                                "FALSE", "In!A9", "In!A10",  "In!B1:B6", "{1,2;3,4}"};

std::string call(const Sample& s, const std::vector<std::string>& args) {
  std::string text = to_utf8(function_file_name(u16(s.name))) + "(";
  for (size_t i = 0; i < args.size(); ++i) text += (i ? "," : "") + args[i];
  return text + ")";
}

struct Case {
  std::string function;
  std::string formula;
};

std::vector<Case> cases() {
  std::vector<Case> out;
  std::set<std::string> seen;
  auto add = [&](const Sample& s, const std::vector<std::string>& args) {
    std::string f = call(s, args);
    if (seen.insert(f).second) out.push_back({s.name, f});
  };
  for (const Sample& s : samples()) {
    add(s, s.args);
    for (size_t n = s.args.size(); n-- > s.required;)
      add(s, std::vector<std::string>(s.args.begin(), s.args.begin() + n));
    for (size_t k = 0; k < s.args.size(); ++k)
      for (const char* p : kPalette) {
        std::vector<std::string> args = s.args;
        args[k] = p;
        add(s, args);
      }
  }
  return out;
}

// ---- the application's values where LibreOffice differs ------------------------------------

/// A value as the golden file writes it: a number, "text", TRUE/FALSE or an error.
std::optional<Value> read_value(const std::string& s) {
  if (s.size() >= 2 && s.front() == '"' && s.back() == '"') {
    std::string t;
    for (size_t i = 1; i + 1 < s.size(); ++i) {
      t += s[i];
      if (s[i] == '"') ++i;  // doubled quotes
    }
    return Value::str(u16(t));
  }
  if (s == "TRUE" || s == "FALSE") return Value::boolean(s == "TRUE");
  if (!s.empty() && s[0] == '#') {
    if (auto code = error_from_text(u16(s))) return Value::error(*code);
    return std::nullopt;
  }
  char* end = nullptr;
  double d = std::strtod(s.c_str(), &end);
  if (s.empty() || *end) return std::nullopt;
  return Value::num(d);
}

struct Golden {
  std::map<std::string, Value> values;  // formula -> the application's value
  std::vector<std::string> unreadable;
};

Golden golden() {
  Golden g;
  std::ifstream in(kHere / "golden/libreoffice_differences.txt");
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    size_t tab = line.find('\t');
    auto v = tab == std::string::npos ? std::nullopt : read_value(trim(line.substr(tab + 1)));
    if (!v) {
      g.unreadable.push_back(line);
      continue;
    }
    g.values[line.substr(0, tab)] = *v;
  }
  return g;
}

bool same(const Value& got, const Value& want) {
  if (want.kind == Value::Kind::Number && got.kind == Value::Kind::Number) {
    double scale = std::max(std::fabs(got.number), std::fabs(want.number));
    return std::fabs(got.number - want.number) <= std::max(1e-9 * scale, 1e-12);
  }
  return got == want;
}

std::string shown(const Value& v) {
  std::ostringstream os;
  PrintTo(v, &os);
  return os.str();
}

/// Calls per function where the engine and LibreOffice still differ and nobody has yet
/// sorted out which of the two the application agrees with.
std::map<std::string, size_t> open_differences() {
  std::map<std::string, size_t> out;
  std::ifstream in(kHere / "golden/libreoffice_open.txt");
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    size_t tab = line.find('\t');
    if (tab != std::string::npos) out[line.substr(0, tab)] = std::stoul(line.substr(tab + 1));
  }
  return out;
}

TestBook input_book() {
  TestBook book(std::vector<std::string>{"In", "Cases"});
  for (const Input& i : inputs()) book.set(i.at, i.value, 0);
  return book;
}

// The golden values hold without LibreOffice: they are the application's own.
TEST(ApplicationValues, WhereLibreOfficeDiffersTheEngineGivesTheApplicationsValue) {
  Golden g = golden();
  EXPECT_TRUE(g.unreadable.empty()) << g.unreadable.front();
  ASSERT_FALSE(g.values.empty());
  TestBook book = input_book();
  std::string at = "A" + std::to_string(kFirstRow);
  for (const auto& [formula, want] : g.values) {
    Value got = book.eval(u16(formula), at, 1);
    EXPECT_TRUE(same(got, want)) << formula << "\n  engine:      " << shown(got)
                                 << "\n  application: " << shown(want);
  }
}

TEST(ApplicationValues, EveryFunctionHasATypicalCall) {
  std::set<std::string> sampled;
  for (const Sample& s : samples()) sampled.insert(s.name);
  for (const String& f : function_names())
    EXPECT_TRUE(sampled.count(to_utf8(f))) << to_utf8(f) << " has no line in function_samples.txt";
}

// ---- the comparison ------------------------------------------------------------------------

int run(const std::string& command) {
  return std::system(command.c_str());
}

/// The cells of sheet In, as write_workbook.py reads them.
json input_cells() {
  json cells = json::array();
  for (const Input& i : inputs()) {
    const Value& v = i.value;
    switch (v.kind) {
      case Value::Kind::Number:
        cells.push_back({i.at, "n", v.number});
        break;
      case Value::Kind::Text:
        cells.push_back({i.at, "s", to_utf8(v.text)});
        break;
      case Value::Kind::Boolean:
        cells.push_back({i.at, "b", v.number != 0});
        break;
      case Value::Kind::Error:
        cells.push_back({i.at, "e", to_utf8(error_text(v.error_code()))});
        break;
      default:
        break;
    }
  }
  return cells;
}

/// The calls go into workbooks of this many rows each, all converted by one LibreOffice
/// run: a call that keeps LibreOffice busy then costs the workbooks after it, not all of them.
constexpr size_t kCallsPerBook = 2000;

/// A fresh LibreOffice profile that recalculates every file it loads (files openpyxl writes
/// carry no values, but a file that did must not be trusted).
fs::path libreoffice_profile(const fs::path& dir) {
  const fs::path profile = dir / "profile";
  fs::create_directories(profile / "user");
  std::ofstream(profile / "user/registrymodifications.xcu")
      << R"(<?xml version="1.0" encoding="UTF-8"?>
<oor:items xmlns:oor="http://openoffice.org/2001/registry" xmlns:xs="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
<item oor:path="/org.openoffice.Office.Calc/Formula/Load"><prop oor:name="OOXMLRecalcMode" oor:op="fuse"><value>0</value></prop></item>
</oor:items>
)";
  return profile;
}

Value json_value(const json& c) {
  std::string kind = c[2].get<std::string>();
  if (kind == "n") return Value::num(c[3].get<double>());
  if (kind == "s") return Value::str(u16(c[3].get<std::string>()));
  if (kind == "b") return Value::boolean(c[3].get<bool>());
  if (kind == "e")
    return Value::error(error_from_text(u16(c[3].get<std::string>())).value_or(cell_error::na));
  return Value::empty();
}

/// Calls that keep LibreOffice counting for many minutes (it sums term by term up to the
/// huge count): they stay out of its workbooks and are compared only where the golden file
/// has them.
const std::set<std::string> kSlowInLibreOffice = {
    "_xlfn.BINOM.INV(1E+15,0.5,0.75)", "CRITBINOM(1E+15,0.5,0.75)",
    "MULTINOMIAL(2,1E+15,4)",          "MULTINOMIAL(2,3,1E+15)",
    "NEGBINOMDIST(1E+15,5,0.25)",      "_xlfn.POISSON.DIST(1E+15,5,FALSE)",
};

/// Functions whose calls stay out of LibreOffice's workbooks altogether: its exponential
/// smoothing starts and fits the model its own way, so its values say nothing about the
/// application's (the tests in functions_test.cpp pin what the engine must get right).
const std::set<std::string> kNotForLibreOffice = {"FORECAST.ETS", "FORECAST.ETS.CONFINT",
                                                  "FORECAST.ETS.SEASONALITY", "FORECAST.ETS.STAT"};

/// Lets LibreOffice recalculate the calls and save them; the values it cached, by the
/// call's index, or nothing when it did not finish in time.
std::optional<std::map<size_t, Value>> libreoffice_values(const fs::path& dir,
                                                          const std::vector<Case>& all) {
  std::string books, outputs;
  for (size_t first = 0, k = 0; first < all.size(); first += kCallsPerBook, ++k) {
    const std::string stem = "cases" + std::to_string(k);
    json cells = json::array();
    for (size_t i = first; i < all.size() && i < first + kCallsPerBook; ++i)
      if (!kSlowInLibreOffice.count(all[i].formula) && !kNotForLibreOffice.count(all[i].function))
        cells.push_back({"A" + std::to_string(kFirstRow + i), "f", all[i].formula});
    json book_cells;
    book_cells["sheets"] = {{{"name", "In"}, {"cells", input_cells()}},
                            {{"name", "Cases"}, {"cells", cells}}};
    std::ofstream(dir / (stem + ".json")) << book_cells.dump();
    const fs::path book = dir / (stem + ".xlsx");
    if (run("/usr/bin/python3 '" + (kHere / "write_workbook.py").string() + "' '" +
            (dir / (stem + ".json")).string() + "' '" + book.string() + "'") != 0) {
      ADD_FAILURE() << "write_workbook.py failed";
      return std::nullopt;
    }
    books += " '" + book.string() + "'";
    outputs += " '" + (dir / "out" / (stem + ".xlsx")).string() + "'";
  }
  // The whole run normally takes seconds; the bound keeps a call that loops from hanging CI.
  fs::create_directories(dir / "out");
  if (run("timeout -k 5 240 soffice --headless --norestore '-env:UserInstallation=file://" +
          libreoffice_profile(dir).string() + "' --convert-to xlsx --outdir '" +
          (dir / "out").string() + "'" + books + " >>'" + (dir / "soffice.log").string() +
          "' 2>&1") != 0)
    return std::nullopt;
  const fs::path values = dir / "cases.jsonl";
  if (run("/usr/bin/python3 '" + (kHere / "corpus_cells.py").string() + "' '" + values.string() +
          "'" + outputs) != 0)
    return std::nullopt;
  std::ifstream vin(values);
  std::map<size_t, Value> cached;
  size_t first = 0;
  for (std::string line; std::getline(vin, line); first += kCallsPerBook) {
    json saved = json::parse(line);
    for (const auto& c : saved["cells"]) {
      if (c[0].get<int>() != 1 || c[2].get<std::string>().empty()) continue;
      CellRef at = cell(c[1].get<std::string>());
      cached[static_cast<size_t>(at.row - (kFirstRow - 1))] = json_value(c);
    }
  }
  if (first != (all.size() + kCallsPerBook - 1) / kCallsPerBook * kCallsPerBook)
    return std::nullopt;  // a workbook was not saved
  return cached;
}

TEST(LibreOffice, RecalculatesEveryFunctionAsTheEngineDoes) {
  if (run("command -v soffice >/dev/null 2>&1") != 0) GTEST_SKIP() << "no LibreOffice";
  if (run("/usr/bin/python3 -c 'import openpyxl' 2>/dev/null") != 0) GTEST_SKIP() << "no openpyxl";
  qz::test::TempDir dir;
  std::vector<Case> all = cases();

  // One workbook of every call: LibreOffice starts once, which is most of its time.
  auto values = libreoffice_values(dir.path(), all);
  ASSERT_TRUE(values) << "LibreOffice did not recalculate the calls (see soffice.log)";
  const std::map<size_t, Value>& cached = *values;

  // The functions LibreOffice does not know answer #NAME? in their typical call; their
  // calls are compared only where the golden file gives the application's value.
  Golden g = golden();
  std::set<std::string> unknown;
  for (size_t k = 0; k < all.size(); ++k) {
    bool typical = k == 0 || all[k - 1].function != all[k].function;
    auto it = cached.find(k);
    if (typical && it != cached.end() && it->second == E(cell_error::name))
      unknown.insert(all[k].function);
  }

  CheckWorkbook check;
  check.label = "libreoffice";
  check.sheets = {u"In", u"Cases"};
  for (const Input& i : inputs()) check.cells.push_back({0, cell(i.at), i.value});
  size_t compared = 0, from_golden = 0;
  for (size_t k = 0; k < all.size(); ++k) {
    CheckCell c;
    c.sheet = 1;
    c.cell = cell("A" + std::to_string(kFirstRow + k));
    c.formula = u16(all[k].formula);
    auto gv = g.values.find(all[k].formula);
    auto lv = cached.find(k);
    if (gv != g.values.end()) {
      c.cached = gv->second;
      ++from_golden;
    } else if (lv != cached.end() && !unknown.count(all[k].function)) {
      c.cached = lv->second;
    } else {
      c.has_cached = false;
    }
    compared += c.has_cached;
    check.cells.push_back(std::move(c));
  }
  CheckReport report = check_cached_values(check, 100000);
  // Each disagreement names its cell (Cases!A<row>), and so its call.
  std::map<std::string, size_t> open_now;
  for (const auto& d : report.disagreements) {
    std::cout << "  " << d << "\n";
    size_t at = d.find("Cases!A");
    if (at == std::string::npos) continue;
    size_t row = std::strtoul(d.c_str() + at + 7, nullptr, 10);
    if (row >= static_cast<size_t>(kFirstRow) && row - kFirstRow < all.size())
      ++open_now[all[row - kFirstRow].function];
  }
  std::cout << all.size() << " calls of " << samples().size() << " functions; " << compared
            << " compared (" << from_golden << " from the golden file), " << report.checked
            << " checked, " << report.agreed << " agree\n";
  std::cout << "not known to LibreOffice:";
  for (const auto& f : unknown) std::cout << " " << f;
  std::cout << "\n";
  for (const auto& [why, n] : report.skipped) std::cout << "skipped (" << why << "): " << n << "\n";
  // Functions not in the list of open differences agree everywhere; those in it may not
  // disagree more often than it says (a fix lowers the count there).
  std::map<std::string, size_t> open = open_differences();
  for (const auto& [function, n] : open_now)
    EXPECT_LE(n, open[function]) << function << " disagrees with LibreOffice in more calls";
  size_t listed = 0, now = 0;
  for (const auto& [function, n] : open) listed += n;
  for (const auto& [function, n] : open_now) now += n;
  std::cout << now << " open differences (" << listed << " listed)\n";
  EXPECT_GT(report.checked, all.size() / 2);
}

}  // namespace
}  // namespace qz::engine::calc::test
