// Pictures of ranges, checked at known pixels: where each visible column and row lands, a
// fill's colour, a font's ink inside its cell, a border's line, "###" for a number that does
// not fit, and the library's picture methods working headless over the engine.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "../engine/engine_fixture.hpp"
#include "engine/picture/picture.hpp"
#include "host/environment.hpp"
#include "qzxl/qzxl.hpp"
#include "support/test_support.hpp"

namespace qz::engine::test {
namespace {

constexpr uint32_t kBlue = 0x0000FF, kYellow = 0xFFFF00, kWhite = 0xFFFFFF;

class Picture : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    // A: default width (64 px), B: narrow (4 characters, 28 px), C: default, D: hidden,
    // E: default; rows of 20 px, the third hidden.
    r("B1")->entire_column()->set_column_width(4);
    r("D1")->entire_column()->set_hidden(true);
    r("A3")->entire_row()->set_hidden(true);
    put("A1", "Label");
    r("A1")->font()->set_bold(V(true));
    r("A1")->font()->set_color(Variant(int32_t{0x0000FF}));  // red, as R + 256 G + 65536 B
    put("B1", "1234567.891");
    r("B1")->set_number_format(u"#,##0.00");
    put("C1", "7");
    r("C2")->interior()->set_color(Variant(int32_t{0x00FFFF}));  // yellow
    put("A3", "hidden");
    put("D4", "hidden too");
    // A thick blue line under C4.
    Book& b = book();
    Sheet& s = sheet();
    BorderRec border;
    border.bottom = {u"thick", Color::rgb(0xFF0000)};
    Xf xf = b.styles.xf(s.style_at(3, 2));
    xf.border = b.styles.border_index(border);
    s.cells.get_or_create(3, 2).set_style(b.styles.xf_index(xf));
  }

  picture::Bitmap draw(const char* address) {
    auto model = range_of(r(address));
    return picture::draw(*model->sheet, model->areas[0]);
  }

  static uint32_t rgb(const picture::Bitmap& b, int x, int y) { return b.at(x, y) & 0xFFFFFF; }

  // Pixels in a rectangle that `is` says are ink.
  template <class Is>
  static int count(const picture::Bitmap& b, int x0, int y0, int x1, int y1, Is is) {
    int n = 0;
    for (int y = y0; y < y1; ++y)
      for (int x = x0; x < x1; ++x) {
        const uint32_t p = rgb(b, x, y);
        if (is((p >> 16) & 0xFF, (p >> 8) & 0xFF, p & 0xFF)) ++n;
      }
    return n;
  }
  static int dark(const picture::Bitmap& b, int x0, int y0, int x1, int y1) {
    return count(b, x0, y0, x1, y1, [](uint32_t r, uint32_t g, uint32_t bl) {
      return r < 120 && g < 120 && bl < 120;
    });
  }
};

TEST_F(Picture, DrawsVisibleLinesWithFillsFontsAndBorders) {
  const auto b = draw("A1:E5");
  // A, B, C and E; rows 1, 2, 4 and 5.
  ASSERT_EQ(b.width, 64 + 28 + 64 + 64);
  ASSERT_EQ(b.height, 4 * 20);
  // C2 is filled to its edges, and the gridlines show where nothing covers them.
  EXPECT_EQ(rgb(b, 92 + 32, 20 + 10), kYellow);
  EXPECT_EQ(rgb(b, 92, 20 + 2), kYellow);
  EXPECT_EQ(rgb(b, 63, 30), 0xD4D4D4u);
  // The bold red label's ink stays in A1; the hidden row's text shows nowhere.
  EXPECT_GT(count(b, 0, 0, 64, 20,
                  [](uint32_t r, uint32_t g, uint32_t bl) { return r > 200 && g < 80 && bl < 80; }),
            10);
  EXPECT_EQ(dark(b, 0, 20, b.width, 80), 0) << "text of the hidden row or column was drawn";
  // The row under the picture's third row is C4's bottom edge: three blue pixel rows.
  EXPECT_EQ(rgb(b, 92 + 32, 59), kBlue);
  EXPECT_EQ(rgb(b, 92 + 32, 58), kBlue);
  EXPECT_EQ(rgb(b, 92 + 32, 50), kWhite);
  // 7 stands right in C1, clear of the cell's left half.
  EXPECT_EQ(dark(b, 92, 0, 92 + 32, 20), 0);
  EXPECT_GT(dark(b, 92 + 40, 0, 156, 20), 0);
}

