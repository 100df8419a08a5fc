// Formats: number formats and alignment over ranges, fonts that answer Null when cells or
// characters differ, rich-text runs, fills, the palette and theme colours, and the style
// table's append-only numbering.
#include "engine_fixture.hpp"

namespace qz::engine::test {
namespace {

using Styles = EngineTest;
namespace xl = host::xl;

TEST_F(Styles, NumberFormatAndAlignmentAreNullWhenCellsDiffer) {
  r("A1:B2")->set_number_format(u"0.00");
  EXPECT_EQ(to_utf8(to_string(r("A1:B2")->number_format())), "0.00");
  r("B2")->set_number_format(u"0%");
  EXPECT_TRUE(r("A1:B2")->number_format().is_null());
  EXPECT_TRUE(r("A1,B2")->number_format().is_null());
  EXPECT_EQ(to_utf8(to_string(r("C1")->number_format())), "General");
  r("A1")->set_horizontal_alignment(Variant(xl::HAlignCenter));
  EXPECT_EQ(r("A1")->horizontal_alignment(), Variant(xl::HAlignCenter));
  EXPECT_TRUE(r("A1:A2")->horizontal_alignment().is_null());
  EXPECT_THROW(r("A1")->set_horizontal_alignment(Variant(int32_t{12345})), Error);
}

TEST_F(Styles, WholeColumnFormatsWithoutCreatingEveryCell) {
  put("B3", "1");
  ws->range(V("B:B"))->set_number_format(u"0.0");
  EXPECT_LT(sheet().cells.size(), 10u);
  EXPECT_EQ(text("B3"), "1.0");
  EXPECT_EQ(to_utf8(to_string(r("B999999")->number_format())), "0.0");
  EXPECT_EQ(to_utf8(to_string(ws->range(V("B:B"))->number_format())), "0.0");
  // A row format crossing the column: the crossing cell takes the later column format.
  ws->range(V("5:5"))->set_number_format(u"0%");
  ws->range(V("B:B"))->set_number_format(u"0.000");
  EXPECT_EQ(to_utf8(to_string(r("B5")->number_format())), "0.000");
  EXPECT_EQ(to_utf8(to_string(r("C5")->number_format())), "0%");
}

TEST_F(Styles, FontAnswersNullOverDifferingCells) {
  auto f = r("A1:A2")->font();
  EXPECT_EQ(to_utf8(to_string(f->name())), "Calibri");
  EXPECT_EQ(f->size(), Variant(11.0));
  EXPECT_EQ(f->bold(), Variant(false));
  r("A2")->font()->set_bold(Variant(true));
  EXPECT_TRUE(f->bold().is_null());
  EXPECT_TRUE(f->font_style().is_null());
  EXPECT_EQ(to_utf8(to_string(r("A2")->font()->font_style())), "Bold");
  EXPECT_EQ(f->italic(), Variant(false));
  r("A2")->font()->set_font_style(V("Bold Italic"));
  EXPECT_EQ(r("A2")->font()->italic(), Variant(true));
  r("A1")->font()->set_name(V("Arial"));
  EXPECT_TRUE(f->name().is_null());
  r("A1:A2")->font()->set_name(V("Courier New"));
  EXPECT_EQ(to_utf8(to_string(f->name())), "Courier New");
  r("A1")->font()->set_underline(Variant(xl::UnderlineStyleDouble));
  EXPECT_EQ(r("A1")->font()->underline(), Variant(xl::UnderlineStyleDouble));
  EXPECT_TRUE(f->underline().is_null());
  EXPECT_THROW(r("A1")->font()->set_size(Variant(0.0)), Error);
}

TEST_F(Styles, CharactersCarryRunsAndMixedRunsReadNull) {
  put("A1", "x2 and more");
  EXPECT_EQ(r("A1")->characters()->count(), 11);
  EXPECT_EQ(to_utf8(r("A1")->characters(V(2), V(1))->text()), "2");
  r("A1")->characters(V(2), V(1))->font()->set_superscript(Variant(true));
  auto whole = r("A1")->font();
  EXPECT_TRUE(whole->superscript().is_null());
  EXPECT_EQ(r("A1")->characters(V(1), V(1))->font()->superscript(), Variant(false));
  EXPECT_EQ(r("A1")->characters(V(2), V(1))->font()->superscript(), Variant(true));
  EXPECT_TRUE(r("A1")->characters(V(1), V(2))->font()->superscript().is_null());
  // The other properties are still uniform.
  EXPECT_EQ(to_utf8(to_string(whole->name())), "Calibri");
  EXPECT_EQ(whole->subscript(), Variant(false));
  // Setting a property on the whole cell reaches every run, and the runs stay apart.
  whole->set_color(Variant(int32_t{255}));
  EXPECT_EQ(r("A1")->characters(V(2), V(1))->font()->color(), Variant(int32_t{255}));
  EXPECT_EQ(whole->color(), Variant(int32_t{255}));
  EXPECT_TRUE(whole->superscript().is_null());
  // Clearing the superscript makes the text uniform again.
  whole->set_superscript(Variant(false));
  EXPECT_EQ(whole->superscript(), Variant(false));
  // Subscript and superscript exclude each other.
  r("A1")->characters(V(3), V(2))->font()->set_subscript(Variant(true));
  r("A1")->characters(V(3), V(1))->font()->set_superscript(Variant(true));
  EXPECT_EQ(r("A1")->characters(V(3), V(1))->font()->subscript(), Variant(false));
  EXPECT_EQ(r("A1")->characters(V(4), V(1))->font()->subscript(), Variant(true));
  // Mixed cells and mixed characters together.
  put("A2", "plain");
  EXPECT_TRUE(r("A1:A2")->font()->subscript().is_null());
  EXPECT_EQ(r("A2")->font()->subscript(), Variant(false));
}

TEST_F(Styles, CharactersOfANumberAreTheWholeCell) {
  r("B1")->set_value(Variant(1234.0));
  EXPECT_EQ(r("B1")->characters()->count(), 4);
  r("B1")->characters(V(1), V(1))->font()->set_bold(Variant(true));
  EXPECT_EQ(r("B1")->font()->bold(), Variant(true));
}

TEST_F(Styles, ColorIndexIsTheNearestPaletteEntry) {
  auto f = r("A1")->font();
  EXPECT_EQ(f->color_index(), Variant(xl::ColorIndexAutomatic));
  EXPECT_EQ(f->color(), Variant(int32_t{0}));
  f->set_color(Variant(int32_t{255}));  // pure red
  EXPECT_EQ(f->color_index(), Variant(int32_t{3}));
  f->set_color(Variant(int32_t{0x00FFFF}));          // yellow: red 255 + 256 * green 255
  EXPECT_EQ(f->color_index(), Variant(int32_t{6}));  // the first of two equal entries
  f->set_color(Variant(int32_t{250 + 256 * 5}));     // nearly red
  EXPECT_EQ(f->color_index(), Variant(int32_t{3}));
  f->set_color_index(Variant(int32_t{10}));
  EXPECT_EQ(f->color(), Variant(int32_t{0x008000}));  // dark green
  // The palette can change; indexed colours follow it.
  wb->set_colors(10, 0x123456);
  EXPECT_EQ(wb->colors(10), 0x123456);
  EXPECT_EQ(f->color(), Variant(int32_t{0x123456}));
  EXPECT_THROW(wb->colors(57), Error);
  EXPECT_THROW(f->set_color_index(Variant(int32_t{57})), Error);
}

TEST_F(Styles, InteriorWithoutFillAndWithOne) {
  auto in = r("A1:B1")->interior();
  EXPECT_EQ(in->color_index(), Variant(xl::ColorIndexNone));
  EXPECT_EQ(in->color(), Variant(int32_t{16777215}));
  r("B1")->interior()->set_color(Variant(int32_t{0x00FFFF}));
  EXPECT_TRUE(in->color().is_null());
  EXPECT_EQ(r("B1")->interior()->color_index(), Variant(int32_t{6}));
  r("A1")->interior()->set_color_index(Variant(int32_t{6}));
  EXPECT_EQ(in->color(), Variant(int32_t{0x00FFFF}));
  in->set_color_index(Variant(xl::ColorIndexNone));
  EXPECT_EQ(in->color_index(), Variant(xl::ColorIndexNone));
}

TEST_F(Styles, BordersMapLineStylesWeightsAndColoursToTheFileStyles) {
  auto border = [&](const char* a, int32_t e) { return r(a)->borders()->item(e); };
  auto file_style = [&](const char* a, BorderSide BorderRec::*side) {
    const Xf& x = book().styles.xf(sheet().style_at(r(a)->row() - 1, r(a)->column() - 1));
    return to_utf8((book().styles.borders[x.border].*side).style);
  };
  auto none = border("A1", xl::EdgeTop);
  EXPECT_EQ(none->line_style(), Variant(xl::LineStyleNone));
  EXPECT_EQ(none->weight(), Variant(xl::Thin));
  EXPECT_EQ(none->color_index(), Variant(xl::ColorIndexNone));
  none->set_color_index(Variant(int32_t{3}));  // a colour alone draws a thin line
  EXPECT_EQ(file_style("A1", &BorderRec::top), "thin");
  EXPECT_EQ(none->color(), Variant(int32_t{255}));
  none->set_line_style(Variant(xl::Dash));
  none->set_weight(Variant(xl::Medium));
  EXPECT_EQ(file_style("A1", &BorderRec::top), "mediumDashed");
  EXPECT_EQ(none->color_index(), Variant(int32_t{3})) << "the colour stays with the new style";
  none->set_weight(Variant(xl::Hairline));
  EXPECT_EQ(file_style("A1", &BorderRec::top), "dashed");
  border("A1", xl::EdgeTop)->set_line_style(Variant(xl::Double));
  EXPECT_EQ(none->weight(), Variant(xl::Thick));
  EXPECT_THROW(none->set_line_style(Variant(int32_t{99})), Error);
  EXPECT_THROW(none->set_weight(Variant(int32_t{99})), Error);
  EXPECT_THROW(r("A1")->borders()->item(4), Error);
  EXPECT_EQ(file_style("A1", &BorderRec::top), "double") << "a refused change changes nothing";

  // Inside lines: both cells along them carry the line; a block's top is mixed once one
  // cell differs.
  border("B3:D4", xl::InsideVertical)->set_line_style(Variant(xl::Continuous));
  EXPECT_EQ(file_style("C3", &BorderRec::left) + file_style("C3", &BorderRec::right), "thinthin");
  EXPECT_EQ(file_style("B3", &BorderRec::left) + file_style("D4", &BorderRec::right), "");
  EXPECT_EQ(border("B3:D4", xl::InsideHorizontal)->line_style(), Variant(xl::LineStyleNone));
  border("C2", xl::EdgeBottom)->set_line_style(Variant(xl::Dot));
  EXPECT_EQ(border("C3", xl::EdgeTop)->line_style(), Variant(xl::Dot)) << "the line above";
  EXPECT_TRUE(border("B3:D3", xl::EdgeTop)->line_style().is_null());

  // The two diagonals share the file's one diagonal line.
  border("F1", xl::DiagonalUp)->set_line_style(Variant(xl::Continuous));
  border("F1", xl::DiagonalDown)->set_line_style(Variant(xl::Continuous));
  border("F1", xl::DiagonalUp)->set_line_style(Variant(xl::LineStyleNone));
  EXPECT_EQ(border("F1", xl::DiagonalUp)->line_style(), Variant(xl::LineStyleNone));
  EXPECT_EQ(border("F1", xl::DiagonalDown)->line_style(), Variant(xl::Continuous));
}

TEST_F(Styles, AutoFilterTogglesFollowsTheListAndRefusesCriteria) {
  put("B2", "Key");
  put("C2", "Value");
  put("B3", "a");
  put("C4", "2");
  EXPECT_FALSE(ws->auto_filter_mode());
  EXPECT_EQ(ws->auto_filter(), nullptr);
  r("B3")->auto_filter();  // one cell stands for the list around it
  ASSERT_TRUE(ws->auto_filter_mode());
  EXPECT_EQ(addr(ws->auto_filter()->range()), "B2:C4");
  const auto* name = book().resolve_name(u"_xlnm._FilterDatabase", sheet().id);
  ASSERT_NE(name, nullptr);
  EXPECT_TRUE(name->hidden);
  EXPECT_THROW(r("B2:C4")->auto_filter(V(1), V("a")), Error);
  r("B2:C4")->auto_filter(V(2));  // a field without criteria keeps the buttons
  EXPECT_TRUE(ws->auto_filter_mode());
  r("A1")->entire_row()->insert();
  EXPECT_EQ(addr(ws->auto_filter()->range()), "B3:C5");
  r("B3:C5")->auto_filter();  // without arguments: off again
  EXPECT_FALSE(ws->auto_filter_mode());
  EXPECT_THROW(ws->set_auto_filter_mode(true), Error);
}

TEST_F(Styles, TableIsAppendOnlyAndDeduplicates) {
  StyleTable& st = book().styles;
  size_t fonts = st.fonts.size(), xfs = st.xfs.size();
  Xf first = st.xfs[0];
  r("A1")->font()->set_bold(Variant(true));
  r("A2")->font()->set_bold(Variant(true));
  EXPECT_EQ(st.fonts.size(), fonts + 1);
  EXPECT_EQ(st.xfs.size(), xfs + 1);
  EXPECT_TRUE(st.xfs[0] == first);
  EXPECT_EQ(st.xfs.back().derived_from, 0);
  EXPECT_EQ(sheet().cells.find(0, 0)->style(), sheet().cells.find(1, 0)->style());
  r("A1")->font()->set_bold(Variant(false));
  EXPECT_EQ(sheet().cells.find(0, 0)->style(), 0u);  // back to the first format, not a copy
  uint32_t id = st.numfmt_id(u"0.0000");
  EXPECT_GE(id, 164u);
  EXPECT_EQ(st.numfmt_id(u"0.0000"), id);
  EXPECT_EQ(st.numfmt_id(u"0.00"), 2u);  // built in
  EXPECT_TRUE(st.changed);
}

TEST_F(Styles, ColouringCellByCellReusesFormatsAndKeepsWhatElseTheyHave) {
  StyleTable& st = book().styles;
  const int32_t red = 255, blue = 0xFF0000;
  ws->range(V("3:3"))->font()->set_bold(Variant(true));
  put("A1", "1");
  put("A2", "=A1*2");
  const size_t fonts = st.fonts.size(), xfs = st.xfs.size();
  // A value, a formula and an empty cell take one shared red format.
  for (const char* a : {"A1", "A2", "B1"}) r(a)->font()->set_color(Variant(red));
  EXPECT_EQ(st.fonts.size(), fonts + 1);
  EXPECT_EQ(st.xfs.size(), xfs + 1);
  EXPECT_EQ(st.xfs.back().derived_from, 0);  // a writer copies what the model leaves out
  EXPECT_EQ(sheet().cells.find(0, 0)->style(), sheet().cells.find(1, 0)->style());
  EXPECT_EQ(sheet().cells.find(0, 1)->style(), sheet().cells.find(1, 0)->style());
  EXPECT_EQ(r("A1:B1")->font()->color(), Variant(red));
  // An empty cell of a bold row keeps the row's boldness under its new colour.
  r("B3")->font()->set_color(Variant(red));
  EXPECT_EQ(r("B3")->font()->bold(), Variant(true));
  EXPECT_EQ(r("B3")->font()->color(), Variant(red));
  EXPECT_EQ(r("C3")->font()->color(), Variant(int32_t{0}));
  EXPECT_EQ(r("A1")->font()->bold(), Variant(false));
  // Back and forth between two colours finds the formats made the first time.
  r("A1")->font()->set_color(Variant(blue));
  const size_t after_blue = st.xfs.size();
  r("A1")->font()->set_color(Variant(red));
  r("A2")->font()->set_color(Variant(blue));
  EXPECT_EQ(st.xfs.size(), after_blue);
  EXPECT_EQ(sheet().cells.find(0, 0)->style(), sheet().cells.find(0, 1)->style());
  EXPECT_TRUE(r("A1:A2")->font()->color().is_null());
  // A run of its own colour makes a single cell's colour mixed; colouring the cell reaches it.
  put("C1", "ab");
  r("C1")->characters(V(2), V(1))->font()->set_color(Variant(blue));
  EXPECT_TRUE(r("C1")->font()->color().is_null());
  r("C1")->font()->set_color(Variant(red));
  EXPECT_EQ(r("C1")->font()->color(), Variant(red));
  EXPECT_EQ(r("C1")->characters(V(2), V(1))->font()->color(), Variant(red));
}

TEST_F(Styles, FormatIdZeroGivenACodeOfItsOwnIsNotGeneral) {
  // Reading takes id 0 for General without building its code; a code kept for id 0 wins.
  r("A1")->set_value(Variant(1.5));
  r("A2")->set_value(Variant(46340.0));
  EXPECT_EQ(text("A1"), "1.5");
  EXPECT_FALSE(r("A2")->value().is_date());
  book().styles.numfmts[0] = u"0.00";
  EXPECT_EQ(text("A1"), "1.50");
  book().styles.numfmts[0] = u"d-mmm-yy";
  EXPECT_TRUE(r("A2")->value().is_date());
  EXPECT_EQ(text("A2"), "14-Nov-26");
  EXPECT_EQ(to_utf8(r("A2")->formula()), "11/14/2026");
}

TEST_F(Styles, ThemeAndIndexedColoursResolve) {
  Book& b = book();
  Color c;
  c.kind = Color::Kind::Theme;
  c.index = 1;  // dark 1
  EXPECT_EQ(b.rgb(c), 0x000000);
  c.index = 0;  // light 1
  EXPECT_EQ(b.rgb(c), 0xFFFFFF);
  c.index = 4;  // accent 1, 0x4472C4
  EXPECT_EQ(b.rgb(c), 0xC47244);
  c.tint = 0.5;  // half way to white
  int32_t lighter = b.rgb(c);
  EXPECT_GT(lighter & 0xFF, 0x44);
  EXPECT_GT((lighter >> 16) & 0xFF, 0xC4);
  c.index = 0;
  c.tint = -0.5;
  EXPECT_EQ(b.rgb(c), 0x808080);
  Color idx;
  idx.kind = Color::Kind::Indexed;
  idx.index = 2;
  EXPECT_EQ(b.rgb(idx), 0x0000FF);
  idx.index = 64;
  EXPECT_EQ(b.rgb(idx, 7), 7);  // the system colour stands for automatic
}

}  // namespace
}  // namespace qz::engine::test
