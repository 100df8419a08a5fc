// qzxl audit: lists, without changing anything, the cells and names a reviewer of a model
// looks at first: formulas with typed-in numbers, links to other workbooks and other sheets,
// numbers typed over a row of formulas, dead names and hidden library tags. Formula cells are
// classified by AutoColor's own rules, through the observer `qzxl autocolor` counts with, so
// the two commands cannot disagree; the typed-in numbers are read with the library's tokenizer.
#include <fmt/core.h>

#include <array>
#include <map>
#include <nlohmann/json.hpp>

#include "autocolor/autocolor.hpp"
#include "common.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

using qz::String;

struct Options {
  std::string in;
  bool json = false;
  int max = 20;
  std::string fail_on;
};

struct Finding {
  std::string where;   // a cell ("Income!C7") or a name
  std::string what;    // the formula, value or reference
  std::string detail;  // the numbers found, the row's formula, ...
};

struct Group {
  const char* key;
  const char* title;
  const char* detail_title;
  std::vector<Finding> items;
};

enum GroupId { kPartial, kExternal, kSheet, kOvertyped, kDeadNames, kTags, kGroups };

std::array<Group, kGroups> make_groups() {
  return {{
      {"partial", "Formulas with typed-in numbers", "numbers", {}},
      {"external", "Links to other workbooks", "", {}},
      {"sheet", "Links to other sheets", "", {}},
      {"overtyped", "Numbers typed over a row of formulas", "the row's formula", {}},
      {"dead", "Dead names (#REF! or another file)", "", {}},
      {"tags", "Hidden library tags", "", {}},
  }};
}

// The typed-in numbers of a formula, shown beside a partial input (0 and 1 do not count, as
// they keep a formula a plain one).
std::vector<std::string> typed_values(qz::_iFormula& parser, const String& formula) {
  std::vector<std::string> out;
  String text = formula;
  qz::FmlaPieces pieces;
  parser.ParseCellFormula(text, pieces, false, false);
  for (const auto& p : pieces) {
    if (!p.IsValue) continue;
    double d = 1;
    try {
      d = qz::to_double(qz::Variant(p.ThePiece));
    } catch (const std::exception&) {
    }
    if (d != 0 && d != 1) out.push_back(qz::to_utf8(p.ThePiece));
  }
  return out;
}

// What AutoColor's rules made of each cell in a run over the workbook, by "Sheet!A1". The run
// colours the workbook in memory only: the audit saves nothing.
class Outcomes final : public qz::autocolor::Observer {
 public:
  void decided(const qz::host::RangePtr& cell, qz::autocolor::Outcome outcome,
               std::optional<int32_t>) override {
    by_cell_[cell_address(cell)] = outcome;
  }
  std::optional<qz::autocolor::Outcome> of(const std::string& where) const {
    auto it = by_cell_.find(where);
    return it == by_cell_.end() ? std::nullopt : std::optional(it->second);
  }

 private:
  std::map<std::string, qz::autocolor::Outcome> by_cell_;
};

std::string joined(const std::vector<std::string>& parts) {
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : ", ") + p;
  return out;
}

class Auditor {
 public:
  Auditor(const qz::iXLLibPublicPtr& lib, const Outcomes& outcomes)
      : parser_(lib->NewFormula()), cells_(lib->NewRange()), outcomes_(outcomes) {}

  void sheet(const qz::host::WorksheetPtr& wks, std::array<Group, kGroups>& groups) {
    auto used = wks->used_range();
    used->for_each_cell([&](const qz::host::RangePtr& cell) {
      if (cell->has_formula())
        formula_cell(cell, groups);
      else if (cells_->CellType(cell) == qz::CellNumeric)
        typed_number(wks, cell, groups);
      return true;
    });
  }

