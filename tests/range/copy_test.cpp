// Copying against the engine.
#include <fstream>
#include <sstream>

#include "library_fixture.hpp"

namespace qz::test {
namespace {

using Copy = LibraryTest;

TEST_F(Copy, PasteRangeAndTransferFormat) {
  EXPECT_EQ(addr(ranges->PasteRange(r("B2"), r("G7:J9"))), "B2:E4");
  auto from = r("A1"), to = r("B1");
  from->set_horizontal_alignment(Variant(host::xl::HAlignCenter));
  from->set_number_format(u"0.00%");
  from->font()->set_color_index(Variant(int32_t{3}));
  from->font()->set_name(Variant(u"Courier New"));
  from->font()->set_font_style(Variant(u"Bold Italic"));
  from->font()->set_size(Variant(16.0));
  from->font()->set_strikethrough(Variant(true));  // not among the six
  from->interior()->set_color(Variant(int32_t{255}));
  ranges->TransferFormat(to, from);
  EXPECT_EQ(to->horizontal_alignment(), Variant(host::xl::HAlignCenter));
  EXPECT_EQ(to->number_format(), Variant(u"0.00%"));
  EXPECT_EQ(to->font()->color_index(), Variant(int32_t{3}));
  EXPECT_EQ(to->font()->name(), Variant(u"Courier New"));
  EXPECT_EQ(to->font()->font_style(), Variant(u"Bold Italic"));
  EXPECT_EQ(to->font()->size(), Variant(16.0));
  EXPECT_EQ(to->font()->strikethrough(), Variant(false));
  EXPECT_NE(to->interior()->color(), Variant(int32_t{255}));
}

TEST_F(Copy, CopyRowColAttrsCopiesLayoutRowByRowAndColumnByColumn) {
  r("A2")->entire_row()->set_row_height(30);
  r("A2")->entire_row()->set_outline_level(2);
  r("A3")->entire_row()->set_hidden(true);
  r("B1")->entire_column()->set_column_width(20);
  ranges->CopyRowColAttrs(r("A1:B3"), r("D11:E13"));
  EXPECT_EQ(to_double(r("D12")->entire_row()->row_height()), 30);
  EXPECT_EQ(to_long(r("D12")->entire_row()->outline_level()), 2);
  EXPECT_EQ(r("D13")->entire_row()->hidden(), Variant(true));
  EXPECT_EQ(r("D11")->entire_row()->hidden(), Variant(false));
  EXPECT_EQ(to_double(r("E11")->entire_column()->column_width()), 20);
}

TEST_F(Copy, CopyNoFmlasTurnsFormulasIntoValuesExceptHiddenText) {
  put("A1", "=1+1");
  put("A2", "'007");
  put("A3", "=A1*10");
  r("A3")->font()->set_color(Variant(int32_t{16777215}));
  r("A3")->interior()->set_color(Variant(int32_t{16777215}));
  r("A1")->font()->set_color(Variant(int32_t{255}));
  ranges->CopyNoFmlas(r("A1:A3"), r("C1:C3"), true, false);
  EXPECT_EQ(r("C1")->formula(), u"2");
  EXPECT_EQ(r("C2")->prefix_character() + r("C2")->formula(), u"'007");
  // White on white is hidden on purpose: the formula stays, moved with the copy.
  EXPECT_EQ(r("C3")->formula(), u"=C1*10");
  EXPECT_EQ(to_long(r("C1")->font()->color()), 0);  // black fonts were asked for
}

TEST_F(Copy, FilesNeedANameAndBitmapsABitmapOnTheClipboard) {
  TempDir dir;
  std::ofstream(dir / "range.bmp") << "old";
  const String bmp = from_utf8((dir / "range.bmp").string());
  EXPECT_FALSE(ranges->CopyRangeToBmpFile(r("A1:B2"), u""));
  // The headless platform's clipboard holds no bitmap: nothing is written, and the old file
  // of that name is gone.
  EXPECT_FALSE(ranges->CopyRangeToBmpFile(r("A1:B2"), bmp));
  EXPECT_FALSE(std::filesystem::exists(dir / "range.bmp"));

  put("A1", "Name");
  put("B1", "0.5");
  r("B1")->set_number_format(u"0%");
  EXPECT_TRUE(ranges->ExportRangeToFile(r("A1:B2"), from_utf8((dir / "out.txt").string())));
  std::stringstream got;
  got << std::ifstream(dir / "out.txt").rdbuf();
  EXPECT_EQ(got.str(), "Name\t50%\n\t\n");
}

}  // namespace
}  // namespace qz::test
