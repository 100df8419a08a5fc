#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz::vblib {

namespace {

// Removes one pair of enclosing apostrophes and undoubles the apostrophes inside, as a quoted
// sheet name is written ("'It''s'" -> "It's").
String unquote(StringView s) {
  if (s.size() >= 2 && s.front() == u'\'' && s.back() == u'\'') {
    String out;
    for (size_t i = 1; i + 1 < s.size(); ++i) {
      out.push_back(s[i]);
      if (s[i] == u'\'' && i + 2 < s.size() && s[i + 1] == u'\'') ++i;
    }
    return out;
  }
  return String(s);
}

// Position of `what` in `text` at or after `from` (text or binary compare).
size_t find_at(StringView text, StringView what, size_t from, int32_t compare) {
  if (what.empty() || from > text.size()) return StringView::npos;
  if (compare == 0) return text.find(what, from);
  int32_t p = instr_text(static_cast<int32_t>(from + 1), text, what);
  return p == 0 ? StringView::npos : static_cast<size_t>(p - 1);
}

}  // namespace

String Strings::qualifier_split(StringView text, bool bare, String& qualifier) {
  size_t bang = text.rfind(u'!');
  if (bang == StringView::npos) {
    qualifier.clear();
    return String(text);
  }
  qualifier = bare ? unquote(text.substr(0, bang)) : String(text.substr(0, bang + 1));
  return String(text.substr(bang + 1));
}

std::vector<String> Strings::split(StringView text, StringView delimiter, int32_t limit,
                                   int32_t compare) {
  std::vector<String> out;
  if (text.empty() || limit == 0) return out;
  if (delimiter.empty()) {
    out.emplace_back(text);
    return out;
  }
  size_t start = 0;
  while (limit < 0 || static_cast<int32_t>(out.size()) < limit - 1) {
    size_t p = find_at(text, delimiter, start, compare);
    if (p == StringView::npos) break;
    out.emplace_back(text.substr(start, p - start));
    start = p + delimiter.size();
  }
  out.emplace_back(text.substr(start));
  return out;
}

String Strings::replace(StringView text, StringView find, StringView with, int32_t start,
                        int32_t count, int32_t compare) {
  if (start < 1) throw Error(err::invalid_call, "Invalid procedure call or argument");
  // The runtime's Replace returns the text from `start` on, replacements made.
  StringView rest = static_cast<size_t>(start - 1) <= text.size()
                        ? text.substr(static_cast<size_t>(start - 1))
                        : StringView();
  if (find.empty() || count == 0) return String(rest);
  String out;
  size_t pos = 0;
  int32_t done = 0;
  while (count < 0 || done < count) {
    size_t p = find_at(rest, find, pos, compare);
    if (p == StringView::npos) break;
    out.append(rest.substr(pos, p - pos));
    out.append(with);
    pos = p + find.size();
    ++done;
  }
  out.append(rest.substr(pos));
  return out;
}

int32_t Strings::instr_outside_quotes(int32_t start, StringView text, StringView sought,
                                      char16_t quote) {
  if (sought.empty()) return 0;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == quote) {
      // A doubled quote inside a quoted stretch toggles twice and so stays inside it.
      quoted = !quoted;
      continue;
    }
    if (quoted || static_cast<int32_t>(i + 1) < start) continue;
    if (text.substr(i, sought.size()) == sought) return static_cast<int32_t>(i + 1);
  }
  return 0;
}

String Strings::strip_wks_name(StringView text, String* sheet, bool clean) {
  size_t bang = text.rfind(u'!');
  if (bang == StringView::npos) {
    if (sheet) sheet->clear();
    return String(text);
  }
  if (sheet) {
    String s(text.substr(0, bang));
    if (clean) {
      s = unquote(s);
      // A sheet of another workbook: keep only the sheet ("C:\x\[Book.xls]Data" -> "Data").
      if (size_t close = s.rfind(u']'); close != String::npos) s.erase(0, close + 1);
    }
    *sheet = s;
  }
  return String(text.substr(bang + 1));
}

String Strings::strip_wkb_name(StringView text, String* book, bool clean) {
  size_t open = text.find(u'[');
  size_t close = open == StringView::npos ? StringView::npos : text.find(u']', open);
  if (close == StringView::npos) {
    if (book) book->clear();
    return String(text);
  }
  if (book) *book = String(text.substr(open + 1, close - open - 1));
  bool quoted = !text.empty() && text.front() == u'\'';
  String rest(text.substr(close + 1));
  if (!quoted) return rest;
  // "'C:\dir\[Book.xls]My Sheet'!A1": the sheet keeps its apostrophes only if it needs them.
  size_t end_quote = rest.find(u"'!");
  if (end_quote == String::npos) return rest;
  String sheet = rest.substr(0, end_quote);
  String tail = rest.substr(end_quote + 1);
  bool needs_quotes = false;
  for (char16_t c : sheet)
    if (!((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') ||
          c == u'_' || c == u'.' || c > 0x7F))
      needs_quotes = true;
  if (clean || !needs_quotes) return sheet + tail;
  return u"'" + sheet + u"'" + tail;
}

String Strings::cut_end(StringView text, int32_t count) {
  if (count <= 0) return String(text);
  if (static_cast<size_t>(count) >= text.size()) return String();
  return String(text.substr(0, text.size() - static_cast<size_t>(count)));
}

std::vector<String> Strings::parse_textbox(StringView text) {
  std::vector<String> out;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == u'\r' || text[i] == u'\n') {
      StringView line = trim(text.substr(start, i - start));
      if (!line.empty()) out.emplace_back(line);
      if (i + 1 < text.size() && text[i] == u'\r' && text[i + 1] == u'\n') ++i;
      start = i + 1;
    }
  }
  return out;
}

void Strings::split_full_name(StringView full_name, String& file_name, String& folder) {
  size_t sep = full_name.find_last_of(u"\\/");
  if (sep == StringView::npos) {
    file_name = String(full_name);
    folder.clear();
    return;
  }
  file_name = String(full_name.substr(sep + 1));
  folder = String(full_name.substr(0, sep));
}

String Strings::join_path(StringView folder, StringView file_name) {
  if (folder.empty()) return String(file_name);
  // Keep the folder's own separator style: backslashes for Windows paths.
  char16_t sep = folder.find(u'\\') != StringView::npos ? u'\\' : u'/';
  String out(folder);
  while (!out.empty() && (out.back() == u'\\' || out.back() == u'/')) out.pop_back();
  while (!file_name.empty() && (file_name.front() == u'\\' || file_name.front() == u'/'))
    file_name.remove_prefix(1);
  out.push_back(sep);
  out.append(file_name);
  return out;
}

String Strings::message(int32_t number) {
  // Callers join these pieces with the name of the entry or sheet concerned, so they end and
  // begin where a name fits: 2004 & "Quantity" & 4 reads "Please enter a whole number for
  // Quantity."
  switch (number) {
    case 4:
      return u".";
    case 2002:
      return u"The reference entered is not a valid range on the sheet ";
    case 2004:
      return u"Please enter a whole number for ";
    case 2005:
      return u"A negative number is not allowed for ";
    case 2006:
      return u"The number entered is too large for ";
    case 2007:
      return u".  The largest number allowed is ";
    case 5030:
      return u"AutoColor will color-code every cell of this sheet by what it holds (inputs, "
             u"formulas and links), which may take a while on a large sheet.  Do you wish to "
             u"proceed?";
    default:
      return String();
  }
}

}  // namespace qz::vblib
