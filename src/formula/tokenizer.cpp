#include "formula/tokenizer.hpp"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"

// The per-piece work is small and runs hundreds of thousands of times for a workbook; it
// must not cost a call.
#if defined(__GNUC__)
#define QZXL_ALWAYS_INLINE [[gnu::always_inline]] inline
#else
#define QZXL_ALWAYS_INLINE inline
#endif

namespace qz::formula {

namespace {

enum CharClass : uint8_t {
  kPlain,
  kDoubleQuote,
  kSingleQuote,
  kOpenBracket,
  kCloseBracket,
  kOperator,
  kHash
};

// The scanner's view of the ASCII characters; every other character is plain.
constexpr auto kCharClass = [] {
  std::array<uint8_t, 128> t{};
  for (char16_t c = 0; c < 128; ++c)
    if (is_break_char(c)) t[c] = kOperator;
  t[u'"'] = kDoubleQuote;
  t[u'\''] = kSingleQuote;
  t[u'['] = kOpenBracket;
  t[u']'] = kCloseBracket;
  // Not a break, but a piece without one cannot hold "#REF!"; noting where they are spares
  // a search through every reference.
  t[u'#'] = kHash;
  return t;
}();

// Bit k set for each of the first `n` characters of `p` that the scanner must look at: an
// operator, a quote, a bracket or "#". For texts shorter than one block.
inline uint32_t short_mask(const char16_t* p, int32_t n) {
  uint32_t mask = 0;
  for (int32_t i = 0; i < n; ++i) {
    const char16_t c = p[i];
    mask |= static_cast<uint32_t>(c < 128 && kCharClass[c & 127] != kPlain) << i;
  }
  return mask;
}

// The same for the 16 characters from `p` on.
inline uint32_t block_mask(const char16_t* p) {
#if defined(__SSE2__)
  // The characters are first narrowed to bytes with saturation: every character above 0xFF
  // becomes 0x00 or 0xFF, neither of them special (a plain cut to the low byte would take
  // U+0128 for "("), so that one test of 16 bytes covers 16 characters.
  // The special characters are 0x22..0x23, 0x26..0x2D, 0x2F, 0x3C..0x3E, 0x5B, 0x5D, 0x5E.
  const __m128i v = _mm_packus_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
                                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8)));
  const __m128i zero = _mm_setzero_si128();
  auto within = [&](char lo, char count) {  // lo <= v < lo + count, unsigned
    const __m128i d = _mm_sub_epi8(v, _mm_set1_epi8(lo));
    return _mm_cmpeq_epi8(_mm_subs_epu8(d, _mm_set1_epi8(static_cast<char>(count - 1))), zero);
  };
  auto equal = [&](char c) { return _mm_cmpeq_epi8(v, _mm_set1_epi8(c)); };
  const __m128i specials =
      _mm_or_si128(_mm_or_si128(_mm_or_si128(within(0x26, 8), within(0x3C, 3)),
                                _mm_or_si128(within(0x5D, 2), within(0x22, 2))),
                   _mm_or_si128(equal(0x2F), equal(0x5B)));
  return static_cast<uint32_t>(_mm_movemask_epi8(specials));
#else
  uint32_t mask = 0;
  for (int32_t i = 0; i < 16; ++i)
    if (p[i] < 128 && kCharClass[p[i]] != kPlain) mask |= 1u << i;
  return mask;
#endif
}

// The same for up to 64 characters of `data` from `base` on (bit k for data[base + k]). The
// scanner takes a text in groups this long, so that a usual formula is one group and the
// loop over its marked characters is left once. Every read stays inside the text: the last
// block read ends at the end of the text, overlapping the one before, whose marks it repeats.
inline uint64_t group_mask(const char16_t* data, int32_t base, int32_t length) {
  const int32_t left = length - base;
  if (left >= 64) {
    const char16_t* p = data + base;
    return uint64_t{block_mask(p)} | uint64_t{block_mask(p + 16)} << 16 |
           uint64_t{block_mask(p + 32)} << 32 | uint64_t{block_mask(p + 48)} << 48;
  }
  if (length < 16) return short_mask(data + base, left);
  uint64_t mask = 0;
  int32_t k = 0;
  for (; k + 16 < left; k += 16) mask |= uint64_t{block_mask(data + base + k)} << k;
  const uint64_t last = block_mask(data + length - 16);
  return mask | (left >= 16 ? last << (left - 16) : last >> (16 - left));
}

// The characters other than the locale's decimal point and currency symbol that may begin
// a number, and the ASCII letters.
constexpr auto kNumberStart = [] {
  std::array<bool, 128> t{};
  for (char16_t c = u'0'; c <= u'9'; ++c) t[c] = true;
  t[u'+'] = t[u'-'] = t[u'('] = t[u'&'] = true;
  return t;
}();
constexpr auto kAsciiLetter = [] {
  std::array<bool, 128> t{};
  for (char16_t c = u'A'; c <= u'Z'; ++c) t[c] = t[c + 32] = true;
  return t;
}();

