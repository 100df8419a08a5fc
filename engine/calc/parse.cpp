// The formula parser: text in A1 or R1C1 notation to the flat tree of formula.hpp.
//
// A hand-written recursive descent over characters rather than a separate lexer: whether a
// blank is the intersection operator, whether "1:3" is a number or a row range and whether
// "LOG10" is a cell or a function all depend on what surrounds them.
#include <array>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>

#include "engine/calc/formula.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

constexpr bool is_ascii_letter(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}
constexpr bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
// Letters beyond ASCII count as letters: names and sheet names may use any script.
bool is_letter(char16_t c) {
  return is_ascii_letter(c) || (c >= 0x80 && c != 0xA0);
}
bool is_ident_start(char16_t c) {
  return is_letter(c) || c == u'_' || c == u'\\';
}
// The ASCII characters that continue a name, a sheet name or a reference. Every character of
// nearly every token is checked, so by a table.
constexpr std::array<bool, 128> kIdentAscii = [] {
  std::array<bool, 128> t{};
  for (char16_t c = 0; c < 128; ++c)
    t[c] = is_ascii_letter(c) || is_digit(c) || c == u'_' || c == u'.' || c == u'\\' || c == u'?';
  return t;
}();
bool is_ident_char(char16_t c) {
  return c < 0x80 ? kIdentAscii[c] : is_letter(c);
}
bool is_blank(char16_t c) {
  return c == u' ' || c == u'\n' || c == u'\r' || c == u'\t';
}
char16_t upper(char16_t c) {
  return (c >= u'a' && c <= u'z') ? c - 32 : c;
}

bool iequals(StringView a, StringView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (upper(a[i]) != upper(b[i])) return false;
  return true;
}

bool starts_with_ci(StringView s, StringView prefix) {
  return s.size() >= prefix.size() && iequals(s.substr(0, prefix.size()), prefix);
}

struct ErrorLiteral {
  const char16_t* text;
  int32_t code;
};
constexpr ErrorLiteral kErrors[] = {
    {u"#NULL!", cell_error::null},
    {u"#DIV/0!", cell_error::div0},
    {u"#VALUE!", cell_error::value},
    {u"#REF!", cell_error::ref},
    {u"#NAME?", cell_error::name},
    {u"#NUM!", cell_error::num},
    {u"#N/A", cell_error::na},
    {u"#GETTING_DATA", 2043},
    {u"#SPILL!", 2045},
    {u"#CONNECT!", 2046},
    {u"#BLOCKED!", 2047},
    {u"#UNKNOWN!", 2048},
    {u"#FIELD!", 2049},
    {u"#CALC!", 2050},
};

/// A sheet or workbook prefix ("Sheet1!", "'My Sheet'!", "Sheet1:Sheet3!", "[1]Sheet1!").
struct Prefix {
  bool present = false;
  bool quoted = false;
  bool external = false;
  bool sheet_deleted = false;
  String raw;  // as written, without "!"
  String name1, name2;
};

class Parser {
 public:
  Parser(StringView text, Notation notation, CellRef origin, SheetId home,
         const SheetResolver& sheets, Formula& f)
      : s_(text), notation_(notation), origin_(origin), home_(home), sheets_(sheets), f_(f) {}

  void run() {
    if (s_.empty()) fail_at(0, "empty formula");
    parse_union(true);
    String trailing = skip_blanks();
    if (pos_ < s_.size()) unexpected();
    f_.trailing_ws = intern(std::move(trailing));
  }

 private:
  StringView s_;
  size_t pos_ = 0;
  Notation notation_;
  CellRef origin_;
  SheetId home_;
  const SheetResolver& sheets_;
  Formula& f_;
  int depth_ = 0;

  // ---- diagnostics -------------------------------------------------------------------

  [[noreturn]] void fail_at(size_t at, const std::string& what) {
    throw Error(err::host_failure, "formula: " + what + " at " + std::to_string(at + 1));
  }
  [[noreturn]] void unexpected() {
    if (pos_ >= s_.size()) fail_at(pos_, "unexpected end");
    fail_at(pos_, "unexpected '" + to_utf8(s_.substr(pos_, 1)) + "'");
  }

  // ---- characters --------------------------------------------------------------------

  char16_t peek(size_t ahead = 0) const {
    return pos_ + ahead < s_.size() ? s_[pos_ + ahead] : char16_t(0);
  }
  char16_t at(size_t i) const { return i < s_.size() ? s_[i] : char16_t(0); }

  String skip_blanks() {
    // Most tokens follow no blanks at all.
    if (pos_ >= s_.size() || !is_blank(s_[pos_])) return String();
    size_t start = pos_;
    while (pos_ < s_.size() && is_blank(s_[pos_])) ++pos_;
    return String(s_.substr(start, pos_ - start));
  }

