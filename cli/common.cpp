// The plumbing every qzxl command stands on.
#include "common.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "engine/host/engine.hpp"
#include "engine/locale/locale.hpp"
#include "engine/picture/picture.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qzcli {

using qz::String;
using qz::StringView;

CLI::App* add_command(CLI::App& parent, const std::string& name, const std::string& about) {
  CLI::App* cmd = parent.add_subcommand(name, about);
  cmd->set_version_flag("--version", kVersion);
  return cmd;
}

// --- the user's regional settings ---------------------------------------------------------

namespace {
std::string& locale_option() {
  static std::string name;
  return name;
}
}  // namespace

void add_locale_option(CLI::App* cmd) {
  cmd->add_option("--locale", locale_option(),
                  "Read numbers, dates and amounts as in this locale, such as de-DE (default: "
                  "the environment's, from LC_ALL, LC_NUMERIC, LC_MONETARY, LC_TIME or LANG)");
}

void use_locale() {
  const std::string& name = locale_option();
  if (name.empty()) {
    qz::set_locale(
        qz::engine::locale::from_environment([](const char* v) { return std::getenv(v); }));
    return;
  }
  auto locale = qz::engine::locale::from_name(name);
  if (!locale) throw Failure("unknown locale '" + name + "' (give one such as de-DE or en-US)");
  qz::set_locale(std::move(*locale));
}

// --- the person at the terminal ------------------------------------------------------------

// Work that ends within about a second needs no bar; and a bar redrawn for every call would
// cost more than the cells it reports on. QZXL_PROGRESS_AFTER_MS moves the first point, so
// that a check of the bar need not depend on how fast the machine is.
std::chrono::milliseconds quiet_start() {
  if (const char* v = std::getenv("QZXL_PROGRESS_AFTER_MS"); v && *v) {
    char* end = nullptr;
    long ms = std::strtol(v, &end, 10);
    if (end && *end == '\0' && ms >= 0) return std::chrono::milliseconds(ms);
  }
  return std::chrono::milliseconds(1000);
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kRedrawEvery = std::chrono::milliseconds(100);
constexpr int kBarWidth = 24;

class TerminalProgress final : public qz::host::Progress {
 public:
  TerminalProgress(bool enabled, Clock::time_point command_started,
                   std::function<int64_t()> cells_done)
      : enabled_(enabled),
        command_started_(command_started),
        run_started_(Clock::now()),
        cells_done_(std::move(cells_done)),
        cells_at_start_(cells_done_ ? cells_done_() : 0) {}

  ~TerminalProgress() override {
    if (drawn_) {
      std::fputs("\r\033[K", stderr);
      std::fflush(stderr);
    }
  }

  void show(const String& text, int32_t percent) override {
    if (!enabled_) return;
    const auto now = Clock::now();
    if (now - command_started_ < quiet_start_) return;
    if (drawn_ && now - last_draw_ < kRedrawEvery) return;
    last_draw_ = now;
    drawn_ = true;
    percent = std::clamp(percent, 0, 100);
    const int filled = percent * kBarWidth / 100;
    std::string line =
        fmt::format("\r{} [{}{}] {:>3}%", qz::to_utf8(text), std::string(filled, '#'),
                    std::string(kBarWidth - filled, '-'), percent);
    const double seconds = std::chrono::duration<double>(now - run_started_).count();
    if (cells_done_ && seconds > 0) {
      const auto cells = cells_done_() - cells_at_start_;
      line += fmt::format("  {} cells/s", grouped(static_cast<int64_t>(cells / seconds)));
    }
    line += "\033[K";
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
  }

 private:
  bool enabled_;
  std::chrono::milliseconds quiet_start_ = quiet_start();
  Clock::time_point command_started_, run_started_, last_draw_;
  std::function<int64_t()> cells_done_;
  int64_t cells_at_start_;
  bool drawn_ = false;
};

std::string first_line(const String& text) {
  std::string s = qz::to_utf8(text);
  return s.substr(0, s.find_first_of("\r\n"));
}

}  // namespace

