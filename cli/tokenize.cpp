// qzxl tokenize: shows how the library cuts formulas into pieces, as AutoColor reads them
// (references are never expanded here).
#include <fmt/core.h>
#include <CLI/CLI.hpp>

#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common.hpp"
#include "qzxl/qzxl.hpp"

namespace {

struct TokenizeOptions {
  bool r1c1 = false;
  bool no_trim = false;
  bool json = false;
  std::vector<std::string> formulas;
};

TokenizeOptions& options() {
  static TokenizeOptions o;
  return o;
}

const char* kind_of(const qz::FmlaPiece& p) {
  if (p.IsOperator) return "operator";
  if (p.IsFunction) return "function";
  if (p.IsRange) return "range";
  if (p.IsObjectKey) return "objectkey";
  if (p.IsValue) return "value";
  if (p.IsSimpleText) return "text";
  return "-";
}

using qzcli::printable;

void print_table(const std::string& formula, const qz::FmlaPieces& pieces, bool first) {
  if (!first) fmt::print("\n");
  fmt::print("{}\n", printable(qz::from_utf8(formula)));
  size_t pos_width = 3;
  for (const auto& p : pieces) pos_width = std::max(pos_width, std::to_string(p.StartPos).size());
  fmt::print("  {:>{}}  {:<9}  {}\n", "pos", pos_width, "kind", "piece");
  for (const auto& p : pieces)
    fmt::print("  {:>{}}  {:<9}  {}\n", p.StartPos, pos_width, kind_of(p), printable(p.ThePiece));
}

// One line per formula, with the blanks after ":" and "," that a reader of the output
// expects from the documented example; the keys keep the record's field order.
void print_json(const std::string& formula, const qz::FmlaPieces& pieces) {
  auto quoted = [](const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  };
  auto flag = [](bool b) { return b ? "true" : "false"; };
  std::string line = "{\"formula\": " + quoted(formula) + ", \"pieces\": [";
  for (size_t i = 0; i < pieces.size(); ++i) {
    const auto& p = pieces[i];
    if (i > 0) line += ", ";
    line += fmt::format(
        "{{\"ThePiece\": {}, \"StartPos\": {}, \"IsOperator\": {}, \"IsFunction\": {}, "
        "\"IsRange\": {}, \"IsObjectKey\": {}, \"IsValue\": {}, \"IsSimpleText\": {}}}",
        quoted(qz::to_utf8(p.ThePiece)), p.StartPos, flag(p.IsOperator), flag(p.IsFunction),
        flag(p.IsRange), flag(p.IsObjectKey), flag(p.IsValue), flag(p.IsSimpleText));
  }
  line += "]}";
  fmt::print("{}\n", line);
}

}  // namespace

/// Adds the `tokenize` subcommand to the tool.
CLI::App* add_tokenize_command(CLI::App& app) {
  auto& o = options();
  auto* cmd = app.add_subcommand(
      "tokenize",
      "Show how formulas are cut into pieces (one per argument, or one per line of standard "
      "input)");
  cmd->add_flag("--r1c1", o.r1c1, "Read the formulas in R1C1 notation");
  cmd->add_flag("--no-trim", o.no_trim, "Keep the blanks around operands");
  cmd->add_flag("--json", o.json, "Print one JSON line per formula");
  cmd->add_option("formula", o.formulas, "Formulas to read, such as \"=SUM(A1:B2)\"");
  return cmd;
}

/// Runs `tokenize` with the options parsed into it.
int run_tokenize_command() {
  const auto& o = options();
  std::vector<std::string> formulas = o.formulas;
  if (formulas.empty()) {
    std::string line;
    while (std::getline(std::cin, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      formulas.push_back(line);
    }
    if (std::cin.bad()) {
      fmt::print(stderr, "qzxl tokenize: cannot read standard input\n");
      return 1;
    }
  }
  auto parser = qz::create_iXLLibPublic()->NewFormula();
  bool first = true;
  for (const auto& text : formulas) {
    qz::String formula = qz::from_utf8(text);
    qz::FmlaPieces pieces;
    if (o.r1c1)
      parser->ParseCellFormulaR1C1(formula, pieces, !o.no_trim, false);
    else
      parser->ParseCellFormula(formula, pieces, !o.no_trim, false);
    if (o.json)
      print_json(qz::to_utf8(formula), pieces);
    else
      print_table(text, pieces, first);
    first = false;
  }
  return 0;
}
