// Case folding of text comparison: ASCII and Latin-1 letters, one table for the runtime's
// text functions, the formula language and AutoColor's name matching.
#pragma once

namespace qz {

/// The upper-case form of an ASCII or Latin-1 lower-case letter (not the division sign, not
/// y with diaeresis, whose upper case lies outside Latin-1); other characters unchanged.
constexpr char16_t fold_case(char16_t c) {
  if (c >= u'a' && c <= u'z') return static_cast<char16_t>(c - 32);
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<char16_t>(c - 32);
  return c;
}

/// The lower-case form of an ASCII or Latin-1 upper-case letter (not the multiplication sign).
constexpr char16_t unfold_case(char16_t c) {
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 32);
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 32);
  return c;
}

}  // namespace qz
