// The user's regional settings as people in five locales meet them: numbers, amounts and
// dates written the way each locale writes them are read as the application reads them
// there, classified, cut into formula pieces and colour-coded accordingly, and shown in that
// locale's marks. The settings come from the locale data (ICU); where the runtime's reading
// is not obvious (grouping marks out of place, a symbol of another locale), the cases follow
// what the automation runtime's own parser answers for that locale, observed under Wine.
#include <gmock/gmock.h>

#include <map>
#include <string>

#include "engine/locale/locale.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "undo/client.hpp"

namespace qz::test {
namespace {

constexpr int32_t kBlue = 16711680;

// 14 November 2026, and 9:30 in the morning.
constexpr double kNov14 = 46340, kHalfPastNine = 9.5 / 24;

struct Typed {
  const char* cell;
  const char16_t* typed;
  QZCellType type;
  const char16_t* shown;  ///< Range.Text
  bool input;             ///< IsInput, and so AutoColor's input colour
};

struct Case {
  const char* name;
  /// Text IsNumeric takes, with the value CDbl reads from it; text it refuses.
  std::map<std::u16string, double> numbers;
  std::vector<const char16_t*> not_numbers;
  /// Text IsDate takes, with its serial; text it refuses.
  std::map<std::u16string, double> dates;
  std::vector<const char16_t*> not_dates;
  /// A small model typed cell by cell, in this order.
  std::vector<Typed> model;
  /// 1234.5 under "#,##0.00".
  const char16_t* grouped;
};

const Case kCases[] = {
    {"de-DE",
     {{u"1,5", 1.5},
      {u" 1.234,50 ", 1234.5},
      {u"5 \u20AC", 5},
      {u"-5 \u20AC", -5},
      // The runtime takes the symbol at either end, and does not check where grouping
      // marks stand: "1.5" is fifteen.
      {u"\u20AC 5", 5},
      {u"1.5", 15},
      {u"(3,25)", -3.25}},
     {u"1,2,3", u"$5", u"5 CHF", u"Umsatz"},
     {{u"14.11.2026", kNov14}, {u"14.11.2026 9:30", kNov14 + kHalfPastNine}},
     {u"31.02.2026", u"Umsatz"},
     {{"A1", u"Umsatz", CellText, u"Umsatz", false},
      {"B1", u"1.234,5", CellNumeric, u"1.234,50", true},
      {"B2", u"5 \u20AC", CellNumeric, u"5 \u20AC", true},
      {"B3", u"12,5%", CellNumeric, u"12,50%", true},
      {"B4", u"=B1*2", CellNumeric, u"2469", false},
      {"B5", u"14.11.2026", CellDate, u"14.11.2026", false},
      {"B6", u"1.5.26", CellDate, u"01.05.2026", false},
      {"B7", u"'1,5", CellText, u"1,5", true},
      {"B8", u"(2,50 \u20AC)", CellNumeric, u"(2,50 \u20AC)", true}},
     u"1.234,50"},
    {"fr-FR",
     // A narrow no-break space groups the digits; an ordinary or no-break space typed in
     // its place reads the same.
     {{u"1,5", 1.5},
      {u"1\u202F234,5", 1234.5},
      {u"1 234,5", 1234.5},
      {u"1\u00A0234,5", 1234.5},
      {u"1 234,50 \u20AC", 1234.5}},
     {u"1.5", u"1,234.50", u"1 234.5"},
     {{u"14/11/2026", kNov14}, {u"14/11/26", kNov14}},
     {u"14.11.2026", u"11/31/2026"},
     {{"A1", u"Chiffre d'affaires", CellText, u"Chiffre d'affaires", false},
      {"B1", u"1 234,5", CellNumeric, u"1\u202F234,50", true},
      {"B2", u"1 234,50 \u20AC", CellNumeric, u"1\u202F234,50 \u20AC", true},
      {"B3", u"=B1/2", CellNumeric, u"617,25", false},
      {"B4", u"14/11/2026", CellDate, u"14/11/2026", false}},
     u"1\u202F234,50"},
    {"de-CH",
     // The typographic apostrophe groups the digits; the runtime does not take the
     // typewriter one in its place.
     {{u"1\u2019234.5", 1234.5}, {u"CHF 5", 5}, {u"5 CHF", 5}, {u"1.5", 1.5}},
     {u"1'234.5", u"1,5", u"5 \u20AC"},
     {{u"14.11.2026", kNov14}},
     {u"Umsatz"},
     {{"B1", u"1\u2019234.5", CellNumeric, u"1\u2019234.50", true},
      {"B2", u"CHF 5", CellNumeric, u"CHF 5", true},
      {"B3", u"1'234.5", CellText, u"1'234.5", false},
      {"B4", u"=B1+B2", CellNumeric, u"1239.5", false}},
     u"1\u2019234.50"},
    {"en-GB",
     {{u"1,234.5", 1234.5}, {u"\u00A35", 5}, {u"1,5", 15}},
     {u"5 \u20AC", u"$5", u"1.2.3"},
     // Day first; a first number that cannot be a month is read as the day all the same.
     {{u"1/2/2026", 46054}, {u"14/11/2026", kNov14}, {u"11/14/2026", kNov14}},
     {u"31/2/2026"},
     {{"B1", u"1/2/2026", CellDate, u"01/02/2026", false},
      {"B2", u"\u00A31,234.50", CellNumeric, u"\u00A31,234.50", true},
      {"B3", u"14/11/2026 9:30", CellDateTime, u"14/11/2026 9:30", false},
      {"B4", u"=B2*3", CellNumeric, u"3703.5", false}},
     u"1,234.50"},
    {"ja-JP",
     // The locale data's yen sign is the full-width one; the half-width sign of other
     // locales is no currency here, for the runtime as for the engine.
     {{u"\uFFE51,000", 1000}, {u"1,234.5", 1234.5}},
     {u"\u00A51,000", u"1 000"},
     {{u"2026/11/14", kNov14}, {u"26/11/14", kNov14}},
     {u"2026/14/11"},
     {{"B1", u"\uFFE51,000", CellNumeric, u"\uFFE51,000", true},
      {"B2", u"2026/11/14", CellDate, u"2026/11/14", false},
      {"B3", u"=B1*1.1", CellNumeric, u"1100", false}},
     u"1,234.50"},
};

void PrintTo(const Case& c, std::ostream* os) {
  *os << c.name;
}

class InLocale : public ClientTest, public ::testing::WithParamInterface<Case> {
 protected:
  InLocale() : old_(set_locale(*engine::locale::from_name(GetParam().name))) {}
  ~InLocale() override { set_locale(old_); }