// Whether `text` reads as a number by the runtime's rules (qz::parse_number). Most operands
// are references that begin with a letter, and most numbers are plain digits: both are told
// here without the full reading. Anything else goes to parse_number.
bool is_number(StringView text, const Locale& loc) {
  size_t i = 0;
  while (i < text.size() && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r'))) ++i;
  if (i == text.size()) return false;
  const char16_t c = text[i];
  // A number begins, after white space, with a digit, the decimal point, the currency
  // symbol, a sign, a parenthesis or a radix "&". One table lookup settles the usual case,
  // a reference beginning with a letter, where a chain of comparisons would branch on each.
  if (!(c < 128 && kNumberStart[c]) && c != loc.decimal &&
      (loc.currency.empty() || c != loc.currency.front()))
    return false;
  // An absolute reference ($A$1, $B2) begins with the dollar sign, which is also the usual
  // currency symbol. A letter right after the symbol can start neither digits nor a sign, so
  // such a piece is no number, and the full reading is spared for every such reference.
  if (c == u'$' && loc.currency == u"$" && i + 1 < text.size()) {
    const char16_t after = text[i + 1];
    if (after < 128 && kAsciiLetter[after] && after != loc.decimal) return false;
  }
  if (i == 0 && text.size() <= 15) {
    // Digits with at most one decimal point and nothing else: a number in any locale.
    bool plain = true, point = false, any_digit = false;
    for (char16_t d : text) {
      if (d >= u'0' && d <= u'9') {
        any_digit = true;
      } else if (d == loc.decimal && !point) {
        point = true;
      } else {
        plain = false;
        break;
      }
    }
    if (plain && any_digit) return true;
  }
  return parse_number(text).has_value();
}

// Whether, with this locale, an operand that begins with an ASCII letter, or with "$" and a
// letter, never reads as a number: true unless the decimal point or the currency symbol
// begins with a letter or "$" (a currency of "$" alone is fine: is_number turns down "$"
// before a letter itself).
bool names_never_numbers(const Locale& loc) {
  auto name_start = [](char16_t c) { return c == u'$' || (c < 128 && kAsciiLetter[c]); };
  return !name_start(loc.decimal) &&
         (loc.currency.empty() || loc.currency == u"$" || !name_start(loc.currency.front()));
}

// Whether `text` (not empty) begins like a name or a reference: a letter, or "$" and a letter.
inline bool begins_as_name(StringView text) {
  const char16_t c = text[0];
  return (c < 128 && kAsciiLetter[c]) ||
         (c == u'$' && text.size() > 1 && text[1] < 128 && kAsciiLetter[text[1]]);
}

// One operand is classified in a fixed order; the first test that holds decides, so a
// piece never carries two flags. `has_hash` tells whether the operand holds a "#" at all.
void classify_operand(FmlaPiece& piece, StringView text, bool followed_by_paren, bool has_hash,
                      bool mark_ranges, const Locale& loc) {
  if (followed_by_paren) {
    piece.IsFunction = true;
  } else if (text.front() == u'"' && text.back() == u'"') {
    // A lone double quote is both its own first and last character.
    piece.IsSimpleText = true;
  } else if (is_number(text, loc)) {
    piece.IsValue = true;
  } else if (has_hash && instr_text(1, text, u"#REF!") > 0) {
    // A broken reference is neither a value nor something that can be followed.
  } else if (mark_ranges) {
    piece.IsRange = true;
  } else {
    piece.IsObjectKey = true;
  }
}

// Fills the caller's piece array in place: pieces already there are overwritten rather than
// destroyed and rebuilt, so a caller that reads many formulas into one array reuses the
// buffers of its longer pieces.
class PieceWriter {
 public:
  /// `text` is the formula the pieces are cut from; the pieces of add_cut lie inside it.
  PieceWriter(FmlaPieces& pieces, StringView text)
      : pieces_(pieces), size_(pieces.size()), text_end_(text.data() + text.size()) {}
  ~PieceWriter() { pieces_.resize(used_); }
  PieceWriter(const PieceWriter&) = delete;
  PieceWriter& operator=(const PieceWriter&) = delete;

  /// A piece with any text.
  QZXL_ALWAYS_INLINE FmlaPiece& add(StringView text, int32_t start) {
    FmlaPiece& p = next_slot(start);
    // Emptied and refilled, the slot keeps its buffer, and the only test left is whether
    // the buffer is large enough, which almost always holds. Comparing the new length with
    // the slot's old one (a leftover of another formula) would be guessed wrong half the time.
    p.ThePiece.clear();
    p.ThePiece.append(text.data(), text.size());
    return p;
  }
  /// A piece whose text is part of the formula.
  QZXL_ALWAYS_INLINE FmlaPiece& add_cut(StringView text, int32_t start) {
    FmlaPiece& p = next_slot(start);
    String& s = p.ThePiece;
    s.clear();
    // Most pieces are a few characters long. Copying a fixed number of characters and then
    // cutting the string back is a handful of moves, where a copy of the exact length goes
    // through a general copy routine that first works out which way to copy that length.
    // The window fits the buffer every string has, and it may reach past the piece into the
    // rest of the formula, up to its terminating null.
    if (text.size() <= kWindow &&
        text_end_ - text.data() >= static_cast<std::ptrdiff_t>(kWindow) - 1) {
      s.append(text.data(), kWindow);
      s.erase(text.size());
    } else {
      s.append(text.data(), text.size());
    }
    return p;
  }
  // An operator piece: one character, written straight into the slot's buffer. A slot's old
  // piece is almost never empty, so the string is simply cut to one character, with no test
  // of its old length (which varies from formula to formula and would be guessed wrong).
  QZXL_ALWAYS_INLINE void add_operator(char16_t c, int32_t start) {
    FmlaPiece* p;
    if (used_ < size_) {
      p = &pieces_[used_];
      String& s = p->ThePiece;
      if (!s.empty()) {
        s[0] = c;
        s.erase(1);
      } else {
        s.assign(1, c);
      }
      p->IsFunction = p->IsRange = p->IsObjectKey = p->IsValue = p->IsSimpleText = false;
    } else {
      p = &pieces_.emplace_back();
      ++size_;
      p->ThePiece.push_back(c);
    }
    ++used_;
    p->StartPos = start;
    p->IsOperator = true;
  }
  FmlaPiece& last() { return pieces_[used_ - 1]; }

 private:
  // The characters an empty string holds without allocating (seven UTF-16 units with the
  // standard library we build with; with a smaller buffer the copy still works, it just
  // allocates).
  static constexpr size_t kWindow = 7;

  // The next slot, with its flags cleared and its position set; its text is left to the caller.
  QZXL_ALWAYS_INLINE FmlaPiece& next_slot(int32_t start) {
    FmlaPiece* p;
    if (used_ < size_) {
      p = &pieces_[used_];
      p->IsOperator = p->IsFunction = p->IsRange = p->IsObjectKey = p->IsValue = p->IsSimpleText =
          false;
    } else {
      p = &pieces_.emplace_back();
      ++size_;
    }
    ++used_;
    p->StartPos = start;
    return *p;
  }

  FmlaPieces& pieces_;
  size_t size_;  // pieces_.size(), kept at hand
  size_t used_ = 0;
  const char16_t* text_end_;  // where the formula's terminating null is
};

// Expands the reference `segment` (untrimmed, as it stands in the formula) into its cells
// and splices them into `formula` after the operator at `op_pos` (1-based, in rewritten
// coordinates); `rest` is the text on entry from the next operator on. The operand piece,
// last in `out`, becomes the first cell, and a "," and a piece follow for every further
// cell. Returns the change in length. A reference that cannot be expanded is replaced by
// what the expansion gave, nothing: it drops out of the formula, while its piece keeps its
// text and the pieces after it keep their places in the shortened formula.
int32_t replace_range(String& formula, PieceWriter& out, StringView segment, int32_t op_pos,
                      StringView rest) {
  std::vector<String> parts;
  int32_t change = -static_cast<int32_t>(segment.size());
  String replacement;
  step([&] {
    replacement =
        require(frame::session().LibRange)->SplitRange(String(segment), parts, &change, false);
  });

  String rewritten;
  rewritten.reserve(static_cast<size_t>(op_pos) + replacement.size() + rest.size());
  rewritten.append(StringView(formula).substr(0, static_cast<size_t>(op_pos)));
  rewritten.append(replacement);
  rewritten.append(rest);
  formula = std::move(rewritten);
  if (parts.empty()) return change;

  FmlaPiece& first = out.last();
  first.ThePiece = parts[0];
  int32_t next_pos = first.StartPos + static_cast<int32_t>(first.ThePiece.size());
  for (size_t i = 1; i < parts.size(); ++i) {
    out.add_operator(u',', next_pos);
    out.add(parts[i], next_pos + 1).IsRange = true;
    next_pos += 1 + static_cast<int32_t>(parts[i].size());
  }
  return change;
}

}  // namespace

