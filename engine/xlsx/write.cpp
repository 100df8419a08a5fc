// Saving the model as a package: the package writer the part writers share, the helpers they
// edit parts with, and the order a save runs them in (see writer.hpp).
#include <algorithm>
#include <set>

#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

namespace qz::engine::xlsx {

namespace fs = std::filesystem;

namespace {

constexpr const char* kRelPkg = "http://schemas.openxmlformats.org/package/2006/relationships";

struct StringWriter : pugi::xml_writer {
  std::string out;
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
};

void text_element(std::string& out, std::string_view tag, StringView text) {
  std::string utf8 = to_utf8(encode_escapes(text));
  bool keep_space =
      !utf8.empty() && (utf8.front() == ' ' || utf8.back() == ' ' || utf8.front() == '\t' ||
                        utf8.back() == '\n' || utf8.find("  ") != std::string::npos);
  out += '<';
  out += tag;
  if (keep_space) out += " xml:space=\"preserve\"";
  out += '>';
  append_escaped(out, utf8, false);
  out += "</";
  out += tag;
  out += '>';
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Editing parts as trees

std::string prefix_of(std::string_view qname) {
  size_t colon = qname.find(':');
  return colon == std::string_view::npos ? std::string() : std::string(qname.substr(0, colon + 1));
}

pugi::xml_node child(const pugi::xml_node& n, std::string_view tag) {
  for (pugi::xml_node c : n.children())
    if (c.type() == pugi::node_element && local_name(c.name()) == tag) return c;
  return {};
}

// The position of a child in its parent's schema order; unknown names sort with what
// precedes them (they stay where they are).
size_t order_of(const std::vector<std::string_view>& order, const pugi::xml_node& n) {
  std::string_view name = n.type() == pugi::node_pi ? "sheetData" : local_name(n.name());
  for (size_t i = 0; i < order.size(); ++i)
    if (order[i] == name) return i;
  return SIZE_MAX;
}

// The child `tag` of `parent`, created at its schema position when absent.
pugi::xml_node ensure_child(pugi::xml_node parent, std::string_view tag,
                            const std::vector<std::string_view>& order, bool* created) {
  if (pugi::xml_node c = child(parent, tag)) {
    if (created) *created = false;
    return c;
  }
  if (created) *created = true;
  size_t want = SIZE_MAX;
  for (size_t i = 0; i < order.size(); ++i)
    if (order[i] == tag) want = i;
  std::string name = prefix_of(parent.name()) + std::string(tag);
  for (pugi::xml_node c : parent.children()) {
    if (c.type() != pugi::node_element && c.type() != pugi::node_pi) continue;
    size_t o = order_of(order, c);
    if (o != SIZE_MAX && o > want) return parent.insert_child_before(name.c_str(), c);
  }
  return parent.append_child(name.c_str());
}

// Sets an attribute, reporting whether that changed anything.
bool set_attr(pugi::xml_node n, const char* name, std::string_view value) {
  pugi::xml_attribute a = n.attribute(name);
  if (a && value == a.value()) return false;
  if (!a) a = n.append_attribute(name);
  a.set_value(std::string(value).c_str());
  return true;
}

bool remove_attr(pugi::xml_node n, const char* name) {
  return n.remove_attribute(name);
}

// Gives every element of a fragment the prefix its new parent's vocabulary uses.
void apply_prefix(pugi::xml_node n, const std::string& prefix) {
  if (prefix.empty()) return;
  for (pugi::xml_node c = n; c;) {
    if (c.type() == pugi::node_element &&
        std::string_view(c.name()).find(':') == std::string_view::npos)
      c.set_name((prefix + c.name()).c_str());
    if (c.first_child()) {
      c = c.first_child();
    } else {
      while (c && !c.next_sibling() && c != n) c = c.parent();
      if (!c || c == n) break;
      c = c.next_sibling();
    }
  }
}

// Parses `xml` (one or more elements) and appends them to `parent`.
void append_fragment(pugi::xml_node parent, const std::string& xml) {
  pugi::xml_node last = parent.last_child();
  parent.append_buffer(xml.data(), xml.size(), pugi::parse_default | pugi::parse_ws_pcdata_single);
  std::string prefix = prefix_of(parent.name());
  for (pugi::xml_node c = last ? last.next_sibling() : parent.first_child(); c;
       c = c.next_sibling())
    apply_prefix(c, prefix);
}

std::string serialize(const pugi::xml_document& doc) {
  StringWriter w;
  bool has_decl = false;
  for (pugi::xml_node c : doc.children())
    if (c.type() == pugi::node_declaration) has_decl = true;
  if (!has_decl) w.out = kDecl;
  doc.save(w, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
  return w.out;
}

// <si>/<is> content: plain text, or runs with their fonts.
void append_rich(std::string& out, StringView text, const std::vector<Run>& runs) {
  if (runs.empty()) {
    text_element(out, "t", text);
    return;
  }
  if (runs.front().start > 0) {
    out += "<r>";
    text_element(out, "t", text.substr(0, runs.front().start));
    out += "</r>";
  }
  for (size_t i = 0; i < runs.size(); ++i) {
    size_t from = std::min<size_t>(runs[i].start, text.size());
    size_t to =
        i + 1 < runs.size() ? std::min<size_t>(runs[i + 1].start, text.size()) : text.size();
    if (to <= from) continue;
    out += "<r>";
    if (runs[i].font) {
      out += "<rPr>";
      append_font(out, *runs[i].font, true);
      out += "</rPr>";
    }
    text_element(out, "t", text.substr(from, to - from));
    out += "</r>";
  }
}

// A relationship target for `to` as seen from `from`: relative when it lies in from's folder
// or below, absolute otherwise.
std::string relative_target(const std::string& from, const std::string& to) {
  size_t slash = from.rfind('/');
  std::string dir = slash == std::string::npos ? "" : from.substr(0, slash + 1);
  if (to.compare(0, dir.size(), dir) == 0) return to.substr(dir.size());
  return "/" + to;
}

// A part beside `sibling` ("xl/workbook.xml" + "styles.xml" -> "xl/styles.xml").
std::string beside(const std::string& sibling, const std::string& name) {
  size_t slash = sibling.rfind('/');
  return (slash == std::string::npos ? "" : sibling.substr(0, slash + 1)) + name;
}

// ---------------------------------------------------------------------------------------------
// The package being written

PackageWriter::PackageWriter(Book& book, std::string target)
    : book(book),
      target(std::move(target)),
      state([&] {
        auto st = std::static_pointer_cast<BookState>(book.file_state);
        if (!st) {
          st = std::make_shared<BookState>();
          st->workbook_part = "xl/workbook.xml";
          // A new workbook: every style record and string is new to the file.
          book.file_state = st;
        }
        return st;
      }()),
      source(state->package) {
  types_text_ = source_text("[Content_Types].xml");
  if (types_text_.empty())
    types_text_ =
        "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
        "<Default Extension=\"rels\" "
        "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
        "<Default Extension=\"xml\" ContentType=\"application/xml\"/></Types>";
  parse("[Content_Types].xml", types_text_, types_);
}

std::string PackageWriter::source_text(const std::string& part) const {
  if (!source || !source->has_part(part)) return {};
  return source->read_part(part);
}

void PackageWriter::parse(const std::string& part, std::string& text,
                          pugi::xml_document& doc) const {
  parse_xml(text, doc, "cannot save '" + target + "': part '" + part + "'");
}

void PackageWriter::stream(const std::string& part, std::function<void(EntrySink&)> produce) {
  streams_[part] = std::move(produce);
  out_.erase(part);
}

void PackageWriter::drop(const std::string& part) {
  dropped_.insert(part);
  out_.erase(part);
  streams_.erase(part);
}

std::string PackageWriter::fresh_part(const std::string& stem, const std::string& ext) {
  // Sheets are numbered from 1; other parts try their plain name first.
  bool numbered = stem.ends_with("sheet");
  for (int i = numbered ? 1 : 0;; ++i) {
    std::string p = stem + (i ? std::to_string(i) : std::string()) + ext;
    bool taken =
        (source && source->has_part(p) && !dropped_.count(p)) || out_.count(p) || streams_.count(p);
    if (!taken) return p;
  }
}

PackageWriter::Rels& PackageWriter::rels_of(const std::string& source_part) {
  std::string part = Package::rels_part_for(source_part);
  auto& slot = rels_[part];
  if (!slot) {
    slot = std::make_unique<Rels>();
    slot->part = part;
    slot->text = source_text(part);
    if (slot->text.empty()) {
      slot->text = std::string("<Relationships xmlns=\"") + kRelPkg + "\"/>";
      slot->dirty = false;
    }
    parse(part, slot->text, slot->doc);
  }
  return *slot;
}

std::string PackageWriter::add_rel(const std::string& source_part, const std::string& type,
                                   const std::string& target_part, bool external) {
  Rels& r = rels_of(source_part);
  pugi::xml_node root = r.doc.document_element();
  std::set<std::string> ids;
  for (pugi::xml_node n : root.children()) ids.insert(n.attribute("Id").value());
  std::string id;
  for (int i = 1;; ++i) {
    id = "rId" + std::to_string(i);
    if (!ids.count(id)) break;
  }
  pugi::xml_node n = root.append_child((prefix_of(root.name()) + "Relationship").c_str());
  n.append_attribute("Id").set_value(id.c_str());
  n.append_attribute("Type").set_value(type.c_str());
  n.append_attribute("Target").set_value(target_part.c_str());
  if (external) n.append_attribute("TargetMode").set_value("External");
  r.dirty = true;
  return id;
}

void PackageWriter::remove_rel(const std::string& source_part, const std::string& id) {
  Rels& r = rels_of(source_part);
  pugi::xml_node root = r.doc.document_element();
  for (pugi::xml_node n : root.children())
    if (id == n.attribute("Id").value()) {
      root.remove_child(n);
      r.dirty = true;
      return;
    }
}

void PackageWriter::set_content_type(const std::string& part, const std::string& type) {
  pugi::xml_node root = types_.document_element();
  for (pugi::xml_node n : root.children()) {
    std::string_view name = n.attribute("PartName").value();
    if (!name.empty() && name.substr(1) == part) {
      types_dirty_ |= set_attr(n, "ContentType", type);
      return;
    }
  }
  pugi::xml_node n = root.append_child((prefix_of(root.name()) + "Override").c_str());
  n.append_attribute("PartName").set_value(("/" + part).c_str());
  n.append_attribute("ContentType").set_value(type.c_str());
  types_dirty_ = true;
}

void PackageWriter::remove_content_type(const std::string& part) {
  pugi::xml_node root = types_.document_element();
  for (pugi::xml_node n : root.children()) {
    std::string_view name = n.attribute("PartName").value();
    if (!name.empty() && name.substr(1) == part) {
      root.remove_child(n);
      types_dirty_ = true;
      return;
    }
  }
}

void PackageWriter::write(const fs::path& path, int level) {
  for (auto& [part, r] : rels_)
    if (r->dirty) {
      put(part, serialize(r->doc));
      if (!in_source(part)) new_order_.push_back(part);
    }
  if (types_dirty_) put("[Content_Types].xml", serialize(types_));

  // Write: the package's entries in their order (replaced, copied or left out), then new parts.
  ZipWriter w(path, level);
  std::set<std::string> written;
  // Writes a part the save produced; false when it produced none under that name.
  auto write_new = [&](const std::string& part, const ZipEntry* like) {
    if (auto it = out_.find(part); it != out_.end())
      w.add(part, it->second, like);
    else if (auto st = streams_.find(part); st != streams_.end())
      w.add_stream(part, st->second, like);
    else
      return false;
    written.insert(part);
    return true;
  };
  if (source) {
    for (const ZipEntry& e : source->zip().entries()) {
      if (dropped_.count(e.name)) continue;
      if (!write_new(e.name, &e)) {
        w.copy(source->zip(), e);
        written.insert(e.name);
      }
    }
  }
  for (const auto& part : new_order_)
    if (!written.count(part)) write_new(part, nullptr);
  for (const auto& [part, content] : out_)
    if (!written.count(part)) write_new(part, nullptr);
  for (const auto& [part, produce] : streams_)
    if (!written.count(part)) write_new(part, nullptr);
  w.commit();
}

// ---------------------------------------------------------------------------------------------
// The save

namespace {

// Whether formulas were added or removed since loading (or the last save).
bool formulas_changed(const Book& book, const BookState& state) {
  for (auto& sp : book.sheets) {
    const Sheet& s = *sp;
    auto ss = std::static_pointer_cast<SheetState>(s.file_state);
    size_t live = 0;
    for (const FormulaCell& f : s.formulas) {
      if (!f.live) continue;
      ++live;
      if (!f.file) return true;
    }
    if (!ss || live != ss->formulas) return true;
  }
  // Sheets deleted since loading may have taken formulas others depended on.
  return state.sheets_loaded != book.sheets.size();
}

}  // namespace

void save(Book& book, const fs::path& path, const SaveOptions& options) {
  PackageWriter w(book, path.string());
  BookState& st = *w.state;
  if (!w.source) {
    // The package relationships and the workbook's content type of a new workbook.
    w.add_rel("", std::string(kRelDoc) + "/officeDocument", st.workbook_part, false);
    w.set_content_type(
        st.workbook_part,
        book.has_vba
            ? "application/vnd.ms-excel.sheet.macroEnabled.main+xml"
            : "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml");
    w.add_new("[Content_Types].xml");
    w.add_new("_rels/.rels");
    w.add_new(st.workbook_part);
  }

  const bool formulas_differ = formulas_changed(book, st);
  const SharedStrings strings = write_strings(w);  // decides the indices sheets refer to
  SheetWriter sheets(w, strings);
  sheets.write();
  write_workbook(w, formulas_differ);
  write_styles(w);
  write_custom_props(w);

  if (formulas_differ) {
    // The calculation chain lists formula cells in the order they were last computed; with
    // formulas added or removed it is wrong, and the application rebuilds it when it is gone.
    for (const auto& r :
         w.source ? w.source->relationships(st.workbook_part) : std::vector<Relationship>{})
      if (r.kind() == "calcChain" && !r.external) {
        w.drop(r.part);
        w.remove_rel(st.workbook_part, r.id);
        w.remove_content_type(r.part);
      }
  }

  w.write(path, options.level);

  // The saved file is now the workbook's package: later saves copy from it.
  st.package = std::make_shared<const Package>(Package::open(path));
  const StyleTable& tables = book.styles;
  st.in_file = st.in_model = {tables.fonts.size(), tables.fills.size(), tables.borders.size(),
                              tables.xfs.size()};
  for (const auto& [id, code] : book.styles.numfmts) st.numfmt_ids.insert(id);
  st.palette = book.palette;
  for (uint32_t i : strings.appended) st.appended_strings[i] = strings.index.at(i);
  st.strings_in_file += strings.appended.size();
  st.props = book.props;
  st.sheets_loaded = book.sheets.size();
  sheets.rebase();
  book.loaded();
}

}  // namespace qz::engine::xlsx
