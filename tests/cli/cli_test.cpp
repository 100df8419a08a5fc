// The qzxl tool as people run it: the built binary on the bundled example and on corpus
// workbooks. What it wrote is read back by readers nobody here wrote (openpyxl for font
// colours, LibreOffice for values); the input must come out byte for byte as it went in, and
// every refusal must be one line, a non-zero status and no file.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/test_support.hpp"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kSource = QZXL_SOURCE_DIR;
const char* const kPython = "/usr/bin/python3";

struct Result {
  int status = -1;
  std::string out, err;
};

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

std::string slurp(const fs::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

Result shell(const std::string& command, const fs::path& err_file) {
  Result r;
  const std::string full = command + " 2>" + quote(err_file.string());
  if (FILE* p = ::popen(full.c_str(), "r")) {
    char buf[4096];
    while (size_t n = std::fread(buf, 1, sizeof buf, p)) r.out.append(buf, n);
    const int status = ::pclose(p);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  r.err = slurp(err_file);
  return r;
}

bool have_openpyxl() {
  static const bool yes =
      std::system((std::string(kPython) + " -c 'import openpyxl' >/dev/null 2>&1").c_str()) == 0;
  return yes;
}

bool have_soffice() {
  static const bool yes = std::system("command -v soffice >/dev/null 2>&1") == 0;
  return yes;
}

// Every non-empty cell as openpyxl sees it: its kind, its font colour (RRGGBB, or "" when
// automatic or themed), whether it carries a hyperlink and whether its row is hidden.
const char* const kReadCells = R"PY(
import json, sys, datetime, openpyxl
wb = openpyxl.load_workbook(sys.argv[1])
out = {}
for ws in wb.worksheets:
    for row in ws.iter_rows():
        for c in row:
            v = c.value
            if v is None:
                continue
            if c.data_type == 'f':
                kind = 'formula'
            elif c.data_type == 'e':
                kind = 'error'
            elif isinstance(v, bool):
                kind = 'bool'
            elif isinstance(v, (datetime.datetime, datetime.date, datetime.time, datetime.timedelta)):
                kind = 'date'
            elif isinstance(v, (int, float)):
                kind = 'number'
            else:
                kind = 'text'
            col = c.font.color if c.font is not None else None
            rgb = col.rgb[-6:].upper() if col is not None and col.type == 'rgb' and isinstance(col.rgb, str) else ''
            out[ws.title + '!' + c.coordinate] = {
                'kind': kind, 'rgb': rgb, 'link': c.hyperlink is not None,
                'hidden': bool(ws.row_dimensions[c.row].hidden)}
json.dump(out, sys.stdout)
)PY";

// Colours for the run that tell every category apart (sheet and named links share one).
const char* const kColours =
    "input=#0000FE,partial=#FE0000,formula=#101010,sheet=#00A000,workbook=#A000A0,"
    "hyperlink=#993366";

class Cli : public ::testing::Test {
 protected:
  void SetUp() override {
    // The user's own settings stay out of it, and the tool's writes stay in here.
    fs::create_directories(dir_ / "config");
    ::setenv("QZXL_CONFIG_DIR", (dir_ / "config").c_str(), 1);
    // So are the user's regional settings: en-US unless a test names another locale.
    for (const char* v : {"LC_ALL", "LC_NUMERIC", "LC_MONETARY", "LC_TIME"}) ::unsetenv(v);
    ::setenv("LANG", "C.UTF-8", 1);
  }

  Result qzxl(const std::string& args) {
    return shell(quote(QZXL_CLI_BINARY) + " " + args, dir_ / "stderr.txt");
  }
  // The project's own tool that writes the example and the benchmark's model.
  Result models(const std::string& args) {
    return shell(quote(QZXL_MODELS_BINARY) + " " + args, dir_ / "stderr.txt");
  }

  json cells(const fs::path& book) {
    const fs::path script = dir_ / "cells.py";
    std::ofstream(script) << kReadCells;
    const Result r =
        shell(std::string(kPython) + " " + quote(script.string()) + " " + quote(book.string()),
              dir_ / "py_stderr.txt");
    EXPECT_EQ(r.status, 0) << r.err;
    return r.status == 0 ? json::parse(r.out) : json::object();
  }

  // Copies a workbook into the test's folder so that the test may hash and compare it.
  fs::path copy_in(const fs::path& from, const std::string& name) {
    const fs::path to = dir_ / name;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
    return to;
  }

  std::set<std::string> listing() {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(dir_)) names.insert(e.path().filename().string());
    names.erase("stderr.txt");
    return names;
  }

  qz::test::TempDir tmp_;
  fs::path dir_ = tmp_.path();
};

