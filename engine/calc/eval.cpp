// The evaluator: operators, references, names, coercions and the function table.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/calc/eval.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"
#include "vocab/text_fold.hpp"

namespace qz::engine::calc {

// ---- errors ----------------------------------------------------------------------------

StringView error_text(int32_t code) {
  return numfmt::error_literal(code);
}

std::optional<int32_t> error_from_text(StringView text) {
  static const int32_t codes[] = {cell_error::null,
                                  cell_error::div0,
                                  cell_error::value,
                                  cell_error::ref,
                                  cell_error::name,
                                  cell_error::num,
                                  cell_error::na,
                                  2043,
                                  2045,
                                  2046,
                                  2047,
                                  2048,
                                  2049,
                                  2050};
  for (int32_t c : codes)
    if (equals_text(text, error_text(c))) return c;
  return std::nullopt;
}

// ---- the function table -----------------------------------------------------------------

namespace {

/// The date and finance functions the application took over from its analysis add-in.
/// They kept the add-in's own argument checks, which take a number, a date or text but
/// refuse a Boolean, typed or from a cell, with #VALUE! (DATE, PMT and the other core
/// functions read TRUE as 1). ACCRINT's last argument is the one meant to be TRUE or FALSE.
void mark_add_in_functions(std::vector<FunctionInfo>& table) {
  static const std::pair<StringView, uint32_t> marks[] = {
      {u"ACCRINT", 0x7Fu},        {u"ACCRINTM", each_arg},  {u"AMORDEGRC", each_arg},
      {u"AMORLINC", each_arg},    {u"COUPDAYBS", each_arg}, {u"COUPDAYS", each_arg},
      {u"COUPDAYSNC", each_arg},  {u"COUPNCD", each_arg},   {u"COUPNUM", each_arg},
      {u"COUPPCD", each_arg},     {u"CUMIPMT", each_arg},   {u"CUMPRINC", each_arg},
      {u"DISC", each_arg},        {u"DOLLARDE", each_arg},  {u"DOLLARFR", each_arg},
      {u"DURATION", each_arg},    {u"EDATE", each_arg},     {u"EFFECT", each_arg},
      {u"EOMONTH", each_arg},     {u"INTRATE", each_arg},   {u"MDURATION", each_arg},
      {u"NETWORKDAYS", each_arg}, {u"NOMINAL", each_arg},   {u"ODDFPRICE", each_arg},
      {u"ODDFYIELD", each_arg},   {u"ODDLPRICE", each_arg}, {u"ODDLYIELD", each_arg},
      {u"PRICE", each_arg},       {u"PRICEDISC", each_arg}, {u"PRICEMAT", each_arg},
      {u"RECEIVED", each_arg},    {u"TBILLEQ", each_arg},   {u"TBILLPRICE", each_arg},
      {u"TBILLYIELD", each_arg},  {u"WEEKNUM", each_arg},   {u"WORKDAY", each_arg},
      {u"XIRR", each_arg},        {u"XNPV", each_arg},      {u"YEARFRAC", each_arg},
      {u"YIELD", each_arg},       {u"YIELDDISC", each_arg}, {u"YIELDMAT", each_arg},
  };
  for (auto& f : table)
    for (const auto& [name, args] : marks)
      if (StringView(f.name) == name) f.refused_booleans = args;
}

const std::vector<FunctionInfo>& table() {
  static const std::vector<FunctionInfo> t = [] {
    std::vector<FunctionInfo> v;
    add_math_functions(v);
    add_stat_functions(v);
    add_logic_functions(v);
    add_text_functions(v);
    add_date_functions(v);
    add_lookup_functions(v);
    add_finance_functions(v);
    add_distribution_functions(v);
    add_engineering_functions(v);
    add_database_functions(v);
    add_securities_functions(v);
    add_matrix_functions(v);
    add_text_split_functions(v);
    add_text_locale_functions(v);
    add_info_functions(v);
    add_array_functions(v);
    add_lambda_functions(v);
    add_regex_functions(v);
    add_group_functions(v);
    add_ets_functions(v);
    mark_add_in_functions(v);
    std::sort(v.begin(), v.end(), [](const FunctionInfo& a, const FunctionInfo& b) {
      return StringView(a.name) < StringView(b.name);
    });
    return v;
  }();
  return t;
}

}  // namespace

int32_t find_function(StringView upper_name) {
  const auto& t = table();
  auto it =
      std::lower_bound(t.begin(), t.end(), upper_name,
                       [](const FunctionInfo& f, StringView n) { return StringView(f.name) < n; });
  if (it == t.end() || StringView(it->name) != upper_name) return -1;
  return static_cast<int32_t>(it - t.begin());
}

bool function_is_volatile(int32_t index) {
  return index >= 0 && index < static_cast<int32_t>(table().size()) && table()[index].is_volatile;
}

std::vector<String> function_names() {
  std::vector<String> out;
  for (const auto& f : table()) out.emplace_back(f.name);
  return out;
}

namespace {

/// The functions files write with the "_xlfn." prefix: those the application added after
/// the file format was first published, which older versions must recognise as unknown.
constexpr const char16_t* kPrefixed[] = {
    u"ACOT",
    u"ACOTH",
    u"ANCHORARRAY",
    u"AGGREGATE",
    u"ARABIC",
    u"ARRAYTOTEXT",
    u"BASE",
    u"BETA.DIST",
    u"BETA.INV",
    u"BINOM.DIST",
    u"BINOM.DIST.RANGE",
    u"BINOM.INV",
    u"BITAND",
    u"BITLSHIFT",
    u"BITOR",
    u"BITRSHIFT",
    u"BITXOR",
    u"BYCOL",
    u"BYROW",
    u"CEILING.MATH",
    u"CEILING.PRECISE",
    u"CHISQ.DIST",
    u"CHISQ.DIST.RT",
    u"CHISQ.INV",
    u"CHISQ.INV.RT",
    u"CHISQ.TEST",
    u"CHOOSECOLS",
    u"CHOOSEROWS",
    u"COMBINA",
    u"CONCAT",
    u"CONFIDENCE.NORM",
    u"CONFIDENCE.T",
    u"COPILOT",
    u"COT",
    u"COTH",
    u"COVARIANCE.P",
    u"COVARIANCE.S",
    u"CSC",
    u"CSCH",
    u"DAYS",
    u"DECIMAL",
    u"DETECTLANGUAGE",
    u"DROP",
    u"ECMA.CEILING",
    u"ENCODEURL",
    u"ERF.PRECISE",
    u"ERFC.PRECISE",
    u"EXPAND",
    u"EXPON.DIST",
    u"F.DIST",
    u"F.DIST.RT",
    u"F.INV",
    u"F.INV.RT",
    u"F.TEST",
    u"FIELDVALUE",
    u"FILTERXML",
    u"FLOOR.MATH",
    u"FLOOR.PRECISE",
    u"FORECAST.ETS",
    u"FORECAST.ETS.CONFINT",
    u"FORECAST.ETS.SEASONALITY",
    u"FORECAST.ETS.STAT",
    u"FORECAST.LINEAR",
    u"FORMULATEXT",
    u"GAMMA",
    u"GAMMA.DIST",
    u"GAMMA.INV",
    u"GAMMALN.PRECISE",
    u"GAUSS",
    u"GROUPBY",
    u"HSTACK",
    u"HYPGEOM.DIST",
    u"IFNA",
    u"IFS",
    u"IMAGE",
    u"IMCOSH",
    u"IMCOT",
    u"IMCSC",
    u"IMCSCH",
    u"IMPORTCSV",
    u"IMPORTTEXT",
    u"IMSEC",
    u"IMSECH",
    u"IMSINH",
    u"IMTAN",
    u"ISFORMULA",
    u"ISO.CEILING",
    u"ISOMITTED",
    u"ISOWEEKNUM",
    u"LAMBDA",
    u"LET",
    u"LOGNORM.DIST",
    u"LOGNORM.INV",
    u"MAKEARRAY",
    u"MAP",
    u"MAXIFS",
    u"MINIFS",
    u"MODE.MULT",
    u"MODE.SNGL",
    u"MUNIT",
    u"NEGBINOM.DIST",
    u"NETWORKDAYS.INTL",
    u"NORM.DIST",
    u"NORM.INV",
    u"NORM.S.DIST",
    u"NORM.S.INV",
    u"NUMBERVALUE",
    u"PDURATION",
    u"PERCENTILE.EXC",
    u"PERCENTILE.INC",
    u"PERCENTOF",
    u"PERCENTRANK.EXC",
    u"PERCENTRANK.INC",
    u"PERMUTATIONA",
    u"PHI",
    u"PIVOTBY",
    u"POISSON.DIST",
    u"QUARTILE.EXC",
    u"QUARTILE.INC",
    u"RANDARRAY",
    u"RANK.AVG",
    u"RANK.EQ",
    u"REDUCE",
    u"REGEXEXTRACT",
    u"REGEXREPLACE",
    u"REGEXTEST",
    u"RRI",
    u"SCAN",
    u"SEC",
    u"SECH",
    u"SEQUENCE",
    u"SHEET",
    u"SHEETS",
    u"SINGLE",
    u"SKEW.P",
    u"SORTBY",
    u"STDEV.P",
    u"STDEV.S",
    u"STOCKHISTORY",
    u"SWITCH",
    u"T.DIST",
    u"T.DIST.2T",
    u"T.DIST.RT",
    u"T.INV",
    u"T.INV.2T",
    u"T.TEST",
    u"TAKE",
    u"TEXTAFTER",
    u"TEXTBEFORE",
    u"TEXTJOIN",
    u"TEXTSPLIT",
    u"TOCOL",
    u"TOROW",
    u"TRANSLATE",
    u"TRIMRANGE",
    u"UNICHAR",
    u"UNICODE",
    u"UNIQUE",
    u"VALUETOTEXT",
    u"VAR.P",
    u"VAR.S",
    u"VSTACK",
    u"WEBSERVICE",
    u"WEIBULL.DIST",
    u"WORKDAY.INTL",
    u"WRAPCOLS",
    u"WRAPROWS",
    u"XLOOKUP",
    u"XMATCH",
    u"XOR",
    u"Z.TEST",
};

/// The functions files write with "_xlfn._xlws.": those that came with spilled arrays and
/// belong to the worksheet alone.
constexpr const char16_t* kWorksheetPrefixed[] = {u"FILTER", u"SORT"};

/// The upper-case name without the file prefixes.
String bare_name(StringView name) {
  String upper = upper_text(name);
  for (;;) {
    StringView rest = upper;
    if (rest.substr(0, 6) == u"_XLFN." || rest.substr(0, 6) == u"_XLWS.")
      upper.erase(0, 6);
    else
      return upper;
  }
}

}  // namespace

bool function_not_computable(StringView name) {
  int32_t id = find_function(bare_name(name));
  return id >= 0 && table()[id].not_computable;
}

String function_file_name(StringView name) {
  String bare = bare_name(name);
  if (find_function(bare) < 0) return String(name);
  for (const char16_t* p : kWorksheetPrefixed)
    if (bare == p) return u"_xlfn._xlws." + bare;
  for (const char16_t* p : kPrefixed)
    if (bare == p) return u"_xlfn." + bare;
  return bare;
}

bool is_volatile(const Formula& f) {
  return f.is_volatile;
}

// ---- text and comparison helpers --------------------------------------------------------

bool text_equal(StringView a, StringView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (fold_case(a[i]) != fold_case(b[i])) return false;
  return true;
}

String upper_text(StringView s) {
  String out(s);
  for (auto& c : out) c = fold_case(c);
  return out;
}
String lower_text(StringView s) {
  String out(s);
  for (auto& c : out) c = unfold_case(c);
  return out;
}

namespace {
int compare_text(StringView a, StringView b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char16_t x = fold_case(a[i]), y = fold_case(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}
}  // namespace

bool numbers_equal(double a, double b) {
  if (a == b) return true;
  double scale = std::max(std::fabs(a), std::fabs(b));
  return std::fabs(a - b) <= scale * 1e-15;
}

int compare_values(const Value& a, const Value& b) {
  using K = Value::Kind;
  auto rank = [](K k) { return k == K::Number ? 0 : k == K::Text ? 1 : k == K::Boolean ? 2 : 3; };
  Value x = a, y = b;
  // An empty cell compares as the other side's kind of nothing.
  if (x.kind == K::Empty && y.kind == K::Empty) return 0;
  if (x.kind == K::Empty)
    x = y.kind == K::Text      ? Value::str({})
        : y.kind == K::Boolean ? Value::boolean(false)
                               : Value::num(0);
  if (y.kind == K::Empty)
    y = x.kind == K::Text      ? Value::str({})
        : x.kind == K::Boolean ? Value::boolean(false)
                               : Value::num(0);
  if (x.kind != y.kind) return rank(x.kind) < rank(y.kind) ? -1 : 1;
  switch (x.kind) {
    case K::Number:
      if (numbers_equal(x.number, y.number)) return 0;
      return x.number < y.number ? -1 : 1;
    case K::Boolean:
      return x.number == y.number ? 0 : x.number < y.number ? -1 : 1;
    case K::Text:
      return compare_text(x.text, y.text);
    default:
      return 0;
  }
}

String number_to_text(double d) {
  if (d == 0) return u"0";
  // Fifteen significant digits, in fixed form while that stays short (0.00001, 123.45),
  // scientific beyond (1E+15, 1.23456789012345E-05).
  char buf[48];
  std::snprintf(buf, sizeof buf, "%.14E", d);
  int e10 = std::atoi(std::strchr(buf, 'E') + 1);
  if (e10 >= -9 && e10 < 15) {
    std::snprintf(buf, sizeof buf, "%.*f", std::max(0, 14 - e10), d);
    std::string t(buf);
    if (t.find('.') != std::string::npos) {
      while (t.back() == '0') t.pop_back();
      if (t.back() == '.') t.pop_back();
    }
    if (t.size() <= 17 + (d < 0)) return u16(t);
  }
  std::snprintf(buf, sizeof buf, "%.14E", d);
  std::string t(buf);
  size_t e = t.find('E');
  std::string mant = t.substr(0, e), exp = t.substr(e);
  while (mant.back() == '0') mant.pop_back();
  if (mant.back() == '.') mant.pop_back();
  // "E+020" -> "E+20"
  std::string digits = exp.substr(2);
  while (digits.size() > 2 && digits[0] == '0') digits.erase(0, 1);
  return u16(mant + exp.substr(0, 2) + digits);
}

double round_half_away(double x, int digits) {
  if (!std::isfinite(x)) return x;
  if (digits > 15) return x;
  double scale = std::pow(10.0, std::abs(digits));
  double y = digits >= 0 ? x * scale : x / scale;
  // Work on the value at 15 significant digits so that 2.675 (stored a hair below) counts
  // as the half it was written as.
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15g", y);
  double z = std::strtod(buf, nullptr);
  double r = std::fabs(z);
  double f = std::floor(r);
  double frac = r - f;
  if (frac >= 0.5 - 1e-12) f += 1;
  f = std::copysign(f, z);
  return digits >= 0 ? f / scale : f * scale;
}

// ---- criteria ------------------------------------------------------------------------------

bool wildcard_match(StringView p, StringView t) {
  // Iterative matching with backtracking on the last '*'.
  size_t pi = 0, ti = 0, star = StringView::npos, mark = 0;
  while (ti < t.size()) {
    if (pi < p.size() && p[pi] == u'~' && pi + 1 < p.size() &&
        (p[pi + 1] == u'*' || p[pi + 1] == u'?' || p[pi + 1] == u'~')) {
      if (fold_case(p[pi + 1]) == fold_case(t[ti])) {
        pi += 2;
        ++ti;
        continue;
      }
    } else if (pi < p.size() && p[pi] == u'*') {
      star = pi++;
      mark = ti;
      continue;
    } else if (pi < p.size() && (p[pi] == u'?' || fold_case(p[pi]) == fold_case(t[ti]))) {
      ++pi;
      ++ti;
      continue;
    }
    if (star == StringView::npos) return false;
    pi = star + 1;
    ti = ++mark;
  }
  while (pi < p.size() && p[pi] == u'*') ++pi;
  return pi == p.size();
}

Criterion::Criterion(const Value& c) {
  using K = Value::Kind;
  if (c.kind != K::Text) {
    operand_ = c.kind == K::Empty ? Value::num(0) : c;
    if (operand_.kind == K::Number) number_ = operand_.number;
    return;
  }
  StringView s = c.text;
  if (s.substr(0, 2) == u"<=")
    cmp_ = Cmp::Le, s = s.substr(2);
  else if (s.substr(0, 2) == u">=")
    cmp_ = Cmp::Ge, s = s.substr(2);
  else if (s.substr(0, 2) == u"<>")
    cmp_ = Cmp::Ne, s = s.substr(2);
  else if (s.substr(0, 1) == u"<")
    cmp_ = Cmp::Lt, s = s.substr(1);
  else if (s.substr(0, 1) == u">")
    cmp_ = Cmp::Gt, s = s.substr(1);
  else if (s.substr(0, 1) == u"=")
    cmp_ = Cmp::Eq, s = s.substr(1);
  if (s.empty()) {
    empty_operand_ = true;
    operand_ = Value::str({});
    return;
  }
  auto entry = numfmt::parse_entry(s, false);
  if (entry.type == numfmt::Entry::Type::Number) {
    number_ = entry.number;
    operand_ = Value::num(entry.number);
  } else if (entry.type == numfmt::Entry::Type::Boolean) {
    operand_ = Value::boolean(entry.number != 0);
  } else if (entry.type == numfmt::Entry::Type::Error) {
    operand_ = Value::error(static_cast<int32_t>(entry.number));
  } else {
    operand_ = Value::str(String(s));
    wildcard_ = s.find_first_of(u"*?~") != StringView::npos;
  }
}

bool Criterion::matches_empty() const {
  return matches(Value::empty());
}

bool Criterion::matches(const Value& v) const {
  using K = Value::Kind;
  bool eq = false;
  if (empty_operand_) {
    // "=" matches empty cells only, "" matches empty cells and empty text, "<>" anything else.
    bool blank = v.kind == K::Empty || (v.kind == K::Text && v.text.empty());
    if (cmp_ == Cmp::Ne) return v.kind != K::Empty;
    if (cmp_ == Cmp::Eq) return blank;
    return false;
  }
  switch (operand_.kind) {
    case K::Number: {
      double x;
      if (v.kind == K::Number) {
        x = v.number;
      } else if (v.kind == K::Text && (cmp_ == Cmp::Eq || cmp_ == Cmp::Ne)) {
        auto e = numfmt::parse_entry(v.text, false);
        if (e.type != numfmt::Entry::Type::Number) return cmp_ == Cmp::Ne;
        x = e.number;
      } else {
        return cmp_ == Cmp::Ne;
      }
      double y = *number_;
      switch (cmp_) {
        case Cmp::Eq:
          return numbers_equal(x, y);
        case Cmp::Ne:
          return !numbers_equal(x, y);
        case Cmp::Lt:
          return x < y && !numbers_equal(x, y);
        case Cmp::Le:
          return x <= y || numbers_equal(x, y);
        case Cmp::Gt:
          return x > y && !numbers_equal(x, y);
        case Cmp::Ge:
          return x >= y || numbers_equal(x, y);
      }
      return false;
    }
    case K::Text: {
      if (v.kind != K::Text) return cmp_ == Cmp::Ne;
      if (cmp_ == Cmp::Eq || cmp_ == Cmp::Ne) {
        eq = wildcard_ ? wildcard_match(operand_.text, v.text) : text_equal(operand_.text, v.text);
        return cmp_ == Cmp::Eq ? eq : !eq;
      }
      int c = compare_text(v.text, operand_.text);
      switch (cmp_) {
        case Cmp::Lt:
          return c < 0;
        case Cmp::Le:
          return c <= 0;
        case Cmp::Gt:
          return c > 0;
        case Cmp::Ge:
          return c >= 0;
        default:
          return false;
      }
    }
    case K::Boolean:
    case K::Error: {
      if (v.kind != operand_.kind) return cmp_ == Cmp::Ne;
      int c = v.number == operand_.number ? 0 : v.number < operand_.number ? -1 : 1;
      switch (cmp_) {
        case Cmp::Eq:
          return c == 0;
        case Cmp::Ne:
          return c != 0;
        case Cmp::Lt:
          return c < 0;
        case Cmp::Le:
          return c <= 0;
        case Cmp::Gt:
          return c > 0;
        case Cmp::Ge:
          return c >= 0;
      }
      return false;
    }
    default:
      return false;
  }
}

// ---- arguments ---------------------------------------------------------------------------

bool Args::missing(size_t i) const {
  return i >= nodes_.size() || f_.nodes[nodes_[i]].kind == NodeKind::Missing;
}

const Operand& Args::get(size_t i) {
  if (!cache_[i]) cache_[i] = ev_.eval(f_, nodes_[i]);
  return *cache_[i];
}

Operand Args::get_array(size_t i) {
  if (ev_.array_mode()) return get(i);
  return ev_.eval_array_mode(f_, nodes_[i]);
}

// ---- conversions -------------------------------------------------------------------------

std::optional<double> Evaluator::text_to_number(StringView s) {
  auto e = numfmt::parse_entry(s, false);
  if (e.type == numfmt::Entry::Type::Number && !e.apostrophe) {
    // Dates and times typed as text read in the workbook's own date system.
    if (e.implied_format && numfmt::is_date_format(*e.implied_format) && ctx_.date1904())
      return numfmt::parse_entry(s, true).number;
    return e.number;
  }
  return std::nullopt;
}

double Evaluator::to_number(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Number:
      return v.number;
    case Value::Kind::Boolean:
      return v.number;
    case Value::Kind::Empty:
      return 0;
    case Value::Kind::Error:
      raise(v.error_code());
    case Value::Kind::Text: {
      auto e = numfmt::parse_entry(v.text, false);
      if (e.type == numfmt::Entry::Type::Number && !e.apostrophe) return e.number;
      raise(cell_error::value);
    }
  }
  raise(cell_error::value);
}

String Evaluator::to_text(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Number:
      return number_to_text(v.number);
    case Value::Kind::Boolean:
      return v.number != 0 ? u"TRUE" : u"FALSE";
    case Value::Kind::Empty:
      return String();
    case Value::Kind::Error:
      raise(v.error_code());
    case Value::Kind::Text:
      return v.text;
  }
  return String();
}

