#include "engine/core/book.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <unordered_map>
#include <unordered_set>

#include "engine/core/address.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

namespace {

[[noreturn]] void fail(const std::string& message) {
  throw Error(err::host_failure, message);
}

// Evaluation recurses through dirty precedents up to this depth; deeper chains are finished
// from an explicit stack, so a long chain of formulas cannot exhaust the call stack.
constexpr int32_t kMaxEvalDepth = 128;

// A new formula, a changed cell or a new format makes a workbook unsaved.
void touch(Book& b, Sheet& s) {
  s.changed.cells = true;
  b.saved = false;
}

double system_now() {
  using namespace std::chrono;
  auto t = system_clock::now();
  std::time_t tt = system_clock::to_time_t(t);
  std::tm local{};
#if defined(_WIN32)
  localtime_s(&local, &tt);
#else
  localtime_r(&tt, &local);
#endif
  double day =
      numfmt::serial_from_date(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, false);
  return day + (local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec) / 86400.0;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Evaluation context

class CalcContext final : public calc::EvalContext {
 public:
  explicit CalcContext(Book& b) : b_(b) {}

  calc::Value cell_value(SheetId sid, CellRef c) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return calc::Value::error(cell_error::ref);
    Cell* cell = s->cells.find(c.row, c.col);
    if (!cell) return calc::Value::empty();
    return value_of(*s, *cell);
  }

  void for_each_value(SheetId sid, const Rect& area,
                      const std::function<void(CellRef, const calc::Value&)>& visit) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return;
    s->cells.for_each(area, [&](int32_t r, int32_t c, const Cell& cell) {
      if (cell.has_content()) visit(CellRef{r, c}, value_of(*s, const_cast<Cell&>(cell)));
      return true;
    });
  }

  CellRef used_extent(SheetId sid) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return {};
    auto e = s->cells.extent();
    return e ? CellRef{e->row2, e->col2} : CellRef{};
  }

  std::optional<calc::NameDefinition> name(StringView text, SheetId scope) override {
    const DefinedName* n = b_.resolve_name(text, scope);
    if (!n || !n->parsed) return std::nullopt;
    return calc::NameDefinition{n->parsed, n->scope};
  }

  const calc::SheetResolver& sheets() override { return b_; }
  bool date1904() override { return b_.date1904; }

  // SUBTOTAL and AGGREGATE leave out the totals nested in their ranges, and hidden rows when
  // asked; only the workbook knows which cells hold formulas and which rows are hidden.
  calc::FormulaPtr formula_at(SheetId sid, CellRef c) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return nullptr;
    Cell* cell = s->cells.find(c.row, c.col);
    if (!cell || cell->kind() != CellKind::Formula) return nullptr;
    FormulaCell& f = s->formula(*cell);
    b_.ensure_parsed(*s, f);
    return f.parsed;
  }
  bool row_hidden(SheetId sid, int32_t row) override {
    Sheet* s = b_.sheet(sid);
    if (!s) return false;
    auto it = s->rows.find(row);
    return it != s->rows.end() && it->second.hidden;
  }
  double now() override {
    // The clock counts in the 1900 system; a 1904 workbook counts 1462 days fewer.
    double n = b_.clock ? b_.clock() : system_now();
    return b_.date1904 ? n - 1462 : n;
  }

 private:
  calc::Value value_of(Sheet& s, const Cell& cell) {
    if (cell.kind() != CellKind::Formula) return b_.cell_value(s, cell);
    uint32_t index = cell.index;
    FormulaCell& f = s.formulas[index];
    if (f.dirty && !f.in_progress) {
      if (b_.eval_depth_ < kMaxEvalDepth)
        b_.evaluate_cell(s, f);
      else if (!b_.deferred_)
        b_.deferred_ = std::make_pair(s.id, index);
    }
    return s.formulas[index].value;
  }
  Book& b_;
};

// ---------------------------------------------------------------------------------------------
// Book: identity and sheets

Book::Book(String book_name)
    : name(std::move(book_name)), palette(default_palette()), theme(default_theme()) {}

Book::~Book() {
  for (auto& s : sheets) s->book = nullptr;
}

Sheet& Book::add_sheet(String sheet_name, SheetKind kind, int32_t position, bool check) {
  if (check) check_sheet_name(sheet_name);
  auto s = std::make_shared<Sheet>(this, next_sheet_id_++, std::move(sheet_name), kind);
  if (position < 0 || position > static_cast<int32_t>(sheets.size()))
    position = static_cast<int32_t>(sheets.size());
  sheets.insert(sheets.begin() + position, s);
  ++names_gen_;  // sheet-level names sort by their sheet's position
  if (active_sheet >= position && sheets.size() > 1) ++active_sheet;
  changed.workbook = true;
  s->changed.all();
  saved = false;
  return *s;
}

Sheet* Book::sheet(SheetId id) const {
  for (const auto& s : sheets)
    if (s->id == id) return s.get();
  return nullptr;
}

Sheet* Book::sheet_by_name(StringView sheet_name) const {
  for (const auto& s : sheets)
    if (equals_text(s->name, sheet_name)) return s.get();
  return nullptr;
}

int32_t Book::sheet_position(SheetId id) const {
  for (size_t i = 0; i < sheets.size(); ++i)
    if (sheets[i]->id == id) return static_cast<int32_t>(i);
  return -1;
}

String Book::next_sheet_name(SheetKind kind) const {
  String base = kind == SheetKind::Chart ? u"Chart" : u"Sheet";
  for (int n = 1;; ++n) {
    String candidate = base + u16(std::to_string(n));
    if (!sheet_by_name(candidate)) return candidate;
  }
}

