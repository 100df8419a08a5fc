// Range and Areas over the engine's cells (their Font, Interior and Characters are in
// font.cpp).
#include <algorithm>
#include <array>
#include <cmath>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

#include "engine/calc/as_written.hpp"
#include "engine/host/objects.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "host/cell_scan.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

namespace {

using host::RangePtr;
namespace xl = host::xl;

int64_t cells_of(const Rect& r) {
  return static_cast<int64_t>(r.row2 - r.row1 + 1) * (r.col2 - r.col1 + 1);
}

bool in_sheet(int64_t row, int64_t col) {
  return row >= 0 && row <= kLastRow && col >= 0 && col <= kLastCol;
}

int32_t halign_to_xl(HAlign a) {
  switch (a) {
    case HAlign::General:
      return xl::HAlignGeneral;
    case HAlign::Left:
      return xl::HAlignLeft;
    case HAlign::Center:
      return xl::HAlignCenter;
    case HAlign::Right:
      return xl::HAlignRight;
    case HAlign::Fill:
      return 5;
    case HAlign::Justify:
      return -4130;
    case HAlign::CenterContinuous:
      return 7;
    case HAlign::Distributed:
      return -4117;
  }
  return xl::HAlignGeneral;
}

HAlign halign_from_xl(int32_t v) {
  switch (v) {
    case xl::HAlignGeneral:
      return HAlign::General;
    case xl::HAlignLeft:
      return HAlign::Left;
    case xl::HAlignCenter:
      return HAlign::Center;
    case xl::HAlignRight:
      return HAlign::Right;
    case 5:
      return HAlign::Fill;
    case -4130:
      return HAlign::Justify;
    case 7:
      return HAlign::CenterContinuous;
    case -4117:
      return HAlign::Distributed;
    default:
      fail("unable to set the HorizontalAlignment property: " + std::to_string(v));
  }
}

// ---------------------------------------------------------------------------------------------
// Range

class ERange;

class EAreas final : public host::Areas {
 public:
  EAreas(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
         std::vector<Rect> areas, RangeMode mode)
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        areas_(std::move(areas)),
        mode_(mode) {}
  int32_t count() override { return static_cast<int32_t>(areas_.size()); }
  RangePtr item(int32_t index) override {
    if (index < 1 || index > count()) not_found("Areas(" + std::to_string(index) + ")");
    return app_->range(book_, sheet_, {areas_[static_cast<size_t>(index - 1)]}, mode_);
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  std::vector<Rect> areas_;
  RangeMode mode_;
};

class ERange final : public host::Range, public host::CellScan {
 public:
  ERange(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
         std::vector<Rect> areas, RangeMode mode)
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        areas_(std::move(areas)),
        mode_(mode) {}

  const std::shared_ptr<Sheet>& sheet_ptr() const { return sheet_; }
  const Book& book() const { return *book_; }
  const std::vector<Rect>& rects() const { return areas_; }

  host::ApplicationPtr application() override { return app_->application(); }
  host::WorksheetPtr worksheet() override { return app_->worksheet(book_, sheet_); }

  Variant value() override {
    Sheet& s = sh();
    const Rect& a = areas_[0];
    if (a.row1 == a.row2 && a.col1 == a.col2) return book_->value_variant(s, a.row1, a.col1);
    if (cells_of(a) > 50'000'000) fail("the range is too large to read as an array");
    std::vector<Variant> rows;
    rows.reserve(static_cast<size_t>(a.row2 - a.row1 + 1));
    for (int32_t r = a.row1; r <= a.row2; ++r) {
      std::vector<Variant> row;
      row.reserve(static_cast<size_t>(a.col2 - a.col1 + 1));
      for (int32_t c = a.col1; c <= a.col2; ++c) row.push_back(book_->value_variant(s, r, c));
      rows.emplace_back(one_based(std::move(row)));
    }
    return Variant(one_based(std::move(rows)));
  }

  void set_value(const Variant& v) override {
    Sheet& s = sh();
    if (v.is_array()) {
      const Array& arr = v.array();
      bool nested = !arr.items.empty() && arr.items.front().is_array();
      for (const Rect& a : areas_) {
        check_size(a);
        for (int32_t r = a.row1; r <= a.row2; ++r)
          for (int32_t c = a.col1; c <= a.col2; ++c) {
            size_t ri = static_cast<size_t>(r - a.row1), ci = static_cast<size_t>(c - a.col1);
            const Variant* item = nullptr;
            if (nested) {
              if (ri < arr.items.size() && arr.items[ri].is_array() &&
                  ci < arr.items[ri].array().items.size())
                item = &arr.items[ri].array().items[ci];
            } else if (ci < arr.items.size()) {
              item = &arr.items[ci];
            }
            if (item)
              book_->set_value(s, r, c, *item);
            else
              book_->set_constant(s, r, c, calc::Value::error(cell_error::na));
          }
      }
      book_->commit();
      return;
    }
    if (v.is_object()) throw Error(err::type_mismatch, "a cell cannot hold an object");
    if (v.is_string() && !v.str().empty() && v.str()[0] == u'=') {
      set_formula(v.str());
      return;
    }
    for (const Rect& a : areas_) {
      if (v.is_empty() || v.is_null()) {
        book_->clear_contents(s, a);
        continue;
      }
      check_size(a);
      for (int32_t r = a.row1; r <= a.row2; ++r)
        for (int32_t c = a.col1; c <= a.col2; ++c) book_->set_value(s, r, c, v);
    }
    book_->commit();
  }

  String text() override {
    const Rect& a = areas_[0];
    return book_->text(sh(), a.row1, a.col1);
  }

  String formula() override { return formula_in(calc::Notation::A1); }
  void set_formula(const String& text) override { enter_all(text, calc::Notation::A1); }
  String formula_r1c1() override { return formula_in(calc::Notation::R1C1); }
  void set_formula_r1c1(const String& text) override { enter_all(text, calc::Notation::R1C1); }