bool Evaluator::to_bool(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Number:
      return v.number != 0;
    case Value::Kind::Boolean:
      return v.number != 0;
    case Value::Kind::Empty:
      return false;
    case Value::Kind::Error:
      raise(v.error_code());
    case Value::Kind::Text:
      if (text_equal(v.text, u"TRUE")) return true;
      if (text_equal(v.text, u"FALSE")) return false;
      raise(cell_error::value);
  }
  return false;
}

std::optional<Area> Evaluator::clip(const Area& a) {
  CellRef ext = ctx_.used_extent(a.sheet);
  Area c = a;
  c.rect.row2 = std::min(c.rect.row2, ext.row);
  c.rect.col2 = std::min(c.rect.col2, ext.col);
  if (c.rect.row2 < c.rect.row1 || c.rect.col2 < c.rect.col1) return std::nullopt;
  return c;
}

Value Evaluator::scalar(const Operand& o) {
  switch (o.kind) {
    case Operand::Kind::Value:
      return o.value;
    case Operand::Kind::Lambda:
      // A function is no value a cell can show.
      return Value::error(kErrorCalc);
    case Operand::Kind::Array:
      if (o.array->cells.empty()) return Value::error(cell_error::value);
      return o.array->cells[0];
    case Operand::Kind::Ref: {
      if (o.areas.size() != 1) return Value::error(cell_error::value);
      const Area& a = o.areas[0];
      if (a.single()) return cell(a.sheet, a.rect.row1, a.rect.col1);
      // Implicit intersection: the cell of the range in the formula's row or column.
      if (a.rect.col1 == a.rect.col2 && origin_.row >= a.rect.row1 && origin_.row <= a.rect.row2)
        return cell(a.sheet, origin_.row, a.rect.col1);
      if (a.rect.row1 == a.rect.row2 && origin_.col >= a.rect.col1 && origin_.col <= a.rect.col2)
        return cell(a.sheet, a.rect.row1, origin_.col);
      return Value::error(cell_error::value);
    }
  }
  return Value::error(cell_error::value);
}