  uint32_t intern(String text) {
    if (text.empty()) return 0;
    f_.pool.push_back(std::move(text));
    return static_cast<uint32_t>(f_.pool.size() - 1);
  }
  /// Interns a run of blanks (one per separator); 0 when all are empty.
  uint32_t intern_run(std::vector<String>& run) {
    bool any = false;
    for (auto& w : run) any = any || !w.empty();
    if (!any) return 0;
    uint32_t first = static_cast<uint32_t>(f_.pool.size());
    for (auto& w : run) f_.pool.push_back(std::move(w));
    return first;
  }

  // ---- nodes -------------------------------------------------------------------------

  uint32_t emit(Node n, size_t subtree_start) {
    n.size = static_cast<uint32_t>(f_.nodes.size() - subtree_start + 1);
    f_.nodes.push_back(n);
    return static_cast<uint32_t>(f_.nodes.size() - 1);
  }
  uint32_t emit_leaf(Node n) { return emit(n, f_.nodes.size()); }

  void emit_binary(Op op, uint32_t ws, size_t start, uint32_t str = 0) {
    Node n;
    n.kind = NodeKind::Binary;
    n.op = op;
    n.nargs = 2;
    n.ws = ws;
    n.str = str;
    emit(n, start);
  }

  // ---- operators, loosest first ------------------------------------------------------

  // Union binds loosest of all here (tighter in the application's table, which only
  // matters for operands that are not references, and those do not make unions).
  void parse_union(bool allow_union) {
    enter();
    size_t start = f_.nodes.size();
    parse_comparison();
    while (allow_union) {
      size_t save = pos_;
      String ws = skip_blanks();
      if (peek() != u',') {
        pos_ = save;
        break;
      }
      ++pos_;
      parse_comparison();
      emit_binary(Op::Union, intern(std::move(ws)), start);
    }
    --depth_;
  }

  void enter() {
    // Deep nesting is legal but bounded, so that hostile input cannot exhaust the stack.
    if (++depth_ > 200) fail_at(pos_, "formula nested too deeply");
  }

  template <class Next, class Match>
  void parse_left_assoc(Next next, Match match) {
    size_t start = f_.nodes.size();
    (this->*next)();
    for (;;) {
      size_t save = pos_;
      String ws = skip_blanks();
      Op op = Op::None;
      size_t len = match(op);
      if (op == Op::None) {
        pos_ = save;
        return;
      }
      pos_ += len;
      (this->*next)();
      emit_binary(op, intern(std::move(ws)), start);
    }
  }

  void parse_comparison() {
    parse_left_assoc(&Parser::parse_concat, [this](Op& op) -> size_t {
      char16_t c = peek(), d = peek(1);
      if (c == u'<' && d == u'=') return op = Op::Le, 2;
      if (c == u'>' && d == u'=') return op = Op::Ge, 2;
      if (c == u'<' && d == u'>') return op = Op::Ne, 2;
      if (c == u'=') return op = Op::Eq, 1;
      if (c == u'<') return op = Op::Lt, 1;
      if (c == u'>') return op = Op::Gt, 1;
      return 0;
    });
  }
  void parse_concat() {
    parse_left_assoc(&Parser::parse_additive, [this](Op& op) -> size_t {
      if (peek() == u'&') return op = Op::Concat, 1;
      return 0;
    });
  }
  void parse_additive() {
    parse_left_assoc(&Parser::parse_multiplicative, [this](Op& op) -> size_t {
      if (peek() == u'+') return op = Op::Add, 1;
      if (peek() == u'-') return op = Op::Sub, 1;
      return 0;
    });
  }
  void parse_multiplicative() {
    parse_left_assoc(&Parser::parse_power, [this](Op& op) -> size_t {
      if (peek() == u'*') return op = Op::Mul, 1;
      if (peek() == u'/') return op = Op::Div, 1;
      return 0;
    });
  }
  // "^" associates to the left, as the application computes 2^3^2 = 64.
  void parse_power() {
    parse_left_assoc(&Parser::parse_percent, [this](Op& op) -> size_t {
      if (peek() == u'^') return op = Op::Pow, 1;
      return 0;
    });
  }

  void parse_percent() {
    size_t start = f_.nodes.size();
    parse_unary();
    for (;;) {
      size_t save = pos_;
      String ws = skip_blanks();
      if (peek() != u'%') {
        pos_ = save;
        return;
      }
      ++pos_;
      Node n;
      n.kind = NodeKind::Percent;
      n.nargs = 1;
      n.ws = intern(std::move(ws));
      emit(n, start);
    }
  }

  // Negation binds tighter than "^": -2^2 is 4.
  void parse_unary() {
    size_t save = pos_;
    String ws = skip_blanks();
    char16_t c = peek();
    if (c == u'-' || c == u'+' || c == u'@') {
      ++pos_;
      size_t start = f_.nodes.size();
      enter();
      parse_unary();
      --depth_;
      Node n;
      n.kind = NodeKind::Unary;
      n.op = c == u'-' ? Op::Neg : c == u'+' ? Op::Plus : Op::At;
      n.nargs = 1;
      n.ws = intern(std::move(ws));
      emit(n, start);
      return;
    }
    pos_ = save;
    parse_intersection();
  }

