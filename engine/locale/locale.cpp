#include "engine/locale/locale.hpp"

#include <unicode/datefmt.h>
#include <unicode/dcfmtsym.h>
#include <unicode/dtfmtsym.h>
#include <unicode/locid.h>
#include <unicode/numfmt.h>
#include <unicode/smpdtfmt.h>

#include <array>
#include <memory>
#include <string>

namespace qz::engine::locale {
namespace {

String from_icu(const icu::UnicodeString& s) {
  return String(reinterpret_cast<const char16_t*>(s.getBuffer()), static_cast<size_t>(s.length()));
}

bool is_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// "de_DE.UTF-8@euro" -> language "de", region "DE"; nothing for what is no locale name.
struct Name {
  std::string language, region;
};
std::optional<Name> split_name(std::string_view name) {
  name = name.substr(0, name.find_first_of(".@"));
  const size_t cut = name.find_first_of("-_");
  Name out{std::string(name.substr(0, cut)),
           cut == std::string_view::npos ? std::string() : std::string(name.substr(cut + 1))};
  if (out.language.size() < 2 || out.language.size() > 3) return std::nullopt;
  for (char& c : out.language) {
    if (!is_letter(c)) return std::nullopt;
    c = static_cast<char>(c | 0x20);
  }
  if (!out.region.empty()) {
    if (out.region.size() != 2) return std::nullopt;
    for (char& c : out.region) {
      if (!is_letter(c)) return std::nullopt;
      c = static_cast<char>(c & ~0x20);
    }
  }
  return out;
}

bool language_known(const std::string& language) {
  int32_t count = 0;
  const icu::Locale* all = icu::Locale::getAvailableLocales(count);
  for (int32_t i = 0; i < count; ++i)
    if (language == all[i].getLanguage()) return true;
  return false;
}

bool region_known(const std::string& region) {
  for (const char* const* code = icu::Locale::getISOCountries(); *code; ++code)
    if (region == *code) return true;
  return false;
}

bool is_space(char16_t c) {
  return c == u' ' || c == u'\u00A0' || c == u'\u202F';
}

// An amount of 1.1 as the locale writes it, brought to the shape the platform's codes name:
// "$" for the currency symbol, "1.1" for the digits, "-" for any minus, one blank for any
// space, and no direction marks.
String shape(String text, const String& symbol, char16_t decimal) {
  String out;
  for (size_t i = 0; i < text.size();) {
    if (!symbol.empty() && text.compare(i, symbol.size(), symbol) == 0) {
      out += u'$';
      i += symbol.size();
      continue;
    }
    char16_t c = text[i++];
    if (c == u'\u200E' || c == u'\u200F' || c == u'\u061C') continue;
    if (c == u'\u2212') c = u'-';
    if (is_space(c)) c = u' ';
    if (c == decimal) c = u'.';
    out += c;
  }
  return out;
}

// The position of `shape` in a list of the platform's forms; its code, or `fallback`.
template <size_t N>
int32_t code_of(const String& shape, const std::array<const char16_t*, N>& forms,
                int32_t fallback) {
  for (size_t i = 0; i < N; ++i)
    if (shape == forms[i]) return static_cast<int32_t>(i);
  return fallback;
}

constexpr std::array<const char16_t*, 4> kCurrencyForms = {u"$1.1", u"1.1$", u"$ 1.1", u"1.1 $"};
constexpr std::array<const char16_t*, 5> kNegativeForms = {u"(1.1)", u"-1.1", u"- 1.1", u"1.1-",
                                                           u"1.1 -"};
constexpr std::array<const char16_t*, 16> kNegativeCurrencyForms = {
    u"($1.1)", u"-$1.1",  u"$-1.1",  u"$1.1-",  u"(1.1$)", u"-1.1$",  u"1.1-$",   u"1.1$-",
    u"-1.1 $", u"-$ 1.1", u"1.1 $-", u"$ 1.1-", u"$ -1.1", u"1.1- $", u"($ 1.1)", u"(1.1 $)"};

String format_amount(icu::NumberFormat& format, double v) {
  format.setMinimumFractionDigits(1);
  format.setMaximumFractionDigits(1);
  icu::UnicodeString text;
  format.format(v, text);
  return from_icu(text);
}

// A short-date pattern in the platform's letters: the day and month as the locale pads them,
// the year always in full (as the application's built-in date shows it), literal text
// unquoted.
String date_pattern(const icu::UnicodeString& icu_pattern) {
  const String p = from_icu(icu_pattern);
  String out;
  bool quoted = false;
  for (size_t i = 0; i < p.size();) {
    const char16_t c = p[i];
    if (c == u'\'') {
      quoted = !quoted;
      ++i;
      continue;
    }
    size_t run = 1;
    while (i + run < p.size() && p[i + run] == c) ++run;
    if (!quoted && (c == u'y' || c == u'Y' || c == u'u'))
      out += u"yyyy";
    else if (!quoted && (c == u'd' || c == u'M' || c == u'L'))
      out.append(std::min<size_t>(run, 2), c == u'd' ? u'd' : u'M');
    else
      out.append(run, c);
    i += run;
  }
  return out;
}

void read_numbers(const icu::Locale& where, Locale& out) {
  UErrorCode status = U_ZERO_ERROR;
  icu::DecimalFormatSymbols symbols(where, status);
  if (U_FAILURE(status)) return;
  const String decimal =
      from_icu(symbols.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol));
  const String group =
      from_icu(symbols.getSymbol(icu::DecimalFormatSymbols::kGroupingSeparatorSymbol));
  if (decimal.size() == 1) out.decimal = decimal[0];
  if (group.size() == 1) out.thousands = group[0];
  std::unique_ptr<icu::NumberFormat> plain(icu::NumberFormat::createInstance(where, status));
  if (U_SUCCESS(status) && plain)
    out.negative_number =
        code_of(shape(format_amount(*plain, -1.1), String(), out.decimal), kNegativeForms, 1);
}

void read_currency(const icu::Locale& where, Locale& out) {
  UErrorCode status = U_ZERO_ERROR;
  icu::DecimalFormatSymbols symbols(where, status);
  if (U_FAILURE(status)) return;
  const String symbol = from_icu(symbols.getSymbol(icu::DecimalFormatSymbols::kCurrencySymbol));
  const String decimal =
      from_icu(symbols.getSymbol(icu::DecimalFormatSymbols::kMonetarySeparatorSymbol));
  if (!symbol.empty()) out.currency = symbol;
  std::unique_ptr<icu::NumberFormat> money(
      icu::NumberFormat::createCurrencyInstance(where, status));
  if (U_FAILURE(status) || !money) return;
  const char16_t mark = decimal.size() == 1 ? decimal[0] : out.decimal;
  out.currency_position =
      code_of(shape(format_amount(*money, 1.1), symbol, mark), kCurrencyForms, 0);
  out.negative_currency = code_of(shape(format_amount(*money, -1.1), symbol, mark),
                                  kNegativeCurrencyForms, out.currency_position % 2 ? 5 : 1);
}

void read_dates(const icu::Locale& where, Locale& out) {
  std::unique_ptr<icu::DateFormat> date(
      icu::DateFormat::createDateInstance(icu::DateFormat::kShort, where));
  if (auto* simple = dynamic_cast<icu::SimpleDateFormat*>(date.get())) {
    icu::UnicodeString pattern;
    simple->toPattern(pattern);
    out.short_date = date_pattern(pattern);
    const size_t d = out.short_date.find(u'd'), m = out.short_date.find(u'M'),
                 y = out.short_date.find(u'y');
    if (d != String::npos && m != String::npos && y != String::npos)
      out.date_order = y < m   ? Locale::DateOrder::YMD
                       : d < m ? Locale::DateOrder::DMY
                               : Locale::DateOrder::MDY;
    // The separator is what follows the first field.
    const size_t first = std::min({d, m, y});
    size_t after = first;
    while (after < out.short_date.size() && out.short_date[after] == out.short_date[first]) ++after;
    if (after < out.short_date.size()) out.date_separator = out.short_date[after];
  }
  std::unique_ptr<icu::DateFormat> time(
      icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, where));
  if (auto* simple = dynamic_cast<icu::SimpleDateFormat*>(time.get())) {
    icu::UnicodeString pattern;
    simple->toPattern(pattern);
    const String p = from_icu(pattern);
    const size_t hour = p.find_first_of(u"HhKk");
    if (hour != String::npos) {
      size_t after = hour;
      while (after < p.size() && p[after] == p[hour]) ++after;
      if (after < p.size() && p[after] != u'\'') out.time_separator = p[after];
    }
  }
  UErrorCode status = U_ZERO_ERROR;
  icu::DateFormatSymbols symbols(where, status);
  if (U_SUCCESS(status)) {
    int32_t count = 0;
    const icu::UnicodeString* ampm = symbols.getAmPmStrings(count);
    if (count == 2) {
      out.am = from_icu(ampm[0]);
      out.pm = from_icu(ampm[1]);
    }
  }
}

