// Playing a person at the engine's keyboard: typing entries, Ctrl+Enter over a selection,
// choosing Undo and Redo, clicking command-bar controls and letting the application go idle.
// The application then runs client macros as the real one would (OnEntry after an entry,
// OnUndo/OnRepeat procedures, OnTime when idle, OnAction on a click); client code registers
// those macros by name.
//
//   engine::register_macro(app, u"mDOM.RunAutoColor",
//                          [&](auto) { ac->RunAutoColor(); return Variant(); });
//   engine::User user(app);
//   user.select(u"B2");
//   user.type(u"=100+20");  // the entry, then OnEntry's macro
//   user.press_undo();      // the OnUndo procedure, or the application's own undo
#pragma once

#include <functional>
#include <span>

#include "host/host.hpp"

namespace qz::engine {

/// A client macro: called with `Application.Run`'s arguments (by-reference ones may be
/// written back); its result is `Run`'s.
using Macro = std::function<Variant(std::span<Variant> args)>;

/// Makes `name` ("QZUndo", "mDOM.RunAutoColor") a macro the application can run; names are
/// compared without regard to case, and a later registration replaces an earlier one.
void register_macro(const host::ApplicationPtr& app, const String& name, Macro macro);

/// `Application.OnKey(key, procedure)` for the keys a person can press here: "~" (Enter),
/// "^~" (Ctrl+Enter), "+^~" (Ctrl+Shift+Enter). An empty procedure removes the binding.
void on_key(const host::ApplicationPtr& app, const String& key, const String& procedure);

/// A person at the application.
class User {
 public:
  explicit User(host::ApplicationPtr app);

  /// Selects `address` ("B2", "A1:C3") on the active sheet; its first cell becomes active.
  void select(StringView address);
  /// Types `text` into the active cell and presses Enter: the entry is made (the active cell
  /// stays where it is), the application remembers the cell for its Undo, and the OnEntry
  /// macro runs. An empty text clears the cell, as Delete does.
  void type(StringView text);
  /// Selects `address`, then types.
  void type(StringView address, StringView text);
  /// Ctrl+Enter: the macro bound to "^~" runs first (a client's key hook), then `text` goes
  /// into every selected cell as one entry, remembered as one, then OnEntry's macro runs.
  void ctrl_enter(StringView text);
  /// Starts typing `text` into the active cell and leaves the cell in edit: nothing is entered
  /// yet, the application's built-in commands are disabled and OnTime procedures wait.
  void start_typing(StringView text);
  /// Enter on a cell in edit: the text typed so far is entered as `type` enters it.
  void press_enter();
  /// Escape on a cell in edit: the typing is dropped and the cell keeps what it held.
  void press_escape();
  /// Edit > Undo: the OnUndo procedure when a macro set one (the command is handed back
  /// first, as the application does before running it), else the application's own undo.
  void press_undo();
  /// Redo, the same way with OnRepeat.
  void press_redo();
  /// The application goes idle: OnTime procedures that are due run, earliest first,
  /// including ones they schedule as due.
  void idle();
  /// Clicks a control: runs its OnAction macro, or a built-in control's command.
  void click(const host::CommandBarControlPtr& control);

  /// The captions Edit > Undo and Redo show now.
  String undo_caption() const;
  String redo_caption() const;

 private:
  host::ApplicationPtr app_;
};

}  // namespace qz::engine
