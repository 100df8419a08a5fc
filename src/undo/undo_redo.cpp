#include "undo/undo_redo.hpp"

#include "host/host.hpp"

namespace qz {

// STUB: every member below answers its default until its layer is built; see
// docs/STUBS.md.

void iUndoRedo::Subscribe(const String&, const ObjectPtr&) {}  // STUB
void iUndoRedo::SetCustomUndo(const String&, const String&, const String&, const String&) {}  // STUB
void iUndoRedo::CaptureGenericUndo(const host::RangePtr&, const String&) {}  // STUB
void iUndoRedo::SetGenericUndo() {}  // STUB
void iUndoRedo::SetQZUndo() {}  // STUB
void iUndoRedo::ClearStacks() {}  // STUB
void iUndoRedo::ClearUndoStack() {}  // STUB
void iUndoRedo::ClearRedoStack() {}  // STUB
void iUndoRedo::QZUndo() {}  // STUB
void iUndoRedo::QZRedo() {}  // STUB

}  // namespace qz
