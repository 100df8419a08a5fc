// Information about cells, sheets and the workbook (CELL, INFO, SHEET, SHEETS), links
// (HYPERLINK), pivot tables (GETPIVOTDATA), the euro conversion of the currencies the euro
// replaced (EUROCONVERT), and the functions whose values come from outside the file.
#include <algorithm>
#include <cmath>

#include "engine/calc/fn_util.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

// ---- CELL -----------------------------------------------------------------------------------

/// The sections of a number format, split at the semicolons outside quotes and brackets.
std::vector<String> format_sections(StringView code) {
  std::vector<String> out(1);
  bool quoted = false;
  int bracket = 0;
  for (size_t i = 0; i < code.size(); ++i) {
    char16_t c = code[i];
    if (c == u'\\' && i + 1 < code.size()) {
      out.back() += c;
      out.back() += code[++i];
      continue;
    }
    if (c == u'"') quoted = !quoted;
    if (!quoted && c == u'[') ++bracket;
    if (!quoted && c == u']') bracket = std::max(0, bracket - 1);
    if (c == u';' && !quoted && bracket == 0) {
      out.emplace_back();
      continue;
    }
    out.back() += c;
  }
  return out;
}

/// A section with its quoted text, escaped characters and bracketed parts left out,
/// lower-cased: what the format codes of CELL("format") are read from.
String format_skeleton(StringView s) {
  String out;
  bool quoted = false;
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c == u'"') {
      quoted = !quoted;
      continue;
    }
    if (quoted) continue;
    if ((c == u'\\' || c == u'_' || c == u'*') && i + 1 < s.size()) {
      ++i;
      continue;
    }
    if (c == u'[') {
      size_t close = s.find(u']', i);
      if (close == StringView::npos) break;
      // A currency written [$€-407] still says the format is a currency.
      if (i + 1 < s.size() && s[i + 1] == u'$') out += u'$';
      i = close;
      continue;
    }
    out += (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
  }
  return out;
}

bool has_color(StringView section) {
  static const char16_t* colors[] = {u"[black", u"[blue",  u"[cyan",   u"[green", u"[magenta",
                                     u"[red",   u"[white", u"[yellow", u"[color"};
  String lower = lower_text(section);
  for (const char16_t* c : colors)
    if (lower.find(c) != String::npos) return true;
  return false;
}

/// CELL("format"): a letter for the kind of format and the decimals shown, "-" when
/// negatives show in colour, "()" when positives show in parentheses.
String format_code(StringView code) {
  std::vector<String> sections = format_sections(code);
  String first = format_skeleton(sections[0]);
  String suffix;
  if (sections.size() > 1 && has_color(sections[1])) suffix += u"-";
  if (first.find(u'(') != String::npos) suffix += u"()";
  if (first.empty() || first == u"general" || first == u"@") return u"G" + suffix;
  bool date =
      first.find_first_of(u"dmyhs") != String::npos && first.find_first_of(u"0#?") == String::npos;
  if (date) {
    bool d = first.find(u'd') != String::npos, y = first.find(u'y') != String::npos;
    bool h = first.find(u'h') != String::npos, mmm = first.find(u"mmm") != String::npos;
    bool ampm = first.find(u"am/pm") != String::npos || first.find(u"a/p") != String::npos;
    bool secs = first.find(u's') != String::npos;
    bool m = first.find(u'm') != String::npos;
    if (d && y && !mmm) return u"D4" + suffix;
    if (!d && !y && h)
      return String(ampm ? (secs ? u"D6" : u"D7") : (secs ? u"D8" : u"D9")) + suffix;
    if (d && y && mmm) return u"D1" + suffix;
    if (d && mmm) return u"D2" + suffix;
    if (y && m) return u"D3" + suffix;
    if (d && m) return u"D5" + suffix;
    return u"D4" + suffix;
  }
  if (first.find(u'/') != String::npos) return u"G" + suffix;  // fractions
  int decimals = 0;
  size_t point = first.find(u'.');
  if (point != String::npos)
    for (size_t i = point + 1; i < first.size() && (first[i] == u'0' || first[i] == u'#'); ++i)
      ++decimals;
  String digits = number_to_text(decimals);
  if (first.find(u'%') != String::npos) return u"P" + digits + suffix;
  if (first.find(u"e+") != String::npos || first.find(u"e-") != String::npos)
    return u"S" + digits + suffix;
  if (first.find_first_of(u"$\u20ac\u00a3\u00a5") != String::npos) return u"C" + digits + suffix;
  if (first.find(u',') != String::npos) return u"," + digits + suffix;
  return u"F" + digits + suffix;
}

