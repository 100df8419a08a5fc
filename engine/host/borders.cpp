// Borders and AutoFilter over the engine's cells. A border is the line that shows along one
// side of the cells it covers: the cell's own side, or else the facing side of the cell next to
// it (the file format keeps a line between two cells on either one).
#include <algorithm>

#include "engine/host/objects.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

namespace {

namespace xl = host::xl;

enum class Side : uint8_t { Left, Right, Top, Bottom, Diagonal };

BorderSide& side_of(BorderRec& b, Side s) {
  switch (s) {
    case Side::Left:
      return b.left;
    case Side::Right:
      return b.right;
    case Side::Top:
      return b.top;
    case Side::Bottom:
      return b.bottom;
    case Side::Diagonal:
      return b.diagonal;
  }
  return b.left;
}

// One stretch of a border: the cells of `area`, their side `side`. `facing` stretches lie
// outside the range (the neighbours' sides that show along its edge): they are read when the
// range's own sides have no line, and only ever cleared.
struct Stretch {
  Rect area;
  Side side;
  bool facing;
};

// The application's line style and weight of a file's line style, and back.
struct Look {
  int32_t line_style;
  int32_t weight;
};

Look look_of(StringView style) {
  static const std::pair<StringView, Look> table[] = {
      {u"hair", {xl::Continuous, xl::Hairline}},
      {u"thin", {xl::Continuous, xl::Thin}},
      {u"medium", {xl::Continuous, xl::Medium}},
      {u"thick", {xl::Continuous, xl::Thick}},
      {u"dashed", {xl::Dash, xl::Thin}},
      {u"mediumDashed", {xl::Dash, xl::Medium}},
      {u"dotted", {xl::Dot, xl::Thin}},
      {u"dashDot", {xl::DashDot, xl::Thin}},
      {u"mediumDashDot", {xl::DashDot, xl::Medium}},
      {u"dashDotDot", {xl::DashDotDot, xl::Thin}},
      {u"mediumDashDotDot", {xl::DashDotDot, xl::Medium}},
      {u"slantDashDot", {xl::SlantDashDot, xl::Medium}},
      {u"double", {xl::Double, xl::Thick}},
  };
  for (const auto& [name, look] : table)
    if (name == style) return look;
  return {xl::Continuous, xl::Thin};
}

String style_of(Look look) {
  const bool heavy = look.weight == xl::Medium || look.weight == xl::Thick;
  switch (look.line_style) {
    case xl::Continuous:
      switch (look.weight) {
        case xl::Hairline:
          return u"hair";
        case xl::Thin:
          return u"thin";
        case xl::Medium:
          return u"medium";
        case xl::Thick:
          return u"thick";
        default:
          fail("unable to set the Weight property: " + std::to_string(look.weight));
      }
    case xl::Dash:
      return heavy ? u"mediumDashed" : u"dashed";
    case xl::Dot:
      return look.weight == xl::Hairline ? u"hair" : u"dotted";
    case xl::DashDot:
      return heavy ? u"mediumDashDot" : u"dashDot";
    case xl::DashDotDot:
      return heavy ? u"mediumDashDotDot" : u"dashDotDot";
    case xl::SlantDashDot:
      return u"slantDashDot";
    case xl::Double:
      return u"double";
    default:
      fail("unable to set the LineStyle property: " + std::to_string(look.line_style));
  }
}

class EBorder final : public host::Border {
 public:
  EBorder(BookPtr book, std::shared_ptr<Sheet> sheet, std::vector<Rect> areas, int32_t index)
      : book_(std::move(book)), sheet_(std::move(sheet)), index_(index) {
    for (const Rect& a : areas) add_stretches(a);
  }

  Variant line_style() override {
    return common([](const BorderSide& s) {
      return Variant(s.style.empty() ? xl::LineStyleNone : look_of(s.style).line_style);
    });
  }
  void set_line_style(const Variant& v) override {
    const int32_t style = to_long(v);
    if (style == xl::LineStyleNone) {
      change([](BorderSide& s) { s = BorderSide{}; });
      return;
    }
    style_of({style, xl::Thin});  // refuses an unknown style before anything changes
    change([&](BorderSide& s) {
      s.style = style_of({style, s.style.empty() ? xl::Thin : look_of(s.style).weight});
    });
  }
  Variant weight() override {
    return common([](const BorderSide& s) {
      return Variant(s.style.empty() ? xl::Thin : look_of(s.style).weight);
    });
  }
  void set_weight(const Variant& v) override {
    const int32_t weight = to_long(v);
    style_of({xl::Continuous, weight});
    change([&](BorderSide& s) {
      s.style = style_of({s.style.empty() ? xl::Continuous : look_of(s.style).line_style, weight});
    });
  }
  Variant color() override {
    return common([&](const BorderSide& s) {
      return Variant(s.style.empty() ? int32_t{0} : book_->rgb(s.color, 0));
    });
  }
  void set_color(const Variant& v) override {
    const Color c = Color::rgb(to_long(v));
    change([&](BorderSide& s) {
      if (s.style.empty()) s.style = u"thin";
      s.color = c;
    });
  }
  Variant color_index() override {
    return common([&](const BorderSide& s) {
      if (s.style.empty()) return Variant(xl::ColorIndexNone);
      if (s.color.kind == Color::Kind::Auto) return Variant(xl::ColorIndexAutomatic);
      return Variant(book_->nearest_color_index(book_->rgb(s.color, 0)));
    });
  }
  void set_color_index(const Variant& v) override {
    const int32_t i = to_long(v);
    Color c;
    if (i != xl::ColorIndexAutomatic) {
      if (i < 1 || i > 56) fail("unable to set the ColorIndex property: " + std::to_string(i));
      c.kind = Color::Kind::Indexed;
      c.index = i + 7;
    }
    change([&](BorderSide& s) {
      if (s.style.empty()) s.style = u"thin";
      s.color = c;
    });
  }

