// Chart addresses, names, lookups and activation.
#include "engine/xlsx/xlsx.hpp"
#include "support/fake_host.hpp"
#include "support/test_support.hpp"
#include "vblib/vblib.hpp"
#include "workbook/library_fixture.hpp"

namespace qz::test {
namespace {

// A chart sheet "Chart1" before Sheet1, and chart objects "Chart 1" on Sheet1 and "Chart 2"
// on Sheet2.
class Charts : public LibraryTest {
 protected:
  host::WorkbookPtr charted_book() {
    auto wb = add_book();
    auto& model = *engine::book_of(wb);
    model.add_sheet(u"Sheet2");
    model.add_sheet(u"Chart1", engine::SheetKind::Chart, 0);
    engine::sheet_of(sheet(wb, 1))->chart_objects.push_back({u"Chart 1", u"2"});
    engine::sheet_of(sheet(wb, 2))->chart_objects.push_back({u"Chart 2", u"2"});
    return wb;
  }
  host::ChartPtr embedded_on(int32_t ws) {
    return sheet(book, ws)->chart_objects()->item(Variant(int32_t{1}))->chart();
  }
  // Every name of a chart: sheet level, no bang, friendly, and the second spelling of each.
  std::vector<String> names(const host::ChartPtr& c) {
    return {charts->ChartAddrSheetLevel(c), charts->ChartAddrNoBang(c),
            charts->ChartNameFriendly(c),   charts->ChartNameSheetLevel(c),
            charts->ChartNameNoBang(c),     charts->IsEmbedded(c) ? u"embedded" : u"sheet"};
  }
  iChartXLPtr charts = create_iChartXL();
  host::WorkbookPtr book = charted_book();
  host::ChartPtr sheet_chart = book->charts()->item(Variant(int32_t{1}));
  host::ChartPtr embedded = embedded_on(1);
};

TEST_F(Charts, AddressesAndNamesOfBothKinds) {
  EXPECT_EQ(names(sheet_chart),
            (std::vector<String>{u"Chart1", u"Chart1", u"Chart1", u"Chart1", u"Chart1", u"sheet"}));
  EXPECT_EQ(names(embedded),
            (std::vector<String>{u"Sheet1!Chart 1", u"Chart 1", u"Chart 1 (Sheet1)",
                                 u"Sheet1!Chart 1", u"Chart 1", u"embedded"}));
  EXPECT_EQ(names(nullptr), (std::vector<String>{u"", u"", u"", u"", u"", u"sheet"}));
}

TEST_F(Charts, AFilesChartsAreFoundByTheNamesItGivesThem) {
  const auto file =
      corpus_dir() / "workbooks/closedxml/Other/Charts/PreserveCharts/outputfile.xlsx";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "the corpus is not there";
  engine::xlsx::register_format();
  host::OpenArgs args;
  args.filename = u16(file.string());
  auto wb = app->workbooks()->open(args);
  auto chart = charts->RefChart(wb, u"Sheet2!Chart 1");
  EXPECT_EQ(names(chart), (std::vector<String>{u"Sheet2!Chart 1", u"Chart 1", u"Chart 1 (Sheet2)",
                                               u"Sheet2!Chart 1", u"Chart 1", u"embedded"}));
  EXPECT_TRUE(charts->ChartObjExists(wb, u"Chart 1"));
  EXPECT_EQ(charts->RefChart(wb, u"Sheet1!Chart 1"), nullptr);
}

TEST_F(Charts, FoundAgainByAddress) {
  EXPECT_EQ(charts->RefChart(book, u"Chart1"), sheet_chart);
  EXPECT_EQ(names(charts->RefChart(book, u"Sheet2!Chart 2"))[0], u"Sheet2!Chart 2");
  EXPECT_EQ(charts->RefChart(book, u"Sheet2!Chart 1"), nullptr);  // on another sheet
  EXPECT_EQ(charts->ChartFromAddr(app, u"Nowhere.xls", u"Chart1"), nullptr);
  // A "!" inside a sheet's own name does not hide its charts.
  sheet(book, 2)->set_name(u"Q1!Sales");
  EXPECT_NE(charts->ChartFromAddr(app, book->name(), u"Q1!Sales!Chart 2"), nullptr);
  engine::sheet_of(sheet(book, 1))->chart_objects.clear();
  EXPECT_EQ(charts->RefChart(book, u"Sheet1!Chart 1"), nullptr);  // removed
}

TEST_F(Charts, NamesAreUniqueAcrossTheWorkbook) {
  EXPECT_TRUE(charts->ChartObjExists(book, u"Chart 2"));
  EXPECT_FALSE(charts->ChartObjExists(book, u"Chart1"));
  EXPECT_TRUE(charts->ChartExists(book, u"Chart1"));
  EXPECT_FALSE(charts->ChartExists(book, u"Chart 1"));

  EXPECT_FALSE(charts->RenameChart(embedded, u"Chart 1"));  // its own name exists
  EXPECT_FALSE(charts->RenameChart(embedded, u"Chart 2"));  // on another sheet
  EXPECT_TRUE(charts->RenameChart(embedded, u"Revenue"));
  EXPECT_EQ(names(embedded)[0], u"Sheet1!Revenue");
  EXPECT_FALSE(charts->RenameChart(sheet_chart, u"Chart1"));
  EXPECT_FALSE(charts->RenameChart(sheet_chart, u"Sheet2"));  // a worksheet's name
  EXPECT_TRUE(charts->RenameChart(sheet_chart, u"Trend"));
  EXPECT_EQ(charts->RefChart(book, u"Trend"), sheet_chart);
}

TEST_F(Charts, AllChartsSheetsFirstThenWorksheetByWorksheet) {
  auto all = std::dynamic_pointer_cast<vblib::Collection>(charts->AllCharts(book));
  ASSERT_NE(all, nullptr);
  std::vector<String> seen;
  for (int32_t i = 1; i <= all->count(); ++i)
    seen.push_back(names(all->item(i).as<host::Chart>())[0]);
  EXPECT_EQ(seen, (std::vector<String>{u"Chart1", u"Sheet1!Chart 1", u"Sheet2!Chart 2"}));
  auto none = std::dynamic_pointer_cast<vblib::Collection>(charts->AllCharts(add_book()));
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(none->count(), 0);
}

TEST_F(Charts, ActivatingBringsItsWorkbookAndSheetForward) {
  add_book();
  charts->ChartActivate(embedded_on(2));
  EXPECT_EQ(app->active_sheet(), sheet(book, 2));
  EXPECT_EQ(names(std::dynamic_pointer_cast<host::Chart>(app->selection()))[0], u"Sheet2!Chart 2");
  add_book();
  charts->ChartActivate(sheet_chart);
  EXPECT_EQ(app->active_sheet(), sheet_chart);
  EXPECT_FALSE(charts->TakeChartPicture(sheet_chart));  // the engine draws no pictures
}

// A chart that notes how it is asked for its picture, and can refuse.
class Pictured : public UnsupportedChart {
 public:
  void copy_picture(int32_t appearance, int32_t format, int32_t size) override {
    asked.push_back({appearance, format, size});
    if (refuse) throw Error(err::host_failure, "CopyPicture failed");
  }
  std::vector<std::vector<int32_t>> asked;
  bool refuse = false;
};

TEST_F(Charts, APictureAsShownOnScreenAtItsPrintedSize) {
  auto chart = std::make_shared<Pictured>();
  EXPECT_TRUE(charts->TakeChartPicture(chart));
  chart->refuse = true;
  EXPECT_FALSE(charts->TakeChartPicture(chart));
  EXPECT_EQ(chart->asked, std::vector<std::vector<int32_t>>(2, {1, -4147, 2}));
}

}  // namespace
}  // namespace qz::test
