// Regular expressions: REGEXTEST, REGEXEXTRACT and REGEXREPLACE.
//
// Patterns come from files, so the matcher must stay safe on any of them: it compiles the
// pattern to a small program and runs every alternative side by side over the text (a Pike
// machine), so its time grows with text length times program size and never explodes the
// way backtracking does on "(a*)*b"; the parser counts its depth, the program's size is
// bounded and a call that would still take too long gives up with #VALUE!. The price is that
// back-references and look-around, which need backtracking, are refused as bad patterns (#VALUE!),
// as is anything else the parser does not know.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "engine/calc/fn_util.hpp"
#include "vocab/text_fold.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

constexpr size_t kMaxProgram = 4000;  // instructions; counted repeats count in full
constexpr int kMaxDepth = 100;        // nested groups
constexpr int kMaxRepeat = 1000;      // the largest count of "{n,m}"
// The most steps (threads advanced, weighted by the groups each carries) one call may
// take: a second or so at worst, for a long text under a pattern of many groups.
constexpr uint64_t kMaxWork = 500000000;

bool is_word(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
         c == u'_';
}
bool is_digit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
bool is_space(char16_t c) {
  return c == u' ' || (c >= 9 && c <= 13);
}

/// A bracket expression or a shorthand such as \d.
struct CharClass {
  std::vector<std::pair<char16_t, char16_t>> ranges;
  std::vector<char16_t> shorthands;  // 'd', 'w', 's' and upper case for their complements
  bool negated = false;
  bool icase = false;

  bool has(char16_t c) const {
    for (auto [lo, hi] : ranges)
      if (c >= lo && c <= hi) return true;
    for (char16_t s : shorthands) {
      bool in = s == u'd' || s == u'D'   ? is_digit(c)
                : s == u'w' || s == u'W' ? is_word(c)
                                         : is_space(c);
      if (in == (s >= u'a')) return true;
    }
    return false;
  }
  bool matches(char16_t c) const {
    bool in = has(c) || (icase && (has(fold_case(c)) || has(unfold_case(c))));
    return in != negated;
  }
};

enum class Op : uint8_t {
  Char,
  Any,
  Class,
  Split,
  Jmp,
  Save,
  Match,
  Bol,
  Eol,
  WordB,
  NotWordB,
  Begin,
  End,
  EndNl
};

struct Inst {
  Op op;
  bool flag = false;  // Char: ignore case; Any: matches a line break; Bol/Eol: multi-line
  char16_t c = 0;
  uint32_t x = 0, y = 0;  // Split: preferred and other; Jmp: x; Save: slot; Class: index
};

struct Program {
  std::vector<Inst> code;
  std::vector<CharClass> classes;
  int groups = 1;  // group 0 is the whole match
  std::vector<std::pair<String, int>> names;
};

struct BadPattern {};

/// Compiles a pattern; throws BadPattern (caught below) for what it cannot take.
class Compiler {
 public:
  Compiler(StringView p, bool icase) : p_(p) { flags_.icase = icase; }

  Program compile() {
    // Group 0 around everything, then Match.
    emit({Op::Save, false, 0, 0});
    alternation(0);
    if (pos_ != p_.size()) throw BadPattern{};
    emit({Op::Save, false, 0, 1});
    emit({Op::Match});
    return std::move(prog_);
  }

 private:
  struct Flags {
    bool icase = false, multiline = false, dotall = false, extended = false;
  };
  StringView p_;
  size_t pos_ = 0;
  Program prog_;
  Flags flags_;

  bool more() const { return pos_ < p_.size(); }
  char16_t peek() const { return p_[pos_]; }
  uint32_t here() const { return static_cast<uint32_t>(prog_.code.size()); }
  void emit(Inst i) {
    if (prog_.code.size() >= kMaxProgram) throw BadPattern{};
    prog_.code.push_back(i);
  }
  void skip_extended() {
    while (flags_.extended && more()) {
      if (is_space(peek())) {
        ++pos_;
      } else if (peek() == u'#') {
        while (more() && peek() != u'\n') ++pos_;
      } else {
        break;
      }
    }
  }