 private:
  void formula_cell(const qz::host::RangePtr& cell, std::array<Group, kGroups>& groups) {
    const std::string where = cell_address(cell);
    const auto outcome = outcomes_.of(where);
    if (!outcome) return;
    const String formula = cell->formula();
    switch (*outcome) {
      case qz::autocolor::Outcome::PartialInput:
        groups[kPartial].items.push_back(
            {where, printable(formula), joined(typed_values(*parser_, formula))});
        break;
      case qz::autocolor::Outcome::WorkbookLink:
        groups[kExternal].items.push_back({where, printable(formula), ""});
        break;
      case qz::autocolor::Outcome::SheetLink:
      case qz::autocolor::Outcome::NamedLink:
        groups[kSheet].items.push_back({where, printable(formula), ""});
        break;
      default:
        break;
    }
  }

  // A number where its neighbours hold the same formula (in relative terms) was most likely
  // typed over that formula. At the end of a row the two cells before it must agree. A
  // number at the start of a row of formulas is the usual first-period input, not a finding.
  void typed_number(const qz::host::WorksheetPtr& wks, const qz::host::RangePtr& cell,
                    std::array<Group, kGroups>& groups) {
    const int32_t row = cell->row(), col = cell->column();
    auto r1c1 = [&](int32_t c) -> String {
      if (c < 1) return String();
      auto other = wks->cell(row, c);
      return other->has_formula() ? other->formula_r1c1() : String();
    };
    const String left = r1c1(col - 1);
    if (left.empty()) return;
    const String right = r1c1(col + 1);
    const bool between = !right.empty() && right == left;
    const bool at_end =
        right.empty() && wks->cell(row, col + 1)->value().is_empty() && r1c1(col - 2) == left;
    if (!between && !at_end) return;
    groups[kOvertyped].items.push_back(
        {cell_address(cell), printable(cell->formula()),
         fmt::format("{} (as in {})", printable(wks->cell(row, col - 1)->formula()),
                     qz::to_utf8(wks->cell(row, col - 1)->address(false, false)))});
  }

  qz::iFormulaPtr parser_;
  qz::iRangePtr cells_;
  const Outcomes& outcomes_;
};

void audit_names(const qz::host::WorkbookPtr& book, std::array<Group, kGroups>& groups) {
  for (const auto& n : list_names(book)) {
    if (n.dead) groups[kDeadNames].items.push_back({n.text, n.refers, ""});
    const bool ends_as_tag =
        n.text.size() >= 4 && n.text.compare(n.text.size() - 4, 4, ".eqz") == 0;
    if (n.tag && ends_as_tag && !n.visible) groups[kTags].items.push_back({n.text, n.refers, ""});
  }
}

std::vector<GroupId> parse_fail_on(const std::string& list) {
  std::vector<GroupId> out;
  const auto groups = make_groups();
  size_t start = 0;
  while (start <= list.size()) {
    const size_t comma = std::min(list.find(',', start), list.size());
    const std::string key = list.substr(start, comma - start);
    start = comma + 1;
    if (key.empty()) continue;
    bool known = false;
    for (int g = 0; g < kGroups; ++g)
      if (key == groups[static_cast<size_t>(g)].key) {
        out.push_back(static_cast<GroupId>(g));
        known = true;
      }
    if (!known)
      throw Failure(fmt::format(
          "--fail-on: unknown group \"{}\" (groups: partial, external, sheet, overtyped, dead, "
          "tags)",
          key));
  }
  return out;
}

