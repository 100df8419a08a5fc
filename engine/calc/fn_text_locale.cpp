// Text functions tied to scripts and languages: amounts in Thai words (BAHTTEXT), full- and
// half-width forms (ASC, DBCS, JIS), phonetic guides (PHONETIC) and addresses for the web
// (ENCODEURL).
#include <cmath>

#include "engine/calc/fn_util.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

using namespace fn;

// ---- BAHTTEXT -------------------------------------------------------------------------------

constexpr const char16_t* kThaiDigits[] = {u"\u0e28\u0e39\u0e19\u0e22\u0e4c",  // 0
                                           u"\u0e2b\u0e19\u0e36\u0e48\u0e07",  // 1
                                           u"\u0e2a\u0e2d\u0e07",              // 2
                                           u"\u0e2a\u0e32\u0e21",              // 3
                                           u"\u0e2a\u0e35\u0e48",              // 4
                                           u"\u0e2b\u0e49\u0e32",              // 5
                                           u"\u0e2b\u0e01",                    // 6
                                           u"\u0e40\u0e08\u0e47\u0e14",        // 7
                                           u"\u0e41\u0e1b\u0e14",              // 8
                                           u"\u0e40\u0e01\u0e49\u0e32"};       // 9
constexpr const char16_t* kThaiPlaces[] = {u"",
                                           u"\u0e2a\u0e34\u0e1a",              // 10
                                           u"\u0e23\u0e49\u0e2d\u0e22",        // 100
                                           u"\u0e1e\u0e31\u0e19",              // 1,000
                                           u"\u0e2b\u0e21\u0e37\u0e48\u0e19",  // 10,000
                                           u"\u0e41\u0e2a\u0e19"};             // 100,000
constexpr const char16_t* kThaiMillion = u"\u0e25\u0e49\u0e32\u0e19";
constexpr const char16_t* kThaiOneAfter = u"\u0e40\u0e2d\u0e47\u0e14";  // "et": a final one
constexpr const char16_t* kThaiTwenty = u"\u0e22\u0e35\u0e48";          // "yi": two tens
constexpr const char16_t* kBaht = u"\u0e1a\u0e32\u0e17";
constexpr const char16_t* kSatang = u"\u0e2a\u0e15\u0e32\u0e07\u0e04\u0e4c";
constexpr const char16_t* kWhole = u"\u0e16\u0e49\u0e27\u0e19";
constexpr const char16_t* kMinus = u"\u0e25\u0e1a";

/// A whole number below a million in Thai words; `more_before` says whether higher digits
/// were spoken (a final one is then "et").
String thai_below_million(int64_t n, bool more_before) {
  String out;
  int digits[6];
  for (int k = 0; k < 6; ++k, n /= 10) digits[k] = static_cast<int>(n % 10);
  bool spoken = more_before;
  for (int k = 5; k >= 0; --k) {
    int d = digits[k];
    if (d == 0) continue;
    if (k == 1) {
      if (d == 2)
        out += kThaiTwenty;
      else if (d != 1)
        out += kThaiDigits[d];
    } else if (k == 0 && d == 1 && spoken) {
      out += kThaiOneAfter;
      continue;
    } else {
      out += kThaiDigits[d];
    }
    out += kThaiPlaces[k];
    spoken = true;
  }
  return out;
}
String thai_number(int64_t n) {
  if (n < 1000000) return thai_below_million(n, false);
  return thai_number(n / 1000000) + kThaiMillion + thai_below_million(n % 1000000, true);
}

Operand f_bahttext(Args& a) {
  double x = number(a, 0);
  double cents_total = std::round(std::fabs(x) * 100);
  if (cents_total >= 9.2e18) return error(cell_error::num);
  int64_t all = static_cast<int64_t>(cents_total);
  int64_t baht = all / 100, satang = all % 100;
  String out = x < 0 && all != 0 ? kMinus : u"";
  if (baht > 0 || satang == 0)
    out += (baht == 0 ? String(kThaiDigits[0]) : thai_number(baht)) + kBaht;
  if (satang == 0)
    out += kWhole;
  else
    out += thai_below_million(satang, false) + kSatang;
  return text(out);
}

// ---- full- and half-width forms ---------------------------------------------------------------

// Half-width katakana U+FF66..U+FF9D and the full-width characters they stand for.
constexpr char16_t kKatakana[] = {
    0x30F2, 0x30A1, 0x30A3, 0x30A5, 0x30A7, 0x30A9, 0x30E3, 0x30E5, 0x30E7, 0x30C3,  // FF66..
    0x30FC, 0x30A2, 0x30A4, 0x30A6, 0x30A8, 0x30AA, 0x30AB, 0x30AD, 0x30AF, 0x30B1,  // FF70..
    0x30B3, 0x30B5, 0x30B7, 0x30B9, 0x30BB, 0x30BD, 0x30BF, 0x30C1, 0x30C4, 0x30C6,  // FF7A..
    0x30C8, 0x30CA, 0x30CB, 0x30CC, 0x30CD, 0x30CE, 0x30CF, 0x30D2, 0x30D5, 0x30D8,  // FF84..
    0x30DB, 0x30DE, 0x30DF, 0x30E0, 0x30E1, 0x30E2, 0x30E4, 0x30E6, 0x30E8, 0x30E9,  // FF8E..
    0x30EA, 0x30EB, 0x30EC, 0x30ED, 0x30EF, 0x30F3};                                 // FF98..FF9D
