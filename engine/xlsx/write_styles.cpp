// The style records a workbook gained since loading, appended to the styles part (a new cell
// format starts as a copy of the one it was derived from), and the palette.
#include <cstdio>

#include "engine/xlsx/common.hpp"
#include "engine/xlsx/writer.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::xlsx {

namespace {

constexpr const char* kCtStyles =
    "application/vnd.openxmlformats-officedocument.spreadsheetml.styles+xml";
const std::vector<std::string_view> kStylesOrder = {
    "numFmts",    "fonts", "fills",       "borders", "cellStyleXfs", "cellXfs",
    "cellStyles", "dxfs",  "tableStyles", "colors",  "extLst"};

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

}  // namespace

void write_styles(PackageWriter& w) {
  const StyleTable& st = w.book.styles;
  std::vector<uint32_t> new_fmts;
  for (const auto& [id, code] : st.numfmts)
    if (!w.state->numfmt_ids.count(id)) new_fmts.push_back(id);
  bool palette_changed =
      w.book.palette != (w.state->package ? w.state->palette : default_palette());
  BookState::Counts now{st.fonts.size(), st.fills.size(), st.borders.size(), st.xfs.size()};
  if (now == w.state->in_model && new_fmts.empty() && !palette_changed && w.source) return;
  const BookState::Counts& base = w.state->in_file;

  std::string part = w.state->styles_part;
  std::string text = part.empty() ? std::string() : w.source_text(part);
  if (text.empty()) {
    if (part.empty()) {
      part = w.state->styles_part = w.fresh_part(beside(w.state->workbook_part, "styles"), ".xml");
      w.add_rel(w.state->workbook_part, std::string(kRelDoc) + "/styles",
                relative_target(w.state->workbook_part, part), false);
      w.set_content_type(part, kCtStyles);
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
  w.parse(part, text, doc);
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
        auto bgr = static_cast<uint32_t>(w.book.palette[static_cast<size_t>(i - 8)]);
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
  w.put(part, serialize(doc));
  if (!w.in_source(part)) w.add_new(part);
}

}  // namespace qz::engine::xlsx
