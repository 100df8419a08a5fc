// qzxl recalc: recalculates a whole workbook with the engine and saves it with fresh cached
// values, or (--check) compares what it computes with the values the file has cached: a
// reviewer's test of whether a model's numbers are stale or came from another program.
// qzxl functions: the functions the engine calculates, one name a line.
#include <fmt/core.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "common.hpp"
#include "engine/calc/calc.hpp"
#include "engine/model/address.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

using qz::engine::Book;
using qz::engine::CellRef;
using qz::engine::FormulaCell;
using qz::engine::Sheet;
using qz::engine::calc::Value;
using Clock = std::chrono::steady_clock;

struct Options {
  std::string in;
  std::string out;
  bool check = false;
  bool json = false;
  bool progress = false;
  double tolerance = 1e-9;
};

std::string shown(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Empty:
      return "(none)";
    case Value::Kind::Number:
      return fmt::format("{:.15g}", v.number);
    case Value::Kind::Text:
      return "\"" + printable(v.text) + "\"";
    case Value::Kind::Boolean:
      return v.number != 0 ? "TRUE" : "FALSE";
    case Value::Kind::Error:
      return qz::to_utf8(qz::engine::calc::error_text(v.error_code()));
  }
  return "?";
}

// Numbers agree within `tolerance` of the larger (or by less than 1e-12, what is left of a
// sum that cancels); text exactly; Booleans and errors by kind.
bool agree(const Value& cached, const Value& computed, double tolerance) {
  if (cached.kind == Value::Kind::Number && computed.kind == Value::Kind::Number) {
    double scale = std::max(std::fabs(cached.number), std::fabs(computed.number));
    return std::fabs(cached.number - computed.number) <= std::max(tolerance * scale, 1e-12);
  }
  return cached == computed;
}

std::string address(const Sheet& s, const CellRef& at) {
  return qz::to_utf8(qz::engine::sheet_prefix(s.name) + qz::column_letters(at.col)) +
         std::to_string(at.row + 1);
}

