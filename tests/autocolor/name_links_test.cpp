// The named-link matcher a run builds must answer exactly as walking every name in order
// would: over names that overlap and nest, letters that differ only in case (Latin-1 too),
// sheet-level names and names that refer to no range.
#include <gtest/gtest.h>

#include <random>

#include "autocolor/internal.hpp"
#include "engine/host/engine.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"

namespace qz::test {
namespace {

class NameLinksTest : public ::testing::Test {
 protected:
  NameLinksTest() {
    String name;
    lib->NewPublic(name);
    lib->InitXL(app);
    wb->worksheets()->add(Variant::missing(), Variant(sheet1))->set_name(u"Sheet2");
  }
  void define(const String& text, const String& refers_to) {
    host::NameAddArgs args;
    args.name = Variant(text);
    args.refers_to = Variant(refers_to);
    wb->names()->add(args);
  }

  SessionScope scope;
  host::ApplicationPtr app = engine::create_application();
  host::WorkbookPtr wb = app->workbooks()->add();
  host::WorksheetPtr sheet1 = wb->worksheets()->item(Variant(int32_t{1}));
  iXLLibPublicPtr lib = create_iXLLibPublic();
};

TEST_F(NameLinksTest, FallsBackThroughNamesThatOverlap) {
  // At the "z" of "kBkZ" the matcher is in "KbKz" and must fall back twice ("bK" leads on
  // to "bKy" only) to see that "Kz" ends there too.
  define(u"KbKz", u"=0.5");
  define(u"bKy", u"=Sheet1!$A$2");
  define(u"Kz", u"=Sheet2!$E$1");
  EXPECT_TRUE(autocolor::NameLinks(wb).links_elsewhere(u"1+kBkZ", u"Sheet1"));
}

TEST_F(NameLinksTest, AgreesWithTheWalkOverRandomNamesAndFormulas) {
  std::mt19937 random(7);
  // "K" inside names too, so that one name's end can be another's beginning.
  const std::u16string letters = u"KabAB\u00e9\u00c9";
  auto word = [&](int min, int max) {
    String w = u"K";
    const int n = std::uniform_int_distribution<int>(min, max)(random);
    for (int i = 0; i < n; ++i)
      w += letters[std::uniform_int_distribution<size_t>(0, letters.size() - 1)(random)];
    return w;
  };
  const String targets[] = {u"=Sheet1!$A$1", u"=Sheet2!$B$2", u"=0.5", u"=Sheet2!$C$1:$C$4"};
  for (int i = 0; i < 60; ++i) define(word(1, 3), targets[random() % 4]);
  define(u"Sheet2!KLocal", u"=Sheet2!$A$9");
  define(u"Sheet1!KLocal", u"=Sheet1!$A$9");

  autocolor::NameLinks matcher(wb);
  int linked = 0, plain = 0;
  for (int i = 0; i < 2000; ++i) {
    String body = word(0, 4) + u"+" + word(0, 5) + u"*SUM(" + word(1, 2) + u")";
    if (i % 10 == 0) body = u"Sheet2!KLocal+" + body;
    if (i % 17 == 0) body = body.substr(0, 1);
    for (const char16_t* sheet : {u"Sheet1", u"Sheet2", u"sheet2"}) {
      const bool walked = autocolor::names_link_elsewhere(wb, body, sheet);
      ASSERT_EQ(matcher.links_elsewhere(body, sheet), walked)
          << to_utf8(body) << " on " << to_utf8(sheet);
      (walked ? linked : plain)++;
    }
  }
  // Both answers occur often enough for the comparison to mean something.
  EXPECT_GT(linked, 500);
  EXPECT_GT(plain, 500);
}

TEST_F(NameLinksTest, ALooseMatchInsideALongerWordStillCounts) {
  define(u"Rate", u"=Sheet2!$A$1");
  define(u"RateTable", u"=Sheet1!$A$1:$B$9");
  autocolor::NameLinks matcher(wb);
  EXPECT_TRUE(matcher.links_elsewhere(u"RATETABLE*2", u"Sheet1"));
  EXPECT_TRUE(matcher.links_elsewhere(u"\"rate\"&A1", u"Sheet1"));
  EXPECT_FALSE(matcher.links_elsewhere(u"Rat+Table", u"Sheet1"));
  EXPECT_FALSE(matcher.links_elsewhere(u"Rate", u"Sheet2"));
  EXPECT_FALSE(matcher.links_elsewhere(u"R", u"Sheet1"));
}

TEST_F(NameLinksTest, AWorkbookThatCannotBeReadHasNoNames) {
  autocolor::NameLinks matcher(nullptr);
  EXPECT_FALSE(matcher.links_elsewhere(u"Anything+1", u"Sheet1"));
  EXPECT_FALSE(autocolor::names_link_elsewhere(nullptr, u"Anything+1", u"Sheet1"));
}

}  // namespace
}  // namespace qz::test
