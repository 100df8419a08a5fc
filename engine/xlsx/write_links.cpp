// Links to other workbooks. A formula typed as '[Book2.xlsx]Sheet1'!A1 is written as
// [1]Sheet1!A1, with a link part that names the file and keeps the values of the cells the
// formulas read, so that a reader without the other file still shows them.
#include <filesystem>
#include <set>

#include "engine/calc/formula.hpp"
#include "engine/model/address.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::xlsx {

namespace {

namespace fs = std::filesystem;

constexpr const char* kCtLink =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.externalLink+xml";

// The cells formulas read from each sheet of each link.
using Wanted = std::map<std::pair<size_t, String>, std::set<std::pair<int32_t, int32_t>>>;

void want(Wanted& wanted, size_t link, const String& sheet, const calc::RefInfo& r,
          CellRef origin) {
  if (r.kind != calc::RefKind::Cell && r.kind != calc::RefKind::Area) return;
  int32_t r1 = r.a.row_abs ? r.a.row : r.a.row + origin.row;
  int32_t c1 = r.a.col_abs ? r.a.col : r.a.col + origin.col;
  int32_t r2 = r.kind == calc::RefKind::Cell ? r1 : r.b.row_abs ? r.b.row : r.b.row + origin.row;
  int32_t c2 = r.kind == calc::RefKind::Cell ? c1 : r.b.col_abs ? r.b.col : r.b.col + origin.col;
  if (r1 > r2) std::swap(r1, r2);
  if (c1 > c2) std::swap(c1, c2);
  if (r1 < 0 || c1 < 0 || static_cast<int64_t>(r2 - r1 + 1) * (c2 - c1 + 1) > 100000) return;
  auto& cells = wanted[{link, sheet}];
  for (int32_t row = r1; row <= r2; ++row)
    for (int32_t col = c1; col <= c2; ++col) cells.insert({row, col});
}

// The other workbook: open in the application, or else the file the link names, looked for
// beside the workbook being saved when the link gives no folder.
BookPtr source_of(Book& book, const ExternalLink& link, const fs::path& saved_to) {
  if (book.find_open_book)
    if (BookPtr open = book.find_open_book(link.file_name())) return open;
  fs::path file(to_utf8(link.target));
  if (file.is_relative()) file = saved_to.parent_path() / file;
  std::error_code ec;
  if (!fs::is_regular_file(file, ec)) return nullptr;
  try {
    return load(file);
  } catch (const Error&) {
    return nullptr;  // a file that does not load leaves the values the link had
  }
}

std::string link_part_xml(const ExternalLink& link, const std::string& rel_id) {
  std::string xml = std::string(kDecl) +
                    "<externalLink xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/"
                    "2006/main\" xmlns:r=\"" +
                    kRelDoc + "\"><externalBook r:id=\"" + rel_id + "\"><sheetNames>";
  for (const String& s : link.sheets) {
    xml += "<sheetName val=\"";
    append_escaped(xml, to_utf8(s), true);
    xml += "\"/>";
  }
  xml += "</sheetNames><sheetDataSet>";
  for (size_t i = 0; i < link.sheets.size(); ++i) {
    xml += "<sheetData sheetId=\"" + std::to_string(i) + "\"";
    if (i >= link.values.size() || link.values[i].empty()) {
      xml += "/>";
      continue;
    }
    xml += ">";
    int32_t open_row = -1;
    for (const auto& [at, v] : link.values[i]) {
      if (at.first != open_row) {
        if (open_row >= 0) xml += "</row>";
        open_row = at.first;
        xml += "<row r=\"" + std::to_string(open_row + 1) + "\">";
      }
      xml += "<cell r=\"" + cell_text(at.first, at.second) + "\"";
      std::string body;
      switch (v.kind) {
        case calc::Value::Kind::Number:
          body = double_text(v.number);
          break;
        case calc::Value::Kind::Text:
          xml += " t=\"str\"";
          append_escaped(body, to_utf8(v.text), false);
          break;
        case calc::Value::Kind::Boolean:
          xml += " t=\"b\"";
          body = v.number != 0 ? "1" : "0";
          break;
        case calc::Value::Kind::Error:
          xml += " t=\"e\"";
          body = to_utf8(calc::error_text(v.error_code()));
          break;
        default:
          break;
      }
      xml +=
          body.empty() && v.kind != calc::Value::Kind::Text ? "/>" : "><v>" + body + "</v></cell>";
    }
    if (open_row >= 0) xml += "</row>";
    xml += "</sheetData>";
  }
  xml += "</sheetDataSet></externalBook></externalLink>";
  return xml;
}

String quoted_sheet(const String& index, const String& sheet) {
  String plain = u"[" + index + u"]" + sheet;
  if (!sheet_needs_quotes(sheet)) return plain;
  String out = u"'";
  for (char16_t c : plain) {
    out += c;
    if (c == u'\'') out += c;
  }
  return out + u"'";
}

}  // namespace