// --- the bundled example ---------------------------------------------------------------------

TEST_F(Cli, ExampleGetsEachCategorysColourAndKeepsItsHiddenRow) {
  const fs::path in = copy_in(kSource / "examples" / "model.xlsx", "model.xlsx");
  const std::string before = slurp(in);
  const fs::path out = dir_ / "coloured.xlsx";
  const Result run = qzxl("autocolor " + quote(in.string()) + " --names --json --colors " +
                          kColours + " -o " + quote(out.string()));
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(slurp(in), before) << "the input was changed";

  // The example is built to hold every category at least once.
  const json summary = json::parse(run.out);
  for (const char* key : {"input", "partial_input", "formula", "sheet_link", "workbook_link",
                          "named_link", "hyperlink", "skipped_text", "skipped_dates"})
    EXPECT_GT(summary["categories"][key]["cells"].get<int>(), 0) << key;
  EXPECT_EQ(summary["categories"]["vetoed"]["cells"].get<int>(), 0);

  if (!have_openpyxl()) GTEST_SKIP() << "no openpyxl under " << kPython;
  const json c = cells(out);
  const std::pair<const char*, const char*> expected[] = {
      {"Assumptions!C4", "0000FE"},   // a typed growth rate
      {"Assumptions!B19", "0000FE"},  // an input in the hidden row
      {"Income!D7", "0000FE"},        // a number typed over the row's formula
      {"Income!B8", "FE0000"},        // =-B4*0.01-12
      {"Income!B6", "101010"},        // =B4+B5
      {"Assumptions!C3", "101010"},   // =B3+1: adding one keeps a formula plain
      {"Income!B4", "00A000"},        // reaches into Assumptions
      {"Income!C13", "00A000"},       // through the name TaxRate, defined on Assumptions
      {"Assumptions!B16", "A000A0"},  // into market.xlsx
      {"Assumptions!B18", "993366"},  // text with a hyperlink
  };
  for (const auto& [cell, rgb] : expected) EXPECT_EQ(c[cell]["rgb"], rgb) << cell;
  // Text and dates are left in whatever colour they had.
  EXPECT_EQ(c["Assumptions!A4"]["rgb"], "");
  EXPECT_EQ(c["Assumptions!B2"]["kind"], "date");
  EXPECT_EQ(c["Assumptions!B2"]["rgb"], "");
  EXPECT_TRUE(c["Assumptions!B19"]["hidden"]) << "the hidden row was left shown";
}

