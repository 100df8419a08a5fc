// A workbook's identity, its sheets and how they are found by id and name, and the members a
// file layer loads a workbook through.
#include "engine/model/book.hpp"

#include "engine/model/address.hpp"
#include "engine/model/fail.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

// ---------------------------------------------------------------------------------------------
// Book: identity and sheets

Book::Book(String book_name)
    : name(std::move(book_name)), palette(default_palette()), theme(default_theme()) {}

Book::~Book() {
  for (auto& s : sheets) s->book = nullptr;
}

Sheet& Book::add_sheet(String sheet_name, SheetKind kind, int32_t position, bool check) {
  layout_as_read_ = false;
  if (check) check_sheet_name(sheet_name);
  auto s = std::make_shared<Sheet>(this, next_sheet_id_++, std::move(sheet_name), kind);
  if (position < 0 || position > static_cast<int32_t>(sheets.size()))
    position = static_cast<int32_t>(sheets.size());
  sheets.insert(sheets.begin() + position, s);
  names_.sheets_changed();  // sheet-level names sort by their sheet's position
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

std::vector<SheetId> Book::sheet_order() const {
  std::vector<SheetId> out;
  for (const auto& s : sheets) out.push_back(s->id);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Loading

void Book::load_formula(Sheet& s, int32_t row, int32_t col, std::unique_ptr<FileFormula> file,
                        const calc::Value& cached, uint32_t style) {
  SheetLoad load;
  load_formula(s, load, row, col, std::move(file), cached, style);
  sheet_loaded(s, load);
}

void Book::sheet_loaded(const Sheet& s, SheetLoad& load) {
  uncached_.reserve(uncached_.size() + load.uncached.size());
  for (uint32_t slot : load.uncached) uncached_.emplace_back(s.id, slot);
  std::vector<uint32_t>().swap(load.uncached);
  array_blocks_ = array_blocks_ || load.array_blocks;
  graph_valid_ = false;
}

void Book::load_formula(Sheet& s, SheetLoad& load, int32_t row, int32_t col,
                        std::unique_ptr<FileFormula> file, const calc::Value& cached,
                        uint32_t style) {
  Cell& c = s.cells.get_or_create(row, col, style);
  c.set_style(style);
  if (c.kind() == CellKind::Formula) s.free_formula(c.index);
  uint32_t slot = s.new_formula();
  c.set_kind(CellKind::Formula);
  c.index = slot;
  FormulaCell& f = s.formulas[slot];
  f.at = CellRef{row, col};
  f.value = cached;
  if (cached.kind == calc::Value::Kind::Empty) load.uncached.push_back(slot);
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
        // Cell metadata on an array formula marks it as one that spills: the only metadata
        // the application attaches to formula cells is that of dynamic arrays.
        if (file->rare)
          for (const auto& [name, value] : file->rare->cell_attrs)
            if (name == u"cm") f.spills = true;
        if (r->row1 != r->row2 || r->col1 != r->col2 || f.spills) {
          load.array_blocks = true;
          s.array_blocks.push_back(slot);
        }
      }
    }
  }
  f.file = std::move(file);
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