  bool starts_operand(char16_t c) const {
    return is_ident_start(c) || is_digit(c) || c == u'$' || c == u'\'' || c == u'(' || c == u'[' ||
           c == u'#';
  }

  void parse_intersection() {
    size_t start = f_.nodes.size();
    parse_range();
    for (;;) {
      size_t save = pos_;
      String ws = skip_blanks();
      if (ws.empty() || !starts_operand(peek())) {
        pos_ = save;
        return;
      }
      parse_range();
      emit_binary(Op::Intersect, 0, start, intern(std::move(ws)));
    }
  }

  void parse_range() {
    size_t start = f_.nodes.size();
    parse_primary();
    parse_invocations(start);
    parse_spill(start);
    while (peek() == u':') {
      ++pos_;
      size_t rhs = f_.nodes.size();
      parse_primary();
      parse_spill(rhs);
      emit_binary(Op::Range, 0, start);
    }
  }

  /// "A1#": the whole spilled block of an anchor cell.
  void parse_spill(size_t start) {
    int32_t code = 0;
    size_t len = 0;
    if (peek() != u'#' || match_error(pos_, code, len)) return;
    ++pos_;
    Node n;
    n.kind = NodeKind::Spill;
    n.nargs = 1;
    emit(n, start);
  }

  // ---- operands ----------------------------------------------------------------------

  void parse_primary() {
    String ws = skip_blanks();
    uint32_t wsi = intern(std::move(ws));
    char16_t c = peek();
    if (c == 0) unexpected();
    if (c == u'(') return parse_paren(wsi);
    if (c == u'"') return parse_string(wsi);
    if (c == u'{') return parse_array(wsi);
    if (c == u'#') return parse_error_or_deleted(wsi);

    Prefix prefix;
    if (c == u'\'' || c == u'[' || is_ident_start(c)) prefix = scan_prefix();
    if (prefix.present) return parse_after_prefix(prefix, wsi);

    if (c == u'[') return parse_structured(wsi, pos_);

    RefInfo r;
    size_t end = 0;
    if (match_reference(pos_, r, end)) {
      pos_ = end;
      return emit_ref(r, wsi);
    }
    if (is_digit(c) || c == u'.') return parse_number(wsi);
    if (is_ident_start(c)) return parse_identifier(wsi);
    unexpected();
  }

  void parse_paren(uint32_t wsi) {
    ++pos_;
    size_t start = f_.nodes.size();
    parse_union(true);
    String ws2 = skip_blanks();
    if (peek() != u')') unexpected();
    ++pos_;
    Node n;
    n.kind = NodeKind::Paren;
    n.nargs = 1;
    n.ws = wsi;
    std::vector<String> run{std::move(ws2)};
    n.ws2 = intern_run(run);
    emit(n, start);
  }

  String read_string_literal() {
    size_t open = pos_;
    ++pos_;
    String out;
    for (;;) {
      if (pos_ >= s_.size()) fail_at(open, "unterminated text");
      char16_t ch = s_[pos_++];
      if (ch == u'"') {
        if (peek() == u'"') {
          out.push_back(u'"');
          ++pos_;
          continue;
        }
        return out;
      }
      out.push_back(ch);
    }
  }

  void parse_string(uint32_t wsi) {
    Node n;
    n.kind = NodeKind::Text;
    n.ws = wsi;
    String value = read_string_literal();
    // Text literals keep their pool entry even when empty, so that "" renders as "".
    f_.pool.push_back(std::move(value));
    n.str = static_cast<uint32_t>(f_.pool.size() - 1);
    emit_leaf(n);
  }

  bool match_error(size_t p, int32_t& code, size_t& len) const {
    for (const auto& e : kErrors) {
      StringView t(e.text);
      if (p + t.size() <= s_.size() && iequals(s_.substr(p, t.size()), t)) {
        code = e.code;
        len = t.size();
        return true;
      }
    }
    return false;
  }

  void parse_error_or_deleted(uint32_t wsi) {
    int32_t code = 0;
    size_t len = 0;
    if (!match_error(pos_, code, len)) unexpected();
    size_t after = pos_ + len;
    // "#REF!A1": a reference whose sheet was deleted; "#REF!" alone is the error value.
    if (code == cell_error::ref) {
      RefInfo r;
      size_t end = 0;
      if (match_reference(after, r, end)) {
        pos_ = end;
        r.sheet_deleted = true;
        return emit_ref(r, wsi);
      }
    }
    pos_ = after;
    Node n;
    n.kind = NodeKind::Error;
    n.ws = wsi;
    n.number = code;
    emit_leaf(n);
  }

