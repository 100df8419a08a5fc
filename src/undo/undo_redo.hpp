// The undo/redo manager over the session's two stacks.
#pragma once

#include "qzxl/interfaces.hpp"

namespace qz {

/// The undo/redo manager over the session's two stacks.
class iUndoRedo final : public _iUndoRedo {
 public:
  String type_name() const override { return u"iUndoRedo"; }
  void Subscribe(const String& vQZProductCodeName, const ObjectPtr& vUndoRedoIF) override;
  void SetCustomUndo(const String& vQZClientAppName, const String& vUndoFunctionName, const String& vRedoFunctionName, const String& vUndoRedoDisplayName) override;
  void CaptureGenericUndo(const host::RangePtr& vGenericRange, const String& vUndoRedoDisplayName) override;
  void SetGenericUndo() override;
  void SetQZUndo() override;
  void ClearStacks() override;
  void ClearUndoStack() override;
  void ClearRedoStack() override;
  void QZUndo() override;
  void QZRedo() override;
};

}  // namespace qz