  bool has_formula() override {
    Sheet& s = sh();
    int64_t formulas = 0, total = 0;
    for (const Rect& a : areas_) {
      total += cells_of(a);
      s.cells.for_each(a, [&](int32_t, int32_t, const Cell& c) {
        if (c.kind() == CellKind::Formula) ++formulas;
        return true;
      });
    }
    return formulas == total;
  }

  String prefix_character() override {
    const Rect& a = areas_[0];
    Sheet& s = sh();
    return book_->styles.xf(s.style_at(a.row1, a.col1)).quote_prefix ? u"'" : u"";
  }

  Variant number_format() override {
    Sheet& s = sh();
    std::optional<uint32_t> fmt;
    for (const Rect& a : areas_)
      for (uint32_t xf : book_->styles_in(s, a, 64)) {
        uint32_t id = book_->styles.xf(xf).numfmt;
        if (!fmt)
          fmt = id;
        else if (*fmt != id && book_->styles.numfmt_code(*fmt) != book_->styles.numfmt_code(id))
          return Variant::null();
      }
    return Variant(book_->styles.numfmt_code(fmt.value_or(0)));
  }

  void set_number_format(const String& format) override {
    Sheet& s = sh();
    String code = format.empty() ? String(u"General") : format;
    numfmt::validate(code);
    uint32_t id = book_->styles.numfmt_id(code);
    for (const Rect& a : areas_)
      book_->restyle(s, a, [&](const Xf& x) {
        Xf y = x;
        y.numfmt = id;
        return y;
      });
    book_->commit();
  }

  Variant horizontal_alignment() override {
    Sheet& s = sh();
    std::optional<HAlign> seen;
    for (const Rect& a : areas_)
      for (uint32_t xf : book_->styles_in(s, a, 64)) {
        HAlign h = book_->styles.xf(xf).align.horizontal;
        if (!seen)
          seen = h;
        else if (*seen != h)
          return Variant::null();
      }
    return Variant(halign_to_xl(seen.value_or(HAlign::General)));
  }
  void set_horizontal_alignment(const Variant& alignment) override {
    HAlign h = halign_from_xl(to_long(alignment));
    Sheet& s = sh();
    for (const Rect& a : areas_)
      book_->restyle(s, a, [&](const Xf& x) {
        Xf y = x;
        y.align.horizontal = h;
        return y;
      });
    book_->commit();
  }

  host::FontPtr font() override { return make_font(app_, book_, sheet_, areas_); }
  host::InteriorPtr interior() override { return make_interior(app_, book_, sheet_, areas_); }
  host::BordersPtr borders() override { return make_borders(book_, sheet_, areas_); }
  host::CharactersPtr characters(const Variant& start, const Variant& length) override {
    int32_t from = start.is_missing() ? 1 : to_long(start);
    int32_t len = length.is_missing() ? -1 : to_long(length);
    if (from < 1) fail("Characters: the start must be 1 or more");
    if (len < -1 || (!length.is_missing() && len < 0))
      fail("Characters: the length cannot be negative");
    return make_characters(app_, book_, sheet_, CellRef{areas_[0].row1, areas_[0].col1}, from - 1,
                           len);
  }

  RangePtr cells() override { return app_->range(book_, sheet_, areas_, RangeMode::Cells); }

  RangePtr cell(int32_t row, int32_t column) override {
    int64_t r = static_cast<int64_t>(areas_[0].row1) + row - 1;
    int64_t c = static_cast<int64_t>(areas_[0].col1) + column - 1;
    return single(r, c);
  }

  RangePtr item(int64_t index) override {
    const Rect& a = areas_[0];
    if (mode_ == RangeMode::Rows) {
      int64_t r = a.row1 + index - 1;
      if (r < 0 || r > kLastRow) fail("Rows(" + std::to_string(index) + ") lies outside the sheet");
      int32_t ri = static_cast<int32_t>(r);
      return app_->range(book_, sheet_, {Rect{ri, a.col1, ri, a.col2}}, RangeMode::Rows);
    }
    if (mode_ == RangeMode::Columns) {
      int64_t c = a.col1 + index - 1;
      if (c < 0 || c > kLastCol)
        fail("Columns(" + std::to_string(index) + ") lies outside the sheet");
      int32_t ci = static_cast<int32_t>(c);
      return app_->range(book_, sheet_, {Rect{a.row1, ci, a.row2, ci}}, RangeMode::Columns);
    }
    // Row by row over the first area's width, going on below the area past its end.
    int64_t w = a.col2 - a.col1 + 1;
    int64_t k = index - 1;
    int64_t q = k >= 0 ? k / w : -((-k + w - 1) / w);
    int64_t rem = k - q * w;
    return single(a.row1 + q, a.col1 + rem);
  }

  int64_t count() override {
    // Rows and columns count those of the first area, as the application counts them; cells
    // count over every area.
    if (mode_ == RangeMode::Rows) return areas_[0].row2 - areas_[0].row1 + 1;
    if (mode_ == RangeMode::Columns) return areas_[0].col2 - areas_[0].col1 + 1;
    int64_t n = 0;
    for (const Rect& a : areas_) n += cells_of(a);
    return n;
  }

  void for_each_cell(const std::function<bool(const RangePtr&)>& visit) override {
    for (const Rect& a : areas_) {
      if (mode_ == RangeMode::Rows) {
        for (int32_t r = a.row1; r <= a.row2; ++r)
          if (!visit(app_->range(book_, sheet_, {Rect{r, a.col1, r, a.col2}}, RangeMode::Rows)))
            return;
      } else if (mode_ == RangeMode::Columns) {
        for (int32_t c = a.col1; c <= a.col2; ++c)
          if (!visit(app_->range(book_, sheet_, {Rect{a.row1, c, a.row2, c}}, RangeMode::Columns)))
            return;
      } else {
        for (int32_t r = a.row1; r <= a.row2; ++r)
          for (int32_t c = a.col1; c <= a.col2; ++c)
            if (!visit(app_->range(book_, sheet_, {Rect{r, c, r, c}}))) return;
      }
    }
  }