  void parse_number(uint32_t wsi) {
    size_t start = pos_;
    while (is_digit(peek())) ++pos_;
    if (peek() == u'.') {
      ++pos_;
      while (is_digit(peek())) ++pos_;
    }
    if ((peek() == u'e' || peek() == u'E') &&
        (is_digit(peek(1)) || ((peek(1) == u'+' || peek(1) == u'-') && is_digit(peek(2))))) {
      pos_ += 2;
      while (is_digit(peek())) ++pos_;
    }
    StringView typed = s_.substr(start, pos_ - start);
    if (typed == u"." || is_ident_char(peek())) fail_at(start, "malformed number");
    // The text is digits, a point and an exponent: narrowed in place, without a string.
    char ascii[64];
    std::string longer;
    const char* digits = ascii;
    if (typed.size() < sizeof ascii) {
      for (size_t i = 0; i < typed.size(); ++i) ascii[i] = static_cast<char>(typed[i]);
      ascii[typed.size()] = 0;
    } else {
      longer = to_utf8(typed);
      digits = longer.c_str();
    }
    double v = short_decimal(typed).value_or(0);
    if (v == 0) v = std::strtod(digits, nullptr);
    if (!std::isfinite(v)) fail_at(start, "number out of range");
    Node n;
    n.kind = NodeKind::Number;
    n.ws = wsi;
    n.number = v;
    if (!shown_as_typed(typed)) {
      String spelled = to_upper(typed);
      if (spelled != canonical_number(v)) n.str = intern(std::move(spelled));
    }
    emit_leaf(n);
  }