  void alternation(int depth) {
    if (depth > kMaxDepth) throw BadPattern{};
    Flags saved = flags_;
    uint32_t start = here();
    sequence(depth);
    std::vector<uint32_t> jumps;
    while (more() && peek() == u'|') {
      ++pos_;
      // Put a Split in front of what was compiled so far; jump past the next branch.
      prog_.code.insert(prog_.code.begin() + start, Inst{Op::Split, false, 0, start + 1, 0});
      relocate(start, 1);
      for (uint32_t& j : jumps) ++j;
      jumps.push_back(here());
      emit({Op::Jmp});
      prog_.code[start].y = here();
      sequence(depth);
    }
    for (uint32_t j : jumps) prog_.code[j].x = here();
    flags_ = saved;
  }

  /// Shifts the targets of jumps inside [from, end) that point at or past `from` by n after
  /// n instructions were inserted at `from`.
  void relocate(uint32_t from, uint32_t n) {
    if (prog_.code.size() > kMaxProgram) throw BadPattern{};
    for (uint32_t k = from + n; k < here(); ++k) {
      Inst& i = prog_.code[k];
      if (i.op == Op::Split || i.op == Op::Jmp) {
        if (i.x >= from) i.x += n;
        if (i.op == Op::Split && i.y >= from) i.y += n;
      }
    }
  }

  void sequence(int depth) {
    for (;;) {
      skip_extended();
      if (!more() || peek() == u'|' || peek() == u')') return;
      uint32_t start = here();
      atom(depth);
      skip_extended();
      quantifier(start);
    }
  }

  std::optional<int> number() {
    size_t at = pos_;
    long v = 0;
    while (more() && is_digit(peek()) && v <= 100000) v = v * 10 + (p_[pos_++] - u'0');
    if (pos_ == at) return std::nullopt;
    return static_cast<int>(v);
  }

  void quantifier(uint32_t start) {
    if (!more()) return;
    int lo, hi;  // hi < 0: unbounded
    char16_t q = peek();
    if (q == u'*') {
      lo = 0, hi = -1, ++pos_;
    } else if (q == u'+') {
      lo = 1, hi = -1, ++pos_;
    } else if (q == u'?') {
      lo = 0, hi = 1, ++pos_;
    } else if (q == u'{') {
      size_t at = pos_++;
      auto a = number();
      std::optional<int> b = a;
      if (a && more() && peek() == u',') {
        ++pos_;
        b = number();
        if (!b) b = -1;
      }
      if (!a || !more() || peek() != u'}') {
        pos_ = at;  // not a count: a literal brace, as PCRE reads it
        return;
      }
      ++pos_;
      lo = *a, hi = *b;
      if (lo > kMaxRepeat || hi > kMaxRepeat || (hi >= 0 && hi < lo)) throw BadPattern{};
    } else {
      return;
    }
    bool lazy = false;
    if (more() && peek() == u'?') {
      lazy = true;
      ++pos_;
    } else if (more() && peek() == u'+') {
      throw BadPattern{};  // possessive: needs backtracking control
    }
    if (start == here()) throw BadPattern{};  // nothing to repeat
    std::vector<Inst> body(prog_.code.begin() + start, prog_.code.end());
    prog_.code.resize(start);
    auto copy = [&] {
      uint32_t at = here();
      for (Inst i : body) {
        if (i.op == Op::Split || i.op == Op::Jmp) {
          i.x = i.x - start + at;
          if (i.op == Op::Split) i.y = i.y - start + at;
        }
        emit(i);
      }
    };
    auto split = [&](uint32_t into, uint32_t past) {
      return lazy ? Inst{Op::Split, false, 0, past, into} : Inst{Op::Split, false, 0, into, past};
    };
    for (int k = 0; k < lo; ++k) copy();
    if (hi < 0) {
      // x*: L: split body, out; body; jmp L.
      uint32_t loop = here();
      emit({});
      copy();
      emit({Op::Jmp, false, 0, loop});
      prog_.code[loop] = split(loop + 1, here());
    } else {
      std::vector<uint32_t> splits;
      for (int k = lo; k < hi; ++k) {
        splits.push_back(here());
        emit({});
        copy();
      }
      for (uint32_t s : splits) prog_.code[s] = split(s + 1, here());
    }
  }

