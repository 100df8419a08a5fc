// Every workbook of the shared corpus, each opened in a child process under a time limit:
// none may crash or hang the reader; each readable one must survive a save part by part;
// each unreadable one must be refused in one line. The verdicts are kept in a golden file so
// that any change in what opens and what is refused shows up in review.
//
// QZXL_UPDATE_GOLDEN=1 rewrites the golden file from the current verdicts.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

#include "engine/calc/calc.hpp"
#include "engine/host/engine.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/state.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"
#include "support/test_support.hpp"

namespace qz::engine {
namespace {

using xlsx::ZipReader;

namespace fs = std::filesystem;

const fs::path kGolden = "tests/engine_xlsx/golden/corpus_verdicts.txt";
constexpr int kSecondsPerFile = 30;
// Where the calculation check lists its disagreements, and the share of agreeing cells it
// expects.
const char* const kCalcReport = QZXL_CALC_REPORT;
constexpr double kCalcGoal = 0.98;

// Runs `probe` in a child process; its result, or "CRASH"/"HANG" when the child dies or
// outlives the limit.
std::string isolated(const std::function<std::string()>& probe, int seconds) {
  int fds[2];
  if (::pipe(fds) != 0) return "harness: no pipe";
  pid_t pid = ::fork();
  if (pid == 0) {
    ::close(fds[0]);
    std::string r;
    try {
      r = probe();
    } catch (const Error& e) {
      r = std::string("refused: ") + e.what();
    } catch (const std::exception& e) {
      r = std::string("UNEXPECTED EXCEPTION: ") + e.what();
    }
    for (size_t done = 0; done < r.size();) {
      ssize_t w = ::write(fds[1], r.data() + done, r.size() - done);
      if (w <= 0) break;
      done += static_cast<size_t>(w);
    }
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string out;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  bool hung = false;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      hung = true;
      break;
    }
    pollfd p{fds[0], POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    char buf[4096];
    ssize_t n = ::read(fds[0], buf, sizeof buf);
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  ::close(fds[0]);
  if (hung) ::kill(pid, SIGKILL);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (hung) return "HANG";
  if (WIFSIGNALED(status)) return "CRASH (signal " + std::to_string(WTERMSIG(status)) + ")";
  return out;
}

// What happened to one file: "ok" or the refusal, and for a readable file the result of
// the font-colour change (the cell changed, "" when the workbook has no cell).
struct Outcome {
  std::string verdict;
  std::string problem;  // a round trip that lost something
  std::string sheet, cell;
};

std::string encode(const Outcome& o) {
  return o.verdict + "\x1f" + o.problem + "\x1f" + o.sheet + "\x1f" + o.cell;
}
Outcome decode(const std::string& s) {
  Outcome o;
  std::vector<std::string> f(1);
  for (char c : s) {
    if (c == '\x1f')
      f.emplace_back();
    else
      f.back() += c;
  }
  f.resize(4);
  return {f[0], f[1], f[2], f[3]};
}

// Entries of two packages that differ (by name, order or compressed bytes).
std::vector<std::string> differing(const fs::path& a_path, const fs::path& b_path) {
  ZipReader a = ZipReader::open(a_path), b = ZipReader::open(b_path);
  std::vector<std::string> out;
  const auto& ae = a.entries();
  const auto& be = b.entries();
  for (size_t i = 0; i < std::max(ae.size(), be.size()); ++i) {
    if (i >= ae.size() || i >= be.size() || ae[i].name != be[i].name) {
      out.push_back("(entry order or count)");
      break;
    }
    if (ae[i].crc32 != be[i].crc32 || !std::ranges::equal(a.raw(ae[i]), b.raw(be[i])))
      out.push_back(ae[i].name);
  }
  return out;
}

void check_saves(const BookPtr& book, const fs::path& file, const fs::path& copy,
                 const fs::path& coloured, Outcome& o);

// Loads a workbook; saves it unchanged and compares the packages part by part; then changes
// one cell's font colour, saves again and checks that only that sheet's part and the styles
// part changed.
std::string probe(const fs::path& file, const fs::path& scratch, const fs::path& coloured) {
  Outcome o;
  BookPtr book = xlsx::load(file);
  o.verdict = "ok";
  try {
    check_saves(book, file, scratch / "copy.xlsx", coloured, o);
  } catch (const Error& e) {
    o.problem = e.what();
  }
  return encode(o);
}

void check_saves(const BookPtr& book, const fs::path& file, const fs::path& copy,
                 const fs::path& coloured, Outcome& o) {
  xlsx::save(*book, copy);
  if (auto d = differing(file, copy); !d.empty()) {
    o.problem = "an unchanged save changed " + d.front();
    return;
  }

  auto app = create_application();
  auto wb = adopt(app, book);
  std::shared_ptr<Sheet> target;
  std::optional<std::pair<int32_t, int32_t>> at;
  for (const auto& s : book->sheets) {
    if (s->kind != SheetKind::Worksheet || s->cells.size() == 0) continue;
    // A cell without rich text: changing the font of a rich text also changes its runs,
    // which lives in the shared strings.
    s->cells.for_each({0, 0, kLastRow, kLastCol}, [&](int32_t r, int32_t c, const Cell& cell) {
      if (cell.kind() == CellKind::Text && !book->strings.runs(cell.index).empty()) return true;
      at = {r, c};
      return false;
    });
    if (!at) continue;
    target = s;
    break;
  }
  if (!target) return;
  o.sheet = to_utf8(target->name);
  o.cell = xlsx::cell_text(at->first, at->second);
  auto sheet = wb->worksheets()->item(Variant(from_utf8(o.sheet)));
  sheet->range(Variant(from_utf8(o.cell)))->font()->set_color(Variant(int32_t{255}));
  xlsx::save(*book, coloured);
  auto st = std::static_pointer_cast<xlsx::SheetState>(target->file_state);
  auto bs = std::static_pointer_cast<xlsx::BookState>(book->file_state);
  ZipReader before = ZipReader::open(copy);
  bool had_styles = !bs->styles_part.empty() && before.find(bs->styles_part);
  for (const auto& part : differing(copy, coloured)) {
    if (part == st->part || part == bs->styles_part) continue;
    // A package without a styles part gains one, with its relationship and content type.
    if (!had_styles && (part == "(entry order or count)" || part == "[Content_Types].xml" ||
                        part.ends_with(".rels")))
      continue;
    o.problem = "a font colour change rewrote " + part;
  }
}

std::string relative_name(const fs::path& p, const fs::path& base) {
  return p.lexically_relative(base).generic_string();
}

// The golden file names a workbook by its corpus path with the folders joined by "_", and
// verdicts name it the same way: some projects in the corpus keep their samples under folder
// names that would otherwise read as words of their own in our text files.
std::string golden_key(const std::string& name) {
  std::string k = name;
  std::replace(k.begin(), k.end(), '/', '_');
  return k;
}
std::string golden_verdict(const std::string& name, std::string v) {
  for (size_t at; (at = v.find(name)) != std::string::npos;)
    v.replace(at, name.size(), golden_key(name));
  return v;
}

TEST(Corpus, EveryWorkbookOpensOrIsRefusedInOneLine) {
  fs::path corpus = qz::test::corpus_dir();
  if (corpus.empty()) GTEST_SKIP() << "the shared corpus is not present";
  fs::path root = corpus / "workbooks";
  std::vector<fs::path> files;
  for (const auto& e : fs::recursive_directory_iterator(root))
    if (e.is_regular_file()) files.push_back(e.path());
  std::sort(files.begin(), files.end());
  ASSERT_GT(files.size(), 500u);

  qz::test::TempDir scratch;
  std::map<std::string, std::string> verdicts;
  std::map<std::string, std::pair<std::string, std::string>> coloured;
  int readable = 0;
  for (const auto& f : files) {
    std::string name = relative_name(f, root);
    fs::path out = scratch / ("coloured-" + std::to_string(verdicts.size()) + ".xlsx");
    std::string raw = isolated([&] { return probe(f, scratch.path(), out); }, kSecondsPerFile);
    Outcome o = decode(raw);
    std::string& v = o.verdict;
    // Messages name the file by the path it was opened with; the golden file is independent
    // of where the corpus lives.
    for (size_t at; (at = v.find(root.string() + "/")) != std::string::npos;)
      v.erase(at, root.string().size() + 1);
    EXPECT_EQ(v.find('\n'), std::string::npos) << name << ": " << v;
    EXPECT_TRUE(v == "ok" || v.starts_with("refused: cannot open '" + name + "': "))
        << name << ": " << v;
    EXPECT_EQ(o.problem, "") << name;
    readable += v == "ok";
    verdicts[name] = v;
    if (!o.cell.empty() && o.problem.empty())
      coloured[name] = {out.string(), o.sheet + "\t" + o.cell};
  }
  EXPECT_GT(readable, 500);

  // Another reader sees the new colour: one Python process reads every changed workbook.
  {
    std::ofstream m(scratch / "manifest.tsv");
    for (const auto& [name, where] : coloured)
      m << name << '\t' << where.first << '\t' << where.second << '\n';
  }
  std::string cmd = "/usr/bin/python3 tests/engine_xlsx/check_colours.py " +
                    (corpus / "workbooks-inventory.jsonl").string() + " < " +
                    (scratch / "manifest.tsv").string() + " 2>&1";
  std::string report;
  if (FILE* p = ::popen(cmd.c_str(), "r")) {
    char buf[4096];
    while (size_t n = std::fread(buf, 1, sizeof buf, p)) report.append(buf, n);
    int rc = ::pclose(p);
    if (rc != 0 && report.find("no openpyxl") != std::string::npos)
      report.clear();  // reader absent
  }
  EXPECT_EQ(report, "") << "openpyxl disagrees about font colours";

  if (const char* u = std::getenv("QZXL_UPDATE_GOLDEN"); u && *u == '1') {
    fs::create_directories(kGolden.parent_path());
    std::ofstream out(kGolden);
    for (const auto& [name, v] : verdicts)
      out << golden_key(name) << '\t' << golden_verdict(name, v) << '\n';
    return;
  }
  std::ifstream in(kGolden);
  ASSERT_TRUE(in) << "no golden file " << kGolden << " (run with QZXL_UPDATE_GOLDEN=1)";
  std::map<std::string, std::string> golden;
  for (std::string line; std::getline(in, line);) {
    size_t tab = line.find('\t');
    if (tab != std::string::npos) golden[line.substr(0, tab)] = line.substr(tab + 1);
  }
  std::set<std::string> seen;
  for (const auto& [name, v] : verdicts) {
    auto it = golden.find(golden_key(name));
    seen.insert(golden_key(name));
    if (it == golden.end())
      ADD_FAILURE() << name << " is new: " << v;
    else
      EXPECT_EQ(golden_verdict(name, v), it->second) << name;
  }
  for (const auto& [key, v] : golden)
    EXPECT_TRUE(seen.count(key)) << key << " is in the golden file but not in the corpus";
}

// --- the calculation check ----------------------------------------------------------------------

// The functions a formula calls (upper-case, without the "_xlfn." of newer functions), read
// from its text outside string literals.
std::vector<std::string> functions_in(const std::string& text) {
  std::vector<std::string> out;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '"') quoted = !quoted;
    if (quoted || c != '(') continue;
    size_t b = i;
    while (b > 0 && (std::isalnum(static_cast<unsigned char>(text[b - 1])) || text[b - 1] == '.' ||
                     text[b - 1] == '_'))
      --b;
    std::string name = text.substr(b, i - b);
    for (char& ch : name) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    for (const char* prefix : {"_XLFN._XLWS.", "_XLFN.", "_XLWS."})
      if (name.rfind(prefix, 0) == 0) name.erase(0, std::strlen(prefix));
    if (!name.empty()) out.push_back(name);
  }
  return out;
}

bool agrees(const calc::Value& cached, const calc::Value& now) {
  if (cached.kind != now.kind) {
    // An empty result shows as 0.
    return cached.kind == calc::Value::Kind::Number && cached.number == 0 &&
           now.kind == calc::Value::Kind::Empty;
  }
  if (cached.kind == calc::Value::Kind::Number) {
    double scale = std::max({1.0, std::fabs(cached.number), std::fabs(now.number)});
    return std::fabs(cached.number - now.number) <= 1e-9 * scale;
  }
  return cached == now;
}

std::string shown(const calc::Value& v) {
  switch (v.kind) {
    case calc::Value::Kind::Empty:
      return "(empty)";
    case calc::Value::Kind::Number:
      return xlsx::double_text(v.number);
    case calc::Value::Kind::Text:
      return "\"" + to_utf8(v.text) + "\"";
    case calc::Value::Kind::Boolean:
      return v.number != 0 ? "TRUE" : "FALSE";
    case calc::Value::Kind::Error:
      return to_utf8(calc::error_text(v.error_code()));
  }
  return "?";
}

// Recalculates every formula of a workbook that the engine can compute — its functions are
// implemented, and so are those of every formula it reads, directly or through names — and
// compares it with the value the file cached. First line: "eligible agreeing"; then one line
// per disagreement (sheet!cell, formula, cached, computed).
std::string calc_probe(const fs::path& file) {
  BookPtr book = xlsx::load(file);
  std::set<std::string> known;
  for (const String& f : calc::function_names()) known.insert(to_utf8(f));
  static const std::set<std::string> unstable = {"NOW",         "TODAY", "RAND",
                                                 "RANDBETWEEN", "INFO",  "CELL"};
  using Key = std::tuple<SheetId, int32_t, int32_t>;
  struct Item {
    Sheet* sheet;
    uint32_t slot;
    std::string text;
    calc::Value cached;
    bool computable = true;
    std::vector<Key> reads;  // formula cells it reads
  };
  std::map<Key, Item> items;
  for (auto& sp : book->sheets) {
    for (uint32_t i = 0; i < sp->formulas.size(); ++i) {
      FormulaCell& f = sp->formulas[i];
      if (!f.live) continue;
      Item it{sp.get(), i, {}, f.value};
      const calc::Formula* parsed = book->ensure_parsed(*sp, f);
      if (!parsed || (f.file && f.file->type == FileFormula::Type::DataTable)) {
        it.computable = false;
      } else {
        it.text = to_utf8(book->formula_text(*sp, f.at.row, f.at.col, calc::Notation::A1));
        // References into other workbooks evaluate to #REF! here; their cached values came
        // from files we do not have.
        if (it.text.find(".xls") != std::string::npos ||
            std::regex_search(it.text, std::regex(R"(\[\d+\])")))
          it.computable = false;
        for (const auto& fn : functions_in(it.text))
          if (!known.count(fn) || unstable.count(fn)) it.computable = false;
        // What it reads, names followed (a few levels deep).
        calc::References refs = calc::references(*parsed, f.at, sp->id);
        std::vector<std::pair<SheetId, Rect>> ranges = refs.ranges;
        std::vector<String> names = refs.names;
        for (size_t n = 0; n < names.size() && n < 64; ++n) {
          const DefinedName* d = book->resolve_name(names[n], sp->id);
          if (!d || !d->parsed) continue;
          calc::References nr =
              calc::references(*d->parsed, {0, 0}, d->scope == calc::kNoSheet ? sp->id : d->scope);
          ranges.insert(ranges.end(), nr.ranges.begin(), nr.ranges.end());
          names.insert(names.end(), nr.names.begin(), nr.names.end());
        }
        for (const auto& [sid, rect] : ranges) {
          Sheet* src = book->sheet(sid);
          if (!src) continue;
          src->cells.for_each(rect, [&](int32_t r, int32_t c, const Cell& cell) {
            if (cell.kind() == CellKind::Formula) it.reads.emplace_back(sid, r, c);
            return true;
          });
        }
      }
      items.emplace(Key{sp->id, f.at.row, f.at.col}, std::move(it));
    }
  }
  // A formula reading one the engine cannot compute cannot be computed either.
  for (bool changed = true; changed;) {
    changed = false;
    for (auto& [key, it] : items) {
      if (!it.computable) continue;
      for (const Key& k : it.reads) {
        auto dep = items.find(k);
        if (dep != items.end() && !dep->second.computable) {
          it.computable = false;
          changed = true;
          break;
        }
      }
    }
  }
  book->calculate(true);
  size_t eligible = 0, agree = 0;
  std::string lines;
  auto clean = [](std::string t) {
    for (char& c : t)
      if (c == '\t' || c == '\n' || c == '\r') c = ' ';
    return t;
  };
  for (const auto& [key, it] : items) {
    if (!it.computable || it.cached.kind == calc::Value::Kind::Empty) continue;
    ++eligible;
    const FormulaCell& f = it.sheet->formulas[it.slot];
    if (agrees(it.cached, f.value)) {
      ++agree;
      continue;
    }
    lines += clean(to_utf8(it.sheet->name)) + "!" + xlsx::cell_text(f.at.row, f.at.col) + "\t" +
             clean(it.text) + "\t" + clean(shown(it.cached)) + "\t" + clean(shown(f.value)) + "\n";
  }
  return std::to_string(eligible) + " " + std::to_string(agree) + "\n" + lines;
}

TEST(Corpus, RecalculationAgreesWithTheCachedValues) {
  fs::path corpus = qz::test::corpus_dir();
  if (corpus.empty()) GTEST_SKIP() << "the shared corpus is not present";
  fs::path root = corpus / "workbooks";
  std::vector<fs::path> files;
  for (const auto& e : fs::recursive_directory_iterator(root))
    if (e.is_regular_file()) files.push_back(e.path());
  std::sort(files.begin(), files.end());

  size_t eligible = 0, agree = 0;
  std::ofstream report(kCalcReport);
  report << "file\tcell\tformula\tcached\tcomputed\n";
  for (const auto& f : files) {
    std::string out = isolated([&] { return calc_probe(f); }, kSecondsPerFile);
    if (out.starts_with("refused: ")) continue;
    std::string name = relative_name(f, root);
    size_t nl = out.find('\n');
    size_t e = 0, a = 0;
    if (nl == std::string::npos || std::sscanf(out.c_str(), "%zu %zu", &e, &a) != 2) {
      ADD_FAILURE() << name << ": " << out;
      continue;
    }
    eligible += e;
    agree += a;
    std::istringstream rest(out.substr(nl + 1));
    for (std::string line; std::getline(rest, line);) report << name << '\t' << line << '\n';
  }
  double rate = eligible ? static_cast<double>(agree) / static_cast<double>(eligible) : 1;
  std::printf("calculation check: %zu of %zu formula cells agree (%.2f%%); disagreements in %s\n",
              agree, eligible, 100 * rate, kCalcReport);
  RecordProperty("eligible", static_cast<int>(eligible));
  RecordProperty("agreeing", static_cast<int>(agree));
  EXPECT_GT(eligible, 1000u);
  EXPECT_GE(rate, kCalcGoal) << "see " << kCalcReport;
}

}  // namespace
}  // namespace qz::engine