int run(const Options& o) {
  const auto fail_on = parse_fail_on(o.fail_on);
  if (o.max < 0) throw Failure("--max: give 0 (no limit) or more");
  const fs::path in = o.in;
  // The names question gets the answer `qzxl autocolor` gives it by default, so both commands
  // run the rules alike.
  Interaction interaction;
  interaction.progress = false;
  Session session(std::make_shared<TerminalUi>(interaction));
  const auto book = session.open(in);

  Outcomes outcomes;
  auto ac = std::dynamic_pointer_cast<qz::iAutoColor>(session.lib->NewAutoColor());
  if (!ac) throw Failure("this build's AutoColor cannot report on its runs");
  ac->set_observer(&outcomes);
  ac->AutoColorWorkbook(book);
  ac->set_observer(nullptr);

  auto groups = make_groups();
  Auditor auditor(session.lib, outcomes);
  size_t sheets = 0;
  for (const auto& wks : worksheets(book)) {
    if (wks->type() != qz::host::xl::Worksheet) continue;
    ++sheets;
    auditor.sheet(wks, groups);
  }
  audit_names(book, groups);

  int status = 0;
  for (GroupId g : fail_on)
    if (!groups[static_cast<size_t>(g)].items.empty()) status = kExitFindings;

  const size_t limit = o.max == 0 ? SIZE_MAX : static_cast<size_t>(o.max);
  if (o.json) {
    nlohmann::ordered_json j;
    j["input"] = in.string();
    j["sheets"] = sheets;
    nlohmann::ordered_json gs = nlohmann::ordered_json::object();
    for (const auto& g : groups) {
      nlohmann::ordered_json items = nlohmann::ordered_json::array();
      for (size_t i = 0; i < g.items.size() && i < limit; ++i) {
        const auto& f = g.items[i];
        nlohmann::ordered_json item = {{"where", f.where}, {"what", f.what}};
        if (!f.detail.empty()) item["detail"] = f.detail;
        items.push_back(item);
      }
      gs[g.key] = {{"title", g.title}, {"count", g.items.size()}, {"items", items}};
    }
    j["groups"] = gs;
    j["failed"] = status != 0;
    fmt::print("{}\n", j.dump(2));
    return status;
  }

  fmt::print("Audit of {} ({} sheet{})\n", in.string(), sheets, sheets == 1 ? "" : "s");
  for (const auto& g : groups) {
    fmt::print("\n{} [{}]: {}\n", g.title, g.key, grouped(static_cast<int64_t>(g.items.size())));
    if (g.items.empty()) continue;
    const bool names = &g == &groups[kDeadNames] || &g == &groups[kTags];
    std::vector<std::string> header{names ? "name" : "cell", names ? "refers to" : "content"};
    if (*g.detail_title) header.push_back(g.detail_title);
    Table table(header);
    for (size_t i = 0; i < g.items.size() && i < limit; ++i) {
      const auto& f = g.items[i];
      if (*g.detail_title)
        table.add({f.where, f.what, f.detail});
      else
        table.add({f.where, f.what});
    }
    table.print(stdout, 2);
    if (g.items.size() > limit)
      fmt::print("  ... and {} more (--max 0 lists all)\n",
                 grouped(static_cast<int64_t>(g.items.size() - limit)));
  }
  if (status != 0) {
    std::vector<std::string> failed;
    for (GroupId g : fail_on)
      if (!groups[static_cast<size_t>(g)].items.empty())
        failed.push_back(groups[static_cast<size_t>(g)].key);
    fmt::print(stderr, "qzxl audit: findings in {}\n", joined(failed));
  }
  return status;
}

}  // namespace

Command make_audit_command(CLI::App& parent) {
  static Options o;
  auto* cmd =
      add_command(parent, "audit", "List what a reviewer checks first in a model; changes nothing");
  cmd->add_option("IN", o.in, "The workbook (.xlsx or .xlsm)")->required();
  cmd->add_flag("--json", o.json, "Print as JSON");
  cmd->add_option("--max", o.max, "List at most this many entries per group (0: all)")
      ->capture_default_str();
  cmd->add_option("--fail-on", o.fail_on,
                  "Exit with status 1 when any of these groups has entries: partial, external, "
                  "sheet, overtyped, dead, tags (comma-separated)");
  add_locale_option(cmd);
  return {cmd, [] { return run(o); }};
}

}  // namespace qzcli
