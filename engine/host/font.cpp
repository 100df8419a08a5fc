// Font, Interior and Characters over the engine's cells: a cell's format, or the runs of one
// cell's rich text.
#include <algorithm>
#include <cmath>

#include "engine/host/objects.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

namespace {

namespace xl = host::xl;

// ---------------------------------------------------------------------------------------------
// Font

// What a font view covers: cells of areas, or characters of one cell.
struct FontTarget {
  std::shared_ptr<AppState> app;
  BookPtr book;
  std::shared_ptr<Sheet> sheet;
  std::vector<Rect> areas;
  std::optional<std::pair<int32_t, int32_t>> chars;  // 0-based start, length
};

// Runs of a text as explicit spans [start, end) with the font each shows in.
struct Span {
  uint32_t start, end;
  FontRec font;
  bool own;  // the run had a font of its own
};

std::vector<Span> spans_of(const Book& b, const Sheet& s, int32_t row, int32_t col,
                           const Cell* cell) {
  const FontRec& cf = b.cell_font(s, row, col);
  std::vector<Span> out;
  if (!cell || cell->kind() != CellKind::Text) return out;
  StringView text = b.strings.text(cell->index);
  const auto& runs = b.strings.runs(cell->index);
  uint32_t n = static_cast<uint32_t>(text.size());
  if (runs.empty()) {
    out.push_back({0, n, cf, false});
    return out;
  }
  if (runs.front().start > 0) out.push_back({0, runs.front().start, cf, false});
  for (size_t i = 0; i < runs.size(); ++i) {
    uint32_t end = i + 1 < runs.size() ? runs[i + 1].start : n;
    uint32_t start = std::min(runs[i].start, n);
    end = std::min(end, n);
    if (end > start || n == 0)
      out.push_back({start, end, runs[i].font ? *runs[i].font : cf, runs[i].font.has_value()});
  }
  return out;
}

std::vector<Run> runs_from(std::vector<Span> spans, const FontRec& cell_font) {
  std::vector<Run> runs;
  for (auto& sp : spans) {
    if (sp.end <= sp.start && !runs.empty()) continue;
    std::optional<FontRec> f;
    if (sp.own || !(sp.font == cell_font)) f = sp.font;
    if (!runs.empty() && runs.back().font == f) continue;
    runs.push_back(Run{sp.start, std::move(f)});
  }
  // A text in one run of the cell's own font is plain text.
  if (runs.size() == 1 && !runs[0].font) runs.clear();
  return runs;
}

class EFont final : public host::Font {
 public:
  explicit EFont(FontTarget t) : t_(std::move(t)) {}

