// qzxl: the library's services on the command line.
#include <fmt/core.h>
#include <CLI/CLI.hpp>

#include "common.hpp"
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

namespace qzcli {
Command make_autocolor_command(CLI::App& parent);
Command make_audit_command(CLI::App& parent);
Command make_names_command(CLI::App& parent);
Command make_settings_command(CLI::App& parent);
}  // namespace qzcli

int main(int argc, char** argv) {
  CLI::App app{"qzxl: colour-code, audit and inspect workbooks with the Quazel library"};
  app.set_version_flag("--version", qzcli::kVersion);
  app.require_subcommand(1);
  std::vector<qzcli::Command> commands{
      qzcli::make_autocolor_command(app),
      qzcli::make_audit_command(app),
      qzcli::make_names_command(app),
      qzcli::make_settings_command(app),
  };
  auto* consts = qzcli::add_command(app, "consts", "Print the library's public constants");
  commands.push_back({consts, run_consts});
  auto* tokenize = add_tokenize_command(app);
  tokenize->set_version_flag("--version", qzcli::kVersion);
  qzcli::add_locale_option(tokenize);
  commands.push_back({tokenize, run_tokenize_command});
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help and --version end parsing too; they print as the parser prints them.
    if (e.get_exit_code() == 0) return app.exit(e);
    // A mistake in the command line is one line, like every other refusal.
    fmt::print(stderr, "qzxl: {} (see --help)\n", e.what());
    return e.get_exit_code();
  }
  for (const auto& c : commands) {
    if (!c.app->parsed()) continue;
    try {
      qzcli::use_locale();
      return c.run();
    } catch (const qzcli::Failure& f) {
      fmt::print(stderr, "qzxl {}: {}\n", c.app->get_name(), f.what());
      return f.status();
    } catch (const std::exception& e) {
      // Anything else is the tool's own fault; still one line, and nothing half-written.
      fmt::print(stderr, "qzxl {}: internal error: {}\n", c.app->get_name(), e.what());
      return 70;
    }
  }
  return 0;
}
