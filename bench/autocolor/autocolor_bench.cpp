// AutoColor over a generated model in the embedded engine: cells per second for a whole
// workbook run with and without the named-link search, and how the named-link search scales
// with the number of defined names.
//
//   qzxl_bench_autocolor                      a 1,000,000-cell model, every figure
//   qzxl_bench_autocolor --cells 200000       a smaller model
//   qzxl_bench_autocolor --only names         just the 10-names / 5,000-names comparison
//
// The model has four worksheets of equal size. Two cells in three are typed numbers; the
// rest are formulas: plain ones, ones with typed numbers, links to another sheet, links
// through defined names to another sheet, and links to another workbook. Settings are kept in
// a private folder, so the run leaves the user's own settings alone.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "engine/host/engine.hpp"
#include "host/environment.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/qzxl.hpp"

namespace {

using namespace qz;
using Clock = std::chrono::steady_clock;

constexpr int kSheets = 4;
constexpr int kCols = 20;

// A person who answers every question with its first button: OK, and Yes to the names
// question, unless told to answer No.
class Answers final : public host::Ui {
 public:
  bool names = true;
  int32_t msg_box(const String&, int32_t style, const String&) override {
    if ((style & 7) == msgbox::YesNoCancel) return names ? msgbox::Yes : msgbox::No;
    return msgbox::OK;
  }
  String get_open_filename(const host::FileDialogArgs&) override { return String(); }
  std::unique_ptr<host::Progress> start_progress(int32_t, int32_t) override {
    return host::headless_ui()->start_progress(0, 0);
  }
};

struct Model {
  host::ApplicationPtr app;
  host::WorkbookPtr wb;
  int64_t cells = 0;
};

String sheet_name(int s) {
  return u"Sheet" + u16(std::to_string(s + 1));
}

// A model of about `cells` cells with `names` defined names, each referring to a cell on the
// first sheet; formulas on the other sheets use the first few of them.
Model build(int64_t cells, int names) {
  Model m;
  m.app = engine::create_application();
  m.wb = m.app->workbooks()->add();
  m.app->set_calculation(host::xl::CalculationManual);
  engine::Book& b = *engine::book_of(m.wb);
  b.rename_sheet(*b.sheets[0], sheet_name(0));
  for (int s = 1; s < kSheets; ++s) b.add_sheet(sheet_name(s));
  for (int i = 0; i < names; ++i)
    b.define_name(u"Rate_" + u16(std::to_string(i)), engine::calc::kNoSheet,
                  u"Sheet1!$A$" + u16(std::to_string(i % 1000 + 1)), false);
  const int rows = static_cast<int>(cells / (kSheets * kCols));
  for (int s = 0; s < kSheets; ++s) {
    engine::Sheet& sh = *b.sheets[static_cast<size_t>(s)];
    const String other = sheet_name((s + 1) % kSheets);
    for (int r = 0; r < rows; ++r) {
      const String row = u16(std::to_string(r + 1));
      for (int c = 0; c < kCols; ++c) {
        String entry;
        switch ((r * kCols + c) % 12) {
          case 0:
            entry = u"=A" + row + u"+B" + row;
            break;
          case 3:
            entry = u"=A" + row + u"*1.05";
            break;
          case 6:
            entry = u"=" + other + u"!C" + row;
            break;
          case 9:
            entry = (r % 4 == 0)   ? u"=Rate_" + u16(std::to_string(r % 10)) + u"*A" + row + u"*1"
                    : (r % 4 == 1) ? u"='[Plan.xlsx]Data'!B" + row
                                   : u"=SUM(A" + row + u":C" + row + u")";
            break;
          default:
            entry = u16(std::to_string((r * 7 + c * 13) % 1000));
            break;
        }
        b.enter(sh, r, c, entry);
        ++m.cells;
      }
    }
  }
  b.commit();
  b.loaded();
  return m;
}

double seconds_since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// The time a run took: on the clock, and of the processor. On a machine shared with
// builds the processor time is the figure that compares between runs.
struct Timing {
  double wall = 0, cpu = 0;
};

class Stopwatch {
 public:
  Timing read() const {
    return {seconds_since(wall_),
            static_cast<double>(std::clock() - cpu_) / static_cast<double>(CLOCKS_PER_SEC)};
  }

