#include "engine/xlsx/package.hpp"

#include <algorithm>
#include <cstring>

#include "qzxl/error.hpp"

namespace qz::engine::xlsx {

namespace {

bool iequals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
    if (x != y) return false;
  }
  return true;
}

bool starts_with(std::string_view s, std::string_view p) {
  return s.substr(0, p.size()) == p;
}

std::string percent_decode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && hex(s[i + 1]) >= 0 && hex(s[i + 2]) >= 0) {
      out += static_cast<char>(hex(s[i + 1]) * 16 + hex(s[i + 2]));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

// What stands around the root element, where the parser is more lenient than XML: a
// document type declaration (entity definitions are how XML bombs grow; no workbook part has
// one) or stray text. Returns the problem, or empty.
std::string prolog_problem(std::string_view text) {
  size_t i = 0;
  if (starts_with(text, "\xEF\xBB\xBF")) i = 3;
  // UTF-16 text: look at every other byte; the markup is ASCII either way.
  std::string narrowed;
  if (text.size() >= 2 &&
      ((text[0] == '\xFF' && text[1] == '\xFE') || (text[0] == '\xFE' && text[1] == '\xFF'))) {
    size_t off = text[0] == '\xFF' ? 2 : 3;
    for (size_t k = off; k < text.size(); k += 2) narrowed += text[k];
    text = narrowed;
    i = 0;
  }
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0'; };
  while (i < text.size()) {
    char c = text[i];
    if (blank(c)) {
      ++i;
      continue;
    }
    if (c != '<') return "is not well-formed XML (text before the root element)";
    std::string_view rest = text.substr(i);
    if (starts_with(rest, "<?")) {
      size_t end = text.find("?>", i + 2);
      if (end == std::string_view::npos) return {};
      i = end + 2;
    } else if (starts_with(rest, "<!--")) {
      size_t end = text.find("-->", i + 4);
      if (end == std::string_view::npos) return {};
      i = end + 3;
    } else if (starts_with(rest, "<!")) {
      return "has a document type declaration, which no workbook part has (refused: entity "
             "definitions are how XML bombs grow)";
    } else {
      break;
    }
  }
  size_t end = text.size();
  while (end > i && blank(text[end - 1])) --end;
  if (end > i && text[end - 1] != '>')
    return "is not well-formed XML (text after the root element)";
  return {};
}

struct MainType {
  std::string_view content_type;
  PackageKind kind;
};
constexpr MainType kWorkbookTypes[] = {
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml",
     PackageKind::Workbook},
    {"application/vnd.ms-excel.sheet.macroEnabled.main+xml", PackageKind::MacroWorkbook},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.template.main+xml",
     PackageKind::Template},
    {"application/vnd.ms-excel.template.macroEnabled.main+xml", PackageKind::MacroTemplate},
    {"application/vnd.ms-excel.addin.macroEnabled.main+xml", PackageKind::AddIn},
};

}  // namespace

std::string_view Relationship::kind() const {
  std::string_view t = type;
  size_t slash = t.rfind('/');
  return slash == std::string_view::npos ? t : t.substr(slash + 1);
}

void parse_xml(std::string& text, pugi::xml_document& doc, const std::string& where) {
  if (std::string problem = prolog_problem(text); !problem.empty())
    throw Error(err::host_failure, where + " " + problem);
  // Comments and processing instructions are kept: a patched part writes them back.
  unsigned options = pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata_single |
                     pugi::parse_comments | pugi::parse_pi;
  auto r = doc.load_buffer_inplace(text.data(), text.size(), options);
  if (!r)
    throw Error(err::host_failure, where + " is not well-formed XML (" + r.description() +
                                       " at byte " + std::to_string(r.offset) + ")");
  // The parser tolerates stray text and several elements at the top; XML does not, and a
  // part with them was damaged or made by something we should not trust to mean one thing.
  int roots = 0;
  for (pugi::xml_node n : doc.children()) {
    if (n.type() == pugi::node_element) ++roots;
    if (n.type() == pugi::node_pcdata || n.type() == pugi::node_cdata)
      throw Error(err::host_failure,
                  where + " is not well-formed XML (text outside the root element)");
  }
  if (roots != 1)
    throw Error(err::host_failure, where + " is not well-formed XML (" +
                                       (roots ? "more than one root element" : "no root element") +
                                       ")");
}

void Package::fail(const std::string& problem) const {
  throw Error(err::host_failure, "cannot open '" + display_name() + "': " + problem);
}

Package Package::open(const std::filesystem::path& path, const ZipLimits& limits) {
  Package p(ZipReader::open(path, limits));
  p.check();
  return p;
}

Package Package::from_bytes(std::string bytes, std::string display_name, const ZipLimits& limits) {
  Package p(ZipReader::from_bytes(std::move(bytes), std::move(display_name), limits));
  p.check();
  return p;
}

bool Package::has_part(std::string_view part) const {
  return zip_.find(part) != nullptr;
}

std::string Package::read_part(std::string_view part) const {
  const ZipEntry* e = zip_.find(part);
  if (!e) fail("part '" + std::string(part) + "' is missing");
  return zip_.read(*e);
}