void Book::check_sheet_name(StringView candidate, SheetId self) const {
  if (candidate.empty()) fail("a sheet name cannot be empty");
  if (candidate.size() > 31) fail("a sheet name cannot be longer than 31 characters");
  for (char16_t c : candidate)
    if (c == u':' || c == u'\\' || c == u'/' || c == u'?' || c == u'*' || c == u'[' || c == u']')
      fail("a sheet name cannot contain : \\ / ? * [ or ]");
  if (candidate.front() == u'\'' || candidate.back() == u'\'')
    fail("a sheet name cannot begin or end with an apostrophe");
  if (equals_text(candidate, u"History")) fail("\"History\" is a reserved sheet name");
  if (Sheet* other = sheet_by_name(candidate); other && other->id != self)
    fail("a sheet named \"" + to_utf8(candidate) + "\" already exists");
}

std::optional<SheetId> Book::sheet_id(StringView sheet_name) const {
  if (Sheet* s = sheet_by_name(sheet_name)) return s->id;
  return std::nullopt;
}

String Book::sheet_name(SheetId id) const {
  Sheet* s = sheet(id);
  return s ? s->name : String(u"#REF");
}

std::vector<SheetId> Book::sheets_between(SheetId first, SheetId last) const {
  // A reference like Sheet1:Sheet3!A1 spans the sheets in their current tab order, whichever
  // of the two ends comes first; a missing end leaves nothing (#REF!).
  int32_t a = sheet_position(first), b = sheet_position(last);
  if (a < 0 || b < 0) return {};
  std::vector<SheetId> out;
  for (int32_t i = std::min(a, b); i <= std::max(a, b); ++i) out.push_back(sheets[i]->id);
  return out;
}

void Book::rename_sheet(Sheet& s, StringView new_name) {
  check_sheet_name(new_name, s.id);
  if (s.name == new_name) return;
  // Formulas that name the sheet must be parsed under the old name before it changes; their
  // file text then no longer holds.
  String old = s.name;
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);
  s.name = String(new_name);
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live && f.file && f.parsed && instr_text(1, f.file->text16(), old) > 0) {
        f.file.reset();
        sh->changed.cells = true;
      }
  for (auto& n : names)
    if (n.parsed) n.formula = calc::render(*n.parsed, calc::Notation::A1, {}, n.scope, *this);
  s.changed.sheet = true;
  changed.workbook = true;
  saved = false;
}

void Book::delete_sheet(SheetId id) {
  int32_t pos = sheet_position(id);
  if (pos < 0) fail("the sheet no longer exists");
  size_t visible = 0;
  for (auto& s : sheets)
    if (s->visibility == host::xl::SheetVisible) ++visible;
  if (sheets.size() == 1 || (visible == 1 && sheets[pos]->visibility == host::xl::SheetVisible))
    fail("a workbook must contain at least one visible sheet");
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);
  auto victim = sheets[pos];
  sheets.erase(sheets.begin() + pos);
  ++names_gen_;
  victim->book = nullptr;
  names.erase(std::remove_if(names.begin(), names.end(),
                             [&](const DefinedName& n) { return n.scope == id; }),
              names.end());
  if (active_sheet >= static_cast<int32_t>(sheets.size()))
    active_sheet = static_cast<int32_t>(sheets.size()) - 1;
  else if (active_sheet > pos)
    --active_sheet;
  // References to the deleted sheet now evaluate as #REF!; recalculate everything.
  changed.workbook = true;
  saved = false;
  graph_valid_ = false;
  for (auto& sh : sheets) sh->changed.cells = true;
  recalc_everything();
}

// ---------------------------------------------------------------------------------------------
// Names

std::optional<size_t> Book::find_name(StringView text, SheetId scope) const {
  for (size_t i = 0; i < names.size(); ++i)
    if (names[i].scope == scope && equals_text(names[i].name, text)) return i;
  return std::nullopt;
}

const DefinedName* Book::resolve_name(StringView text, SheetId from) const {
  if (from != calc::kNoSheet)
    if (auto i = find_name(text, from)) return &names[*i];
  if (auto i = find_name(text, calc::kNoSheet)) return &names[*i];
  return nullptr;
}

std::vector<size_t> Book::sorted_names(std::optional<SheetId> scope) const {
  // Collections walk the names by index, one lookup at a time: keep the order until the
  // names change.
  if (sorted_gen_ != names_gen_ || sorted_.size() != names.size()) {
    sorted_.resize(names.size());
    for (size_t i = 0; i < names.size(); ++i) sorted_[i] = i;
    std::stable_sort(sorted_.begin(), sorted_.end(), [&](size_t a, size_t b) {
      const DefinedName& x = names[a];
      const DefinedName& y = names[b];
      if (x.name != y.name) return x.name < y.name;  // code unit order
      auto rank = [&](const DefinedName& n) {
        return n.scope == calc::kNoSheet ? -1 : sheet_position(n.scope);
      };
      return rank(x) < rank(y);
    });
    sorted_gen_ = names_gen_;
  }
  if (!scope) return sorted_;
  std::vector<size_t> idx;
  for (size_t i : sorted_)
    if (names[i].scope == *scope) idx.push_back(i);
  return idx;
}

void Book::check_name_text(StringView text) {
  if (text.empty()) fail("a name cannot be empty");
  if (text.size() > 255) fail("a name cannot be longer than 255 characters");
  auto letter = [](char16_t c) {
    return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c >= 0x80;
  };
  if (!letter(text[0]) && text[0] != u'_' && text[0] != u'\\')
    fail("the name \"" + to_utf8(text) + "\" must begin with a letter, '_' or '\\'");
  for (char16_t c : text)
    if (!letter(c) && !(c >= u'0' && c <= u'9') && c != u'_' && c != u'.' && c != u'\\' &&
        c != u'?')
      fail("the name \"" + to_utf8(text) + "\" contains a character names cannot have");
  // Texts that read as references would be taken for them.
  if (sheet_needs_quotes(text) && text != u"_" && text[0] != u'\\' && text[0] != u'_' &&
      text.find(u'.') == StringView::npos && text.find(u'?') == StringView::npos)
    fail("the name \"" + to_utf8(text) + "\" looks like a cell reference");
}