Matrix Evaluator::matrix(const Operand& o) {
  if (o.is_array()) return *o.array;
  if (o.is_value() || o.is_lambda()) {
    Matrix m(1, 1);
    m.cells[0] = scalar(o);
    return m;
  }
  if (o.areas.size() != 1) {
    Matrix m(1, 1);
    m.cells[0] = Value::error(cell_error::value);
    return m;
  }
  const Area& a = o.areas[0];
  auto c = clip(a);
  // Whole columns and rows stop at the used cells; a block reaching past them keeps its
  // size when it is small, so that A1:A10 is always ten values.
  Rect r = a.rect;
  if (static_cast<int64_t>(a.rows()) * a.cols() > 1000000) {
    if (!c) return Matrix(1, 1);
    r.row2 = std::max(c->rect.row2, r.row1);
    r.col2 = std::max(c->rect.col2, r.col1);
  }
  Matrix m(r.row2 - r.row1 + 1, r.col2 - r.col1 + 1);
  if (c) {
    Rect within = r;
    within.row2 = std::min(r.row2, c->rect.row2);
    within.col2 = std::min(r.col2, c->rect.col2);
    if (within.row2 >= within.row1 && within.col2 >= within.col1)
      ctx_.for_each_value(a.sheet, within, [&](CellRef cr, const Value& v) {
        m.at(cr.row - r.row1, cr.col - r.col1) = v;
      });
  }
  return m;
}

