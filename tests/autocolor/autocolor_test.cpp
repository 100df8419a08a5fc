// AutoColor as a person and a client add-in meet it: typing with colour-coding on, Undo and
// Redo of what it did, Ctrl+Enter, the rule table, runs over ranges, sheets and workbooks,
// the settings, the menu buttons and a client's veto.
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "autocolor/autocolor.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "host/cell_scan.hpp"
#include "host/intercept.hpp"
#include "undo/client.hpp"
#include "vblib/vblib.hpp"

namespace qz::test {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

constexpr int32_t kBlue = 16711680, kRed = 255, kPlum = 6697881;

class AutoColor : public ClientTest {
 protected:
  // The client puts the on-entry button on the Format menu at start-up; with AutoColor on
  // (the default) that hooks the application's entries.
  void SetUp() override { ac->CreateAutoColorMenuBtn(Variant(menu->FormatMenu())); }
};

// --- Typing with AutoColor on -----------------------------------------------------------------

TEST_F(AutoColor, ATypedFormulaOfValuesTakesTheInputColourAndIsUndoneAsTheLibrarysOwn) {
  r("B2")->set_formula(u"7");
  r("B2")->set_number_format(u"0.0");
  r("B2")->font()->set_bold(Variant(true));
  r("B2")->font()->set_color(Variant(kRed));
  r("B2")->font()->set_superscript(Variant(true));

  user.type(u"B2", u"=100+20");
  EXPECT_EQ(formula("B2"), u"=100+20");
  EXPECT_EQ(colour("B2"), kBlue);
  EXPECT_EQ(r("B2")->number_format(), Variant(u"0.0"));
  EXPECT_EQ(r("B2")->font()->bold(), Variant(true));
  EXPECT_EQ(r("B2")->font()->superscript(), Variant(true));
  EXPECT_EQ(undo_caption(), "&Undo Text Entry (QZ)");
  EXPECT_EQ(redo_caption(), "Can't &Redo");
  EXPECT_EQ(app->calculation(), host::xl::CalculationAutomatic);

  user.press_undo();
  EXPECT_EQ(formula("B2"), u"7");
  EXPECT_EQ(colour("B2"), kRed);
  EXPECT_EQ(r("B2")->font()->bold(), Variant(true));
  EXPECT_EQ(r("B2")->number_format(), Variant(u"0.0"));
  EXPECT_EQ(redo_caption(), "&Redo Text Entry (QZ)");

  user.press_redo();
  EXPECT_EQ(formula("B2"), u"=100+20");
  EXPECT_EQ(colour("B2"), kBlue);
  EXPECT_EQ(undo_caption(), "&Undo Text Entry (QZ)");
}

TEST_F(AutoColor, CtrlEnterColoursTheSelectionAndOneUndoRestoresAllOfIt) {
  r("B2")->set_formula(u"old");
  user.select(u"A1:C3");
  user.ctrl_enter(u"5");
  for (const char* cell : {"A1", "B1", "C1", "A2", "B2", "C2", "A3", "B3", "C3"}) {
    EXPECT_EQ(formula(cell), u"5") << cell;
    EXPECT_EQ(colour(cell), kBlue) << cell;
  }
  EXPECT_FALSE(frame::session().CtrlEnterPressed);
  EXPECT_THAT(undo_texts(), ElementsAre("&Undo Text Entry (QZ)"));

  user.press_undo();
  for (const char* cell : {"A1", "B1", "C1", "A2", "C2", "A3", "B3", "C3"}) {
    EXPECT_EQ(formula(cell), u"") << cell;
    EXPECT_EQ(colour(cell), 0) << cell;
  }
  EXPECT_EQ(formula("B2"), u"old");
}

TEST_F(AutoColor, CtrlEnterOptsOutAsOneCellWouldAndColoursHiddenCellsAndNamedLinks) {
  wb->worksheets()->add(Variant::missing(), Variant(ws))->set_name(u"Other");
  ws->activate();
  define(u"Far", u"=Other!$A$1");
  ac->SetWksLinkColor(Variant(kPlum));
  r("A2")->entire_row()->set_hidden(true);
  user.select(u"A1:A3");
  user.ctrl_enter(u"=Far*1");  // no typed value: the named-link search decides
  for (const char* cell : {"A1", "A2", "A3"}) EXPECT_EQ(colour(cell), kPlum) << cell;
  EXPECT_EQ(r("A2")->entire_row()->hidden(), Variant(true));

  for (const char16_t* entry : {u"label", u"14/11/2026"}) {
    user.select(u"B1:B2");
    user.ctrl_enter(entry);
    EXPECT_EQ(colour("B1") + colour("B2"), 0) << to_utf8(entry);
    EXPECT_EQ(undo_caption(), "&Undo Typing");
  }
  ac->SetAutoColorText(Variant(true));
  ac->SetAutoColorDates(Variant(true));
  for (const char16_t* entry : {u"label", u"14/11/2026"}) {
    user.select(u"C1:C2");
    user.ctrl_enter(entry);
    EXPECT_EQ(colour("C2"), kBlue) << to_utf8(entry);
  }
}

TEST_F(AutoColor, TheEntryIsTakenBackOutWhileRecalculationWaits) {
  auto watched = std::make_shared<Watched>(app);
  lib->InitXL(watched);
  app->set_calculation(host::xl::CalculationSemiautomatic);
  user.type(u"B2", u"=1+2");
  EXPECT_EQ(app->calculation(), host::xl::CalculationSemiautomatic);
  user.select(u"C1:C2");
  user.ctrl_enter(u"4");
  EXPECT_EQ(watched->modes, std::vector<int32_t>(2, -4135));
  EXPECT_EQ(app->calculation(), host::xl::CalculationSemiautomatic);
}

// Colouring goes cell by cell up to the selection's count: when the application will not
// say how many cells there are, none is coloured, not just the first.
TEST_F(AutoColor, CtrlEnterColoursNothingWhenTheSelectionsSizeCannotBeRead) {
  lib->InitXL(host::intercept(app, [](const host::HostCall& call) {
    if (call.member == u"Range.Count") throw Error(err::host_failure, "refused");
  }));
  user.select(u"D1:D2");
  user.ctrl_enter(u"4");
  EXPECT_EQ(colour("D1") + colour("D2"), 0);
}

TEST_F(AutoColor, CtrlEnterFlagsAreBothKeptUntilTheNextRun) {
  ac->UpdateCtrlEnter(true, Variant(true));
  EXPECT_TRUE(frame::session().CtrlEnterPressed && frame::session().CtrlShiftEnterPressed);
  ac->UpdateCtrlEnter(false, Variant(true));
  EXPECT_FALSE(frame::session().CtrlEnterPressed);
  EXPECT_TRUE(frame::session().CtrlShiftEnterPressed);
  ac->RunAutoColor();
  EXPECT_FALSE(frame::session().CtrlEnterPressed || frame::session().CtrlShiftEnterPressed);
}

TEST_F(AutoColor, WithHyperlinkColouringOffALinkedCellIsColouredByWhatItHolds) {
  r("A1")->set_formula(u"label");
  r("A2")->set_formula(u"5");
  for (const char* cell : {"A1", "A2"}) {
    ws->hyperlinks()->add(r(cell), u"http://example.com/");
    r(cell)->font()->set_color(Variant(kRed));
  }
  ac->SetAutoColorHyperlinks(Variant(false));
  for (const char* cell : {"A1", "A2"}) ac->AutoColorCell(r(cell), false);
  EXPECT_EQ(colour("A1"), kRed);  // text opts out once the link no longer counts
  EXPECT_EQ(colour("A2"), kBlue);
  ac->SetAutoColorHyperlinks(Variant(true));
  for (const char* cell : {"A1", "A2"}) ac->AutoColorCell(r(cell), false);
  EXPECT_EQ(colour("A1") + colour("A2"), 2 * kPlum);
}

// --- A client's veto -----------------------------------------------------------------------

TEST_F(AutoColor, TheRivuletProductMayKeepACellsColour) {
  start_product(u"RivuletXL", u"Rivulet");
  callback->keep_colour = true;
  r("A1")->font()->set_color(Variant(kRed));
  user.type(u"A1", u"42");
  EXPECT_EQ(colour("A1"), kRed);
  EXPECT_THAT(callback->colours_asked, ElementsAre(kRed));
  // The entry is still the library's to undo.
  EXPECT_EQ(undo_caption(), "&Undo Text Entry (QZ)");

  callback->keep_colour = false;
  user.type(u"A2", u"43");
  EXPECT_EQ(colour("A2"), kBlue);
  // An automatic colour has no palette entry: the product is told 0.
  EXPECT_THAT(callback->colours_asked, ElementsAre(kRed, 0));
  // An emptied cell has no content to ask about.
  user.type(u"A2", u"");
  EXPECT_EQ(callback->colours_asked.size(), 2u);
  // A callback that cannot answer vetoes nothing.
  undo->Subscribe(u"RivuletXL", lib->NewProduct(u"Other", Variant(true), Variant(u"Other")));
  user.type(u"A3", u"44");
  EXPECT_EQ(colour("A3"), kBlue);
}

// --- The rule table ------------------------------------------------------------------------

// The colours each rule gives, distinct so that the colour names the rule that fired.
constexpr int32_t kUntouched = 107;
const std::map<int32_t, std::string> kRuleOf = {
    {101, "Input"},    {102, "Partial"},   {103, "Formula"}, {104, "SheetLink"},
    {105, "BookLink"}, {106, "Hyperlink"}, {kUntouched, "-"}};

class RuleTable : public ClientTest {
 protected:
  struct Case {
    std::string address, entry;
  };