  // The value of a number typed with at most 15 digits and no exponent ("12", "1.05"): those
  // digits make an integer a double holds exactly, and one division by an exact power of ten
  // rounds once, correctly, to the double the general conversion gives. Nothing for others.
  static std::optional<double> short_decimal(StringView t) {
    static constexpr double kTens[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    uint64_t m = 0;
    size_t digits = 0, fraction = 0, i = 0;
    for (; i < t.size() && is_digit(t[i]); ++i, ++digits) m = m * 10 + (t[i] - u'0');
    if (i < t.size() && t[i] == u'.')
      for (++i; i < t.size() && is_digit(t[i]); ++i, ++digits, ++fraction)
        m = m * 10 + (t[i] - u'0');
    if (i != t.size() || digits == 0 || digits > 15) return std::nullopt;
    return static_cast<double>(m) / kTens[fraction];
  }

  // Whether a number typed as `t` (digits and a point) is spelled as canonical_number shows its
  // value, known without formatting the value: no exponent, no leading or trailing zeros, at
  // most 15 significant digits (which a double keeps exactly) and not so small that it shows
  // with an exponent. Nearly every number in a formula is; the others are compared in full.
  static bool shown_as_typed(StringView t) {
    size_t point = t.find(u'.');
    StringView whole = t.substr(0, point);
    if (whole.empty() || (whole.size() > 1 && whole[0] == u'0')) return false;
    for (char16_t c : whole)
      if (!is_digit(c)) return false;
    size_t significant = whole == u"0" ? 0 : whole.size();
    if (point != StringView::npos) {
      StringView fraction = t.substr(point + 1);
      if (fraction.empty() || fraction.back() == u'0') return false;
      size_t zeros = 0;
      for (char16_t c : fraction)
        if (!is_digit(c)) return false;
      if (significant == 0) {
        while (fraction[zeros] == u'0') ++zeros;
        if (zeros > 3) return false;  // below 0.0001 the value shows with an exponent
      }
      significant += fraction.size() - zeros;
    }
    return significant <= 15;
  }

  void parse_array(uint32_t wsi) {
    size_t open = pos_;
    ++pos_;
    size_t start = f_.nodes.size();
    std::vector<String> run;
    int32_t cols = -1, in_row = 0, count = 0;
    for (;;) {
      parse_array_element();
      ++in_row;
      ++count;
      run.push_back(skip_blanks());
      char16_t c = peek();
      if (c == u',') {
        ++pos_;
      } else if (c == u';' || c == u'}') {
        if (cols < 0) cols = in_row;
        if (in_row != cols) fail_at(pos_, "array rows of different lengths");
        in_row = 0;
        ++pos_;
        if (c == u'}') break;
      } else {
        unexpected();
      }
      if (count > 65535) fail_at(open, "array constant too large");
    }
    Node n;
    n.kind = NodeKind::Array;
    n.nargs = static_cast<uint16_t>(count);
    n.ws = wsi;
    n.ws2 = intern_run(run);
    n.cols = cols;
    emit(n, start);
  }

  void parse_array_element() {
    uint32_t wsi = intern(skip_blanks());
    char16_t c = peek();
    if (c == u'"') return parse_string(wsi);
    if (c == u'#') {
      int32_t code = 0;
      size_t len = 0;
      if (!match_error(pos_, code, len)) unexpected();
      pos_ += len;
      Node n;
      n.kind = NodeKind::Error;
      n.ws = wsi;
      n.number = code;
      emit_leaf(n);
      return;
    }
    if (c == u'-' || c == u'+' || is_digit(c) || c == u'.') {
      size_t start = pos_;
      if (c == u'-' || c == u'+') ++pos_;
      if (!is_digit(peek()) && peek() != u'.') unexpected();
      parse_number(0);
      // The sign belongs to the constant: fold it into the value and the spelling.
      Node& n = f_.nodes.back();
      n.ws = wsi;
      if (c == u'-') n.number = -n.number;
      String spelled = to_upper(s_.substr(start, pos_ - start));
      n.str = spelled == canonical_number(n.number) ? 0 : intern(std::move(spelled));
      return;
    }
    if (is_ident_start(c)) {
      size_t start = pos_;
      while (is_ident_char(peek())) ++pos_;
      StringView word = s_.substr(start, pos_ - start);
      if (iequals(word, u"TRUE") || iequals(word, u"FALSE")) {
        Node n;
        n.kind = NodeKind::Boolean;
        n.ws = wsi;
        n.number = iequals(word, u"TRUE") ? 1 : 0;
        emit_leaf(n);
        return;
      }
      fail_at(start, "array constants hold only numbers, text, TRUE/FALSE and errors");
    }
    unexpected();
  }

  // ---- sheet and workbook prefixes ---------------------------------------------------

  /// Looks for "name!", "'quoted name'!", "first:last!" or "[book]name!" at the current
  /// position; advances past "!" when found.
  Prefix scan_prefix() {
    Prefix p;
    size_t start = pos_;
    if (peek() == u'\'') {
      size_t i = pos_ + 1;
      String inner;
      for (;;) {
        if (i >= s_.size()) fail_at(start, "unterminated quoted sheet name");
        if (s_[i] == u'\'') {
          if (at(i + 1) == u'\'') {
            inner.push_back(u'\'');
            i += 2;
            continue;
          }
          break;
        }
        inner.push_back(s_[i++]);
      }
      if (at(i + 1) != u'!') fail_at(i + 1, "expected '!' after a quoted sheet name");
      p.present = true;
      p.quoted = true;
      p.raw = String(s_.substr(start, i + 1 - start));
      pos_ = i + 2;
      if (inner.find(u'[') != String::npos || inner.find(u'\\') != String::npos ||
          inner.find(u'/') != String::npos) {
        p.external = true;
        return p;
      }
      size_t colon = inner.find(u':');
      if (colon != String::npos) {
        p.name1 = inner.substr(0, colon);
        p.name2 = inner.substr(colon + 1);
      } else {
        p.name1 = std::move(inner);
      }
      return p;
    }
    if (peek() == u'[') {
      size_t close = s_.find(u']', pos_);
      if (close == StringView::npos) return p;
      size_t i = close + 1;
      if (at(i) == u'\'') {
        // [Book.xlsx]'My Sheet'!A1
        ++i;
        while (i < s_.size() && !(s_[i] == u'\'' && at(i + 1) != u'\''))
          i += s_[i] == u'\'' ? 2 : 1;
        if (i >= s_.size()) return p;
        ++i;
      } else {
        while (i < s_.size() && is_ident_char(s_[i])) ++i;
        if (at(i) == u':' && i > close + 1) {  // [1]Sheet1:Sheet3!A1
          size_t j = i + 1;
          while (j < s_.size() && is_ident_char(s_[j])) ++j;
          if (j > i + 1 && at(j) == u'!') i = j;
        }
      }
      if (at(i) != u'!') return p;  // a structured reference such as [@Amount]
      p.present = true;
      p.external = true;
      p.raw = String(s_.substr(start, i - start));
      pos_ = i + 1;
      return p;
    }
    size_t i = pos_;
    while (i < s_.size() && is_ident_char(s_[i])) ++i;
    if (i == pos_) return p;
    if (at(i) == u'!') {
      p.present = true;
      p.raw = String(s_.substr(start, i - start));
      p.name1 = p.raw;
      pos_ = i + 1;
      return p;
    }
    if (at(i) == u':') {
      size_t j = i + 1;
      while (j < s_.size() && is_ident_char(s_[j])) ++j;
      if (j > i + 1 && at(j) == u'!') {
        // Only a prefix when both ends are sheets: "A1:Sheet2!B3" is a range operator.
        String n1(s_.substr(start, i - start)), n2(s_.substr(i + 1, j - i - 1));
        if (sheets_.sheet_id(n1) && sheets_.sheet_id(n2)) {
          p.present = true;
          p.raw = String(s_.substr(start, j - start));
          p.name1 = std::move(n1);
          p.name2 = std::move(n2);
          pos_ = j + 1;
        }
      }
    }
    return p;
  }

  static bool looks_like_workbook(StringView name) {
    // "Book1.xlsx!Name": a workbook-level name in another file.
    size_t dot = name.rfind(u'.');
    return dot != StringView::npos && starts_with_ci(name.substr(dot), u".xl");
  }

  void parse_after_prefix(Prefix& p, uint32_t wsi) {
    size_t prefix_at = pos_ - p.raw.size() - 1;
    RefInfo r;
    r.has_sheet = true;
    r.quoted = p.quoted;
    if (!p.external) {
      auto id1 = sheets_.sheet_id(p.name1);
      if (!id1) {
        if (p.name2.empty() && looks_like_workbook(p.name1)) {
          p.external = true;
        } else {
          fail_at(prefix_at, "unknown sheet '" + to_utf8(p.name1) + "'");
        }
      } else {
        r.sheet = *id1;
        if (!p.name2.empty()) {
          auto id2 = sheets_.sheet_id(p.name2);
          if (!id2) fail_at(prefix_at, "unknown sheet '" + to_utf8(p.name2) + "'");
          if (*id2 != *id1) r.sheet2 = *id2;
        }
      }
    }
    if (p.external) {
      r.sheet = kNoSheet;
      r.external = intern(p.raw);
    }
    size_t end = 0;
    if (match_reference(pos_, r, end)) {
      pos_ = end;
      return emit_ref(r, wsi);
    }
    int32_t code = 0;
    size_t len = 0;
    if (peek() == u'#' && match_error(pos_, code, len) && code == cell_error::ref) {
      pos_ += len;
      r.deleted = true;
      return emit_ref(r, wsi);
    }
    if (p.external && peek() == u'\'') {
      // A link to another program's item: [1]!'Quote,Bid'.
      size_t start = pos_++;
      while (pos_ < s_.size() && !(s_[pos_] == u'\'' && at(pos_ + 1) != u'\''))
        pos_ += s_[pos_] == u'\'' ? 2 : 1;
      if (pos_ >= s_.size()) fail_at(start, "unterminated quoted name");
      ++pos_;
      r.name_only = true;
      f_.refs.push_back(r);
      Node n;
      n.kind = NodeKind::Name;
      n.ws = wsi;
      n.str = intern(String(s_.substr(start, pos_ - start)));
      n.ref = static_cast<uint32_t>(f_.refs.size() - 1);
      emit_leaf(n);
      return;
    }
    if (is_ident_start(peek())) {
      size_t start = pos_;
      while (is_ident_char(peek())) ++pos_;
      if (peek() == u'(') {
        // A function of another workbook ("[1]!Price(A1)"): kept as written.
        if (!p.external) fail_at(pos_, "a function cannot carry a sheet name");
        return parse_call(s_.substr(prefix_at, pos_ - prefix_at), wsi);
      }
      if (peek() == u'[') return parse_structured(wsi, prefix_at);
      r.name_only = true;
      f_.refs.push_back(r);
      Node n;
      n.kind = NodeKind::Name;
      n.ws = wsi;
      n.str = intern(String(s_.substr(start, pos_ - start)));
      n.ref = static_cast<uint32_t>(f_.refs.size() - 1);
      emit_leaf(n);
      return;
    }
    unexpected();
  }

  void emit_ref(const RefInfo& r, uint32_t wsi) {
    f_.refs.push_back(r);
    Node n;
    n.kind = NodeKind::Ref;
    n.ws = wsi;
    n.ref = static_cast<uint32_t>(f_.refs.size() - 1);
    emit_leaf(n);
  }

  // ---- references --------------------------------------------------------------------

  bool boundary(size_t i) const {
    char16_t c = at(i);
    return !(is_ident_char(c) || c == u'(' || c == u'[' || c == u'!' || c == u'\'');
  }

  /// Letters of a column (1..3 of them, up to XFD) at i; the column, 0-based.
  bool read_column(size_t& i, int32_t& col) const {
    size_t start = i;
    int32_t v = 0;
    while (i < s_.size() && is_ascii_letter(s_[i]) && i - start < 4) {
      v = v * 26 + (upper(s_[i]) - u'A' + 1);
      ++i;
    }
    if (i == start || i - start > 3 || v > kMaxCols) {
      i = start;
      return false;
    }
    col = v - 1;
    return true;
  }
  bool read_row(size_t& i, int32_t& row) const {
    size_t start = i;
    int64_t v = 0;
    while (i < s_.size() && is_digit(s_[i]) && i - start < 8) v = v * 10 + (s_[i++] - u'0');
    if (i == start || is_digit(at(i)) || v < 1 || v > kMaxRows) {
      i = start;
      return false;
    }
    row = static_cast<int32_t>(v - 1);
    return true;
  }

  // A1 parts -----------------------------------------------------------------------------

  bool a1_cell(size_t& i, RefPart& part) const {
    size_t save = i;
    part.col_abs = at(i) == u'$';
    if (part.col_abs) ++i;
    int32_t col = 0, row = 0;
    if (!read_column(i, col)) return i = save, false;
    part.row_abs = at(i) == u'$';
    if (part.row_abs) ++i;
    if (!read_row(i, row)) return i = save, false;
    part.col = part.col_abs ? col : col - origin_.col;
    part.row = part.row_abs ? row : row - origin_.row;
    return true;
  }
  bool a1_col(size_t& i, RefPart& part) const {
    size_t save = i;
    part.col_abs = at(i) == u'$';
    if (part.col_abs) ++i;
    int32_t col = 0;
    if (!read_column(i, col)) return i = save, false;
    part.col = part.col_abs ? col : col - origin_.col;
    return true;
  }
  bool a1_row(size_t& i, RefPart& part) const {
    size_t save = i;
    part.row_abs = at(i) == u'$';
    if (part.row_abs) ++i;
    int32_t row = 0;
    if (!read_row(i, row)) return i = save, false;
    part.row = part.row_abs ? row : row - origin_.row;
    return true;
  }

  bool match_a1(size_t i, RefInfo& r, size_t& end) const {
    size_t j = i;
    RefPart a, b;
    // Whole columns "A:C" and whole rows "1:3".
    if (a1_col(j, a) && at(j) == u':') {
      size_t k = j + 1;
      if (a1_col(k, b) && boundary(k)) {
        r.kind = RefKind::Cols;
        r.a = a;
        r.b = b;
        end = k;
        return true;
      }
    }
    j = i;
    if (a1_row(j, a) && at(j) == u':') {
      size_t k = j + 1;
      if (a1_row(k, b) && boundary(k)) {
        r.kind = RefKind::Rows;
        r.a = a;
        r.b = b;
        end = k;
        return true;
      }
    }
    j = i;
    if (!a1_cell(j, a) || !boundary(j)) return false;
    r.kind = RefKind::Cell;
    r.a = a;
    end = j;
    if (at(j) == u':') {
      size_t k = j + 1;
      if (a1_cell(k, b) && boundary(k)) {
        r.kind = RefKind::Area;
        r.b = b;
        end = k;
      }
    }
    return true;
  }

  // R1C1 parts ---------------------------------------------------------------------------

  /// "R", "R5", "R[-2]" (or the same with C) at i.
  bool r1c1_part(size_t& i, char16_t letter, int32_t limit, int32_t& value, bool& abs,
                 bool& present) const {
    present = false;
    if (upper(at(i)) != letter) return true;
    size_t j = i + 1;
    if (at(j) == u'[') {
      size_t k = j + 1;
      bool neg = false;
      if (at(k) == u'-' || at(k) == u'+') neg = at(k++) == u'-';
      int64_t v = 0;
      size_t digits = k;
      while (is_digit(at(k)) && k - digits < 8) v = v * 10 + (at(k++) - u'0');
      if (k == digits || at(k) != u']' || v >= limit) return false;
      value = static_cast<int32_t>(neg ? -v : v);
      abs = false;
      i = k + 1;
    } else if (is_digit(at(j))) {
      int64_t v = 0;
      size_t digits = j;
      while (is_digit(at(j)) && j - digits < 8) v = v * 10 + (at(j++) - u'0');
      if (v < 1 || v > limit) return false;
      value = static_cast<int32_t>(v - 1);
      abs = true;
      i = j;
    } else {
      value = 0;
      abs = false;
      i = j;
    }
    present = true;
    return true;
  }

  /// One R1C1 term: 0 none, 1 a cell, 2 a whole row, 3 a whole column.
  int r1c1_term(size_t& i, RefPart& part) const {
    size_t j = i;
    bool has_r = false, has_c = false;
    if (!r1c1_part(j, u'R', kMaxRows, part.row, part.row_abs, has_r)) return 0;
    if (!r1c1_part(j, u'C', kMaxCols, part.col, part.col_abs, has_c)) return 0;
    if (!has_r && !has_c) return 0;
    if (!boundary(j)) return 0;
    i = j;
    return has_r && has_c ? 1 : has_r ? 2 : 3;
  }

  bool match_r1c1(size_t i, RefInfo& r, size_t& end) const {
    size_t j = i;
    RefPart a, b;
    int kind = r1c1_term(j, a);
    if (kind == 0) return false;
    r.a = a;
    r.kind = kind == 1 ? RefKind::Cell : kind == 2 ? RefKind::Rows : RefKind::Cols;
    if (kind != 1) r.b = a;
    end = j;
    if (at(j) == u':') {
      size_t k = j + 1;
      int kind2 = r1c1_term(k, b);
      if (kind2 == kind && boundary(k)) {
        if (kind == 1) r.kind = RefKind::Area;
        r.b = b;
        end = k;
      } else if (kind != 1) {
        return false;
      }
    }
    return true;
  }

  bool match_reference(size_t i, RefInfo& r, size_t& end) const {
    // Corners stay in the order written ("B2:A1"): files keep them so, and evaluation and
    // adjustment work on the rectangle they span either way.
    return notation_ == Notation::A1 ? match_a1(i, r, end) : match_r1c1(i, r, end);
  }

  // ---- names, functions, Booleans, structured references -----------------------------

  void parse_structured(uint32_t wsi, size_t start) {
    // Table1[Column], Table1[[#Headers],[Column]], [@Column]: kept as written.
    size_t i = pos_;
    while (i < s_.size() && s_[i] != u'[') ++i;
    int depth = 0;
    for (; i < s_.size(); ++i) {
      char16_t c = s_[i];
      if (c == u'\'') {  // escapes the next character inside a column name
        ++i;
        continue;
      }
      if (c == u'[') ++depth;
      if (c == u']' && --depth == 0) break;
    }
    if (depth != 0 || i >= s_.size()) fail_at(start, "unterminated structured reference");
    pos_ = i + 1;
    Node n;
    n.kind = NodeKind::Opaque;
    n.ws = wsi;
    n.str = intern(String(s_.substr(start, pos_ - start)));
    emit_leaf(n);
  }

  void parse_identifier(uint32_t wsi) {
    size_t start = pos_;
    while (is_ident_char(peek())) ++pos_;
    StringView word = s_.substr(start, pos_ - start);
    if (peek() == u'(') return parse_call(word, wsi);
    if (peek() == u'[') return parse_structured(wsi, start);
    if (iequals(word, u"TRUE") || iequals(word, u"FALSE")) {
      Node n;
      n.kind = NodeKind::Boolean;
      n.ws = wsi;
      n.number = iequals(word, u"TRUE") ? 1 : 0;
      emit_leaf(n);
      return;
    }
    Node n;
    n.kind = NodeKind::Name;
    n.ws = wsi;
    n.str = intern(String(word));
    n.ref = kNoRef;
    emit_leaf(n);
  }

  /// The arguments of a call, after its "(" up to and with the ")": each a formula or left
  /// empty. `run` gets the blanks before each separator and before the ")".
  int parse_arguments(size_t name_at, std::vector<String>& run) {
    int nargs = 0;
    size_t save = pos_;
    String ws = skip_blanks();
    if (peek() == u')') {
      ++pos_;
      run.push_back(std::move(ws));
      return 0;
    }
    pos_ = save;
    for (;;) {
      save = pos_;
      String aws = skip_blanks();
      if (peek() == u',' || peek() == u')') {
        Node m;
        m.kind = NodeKind::Missing;
        m.ws = intern(std::move(aws));
        emit_leaf(m);
      } else {
        pos_ = save;
        parse_union(false);
      }
      if (++nargs > 255) fail_at(name_at, "too many arguments");
      run.push_back(skip_blanks());
      if (peek() == u',') {
        ++pos_;
        continue;
      }
      if (peek() == u')') {
        ++pos_;
        return nargs;
      }
      unexpected();
    }
  }

  /// "LAMBDA(x,x+1)(2)": calls of the function that a call or a parenthesis yields.
  void parse_invocations(size_t start) {
    while (peek() == u'(' && f_.nodes.size() > start &&
           (f_.nodes.back().kind == NodeKind::Func || f_.nodes.back().kind == NodeKind::Paren ||
            f_.nodes.back().kind == NodeKind::Invoke)) {
      size_t at = pos_;
      ++pos_;
      enter();
      std::vector<String> run;
      int nargs = parse_arguments(at, run);
      --depth_;
      Node n;
      n.kind = NodeKind::Invoke;
      n.nargs = static_cast<uint16_t>(nargs + 1);
      n.ws2 = intern_run(run);
      emit(n, start);
    }
  }

  void parse_call(StringView word, uint32_t wsi) {
    size_t name_at = pos_ - word.size();
    // Files prefix newer functions with _xlfn. (and _xlws.); they are kept as read.
    size_t base = 0;
    for (;;) {
      StringView rest = word.substr(base);
      if (starts_with_ci(rest, u"_xlfn."))
        base += 6;
      else if (starts_with_ci(rest, u"_xlws."))
        base += 6;
      else
        break;
    }
    String bare = to_upper(word.substr(base));
    int32_t id = find_function(bare);
    String spelled = id >= 0 ? String(word.substr(0, base)) + bare : String(word);
    if (id < 0) f_.has_unknown_function = true;
    if (id >= 0 ? function_is_volatile(id) : (bare == u"CELL" || bare == u"INFO"))
      f_.is_volatile = true;

    ++pos_;  // "("
    enter();
    size_t start = f_.nodes.size();
    std::vector<String> run;
    int nargs = parse_arguments(name_at, run);
    --depth_;
    Node n;
    n.kind = NodeKind::Func;
    n.nargs = static_cast<uint16_t>(nargs);
    n.ws = wsi;
    n.str = intern(std::move(spelled));
    n.ws2 = intern_run(run);
    n.func = id;
    emit(n, start);
  }
};

}  // namespace

String canonical_number(double v) {
  if (v == 0) return u"0";
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15G", v);
  std::string t(buf);
  // "1E+20" stays; strip zeros after the decimal point in both the fixed and the
  // exponent forms ("1.5E+20", "0.25").
  size_t e = t.find('E');
  std::string mant = e == std::string::npos ? t : t.substr(0, e);
  std::string exp = e == std::string::npos ? std::string() : t.substr(e);
  if (mant.find('.') != std::string::npos) {
    while (!mant.empty() && mant.back() == '0') mant.pop_back();
    if (!mant.empty() && mant.back() == '.') mant.pop_back();
  }
  return u16(mant + exp);
}

void parse_into(Formula& f, StringView text, Notation notation, CellRef origin, SheetId home,
                const SheetResolver& sheets) {
  Parser p(text, notation, origin, home, sheets, f);
  p.run();
}

FormulaPtr parse(StringView text, Notation notation, CellRef origin, SheetId home,
                 const SheetResolver& sheets) {
  auto f = std::make_shared<Formula>();
  parse_into(*f, text, notation, origin, home, sheets);
  return f;
}

}  // namespace qz::engine::calc
