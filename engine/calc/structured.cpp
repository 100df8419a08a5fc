// Structured references: reading their text, the cells they name in a table, and their
// spelling in files.
#include <algorithm>

#include "engine/calc/eval.hpp"

namespace qz::engine::calc {

namespace {

bool blank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

StringView trim(StringView s) {
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

/// A column name as written, its escapes (an apostrophe before [, ], # or ') removed.
String unescape(StringView s) {
  String out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == u'\'' && i + 1 < s.size()) ++i;
    out += s[i];
  }
  return out;
}

/// Reads "[...]" at `i` (which must be at the "["), leaving `i` after the "]"; the content
/// as written, escapes kept. Nothing when the bracket does not close.
std::optional<StringView> bracketed(StringView s, size_t& i) {
  if (i >= s.size() || s[i] != u'[') return std::nullopt;
  size_t start = ++i;
  for (; i < s.size(); ++i) {
    if (s[i] == u'\'') {
      ++i;
      continue;
    }
    if (s[i] == u']') return s.substr(start, i++ - start);
  }
  return std::nullopt;
}

/// Sets the row specifier `item` names ("#Data", "#This Row", ...); false if it is none.
bool specifier(StringView item, StructuredRef& r) {
  String u = upper_text(trim(item));
  if (u == u"#ALL")
    r.all = true;
  else if (u == u"#DATA")
    r.data = true;
  else if (u == u"#HEADERS")
    r.headers = true;
  else if (u == u"#TOTALS")
    r.totals = true;
  else if (u == u"#THIS ROW")
    r.this_row = true;
  else
    return false;
  return true;
}

/// A list of bracketed items: "[#Headers],[Qty]:[Price]". False when malformed.
bool items(StringView s, StructuredRef& r) {
  size_t i = 0;
  bool column_seen = false;
  for (;;) {
    while (i < s.size() && blank(s[i])) ++i;
    auto item = bracketed(s, i);
    if (!item) return false;
    if (!item->empty() && trim(*item).substr(0, 1) == u"#") {
      if (!specifier(*item, r)) return false;
    } else {
      if (column_seen) return false;
      column_seen = true;
      r.first_column = unescape(*item);
      size_t j = i;
      while (j < s.size() && blank(s[j])) ++j;
      if (j < s.size() && s[j] == u':') {
        ++j;
        while (j < s.size() && blank(s[j])) ++j;
        auto last = bracketed(s, j);
        if (!last) return false;
        r.last_column = unescape(*last);
        i = j;
      }
    }
    while (i < s.size() && blank(s[i])) ++i;
    if (i == s.size()) return true;
    if (s[i] != u',') return false;
    ++i;
  }
}

bool needs_escape(char16_t c) {
  return c == u'[' || c == u']' || c == u'#' || c == u'\'';
}

String escape(StringView name) {
  String out;
  for (char16_t c : name) {
    if (needs_escape(c)) out += u'\'';
    out += c;
  }
  return out;
}

/// Whether a lone column must sit in brackets of its own ("Table1[[Net.Sales]]").
bool needs_brackets(StringView name) {
  static constexpr StringView special = u"\t\n\r,:.[]#'\"{}$^&*+=-><";
  return name.find_first_of(special) != StringView::npos || name.empty() || blank(name.front()) ||
         blank(name.back());
}

std::optional<int32_t> column_index(const TableDefinition& t, StringView name) {
  for (size_t k = 0; k < t.columns.size(); ++k)
    if (text_equal(t.columns[k], trim(name)) || text_equal(t.columns[k], name))
      return static_cast<int32_t>(k);
  return std::nullopt;
}

}  // namespace