size_t Book::define_name(StringView text, SheetId scope, StringView formula, bool hidden) {
  check_name_text(text);
  String body(formula);
  if (!body.empty() && body[0] == u'=') body.erase(0, 1);
  calc::FormulaPtr parsed = calc::parse(body, calc::Notation::A1, {}, scope, *this);
  size_t index;
  if (auto existing = find_name(text, scope)) {
    index = *existing;
  } else {
    names.push_back(DefinedName{});
    index = names.size() - 1;
    names[index].name = String(text);
    names[index].scope = scope;
  }
  DefinedName& n = names[index];
  n.formula = calc::render(*parsed, calc::Notation::A1, {}, scope, *this);
  n.parsed = std::move(parsed);
  n.hidden = hidden;
  changed.workbook = true;
  saved = false;
  // Formulas may use the name: their dependencies and values change with it.
  name_changed(text);
  return index;
}

void Book::delete_name(size_t index) {
  if (index >= names.size()) fail("the name no longer exists");
  String text = names[index].name;
  names.erase(names.begin() + static_cast<long>(index));
  name_changed(text);
}

String Book::qualified_name(const DefinedName& n) const {
  if (n.scope == calc::kNoSheet) return n.name;
  Sheet* s = sheet(n.scope);
  return (s ? sheet_prefix(s->name) : String(u"#REF!")) + n.name;
}

// ---------------------------------------------------------------------------------------------
// Colours

namespace {

void rgb_to_hls(double r, double g, double b, double& h, double& l, double& s) {
  double mx = std::max({r, g, b}), mn = std::min({r, g, b});
  l = (mx + mn) / 2;
  if (mx == mn) {
    h = s = 0;
    return;
  }
  double d = mx - mn;
  s = l > 0.5 ? d / (2 - mx - mn) : d / (mx + mn);
  if (mx == r)
    h = (g - b) / d + (g < b ? 6 : 0);
  else if (mx == g)
    h = (b - r) / d + 2;
  else
    h = (r - g) / d + 4;
  h /= 6;
}

double hue_to_rgb(double p, double q, double t) {
  if (t < 0) t += 1;
  if (t > 1) t -= 1;
  if (t < 1.0 / 6) return p + (q - p) * 6 * t;
  if (t < 0.5) return q;
  if (t < 2.0 / 3) return p + (q - p) * (2.0 / 3 - t) * 6;
  return p;
}

uint32_t apply_tint(uint32_t rrggbb, double tint) {
  if (tint == 0) return rrggbb;
  double r = ((rrggbb >> 16) & 0xFF) / 255.0, g = ((rrggbb >> 8) & 0xFF) / 255.0,
         b = (rrggbb & 0xFF) / 255.0, h, l, s;
  rgb_to_hls(r, g, b, h, l, s);
  l = tint < 0 ? l * (1 + tint) : l * (1 - tint) + tint;
  if (s == 0) {
    r = g = b = l;
  } else {
    double q = l < 0.5 ? l * (1 + s) : l + s - l * s, p = 2 * l - q;
    r = hue_to_rgb(p, q, h + 1.0 / 3);
    g = hue_to_rgb(p, q, h);
    b = hue_to_rgb(p, q, h - 1.0 / 3);
  }
  auto byte = [](double v) {
    return static_cast<uint32_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255));
  };
  return (byte(r) << 16) | (byte(g) << 8) | byte(b);
}

int32_t to_long_color(uint32_t rrggbb) {
  return static_cast<int32_t>(((rrggbb >> 16) & 0xFF) | (rrggbb & 0xFF00) |
                              ((rrggbb & 0xFF) << 16));
}
uint32_t from_long_color(int32_t c) {
  uint32_t v = static_cast<uint32_t>(c);
  return ((v & 0xFF) << 16) | (v & 0xFF00) | ((v >> 16) & 0xFF);
}

}  // namespace

int32_t Book::rgb(const Color& c, int32_t automatic) const {
  uint32_t base;
  switch (c.kind) {
    case Color::Kind::Auto:
      return automatic;
    case Color::Kind::Rgb:
      base = c.argb & 0xFFFFFF;
      break;
    case Color::Kind::Indexed: {
      static const uint32_t fixed[8] = {0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00,
                                        0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF};
      if (c.index >= 0 && c.index < 8)
        base = fixed[c.index];
      else if (c.index >= 8 && c.index < 64)
        base = from_long_color(palette[c.index - 8]);
      else if (c.index == 65)
        base = 0xFFFFFF;
      else
        return automatic;
      break;
    }
    case Color::Kind::Theme: {
      // Files number the first four theme colours light 1, dark 1, light 2, dark 2, while a
      // theme lists them dark first.
      static const int map[4] = {1, 0, 3, 2};
      int i = c.index < 4 && c.index >= 0 ? map[c.index] : c.index;
      if (i < 0 || i >= 12) return automatic;
      base = theme[static_cast<size_t>(i)];
      break;
    }
    default:
      return automatic;
  }
  return to_long_color(apply_tint(base, c.tint));
}

int32_t Book::nearest_color_index(int32_t color) const {
  uint32_t want = from_long_color(color);
  int best = 0;
  long best_d = -1;
  for (int i = 0; i < 56; ++i) {
    uint32_t p = from_long_color(palette[static_cast<size_t>(i)]);
    long dr = static_cast<long>((p >> 16) & 0xFF) - static_cast<long>((want >> 16) & 0xFF);
    long dg = static_cast<long>((p >> 8) & 0xFF) - static_cast<long>((want >> 8) & 0xFF);
    long db = static_cast<long>(p & 0xFF) - static_cast<long>(want & 0xFF);
    long d = dr * dr + dg * dg + db * db;
    if (best_d < 0 || d < best_d) {
      best_d = d;
      best = i;
    }
  }
  return best + 1;
}

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
  if (!c) return Variant();
  // Numbers and texts are read in place rather than through a copied calc::Value.
  switch (c->kind()) {
    case CellKind::Number:
      if (c->num >= 0 && c->num < 2958466 && shows_dates(styles, styles.xf(c->style()).numfmt))
        return Variant(Date{numfmt::automation_date(c->num, date1904)});
      return Variant(c->num);
    case CellKind::Text:
      return Variant(String(strings.text(c->index)));
    default:
      break;
  }
  calc::Value v = cell_value(s, *c);
  switch (v.kind) {
    case calc::Value::Kind::Empty:
      return Variant();
    case calc::Value::Kind::Number:
      if (v.number >= 0 && v.number < 2958466 && shows_dates(styles, styles.xf(c->style()).numfmt))
        return Variant(Date{numfmt::automation_date(v.number, date1904)});
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
    return u"=" + calc::render(*p, notation, f.at, s.id, *this);
  if (f.file) return u"=" + f.file->text16();
  return String();
}