  host::AreasPtr areas() override {
    return std::make_shared<EAreas>(app_, book_, sheet_, areas_, mode_);
  }

  // A colouring run reads a few facts of every filled cell and sets one colour each: here
  // without making a Range, a Font and a Hyperlinks object per cell.
  bool scan(const host::ScanRequest& request,
            const std::function<bool(const host::ScannedCell&)>& visit) override {
    if (mode_ != RangeMode::Cells) return false;
    Sheet& s = sh();
    scanned_.clear();
    // Reading a cell costs about what deciding on it does: with a second core, a helper
    // thread walks and reads the cells in blocks ahead of the visitor.
    if (request.visitor_stays_out && scan_threads() > 1 && read_ahead(request, visit)) return true;
    Facts facts;
    host::ScannedCell cell;
    bool go_on = true;
    const uint64_t shape = s.cells.shape();
    walk([&](int32_t r, int32_t c, const Cell& stored) {
      if (!read(request, {r, c, &stored}, facts, cell)) return true;
      scanned_.push_back({r, c, &stored});
      go_on = visit(cell);
      return go_on;
    });
    // A visitor that reached the workbook may have moved cells; the list then goes unused.
    if (s.cells.shape() != shape) scanned_.clear();
    scanned_shape_ = s.cells.shape();
    return true;
  }
  std::optional<String> formula(int32_t row, int32_t column) override {
    const Cell* c = sh().cells.find(row - 1, column - 1);
    if (c && c->kind() != CellKind::Formula && c->kind() != CellKind::Text) return std::nullopt;
    return formula_of(row, column, c);
  }
  void set_font_colors(const std::vector<host::Paint>& paints,
                       const std::function<void(const host::Paint&)>& hidden) override {
    Sheet& s = live(sheet_);
    // The cells the last scan visited, in the order colours come in, while none has moved
    // since: no colour then looks its cell up.
    size_t at = 0;
    int32_t row_known = -1;
    bool row_hidden = false;
    // Colours come row by row: the rows' entries are passed through once, not searched.
    auto line = s.rows.begin();
    std::vector<int8_t> column_hidden;  // by column: 0 not asked, 1 hidden, 2 shown
    for (const host::Paint& p : paints) {
      const int32_t r = p.row - 1, c = p.column - 1;
      if (r != row_known) {
        if (r < row_known || line == s.rows.end() || line->first > r) line = s.rows.lower_bound(r);
        while (line != s.rows.end() && line->first < r) ++line;
        row_hidden = line != s.rows.end() && line->first == r && line->second.hidden;
        row_known = r;
      }
      if (c < 0 || c > kLastCol) continue;
      if (static_cast<size_t>(c) >= column_hidden.size()) column_hidden.resize(c + 1, 0);
      if (!column_hidden[c]) {
        const auto line = s.cols.find(c);
        column_hidden[c] = line != s.cols.end() && line->second.hidden ? 1 : 2;
      }
      if (row_hidden || column_hidden[c] == 1) {
        hidden(p);
        // Showing and hiding again leaves the lines as they were; asked anew all the same.
        row_known = -1;
        line = s.rows.end();
        column_hidden.clear();
        continue;
      }
      Cell* cell = nullptr;
      if (s.cells.shape() == scanned_shape_) {
        size_t k = at;
        while (k < scanned_.size() && (scanned_[k].row != r || scanned_[k].column != c)) ++k;
        if (k < scanned_.size()) {
          cell = const_cast<Cell*>(scanned_[k].cell);
          at = k + 1;
        }
      }
      if (!cell) cell = s.cells.find(r, c);
      try {
        if (!cell || !plain(cell) || s.kind != SheetKind::Worksheet) {
          set_font_color(p.row, p.column, p.colour);
          continue;
        }
        book_->recolor_cell(s, *cell, Color::rgb(p.colour));
        book_->commit();
      } catch (...) {
        // As one cell's Font.Color: a colour that cannot be set leaves the cell as it was.
      }
    }
  }
  void set_font_color(int32_t row, int32_t column, int32_t colour) {
    Sheet& s = live(sheet_);
    if (!plain(s.cells.find(row - 1, column - 1))) {
      make_font(app_, book_, sheet_, {one(row, column)})->set_color(Variant(colour));
      return;
    }
    book_->recolor_cell(s, row - 1, column - 1, Color::rgb(colour));
    book_->commit();
  }

