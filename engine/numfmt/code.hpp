// Format codes taken apart into sections and tokens. Internal to the numfmt component.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/numfmt/numfmt.hpp"

namespace qz::engine::numfmt {

enum class Tok : uint8_t {
  Literal,    ///< text shown as is (quoted text, escapes, separators, _x spacing)
  Zero,       ///< 0: digit or 0
  Hash,       ///< #: digit or nothing
  Question,   ///< ?: digit or space
  Point,      ///< the decimal point
  Comma,      ///< thousands separator or scaling comma (decided by position)
  Percent,    ///< %
  Exponent,   ///< E+ E- e+ e-; `n` 1 when the sign is always shown
  Slash,      ///< the fraction bar
  General,    ///< General inside a section
  At,         ///< @: the text
  Year,       ///< y.. (n letters)
  Month,      ///< m.. as a month (n letters)
  Day,        ///< d.. (n letters)
  Hour,       ///< h.. (n letters)
  Minute,     ///< m.. as minutes (n letters)
  Second,     ///< s.. (n letters)
  SubSecond,  ///< .0, .00, .000 after seconds (n digits)
  AmPm,       ///< AM/PM or A/P; `text` as written
  ElapsedH,   ///< [h] (n letters)
  ElapsedM,   ///< [m]
  ElapsedS,   ///< [s]
};

struct Token {
  Tok type = Tok::Literal;
  int n = 0;
  String text;
};

struct Condition {
  enum class Cmp : uint8_t { Lt, Le, Gt, Ge, Eq, Ne } cmp = Cmp::Ge;
  double value = 0;
  bool test(double v) const;
};

struct Section {
  std::vector<Token> tokens;
  std::optional<Condition> condition;
  bool has_date = false;     // y, d or a month
  bool has_time = false;     // h, minutes, s or AM/PM
  bool has_elapsed = false;  // [h] [m] [s]
  bool has_ampm = false;
  bool has_digits = false;  // 0 # ?
  bool has_text = false;    // @
  bool has_general = false;
  bool has_percent = false;
  bool has_exponent = false;
  bool has_fraction = false;
};

struct Code {
  std::vector<Section> sections;  // 1 to 4
};

/// Splits and tokenizes a code; raises qz::Error for codes the application refuses.
Code parse_code(StringView code);

/// Renders a number with one section (`negative_shown`: the section was chosen for a
/// negative number by position, so its own signs stand in for the minus).
String render_number(const Section& s, double value, bool date1904);

/// The General rendering of a number (11 characters at most, as a standard cell shows).
String general_number(double v);

}  // namespace qz::engine::numfmt