  void SetUp() override {
    ac->SetInputColor(Variant(101));
    ac->SetPartialInputColor(Variant(102));
    ac->SetFormulaColor(Variant(103));
    ac->SetWksLinkColor(Variant(104));
    ac->SetWkbLinkColor(Variant(105));
    ac->SetHyperlinkColor(Variant(106));
    ws->set_name(u"Model");
    std::ifstream in(std::string(QZXL_AUTOCOLOR_GOLDEN_DIR) + "/rule_cases.txt");
    ASSERT_TRUE(in);
    std::vector<std::vector<std::string>> scene;
    for (std::string line; std::getline(in, line);) {
      if (line.empty() || line[0] == '#') continue;
      std::istringstream words(line);
      std::vector<std::string> w;
      for (std::string x; words >> x;) w.push_back(x);
      if (line[0] == '@') {
        scene.push_back(w);
        continue;
      }
      const size_t blank = line.find(' ');
      cases.push_back({w[0], blank == std::string::npos ? "" : line.substr(blank + 1)});
    }
    // Sheets and names first, so formulas can refer to them; links and hiding last, over
    // what was typed.
    for (const auto& w : scene)
      if (w[0] == "@sheet")
        wb->worksheets()->add(Variant::missing(), Variant(ws))->set_name(u16(w[1]));
    for (const auto& w : scene)
      if (w[0] == "@name") define(u16(w[1]), u16(w[2]));
    for (const Case& c : cases) r(c.address.c_str())->set_formula(u16(c.entry));
    for (const auto& w : scene) {
      if (w[0] == "@link") ws->hyperlinks()->add(r(w[1].c_str()), u16(w[2]));
      if (w[0] == "@hide-row") r(("A" + w[1]).c_str())->entire_row()->set_hidden(true);
      if (w[0] == "@hide-column") r((w[1] + "1").c_str())->entire_column()->set_hidden(true);
    }
  }