  // A stored cell a scan visits, 0-based.
  struct Listed {
    int32_t row, column;
    const Cell* cell;
  };
  // What one reader of cells remembers of the formats it met.
  struct Facts {
    Book::DatedFormats dated;
    // Number formats whose numbers cannot show a colon, and those that may.
    std::unordered_map<uint32_t, bool> colon_free;
    std::optional<std::pair<uint32_t, bool>> last_colon_free;
  };
  // The stored cells of the range in row order, as `visit(row, column, cell)` (0-based) wants.
  template <class Visit>
  void walk(Visit&& visit) {
    Sheet& s = sh();
    bool go_on = true;
    auto one_cell = [&](int32_t r, int32_t c, const Cell& cell) {
      if (go_on) go_on = visit(r, c, cell);
      return go_on;
    };
    const std::optional<Rect> extent = s.cells.extent();
    for (const Rect& a : areas_) {
      if (extent && a.row1 == 0 && a.col1 == 0 && a.row2 >= extent->row2 &&
          a.col2 >= extent->col2) {
        // A used range from A1 holds every stored cell: the store's own walk in the same
        // order, without a visitor object per cell or a heap over the columns.
        s.cells.for_each_cell(one_cell);
      } else {
        s.cells.for_each(a, one_cell);
      }
      if (!go_on) break;
    }
  }
  // Reads what `request` asks of one cell into `out`; false when its value is Empty. Only
  // the value's failure is raised; the other answers keep their defaults when they fail.
  bool read(const host::ScanRequest& request, const Listed& at, Facts& facts,
            host::ScannedCell& out) {
    const Sheet& s = sh();
    const Cell& c = *at.cell;
    out.value = book_->cell_variant(s, c, &facts.dated);
    if (out.value.is_empty()) return false;
    const int32_t row = at.row + 1, column = at.column + 1;
    out.row = row;
    out.column = column;
    out.prefix = book_->styles.xf(c.style()).quote_prefix ? u"'" : u"";
    out.formula.clear();
    if (c.kind() == CellKind::Formula || c.kind() == CellKind::Text) {
      try {
        formula_into(row, column, &c, out.formula);
      } catch (...) {
        out.formula.clear();
      }
    }
    out.hyperlinks = 0;
    if (request.hyperlinks && !s.hyperlinks.empty()) {
      try {
        out.hyperlinks =
            make_hyperlinks(app_, book_, sheet_, std::vector<Rect>{one(row, column)})->count();
      } catch (...) {
      }
    }
    out.shows_colon = false;
    const Variant& v = out.value;
    if (request.colons && !v.is_string() && !v.is_bool() && !v.is_error() && !v.is_date()) {
      try {
        out.shows_colon = shows_colon(c, at, facts);
      } catch (...) {
      }
    }
    out.font_color = Variant::null();
    if (request.font_colors) {
      try {
        out.font_color =
            plain(&c)
                ? Variant(book_->rgb(book_->styles.font(book_->styles.xf(c.style()).font).color, 0))
                : make_font(app_, book_, sheet_, {one(row, column)})->color();
      } catch (...) {
      }
    }
    return true;
  }
  String formula_of(int32_t row, int32_t column, const Cell* c) {
    String out;
    formula_into(row, column, c, out);
    return out;
  }
  // The same into `out`, which keeps its room: a scan reads its formulas into the few texts
  // of its blocks, and makes no new one for most of them.
  void formula_into(int32_t row, int32_t column, const Cell* c, String& out) {
    if (c && c->kind() == CellKind::Formula) {
      // A formula read from a file: its text, when parsing and rendering it would give that
      // text back, without doing either. A parse it keeps (made when the workbook opened, for
      // one stored without a value) says the same while the sheets and cells are as read.
      const FormulaCell& f = sh().formula(*c);
      if ((!f.parsed || book_->layout_as_read()) && !f.shared_master && f.file &&
          !f.file->text.empty() && calc::renders_as_written(f.file->text, *book_)) {
        // Formulas are nearly always ASCII, widened here in place.
        const std::string& text = f.file->text;
        out.resize(text.size() + 1);
        out[0] = u'=';
        for (size_t i = 0; i < text.size(); ++i) {
          const auto ch = static_cast<unsigned char>(text[i]);
          if (ch >= 0x80) {
            out = u"=" + f.file->text16();
            return;
          }
          out[i + 1] = static_cast<char16_t>(ch);
        }
        return;
      }
    }
    out = book_->formula_text(sh(), row - 1, column - 1, calc::Notation::A1);
  }
  bool shows_colon(const Cell& c, const Listed& at, Facts& facts) {
    // A number, typed or calculated, shows a colon only from its format: a time, or a colon
    // the code writes out. Other codes show digits, signs, marks and the code's own text, so
    // most numbers of a model need no text made to tell.
    const bool number =
        c.kind() == CellKind::Number ||
        (c.kind() == CellKind::Formula && sh().formula(c).value.kind == calc::Value::Kind::Number);
    if (number) {
      const uint32_t id = book_->styles.xf(c.style()).numfmt;
      // Neighbouring cells mostly share a format.
      if (facts.last_colon_free && facts.last_colon_free->first == id &&
          facts.last_colon_free->second)
        return false;
      auto known = facts.colon_free.find(id);
      if (known == facts.colon_free.end()) {
        bool free = id == 0 && !book_->styles.numfmts.count(0);
        if (!free) {
          const String code = book_->styles.numfmt_code(id);
          free = code.find(u':') == String::npos && !numfmt::is_date_format(code);
        }
        known = facts.colon_free.emplace(id, free).first;
      }
      facts.last_colon_free = *known;
      if (known->second) return false;
    }
    return book_->text(sh(), at.row, at.column).find(u':') != String::npos;
  }
  // A cell without runs of its own shows its format's font: that font answers directly, as
  // the one-cell Font does; a rich text goes through the Font.
  bool plain(const Cell* c) const {
    return !c || c->kind() != CellKind::Text || book_->strings.runs(c->index).empty();
  }
  // Threads reading cells ahead of a scan's visitor: two where two cores are.
  static unsigned scan_threads() {
    return std::min(2u, std::max(1u, std::thread::hardware_concurrency()));
  }
  // The scan with a helper thread; false, having done nothing, when none can be started.
  bool read_ahead(const host::ScanRequest& request,
                  const std::function<bool(const host::ScannedCell&)>& visit);
  static Rect one(int32_t row, int32_t column) {
    return Rect{row - 1, column - 1, row - 1, column - 1};
  }

  RangePtr range(const Variant& cell1, const Variant& cell2) override {
    CellRef base{areas_[0].row1, areas_[0].col1};
    // Range("A1") is how the library narrows any range to its first cell, once per cell it
    // classifies: that answer needs no address parsing.
    if (cell2.is_missing() && cell1.is_string() && cell1.str() == u"A1")
      return app_->range(book_, sheet_, {Rect{base.row, base.col, base.row, base.col}});
    auto one = [&](const Variant& v) -> Resolved {
      if (auto r = v.as<ERange>()) return Resolved{book_, r->sheet_, r->areas_};
      if (!v.is_string()) throw Error(err::type_mismatch, "Range needs an address or a Range");
      return resolve(*app_, book_, sheet_, v.str(), base);
    };
    Resolved a = one(cell1);
    if (cell2.is_missing()) return app_->range(a.book, a.sheet, a.areas);
    Resolved b = one(cell2);
    if (a.sheet != b.sheet) fail("Range: both corners must be on one sheet");
    return app_->range(a.book, a.sheet, {span(a.areas[0], b.areas[0])});
  }

