// The undo/redo manager over the session's two stacks.
#pragma once

#include <memory>

#include "qzxl/interfaces.hpp"

namespace qz {

class cUndoRedoUnit;

/// Most units the undo stack keeps; a push onto a full stack drops the oldest.
inline constexpr size_t kUndoStackLimit = 100;
/// Largest range a generic unit snapshots; a larger one is not made undoable at all.
inline constexpr int64_t kGenericCellLimit = 1000;

/// The undo/redo manager over the session's two stacks. Every object shares the stacks; the
/// caption of its last generic capture waits in the object itself until `SetGenericUndo`.
class iUndoRedo final : public _iUndoRedo {
 public:
  String type_name() const override { return u"iUndoRedo"; }
  void Subscribe(const String& vQZProductCodeName, const ObjectPtr& vUndoRedoIF) override;
  void SetCustomUndo(const String& vQZClientAppName, const String& vUndoFunctionName,
                     const String& vRedoFunctionName, const String& vUndoRedoDisplayName) override;
  void CaptureGenericUndo(const host::RangePtr& vGenericRange,
                          const String& vUndoRedoDisplayName) override;
  void SetGenericUndo() override;
  void SetQZUndo() override;
  void ClearStacks() override;
  void ClearUndoStack() override;
  void ClearRedoStack() override;
  void QZUndo() override;
  void QZRedo() override;

 private:
  void PushUndoUnit(const std::shared_ptr<cUndoRedoUnit>& unit);

  String pending_undo_text_;
};

}  // namespace qz
