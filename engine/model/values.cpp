// What cells hold and show (values, texts, formulas as text), and entering, storing and
// clearing them.
#include <algorithm>
#include <cmath>

#include "engine/model/address.hpp"
#include "engine/model/book.hpp"
#include "engine/model/fail.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

// ---------------------------------------------------------------------------------------------
// Reading cells

calc::Value Book::cell_value(const Sheet& s, const Cell& c) const {
  switch (c.kind()) {
    case CellKind::Blank:
      return calc::Value::empty();
    case CellKind::Number:
      return calc::Value::num(c.num);
    case CellKind::Text:
      return calc::Value::str(String(strings.text(c.index)));
    case CellKind::Boolean:
      return calc::Value::boolean(c.num != 0);
    case CellKind::Error:
      return calc::Value::error(static_cast<int32_t>(c.num));
    case CellKind::Formula:
      return s.formula(c).value;
  }
  return calc::Value::empty();
}

calc::Value Book::value(const Sheet& s, int32_t row, int32_t col) const {
  const Cell* c = s.cells.find(row, col);
  return c ? cell_value(s, *c) : calc::Value::empty();
}

String Book::format_code(const Sheet& s, int32_t row, int32_t col) const {
  return styles.numfmt_code(styles.xf(s.style_at(row, col)).numfmt);
}

namespace {
// Id 0 is General unless a file defined it otherwise: the format nearly every number has,
// told without building its code.
bool general_format(const StyleTable& st, uint32_t numfmt_id) {
  return numfmt_id == 0 && st.numfmts.find(0) == st.numfmts.end();
}

bool shows_dates(const StyleTable& st, uint32_t numfmt_id) {
  return !general_format(st, numfmt_id) && numfmt::is_date_format(st.numfmt_code(numfmt_id));
}
}  // namespace

Variant Book::value_variant(const Sheet& s, int32_t row, int32_t col) const {
  const Cell* c = s.cells.find(row, col);
  return c ? cell_variant(s, *c) : Variant();
}

bool Book::DatedFormats::operator()(const StyleTable& st, uint32_t xf) {
  if (xf >= known_.size()) known_.resize(std::max<size_t>(xf + 1, st.xfs.size()), 0);
  if (!known_[xf]) known_[xf] = shows_dates(st, st.xf(xf).numfmt) ? 1 : 2;
  return known_[xf] == 1;
}

Variant Book::cell_variant(const Sheet& s, const Cell& c, DatedFormats* dated) const {
  auto as_date = [&](double number) {
    return number >= 0 && number < 2958466 &&
           (dated ? (*dated)(styles, c.style()) : shows_dates(styles, styles.xf(c.style()).numfmt));
  };
  // Numbers and texts are read in place rather than through a copied calc::Value.
  switch (c.kind()) {
    case CellKind::Number:
      if (as_date(c.num)) return Variant(Date{numfmt::automation_date(c.num, date1904)});
      return Variant(c.num);
    case CellKind::Text:
      return Variant(String(strings.text(c.index)));
    default:
      break;
  }
  calc::Value v = cell_value(s, c);
  switch (v.kind) {
    case calc::Value::Kind::Empty:
      return Variant();
    case calc::Value::Kind::Number:
      if (as_date(v.number)) return Variant(Date{numfmt::automation_date(v.number, date1904)});
      return Variant(v.number);
    case calc::Value::Kind::Text:
      return Variant(std::move(v.text));
    case calc::Value::Kind::Boolean:
      return Variant(v.number != 0);
    case calc::Value::Kind::Error:
      return Variant(ErrorCode{v.error_code()});
  }
  return Variant();
}

String Book::text(const Sheet& s, int32_t row, int32_t col) const {
  const Cell* c = s.cells.find(row, col);
  if (!c) return String();
  calc::Value v = cell_value(s, *c);
  numfmt::CellValue cv;
  switch (v.kind) {
    case calc::Value::Kind::Empty:
      return String();
    case calc::Value::Kind::Number:
      cv.type = numfmt::CellValue::Type::Number;
      cv.number = v.number;
      break;
    case calc::Value::Kind::Text:
      cv.type = numfmt::CellValue::Type::Text;
      cv.text = v.text;
      break;
    case calc::Value::Kind::Boolean:
      cv.type = numfmt::CellValue::Type::Boolean;
      cv.number = v.number;
      break;
    case calc::Value::Kind::Error:
      return String(calc::error_text(v.error_code()));
  }
  const uint32_t id = styles.xf(c->style()).numfmt;
  // The user sees numbers in the marks and short date of the locale, whatever the file says.
  const Locale& locale = current_locale();
  if (general_format(styles, id)) return numfmt::render_shown(cv, u"General", date1904, locale);
  try {
    return numfmt::render_shown(cv, styles.numfmt_code(id), date1904, locale);
  } catch (const Error&) {
    return numfmt::render_shown(cv, u"General", date1904, locale);
  }
}