void Package::parse_part(std::string_view part, std::string& text, pugi::xml_document& doc) const {
  text = read_part(part);
  parse_xml(text, doc, "cannot open '" + display_name() + "': part '" + std::string(part) + "'");
}

std::string Package::rels_part_for(std::string_view part) {
  size_t slash = part.rfind('/');
  if (slash == std::string_view::npos) return "_rels/" + std::string(part) + ".rels";
  return std::string(part.substr(0, slash + 1)) + "_rels/" + std::string(part.substr(slash + 1)) +
         ".rels";
}

std::string Package::resolve(std::string_view source, std::string_view target) {
  std::string t = percent_decode(target.substr(0, target.find('#')));
  std::vector<std::string> segs;
  if (t.empty() || t.front() != '/') {
    size_t slash = source.rfind('/');
    std::string_view dir = slash == std::string_view::npos ? "" : source.substr(0, slash);
    size_t start = 0;
    while (start < dir.size()) {
      size_t end = dir.find('/', start);
      if (end == std::string_view::npos) end = dir.size();
      segs.emplace_back(dir.substr(start, end - start));
      start = end + 1;
    }
  }
  size_t start = 0;
  while (start <= t.size()) {
    size_t end = t.find('/', start);
    if (end == std::string::npos) end = t.size();
    std::string seg = t.substr(start, end - start);
    if (seg == "..") {
      if (segs.empty()) return {};
      segs.pop_back();
    } else if (!seg.empty() && seg != ".") {
      segs.push_back(std::move(seg));
    }
    start = end + 1;
  }
  std::string out;
  for (const auto& s : segs) {
    if (!out.empty()) out += '/';
    out += s;
  }
  return out;
}

std::string Package::content_type(std::string_view part) const {
  for (const auto& [name, type] : overrides_)
    if (iequals(name, part)) return type;
  size_t dot = part.rfind('.');
  size_t slash = part.rfind('/');
  if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash)) {
    std::string_view ext = part.substr(dot + 1);
    for (const auto& [e, type] : defaults_)
      if (iequals(e, ext)) return type;
  }
  return {};
}

std::vector<Relationship> Package::relationships(std::string_view part) const {
  std::vector<Relationship> out;
  std::string rels = rels_part_for(part);
  if (!has_part(rels)) return out;
  std::string text;
  pugi::xml_document doc;
  parse_part(rels, text, doc);
  for (pugi::xml_node n : doc.document_element().children()) {
    if (local_name(n.name()) != "Relationship") continue;
    Relationship r;
    r.id = n.attribute("Id").value();
    r.type = n.attribute("Type").value();
    r.target = n.attribute("Target").value();
    r.external = iequals(n.attribute("TargetMode").value(), "External");
    if (!r.external) r.part = resolve(part, r.target);
    out.push_back(std::move(r));
  }
  return out;
}

void Package::check() {
  // Content types first: without them this is a zip file, not an Office package.
  if (!has_part("[Content_Types].xml"))
    fail("it is a zip file but not an Office package (no [Content_Types].xml)");
  {
    std::string text;
    pugi::xml_document doc;
    parse_part("[Content_Types].xml", text, doc);
    pugi::xml_node types = doc.document_element();
    if (local_name(types.name()) != "Types")
      fail("part '[Content_Types].xml' is not a content types part");
    for (pugi::xml_node n : types.children()) {
      std::string_view tag = local_name(n.name());
      if (tag == "Default") {
        defaults_.emplace_back(n.attribute("Extension").value(),
                               n.attribute("ContentType").value());
      } else if (tag == "Override") {
        std::string name = n.attribute("PartName").value();
        if (!name.empty() && name.front() == '/') name.erase(0, 1);
        overrides_.emplace_back(percent_decode(name), n.attribute("ContentType").value());
      }
    }
  }

  if (!has_part("_rels/.rels")) fail("it has no package relationships (_rels/.rels is missing)");
  const Relationship* main = nullptr;
  auto rels = relationships("");
  for (const auto& r : rels) {
    if (r.kind() != "officeDocument" || r.external) continue;
    main = &r;
    break;
  }
  if (!main) fail("it names no main document (no officeDocument relationship in _rels/.rels)");
  strict_ = starts_with(main->type, ns::rel_strict);
  if (main->part.empty()) fail("its main document target '" + main->target + "' is not a part");
  if (const ZipEntry* e = zip_.find(main->part)) {
    workbook_part_ = e->name;  // as stored, whatever case the relationship used
  } else {
    fail("its main document '" + main->part + "' is missing");
  }

  std::string type = content_type(workbook_part_);
  for (const auto& t : kWorkbookTypes) {
    if (type == t.content_type) {
      kind_ = t.kind;
      return;
    }
  }
  if (type.find("presentationml") != std::string::npos)
    fail("it is a presentation, not a workbook");
  if (type.find("wordprocessingml") != std::string::npos)
    fail("it is a word-processing document, not a workbook");
  if (type.find("sheet.binary") != std::string::npos)
    fail("it is a binary workbook (.xlsb), which is not supported");
  if (type.empty()) fail("its main document '" + workbook_part_ + "' has no content type");
  fail("its main document '" + workbook_part_ + "' is '" + type + "', not a workbook");
}

}  // namespace qz::engine::xlsx