TEST_F(Cli, ColouredCopiesShowTheSameValuesInLibreOffice) {
  if (!have_soffice()) GTEST_SKIP() << "no LibreOffice";
  // The example and a corpus workbook full of dates and functions, converted in one go.
  std::vector<fs::path> books{kSource / "examples" / "model.xlsx"};
  const fs::path corpus = qz::test::corpus_dir();
  if (!corpus.empty())
    books.push_back(corpus / "workbooks/closedxml/TryToLoad/LO/xlsx/functions-excel-2010.xlsx");
  std::string files;
  for (size_t i = 0; i < books.size(); ++i) {
    const fs::path in = copy_in(books[i], "in" + std::to_string(i) + ".xlsx");
    const fs::path out = dir_ / ("out" + std::to_string(i) + ".xlsx");
    const Result r = qzxl("autocolor --quiet " + quote(in.string()) + " -o " + quote(out.string()));
    ASSERT_EQ(r.status, 0) << books[i] << ": " << r.err;
    files += " " + quote(in.string()) + " " + quote(out.string());
  }
  // Every sheet to its own file (the last field, -1), values as shown.
  const Result conv =
      shell("HOME=" + quote((dir_ / "home").string()) +
                " timeout 180 soffice --headless --norestore --convert-to "
                "'csv:Text - txt - csv (StarCalc):44,34,76,1,,0,false,true,false,false,false,-1' "
                "--outdir " +
                quote((dir_ / "csv").string()) + files + " >/dev/null",
            dir_ / "soffice_stderr.txt");
  ASSERT_EQ(conv.status, 0) << conv.err;
  for (size_t i = 0; i < books.size(); ++i) {
    int sheets = 0;
    for (const auto& e : fs::directory_iterator(dir_ / "csv")) {
      const std::string name = e.path().filename().string();
      const std::string in_prefix = "in" + std::to_string(i) + "-";
      if (name.rfind(in_prefix, 0) != 0) continue;
      ++sheets;
      const fs::path twin =
          dir_ / "csv" / ("out" + std::to_string(i) + "-" + name.substr(in_prefix.size()));
      ASSERT_TRUE(fs::exists(twin)) << twin << " missing: LibreOffice lost a sheet";
      EXPECT_EQ(slurp(twin), slurp(e.path())) << books[i] << ", " << name;
    }
    EXPECT_GT(sheets, 0) << books[i] << ": LibreOffice read nothing";
  }
}

TEST_F(Cli, RebuiltExampleMatchesTheCommittedOne) {
  if (!have_openpyxl()) GTEST_SKIP() << "no openpyxl under " << kPython;
  fs::create_directories(dir_ / "rebuilt");
  const Result r = models("example " + quote((dir_ / "rebuilt").string()));
  ASSERT_EQ(r.status, 0) << r.err;
  // Cell by cell rather than byte by byte, so that a change in how packages are written
  // does not count as a change of the example.
  EXPECT_EQ(cells(dir_ / "rebuilt" / "model.xlsx"), cells(kSource / "examples" / "model.xlsx"));
  EXPECT_EQ(cells(dir_ / "rebuilt" / "market.xlsx"), cells(kSource / "examples" / "market.xlsx"));
}

// --- corpus workbooks ------------------------------------------------------------------------

TEST_F(Cli, CorpusTypedNumbersAndHyperlinksGetTheirColours) {
  const fs::path corpus = qz::test::corpus_dir();
  if (corpus.empty()) GTEST_SKIP() << "no corpus";
  if (!have_openpyxl()) GTEST_SKIP() << "no openpyxl under " << kPython;
  for (const char* rel : {"closedxml/TryToLoad/LO/xlsx/functions-excel-2010.xlsx",
                          "xlnt/tests/data/10_comments_hyperlinks_formulae.xlsx",
                          "poi/spreadsheet/WithVariousData.xlsx", "poi/spreadsheet/51626.xlsx"}) {
    SCOPED_TRACE(rel);
    const fs::path in = copy_in(corpus / "workbooks" / rel, "in.xlsx");
    const std::string before = slurp(in);
    const fs::path out = dir_ / "out.xlsx";
    const Result r = qzxl("autocolor -q " + quote(in.string()) + " --colors " + kColours + " -o " +
                          quote(out.string()));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(slurp(in), before) << "the input was changed";
    // Whatever else a workbook holds, a typed number is an input and a linked cell a link.
    int checked = 0;
    const json read = cells(out);
    for (const auto& [cell, c] : read.items()) {
      if (c["link"].get<bool>()) {
        EXPECT_EQ(c["rgb"], "993366") << cell;
        ++checked;
      } else if (c["kind"] == "number" || c["kind"] == "bool") {
        EXPECT_EQ(c["rgb"], "0000FE") << cell;
        ++checked;
      }
    }
    EXPECT_GT(checked, 0);
  }
}

// --- refusals and where things are written ---------------------------------------------------