  char16_t hex_escape() {
    // \xhh or \x{h...}
    uint32_t v = 0;
    auto digit = [&](char16_t c) -> int {
      if (is_digit(c)) return c - u'0';
      if (c >= u'a' && c <= u'f') return c - u'a' + 10;
      if (c >= u'A' && c <= u'F') return c - u'A' + 10;
      return -1;
    };
    if (more() && peek() == u'{') {
      ++pos_;
      int n = 0;
      while (more() && digit(peek()) >= 0 && n < 5) v = v * 16 + digit(p_[pos_++]), ++n;
      if (!more() || peek() != u'}' || n == 0 || v > 0xFFFF) throw BadPattern{};
      ++pos_;
      return static_cast<char16_t>(v);
    }
    for (int n = 0; n < 2 && more() && digit(peek()) >= 0; ++n) v = v * 16 + digit(p_[pos_++]);
    return static_cast<char16_t>(v);
  }

  /// An escape after the backslash: a character, or a shorthand class letter (returned as
  /// nullopt with `shorthand` set).
  std::optional<char16_t> escape(char16_t& shorthand) {
    if (!more()) throw BadPattern{};
    char16_t c = p_[pos_++];
    switch (c) {
      case u'd':
      case u'D':
      case u'w':
      case u'W':
      case u's':
      case u'S':
        shorthand = c;
        return std::nullopt;
      case u't':
        return u'\t';
      case u'n':
        return u'\n';
      case u'r':
        return u'\r';
      case u'f':
        return u'\f';
      case u'v':
        return u'\v';
      case u'e':
        return char16_t{27};
      case u'a':
        return char16_t{7};
      case u'x':
        return hex_escape();
      default:
        // Letters and digits are escapes this matcher does not know (back-references,
        // \p{..}, \K...); any other character stands for itself.
        if (is_word(c)) throw BadPattern{};
        return c;
    }
  }

  void atom(int depth) {
    char16_t c = p_[pos_++];
    switch (c) {
      case u'(':
        group(depth);
        return;
      case u'[':
        bracket();
        return;
      case u'.':
        emit({Op::Any, flags_.dotall});
        return;
      case u'^':
        emit({Op::Bol, flags_.multiline});
        return;
      case u'$':
        emit({Op::Eol, flags_.multiline});
        return;
      case u'*':
      case u'+':
      case u'?':
        throw BadPattern{};
      case u'\\':
        break;
      default:
        literal(c);
        return;
    }
    if (more()) {
      switch (peek()) {
        case u'b':
          ++pos_, emit({Op::WordB});
          return;
        case u'B':
          ++pos_, emit({Op::NotWordB});
          return;
        case u'A':
          ++pos_, emit({Op::Begin});
          return;
        case u'z':
          ++pos_, emit({Op::End});
          return;
        case u'Z':
          ++pos_, emit({Op::EndNl});
          return;
        case u'Q': {
          // \Q...\E: everything literal.
          ++pos_;
          while (more() && !(peek() == u'\\' && pos_ + 1 < p_.size() && p_[pos_ + 1] == u'E'))
            literal(p_[pos_++]);
          if (more()) pos_ += 2;
          return;
        }
        case u'E':
          ++pos_;
          return;
        default:
          break;
      }
    }
    char16_t sh = 0;
    auto lit = escape(sh);
    if (lit) {
      literal(*lit);
      return;
    }
    CharClass cc;
    cc.shorthands.push_back(sh);
    add_class(std::move(cc));
  }

  void literal(char16_t c) {
    bool icase = flags_.icase && fold_case(c) != unfold_case(c);
    emit({Op::Char, icase, icase ? fold_case(c) : c});
  }

  void add_class(CharClass cc) {
    cc.icase = flags_.icase;
    prog_.classes.push_back(std::move(cc));
    emit({Op::Class, false, 0, static_cast<uint32_t>(prog_.classes.size() - 1)});
  }

  void bracket() {
    CharClass cc;
    if (more() && peek() == u'^') cc.negated = true, ++pos_;
    bool first = true;
    for (;;) {
      if (!more()) throw BadPattern{};
      char16_t c = p_[pos_++];
      if (c == u']' && !first) break;
      first = false;
      char16_t lo = c;
      if (c == u'[' && more() && peek() == u':') throw BadPattern{};  // [:alpha:] and kin
      if (c == u'\\') {
        char16_t sh = 0;
        auto lit = escape(sh);
        if (!lit) {
          cc.shorthands.push_back(sh);
          continue;
        }
        lo = *lit;
      }
      char16_t hi = lo;
      if (pos_ + 1 < p_.size() && peek() == u'-' && p_[pos_ + 1] != u']') {
        ++pos_;
        hi = p_[pos_++];
        if (hi == u'\\') {
          char16_t sh = 0;
          auto lit = escape(sh);
          if (!lit) throw BadPattern{};
          hi = *lit;
        }
        if (hi < lo) throw BadPattern{};
      }
      cc.ranges.emplace_back(lo, hi);
    }
    add_class(std::move(cc));
  }