// Progress on standard error: a line redrawn a few times a second, once the run has taken a
// while (quiet_start), so that small workbooks print nothing.
class ProgressLine {
 public:
  explicit ProgressLine(bool enabled) : enabled_(enabled), started_(Clock::now()) {}
  ~ProgressLine() {
    if (drawn_) fmt::print(stderr, "\r{:60}\r", "");
  }
  void show(uint64_t done, uint64_t total) {
    if (!enabled_) return;
    auto now = Clock::now();
    if (now - started_ < quiet_start() || now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    drawn_ = true;
    int percent = total ? static_cast<int>(std::min<uint64_t>(done, total) * 100 / total) : 100;
    fmt::print(stderr, "\r  recalculating: {:3}% ({} formulas)", percent,
               grouped(static_cast<int64_t>(done)));
    std::fflush(stderr);
  }

 private:
  bool enabled_;
  bool drawn_ = false;
  Clock::time_point started_, last_;
};

struct Disagreement {
  std::string cell, formula, cached, computed;
};

int run(const Options& o) {
  const auto started = Clock::now();
  if (!(o.tolerance >= 0)) throw Failure("--tolerance: give a number of at least 0");
  if (o.check && !o.out.empty()) throw Failure("--check writes nothing; leave out -o");
  const fs::path in = o.in;
  check_input(in);
  fs::path out;
  if (!o.check) {
    out = o.out.empty()
              ? in.parent_path() / (in.stem().string() + ".recalc" + in.extension().string())
              : fs::path(o.out);
    check_output(in, out);
  }

  qz::engine::BookPtr book;
  try {
    book = qz::engine::xlsx::load(in);
  } catch (const std::exception& e) {
    throw Failure(fmt::format("{}: not a workbook the tool can read ({})", in.string(), e.what()));
  }
  Book& b = *book;
  const double load_seconds = std::chrono::duration<double>(Clock::now() - started).count();

  // The values the file holds, before anything is recalculated.
  std::vector<std::vector<Value>> cached;
  if (o.check)
    for (auto& s : b.sheets) {
      cached.emplace_back();
      for (const FormulaCell& f : s->formulas) cached.back().push_back(f.value);
    }

  b.keep_linked_values = true;
  b.trace_uncertain = o.check;
  ProgressLine line(o.progress || isatty(fileno(stderr)));
  b.progress = [&line](uint64_t done, uint64_t total) { line.show(done, total); };
  const auto calc_started = Clock::now();
  qz::engine::CalcOutcome outcome = b.recalculate_all();
  const double calc_seconds = std::chrono::duration<double>(Clock::now() - calc_started).count();
  b.progress = nullptr;

  // Without iterating, a circle's values depend on where the calculation entered it; only
  // converged iteration gives values worth comparing.
  std::set<std::pair<qz::engine::SheetId, std::pair<int32_t, int32_t>>> in_circle;
  if (!b.calc_settings.iterate || !outcome.converged)
    for (const auto& [sid, at] : outcome.circular) in_circle.insert({sid, {at.row, at.col}});
  size_t formulas = 0, compared = 0, agreed = 0;
  std::map<std::string, size_t> skipped;
  std::vector<Disagreement> disagreements;
  for (size_t si = 0; si < b.sheets.size(); ++si) {
    Sheet& s = *b.sheets[si];
    for (size_t i = 0; i < s.formulas.size(); ++i) {
      FormulaCell& f = s.formulas[i];
      if (!f.live) continue;
      ++formulas;
      if (!o.check) continue;
      const Value& before = cached[si][i];
      if (before.kind == Value::Kind::Empty) {
        ++skipped["no cached value"];
        continue;
      }
      if (in_circle.count({s.id, {f.at.row, f.at.col}})) {
        ++skipped["circular reference"];
        continue;
      }
      if (f.uncertain) {
        const char* why = b.uncertain_reason(s, f);
        ++skipped[why ? why : "reads such a cell"];
        continue;
      }
      ++compared;
      if (agree(before, f.value, o.tolerance)) {
        ++agreed;
        continue;
      }
      disagreements.push_back(
          {address(s, f.at),
           qz::to_utf8(b.formula_text(s, f.at.row, f.at.col, qz::engine::calc::Notation::A1)),
           shown(before), shown(f.value)});
    }
  }

  std::vector<std::string> circles;
  for (const auto& [sid, at] : outcome.circular)
    if (Sheet* s = b.sheet(sid)) circles.push_back(address(*s, at));

  double save_seconds = 0;
  if (!o.check) {
    const auto save_started = Clock::now();
    qz::engine::xlsx::SaveOptions options;
    options.calculated = true;
    try {
      qz::engine::xlsx::save(b, fs::absolute(out), options);
    } catch (const std::exception& e) {
      throw Failure(fmt::format("{}: cannot write ({})", out.string(), e.what()));
    }
    save_seconds = std::chrono::duration<double>(Clock::now() - save_started).count();
  }
  const double total_seconds = std::chrono::duration<double>(Clock::now() - started).count();
  const double agreement = compared ? static_cast<double>(agreed) / compared : 1.0;

  if (o.json) {
    nlohmann::ordered_json j;
    j["file"] = in.string();
    j["output"] = o.check ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(out.string());
    j["formulas"] = formulas;
    j["passes"] = outcome.passes;
    j["converged"] = outcome.converged;
    j["circular"] = circles;
    if (o.check) {
      j["compared"] = compared;
      j["agreed"] = agreed;
      j["agreement"] = agreement;
      j["tolerance"] = o.tolerance;
      j["skipped"] = skipped;
      auto& list = j["disagreements"] = nlohmann::ordered_json::array();
      for (const auto& d : disagreements)
        list.push_back({{"cell", d.cell},
                        {"formula", d.formula},
                        {"cached", d.cached},
                        {"computed", d.computed}});
    }
    j["seconds"] = {{"load", load_seconds},
                    {"calculate", calc_seconds},
                    {"save", save_seconds},
                    {"total", total_seconds}};
    fmt::print("{}\n", j.dump(2));
  } else {
    fmt::print("{}: {} formulas recalculated in {:.2f} s", in.string(),
               grouped(static_cast<int64_t>(formulas)), calc_seconds);
    if (outcome.passes > 1)
      fmt::print(" ({} passes{})", outcome.passes,
                 outcome.converged ? "" : ", still changing when the passes ran out");
    fmt::print("\n");
    if (!circles.empty()) {
      fmt::print("  circular references ({}):", circles.size());
      for (size_t k = 0; k < circles.size() && k < 20; ++k) fmt::print(" {}", circles[k]);
      fmt::print("{}\n", circles.size() > 20 ? " ..." : "");
    }
    if (o.check) {
      fmt::print("  agreement: {} of {} compared formulas ({:.2f}%) within {:g}\n",
                 grouped(static_cast<int64_t>(agreed)), grouped(static_cast<int64_t>(compared)),
                 agreement * 100, o.tolerance);
      if (!skipped.empty()) {
        fmt::print("  not compared:");
        const char* sep = " ";
        for (const auto& [why, n] : skipped) {
          fmt::print("{}{} {}", sep, why, grouped(static_cast<int64_t>(n)));
          sep = ", ";
        }
        fmt::print("\n");
      }
      if (!disagreements.empty()) {
        Table table({"cell", "formula", "cached", "computed"});
        for (const auto& d : disagreements) table.add({d.cell, d.formula, d.cached, d.computed});
        table.print(stdout, 2);
      }
    } else {
      fmt::print("  wrote {} ({:.2f} s in all)\n", out.string(), total_seconds);
    }
  }
  // The process ends right after this: leaving the workbook to the system, rather than
  // freeing its millions of small blocks one by one, saves a good part of a large model's
  // time. Kept reachable, so leak checkers see no leak.
  static const auto* const kept = new qz::engine::BookPtr(std::move(book));
  (void)kept;
  return o.check && !disagreements.empty() ? kExitFindings : 0;
}

}  // namespace

Command make_recalc_command(CLI::App& parent) {
  static Options o;
  auto* cmd = add_command(parent, "recalc",
                          "Recalculate a workbook and save it with fresh values, or check the "
                          "values it has cached");
  cmd->add_option("IN", o.in, "The workbook (.xlsx or .xlsm)")->required();
  cmd->add_option("-o,--output", o.out,
                  "Where to save the result (default: IN with .recalc before its extension; "
                  "IN itself only when named here)");
  cmd->add_flag("--check", o.check,
                "Write nothing: compare the computed values with the cached ones, list each "
                "disagreement and exit 1 when there is any");
  cmd->add_option("--tolerance", o.tolerance,
                  "Numbers agree when they differ by at most this part of the larger")
      ->capture_default_str();
  cmd->add_flag("--json", o.json, "Print the summary as JSON");
  cmd->add_flag("--progress", o.progress,
                "Show progress on standard error even when it is not a terminal");
  return {cmd, [] { return run(o); }};
}

Command make_functions_command(CLI::App& parent) {
  auto* cmd = add_command(parent, "functions", "List the functions formulas can call");
  return {cmd, [] {
            for (const qz::String& name : qz::engine::calc::function_names())
              fmt::print("{}\n", qz::to_utf8(name));
            return 0;
          }};
}

}  // namespace qzcli
