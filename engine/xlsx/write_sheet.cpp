// The worksheet parts. A changed sheet's part is split at its cell data: the rest (the
// skeleton) is small enough to patch as a tree, and the cell data is regenerated from the model
// a row at a time while the part is deflated.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <set>

#include "engine/calc/calc.hpp"
#include "engine/calc/formula.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"
#include "vocab/columns.hpp"

namespace qz::engine::xlsx {

namespace {

constexpr const char* kCtWorksheet =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml";

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

// A placeholder the cell data is spliced in for after the rest of the sheet is serialised.
constexpr std::string_view kDataMark = "<?qzxl-sheet-data?>";

bool same_line(const LineInfo& a, const LineInfo& b) {
  return a.size == b.size && a.hidden == b.hidden && a.outline_level == b.outline_level &&
         a.collapsed == b.collapsed && a.has_style == b.has_style && a.style == b.style &&
         a.custom_size == b.custom_size && a.attrs == b.attrs;
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

// The cell data is assembled with plain stores in a buffer of a few kilobytes, handed to the
// sink's text a buffer at a time: a sheet holds millions of short tags and numbers, and
// appending each one to a string on its own costs more than writing it. The small pieces are
// kept inline, the rare flush out of the way.
class TextOut {
  static constexpr size_t kBuffer = 16384;
  static constexpr size_t kFixed = 32;

 public:
  explicit TextOut(EntrySink& sink) : sink_(sink) {}
  TextOut(const TextOut&) = delete;
  TextOut& operator=(const TextOut&) = delete;

  // A short piece made once (a tag with the part's prefix), copied in one fixed-size move.
  class Tag {
   public:
    explicit Tag(std::string text) : text_(std::move(text)) {
      std::memcpy(fixed_, text_.data(), std::min(text_.size(), kFixed));
    }
    // Whether the piece fits the fixed-size move, as every tag of an unprefixed part does.
    bool fits() const { return text_.size() <= kFixed; }

   private:
    friend class TextOut;
    std::string text_;
    char fixed_[kFixed] = {};
  };

  // Writing straight into the buffer: `reserve` makes room for `n` bytes and gives the place
  // to write them, `done` takes where the writing ended. Between the two, the place is a
  // local pointer the compiler keeps in a register, where every put reloads the buffer's end
  // (a char store may alias it) and checks the room again.
  [[gnu::always_inline]] char* reserve(size_t n) {
    room(n);
    return at_;
  }
  [[gnu::always_inline]] void done(char* end) { at_ = end; }
  // A tag that fits() at `p`, taking kFixed bytes of room.
  [[gnu::always_inline]] static char* copy(char* p, const Tag& t) {
    std::memcpy(p, t.fixed_, kFixed);
    return p + t.text_.size();
  }

  [[gnu::always_inline]] void put(const Tag& t) {
    if (t.text_.size() > kFixed) return put(std::string_view(t.text_));
    room(kFixed);
    std::memcpy(at_, t.fixed_, kFixed);
    at_ += t.text_.size();
  }
  template <size_t N>
  [[gnu::always_inline]] void put(const char (&literal)[N]) {
    room(N);
    std::memcpy(at_, literal, N - 1);
    at_ += N - 1;
  }
  [[gnu::always_inline]] void put(char c) {
    room(1);
    *at_++ = c;
  }
  void put(std::string_view text) {
    if (text.size() > kBuffer / 4) {
      flush();
      sink_.write(text);
      return;
    }
    room(text.size());
    std::memcpy(at_, text.data(), text.size());
    at_ += text.size();
  }
  // Element text, escaped; nearly always there is nothing to escape.
  void put_escaped(std::string_view text) {
    for (char c : text)
      if (c == '&' || c == '<' || c == '>' || c == '\r') {
        append_escaped(direct(), text, false);
        return;
      }
    put(text);
  }
  [[gnu::always_inline]] void put_uint(uint64_t n) {
    room(24);
    at_ = std::to_chars(at_, at_ + 24, n).ptr;
  }
  [[gnu::always_inline]] void put_double(double d) {
    room(32);
    at_ = write_double(at_, d);
  }
  [[gnu::always_inline]] void put_cell(int32_t row, int32_t col) {
    room(24);
    at_ = write_cell(at_, row, col);
  }
  // The sink's text, for writers that append to a string; what is buffered goes first.
  std::string& direct() {
    flush();
    return sink_.text;
  }
  size_t pending() const { return static_cast<size_t>(at_ - buf_); }
  // Straight to the sink's segments: the text is not copied into the sink's string first.
  [[gnu::noinline]] void flush() {
    sink_.write(std::string_view(buf_, pending()));
    at_ = buf_;
  }

 private:
  [[gnu::always_inline]] void room(size_t n) {
    if (static_cast<size_t>(buf_ + kBuffer - at_) < n) flush();
  }

  EntrySink& sink_;
  char buf_[kBuffer];
  char* at_ = buf_;
};

}  // namespace

void SheetWriter::write() {
  std::set<std::string> kept;
  for (auto& sp : w_.book.sheets) {
    Sheet& s = *sp;
    auto ss = std::static_pointer_cast<SheetState>(s.file_state);
    bool is_new = !ss;
    if (is_new) {
      ss = std::make_shared<SheetState>();
      s.file_state = ss;
      ss->part = w_.fresh_part(beside(w_.state->workbook_part, "worksheets/sheet"), ".xml");
      ss->root = "worksheet";
      ss->rel_id = w_.add_rel(w_.state->workbook_part, std::string(kRelDoc) + "/worksheet",
                              relative_target(w_.state->workbook_part, ss->part), false);
      w_.set_content_type(ss->part, kCtWorksheet);
      w_.add_new(ss->part);
    }
    kept.insert(ss->part);
    if (s.kind == SheetKind::Chart && !is_new) continue;  // chart sheet parts are kept whole
    if (is_new || s.changed.any()) write_sheet(s, *ss, is_new);
    if (!is_new && s.changed.sheet) write_drawing_names(s, *ss);
  }
  // Sheets deleted since loading: their parts go, with their relationships.
  for (const auto& old : w_.state->sheet_parts) {
    if (kept.count(old.second)) continue;
    w_.drop(old.second);
    w_.drop(Package::rels_part_for(old.second));
    w_.remove_rel(w_.state->workbook_part, old.first);
    w_.remove_content_type(old.second);
  }
}

String SheetWriter::file_text(const calc::Formula& f, CellRef at, SheetId home,
                              const calc::StructuredSpelling& spell) const {
  // References to other workbooks are written by the number of their link.
  bool linked = false;
  for (const calc::RefInfo& r : f.refs)
    linked = linked || (r.external && w_.link_prefixes.count(f.text(r.external)));
  if (!linked) return calc::render(f, at, home, w_.book, spell);
  calc::Formula numbered = f;
  for (const calc::RefInfo& r : f.refs)
    if (r.external)
      if (auto it = w_.link_prefixes.find(f.text(r.external)); it != w_.link_prefixes.end())
        numbered.pool[r.external] = it->second;
  return calc::render(numbered, at, home, w_.book, spell);
}

void SheetWriter::write_sheet(Sheet& s, SheetState& ss, bool is_new) {
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
  w_.parse(ss.part, skeleton, doc);
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
                "cannot save '" + w_.target + "': lost the cell data of '" + ss.part + "'");
  auto before = std::make_shared<std::string>(out.substr(0, mark));
  auto after = std::make_shared<std::string>(out.substr(mark + kDataMark.size()));