void parse_formula(String& formula, FmlaPieces& pieces, const ParseMode& mode) {
  const bool may_rewrite = !mode.keep_ranges && mode.mark_ranges;
  // Segments are always cut from the text as it was on entry; only the reported positions
  // follow the rewritten formula. A copy is needed only when the formula may change.
  String entry_copy;
  if (may_rewrite) entry_copy = formula;
  const StringView f = may_rewrite ? StringView(entry_copy) : StringView(formula);
  // Both texts are strings, so the character after the last is their null.
  PieceWriter out(pieces, f);

  if (f.empty() || f.front() != u'=') {
    FmlaPiece& whole = out.add_cut(f, 1);
    if (parse_number(f))
      whole.IsValue = true;
    else
      whole.IsSimpleText = true;
    return;
  }

  const Locale& loc = current_locale();
  const bool names_plain = names_never_numbers(loc);
  const auto length = static_cast<int32_t>(f.size());
  int32_t shift = 0;       // growth of the formula from the replacements made so far
  bool hash_seen = false;  // a "#" since the last operator

  // The operand between the operator at `at` (1-based) and the next one, at `next` (or the
  // end of the text, length + 1); the caller makes sure there is at least one character
  // between them. Views are made directly: the bounds are known to hold, and the checks of
  // substr cost more than the rest of a short operand's handling.
  auto operand = [&](int32_t at, int32_t next) {
    const StringView segment(f.data() + at, static_cast<size_t>(next - at - 1));
    size_t first = 0, end = segment.size();
    while (first < end && segment[first] == u' ') ++first;
    while (end > first && segment[end - 1] == u' ') --end;
    const StringView text(segment.data() + first, end - first);
    // Blanks alone between two operators make no operand.
    if (text.empty()) return;
    FmlaPiece& piece =
        mode.trim
            ? out.add_cut(text, at + shift + static_cast<int32_t>(text.data() - segment.data()) + 1)
            : out.add_cut(segment, at + shift + 1);
    const bool followed_by_paren = next <= length && f[static_cast<size_t>(next - 1)] == u'(';
    if (begins_as_name(text) && names_plain && !hash_seen) {
      // Most operands are function names and references. Such an operand is neither a text
      // nor, in this locale, a number, and holds no "#REF!", so of the tests in
      // classify_operand only the first and the last two can hold; their flags are set
      // without branching on which.
      piece.IsFunction = followed_by_paren;
      piece.IsRange = !followed_by_paren & mode.mark_ranges;
      piece.IsObjectKey = !followed_by_paren & !mode.mark_ranges;
    } else {
      classify_operand(piece, text, followed_by_paren, hash_seen, mode.mark_ranges, loc);
    }
    hash_seen = false;
    if (may_rewrite && piece.IsRange && text.find(u':') != StringView::npos) {
      const StringView rest = f.substr(static_cast<size_t>(next - 1));
      shift += replace_range(formula, out, segment, at + shift, rest);
    }
  };

  // The text is read in groups of 64 characters; a mask marks the characters that matter
  // to the scanner (quotes, brackets, operators, "#") and only those are looked at one by one.
  // Quotes hide operators. A single quote toggles whatever else is open; inside a
  // double-quoted text that toggle, and any bracket, is undone by the closing double quote,
  // which clears every state, so a double-quoted text is skipped whole. Because the text
  // begins with "=", the first operator is always at position 1.
  const char16_t* const data = f.data();
  bool in_single = false, in_brackets = false;
  int32_t previous = 0;
  int32_t block = 0;
  while (block < length) {
    const int32_t base = block;
    uint64_t mask = group_mask(data, base, length);
    block += 64;
    while (mask != 0) {
      const int32_t i = base + std::countr_zero(mask);
      mask &= mask - 1;
      const uint8_t cls = kCharClass[data[i]];
      if (cls == kOperator) {
        if (in_single || in_brackets) continue;
        // Adjacent operators ("<>", ">=", "((") have no operand between them.
        if (i > previous) operand(previous, i + 1);
        out.add_operator(data[i], i + 1 + shift);
        previous = i + 1;
      } else if (cls == kDoubleQuote) {
        const size_t close = f.find(u'"', static_cast<size_t>(i) + 1);
        // An open text runs to the end: no operator after it.
        block = close == StringView::npos ? length : static_cast<int32_t>(close) + 1;
        if (f.substr(static_cast<size_t>(i), static_cast<size_t>(block - i)).find(u'#') !=
            StringView::npos)
          hash_seen = true;
        in_single = in_brackets = false;
        mask = 0;
      } else if (cls == kHash) {
        hash_seen = true;
      } else if (cls == kSingleQuote) {
        in_single = !in_single;
      } else if (mode.r1c1) {
        in_brackets = cls == kOpenBracket;
      }
    }
  }
  if (length > previous) operand(previous, length + 1);
}

}  // namespace qz::formula