 private:
  void add_stretches(const Rect& a) {
    auto add = [&](int32_t r1, int32_t c1, int32_t r2, int32_t c2, Side side, bool facing) {
      if (r1 < 0 || c1 < 0 || r2 > kLastRow || c2 > kLastCol || r1 > r2 || c1 > c2) return;
      stretches_.push_back({Rect{r1, c1, r2, c2}, side, facing});
    };
    switch (index_) {
      case xl::EdgeLeft:
        add(a.row1, a.col1, a.row2, a.col1, Side::Left, false);
        add(a.row1, a.col1 - 1, a.row2, a.col1 - 1, Side::Right, true);
        break;
      case xl::EdgeRight:
        add(a.row1, a.col2, a.row2, a.col2, Side::Right, false);
        add(a.row1, a.col2 + 1, a.row2, a.col2 + 1, Side::Left, true);
        break;
      case xl::EdgeTop:
        add(a.row1, a.col1, a.row1, a.col2, Side::Top, false);
        add(a.row1 - 1, a.col1, a.row1 - 1, a.col2, Side::Bottom, true);
        break;
      case xl::EdgeBottom:
        add(a.row2, a.col1, a.row2, a.col2, Side::Bottom, false);
        add(a.row2 + 1, a.col1, a.row2 + 1, a.col2, Side::Top, true);
        break;
      case xl::InsideVertical:
        // Both cells along an inside line carry it, as the application writes a grid.
        add(a.row1, a.col1, a.row2, a.col2 - 1, Side::Right, false);
        add(a.row1, a.col1 + 1, a.row2, a.col2, Side::Left, false);
        break;
      case xl::InsideHorizontal:
        add(a.row1, a.col1, a.row2 - 1, a.col2, Side::Bottom, false);
        add(a.row1 + 1, a.col1, a.row2, a.col2, Side::Top, false);
        break;
      case xl::DiagonalDown:
      case xl::DiagonalUp:
        add(a.row1, a.col1, a.row2, a.col2, Side::Diagonal, false);
        break;
      default:
        fail("unable to get the Item property of the Borders class");
    }
  }

  // The side of a format as this border sees it (a diagonal only in its own direction).
  BorderSide seen(uint32_t xf, Side side) const {
    BorderRec b = book_->styles.borders[std::min<size_t>(book_->styles.xf(xf).border,
                                                         book_->styles.borders.size() - 1)];
    if (side == Side::Diagonal && !(index_ == xl::DiagonalUp ? b.diagonal_up : b.diagonal_down))
      return {};
    return side_of(b, side);
  }

  template <class Get>
  Variant common(Get get) {
    Sheet& s = live(sheet_);
    // The range's own sides first; its edges show the neighbours' lines where it has none.
    for (bool facing : {false, true}) {
      std::optional<Variant> seen_value;
      bool any_line = false;
      for (const Stretch& st : stretches_) {
        if (st.facing != facing) continue;
        for (uint32_t xf : book_->styles_in(s, st.area, 64)) {
          BorderSide side = seen(xf, st.side);
          any_line = any_line || !side.style.empty();
          Variant v = get(side);
          if (!seen_value)
            seen_value = v;
          else if (!(*seen_value == v))
            return Variant::null();
        }
      }
      if (any_line || facing) return seen_value ? *seen_value : get(BorderSide{});
    }
    return get(BorderSide{});
  }

