// Column letters: "A" for the first column, "Z", "AA", ... "XFD" for the last of a sheet.
#pragma once

#include <cstdint>
#include <string>

namespace qz {

/// Writes the letters of a 0-based column at `p` (room for 8 characters); returns the end.
template <class Char>
Char* write_column_letters(Char* p, int32_t col) {
  Char letters[8];
  int n = 0;
  for (int64_t c = int64_t{col} + 1; c > 0 && n < 8; c = (c - 1) / 26)
    letters[n++] = static_cast<Char>('A' + (c - 1) % 26);
  while (n) *p++ = letters[--n];
  return p;
}

/// Appends the letters of a 0-based column to `out` (a std::string or a UTF-16 string).
template <class Text>
void append_column_letters(Text& out, int32_t col) {
  typename Text::value_type letters[8];
  out.append(letters, write_column_letters(letters, col));
}

/// The letters of a 0-based column as UTF-16 text.
inline std::u16string column_letters(int32_t col) {
  std::u16string out;
  append_column_letters(out, col);
  return out;
}

}  // namespace qz