void write_links(PackageWriter& w) {
  Book& book = w.book;
  Wanted wanted;
  const size_t linked_before = book.links.size();
  for (auto& sp : book.sheets) {
    Sheet& s = *sp;
    for (FormulaCell& f : s.formulas) {
      // Formulas as read already number their links as the file does.
      if (!f.live || f.file) continue;
      const calc::Formula* parsed = book.ensure_parsed(s, f);
      if (!parsed) continue;
      for (const calc::RefInfo& r : parsed->refs) {
        if (!r.external || r.name_only) continue;
        const String& prefix = parsed->text(r.external);
        auto link = book.link_of(prefix, true);
        if (!link) continue;
        w.link_prefixes[prefix] =
            quoted_sheet(from_utf8(std::to_string(link->first + 1)), link->second);
        want(wanted, link->first, link->second, r, f.at);
      }
    }
  }
  if (book.links.size() == linked_before && wanted.empty()) return;

  std::map<size_t, BookPtr> sources;
  for (auto& [key, cells] : wanted) {
    ExternalLink& link = book.links[key.first];
    if (link.from_file) continue;  // a link the file had keeps its part as it is
    size_t sheet = 0;
    while (sheet < link.sheets.size() && !equals_text(link.sheets[sheet], key.second)) ++sheet;
    if (sheet == link.sheets.size()) link.sheets.push_back(key.second);
    link.values.resize(link.sheets.size());
    if (!sources.count(key.first)) sources[key.first] = source_of(book, link, w.target);
    const BookPtr& from = sources[key.first];
    const Sheet* other = from ? from->sheet_by_name(key.second) : nullptr;
    if (!other) continue;
    for (const auto& [row, col] : cells) {
      calc::Value v = from->value(*other, row, col);
      if (v.kind == calc::Value::Kind::Empty)
        link.values[sheet].erase({row, col});
      else
        link.values[sheet][{row, col}] = std::move(v);
    }
  }
  bool added = false;
  for (ExternalLink& link : book.links) {
    if (link.from_file) continue;
    const std::string part =
        w.fresh_part(beside(w.state->workbook_part, "externalLinks/externalLink"), ".xml");
    std::string target = to_utf8(link.target);
    const bool absolute = fs::path(target).is_absolute() ||
                          (target.size() > 2 && target[1] == ':');  // a drive letter
    if (absolute) target = "file:///" + target;
    const std::string file_rel =
        w.add_rel(part, std::string(kRelDoc) + "/externalLinkPath", target, true);
    w.put(part, link_part_xml(link, file_rel));
    w.add_new(part);
    w.set_content_type(part, kCtLink);
    w.new_link_rels.push_back(w.add_rel(w.state->workbook_part,
                                        std::string(kRelDoc) + "/externalLink",
                                        relative_target(w.state->workbook_part, part), false));
    link.from_file = true;
    added = true;
  }
  // Formulas typed before their link had values read #REF!; the file shows what they read
  // now. A full pass, as the engine cannot single them out from here: it runs only on the
  // save that adds links, and only where the workbook calculates by itself.
  if (added && book.auto_calc) book.calculate(true);
}

}  // namespace qz::engine::xlsx