// Punctuation U+FF61..U+FF65 and the voicing marks U+FF9E, U+FF9F.
constexpr char16_t kHalfPunct[] = {0x3002, 0x300C, 0x300D, 0x3001, 0x30FB};
constexpr char16_t kVoiced = 0x309B, kSemiVoiced = 0x309C;

/// Full-width katakana that a voicing mark can join: the K, S, T and H rows, and U.
bool takes_voicing(char16_t full) {
  return (full >= 0x30AB && full <= 0x30C8 && (full - 0x30AB) % 2 == 0 && full != 0x30C3) ||
         full == 0x30C4 || full == 0x30C6 || full == 0x30C8 ||
         (full >= 0x30CF && full <= 0x30DB && (full - 0x30CF) % 3 == 0) || full == 0x30A6;
}
bool takes_semi_voicing(char16_t full) {
  return full >= 0x30CF && full <= 0x30DB && (full - 0x30CF) % 3 == 0;
}

/// Half-width to full-width (DBCS, JIS).
String to_full_width(StringView s) {
  String out;
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c == u' ') {
      out += char16_t(0x3000);
    } else if (c >= 0x21 && c <= 0x7E) {
      out += static_cast<char16_t>(c - 0x21 + 0xFF01);
    } else if (c >= 0xFF61 && c <= 0xFF65) {
      out += kHalfPunct[c - 0xFF61];
    } else if (c >= 0xFF66 && c <= 0xFF9D) {
      char16_t full = kKatakana[c - 0xFF66];
      char16_t next = i + 1 < s.size() ? s[i + 1] : 0;
      if (next == 0xFF9E && takes_voicing(full)) {
        out += full == 0x30A6 ? char16_t(0x30F4) : static_cast<char16_t>(full + 1);
        ++i;
      } else if (next == 0xFF9F && takes_semi_voicing(full)) {
        out += static_cast<char16_t>(full + 2);
        ++i;
      } else {
        out += full;
      }
    } else if (c == 0xFF9E) {
      out += kVoiced;
    } else if (c == 0xFF9F) {
      out += kSemiVoiced;
    } else {
      out += c;
    }
  }
  return out;
}

/// Full-width to half-width (ASC).
String to_half_width(StringView s) {
  String out;
  for (char16_t c : s) {
    if (c == 0x3000) {
      out += u' ';
      continue;
    }
    if (c >= 0xFF01 && c <= 0xFF5E) {
      out += static_cast<char16_t>(c - 0xFF01 + 0x21);
      continue;
    }
    bool done = false;
    for (int k = 0; k < 5 && !done; ++k)
      if (kHalfPunct[k] == c) out += static_cast<char16_t>(0xFF61 + k), done = true;
    if (c == kVoiced) out += char16_t(0xFF9E), done = true;
    if (c == kSemiVoiced) out += char16_t(0xFF9F), done = true;
    for (int k = 0; k < 56 && !done; ++k) {
      char16_t base = kKatakana[k], half = static_cast<char16_t>(0xFF66 + k);
      if (c == base) {
        out += half;
        done = true;
      } else if (takes_voicing(base) && c == (base == 0x30A6 ? 0x30F4 : base + 1)) {
        out += half;
        out += char16_t(0xFF9E);
        done = true;
      } else if (takes_semi_voicing(base) && c == base + 2) {
        out += half;
        out += char16_t(0xFF9F);
        done = true;
      }
    }
    if (!done) out += c;
  }
  return out;
}

Operand f_asc(Args& a) {
  return text(to_half_width(text(a, 0)));
}
Operand f_dbcs(Args& a) {
  return text(to_full_width(text(a, 0)));
}

/// Phonetic guides are not kept with cell text here, so the guide is the text itself: the
/// text cells of the reference joined, as the application shows cells without guides.
Operand f_phonetic(Args& a) {
  const Operand& o = a.get(0);
  if (!o.is_ref()) {
    Value v = a.ev().scalar(o);
    if (v.is_error()) return v;
    return text(v.kind == Value::Kind::Text ? v.text : String());
  }
  String out;
  a.ev().for_each(o, [&](const Value& v, bool) {
    if (v.kind == Value::Kind::Text) out += v.text;
  });
  return text(out);
}

Operand f_encodeurl(Args& a) {
  std::string bytes = to_utf8(text(a, 0));
  String out;
  static const char* hex = "0123456789ABCDEF";
  for (unsigned char c : bytes) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
        c == '_' || c == '.' || c == '~') {
      out += static_cast<char16_t>(c);
    } else {
      out += u'%';
      out += static_cast<char16_t>(hex[c >> 4]);
      out += static_cast<char16_t>(hex[c & 15]);
    }
  }
  return text(out);
}

}  // namespace

void add_text_locale_functions(std::vector<FunctionInfo>& t) {
  t.insert(t.end(), {
                        {u"ASC", 1, 1, f_asc, each_arg},
                        {u"BAHTTEXT", 1, 1, f_bahttext, each_arg},
                        {u"DBCS", 1, 1, f_dbcs, each_arg},
                        {u"ENCODEURL", 1, 1, f_encodeurl, each_arg},
                        {u"JIS", 1, 1, f_dbcs, each_arg},
                        {u"PHONETIC", 1, 1, f_phonetic},
                    });
}

}  // namespace qz::engine::calc
