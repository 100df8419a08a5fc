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
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>

#include <gtest/gtest.h>

#include "engine/xlsx/package.hpp"
#include "qzxl/error.hpp"
#include "support/test_support.hpp"

namespace qz::engine::xlsx {
namespace {

namespace fs = std::filesystem;

const fs::path kGolden = "tests/engine_xlsx/golden/corpus_verdicts.txt";
constexpr int kSecondsPerFile = 30;

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

// Opens a package, parses the parts a workbook is read from, saves a copy and compares
// the copy entry by entry. "ok" or the reason it is not.
std::string probe(const fs::path& file, const fs::path& scratch) {
  Package pkg = Package::open(file);
  std::vector<std::string> parts = {pkg.workbook_part()};
  for (const auto& r : pkg.relationships(pkg.workbook_part()))
    if (!r.external && (r.kind() == "worksheet" || r.kind() == "sharedStrings" ||
                        r.kind() == "styles" || r.kind() == "chartsheet"))
      parts.push_back(r.part);
  for (const auto& part : parts) {
    if (!pkg.has_part(part)) continue;
    std::string text;
    pugi::xml_document doc;
    pkg.parse_part(part, text, doc);
  }

  {
    ZipWriter w(scratch);
    for (const auto& e : pkg.zip().entries()) w.copy(pkg.zip(), e);
    w.commit();
  }
  ZipReader copy = ZipReader::open(scratch);
  const auto& a = pkg.zip().entries();
  const auto& b = copy.entries();
  if (a.size() != b.size()) return "ROUND TRIP: entry count changed";
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i].name != b[i].name) return "ROUND TRIP: order changed at " + a[i].name;
    if (a[i].crc32 != b[i].crc32 || !std::ranges::equal(pkg.zip().raw(a[i]), copy.raw(b[i])))
      return "ROUND TRIP: " + a[i].name + " differs";
  }
  return "ok";
}

std::string relative_name(const fs::path& p, const fs::path& base) {
  return p.lexically_relative(base).generic_string();
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
  int readable = 0;
  for (const auto& f : files) {
    std::string name = relative_name(f, root);
    std::string v = isolated([&] { return probe(f, scratch / "copy.xlsx"); }, kSecondsPerFile);
    // Messages name the file by the path it was opened with; the golden file is independent
    // of where the corpus lives.
    for (size_t at; (at = v.find(root.string() + "/")) != std::string::npos;)
      v.erase(at, root.string().size() + 1);
    EXPECT_EQ(v.find('\n'), std::string::npos) << name << ": " << v;
    EXPECT_TRUE(v == "ok" || v.starts_with("refused: cannot open '" + name + "': "))
        << name << ": " << v;
    readable += v == "ok";
    verdicts[name] = v;
  }
  EXPECT_GT(readable, 500);

  if (const char* u = std::getenv("QZXL_UPDATE_GOLDEN"); u && *u == '1') {
    fs::create_directories(kGolden.parent_path());
    std::ofstream out(kGolden);
    for (const auto& [name, v] : verdicts) out << name << '\t' << v << '\n';
    return;
  }
  std::ifstream in(kGolden);
  ASSERT_TRUE(in) << "no golden file " << kGolden << " (run with QZXL_UPDATE_GOLDEN=1)";
  std::map<std::string, std::string> golden;
  for (std::string line; std::getline(in, line);) {
    size_t tab = line.find('\t');
    if (tab != std::string::npos) golden[line.substr(0, tab)] = line.substr(tab + 1);
  }
  for (const auto& [name, v] : verdicts) {
    auto it = golden.find(name);
    if (it == golden.end())
      ADD_FAILURE() << name << " is new: " << v;
    else
      EXPECT_EQ(v, it->second) << name;
  }
  for (const auto& [name, v] : golden)
    EXPECT_TRUE(verdicts.count(name)) << name << " is in the golden file but not in the corpus";
}

}  // namespace
}  // namespace qz::engine::xlsx