// ---- references and names ---------------------------------------------------------------

Operand Evaluator::reference(const Formula& f, const RefInfo& r) {
  if (r.external && !r.deleted && !r.sheet_deleted && !r.name_only && r.sheet2 == kNoSheet)
    return external(f, r);
  if (r.external || r.deleted || r.sheet_deleted) return Value::error(cell_error::ref);
  int32_t r1 = r.a.row_abs ? r.a.row : r.a.row + origin_.row;
  int32_t c1 = r.a.col_abs ? r.a.col : r.a.col + origin_.col;
  int32_t r2 = r.b.row_abs ? r.b.row : r.b.row + origin_.row;
  int32_t c2 = r.b.col_abs ? r.b.col : r.b.col + origin_.col;
  Rect rect;
  switch (r.kind) {
    case RefKind::Cell:
      rect = {r1, c1, r1, c1};
      break;
    case RefKind::Area:
      rect = {std::min(r1, r2), std::min(c1, c2), std::max(r1, r2), std::max(c1, c2)};
      break;
    case RefKind::Cols:
      rect = {0, std::min(c1, c2), kMaxRows - 1, std::max(c1, c2)};
      break;
    case RefKind::Rows:
      rect = {std::min(r1, r2), 0, std::max(r1, r2), kMaxCols - 1};
      break;
  }
  if (rect.row1 < 0 || rect.col1 < 0 || rect.row2 >= kMaxRows || rect.col2 >= kMaxCols)
    return Value::error(cell_error::ref);
  SheetId sheet = r.sheet == kNoSheet ? default_sheet_ : r.sheet;
  if (r.sheet2 != kNoSheet) {
    std::vector<SheetId> ids = ctx_.sheets().sheets_between(r.sheet, r.sheet2);
    if (ids.empty()) return Value::error(cell_error::ref);
    std::vector<Area> areas;
    for (SheetId id : ids) areas.push_back({id, rect});
    return Operand::ref(std::move(areas));
  }
  return Operand::ref({Area{sheet, rect}});
}