TEST_F(Cli, BadInputIsOneLineANonZeroStatusAndNoFile) {
  const fs::path in = copy_in(kSource / "examples" / "model.xlsx", "model.xlsx");
  std::ofstream(dir_ / "notes.xlsx") << "just some text, not a package\n";
  std::ofstream(dir_ / "notes.txt") << "plain text\n";
  fs::create_directories(dir_ / "folder.xlsx");
  const std::string out = " -o " + quote((dir_ / "out.xlsx").string());
  const std::string model = quote(in.string());
  const auto files_before = listing();
  const std::pair<std::string, std::string> cases[] = {
      {"autocolor " + quote((dir_ / "missing.xlsx").string()) + out, "missing.xlsx"},
      {"autocolor " + quote((dir_ / "notes.xlsx").string()) + out, "notes.xlsx"},
      {"autocolor " + quote((dir_ / "notes.txt").string()) + out, "notes.txt"},
      {"autocolor " + quote((dir_ / "folder.xlsx").string()) + out, "folder"},
      {"autocolor " + model + " --sheet Nowhere" + out, "Nowhere"},
      {"autocolor " + model + " --range Income!B2:QQQ" + out, "QQQ"},
      {"autocolor " + model + " --range Ledger!A1:B2" + out, "Ledger"},
      {"autocolor " + model + " --colors input=#12345G" + out, "#12345G"},
      {"autocolor " + model + " --colors ink=#000000" + out, "ink"},
      {"autocolor " + model + " -o " + quote((dir_ / "out.xlsm").string()), "extension"},
      {"autocolor " + model + " -o " + quote((dir_ / "no/such/out.xlsx").string()), "folder"},
      {"names " + model + " --delete-tags", "-o"},
      {"names " + model + " --show-tags --hide-tags" + out, "one of"},
      {"audit " + model + " --fail-on everything", "everything"},
      {"settings set InputColor blue", "blue"},
      {"settings set Nonsense '#000000'", "Nonsense"},
      {"settings set InputColor", "VALUE"},
      {"autocolor " + model + " --no-such-option" + out, "--no-such-option"},
      {"autocolor", "IN"},
  };
  for (const auto& [args, named] : cases) {
    SCOPED_TRACE(args);
    const Result r = qzxl(args);
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(named), std::string::npos) << r.err;
    EXPECT_EQ(listing(), files_before) << "something was written";
  }
  EXPECT_TRUE(fs::is_empty(dir_ / "config")) << "a refused setting was stored";
}