  // Applies `edit` to the border's sides of the range; facing sides outside it lose their line
  // so that what shows is what was set.
  template <class Edit>
  void change(Edit edit) {
    Sheet& s = live(sheet_);
    for (const Stretch& st : stretches_) {
      auto restyled = [&](const Xf& x) {
        Xf y = x;
        BorderRec b =
            book_->styles.borders[std::min<size_t>(x.border, book_->styles.borders.size() - 1)];
        BorderSide& side = side_of(b, st.side);
        if (st.facing) {
          side = BorderSide{};
        } else {
          const BorderSide before = side;
          edit(side);
          if (st.side == Side::Diagonal) {
            const bool up = index_ == xl::DiagonalUp;
            (up ? b.diagonal_up : b.diagonal_down) = !side.style.empty();
            // The two diagonals share one line in the file: clearing one keeps the other's.
            if (side.style.empty() && (up ? b.diagonal_down : b.diagonal_up)) side = before;
          }
        }
        y.border = book_->styles.border_index(b);
        return y;
      };
      if (!st.facing || whole_rows(st.area) || whole_columns(st.area)) {
        book_->restyle(s, st.area, restyled);
        continue;
      }
      // Only the neighbours that carry a line change; the others stay as they are (no cells
      // made for them).
      for (int32_t r = st.area.row1; r <= st.area.row2; ++r)
        for (int32_t c = st.area.col1; c <= st.area.col2; ++c)
          if (!seen(s.style_at(r, c), st.side).style.empty())
            book_->restyle(s, Rect{r, c, r, c}, restyled);
    }
    book_->commit();
  }

  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  int32_t index_;
  std::vector<Stretch> stretches_;
};

class EBorders final : public host::Borders {
 public:
  EBorders(BookPtr book, std::shared_ptr<Sheet> sheet, std::vector<Rect> areas)
      : book_(std::move(book)), sheet_(std::move(sheet)), areas_(std::move(areas)) {}
  int32_t count() override { return 6; }
  host::BorderPtr item(int32_t index) override {
    live(sheet_);
    return std::make_shared<EBorder>(book_, sheet_, areas_, index);
  }

 private:
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
  std::vector<Rect> areas_;
};

class EAutoFilter final : public host::AutoFilter {
 public:
  EAutoFilter(std::shared_ptr<AppState> app, BookPtr book, std::shared_ptr<Sheet> sheet)
      : app_(std::move(app)), book_(std::move(book)), sheet_(std::move(sheet)) {}
  host::RangePtr range() override {
    Sheet& s = live(sheet_);
    if (!s.auto_filter) fail("the sheet has no AutoFilter");
    return app_->range(book_, sheet_, {*s.auto_filter});
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::shared_ptr<Sheet> sheet_;
};

bool has_content(const Sheet& s, const Rect& area) {
  bool found = false;
  s.cells.for_each(area, [&](int32_t, int32_t, const Cell& c) {
    found = c.has_content();
    return !found;
  });
  return found;
}

}  // namespace

host::BordersPtr make_borders(const BookPtr& book, const std::shared_ptr<Sheet>& sheet,
                              std::vector<Rect> areas) {
  return std::make_shared<EBorders>(book, sheet, std::move(areas));
}

host::AutoFilterPtr make_auto_filter(const std::shared_ptr<AppState>& app, const BookPtr& book,
                                     const std::shared_ptr<Sheet>& sheet) {
  if (!live(sheet).auto_filter) return nullptr;
  return std::make_shared<EAutoFilter>(app, book, sheet);
}

Variant auto_filter(const BookPtr& book, const std::shared_ptr<Sheet>& sheet, Rect area,
                    const Variant& field, const Variant& criteria1, const Variant& op,
                    const Variant& criteria2) {
  Sheet& s = live(sheet);
  if (!criteria1.is_missing() || !op.is_missing() || !criteria2.is_missing())
    fail("the engine shows filter buttons but hides no rows: criteria are not supported");
  if (field.is_missing() && s.auto_filter) {
    book->set_auto_filter(s, std::nullopt);
    return Variant(true);
  }
  if (area.row1 == area.row2 && area.col1 == area.col2) {
    // One cell stands for the list around it: grow while a neighbouring line holds a value.
    for (bool grew = true; grew;) {
      grew = false;
      auto grow = [&](Rect next, const Rect& line) {
        if (next.row1 < 0 || next.col1 < 0 || next.row2 > kLastRow || next.col2 > kLastCol ||
            !has_content(s, line))
          return;
        area = next;
        grew = true;
      };
      grow({area.row1 - 1, area.col1, area.row2, area.col2},
           {area.row1 - 1, area.col1, area.row1 - 1, area.col2});
      grow({area.row1, area.col1, area.row2 + 1, area.col2},
           {area.row2 + 1, area.col1, area.row2 + 1, area.col2});
      grow({area.row1, area.col1 - 1, area.row2, area.col2},
           {area.row1, area.col1 - 1, area.row2, area.col1 - 1});
      grow({area.row1, area.col1, area.row2, area.col2 + 1},
           {area.row1, area.col2 + 1, area.row2, area.col2 + 1});
    }
  }
  if (!field.is_missing()) {
    const int32_t column = to_long(field);
    if (column < 1 || column > area.col2 - area.col1 + 1)
      fail("AutoFilter method of Range class failed: no field " + std::to_string(column));
    if (s.auto_filter) return Variant(true);
  }
  book->set_auto_filter(s, area);
  return Variant(true);
}

}  // namespace qz::engine::detail
