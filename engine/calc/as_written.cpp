// The renderer writes back what the parser read wherever the parser keeps a spelling (names,
// numbers, texts, operators, upper-case function names) and writes references and sheet
// names from what they mean. So a text whose references and sheet names are spelled as the
// renderer spells them comes back unchanged; anything the check is unsure of is left to the
// parser. Reading a workbook's formulas only to show them (colouring reads every one) then
// costs a scan of each text instead of a parse and a render.
#include "engine/calc/as_written.hpp"

#include "engine/calc/formula.hpp"

namespace qz::engine::calc {

namespace {

bool upper_letter(char c) {
  return c >= 'A' && c <= 'Z';
}
bool lower_letter(char c) {
  return c >= 'a' && c <= 'z';
}
bool digit(char c) {
  return c >= '0' && c <= '9';
}
// The characters a run of letters, digits and dollars is made of: names, functions, sheet
// names, references and numbers alike.
bool word_char(char c) {
  return upper_letter(c) || lower_letter(c) || digit(c) || c == '_' || c == '.' || c == '$';
}

/// A cell as the renderer writes one: "$"? up to three capitals naming a column of the
/// sheet, "$"? a row number without leading zeros.
bool rendered_cell(std::string_view w) {
  size_t i = 0;
  if (i < w.size() && w[i] == '$') ++i;
  const size_t letters = i;
  int32_t col = 0;
  while (i < w.size() && upper_letter(w[i]) && i - letters < 4) col = col * 26 + (w[i++] - 'A' + 1);
  if (i == letters || i - letters > 3 || col > kMaxCols) return false;
  if (i < w.size() && w[i] == '$') ++i;
  if (i == w.size() || w[i] < '1' || w[i] > '9') return false;
  const size_t digits = i;
  int64_t row = 0;
  while (i < w.size() && digit(w[i]) && i - digits < 8) row = row * 10 + (w[i++] - '0');
  return i == w.size() && row <= kMaxRows;
}

/// Digits with at most one decimal point: the parser keeps such a spelling when it is not
/// the number's own, so it is written back either way.
bool plain_number(std::string_view w) {
  size_t dots = 0, digits = 0;
  for (char c : w) {
    if (c == '.')
      ++dots;
    else if (digit(c))
      ++digits;
    else
      return false;
  }
  return dots <= 1 && digits > 0;
}

/// A function's name as the parser keeps it: a file's "_xlfn." and "_xlws." as read, the rest
/// in upper case (the parser writes known functions so).
bool kept_function(std::string_view w) {
  for (;;) {
    if (w.starts_with("_xlfn."))
      w.remove_prefix(6);
    else if (w.starts_with("_xlws."))
      w.remove_prefix(6);
    else
      break;
  }
  if (w.empty() || !(upper_letter(w[0]) || w[0] == '_')) return false;
  for (char c : w)
    if (!(upper_letter(c) || digit(c) || c == '_' || c == '.')) return false;
  return true;
}

bool same_letters(std::string_view w, std::string_view upper) {
  if (w.size() != upper.size()) return false;
  for (size_t i = 0; i < w.size(); ++i)
    if ((lower_letter(w[i]) ? char(w[i] - 32) : w[i]) != upper[i]) return false;
  return true;
}

String wide(std::string_view ascii) {
  return String(ascii.begin(), ascii.end());
}

}  // namespace

bool renders_as_written(std::string_view text, const SheetResolver& sheets) {
  // Whether the word before a ":" was a cell, so that the one after may close an area.
  bool after_cell_colon = false;
  bool last_was_cell = false;
  for (size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (c == '"') {
      // A text: written back with its quotes doubled, as a file has them.
      for (++i;; ++i) {
        if (i >= text.size()) return false;
        if (text[i] == '"') {
          if (i + 1 < text.size() && text[i + 1] == '"') {
            ++i;
            continue;
          }
          break;
        }
      }
      ++i;
      if (after_cell_colon) return false;
      last_was_cell = false;
      continue;
    }
    if (word_char(c)) {
      size_t end = i;
      while (end < text.size() && word_char(text[end])) ++end;
      const std::string_view w = text.substr(i, end - i);
      const char next = end < text.size() ? text[end] : '\0';
      i = end;
      bool cell = false;
      if (next == '(') {
        if (!kept_function(w)) return false;
      } else if (next == '!') {
        // A sheet prefix: written from the sheet's own name, so it has to be that name.
        if (sheet_name_needs_quotes(wide(w))) return false;
        const String name = wide(w);
        const std::optional<SheetId> id = sheets.sheet_id(name);
        if (!id || sheets.sheet_name(*id) != name) return false;
        ++i;  // the "!" belongs to the prefix
      } else if (rendered_cell(w)) {
        cell = true;
      } else if (digit(w[0]) || w[0] == '.') {
        if (!plain_number(w)) return false;
      } else {
        // A name, kept as written; a word a reference could be read from (in any case), a
        // Boolean in lower case or anything with a "$" is not one.
        if (sheet_name_needs_quotes(wide(w))) return false;
        const bool boolean = same_letters(w, "TRUE") || same_letters(w, "FALSE");
        if (boolean && w != "TRUE" && w != "FALSE") return false;
      }
      if (after_cell_colon && !cell) return false;
      after_cell_colon = false;
      last_was_cell = cell && next != '!';
      continue;
    }
    switch (c) {
      case ':':
        // Only between two cells ("A1:B2"): whole rows and columns and ranges of names or
        // sheets are the parser's to tell apart.
        if (!last_was_cell) return false;
        after_cell_colon = true;
        break;
      case '+':
      case '-':
      case '*':
      case '/':
      case '^':
      case '&':
      case '=':
      case '<':
      case '>':
      case '%':
      case ',':
      case '(':
      case ')':
        if (after_cell_colon) return false;
        break;
      default:
        return false;
    }
    last_was_cell = false;
    ++i;
  }
  return !after_cell_colon;
}

}  // namespace qz::engine::calc
