// Saving the model as a package. The package the workbook came from is the starting point:
// each part the engine did not change is copied as it was compressed, and each changed part
// is patched — its tree edited where the model differs, its cell data regenerated — so what
// the engine does not model stays as the file had it.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>

#include "engine/calc/calc.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/read.hpp"
#include "engine/xlsx/state.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

namespace qz::engine::xlsx {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDecl = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
constexpr const char* kRelPkg = "http://schemas.openxmlformats.org/package/2006/relationships";
constexpr const char* kRelDoc =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
constexpr const char* kCtWorksheet =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml";
constexpr const char* kCtStrings =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml";
constexpr const char* kCtStyles =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.styles+xml";
constexpr const char* kCtCustom =
    "application/vnd.openxmlformats-officedocument.custom-properties+xml";

// The order of a worksheet's children; new elements go where the schema wants them.
const std::vector<std::string_view> kSheetOrder = {"sheetPr",
                                                   "dimension",
                                                   "sheetViews",
                                                   "sheetFormatPr",
                                                   "cols",
                                                   "sheetData",
                                                   "sheetCalcPr",
                                                   "sheetProtection",
                                                   "protectedRanges",
                                                   "scenarios",
                                                   "autoFilter",
                                                   "sortState",
                                                   "dataConsolidate",
                                                   "customSheetViews",
                                                   "mergeCells",
                                                   "phoneticPr",
                                                   "conditionalFormatting",
                                                   "dataValidations",
                                                   "hyperlinks",
                                                   "printOptions",
                                                   "pageMargins",
                                                   "pageSetup",
                                                   "headerFooter",
                                                   "rowBreaks",
                                                   "colBreaks",
                                                   "customProperties",
                                                   "cellWatches",
                                                   "ignoredErrors",
                                                   "smartTags",
                                                   "drawing",
                                                   "legacyDrawing",
                                                   "legacyDrawingHF",
                                                   "drawingHF",
                                                   "picture",
                                                   "oleObjects",
                                                   "controls",
                                                   "webPublishItems",
                                                   "tableParts",
                                                   "extLst"};
const std::vector<std::string_view> kWorkbookOrder = {
    "fileVersion",    "fileSharing",         "workbookPr",     "AlternateContent",
    "revisionPtr",    "workbookProtection",  "bookViews",      "sheets",
    "functionGroups", "externalReferences",  "definedNames",   "calcPr",
    "oleSize",        "customWorkbookViews", "pivotCaches",    "smartTagPr",
    "smartTagTypes",  "webPublishing",       "fileRecoveryPr", "webPublishObjects",
    "extLst"};
const std::vector<std::string_view> kStylesOrder = {
    "numFmts",    "fonts", "fills",       "borders", "cellStyleXfs", "cellXfs",
    "cellStyles", "dxfs",  "tableStyles", "colors",  "extLst"};

// A placeholder the cell data is spliced in for after the rest of the sheet is serialised.
constexpr std::string_view kDataMark = "<?qzxl-sheet-data?>";

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
                            const std::vector<std::string_view>& order, bool* created = nullptr) {
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

struct StringWriter : pugi::xml_writer {
  std::string out;
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
};

std::string serialize(const pugi::xml_document& doc) {
  StringWriter w;
  bool has_decl = false;
  for (pugi::xml_node c : doc.children())
    if (c.type() == pugi::node_declaration) has_decl = true;
  if (!has_decl) w.out = kDecl;
  doc.save(w, "", pugi::format_raw | pugi::format_no_declaration, pugi::encoding_utf8);
  return w.out;
}

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

const char* halign_name(HAlign h) {
  switch (h) {
    case HAlign::General:
      return "general";
    case HAlign::Left:
      return "left";
    case HAlign::Center:
      return "center";
    case HAlign::Right:
      return "right";
    case HAlign::Fill:
      return "fill";
    case HAlign::Justify:
      return "justify";
    case HAlign::CenterContinuous:
      return "centerContinuous";
    case HAlign::Distributed:
      return "distributed";
  }
  return "general";
}

bool same_line(const LineInfo& a, const LineInfo& b) {
  return a.size == b.size && a.hidden == b.hidden && a.outline_level == b.outline_level &&
         a.collapsed == b.collapsed && a.has_style == b.has_style && a.style == b.style &&
         a.custom_size == b.custom_size && a.attrs == b.attrs;
}

double step_double(const Variant& v) {
  try {
    return qz::to_double(v);
  } catch (const Error&) {
    return 0;
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

std::string filetime_text(double automation) {
  // Days since 30 December 1899 -> civil date (inverse of the reader's conversion).
  double whole = std::floor(automation);
  long days = static_cast<long>(whole) - 25569 + 719468;
  long era = (days >= 0 ? days : days - 146096) / 146097;
  unsigned doe = static_cast<unsigned>(days - era * 146097);
  unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  long y = static_cast<long>(yoe) + era * 400;
  unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  unsigned mp = (5 * doy + 2) / 153;
  unsigned d = doy - (153 * mp + 2) / 5 + 1;
  unsigned m = mp < 10 ? mp + 3 : mp - 9;
  y += m <= 2;
  long secs = std::lround((automation - whole) * 86400);
  if (secs >= 86400) secs = 86399;
  char buf[96];
  std::snprintf(buf, sizeof buf, "%04ld-%02u-%02uT%02ld:%02ld:%02ldZ", y, m, d, secs / 3600,
                (secs / 60) % 60, secs % 60);
  return buf;
}

}  // namespace

// ---------------------------------------------------------------------------------------------

class Saver {
 public:
  Saver(Book& book, const SaveOptions& options) : book_(book), options_(options) {}
  void run(const fs::path& path);

 private:
  // A part's text as the package has it, or empty when it has no such part.
  std::string source_text(const std::string& part) const {
    if (!pkg_ || !pkg_->has_part(part)) return {};
    return pkg_->read_part(part);
  }
  void parse(const std::string& part, std::string& text, pugi::xml_document& doc) const {
    parse_xml(text, doc, "cannot save '" + target_ + "': part '" + part + "'");
  }
  void put(const std::string& part, std::string content) { out_[part] = std::move(content); }
  void drop(const std::string& part) {
    dropped_.insert(part);
    out_.erase(part);
    streams_.erase(part);
  }
  std::string fresh_part(const std::string& stem, const std::string& ext);

  // Relationships and content types, edited in memory and written if they changed.
  struct Rels {
    std::string part;
    std::string text;
    pugi::xml_document doc;
    bool dirty = false;
  };
  Rels& rels_of(const std::string& source);
  std::string add_rel(const std::string& source, const std::string& type, const std::string& target,
                      bool external);
  void remove_rel(const std::string& source, const std::string& id);
  void set_content_type(const std::string& part, const std::string& type);
  void remove_content_type(const std::string& part);

  bool formulas_changed();
  void write_sheets();
  void write_sheet(Sheet& s, SheetState& ss, bool is_new);
  void sheet_data(Sheet& s, SheetState& ss, EntrySink& sink);
  void patch_skeleton(pugi::xml_document& doc, Sheet& s, SheetState& ss, bool is_new);
  void write_hyperlinks(pugi::xml_node ws, Sheet& s, SheetState& ss);
  void write_drawing_names(Sheet& s, SheetState& ss);
  void write_workbook();
  void write_styles();
  void write_strings();
  void write_custom_props();
  void rebase(const fs::path& path);

  Book& book_;
  SaveOptions options_;
  std::string target_;
  std::shared_ptr<BookState> st_;
  std::shared_ptr<const Package> pkg_;
  std::map<std::string, std::string> out_;
  std::set<std::string> dropped_;
  std::vector<std::string> new_order_;  // parts the package did not have, in writing order
  std::map<std::string, std::unique_ptr<Rels>> rels_;
  std::string types_text_;
  pugi::xml_document types_;
  bool types_dirty_ = false;
  bool formulas_changed_ = false;
  std::map<uint32_t, uint32_t> sst_index_;  // pool index -> shared string index, for new strings
  std::vector<uint32_t> appended_strings_;
  // Formula cells written from the model: after the save they carry what the file now has.
  std::vector<std::tuple<Sheet*, uint32_t, std::unique_ptr<FileFormula>>> written_formulas_;
  // Worksheets written as they are deflated, by part.
  std::map<std::string, std::function<void(EntrySink&)>> streams_;
  // What a sheet's state becomes once the save is complete: the part's text around the cell
  // data, and where the cell data lies.
  struct Rebased {
    std::string head, tail;
    size_t begin = 0, end = 0;
  };
  std::map<Sheet*, Rebased> rebased_;
};

std::string Saver::fresh_part(const std::string& stem, const std::string& ext) {
  // Sheets are numbered from 1; other parts try their plain name first.
  bool numbered = stem.ends_with("sheet");
  for (int i = numbered ? 1 : 0;; ++i) {
    std::string p = stem + (i ? std::to_string(i) : std::string()) + ext;
    bool taken =
        (pkg_ && pkg_->has_part(p) && !dropped_.count(p)) || out_.count(p) || streams_.count(p);
    if (!taken) return p;
  }
}

Saver::Rels& Saver::rels_of(const std::string& source) {
  std::string part = Package::rels_part_for(source);
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

std::string Saver::add_rel(const std::string& source, const std::string& type,
                           const std::string& target, bool external) {
  Rels& r = rels_of(source);
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
  n.append_attribute("Target").set_value(target.c_str());
  if (external) n.append_attribute("TargetMode").set_value("External");
  r.dirty = true;
  return id;
}

void Saver::remove_rel(const std::string& source, const std::string& id) {
  Rels& r = rels_of(source);
  pugi::xml_node root = r.doc.document_element();
  for (pugi::xml_node n : root.children())
    if (id == n.attribute("Id").value()) {
      root.remove_child(n);
      r.dirty = true;
      return;
    }
}

void Saver::set_content_type(const std::string& part, const std::string& type) {
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

void Saver::remove_content_type(const std::string& part) {
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

// ---------------------------------------------------------------------------------------------

bool Saver::formulas_changed() {
  for (auto& sp : book_.sheets) {
    Sheet& s = *sp;
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
  return st_->sheets_loaded != book_.sheets.size();
}

void Saver::run(const fs::path& path) {
  target_ = path.string();
  st_ = std::static_pointer_cast<BookState>(book_.file_state);
  if (!st_) {
    st_ = std::make_shared<BookState>();
    st_->workbook_part = "xl/workbook.xml";
    // A new workbook: every style record and string is new to the file.
    book_.file_state = st_;
  }
  pkg_ = st_->package;

  types_text_ = source_text("[Content_Types].xml");
  if (types_text_.empty())
    types_text_ =
        "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
        "<Default Extension=\"rels\" "
        "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
        "<Default Extension=\"xml\" ContentType=\"application/xml\"/></Types>";
  parse("[Content_Types].xml", types_text_, types_);

  if (!pkg_) {
    // The package relationships and the workbook's content type of a new workbook.
    add_rel("", std::string(kRelDoc) + "/officeDocument", st_->workbook_part, false);
    set_content_type(
        st_->workbook_part,
        book_.has_vba
            ? "application/vnd.ms-excel.sheet.macroEnabled.main+xml"
            : "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml");
    new_order_.push_back("[Content_Types].xml");
    new_order_.push_back("_rels/.rels");
    new_order_.push_back(st_->workbook_part);
  }

  formulas_changed_ = formulas_changed();
  write_strings();  // decides the shared-string indices sheets refer to
  write_sheets();
  write_workbook();
  write_styles();
  write_custom_props();

  if (formulas_changed_) {
    // The calculation chain lists formula cells in the order they were last computed; with
    // formulas added or removed it is wrong, and the application rebuilds it when it is gone.
    for (const auto& r :
         pkg_ ? pkg_->relationships(st_->workbook_part) : std::vector<Relationship>{})
      if (r.kind() == "calcChain" && !r.external) {
        drop(r.part);
        remove_rel(st_->workbook_part, r.id);
        remove_content_type(r.part);
      }
  }

  for (auto& [part, r] : rels_)
    if (r->dirty) {
      put(part, serialize(r->doc));
      if (!pkg_ || !pkg_->has_part(part)) new_order_.push_back(part);
    }
  if (types_dirty_) put("[Content_Types].xml", serialize(types_));

  // Write: the package's entries in their order (replaced, copied or left out), then new parts.
  ZipWriter w(path, options_.level);
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
  if (pkg_) {
    for (const ZipEntry& e : pkg_->zip().entries()) {
      if (dropped_.count(e.name)) continue;
      if (!write_new(e.name, &e)) {
        w.copy(pkg_->zip(), e);
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
  rebase(path);
}

// --- shared strings ---------------------------------------------------------------------------

void Saver::write_strings() {
  StringPool& pool = book_.strings;
  uint32_t next = static_cast<uint32_t>(st_->strings_in_file);
  for (uint32_t i = static_cast<uint32_t>(st_->strings); i < pool.size(); ++i) {
    if (st_->inline_strings.count(i)) continue;
    if (auto it = st_->appended_strings.find(i); it != st_->appended_strings.end()) {
      sst_index_[i] = it->second;
      continue;
    }
    sst_index_[i] = next++;
    appended_strings_.push_back(i);
  }
  if (appended_strings_.empty()) return;

  std::string items;
  for (uint32_t i : appended_strings_) {
    items += "<si>";
    append_rich(items, pool.text(i), pool.runs(i));
    items += "</si>";
  }
  std::string part = st_->strings_part;
  std::string text = part.empty() ? std::string() : source_text(part);
  if (text.empty()) {
    if (part.empty()) {
      part = st_->strings_part = fresh_part(beside(st_->workbook_part, "sharedStrings"), ".xml");
      add_rel(st_->workbook_part, std::string(kRelDoc) + "/sharedStrings",
              relative_target(st_->workbook_part, part), false);
      set_content_type(part, kCtStrings);
    }
    text = std::string(kDecl) +
           "<sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"/>";
  }
  // Appending is a splice: the root's start tag gets new counts, the new items go before its
  // end tag, and every byte in between stays.
  XmlScanner x(text, "cannot save '" + target_ + "': part '" + part + "'");
  x.next();
  std::string root(x.name());
  size_t tag_begin = x.begin(), tag_end = x.end();
  bool empty_root = x.self_closing();
  std::string start = "<" + root;
  for (const auto& a : x.attrs()) {
    if (a.name == "count" || a.name == "uniqueCount") continue;
    start += " " + std::string(a.name) + "=\"" + std::string(a.value) + "\"";
  }
  start += " count=\"" + std::to_string(next) + "\" uniqueCount=\"" + std::to_string(next) + "\">";
  std::string result = text.substr(0, tag_begin) + start;
  if (empty_root) {
    result += items + "</" + root + ">" + text.substr(tag_end);
  } else {
    size_t close = text.rfind("</" + root);
    if (close == std::string::npos || close < tag_end)
      throw Error(err::host_failure,
                  "cannot save '" + target_ + "': part '" + part + "' has no end");
    result += text.substr(tag_end, close - tag_end) + items + text.substr(close);
  }
  put(part, std::move(result));
  if (!pkg_ || !pkg_->has_part(part)) new_order_.push_back(part);
}

// --- worksheets -------------------------------------------------------------------------------

void Saver::write_sheets() {
  std::set<std::string> kept;
  for (auto& sp : book_.sheets) {
    Sheet& s = *sp;
    auto ss = std::static_pointer_cast<SheetState>(s.file_state);
    bool is_new = !ss;
    if (is_new) {
      ss = std::make_shared<SheetState>();
      s.file_state = ss;
      ss->part = fresh_part(beside(st_->workbook_part, "worksheets/sheet"), ".xml");
      ss->root = "worksheet";
      ss->rel_id = add_rel(st_->workbook_part, std::string(kRelDoc) + "/worksheet",
                           relative_target(st_->workbook_part, ss->part), false);
      set_content_type(ss->part, kCtWorksheet);
      new_order_.push_back(ss->part);
    }
    kept.insert(ss->part);
    if (s.kind == SheetKind::Chart && !is_new) continue;  // chart sheet parts are kept whole
    if (is_new || s.changed.any()) write_sheet(s, *ss, is_new);
    if (!is_new && s.changed.sheet) write_drawing_names(s, *ss);
  }
  // Sheets deleted since loading: their parts go, with their relationships.
  for (const auto& old : st_->sheet_parts) {
    if (kept.count(old.second)) continue;
    drop(old.second);
    drop(Package::rels_part_for(old.second));
    remove_rel(st_->workbook_part, old.first);
    remove_content_type(old.second);
  }
}

void Saver::write_sheet(Sheet& s, SheetState& ss, bool is_new) {
  if (is_new || (ss.head.empty() && ss.tail.empty())) {
    ss.head = std::string(kDecl) +
              "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
              "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">";
    ss.tail = "</worksheet>";
    ss.data_begin = ss.data_end = std::string::npos;
    is_new = true;
  }
  // The skeleton: the part with its cell data taken out, small enough to edit as a tree.
  bool had_data = ss.data_begin != std::string::npos;
  std::string skeleton = ss.head;
  if (had_data) {
    skeleton += kDataMark;
    skeleton += ss.tail;
  } else {
    skeleton += ss.tail;
  }
  pugi::xml_document doc;
  parse(ss.part, skeleton, doc);
  pugi::xml_node ws = doc.document_element();
  if (!had_data) {
    // A worksheet without cell data: the placeholder goes where <sheetData> belongs.
    pugi::xml_node before;
    for (pugi::xml_node c : ws.children())
      if (c.type() == pugi::node_element && order_of(kSheetOrder, c) != SIZE_MAX &&
          order_of(kSheetOrder, c) > 5) {
        before = c;
        break;
      }
    pugi::xml_node pi =
        before ? ws.insert_child_before(pugi::node_pi, before) : ws.append_child(pugi::node_pi);
    pi.set_name("qzxl-sheet-data");
  }
  patch_skeleton(doc, s, ss, is_new);
  std::string out = serialize(doc);
  size_t mark = out.find(kDataMark);
  if (mark == std::string::npos)
    throw Error(err::host_failure,
                "cannot save '" + target_ + "': lost the cell data of '" + ss.part + "'");
  auto before = std::make_shared<std::string>(out.substr(0, mark));
  auto after = std::make_shared<std::string>(out.substr(mark + kDataMark.size()));

  if (!(s.changed.cells || s.changed.layout || is_new || !had_data)) {
    // Only the skeleton changed: the cell data goes back as the part had it.
    std::string text = source_text(ss.part);
    std::string result = *before;
    result.append(text, ss.data_begin, ss.data_end - ss.data_begin);
    rebased_[&s] = {*before, *after, before->size(), result.size()};
    result += *after;
    put(ss.part, std::move(result));
    return;
  }
  // The cell data is written as the part is deflated, a row at a time.
  streams_[ss.part] = [this, &s, &ss, before, after](EntrySink& sink) {
    sink.text += *before;
    size_t from = sink.total();
    sheet_data(s, ss, sink);
    size_t to = sink.total();
    sink.text += *after;
    rebased_[&s] = {*before, *after, from, to};
  };
  out_.erase(ss.part);
}

void Saver::patch_skeleton(pugi::xml_document& doc, Sheet& s, SheetState& ss, bool is_new) {
  pugi::xml_node ws = doc.document_element();
  std::string p = prefix_of(ws.name());

  // Code name.
  {
    pugi::xml_node pr = child(ws, "sheetPr");
    std::string code = to_utf8(s.code_name);
    if (!code.empty())
      set_attr(ensure_child(ws, "sheetPr", kSheetOrder), "codeName", code);
    else if (pr)
      remove_attr(pr, "codeName");
  }
  // The used area.
  {
    auto ext = s.cells.extent();
    std::string ref = ext ? ref_text(*ext) : "A1";
    set_attr(ensure_child(ws, "dimension", kSheetOrder), "ref", ref);
  }
  // Selection: written when it differs from what the part says.
  {
    std::string sqref;
    for (const Rect& r : s.selection.areas) {
      if (!sqref.empty()) sqref += ' ';
      sqref += ref_text(r);
    }
    std::string active = cell_text(s.selection.active.row, s.selection.active.col);
    pugi::xml_node views = child(ws, "sheetViews");
    bool default_sel = sqref == "A1" && active == "A1";
    if (!views && (!default_sel || is_new)) {
      views = ensure_child(ws, "sheetViews", kSheetOrder);
      pugi::xml_node v = views.append_child((p + "sheetView").c_str());
      v.append_attribute("workbookViewId").set_value("0");
    }
    if (pugi::xml_node view = child(views, "sheetView")) {
      std::string active_pane;
      if (pugi::xml_node pane = child(view, "pane"))
        active_pane = pane.attribute("activePane").value();
      pugi::xml_node target;
      for (pugi::xml_node c : view.children()) {
        if (local_name(c.name()) != "selection") continue;
        std::string pane = c.attribute("pane").value();
        if (pane.empty()) pane = "topLeft";
        if (active_pane.empty() ? !target : pane == active_pane) target = c;
      }
      if (!target && !default_sel) target = view.append_child((p + "selection").c_str());
      if (target) {
        set_attr(target, "activeCell", active);
        set_attr(target, "sqref", sqref);
      }
    }
  }
  // Default row height and column width.
  {
    pugi::xml_node fmt = child(ws, "sheetFormatPr");
    if (!fmt) fmt = ensure_child(ws, "sheetFormatPr", kSheetOrder);
    auto current = parse_double(fmt.attribute("defaultRowHeight").value());
    if (!current || *current != s.default_row_height)
      set_attr(fmt, "defaultRowHeight", double_text(s.default_row_height));
    if (pugi::xml_attribute w = fmt.attribute("defaultColWidth")) {
      if (parse_double(w.value()) != s.default_col_width)
        w.set_value(double_text(s.default_col_width).c_str());
    } else if (s.default_col_width != 8.43) {
      set_attr(fmt, "defaultColWidth", double_text(s.default_col_width));
    }
  }
  // Columns: consecutive columns with equal properties make one <col>.
  {
    std::string xml;
    auto it = s.cols.begin();
    while (it != s.cols.end()) {
      auto first = it;
      int32_t last = it->first;
      ++it;
      while (it != s.cols.end() && it->first == last + 1 && same_line(it->second, first->second)) {
        last = it->first;
        ++it;
      }
      const LineInfo& li = first->second;
      if (li.is_default() && !li.custom_size) continue;
      xml += "<col min=\"" + std::to_string(first->first + 1) + "\" max=\"" +
             std::to_string(last + 1) + "\"";
      xml += " width=\"" + double_text(li.size >= 0 ? li.size : s.default_col_width) + "\"";
      if (li.has_style) xml += " style=\"" + std::to_string(li.style) + "\"";
      if (li.hidden) xml += " hidden=\"1\"";
      for (const auto& [n, v] : li.attrs) {
        xml += " " + to_utf8(n) + "=\"";
        append_escaped(xml, to_utf8(v), true);
        xml += "\"";
      }
      if (li.custom_size) xml += " customWidth=\"1\"";
      if (li.outline_level) xml += " outlineLevel=\"" + std::to_string(li.outline_level) + "\"";
      if (li.collapsed) xml += " collapsed=\"1\"";
      xml += "/>";
    }
    pugi::xml_node cols = child(ws, "cols");
    if (xml.empty()) {
      if (cols) ws.remove_child(cols);
    } else {
      cols = ensure_child(ws, "cols", kSheetOrder);
      while (cols.first_child()) cols.remove_child(cols.first_child());
      append_fragment(cols, xml);
    }
  }
  // Merged areas.
  {
    pugi::xml_node mc = child(ws, "mergeCells");
    if (s.merged.empty()) {
      if (mc) ws.remove_child(mc);
    } else {
      mc = ensure_child(ws, "mergeCells", kSheetOrder);
      while (mc.first_child()) mc.remove_child(mc.first_child());
      std::string xml;
      for (const Rect& r : s.merged) xml += "<mergeCell ref=\"" + ref_text(r) + "\"/>";
      append_fragment(mc, xml);
      set_attr(mc, "count", std::to_string(s.merged.size()));
    }
  }
  write_hyperlinks(ws, s, ss);
}

void Saver::write_hyperlinks(pugi::xml_node ws, Sheet& s, SheetState& ss) {
  pugi::xml_node hl = child(ws, "hyperlinks");
  std::set<std::string> used;
  std::string xml;
  std::string rprefix;
  // The prefix the part binds to the relationships namespace.
  for (pugi::xml_attribute a : ws.attributes()) {
    std::string_view n = a.name();
    std::string_view v = a.value();
    if (n.starts_with("xmlns:") && (v == ns::rel || v == ns::rel_strict))
      rprefix = std::string(n.substr(6));
  }
  for (HyperlinkRec& h : s.hyperlinks) {
    xml += "<hyperlink ref=\"" + ref_text(h.ref) + "\"";
    if (!h.address.empty()) {
      std::string target = to_utf8(h.address);
      std::string id = to_utf8(h.rel_id);
      auto it = ss.hyperlink_targets.find(id);
      if (id.empty() || it == ss.hyperlink_targets.end() || it->second != target ||
          used.count(id)) {
        id = add_rel(ss.part, std::string(kRelDoc) + "/hyperlink", target, true);
        ss.hyperlink_targets[id] = target;
        h.rel_id = from_utf8(id);
      }
      used.insert(id);
      if (rprefix.empty()) {
        rprefix = "r";
        ws.append_attribute("xmlns:r").set_value(kRelDoc);
      }
      xml += " " + rprefix + ":id=\"" + id + "\"";
    }
    auto attr = [&](const char* name, const String& v) {
      if (v.empty()) return;
      xml += std::string(" ") + name + "=\"";
      append_escaped(xml, to_utf8(v), true);
      xml += "\"";
    };
    attr("location", h.sub_address);
    attr("tooltip", h.screen_tip);
    attr("display", h.display);
    xml += "/>";
  }
  for (auto it = ss.hyperlink_targets.begin(); it != ss.hyperlink_targets.end();) {
    if (used.count(it->first)) {
      ++it;
      continue;
    }
    remove_rel(ss.part, it->first);
    it = ss.hyperlink_targets.erase(it);
  }
  if (xml.empty()) {
    if (hl) ws.remove_child(hl);
    return;
  }
  hl = ensure_child(ws, "hyperlinks", kSheetOrder);
  while (hl.first_child()) hl.remove_child(hl.first_child());
  append_fragment(hl, xml);
}

void Saver::write_drawing_names(Sheet& s, SheetState& ss) {
  if (ss.drawing_part.empty()) return;
  bool differs = false;
  for (const auto& c : s.chart_objects) {
    auto it = ss.chart_names.find(c.file_key);
    if (it != ss.chart_names.end() && it->second != c.name) differs = true;
  }
  if (!differs) return;
  std::string text = source_text(ss.drawing_part);
  pugi::xml_document doc;
  parse(ss.drawing_part, text, doc);
  std::map<String, String> wanted;
  for (const auto& c : s.chart_objects) wanted[c.file_key] = c.name;
  struct Walker : pugi::xml_tree_walker {
    std::map<String, String>* wanted;
    bool for_each(pugi::xml_node& n) override {
      if (local_name(n.name()) != "cNvPr") return true;
      if (local_name(n.parent().name()) != "nvGraphicFramePr") return true;
      auto it = wanted->find(from_utf8(n.attribute("id").value()));
      if (it != wanted->end()) set_attr(n, "name", to_utf8(it->second));
      return true;
    }
  } w;
  w.wanted = &wanted;
  doc.traverse(w);
  put(ss.drawing_part, serialize(doc));
  ss.chart_names = wanted;
}

namespace {

void append_uint(std::string& out, uint64_t n) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, n);
  out.append(buf, r.ptr);
}

// Appends UTF-16 text as escaped UTF-8. Formulas and attribute values are nearly always plain
// ASCII, which goes straight in without a converted copy.
void append_text16(std::string& out, const String& text, bool attribute) {
  for (char16_t c : text)
    if (c >= 0x80 || c == '&' || c == '<' || c == '>' || c == '\r' ||
        (attribute && (c == '"' || c == '\n' || c == '\t'))) {
      append_escaped(out, to_utf8(text), attribute);
      return;
    }
  size_t at = out.size();
  out.resize(at + text.size());
  for (char16_t c : text) out[at++] = static_cast<char>(c);
}

}  // namespace

void Saver::sheet_data(Sheet& s, SheetState& ss, EntrySink& sink) {
  std::string& out = sink.text;
  const std::string p = prefix_of(ss.root);
  // The tags, with the part's prefix, made once: a sheet can hold millions of them.
  const std::string row_tag = "<" + p + "row r=\"", row_end = "</" + p + "row>",
                    cell_tag = "<" + p + "c r=\"", cell_end = "</" + p + "c>",
                    v_open = "<" + p + "v>", v_close = "</" + p + "v>", f_open = "<" + p + "f",
                    f_close = "</" + p + "f>";
  out += "<" + p + "sheetData>";

  // Shared formulas whose master is still as loaded; children of any other group are written
  // as formulas of their own.
  std::set<int32_t> live_groups;
  for (const FormulaCell& f : s.formulas)
    if (f.live && f.file && f.file->type == FileFormula::Type::Shared && !f.file->text.empty())
      live_groups.insert(f.file->shared_index);

  const StringPool& pool = book_.strings;
  auto row_open = [&](int32_t row, const LineInfo* li, bool empty) {
    out += row_tag;
    append_uint(out, static_cast<uint64_t>(row) + 1);
    out += '"';
    if (li) {
      if (li->has_style) out += " s=\"" + std::to_string(li->style) + "\" customFormat=\"1\"";
      if (li->size >= 0) {
        out += " ht=\"";
        append_double(out, li->size);
        out += '"';
      }
      if (li->hidden) out += " hidden=\"1\"";
      if (li->custom_size) out += " customHeight=\"1\"";
      if (li->outline_level) out += " outlineLevel=\"" + std::to_string(li->outline_level) + "\"";
      if (li->collapsed) out += " collapsed=\"1\"";
      for (const auto& [n, v] : li->attrs) {
        out += ' ';
        out += to_utf8(n);
        out += "=\"";
        append_escaped(out, to_utf8(v), true);
        out += '"';
      }
    }
    out += empty ? "/>" : ">";
  };

  auto value_text = [&](const calc::Value& v, std::string& t, std::string& body) {
    switch (v.kind) {
      case calc::Value::Kind::Empty:
        return false;
      case calc::Value::Kind::Number:
        append_double(body, v.number);
        return true;
      case calc::Value::Kind::Boolean:
        t = "b";
        body = v.number != 0 ? "1" : "0";
        return true;
      case calc::Value::Kind::Error:
        t = "e";
        body = to_utf8(calc::error_text(v.error_code()));
        return true;
      case calc::Value::Kind::Text:
        t = "str";
        append_escaped(body, to_utf8(encode_escapes(v.text)), false);
        return true;
    }
    return false;
  };

  std::string cell_t, cell_body;
  // Most sheets keep no unmodelled cell attributes; then no cell needs looking up.
  const bool has_attrs = !ss.cell_attrs.empty();
  decltype(ss.cell_attrs)::const_iterator at;
  auto write_cell = [&](int32_t row, int32_t col, const Cell& c) {
    out += cell_tag;
    append_cell(out, row, col);
    out += '"';
    if (c.style()) {
      out += " s=\"";
      append_uint(out, c.style());
      out += '"';
    }
    auto extra = [&](const auto& attrs) {
      for (const auto& [n, v] : attrs) {
        out += ' ';
        if constexpr (std::is_same_v<std::decay_t<decltype(n)>, String>) {
          out += to_utf8(n);
          out += "=\"";
          append_escaped(out, to_utf8(v), true);
        } else {
          out += n;
          out += "=\"";
          append_escaped(out, v, true);
        }
        out += '"';
      }
    };
    switch (c.kind()) {
      case CellKind::Blank:
        if (has_attrs && (at = ss.cell_attrs.find({row, col})) != ss.cell_attrs.end())
          extra(at->second);
        out += "/>";
        return;
      case CellKind::Number:
        if (has_attrs && (at = ss.cell_attrs.find({row, col})) != ss.cell_attrs.end())
          extra(at->second);
        out += '>';
        out += v_open;
        append_double(out, c.num);
        out += v_close;
        out += cell_end;
        return;
      case CellKind::Boolean:
        out += " t=\"b\">";
        out += v_open;
        out += c.num != 0 ? '1' : '0';
        out += v_close;
        out += cell_end;
        return;
      case CellKind::Error:
        out += " t=\"e\">";
        out += v_open;
        out += to_utf8(calc::error_text(static_cast<int32_t>(c.num)));
        out += v_close;
        out += cell_end;
        return;
      case CellKind::Text: {
        if (has_attrs && (at = ss.cell_attrs.find({row, col})) != ss.cell_attrs.end())
          extra(at->second);
        uint32_t idx = c.index;
        auto shared = idx < st_->strings ? std::optional<uint32_t>(idx) : std::nullopt;
        if (!shared)
          if (auto it = sst_index_.find(idx); it != sst_index_.end()) shared = it->second;
        if (shared) {
          out += " t=\"s\">";
          out += v_open;
          append_uint(out, *shared);
          out += v_close;
          out += cell_end;
        } else {
          out += " t=\"inlineStr\"><" + p + "is>";
          std::string rich;
          append_rich(rich, pool.text(idx), pool.runs(idx));
          if (!p.empty()) {
            // Inline runs in a prefixed part take the part's prefix.
            std::string fixed;
            for (size_t i = 0; i < rich.size(); ++i) {
              fixed += rich[i];
              if (rich[i] == '<' && i + 1 < rich.size()) {
                if (rich[i + 1] == '/') {
                  fixed += '/';
                  ++i;
                }
                fixed += p;
              }
            }
            rich.swap(fixed);
          }
          out += rich;
          out += "</" + p + "is></" + p + "c>";
        }
        return;
      }
      case CellKind::Formula: {
        FormulaCell& f = s.formulas[c.index];
        cell_t.clear();
        cell_body.clear();
        bool has_value = value_text(f.value, cell_t, cell_body);
        if (f.file && f.file->rare) extra(f.file->rare->cell_attrs);
        if (!cell_t.empty()) {
          out += " t=\"";
          out += cell_t;
          out += '"';
        }
        out += '>';
        out += f_open;
        const FileFormula* ff = f.file.get();
        bool as_read = ff && !(ff->type == FileFormula::Type::Shared && ff->text.empty() &&
                               !live_groups.count(ff->shared_index));
        std::string ftext;
        if (as_read) {
          switch (ff->type) {
            case FileFormula::Type::None:
              break;
            case FileFormula::Type::Shared:
              out += " t=\"shared\"";
              break;
            case FileFormula::Type::Array:
              out += " t=\"array\"";
              break;
            default:
              if (String t = ff->type_text(); !t.empty()) {
                out += " t=\"";
                append_text16(out, t, true);
                out += '"';
              }
          }
          if (!ff->ref().empty()) {
            out += " ref=\"";
            append_text16(out, ff->ref(), true);
            out += '"';
          }
          if (ff->shared_index >= 0) {
            out += " si=\"";
            append_uint(out, static_cast<uint64_t>(ff->shared_index));
            out += '"';
          }
          if (ff->rare) extra(ff->rare->attrs);
          // The formula text as read goes straight in.
          if (ff->text.empty()) {
            out += "/>";
          } else {
            out += '>';
            append_escaped(out, ff->text, false);
            out += f_close;
          }
        } else {
          String text;
          if (const calc::Formula* parsed = book_.ensure_parsed(s, f))
            text = calc::render(*parsed, calc::Notation::A1, f.at, s.id, book_);
          else if (ff)
            text = ff->text16();
          auto written = std::make_unique<FileFormula>();
          ftext = to_utf8(text);
          written->text = ftext;
          if (f.array) {
            written->type = FileFormula::Type::Array;
            written->more().ref = from_utf8(ref_text(f.array_ref));
            out += " t=\"array\" ref=\"" + ref_text(f.array_ref) + "\"";
          }
          written_formulas_.emplace_back(&s, c.index, std::move(written));
          if (ftext.empty()) {
            out += "/>";
          } else {
            out += '>';
            append_escaped(out, ftext, false);
            out += f_close;
          }
        }
        if (has_value) {
          out += v_open;
          out += cell_body;
          out += v_close;
        }
        out += cell_end;
        return;
      }
    }
  };

  // Rows in order: the cell store's rows merged with rows that only have properties.
  auto line = s.rows.begin();
  int32_t open_row = -1;
  auto flush_lines_before = [&](int32_t row) {
    while (line != s.rows.end() && line->first < row) {
      if (!line->second.is_default() || line->second.custom_size)
        row_open(line->first, &line->second, true);
      ++line;
    }
  };
  if (s.cells.extent()) {
    s.cells.for_each_cell([&](int32_t row, int32_t col, const Cell& c) {
      if (row != open_row) {
        if (open_row >= 0) {
          out += row_end;
          // Between rows: a good place to hand a full buffer to the deflater.
          sink.flush_if_full();
        }
        flush_lines_before(row);
        const LineInfo* li = nullptr;
        if (line != s.rows.end() && line->first == row) {
          li = &line->second;
          ++line;
        }
        row_open(row, li, false);
        open_row = row;
      }
      write_cell(row, col, c);
    });
    if (open_row >= 0) out += row_end;
  }
  flush_lines_before(kLastRow + 1);
  out += "</" + p + "sheetData>";
}

// --- workbook part ------------------------------------------------------------------------------

void Saver::write_workbook() {
  const std::string& part = st_->workbook_part;
  std::string text = source_text(part);
  if (text.empty())
    text = std::string(kDecl) +
           "<workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
           "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
           "<workbookPr/><bookViews><workbookView/></bookViews><sheets/></workbook>";
  pugi::xml_document doc;
  parse(part, text, doc);
  pugi::xml_node wb = doc.document_element();
  std::string p = prefix_of(wb.name());
  bool dirty = !pkg_;

  std::string rprefix;
  for (pugi::xml_attribute a : wb.attributes()) {
    std::string_view n = a.name(), v = a.value();
    if (n.starts_with("xmlns:") && (v == ns::rel || v == ns::rel_strict))
      rprefix = std::string(n.substr(6));
  }
  if (rprefix.empty()) {
    rprefix = "r";
    wb.append_attribute("xmlns:r").set_value(kRelDoc);
  }

  // workbookPr: the date system and the VBA project's module name.
  {
    pugi::xml_node pr = child(wb, "workbookPr");
    bool file1904 = pr && parse_bool(pr.attribute("date1904").value(), false);
    if (file1904 != book_.date1904) {
      pr = ensure_child(wb, "workbookPr", kWorkbookOrder);
      if (book_.date1904)
        set_attr(pr, "date1904", "1");
      else
        remove_attr(pr, "date1904");
      dirty = true;
    }
    std::string code = to_utf8(book_.code_name);
    std::string file_code = pr ? pr.attribute("codeName").value() : "";
    if (code != file_code) {
      pr = ensure_child(wb, "workbookPr", kWorkbookOrder);
      if (code.empty())
        remove_attr(pr, "codeName");
      else
        set_attr(pr, "codeName", code);
      dirty = true;
    }
  }

  // Sheets, in tab order; existing elements keep their attributes.
  std::vector<SheetId> position;
  {
    pugi::xml_node sheets = ensure_child(wb, "sheets", kWorkbookOrder);
    std::map<std::string, pugi::xml_node> by_rid;
    std::vector<std::string> old_order;
    int64_t max_id = 0;
    std::set<std::string> known;
    for (const auto& sp : book_.sheets)
      known.insert(std::static_pointer_cast<SheetState>(sp->file_state)->rel_id);
    for (const auto& [rid, part] : st_->sheet_parts) known.insert(rid);
    std::vector<pugi::xml_node> orphans;  // entries without a part, kept after the others
    for (pugi::xml_node n : sheets.children()) {
      if (local_name(n.name()) != "sheet") continue;
      max_id = std::max<int64_t>(max_id, parse_int(n.attribute("sheetId").value()).value_or(0));
      std::string rid(rel_id_of(n));
      if (!known.count(rid)) {
        orphans.push_back(n);
        continue;
      }
      by_rid[rid] = n;
      old_order.push_back(rid);
    }
    std::vector<std::string> new_order;
    pugi::xml_document scratch;
    pugi::xml_node holder = scratch.append_child("holder");
    for (auto& sp : book_.sheets) {
      auto ss = std::static_pointer_cast<SheetState>(sp->file_state);
      position.push_back(sp->id);
      new_order.push_back(ss->rel_id);
      pugi::xml_node n;
      auto it = by_rid.find(ss->rel_id);
      if (it != by_rid.end()) {
        n = holder.append_copy(it->second);
      } else {
        n = holder.append_child((p + "sheet").c_str());
        n.append_attribute("name");
        if (ss->sheet_id.empty()) ss->sheet_id = std::to_string(++max_id);
        n.append_attribute("sheetId").set_value(ss->sheet_id.c_str());
        n.append_attribute((rprefix + ":id").c_str()).set_value(ss->rel_id.c_str());
        dirty = true;
      }
      dirty |= set_attr(n, "name", to_utf8(sp->name));
      std::string_view file_state = n.attribute("state").value();
      int32_t file_vis = file_state == "veryHidden" ? 2 : file_state == "hidden" ? 0 : -1;
      if (file_vis != sp->visibility) {
        const char* state = sp->visibility == 2   ? "veryHidden"
                            : sp->visibility == 0 ? "hidden"
                                                  : nullptr;
        if (state)
          set_attr(n, "state", state);
        else
          remove_attr(n, "state");
        dirty = true;
      }
    }
    for (pugi::xml_node n : orphans) holder.append_copy(n);
    if (new_order != old_order) dirty = true;
    while (sheets.first_child()) sheets.remove_child(sheets.first_child());
    for (pugi::xml_node n : holder.children()) sheets.append_copy(n);
  }

  // Windows: visibility, and the active sheet on the first.
  {
    pugi::xml_node views = child(wb, "bookViews");
    bool all_visible = std::all_of(book_.windows.begin(), book_.windows.end(),
                                   [](const WindowRec& w) { return w.visible; });
    if (!views && (book_.active_sheet != 0 || !all_visible || !pkg_)) {
      views = ensure_child(wb, "bookViews", kWorkbookOrder);
      dirty = true;
    }
    size_t i = 0;
    for (pugi::xml_node v : views.children()) {
      if (local_name(v.name()) != "workbookView") continue;
      if (i < book_.windows.size()) {
        bool file_visible = std::string_view(v.attribute("visibility").value()) != "hidden" &&
                            std::string_view(v.attribute("visibility").value()) != "veryHidden";
        if (file_visible != book_.windows[i].visible) {
          if (book_.windows[i].visible)
            remove_attr(v, "visibility");
          else
            set_attr(v, "visibility", "hidden");
          dirty = true;
        }
      }
      if (i == 0) {
        // The loader reads an active tab out of range as the nearest sheet.
        int64_t file_tab =
            std::clamp<int64_t>(parse_int(v.attribute("activeTab").value()).value_or(0), 0,
                                static_cast<int64_t>(book_.sheets.size()) - 1);
        if (file_tab != book_.active_sheet) {
          if (book_.active_sheet == 0)
            remove_attr(v, "activeTab");
          else
            set_attr(v, "activeTab", std::to_string(book_.active_sheet));
          dirty = true;
        }
        // A first visible sheet past the end would hide every tab.
        if (auto fs = parse_int(v.attribute("firstSheet").value());
            fs && *fs >= static_cast<int64_t>(book_.sheets.size())) {
          remove_attr(v, "firstSheet");
          dirty = true;
        }
      }
      ++i;
    }
    if (i == 0 && views) {
      pugi::xml_node v = views.append_child((p + "workbookView").c_str());
      if (book_.active_sheet) v.append_attribute("activeTab").set_value(book_.active_sheet);
      dirty = true;
    }
  }

  // Defined names: rebuilt when they differ from the part's.
  {
    std::string xml;
    for (const DefinedName& d : book_.names()) {
      xml += "<definedName name=\"";
      append_escaped(xml, to_utf8(d.name), true);
      xml += "\"";
      if (!d.comment.empty()) {
        xml += " comment=\"";
        append_escaped(xml, to_utf8(d.comment), true);
        xml += "\"";
      }
      if (d.scope != calc::kNoSheet) {
        auto it = std::find(position.begin(), position.end(), d.scope);
        if (it == position.end()) continue;  // its sheet is gone
        xml += " localSheetId=\"" + std::to_string(it - position.begin()) + "\"";
      }
      if (d.hidden) xml += " hidden=\"1\"";
      for (const auto& [n, v] : d.attrs) {
        xml += " " + to_utf8(n) + "=\"";
        append_escaped(xml, to_utf8(v), true);
        xml += "\"";
      }
      xml += ">";
      append_escaped(xml, to_utf8(d.formula), false);
      xml += "</definedName>";
    }
    pugi::xml_node names = child(wb, "definedNames");
    // Compared as sets of attributes and text, so that equal names written in another
    // attribute order or Boolean spelling count as equal.
    auto canonical = [](pugi::xml_node parent) {
      std::vector<std::pair<std::vector<std::pair<std::string, std::string>>, std::string>> out;
      for (pugi::xml_node n : parent.children()) {
        if (n.type() != pugi::node_element) continue;
        std::vector<std::pair<std::string, std::string>> attrs;
        for (pugi::xml_attribute a : n.attributes()) {
          std::string v = a.value();
          if (std::string_view(a.name()) == "hidden") {
            if (!parse_bool(v, false)) continue;
            v = "1";
          }
          attrs.emplace_back(a.name(), v);
        }
        std::sort(attrs.begin(), attrs.end());
        out.emplace_back(std::move(attrs), n.text().get());
      }
      return out;
    };
    pugi::xml_document tmp;
    pugi::xml_node wanted = tmp.append_child((p + "definedNames").c_str());
    if (!xml.empty()) append_fragment(wanted, xml);
    bool differ = names ? canonical(names) != canonical(wanted) : !xml.empty();
    if (differ) {
      dirty = true;
      if (xml.empty()) {
        wb.remove_child(names);
      } else {
        names = ensure_child(wb, "definedNames", kWorkbookOrder);
        while (names.first_child()) names.remove_child(names.first_child());
        for (pugi::xml_node n : wanted.children()) names.append_copy(n);
      }
    }
  }

  if (formulas_changed_) {
    // The application then recalculates everything on opening, and the cached values of
    // formulas the engine did not compute (or computed differently) cannot mislead.
    pugi::xml_node calc = ensure_child(wb, "calcPr", kWorkbookOrder);
    dirty |= set_attr(calc, "fullCalcOnLoad", "1");
  }

  if (dirty) put(part, serialize(doc));
}

// --- styles -----------------------------------------------------------------------------------

void Saver::write_styles() {
  const StyleTable& st = book_.styles;
  std::vector<uint32_t> new_fmts;
  for (const auto& [id, code] : st.numfmts)
    if (!st_->numfmt_ids.count(id)) new_fmts.push_back(id);
  bool palette_changed = book_.palette != (st_->package ? st_->palette : default_palette());
  BookState::Counts now{st.fonts.size(), st.fills.size(), st.borders.size(), st.xfs.size()};
  if (now == st_->in_model && new_fmts.empty() && !palette_changed && pkg_) return;
  const BookState::Counts& base = st_->in_file;

  std::string part = st_->styles_part;
  std::string text = part.empty() ? std::string() : source_text(part);
  if (text.empty()) {
    if (part.empty()) {
      part = st_->styles_part = fresh_part(beside(st_->workbook_part, "styles"), ".xml");
      add_rel(st_->workbook_part, std::string(kRelDoc) + "/styles",
              relative_target(st_->workbook_part, part), false);
      set_content_type(part, kCtStyles);
    }
    text = std::string(kDecl) +
           "<styleSheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
           "<fonts count=\"0\"/><fills count=\"0\"/><borders count=\"0\"/>"
           "<cellStyleXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" "
           "borderId=\"0\"/></cellStyleXfs>"
           "<cellXfs count=\"0\"/>"
           "<cellStyles count=\"1\"><cellStyle name=\"Normal\" xfId=\"0\" "
           "builtinId=\"0\"/></cellStyles>"
           "</styleSheet>";
  }
  pugi::xml_document doc;
  parse(part, text, doc);
  pugi::xml_node root = doc.document_element();

  auto section = [&](std::string_view tag) { return ensure_child(root, tag, kStylesOrder); };
  auto recount = [&](pugi::xml_node sec) {
    size_t n = 0;
    for (pugi::xml_node c : sec.children())
      if (c.type() == pugi::node_element) ++n;
    set_attr(sec, "count", std::to_string(n));
  };

  if (!new_fmts.empty()) {
    pugi::xml_node sec = section("numFmts");
    std::string xml;
    for (uint32_t id : new_fmts) {
      xml += "<numFmt numFmtId=\"" + std::to_string(id) + "\" formatCode=\"";
      append_escaped(xml, to_utf8(st.numfmts.at(id)), true);
      xml += "\"/>";
    }
    append_fragment(sec, xml);
    recount(sec);
  }
  if (st.fonts.size() > base.fonts) {
    pugi::xml_node sec = section("fonts");
    std::string xml;
    for (size_t i = base.fonts; i < st.fonts.size(); ++i) {
      xml += "<font>";
      append_font(xml, st.fonts[i], false);
      xml += "</font>";
    }
    append_fragment(sec, xml);
    recount(sec);
  }
  if (st.fills.size() > base.fills) {
    pugi::xml_node sec = section("fills");
    std::string xml;
    for (size_t i = base.fills; i < st.fills.size(); ++i) {
      const FillRec& f = st.fills[i];
      xml += "<fill><patternFill patternType=\"" + to_utf8(f.pattern) + "\">";
      if (f.pattern != u"none") {
        if (f.fg.kind != Color::Kind::Auto) append_color(xml, "fgColor", f.fg);
        if (f.bg.kind != Color::Kind::Auto)
          append_color(xml, "bgColor", f.bg);
        else
          xml += "<bgColor indexed=\"64\"/>";
      }
      xml += "</patternFill></fill>";
    }
    append_fragment(sec, xml);
    recount(sec);
  }
  if (st.borders.size() > base.borders) {
    pugi::xml_node sec = section("borders");
    std::string xml;
    for (size_t i = base.borders; i < st.borders.size(); ++i) {
      const BorderRec& b = st.borders[i];
      xml += "<border";
      if (b.diagonal_up) xml += " diagonalUp=\"1\"";
      if (b.diagonal_down) xml += " diagonalDown=\"1\"";
      xml += ">";
      auto side = [&](const char* tag, const BorderSide& s) {
        xml += std::string("<") + tag;
        if (!s.style.empty()) xml += " style=\"" + to_utf8(s.style) + "\"";
        if (s.style.empty()) {
          xml += "/>";
          return;
        }
        xml += ">";
        append_color(xml, "color", s.color);
        xml += std::string("</") + tag + ">";
      };
      side("left", b.left);
      side("right", b.right);
      side("top", b.top);
      side("bottom", b.bottom);
      side("diagonal", b.diagonal);
      xml += "</border>";
    }
    append_fragment(sec, xml);
    recount(sec);
  }
  if (st.xfs.size() > base.xfs) {
    // Cell formats are based on a cell style; a part without any gets the Normal style.
    pugi::xml_node style_xfs = child(root, "cellStyleXfs");
    if (!style_xfs || !style_xfs.first_child()) {
      style_xfs = section("cellStyleXfs");
      append_fragment(style_xfs, "<xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\"/>");
      recount(style_xfs);
      pugi::xml_node styles = section("cellStyles");
      if (!styles.first_child()) {
        append_fragment(styles, "<cellStyle name=\"Normal\" xfId=\"0\" builtinId=\"0\"/>");
        recount(styles);
      }
    }
    pugi::xml_node sec = section("cellXfs");
    std::vector<pugi::xml_node> originals;
    for (pugi::xml_node c : sec.children())
      if (c.type() == pugi::node_element) originals.push_back(c);
    for (size_t i = base.xfs; i < st.xfs.size(); ++i) {
      const Xf& x = st.xfs[i];
      pugi::xml_node n;
      // A derived format starts as a copy of its origin, so attributes and children the
      // model does not describe come along.
      if (x.derived_from >= 0 && static_cast<size_t>(x.derived_from) < originals.size())
        n = sec.append_copy(originals[static_cast<size_t>(x.derived_from)]);
      else
        n = sec.append_child((prefix_of(root.name()) + "xf").c_str());
      set_attr(n, "numFmtId", std::to_string(x.numfmt));
      set_attr(n, "fontId", std::to_string(x.font));
      set_attr(n, "fillId", std::to_string(x.fill));
      set_attr(n, "borderId", std::to_string(x.border));
      set_attr(n, "xfId", std::to_string(x.xf_id));
      uint8_t apply = x.apply;
      if (x.numfmt) apply |= 1;
      if (x.font) apply |= 2;
      if (x.fill) apply |= 4;
      if (x.border) apply |= 8;
      if (!(x.align == Alignment{})) apply |= 16;
      if (!x.locked || x.hidden) apply |= 32;
      static constexpr const char* names[] = {"applyNumberFormat", "applyFont",
                                              "applyFill",         "applyBorder",
                                              "applyAlignment",    "applyProtection"};
      for (int b = 0; b < 6; ++b) {
        if (apply & (1 << b))
          set_attr(n, names[b], "1");
        else
          remove_attr(n, names[b]);
      }
      if (x.quote_prefix)
        set_attr(n, "quotePrefix", "1");
      else
        remove_attr(n, "quotePrefix");
      std::string p = prefix_of(root.name());
      for (const char* tag : {"alignment", "protection"})
        if (pugi::xml_node c = child(n, tag)) n.remove_child(c);
      std::string inner;
      if (!(x.align == Alignment{})) {
        inner += "<alignment";
        if (x.align.horizontal != HAlign::General)
          inner += std::string(" horizontal=\"") + halign_name(x.align.horizontal) + "\"";
        if (!x.align.vertical.empty()) inner += " vertical=\"" + to_utf8(x.align.vertical) + "\"";
        if (x.align.rotation) inner += " textRotation=\"" + std::to_string(x.align.rotation) + "\"";
        if (x.align.wrap) inner += " wrapText=\"1\"";
        if (x.align.indent) inner += " indent=\"" + std::to_string(x.align.indent) + "\"";
        if (x.align.shrink) inner += " shrinkToFit=\"1\"";
        inner += "/>";
      }
      if (!x.locked || x.hidden) {
        inner += "<protection";
        if (!x.locked) inner += " locked=\"0\"";
        if (x.hidden) inner += " hidden=\"1\"";
        inner += "/>";
      }
      if (!inner.empty()) {
        // Alignment and protection come first among an xf's children.
        pugi::xml_document tmp;
        pugi::xml_node h = tmp.append_child("h");
        append_fragment(h, inner);
        pugi::xml_node first = n.first_child();
        for (pugi::xml_node c : h.children()) {
          pugi::xml_node copy = first ? n.insert_copy_before(c, first) : n.append_copy(c);
          apply_prefix(copy, p);
        }
      }
    }
    recount(sec);
  }
  if (palette_changed) {
    pugi::xml_node colors = section("colors");
    if (pugi::xml_node old = child(colors, "indexedColors")) colors.remove_child(old);
    static constexpr uint32_t fixed[8] = {0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00,
                                          0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF};
    std::string xml = "<indexedColors>";
    char buf[16];
    for (int i = 0; i < 64; ++i) {
      uint32_t rgb;
      if (i < 8) {
        rgb = fixed[i];
      } else {
        auto bgr = static_cast<uint32_t>(book_.palette[static_cast<size_t>(i - 8)]);
        rgb = ((bgr & 0xff) << 16) | (bgr & 0xff00) | ((bgr >> 16) & 0xff);
      }
      std::snprintf(buf, sizeof buf, "FF%06X", rgb);
      xml += std::string("<rgbColor rgb=\"") + buf + "\"/>";
    }
    xml += "</indexedColors>";
    pugi::xml_node first = colors.first_child();
    pugi::xml_document tmp;
    pugi::xml_node h = tmp.append_child("h");
    append_fragment(h, xml);
    pugi::xml_node copy = first ? colors.insert_copy_before(h.first_child(), first)
                                : colors.append_copy(h.first_child());
    apply_prefix(copy, prefix_of(root.name()));
  }
  put(part, serialize(doc));
  if (!pkg_ || !pkg_->has_part(part)) new_order_.push_back(part);
}

// --- custom document properties
// -------------------------------------------------------------------

void Saver::write_custom_props() {
  if (book_.props.size() == st_->props.size()) {
    bool same = true;
    for (size_t i = 0; i < book_.props.size() && same; ++i)
      same = book_.props[i].name == st_->props[i].name &&
             book_.props[i].type == st_->props[i].type &&
             book_.props[i].value == st_->props[i].value;
    if (same) return;
  }
  std::string part = st_->custom_props_part;
  std::string text = part.empty() ? std::string() : source_text(part);
  if (text.empty()) {
    if (part.empty()) {
      part = st_->custom_props_part = "docProps/custom.xml";
      add_rel("", std::string(kRelDoc) + "/custom-properties", part, false);
      set_content_type(part, kCtCustom);
    }
    text = std::string(kDecl) +
           "<Properties "
           "xmlns=\"http://schemas.openxmlformats.org/officeDocument/2006/custom-properties\" "
           "xmlns:vt=\"http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes\"/>";
  }
  pugi::xml_document doc;
  parse(part, text, doc);
  pugi::xml_node root = doc.document_element();
  std::string vt = "vt:";
  for (pugi::xml_attribute a : root.attributes()) {
    std::string_view n = a.name();
    if (n.starts_with("xmlns:") && std::string_view(a.value()).ends_with("docPropsVTypes"))
      vt = std::string(n.substr(6)) + ":";
  }
  std::map<String, pugi::xml_node> existing;
  int64_t max_pid = 1;
  for (pugi::xml_node n : root.children()) {
    existing[from_utf8(n.attribute("name").value())] = n;
    max_pid = std::max<int64_t>(max_pid, parse_int(n.attribute("pid").value()).value_or(1));
  }
  std::map<String, const CustomProperty*> loaded;
  for (const auto& p : st_->props) loaded[p.name] = &p;
  std::set<String> keep;
  for (const CustomProperty& p : book_.props) {
    keep.insert(p.name);
    auto old = loaded.find(p.name);
    pugi::xml_node n;
    if (auto e = existing.find(p.name); e != existing.end()) {
      n = e->second;
      if (old != loaded.end() && old->second->type == p.type && old->second->value == p.value)
        continue;
      while (n.first_child()) n.remove_child(n.first_child());
    } else {
      n = root.append_child((prefix_of(root.name()) + "property").c_str());
      n.append_attribute("fmtid").set_value("{D5CDD505-2E9C-101B-9397-08002B2CF9AE}");
      n.append_attribute("pid").set_value(std::to_string(++max_pid).c_str());
      n.append_attribute("name").set_value(to_utf8(p.name).c_str());
    }
    std::string tag, value;
    const Variant& v = p.value;
    switch (p.type) {
      case 1: {
        double d = step_double(v);
        if (d == std::floor(d) && d >= INT32_MIN && d <= INT32_MAX) {
          tag = "i4";
          value = std::to_string(static_cast<int64_t>(d));
        } else {
          tag = "r8";
          value = double_text(d);
        }
        break;
      }
      case 2:
        tag = "bool";
        value = (v.is_bool() ? v.boolean() : step_double(v) != 0) ? "true" : "false";
        break;
      case 3:
        tag = "filetime";
        value = filetime_text(v.is_date() ? v.date().serial : step_double(v));
        break;
      case 5:
        tag = "r8";
        value = double_text(step_double(v));
        break;
      default:
        tag = "lpwstr";
        value = v.is_string() ? to_utf8(v.str()) : to_utf8(qz::to_string(v));
        break;
    }
    n.append_child((vt + tag).c_str()).text().set(value.c_str());
  }
  for (auto& [name, n] : existing)
    if (!keep.count(name)) root.remove_child(n);
  put(part, serialize(doc));
  if (!pkg_ || !pkg_->has_part(part)) new_order_.push_back(part);
}

// --- after a save
// ---------------------------------------------------------------------------------

void Saver::rebase(const fs::path& path) {
  // The saved file is now the workbook's package: later saves copy from it.
  auto pkg = std::make_shared<const Package>(Package::open(path));
  st_->package = pkg;
  const StyleTable& tables = book_.styles;
  st_->in_file = st_->in_model = {tables.fonts.size(), tables.fills.size(), tables.borders.size(),
                                  tables.xfs.size()};
  for (const auto& [id, code] : book_.styles.numfmts) st_->numfmt_ids.insert(id);
  st_->palette = book_.palette;
  for (uint32_t i : appended_strings_) st_->appended_strings[i] = sst_index_[i];
  st_->strings_in_file += appended_strings_.size();
  st_->props = book_.props;
  st_->sheets_loaded = book_.sheets.size();
  st_->sheet_parts.clear();
  for (auto& [s, slot, ff] : written_formulas_) {
    if (slot < s->formulas.size() && s->formulas[slot].live) s->formulas[slot].file = std::move(ff);
  }
  for (auto& sp : book_.sheets) {
    auto ss = std::static_pointer_cast<SheetState>(sp->file_state);
    st_->sheet_parts.emplace_back(ss->rel_id, ss->part);
    if (auto it = rebased_.find(sp.get()); it != rebased_.end()) {
      ss->head = std::move(it->second.head);
      ss->tail = std::move(it->second.tail);
      ss->data_begin = it->second.begin;
      ss->data_end = it->second.end;
    }
    size_t live = 0;
    for (const FormulaCell& f : sp->formulas) live += f.live;
    ss->formulas = live;
  }
  book_.loaded();
}

void save(Book& book, const fs::path& path, const SaveOptions& options) {
  Saver(book, options).run(path);
}

}  // namespace qz::engine::xlsx