TerminalUi::TerminalUi(Interaction interaction)
    : interaction_(std::move(interaction)), started_(Clock::now()) {}

int32_t TerminalUi::msg_box(const String& prompt, int32_t style, const String&) {
  questions_.push_back(first_line(prompt));
  switch (style & 7) {
    case qz::msgbox::YesNoCancel:
      return interaction_.names_answer;
    case qz::msgbox::YesNo:
      return qz::msgbox::Yes;
    case qz::msgbox::AbortRetryIgnore:
      return qz::msgbox::Abort;
    case qz::msgbox::RetryCancel:
      return qz::msgbox::Retry;
    default:
      return qz::msgbox::OK;
  }
}

String TerminalUi::get_open_filename(const qz::host::FileDialogArgs&) {
  return String();  // nobody to choose: as if cancelled
}

std::unique_ptr<qz::host::Progress> TerminalUi::start_progress(int32_t, int32_t) {
  const bool enabled = interaction_.progress && isatty(fileno(stderr));
  return std::make_unique<TerminalProgress>(enabled, started_, interaction_.cells_done);
}

// --- workbooks ---------------------------------------------------------------------------------

namespace {

std::string lower_extension(const fs::path& p) {
  std::string ext = p.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

bool is_package_extension(const std::string& ext) {
  return ext == ".xlsx" || ext == ".xlsm" || ext == ".xltx" || ext == ".xltm" || ext == ".xlam";
}

String u16(const fs::path& p) {
  return qz::from_utf8(p.string());
}

}  // namespace

Session::Session(std::shared_ptr<qz::host::Ui> ui) {
  qz::engine::xlsx::register_format();
  // Nobody answers the library's questions on a terminal tool unless this one does.
  if (!ui) ui = std::make_shared<TerminalUi>(Interaction{});
  qz::host::environment().ui = std::move(ui);
  // Range pictures are drawn here, so that CopyPicture and the bitmap exports work.
  qz::engine::picture::install();
  app = qz::engine::create_application();
  lib = qz::create_iXLLibPublic();
  String name;
  lib->NewPublic(name);
  lib->InitXL(app);
}

Session::~Session() {
  qz::host::reset_environment();
}

void check_input(const fs::path& in) {
  std::error_code ec;
  const auto status = fs::status(in, ec);
  if (!fs::exists(status)) throw Failure(fmt::format("{}: no such file", in.string()));
  if (fs::is_directory(status))
    throw Failure(fmt::format("{}: is a folder, not a workbook", in.string()));
  if (!is_package_extension(lower_extension(in)))
    throw Failure(fmt::format("{}: not a workbook (expected .xlsx or .xlsm)", in.string()));
}

qz::host::WorkbookPtr Session::open(const fs::path& in) {
  check_input(in);
  qz::host::OpenArgs args;
  args.filename = u16(fs::absolute(in));
  // Links to other workbooks stay as they are: the tool reads this file only.
  args.update_links = qz::Variant(int32_t{0});
  // A template is read as itself, not as a new workbook made from it.
  args.editable = qz::Variant(true);
  try {
    return app->workbooks()->open(args);
  } catch (const std::exception& e) {
    throw Failure(fmt::format("{}: not a workbook the tool can read ({})", in.string(), e.what()));
  }
}

void Session::save(const qz::host::WorkbookPtr& book, const fs::path& out) {
  try {
    book->save_as(u16(fs::absolute(out)));
  } catch (const std::exception& e) {
    throw Failure(fmt::format("{}: cannot write ({})", out.string(), e.what()));
  }
}

void check_output(const fs::path& in, const fs::path& out) {
  if (lower_extension(in) != lower_extension(out))
    throw Failure(fmt::format("{}: the output must keep the input's extension ({})", out.string(),
                              in.extension().string()));
  const fs::path folder = fs::absolute(out).parent_path();
  std::error_code ec;
  if (!fs::is_directory(folder, ec))
    throw Failure(fmt::format("{}: no such folder", folder.string()));
  if (fs::is_directory(out, ec)) throw Failure(fmt::format("{}: is a folder", out.string()));
}

std::vector<qz::host::WorksheetPtr> worksheets(const qz::host::WorkbookPtr& book) {
  std::vector<qz::host::WorksheetPtr> out;
  auto sheets = book->worksheets();
  for (int32_t i = 1; i <= sheets->count(); ++i) out.push_back(sheets->item(qz::Variant(i)));
  return out;
}

qz::host::WorksheetPtr find_sheet(const qz::host::WorkbookPtr& book, const std::string& name) {
  const String wanted = qz::to_upper(qz::from_utf8(name));
  std::string known;
  for (const auto& sheet : worksheets(book)) {
    const String sheet_name = sheet->name();
    if (qz::to_upper(sheet_name) == wanted) return sheet;
    known += (known.empty() ? "" : ", ") + qz::to_utf8(sheet_name);
  }
  throw Failure(fmt::format("no sheet \"{}\" in the workbook (its sheets: {})", name, known));
}

qz::host::RangePtr find_range(const qz::host::WorkbookPtr& book, const std::string& text) {
  const size_t bang = text.rfind('!');
  if (bang == std::string::npos || bang == 0)
    throw Failure(fmt::format("range \"{}\": write it with its sheet, as Sheet1!A1:B9", text));
  std::string sheet = text.substr(0, bang);
  if (sheet.size() >= 2 && sheet.front() == '\'' && sheet.back() == '\'') {
    // A quoted sheet name doubles the apostrophes it contains.
    std::string plain;
    for (size_t i = 1; i + 1 < sheet.size(); ++i) {
      plain += sheet[i];
      if (sheet[i] == '\'' && i + 2 < sheet.size() && sheet[i + 1] == '\'') ++i;
    }
    sheet = plain;
  }
  const auto wks = find_sheet(book, sheet);
  const std::string address = text.substr(bang + 1);
  try {
    auto range = wks->range(qz::Variant(qz::from_utf8(address)));
    if (range) return range;
  } catch (const std::exception&) {
  }
  throw Failure(fmt::format("range \"{}\": \"{}\" is no range on sheet {}", text, address, sheet));
}

// --- colours -----------------------------------------------------------------------------------

std::optional<int32_t> parse_colour(const std::string& text) {
  std::string t = text;
  const bool hex_mark = !t.empty() && t.front() == '#';
  if (hex_mark) t.erase(0, 1);
  auto all_of = [&](auto pred) {
    return !t.empty() && std::all_of(t.begin(), t.end(), [&](unsigned char c) { return pred(c); });
  };
  if (t.size() == 6 && all_of([](unsigned char c) { return std::isxdigit(c) != 0; }) &&
      (hex_mark || !all_of([](unsigned char c) { return std::isdigit(c) != 0; }))) {
    const auto rgb = std::stol(t, nullptr, 16);
    const int32_t r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
    return r + 256 * g + 65536 * b;
  }
  if (!hex_mark && t.size() <= 8 && all_of([](unsigned char c) { return std::isdigit(c) != 0; })) {
    const long n = std::stol(t);
    if (n <= 0xFFFFFF) return static_cast<int32_t>(n);
  }
  return std::nullopt;
}

std::string format_colour(int32_t colour) {
  return fmt::format("#{:02X}{:02X}{:02X}", colour & 0xFF, (colour >> 8) & 0xFF,
                     (colour >> 16) & 0xFF);
}

// --- output ------------------------------------------------------------------------------------

namespace {

// Columns are measured in characters a terminal shows, not in bytes.
size_t display_width(const std::string& s) {
  size_t n = 0;
  for (unsigned char c : s)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

}  // namespace

Table::Table(std::vector<std::string> header, std::vector<bool> right_aligned)
    : header_(std::move(header)), right_(std::move(right_aligned)) {
  right_.resize(header_.size(), false);
}

void Table::add(std::vector<std::string> row) {
  row.resize(header_.size());
  rows_.push_back(std::move(row));
}

void Table::print(std::FILE* to, int indent) const {
  std::vector<size_t> width(header_.size(), 0);
  auto measure = [&](const std::vector<std::string>& row) {
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], display_width(row[i]));
  };
  measure(header_);
  for (const auto& row : rows_) measure(row);
  auto line = [&](const std::vector<std::string>& row) {
    std::string out(static_cast<size_t>(indent), ' ');
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string pad(width[i] - display_width(row[i]), ' ');
      const bool last = i + 1 == row.size();
      if (right_[i])
        out += pad + row[i];
      else
        out += row[i] + (last ? "" : pad);
      if (!last) out += "  ";
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    fmt::print(to, "{}\n", out);
  };
  line(header_);
  for (const auto& row : rows_) line(row);
}