Operand Evaluator::external(const Formula& f, const RefInfo& r) {
  // Another workbook's cells come as values: a block of them as an array.
  int32_t r1 = r.a.row_abs ? r.a.row : r.a.row + origin_.row;
  int32_t c1 = r.a.col_abs ? r.a.col : r.a.col + origin_.col;
  int32_t r2 = r.kind == RefKind::Cell ? r1 : r.b.row_abs ? r.b.row : r.b.row + origin_.row;
  int32_t c2 = r.kind == RefKind::Cell ? c1 : r.b.col_abs ? r.b.col : r.b.col + origin_.col;
  if (r.kind == RefKind::Cols || r.kind == RefKind::Rows) return Value::error(cell_error::ref);
  if (r1 > r2) std::swap(r1, r2);
  if (c1 > c2) std::swap(c1, c2);
  if (r1 < 0 || c1 < 0 || r2 >= kMaxRows || c2 >= kMaxCols ||
      static_cast<int64_t>(r2 - r1 + 1) * (c2 - c1 + 1) > 100000)
    return Value::error(cell_error::ref);
  StringView prefix = f.text(r.external);
  Matrix m(r2 - r1 + 1, c2 - c1 + 1);
  for (int32_t row = r1; row <= r2; ++row)
    for (int32_t col = c1; col <= c2; ++col) {
      std::optional<Value> v = ctx_.external_value(prefix, CellRef{row, col});
      if (!v) return Value::error(cell_error::ref);
      m.at(row - r1, col - c1) = std::move(*v);
    }
  if (m.rows == 1 && m.cols == 1) return m.at(0, 0);
  return Operand::arr(std::move(m));
}

Operand Evaluator::name(const Formula& f, const Node& n) {
  if (n.ref == kNoRef) {
    StringView text = f.text(n.str);
    if (const Binding* b = bound(text)) return b->omitted ? Operand(Value::empty()) : b->value;
    // A built-in function passed by name to MAP, BYROW and the like ("_xleta.SUM").
    if (text.size() > 7 && upper_text(text.substr(0, 7)) == u"_XLETA.") {
      int32_t id = find_function(upper_text(text.substr(7)));
      if (id < 0) return Value::error(cell_error::name);
      auto l = std::make_shared<Lambda>();
      l->builtin = id;
      return Operand::function(std::move(l));
    }
  }
  SheetId scope = sheet_;
  if (n.ref != kNoRef) {
    const RefInfo& q = f.refs[n.ref];
    if (q.external || q.sheet_deleted) return Value::error(cell_error::ref);
    if (q.sheet != kNoSheet) scope = q.sheet;
  }
  auto def = ctx_.name(f.text(n.str), scope);
  if (!def || !def->formula) {
    // A table's name alone stands for its data rows.
    if (n.ref == kNoRef)
      if (auto t = ctx_.table(f.text(n.str))) return Operand::ref({Area{t->sheet, t->data()}});
    return Value::error(cell_error::name);
  }
  if (name_depth > 32) return Value::error(cell_error::name);
  ++name_depth;
  SheetId saved = default_sheet_;
  default_sheet_ = def->home != kNoSheet ? def->home : sheet_;
  // A name sees none of the names LET and LAMBDA bound where it is used.
  Scope saved_scope = std::move(scope_);
  scope_ = nullptr;
  // A LAMBDA the name holds points into its formula, which must outlive the call.
  keep_alive_.push_back(def->formula);
  Operand out;
  try {
    out = eval(*def->formula, def->formula->root());
  } catch (...) {
    default_sheet_ = saved;
    scope_ = std::move(saved_scope);
    --name_depth;
    throw;
  }
  default_sheet_ = saved;
  scope_ = std::move(saved_scope);
  --name_depth;
  return out;
}

// ---- operators ---------------------------------------------------------------------------

namespace {

Value arithmetic(Op op, const Value& a, const Value& b) {
  if (a.is_error()) return a;
  if (b.is_error()) return b;
  double x, y;
  try {
    x = Evaluator::to_number(a);
    y = Evaluator::to_number(b);
  } catch (const EvalError& e) {
    return Value::error(e.code);
  }
  double r = 0;
  switch (op) {
    case Op::Add:
      r = x + y;
      break;
    case Op::Sub:
      r = x - y;
      break;
    case Op::Mul:
      r = x * y;
      break;
    case Op::Div:
      if (y == 0) return Value::error(cell_error::div0);
      r = x / y;
      break;
    case Op::Pow:
      if (x == 0 && y == 0) return Value::error(cell_error::num);
      if (x == 0 && y < 0) return Value::error(cell_error::div0);
      r = std::pow(x, y);
      break;
    default:
      break;
  }
  if (!std::isfinite(r)) return Value::error(cell_error::num);
  return Value::num(r);
}

Value binary_value(Op op, const Value& a, const Value& b) {
  switch (op) {
    case Op::Add:
    case Op::Sub:
    case Op::Mul:
    case Op::Div:
    case Op::Pow:
      return arithmetic(op, a, b);
    case Op::Concat: {
      if (a.is_error()) return a;
      if (b.is_error()) return b;
      return Value::str(Evaluator::to_text(a) + Evaluator::to_text(b));
    }
    case Op::Eq:
    case Op::Ne:
    case Op::Lt:
    case Op::Le:
    case Op::Gt:
    case Op::Ge: {
      if (a.is_error()) return a;
      if (b.is_error()) return b;
      int c = compare_values(a, b);
      bool r = op == Op::Eq   ? c == 0
               : op == Op::Ne ? c != 0
               : op == Op::Lt ? c < 0
               : op == Op::Le ? c <= 0
               : op == Op::Gt ? c > 0
                              : c >= 0;
      return Value::boolean(r);
    }
    default:
      return Value::error(cell_error::value);
  }
}

/// Element-wise application over two blocks, repeating single rows or columns; positions
/// outside both get #N/A.
template <class F>
Matrix elementwise(const Matrix& a, const Matrix& b, F&& f) {
  int32_t rows = std::max(a.rows, b.rows), cols = std::max(a.cols, b.cols);
  Matrix m(rows, cols);
  auto pick = [](const Matrix& x, int32_t r, int32_t c, bool& ok) -> const Value& {
    int32_t rr = x.rows == 1 ? 0 : r, cc = x.cols == 1 ? 0 : c;
    ok = rr < x.rows && cc < x.cols;
    return ok ? x.at(rr, cc) : x.cells[0];
  };
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c) {
      bool oka, okb;
      const Value& x = pick(a, r, c, oka);
      const Value& y = pick(b, r, c, okb);
      m.at(r, c) = oka && okb ? f(x, y) : Value::error(cell_error::na);
    }
  return m;
}

}  // namespace