std::optional<icu::Locale> icu_locale(std::string_view name, String& shown) {
  const auto parts = split_name(name);
  if (!parts || !language_known(parts->language)) return std::nullopt;
  if (!parts->region.empty() && !region_known(parts->region)) return std::nullopt;
  icu::Locale where(parts->language.c_str(),
                    parts->region.empty() ? nullptr : parts->region.c_str());
  if (parts->region.empty()) {
    // A language alone stands for the country it is most used in ("fr" for fr-FR), whose
    // currency and formats it then takes.
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale likely = where;
    likely.addLikelySubtags(status);
    if (U_SUCCESS(status) && *likely.getCountry())
      where = icu::Locale(parts->language.c_str(), likely.getCountry());
  }
  if (where.isBogus()) return std::nullopt;
  shown = u16(std::string(where.getLanguage()) +
              (*where.getCountry() ? "-" + std::string(where.getCountry()) : ""));
  return where;
}

bool is_plain_c(std::string_view name) {
  name = name.substr(0, name.find('.'));
  return name == "C" || name == "POSIX";
}

}  // namespace

std::optional<Locale> from_name(std::string_view name) {
  if (is_plain_c(name)) return Locale{};
  String shown;
  const auto where = icu_locale(name, shown);
  if (!where) return std::nullopt;
  Locale out;
  out.name = shown;
  read_numbers(*where, out);
  read_currency(*where, out);
  read_dates(*where, out);
  return out;
}

Locale from_environment(const Getenv& getenv) {
  auto named = [&](const char* category) -> std::string {
    for (const char* variable : {"LC_ALL", category, "LANG"}) {
      const char* value = getenv(variable);
      if (value && *value) return value;
    }
    return "C";
  };
  Locale out;
  String shown;
  if (const auto where = icu_locale(named("LC_NUMERIC"), shown)) {
    out.name = shown;
    read_numbers(*where, out);
  }
  if (const auto where = icu_locale(named("LC_MONETARY"), shown)) read_currency(*where, out);
  if (const auto where = icu_locale(named("LC_TIME"), shown)) read_dates(*where, out);
  return out;
}

}  // namespace qz::engine::locale
