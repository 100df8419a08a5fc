// qzxl picture: a range as the application shows it, drawn to a PNG, BMP or SVG file; the
// drawing CopyPicture makes on the embedded engine.
#include <fmt/core.h>

#include "common.hpp"
#include "engine/host/engine.hpp"
#include "engine/picture/picture.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

struct Options {
  std::string in;
  std::string range;
  std::string out;
};

int run(const Options& o) {
  const fs::path in = o.in, out = o.out;
  check_input(in);
  std::string ext = out.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ext != ".png" && ext != ".bmp" && ext != ".svg")
    throw Failure(fmt::format("{}: give a .png, .bmp or .svg file", out.string()));
  std::error_code ec;
  if (!fs::is_directory(fs::absolute(out).parent_path(), ec))
    throw Failure(fmt::format("{}: no such folder", fs::absolute(out).parent_path().string()));

  Session session;
  const auto book = session.open(in);
  const auto range = find_range(book, o.range);
  const auto model = qz::engine::range_of(range);
  if (!model || model->areas.size() != 1)
    throw Failure(fmt::format("{}: give one rectangle of cells", o.range));
  // Drawn beside the output and renamed into place: the file is whole or untouched.
  const fs::path tmp = out.parent_path() / (".~" + out.filename().string());
  try {
    qz::engine::picture::save(*model->sheet, model->areas[0], tmp);
  } catch (const qz::Error& e) {
    fs::remove(tmp, ec);
    throw Failure(fmt::format("{}: {}", o.range, e.what()));
  }
  fs::rename(tmp, out, ec);
  if (ec) {
    fs::remove(tmp, ec);
    throw Failure(fmt::format("{}: cannot write", out.string()));
  }
  fmt::print("{} of {} -> {}\n", o.range, in.string(), out.string());
  return 0;
}

}  // namespace

Command make_picture_command(CLI::App& parent) {
  static Options o;
  auto* cmd = add_command(parent, "picture",
                          "Draw a range as it is shown (widths, fills, borders, fonts, number "
                          "formats) to a PNG, BMP or SVG file");
  cmd->add_option("IN", o.in, "The workbook (.xlsx or .xlsm)")->required();
  cmd->add_option("RANGE", o.range, "The range, as Sheet!A1:F20")->required();
  cmd->add_option("-o,--output", o.out, "The picture to write (.png, .bmp or .svg)")->required();
  add_locale_option(cmd);
  return {cmd, [] { return run(o); }};
}

}  // namespace qzcli