Operand Evaluator::reference_op(Op op, const Operand& a, const Operand& b) {
  if (a.is_value() && a.value.is_error()) return a;
  if (b.is_value() && b.value.is_error()) return b;
  if (!a.is_ref() || !b.is_ref()) return Value::error(cell_error::value);
  if (op == Op::Union) {
    std::vector<Area> areas = a.areas;
    areas.insert(areas.end(), b.areas.begin(), b.areas.end());
    return Operand::ref(std::move(areas));
  }
  if (op == Op::Range) {
    SheetId sheet = a.areas[0].sheet;
    Rect r = a.areas[0].rect;
    for (const auto* side : {&a, &b})
      for (const Area& x : side->areas) {
        if (x.sheet != sheet) return Value::error(cell_error::value);
        r.row1 = std::min(r.row1, x.rect.row1);
        r.col1 = std::min(r.col1, x.rect.col1);
        r.row2 = std::max(r.row2, x.rect.row2);
        r.col2 = std::max(r.col2, x.rect.col2);
      }
    return Operand::ref({Area{sheet, r}});
  }
  // Intersection.
  std::vector<Area> out;
  for (const Area& x : a.areas)
    for (const Area& y : b.areas) {
      if (x.sheet != y.sheet) continue;
      Rect r{std::max(x.rect.row1, y.rect.row1), std::max(x.rect.col1, y.rect.col1),
             std::min(x.rect.row2, y.rect.row2), std::min(x.rect.col2, y.rect.col2)};
      if (r.row1 <= r.row2 && r.col1 <= r.col2) out.push_back({x.sheet, r});
    }
  if (out.empty()) return Value::error(cell_error::null);
  return Operand::ref(std::move(out));
}

Operand Evaluator::apply(Op op, const Operand& a, const Operand& b) {
  if (op == Op::Range || op == Op::Union || op == Op::Intersect) return reference_op(op, a, b);
  auto multi = [&](const Operand& o) {
    return o.is_array() ||
           (array_mode_ && o.is_ref() && !(o.areas.size() == 1 && o.areas[0].single()));
  };
  if (!multi(a) && !multi(b)) return binary_value(op, scalar(a), scalar(b));
  Matrix ma = matrix(a), mb = matrix(b);
  return Operand::arr(
      elementwise(ma, mb, [op](const Value& x, const Value& y) { return binary_value(op, x, y); }));
}

Operand Evaluator::binary(const Formula& f, const Node& n, uint32_t lhs, uint32_t rhs) {
  // Long chains such as 1+2+3+...+n nest to the left; walk down them in a loop rather than
  // by recursion, so that a formula of thousands of terms needs no deep stack. Most
  // operators have no chain to their left: they need no list of it.
  const uint32_t self = static_cast<uint32_t>(&n - f.nodes.data());
  if (f.nodes[lhs].kind != NodeKind::Binary) {
    Operand a = eval(f, lhs);
    return apply(n.op, a, eval(f, self - 1));
  }
  std::vector<uint32_t> chain{self};
  uint32_t left = lhs;
  while (f.nodes[left].kind == NodeKind::Binary && chain.size() < 100000) {
    chain.push_back(left);
    uint32_t r = left - 1;
    left = r - f.nodes[r].size;
  }
  (void)rhs;
  Operand acc = eval(f, left);
  for (size_t k = chain.size(); k-- > 0;) {
    uint32_t node = chain[k];
    uint32_t r = node - 1;
    acc = apply(f.nodes[node].op, acc, eval(f, r));
  }
  return acc;
}

Operand Evaluator::unary(const Formula& f, const Node& n, uint32_t child) {
  Operand o = eval(f, child);
  if (n.op == Op::Plus) return o;
  if (n.op == Op::At) return scalar(o);
  auto negate = [](const Value& v) -> Value {
    if (v.is_error()) return v;
    try {
      return Value::num(-Evaluator::to_number(v));
    } catch (const EvalError& e) {
      return Value::error(e.code);
    }
  };
  bool multi =
      o.is_array() || (array_mode_ && o.is_ref() && !(o.areas.size() == 1 && o.areas[0].single()));
  if (!multi) return negate(scalar(o));
  Matrix m = matrix(o);
  for (Value& v : m.cells) v = negate(v);
  return Operand::arr(std::move(m));
}

Operand Evaluator::array_constant(const Formula& f, uint32_t i) {
  const Node& n = f.nodes[i];
  std::vector<uint32_t> kids;
  f.children(i, kids);
  int32_t cols = n.cols > 0 ? n.cols : 1;
  Matrix m(static_cast<int32_t>(kids.size()) / cols, cols);
  for (size_t k = 0; k < kids.size(); ++k) {
    const Node& e = f.nodes[kids[k]];
    switch (e.kind) {
      case NodeKind::Number:
        m.cells[k] = Value::num(e.number);
        break;
      case NodeKind::Text:
        m.cells[k] = Value::str(f.text(e.str));
        break;
      case NodeKind::Boolean:
        m.cells[k] = Value::boolean(e.number != 0);
        break;
      case NodeKind::Error:
        m.cells[k] = Value::error(static_cast<int32_t>(e.number));
        break;
      default:
        m.cells[k] = Value::error(cell_error::value);
        break;
    }
  }
  return Operand::arr(std::move(m));
}

// ---- LET and LAMBDA ----------------------------------------------------------------------

String Evaluator::binding_name(StringView text) {
  String upper = upper_text(text);
  if (StringView(upper).substr(0, 6) == u"_XLPM.") upper.erase(0, 6);
  return upper;
}

const Binding* Evaluator::bound(StringView text) const {
  if (!scope_) return nullptr;
  String key = binding_name(text);
  for (const Binding* b = scope_.get(); b; b = b->outer.get())
    if (b->name == key) return b;
  return nullptr;
}

Operand Evaluator::eval_in(const Scope& s, const Formula& f, uint32_t i) {
  Scope saved = std::move(scope_);
  scope_ = s;
  Operand out;
  try {
    out = eval(f, i);
  } catch (...) {
    scope_ = std::move(saved);
    throw;
  }
  scope_ = std::move(saved);
  return out;
}

Operand Evaluator::make_lambda(const Formula& f, const std::vector<uint32_t>& kids) {
  if (kids.empty()) return Value::error(cell_error::value);
  auto l = std::make_shared<Lambda>();
  l->formula = &f;
  l->body = kids.back();
  l->scope = scope_;
  l->sheet = default_sheet_;
  for (size_t k = 0; k + 1 < kids.size(); ++k) {
    const Node& p = f.nodes[kids[k]];
    if (p.kind != NodeKind::Name || p.ref != kNoRef) return Value::error(cell_error::value);
    l->params.push_back(binding_name(f.text(p.str)));
  }
  return Operand::function(std::move(l));
}

