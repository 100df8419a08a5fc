// qzxl autocolor: colour-codes a workbook, some of its sheets or one range with the
// library's own AutoColor, as the menu commands do inside the application, saves the result
// to another file and reports what the rules made of each cell.
#include <fmt/core.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <array>
#include <map>
#include <nlohmann/json.hpp>

#include "autocolor/autocolor.hpp"
#include "batch.hpp"
#include "common.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qzcli {

namespace {

using qz::String;
using qz::autocolor::Outcome;
using Clock = std::chrono::steady_clock;

struct Options {
  std::vector<std::string> inputs;
  int jobs = 1;
  std::string out;
  std::vector<std::string> sheets;
  std::string range;
  bool names = false;
  bool no_names = false;
  std::string colours;
  bool dry_run = false;
  bool json = false;
  bool quiet = false;
};

// The categories of the summary, in the order of the rules' priority.
struct Category {
  Outcome outcome;
  const char* label;
  const char* key;
};
constexpr std::array<Category, qz::autocolor::kOutcomes> kCategories{{
    {Outcome::Input, "input", "input"},
    {Outcome::PartialInput, "partial input", "partial_input"},
    {Outcome::Formula, "formula", "formula"},
    {Outcome::SheetLink, "sheet link", "sheet_link"},
    {Outcome::WorkbookLink, "workbook link", "workbook_link"},
    {Outcome::NamedLink, "named link", "named_link"},
    {Outcome::Hyperlink, "hyperlink", "hyperlink"},
    {Outcome::SkippedText, "skipped text", "skipped_text"},
    {Outcome::SkippedDate, "skipped dates", "skipped_dates"},
    {Outcome::Vetoed, "vetoed", "vetoed"},
}};

// --colors keys: short words people type, and the settings' own value names.
const std::map<std::string, std::string>& colour_keys() {
  static const std::map<std::string, std::string> keys{
      {"input", "InputColor"},          {"partial", "PartialInputColor"},
      {"formula", "FormulaColor"},      {"sheet", "WksLinkColor"},
      {"wks", "WksLinkColor"},          {"workbook", "WkbLinkColor"},
      {"wkb", "WkbLinkColor"},          {"hyperlink", "HyperlinkColor"},
      {"inputcolor", "InputColor"},     {"partialinputcolor", "PartialInputColor"},
      {"formulacolor", "FormulaColor"}, {"wkslinkcolor", "WksLinkColor"},
      {"wkblinkcolor", "WkbLinkColor"}, {"hyperlinkcolor", "HyperlinkColor"},
  };
  return keys;
}

// "input=#0000FF,partial=#FF0000" as value name -> colour number; a Failure names the part
// that does not read.
std::map<String, int32_t> parse_colour_list(const std::string& list) {
  std::map<String, int32_t> out;
  size_t start = 0;
  while (start <= list.size()) {
    const size_t comma = std::min(list.find(',', start), list.size());
    const std::string item = list.substr(start, comma - start);
    start = comma + 1;
    if (item.empty()) continue;
    const size_t eq = item.find('=');
    if (eq == std::string::npos)
      throw Failure(fmt::format("--colors: \"{}\" should read NAME=#RRGGBB", item));
    std::string key = item.substr(0, eq);
    std::transform(key.begin(), key.end(), key.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto found = colour_keys().find(key);
    if (found == colour_keys().end())
      throw Failure(fmt::format(
          "--colors: unknown colour \"{}\" (known: input, partial, formula, sheet, workbook, "
          "hyperlink)",
          item.substr(0, eq)));
    const auto colour = parse_colour(item.substr(eq + 1));
    if (!colour)
      throw Failure(
          fmt::format("--colors: \"{}\" is no colour (write #RRGGBB)", item.substr(eq + 1)));
    out[qz::from_utf8(found->second)] = *colour;
  }
  return out;
}

// The user's settings store with some colours fixed for this run: the rules read the fixed
// ones, everything else (and every write) goes to the store as usual, so the person's own
// settings are neither ignored nor changed by --colors.
class RunColours final : public qz::vblib::SettingsBackend {
 public:
  RunColours(std::shared_ptr<qz::vblib::SettingsBackend> store, std::map<String, int32_t> fixed)
      : store_(std::move(store)), fixed_(std::move(fixed)) {}
  std::optional<String> read(const String& section, const String& name) override {
    if (auto it = fixed_.find(name); it != fixed_.end() && section == u"AutoColor")
      return qz::from_utf8(std::to_string(it->second));
    return store_->read(section, name);
  }
  void write(const String& section, const String& name, const String& value) override {
    if (section == u"AutoColor" && fixed_.count(name)) return;
    store_->write(section, name, value);
  }
  void remove(const String& section, const String& name) override {
    if (section == u"AutoColor" && fixed_.count(name)) return;
    store_->remove(section, name);
  }
  std::vector<String> names(const String& section) override { return store_->names(section); }

 private:
  std::shared_ptr<qz::vblib::SettingsBackend> store_;
  std::map<String, int32_t> fixed_;
};

// Counts what the rules decide, and how many cells would get another colour than they have.
class Tally final : public qz::autocolor::Observer {
 public:
  void decided(const qz::host::RangePtr& cell, Outcome outcome,
               std::optional<int32_t> colour) override {
    count(outcome, colour, [&] { return cell->font()->color(); });
  }
  bool needs_cells() const override { return false; }
  void decided_colour(const qz::Variant& colour_before, Outcome outcome,
                      std::optional<int32_t> colour) override {
    count(outcome, colour, [&]() -> const qz::Variant& { return colour_before; });
  }
  std::array<int64_t, qz::autocolor::kOutcomes> cells{}, changed{};
  int64_t total = 0;

 private:
  // The colour a cell had is read only when the rules give it one, and a cell whose colour
  // cannot be read counts as changed.
  template <class ColourBefore>
  void count(Outcome outcome, std::optional<int32_t> colour, ColourBefore colour_before) {
    const auto i = static_cast<size_t>(outcome);
    ++cells[i];
    ++total;
    if (!colour) return;
    int32_t before = -1;
    try {
      before = qz::to_long(colour_before());
    } catch (const std::exception&) {
    }
    if (before != *colour) ++changed[i];
  }
};

struct Timing {
  double load = 0, colour = 0, save = 0;
};

double seconds_since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// Memory the process has freed stays resident in the allocator until reused; between the
// phases of a run, whose buffers differ in size and thread, handing it back keeps the freed
// pages of one phase from adding up into the peak of the next.
void give_back_freed_memory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

int32_t colour_of(qz::iAutoColor& ac, Outcome o) {
  switch (o) {
    case Outcome::Input:
      return ac.InputColor();
    case Outcome::PartialInput:
      return ac.PartialInputColor();
    case Outcome::Formula:
      return ac.FormulaColor();
    case Outcome::SheetLink:
    case Outcome::NamedLink:
      return ac.WksLinkColor();
    case Outcome::WorkbookLink:
      return ac.WkbLinkColor();
    case Outcome::Hyperlink:
      return ac.HyperlinkColor();
    default:
      return -1;
  }
}

// Keeps a workbook, and the application holding it, until the process ends. The process
// ends right after the workbook's report (a run over many workbooks gives each one a process
// of its own): leaving a large model to the system, rather than freeing its millions of small
// blocks one by one, saves a good part of the run's time. Kept reachable from here, so leak
// checkers see no leak.
void keep_until_exit(const Session& session, qz::host::WorkbookPtr book) {
  static auto* const kept = new std::vector<std::shared_ptr<const void>>;
  kept->push_back(session.app);
  kept->push_back(std::move(book));
}

// One workbook. `out_folder`, in a run over many, is where the copies go (kept in the layout
// of the folders they were found in); empty, each copy goes beside its input.
int run_one(const Options& o, const std::map<String, int32_t>& fixed, const Input& input,
            const fs::path& out_folder) {
  const auto started = Clock::now();
  const fs::path in = input.path;
  check_input(in);
  fs::path out;
  if (!o.dry_run) {
    if (!out_folder.empty()) {
      out = out_folder / input.relative;
      std::error_code ec;
      fs::create_directories(out.parent_path(), ec);
    } else {
      out = o.out.empty()
                ? in.parent_path() / (in.stem().string() + ".autocolor" + in.extension().string())
                : fs::path(o.out);
    }
    check_output(in, out);
  }

  if (!fixed.empty())
    qz::vblib::settings_backend() =
        std::make_shared<RunColours>(qz::vblib::settings_backend(), fixed);
  Tally tally;
  Interaction interaction;
  interaction.names_answer = o.no_names ? qz::msgbox::No : qz::msgbox::Yes;
  interaction.progress = !o.quiet;
  interaction.cells_done = [&tally] { return tally.total; };
  auto ui = std::make_shared<TerminalUi>(interaction);
  Session session(ui);

  Timing timing;
  auto t = Clock::now();
  const auto book = session.open(in);
  timing.load = seconds_since(t);
  // Reading sheets side by side leaves freed parse buffers resident in the allocator's
  // per-thread pools, under the lists colouring makes next.
  give_back_freed_memory();

  auto ac = std::dynamic_pointer_cast<qz::iAutoColor>(session.lib->NewAutoColor());
  if (!ac) throw Failure("this build's AutoColor cannot report on its runs");
  ac->set_observer(&tally);

  // What to colour, resolved before anything changes.
  std::vector<qz::host::WorksheetPtr> sheets;
  qz::host::RangePtr range;
  if (!o.range.empty()) {
    range = find_range(book, o.range);
    sheets.push_back(range->worksheet());
  } else if (!o.sheets.empty()) {
    for (const auto& name : o.sheets) sheets.push_back(find_sheet(book, name));
  } else {
    for (const auto& s : worksheets(book))
      if (s->type() == qz::host::xl::Worksheet) sheets.push_back(s);
  }

  t = Clock::now();
  if (range) {
    // As the selection command does; --names adds the named-link search it leaves out.
    bool do_names = o.names;
    ac->AutoColorRange(range, String(), &do_names);
  } else if (o.names) {
    // The named-link search on every sheet, as answering Yes does for a workbook with very
    // many names; below that count the sheet run never searches names.
    for (const auto& sheet : sheets) {
      bool do_names = true;
      ac->AutoColorRange(sheet->used_range(), sheet->name(), &do_names);
    }
  } else if (!o.sheets.empty()) {
    for (const auto& sheet : sheets) ac->AutoColorSheet(sheet, true);
  } else {
    ac->AutoColorWorkbook(book);
  }
  timing.colour = seconds_since(t);
  ac->set_observer(nullptr);

  if (!o.dry_run) {
    // Colouring's lists of cells are freed by now, and saving takes its large buffers
    // fresh from the system.
    give_back_freed_memory();
    t = Clock::now();
    session.save(book, out);
    timing.save = seconds_since(t);
  }
  const double total_seconds = seconds_since(started);

  std::vector<std::string> sheet_names;
  for (const auto& s : sheets) sheet_names.push_back(qz::to_utf8(s->name()));
  int64_t changed = 0;
  for (auto c : tally.changed) changed += c;

  if (o.json) {
    nlohmann::ordered_json j;
    j["input"] = in.string();
    j["output"] =
        o.dry_run ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(out.string());
    j["dry_run"] = o.dry_run;
    if (range) j["range"] = o.range;
    j["sheets"] = sheet_names;
    nlohmann::ordered_json cats = nlohmann::ordered_json::object();
    for (const auto& c : kCategories) {
      const auto i = static_cast<size_t>(c.outcome);
      nlohmann::ordered_json entry;
      entry["cells"] = tally.cells[i];
      entry["changed"] = tally.changed[i];
      const int32_t colour = colour_of(*ac, c.outcome);
      entry["colour"] = colour < 0 ? nlohmann::ordered_json(nullptr)
                                   : nlohmann::ordered_json(format_colour(colour));
      cats[c.key] = entry;
    }
    j["categories"] = cats;
    j["cells"] = tally.total;
    j["changed"] = changed;
    j["seconds"] = {{"load", timing.load},
                    {"colour", timing.colour},
                    {"save", timing.save},
                    {"total", total_seconds}};
    fmt::print("{}\n", j.dump());
    keep_until_exit(session, book);
    return 0;
  }

  fmt::print("AutoColor {}{}\n", in.string(),
             o.dry_run ? "  (dry run: nothing written)" : " -> " + out.string());
  Table table({"category", "cells", o.dry_run ? "would change" : "changed", "colour"},
              {false, true, true, false});
  for (const auto& c : kCategories) {
    const auto i = static_cast<size_t>(c.outcome);
    const int32_t colour = colour_of(*ac, c.outcome);
    table.add({c.label, grouped(tally.cells[i]), colour < 0 ? "-" : grouped(tally.changed[i]),
               colour < 0 ? "left as is" : format_colour(colour)});
  }
  table.add({"total", grouped(tally.total), grouped(changed), ""});
  table.print(stdout, 2);
  std::string joined;
  for (const auto& s : sheet_names) joined += (joined.empty() ? "" : ", ") + s;
  fmt::print("  sheets: {} ({}){}\n", sheet_names.size(), joined,
             range ? fmt::format("  range: {}", o.range) : "");
  fmt::print("  time:   {:.2f} s (load {:.2f}, colour {:.2f}, save {:.2f})\n", total_seconds,
             timing.load, timing.colour, timing.save);
  keep_until_exit(session, book);
  return 0;
}

int run(const Options& o) {
  // Everything the person typed is checked before any workbook is read.
  const auto fixed = parse_colour_list(o.colours);
  if (o.names && o.no_names) throw Failure("use --names or --no-names, not both");
  if (!o.range.empty() && !o.sheets.empty()) throw Failure("use --range or --sheet, not both");
  if (!is_batch(o.inputs)) {
    const fs::path in = o.inputs.front();
    return run_one(o, fixed, {in, in.filename()}, {});
  }
  // The folder for the copies is made as the first one is written, so that a refused run
  // leaves nothing behind.
  fs::path out_folder;
  if (!o.out.empty() && !o.dry_run) {
    out_folder = o.out;
    std::error_code ec;
    if (fs::exists(out_folder, ec) && !fs::is_directory(out_folder, ec))
      throw Failure(fmt::format("{}: with several workbooks, -o names a folder", o.out));
    const fs::path parent = fs::absolute(out_folder).parent_path();
    if (!fs::is_directory(parent, ec))
      throw Failure(fmt::format("{}: no such folder", parent.string()));
  }
  const auto inputs = expand_inputs(o.inputs);
  // Several workers drawing bars on one terminal would only garble it.
  Options quiet = o;
  quiet.quiet = true;
  return run_batch("autocolor", inputs, o.jobs, o.json,
                   [&](const Input& input) { return run_one(quiet, fixed, input, out_folder); });
}

}  // namespace

Command make_autocolor_command(CLI::App& parent) {
  static Options o;
  auto* cmd = add_command(parent, "autocolor",
                          "Colour-code a workbook's cells by what they hold and save a copy");
  cmd->add_option("IN", o.inputs,
                  "The workbooks to colour (.xlsx or .xlsm), or folders of them; several are "
                  "coloured by worker processes, and the status is the worst of theirs")
      ->required();
  cmd->add_option("-o,--output", o.out,
                  "Where to save the result (default: IN with .autocolor before its extension; "
                  "IN itself only when named here); with several workbooks, a folder");
  add_jobs_option(cmd, o.jobs);
  cmd->add_option("--sheet", o.sheets, "Colour only this sheet (repeat for more)");
  cmd->add_option("--range", o.range, "Colour only this range, as SHEET!A1:B9");
  cmd->add_flag("--names", o.names,
                "Also find formulas that reach other sheets through defined names (otherwise "
                "searched only when a workbook with over 500 names is answered Yes)");
  cmd->add_flag("--no-names", o.no_names, "Answer No when asked whether to search names");
  cmd->add_option("--colors", o.colours,
                  "Colours for this run, as input=#0000FF,partial=#FF0000 (also formula, sheet, "
                  "workbook, hyperlink); the rest come from the settings");
  cmd->add_flag("--dry-run", o.dry_run, "Change and write nothing; report what would change");
  cmd->add_flag("--json", o.json, "Print the summary as JSON, one line per workbook");
  cmd->add_flag("-q,--quiet", o.quiet, "No progress bar");
  add_locale_option(cmd);
  return {cmd, [] { return run(o); }};
}

}  // namespace qzcli
