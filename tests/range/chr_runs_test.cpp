// Character-run snapshots against the engine's rich text.
#include "library_fixture.hpp"

namespace qz::test {
namespace {

class ChrRuns : public LibraryTest {
 protected:
  host::FontPtr chr(const char* a, int32_t start, int32_t length = 1) {
    return r(a)->characters(Variant(start), Variant(length))->font();
  }
};

Variant one(Variant v) {
  return Variant(one_based({std::move(v)}));
}

TEST_F(ChrRuns, OneFontIsOneValueForTheWholeCellAndMixedIsNotCaptured) {
  put("A1", "plain");
  r("A1")->font()->set_name(Variant(u"Arial"));
  EXPECT_EQ(ranges->ExtractChrFontNames(r("A1")), one(Variant(u"Arial")));
  put("B1", "two fonts");
  chr("B1", 5, 5)->set_name(Variant(u"Courier New"));
  const Variant mixed = ranges->ExtractChrFontNames(r("B1"));
  EXPECT_TRUE(mixed.is_empty());
  // Infusing Empty changes nothing; a one-element snapshot sets the whole cell.
  ranges->InfuseChrFontNames(r("B1"), mixed);
  EXPECT_EQ(chr("B1", 5)->name(), Variant(u"Courier New"));
  ranges->InfuseChrFontNames(r("B1"), ranges->ExtractChrFontNames(r("A1")));
  EXPECT_EQ(r("B1")->font()->name(), Variant(u"Arial"));
}

TEST_F(ChrRuns, ASuperscriptSurvivesARewriteThroughTheSnapshot) {
  put("A1", "x2y");
  chr("A1", 2)->set_superscript(Variant(true));
  chr("A1", 3)->set_subscript(Variant(true));
  const Variant scripts = ranges->ExtractChrScripts(r("A1"));
  EXPECT_EQ(scripts,
            Variant(one_based({Variant(int16_t{0}), Variant(int16_t{1}), Variant(int16_t{2})})));
  put("A1", "y3z");
  ASSERT_EQ(chr("A1", 2)->superscript(), Variant(false));
  ranges->InfuseChrScripts(r("A1"), scripts);
  EXPECT_EQ(chr("A1", 2)->superscript(), Variant(true));
  EXPECT_EQ(chr("A1", 3)->subscript(), Variant(true));
  EXPECT_EQ(chr("A1", 1)->superscript(), Variant(false));
  // Only superscript is asked whether it is mixed: subscripts alone are a uniform 0, and
  // infusing that clears them.
  put("B1", "H2O");
  chr("B1", 2)->set_subscript(Variant(true));
  EXPECT_EQ(ranges->ExtractChrScripts(r("B1")), one(Variant(int16_t{0})));
  ranges->InfuseChrScripts(r("B1"), ranges->ExtractChrScripts(r("B1")));
  EXPECT_EQ(chr("B1", 2)->subscript(), Variant(false));
  // A whole cell in one script round-trips as a single code.
  r("B1")->font()->set_subscript(Variant(true));
  const Variant whole = ranges->ExtractChrScripts(r("B1"));
  EXPECT_EQ(whole, one(Variant(int16_t{2})));
  put("B1", "CO2");
  ranges->InfuseChrScripts(r("B1"), whole);
  EXPECT_EQ(r("B1")->font()->subscript(), Variant(true));
}

TEST_F(ChrRuns, NothingHasNoSnapshotAndTakesNone) {
  const Variant scripts(one_based({Variant(int16_t{2}), Variant(int16_t{1})}));
  ranges->InfuseChrScripts(nullptr, scripts);
  ranges->InfuseChrScripts(nullptr, one(Variant(int16_t{1})));
  const Variant name = one(Variant(u"Arial"));
  ranges->InfuseChrProperties(nullptr, name, name, name, name, name, scripts, name);
  EXPECT_TRUE(ranges->ExtractChrScripts(nullptr).is_empty());
  EXPECT_TRUE(ranges->ExtractChrFontNames(nullptr).is_empty());
}

TEST_F(ChrRuns, ThePropertiesTravelTogetherAndOnlyThoseAskedFor) {
  put("A1", "styled");
  auto font = r("A1")->font();
  font->set_name(Variant(u"Georgia"));
  font->set_font_style(Variant(u"Bold Italic"));
  font->set_size(Variant(9.0));
  font->set_underline(Variant(host::xl::UnderlineStyleDouble));
  font->set_color_index(Variant(3));
  font->set_superscript(Variant(true));
  font->set_strikethrough(Variant(true));
  Variant v[7];
  ranges->ExtractChrProperties(r("A1"), &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6]);
  put("B1", "target");
  ranges->InfuseChrProperties(r("B1"), v[0], v[1], v[2], v[3], v[4], v[5], v[6]);
  auto copied = r("B1")->font();
  for (auto get :
       {&host::Font::name, &host::Font::font_style, &host::Font::size, &host::Font::underline,
        &host::Font::color_index, &host::Font::superscript, &host::Font::strikethrough})
    EXPECT_EQ(((*copied).*get)(), ((*font).*get)());
  // Only the snapshots given are infused; any of them may hold one value per character.
  put("C1", "abc");
  ranges->InfuseChrProperties(r("C1"), Variant::missing(), Variant::missing(),
                              Variant(one_based({Variant(10.0), Variant(20.0), Variant(30.0)})));
  EXPECT_EQ(chr("C1", 3)->size(), Variant(30.0));
  EXPECT_NE(r("C1")->font()->name(), Variant(u"Georgia"));
}

}  // namespace
}  // namespace qz::test
