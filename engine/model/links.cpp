// Links to other workbooks: which workbook and sheet a reference prefix names, and the values
// read through it.
#include "engine/calc/formula.hpp"
#include "engine/model/address.hpp"
#include "engine/model/book.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine {

namespace {

// "'It''s'" -> "It's"; text without quotes stays as it is.
String unquote(StringView text) {
  if (text.size() < 2 || text.front() != u'\'' || text.back() != u'\'') return String(text);
  String out;
  for (size_t i = 1; i + 1 < text.size(); ++i) {
    out += text[i];
    if (text[i] == u'\'' && text[i + 1] == u'\'') ++i;
  }
  return out;
}

struct Prefix {
  String folder, book, sheet;
};

// "[1]Rates", "'[market.xlsx]My Rates'", "[B.xlsx]'S 1'", "'C:\x\[B.xlsx]S'".
std::optional<Prefix> split_prefix(StringView raw) {
  String text = unquote(raw);
  size_t open = text.find(u'[');
  size_t close = text.find(u']', open == String::npos ? 0 : open);
  if (open == String::npos || close == String::npos) return std::nullopt;
  Prefix p;
  p.folder = text.substr(0, open);
  p.book = text.substr(open + 1, close - open - 1);
  p.sheet = unquote(StringView(text).substr(close + 1));
  if (p.book.empty() || p.sheet.empty()) return std::nullopt;
  return p;
}

bool all_digits(StringView s) {
  for (char16_t c : s)
    if (c < u'0' || c > u'9') return false;
  return !s.empty();
}

}  // namespace

String ExternalLink::file_name() const {
  size_t cut = target.find_last_of(u"/\\");
  return cut == String::npos ? target : target.substr(cut + 1);
}

std::optional<std::pair<size_t, String>> Book::link_of(StringView prefix, bool add) {
  auto p = split_prefix(prefix);
  if (!p) return std::nullopt;
  if (all_digits(p->book)) {
    // A file's own numbering: [1] is the first link.
    size_t n = 0;
    for (char16_t c : p->book) n = n * 10 + static_cast<size_t>(c - u'0');
    if (n < 1 || n > links.size()) return std::nullopt;
    return std::make_pair(n - 1, p->sheet);
  }
  for (size_t i = 0; i < links.size(); ++i)
    if (equals_text(links[i].file_name(), p->book)) return std::make_pair(i, p->sheet);
  if (!add) return std::nullopt;
  ExternalLink link;
  link.target = p->folder + p->book;
  links.push_back(std::move(link));
  return std::make_pair(links.size() - 1, p->sheet);
}

std::optional<calc::Value> Book::external_value(StringView prefix, CellRef cell) {
  auto p = split_prefix(prefix);
  if (!p) return std::nullopt;
  std::optional<std::pair<size_t, String>> found = link_of(prefix, false);
  const String file = found ? links[found->first].file_name() : p->book;
  if (find_open_book && !all_digits(file)) {
    if (std::shared_ptr<Book> other = find_open_book(file); other && other.get() != this)
      if (const Sheet* s = other->sheet_by_name(p->sheet))
        return other->value(*s, cell.row, cell.col);
  }
  if (!found) return std::nullopt;
  const ExternalLink& link = links[found->first];
  for (size_t i = 0; i < link.sheets.size() && i < link.values.size(); ++i) {
    if (!equals_text(link.sheets[i], found->second)) continue;
    auto it = link.values[i].find({cell.row, cell.col});
    // A cell the link kept nothing for was empty when it was read.
    return it == link.values[i].end() ? calc::Value::empty() : it->second;
  }
  return std::nullopt;
}

calc::FormulaPtr Book::with_link_names(const calc::FormulaPtr& f) const {
  // A file numbers its links ([1]Rates!B2); a person reads and types the workbook's name.
  std::shared_ptr<calc::Formula> named;
  for (const calc::RefInfo& r : f->refs) {
    if (!r.external) continue;
    auto p = split_prefix(f->text(r.external));
    if (!p || !all_digits(p->book)) continue;
    size_t n = 0;
    for (char16_t c : p->book) n = n * 10 + static_cast<size_t>(c - u'0');
    if (n < 1 || n > links.size() || links[n - 1].target.empty()) continue;
    const ExternalLink& link = links[n - 1];
    const String file = link.file_name();
    const String folder = link.target.substr(0, link.target.size() - file.size());
    String text = folder + u"[" + file + u"]" + p->sheet;
    if (!folder.empty() || sheet_needs_quotes(p->sheet) || file.find(u' ') != String::npos) {
      String quoted = u"'";
      for (char16_t c : text) {
        quoted += c;
        if (c == u'\'') quoted += c;
      }
      text = quoted + u"'";
    }
    if (!named) named = std::make_shared<calc::Formula>(*f);
    named->pool[r.external] = std::move(text);
  }
  return named ? named : f;
}

}  // namespace qz::engine