Operand Evaluator::invoke(const Lambda& l, std::vector<Operand> args, std::vector<bool> omitted) {
  omitted.resize(args.size(), false);
  if (l.builtin >= 0) {
    // A built-in function called with values: arguments over a formula of one placeholder.
    static const Formula placeholder = [] {
      Formula p;
      p.nodes.push_back(Node{});
      return p;
    }();
    const FunctionInfo& info = table()[l.builtin];
    int count = static_cast<int>(args.size());
    if (count < info.min_args || (info.max_args >= 0 && count > info.max_args))
      return Value::error(cell_error::value);
    Args call_args(*this, placeholder, std::vector<uint32_t>(args.size(), 0));
    for (size_t k = 0; k < args.size(); ++k) call_args.set(k, std::move(args[k]));
    try {
      return info.impl(call_args);
    } catch (const EvalError& e) {
      return Value::error(e.code);
    }
  }
  if (args.size() > l.params.size()) return Value::error(cell_error::value);
  // Calls nest as deep as a recursive LAMBDA goes; past this the application gives up too.
  if (invoke_depth_ >= 200) return Value::error(cell_error::num);
  Scope s = l.scope;
  for (size_t k = 0; k < l.params.size(); ++k) {
    bool gone = k >= args.size() || omitted[k];
    s = std::make_shared<Binding>(
        Binding{l.params[k], gone ? Operand(Value::empty()) : std::move(args[k]), gone, s});
  }
  SheetId saved = default_sheet_;
  default_sheet_ = l.sheet;
  ++invoke_depth_;
  Operand out;
  try {
    out = eval_in(s, *l.formula, l.body);
  } catch (...) {
    default_sheet_ = saved;
    --invoke_depth_;
    throw;
  }
  default_sheet_ = saved;
  --invoke_depth_;
  return out;
}

Operand Evaluator::invoke_node(const Formula& f, uint32_t i, const Operand& callee,
                               uint32_t first_arg) {
  if (!callee.is_lambda()) {
    if (callee.is_value() && callee.value.is_error()) return callee;
    return Value::error(cell_error::value);
  }
  std::vector<uint32_t> kids;
  f.children(i, kids);
  std::vector<Operand> args;
  std::vector<bool> omitted;
  for (size_t k = first_arg; k < kids.size(); ++k) {
    bool missing = f.nodes[kids[k]].kind == NodeKind::Missing;
    omitted.push_back(missing);
    args.push_back(missing ? Operand(Value::empty()) : eval(f, kids[k]));
  }
  return invoke(*callee.lambda, std::move(args), std::move(omitted));
}

/// A call of a name that is no built-in function: a LAMBDA bound by LET or held by a
/// defined name.
Operand Evaluator::call_by_name(const Formula& f, uint32_t i) {
  const Node& n = f.nodes[i];
  String name(f.text(n.str));
  Operand callee;
  if (const Binding* b = bound(name)) {
    callee = b->value;
  } else {
    String bare = name;
    if (upper_text(StringView(bare).substr(0, 7)) == u"_XLUDF.") bare.erase(0, 7);
    auto def = ctx_.name(bare, sheet_);
    if (!def || !def->formula) return Value::error(cell_error::name);
    Node probe;
    probe.kind = NodeKind::Name;
    probe.ref = kNoRef;
    Formula holder;
    holder.pool.push_back(bare);
    probe.str = 1;
    try {
      callee = this->name(holder, probe);
    } catch (const EvalError& e) {
      return Value::error(e.code);
    }
  }
  if (!callee.is_lambda()) return Value::error(cell_error::name);
  try {
    return invoke_node(f, i, callee, 0);
  } catch (const EvalError& e) {
    return Value::error(e.code);
  }
}

Operand Evaluator::call(const Formula& f, uint32_t i) {
  const Node& n = f.nodes[i];
  if (n.func < 0) return call_by_name(f, i);
  const FunctionInfo& info = table()[n.func];
  std::vector<uint32_t> kids;
  f.children(i, kids);
  int count = static_cast<int>(kids.size());
  if (count < info.min_args || (info.max_args >= 0 && count > info.max_args))
    return Value::error(cell_error::value);
  Args args(*this, f, std::move(kids));
  try {
    if (info.scalar_args) {
      Operand lifted;
      if (lift(info, args, lifted)) return lifted;
    }
    return run(info, args);
  } catch (const EvalError& e) {
    return Value::error(e.code);
  }
}

bool Evaluator::lift(const FunctionInfo& info, Args& args, Operand& out) {
  auto multi = [&](const Operand& o) {
    return o.is_array() ||
           (array_mode_ && o.is_ref() && !(o.areas.size() == 1 && o.areas[0].single()));
  };
  std::vector<std::pair<size_t, Matrix>> blocks;
  int32_t rows = 1, cols = 1;
  for (size_t i = 0; i < args.size(); ++i) {
    uint32_t bit = i >= 31 ? (1u << 31) : (1u << i);
    if (!(info.scalar_args & bit) || args.missing(i)) continue;
    const Operand& o = args.get(i);
    if (!multi(o)) continue;
    Matrix m = matrix(o);
    rows = std::max(rows, m.rows);
    cols = std::max(cols, m.cols);
    blocks.emplace_back(i, std::move(m));
  }
  if (blocks.empty()) return false;
  Matrix result(rows, cols);
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c) {
      Args one = args;
      bool inside = true;
      for (const auto& [i, m] : blocks) {
        int32_t rr = m.rows == 1 ? 0 : r, cc = m.cols == 1 ? 0 : c;
        if (rr >= m.rows || cc >= m.cols) {
          inside = false;
          break;
        }
        one.set(i, m.at(rr, cc));
      }
      if (!inside) {
        result.at(r, c) = Value::error(cell_error::na);
        continue;
      }
      try {
        result.at(r, c) = scalar(run(info, one));
      } catch (const EvalError& e) {
        result.at(r, c) = Value::error(e.code);
      }
    }
  out = result.cells.size() == 1 ? Operand(result.cells[0]) : Operand::arr(std::move(result));
  return true;
}

Operand Evaluator::run(const FunctionInfo& info, Args& args) {
  for (size_t i = 0; info.refused_booleans && i < args.size(); ++i) {
    uint32_t bit = i >= 31 ? (1u << 31) : (1u << i);
    if (!(info.refused_booleans & bit) || args.missing(i)) continue;
    const Operand& o = args.get(i);
    Value v;
    if (o.is_value())
      v = o.value;
    else if (o.is_ref() && (info.scalar_args & bit))
      v = scalar(o);  // the one cell the function itself goes on to read
    // An error met first is the function's own answer, read in argument order.
    if (v.kind == Value::Kind::Error) break;
    if (v.kind == Value::Kind::Boolean) raise(cell_error::value);
  }
  return info.impl(args);
}

Operand Evaluator::eval_array_mode(const Formula& f, uint32_t i) {
  bool saved = array_mode_;
  array_mode_ = true;
  Operand o;
  try {
    o = eval(f, i);
  } catch (...) {
    array_mode_ = saved;
    throw;
  }
  array_mode_ = saved;
  return o;
}