  Variant name() override {
    return common([](const FontRec& f) { return Variant(f.name); });
  }
  void set_name(const Variant& v) override {
    String n = to_string(v);
    if (n.empty()) fail("unable to set the Name property of the Font: empty name");
    apply([&](FontRec& f) { f.name = n; });
  }
  Variant font_style() override {
    return common([](const FontRec& f) {
      return Variant(String(f.bold && f.italic ? u"Bold Italic"
                            : f.bold           ? u"Bold"
                            : f.italic         ? u"Italic"
                                               : u"Regular"));
    });
  }
  void set_font_style(const Variant& v) override {
    String s = to_lower(to_string(v));
    bool bold = s.find(u"bold") != String::npos;
    bool italic = s.find(u"italic") != String::npos || s.find(u"oblique") != String::npos;
    if (!bold && !italic && s != u"regular" && s != u"normal")
      fail("unable to set the FontStyle property: " + to_utf8(to_string(v)));
    apply([&](FontRec& f) {
      f.bold = bold;
      f.italic = italic;
    });
  }
  Variant size() override {
    return common([](const FontRec& f) { return Variant(f.size); });
  }
  void set_size(const Variant& v) override {
    double d = to_double(v);
    if (!(d >= 1 && d <= 409)) fail("unable to set the Size property: must be 1 to 409");
    apply([&](FontRec& f) { f.size = d; });
  }
  Variant underline() override {
    return common([](const FontRec& f) {
      switch (f.underline) {
        case Underline::None:
          return Variant(xl::UnderlineStyleNone);
        case Underline::Single:
          return Variant(xl::UnderlineStyleSingle);
        case Underline::Double:
          return Variant(xl::UnderlineStyleDouble);
        case Underline::SingleAccounting:
          return Variant(xl::UnderlineStyleSingleAccounting);
        case Underline::DoubleAccounting:
          return Variant(xl::UnderlineStyleDoubleAccounting);
      }
      return Variant(xl::UnderlineStyleNone);
    });
  }
  void set_underline(const Variant& v) override {
    Underline u;
    if (v.is_bool()) {
      u = v.boolean() ? Underline::Single : Underline::None;
    } else {
      switch (to_long(v)) {
        case xl::UnderlineStyleNone:
        case 0:
          u = Underline::None;
          break;
        case xl::UnderlineStyleSingle:
        case 1:
        case -1:
          u = Underline::Single;
          break;
        case xl::UnderlineStyleDouble:
          u = Underline::Double;
          break;
        case xl::UnderlineStyleSingleAccounting:
          u = Underline::SingleAccounting;
          break;
        case xl::UnderlineStyleDoubleAccounting:
          u = Underline::DoubleAccounting;
          break;
        default:
          fail("unable to set the Underline property: " + std::to_string(to_long(v)));
      }
    }
    apply([&](FontRec& f) { f.underline = u; });
  }
  Variant color() override {
    const Book& b = *t_.book;
    return common([&](const FontRec& f) { return Variant(b.rgb(f.color, 0)); });
  }
  void set_color(const Variant& v) override {
    Color c = Color::rgb(to_long(v));
    apply([&](FontRec& f) { f.color = c; }, &c);
  }
  Variant color_index() override {
    const Book& b = *t_.book;
    return common([&](const FontRec& f) {
      if (f.color.kind == Color::Kind::Auto ||
          (f.color.kind == Color::Kind::Indexed && f.color.index == 64))
        return Variant(xl::ColorIndexAutomatic);
      return Variant(b.nearest_color_index(b.rgb(f.color, 0)));
    });
  }
  void set_color_index(const Variant& v) override {
    int32_t i = to_long(v);
    Color c;
    if (i == xl::ColorIndexAutomatic || i == xl::ColorIndexNone || i == 0) {
      c = Color::automatic();
    } else if (i >= 1 && i <= 56) {
      c.kind = Color::Kind::Indexed;
      c.index = i + 7;
    } else {
      fail("unable to set the ColorIndex property: " + std::to_string(i));
    }
    apply([&](FontRec& f) { f.color = c; });
  }
  Variant bold() override {
    return common([](const FontRec& f) { return Variant(f.bold); });
  }
  void set_bold(const Variant& v) override {
    bool on = to_bool(v);
    apply([&](FontRec& f) { f.bold = on; });
  }
  Variant italic() override {
    return common([](const FontRec& f) { return Variant(f.italic); });
  }
  void set_italic(const Variant& v) override {
    bool on = to_bool(v);
    apply([&](FontRec& f) { f.italic = on; });
  }
  Variant superscript() override {
    return common([](const FontRec& f) { return Variant(f.vert_align == VertAlign::Superscript); });
  }
  void set_superscript(const Variant& v) override {
    bool on = to_bool(v);
    apply([&](FontRec& f) {
      if (on)
        f.vert_align = VertAlign::Superscript;
      else if (f.vert_align == VertAlign::Superscript)
        f.vert_align = VertAlign::Baseline;
    });
  }
  Variant subscript() override {
    return common([](const FontRec& f) { return Variant(f.vert_align == VertAlign::Subscript); });
  }
  void set_subscript(const Variant& v) override {
    bool on = to_bool(v);
    apply([&](FontRec& f) {
      if (on)
        f.vert_align = VertAlign::Subscript;
      else if (f.vert_align == VertAlign::Subscript)
        f.vert_align = VertAlign::Baseline;
    });
  }
  Variant strikethrough() override {
    return common([](const FontRec& f) { return Variant(f.strike); });
  }
  void set_strikethrough(const Variant& v) override {
    bool on = to_bool(v);
    apply([&](FontRec& f) { f.strike = on; });
  }

