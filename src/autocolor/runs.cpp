// AutoColor over what a person just typed (one cell, or a selection filled with Ctrl+Enter),
// over a range with a progress display, a sheet and a workbook.
#include <algorithm>
#include <cmath>

#include "autocolor/rules.hpp"
#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz {

namespace {

host::Application& xl() {
  return *require(frame::session().XLApp);
}

// The button chosen; 0, no button at all, when no message box can be shown. Such a question
// is skipped like any failing step, and the run goes on as if it had not been asked.
int32_t ask(const String& prompt, int32_t buttons) {
  return value_or(int32_t{0}, [&] {
    return require(host::environment().ui)->msg_box(prompt, buttons, kMsgBoxTitle);
  });
}

constexpr char16_t kWorkbookPrompt[] =
    u"Reformatting cell colors throughout an entire workbook may take awhile... but it is very "
    u"helpful.  Do you wish to proceed?";

String many_names_prompt() {
  return u"The active workbook has more than " + to_string(Variant(autocolor::kManyNames)) +
         u" defined names.\r\nDo you want to search for and color-code formulas containing "
         u"links to named cells in other sheets?";
}

}  // namespace

void iAutoColor::UpdateCtrlEnter(bool vCtrlEnter, const Variant& vCtrlShiftEnter) {
  auto& s = frame::session();
  s.CtrlEnterPressed = vCtrlEnter;
  s.CtrlShiftEnterPressed =
      !vCtrlShiftEnter.is_missing() && value_or(false, [&] { return to_bool(vCtrlShiftEnter); });
}

void iAutoColor::RunAutoColor() {
  auto& s = frame::session();
  if (s.CtrlEnterPressed) {
    host::RangePtr selection;
    step([&] { selection = std::dynamic_pointer_cast<host::Range>(xl().selection()); });
    AutoColorRangeOnEntry(selection);
  } else {
    host::RangePtr cell;
    step([&] { cell = xl().active_cell(); });
    AutoColorCell(cell, true, true);
  }
  s.CtrlEnterPressed = false;
  s.CtrlShiftEnterPressed = false;
}

void iAutoColor::AutoColorRangeOnEntry(const host::RangePtr& vRange) {
  if (!vRange) return;
  // One entry stands in every cell, so the first cell decides the colour of all.
  host::RangePtr first;
  step([&] { first = vRange->cell(1, 1); });
  autocolor::Subject s(first);
  autocolor::Knobs knobs(*this);
  s.hyperlinks();
  if (autocolor::opts_out(s, knobs)) return;

  autocolor::EntryCapture capture(first, vRange, s.entered);
  step([&] { s.formula = require(first)->formula(); });
  // Names are always searched here: one decision serves the whole selection.
  const int32_t colour = autocolor::decide(s, knobs, true, nullptr);
  const int64_t count = value_or(int64_t{0}, [&] { return vRange->cells()->count(); });
  for (int64_t i = 1; i <= count; ++i) {
    host::RangePtr cell;
    if (step([&] { cell = vRange->cells()->item(i); })) autocolor::paint(cell, colour);
  }
  capture.finish();
}

