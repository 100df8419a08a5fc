// The name table, and the workbook's names: defining, renaming and deleting them with the checks
// the application makes and the recalculation a change calls for.
#include "engine/model/names.hpp"

#include <algorithm>

#include "engine/model/address.hpp"
#include "engine/model/book.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

namespace qz::engine {

namespace {

[[noreturn]] void fail(const std::string& message) {
  throw Error(err::host_failure, message);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The table

std::optional<size_t> NameTable::find(StringView text, SheetId scope) const {
  for (size_t i = 0; i < names_.size(); ++i)
    if (names_[i].scope == scope && equals_text(names_[i].name, text)) return i;
  return std::nullopt;
}

const DefinedName* NameTable::resolve(StringView text, SheetId from) const {
  if (from != calc::kNoSheet)
    if (auto i = find(text, from)) return &names_[*i];
  if (auto i = find(text, calc::kNoSheet)) return &names_[*i];
  return nullptr;
}

std::vector<size_t> NameTable::sorted(const SheetPosition& position,
                                      std::optional<SheetId> scope) const {
  if (sorted_generation_ != generation_) {
    sorted_.resize(names_.size());
    for (size_t i = 0; i < names_.size(); ++i) sorted_[i] = i;
    std::stable_sort(sorted_.begin(), sorted_.end(), [&](size_t a, size_t b) {
      const DefinedName& x = names_[a];
      const DefinedName& y = names_[b];
      if (x.name != y.name) return x.name < y.name;  // code unit order
      auto rank = [&](const DefinedName& n) {
        return n.scope == calc::kNoSheet ? -1 : position(n.scope);
      };
      return rank(x) < rank(y);
    });
    sorted_generation_ = generation_;
  }
  if (!scope) return sorted_;
  std::vector<size_t> idx;
  for (size_t i : sorted_)
    if (names_[i].scope == *scope) idx.push_back(i);
  return idx;
}

size_t NameTable::add(DefinedName name) {
  names_.push_back(std::move(name));
  ++generation_;
  return names_.size() - 1;
}

void NameTable::erase(size_t index) {
  names_.erase(names_.begin() + static_cast<long>(index));
  ++generation_;
}

void NameTable::erase_scope(SheetId scope) {
  names_.erase(std::remove_if(names_.begin(), names_.end(),
                              [&](const DefinedName& n) { return n.scope == scope; }),
               names_.end());
  ++generation_;
}

void NameTable::rename(size_t index, String text) {
  names_[index].name = std::move(text);
  ++generation_;
}

void NameTable::set_hidden(size_t index, bool hidden) {
  names_[index].hidden = hidden;
}

void NameTable::set_definition(size_t index, String formula, calc::FormulaPtr parsed) {
  names_[index].formula = std::move(formula);
  names_[index].parsed = std::move(parsed);
}

// ---------------------------------------------------------------------------------------------
// The workbook's names

std::optional<size_t> Book::find_name(StringView text, SheetId scope) const {
  return names_.find(text, scope);
}

const DefinedName* Book::resolve_name(StringView text, SheetId from) const {
  return names_.resolve(text, from);
}

std::vector<size_t> Book::sorted_names(std::optional<SheetId> scope) const {
  return names_.sorted([this](SheetId id) { return sheet_position(id); }, scope);
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
    DefinedName n;
    n.name = String(text);
    n.scope = scope;
    index = names_.add(std::move(n));
  }
  String rendered = calc::render(*parsed, calc::Notation::A1, {}, scope, *this);
  names_.set_definition(index, std::move(rendered), std::move(parsed));
  names_.set_hidden(index, hidden);
  changed.workbook = true;
  saved = false;
  // Formulas may use the name: their dependencies and values change with it.
  name_changed(text);
  return index;
}

void Book::rename_name(size_t index, StringView text) {
  check_name_text(text);
  const SheetId scope = names_[index].scope;
  if (auto other = find_name(text, scope); other && *other != index)
    fail("the name \"" + to_utf8(text) + "\" already exists");
  names_.rename(index, String(text));
  changed.workbook = true;
  saved = false;
  // Formulas that used the old text, or the new one, read other cells now.
  invalidate_graph();
}

void Book::set_name_hidden(size_t index, bool hidden) {
  names_.set_hidden(index, hidden);
  changed.workbook = true;
  saved = false;
}

void Book::delete_name(size_t index) {
  if (index >= names_.size()) fail("the name no longer exists");
  String text = names_[index].name;
  names_.erase(index);
  name_changed(text);
}

String Book::qualified_name(const DefinedName& n) const {
  if (n.scope == calc::kNoSheet) return n.name;
  Sheet* s = sheet(n.scope);
  return (s ? sheet_prefix(s->name) : String(u"#REF!")) + n.name;
}

void Book::load_name(DefinedName name) {
  if (!name.parsed && !name.formula.empty()) {
    try {
      name.parsed = calc::parse(name.formula, calc::Notation::A1, {}, name.scope, *this);
    } catch (const Error&) {
      // Kept as text: written back as read, evaluated as #NAME? by formulas that use it.
    }
  }
  names_.add(std::move(name));
  graph_valid_ = false;
}

}  // namespace qz::engine