// ---------------------------------------------------------------------------------------------
// Writing cells

void Book::note_cell_change(Sheet& s, int32_t row, int32_t col) {
  pending_.emplace_back(s.id, CellRef{row, col});
  touch(*this, s);
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
  f.parsed = std::move(parsed);
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
  touch(*this, s);
}

// ---------------------------------------------------------------------------------------------
// Styles over areas

uint32_t Book::derived_xf(uint32_t old, const Xf& x) {
  uint32_t idx = styles.xf_index(x);
  // A format made from another remembers where it came from.
  if (idx == styles.xfs.size() - 1 && idx != old && styles.xfs[idx].derived_from < 0 &&
      !(styles.xfs[idx] == styles.xf(old)))
    styles.xfs[idx].derived_from = static_cast<int32_t>(old);
  return idx;
}

void Book::restyle_one(Sheet& s, int32_t row, int32_t col,
                       const std::function<uint32_t(uint32_t)>& next) {
  if (Cell* c = s.cells.find(row, col))
    c->set_style(next(c->style()));
  else
    s.cells.get_or_create(row, col, next(s.style_at(row, col)));
  touch(*this, s);
}

void Book::restyle(Sheet& s, const Rect& area, const std::function<Xf(const Xf&)>& change) {
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  auto restyled = [&](uint32_t old) { return derived_xf(old, change(styles.xf(old))); };
  if (area.row1 == area.row2 && area.col1 == area.col2 && !whole_rows(area) &&
      !whole_columns(area)) {
    // One cell, as formatting the cells of a run one at a time does: no memo, no walk.
    restyle_one(s, area.row1, area.col1, restyled);
    return;
  }
  std::unordered_map<uint32_t, uint32_t> memo;
  auto next = [&](uint32_t old) {
    auto it = memo.find(old);
    if (it != memo.end()) return it->second;
    uint32_t idx = restyled(old);
    memo.emplace(old, idx);
    return idx;
  };
  bool cols_whole = whole_columns(area), rows_whole = whole_rows(area);
  // Cells the line styles would otherwise decide must be made real first, where the other
  // direction's lines carry a style of their own.
  auto materialise = [&](int32_t r, int32_t c) {
    if (!s.cells.find(r, c)) s.cells.get_or_create(r, c, s.style_at(r, c));
  };
  if (cols_whole || rows_whole) {
    if (cols_whole && !rows_whole) {
      for (auto& [r, info] : s.rows)
        if (info.has_style)
          for (int32_t c = area.col1; c <= area.col2; ++c) materialise(r, c);
      for (int32_t c = area.col1; c <= area.col2; ++c) {
        LineInfo& li = s.cols[c];
        li.style = next(li.has_style ? li.style : 0);
        li.has_style = true;
      }
    } else if (rows_whole && !cols_whole) {
      for (auto& [c, info] : s.cols)
        if (info.has_style)
          for (int32_t r = area.row1; r <= area.row2; ++r) materialise(r, c);
      for (int32_t r = area.row1; r <= area.row2; ++r) {
        LineInfo& li = s.rows[r];
        li.style = next(li.has_style ? li.style : 0);
        li.has_style = true;
      }
    } else {
      // The whole sheet: every column carries the new format, rows with their own lose it.
      for (int32_t c = 0; c <= kLastCol; ++c) {
        LineInfo& li = s.cols[c];
        li.style = next(li.has_style ? li.style : 0);
        li.has_style = true;
      }
      for (auto& [r, info] : s.rows)
        if (info.has_style) info.style = next(info.style);
    }
    s.cells.for_each_mut(area, [&](int32_t, int32_t, Cell& c) { c.set_style(next(c.style())); });
    s.changed.layout = true;
    touch(*this, s);
    return;
  }
  int64_t cells = static_cast<int64_t>(area.row2 - area.row1 + 1) * (area.col2 - area.col1 + 1);
  if (cells > 20'000'000) fail("the range is too large to format cell by cell");
  s.cells.for_each_mut(area, [&](int32_t, int32_t, Cell& c) { c.set_style(next(c.style())); });
  if (static_cast<int64_t>(s.cells.count_in(area)) < cells) {
    for (int32_t c = area.col1; c <= area.col2; ++c)
      for (int32_t r = area.row1; r <= area.row2; ++r)
        if (!s.cells.find(r, c)) {
          uint32_t st = next(s.style_at(r, c));
          s.cells.get_or_create(r, c, st);
        }
  }
  touch(*this, s);
}

std::optional<uint32_t> Book::RecolorMemo::find(uint32_t from, const Color& color,
                                                size_t table_size) {
  // A loader that clears the tables starts them over.
  if (table_size < size_) seen_.clear();
  for (const Entry& e : seen_)
    if (e.from == from && e.color == color) return e.result;
  return std::nullopt;
}

void Book::RecolorMemo::remember(uint32_t from, const Color& color, uint32_t result,
                                 size_t table_size) {
  // Few styles meet few colours; past that the search would cost more than it saves.
  if (seen_.size() >= 64) return;
  seen_.push_back({from, color, result});
  size_ = table_size;
}

void Book::recolor_cell(Sheet& s, int32_t row, int32_t col, const Color& color) {
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  restyle_one(s, row, col, [&](uint32_t old) {
    if (auto hit = recolored_xfs_.find(old, color, styles.xfs.size())) return *hit;
    // Made as restyle makes it, provenance included.
    Xf x = styles.xf(old);
    x.font = font_with_color(x.font, color);
    uint32_t idx = derived_xf(old, x);
    recolored_xfs_.remember(old, color, idx, styles.xfs.size());
    return idx;
  });
}