  void group(int depth) {
    int slot = -1;
    if (more() && peek() == u'?') {
      ++pos_;
      if (!more()) throw BadPattern{};
      char16_t k = p_[pos_++];
      if (k == u':') {
        // non-capturing
      } else if (k == u'<' || k == u'P' || k == u'\'') {
        if (k == u'P' && (!more() || p_[pos_++] != u'<')) throw BadPattern{};
        if (k == u'<' && more() && (peek() == u'=' || peek() == u'!')) throw BadPattern{};
        char16_t close = k == u'\'' ? u'\'' : u'>';
        size_t at = pos_;
        while (more() && is_word(peek())) ++pos_;
        if (pos_ == at || !more() || peek() != close) throw BadPattern{};
        slot = prog_.groups++;
        prog_.names.emplace_back(String(p_.substr(at, pos_ - at)), slot);
        ++pos_;
      } else {
        // Inline options: (?i) for the rest of the group, (?i:...) for its contents.
        --pos_;
        Flags f = flags_;
        bool on = true;
        for (;;) {
          if (!more()) throw BadPattern{};
          char16_t o = p_[pos_++];
          if (o == u'-') {
            on = false;
          } else if (o == u'i') {
            f.icase = on;
          } else if (o == u'm') {
            f.multiline = on;
          } else if (o == u's') {
            f.dotall = on;
          } else if (o == u'x') {
            f.extended = on;
          } else if (o == u')') {
            flags_ = f;
            return;
          } else if (o == u':') {
            break;
          } else {
            throw BadPattern{};  // look-around, atomic groups, conditionals, comments...
          }
        }
        Flags saved = flags_;
        flags_ = f;
        alternation(depth + 1);
        if (!more() || p_[pos_++] != u')') throw BadPattern{};
        flags_ = saved;
        return;
      }
    } else {
      slot = prog_.groups++;
    }
    if (slot >= 0) emit({Op::Save, false, 0, static_cast<uint32_t>(2 * slot)});
    alternation(depth + 1);
    if (!more() || p_[pos_++] != u')') throw BadPattern{};
    if (slot >= 0) emit({Op::Save, false, 0, static_cast<uint32_t>(2 * slot + 1)});
  }
};

/// A match: the start and end of each group, -1 for a group that took no part.
using Captures = std::vector<int32_t>;

class Matcher {
 public:
  explicit Matcher(Program p) : p_(std::move(p)) {}
  int groups() const { return p_.groups; }
  const Program& program() const { return p_; }

  /// The leftmost match starting at or after `from`, alternatives preferred in the order
  /// the pattern gives them (as a backtracking matcher would find it).
  std::optional<Captures> find(StringView s, size_t from) const {
    size_t n = p_.code.size(), slots = static_cast<size_t>(2 * p_.groups);
    std::vector<Thread> clist, nlist;
    std::vector<uint32_t> mark(n, UINT32_MAX);
    std::optional<Captures> best;
    uint32_t gen = 0;
    for (size_t i = from;; ++i) {
      if (!best) add(clist, mark, gen, 0, Captures(slots, -1), s, i);
      ++gen;
      nlist.clear();
      bool at_end = i >= s.size();
      work_ += clist.size() * (slots + 4);
      if (work_ > kMaxWork) raise(cell_error::value);
      for (size_t t = 0; t < clist.size(); ++t) {
        const Inst& in = p_.code[clist[t].pc];
        if (in.op == Op::Match) {
          best = clist[t].caps;
          break;  // lower-priority threads are cut
        }
        if (at_end) continue;
        char16_t c = s[i];
        bool ok = false;
        switch (in.op) {
          case Op::Char:
            ok = (in.flag ? fold_case(c) : c) == in.c;
            break;
          case Op::Any:
            ok = in.flag || c != u'\n';
            break;
          case Op::Class:
            ok = p_.classes[in.x].matches(c);
            break;
          default:
            break;
        }
        if (ok) add(nlist, mark, gen, clist[t].pc + 1, std::move(clist[t].caps), s, i + 1);
      }
      std::swap(clist, nlist);
      if (at_end || (clist.empty() && best)) break;
    }
    return best;
  }

