// One undoable action on the library's stacks: a client's own (its macros undo and redo it)
// or a generic snapshot of cells that the library puts back itself.
#pragma once

#include <array>
#include <vector>

#include "host/host.hpp"

namespace qz {

/// The client name of units that hold a snapshot of cells rather than a client's macros.
inline constexpr char16_t kGenericClient[] = u"Generic";

/// One undoable action.
class cUndoRedoUnit {
 public:
  /// The owning product's code name, or "Generic".
  String ClientAppName;
  /// The client's undo and redo macros (client units).
  String UndoFunction;
  String RedoFunction;
  /// Captions for the application's Undo and Redo commands.
  String UndoText;
  String RedoText;
  /// The cells the undo and redo snapshots belong to (generic units).
  host::RangePtr UndoRange;
  host::RangePtr RedoRange;

  /// Keeps `vRange` and snapshots its cells as they are now, before the client changes them.
  void CaptureGenericUndoInfo(const host::RangePtr& vRange);
  /// Undoes, and points the application's Redo at this unit.
  void Undo();
  /// Redoes, and points the application's Undo at this unit.
  void Redo();

 private:
  // Per cell, in the order of the range's Cells: formula, number format and the seven
  // character-run lists.
  struct Snapshot {
    std::vector<String> formulas;
    std::vector<String> formats;
    std::vector<std::array<Variant, 7>> runs;
  };

  void RestoreUndoState();
  void CaptureRedoInfo(const host::RangePtr& vRange);
  void RestoreRedoState();
  static void capture(const host::RangePtr& range, Snapshot& into);
  static void restore(const host::RangePtr& range, const Snapshot& from);
  // Runs a client's macro through its product's callback object.
  void run_client_macro(const String& macro) const;

  Snapshot undo_;
  Snapshot redo_;
};

}  // namespace qz
