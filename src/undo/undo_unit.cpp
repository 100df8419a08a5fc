#include "undo/undo_unit.hpp"

#include <optional>

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"

namespace qz {

namespace {

host::Application& xl() {
  return *require(frame::session().XLApp);
}

// Recalculation waits while many formulas go back in, and happens once afterwards.
class ManualCalculation {
 public:
  ManualCalculation() {
    assign(saved_, [] { return std::optional<int32_t>(xl().calculation()); });
    step([] { xl().set_calculation(host::xl::CalculationManual); });
  }
  ~ManualCalculation() {
    if (saved_) step([&] { xl().set_calculation(*saved_); });
  }
  ManualCalculation(const ManualCalculation&) = delete;
  ManualCalculation& operator=(const ManualCalculation&) = delete;

 private:
  std::optional<int32_t> saved_;
};

}  // namespace

void cUndoRedoUnit::capture(const host::RangePtr& range, Snapshot& into) {
  int64_t count = 0;
  step([&] { count = require(range)->cells()->count(); });
  const size_t n = static_cast<size_t>(std::max<int64_t>(count, 0));
  into.formulas.assign(n, String());
  into.formats.assign(n, String());
  into.runs.assign(n, {});
  auto lib_range = frame::session().LibRange;
  host::RangePtr cells;
  step([&] { cells = require(range)->cells(); });
  for (size_t i = 0; i < n; ++i) {
    host::RangePtr cell;
    step([&] { cell = require(cells)->item(static_cast<int64_t>(i) + 1); });
    step([&] { into.formulas[i] = require(cell)->formula(); });
    step([&] { into.formats[i] = to_string(require(cell)->number_format()); });
    auto& r = into.runs[i];
    step([&] {
      require(lib_range)->ExtractChrProperties(cell, &r[0], &r[1], &r[2], &r[3], &r[4], &r[5],
                                               &r[6]);
    });
  }
}

void cUndoRedoUnit::restore(const host::RangePtr& range, const Snapshot& from) {
  step([&] { require(range->worksheet()->parent())->activate(); });
  step([&] { range->worksheet()->activate(); });
  // Nobody watches the cells being written back one property at a time.
  std::optional<bool> updating;
  assign(updating, [] { return std::optional<bool>(xl().screen_updating()); });
  step([] { xl().set_screen_updating(false); });
  auto lib_range = frame::session().LibRange;
  host::RangePtr cells;
  step([&] { cells = range->cells(); });
  int64_t count = 0;
  step([&] { count = require(cells)->count(); });
  const size_t n = std::min(static_cast<size_t>(std::max<int64_t>(count, 0)), from.formulas.size());
  for (size_t i = 0; i < n; ++i) {
    host::RangePtr cell;
    step([&] { cell = require(cells)->item(static_cast<int64_t>(i) + 1); });
    step([&] { require(cell)->set_formula(from.formulas[i]); });
    step([&] { require(cell)->set_number_format(from.formats[i]); });
    const auto& r = from.runs[i];
    step([&] {
      require(lib_range)->InfuseChrProperties(cell, r[0], r[1], r[2], r[3], r[4], r[5], r[6]);
    });
  }
  if (updating) step([&] { xl().set_screen_updating(*updating); });
  step([&] { range->select(); });
}

void cUndoRedoUnit::CaptureGenericUndoInfo(const host::RangePtr& vRange) {
  UndoRange = vRange;
  capture(vRange, undo_);
}

void cUndoRedoUnit::CaptureRedoInfo(const host::RangePtr& vRange) {
  RedoRange = vRange;
  capture(vRange, redo_);
}

void cUndoRedoUnit::RestoreUndoState() {
  if (!UndoRange) return;
  // The state before the first undo is what redo brings back; a later undo of the same unit
  // (after a redo) leaves that snapshot as it is.
  if (!RedoRange) CaptureRedoInfo(UndoRange);
  restore(UndoRange, undo_);
}

void cUndoRedoUnit::RestoreRedoState() {
  if (!RedoRange) return;
  restore(RedoRange, redo_);
}

void cUndoRedoUnit::run_client_macro(const String& macro) const {
  step([&] {
    auto product = require(require(frame::session().Products)->find(ClientAppName));
    Variant args[1] = {Variant(macro)};
    late::call(product->UndoRedoIF(), u"RunMacro", args);
  });
}

void cUndoRedoUnit::Undo() {
  {
    ManualCalculation manual;
    if (ClientAppName != kGenericClient)
      run_client_macro(UndoFunction);
    else
      RestoreUndoState();
    // The application hands Undo back once a macro has run, so the next unit is armed when
    // it is idle again, by the client's "SetQZUndo".
    step([] {
      if (!require(frame::session().UndoStack)->empty())
        xl().on_time(Variant(Date{1}), u"SetQZUndo");
    });
  }
  step([&] { xl().on_repeat(RedoText, u"QZRedo"); });
}

void cUndoRedoUnit::Redo() {
  {
    ManualCalculation manual;
    if (ClientAppName != kGenericClient)
      run_client_macro(RedoFunction);
    else
      RestoreRedoState();
  }
  step([&] { xl().on_undo(UndoText, u"QZUndo"); });
  step([] {
    const auto& redo = *require(frame::session().RedoStack);
    if (redo.empty())
      xl().on_repeat(u"", u"");
    else
      xl().on_repeat(require(redo.back())->RedoText, u"QZRedo");
  });
}

}  // namespace qz
