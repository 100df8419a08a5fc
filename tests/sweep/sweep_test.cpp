// Every member of every public class under bad arguments, in process against the engine. The
// calls are generated from the public interface description (gen_sweep.py); each runs in a
// child process of its own, under a time limit, so that one crash or hang cannot hide the
// rest, and each must return without throwing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "engine/host/engine.hpp"
#include "engine/model/sheet.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "host/intercept.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/qzxl.hpp"

namespace qz {
namespace {

/// One workbook with two sheets, a chart and a name, plus objects that have gone away: a
/// range of a closed workbook, a range of a deleted sheet, a deleted name.
struct Fixture {
  host::ApplicationPtr sound_application;
  host::WorkbookPtr sound_workbook, closed_wb;
  host::WorksheetPtr sound_worksheet, deleted_ws;
  host::RangePtr sound_range, range, closed_range, deleted_range;
  host::ChartPtr sound_chart;
  host::CommandBarPtr sound_commandbar;
  host::CommandBarControlPtr sound_commandbarcontrol;
  host::NamePtr sound_name, deleted_name;
  iXLLibPublicPtr lib = create_iXLLibPublic();
  String long_text = String(40000, u'x');
  String astral = u"\U0001F600 \U00020000";

  explicit Fixture(host::ApplicationPtr app_in = engine::create_application())
      : sound_application(std::move(app_in)) {
    auto& app = sound_application;
    sound_workbook = app->workbooks()->add();
    sound_worksheet = sound_workbook->worksheets()->item(Variant(1));
    sound_workbook->worksheets()->add();
    range = sound_range = sound_worksheet->range(Variant(u"A1:B2"));
    sound_range->set_value(Variant(2.5));
    auto model = std::dynamic_pointer_cast<host::Worksheet>(host::unwrap(sound_worksheet));
    engine::sheet_of(model)->chart_objects.push_back({u"Chart 1", u""});
    sound_chart = sound_worksheet->chart_objects()->item(Variant(1))->chart();
    sound_commandbar = app->command_bars()->item(Variant(u"Standard"));
    sound_commandbarcontrol = sound_commandbar->controls()->item(Variant(1));
    host::NameAddArgs name;
    name.name = Variant(u"Total");
    name.refers_to = Variant(u"=Sheet1!$A$1:$B$2");
    sound_name = sound_workbook->names()->add(name);
    name.name = Variant(u"Gone");
    deleted_name = sound_workbook->names()->add(name);
    deleted_name->delete_();

    closed_wb = app->workbooks()->add();
    closed_range = closed_wb->worksheets()->item(Variant(1))->range(Variant(u"B2"));
    closed_wb->close(Variant(false));
    deleted_ws = sound_workbook->worksheets()->add();
    deleted_range = deleted_ws->range(Variant(u"C3"));
    app->set_display_alerts(false);
    deleted_ws->delete_();
    sound_worksheet->activate();

    String name_out;
    lib->NewPublic(name_out);
    lib->InitXL(app);
  }