TEST_F(Cli, WritesBesideOrOverTheInputOnlyWhenToldTo) {
  const fs::path in = copy_in(kSource / "examples" / "model.xlsx", "model.xlsx");
  const std::string before = slurp(in);
  const std::string model = quote(in.string());

  // A dry run writes nothing and still says what would change.
  auto files = listing();
  Result r = qzxl("autocolor --dry-run --json " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(listing(), files);
  EXPECT_GT(json::parse(r.out)["changed"].get<int>(), 0);

  // Without -o the copy goes beside the input under a name of its own.
  r = qzxl("autocolor -q " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(slurp(in), before);
  EXPECT_TRUE(fs::exists(dir_ / "model.autocolor.xlsx"));

  // Named as its own output, the input is replaced by the coloured workbook, which opens.
  r = qzxl("autocolor -q " + model + " -o " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(slurp(in), before);
  r = qzxl("autocolor --dry-run --json " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["changed"].get<int>(), 0) << "colouring again changed colours";
  // No temporary file is left behind.
  EXPECT_EQ(listing(), (std::set<std::string>{"config", "model.xlsx", "model.autocolor.xlsx"}));
}

TEST_F(Cli, ProgressShowsOnlyOnATerminalAndNotWhenQuiet) {
  if (std::system("command -v script >/dev/null 2>&1") != 0) GTEST_SKIP() << "no script(1)";
  // The bar waits a second before it shows; the check lets it show at once, so that it does
  // not depend on how fast this machine colours the model.
  const fs::path in = dir_ / "large.xlsx";
  ASSERT_EQ(models("large --cells 20000 " + quote(in.string())).status, 0);
  const std::string run = "QZXL_PROGRESS_AFTER_MS=0 " + quote(QZXL_CLI_BINARY) + " autocolor " +
                          quote(in.string()) + " -o " + quote((dir_ / "out.xlsx").string());
  // script(1) gives the tool a terminal; what it shows there comes back on its output.
  auto on_terminal = [&](const std::string& extra) {
    return shell("script -qec " + quote(run + extra) + " /dev/null", dir_ / "script_err.txt");
  };
  const Result shown = on_terminal("");
  ASSERT_EQ(shown.status, 0) << shown.err;
  EXPECT_NE(shown.out.find("AutoColoring"), std::string::npos);
  EXPECT_NE(shown.out.find("cells/s"), std::string::npos);
  EXPECT_NE(shown.out.find("total"), std::string::npos) << "no summary after the bar";
  const Result quiet = on_terminal(" --quiet");
  ASSERT_EQ(quiet.status, 0) << quiet.err;
  EXPECT_EQ(quiet.out.find("cells/s"), std::string::npos);
  // Into a file or a pipe: a clean summary and nothing on standard error.
  const Result piped = shell(run, dir_ / "stderr.txt");
  ASSERT_EQ(piped.status, 0);
  EXPECT_EQ(piped.err, "");
  EXPECT_EQ(piped.out.find('\r'), std::string::npos);
}

// --- audit, names and settings ---------------------------------------------------------------

TEST_F(Cli, AuditFindsWhatTheExampleHidesAndFailsOnRequest) {
  const std::string model = quote((kSource / "examples" / "model.xlsx").string());
  Result r = qzxl("audit --json --max 0 " + model);
  ASSERT_EQ(r.status, 0) << r.err;
  const json groups = json::parse(r.out)["groups"];
  auto where = [&](const char* group) {
    std::set<std::string> cells;
    for (const auto& item : groups[group]["items"]) cells.insert(item["where"]);
    return cells;
  };
  EXPECT_EQ(where("external"), std::set<std::string>{"Assumptions!B16"});
  EXPECT_EQ(where("overtyped"), std::set<std::string>{"Income!D7"});
  EXPECT_EQ(where("tags"), std::set<std::string>{"_bqz.ModelVersion.eqz"});
  EXPECT_TRUE(where("dead").empty());
  EXPECT_TRUE(where("partial").count("Income!F8"));
  EXPECT_FALSE(where("partial").count("Assumptions!C3")) << "=B3+1 is a plain formula";
  EXPECT_TRUE(where("sheet").count("Balance!B4"));

  EXPECT_EQ(qzxl("audit " + model + " --fail-on external,dead").status, 1);
  EXPECT_EQ(qzxl("audit " + model + " --fail-on dead").status, 0);
}

// The audit's groups are AutoColor's own outcomes: on every bundled workbook each group counts
// exactly the cells a run of autocolor puts in its category.
TEST_F(Cli, AuditAndAutoColorClassifyAlike) {
  for (const char* file : {"model.xlsx", "market.xlsx"}) {
    const std::string in = quote((kSource / "examples" / file).string());
    const Result audit = qzxl("audit --json --max 0 " + in);
    const Result colour = qzxl("autocolor --dry-run --json " + in);
    ASSERT_EQ(audit.status, 0) << audit.err;
    ASSERT_EQ(colour.status, 0) << colour.err;
    const json groups = json::parse(audit.out)["groups"];
    const json cats = json::parse(colour.out)["categories"];
    auto cells = [&](const char* key) { return cats[key]["cells"].get<int64_t>(); };
    EXPECT_EQ(groups["partial"]["count"].get<int64_t>(), cells("partial_input")) << file;
    EXPECT_EQ(groups["external"]["count"].get<int64_t>(), cells("workbook_link")) << file;
    EXPECT_EQ(groups["sheet"]["count"].get<int64_t>(), cells("sheet_link") + cells("named_link"))
        << file;
  }
}

TEST_F(Cli, NamesTidiesTagsIntoACopyOnly) {
  const fs::path in = copy_in(kSource / "examples" / "model.xlsx", "model.xlsx");
  const std::string before = slurp(in);
  const fs::path shown = dir_ / "shown.xlsx", gone = dir_ / "gone.xlsx";
  ASSERT_EQ(qzxl("names " + quote(in.string()) + " --show-tags -o " + quote(shown.string())).status,
            0);
  ASSERT_EQ(
      qzxl("names " + quote(in.string()) + " --delete-tags -o " + quote(gone.string())).status, 0);
  EXPECT_EQ(slurp(in), before);

  auto names = [&](const fs::path& book, const char* filter) {
    const Result r = qzxl("names --json " + std::string(filter) + " " + quote(book.string()));
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out);
  };
  EXPECT_EQ(names(in, "--hidden").size(), 1u);
  EXPECT_EQ(names(shown, "--hidden").size(), 0u);
  ASSERT_EQ(names(shown, "--tags").size(), 1u);
  EXPECT_TRUE(names(shown, "--tags")[0]["visible"].get<bool>());
  EXPECT_EQ(names(gone, "--tags").size(), 0u);
  // Only the library's tags go; the model's own rate stays.
  ASSERT_EQ(names(gone, "").size(), 1u);
  EXPECT_EQ(names(gone, "")[0]["name"], "TaxRate");
}

TEST_F(Cli, SettingsChangedOnceColourLaterRunsUntilReset) {
  const std::string model = quote((kSource / "examples" / "model.xlsx").string());
  auto input_colour = [&] {
    const Result r = qzxl("autocolor --dry-run --json " + model);
    EXPECT_EQ(r.status, 0) << r.err;
    return json::parse(r.out)["categories"]["input"]["colour"].get<std::string>();
  };
  EXPECT_EQ(input_colour(), "#0000FF");
  ASSERT_EQ(qzxl("settings set InputColor '#00AA00'").status, 0);
  EXPECT_EQ(input_colour(), "#00AA00");
  // A colour given for one run wins over the store without changing it.
  Result r = qzxl("autocolor --dry-run --json --colors input=#123456 " + model);
  EXPECT_EQ(json::parse(r.out)["categories"]["input"]["colour"], "#123456");
  r = qzxl("settings get --json InputColor");
  EXPECT_EQ(json::parse(r.out)["InputColor"], "#00AA00");
  ASSERT_EQ(qzxl("settings reset").status, 0);
  EXPECT_EQ(input_colour(), "#0000FF");
}

TEST_F(Cli, ReadsValuesInTheLocaleTheOptionOrTheEnvironmentNames) {
  auto values = [&](const std::string& prefix, const std::string& options) {
    const Result r = shell(prefix + quote(QZXL_CLI_BINARY) + " tokenize --json " + options +
                               " '1.234,50' '1,234.50' '5 \u20AC'",
                           dir_ / "stderr.txt");
    EXPECT_EQ(r.status, 0) << r.err;
    std::string flags;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);)
      flags += json::parse(line)["pieces"][0]["IsValue"].get<bool>() ? 'V' : '-';
    return flags;
  };
  EXPECT_EQ(values("", ""), "-V-");
  EXPECT_EQ(values("", "--locale de-DE"), "V-V");
  EXPECT_EQ(values("LC_NUMERIC=de_DE.UTF-8 LC_MONETARY=de_DE.UTF-8 ", ""), "V-V");
  // LC_ALL outranks the categories, and the option outranks the environment.
  EXPECT_EQ(values("LC_ALL=en_US.UTF-8 LC_NUMERIC=de_DE.UTF-8 ", ""), "-V-");
  EXPECT_EQ(values("LC_ALL=de_DE.UTF-8 ", "--locale en-GB"), "-V-");
  const Result bad =
      qzxl("audit --locale xx-YY " + quote((kSource / "examples" / "model.xlsx").string()));
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.err, "qzxl audit: unknown locale 'xx-YY' (give one such as de-DE or en-US)\n");
  EXPECT_TRUE(bad.out.empty());
}

TEST_F(Cli, HelpAndVersionOnEveryCommand) {
  for (const char* cmd :
       {"", "autocolor", "audit", "names", "settings", "settings get", "tokenize", "consts"}) {
    SCOPED_TRACE(cmd);
    Result r = qzxl(std::string(cmd) + " --help");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("Usage"), std::string::npos);
    r = qzxl(std::string(cmd) + " --version");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("qzxl "), std::string::npos);
  }
}

}  // namespace