std::string grouped(int64_t n) {
  std::string digits = std::to_string(n < 0 ? -n : n);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return n < 0 ? "-" + out : out;
}

std::string printable(const String& s) {
  std::string out;
  for (char c : qz::to_utf8(s)) {
    if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else if (c == '\t')
      out += "\\t";
    else
      out += c;
  }
  return out;
}

void write_file_atomically(const fs::path& path, const std::string& content) {
  const fs::path tmp = path.parent_path() / (".~" + path.filename().string() + ".tmp");
  {
    std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
    f.write(content.data(), static_cast<std::streamsize>(content.size()));
    f.close();
    if (!f) {
      std::error_code ec;
      fs::remove(tmp, ec);
      throw Failure(fmt::format("{}: cannot write", path.string()));
    }
  }
  std::error_code ec;
  fs::rename(tmp, path, ec);
  if (ec) {
    fs::remove(tmp, ec);
    throw Failure(fmt::format("{}: cannot write ({})", path.string(), ec.message()));
  }
}

std::string cell_address(const qz::host::RangePtr& cell) {
  std::string sheet = qz::to_utf8(cell->worksheet()->name());
  const bool plain = std::all_of(sheet.begin(), sheet.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '_' || c == '.' || c >= 0x80;
  });
  if (!plain) {
    std::string quoted = "'";
    for (char c : sheet) quoted += c == '\'' ? std::string("''") : std::string(1, c);
    sheet = quoted + "'";
  }
  return sheet + "!" + qz::to_utf8(cell->address(false, false));
}

// --- defined names -----------------------------------------------------------------------------

std::vector<NameRow> list_names(const qz::host::WorkbookPtr& book) {
  std::vector<NameRow> out;
  auto names = book->names();
  const int32_t count = names->count();
  for (int32_t i = 1; i <= count; ++i) {
    auto name = names->item(qz::Variant(i));
    NameRow row;
    const String text = name->name();
    row.text = printable(text);
    String sheet;
    const String bare = qz::vblib::Strings::strip_wks_name(text, &sheet, true);
    row.scope = sheet.empty() ? "(workbook)" : qz::to_utf8(sheet);
    row.visible = name->visible();
    row.tag = StringView(bare).substr(0, std::char_traits<char16_t>::length(kTagStart)) ==
              StringView(kTagStart);
    const String refers = name->refers_to();
    row.refers = printable(refers);
    const String upper = qz::to_upper(refers);
    // The same test as the library's clean-up: a lost reference, or a book in brackets.
    row.dead = upper.find(u"#REF") != String::npos || upper.find(u'[') != String::npos;
    out.push_back(std::move(row));
  }
  return out;
}

}  // namespace qzcli
