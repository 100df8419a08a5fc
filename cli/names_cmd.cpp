// qzxl names: lists a workbook's defined names, or shows, hides or deletes the library's
// tags and removes dead names through the library's own housekeeping methods.
#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <set>

#include "common.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

struct Options {
  std::string in;
  std::string out;
  bool hidden = false, tags = false, dead = false, json = false;
  bool show_tags = false, hide_tags = false, delete_tags = false, clean_dead = false;
};

nlohmann::ordered_json to_json(const NameRow& n) {
  return {{"name", n.text},       {"scope", n.scope}, {"refers_to", n.refers},
          {"visible", n.visible}, {"tag", n.tag},     {"dead", n.dead}};
}

void print_names(const std::vector<NameRow>& rows, bool json) {
  if (json) {
    auto j = nlohmann::ordered_json::array();
    for (const auto& n : rows) j.push_back(to_json(n));
    fmt::print("{}\n", j.dump(2));
    return;
  }
  if (rows.empty()) {
    fmt::print("no names\n");
    return;
  }
  Table table({"name", "scope", "visible", "kind", "refers to"});
  for (const auto& n : rows) {
    std::string kind = n.tag ? "tag" : "";
    if (n.dead) kind += kind.empty() ? "dead" : ", dead";
    table.add({n.text, n.scope, n.visible ? "yes" : "no", kind, n.refers});
  }
  table.print(stdout);
}

struct Counts {
  size_t names = 0, tags = 0, hidden_tags = 0, dead = 0;
};

Counts count(const std::vector<NameRow>& rows) {
  Counts c;
  for (const auto& n : rows) {
    ++c.names;
    if (n.tag) ++c.tags;
    if (n.tag && !n.visible) ++c.hidden_tags;
    if (n.dead) ++c.dead;
  }
  return c;
}

int run(const Options& o) {
  const int actions = o.show_tags + o.hide_tags + o.delete_tags + o.clean_dead;
  if (actions > 1)
    throw Failure("choose one of --show-tags, --hide-tags, --delete-tags, --clean-dead");
  const fs::path in = o.in;

  if (actions == 0) {
    if (!o.out.empty()) throw Failure("-o is for changes: add --show-tags, --hide-tags, ...");
    Session session;
    const auto book = session.open(in);
    std::vector<NameRow> rows;
    for (auto& n : list_names(book))
      if ((!o.hidden || !n.visible) && (!o.tags || n.tag) && (!o.dead || n.dead))
        rows.push_back(std::move(n));
    print_names(rows, o.json);
    return 0;
  }

  if (o.out.empty())
    throw Failure("say where to save the changed workbook with -o OUT (OUT may be IN itself)");
  const fs::path out = o.out;
  check_input(in);
  check_output(in, out);
  Session session;
  const auto book = session.open(in);
  const auto before = list_names(book);
  auto wkb = session.lib->NewWorkbook();
  const char* what = "";
  if (o.show_tags) {
    wkb->ShowNames(book);
    what = "shown";
  } else if (o.hide_tags) {
    wkb->HideNames(book);
    what = "hidden";
  } else if (o.delete_tags) {
    wkb->DeleteNames(book);
    what = "deleted";
  } else {
    wkb->CleanUpNames(book);
    what = "deleted";
  }
  const auto after = list_names(book);
  session.save(book, out);

  // Which names the method touched: gone, or shown/hidden.
  std::vector<NameRow> touched;
  std::set<std::string> left;
  std::map<std::string, bool> visible_after;
  for (const auto& n : after) visible_after[n.text] = n.visible;
  for (const auto& n : before) {
    auto it = visible_after.find(n.text);
    if (it == visible_after.end() || it->second != n.visible) touched.push_back(n);
  }
  const Counts b = count(before), a = count(after);
  if (o.json) {
    nlohmann::ordered_json j;
    j["input"] = in.string();
    j["output"] = out.string();
    j[what] = nlohmann::ordered_json::array();
    for (const auto& n : touched) j[what].push_back(n.text);
    j["before"] = {
        {"names", b.names}, {"tags", b.tags}, {"hidden_tags", b.hidden_tags}, {"dead", b.dead}};
    j["after"] = {
        {"names", a.names}, {"tags", a.tags}, {"hidden_tags", a.hidden_tags}, {"dead", a.dead}};
    fmt::print("{}\n", j.dump(2));
    return 0;
  }
  fmt::print("{} -> {}: {} name{} {}\n", in.string(), out.string(), touched.size(),
             touched.size() == 1 ? "" : "s", what);
  for (const auto& n : touched) fmt::print("  {}\n", n.text);
  Table table({"", "names", "tags", "hidden tags", "dead"}, {false, true, true, true, true});
  table.add({"before", std::to_string(b.names), std::to_string(b.tags),
             std::to_string(b.hidden_tags), std::to_string(b.dead)});
  table.add({"after", std::to_string(a.names), std::to_string(a.tags),
             std::to_string(a.hidden_tags), std::to_string(a.dead)});
  table.print(stdout, 2);
  return 0;
}

}  // namespace

Command make_names_command(CLI::App& parent) {
  static Options o;
  auto* cmd = add_command(parent, "names",
                          "List a workbook's defined names, or tidy the library's tags and dead "
                          "names into a copy");
  cmd->add_option("IN", o.in, "The workbook (.xlsx or .xlsm)")->required();
  cmd->add_flag("--hidden", o.hidden, "List only hidden names");
  cmd->add_flag("--tags", o.tags, "List only the library's tags (\"_bqz.\" names)");
  cmd->add_flag("--dead", o.dead, "List only names that refer to #REF! or to other files");
  cmd->add_flag("--json", o.json, "Print as JSON");
  cmd->add_flag("--show-tags", o.show_tags, "Make the library's tags visible");
  cmd->add_flag("--hide-tags", o.hide_tags, "Hide the library's tags");
  cmd->add_flag("--delete-tags", o.delete_tags, "Delete the library's tags");
  cmd->add_flag("--clean-dead", o.clean_dead, "Delete names that refer to #REF! or to other files");
  cmd->add_option("-o,--output", o.out, "Where to save the changed workbook (may be IN)");
  return {cmd, [] { return run(o); }};
}

}  // namespace qzcli