bool Book::has_formula(const Sheet& s, int32_t row, int32_t col) const {
  const Cell* c = s.cells.find(row, col);
  return c && c->kind() == CellKind::Formula;
}

const FontRec& Book::cell_font(const Sheet& s, int32_t row, int32_t col) const {
  return styles.font(styles.xf(s.style_at(row, col)).font);
}

String Book::constant_formula(const Sheet& s, const Cell& c, int32_t row, int32_t col) const {
  switch (c.kind()) {
    case CellKind::Blank:
    case CellKind::Formula:
      return String();
    case CellKind::Text:
      return String(strings.text(c.index));
    case CellKind::Boolean:
      return c.num != 0 ? u"TRUE" : u"FALSE";
    case CellKind::Error:
      return String(calc::error_text(static_cast<int32_t>(c.num)));
    case CellKind::Number:
      break;
  }
  // A number reads back as it would be typed to give the same cell: dates and times in the
  // short forms the entry rules accept, percentages with their sign.
  const uint32_t id = styles.xf(c.style()).numfmt;
  double v = c.num;
  numfmt::Kind kind =
      general_format(styles, id) ? numfmt::Kind::General : numfmt::classify(styles.numfmt_code(id));
  auto render = [&](StringView fmt) {
    numfmt::CellValue cv;
    cv.type = numfmt::CellValue::Type::Number;
    cv.number = v;
    return numfmt::render(cv, fmt, date1904);
  };
  if (v >= 0 && v < 2958466) {
    bool whole = v == std::floor(v);
    switch (kind) {
      case numfmt::Kind::Date:
      case numfmt::Kind::DateTime:
      case numfmt::Kind::Time:
      case numfmt::Kind::Elapsed:
        // A serial with no whole days reads back as a time, whatever the format shows.
        if (v < 1 && (!whole || kind != numfmt::Kind::Date)) return render(u"h:mm:ss AM/PM");
        if (whole) return render(u"m/d/yyyy");
        return render(u"m/d/yyyy h:mm:ss AM/PM");
      default:
        break;
    }
  }
  if (kind == numfmt::Kind::Percent) return format_number(v * 100) + u"%";
  return format_number(v);
}

String Book::formula_text(Sheet& s, int32_t row, int32_t col, calc::Notation notation) {
  Cell* c = s.cells.find(row, col);
  if (!c) return String();
  if (c->kind() != CellKind::Formula) return constant_formula(s, *c, row, col);
  FormulaCell& f = s.formula(*c);
  if (calc::FormulaPtr p = parsed_for_reading(s, f))
    return u"=" + calc::render(*with_link_names(p), notation, f.at, s.id, *this);
  if (f.file) return u"=" + f.file->text16();
  return String();
}

// ---------------------------------------------------------------------------------------------
// Writing cells

void Book::note_cell_change(Sheet& s, int32_t row, int32_t col) {
  pending_.emplace_back(s.id, CellRef{row, col});
  touch(s);
}

Cell& Book::writable_cell(Sheet& s, int32_t row, int32_t col) {
  if (row < 0 || row > kLastRow || col < 0 || col > kLastCol)
    fail("the cell lies outside the sheet");
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  Cell* c = s.cells.find(row, col);
  if (!c) c = &s.cells.get_or_create(row, col, s.style_at(row, col));
  return *c;
}

void Book::drop_formula(Sheet& s, Cell& c) {
  if (c.kind() != CellKind::Formula) return;
  FormulaCell& f = s.formula(c);
  // A shared formula's members lean on the master's text: they stand alone from now on.
  if (f.file && f.file->type == FileFormula::Type::Shared) {
    int32_t si = f.file->shared_index;
    for (auto& g : s.formulas)
      if (g.live && &g != &f && g.file && g.file->type == FileFormula::Type::Shared &&
          g.file->shared_index == si) {
        ensure_parsed(s, g);
        g.file.reset();
        g.shared_master.reset();
      }
  }
  if (graph_valid_) graph_.remove(s.id, f.at);
  s.free_formula(c.index);
  c.set_kind(CellKind::Blank);
  c.num = 0;
}