  RangePtr offset(int32_t rows, int32_t columns) override {
    std::vector<Rect> out;
    for (const Rect& a : areas_) {
      int64_t r1 = static_cast<int64_t>(a.row1) + rows, r2 = static_cast<int64_t>(a.row2) + rows;
      int64_t c1 = static_cast<int64_t>(a.col1) + columns,
              c2 = static_cast<int64_t>(a.col2) + columns;
      if (!in_sheet(r1, c1) || !in_sheet(r2, c2)) fail("Offset: the range would leave the sheet");
      out.push_back(Rect{static_cast<int32_t>(r1), static_cast<int32_t>(c1),
                         static_cast<int32_t>(r2), static_cast<int32_t>(c2)});
    }
    return app_->range(book_, sheet_, std::move(out), mode_);
  }

  RangePtr resize(int32_t rows, int32_t columns) override {
    if (rows < 1 || columns < 1) fail("Resize: rows and columns must be 1 or more");
    const Rect& a = areas_[0];
    int64_t r2 = static_cast<int64_t>(a.row1) + rows - 1;
    int64_t c2 = static_cast<int64_t>(a.col1) + columns - 1;
    if (!in_sheet(r2, c2)) fail("Resize: the range would leave the sheet");
    return app_->range(book_, sheet_,
                       {Rect{a.row1, a.col1, static_cast<int32_t>(r2), static_cast<int32_t>(c2)}});
  }

  RangePtr end(int32_t direction) override {
    Sheet& s = sh();
    int32_t row = areas_[0].row1, col = areas_[0].col1;
    auto filled = [&](int32_t r, int32_t c) {
      const Cell* cell = s.cells.find(r, c);
      return cell && cell->has_content();
    };
    switch (direction) {
      case xl::Down:
      case xl::Up: {
        bool down = direction == xl::Down;
        int32_t edge = down ? kLastRow : 0, step = down ? 1 : -1;
        if (row == edge) break;
        if (filled(row, col) && filled(row + step, col)) {
          // Inside a block: to its last filled cell.
          while (row != edge && filled(row + step, col)) row += step;
        } else {
          auto next = s.cells.next_content_in_column(col, row, down);
          row = next ? *next : edge;
        }
        break;
      }
      case xl::ToRight:
      case xl::ToLeft: {
        bool right = direction == xl::ToRight;
        int32_t edge = right ? kLastCol : 0, step = right ? 1 : -1;
        if (col == edge) break;
        if (filled(row, col) && filled(row, col + step)) {
          while (col != edge && filled(row, col + step)) col += step;
        } else {
          int32_t span_end = s.cells.column_span();
          int32_t c = col + step;
          bool found = false;
          for (; right ? c < span_end : c >= 0; c += step)
            if (filled(row, c)) {
              found = true;
              break;
            }
          col = found ? c : edge;
        }
        break;
      }
      default:
        fail("End: unknown direction " + std::to_string(direction));
    }
    return app_->range(book_, sheet_, {Rect{row, col, row, col}});
  }

  int32_t row() override { return areas_[0].row1 + 1; }
  int32_t column() override { return areas_[0].col1 + 1; }
  RangePtr rows() override { return app_->range(book_, sheet_, areas_, RangeMode::Rows); }
  RangePtr columns() override { return app_->range(book_, sheet_, areas_, RangeMode::Columns); }
  RangePtr entire_row() override {
    std::vector<Rect> out;
    out.reserve(areas_.size());
    for (const Rect& a : areas_) out.push_back(Rect{a.row1, 0, a.row2, kLastCol});
    if (out.size() > 1) join_areas(out);
    return app_->range(book_, sheet_, std::move(out), RangeMode::Rows);
  }
  RangePtr entire_column() override {
    std::vector<Rect> out;
    out.reserve(areas_.size());
    for (const Rect& a : areas_) out.push_back(Rect{0, a.col1, kLastRow, a.col2});
    if (out.size() > 1) join_areas(out);
    return app_->range(book_, sheet_, std::move(out), RangeMode::Columns);
  }

