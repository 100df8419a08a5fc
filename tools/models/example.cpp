// qzxl-models example: builds the bundled example, a small three-statement financial model,
// with the engine itself, so that examples/model.xlsx can be rebuilt from the repository
// alone. It holds one of everything AutoColor and the audit tell apart: typed inputs,
// formulas with typed-in numbers, plain formulas, links to other sheets, a link to a second
// workbook (examples/market.xlsx, written beside it), a named rate on another sheet, a
// hyperlink, dates, text, a hidden row, a number typed over a row of formulas and a hidden
// library tag.
#include <fmt/core.h>

#include "common.hpp"
#include "qzxl/convert.hpp"
#include "vocab/columns.hpp"

namespace qzcli {

namespace {

using qz::String;
using qz::Variant;

constexpr int kYears = 5;
constexpr int kFirstYear = 2026;
// Column B holds the first year; the labels stand in column A.
constexpr int kFirstCol = 2;

std::string col(int c) {
  std::string s;
  qz::append_column_letters(s, c - 1);
  return s;
}

// Writes cells by address: text starting with "=" is a formula, anything else a value.
class Sheet {
 public:
  explicit Sheet(qz::host::WorksheetPtr wks) : wks_(std::move(wks)) {}
  qz::host::RangePtr at(const std::string& address) {
    return wks_->range(Variant(qz::from_utf8(address)));
  }
  void text(const std::string& address, const std::string& s) {
    at(address)->set_value(Variant(qz::from_utf8(s)));
  }
  void number(const std::string& address, double v, const char* format = nullptr) {
    auto cell = at(address);
    cell->set_value(Variant(v));
    if (format) cell->set_number_format(qz::from_utf8(format));
  }
  void formula(const std::string& address, const std::string& f, const char* format = nullptr) {
    auto cell = at(address);
    cell->set_formula(qz::from_utf8(f));
    if (format) cell->set_number_format(qz::from_utf8(format));
  }
  // One formula per year; `f` is given the year's column letter and the previous one's.
  template <class F>
  void row(int r, const std::string& label, F&& f, const char* format = "#,##0") {
    text(fmt::format("A{}", r), label);
    for (int y = 0; y < kYears; ++y) {
      const int c = kFirstCol + y;
      formula(fmt::format("{}{}", col(c), r), f(col(c), col(c - 1), y), format);
    }
  }
  // One typed input per year.
  void inputs(int r, const std::string& label, std::initializer_list<double> values,
              const char* format) {
    text(fmt::format("A{}", r), label);
    int c = kFirstCol;
    for (double v : values) number(fmt::format("{}{}", col(c++), r), v, format);
  }
  qz::host::WorksheetPtr wks() const { return wks_; }