String quoted_sheet(StringView name) {
  if (!sheet_name_needs_quotes(name)) return String(name);
  String q = u"'";
  for (char16_t c : name) {
    if (c == u'\'') q += u'\'';
    q += c;
  }
  return q + u"'";
}

String path_separator(const WorkbookFacts& w) {
  return w.folder.find(u'\\') != String::npos ? u"\\" : u"/";
}

Operand f_cell(Args& a) {
  Evaluator& ev = a.ev();
  String type = lower_text(text(a, 0));
  SheetId sheet = ev.sheet();
  CellRef at = ev.origin();
  if (a.size() > 1 && !a.missing(1)) {
    const Operand& o = a.get(1);
    if (!o.is_ref() || o.areas.empty()) return error(cell_error::value);
    sheet = o.areas[0].sheet;
    at = CellRef{o.areas[0].rect.row1, o.areas[0].rect.col1};
  }
  if (type == u"row") return num(at.row + 1);
  if (type == u"col") return num(at.col + 1);
  if (type == u"contents") return ev.cell(sheet, at.row, at.col);
  if (type == u"type") {
    Value v = ev.cell(sheet, at.row, at.col);
    return text(v.kind == Value::Kind::Empty ? u"b" : v.kind == Value::Kind::Text ? u"l" : u"v");
  }
  auto book = ev.ctx().workbook_facts();
  const SheetResolver& sheets = ev.ctx().sheets();
  if (type == u"address") {
    String address = u"$" + column_letters(at.col) + u"$" + number_to_text(at.row + 1);
    if (sheet == ev.sheet()) return text(address);
    String prefix = sheets.sheet_name(sheet);
    if (book && !book->name.empty()) prefix = u"[" + book->name + u"]" + prefix;
    return text(quoted_sheet(prefix) + u"!" + address);
  }
  if (type == u"filename") {
    if (!book) return error(cell_error::na);
    if (book->folder.empty()) return text(String());
    return text(book->folder + path_separator(*book) + u"[" + book->name + u"]" +
                sheets.sheet_name(sheet));
  }
  bool known = type == u"format" || type == u"color" || type == u"parentheses" ||
               type == u"prefix" || type == u"protect" || type == u"width";
  if (!known) return error(cell_error::value);
  auto facts = ev.ctx().cell_facts(sheet, at);
  if (!facts) return error(cell_error::na);
  if (type == u"format") return text(format_code(facts->number_format));
  if (type == u"color") {
    auto sections = format_sections(facts->number_format);
    return num(sections.size() > 1 && has_color(sections[1]) ? 1 : 0);
  }
  if (type == u"parentheses")
    return num(format_skeleton(format_sections(facts->number_format)[0]).find(u'(') != String::npos
                   ? 1
                   : 0);
  if (type == u"protect") return num(facts->locked ? 1 : 0);
  if (type == u"width") return num(std::floor(facts->column_width));
  // prefix: the alignment of text; nothing for other values.
  Value v = ev.cell(sheet, at.row, at.col);
  if (v.kind != Value::Kind::Text) return text(String());
  switch (facts->alignment) {
    case u'r':
      return text(u"\"");
    case u'c':
      return text(u"^");
    case u'f':
      return text(u"\\");
    default:
      return text(u"'");
  }
}

// ---- INFO, SHEET, SHEETS ------------------------------------------------------------------------