TEST_F(Picture, NumbersThatDoNotFitShowHashesAndTextRunsOn) {
  // In 28 px, 1,234,567.89 shows as hashes; in a wide column as itself, right-aligned.
  const std::string narrow = to_utf8(picture::shown(sheet(), 0, 1));
  EXPECT_FALSE(narrow.empty());
  EXPECT_EQ(narrow.find_first_not_of('#'), std::string::npos) << narrow;
  EXPECT_EQ(to_utf8(picture::shown(sheet(), 0, 0)), "Label") << "text never turns into hashes";
  r("B1")->entire_column()->set_column_width(30);
  EXPECT_EQ(to_utf8(picture::shown(sheet(), 0, 1)), "1,234,567.89");
  auto wide = draw("B1");
  EXPECT_EQ(dark(wide, 0, 0, wide.width / 2, 20), 0);
  EXPECT_GT(dark(wide, wide.width / 2, 0, wide.width, 20), 0);
  // Text runs on over an empty neighbour and stops at a filled one.
  r("B1")->entire_column()->set_column_width(4);
  put("A6", "a label longer than its column");
  EXPECT_GT(dark(draw("A6:B6"), 64 + 12, 0, 92, 20), 0);
  put("B6", "x");
  EXPECT_EQ(dark(draw("A6:B6"), 64 + 12, 0, 92, 20), 0);
}

TEST_F(Picture, FilesOfEachKindAndTheLibrarysMethodsHeadless) {
  qz::test::TempDir tmp;
  auto model = range_of(r("A1:E5"));
  for (const char* name : {"p.png", "p.svg", "p.bmp"}) {
    picture::save(*model->sheet, model->areas[0], tmp.path() / name);
    EXPECT_GT(std::filesystem::file_size(tmp.path() / name), 100u) << name;
  }
  EXPECT_THROW(picture::save(*model->sheet, model->areas[0], tmp.path() / "p.gif"), Error);
  std::ifstream svg(tmp.path() / "p.svg");
  std::stringstream text;
  text << svg.rdbuf();
  EXPECT_NE(text.str().find("width=\"220\""), std::string::npos);

  host::reset_environment();
  register_picture_maker(nullptr);
  auto lib = qz::create_iXLLibPublic();
  String name;
  lib->NewPublic(name);
  lib->InitXL(app);
  auto ranges = lib->NewRange();
  EXPECT_FALSE(ranges->TakeRangePicture(r("A1:E5"))) << "drew without a picture maker";

  picture::install();
  ASSERT_TRUE(ranges->TakeRangePicture(r("A1:E5")));
  ASSERT_NE(picture::clipboard(), nullptr);
  EXPECT_EQ(picture::clipboard()->width, 220);
  const String bmp = from_utf8((tmp.path() / "range.bmp").string());
  ASSERT_TRUE(ranges->CopyRangeToBmpFile(r("C2"), bmp));
  // A 64 x 20 bitmap, 24 bits, bottom-up: its middle pixel is the fill's yellow (B, G, R).
  std::ifstream f(tmp.path() / "range.bmp", std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  ASSERT_EQ(bytes.size(), 54u + 64 * 3 * 20);
  EXPECT_EQ(bytes.substr(0, 2), "BM");
  const size_t middle = 54 + 10 * 64 * 3 + 32 * 3;
  EXPECT_EQ(static_cast<unsigned char>(bytes[middle]), 0x00);
  EXPECT_EQ(static_cast<unsigned char>(bytes[middle + 1]), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(bytes[middle + 2]), 0xFF);
  EXPECT_EQ(picture::clipboard(), nullptr) << "saving leaves the clipboard empty";
  host::reset_environment();
}

}  // namespace
}  // namespace qz::engine::test