 private:
  qz::host::WorksheetPtr wks_;
};

qz::host::WorksheetPtr sheet_named(const qz::host::WorkbookPtr& book, int index, const char* name) {
  auto sheets = book->worksheets();
  while (sheets->count() < index)
    sheets->add(Variant::missing(), Variant(sheets->item(Variant(sheets->count()))));
  auto wks = sheets->item(Variant(index));
  wks->set_name(qz::from_utf8(name));
  return wks;
}

// The second workbook: market rates the model reads through an external link.
void build_market(Session& session, const fs::path& out) {
  auto book = session.app->workbooks()->add();
  Sheet rates(sheet_named(book, 1, "Rates"));
  rates.text("A1", "Market rates");
  rates.text("A2", "Borrowing rate");
  rates.number("B2", 0.055, "0.0%");
  rates.text("A3", "Deposit rate");
  rates.number("B3", 0.02, "0.0%");
  session.save(book, out);
}

void build_model(Session& session, const fs::path& out) {
  auto book = session.app->workbooks()->add();
  Sheet as(sheet_named(book, 1, "Assumptions"));
  Sheet is(sheet_named(book, 2, "Income"));
  Sheet bs(sheet_named(book, 3, "Balance"));
  Sheet cf(sheet_named(book, 4, "CashFlow"));

  // --- Assumptions: the inputs a reader changes ---
  as.text("A1", "Northwind Trading Ltd: assumptions");
  as.text("A2", "Model date");
  as.number("B2", 46023, "yyyy-mm-dd");  // 2026-01-01
  as.text("A3", "Year");
  as.number("B3", kFirstYear, "0");
  for (int y = 1; y < kYears; ++y)
    as.formula(fmt::format("{}3", col(kFirstCol + y)),
               fmt::format("={}3+1", col(kFirstCol + y - 1)), "0");
  as.inputs(4, "Revenue growth", {0.08, 0.07, 0.06, 0.05, 0.05}, "0.0%");
  as.inputs(5, "Gross margin", {0.42, 0.42, 0.43, 0.43, 0.44}, "0.0%");
  as.inputs(6, "Operating costs (% of revenue)", {0.21, 0.2, 0.2, 0.19, 0.19}, "0.0%");
  as.inputs(7, "Capital spending (% of revenue)", {0.05, 0.05, 0.04, 0.04, 0.04}, "0.0%");
  as.inputs(8, "Days receivable", {45, 44, 43, 42, 42}, "0");
  as.text("A10", "Opening revenue");
  as.number("B10", 1200, "#,##0");
  as.text("A11", "Opening fixed assets");
  as.number("B11", 800, "#,##0");
  as.text("A12", "Opening cash");
  as.number("B12", 150, "#,##0");
  as.text("A13", "Debt");
  as.number("B13", 600, "#,##0");
  as.text("A14", "Depreciation rate");
  as.number("B14", 0.1, "0.0%");
  as.text("A15", "Tax rate");
  as.number("B15", 0.25, "0.0%");
  // The market rate stays a reference beside the rate the model uses: a link to another
  // file shows its figures only where that file is at hand, and the model must calculate
  // without it.
  as.text("A16", "Borrowing rate (market, for reference)");
  as.formula("B16", "='[market.xlsx]Rates'!$B$2", "0.0%");
  as.text("A17", "Borrowing rate used");
  as.number("B17", 0.07, "0.0%");
  as.text("A18", "Rates published at");
  as.text("B18", "Market rates");
  as.wks()->hyperlinks()->add(as.at("B18"), u"https://rates.example.org/borrowing");
  // A scenario switch kept out of sight, as models often do.
  as.text("A19", "Scenario (1 = base)");
  as.number("B19", 1, "0");
  as.at("A19")->entire_row()->set_hidden(true);

  qz::host::NameAddArgs tax;
  tax.name = Variant(String(u"TaxRate"));
  tax.refers_to = Variant(String(u"=Assumptions!$B$15"));
  book->names()->add(tax);
  // A tag the library left behind in a hidden name, which `qzxl names --tags` lists.
  qz::host::NameAddArgs tag;
  tag.name = Variant(String(u"_bqz.ModelVersion.eqz"));
  tag.refers_to = Variant(String(u"=\"2026.1\""));
  tag.visible = Variant(false);
  book->names()->add(tag);

  // --- Income statement ---
  is.text("A1", "Income statement");
  is.row(
      3, "Year", [](auto c, auto, int) { return fmt::format("=Assumptions!{}3", c); }, "0");
  is.row(4, "Revenue", [](auto c, auto p, int y) {
    return y == 0 ? fmt::format("=Assumptions!$B$10*(1+Assumptions!{}4)", c)
                  : fmt::format("={}4*(1+Assumptions!{}4)", p, c);
  });
  is.row(5, "Cost of sales",
         [](auto c, auto, int) { return fmt::format("=-{}4*(1-Assumptions!{}5)", c, c); });
  is.row(6, "Gross profit", [](auto c, auto, int) { return fmt::format("={0}4+{0}5", c); });
  is.row(7, "Operating costs",
         [](auto c, auto, int) { return fmt::format("=-{}4*Assumptions!{}6", c, c); });
  // Somebody typed a figure over the formula for one year.
  is.number("D7", -300, "#,##0");
  // A one-off cost typed into the formula itself.
  is.row(8, "Other costs", [](auto c, auto, int) { return fmt::format("=-{}4*0.01-12", c); });
  is.row(9, "Depreciation",
         [](auto c, auto, int) { return fmt::format("=-Balance!{}5*Assumptions!$B$14", c); });
  is.row(10, "Operating profit",
         [](auto c, auto, int) { return fmt::format("=SUM({0}6:{0}9)", c); });
  is.row(11, "Interest",
         [](auto c, auto, int) { return fmt::format("=-Balance!{}9*Assumptions!$B$17", c); });
  is.row(12, "Profit before tax", [](auto c, auto, int) { return fmt::format("={0}10+{0}11", c); });
  is.row(13, "Tax", [](auto c, auto, int) { return fmt::format("=-MAX(0,{}12)*TaxRate", c); });
  is.row(14, "Net income", [](auto c, auto, int) { return fmt::format("={0}12+{0}13", c); });

  // --- Balance sheet (fixed assets before spending, so depreciation does not go round) ---
  bs.text("A1", "Balance sheet");
  bs.row(
      3, "Year", [](auto c, auto, int) { return fmt::format("=Assumptions!{}3", c); }, "0");
  bs.row(4, "Cash", [](auto c, auto, int) { return fmt::format("=CashFlow!{}10", c); });
  bs.row(5, "Fixed assets (opening)", [](auto c, auto p, int y) {
    return y == 0 ? std::string("=Assumptions!$B$11") : fmt::format("={}6", p);
  });
  bs.row(6, "Fixed assets (closing)",
         [](auto c, auto, int) { return fmt::format("={0}5+Income!{0}9-CashFlow!{0}6", c); });
  bs.row(7, "Receivables",
         [](auto c, auto, int) { return fmt::format("=Income!{0}4*Assumptions!{0}8/365", c); });
  bs.row(8, "Total assets", [](auto c, auto, int) { return fmt::format("={0}4+{0}6+{0}7", c); });
  bs.row(9, "Debt", [](auto c, auto, int) { return std::string("=Assumptions!$B$13"); });
  bs.row(10, "Equity", [](auto c, auto, int) { return fmt::format("={0}8-{0}9", c); });

  // --- Cash flow ---
  cf.text("A1", "Cash flow statement");
  cf.row(
      3, "Year", [](auto c, auto, int) { return fmt::format("=Assumptions!{}3", c); }, "0");
  cf.row(4, "Net income", [](auto c, auto, int) { return fmt::format("=Income!{}14", c); });
  cf.row(5, "Depreciation added back",
         [](auto c, auto, int) { return fmt::format("=-Income!{}9", c); });
  cf.row(6, "Capital spending",
         [](auto c, auto, int) { return fmt::format("=-Income!{0}4*Assumptions!{0}7", c); });
  cf.row(7, "Change in receivables", [](auto c, auto p, int y) {
    return y == 0 ? fmt::format("=-(Balance!{}7-Assumptions!$B$10*45/365)", c)
                  : fmt::format("=-(Balance!{}7-Balance!{}7)", c, p);
  });
  cf.row(8, "Net cash flow", [](auto c, auto, int) { return fmt::format("=SUM({0}4:{0}7)", c); });
  cf.row(9, "Opening cash", [](auto c, auto p, int y) {
    return y == 0 ? std::string("=Assumptions!$B$12") : fmt::format("={}10", p);
  });
  cf.row(10, "Closing cash", [](auto c, auto, int) { return fmt::format("={0}8+{0}9", c); });

  session.app->calculate();
  session.save(book, out);
}

int run(const std::string& folder) {
  const fs::path dir = folder;
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) throw Failure(fmt::format("{}: no such folder", folder));
  Session session;
  build_market(session, dir / "market.xlsx");
  build_model(session, dir / "model.xlsx");
  fmt::print("wrote {} and {}\n", (dir / "model.xlsx").string(), (dir / "market.xlsx").string());
  return 0;
}

}  // namespace

Command make_example_command(CLI::App& parent) {
  static std::string folder;
  auto* cmd = add_command(parent, "example",
                          "Write the bundled example (model.xlsx and market.xlsx) into a folder");
  cmd->add_option("DIR", folder, "An existing folder")->required();
  return {cmd, [] { return run(folder); }};
}

}  // namespace qzcli