 private:
  Clock::time_point wall_ = Clock::now();
  std::clock_t cpu_ = std::clock();
};

void print(const char* what, const Timing& t, int64_t cells) {
  std::printf("%s: %.2f s (cpu %.2f s), %.0f cells/s (cpu %.0f cells/s)\n", what, t.wall, t.cpu,
              static_cast<double>(cells) / t.wall, static_cast<double>(cells) / t.cpu);
}

// One whole-workbook run as a person starts it from the menu.
Timing run_workbook(const Model& m, iAutoColorPtr& ac) {
  Stopwatch t;
  ac->AutoColorWorkbook(m.wb);
  return t.read();
}

// One range run per sheet with the named-link search as given.
Timing run_ranges(const Model& m, iAutoColorPtr& ac, bool names) {
  Stopwatch t;
  for (int s = 1; s <= kSheets; ++s) {
    auto sheet = m.wb->worksheets()->item(Variant(s));
    bool search = names;
    ac->AutoColorRange(sheet->used_range(), sheet->name(), &search);
  }
  return t.read();
}

struct Library {
  iXLLibPublicPtr lib;
  iAutoColorPtr ac;
};

Library attach(const Model& m) {
  Library l;
  l.lib = create_iXLLibPublic();
  String name;
  l.lib->NewPublic(name);
  l.lib->InitXL(m.app);
  l.ac = l.lib->NewAutoColor();
  return l;
}

}  // namespace

int main(int argc, char** argv) {
  int64_t cells = 1'000'000;
  std::string only;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string a = argv[i];
    if (a == "--cells") cells = std::atoll(argv[i + 1]);
    if (a == "--only") only = argv[i + 1];
  }
  const auto settings = std::filesystem::temp_directory_path() / "qzxl-autocolor-bench";
  std::filesystem::create_directories(settings);
  ::setenv("QZXL_CONFIG_DIR", settings.c_str(), 1);
  auto answers = std::make_shared<Answers>();
  host::environment().ui = answers;

  if (only.empty() || only == "workbook") {
    // Each run gets a model of its own: a second run over cells the first already coloured
    // would find every colour in place and measure less than a person's first run does.
    Timing secs[2];
    int64_t counted = 0;
    for (int k = 0; k < 2; ++k) {
      auto t = Clock::now();
      Model m = build(cells, 600);
      counted = m.cells;
      std::printf("model: %lld cells on %d sheets, 600 names, built in %.2f s\n",
                  static_cast<long long>(m.cells), kSheets, seconds_since(t));
      Library l = attach(m);
      answers->names = k == 1;
      secs[k] = run_workbook(m, l.ac);
    }
    print("AutoColorWorkbook without the named-link search", secs[0], counted);
    print("AutoColorWorkbook with the named-link search   ", secs[1], counted);
  }
  if (only.empty() || only == "names") {
    const int64_t small = std::min<int64_t>(cells, 200'000);
    Timing secs[2];
    const int counts[2] = {10, 5000};
    for (int k = 0; k < 2; ++k) {
      Model m = build(small, counts[k]);
      Library l = attach(m);
      secs[k] = run_ranges(m, l.ac, true);
      const std::string what =
          "range runs with the named-link search, " + std::to_string(counts[k]) + " names";
      print(what.c_str(), secs[k], m.cells);
    }
    std::printf("5,000 names / 10 names: %.2fx (cpu %.2fx)\n", secs[1].wall / secs[0].wall,
                secs[1].cpu / secs[0].cpu);
  }
  return 0;
}
