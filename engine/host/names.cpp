// Names and Name: the workbook's and a sheet's defined names as collections, in the order the
// application enumerates them.
#include "engine/host/objects.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::detail {

namespace {

using host::RangePtr;

// A Name is known by its text and scope; the model's index may move as names come and go.
class EName final : public host::Name {
 public:
  EName(std::shared_ptr<AppState> app, BookPtr book, String name, SheetId scope,
        size_t hint = SIZE_MAX)
      : app_(std::move(app)),
        book_(std::move(book)),
        name_(std::move(name)),
        scope_(scope),
        hint_(hint) {}

  String name() override { return book_->qualified_name(rec()); }
  void set_name(const String& name) override {
    const size_t index = index_of();
    String text = name;
    if (size_t bang = text.rfind(u'!'); bang != String::npos) text = text.substr(bang + 1);
    book_->rename_name(index, text);
    name_ = text;
  }
  int32_t index() override {
    auto order = book_->sorted_names();
    size_t me = index_of();
    for (size_t i = 0; i < order.size(); ++i)
      if (order[i] == me) return static_cast<int32_t>(i + 1);
    return 0;
  }
  bool visible() override { return !rec().hidden; }
  void set_visible(bool visible) override { book_->set_name_hidden(index_of(), !visible); }
  String refers_to() override { return u"=" + rec().formula; }
  void set_refers_to(const Variant& refers_to) override {
    const DefinedName& n = rec();
    String text = refers_text(refers_to);
    book_->define_name(n.name, scope_, text, n.hidden);
    book_->commit();
  }
  String refers_to_r1c1() override {
    const DefinedName& n = rec();
    if (!n.parsed) return u"=" + n.formula;
    return u"=" + calc::render(*n.parsed, calc::Notation::R1C1, {}, scope_, *book_);
  }
  RangePtr refers_to_range() override {
    auto r = name_areas(book_, rec());
    if (!r) fail("the name \"" + to_utf8(name_) + "\" refers to no range");
    return app_->range(r->book, r->sheet, r->areas);
  }
  ObjectPtr parent() override {
    if (scope_ == calc::kNoSheet) return app_->workbook(book_);
    for (auto& s : book_->sheets)
      if (s->id == scope_) return app_->sheet_object(book_, s);
    fail("the name's sheet has been deleted");
  }
  void delete_() override { book_->delete_name(index_of()); }

  static String refers_text(const Variant& refers_to) {
    if (auto r = refers_to.as<host::Range>()) {
      auto m = range_of(r);
      if (!m) fail("RefersTo: not a range of this application");
      return u"=" + reference_text(live(m->sheet), m->areas);
    }
    String text = to_string(refers_to);
    if (text.empty()) fail("RefersTo cannot be empty");
    if (text[0] != u'=') {
      // Text that is no formula is a constant the name stands for.
      String q = u"=\"";
      for (char16_t c : text) {
        if (c == u'"') q += u'"';
        q += c;
      }
      return q + u"\"";
    }
    return text;
  }

 private:
  size_t index_of() {
    // Where the name was last found is checked first: walking every name for each member
    // read would make reading all names of a large workbook quadratic.
    const NameTable& names = book_->names();
    if (hint_ < names.size() && names[hint_].scope == scope_ &&
        equals_text(names[hint_].name, name_))
      return hint_;
    auto i = book_->find_name(name_, scope_);
    if (!i) fail("the name \"" + to_utf8(name_) + "\" has been deleted");
    hint_ = *i;
    return *i;
  }
  const DefinedName& rec() { return book_->names()[index_of()]; }
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  String name_;
  SheetId scope_;
  size_t hint_;
};

class ENames final : public host::Names {
 public:
  ENames(std::shared_ptr<AppState> app, BookPtr book, std::optional<SheetId> scope)
      : app_(std::move(app)), book_(std::move(book)), scope_(scope) {}

  int32_t count() override { return static_cast<int32_t>(book_->sorted_names(scope_).size()); }

  host::NamePtr item(const Variant& index) override {
    if (!index.is_string()) {
      int32_t i = to_long(index);
      auto order = book_->sorted_names(scope_);
      if (i < 1 || i > static_cast<int32_t>(order.size()))
        fail("Names(" + std::to_string(i) + "): there is no such name");
      return make_name(app_, book_, order[static_cast<size_t>(i - 1)]);
    }
    const String& text = index.str();
    QualifiedText q;
    try {
      q = split_qualifier(text);
    } catch (const Error&) {
      fail("Names(\"" + to_utf8(text) + "\"): there is no such name");
    }
    String bare(trim(q.rest));
    if (!q.sheet.empty()) {
      Sheet* s = book_->sheet_by_name(q.sheet);
      if (s && (!scope_ || *scope_ == s->id))
        if (auto i = book_->find_name(bare, s->id)) return make_name(app_, book_, *i);
    } else if (scope_) {
      if (auto i = book_->find_name(bare, *scope_)) return make_name(app_, book_, *i);
    } else {
      // The workbook-level name first, then sheet-level names of that text in enumeration order.
      if (auto i = book_->find_name(bare, calc::kNoSheet)) return make_name(app_, book_, *i);
      for (size_t i : book_->sorted_names())
        if (equals_text(book_->names()[i].name, bare)) return make_name(app_, book_, i);
    }
    fail("Names(\"" + to_utf8(text) + "\"): there is no such name");
  }

  host::NamePtr add(const host::NameAddArgs& args) override {
    if (args.name.is_missing()) fail("Names.Add needs a Name");
    String text = to_string(args.name);
    SheetId scope = scope_.value_or(calc::kNoSheet);
    QualifiedText q = split_qualifier(text);
    if (!q.sheet.empty()) {
      Sheet* s = book_->sheet_by_name(q.sheet);
      if (!s) fail("Names.Add: there is no sheet \"" + to_utf8(q.sheet) + "\"");
      scope = s->id;
    }
    String bare(trim(q.rest));
    String refers;
    if (!args.refers_to.is_missing()) {
      refers = EName::refers_text(args.refers_to);
    } else if (!args.refers_to_r1c1.is_missing()) {
      String r1c1 = to_string(args.refers_to_r1c1);
      if (!r1c1.empty() && r1c1[0] == u'=') r1c1.erase(0, 1);
      auto f = calc::parse(r1c1, calc::Notation::R1C1, {}, scope, *book_);
      refers = u"=" + calc::render(*f, calc::Notation::A1, {}, scope, *book_);
    } else {
      fail("Names.Add needs RefersTo");
    }
    bool hidden = !args.visible.is_missing() && !to_bool(args.visible);
    size_t i = book_->define_name(bare, scope, refers, hidden);
    book_->commit();
    return make_name(app_, book_, i);
  }

 private:
  std::shared_ptr<AppState> app_;
  BookPtr book_;
  std::optional<SheetId> scope_;
};

}  // namespace

host::NamesPtr make_names(const std::shared_ptr<AppState>& app, const BookPtr& book,
                          std::optional<SheetId> scope) {
  return std::make_shared<ENames>(app, book, scope);
}

host::NamePtr make_name(const std::shared_ptr<AppState>& app, const BookPtr& book, size_t index) {
  const DefinedName& name = book->names()[index];
  return std::make_shared<EName>(app, book, name.name, name.scope, index);
}

}  // namespace qz::engine::detail