Operand f_info(Args& a) {
  String type = lower_text(text(a, 0));
  Evaluator& ev = a.ev();
  if (type == u"system") return text(u"pcdos");
  if (type == u"numfile") {
    auto order = ev.ctx().sheets().sheet_order();
    if (order.empty()) return error(cell_error::na);
    return num(static_cast<double>(order.size()));
  }
  if (type == u"recalc" || type == u"directory") {
    auto book = ev.ctx().workbook_facts();
    if (!book) return error(cell_error::na);
    if (type == u"recalc") return text(book->manual_calculation ? u"Manual" : u"Automatic");
    if (book->folder.empty()) return error(cell_error::na);
    return text(book->folder + path_separator(*book));
  }
  // The machine's memory, the operating system and the window's first cell are no part of
  // the file.
  if (type == u"osversion" || type == u"release" || type == u"origin" || type == u"memavail" ||
      type == u"memused" || type == u"totmem")
    return error(cell_error::na);
  return error(cell_error::value);
}

double sheet_index(const std::vector<SheetId>& order, SheetId id) {
  auto it = std::find(order.begin(), order.end(), id);
  if (it == order.end()) raise(cell_error::na);
  return static_cast<double>(it - order.begin() + 1);
}

Operand f_sheet(Args& a) {
  Evaluator& ev = a.ev();
  auto order = ev.ctx().sheets().sheet_order();
  if (order.empty()) return error(cell_error::na);
  if (a.size() == 0 || a.missing(0)) return num(sheet_index(order, ev.sheet()));
  const Operand& o = a.get(0);
  if (o.is_ref()) return num(sheet_index(order, o.areas[0].sheet));
  Value v = ev.scalar(o);
  if (v.is_error()) return v;
  if (v.kind != Value::Kind::Text) return error(cell_error::value);
  auto id = ev.ctx().sheets().sheet_id(v.text);
  if (!id) return error(cell_error::na);
  return num(sheet_index(order, *id));
}

Operand f_sheets(Args& a) {
  Evaluator& ev = a.ev();
  if (a.size() == 0 || a.missing(0)) {
    auto order = ev.ctx().sheets().sheet_order();
    if (order.empty()) return error(cell_error::na);
    return num(static_cast<double>(order.size()));
  }
  const Operand& o = a.get(0);
  if (!o.is_ref()) return error(cell_error::value);
  std::vector<SheetId> seen;
  for (const Area& ar : o.areas)
    if (std::find(seen.begin(), seen.end(), ar.sheet) == seen.end()) seen.push_back(ar.sheet);
  return num(static_cast<double>(seen.size()));
}

// ---- links, pivot tables, euro ------------------------------------------------------------------

/// HYPERLINK shows its friendly name, or the link itself when there is none; the link stays
/// in the formula, where whoever follows it reads it.
Operand f_hyperlink(Args& a) {
  Value link = scalar(a, 0);
  if (link.is_error()) return link;
  if (a.size() > 1 && !a.missing(1)) {
    Value name = scalar(a, 1);
    return name.kind == Value::Kind::Empty ? Value::num(0) : name;
  }
  return text(Evaluator::to_text(link));
}

/// Pivot caches are not read from files, so every reference is one without a pivot table,
/// for which the application answers #REF!.
Operand f_getpivotdata(Args& a) {
  for (size_t i = 0; i < a.size(); ++i) {
    if (a.missing(i)) continue;
    Value v = a.ev().scalar(a.get(i));
    if (v.is_error() && i != 1) return v;
  }
  return error(cell_error::ref);
}

struct Currency {
  const char16_t* code;
  double per_euro;
  int decimals;  // what a converted amount is rounded to
};
constexpr Currency kCurrencies[] = {
    {u"EUR", 1, 2},       {u"BEF", 40.3399, 0}, {u"LUF", 40.3399, 0},  {u"DEM", 1.95583, 2},
    {u"ESP", 166.386, 0}, {u"FRF", 6.55957, 2}, {u"IEP", 0.787564, 2}, {u"ITL", 1936.27, 0},
    {u"NLG", 2.20371, 2}, {u"ATS", 13.7603, 2}, {u"PTE", 200.482, 0},  {u"FIM", 5.94573, 2},
    {u"GRD", 340.75, 0},  {u"SIT", 239.64, 2},  {u"CYP", 0.585274, 2}, {u"MTL", 0.4293, 2},
    {u"SKK", 30.126, 2},  {u"EEK", 15.6466, 2}, {u"LVL", 0.702804, 2}, {u"LTL", 3.4528, 2},
};
const Currency* currency(StringView code) {
  for (const Currency& c : kCurrencies)
    if (text_equal(code, c.code)) return &c;
  return nullptr;
}