namespace {
// The quote prefix belongs to an apostrophe entry only; any other entry drops it.
uint32_t without_quote(StyleTable& st, uint32_t xf) {
  if (!st.xf(xf).quote_prefix) return xf;
  Xf x = st.xf(xf);
  x.quote_prefix = false;
  x.derived_from = static_cast<int32_t>(xf);
  return st.xf_index(x);
}
uint32_t with_format(StyleTable& st, uint32_t xf, StringView code) {
  Xf x = st.xf(xf);
  uint32_t id = st.numfmt_id(code);
  if (x.numfmt == id) return xf;
  x.numfmt = id;
  x.derived_from = static_cast<int32_t>(xf);
  return st.xf_index(x);
}
}  // namespace

void Book::set_constant(Sheet& s, int32_t row, int32_t col, const calc::Value& v) {
  Cell& c = writable_cell(s, row, col);
  drop_formula(s, c);
  Cell* cell = s.cells.find(row, col);
  switch (v.kind) {
    case calc::Value::Kind::Empty:
      cell->set_kind(CellKind::Blank);
      cell->num = 0;
      break;
    case calc::Value::Kind::Number:
      cell->set_kind(CellKind::Number);
      cell->num = v.number;
      break;
    case calc::Value::Kind::Text:
      cell->set_kind(CellKind::Text);
      cell->index = strings.intern(v.text);
      break;
    case calc::Value::Kind::Boolean:
      cell->set_kind(CellKind::Boolean);
      cell->num = v.number != 0 ? 1 : 0;
      break;
    case calc::Value::Kind::Error:
      cell->set_kind(CellKind::Error);
      cell->num = v.number;
      break;
  }
  cell->set_style(without_quote(styles, cell->style()));
  if (cell->kind() == CellKind::Blank && cell->style() == 0) s.cells.erase(row, col);
  note_cell_change(s, row, col);
}

void Book::set_rich_text(Sheet& s, int32_t row, int32_t col, StringView text,
                         std::vector<Run> runs) {
  Cell& c = writable_cell(s, row, col);
  drop_formula(s, c);
  Cell* cell = s.cells.find(row, col);
  cell->set_kind(CellKind::Text);
  cell->index = strings.add_rich(text, std::move(runs));
  note_cell_change(s, row, col);
}

void Book::enter(Sheet& s, int32_t row, int32_t col, StringView typed, calc::Notation notation) {
  if (typed.empty()) {
    clear_contents(s, Rect{row, col, row, col});
    return;
  }
  if (typed[0] == u'=' && typed.size() > 1) {
    set_formula(s, row, col, typed.substr(1), notation);
    return;
  }
  numfmt::Entry e = numfmt::parse_entry(typed, date1904);
  if (e.type == numfmt::Entry::Type::Text && !e.apostrophe && typed.size() > 1 &&
      (typed[0] == u'+' || typed[0] == u'-')) {
    // A leading sign starts a formula when the rest reads as one ("-A1", "+B2*2").
    calc::FormulaPtr f;
    try {
      f = calc::parse(typed, notation, CellRef{row, col}, s.id, *this);
    } catch (const Error&) {
    }
    if (f) {
      set_parsed_formula(s, row, col, std::move(f));
      return;
    }
  }
  switch (e.type) {
    case numfmt::Entry::Type::Empty:
      clear_contents(s, Rect{row, col, row, col});
      return;
    case numfmt::Entry::Type::Number:
      set_constant(s, row, col, calc::Value::num(e.number));
      break;
    case numfmt::Entry::Type::Boolean:
      set_constant(s, row, col, calc::Value::boolean(e.number != 0));
      break;
    case numfmt::Entry::Type::Error:
      set_constant(s, row, col, calc::Value::error(static_cast<int32_t>(e.number)));
      break;
    case numfmt::Entry::Type::Text:
      set_constant(s, row, col, calc::Value::str(e.text));
      break;
  }
  Cell* cell = s.cells.find(row, col);
  if (!cell) return;
  if (e.apostrophe) {
    Xf x = styles.xf(cell->style());
    x.quote_prefix = true;
    x.derived_from = static_cast<int32_t>(cell->style());
    cell->set_style(styles.xf_index(x));
  }
  if (e.implied_format) {
    // An entry's own format replaces General; a date or time also replaces a format that
    // shows no dates.
    String current = format_code(s, row, col);
    bool general = equals_text(current, u"General");
    bool implied_date = numfmt::is_date_format(*e.implied_format);
    if (general || (implied_date && !numfmt::is_date_format(current)))
      cell->set_style(with_format(styles, cell->style(), *e.implied_format));
  }
}