std::optional<StructuredRef> read_structured(StringView text) {
  size_t open = text.find(u'[');
  if (open == StringView::npos || text.back() != u']') return std::nullopt;
  StructuredRef r;
  StringView table = trim(text.substr(0, open));
  // A table of another workbook ("Book.xlsx!Table1[Qty]") is none of this workbook's.
  if (table.find(u'!') != StringView::npos) return std::nullopt;
  r.table = String(table);
  StringView body = trim(text.substr(open + 1, text.size() - open - 2));
  if (body.empty()) {
    r.data = true;
    return r;
  }
  if (body[0] == u'@') {
    r.this_row = true;
    StringView rest = trim(body.substr(1));
    if (rest.empty()) return r;
    if (rest[0] == u'[') {
      if (!items(rest, r)) return std::nullopt;
      return r;
    }
    r.first_column = unescape(rest);
    return r;
  }
  if (body[0] == u'[') {
    if (!items(body, r)) return std::nullopt;
    return r;
  }
  if (body[0] == u'#') {
    if (!specifier(body, r)) return std::nullopt;
    return r;
  }
  r.first_column = unescape(body);
  return r;
}

std::variant<Rect, int32_t> resolve_structured(const StructuredRef& ref, const TableDefinition& t,
                                               CellRef origin) {
  Rect data = t.data();
  Rect out = t.range;
  if (ref.this_row) {
    // The formula's own row of the table; from outside its rows there is none.
    if (origin.row < data.row1 || origin.row > data.row2) return cell_error::value;
    out.row1 = out.row2 = origin.row;
  } else if (!ref.all) {
    // The rows asked for must be next to each other: headers and totals need the data.
    bool data_rows = ref.data || (!ref.headers && !ref.totals);
    bool headers = ref.headers && t.header_rows > 0, totals = ref.totals && t.totals_rows > 0;
    if (ref.headers && ref.totals && !data_rows) return cell_error::ref;
    if (!data_rows && !headers && !totals) return cell_error::ref;
    out.row1 = headers ? t.range.row1 : data_rows ? data.row1 : t.range.row2;
    out.row2 = totals ? t.range.row2 : data_rows ? data.row2 : t.range.row1;
    if (out.row2 < out.row1) return cell_error::ref;
  }
  if (!ref.first_column.empty()) {
    auto a = column_index(t, ref.first_column);
    auto b = ref.last_column.empty() ? a : column_index(t, ref.last_column);
    if (!a || !b) return cell_error::ref;
    out.col1 = t.range.col1 + std::min(*a, *b);
    out.col2 = t.range.col1 + std::max(*a, *b);
  }
  return out;
}

String render_structured(const StructuredRef& ref) {
  std::vector<String> parts;
  if (ref.all) parts.push_back(u"[#All]");
  if (ref.headers) parts.push_back(u"[#Headers]");
  if (ref.data) parts.push_back(u"[#Data]");
  if (ref.totals) parts.push_back(u"[#Totals]");
  if (ref.this_row) parts.push_back(u"[#This Row]");
  size_t specifiers = parts.size();
  if (!ref.first_column.empty()) {
    String col = u"[" + escape(ref.first_column) + u"]";
    if (!ref.last_column.empty() && !text_equal(ref.last_column, ref.first_column))
      col += u":[" + escape(ref.last_column) + u"]";
    else if (specifiers == 0 && !needs_brackets(ref.first_column))
      col = escape(ref.first_column);
    parts.push_back(std::move(col));
  }
  String out = ref.table + u"[";
  if (parts.size() == 1 && specifiers == 1) {
    out += StringView(parts[0]).substr(1, parts[0].size() - 2);
  } else if (parts.size() == 1 && parts[0][0] != u'[') {
    out += parts[0];
  } else {
    for (size_t k = 0; k < parts.size(); ++k) {
      if (k) out += u',';
      out += parts[k];
    }
  }
  return out + u"]";
}

Operand structured_reference(Evaluator& ev, StringView text) {
  auto ref = read_structured(text);
  if (!ref) return Value::error(cell_error::ref);
  auto t =
      ref->table.empty() ? ev.ctx().table_at(ev.sheet(), ev.origin()) : ev.ctx().table(ref->table);
  if (!t) return Value::error(cell_error::ref);
  auto at = resolve_structured(*ref, *t, ev.origin());
  if (const int32_t* e = std::get_if<int32_t>(&at)) return Value::error(*e);
  return Operand::ref({Area{t->sheet, std::get<Rect>(at)}});
}

}  // namespace qz::engine::calc
