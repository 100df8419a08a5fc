// The steps of the AutoColor rules, shared by the one-cell method and the runs.
#pragma once

#include <optional>
#include <utility>

#include "autocolor/internal.hpp"

namespace qz::autocolor {

/// A cell being decided, with what has been read of it.
struct Subject {
  /// Reads the entered text (the prefix character and the formula).
  explicit Subject(host::RangePtr cell);
  /// No cell yet: a run that reads cells without a Range each hands them over by `reread`.
  Subject() = default;
  /// Takes what such a run read of its next cell, keeping the room the texts had, so that a
  /// run of a million cells makes no new texts for most of them.
  void reread(const String& read_formula, const String& prefix, int32_t read_links) {
    formula.assign(read_formula);
    entered.assign(prefix).append(read_formula);
    links = read_links;
  }
  host::RangePtr cell;
  String formula;
  /// `PrefixCharacter & Formula`: what the person typed.
  String entered;
  /// `Hyperlinks.Count`, read on first use (0 when it cannot be read).
  int32_t hyperlinks();
  /// The number a constant of a formula reads as (1 when it reads as none). A run's subject
  /// keeps the last one: its cells' formulas mostly repeat the same few constants.
  double constant(const String& text);

 private:
  std::optional<int32_t> links;
  std::optional<std::pair<String, double>> constant_;
};

/// The text and date opt-out: true when the cell is to be left exactly as it is; `why`
/// (optional) then says which.
bool opts_out(Subject& s, Knobs& knobs, Outcome* why = nullptr);

/// The colour the rules give the cell, from the hyperlink rule to the plain formula, in
/// their order; `rule` (optional) receives the rule that decided.
int32_t decide(Subject& s, Knobs& knobs, bool do_names, NameLinks* names, Outcome* rule = nullptr);

/// Sets the font colour, showing a hidden row or column for the moment it takes.
void paint(const host::RangePtr& cell, int32_t colour);

/// Makes a person's entry undoable through the library: recalculation waits, the
/// application takes the entry back out, a generic unit snapshots `range` as it was, and the
/// entry (format and character runs of `first` included) goes back in. `finish` restores
/// recalculation and arms the application's Undo for the unit.
class EntryCapture {
 public:
  EntryCapture(const host::RangePtr& first, const host::RangePtr& range, const String& entered);
  void finish();

 private:
  std::optional<int32_t> calculation_;
};

}  // namespace qz::autocolor