  if (!(s.changed.cells || s.changed.layout || is_new || !had_data)) {
    // Only the skeleton changed: the cell data goes back as the part had it.
    std::string text = w_.source_text(ss.part);
    std::string result = *before;
    result.append(text, ss.data_begin, ss.data_end - ss.data_begin);
    rebased_[&s] = {*before, *after, before->size(), result.size()};
    result += *after;
    w_.put(ss.part, std::move(result));
    return;
  }
  // The cell data is written as the part is deflated, a row at a time.
  w_.stream(ss.part, [this, &s, &ss, before, after](EntrySink& sink) {
    sink.text += *before;
    size_t from = sink.total();
    sheet_data(s, ss, sink);
    size_t to = sink.total();
    sink.text += *after;
    rebased_[&s] = {*before, *after, from, to};
  });
}

void SheetWriter::patch_skeleton(pugi::xml_document& doc, Sheet& s, SheetState& ss, bool is_new) {
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
  // Filter buttons: a list moved or resized loses the per-column settings it had. An element
  // the model could not read (no usable ref) stays as it is.
  {
    pugi::xml_node af = child(ws, "autoFilter");
    const std::optional<Rect> in_file =
        af ? parse_ref(af.attribute("ref").value()) : std::optional<Rect>();
    if (in_file != s.auto_filter) {
      if (af) ws.remove_child(af);
      if (s.auto_filter)
        set_attr(ensure_child(ws, "autoFilter", kSheetOrder), "ref", ref_text(*s.auto_filter));
    }
  }
  write_hyperlinks(ws, s, ss);
}

void SheetWriter::write_hyperlinks(pugi::xml_node ws, Sheet& s, SheetState& ss) {
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
        id = w_.add_rel(ss.part, std::string(kRelDoc) + "/hyperlink", target, true);
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
    w_.remove_rel(ss.part, it->first);
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

void SheetWriter::write_drawing_names(Sheet& s, SheetState& ss) {
  if (ss.drawing_part.empty()) return;
  bool differs = false;
  for (const auto& c : s.chart_objects) {
    auto it = ss.chart_names.find(c.file_key);
    if (it != ss.chart_names.end() && it->second != c.name) differs = true;
  }
  if (!differs) return;
  std::string text = w_.source_text(ss.drawing_part);
  pugi::xml_document doc;
  w_.parse(ss.drawing_part, text, doc);
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
  w_.put(ss.drawing_part, serialize(doc));
  ss.chart_names = wanted;
}

void SheetWriter::sheet_data(Sheet& s, SheetState& ss, EntrySink& sink) {
  TextOut o(sink);
  const std::string p = prefix_of(ss.root);
  // The tags, with the part's prefix, made once: a sheet can hold millions of them.
  const TextOut::Tag row_tag("<" + p + "row r=\""), row_end("</" + p + "row>"),
      cell_tag("<" + p + "c r=\""), cell_end("</" + p + "c>"), v_open("<" + p + "v>"),
      v_close("</" + p + "v>"), f_open("<" + p + "f"), f_close("</" + p + "f>");
  o.put(std::string_view("<" + p + "sheetData>"));

  // Shared formulas whose master is still as loaded; children of any other group are written
  // as formulas of their own.
  std::set<int32_t> live_groups;
  for (const FormulaCell& f : s.formulas)
    if (f.live && f.file && f.file->type == FileFormula::Type::Shared && !f.file->text.empty())
      live_groups.insert(f.file->shared_index);

  const StringPool& pool = w_.book.strings;
  auto row_open = [&](int32_t row, const LineInfo* li, bool empty) {
    o.put(row_tag);
    o.put_uint(static_cast<uint64_t>(row) + 1);
    o.put('"');
    if (li) {
      if (li->has_style) {
        o.put(" s=\"");
        o.put_uint(li->style);
        o.put("\" customFormat=\"1\"");
      }
      if (li->size >= 0) {
        o.put(" ht=\"");
        o.put_double(li->size);
        o.put('"');
      }
      if (li->hidden) o.put(" hidden=\"1\"");
      if (li->custom_size) o.put(" customHeight=\"1\"");
      if (li->outline_level) {
        o.put(" outlineLevel=\"");
        o.put_uint(li->outline_level);
        o.put('"');
      }
      if (li->collapsed) o.put(" collapsed=\"1\"");
      if (!li->attrs.empty()) {
        std::string& out = o.direct();
        for (const auto& [n, v] : li->attrs) {
          out += ' ';
          out += to_utf8(n);
          out += "=\"";
          append_escaped(out, to_utf8(v), true);
          out += '"';
        }
      }
    }
    if (empty)
      o.put("/>");
    else
      o.put('>');
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
  auto extra = [&](const auto& attrs) {
    if (attrs.empty()) return;
    std::string& out = o.direct();
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
  auto cell_extra = [&](int32_t row, int32_t col) {
    if (has_attrs && (at = ss.cell_attrs.find({row, col})) != ss.cell_attrs.end())
      extra(at->second);
  };
  // The common cells (blank, number, boolean, shared text, a formula as read with a number, a
  // truth value or no value) with no attributes kept aside are written with a check for room
  // or two, the row's number made once for all the row's cells; the rest take the general way
  // below. Both write the same text.
  const bool tags_fit = cell_tag.fits() && v_open.fits() && v_close.fits() && cell_end.fits() &&
                        f_open.fits() && f_close.fits();
  // Enough for the longest such cell but its formula text, whatever the part's prefix: six
  // tags of up to kFixed characters (each copied whole), the reference, a style, the formula's
  // attributes and a number come to under 300.
  constexpr size_t kCellRoom = 512;
  char row_digits[16] = {};
  size_t row_len = 0;
  auto write_common = [&](int32_t row, int32_t col, const Cell& c) {
    const CellKind kind = c.kind();
    if (!tags_fit || kind == CellKind::Error) return false;
    uint32_t shared = 0;
    const FileFormula* ff = nullptr;
    const calc::Value* value = nullptr;
    if (kind == CellKind::Formula) {
      const FormulaCell& f = s.formulas[c.index];
      ff = f.file.get();
      value = &f.value;
      if (!ff || ff->rare ||
          (ff->type != FileFormula::Type::None && ff->type != FileFormula::Type::Shared))
        return false;
      if (ff->type == FileFormula::Type::Shared && ff->text.empty() &&
          !live_groups.count(ff->shared_index))
        return false;
      if (value->kind != calc::Value::Kind::Empty && value->kind != calc::Value::Kind::Number &&
          value->kind != calc::Value::Kind::Boolean)
        return false;
    } else {
      if (has_attrs && ss.cell_attrs.count({row, col})) return false;
      if (kind == CellKind::Text) {
        if (c.index < w_.state->strings)
          shared = c.index;
        else if (auto it = strings_.index.find(c.index); it != strings_.index.end())
          shared = it->second;
        else
          return false;
      }
    }
    char* p = o.reserve(kCellRoom);
    p = TextOut::copy(p, cell_tag);
    p = write_column_letters(p, col);
    std::memcpy(p, row_digits, 8);
    p += row_len;
    *p++ = '"';
    if (const uint32_t style = c.style()) {
      std::memcpy(p, " s=\"", 4);
      p = std::to_chars(p + 4, p + 16, style).ptr;
      *p++ = '"';
    }
    switch (kind) {
      case CellKind::Blank:
        std::memcpy(p, "/>", 2);
        o.done(p + 2);
        return true;
      case CellKind::Number:
        *p++ = '>';
        p = write_double(TextOut::copy(p, v_open), c.num);
        break;
      case CellKind::Boolean:
        std::memcpy(p, " t=\"b\">", 7);
        p = TextOut::copy(p + 7, v_open);
        *p++ = c.num != 0 ? '1' : '0';
        break;
      case CellKind::Text:
        std::memcpy(p, " t=\"s\">", 7);
        p = TextOut::copy(p + 7, v_open);
        p = std::to_chars(p, p + 16, shared).ptr;
        break;
      default: {  // a formula
        const bool truth = value->kind == calc::Value::Kind::Boolean;
        if (truth) {
          std::memcpy(p, " t=\"b\"", 6);
          p += 6;
        }
        *p++ = '>';
        p = TextOut::copy(p, f_open);
        if (ff->type == FileFormula::Type::Shared) {
          std::memcpy(p, " t=\"shared\"", 11);
          p += 11;
        }
        if (ff->shared_index >= 0) {
          std::memcpy(p, " si=\"", 5);
          p = std::to_chars(p + 5, p + 16, ff->shared_index).ptr;
          *p++ = '"';
        }
        if (ff->aca_false) {
          std::memcpy(p, " aca=\"false\"", 12);
          p += 12;
        }
        if (ff->text.empty()) {
          std::memcpy(p, "/>", 2);
          p += 2;
        } else {
          *p++ = '>';
          o.done(p);
          o.put_escaped(ff->text);
          p = TextOut::copy(o.reserve(kCellRoom), f_close);
        }
        if (value->kind == calc::Value::Kind::Empty) {
          o.done(TextOut::copy(p, cell_end));
          return true;
        }
        p = TextOut::copy(p, v_open);
        if (truth)
          *p++ = value->number != 0 ? '1' : '0';
        else
          p = write_double(p, value->number);
      }
    }
    o.done(TextOut::copy(TextOut::copy(p, v_close), cell_end));
    return true;
  };
  auto write_cell = [&](int32_t row, int32_t col, const Cell& c) {
    o.put(cell_tag);
    o.put_cell(row, col);
    o.put('"');
    if (c.style()) {
      o.put(" s=\"");
      o.put_uint(c.style());
      o.put('"');
    }
    switch (c.kind()) {
      case CellKind::Blank:
        cell_extra(row, col);
        o.put("/>");
        return;
      case CellKind::Number:
        cell_extra(row, col);
        o.put('>');
        o.put(v_open);
        o.put_double(c.num);
        o.put(v_close);
        o.put(cell_end);
        return;
      case CellKind::Boolean:
        o.put(" t=\"b\">");
        o.put(v_open);
        o.put(c.num != 0 ? '1' : '0');
        o.put(v_close);
        o.put(cell_end);
        return;
      case CellKind::Error:
        o.put(" t=\"e\">");
        o.put(v_open);
        o.put(std::string_view(to_utf8(calc::error_text(static_cast<int32_t>(c.num)))));
        o.put(v_close);
        o.put(cell_end);
        return;
      case CellKind::Text: {
        cell_extra(row, col);
        uint32_t idx = c.index;
        auto shared = idx < w_.state->strings ? std::optional<uint32_t>(idx) : std::nullopt;
        if (!shared)
          if (auto it = strings_.index.find(idx); it != strings_.index.end()) shared = it->second;
        if (shared) {
          o.put(" t=\"s\">");
          o.put(v_open);
          o.put_uint(*shared);
          o.put(v_close);
          o.put(cell_end);
        } else {
          std::string& out = o.direct();
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
          o.put(" t=\"");
          o.put(std::string_view(cell_t));
          o.put('"');
        }
        o.put('>');
        o.put(f_open);
        const FileFormula* ff = f.file.get();
        bool as_read = ff && !(ff->type == FileFormula::Type::Shared && ff->text.empty() &&
                               !live_groups.count(ff->shared_index));
        if (as_read) {
          switch (ff->type) {
            case FileFormula::Type::None:
              break;
            case FileFormula::Type::Shared:
              o.put(" t=\"shared\"");
              break;
            case FileFormula::Type::Array:
              o.put(" t=\"array\"");
              break;
            default:
              if (String t = ff->type_text(); !t.empty()) {
                std::string& out = o.direct();
                out += " t=\"";
                append_text16(out, t, true);
                out += '"';
              }
          }
          if (!ff->ref().empty()) {
            std::string& out = o.direct();
            out += " ref=\"";
            append_text16(out, ff->ref(), true);
            out += '"';
          }
          if (ff->shared_index >= 0) {
            o.put(" si=\"");
            o.put_uint(static_cast<uint64_t>(ff->shared_index));
            o.put('"');
          }
          if (ff->aca_false) o.put(" aca=\"false\"");
          if (ff->rare) extra(ff->rare->attrs);
          // The formula text as read goes straight in.
          if (ff->text.empty()) {
            o.put("/>");
          } else {
            o.put('>');
            o.put_escaped(ff->text);
            o.put(f_close);
          }
        } else {
          String text;
          // Files hold structured references qualified by their table, "@" spelled out.
          auto spell = [&](StringView written) {
            auto ref = calc::read_structured(written);
            if (!ref) return String(written);
            for (const TableRec& t : s.tables)
              if (ref->table.empty() && t.ref.contains(f.at)) ref->table = t.name;
            return ref->table.empty() ? String(written) : calc::render_structured(*ref);
          };
          if (const calc::Formula* parsed = w_.book.ensure_parsed(s, f))
            text = file_text(*parsed, f.at, s.id, spell);
          else if (ff)
            text = ff->text16();
          auto written = std::make_unique<FileFormula>();
          std::string ftext = to_utf8(text);
          written->text = ftext;
          if (f.array) {
            written->type = FileFormula::Type::Array;
            written->more().ref = from_utf8(ref_text(f.array_ref));
            o.put(std::string_view(" t=\"array\" ref=\"" + ref_text(f.array_ref) + "\""));
          }
          written_formulas_.emplace_back(&s, c.index, std::move(written));
          if (ftext.empty()) {
            o.put("/>");
          } else {
            o.put('>');
            o.put_escaped(ftext);
            o.put(f_close);
          }
        }
        if (has_value) {
          o.put(v_open);
          o.put(std::string_view(cell_body));
          o.put(v_close);
        }
        o.put(cell_end);
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
          o.put(row_end);
          // What was appended to the sink's text directly (rare attributes, inline strings)
          // goes on between rows; the rest goes as the buffer fills.
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
        row_len = static_cast<size_t>(
            std::to_chars(row_digits, row_digits + sizeof row_digits, row + 1).ptr - row_digits);
      }
      if (!write_common(row, col, c)) write_cell(row, col, c);
    });
    if (open_row >= 0) o.put(row_end);
  }
  flush_lines_before(kLastRow + 1);
  o.put(std::string_view("</" + p + "sheetData>"));
  o.flush();
}

void SheetWriter::rebase() {
  BookState& st = *w_.state;
  st.sheet_parts.clear();
  for (auto& [s, slot, ff] : written_formulas_) {
    if (slot < s->formulas.size() && s->formulas[slot].live) s->formulas[slot].file = std::move(ff);
  }
  for (auto& sp : w_.book.sheets) {
    auto ss = std::static_pointer_cast<SheetState>(sp->file_state);
    st.sheet_parts.emplace_back(ss->rel_id, ss->part);
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
}

}  // namespace qz::engine::xlsx