void iAutoColor::AutoColorRange(const host::RangePtr& vRange, const String& vName, bool* rDoNames) {
  host::RangePtr range = vRange;
  if (!range) step([&] { range = std::dynamic_pointer_cast<host::Range>(xl().selection()); });
  const String name = vName.empty() ? String(u"Selected Range") : vName;
  const bool do_names = rDoNames && *rDoNames;

  step([] { xl().set_screen_updating(false); });
  step([&] { require(frame::session().LibUndoRedo)->CaptureGenericUndo(range, name); });

  std::unique_ptr<vblib::ProgressIndicator> progress;
  step([&] {
    progress = require(require(frame::session().VBLib)->iScreen)->new_progress();
    progress->start(nullptr, nullptr, 10, 0.005, 16777215, 8388608);
  });
  const String text = u"AutoColoring " + name + u"...";
  auto show = [&](int32_t percent) {
    if (progress) step([&] { progress->show(text, percent); });
  };
  show(0);
  const int64_t total = value_or(int64_t{0}, [&] { return require(range)->cells()->count(); });

  // One read of the settings and one matcher of the names serve every cell of the run.
  autocolor::Knobs knobs = autocolor::Knobs::snapshot(*this);
  std::optional<autocolor::NameLinks> names;
  if (do_names)
    names.emplace(
        value_or(host::WorkbookPtr(), [&] { return require(range)->worksheet()->parent(); }));

  int64_t counted = 0;
  // A run that visits filled cells only shows what a cell-by-cell run would have shown at
  // each hundredth cell it passed.
  auto progress_at = [&](int64_t at) {
    for (int64_t next = (counted / 100 + 1) * 100; next <= at; next += 100)
      show(value_or(int32_t{0}, [&] {
        return to_long(Variant(static_cast<double>(next) / static_cast<double>(total) * 100));
      }));
    counted = std::max(counted, at);
  };
  if (!do_names && color_scanned(range, knobs, progress_at)) {
    progress_at(total);
    step([] { xl().set_screen_updating(true); });
    step([] { require(frame::session().LibUndoRedo)->SetGenericUndo(); });
    return;
  }
  step([&] {
    require(range)->for_each_cell([&](const host::RangePtr& cell) {
      ++counted;
      // Empty cells are passed over without asking the rules.
      if (!value_or(true, [&] { return cell->value().is_empty(); }))
        color_cell(cell, false, do_names, knobs, names ? &*names : nullptr);
      if (counted % 100 == 0)
        show(value_or(int32_t{0}, [&] {
          return to_long(Variant(static_cast<double>(counted) / static_cast<double>(total) * 100));
        }));
      return true;
    });
  });

  step([] { xl().set_screen_updating(true); });
  step([] { require(frame::session().LibUndoRedo)->SetGenericUndo(); });
}

void iAutoColor::AutoColorSheet(const host::WorksheetPtr& vWks, bool vShowMsg) {
  host::WorksheetPtr sheet = vWks;
  if (!sheet)
    step([&] { sheet = std::dynamic_pointer_cast<host::Worksheet>(xl().active_sheet()); });
  if (!sheet) return;
  if (value_or(int32_t{0}, [&] { return sheet->type(); }) != host::xl::Worksheet) return;

  if (vShowMsg) {
    const String prompt = value_or(
        String(), [] { return require(require(frame::session().VBLib)->iString)->message(5030); });
    if (ask(prompt, msgbox::OKCancel) == msgbox::Cancel) return;
  }

  // Walking every name for every formula is what makes a run slow on a workbook with very
  // many names, so there the person chooses.
  bool do_names = false;
  const int32_t names = value_or(int32_t{0}, [&] { return sheet->parent()->names()->count(); });
  if (names > autocolor::kManyNames) {
    const int32_t answer = ask(many_names_prompt(), msgbox::YesNoCancel);
    if (answer == msgbox::Cancel) return;
    do_names = answer == msgbox::Yes;
  }

  host::RangePtr used;
  step([&] { used = sheet->used_range(); });
  AutoColorRange(used, value_or(String(), [&] { return sheet->name(); }), &do_names);
}

void iAutoColor::AutoColorWorkbook(const host::WorkbookPtr& vWkb) {
  host::WorkbookPtr book = vWkb;
  if (!book) step([&] { book = xl().active_workbook(); });
  if (!book) return;
  if (ask(kWorkbookPrompt, msgbox::OKCancel) == msgbox::Cancel) return;
  host::WorksheetsPtr sheets;
  if (!step([&] { sheets = book->worksheets(); })) return;
  const int32_t count = value_or(int32_t{0}, [&] { return sheets->count(); });
  for (int32_t i = 1; i <= count; ++i) {
    host::WorksheetPtr sheet;
    if (!step([&] { sheet = sheets->item(Variant(i)); })) continue;
    if (value_or(int32_t{0}, [&] { return sheet->type(); }) == host::xl::Worksheet)
      AutoColorSheet(sheet, false);
  }
}

}  // namespace qz