 private:
  // The fonts the target shows: each distinct cell format, and each run of rich texts. Null
  // when they differ in the property asked.
  template <class Get>
  Variant common(Get get) {
    Book& b = *t_.book;
    Sheet& s = live(t_.sheet);
    std::optional<Variant> seen;
    bool mixed = false;
    auto see = [&](const FontRec& f) {
      Variant v = get(f);
      if (!seen)
        seen = std::move(v);
      else if (!(*seen == v))
        mixed = true;
      return !mixed;
    };
    if (!t_.chars && one_cell()) {
      // One cell (what a colouring run asks of every cell it visits): its format's font and,
      // for a rich text, its runs, without walking the store.
      int32_t row = t_.areas[0].row1, col = t_.areas[0].col1;
      const Cell* cell = s.cells.find(row, col);
      const FontRec& font =
          b.styles.font(b.styles.xf(cell ? cell->style() : s.style_at(row, col)).font);
      if (!cell || cell->kind() != CellKind::Text || b.strings.runs(cell->index).empty())
        return get(font);
      see(font);
      for (auto& sp : spans_of(b, s, row, col, cell))
        if (!see(sp.font)) break;
    } else if (t_.chars) {
      int32_t row = t_.areas[0].row1, col = t_.areas[0].col1;
      const Cell* cell = s.cells.find(row, col);
      auto spans = spans_of(b, s, row, col, cell);
      if (spans.empty()) {
        see(b.cell_font(s, row, col));
      } else {
        uint32_t from = static_cast<uint32_t>(t_.chars->first);
        uint32_t to =
            t_.chars->second < 0 ? UINT32_MAX : from + static_cast<uint32_t>(t_.chars->second);
        bool any = false;
        for (auto& sp : spans)
          if (sp.start < to && sp.end > from) {
            any = true;
            if (!see(sp.font)) break;
          }
        if (!any) see(b.cell_font(s, row, col));
      }
    } else {
      for (const Rect& a : t_.areas) {
        for (uint32_t xf : b.styles_in(s, a, 64))
          if (!see(b.styles.font(b.styles.xf(xf).font))) return Variant::null();
        bool stop = false;
        s.cells.for_each(a, [&](int32_t r, int32_t c, const Cell& cell) {
          if (cell.kind() != CellKind::Text || b.strings.runs(cell.index).empty()) return true;
          for (auto& sp : spans_of(b, s, r, c, &cell))
            if (!see(sp.font)) {
              stop = true;
              return false;
            }
          return true;
        });
        if (stop) break;
      }
    }
    if (mixed) return Variant::null();
    return seen ? *seen : Variant::null();
  }

  // `color`, when the change only sets the colour, lets the workbook's remembered recoloured
  // fonts answer instead of comparing whole font records.
  void apply(const std::function<void(FontRec&)>& change, const Color* color = nullptr) {
    Book& b = *t_.book;
    Sheet& s = live(t_.sheet);
    if (t_.chars) {
      int32_t row = t_.areas[0].row1, col = t_.areas[0].col1;
      Cell* cell = s.cells.find(row, col);
      if (cell && cell->kind() == CellKind::Text) {
        apply_chars(b, s, row, col, *cell, change);
        b.commit();
        return;
      }
      // Characters of a number or formula are the whole cell's.
    }
    // Old font index -> new one; a change meets few distinct fonts.
    std::vector<std::pair<uint32_t, uint32_t>> fonts;
    struct Context {
      Book& b;
      std::vector<std::pair<uint32_t, uint32_t>>& fonts;
      const std::function<void(FontRec&)>& change;
      const Color* color;
    } ctx{b, fonts, change, color};
    for (const Rect& a : t_.areas) {
      const bool one = a.row1 == a.row2 && a.col1 == a.col2;
      // Whether the one cell is a rich text, asked before restyling: a cell that restyling
      // creates is blank.
      bool one_rich = false;
      if (one)
        if (const Cell* cell = s.cells.find(a.row1, a.col1))
          one_rich = cell->kind() == CellKind::Text && !b.strings.runs(cell->index).empty();
      if (one && color)
        b.recolor_cell(s, a.row1, a.col1, *color);
      else
        b.restyle(s, a, [c = &ctx](const Xf& x) {
          Xf y = x;
          if (c->color) {
            y.font = c->b.font_with_color(x.font, *c->color);
            return y;
          }
          auto it = std::find_if(c->fonts.begin(), c->fonts.end(),
                                 [&](const auto& p) { return p.first == x.font; });
          if (it == c->fonts.end()) {
            FontRec f = c->b.styles.font(x.font);
            c->change(f);
            c->fonts.emplace_back(x.font, c->b.styles.font_index(f));
            it = c->fonts.end() - 1;
          }
          y.font = it->second;
          return y;
        });
      // Rich texts take the change in every run.
      std::vector<CellRef> rich;
      auto note_rich = [&](int32_t r, int32_t c, const Cell& cell) {
        if (cell.kind() == CellKind::Text && !b.strings.runs(cell.index).empty())
          rich.push_back({r, c});
        return true;
      };
      if (one) {
        if (one_rich) rich.push_back({a.row1, a.col1});
      } else {
        s.cells.for_each(a, note_rich);
      }
      for (CellRef at : rich) {
        Cell* cell = s.cells.find(at.row, at.col);
        auto spans = spans_of(b, s, at.row, at.col, cell);
        for (auto& sp : spans)
          if (sp.own) change(sp.font);
        String text(b.strings.text(cell->index));
        b.set_rich_text(s, at.row, at.col, text, runs_from(spans, b.cell_font(s, at.row, at.col)));
      }
    }
    b.commit();
  }

