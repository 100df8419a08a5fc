// qzxl-models: writes the workbooks the project itself needs, kept out of the user-facing
// qzxl: the bundled example (examples/) and the generated model the speed of
// `qzxl autocolor` is measured on (bench/cli).
#include <fmt/core.h>

#include <CLI/CLI.hpp>

#include "common.hpp"

namespace qzcli {
Command make_example_command(CLI::App& parent);
Command make_large_command(CLI::App& parent);
}  // namespace qzcli

int main(int argc, char** argv) {
  CLI::App app{"qzxl-models: write the project's example and benchmark workbooks"};
  app.set_version_flag("--version", qzcli::kVersion);
  app.require_subcommand(1);
  std::vector<qzcli::Command> commands{qzcli::make_example_command(app),
                                       qzcli::make_large_command(app)};
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);
    fmt::print(stderr, "qzxl-models: {} (see --help)\n", e.what());
    return e.get_exit_code();
  }
  for (const auto& c : commands) {
    if (!c.app->parsed()) continue;
    try {
      return c.run();
    } catch (const qzcli::Failure& f) {
      fmt::print(stderr, "qzxl-models {}: {}\n", c.app->get_name(), f.what());
      return f.status();
    } catch (const std::exception& e) {
      fmt::print(stderr, "qzxl-models {}: internal error: {}\n", c.app->get_name(), e.what());
      return 70;
    }
  }
  return 0;
}
