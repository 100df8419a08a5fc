// The library's own undo and redo, played through the application's Undo and Redo commands:
// the commands are pointed at the client macros "QZUndo" and "QZRedo" and captioned with the
// action's name and " (QZ)", the mark by which the library knows the commands are still its own.
#include "undo/undo_redo.hpp"

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"
#include "undo/undo_unit.hpp"

namespace qz {

namespace {

host::Application& xl() {
  return *require(frame::session().XLApp);
}

frame::UnitStack& undo_stack() {
  return *require(frame::session().UndoStack);
}

frame::UnitStack& redo_stack() {
  return *require(frame::session().RedoStack);
}

String undo_caption(const String& name) {
  return u"&Undo " + name + u" (QZ)";
}

String redo_caption(const String& name) {
  return u"&Redo " + name + u" (QZ)";
}

// The client product registered under `code`, or an error the caller's step absorbs.
iXLLibProductPtr product(const String& code) {
  return require(require(frame::session().Products)->find(code));
}

}  // namespace

void iUndoRedo::Subscribe(const String& vQZProductCodeName, const ObjectPtr& vUndoRedoIF) {
  step([&] { product(vQZProductCodeName)->putref_UndoRedoIF(vUndoRedoIF); });
}

void iUndoRedo::PushUndoUnit(const std::shared_ptr<cUndoRedoUnit>& unit) {
  ClearRedoStack();
  // A caption without the library's mark means the person (or another macro) used Undo
  // since our last action: what the stack holds no longer follows on from the cells.
  if (!frame::is_qz_caption(frame::UndoBtnCaption()))
    ClearUndoStack();
  else
    step([] {
      auto& stack = undo_stack();
      if (stack.size() == kUndoStackLimit) stack.erase(stack.begin());
    });
  step([&] { undo_stack().push_back(unit); });
}

void iUndoRedo::SetCustomUndo(const String& vQZClientAppName, const String& vUndoFunctionName,
                              const String& vRedoFunctionName, const String& vUndoRedoDisplayName) {
  ObjectPtr callback;
  step([&] { callback = product(vQZClientAppName)->UndoRedoIF(); });
  if (!callback || vUndoFunctionName.empty() || vRedoFunctionName.empty()) return;
  auto unit = std::make_shared<cUndoRedoUnit>();
  unit->ClientAppName = vQZClientAppName;
  unit->UndoFunction = vUndoFunctionName;
  unit->RedoFunction = vRedoFunctionName;
  unit->UndoText = undo_caption(vUndoRedoDisplayName);
  unit->RedoText = redo_caption(vUndoRedoDisplayName);
  PushUndoUnit(unit);
  step([&] { xl().on_undo(unit->UndoText, u"QZUndo"); });
  step([] { xl().on_repeat(u"", u""); });
}

void iUndoRedo::CaptureGenericUndo(const host::RangePtr& vGenericRange,
                                   const String& vUndoRedoDisplayName) {
  // A count that cannot be read counts as too large: nothing is captured.
  const int64_t cells =
      value_or(kGenericCellLimit + 1, [&] { return require(vGenericRange)->cells()->count(); });
  if (cells > kGenericCellLimit) return;
  auto unit = std::make_shared<cUndoRedoUnit>();
  unit->ClientAppName = kGenericClient;
  unit->CaptureGenericUndoInfo(vGenericRange);
  unit->UndoText = undo_caption(vUndoRedoDisplayName);
  unit->RedoText = redo_caption(vUndoRedoDisplayName);
  PushUndoUnit(unit);
  pending_undo_text_ = unit->UndoText;
}

void iUndoRedo::SetGenericUndo() {
  if (pending_undo_text_.empty()) return;
  step([&] { xl().on_undo(pending_undo_text_, u"QZUndo"); });
  step([] { xl().on_repeat(u"", u""); });
  pending_undo_text_.clear();
}

void iUndoRedo::SetQZUndo() {
  step([] {
    auto& stack = undo_stack();
    if (stack.empty()) throw Error(err::subscript, "the undo stack is empty");
    xl().on_undo(require(stack.back())->UndoText, u"QZUndo");
  });
}

void iUndoRedo::ClearStacks() {
  ClearUndoStack();
  ClearRedoStack();
}

void iUndoRedo::ClearUndoStack() {
  frame::session().UndoStack = std::make_shared<frame::UnitStack>();
}

void iUndoRedo::ClearRedoStack() {
  frame::session().RedoStack = std::make_shared<frame::UnitStack>();
}

void iUndoRedo::QZUndo() {
  std::shared_ptr<cUndoRedoUnit> unit;
  step([&] {
    auto& stack = undo_stack();
    if (stack.empty()) return;
    unit = stack.back();
    stack.pop_back();
    redo_stack().push_back(unit);
  });
  if (unit) unit->Undo();
}

void iUndoRedo::QZRedo() {
  std::shared_ptr<cUndoRedoUnit> unit;
  step([&] {
    auto& stack = redo_stack();
    if (stack.empty()) return;
    unit = stack.back();
    stack.pop_back();
    undo_stack().push_back(unit);
  });
  if (unit) unit->Redo();
}

}  // namespace qz
