// The worksheet parts. A changed sheet's part is split at its cell data: the rest (the
// skeleton) is small enough to patch as a tree, and the cell data is regenerated from the model
// a row at a time while the part is deflated.
#include <charconv>
#include <map>
#include <set>

#include "engine/calc/calc.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

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

  const StringPool& pool = w_.book.strings;
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
        auto shared = idx < w_.state->strings ? std::optional<uint32_t>(idx) : std::nullopt;
        if (!shared)
          if (auto it = strings_.index.find(idx); it != strings_.index.end()) shared = it->second;
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
          if (const calc::Formula* parsed = w_.book.ensure_parsed(s, f))
            text = calc::render(*parsed, calc::Notation::A1, f.at, s.id, w_.book);
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
