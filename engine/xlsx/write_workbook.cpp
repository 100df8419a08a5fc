// The workbook part (date system, sheets in tab order, windows, defined names) and the shared
// strings a save appends.
#include <algorithm>
#include <map>
#include <set>

#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

namespace qz::engine::xlsx {

namespace {

constexpr const char* kCtStrings =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml";

const std::vector<std::string_view> kWorkbookOrder = {
    "fileVersion",    "fileSharing",         "workbookPr",     "AlternateContent",
    "revisionPtr",    "workbookProtection",  "bookViews",      "sheets",
    "functionGroups", "externalReferences",  "definedNames",   "calcPr",
    "oleSize",        "customWorkbookViews", "pivotCaches",    "smartTagPr",
    "smartTagTypes",  "webPublishing",       "fileRecoveryPr", "webPublishObjects",
    "extLst"};

}  // namespace

SharedStrings write_strings(PackageWriter& w) {
  SharedStrings added;
  StringPool& pool = w.book.strings;
  uint32_t next = static_cast<uint32_t>(w.state->strings_in_file);
  for (uint32_t i = static_cast<uint32_t>(w.state->strings); i < pool.size(); ++i) {
    if (w.state->inline_strings.count(i)) continue;
    if (auto it = w.state->appended_strings.find(i); it != w.state->appended_strings.end()) {
      added.index[i] = it->second;
      continue;
    }
    added.index[i] = next++;
    added.appended.push_back(i);
  }
  if (added.appended.empty()) return added;

  std::string items;
  for (uint32_t i : added.appended) {
    items += "<si>";
    append_rich(items, pool.text(i), pool.runs(i));
    items += "</si>";
  }
  std::string part = w.state->strings_part;
  std::string text = part.empty() ? std::string() : w.source_text(part);
  if (text.empty()) {
    if (part.empty()) {
      part = w.state->strings_part =
          w.fresh_part(beside(w.state->workbook_part, "sharedStrings"), ".xml");
      w.add_rel(w.state->workbook_part, std::string(kRelDoc) + "/sharedStrings",
                relative_target(w.state->workbook_part, part), false);
      w.set_content_type(part, kCtStrings);
    }
    text = std::string(kDecl) +
           "<sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"/>";
  }
  // Appending is a splice: the root's start tag gets new counts, the new items go before its
  // end tag, and every byte in between stays.
  XmlScanner x(text, "cannot save '" + w.target + "': part '" + part + "'");
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
                  "cannot save '" + w.target + "': part '" + part + "' has no end");
    result += text.substr(tag_end, close - tag_end) + items + text.substr(close);
  }
  w.put(part, std::move(result));
  if (!w.in_source(part)) w.add_new(part);
  return added;
}

void write_workbook(PackageWriter& w, bool formulas_changed) {
  const std::string& part = w.state->workbook_part;
  std::string text = w.source_text(part);
  if (text.empty())
    text = std::string(kDecl) +
           "<workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
           "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
           "<workbookPr/><bookViews><workbookView/></bookViews><sheets/></workbook>";
  pugi::xml_document doc;
  w.parse(part, text, doc);
  pugi::xml_node wb = doc.document_element();
  std::string p = prefix_of(wb.name());
  bool dirty = !w.source;

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
    if (file1904 != w.book.date1904) {
      pr = ensure_child(wb, "workbookPr", kWorkbookOrder);
      if (w.book.date1904)
        set_attr(pr, "date1904", "1");
      else
        remove_attr(pr, "date1904");
      dirty = true;
    }
    std::string code = to_utf8(w.book.code_name);
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
    for (const auto& sp : w.book.sheets)
      known.insert(std::static_pointer_cast<SheetState>(sp->file_state)->rel_id);
    for (const auto& [rid, part] : w.state->sheet_parts) known.insert(rid);
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
    for (auto& sp : w.book.sheets) {
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
    bool all_visible = std::all_of(w.book.windows.begin(), w.book.windows.end(),
                                   [](const WindowRec& w) { return w.visible; });
    if (!views && (w.book.active_sheet != 0 || !all_visible || !w.source)) {
      views = ensure_child(wb, "bookViews", kWorkbookOrder);
      dirty = true;
    }
    size_t i = 0;
    for (pugi::xml_node v : views.children()) {
      if (local_name(v.name()) != "workbookView") continue;
      if (i < w.book.windows.size()) {
        bool file_visible = std::string_view(v.attribute("visibility").value()) != "hidden" &&
                            std::string_view(v.attribute("visibility").value()) != "veryHidden";
        if (file_visible != w.book.windows[i].visible) {
          if (w.book.windows[i].visible)
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
                                static_cast<int64_t>(w.book.sheets.size()) - 1);
        if (file_tab != w.book.active_sheet) {
          if (w.book.active_sheet == 0)
            remove_attr(v, "activeTab");
          else
            set_attr(v, "activeTab", std::to_string(w.book.active_sheet));
          dirty = true;
        }
        // A first visible sheet past the end would hide every tab.
        if (auto fs = parse_int(v.attribute("firstSheet").value());
            fs && *fs >= static_cast<int64_t>(w.book.sheets.size())) {
          remove_attr(v, "firstSheet");
          dirty = true;
        }
      }
      ++i;
    }
    if (i == 0 && views) {
      pugi::xml_node v = views.append_child((p + "workbookView").c_str());
      if (w.book.active_sheet) v.append_attribute("activeTab").set_value(w.book.active_sheet);
      dirty = true;
    }
  }

  // Defined names: rebuilt when they differ from the part's.
  {
    std::string xml;
    for (const DefinedName& d : w.book.names()) {
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

  if (formulas_changed) {
    // The application then recalculates everything on opening, and the cached values of
    // formulas the engine did not compute (or computed differently) cannot mislead.
    pugi::xml_node calc = ensure_child(wb, "calcPr", kWorkbookOrder);
    dirty |= set_attr(calc, "fullCalcOnLoad", "1");
  }

  if (dirty) w.put(part, serialize(doc));
}

}  // namespace qz::engine::xlsx