  // The pieces the tokenizer cuts the cell text `text` into.
  FmlaPieces pieces(const char16_t* text) {
    String f = text;
    FmlaPieces out;
    lib->NewFormula()->ParseCellFormula(f, out, true, false);
    return out;
  }

 private:
  Locale old_;
};

TEST_P(InLocale, ReadsNumbersAsTheUserWritesThem) {
  for (const auto& [text, value] : GetParam().numbers) {
    const std::string shown = to_utf8(text);
    EXPECT_TRUE(is_numeric(Variant(String(text)))) << shown;
    EXPECT_EQ(to_double(Variant(String(text))), value) << shown;
    const FmlaPieces p = pieces(text.c_str());
    ASSERT_EQ(p.size(), 1u) << shown;
    EXPECT_TRUE(p[0].IsValue) << shown;
  }
  for (const char16_t* text : GetParam().not_numbers) {
    EXPECT_FALSE(is_numeric(Variant(text))) << to_utf8(text);
    EXPECT_TRUE(pieces(text)[0].IsSimpleText) << to_utf8(text);
  }
}

TEST_P(InLocale, ReadsDatesInTheUsersOrder) {
  for (const auto& [text, serial] : GetParam().dates) {
    EXPECT_TRUE(is_date(Variant(String(text)))) << to_utf8(text);
    EXPECT_NEAR(to_date(Variant(String(text))).serial, serial, 1e-9) << to_utf8(text);
  }
  for (const char16_t* text : GetParam().not_dates)
    EXPECT_FALSE(is_date(Variant(text))) << to_utf8(text);
}

TEST_P(InLocale, ClassifiesShowsAndColoursAModelTypedThere) {
  auto range = lib->NewRange();
  for (const Typed& t : GetParam().model) user.type(u16(t.cell), t.typed);
  ac->AutoColorSheet(ws, false);
  for (const Typed& t : GetParam().model) {
    SCOPED_TRACE(std::string(t.cell) + " typed as " + to_utf8(t.typed));
    EXPECT_EQ(range->CellType(r(t.cell)), t.type);
    EXPECT_EQ(to_utf8(r(t.cell)->text()), to_utf8(t.shown));
    EXPECT_EQ(range->IsInput(r(t.cell)), t.input);
    // Text and dates are left as they are; typed numbers take the input colour.
    EXPECT_EQ(colour(t.cell) == kBlue, t.input && t.type == CellNumeric);
  }
}

TEST_P(InLocale, ShowsNumbersInItsMarksAndKeepsTheFileFormOfFormats) {
  r("C1")->set_value(Variant(1234.5));
  r("C1")->set_number_format(u"#,##0.00");
  EXPECT_EQ(to_utf8(r("C1")->text()), to_utf8(GetParam().grouped));
  EXPECT_EQ(r("C1")->number_format(), Variant(u"#,##0.00"));
  // The stored formula of a typed number, like the file, keeps the point.
  user.type(u"C2", GetParam().numbers.begin()->first.c_str());
  EXPECT_EQ(formula("C2").find(u','), String::npos) << to_utf8(formula("C2"));
}

INSTANTIATE_TEST_SUITE_P(Locales, InLocale, ::testing::ValuesIn(kCases), [](const auto& info) {
  std::string name = info.param.name;
  name.erase(name.find('-'), 1);
  return name;
});

// --- where the settings come from ---------------------------------------------------------

using engine::locale::from_environment;
using engine::locale::from_name;

TEST(LocaleNames, TakeTheFormsOfTheEnvironmentAndOfTheOption) {
  for (const char* name : {"de-DE", "de_DE", "de_DE.UTF-8", "de_DE.utf8@euro", "de"}) {
    const auto l = from_name(name);
    ASSERT_TRUE(l) << name;
    EXPECT_EQ(l->name, u"de-DE") << name;
    EXPECT_EQ(l->decimal, u',') << name;
    EXPECT_EQ(l->currency, u"\u20AC") << name;
  }
  for (const char* name : {"C", "POSIX", "C.UTF-8"}) EXPECT_EQ(from_name(name)->name, u"en-US");
  for (const char* name : {"", "xx-YY", "de-XX", "german", "de_DE_x", "1234"})
    EXPECT_FALSE(from_name(name)) << name;
}

TEST(LocaleEnvironment, EachCategoryFollowsItsOwnVariableUnderLcAll) {
  auto env = [](std::map<std::string, std::string> vars) {
    return from_environment([vars = std::move(vars)](const char* name) -> const char* {
      auto it = vars.find(name);
      return it == vars.end() ? nullptr : it->second.c_str();
    });
  };
  const Locale mixed = env({{"LANG", "en_GB.UTF-8"},
                            {"LC_NUMERIC", "de_DE.UTF-8"},
                            {"LC_MONETARY", "ja_JP.UTF-8"},
                            {"LC_TIME", ""}});
  EXPECT_EQ(mixed.decimal, u',');
  EXPECT_EQ(mixed.currency, u"\uFFE5");
  // An empty variable counts as unset: dates come from LANG.
  EXPECT_EQ(mixed.date_order, Locale::DateOrder::DMY);
  EXPECT_EQ(mixed.short_date, u"dd/MM/yyyy");

  const Locale all = env({{"LC_ALL", "fr_FR.UTF-8"}, {"LC_NUMERIC", "en_US.UTF-8"}});
  EXPECT_EQ(all.thousands, u'\u202F');
  EXPECT_EQ(all.short_date, u"dd/MM/yyyy");

  // Nothing set, or a name the data does not know, is en-US.
  for (const Locale& l : {env({}), env({{"LANG", "tlh_QO.UTF-8"}})}) {
    EXPECT_EQ(l.decimal, u'.');
    EXPECT_EQ(l.currency, u"$");
    EXPECT_EQ(l.date_order, Locale::DateOrder::MDY);
  }
}

}  // namespace
}  // namespace qz::test