  void apply_chars(Book& b, Sheet& s, int32_t row, int32_t col, const Cell& cell,
                   const std::function<void(FontRec&)>& change) {
    String text(b.strings.text(cell.index));
    uint32_t n = static_cast<uint32_t>(text.size());
    uint32_t from = std::min<uint32_t>(static_cast<uint32_t>(t_.chars->first), n);
    uint32_t to = t_.chars->second < 0
                      ? n
                      : std::min<uint32_t>(n, from + static_cast<uint32_t>(t_.chars->second));
    if (from >= to) return;
    auto spans = spans_of(b, s, row, col, &cell);
    std::vector<Span> out;
    for (auto& sp : spans) {
      // Split each span at the edges of the changed characters.
      uint32_t cuts[4] = {sp.start, std::clamp(from, sp.start, sp.end),
                          std::clamp(to, sp.start, sp.end), sp.end};
      for (int k = 0; k < 3; ++k) {
        if (cuts[k + 1] <= cuts[k]) continue;
        Span piece{cuts[k], cuts[k + 1], sp.font, sp.own};
        if (k == 1) {
          change(piece.font);
          piece.own = true;
        }
        out.push_back(std::move(piece));
      }
    }
    b.set_rich_text(s, row, col, text, runs_from(out, b.cell_font(s, row, col)));
  }

  bool one_cell() const {
    return t_.areas.size() == 1 && t_.areas[0].row1 == t_.areas[0].row2 &&
           t_.areas[0].col1 == t_.areas[0].col2;
  }

  FontTarget t_;
};

// ---------------------------------------------------------------------------------------------
// Interior

class EInterior final : public host::Interior {
 public:
  EInterior(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet,
            std::vector<Rect> areas)
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        areas_(std::move(areas)) {}

  Variant color() override {
    return common([&](const FillRec& f) {
      if (f.pattern == u"none" && !f.gradient) return Variant(int32_t{16777215});
      return Variant(book_->rgb(f.fg, 16777215));
    });
  }
  void set_color(const Variant& v) override {
    FillRec f;
    f.pattern = u"solid";
    f.fg = Color::rgb(to_long(v));
    f.bg.kind = Color::Kind::Indexed;
    f.bg.index = 64;
    set_fill(f);
  }
  Variant color_index() override {
    return common([&](const FillRec& f) {
      if (f.pattern == u"none" && !f.gradient) return Variant(xl::ColorIndexNone);
      return Variant(book_->nearest_color_index(book_->rgb(f.fg, 16777215)));
    });
  }
  void set_color_index(const Variant& v) override {
    int32_t i = to_long(v);
    FillRec f;
    if (i == xl::ColorIndexNone || i == xl::ColorIndexAutomatic || i == 0) {
      set_fill(f);
      return;
    }
    if (i < 1 || i > 56) fail("unable to set the ColorIndex property: " + std::to_string(i));
    f.pattern = u"solid";
    f.fg.kind = Color::Kind::Indexed;
    f.fg.index = i + 7;
    f.bg.kind = Color::Kind::Indexed;
    f.bg.index = 64;
    set_fill(f);
  }

 private:
  template <class Get>
  Variant common(Get get) {
    Sheet& s = live(sheet_);
    std::optional<Variant> seen;
    for (const Rect& a : areas_)
      for (uint32_t xf : book_->styles_in(s, a, 64)) {
        Variant v = get(book_->styles.fill(book_->styles.xf(xf).fill));
        if (!seen)
          seen = v;
        else if (!(*seen == v))
          return Variant::null();
      }
    return seen ? *seen : Variant::null();
  }
  void set_fill(const FillRec& f) {
    Sheet& s = live(sheet_);
    uint32_t idx = book_->styles.fill_index(f);
    for (const Rect& a : areas_)
      book_->restyle(s, a, [&](const Xf& x) {
        Xf y = x;
        y.fill = idx;
        return y;
      });
    book_->commit();
  }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  std::vector<Rect> areas_;
};

// ---------------------------------------------------------------------------------------------
// Characters

class ECharacters final : public host::Characters {
 public:
  ECharacters(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet, CellRef at,
              int32_t start, int32_t length)
      : app_(std::move(app)),
        book_(std::move(book)),
        sheet_(std::move(sheet)),
        at_(at),
        start_(start),
        length_(length) {}

