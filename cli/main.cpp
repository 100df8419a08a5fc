// qzxl: the library's services on the command line.
#include <fmt/core.h>
#include <CLI/CLI.hpp>

#include "qzxl/qzxl.hpp"

namespace {

// Prints the library's public constants, as a client reads them through iXLLibConst.
int run_consts() {
  auto lib = qz::create_iXLLibPublic();
  auto c = lib->NewConst();
  auto hex = [](int32_t bgr) {
    return fmt::format("#{:02X}{:02X}{:02X}", bgr & 0xFF, (bgr >> 8) & 0xFF, (bgr >> 16) & 0xFF);
  };
  fmt::print("{:<28} {:>10}  {}\n", "constant", "value", "rgb");
  const std::pair<const char*, int32_t> colours[] = {
      {"qzDefaultInputColor", c->qzDefaultInputColor()},
      {"qzDefaultPartialInputColor", c->qzDefaultPartialInputColor()},
      {"qzDefaultFormulaColor", c->qzDefaultFormulaColor()},
      {"qzDefaultWksLinkColor", c->qzDefaultWksLinkColor()},
      {"qzDefaultWkbLinkColor", c->qzDefaultWkbLinkColor()},
      {"qzDefaultHyperLinkColor", c->qzDefaultHyperLinkColor()},
      {"qzDefaultDummyNumberColor", c->qzDefaultDummyNumberColor()},
  };
  for (const auto& [name, value] : colours)
    fmt::print("{:<28} {:>10}  {}\n", name, value, hex(value));
  fmt::print("{:<28} {:>10}\n", "MainExcelWindowHandle", c->MainExcelWindowHandle());
  return 0;
}

}  // namespace

CLI::App* add_tokenize_command(CLI::App& app);
int run_tokenize_command();

int main(int argc, char** argv) {
  CLI::App app{"qzxl: colour-code, audit and inspect workbooks with the Quazel library"};
  app.set_version_flag("--version", "qzxl 1.1.0");
  app.require_subcommand(1);
  auto* consts = app.add_subcommand("consts", "Print the library's public constants");
  auto* tokenize = add_tokenize_command(app);
  CLI11_PARSE(app, argc, argv);
  if (consts->parsed()) return run_consts();
  if (tokenize->parsed()) return run_tokenize_command();
  return 0;
}
