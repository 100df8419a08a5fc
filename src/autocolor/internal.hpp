// What the AutoColor sources share: the settings as a rule reads them, the named-link
// matcher a run builds once, and the texts the user sees.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "autocolor/autocolor.hpp"
#include "host/host.hpp"

namespace qz::autocolor {

/// Captions and macros of the four menu buttons, by `iAutoColor::ButtonKind`.
inline constexpr const char16_t* kButtonCaptions[4] = {
    u"&AutoColor On Entry", u"AutoColor Se&lection...", u"AutoColor &Sheet...",
    u"AutoColor &Workbook..."};
inline constexpr const char16_t* kButtonMacros[4] = {
    u"mDOM.ToggleAutoColor", u"mDOM.AutoColorSelection", u"mDOM.AutoColorSheet",
    u"mDOM.AutoColorWorkbook"};
/// The client macro the application runs after every entry while AutoColor is on.
inline constexpr char16_t kOnEntryMacro[] = u"mDOM.RunAutoColor";
/// The client product that may veto the colouring of a cell.
inline constexpr char16_t kVetoProduct[] = u"RivuletXL";
/// The undo name of what a person typed.
inline constexpr char16_t kTextEntry[] = u"Text Entry";
/// Above this many defined names a sheet run asks before searching names.
inline constexpr int32_t kManyNames = 500;

/// The settings the rules read. Live knobs ask the object's getters each time (a changed
/// setting counts from the next read); a run's knobs are read once when it starts, since the
/// store is a file shared between processes and a run may visit a million cells.
class Knobs {
 public:
  explicit Knobs(iAutoColor& owner) : owner_(owner) {}
  static Knobs snapshot(iAutoColor& owner);

  bool hyperlinks();
  bool text();
  bool dates();
  int32_t input();
  int32_t partial_input();
  int32_t formula();
  int32_t wks_link();
  int32_t wkb_link();
  int32_t hyperlink();

 private:
  struct Values {
    bool hyperlinks, text, dates;
    int32_t input, partial_input, formula, wks_link, wkb_link, hyperlink;
  };
  iAutoColor& owner_;
  std::optional<Values> fixed_;
};

/// The named-link rule without walking every name for every formula: the names' texts are
/// read once into a matcher that finds, in one pass over a formula, every name occurring in
/// it; the first of them in the collection's order whose range lies on another sheet is the
/// one the rule takes. Where a name's range lies is asked only when the name first occurs.
class NameLinks {
 public:
  /// Reads the names of `workbook` (none when they cannot be read).
  explicit NameLinks(const host::WorkbookPtr& workbook);
  ~NameLinks();
  NameLinks(const NameLinks&) = delete;
  NameLinks& operator=(const NameLinks&) = delete;

  /// Whether a name occurring in `body` (the formula without "=", compared without regard to
  /// case) refers to cells on a sheet other than `sheet_name` (compared with regard to case).
  bool links_elsewhere(StringView body, StringView sheet_name);

 private:
  struct Automaton;
  std::unique_ptr<Automaton> automaton_;
  host::NamesPtr names_;
  // Per name in collection order: the sheet its range lies on, once asked; nothing when it
  // refers to no range.
  std::vector<std::optional<std::optional<String>>> target_;
  std::vector<int32_t> found_;
};

/// The same rule by walking the names in order, for one cell on its own.
bool names_link_elsewhere(const host::WorkbookPtr& workbook, StringView body,
                          StringView sheet_name);

}  // namespace qz::autocolor
