// Formulas from anywhere through the calculation language: parsed in A1 and R1C1 notation,
// written back, and calculated in a cell of a small book of values, another sheet and a name.
#include <cstdlib>

#include "engine/calc/calc.hpp"
#include "engine/host/engine.hpp"
#include "qzxl/convert.hpp"

using namespace qz;
using engine::calc::Notation;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const host::ApplicationPtr app = [] {
    engine::ApplicationOptions options;
    options.clock = [] { return 46000.75; };
    auto a = engine::create_application(options);
    auto wb = a->workbooks()->add();
    wb->worksheets()->add();
    auto ws = wb->worksheets()->item(Variant(u"Sheet1"));
    ws->range(Variant(u"A1:C1"))->set_value(Variant(2.5));
    ws->range(Variant(u"A2"))->set_formula(u"text");
    ws->range(Variant(u"B2"))->set_formula(u"TRUE");
    ws->range(Variant(u"C2"))->set_formula(u"=1/0");
    ws->range(Variant(u"A3"))->set_formula(u"=SUM(A1:C1)");
    host::NameAddArgs rate;
    rate.name = Variant(u"Rate");
    rate.refers_to = Variant(u"=Sheet1!$A$1");
    wb->names()->add(rate);
    return a;
  }();
  static const host::WorksheetPtr ws =
      app->active_workbook()->worksheets()->item(Variant(u"Sheet1"));
  static const engine::BookPtr book = engine::book_of(app->active_workbook());
  static const engine::calc::SheetId home = engine::sheet_of(ws)->id;
  static const host::RangePtr cell = ws->range(Variant(u"E6"));

  const String text = from_utf8(std::string_view(reinterpret_cast<const char*>(data), size));
  const engine::calc::CellRef origin{5, 4};
  for (Notation notation : {Notation::A1, Notation::R1C1}) {
    engine::calc::FormulaPtr formula;
    try {
      formula = engine::calc::parse(text, notation, origin, home, *book);
    } catch (const Error&) {
      continue;
    }
    // What the engine writes must read back as the formula it wrote.
    const String written = engine::calc::render(*formula, notation, origin, home, *book);
    const auto again = engine::calc::parse(written, notation, origin, home, *book);
    if (engine::calc::render(*again, notation, origin, home, *book) != written) std::abort();
  }
  try {
    cell->set_formula(u"=" + text);
    (void)cell->value();
    (void)cell->text();
  } catch (const Error&) {
  }
  cell->clear_contents();
  return 0;
}