uint32_t Book::font_with_color(uint32_t font, const Color& color) {
  if (auto hit = recolored_fonts_.find(font, color, styles.fonts.size())) return *hit;
  FontRec f = styles.font(font);
  f.color = color;
  const uint32_t result = styles.font_index(f);
  recolored_fonts_.remember(font, color, result, styles.fonts.size());
  return result;
}

std::vector<uint32_t> Book::styles_in(const Sheet& s, const Rect& area, size_t cap) const {
  std::vector<uint32_t> out;
  auto add = [&](uint32_t x) {
    if (std::find(out.begin(), out.end(), x) == out.end()) out.push_back(x);
    return out.size() < cap;
  };
  s.cells.for_each(area, [&](int32_t, int32_t, const Cell& c) { return add(c.style()); });
  if (out.size() >= cap) return out;
  int64_t total = static_cast<int64_t>(area.row2 - area.row1 + 1) * (area.col2 - area.col1 + 1);
  if (static_cast<int64_t>(s.cells.count_in(area)) == total) return out;
  if (total <= 4096) {
    for (int32_t r = area.row1; r <= area.row2; ++r)
      for (int32_t c = area.col1; c <= area.col2; ++c)
        if (!s.cells.find(r, c) && !add(s.style_at(r, c))) return out;
    return out;
  }
  // Large areas: the styles of the lines crossing them, and the default where lines have none.
  size_t styled_rows = 0, styled_cols = 0;
  for (auto it = s.rows.lower_bound(area.row1); it != s.rows.end() && it->first <= area.row2; ++it)
    if (it->second.has_style) {
      ++styled_rows;
      if (!add(it->second.style)) return out;
    }
  for (auto it = s.cols.lower_bound(area.col1); it != s.cols.end() && it->first <= area.col2; ++it)
    if (it->second.has_style) {
      ++styled_cols;
      if (!add(it->second.style)) return out;
    }
  if (styled_rows < static_cast<size_t>(area.row2 - area.row1 + 1) &&
      styled_cols < static_cast<size_t>(area.col2 - area.col1 + 1))
    add(0);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Calculation

const calc::Formula* Book::ensure_parsed(Sheet& s, FormulaCell& f) {
  if (f.parsed) return f.parsed.get();
  if (f.shared_master) {
    Cell* m = s.cells.find(f.shared_master->row, f.shared_master->col);
    if (m && m->kind() == CellKind::Formula) {
      FormulaCell& master = s.formula(*m);
      if (&master != &f && ensure_parsed(s, master)) f.parsed = master.parsed;
    }
  } else if (f.file && !f.file->text.empty()) {
    try {
      f.parsed = calc::parse(f.file->text16(), calc::Notation::A1, f.at, s.id, *this);
    } catch (const Error&) {
      // Left unparsed: the loaded value stands and the text is written back as read.
    }
  }
  if (f.parsed) f.is_volatile = calc::is_volatile(*f.parsed);
  return f.parsed.get();
}

calc::FormulaPtr Book::parsed_for_reading(Sheet& s, const FormulaCell& f) {
  // Showing a formula needs its parse only for as long as the text is rendered. Keeping it
  // would pin a parsed tree on every formula a reader merely looks at (colouring a workbook
  // reads them all) until the workbook closes; calculation and edits parse, and keep, what
  // they actually use.
  if (f.parsed) return f.parsed;
  if (f.shared_master) {
    const Cell* m = s.cells.find(f.shared_master->row, f.shared_master->col);
    if (m && m->kind() == CellKind::Formula) {
      const FormulaCell& master = s.formula(*m);
      if (&master != &f) return parsed_for_reading(s, master);
    }
  } else if (f.file && !f.file->text.empty()) {
    try {
      return calc::parse(f.file->text16(), calc::Notation::A1, f.at, s.id, *this);
    } catch (const Error&) {
      // Unparsable text is shown as read.
    }
  }
  return nullptr;
}

std::vector<std::pair<SheetId, Rect>> Book::reads_of(Sheet& s, FormulaCell& f,
                                                     std::vector<String>* names_used) {
  std::vector<std::pair<SheetId, Rect>> reads;
  if (!f.parsed) return reads;
  // With the workbook as resolver, a 3-D reference lists the sheets between its ends too.
  calc::References refs = calc::references(*f.parsed, f.at, s.id, this);
  reads = std::move(refs.ranges);
  // Names stand for their own references, followed a few levels deep.
  std::vector<String> todo = std::move(refs.names);
  std::unordered_set<String> seen;
  for (size_t i = 0; i < todo.size() && i < 64; ++i) {
    String key = to_upper(todo[i]);
    if (!seen.insert(key).second) continue;
    if (names_used) names_used->push_back(key);
    const DefinedName* n = resolve_name(todo[i], s.id);
    if (!n || !n->parsed) continue;
    calc::References nr =
        calc::references(*n->parsed, f.at, n->scope == calc::kNoSheet ? s.id : n->scope, this);
    reads.insert(reads.end(), nr.ranges.begin(), nr.ranges.end());
    todo.insert(todo.end(), nr.names.begin(), nr.names.end());
    if (nr.is_volatile) f.is_volatile = true;
  }
  if (refs.is_volatile) f.is_volatile = true;
  return reads;
}

void Book::register_formula(Sheet& s, FormulaCell& f) {
  if (!ensure_parsed(s, f)) return;
  std::vector<String> names_used;
  graph_.set(s.id, f.at, reads_of(s, f, &names_used));
  auto slot = std::make_pair(s.id, static_cast<uint32_t>(&f - s.formulas.data()));
  if (f.is_volatile) volatile_.push_back(slot);
  for (String& n : names_used) name_users_[std::move(n)].push_back(slot);
}

void Book::name_changed(StringView text) {
  ++names_gen_;
  changed.workbook = true;
  saved = false;
  if (!graph_valid_) {
    recalc_everything();
    return;
  }
  // Only the formulas that use the name read other cells now, and only they and their
  // dependents change value.
  auto it = name_users_.find(to_upper(text));
  if (it != name_users_.end()) {
    auto users = it->second;
    for (auto [sid, i] : users) {
      Sheet* sh = sheet(sid);
      if (!sh || i >= sh->formulas.size() || !sh->formulas[i].live) continue;
      FormulaCell& f = sh->formulas[i];
      graph_.set(sid, f.at, reads_of(*sh, f, nullptr));
      if (!f.dirty) {
        f.dirty = true;
        dirty_.emplace_back(sid, i);
      }
      pending_.emplace_back(sid, f.at);
    }
  }
  commit();
}

void Book::invalidate_graph() {
  ++names_gen_;
  graph_valid_ = false;
  recalc_everything();
}

void Book::load_name(DefinedName name) {
  if (!name.parsed && !name.formula.empty()) {
    try {
      name.parsed = calc::parse(name.formula, calc::Notation::A1, {}, name.scope, *this);
    } catch (const Error&) {
      // Kept as text: written back as read, evaluated as #NAME? by formulas that use it.
    }
  }
  names.push_back(std::move(name));
  ++names_gen_;
  graph_valid_ = false;
}

void Book::rebuild_graph() {
  graph_.clear();
  volatile_.clear();
  name_users_.clear();
  for (auto& s : sheets)
    for (auto& f : s->formulas)
      if (f.live) register_formula(*s, f);
  graph_valid_ = true;
}

void Book::evaluate_cell(Sheet& s, FormulaCell& f) {
  size_t index = static_cast<size_t>(&f - s.formulas.data());
  const calc::Formula* p = ensure_parsed(s, f);
  if (!p) {
    f.dirty = false;
    return;
  }
  f.in_progress = true;
  ++eval_depth_;
  calc::Value v;
  {
    CalcContext ctx(*this);
    try {
      v = calc::evaluate(*p, f.at, s.id, ctx);
    } catch (const Error&) {
      v = calc::Value::error(cell_error::value);
    }
  }
  --eval_depth_;
  ++evaluations_;
  // The formula table does not grow during evaluation, but take the slot afresh anyway.
  FormulaCell& g = s.formulas[index];
  g.in_progress = false;
  // A precedent deeper than the recursion limit was put off: this result used its old value
  // and is thrown away; the cell stays dirty and is done again once the precedent is.
  if (deferred_) return;
  if (v.kind == calc::Value::Kind::Empty) v = calc::Value::num(0);
  if (!(g.value == v)) s.changed.cells = true;
  g.value = std::move(v);
  g.dirty = false;
}

void Book::recalc_dirty() {
  std::vector<std::pair<SheetId, uint32_t>> work;
  work.swap(dirty_);
  size_t limit = 0;
  for (auto& s : sheets) limit += s->formulas.size();
  for (auto& item : work) {
    std::vector<std::pair<SheetId, uint32_t>> stack{item};
    size_t steps = 0;
    while (!stack.empty()) {
      auto [sid, i] = stack.back();
      Sheet* s = sheet(sid);
      if (!s || i >= s->formulas.size() || !s->formulas[i].live || !s->formulas[i].dirty) {
        stack.pop_back();
        continue;
      }
      deferred_.reset();
      evaluate_cell(*s, s->formulas[i]);
      if (deferred_ && ++steps <= 4 * limit + 16) {
        stack.push_back(*deferred_);
      } else {
        if (deferred_) s->formulas[i].dirty = false;  // give up on a pathological chain
        stack.pop_back();
      }
      deferred_.reset();
    }
  }
}

void Book::commit() {
  if (pending_.empty() && dirty_.empty()) return;
  if (!graph_valid_) rebuild_graph();
  if (!pending_.empty()) {
    auto deps = graph_.dependents(pending_);
    // A large edit leaves a large list behind; give its memory back.
    std::vector<std::pair<SheetId, CellRef>>().swap(pending_);
    for (auto& [sid, at] : deps) {
      Sheet* s = sheet(sid);
      if (!s) continue;
      Cell* c = s->cells.find(at.row, at.col);
      if (!c || c->kind() != CellKind::Formula) continue;
      FormulaCell& f = s->formula(*c);
      if (!f.dirty) {
        f.dirty = true;
        dirty_.emplace_back(sid, c->index);
      }
    }
    // Volatile formulas recalculate whenever anything does.
    for (auto& [sid, i] : volatile_) {
      Sheet* s = sheet(sid);
      if (s && i < s->formulas.size() && s->formulas[i].live && !s->formulas[i].dirty) {
        s->formulas[i].dirty = true;
        dirty_.emplace_back(sid, i);
      }
    }
  }
  if (auto_calc) recalc_dirty();
}

void Book::calculate(bool all) {
  if (!graph_valid_) rebuild_graph();
  if (all) {
    dirty_.clear();
    for (auto& s : sheets)
      for (size_t i = 0; i < s->formulas.size(); ++i)
        if (s->formulas[i].live) {
          s->formulas[i].dirty = true;
          dirty_.emplace_back(s->id, static_cast<uint32_t>(i));
        }
    pending_.clear();
    recalc_dirty();
    return;
  }
  bool saved_mode = auto_calc;
  auto_calc = true;
  for (auto& [sid, i] : volatile_) {
    Sheet* s = sheet(sid);
    if (s && i < s->formulas.size() && s->formulas[i].live && !s->formulas[i].dirty) {
      s->formulas[i].dirty = true;
      dirty_.emplace_back(sid, i);
    }
  }
  commit();
  recalc_dirty();
  auto_calc = saved_mode;
}

// ---------------------------------------------------------------------------------------------
// Structure

namespace {
int32_t shift_index(int32_t v, int32_t at, int32_t count) {
  // New position of line `v` after inserting (count > 0) or deleting (count < 0) at `at`;
  // -1 when it was deleted.
  if (v < at) return v;
  if (count > 0) return v + count;
  if (v < at - count) return -1;
  return v + count;
}

std::optional<Rect> shift_rect(Rect r, bool rows, int32_t at, int32_t count) {
  int32_t& lo = rows ? r.row1 : r.col1;
  int32_t& hi = rows ? r.row2 : r.col2;
  int32_t last = rows ? kLastRow : kLastCol;
  if (count > 0) {
    if (lo >= at) lo += count;
    if (hi >= at) hi += count;
    if (lo > last) return std::nullopt;
    hi = std::min(hi, last);
    return r;
  }
  int32_t del_end = at - count - 1;
  if (lo >= at && hi <= del_end) return std::nullopt;
  auto move = [&](int32_t v, bool is_hi) {
    if (v < at) return v;
    if (v > del_end) return v + count;
    return is_hi ? at - 1 : at;
  };
  lo = move(lo, false);
  hi = move(hi, true);
  if (hi < lo) return std::nullopt;
  return r;
}

void shift_lines(std::map<int32_t, LineInfo>& lines, int32_t at, int32_t count, int32_t last) {
  std::map<int32_t, LineInfo> out;
  for (auto& [i, info] : lines) {
    int32_t n = shift_index(i, at, count);
    if (n >= 0 && n <= last) out.emplace(n, std::move(info));
  }
  lines.swap(out);
}
}  // namespace

void Book::shift(Sheet& s, bool rows, int32_t at, int32_t count) {
  if (count == 0) return;
  if (s.kind != SheetKind::Worksheet) fail("a chart sheet has no cells");
  int32_t last = rows ? kLastRow : kLastCol;
  if (at < 0 || at > last) fail("rows or columns outside the sheet");
  if (count < 0) count = -std::min(-count, last - at + 1);
  // References move with their cells: every formula of the workbook takes part, so each must
  // be parsed before positions change.
  for (auto& sh : sheets)
    for (auto& f : sh->formulas)
      if (f.live) ensure_parsed(*sh, f);

  auto removed = [&](const Cell& c) {
    if (c.kind() == CellKind::Formula) s.free_formula(c.index);
  };
  if (rows) {
    if (count > 0)
      s.cells.insert_rows(at, count);
    else
      s.cells.delete_rows(at, -count, removed);
    shift_lines(s.rows, at, count, kLastRow);
  } else {
    if (count > 0)
      s.cells.insert_cols(at, count);
    else
      s.cells.delete_cols(at, -count, removed);
    shift_lines(s.cols, at, count, kLastCol);
  }

  calc::StructuralChange change{s.id, rows, at, count};
  for (auto& sh : sheets) {
    bool any = false;
    for (auto& f : sh->formulas) {
      if (!f.live) continue;
      CellRef old = f.at;
      if (sh.get() == &s) {
        int32_t& v = rows ? f.at.row : f.at.col;
        int32_t n = shift_index(v, at, count);
        if (n >= 0) v = n;
      }
      if (f.parsed) {
        calc::FormulaPtr adjusted = calc::adjust(f.parsed, old, f.at, sh->id, change);
        if (adjusted != f.parsed) {
          f.parsed = std::move(adjusted);
          any = true;
        }
      }
      if (!(old == f.at)) any = true;
    }
    if (any || sh.get() == &s) {
      // The sheet part is rewritten: formulas are written from what they now are.
      for (auto& f : sh->formulas) {
        if (f.live && f.parsed) {
          f.file.reset();
          f.shared_master.reset();
        }
      }
      sh->changed.cells = true;
    }
  }
  // Cells pushed off the sheet were dropped by the store; free any formula slot left behind.
  for (size_t i = 0; i < s.formulas.size(); ++i) {
    FormulaCell& f = s.formulas[i];
    if (!f.live) continue;
    const Cell* c = s.cells.find(f.at.row, f.at.col);
    if (!c || c->kind() != CellKind::Formula || c->index != i)
      s.free_formula(static_cast<uint32_t>(i));
  }

  for (auto& n : names) {
    if (!n.parsed) continue;
    calc::FormulaPtr adjusted = calc::adjust(n.parsed, {}, {}, n.scope, change);
    if (adjusted != n.parsed) {
      n.parsed = std::move(adjusted);
      n.formula = calc::render(*n.parsed, calc::Notation::A1, {}, n.scope, *this);
      changed.workbook = true;
    }
  }
  std::vector<HyperlinkRec> links;
  for (auto& h : s.hyperlinks)
    if (auto r = shift_rect(h.ref, rows, at, count)) {
      h.ref = *r;
      links.push_back(std::move(h));
    }
  s.hyperlinks.swap(links);
  std::vector<Rect> merged;
  for (auto& m : s.merged)
    if (auto r = shift_rect(m, rows, at, count)) merged.push_back(*r);
  s.merged.swap(merged);
  for (auto& a : s.selection.areas)
    if (auto r = shift_rect(a, rows, at, count)) a = *r;

  s.changed.all();
  saved = false;
  graph_valid_ = false;
  volatile_.clear();
  pending_.clear();
  // Values of formulas whose ranges grew or shrank change; recalculate the workbook.
  recalc_everything();
}

void Book::recalc_everything() {
  dirty_.clear();
  for (auto& sh : sheets)
    for (size_t i = 0; i < sh->formulas.size(); ++i)
      if (sh->formulas[i].live) {
        sh->formulas[i].dirty = true;
        dirty_.emplace_back(sh->id, static_cast<uint32_t>(i));
      }
  // In manual mode the workbook waits for Calculate, as after any other edit.
  if (auto_calc) {
    if (!graph_valid_) rebuild_graph();
    recalc_dirty();
  }
}

void Book::shift_cells(Sheet&, const Rect&, bool, bool) {
  throw Error(err::not_supported,
              "inserting or deleting part of a row or column is not supported; insert or "
              "delete entire rows or columns");
}

void Book::copy(Sheet& src, const Rect& from, Sheet& dst, const Rect& to) {
  if (src.kind != SheetKind::Worksheet || dst.kind != SheetKind::Worksheet)
    fail("a chart sheet has no cells");
  Book& sb = *src.book;
  int32_t h = from.row2 - from.row1 + 1, w = from.col2 - from.col1 + 1;
  // A destination that is a multiple of the source in both directions is filled with copies;
  // any other destination takes one copy at its top-left cell.
  int32_t th = to.row2 - to.row1 + 1, tw = to.col2 - to.col1 + 1;
  int32_t reps_r = th % h == 0 ? th / h : 1, reps_c = tw % w == 0 ? tw / w : 1;
  if (to.row1 + h * reps_r - 1 > kLastRow || to.col1 + w * reps_c - 1 > kLastCol)
    fail("the copy would go past the edge of the sheet");
  struct Item {
    int32_t dr, dc;
    uint32_t style;
    CellKind kind;
    double num;
    String text;
    std::vector<Run> runs;
    calc::FormulaPtr formula;
  };
  std::vector<Item> items;
  src.cells.for_each(from, [&](int32_t r, int32_t c, const Cell& cell) {
    Item it{r - from.row1, c - from.col1, cell.style(), cell.kind(), cell.num, {}, {}, {}};
    if (cell.kind() == CellKind::Text) {
      it.text = String(sb.strings.text(cell.index));
      it.runs = sb.strings.runs(cell.index);
    } else if (cell.kind() == CellKind::Formula) {
      FormulaCell& f = src.formulas[cell.index];
      sb.ensure_parsed(src, f);
      it.formula = f.parsed;
      it.num = 0;
    }
    items.push_back(std::move(it));
    return true;
  });
  // Formats travel across workbooks record by record.
  std::unordered_map<uint32_t, uint32_t> style_map;
  auto map_style = [&](uint32_t xf) {
    if (&sb == this) return xf;
    auto found = style_map.find(xf);
    if (found != style_map.end()) return found->second;
    Xf x = sb.styles.xf(xf);
    x.font = styles.font_index(sb.styles.font(x.font));
    x.fill = styles.fill_index(sb.styles.fill(x.fill));
    x.border =
        styles.border_index(sb.styles.borders[x.border < sb.styles.borders.size() ? x.border : 0]);
    x.numfmt = styles.numfmt_id(sb.styles.numfmt_code(x.numfmt));
    x.derived_from = -1;
    uint32_t out = styles.xf_index(x);
    style_map.emplace(xf, out);
    return out;
  };
  for (int32_t rr = 0; rr < reps_r; ++rr)
    for (int32_t rc = 0; rc < reps_c; ++rc) {
      Rect block{to.row1 + rr * h, to.col1 + rc * w, to.row1 + rr * h + h - 1,
                 to.col1 + rc * w + w - 1};
      clear_all(dst, block);
      for (const Item& it : items) {
        int32_t r = block.row1 + it.dr, c = block.col1 + it.dc;
        uint32_t st = map_style(it.style);
        switch (it.kind) {
          case CellKind::Blank:
            dst.cells.get_or_create(r, c, st);
            break;
          case CellKind::Number:
            set_constant(dst, r, c, calc::Value::num(it.num));
            break;
          case CellKind::Boolean:
            set_constant(dst, r, c, calc::Value::boolean(it.num != 0));
            break;
          case CellKind::Error:
            set_constant(dst, r, c, calc::Value::error(static_cast<int32_t>(it.num)));
            break;
          case CellKind::Text:
            if (it.runs.empty())
              set_constant(dst, r, c, calc::Value::str(it.text));
            else
              set_rich_text(dst, r, c, it.text, it.runs);
            break;
          case CellKind::Formula:
            if (&sb == this && it.formula) {
              set_parsed_formula(dst, r, c, it.formula);
            } else if (it.formula) {
              try {
                // Into another workbook the formula travels as text, written at its new cell
                // so relative references have moved, and read there by that workbook's sheets.
                String text =
                    calc::render(*it.formula, calc::Notation::A1, CellRef{r, c}, src.id, sb);
                set_formula(dst, r, c, text, calc::Notation::A1);
              } catch (const Error&) {
                set_constant(dst, r, c, calc::Value::error(cell_error::ref));
              }
            }
            break;
        }
        if (Cell* cell = dst.cells.find(r, c)) cell->set_style(st);
      }
    }
  touch(*this, dst);
}

// ---------------------------------------------------------------------------------------------
// Loading

void Book::load_formula(Sheet& s, int32_t row, int32_t col, std::unique_ptr<FileFormula> file,
                        const calc::Value& cached, uint32_t style) {
  Cell& c = s.cells.get_or_create(row, col, style);
  c.set_style(style);
  if (c.kind() == CellKind::Formula) s.free_formula(c.index);
  uint32_t slot = s.new_formula();
  c.set_kind(CellKind::Formula);
  c.index = slot;
  FormulaCell& f = s.formulas[slot];
  f.at = CellRef{row, col};
  f.value = cached;
  if (file) {
    if (file->type == FileFormula::Type::Shared) {
      if (!file->text.empty())
        s.shared_masters[file->shared_index] = f.at;
      else if (auto m = s.shared_masters.find(file->shared_index); m != s.shared_masters.end())
        f.shared_master = m->second;
    }
    if (file->type == FileFormula::Type::Array && !file->ref().empty()) {
      if (auto r = parse_area(file->ref())) {
        f.array = true;
        f.array_ref = *r;
      }
    }
  }
  f.file = std::move(file);
  graph_valid_ = false;
}

void Book::loaded() {
  for (auto& s : sheets) {
    s->changed = Changes{};
    s->shared_masters.clear();
  }
  changed = BookChanges{};
  styles.changed = false;
  strings.changed = false;
  saved = true;
  pending_.clear();
}

bool Book::any_change() const {
  if (changed.workbook || changed.props || styles.changed || strings.changed) return true;
  for (const auto& s : sheets)
    if (s->changed.any()) return true;
  return false;
}

}  // namespace qz::engine