  Variant hidden() override {
    bool rows = line_kind("Hidden");
    return line_common(rows, [&](const LineInfo* li) { return Variant(li && li->hidden); });
  }
  void set_hidden(bool hidden) override {
    bool rows = line_kind("Hidden");
    set_lines(rows, [&](LineInfo& li) { li.hidden = hidden; });
  }
  Variant row_height() override {
    Sheet& s = sh();
    return line_common(true, [&](const LineInfo* li) {
      if (li && li->hidden) return Variant(0.0);
      return Variant(li && li->size >= 0 ? li->size : s.default_row_height);
    });
  }
  void set_row_height(double points) override {
    if (!(points >= 0 && points <= 409)) fail("unable to set the RowHeight property: 0 to 409");
    set_lines(true, [&](LineInfo& li) {
      li.size = points;
      li.custom_size = true;
      li.hidden = points == 0;
    });
  }
  Variant column_width() override {
    Sheet& s = sh();
    return line_common(false, [&](const LineInfo* li) {
      if (li && li->hidden) return Variant(0.0);
      return Variant(li && li->size >= 0 ? li->size : s.default_col_width);
    });
  }
  void set_column_width(double characters) override {
    if (!(characters >= 0 && characters <= 255))
      fail("unable to set the ColumnWidth property: 0 to 255");
    set_lines(false, [&](LineInfo& li) {
      li.size = characters;
      li.custom_size = true;
      li.hidden = characters == 0;
    });
  }
  // AutoFit, reached late-bound as the application's own Range.AutoFit: each column of the
  // range as wide as the widest text the range shows in it, measured in each cell's font.
  // Columns with nothing to show keep their width; row heights are not fitted.
  bool has_member(StringView name) const override { return same_member(name, u"AutoFit"); }
  Variant invoke(StringView name, Invoke kind, std::span<Variant> args) override {
    if (kind != Invoke::Method || !same_member(name, u"AutoFit"))
      return host::Range::invoke(name, kind, args);
    Sheet& s = sh();
    const FontRec& normal = book_->styles.font(0);
    for (const Rect& a : areas_) {
      for (int32_t col = a.col1; col <= a.col2; ++col) {
        double widest = 0;
        s.cells.for_each(Rect{a.row1, col, a.row2, col}, [&](int32_t r, int32_t c, const Cell&) {
          String shown = book_->text(s, r, c);
          if (!shown.empty())
            widest = std::max(widest, fitted_width(shown, book_->cell_font(s, r, c), normal));
          return true;
        });
        if (widest == 0) continue;
        LineInfo& li = s.cols[col];
        li.size = widest;
        li.custom_size = true;
        li.hidden = false;
      }
    }
    s.changed.layout = true;
    book_->saved = false;
    return Variant(true);
  }
  Variant outline_level() override {
    bool rows = line_kind("OutlineLevel");
    return line_common(rows, [&](const LineInfo* li) {
      return Variant(static_cast<int32_t>((li ? li->outline_level : 0) + 1));
    });
  }
  void set_outline_level(int32_t level) override {
    if (level < 1 || level > 8) fail("unable to set the OutlineLevel property: 1 to 8");
    bool rows = line_kind("OutlineLevel");
    set_lines(rows, [&](LineInfo& li) { li.outline_level = static_cast<uint8_t>(level - 1); });
  }