Operand f_euroconvert(Args& a) {
  double x = number(a, 0);
  const Currency* from = currency(text(a, 1));
  const Currency* to = currency(text(a, 2));
  if (!from || !to) return error(cell_error::value);
  bool full = a.size() > 3 && !a.missing(3) && boolean(a, 3);
  double euros = x / from->per_euro;
  if (a.size() > 4 && !a.missing(4)) {
    double places = std::trunc(number(a, 4));
    if (places < 3) return error(cell_error::value);
    // Between two national currencies the euro amount is rounded first.
    if (from->per_euro != 1 && to->per_euro != 1)
      euros = round_half_away(euros, static_cast<int>(places));
  }
  double r = euros * to->per_euro;
  return num(full ? r : round_half_away(r, to->decimals));
}

// ---- values from outside the file
// ----------------------------------------------------------------

template <int32_t Code>
Operand unavailable(Args&) {
  return error(Code);
}

}  // namespace

void add_info_functions(std::vector<FunctionInfo>& t) {
  t.insert(
      t.end(),
      {
          {u"CELL", 1, 2, f_cell, whole_args, true},
          {u"EUROCONVERT", 3, 5, f_euroconvert, each_arg},
          {u"GETPIVOTDATA", 2, -1, f_getpivotdata},
          {u"HYPERLINK", 1, 2, f_hyperlink, each_arg},
          {u"INFO", 1, 1, f_info, whole_args, true},
          {u"SHEET", 0, 1, f_sheet},
          {u"SHEETS", 0, 1, f_sheets},
          // Without their sources: a real-time data server answers #N/A, a web
          // service #VALUE!, code in a library #VALUE!, a cube connection
          // #NAME?, the linked data types #FIELD!, online services #CONNECT!, a
          // text file that cannot be read #VALUE!. FILTERXML needs an XML reader
          // the formula layer does not have (it builds without one for Windows).
          {u"CALL", 1, -1, unavailable<cell_error::value>, whole_args, true, true},
          {u"COPILOT", 1, -1, unavailable<kErrorConnect>, whole_args, false, true},
          {u"CUBEKPIMEMBER", 3, 4, unavailable<cell_error::name>, whole_args, false, true},
          {u"CUBEMEMBER", 2, 3, unavailable<cell_error::name>, whole_args, false, true},
          {u"CUBEMEMBERPROPERTY", 3, 3, unavailable<cell_error::name>, whole_args, false, true},
          {u"CUBERANKEDMEMBER", 3, 4, unavailable<cell_error::name>, whole_args, false, true},
          {u"CUBESET", 2, 5, unavailable<cell_error::name>, whole_args, false, true},
          {u"CUBESETCOUNT", 1, 1, unavailable<cell_error::name>, whole_args, false, true},
          {u"CUBEVALUE", 1, -1, unavailable<cell_error::name>, whole_args, false, true},
          {u"DETECTLANGUAGE", 1, 1, unavailable<kErrorConnect>, whole_args, false, true},
          {u"FIELDVALUE", 2, 2, unavailable<2049>, whole_args, false, true},
          {u"FILTERXML", 2, 2, unavailable<cell_error::value>, whole_args, false, true},
          {u"IMAGE", 1, 5, unavailable<kErrorConnect>, whole_args, false, true},
          {u"IMPORTCSV", 1, 6, unavailable<cell_error::value>, whole_args, false, true},
          {u"IMPORTTEXT", 1, 9, unavailable<cell_error::value>, whole_args, false, true},
          {u"REGISTER.ID", 2, 3, unavailable<cell_error::value>, whole_args, false, true},
          {u"RTD", 3, -1, unavailable<cell_error::na>, whole_args, true, true},
          {u"STOCKHISTORY", 2, -1, unavailable<kErrorConnect>, whole_args, false, true},
          {u"TRANSLATE", 1, 3, unavailable<kErrorConnect>, whole_args, false, true},
          {u"WEBSERVICE", 1, 1, unavailable<cell_error::value>, whole_args, false, true},
      });
}

}  // namespace qz::engine::calc