  int32_t count() override {
    String t = full_text();
    int32_t n = static_cast<int32_t>(t.size());
    int32_t from = std::min(start_, n);
    return length_ < 0 ? n - from : std::min(length_, n - from);
  }
  String text() override {
    String t = full_text();
    size_t from = std::min<size_t>(static_cast<size_t>(start_), t.size());
    return t.substr(from, length_ < 0 ? String::npos : static_cast<size_t>(length_));
  }
  host::FontPtr font() override {
    return make_font(app_, book_, sheet_, {Rect{at_.row, at_.col, at_.row, at_.col}},
                     std::make_pair(start_, length_));
  }

 private:
  String full_text() {
    Sheet& s = live(sheet_);
    const Cell* c = s.cells.find(at_.row, at_.col);
    if (c && c->kind() == CellKind::Text) return String(book_->strings.text(c->index));
    return book_->text(s, at_.row, at_.col);
  }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  CellRef at_;
  int32_t start_, length_;
};

}  // namespace

host::FontPtr make_font(const std::shared_ptr<AppState>& app, const BookPtr& book,
                        const std::shared_ptr<Sheet>& sheet, std::vector<Rect> areas,
                        std::optional<std::pair<int32_t, int32_t>> chars) {
  return std::make_shared<EFont>(FontTarget{app, book, sheet, std::move(areas), chars});
}

host::InteriorPtr make_interior(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                const std::shared_ptr<Sheet>& sheet, std::vector<Rect> areas) {
  return std::make_shared<EInterior>(app, book, sheet, std::move(areas));
}

host::CharactersPtr make_characters(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                    const std::shared_ptr<Sheet>& sheet, CellRef at, int32_t start,
                                    int32_t length) {
  return std::make_shared<ECharacters>(app, book, sheet, at, start, length);
}

// Text widths. The engine has no font files, so widths come from approximate advances of the
// common families, in thousandths of the font size: close enough to fit a column as a person
// would see it (a line of "W" takes far more room than one of "i"), not to lay out text.
namespace {

enum class Family { Sans, WideSans, Serif, Mono };

Family family_of(const String& name) {
  const String n = to_lower(name);
  for (const char16_t* mono : {u"courier", u"consolas", u"lucida console", u"mono"})
    if (n.find(mono) != String::npos) return Family::Mono;
  for (const char16_t* wide : {u"arial", u"helvetica", u"verdana", u"tahoma", u"segoe"})
    if (n.find(wide) != String::npos) return Family::WideSans;
  for (const char16_t* serif : {u"times", u"cambria", u"georgia", u"garamond"})
    if (n.find(serif) != String::npos) return Family::Serif;
  return Family::Sans;
}

double advance(char16_t c, Family family) {
  if (c >= 0x2E80) return 1000;  // ideographs and full-width forms take a square
  if (family == Family::Mono) return 600;
  auto among = [c](StringView set) { return set.find(c) != StringView::npos; };
  double a;
  if (c == u' ')
    a = 226;
  else if (c >= u'0' && c <= u'9')
    a = 507;
  else if (among(u"ijlI|!.,:;'`"))
    a = 240;
  else if (among(u"frt()[]{}/\\-\"*"))
    a = 340;
  else if (among(u"mw"))
    a = 800;
  else if (among(u"MW@%"))
    a = 880;
  else if (c >= u'a' && c <= u'z')
    a = 480;
  else if (c >= u'A' && c <= u'Z')
    a = 590;
  else
    a = 550;
  return family == Family::WideSans ? a * 1.1 : family == Family::Serif ? a * 0.95 : a;
}

// Points to the screen's pixels, at 96 pixels an inch.
double pixels(StringView text, const FontRec& font) {
  const Family family = family_of(font.name);
  double units = 0;
  for (char16_t c : text) units += advance(c, family);
  return units / 1000 * font.size * (font.bold ? 1.07 : 1.0) * 96 / 72;
}

}  // namespace

double fitted_width(StringView text, const FontRec& font, const FontRec& normal) {
  // A column's unit is the normal font's digit width in whole pixels; the cell keeps a few
  // pixels of margin around its text.
  const double digit = std::max(1.0, std::round(pixels(u"0", normal)));
  const double width = (pixels(text, font) + 5) / digit;
  return std::min(255.0, std::ceil(width * 100) / 100);
}

}  // namespace qz::engine::detail