  // Colours every case cell with AutoColorCell, from the same untouched colour.
  std::map<std::string, std::string> colour_cells(bool names) {
    std::map<std::string, std::string> out;
    for (const Case& c : cases) r(c.address.c_str())->font()->set_color(Variant(kUntouched));
    for (const Case& c : cases) ac->AutoColorCell(r(c.address.c_str()), false, names);
    for (const Case& c : cases) out[c.address] = rule(c.address);
    return out;
  }
  std::string rule(const std::string& address) {
    auto it = kRuleOf.find(colour(address.c_str()));
    return it == kRuleOf.end() ? "?" : it->second;
  }
  bool hidden(const host::RangePtr& lines) { return lines->hidden() == Variant(true); }

  std::vector<Case> cases;
};

TEST_F(RuleTable, GoldenFile) {
  const auto with_names = colour_cells(true);
  std::map<std::string, bool> row_hidden, column_hidden;
  for (const Case& c : cases) {
    row_hidden[c.address] = hidden(r(c.address.c_str())->entire_row());
    column_hidden[c.address] = hidden(r(c.address.c_str())->entire_column());
  }
  const auto without_names = colour_cells(false);
  ac->SetAutoColorText(Variant(true));
  ac->SetAutoColorDates(Variant(true));
  const auto opted_in = colour_cells(true);

  std::ostringstream actual;
  for (const Case& c : cases) {
    std::string head = c.address + " " + c.entry;
    head.resize(std::max<size_t>(head.size() + 1, 30), ' ');
    actual << head << "names=" << with_names.at(c.address)
           << " plain=" << without_names.at(c.address) << " opted-in=" << opted_in.at(c.address);
    if (row_hidden[c.address]) actual << " (row hidden again)";
    if (column_hidden[c.address]) actual << " (column hidden again)";
    actual << "\n";
  }
  const std::string expected_path = std::string(QZXL_AUTOCOLOR_GOLDEN_DIR) + "/rule_expected.txt";
  if (std::getenv("QZXL_UPDATE_GOLDEN")) std::ofstream(expected_path) << actual.str();
  std::stringstream expected;
  expected << std::ifstream(expected_path).rdbuf();
  EXPECT_EQ(actual.str(), expected.str());
}

TEST_F(RuleTable, ARunGivesEveryFilledCellWhatTheCellRulesGive) {
  const auto one_by_one = colour_cells(true);
  for (const Case& c : cases) r(c.address.c_str())->font()->set_color(Variant(kUntouched));
  bool names = true;
  ac->AutoColorRange(ws->used_range(), u"Model", &names);
  for (const Case& c : cases) {
    const std::string expected = c.entry.empty() ? "-" : one_by_one.at(c.address);
    EXPECT_EQ(rule(c.address), expected) << c.address << " " << c.entry;
  }
}

TEST_F(RuleTable, ARunWithoutNamesReadingCellsInBulkAgreesWithTheCellRulesEitherWayOfOptingIn) {
  // Without the name search a run over the engine reads its cells in bulk; hidden lines,
  // hyperlinks, texts and dates among the cases must come out as one cell at a time.
  for (const bool opted_in : {false, true}) {
    ac->SetAutoColorText(Variant(opted_in));
    ac->SetAutoColorDates(Variant(opted_in));
    const auto one_by_one = colour_cells(false);
    for (const Case& c : cases) r(c.address.c_str())->font()->set_color(Variant(kUntouched));
    bool names = false;
    ac->AutoColorRange(ws->used_range(), u"Model", &names);
    for (const Case& c : cases) {
      const std::string expected = c.entry.empty() ? "-" : one_by_one.at(c.address);
      EXPECT_EQ(rule(c.address), expected) << c.address << " " << c.entry << " " << opted_in;
    }
  }
  EXPECT_TRUE(r("A20")->entire_row()->hidden() == Variant(true));
  EXPECT_TRUE(r("H1")->entire_column()->hidden() == Variant(true));
}

TEST_F(RuleTable, TypingEachCaseColoursItAsTheCellRulesDoAndKeepsWhatWasTyped) {
  // The on-entry path takes every entry back out and puts it in again around its undo
  // capture; what the person typed, and the colour, must come out as the rules alone give.
  const auto one_by_one = colour_cells(true);
  std::map<std::string, String> entered;
  std::map<std::string, Variant> format;
  for (const Case& c : cases) {
    entered[c.address] = formula(c.address.c_str());
    format[c.address] = r(c.address.c_str())->number_format();
    r(c.address.c_str())->font()->set_color(Variant(kUntouched));
  }
  ac->CreateAutoColorMenuBtn(Variant(menu->FormatMenu()));  // hooks the entries
  ws->activate();  // adding the sheet "Inputs" made it the active one
  for (const Case& c : cases) {
    SCOPED_TRACE(c.address + " " + c.entry);
    user.type(u16(c.address), u16(c.entry));
    EXPECT_EQ(rule(c.address), one_by_one.at(c.address));
    EXPECT_EQ(formula(c.address.c_str()), entered[c.address]);
    EXPECT_EQ(r(c.address.c_str())->number_format(), format[c.address]);
    // A cell the rules leave alone is left to the application's own undo.
    EXPECT_EQ(undo_caption(),
              one_by_one.at(c.address) == "-" ? "&Undo Typing" : "&Undo Text Entry (QZ)");
  }
  EXPECT_EQ(app->calculation(), host::xl::CalculationAutomatic);
  EXPECT_TRUE(r("A20")->entire_row()->hidden() == Variant(true));
  EXPECT_TRUE(r("H1")->entire_column()->hidden() == Variant(true));
}

// --- Runs ----------------------------------------------------------------------------------

class Runs : public ClientTest {
 protected:
  void fill(const char* address, const char16_t* entry) { r(address)->set_formula(entry); }
  void add_names(int32_t n) {
    for (int32_t i = 0; i < n; ++i)
      define(u"Name_" + u16(std::to_string(names_added++)), u"=Sheet1!$A$1");
  }
  const std::vector<ShownMessage>& messages() { return scope.ui->messages; }
  int names_added = 0;
};

TEST_F(Runs, ARangeRunShowsProgressEveryHundredCellsAndIsOneUndoStep) {
  fill("A1", u"=1+2");
  fill("J25", u"=A1*3");
  ac->AutoColorRange(r("A1:J25"));
  EXPECT_THAT(scope.ui->progress_starts, ElementsAre(Pair(16777215, 8388608)));
  EXPECT_THAT(scope.ui->progress_shown, ElementsAre(Pair(u"AutoColoring Selected Range...", 0),
                                                    Pair(u"AutoColoring Selected Range...", 40),
                                                    Pair(u"AutoColoring Selected Range...", 80)));
  EXPECT_EQ(colour("A1"), kBlue);
  EXPECT_EQ(colour("J25"), kRed);
  EXPECT_EQ(colour("B1"), 0);  // empty cells are passed over
  EXPECT_TRUE(app->screen_updating());
  EXPECT_EQ(undo_caption(), "&Undo Selected Range (QZ)");
  user.press_undo();
  EXPECT_EQ(colour("A1"), 0);
  EXPECT_EQ(colour("J25"), 0);
}

TEST_F(Runs, TheSelectionMenuButtonColoursTheSelection) {
  auto button = ac->CreateAutoColorSelectionMenuBtn(Variant(menu->FormatMenu()));
  fill("B2", u"4");
  fill("B3", u"5");
  user.select(u"B2");
  user.click(button);
  EXPECT_EQ(colour("B2"), kBlue);
  EXPECT_EQ(colour("B3"), 0);
}

TEST_F(Runs, ASelectedChartIsNoRangeToColour) {
  fill("A1", u"5");
  engine::sheet_of(ws)->chart_objects.push_back({u"Chart 1", u""});
  ws->chart_objects()->item(Variant(1))->activate();
  bool do_names = true;
  ac->AutoColorRange(nullptr, u"", &do_names);
  EXPECT_EQ(colour("A1"), 0);
}

TEST_F(Runs, ASheetRunAsksFirstAndChartSheetsAreLeftAlone) {
  fill("A1", u"5");
  scope.ui->answers = {msgbox::Cancel};
  ac->AutoColorSheet(ws);
  ASSERT_EQ(messages().size(), 1u);
  EXPECT_EQ(messages()[0].prompt, vblib::Strings::message(5030));
  EXPECT_EQ(messages()[0].style, msgbox::OKCancel);
  EXPECT_EQ(messages()[0].title, u"Quazel");
  EXPECT_EQ(colour("A1"), 0);

  ac->AutoColorSheet(ws);
  EXPECT_EQ(colour("A1"), kBlue);
  EXPECT_EQ(undo_caption(), "&Undo Sheet1 (QZ)");

  app->workbooks()->add(Variant(host::xl::Chart));
  const size_t shown = messages().size();
  ac->AutoColorSheet();  // the active sheet is a chart
  EXPECT_EQ(messages().size(), shown);
}

TEST_F(Runs, OnlyMoreThanFiveHundredNamesBringTheNamesQuestion) {
  wb->worksheets()->add(Variant::missing(), Variant(ws))->set_name(u"Other");
  fill("A2", u"=Far");
  define(u"Far", u"=Other!$A$1");
  add_names(499);  // 500 names
  ac->SetWksLinkColor(Variant(kPlum));
  ac->SetFormulaColor(Variant(int32_t{103}));
  ac->AutoColorSheet(ws, false);
  EXPECT_TRUE(messages().empty());
  EXPECT_EQ(colour("A2"), 103);  // no named-link search in a sheet run by default

  add_names(500);  // 501 names
  scope.ui->answers = {msgbox::Yes};
  ac->AutoColorSheet(ws, false);
  ASSERT_EQ(messages().size(), 1u);
  EXPECT_EQ(messages()[0].prompt,
            u"The active workbook has more than 500 defined names.\r\nDo you want to search for "
            u"and color-code formulas containing links to named cells in other sheets?");
  EXPECT_EQ(messages()[0].style, msgbox::YesNoCancel);
  EXPECT_EQ(colour("A2"), kPlum);

  r("A2")->font()->set_color(Variant(kRed));
  scope.ui->answers = {msgbox::Cancel};
  ac->AutoColorSheet(ws, false);
  EXPECT_EQ(colour("A2"), kRed);
}

TEST_F(Runs, WithoutMessageBoxesSheetAndWorkbookRunsGoOnUnasked) {
  fill("A1", u"5");
  fill("A2", u"=Far");
  wb->worksheets()->add(Variant::missing(), Variant(ws))->set_name(u"Other");
  add_names(501);
  define(u"Far", u"=Other!$A$1");
  ac->SetWksLinkColor(Variant(kPlum));
  host::environment().ui = nullptr;
  ac->AutoColorSheet(ws);
  EXPECT_EQ(colour("A1"), kBlue);
  EXPECT_EQ(colour("A2"), 0);  // the names question had no answer: no named-link search
  r("A1")->font()->set_color(Variant(kRed));
  ac->AutoColorWorkbook(wb);
  EXPECT_EQ(colour("A1"), kBlue);
}

TEST_F(Runs, AWorkbookRunAsksOnceAndColoursEveryWorksheet) {
  auto second = wb->worksheets()->add(Variant::missing(), Variant(ws));
  fill("A1", u"1");
  second->range(Variant(u"B2"))->set_formula(u"=Sheet1!A1");
  ac->SetWksLinkColor(Variant(kPlum));
  scope.ui->answers = {msgbox::Cancel};
  ac->AutoColorWorkbook(wb);
  EXPECT_EQ(colour("A1"), 0);
  ASSERT_EQ(messages().size(), 1u);
  EXPECT_EQ(messages()[0].prompt,
            u"Reformatting cell colors throughout an entire workbook may take awhile... but it is "
            u"very helpful.  Do you wish to proceed?");

  ac->AutoColorWorkbook();
  EXPECT_EQ(messages().size(), 2u);
  EXPECT_EQ(colour("A1"), kBlue);
  EXPECT_EQ(to_long(second->range(Variant(u"B2"))->font()->color()), kPlum);
}

// --- Runs over real workbooks ---------------------------------------------------------------

// What a workbook run did: per cell ("Sheet!A1"), the rule that decided and the colour the
// cell ends with; the rules in the order decided, with the colour each cell had before; and
// the progress shown.
struct Outcomes final : autocolor::Observer {
  explicit Outcomes(bool with_cells) : with_cells(with_cells) {}
  void decided(const host::RangePtr& cell, autocolor::Outcome outcome,
               std::optional<int32_t> colour) override {
    rules[to_utf8(cell->worksheet()->name() + u"!" + cell->address())] = static_cast<int>(outcome);
    decided_colour(colour ? cell->font()->color() : Variant::null(), outcome, colour);
  }
  // Without cells, a run over the engine reads them ahead of the rules on a second thread.
  bool needs_cells() const override { return with_cells; }
  void decided_colour(const Variant& before, autocolor::Outcome outcome,
                      std::optional<int32_t>) override {
    in_order.emplace_back(static_cast<int>(outcome), before);
  }
  bool with_cells;
  std::map<std::string, int> rules;
  std::map<std::string, Variant> colours;
  std::vector<std::pair<int, Variant>> in_order;
  /// The formulas as the run was handed them, by cell.
  std::map<std::string, String> formulas;
  std::vector<std::pair<String, int32_t>> shown;
};

class CorpusRuns : public ClientTest {
 protected:
  // Opens `file` in an application of its own and colours every worksheet. `per_cell` hides
  // the engine's bulk reads behind a forwarding wrapper, so the run visits each cell as a
  // Range. An observer without cells learns no addresses: the colours are then read from the
  // cells `cells_of` decided.
  Outcomes run(const std::filesystem::path& file, bool per_cell, bool with_cells = true,
               const Outcomes* cells_of = nullptr,
               const std::function<void(const host::WorkbookPtr&)>& edit = {}) {
    engine::xlsx::register_format();
    host::ApplicationPtr engine_app = engine::create_application();
    host::ApplicationPtr seen =
        per_cell ? host::intercept(engine_app, [](const host::HostCall&) {}) : engine_app;
    lib->InitXL(seen);
    host::OpenArgs args;
    args.filename = from_utf8(file.string());
    Outcomes out(with_cells);
    host::WorkbookPtr book;
    try {
      book = seen->workbooks()->open(args);
    } catch (const Error&) {
      return out;
    }
    if (edit) edit(book);
    scope.ui->progress_shown.clear();
    auto colouring = std::dynamic_pointer_cast<iAutoColor>(lib->NewAutoColor());
    colouring->set_observer(&out);
    colouring->AutoColorWorkbook(book);
    colouring->set_observer(nullptr);
    out.shown = scope.ui->progress_shown;
    for (const auto& [where, rule] : (cells_of ? *cells_of : out).rules) {
      const size_t bang = where.rfind('!');
      const host::RangePtr cell = book->worksheets()
                                      ->item(Variant(from_utf8(where.substr(0, bang))))
                                      ->range(Variant(from_utf8(where.substr(bang + 1))));
      out.colours[where] = cell->font()->color();
      // The bulk reader hands over formula texts of its own making.
      auto* scan = dynamic_cast<host::CellScan*>(cell.get());
      const String formula =
          scan ? scan->formula(cell->row(), cell->column()).value_or(String()) : cell->formula();
      if (formula.starts_with(u'=')) out.formulas[where] = formula;
    }
    return out;
  }
};

TEST_F(CorpusRuns, ReadingCellsInBulkDecidesAndColoursAsVisitingEachCellDoes) {
  const std::filesystem::path corpus = corpus_dir();
  if (corpus.empty()) GTEST_SKIP() << "no corpus";
  // Hyperlinks, hidden rows and columns, shared and array formulas, errors, rich text, dates
  // and times in many formats, links to other workbooks.
  const char* books[] = {
      "poi/spreadsheet/51626.xlsx",
      "xlnt/tests/data/10_comments_hyperlinks_formulae.xlsx",
      "closedxml/TryToLoad/LO/xlsx/hyperlinks.xlsx",
      "poi/spreadsheet/59746_NoRowNums.xlsx",
      "poi/spreadsheet/FillWithoutColor.xlsx",
      "poi/spreadsheet/bug65464.xlsx",
      "poi/spreadsheet/47813.xlsx",
      "poi/spreadsheet/45544.xlsx",
      "poi/spreadsheet/FormulaEvalTestData_Copy.xlsx",
      "poi/spreadsheet/VLookupFullColumn.xlsx",
      "poi/spreadsheet/NumberFormatTests.xlsx",
      "closedxml/Examples/Misc/FormulasWithEvaluation.xlsx",
      "closedxml/TryToLoad/LO/xlsx/functions-excel-2010.xlsx",
      "closedxml/TryToLoad/LO/xlsx/external-refs.xlsx",
      "poi/spreadsheet/ref2-56737.xlsx",
  };
  std::vector<std::filesystem::path> files;
  for (const char* name : books) files.push_back(corpus / "workbooks" / name);
  // A writer that keeps no values for its formulas: they are calculated on opening, so each
  // is decided like any other formula rather than passed over as an empty cell.
  TempDir tmp;
  const std::filesystem::path uncached = tmp / "uncached.xlsx";
  const std::string script =
      "import openpyxl, sys\n"
      "wb = openpyxl.Workbook()\n"
      "ws = wb.active\n"
      "ws.title = 'Sheet1'\n"
      "ws['A1'] = 4\n"
      "ws['B1'] = '=A1*2'\n"
      "ws['B2'] = '=A1+A1'\n"
      "ws['B3'] = '=\"\"'\n"
      "ws['B4'] = '=B1*B1'\n"
      "wb.create_sheet('Other')['A1'] = '=Sheet1!B4'\n"
      "big = wb.create_sheet('Big')\n"
      "for r in range(1, 3001):\n"
      "    big.cell(r, 1, r)\n"
      "    big.cell(r, 2, f'=A{r}*2' if r % 3 else f'=Other!A1+A{r}')\n"
      "    big.cell(r, 3, 'note' if r % 5 else None)\n"
      "    big.cell(r, 4, r / 1440).number_format = 'h:mm' if r % 7 == 0 else 'General'\n"
      "wb.save(sys.argv[1])\n";
  const std::filesystem::path script_file = tmp / "write.py";
  std::ofstream(script_file) << script;
  const bool have_openpyxl = std::system(("/usr/bin/python3 '" + script_file.string() + "' '" +
                                          uncached.string() + "' 2>/dev/null")
                                             .c_str()) == 0;
  if (have_openpyxl) files.push_back(uncached);
  for (const bool opted_in : {false, true}) {
    ac->SetAutoColorText(Variant(opted_in));
    ac->SetAutoColorDates(Variant(opted_in));
    for (const auto& file : files) {
      SCOPED_TRACE(file.string() + (opted_in ? " (texts and dates too)" : ""));
      const Outcomes bulk = run(file, false);
      const Outcomes each = run(file, true);
      const Outcomes ahead = run(file, false, false, &each);
      EXPECT_FALSE(each.rules.empty());
      EXPECT_EQ(bulk.rules, each.rules);
      EXPECT_EQ(bulk.colours, each.colours);
      EXPECT_EQ(bulk.formulas, each.formulas);
      EXPECT_EQ(bulk.shown, each.shown);
      EXPECT_EQ(ahead.in_order, each.in_order);
      EXPECT_EQ(ahead.colours, each.colours);
      EXPECT_EQ(ahead.shown, each.shown);
      if (file != uncached) continue;
      const auto rule = [&](const char* where) {
        auto it = each.rules.find(where);
        return it == each.rules.end() ? -1 : it->second;
      };
      EXPECT_EQ(rule("Sheet1!$B$1"), static_cast<int>(autocolor::Outcome::PartialInput));
      EXPECT_EQ(rule("Sheet1!$B$2"), static_cast<int>(autocolor::Outcome::Formula));
      EXPECT_EQ(rule("Sheet1!$B$4"), static_cast<int>(autocolor::Outcome::Formula));
      EXPECT_EQ(rule("Other!$A$1"), static_cast<int>(autocolor::Outcome::SheetLink));
      // An empty text is a value like any other.
      EXPECT_NE(rule("Sheet1!$B$3"), -1);
    }
  }
  if (have_openpyxl) {
    // A sheet deleted and another of its name added after opening: the parses the formulas
    // naming it kept no longer say what their file texts say, and a run reads what the cells'
    // Formula does.
    const auto other_anew = [](const host::WorkbookPtr& book) {
      book->worksheets()->item(Variant(u"Other"))->delete_();
      book->worksheets()->add()->set_name(u"Other");
    };
    const Outcomes bulk = run(uncached, false, true, nullptr, other_anew);
    const Outcomes each = run(uncached, true, true, nullptr, other_anew);
    EXPECT_FALSE(each.formulas.empty());
    EXPECT_EQ(bulk.rules, each.rules);
    EXPECT_EQ(bulk.formulas, each.formulas);
  }
  if (!have_openpyxl) GTEST_SKIP() << "python3-openpyxl not installed";
}

// --- Settings and buttons ------------------------------------------------------------------

class Settings : public ClientTest {
 protected:
  String stored(const char16_t* name) {
    return frame::session().AutoColorSettings->read(vblib::kHkeyCurrentUser, name);
  }
};

TEST_F(Settings, AFreshUserGetsTheDefaultsWrittenOnFirstRead) {
  EXPECT_EQ(stored(u"InputColor"), u"");
  EXPECT_EQ(ac->InputColor(), kBlue);
  EXPECT_EQ(stored(u"InputColor"), u"16711680");
  EXPECT_EQ(ac->PartialInputColor(), 255);
  EXPECT_EQ(ac->FormulaColor(), 0);
  EXPECT_EQ(ac->WksLinkColor(), 0);
  EXPECT_EQ(ac->WkbLinkColor(), 255);
  EXPECT_EQ(ac->HyperlinkColor(), kPlum);
  EXPECT_EQ(ac->DummyNumberColor(), 255);
  EXPECT_TRUE(ac->AutoColorOn());
  EXPECT_TRUE(ac->AutoColorHyperlinks());
  EXPECT_FALSE(ac->AutoColorText());
  EXPECT_FALSE(ac->AutoColorDates());
  EXPECT_EQ(stored(u"Dates"), u"False");
}

TEST_F(Settings, EachSettingLivesUnderItsOwnValueName) {
  const std::vector<const char16_t*> names = {u"On",
                                              u"Hyperlinks",
                                              u"Text",
                                              u"Dates",
                                              u"InputColor",
                                              u"PartialInputColor",
                                              u"FormulaColor",
                                              u"WksLinkColor",
                                              u"WkbLinkColor",
                                              u"HyperlinkColor",
                                              u"DummyNumberColor"};
  auto& store = *frame::session().AutoColorSettings;
  // Each getter reads its own value name: stored texts that none of the defaults is.
  for (size_t i = 0; i < names.size(); ++i)
    store.write(vblib::kHkeyCurrentUser, names[i],
                i < 2   ? u"0"
                : i < 4 ? u"1"
                        : u16(std::to_string(7 + i)));
  EXPECT_EQ((std::vector<int32_t>{ac->AutoColorOn(), ac->AutoColorHyperlinks(), ac->AutoColorText(),
                                  ac->AutoColorDates(), ac->InputColor(), ac->PartialInputColor(),
                                  ac->FormulaColor(), ac->WksLinkColor(), ac->WkbLinkColor(),
                                  ac->HyperlinkColor(), ac->DummyNumberColor()}),
            (std::vector<int32_t>{0, 0, 1, 1, 11, 12, 13, 14, 15, 16, 17}));
  // Each setter writes its own.
  ac->SetAutoColorOn(Variant(true));
  ac->SetAutoColorHyperlinks(Variant(true));
  ac->SetAutoColorText(Variant(false));
  ac->SetAutoColorDates(Variant(false));
  int32_t c = 20;
  for (auto set :
       {&_iAutoColor::SetInputColor, &_iAutoColor::SetPartialInputColor,
        &_iAutoColor::SetFormulaColor, &_iAutoColor::SetWksLinkColor, &_iAutoColor::SetWkbLinkColor,
        &_iAutoColor::SetHyperlinkColor, &_iAutoColor::SetDummyNumberColor})
    (ac.get()->*set)(Variant(++c));
  std::vector<String> written;
  for (const char16_t* name : names) written.push_back(stored(name));
  EXPECT_EQ(written, (std::vector<String>{u"True", u"True", u"False", u"False", u"21", u"22", u"23",
                                          u"24", u"25", u"26", u"27"}));
}

TEST_F(Settings, SettersStoreWhatTheyAreGivenAndEveryObjectAgrees) {
  EXPECT_EQ(ac->SetInputColor(Variant(int32_t{123})), 123);
  EXPECT_EQ(lib->NewAutoColor()->InputColor(), 123);
  EXPECT_EQ(ac->SetInputColor(), kBlue);
  EXPECT_EQ(ac->InputColor(), kBlue);
  EXPECT_TRUE(ac->SetAutoColorText(Variant(int32_t{1})));
  EXPECT_TRUE(lib->NewAutoColor()->AutoColorText());
  EXPECT_EQ(ac->SetWkbLinkColor(Variant(int32_t{99999999})), 99999999);  // no range check
  frame::session().AutoColorSettings->write(vblib::kHkeyCurrentUser, u"Hyperlinks", u"fAlSe");
  EXPECT_FALSE(ac->AutoColorHyperlinks());
  frame::session().AutoColorSettings->write(vblib::kHkeyCurrentUser, u"FormulaColor", u"blue");
  EXPECT_EQ(ac->FormulaColor(), 0);
  EXPECT_EQ(ac->NoAutoColorSmartCycleName(), u"No AutoColor");
}

TEST_F(Settings, TheOnEntryButtonHooksEntriesAsTheStoredSwitchSays) {
  auto& store = *frame::session().AutoColorSettings;
  store.write(vblib::kHkeyCurrentUser, u"On", u"True");
  app->set_on_entry(u"");
  ac->CreateAutoColorMenuBtn(Variant(menu->FormatMenu()));
  EXPECT_EQ(app->on_entry(), u"mDOM.RunAutoColor");
  store.write(vblib::kHkeyCurrentUser, u"On", u"False");
  ac->CreateAutoColorMenuBtn(Variant(menu->FormatMenu()));
  EXPECT_EQ(app->on_entry(), u"");
}

TEST_F(Settings, ToggleFlipsTheSwitchTheButtonAndTheEntryHook) {
  auto button = ac->CreateAutoColorMenuBtn(Variant(menu->FormatMenu()), Variant(true));
  EXPECT_EQ(button->state(), -1);
  EXPECT_EQ(app->on_entry(), u"mDOM.RunAutoColor");
  EXPECT_EQ(button->on_action(), u"mDOM.ToggleAutoColor");

  user.click(button);  // the client's "mDOM.ToggleAutoColor"
  EXPECT_FALSE(ac->AutoColorOn());
  EXPECT_EQ(button->state(), 0);
  EXPECT_EQ(app->on_entry(), u"");

  EXPECT_TRUE(ac->ToggleAutoColor());
  EXPECT_EQ(button->state(), -1);
  EXPECT_EQ(app->on_entry(), u"mDOM.RunAutoColor");
}

class Buttons : public ClientTest {
 protected:
  std::vector<String> format_captions() {
    std::vector<String> out;
    auto controls = menu->FormatMenu()->controls();
    for (int32_t i = 1; i <= controls->count(); ++i)
      out.push_back(controls->item(Variant(i))->caption());
    return out;
  }
};

TEST_F(Buttons, ClearFormatMenuRemovesOnlyAutoColorButtonsWhoeverMadeThem) {
  const auto before = format_captions();
  // Buttons left by an earlier start: made by another object, in no collection of this one.
  auto earlier = lib->NewAutoColor();
  auto format = Variant(menu->FormatMenu());
  earlier->CreateAutoColorMenuBtn(format);
  earlier->CreateAutoColorSelectionMenuBtn(format);
  earlier->CreateAutoColorSheetMenuBtn(format, Variant(true), Variant(1));
  earlier->CreateAutoColorWkbMenuBtn(format);
  menu->CreateBtn(Variant(u"AutoColor &Sheet... (copy)"), Variant::missing(), format);
  EXPECT_EQ(format_captions().size(), before.size() + 5);
  ac->ClearFormatMenu();
  auto after = before;
  after.push_back(u"AutoColor &Sheet... (copy)");
  EXPECT_EQ(format_captions(), after);
}

TEST_F(Buttons, EachKindHasItsCaptionAndMacroAndIsDeletedOnItsOwn) {
  auto format = Variant(menu->FormatMenu());
  const auto before = format_captions();
  std::vector<host::CommandBarControlPtr> made = {
      ac->CreateAutoColorMenuBtn(format), ac->CreateAutoColorSelectionMenuBtn(format),
      ac->CreateAutoColorSheetMenuBtn(format), ac->CreateAutoColorWkbMenuBtn(format)};
  std::vector<String> seen;
  for (const auto& button : made)
    seen.push_back(button->caption() + u"=" + button->on_action() +
                   (engine::is_temporary(button) == true ? u" (temporary)" : u""));
  EXPECT_EQ(seen,
            (std::vector<String>{u"&AutoColor On Entry=mDOM.ToggleAutoColor (temporary)",
                                 u"AutoColor Se&lection...=mDOM.AutoColorSelection (temporary)",
                                 u"AutoColor &Sheet...=mDOM.AutoColorSheet (temporary)",
                                 u"AutoColor &Workbook...=mDOM.AutoColorWorkbook (temporary)"}));
  auto remaining = [&] {
    auto now = format_captions();
    return std::vector<String>(now.begin() + static_cast<ptrdiff_t>(before.size()), now.end());
  };
  ac->DeleteAutoColorSelectionMenuBtns();
  EXPECT_EQ(remaining(), (std::vector<String>{u"&AutoColor On Entry", u"AutoColor &Sheet...",
                                              u"AutoColor &Workbook..."}));
  ac->DeleteAutoColorMenuBtns();
  EXPECT_EQ(remaining(), (std::vector<String>{u"AutoColor &Sheet...", u"AutoColor &Workbook..."}));
  ac->DeleteAutoColorWkbMenuBtns();
  EXPECT_EQ(remaining(), (std::vector<String>{u"AutoColor &Sheet..."}));
  ac->DeleteAutoColorSheetMenuBtns();
  EXPECT_TRUE(remaining().empty());
}

TEST_F(Buttons, DeletingTwiceDoesNoHarm) {
  auto format = Variant(menu->FormatMenu());
  const size_t n = format_captions().size();
  ac->CreateAutoColorSheetMenuBtn(format);
  ac->CreateAutoColorSheetMenuBtn(format);
  ac->CreateAutoColorWkbMenuBtn(format);
  ac->DeleteAutoColorSheetMenuBtns();
  ac->DeleteAutoColorSheetMenuBtns();
  EXPECT_EQ(format_captions().size(), n + 1);
  ac->ClearFormatMenu();
  ac->DeleteAutoColorWkbMenuBtns();  // gone already
  EXPECT_EQ(format_captions().size(), n);
}

}  // namespace
}  // namespace qz::test