 private:
  struct Thread {
    uint32_t pc;
    Captures caps;
  };
  Program p_;
  mutable uint64_t work_ = 0;  // over every search of one call

  bool holds(const Inst& in, StringView s, size_t i) const {
    auto word_at = [&](size_t k) { return k < s.size() && is_word(s[k]); };
    switch (in.op) {
      case Op::Bol:
        return i == 0 || (in.flag && s[i - 1] == u'\n');
      case Op::Eol:
        return i == s.size() || (s[i] == u'\n' && (in.flag || i + 1 == s.size()));
      case Op::WordB:
      case Op::NotWordB: {
        bool b = (i > 0 && word_at(i - 1)) != word_at(i);
        return in.op == Op::WordB ? b : !b;
      }
      case Op::Begin:
        return i == 0;
      case Op::End:
        return i == s.size();
      case Op::EndNl:
        return i == s.size() || (i + 1 == s.size() && s[i] == u'\n');
      default:
        return true;
    }
  }

  /// Follows the instructions that consume nothing, in priority order, with an explicit
  /// stack (a long chain of them must not exhaust the call stack).
  void add(std::vector<Thread>& list, std::vector<uint32_t>& mark, uint32_t gen, uint32_t pc,
           Captures caps, StringView s, size_t i) const {
    struct Item {
      uint32_t pc;
      Captures caps;
    };
    std::vector<Item> stack;
    stack.push_back({pc, std::move(caps)});
    while (!stack.empty()) {
      Item it = std::move(stack.back());
      stack.pop_back();
      if (mark[it.pc] == gen) continue;
      mark[it.pc] = gen;
      const Inst& in = p_.code[it.pc];
      switch (in.op) {
        case Op::Jmp:
          stack.push_back({in.x, std::move(it.caps)});
          break;
        case Op::Split:
          stack.push_back({in.y, it.caps});
          stack.push_back({in.x, std::move(it.caps)});
          break;
        case Op::Save:
          it.caps[in.x] = static_cast<int32_t>(i);
          stack.push_back({it.pc + 1, std::move(it.caps)});
          break;
        case Op::Bol:
        case Op::Eol:
        case Op::WordB:
        case Op::NotWordB:
        case Op::Begin:
        case Op::End:
        case Op::EndNl:
          if (holds(in, s, i)) stack.push_back({it.pc + 1, std::move(it.caps)});
          break;
        default:
          list.push_back({it.pc, std::move(it.caps)});
      }
    }
  }
};

/// The pattern argument compiled, or #VALUE! for a pattern the matcher cannot take.
Matcher compile(const String& pattern, bool icase) {
  try {
    return Matcher(Compiler(pattern, icase).compile());
  } catch (const BadPattern&) {
    raise(cell_error::value);
  }
}

/// The case argument: 0 (the default) tells case apart, 1 ignores it; anything else #VALUE!.
bool ignore_case(Args& a, size_t i) {
  if (i >= a.size() || a.missing(i)) return false;
  double d = integer(a, i);
  if (d != 0 && d != 1) raise(cell_error::value);
  return d == 1;
}

Operand f_regextest(Args& a) {
  String s = text(a, 0), pattern = text(a, 1);
  Matcher m = compile(pattern, ignore_case(a, 2));
  return boolean(m.find(s, 0).has_value());
}

Value piece(const String& s, const Captures& c, int g) {
  if (c[2 * g] < 0) return Value::str(u"");
  return Value::str(s.substr(c[2 * g], c[2 * g + 1] - c[2 * g]));
}

/// Where the search goes on after a match: past it, or one further after an empty match.
size_t next_from(const Captures& c) {
  return static_cast<size_t>(c[1] == c[0] ? c[1] + 1 : c[1]);
}