Operand Evaluator::eval(const Formula& f, uint32_t i) {
  const Node& n = f.nodes[i];
  switch (n.kind) {
    case NodeKind::Number:
      return Value::num(n.number);
    case NodeKind::Text:
      return Value::str(f.text(n.str));
    case NodeKind::Boolean:
      return Value::boolean(n.number != 0);
    case NodeKind::Error:
      return Value::error(static_cast<int32_t>(n.number));
    case NodeKind::Ref:
      return reference(f, f.refs[n.ref]);
    case NodeKind::Name:
      return name(f, n);
    case NodeKind::Func:
      return call(f, i);
    case NodeKind::Missing:
      return Value::empty();
    case NodeKind::Opaque:
      return structured_reference(*this, f.text(n.str));
    case NodeKind::Array:
      return array_constant(f, i);
    case NodeKind::Invoke: {
      std::vector<uint32_t> kids;
      f.children(i, kids);
      try {
        return invoke_node(f, i, eval(f, kids[0]), 1);
      } catch (const EvalError& e) {
        return Value::error(e.code);
      }
    }
    case NodeKind::Paren:
      return eval(f, i - 1);
    case NodeKind::Spill: {
      Operand anchor = eval(f, i - 1);
      if (!anchor.is_ref() || anchor.areas.size() != 1 || !anchor.areas[0].single())
        return Value::error(cell_error::ref);
      const Area& a = anchor.areas[0];
      if (auto block = ctx_.spill_area(a.sheet, CellRef{a.rect.row1, a.rect.col1}))
        return Operand::ref({Area{a.sheet, *block}});
      return anchor;
    }
    case NodeKind::Unary:
      return unary(f, n, i - 1);
    case NodeKind::Percent: {
      Operand o = eval(f, i - 1);
      auto pct = [](const Value& v) -> Value {
        if (v.is_error()) return v;
        try {
          return Value::num(Evaluator::to_number(v) / 100);
        } catch (const EvalError& e) {
          return Value::error(e.code);
        }
      };
      bool multi = o.is_array() ||
                   (array_mode_ && o.is_ref() && !(o.areas.size() == 1 && o.areas[0].single()));
      if (!multi) return pct(scalar(o));
      Matrix m = matrix(o);
      for (Value& v : m.cells) v = pct(v);
      return Operand::arr(std::move(m));
    }
    case NodeKind::Binary: {
      uint32_t rhs = i - 1;
      uint32_t lhs = rhs - f.nodes[rhs].size;
      return binary(f, n, lhs, rhs);
    }
  }
  return Value::error(cell_error::value);
}

// ---- entry points ------------------------------------------------------------------------

namespace {
Value shown(Value v) {
  // A formula never shows nothing: an empty result is 0.
  if (v.kind == Value::Kind::Empty) return Value::num(0);
  return v;
}
}  // namespace

Value evaluate(const Formula& f, CellRef origin, SheetId sheet, EvalContext& ctx) {
  if (f.nodes.empty()) return Value::error(cell_error::value);
  Evaluator ev(ctx, origin, sheet, false);
  try {
    Operand o = ev.eval(f, f.root());
    return shown(ev.scalar(o));
  } catch (const EvalError& e) {
    return Value::error(e.code);
  }
}

std::vector<Value> evaluate_array(const Formula& f, CellRef origin, SheetId sheet, EvalContext& ctx,
                                  int32_t rows, int32_t cols) {
  rows = std::max(rows, 1);
  cols = std::max(cols, 1);
  std::vector<Value> out(static_cast<size_t>(rows) * cols, Value::error(cell_error::na));
  if (f.nodes.empty()) return out;
  Evaluator ev(ctx, origin, sheet, true);
  Matrix m;
  try {
    Operand o = ev.eval(f, f.root());
    if (o.is_ref() && o.areas.size() > 1) {
      m = Matrix(1, 1);
      m.cells[0] = Value::error(cell_error::value);
    } else {
      m = ev.matrix(o);
    }
  } catch (const EvalError& e) {
    m = Matrix(1, 1);
    m.cells[0] = Value::error(e.code);
  }
  for (int32_t r = 0; r < rows; ++r)
    for (int32_t c = 0; c < cols; ++c) {
      int32_t rr = m.rows == 1 ? 0 : r, cc = m.cols == 1 ? 0 : c;
      if (rr < m.rows && cc < m.cols) out[static_cast<size_t>(r) * cols + c] = shown(m.at(rr, cc));
    }
  return out;
}

Spill evaluate_spill(const Formula& f, CellRef origin, SheetId sheet, EvalContext& ctx) {
  Spill out;
  if (f.nodes.empty()) {
    out.values.push_back(Value::error(cell_error::value));
    return out;
  }
  Evaluator ev(ctx, origin, sheet, true);
  Matrix m;
  try {
    Operand o = ev.eval(f, f.root());
    if (o.is_ref() && o.areas.size() > 1) raise(cell_error::value);
    m = ev.matrix(o);
  } catch (const EvalError& e) {
    m = Matrix(1, 1);
    m.cells[0] = Value::error(e.code);
  }
  if (m.cells.empty()) m = Matrix(1, 1);
  out.rows = m.rows;
  out.cols = m.cols;
  out.values.reserve(m.cells.size());
  for (Value& v : m.cells) out.values.push_back(shown(std::move(v)));
  return out;
}

References references(const Formula& f, CellRef origin, SheetId sheet,
                      const SheetResolver* sheets) {
  References out;
  out.is_volatile = f.is_volatile;
  for (const Node& n : f.nodes) {
    if (n.kind == NodeKind::Name) {
      out.names.push_back(f.text(n.str));
      continue;
    }
    if (n.kind == NodeKind::Opaque) {
      if (auto s = read_structured(f.text(n.str))) out.tables.push_back(s->table);
      continue;
    }
    if (n.kind != NodeKind::Ref) continue;
    const RefInfo& r = f.refs[n.ref];
    if (r.external || r.deleted || r.sheet_deleted) continue;
    int32_t r1 = r.a.row_abs ? r.a.row : r.a.row + origin.row;
    int32_t c1 = r.a.col_abs ? r.a.col : r.a.col + origin.col;
    int32_t r2 = r.b.row_abs ? r.b.row : r.b.row + origin.row;
    int32_t c2 = r.b.col_abs ? r.b.col : r.b.col + origin.col;
    Rect rect;
    switch (r.kind) {
      case RefKind::Cell:
        rect = {r1, c1, r1, c1};
        break;
      case RefKind::Area:
        rect = {std::min(r1, r2), std::min(c1, c2), std::max(r1, r2), std::max(c1, c2)};
        break;
      case RefKind::Cols:
        rect = {0, std::min(c1, c2), kMaxRows - 1, std::max(c1, c2)};
        break;
      case RefKind::Rows:
        rect = {std::min(r1, r2), 0, std::max(r1, r2), kMaxCols - 1};
        break;
    }
    if (rect.row1 < 0 || rect.col1 < 0 || rect.row2 >= kMaxRows || rect.col2 >= kMaxCols) continue;
    SheetId s = r.sheet == kNoSheet ? sheet : r.sheet;
    std::vector<SheetId> span;
    if (r.sheet2 != kNoSheet && sheets) span = sheets->sheets_between(s, r.sheet2);
    if (!span.empty()) {
      for (SheetId id : span) out.ranges.emplace_back(id, rect);
      continue;
    }
    out.ranges.emplace_back(s, rect);
    if (r.sheet2 != kNoSheet) out.ranges.emplace_back(r.sheet2, rect);
  }
  return out;
}

}  // namespace qz::engine::calc