  String address(bool row_absolute, bool column_absolute, int32_t reference_style, bool external,
                 const RangePtr& relative_to) override {
    Sheet& s = sh();
    CellRef base{};
    if (auto r = std::dynamic_pointer_cast<ERange>(relative_to))
      base = CellRef{r->areas_[0].row1, r->areas_[0].col1};
    String prefix;
    if (external) {
      String inner = u"[" + book_->name + u"]" + s.name;
      bool quote = sheet_needs_quotes(s.name);
      for (char16_t c : book_->name)
        if (!((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') ||
              c == u'_' || c == u'.' || c >= 0x80))
          quote = true;
      if (quote) {
        String q;
        for (char16_t c : inner) {
          if (c == u'\'') q += u'\'';
          q += c;
        }
        prefix = u"'" + q + u"'!";
      } else {
        prefix = inner + u"!";
      }
    }
    String out;
    for (size_t i = 0; i < areas_.size(); ++i) {
      if (i) out += u",";
      out += prefix;
      out += reference_style == xl::R1C1 ? area_r1c1(areas_[i], row_absolute, column_absolute, base)
                                         : area_a1(areas_[i], row_absolute, column_absolute);
    }
    return out;
  }

  host::NamePtr name() override {
    Sheet& s = sh();
    for (size_t i : book_->sorted_names()) {
      auto r = name_areas(book_, book_->names()[i]);
      if (r && r->sheet.get() == &s && r->areas == areas_) return make_name(app_, book_, i);
    }
    return nullptr;
  }

  host::HyperlinksPtr hyperlinks() override { return make_hyperlinks(app_, book_, sheet_, areas_); }

  void select() override {
    Sheet& s = sh();
    require_active("Select");
    s.selection.areas = areas_;
    s.selection.active = CellRef{areas_[0].row1, areas_[0].col1};
    s.changed.sheet = true;
    app_->selected_object.reset();
  }

  void activate() override {
    Sheet& s = sh();
    require_active("Activate");
    CellRef at{areas_[0].row1, areas_[0].col1};
    bool inside = false;
    for (const Rect& a : s.selection.areas)
      if (a.contains(at)) inside = true;
    if (!inside) s.selection.areas = {Rect{at.row, at.col, at.row, at.col}};
    s.selection.active = at;
    s.changed.sheet = true;
    app_->selected_object.reset();
  }

  void copy(const RangePtr& destination) override {
    if (areas_.size() != 1) fail("Copy: that command cannot be used on multiple selections");
    auto dst = std::dynamic_pointer_cast<ERange>(destination);
    if (!dst) fail("Copy: the clipboard is not available; give a destination");
    Sheet& to = live(dst->sheet_);
    Book& target = *to.book;
    target.copy(sh(), areas_[0], to, dst->areas_[0]);
    target.commit();
  }

  void copy_picture(int32_t, int32_t) override {
    const auto draw = picture_maker();
    if (!draw) throw Error(err::not_supported, "CopyPicture: this host draws no pictures");
    if (areas_.size() != 1) fail("CopyPicture: that command cannot be used on multiple selections");
    draw(sh(), areas_[0]);
  }

  void clear_contents() override {
    Sheet& s = sh();
    for (const Rect& a : areas_) book_->clear_contents(s, a);
    book_->commit();
  }
  void clear() override {
    Sheet& s = sh();
    for (const Rect& a : areas_) book_->clear_all(s, a);
    book_->commit();
  }

  void insert(const Variant& shift) override { structural(shift, true); }
  void delete_(const Variant& shift) override { structural(shift, false); }
  Variant auto_filter(const Variant& field, const Variant& criteria1, const Variant& op,
                      const Variant& criteria2, const Variant&) override {
    Variant result =
        detail::auto_filter(book_, sheet_, areas_.front(), field, criteria1, op, criteria2);
    book_->commit();
    return result;
  }

 private:
  Sheet& sh() { return live(sheet_); }

  RangePtr single(int64_t r, int64_t c) {
    if (!in_sheet(r, c)) fail("the cell lies outside the sheet");
    int32_t ri = static_cast<int32_t>(r), ci = static_cast<int32_t>(c);
    return app_->range(book_, sheet_, {Rect{ri, ci, ri, ci}});
  }

  static void check_size(const Rect& a) {
    if (cells_of(a) > 20'000'000) fail("the range is too large to fill cell by cell");
  }

  void require_active(const char* what) {
    auto active = app_->active_sheet();
    if (app_->active != book_ || active != sheet_)
      fail(std::string(what) + " method of Range class failed: its sheet is not active");
  }

  String formula_in(calc::Notation n) {
    const Rect& a = areas_[0];
    return book_->formula_text(sh(), a.row1, a.col1, n);
  }

  void enter_all(const String& text, calc::Notation n) {
    Sheet& s = sh();
    if (!text.empty() && text[0] == u'=' && text.size() > 1) {
      // Parsed once at the first cell; relative references then follow each cell.
      const Rect& a0 = areas_[0];
      calc::FormulaPtr f =
          calc::parse(StringView(text).substr(1), n, CellRef{a0.row1, a0.col1}, s.id, *book_);
      for (const Rect& a : areas_) {
        check_size(a);
        for (int32_t r = a.row1; r <= a.row2; ++r)
          for (int32_t c = a.col1; c <= a.col2; ++c) book_->set_parsed_formula(s, r, c, f);
      }
    } else {
      for (const Rect& a : areas_) {
        if (text.empty()) {
          book_->clear_contents(s, a);
          continue;
        }
        check_size(a);
        for (int32_t r = a.row1; r <= a.row2; ++r)
          for (int32_t c = a.col1; c <= a.col2; ++c) book_->enter(s, r, c, text, n);
      }
    }
    book_->commit();
  }

  // Whether a line property reads rows (true) or columns (false) of this range.
  bool line_kind(const char* what) {
    if (mode_ == RangeMode::Rows) return true;
    if (mode_ == RangeMode::Columns) return false;
    if (whole_rows(areas_[0])) return true;
    if (whole_columns(areas_[0])) return false;
    fail(std::string("unable to get the ") + what +
         " property: the range is not entire rows or columns");
  }

  template <class Get>
  Variant line_common(bool rows, Get get) {
    Sheet& s = sh();
    auto& lines = rows ? s.rows : s.cols;
    if (areas_.size() == 1 &&
        (rows ? areas_[0].row1 == areas_[0].row2 : areas_[0].col1 == areas_[0].col2)) {
      // One line, as the entire row or column of one cell is.
      auto it = lines.find(rows ? areas_[0].row1 : areas_[0].col1);
      return get(it == lines.end() ? nullptr : &it->second);
    }
    std::optional<Variant> seen;
    for (const Rect& a : areas_) {
      int32_t lo = rows ? a.row1 : a.col1, hi = rows ? a.row2 : a.col2;
      // Lines without properties of their own all read the same: look at one of them.
      int64_t plain = static_cast<int64_t>(hi) - lo + 1;
      for (auto it = lines.lower_bound(lo); it != lines.end() && it->first <= hi; ++it) {
        --plain;
        Variant v = get(&it->second);
        if (!seen)
          seen = v;
        else if (!(*seen == v))
          return Variant::null();
      }
      if (plain > 0) {
        Variant v = get(nullptr);
        if (!seen)
          seen = v;
        else if (!(*seen == v))
          return Variant::null();
      }
    }
    return seen ? *seen : Variant::null();
  }

  void set_lines(bool rows, const std::function<void(LineInfo&)>& change) {
    Sheet& s = sh();
    auto& lines = rows ? s.rows : s.cols;
    for (const Rect& a : areas_) {
      int32_t lo = rows ? a.row1 : a.col1, hi = rows ? a.row2 : a.col2;
      for (int32_t i = lo; i <= hi; ++i) change(lines[i]);
    }
    s.changed.layout = true;
    book_->saved = false;
  }

  void structural(const Variant& shift, bool insert) {
    Sheet& s = sh();
    if (areas_.size() != 1)
      fail("Insert/Delete: that command cannot be used on multiple selections");
    const Rect& a = areas_[0];
    bool rows;
    if (mode_ == RangeMode::Rows || whole_rows(a)) {
      rows = true;
    } else if (mode_ == RangeMode::Columns || whole_columns(a)) {
      rows = false;
    } else {
      int32_t dir = shift.is_missing() ? 0 : to_long(shift);
      bool vertical = dir == xl::ShiftDown || dir == xl::ShiftUp ||
                      (dir == 0 && (a.col2 - a.col1) >= (a.row2 - a.row1));
      book_->shift_cells(s, a, vertical, insert);
      return;
    }
    int32_t at = rows ? a.row1 : a.col1;
    int32_t n = rows ? a.row2 - a.row1 + 1 : a.col2 - a.col1 + 1;
    book_->shift(s, rows, at, insert ? n : -n);
    book_->commit();
  }

  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  std::vector<Rect> areas_;
  RangeMode mode_;
  // The cells the last scan visited (or listed), and the shape of the store when it ended.
  std::vector<Listed> scanned_;
  uint64_t scanned_shape_ = 0;
};

bool ERange::read_ahead(const host::ScanRequest& request,
                        const std::function<bool(const host::ScannedCell&)>& visit) {
  // The helper lists the cells (a quick walk), then reads blocks of them; this thread visits
  // the blocks in order and reads the next one itself whenever it has caught up. Blocks go
  // into a ring of slots, so memory stays a few blocks whatever the range. Nothing changes
  // the workbook meanwhile: the visitor keeps out of it.
  constexpr size_t kBlock = 1024, kSlots = 8;
  struct Slot {
    std::vector<host::ScannedCell> cells;
    std::vector<uint8_t> filled;  // the cell's value is not Empty
    std::exception_ptr failed;    // the value of cell `failed_at` could not be read
    size_t failed_at = 0;
    size_t block = SIZE_MAX;  // the block it holds, once read
  };
  std::array<Slot, kSlots> slots;
  std::mutex m;
  std::condition_variable changed;
  size_t listed = 0;    // cells listed so far
  bool walked = false;  // and the listing is complete
  size_t next = 0;      // the first block nobody has started reading
  size_t visited = 0;   // blocks the visitor is done with
  bool stop = false;    // the visitor wants no more

  const Sheet& s = sh();
  // Room for every cell the walk can meet, so that listing never moves what is listed while
  // the other thread reads it.
  scanned_.clear();
  scanned_.reserve(s.cells.size() * areas_.size());
  const uint64_t shape = s.cells.shape();

  auto blocks = [&] { return (listed + kBlock - 1) / kBlock; };
  // The next block to read, with the end of its cells, when it is listed whole and the ring
  // has room for it; under the lock.
  auto take = [&]() -> std::optional<std::pair<size_t, size_t>> {
    if (stop || next >= visited + kSlots) return std::nullopt;
    const size_t end = (next + 1) * kBlock;
    if (end <= listed) return std::pair{next++, end};
    if (walked && next < blocks()) return std::pair{next++, listed};
    return std::nullopt;
  };
  // Reads a block into its slot; without the lock (no other thread touches the slot).
  auto read_block = [&](size_t b, size_t end, Facts& facts) {
    Slot& slot = slots[b % kSlots];
    slot.failed = nullptr;
    size_t i = 0;
    try {
      const size_t first = b * kBlock, n = end - first;
      slot.cells.resize(n);
      slot.filled.assign(n, 0);
      for (; i < n; ++i)
        slot.filled[i] = read(request, scanned_[first + i], facts, slot.cells[i]) ? 1 : 0;
    } catch (...) {
      // Handed to the visitor's thread, which raises it at the cell's turn.
      slot.failed = std::current_exception();
      slot.failed_at = i;
    }
  };
  auto read_taken = [&](std::unique_lock<std::mutex>& lock, std::pair<size_t, size_t> taken,
                        Facts& facts) {
    lock.unlock();
    read_block(taken.first, taken.second, facts);
    lock.lock();
    slots[taken.first % kSlots].block = taken.first;
    changed.notify_all();
  };

  auto helper_run = [&] {
    size_t since = 0;
    walk([&](int32_t r, int32_t c, const Cell& cell) {
      scanned_.push_back({r, c, &cell});
      if (++since < kBlock) return true;
      since = 0;
      std::lock_guard lock(m);
      listed = scanned_.size();
      changed.notify_all();
      return !stop;
    });
    Facts facts;
    std::unique_lock lock(m);
    listed = scanned_.size();
    walked = true;
    changed.notify_all();
    for (;;) {
      std::optional<std::pair<size_t, size_t>> taken;
      changed.wait(lock, [&] { return stop || next >= blocks() || (taken = take()); });
      if (!taken) return;
      read_taken(lock, *taken, facts);
    }
  };
  std::optional<std::thread> helper;
  try {
    helper.emplace(helper_run);
  } catch (const std::system_error&) {
    return false;  // no second thread: the caller walks on its own
  }
  scanned_shape_ = shape;
  // The helper stops and is joined however the visit ends, an error included.
  struct Join {
    std::thread& helper;
    std::mutex& m;
    std::condition_variable& changed;
    bool& stop;
    ~Join() {
      {
        std::lock_guard lock(m);
        stop = true;
      }
      changed.notify_all();
      helper.join();
    }
  } join{*helper, m, changed, stop};

  Facts facts;
  for (size_t b = 0;; ++b) {
    Slot& slot = slots[b % kSlots];
    {
      std::unique_lock lock(m);
      while (slot.block != b) {
        if (walked && b >= blocks()) return true;
        if (std::optional<std::pair<size_t, size_t>> mine = take())
          read_taken(lock, *mine, facts);
        else
          changed.wait(lock);
      }
    }
    for (size_t i = 0;; ++i) {
      if (slot.failed && i == slot.failed_at) std::rethrow_exception(slot.failed);
      if (i >= slot.cells.size()) break;
      if (slot.filled[i] && !visit(slot.cells[i])) return true;
    }
    std::lock_guard lock(m);
    visited = b + 1;
    changed.notify_all();
  }
}

}  // namespace

host::RangePtr AppState::range(const BookPtr& book, const std::shared_ptr<Sheet>& sheet,
                               std::vector<Rect> areas, RangeMode mode) {
  if (areas.empty()) fail("a range needs at least one cell");
  return std::make_shared<ERange>(shared_from_this(), book, sheet, std::move(areas), mode);
}

std::optional<Variant> first_cell_value(const Object& object) {
  auto* r = dynamic_cast<const ERange*>(&object);
  if (!r) return std::nullopt;
  const Rect& a = r->rects()[0];
  return r->book().value_variant(live(r->sheet_ptr()), a.row1, a.col1);
}

std::optional<calc::Value::Kind> first_cell_kind(const Object& object) {
  auto* r = dynamic_cast<const ERange*>(&object);
  if (!r) return std::nullopt;
  const Rect& a = r->rects()[0];
  const Sheet& s = live(r->sheet_ptr());
  const Cell* c = s.cells.find(a.row1, a.col1);
  if (!c) return calc::Value::Kind::Empty;
  switch (c->kind()) {
    case CellKind::Number:
      return calc::Value::Kind::Number;
    case CellKind::Text:
      return calc::Value::Kind::Text;
    case CellKind::Formula:
      return s.formula(*c).value.kind;
    default:
      return r->book().cell_value(s, *c).kind;
  }
}

}  // namespace qz::engine::detail

namespace qz::engine {

std::optional<RangeModel> range_of(const host::RangePtr& range) {
  auto r = std::dynamic_pointer_cast<detail::ERange>(range);
  if (!r) return std::nullopt;
  return RangeModel{r->sheet_ptr(), r->rects()};
}

}  // namespace qz::engine