Operand f_regexextract(Args& a) {
  String s = text(a, 0), pattern = text(a, 1);
  double mode = a.size() > 2 && !a.missing(2) ? integer(a, 2) : 0;
  if (mode < 0 || mode > 2) return error(cell_error::value);
  Matcher m = compile(pattern, ignore_case(a, 3));
  auto first = m.find(s, 0);
  if (!first) return error(cell_error::na);
  if (mode == 0) return Value(piece(s, *first, 0));
  if (mode == 2) {
    // The groups of the first match, side by side.
    if (m.groups() < 2) return error(cell_error::na);
    Matrix r(1, m.groups() - 1);
    for (int g = 1; g < m.groups(); ++g) r.cells[g - 1] = piece(s, *first, g);
    return r.cells.size() == 1 ? Operand(r.cells[0]) : Operand::arr(std::move(r));
  }
  // Every match, one under the other.
  std::vector<Value> all;
  for (auto c = first; c; c = next_from(*c) <= s.size() ? m.find(s, next_from(*c)) : std::nullopt)
    all.push_back(piece(s, *c, 0));
  Matrix r(static_cast<int32_t>(all.size()), 1);
  r.cells = std::move(all);
  return r.cells.size() == 1 ? Operand(r.cells[0]) : Operand::arr(std::move(r));
}

/// The replacement for one match: "$n", "${n}" and "${name}" give a group, "$$" a dollar.
String substitute(const String& with, const String& s, const Captures& c, const Program& p) {
  String out;
  for (size_t k = 0; k < with.size(); ++k) {
    char16_t ch = with[k];
    if (ch != u'$' || k + 1 >= with.size()) {
      out += ch;
      continue;
    }
    char16_t nx = with[k + 1];
    if (nx == u'$') {
      out += u'$';
      ++k;
      continue;
    }
    int g = -1;
    size_t end = k + 1;
    if (is_digit(nx)) {
      g = 0;
      while (end < with.size() && is_digit(with[end]) && g < 1000)
        g = g * 10 + (with[end++] - u'0');
    } else if (nx == u'{') {
      size_t close = with.find(u'}', k + 2);
      if (close != String::npos) {
        String name = with.substr(k + 2, close - k - 2);
        bool digits = !name.empty() && std::all_of(name.begin(), name.end(), is_digit);
        if (digits && name.size() < 5) {
          g = 0;
          for (char16_t d : name) g = g * 10 + (d - u'0');
        }
        for (const auto& [n, slot] : p.names)
          if (n == name) g = slot;
        end = close + 1;
      }
    }
    if (g < 0 || g >= p.groups) raise(cell_error::value);
    if (c[2 * g] >= 0) out += s.substr(c[2 * g], c[2 * g + 1] - c[2 * g]);
    k = end - 1;
  }
  return out;
}

Operand f_regexreplace(Args& a) {
  String s = text(a, 0), pattern = text(a, 1), with = text(a, 2);
  double occurrence = a.size() > 3 && !a.missing(3) ? integer(a, 3) : 0;
  Matcher m = compile(pattern, ignore_case(a, 4));
  std::vector<Captures> found;
  for (size_t from = 0; from <= s.size();) {
    auto c = m.find(s, from);
    if (!c) break;
    from = next_from(*c);
    found.push_back(std::move(*c));
  }
  // 0 replaces every match; n the n-th; -n the n-th from the end.
  int64_t n = static_cast<int64_t>(found.size());
  int64_t only = occurrence > 0   ? static_cast<int64_t>(occurrence) - 1
                 : occurrence < 0 ? n + static_cast<int64_t>(occurrence)
                                  : -1;
  if (occurrence != 0 && (only < 0 || only >= n)) return text(s);
  String out;
  size_t at = 0;
  for (int64_t k = 0; k < n; ++k) {
    if (only >= 0 && k != only) continue;
    const Captures& c = found[k];
    out += s.substr(at, c[0] - at);
    out += substitute(with, s, c, m.program());
    at = static_cast<size_t>(c[1]);
  }
  out += s.substr(at);
  if (out.size() > 32767) return error(cell_error::value);
  return text(std::move(out));
}

}  // namespace

void add_regex_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"REGEXEXTRACT", 2, 4, f_regexextract, each_arg},
                        {u"REGEXREPLACE", 3, 5, f_regexreplace, each_arg},
                        {u"REGEXTEST", 2, 3, f_regextest, each_arg},
                    });
}

}  // namespace qz::engine::calc