void Book::set_value(Sheet& s, int32_t row, int32_t col, const Variant& v) {
  switch (v.type()) {
    case Variant::Type::Empty:
    case Variant::Type::Null:
    case Variant::Type::Missing:
      clear_contents(s, Rect{row, col, row, col});
      return;
    case Variant::Type::Boolean:
      set_constant(s, row, col, calc::Value::boolean(v.boolean()));
      return;
    case Variant::Type::Integer:
    case Variant::Type::Long:
    case Variant::Type::Double:
      set_constant(s, row, col, calc::Value::num(to_double(v)));
      return;
    case Variant::Type::Date: {
      double serial = numfmt::serial_from_automation(v.date().serial, date1904);
      set_constant(s, row, col, calc::Value::num(serial));
      Cell* cell = s.cells.find(row, col);
      String current = format_code(s, row, col);
      if (cell && !numfmt::is_date_format(current)) {
        double whole = std::floor(serial);
        StringView code = serial == whole ? u"m/d/yyyy"
                          : serial < 1    ? u"h:mm:ss AM/PM"
                                          : u"m/d/yyyy h:mm";
        cell->set_style(with_format(styles, cell->style(), code));
      }
      return;
    }
    case Variant::Type::String:
      enter(s, row, col, v.str());
      return;
    case Variant::Type::Error:
      set_constant(s, row, col, calc::Value::error(v.error().code));
      return;
    default:
      throw Error(err::type_mismatch,
                  "a cell cannot hold a value of type " + to_utf8(type_name(v)));
  }
}

void Book::set_formula(Sheet& s, int32_t row, int32_t col, StringView text,
                       calc::Notation notation) {
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  // Parse before touching the cell: a formula that does not parse leaves the cell as it was.
  calc::FormulaPtr f = calc::parse(text, notation, CellRef{row, col}, s.id, *this);
  set_parsed_formula(s, row, col, std::move(f));
}

void Book::set_parsed_formula(Sheet& s, int32_t row, int32_t col, calc::FormulaPtr parsed) {
  Cell& c = writable_cell(s, row, col);
  drop_formula(s, c);
  Cell* cell = s.cells.find(row, col);
  uint32_t slot = s.new_formula();
  cell->set_kind(CellKind::Formula);
  cell->index = slot;
  cell->set_style(without_quote(styles, cell->style()));
  FormulaCell& f = s.formulas[slot];
  f.at = CellRef{row, col};
  f.parsed = formula_cache_.intern(std::move(parsed));
  f.is_volatile = calc::is_volatile(*f.parsed);
  f.dirty = true;
  dirty_.emplace_back(s.id, slot);
  if (graph_valid_) register_formula(s, f);
  note_cell_change(s, row, col);
}

void Book::clear_contents(Sheet& s, const Rect& area) {
  std::vector<CellRef> hit;
  s.cells.for_each(area, [&](int32_t r, int32_t c, const Cell& cell) {
    if (cell.has_content()) hit.push_back({r, c});
    return true;
  });
  for (CellRef at : hit) {
    Cell* cell = s.cells.find(at.row, at.col);
    drop_formula(s, *cell);
    cell->set_kind(CellKind::Blank);
    cell->num = 0;
    cell->set_style(without_quote(styles, cell->style()));
    if (cell->style() == 0) s.cells.erase(at.row, at.col);
    note_cell_change(s, at.row, at.col);
  }
}

void Book::clear_all(Sheet& s, const Rect& area) {
  clear_contents(s, area);
  std::vector<CellRef> hit;
  s.cells.for_each(area, [&](int32_t r, int32_t c, const Cell&) {
    hit.push_back({r, c});
    return true;
  });
  for (CellRef at : hit) s.cells.erase(at.row, at.col);
  auto reset_lines = [&](std::map<int32_t, LineInfo>& lines, int32_t a, int32_t b) {
    for (auto it = lines.lower_bound(a); it != lines.end() && it->first <= b; ++it) {
      it->second.has_style = false;
      it->second.style = 0;
    }
  };
  if (whole_rows(area)) reset_lines(s.rows, area.row1, area.row2);
  if (whole_columns(area)) reset_lines(s.cols, area.col1, area.col2);
  s.hyperlinks.erase(
      std::remove_if(s.hyperlinks.begin(), s.hyperlinks.end(),
                     [&](const HyperlinkRec& h) { return intersection(h.ref, area) == h.ref; }),
      s.hyperlinks.end());
  touch(s);
}

}  // namespace qz::engine