  Variant array_2d() const {
    return Variant(Array(1, {Variant(Array(1, {Variant(1.0), Variant(2.0)})),
                             Variant(Array(1, {Variant(u"a"), Variant(u"b")}))}));
  }
  FmlaPieces stale_pieces() const {
    FmlaPiece piece;
    piece.ThePiece = u"A1";
    piece.StartPos = 99;
    return {piece};
  }
};

struct SweepCall {
  const char* member;
  const char* pattern;
  bool (*run)(Fixture&);
};

const SweepCall kCalls[] = {
#include "sweep_calls.inc"
};

// Two members loop without limit by design, and only their documented inputs are exempt:
// SetWksCount adds or removes sheets until the count matches, so a count that cannot be
// reached loops for ever; NameWorksheet retries a name the host refuses for any reason other
// than a clash, and a deleted sheet refuses every name.
bool endless_by_design(std::string_view member, std::string_view pattern) {
  if (member == "iWorksheet.NameWorksheet")
    return pattern == "vWks: deleted sheet" || pattern == "all bad #2";
  if (member != "iWorkbook.SetWksCount") return false;
  for (std::string_view unreachable : {"zero", "negative", "huge", "all bad"})
    if (pattern.find(unreachable) != pattern.npos) return true;
  return false;
}

/// Members that write files take a text argument as a path, so every call runs in a folder
/// of its own rather than the checkout.
struct ScratchFolder {
  std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("qzxl_sweep_" + std::to_string(getpid()));
  ScratchFolder() {
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);
  }
  ~ScratchFolder() {
    std::filesystem::current_path(previous);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
};

enum class Outcome { Returned, Skipped, Threw, Crashed, Hung };

Outcome run_in_child(Fixture& f, const SweepCall& call, std::chrono::seconds limit) {
  const pid_t pid = fork();
  if (pid == 0) {
    int code = 0;
    try {
      code = call.run(f) ? 0 : 4;
    } catch (...) {
      code = 3;
    }
    _exit(code);
  }
  const auto deadline = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return Outcome::Hung;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  if (WIFSIGNALED(status)) return Outcome::Crashed;
  switch (WEXITSTATUS(status)) {
    case 0:
      return Outcome::Returned;
    case 4:
      return Outcome::Skipped;
    case 3:
      return Outcome::Threw;
    default:
      return Outcome::Crashed;
  }
}

TEST(Sweep, NoMemberCrashesHangsOrThrowsUnderBadArguments) {
  ScratchFolder scratch;
  Fixture f;
  std::vector<std::string> failures;
  std::set<std::string> members;
  size_t skipped = 0, exempt = 0;
  const char* only = std::getenv("QZXL_SWEEP_ONLY");
  for (const SweepCall& call : kCalls) {
    if (only && std::string_view(call.member).find(only) == std::string_view::npos) continue;
    members.insert(call.member);
    const bool endless = endless_by_design(call.member, call.pattern);
    const Outcome outcome = run_in_child(f, call, std::chrono::seconds(endless ? 2 : 20));
    if (outcome == Outcome::Skipped) ++skipped;
    if (outcome == Outcome::Hung && endless) {
      std::printf("endless by design: %s (%s)\n", call.member, call.pattern);
      ++exempt;
      continue;
    }
    if (outcome == Outcome::Returned || outcome == Outcome::Skipped) continue;
    const char* what = outcome == Outcome::Threw  ? "threw"
                       : outcome == Outcome::Hung ? "hung"
                                                  : "crashed";
    failures.push_back(std::string(call.member) + " (" + call.pattern + "): " + what);
  }
  std::string list;
  for (const auto& failure : failures) list += failure + "\n";
  EXPECT_TRUE(failures.empty()) << list;
  EXPECT_EQ(skipped, 0u) << "calls whose class the factory did not hand out";
  std::printf("sweep: %zu members, %zu calls, %zu in an endless loop by design\n", members.size(),
              std::size(kCalls), exempt);
}

// --- host fault injection -------------------------------------------------------------------
// Each member's sound call again, on an application whose Nth host call fails (then the Nth
// and every later one), for every N up to the number of host calls the call makes. Nothing
// may escape, and afterwards, with the host sound again, undoing and redoing what the library
// recorded must work and the workbook must save and read back as it stands.

/// What a workbook holds, as far as the sweep's calls can change it: its sheets' names and
/// formulas of the cells near the top, and its names.
std::string contents(const host::WorkbookPtr& wb) {
  std::string out;
  auto sheets = wb->worksheets();
  for (int32_t i = 1; i <= sheets->count(); ++i) {
    auto ws = sheets->item(Variant(i));
    out += to_utf8(ws->name()) + ":";
    for (int32_t row = 1; row <= 8; ++row)
      for (int32_t col = 1; col <= 6; ++col)
        if (auto f = ws->cells()->cell(row, col)->formula(); !f.empty())
          out += " " + std::to_string(row) + "," + std::to_string(col) + "=" + to_utf8(f);
    out += "\n";
  }
  auto names = wb->names();
  for (int32_t i = 1; i <= names->count(); ++i)
    out += to_utf8(names->item(Variant(i))->name()) + "=" +
           to_utf8(names->item(Variant(i))->refers_to()) + "\n";
  return out;
}

struct Injector {
  bool armed = false;
  long calls = 0;
  long fail_at = 0;  // 0: none
  bool sticky = false;
};

/// Runs `call` with host calls failing as `injector` says; returns "" or what went wrong.
std::string run_injected(const SweepCall& call, Injector& injector) {
  auto inner = engine::create_application();
  Fixture f(host::intercept(inner, [&injector](const host::HostCall&) {
    if (!injector.armed) return;
    ++injector.calls;
    if (injector.calls == injector.fail_at ||
        (injector.sticky && injector.calls > injector.fail_at && injector.fail_at > 0))
      throw Error(err::host_failure, "injected");
  }));
  injector.calls = 0;
  injector.armed = true;
  try {
    call.run(f);
  } catch (...) {
    injector.armed = false;
    return "threw";
  }
  injector.armed = false;
  try {
    auto undo = f.lib->NewUndoRedo();
    undo->QZUndo();
    undo->QZRedo();
    auto wb = std::dynamic_pointer_cast<host::Workbook>(host::unwrap(f.sound_workbook));
    const std::string before = contents(wb);
    const auto path = std::filesystem::temp_directory_path() /
                      ("qzxl_fault_" + std::to_string(getpid()) + ".xlsx");
    engine::xlsx::save(*engine::book_of(wb), path);
    auto again = engine::adopt(engine::create_application(), engine::xlsx::load(path));
    std::filesystem::remove(path);
    if (contents(again) != before) return "reloaded differently";
  } catch (const std::exception& e) {
    return std::string("afterwards: ") + e.what();
  }
  return "";
}

TEST(FaultInjection, EveryFailingHostCallIsSkippedAndLeavesAWorkbookThatSaves) {
  ScratchFolder scratch;
  std::vector<std::string> failures;
  const char* only = std::getenv("QZXL_SWEEP_ONLY");
  size_t members = 0, runs = 0;
  for (const SweepCall& call : kCalls) {
    if (std::string_view(call.pattern) != "sound") continue;
    if (only && std::string_view(call.member).find(only) == std::string_view::npos) continue;
    ++members;
    // One child a member: it counts the member's host calls, then fails each in turn.
    int out[2];
    ASSERT_EQ(pipe(out), 0);
    const pid_t pid = fork();
    if (pid == 0) {
      close(out[0]);
      Injector count;
      std::string report = run_injected(call, count);
      const long total = std::min(count.calls, 400L);
      // The two members whose loops retry a refused assignment without limit are left out
      // of the runs where the host refuses everything from some call on.
      const std::string_view member = call.member;
      const bool endless =
          member == "iWorkbook.SetWksCount" || member == "iWorksheet.NameWorksheet";
      for (bool sticky : {false, true}) {
        if (sticky && endless) continue;
        for (long n = 1; n <= total && report.empty(); ++n) {
          Injector fail;
          fail.fail_at = n;
          fail.sticky = sticky;
          if (std::string r = run_injected(call, fail); !r.empty())
            report = r + " failing host call " + std::to_string(n) + (sticky ? " and later" : "");
        }
      }
      report = std::to_string(total) + " " + report;
      (void)!write(out[1], report.data(), report.size());
      _exit(0);
    }
    close(out[1]);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(300);
    int status = 0;
    bool hung = false;
    while (waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        hung = true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::string report;
    char buffer[512];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) report.append(buffer, n);
    close(out[0]);
    const size_t space = report.find(' ');
    if (space != std::string::npos) runs += 2 * std::stol(report.substr(0, space));
    const std::string problem = space == std::string::npos ? "" : report.substr(space + 1);
    if (hung)
      failures.push_back(std::string(call.member) + ": hung");
    else if (WIFSIGNALED(status) || space == std::string::npos)
      failures.push_back(std::string(call.member) + ": crashed");
    else if (!problem.empty())
      failures.push_back(std::string(call.member) + ": " + problem);
  }
  std::string list;
  for (const auto& failure : failures) list += failure + "\n";
  EXPECT_TRUE(failures.empty()) << list;
  std::printf("fault injection: %zu members, about %zu runs\n", members, runs);
}

}  // namespace
}  // namespace qz
