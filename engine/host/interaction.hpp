// What the application does around a person: its command bars, its own one-level undo of an
// entry, the commands a macro can take over (OnUndo, OnRepeat, OnEntry, OnTime, Run) and the
// client macros it runs by name. Shared by command_bars.cpp and user.cpp; app.cpp forwards the
// Application members here.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "engine/host/objects.hpp"
#include "engine/host/user.hpp"

namespace qz::engine::detail {

class BarSet;  // the command bars (command_bars.cpp)

/// One cell as it stood at a moment, enough to put it back exactly.
struct CellState {
  CellRef at;
  bool stored = false;  ///< the store held a cell (a value or a format of its own)
  CellKind kind = CellKind::Blank;
  calc::Value value;      ///< constants
  String formula;         ///< formulas: A1 text without "="
  std::vector<Run> runs;  ///< rich text
  Xf xf;
  FontRec font;
  bool operator==(const CellState&) const;
};

/// The application's memory of the user's last entry: the cells before and after it. Undo
/// puts `before` back and Redo `after`; the memory counts only while the cells still hold
/// what its last step left there, so a macro that rewrites them makes it lapse.
struct EntryMemory {
  std::weak_ptr<Book> book;
  std::weak_ptr<Sheet> sheet;
  std::vector<Rect> areas;
  std::vector<CellState> before;
  std::vector<CellState> after;
  bool undone = false;  ///< Undo was applied; Redo is what remains
};

/// A procedure scheduled with OnTime.
struct Timer {
  double when = 0;  ///< a date serial
  String procedure;
  uint64_t order = 0;  ///< scheduling order among equal times
};

struct TextLess {
  bool operator()(const String& a, const String& b) const;
};

/// A command a macro has taken over with OnUndo or OnRepeat.
struct TakenCommand {
  String text;
  String procedure;
};

struct Interaction {
  std::shared_ptr<BarSet> bars;
  std::optional<EntryMemory> memory;
  std::optional<TakenCommand> undo;    ///< set by OnUndo
  std::optional<TakenCommand> repeat;  ///< set by OnRepeat
  String on_entry;
  std::vector<Timer> timers;
  uint64_t timer_order = 0;
  std::map<String, Macro, TextLess> macros;
  std::map<String, String, TextLess> keys;
  /// What a person is typing into the active cell, not entered yet: while a cell is in edit
  /// the application's own commands are greyed out and its timers wait.
  std::optional<String> editing;
};

/// The application's interaction state, made on first use.
Interaction& interaction(AppState& app);

// Application members (app.cpp forwards to these).
void application_undo(AppState& app);
void application_on_undo(AppState& app, const String& text, const String& procedure);
void application_on_repeat(AppState& app, const String& text, const String& procedure);
void application_on_time(AppState& app, const Variant& earliest, const String& procedure,
                         const Variant& latest, const Variant& schedule);
Variant application_run(AppState& app, const String& macro, std::span<Variant> args);
host::CommandBarsPtr make_command_bars(const std::shared_ptr<AppState>& app);

/// Captions of the Undo (128) and Redo (129) controls as they stand now.
String undo_caption(AppState& app);
String redo_caption(AppState& app);
/// A person choosing Undo or Redo (the menu item, the toolbar button or the keys).
void press_undo(AppState& app);
void press_redo(AppState& app);

}  // namespace qz::engine::detail
