// qzxl-models large: writes a generated model of about a million cells, the workbook the speed
// of `qzxl autocolor` is measured on (bench/cli). Four sheets of equal size; each row starts
// with a label, two cells in three of the rest are typed numbers and one in three formulas:
// plain ones, ones with typed-in numbers, links to the next sheet, links through defined
// names on the first sheet, and links to another workbook.
#include <fmt/core.h>

#include "common.hpp"
#include "engine/host/engine.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

using qz::String;

constexpr int kSheets = 4;
constexpr int kCols = 25;  // a label, then 24 cells of figures
constexpr int kNames = 20;

String u16(const std::string& s) {
  return qz::from_utf8(s);
}

String sheet_name(int s) {
  return u"Sheet" + u16(std::to_string(s + 1));
}

int run(const std::string& out_text, int64_t cells) {
  if (cells < kSheets * kCols) throw Failure("--cells: give at least 100");
  const fs::path out = out_text;
  if (out.extension() != ".xlsx") throw Failure(fmt::format("{}: write an .xlsx file", out_text));
  std::error_code ec;
  if (!fs::is_directory(fs::absolute(out).parent_path(), ec))
    throw Failure(fmt::format("{}: no such folder", fs::absolute(out).parent_path().string()));
  Session session;
  // Entered straight into the engine's model: a million cells through the object model
  // would measure the object model rather than make a file.
  auto book = session.app->workbooks()->add();
  session.app->set_calculation(qz::host::xl::CalculationManual);
  qz::engine::Book& b = *qz::engine::book_of(book);
  b.rename_sheet(*b.sheets[0], sheet_name(0));
  for (int s = 1; s < kSheets; ++s) b.add_sheet(sheet_name(s));
  for (int i = 0; i < kNames; ++i)
    b.define_name(u"Rate_" + u16(std::to_string(i)), qz::engine::calc::kNoSheet,
                  u"Sheet1!$B$" + u16(std::to_string(i + 1)), false);
  const int rows = static_cast<int>(cells / (kSheets * kCols));
  for (int s = 0; s < kSheets; ++s) {
    qz::engine::Sheet& sh = *b.sheets[static_cast<size_t>(s)];
    const String other = sheet_name((s + 1) % kSheets);
    for (int r = 0; r < rows; ++r) {
      const String row = u16(std::to_string(r + 1));
      b.enter(sh, r, 0, u"Item " + row);
      for (int c = 1; c < kCols; ++c) {
        String entry;
        switch ((r * kCols + c) % 12) {
          case 0:
            entry = u"=B" + row + u"+C" + row;
            break;
          case 3:
            entry = u"=B" + row + u"*1.05";
            break;
          case 6:
            entry = u"=" + other + u"!C" + row;
            break;
          case 9:
            entry = (r % 4 == 0)   ? u"=Rate_" + u16(std::to_string(r % kNames)) + u"*B" + row
                    : (r % 4 == 1) ? u"='[Plan.xlsx]Data'!B" + row
                                   : u"=SUM(B" + row + u":D" + row + u")";
            break;
          default:
            entry = u16(std::to_string((r * 7 + c * 13) % 1000));
            break;
        }
        b.enter(sh, r, c, entry);
      }
    }
  }
  b.commit();
  session.save(book, out);
  fmt::print("wrote {}: {} cells on {} sheets\n", out.string(),
             grouped(static_cast<int64_t>(rows) * kCols * kSheets), kSheets);
  return 0;
}

}  // namespace

Command make_large_command(CLI::App& parent) {
  static std::string out;
  static int64_t cells = 1'000'000;
  auto* cmd = add_command(parent, "large", "Write a generated model to measure speed on");
  cmd->add_option("OUT", out, "The .xlsx file to write")->required();
  cmd->add_option("--cells", cells, "About this many cells")->capture_default_str();
  return {cmd, [] { return run(out, cells); }};
}

}  // namespace qzcli
