// AutoColorCell: the rules that give one cell its font colour, in their order. Typed-in
// inputs, formulas mixing references with typed numbers, plain formulas, links to other
// sheets and other workbooks and hyperlinks each get a colour of their own, so that a reader
// sees at a glance which numbers are assumptions and which are calculated.
#include "autocolor/rules.hpp"

#include <array>

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz {

namespace autocolor {

namespace {

host::Application& xl() {
  return *require(frame::session().XLApp);
}

bool is_true(const Variant& v) {
  return value_or(false, [&] { return !v.is_null() && to_bool(v); });
}

int32_t quote_aware_find(StringView text, StringView sought) {
  // Most formulas hold neither a bracket nor a "!" at all, inside quotes or out.
  if (text.find(sought) == StringView::npos) return 0;
  return value_or(int32_t{0}, [&] {
    return require(require(frame::session().VBLib)->iString)
        ->instr_outside_quotes(1, text, sought, u'"');
  });
}

}  // namespace

Subject::Subject(host::RangePtr c) : cell(std::move(c)) {
  String prefix;
  step([&] { prefix = require(cell)->prefix_character(); });
  step([&] { formula = require(cell)->formula(); });
  entered = prefix + formula;
}

int32_t Subject::hyperlinks() {
  if (!links) links = value_or(int32_t{0}, [&] { return require(cell)->hyperlinks()->count(); });
  return *links;
}

double Subject::constant(const String& text) {
  if (constant_ && constant_->first == text) return constant_->second;
  double d = 1;
  // Only a number is kept: a text that reads as none is a skipped step each time.
  if (assign(d, [&] { return to_double(Variant(text)); })) constant_.emplace(text, d);
  return d;
}

bool opts_out(Subject& s, Knobs& knobs, Outcome* why) {
  // A cell with a hyperlink is coloured as a hyperlink whatever it holds.
  if (knobs.hyperlinks() && s.hyperlinks() > 0) return false;
  const QZCellType type =
      value_or(CellUnknown, [&] { return require(frame::session().LibRange)->CellType(s.cell); });
  if (type == CellText && !knobs.text()) {
    if (why) *why = Outcome::SkippedText;
    return true;
  }
  if ((type == CellDate || type == CellDateTime || type == CellTime) && !knobs.dates()) {
    if (why) *why = Outcome::SkippedDate;
    return true;
  }
  return false;
}

int32_t decide(Subject& s, Knobs& knobs, bool do_names, NameLinks* names, Outcome* rule) {
  Outcome unused;
  Outcome& by = rule ? *rule : unused;
  by = Outcome::Hyperlink;
  if (knobs.hyperlinks() && s.hyperlinks() >= 1) return knobs.hyperlink();
  // Constants, text with an apostrophe and empty cells alike: what was typed is an input.
  by = Outcome::Input;
  if (s.entered.empty() || s.entered.front() != u'=') return knobs.input();

  const StringView body = StringView(s.entered).substr(1);
  thread_local FmlaPieces pieces;
  // Pieces are read with the ranges kept as written, which leaves the formula as it is.
  step([&] {
    require(frame::session().LibFormula)->ParseCellFormula(s.formula, pieces, false, false);
  });
  bool has_value = false, has_reference = false;
  for (const FmlaPiece& p : pieces) {
    if (p.IsValue) {
      // Multiplying by 1 or adding 0 keeps a formula a plain formula.
      const double d = s.constant(p.ThePiece);
      if (d != 1 && d != 0) has_value = true;
    } else if (p.IsSimpleText) {
      has_value = true;
    } else if (p.IsRange || p.IsObjectKey) {
      has_reference = true;
    }
  }
  by = Outcome::PartialInput;
  if (has_reference && has_value) return knobs.partial_input();
  by = Outcome::Input;
  if (has_value) return knobs.input();  // =100*12 is a typed number written as arithmetic

  // A book name stands in brackets, so [Book.xls]Sheet1!A1 is a workbook link first.
  by = Outcome::WorkbookLink;
  if (quote_aware_find(body, u"]") > 0) return knobs.wkb_link();
  by = Outcome::SheetLink;
  if (quote_aware_find(body, u"!") > 0) return knobs.wks_link();

  if (do_names) {
    host::WorksheetPtr sheet;
    String sheet_name;
    step([&] {
      sheet = require(s.cell)->worksheet();
      sheet_name = sheet->name();
    });
    const bool linked =
        names ? names->links_elsewhere(body, sheet_name)
              : names_link_elsewhere(
                    value_or(host::WorkbookPtr(), [&] { return require(sheet)->parent(); }), body,
                    sheet_name);
    by = Outcome::NamedLink;
    if (linked) return knobs.wks_link();
  }
  by = Outcome::Formula;
  return knobs.formula();
}

void paint(const host::RangePtr& cell, int32_t colour) {
  // A colour in a hidden row or column is set with the row and column shown, and they are
  // hidden again afterwards.
  host::RangePtr row, column;
  bool row_hidden = false, column_hidden = false;
  step([&] {
    row = require(cell)->entire_row();
    if (is_true(row->hidden())) {
      row->set_hidden(false);
      row_hidden = true;
    }
  });
  step([&] {
    column = require(cell)->entire_column();
    if (is_true(column->hidden())) {
      column->set_hidden(false);
      column_hidden = true;
    }
  });
  step([&] { require(cell)->font()->set_color(Variant(colour)); });
  if (row_hidden) step([&] { row->set_hidden(true); });
  if (column_hidden) step([&] { column->set_hidden(true); });
}

EntryCapture::EntryCapture(const host::RangePtr& first, const host::RangePtr& range,
                           const String& entered) {
  String format;
  step([&] { format = to_string(require(first)->number_format()); });
  assign(calculation_, [] { return std::optional<int32_t>(xl().calculation()); });
  step([] { xl().set_calculation(host::xl::CalculationManual); });
  std::array<Variant, 7> runs;
  step([&] {
    require(frame::session().LibRange)
        ->ExtractChrProperties(first, &runs[0], &runs[1], &runs[2], &runs[3], &runs[4], &runs[5],
                               &runs[6]);
  });
  // The application takes the entry back out, the unit snapshots the cells as they were,
  // and the entry goes back in with its format and character runs.
  step([] { xl().undo(); });
  step([&] { require(frame::session().LibUndoRedo)->CaptureGenericUndo(range, kTextEntry); });
  step([&] { require(range)->set_formula(entered); });
  step([&] { require(range)->set_number_format(format); });
  step([&] {
    require(frame::session().LibRange)
        ->InfuseChrProperties(range, runs[0], runs[1], runs[2], runs[3], runs[4], runs[5], runs[6]);
  });
}

void EntryCapture::finish() {
  if (calculation_) step([&] { xl().set_calculation(*calculation_); });
  step([] { require(frame::session().LibUndoRedo)->SetGenericUndo(); });
}

}  // namespace autocolor

using autocolor::Subject;

namespace {

// The product registered as "RivuletXL" may keep a cell's colour; it is asked with the
// colour the cell has. Without that product the lookup fails and colouring goes on.
ObjectPtr veto_callback() {
  return value_or(ObjectPtr(), [] {
    return require(require(frame::session().Products)->find(autocolor::kVetoProduct))->UndoRedoIF();
  });
}

int32_t current_colour(const host::RangePtr& cell) {
  // An automatic colour has no palette entry; the colour passed on is then 0.
  return value_or(int32_t{0}, [&] {
    const host::FontPtr font = require(cell)->font();
    return require(cell->worksheet()->parent())->colors(to_long(font->color_index()));
  });
}

bool vetoed(const ObjectPtr& callback, int32_t colour) {
  return value_or(false, [&] {
    Variant args[1] = {Variant(colour)};
    return to_bool(late::call(callback, u"DoNotAutoColor", args));
  });
}

}  // namespace

void iAutoColor::color_cell(const host::RangePtr& cell, bool do_undo, bool do_names,
                            autocolor::Knobs& knobs, autocolor::NameLinks* names) {
  // Nothing to colour; and without a cell, taking the entry back would lose it.
  if (!cell) return;
  Subject s(cell);
  const bool veto_product =
      frame::session().Products && frame::session().Products->contains(autocolor::kVetoProduct);
  const int32_t colour_before = veto_product ? current_colour(cell) : 0;

  autocolor::Outcome outcome = autocolor::Outcome::SkippedText;
  if (autocolor::opts_out(s, knobs, &outcome)) {
    if (observer_) observer_->decided(cell, outcome, std::nullopt);
    return;
  }

  std::optional<autocolor::EntryCapture> capture;
  if (do_undo) {
    capture.emplace(cell, cell, s.entered);
    step([&] { s.formula = cell->formula(); });
  }

  const bool has_content = !s.formula.empty();
  bool skip = false;
  if (has_content && veto_product) {
    const ObjectPtr callback = veto_callback();
    skip = callback && vetoed(callback, colour_before);
  }
  if (skip) {
    if (observer_) observer_->decided(cell, autocolor::Outcome::Vetoed, std::nullopt);
  } else {
    // Deciding reads the cell only; painting unhides and re-hides around the colour.
    const int32_t colour = autocolor::decide(s, knobs, do_names, names, &outcome);
    if (observer_) observer_->decided(cell, outcome, colour);
    autocolor::paint(cell, colour);
  }
  if (capture) capture->finish();
}

void iAutoColor::AutoColorCell(const host::RangePtr& vCell, bool vDoUndo, bool vDoNames) {
  autocolor::Knobs knobs(*this);
  color_cell(vCell, vDoUndo, vDoNames, knobs, nullptr);
}

}  // namespace qz
