// Loading a package into the engine's model. Small parts (workbook, styles, theme, drawings,
// properties) are read as trees; worksheets and shared strings, which can hold millions of
// items, are read token by token straight into the cell store.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "engine/calc/calc.hpp"
#include "engine/numfmt/numfmt.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/read.hpp"
#include "engine/xlsx/state.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "engine/xlsx/xml_scan.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"
#include "vocab/dates.hpp"

namespace qz::engine::xlsx {

namespace {

using T = XmlScanner::Token;

auto scan_getter(const XmlScanner& x) {
  return [&x](const char* name) -> std::optional<std::string_view> {
    bool found = false;
    std::string_view v = x.attr(name, &found);
    if (!found) return std::nullopt;
    return v;
  };
}

FontRec read_font(const pugi::xml_node& n) {
  FontRec f;
  f.family = 0;
  f.scheme.clear();
  for (pugi::xml_node c : n.children())
    apply_font_child(f, local_name(c.name()), [c](const char* a) { return node_attr(c, a); });
  return f;
}

Color read_node_color(const pugi::xml_node& n) {
  return read_color([n](const char* a) { return node_attr(n, a); });
}

HAlign halign_of(std::string_view v) {
  if (v == "left") return HAlign::Left;
  if (v == "center") return HAlign::Center;
  if (v == "right") return HAlign::Right;
  if (v == "fill") return HAlign::Fill;
  if (v == "justify") return HAlign::Justify;
  if (v == "centerContinuous") return HAlign::CenterContinuous;
  if (v == "distributed") return HAlign::Distributed;
  return HAlign::General;
}

int32_t automation_rgb(uint32_t argb) {
  uint32_t r = (argb >> 16) & 0xff, g = (argb >> 8) & 0xff, b = argb & 0xff;
  return static_cast<int32_t>(r | (g << 8) | (b << 16));
}

struct IsoTime {
  int year = 0, month = 0, day = 0;
  double fraction = 0;  // of a day
};

// "2024-03-01T12:30:00Z" (time, seconds and zone optional), or nothing.
std::optional<IsoTime> iso_parts(std::string_view t) {
  IsoTime r;
  int h = 0, mi = 0;
  double s = 0;
  auto num = [&](size_t at, size_t len, int& out) {
    if (at + len > t.size()) return false;
    out = 0;
    for (size_t i = at; i < at + len; ++i) {
      if (t[i] < '0' || t[i] > '9') return false;
      out = out * 10 + (t[i] - '0');
    }
    return true;
  };
  if (!num(0, 4, r.year) || t.size() < 10 || t[4] != '-' || !num(5, 2, r.month) || t[7] != '-' ||
      !num(8, 2, r.day))
    return std::nullopt;
  if (r.month < 1 || r.month > 12 || r.day < 1 || r.day > 31) return std::nullopt;
  if (t.size() > 10) {
    if (t[10] != 'T' && t[10] != ' ') return std::nullopt;
    if (!num(11, 2, h) || t.size() < 16 || t[13] != ':' || !num(14, 2, mi)) return std::nullopt;
    if (t.size() > 16 && t[16] == ':') {
      size_t e = 17;
      while (e < t.size() && ((t[e] >= '0' && t[e] <= '9') || t[e] == '.')) ++e;
      s = parse_double(t.substr(17, e - 17)).value_or(0);
    }
  }
  r.fraction = (h * 3600 + mi * 60 + s) / 86400.0;
  return r;
}

// An ISO date-time as an automation date.
std::optional<double> iso_datetime(std::string_view t) {
  auto p = iso_parts(t);
  if (!p) return std::nullopt;
  return static_cast<double>(dates::serial_from_civil(p->year, p->month, p->day)) + p->fraction;
}

}  // namespace

String widen(std::string_view s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return from_utf8(s);
  return String(s.begin(), s.end());
}

// ---------------------------------------------------------------------------------------------

Loader::Loader(std::shared_ptr<const Package> pkg, bool parse_uncached)
    : pkg_(std::move(pkg)), parse_uncached_(parse_uncached) {
  state_ = std::make_shared<BookState>();
  state_->package = pkg_;
}

std::string Loader::where(std::string_view part) const {
  return "cannot open '" + pkg_->display_name() + "': part '" + std::string(part) + "'";
}

void Loader::fail(std::string_view part, const std::string& problem) const {
  throw Error(err::host_failure, where(part) + " " + problem);
}

BookPtr Loader::run(String book_name) {
  book_ = std::make_shared<Book>(std::move(book_name));
  book_->file_state = state_;
  state_->workbook_part = pkg_->workbook_part();

  for (const auto& r : pkg_->relationships(""))
    if (r.kind() == "custom-properties" && !r.external && pkg_->has_part(r.part))
      state_->custom_props_part = r.part;

  workbook_rels_ = pkg_->relationships(state_->workbook_part);
  for (const auto& r : workbook_rels_) {
    if (r.external || !pkg_->has_part(r.part)) continue;
    std::string_view k = r.kind();
    if (k == "styles")
      state_->styles_part = r.part;
    else if (k == "sharedStrings")
      state_->strings_part = r.part;
    else if (k == "theme")
      read_theme(r.part);
    else if (k == "vbaProject")
      book_->has_vba = true;
  }

  read_styles();
  if (!state_->strings_part.empty()) read_strings(state_->strings_part);
  read_workbook();
  if (!state_->custom_props_part.empty()) read_custom_props(state_->custom_props_part);
  state_->props = book_->props;
  book_->loaded();
  return book_;
}

// --- workbook ---------------------------------------------------------------------------------

void Loader::read_workbook() {
  const std::string& part = state_->workbook_part;
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  pugi::xml_node wb = doc.document_element();
  if (local_name(wb.name()) != "workbook")
    fail(part, "is not a workbook (its root is <" + std::string(wb.name()) + ">)");

  std::map<std::string, const Relationship*> rels;
  for (const auto& r : workbook_rels_) rels[r.id] = &r;

  // Children are looked up by local name, so strict packages (another namespace, perhaps
  // under a prefix) read the same.
  auto child = [](const pugi::xml_node& n, std::string_view tag) {
    for (pugi::xml_node c : n.children())
      if (local_name(c.name()) == tag) return c;
    return pugi::xml_node();
  };

  if (pugi::xml_node pr = child(wb, "workbookPr")) {
    book_->date1904 = parse_bool(node_attr(pr, "date1904").value_or("0"), false);
    book_->code_name = from_utf8(pr.attribute("codeName").value());
  }

  if (pugi::xml_node pr = child(wb, "calcPr")) {
    CalcSettings& calc = book_->calc_settings;
    calc.iterate = parse_bool(node_attr(pr, "iterate").value_or("0"), false);
    calc.iterate_count = static_cast<int32_t>(
        parse_int(pr.attribute("iterateCount").value()).value_or(calc.iterate_count));
    char* end = nullptr;
    double delta = std::strtod(pr.attribute("iterateDelta").value(), &end);
    if (end && *end == 0 && end != pr.attribute("iterateDelta").value() && delta >= 0)
      calc.iterate_delta = delta;
  }

  int32_t active_tab = 0;
  if (pugi::xml_node views = child(wb, "bookViews")) {
    book_->windows.clear();
    bool first = true;
    for (pugi::xml_node v : views.children()) {
      if (local_name(v.name()) != "workbookView") continue;
      WindowRec w;
      std::string_view vis = v.attribute("visibility").value();
      w.visible = vis != "hidden" && vis != "veryHidden";
      if (first)
        active_tab = static_cast<int32_t>(parse_int(v.attribute("activeTab").value()).value_or(0));
      first = false;
      book_->windows.push_back(std::move(w));
    }
    if (book_->windows.empty()) book_->windows.emplace_back();
  }

  pugi::xml_node sheets = child(wb, "sheets");
  std::vector<SheetId> by_position;
  std::vector<std::unique_ptr<SheetJob>> jobs;
  // A sheet name the model refuses stops the listing there; the sheets before it are read
  // first, so that a damaged one among them is what gets reported, as when reading in turn.
  std::exception_ptr bad_name;
  for (pugi::xml_node sn : sheets.children()) {
    if (local_name(sn.name()) != "sheet") continue;
    std::string name = sn.attribute("name").value();
    std::string rid(rel_id_of(sn));
    auto it = rels.find(rid);
    if (it == rels.end() || it->second->external || !pkg_->has_part(it->second->part)) {
      // A sheet entry without a part shows nothing; the application drops it on repair, and
      // so does a save that rewrites the workbook part.
      by_position.push_back(calc::kNoSheet);
      continue;
    }
    const Relationship& rel = *it->second;
    std::string_view kind = rel.kind();
    SheetKind sk = kind == "chartsheet" ? SheetKind::Chart : SheetKind::Worksheet;
    Sheet* s = nullptr;
    try {
      s = &book_->add_sheet(from_utf8(name), sk, -1, false);
    } catch (const Error& e) {
      bad_name = std::make_exception_ptr(
          Error(err::host_failure, where(part) + " has a sheet named '" + name +
                                       "' that cannot be a sheet name (" + e.message() + ")"));
      break;
    }
    std::string_view st = sn.attribute("state").value();
    s->visibility = st == "veryHidden" ? 2 : st == "hidden" ? 0 : -1;
    auto ss = std::make_shared<SheetState>();
    ss->part = rel.part;
    ss->rel_id = rid;
    ss->sheet_id = sn.attribute("sheetId").value();
    s->file_state = ss;
    by_position.push_back(s->id);
    const auto job_kind = sk == SheetKind::Chart  ? SheetJob::Kind::Chart
                          : kind == "dialogsheet" ? SheetJob::Kind::Dialog
                                                  : SheetJob::Kind::Worksheet;
    jobs.push_back(std::make_unique<SheetJob>(*s, *ss, job_kind));
  }
  book_->sheets_read();
  read_sheets(jobs);
  if (bad_name) std::rethrow_exception(bad_name);
  if (book_->sheets.empty()) fail(part, "lists no sheets");
  book_->active_sheet =
      std::clamp<int32_t>(active_tab, 0, static_cast<int32_t>(book_->sheets.size()) - 1);

  if (pugi::xml_node names = child(wb, "definedNames")) {
    for (pugi::xml_node dn : names.children()) {
      if (local_name(dn.name()) != "definedName") continue;
      DefinedName d;
      bool orphan = false;  // scoped to a sheet that is not there
      d.name = from_utf8(dn.attribute("name").value());
      for (pugi::xml_attribute a : dn.attributes()) {
        std::string_view an = a.name();
        if (an == "name") continue;
        if (an == "localSheetId") {
          auto i = parse_int(a.value());
          if (i && *i >= 0 && *i < static_cast<int64_t>(by_position.size()) &&
              by_position[*i] != calc::kNoSheet)
            d.scope = by_position[*i];
          else
            orphan = true;
        } else if (an == "hidden") {
          d.hidden = parse_bool(a.value(), false);
        } else if (an == "comment") {
          d.comment = from_utf8(a.value());
        } else {
          d.attrs.emplace_back(from_utf8(an), from_utf8(a.value()));
        }
      }
      d.formula = from_utf8(dn.text().get());
      // Names are parsed when something evaluates them; a name whose text the engine
      // cannot read is kept as text and written back as it was.
      if (!orphan) book_->load_name(std::move(d));
    }
  }
  if (pugi::xml_node refs = child(wb, "externalReferences")) {
    // Formulas number the linked workbooks in this order ([1] the first).
    for (pugi::xml_node er : refs.children()) {
      if (local_name(er.name()) != "externalReference") continue;
      ExternalLink link;
      link.from_file = true;
      auto it = rels.find(std::string(rel_id_of(er)));
      if (it != rels.end() && !it->second->external && pkg_->has_part(it->second->part))
        read_external_link(it->second->part, link);
      book_->links.push_back(std::move(link));
    }
  }
  state_->sheets_loaded = book_->sheets.size();
  for (const auto& sp : book_->sheets) {
    auto ss = std::static_pointer_cast<SheetState>(sp->file_state);
    state_->sheet_parts.emplace_back(ss->rel_id, ss->part);
    for (const FormulaCell& f : sp->formulas) ss->formulas += f.live;
  }
}

void Loader::read_external_link(const std::string& part, ExternalLink& link) {
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  auto child = [](const pugi::xml_node& n, std::string_view tag) {
    for (pugi::xml_node c : n.children())
      if (local_name(c.name()) == tag) return c;
    return pugi::xml_node();
  };
  pugi::xml_node book = child(doc.document_element(), "externalBook");
  if (!book) return;  // a link to another program's data, kept as it is
  std::string rid(rel_id_of(book));
  for (const auto& r : pkg_->relationships(part))
    if (r.id == rid) link.target = from_utf8(r.target);
  if (link.target.starts_with(u"file:///")) link.target.erase(0, 8);
  for (pugi::xml_node sn : child(book, "sheetNames").children())
    if (local_name(sn.name()) == "sheetName")
      link.sheets.push_back(from_utf8(sn.attribute("val").value()));
  link.values.resize(link.sheets.size());
  for (pugi::xml_node sd : child(book, "sheetDataSet").children()) {
    if (local_name(sd.name()) != "sheetData") continue;
    auto sheet = parse_int(sd.attribute("sheetId").value());
    if (!sheet || *sheet < 0 || *sheet >= static_cast<int64_t>(link.values.size())) continue;
    auto& values = link.values[static_cast<size_t>(*sheet)];
    for (pugi::xml_node row : sd.children())
      for (pugi::xml_node cell : row.children()) {
        if (local_name(cell.name()) != "cell") continue;
        auto at = parse_ref(cell.attribute("r").value());
        pugi::xml_node v = child(cell, "v");
        if (!at || !v) continue;
        std::string_view t = cell.attribute("t").value();
        std::string body = v.text().get();
        calc::Value value;
        if (t == "str" || t == "s" || t == "inlineStr")
          value = calc::Value::str(from_utf8(body));
        else if (t == "b")
          value = calc::Value::boolean(body == "1");
        else if (t == "e")
          value = calc::Value::error(
              calc::error_from_text(from_utf8(body)).value_or(cell_error::value));
        else
          value = calc::Value::num(parse_double(body).value_or(0));
        values[{at->row1, at->col1}] = std::move(value);
      }
  }
}

// --- theme, styles, strings ---------------------------------------------------------------------

void Loader::read_theme(const std::string& part) {
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  pugi::xml_node scheme;
  for (pugi::xml_node n : doc.document_element().children())
    if (local_name(n.name()) == "themeElements")
      for (pugi::xml_node c : n.children())
        if (local_name(c.name()) == "clrScheme") scheme = c;
  if (!scheme) return;
  static constexpr std::string_view order[] = {"dk1",     "lt1",     "dk2",     "lt2",
                                               "accent1", "accent2", "accent3", "accent4",
                                               "accent5", "accent6", "hlink",   "folHlink"};
  for (size_t i = 0; i < 12; ++i) {
    for (pugi::xml_node c : scheme.children()) {
      if (local_name(c.name()) != order[i]) continue;
      for (pugi::xml_node v : c.children()) {
        std::string_view tag = local_name(v.name());
        const char* hex = tag == "srgbClr"  ? v.attribute("val").value()
                          : tag == "sysClr" ? v.attribute("lastClr").value()
                                            : "";
        uint32_t rgb = 0;
        std::string_view h = hex;
        if (h.size() == 6 && std::from_chars(h.data(), h.data() + 6, rgb, 16).ec == std::errc())
          book_->theme[i] = rgb;
      }
    }
  }
}

void Loader::read_styles() {
  StyleTable& st = book_->styles;
  const std::string& part = state_->styles_part;
  auto model_counts = [&] {
    return BookState::Counts{st.fonts.size(), st.fills.size(), st.borders.size(), st.xfs.size()};
  };
  state_->palette = book_->palette;
  if (part.empty()) {
    // No styles part: the engine's defaults stand, all of them new to the file.
    state_->in_model = model_counts();
    return;
  }
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  st.clear();
  pugi::xml_node root = doc.document_element();
  for (pugi::xml_node sec : root.children()) {
    std::string_view tag = local_name(sec.name());
    if (tag == "numFmts") {
      for (pugi::xml_node n : sec.children()) {
        auto id = parse_int(n.attribute("numFmtId").value());
        if (!id || *id < 0 || *id > 100000) continue;
        uint32_t uid = static_cast<uint32_t>(*id);
        state_->numfmt_ids.insert(uid);
        if (uid >= 164 || !numfmt::builtin_code(static_cast<int32_t>(uid)))
          st.numfmts[uid] = from_utf8(n.attribute("formatCode").value());
      }
    } else if (tag == "fonts") {
      for (pugi::xml_node n : sec.children())
        if (local_name(n.name()) == "font") st.fonts.push_back(read_font(n));
    } else if (tag == "fills") {
      for (pugi::xml_node n : sec.children()) {
        if (local_name(n.name()) != "fill") continue;
        FillRec f;
        for (pugi::xml_node p : n.children()) {
          std::string_view pt = local_name(p.name());
          if (pt == "gradientFill") {
            f.gradient = true;
          } else if (pt == "patternFill") {
            f.pattern = from_utf8(node_attr(p, "patternType").value_or("none"));
            for (pugi::xml_node c : p.children()) {
              std::string_view ct = local_name(c.name());
              if (ct == "fgColor")
                f.fg = read_node_color(c);
              else if (ct == "bgColor")
                f.bg = read_node_color(c);
            }
          }
        }
        st.fills.push_back(std::move(f));
      }
    } else if (tag == "borders") {
      for (pugi::xml_node n : sec.children()) {
        if (local_name(n.name()) != "border") continue;
        BorderRec b;
        b.diagonal_up = parse_bool(n.attribute("diagonalUp").value(), false);
        b.diagonal_down = parse_bool(n.attribute("diagonalDown").value(), false);
        for (pugi::xml_node side : n.children()) {
          std::string_view sd = local_name(side.name());
          BorderSide* bs = sd == "left" || sd == "start"  ? &b.left
                           : sd == "right" || sd == "end" ? &b.right
                           : sd == "top"                  ? &b.top
                           : sd == "bottom"               ? &b.bottom
                           : sd == "diagonal"             ? &b.diagonal
                                                          : nullptr;
          if (!bs) continue;
          bs->style = from_utf8(side.attribute("style").value());
          for (pugi::xml_node c : side.children())
            if (local_name(c.name()) == "color") bs->color = read_node_color(c);
        }
        st.borders.push_back(std::move(b));
      }
    } else if (tag == "cellXfs") {
      for (pugi::xml_node n : sec.children()) {
        if (local_name(n.name()) != "xf") continue;
        Xf x;
        auto u = [&](const char* a) {
          return static_cast<uint32_t>(
              std::max<int64_t>(0, parse_int(n.attribute(a).value()).value_or(0)));
        };
        x.font = u("fontId");
        x.fill = u("fillId");
        x.border = u("borderId");
        x.numfmt = u("numFmtId");
        x.xf_id = u("xfId");
        x.quote_prefix = parse_bool(n.attribute("quotePrefix").value(), false);
        static constexpr const char* apply[] = {"applyNumberFormat", "applyFont",
                                                "applyFill",         "applyBorder",
                                                "applyAlignment",    "applyProtection"};
        for (int i = 0; i < 6; ++i)
          if (parse_bool(n.attribute(apply[i]).value(), false))
            x.apply |= static_cast<uint8_t>(1 << i);
        for (pugi::xml_node c : n.children()) {
          std::string_view ct = local_name(c.name());
          if (ct == "alignment") {
            x.align.horizontal = halign_of(c.attribute("horizontal").value());
            x.align.vertical = from_utf8(c.attribute("vertical").value());
            x.align.wrap = parse_bool(c.attribute("wrapText").value(), false);
            x.align.shrink = parse_bool(c.attribute("shrinkToFit").value(), false);
            x.align.indent =
                static_cast<int32_t>(parse_int(c.attribute("indent").value()).value_or(0));
            x.align.rotation =
                static_cast<int32_t>(parse_int(c.attribute("textRotation").value()).value_or(0));
          } else if (ct == "protection") {
            x.locked = parse_bool(c.attribute("locked").value(), true);
            x.hidden = parse_bool(c.attribute("hidden").value(), false);
          }
        }
        st.xfs.push_back(std::move(x));
      }
    } else if (tag == "colors") {
      for (pugi::xml_node c : sec.children()) {
        if (local_name(c.name()) != "indexedColors") continue;
        size_t i = 0;
        for (pugi::xml_node rgb : c.children()) {
          if (local_name(rgb.name()) != "rgbColor") continue;
          if (i >= 8 && i < 64) {
            uint32_t v = 0;
            std::string_view h = rgb.attribute("rgb").value();
            std::from_chars(h.data(), h.data() + h.size(), v, 16);
            book_->palette[i - 8] = automation_rgb(v);
          }
          ++i;
        }
        state_->custom_palette = true;
      }
    }
  }
  state_->in_file = model_counts();
  // Every table needs its record 0 (cells without a style show it); a part that has none gets
  // the engine's default, which a save writes only if it writes the part at all.
  StyleTable defaults;
  if (st.fonts.empty()) st.fonts.push_back(defaults.fonts[0]);
  if (st.fills.empty()) st.fills = defaults.fills;
  if (st.borders.empty()) st.borders.push_back(defaults.borders[0]);
  if (st.xfs.empty()) st.xfs.push_back(defaults.xfs[0]);
  state_->in_model = model_counts();
  state_->palette = book_->palette;
}

// Reads one <si> or <is>: plain text, or runs with their fonts. Phonetic guides (<rPh>) are
// not part of the cell's text.
void Loader::read_rich(XmlScanner& x, String& text, std::vector<Run>& runs) {
  std::string utf8;
  bool any_run = false;
  size_t d = x.depth();
  if (x.self_closing()) {
    x.next();
    return;
  }
  std::vector<std::pair<size_t, std::optional<FontRec>>> pieces;  // utf8 offset, font
  for (T t; (t = x.next()) != T::Eof;) {
    if (t == T::End && x.depth() == d) break;
    if (t != T::Start) continue;
    std::string_view tag = x.local();
    if (tag == "t") {
      utf8 += x.element_text();
    } else if (tag == "r") {
      any_run = true;
      std::optional<FontRec> font;
      size_t start = utf8.size();
      size_t rd = x.depth();
      if (x.self_closing()) {
        x.next();
        continue;
      }
      for (T u; (u = x.next()) != T::Eof;) {
        if (u == T::End && x.depth() == rd) break;
        if (u != T::Start) continue;
        if (x.local() == "rPr") {
          FontRec f;
          f.family = 0;
          f.scheme.clear();
          size_t pd = x.depth();
          if (!x.self_closing()) {
            for (T v; (v = x.next()) != T::Eof;) {
              if (v == T::End && x.depth() == pd) break;
              if (v == T::Start) apply_font_child(f, x.local(), scan_getter(x));
            }
          } else {
            x.next();
          }
          font = std::move(f);
        } else if (x.local() == "t") {
          utf8 += x.element_text();
        } else {
          x.skip_element();
        }
      }
      pieces.emplace_back(start, std::move(font));
    } else {
      x.skip_element();
    }
  }
  text = decode_escapes(from_utf8(utf8));
  if (!any_run) return;
  // Run starts count UTF-16 units of the decoded text: convert each piece's offset.
  for (auto& [off, font] : pieces) {
    uint32_t start = static_cast<uint32_t>(
        decode_escapes(from_utf8(std::string_view(utf8).substr(0, off))).size());
    if (!runs.empty() && runs.back().start == start) runs.pop_back();  // an empty run
    runs.push_back(Run{start, std::move(font)});
  }
}

void Loader::read_strings(const std::string& part) {
  PartBuffer buffer = pkg_->zip().read_buffer(*pkg_->zip().find(part));
  XmlScanner x(buffer.view(), where(part));
  size_t released = 0;
  x.next();
  if (x.local() != "sst") fail(part, "is not a shared strings part");
  // The root's start tag stays: its name is checked against the end tag.
  const size_t keep = x.end();
  StringPool& pool = book_->strings;
  String s;
  std::vector<Run> runs;
  for (T t; (t = x.next()) != T::Eof;) {
    if (t != T::Start) continue;
    if (x.local() != "si") {
      x.skip_element();
      continue;
    }
    if (x.begin() - released > (size_t{4} << 20)) {
      // Between items only the root is open.
      released = x.begin();
      buffer.release(keep, released);
    }
    s.clear();
    runs.clear();
    read_rich(x, s, runs);
    pool.append(s, runs);
  }
  state_->strings = pool.size();
  state_->strings_in_file = pool.size();
}

// --- worksheets -------------------------------------------------------------------------------

void Loader::read_worksheet(SheetJob& job) {
  Sheet& s = job.s;
  SheetState& ss = job.ss;
  const ZipEntry* entry = pkg_->zip().find(ss.part);
  PartBuffer buffer = pkg_->zip().read_buffer(*entry);
  std::string_view text = buffer.view();
  // Room for every formula at once: growing the table doubles it, and copies it, many times.
  size_t formulas = 0;
  const char* const text_end = text.data() + text.size();
  // 'f' is rare in cell markup outside formula tags, so looking for it is the quick way.
  for (const char* p = text.data();
       (p = static_cast<const char*>(std::memchr(p, 'f', static_cast<size_t>(text_end - p))));) {
    bool tag = p > text.data() && p[-1] == '<';
    ++p;
    if (tag && p < text_end && (*p == '>' || *p == ' ' || *p == '/')) ++formulas;
  }
  s.formulas.reserve(formulas);
  XmlScanner x(text, where(ss.part));
  x.next();
  ss.root = std::string(x.name());
  std::string drawing_rid;
  bool has_tables = false;
  std::vector<std::pair<Rect, std::string>> link_rids;
  for (T t; (t = x.next()) != T::Eof;) {
    if (t != T::Start) continue;
    std::string_view tag = x.local();
    if (tag == "sheetData") {
      // What comes before the cell data is kept, for a save to patch; the cell data's pages
      // are given back as they are read.
      ss.data_begin = x.begin();
      ss.head.assign(text.substr(0, ss.data_begin));
      read_rows(x, job, &buffer);
      ss.data_end = x.end();
      ss.tail.assign(text.substr(ss.data_end));
    } else if (tag == "sheetPr") {
      s.code_name = from_utf8(x.attr_text("codeName"));
      x.skip_element();
    } else if (tag == "sheetFormatPr") {
      if (auto h = parse_double(x.attr("defaultRowHeight"))) s.default_row_height = *h;
      if (auto w = parse_double(x.attr("defaultColWidth"))) s.default_col_width = *w;
      x.skip_element();
    } else if (tag == "sheetViews") {
      read_selection(x, s);
    } else if (tag == "cols") {
      read_cols(x, s);
    } else if (tag == "mergeCells") {
      size_t d = x.depth();
      if (x.self_closing())
        x.next();
      else
        for (T u; (u = x.next()) != T::Eof && !(u == T::End && x.depth() == d);)
          if (u == T::Start && x.local() == "mergeCell")
            if (auto r = parse_ref(x.attr("ref"))) s.merged.push_back(*r);
    } else if (tag == "hyperlinks") {
      size_t d = x.depth();
      if (x.self_closing())
        x.next();
      else
        for (T u; (u = x.next()) != T::Eof && !(u == T::End && x.depth() == d);) {
          if (u != T::Start || x.local() != "hyperlink") continue;
          auto r = parse_ref(x.attr("ref"));
          if (!r) continue;
          HyperlinkRec h;
          h.ref = *r;
          h.sub_address = from_utf8(x.attr_text("location"));
          h.screen_tip = from_utf8(x.attr_text("tooltip"));
          h.display = from_utf8(x.attr_text("display"));
          for (const auto& a : x.attrs())
            if (a.name.size() > 3 && a.name.substr(a.name.size() - 3) == ":id") {
              std::string rid;
              x.decode(a.value, rid);
              h.rel_id = from_utf8(rid);
            }
          s.hyperlinks.push_back(std::move(h));
        }
    } else if (tag == "autoFilter") {
      s.auto_filter = parse_ref(x.attr("ref"));
      x.skip_element();
    } else if (tag == "tableParts") {
      has_tables = true;
      x.skip_element();
    } else if (tag == "drawing") {
      for (const auto& a : x.attrs())
        if (a.name.size() > 3 && a.name.substr(a.name.size() - 3) == ":id") drawing_rid = a.value;
      x.skip_element();
    } else {
      x.skip_element();
    }
  }
  bool need_rels = !drawing_rid.empty() || !s.hyperlinks.empty() || has_tables;
  if (!need_rels) return;
  auto rels = pkg_->relationships(ss.part);
  if (has_tables)
    for (const auto& r : rels)
      if (r.kind() == "table" && !r.external && pkg_->has_part(r.part)) read_table(s, r.part);
  for (auto& h : s.hyperlinks) {
    if (h.rel_id.empty()) continue;
    for (const auto& r : rels)
      if (r.id == to_utf8(h.rel_id)) {
        h.address = from_utf8(r.target);
        ss.hyperlink_targets[r.id] = r.target;
      }
  }
  if (!drawing_rid.empty())
    for (const auto& r : rels)
      if (r.id == drawing_rid && !r.external && pkg_->has_part(r.part)) read_drawing(s, ss, r.part);
}

// Sheets are independent once the workbook, its styles and its shared strings are read: each
// is read into its own Sheet and SheetJob, on two threads when there are two cores, and then
// handed over in sheet order, so the workbook comes out as one thread reading them in turn
// makes it. The first sheet in order that fails is the one reported.
void Loader::read_sheets(std::vector<std::unique_ptr<SheetJob>>& jobs) {
  std::atomic<size_t> next{0};
  std::atomic<size_t> first_failed{jobs.size()};
  auto work = [&]() noexcept {
    for (size_t i; (i = next.fetch_add(1)) < jobs.size();) {
      if (i > first_failed.load()) continue;  // a sheet before it failed: it goes unreported
      read_sheet(*jobs[i]);
      if (jobs[i]->error) {
        size_t seen = first_failed.load();
        while (i < seen && !first_failed.compare_exchange_weak(seen, i)) {
        }
      }
    }
  };
  std::thread helper;
  if (jobs.size() > 1 && std::thread::hardware_concurrency() > 1) {
    try {
      helper = std::thread(work);
    } catch (const std::system_error&) {
      // No second thread to be had: this one reads every sheet.
    }
  }
  work();
  if (helper.joinable()) helper.join();
  for (auto& job : jobs) {
    if (job->error) std::rethrow_exception(job->error);
    merge_sheet(*job);
  }
}

void Loader::read_sheet(SheetJob& job) {
  try {
    if (job.kind == SheetJob::Kind::Worksheet) {
      read_worksheet(job);
      if (parse_uncached_) parse_ahead(job);
    } else
      read_sheet_extras(job.s, job.ss, job.kind == SheetJob::Kind::Dialog);
  } catch (...) {
    job.error = std::current_exception();
  }
}

// Formulas kept without a value are calculated as soon as the workbook opens, and parsing
// them is most of that work. A parse depends only on the formula's text, its cell and the
// workbook's sheet names, all settled by now, so each sheet's are parsed on the thread that
// read it, once the sheet is complete (a slot may have been taken over by a later cell).
void Loader::parse_ahead(SheetJob& job) {
  calc::FormulaCache cache;
  // The texts are widened into one buffer: nearly all are ASCII, and a string of their own
  // would cost each formula an allocation.
  String wide;
  for (uint32_t slot : job.formulas.uncached) {
    const FormulaCell& f = job.s.formulas[slot];
    if (!f.live || f.parsed || f.shared_master || !f.file || f.file->text.empty() ||
        f.value.kind != calc::Value::Kind::Empty)
      continue;
    const std::string& text = f.file->text;
    if (std::all_of(text.begin(), text.end(),
                    [](char c) { return static_cast<unsigned char>(c) < 0x80; }))
      wide.assign(text.begin(), text.end());
    else
      wide = f.file->text16();
    try {
      // Straight into the sheet's own cell: a list of parses beside the cells would hold
      // a pointer pair per formula of every sheet until the last one is read.
      book_->set_parse(job.s, slot, cache.parse(wide, calc::Notation::A1, f.at, job.s.id, *book_));
    } catch (const Error&) {
      // Left to the calculation, which meets the same problem and keeps the text.
    }
  }
}

void Loader::merge_sheet(SheetJob& job) {
  if (parse_uncached_) {
    // Equal parses of the sheet's cache are one object: each joins the workbook's cache once.
    std::unordered_map<const calc::Formula*, calc::FormulaPtr> shared;
    for (uint32_t slot : job.formulas.uncached) {
      const FormulaCell& f = job.s.formulas[slot];
      if (!f.parsed) continue;
      auto [it, fresh] = shared.try_emplace(f.parsed.get());
      if (fresh) it->second = book_->share_parse(f.parsed);
      book_->set_parse(job.s, slot, it->second);
    }
  }
  book_->sheet_loaded(job.s, job.formulas);
  if (job.texts.empty()) return;
  // The sheet's inline texts join the pool after those of the sheets before it.
  StringPool& pool = book_->strings;
  const uint32_t base = static_cast<uint32_t>(pool.size());
  for (auto& [text, runs] : job.texts)
    state_->inline_strings.insert(pool.append(text, std::move(runs)));
  // A cell read twice holds the later text; the earlier entry finds it renumbered already.
  for (const CellRef& at : job.text_cells) {
    Cell* c = job.s.cells.find(at.row, at.col);
    if (c && c->kind() == CellKind::Text && (c->index & kLocalText))
      c->index = base + (c->index & ~kLocalText);
  }
  decltype(job.texts)().swap(job.texts);
}

void Loader::read_sheet_extras(Sheet& s, SheetState& ss, bool dialog) {
  // Chart sheets and dialog sheets keep their parts as they are; only what the workbook's
  // object model shows of them is read.
  std::string text = pkg_->read_part(ss.part);
  XmlScanner x(text, where(ss.part));
  x.next();
  ss.root = std::string(x.name());
  for (T t; (t = x.next()) != T::Eof;) {
    if (t != T::Start) continue;
    if (x.local() == "sheetPr") s.code_name = from_utf8(x.attr_text("codeName"));
    x.skip_element();
  }
  (void)dialog;
}

void Loader::read_table(Sheet& s, const std::string& part) {
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  pugi::xml_node t = doc.document_element();
  TableRec rec;
  rec.part = part;
  std::string_view name = t.attribute("displayName").value();
  if (name.empty()) name = t.attribute("name").value();
  rec.name = from_utf8(name);
  auto ref = parse_ref(t.attribute("ref").value());
  if (!ref || rec.name.empty()) return;  // a table without a place or a name names nothing
  rec.ref = *ref;
  rec.header_rows = t.attribute("headerRowCount").as_int(1) > 0 ? 1 : 0;
  rec.totals_rows = t.attribute("totalsRowCount").as_int(0) > 0 ? 1 : 0;
  for (pugi::xml_node c : t.children())
    if (local_name(c.name()) == "tableColumns")
      for (pugi::xml_node col : c.children())
        if (local_name(col.name()) == "tableColumn")
          rec.columns.push_back(from_utf8(col.attribute("name").value()));
  s.tables.push_back(std::move(rec));
}

void Loader::read_drawing(Sheet& s, SheetState& ss, const std::string& part) {
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  ss.drawing_part = part;
  // A chart object is a graphic frame whose graphic data is a chart; its name is on the
  // frame's non-visual properties.
  struct Walker : pugi::xml_tree_walker {
    std::vector<std::pair<String, String>> found;
    bool for_each(pugi::xml_node& n) override {
      if (local_name(n.name()) != "graphicFrame") return true;
      pugi::xml_node cnv, data;
      for (pugi::xml_node c : n.children()) {
        if (local_name(c.name()) == "nvGraphicFramePr")
          for (pugi::xml_node p : c.children())
            if (local_name(p.name()) == "cNvPr") cnv = p;
        if (local_name(c.name()) == "graphic")
          for (pugi::xml_node g : c.children())
            if (local_name(g.name()) == "graphicData") data = g;
      }
      std::string_view uri = data.attribute("uri").value();
      if (cnv && uri.find("chart") != std::string_view::npos)
        found.emplace_back(from_utf8(cnv.attribute("name").value()),
                           from_utf8(cnv.attribute("id").value()));
      return true;
    }
  } w;
  doc.traverse(w);
  for (auto& [name, id] : w.found) {
    ss.chart_names[id] = name;
    s.chart_objects.push_back(ChartObjectRec{std::move(name), std::move(id)});
  }
}

void Loader::read_selection(XmlScanner& x, Sheet& s) {
  size_t d = x.depth();
  if (x.self_closing()) {
    x.next();
    return;
  }
  bool first_view = true;
  for (T t; (t = x.next()) != T::Eof && !(t == T::End && x.depth() == d);) {
    if (t != T::Start || x.local() != "sheetView") continue;
    if (!first_view) {
      x.skip_element();
      continue;
    }
    first_view = false;
    std::string active_pane;
    bool chosen = false;
    size_t vd = x.depth();
    if (x.self_closing()) {
      x.next();
      continue;
    }
    for (T u; (u = x.next()) != T::Eof && !(u == T::End && x.depth() == vd);) {
      if (u != T::Start) continue;
      if (x.local() == "pane") {
        active_pane = x.attr_text("activePane");
      } else if (x.local() == "selection") {
        std::string pane = x.attr_text("pane");
        if (pane.empty()) pane = "topLeft";
        bool wanted = active_pane.empty() ? !chosen : pane == active_pane;
        if (wanted) {
          Selection sel;
          sel.areas.clear();
          std::string sq = x.attr_text("sqref");
          size_t p = 0;
          while (p < sq.size()) {
            size_t e = sq.find(' ', p);
            if (e == std::string::npos) e = sq.size();
            if (auto r = parse_ref(std::string_view(sq).substr(p, e - p))) sel.areas.push_back(*r);
            p = e + 1;
          }
          auto ac = parse_cell(x.attr("activeCell"));
          if (ac) sel.active = *ac;
          if (sel.areas.empty())
            sel.areas.push_back(
                Rect{sel.active.row, sel.active.col, sel.active.row, sel.active.col});
          if (!ac) sel.active = {sel.areas[0].row1, sel.areas[0].col1};
          s.selection = std::move(sel);
          chosen = true;
        }
      }
    }
  }
}

void Loader::read_cols(XmlScanner& x, Sheet& s) {
  size_t d = x.depth();
  if (x.self_closing()) {
    x.next();
    return;
  }
  for (T t; (t = x.next()) != T::Eof && !(t == T::End && x.depth() == d);) {
    if (t != T::Start || x.local() != "col") continue;
    auto lo = parse_int(x.attr("min")), hi = parse_int(x.attr("max"));
    if (!lo || !hi || *lo < 1 || *hi < *lo || *hi > calc::kMaxCols) continue;
    LineInfo li;
    for (const auto& a : x.attrs()) {
      std::string_view n = a.name;
      std::string v;
      x.decode(a.value, v);
      if (n == "min" || n == "max") continue;
      if (n == "width")
        li.size = parse_double(v).value_or(-1);
      else if (n == "customWidth")
        li.custom_size = parse_bool(v, false);
      else if (n == "hidden")
        li.hidden = parse_bool(v, false);
      else if (n == "outlineLevel")
        li.outline_level =
            static_cast<uint8_t>(std::clamp<int64_t>(parse_int(v).value_or(0), 0, 7));
      else if (n == "collapsed")
        li.collapsed = parse_bool(v, false);
      else if (n == "style") {
        li.has_style = true;
        li.style = static_cast<uint32_t>(std::max<int64_t>(0, parse_int(v).value_or(0)));
      } else {
        li.attrs.emplace_back(from_utf8(n), from_utf8(v));
      }
    }
    for (int64_t c = *lo; c <= *hi; ++c) s.cols[static_cast<int32_t>(c - 1)] = li;
  }
}

void Loader::read_rows(XmlScanner& x, SheetJob& job, PartBuffer* buffer) {
  Sheet& s = job.s;
  if (x.self_closing()) {
    x.next();
    return;
  }
  size_t d = x.depth();
  int32_t next_row = 0;
  std::string v;
  // Rows already read are given back in steps of a few MiB. Only the text of the elements
  // still open must stay: the root's and this one's start tags, before `keep`.
  const size_t keep = x.end();
  size_t released = keep;
  for (T t; (t = x.next()) != T::Eof;) {
    if (buffer && x.begin() - released > (size_t{4} << 20)) {
      released = x.begin();
      buffer->release(keep, released);
    }
    if (t == T::End && x.depth() == d) return;
    if (t != T::Start) continue;
    if (x.local() != "row") {
      x.skip_element();
      continue;
    }
    int32_t row = next_row;
    LineInfo li;
    for (const auto& a : x.attrs()) {
      std::string_view n = a.name;
      if (n == "r") {
        auto r = parse_int(a.value);
        if (!r || *r < 1 || *r > calc::kMaxRows)
          x.invalid("a row number out of range ('" + std::string(a.value) + "')");
        row = static_cast<int32_t>(*r - 1);
      } else if (n == "spans") {
        // A hint for readers, derived from the cells; a rewritten row computes none.
      } else if (n == "ht") {
        li.size = parse_double(a.value).value_or(-1);
      } else if (n == "customHeight") {
        li.custom_size = parse_bool(a.value, false);
      } else if (n == "hidden") {
        li.hidden = parse_bool(a.value, false);
      } else if (n == "outlineLevel") {
        li.outline_level =
            static_cast<uint8_t>(std::clamp<int64_t>(parse_int(a.value).value_or(0), 0, 7));
      } else if (n == "collapsed") {
        li.collapsed = parse_bool(a.value, false);
      } else if (n == "s") {
        li.style = static_cast<uint32_t>(std::max<int64_t>(0, parse_int(a.value).value_or(0)));
      } else if (n == "customFormat") {
        li.has_style = parse_bool(a.value, false);
      } else {
        v.clear();
        x.decode(a.value, v);
        li.attrs.emplace_back(from_utf8(n), from_utf8(v));
      }
    }
    if (!li.has_style) li.style = 0;
    if (!li.is_default()) s.rows[row] = std::move(li);
    next_row = row + 1;
    if (x.self_closing()) {
      x.next();
      continue;
    }
    size_t rd = x.depth();
    int32_t next_col = 0;
    for (T u;;) {
      int32_t col = next_col;
      if (read_plain_cell(x, job, row, col)) {
        next_col = col + 1;
        continue;
      }
      if ((u = x.next()) == T::Eof) break;
      if (u == T::End && x.depth() == rd) break;
      if (u != T::Start) continue;
      if (x.local() != "c") {
        x.skip_element();
        continue;
      }
      next_col = read_cell(x, job, row, next_col) + 1;
    }
  }
}

int32_t Loader::read_cell(XmlScanner& x, SheetJob& job, int32_t row, int32_t col) {
  CellData d;
  d.row = row;
  d.col = col;
  for (const auto& a : x.attrs()) {
    std::string_view n = a.name;
    if (n == "r") {
      auto c = parse_cell(a.value);
      if (!c) x.invalid("a bad cell reference '" + std::string(a.value) + "'");
      if (c->row != row)
        x.invalid("cell " + std::string(a.value) + " inside row " + std::to_string(row + 1));
      d.col = c->col;
    } else if (n == "s") {
      d.style = static_cast<uint32_t>(
          std::clamp<int64_t>(parse_int(a.value).value_or(0), 0, (1 << 27) - 1));
    } else if (n == "t") {
      d.type = a.value;
    } else {
      std::string v;
      x.decode(a.value, v);
      d.extra.emplace_back(std::string(n), std::move(v));
    }
  }
  if (d.col < 0 || d.col > kLastCol) x.invalid("a cell beyond the last column");

  if (x.self_closing()) {
    x.next();
  } else {
    size_t depth = x.depth();
    for (T t; (t = x.next()) != T::Eof;) {
      if (t == T::End && x.depth() == depth) break;
      if (t != T::Start) continue;
      std::string_view tag = x.local();
      if (tag == "v") {
        d.has_v = true;
        d.value_store = x.element_text();
        d.value = d.value_store;
      } else if (tag == "f") {
        d.ff = std::make_unique<FileFormula>();
        for (const auto& a : x.attrs()) {
          std::string v;
          x.decode(a.value, v);
          if (a.name == "t")
            d.ff->set_type(v);
          else if (a.name == "ref")
            d.ff->more().ref = from_utf8(v);
          else if (a.name == "si")
            d.ff->shared_index = static_cast<int32_t>(parse_int(v).value_or(-1));
          else
            d.ff->add_attr(a.name, v);
        }
        d.ff->text = x.element_text();
      } else if (tag == "is") {
        d.has_is = true;
        read_rich(x, d.is_text, d.is_runs);
      } else {
        x.skip_element();
      }
    }
  }
  store_cell(x, job, d);
  return d.col;
}

// Whether `t` holds the literal `lit` at `at`. The length is a constant here, so the compare
// becomes a word compare: this runs several times for each of a sheet's cells.
namespace {
template <size_t N>
bool starts_with_at(std::string_view t, size_t at, const char (&lit)[N]) {
  return t.size() - at >= N - 1 && std::memcmp(t.data() + at, lit, N - 1) == 0;
}
}  // namespace

// The cells of a sheet are nearly all of one shape: <c r="B2" s="1" t="s"><f>..</f><v>..</v></c>
// without entities, comments or unusual attributes. This reads that shape straight from the
// text; anything else is left to the general reader (returns false, having read nothing).
bool Loader::read_plain_cell(XmlScanner& x, SheetJob& job, int32_t row, int32_t& col) {
  std::string_view t = x.remaining();
  size_t i = 0, n = t.size();
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  // The end of an attribute value starting at `from` (quoted by `q`), or npos when there is
  // none or the value holds markup or entities. Values are a few characters long: a plain
  // loop beats a library search per call.
  auto value_end = [&](size_t from, char q) {
    for (size_t k = from; k < n; ++k) {
      char c = t[k];
      if (c == q) return k;
      if (c == '&' || c == '<' || c == '\r') break;  // entities, markup, line ends to normalise
    }
    return std::string_view::npos;
  };
  // Reads the next attribute of a start tag, or its end: ">" leaves the element open, "/>"
  // closes it. Anything unusual sends the cell to the general reader.
  enum class Attr { Read, Open, Closed, Bad };
  auto attribute = [&](std::string_view& name, std::string_view& value) {
    while (i < n && blank(t[i])) ++i;
    if (i >= n) return Attr::Bad;
    if (t[i] == '>') {
      ++i;
      return Attr::Open;
    }
    if (t[i] == '/') {
      if (i + 1 >= n || t[i + 1] != '>') return Attr::Bad;
      i += 2;
      return Attr::Closed;
    }
    size_t ns = i;
    while (i < n && t[i] != '=' && !blank(t[i]) && t[i] != '>') ++i;
    if (i + 1 >= n || t[i] != '=' || (t[i + 1] != '"' && t[i + 1] != '\'')) return Attr::Bad;
    name = t.substr(ns, i - ns);
    size_t vs = i + 2;
    size_t ve = value_end(vs, t[i + 1]);
    if (ve == std::string_view::npos) return Attr::Bad;
    value = t.substr(vs, ve - vs);
    i = ve + 1;
    return Attr::Read;
  };
  auto is = [&](size_t at, const auto& lit) { return starts_with_at(t, at, lit); };
  while (i < n && blank(t[i])) ++i;
  if (n - i < 4 || t[i] != '<' || t[i + 1] != 'c' ||
      !(blank(t[i + 2]) || t[i + 2] == '>' || t[i + 2] == '/'))
    return false;
  i += 2;
  CellData d;
  d.row = row;
  d.col = col;
  // Attributes. The reference, the format index and the type (r="B2" s="1" t="s") come with
  // nearly every cell, so they are read in place; any other spelling of them ("$B$2", single
  // quotes, a sign, "inlineStr") and every other attribute go through the general reader.
  bool empty = false;
  for (;;) {
    while (i < n && blank(t[i])) ++i;
    if (i < n && t[i] == '>') {
      ++i;
      break;
    }
    if (n - i > 3 && t[i + 1] == '=' && t[i + 2] == '"') {
      if (t[i] == 'r') {
        size_t k = i + 3;
        int32_t c = 0, r = 0;
        size_t letters = 0, digits = 0;
        for (; k < n && letters < 3 && t[k] >= 'A' && t[k] <= 'Z'; ++k, ++letters)
          c = c * 26 + (t[k] - 'A' + 1);
        for (; k < n && digits < 7 && t[k] >= '0' && t[k] <= '9'; ++k, ++digits)
          r = r * 10 + (t[k] - '0');
        if (letters > 0 && digits > 0 && k < n && t[k] == '"' && c <= calc::kMaxCols &&
            r == row + 1) {
          d.col = c - 1;
          i = k + 1;
          continue;
        }
      } else if (t[i] == 's') {
        size_t k = i + 3;
        int64_t v = 0;
        size_t digits = 0;
        for (; k < n && digits < 9 && t[k] >= '0' && t[k] <= '9'; ++k, ++digits)
          v = v * 10 + (t[k] - '0');
        if (digits > 0 && k < n && t[k] == '"') {
          d.style = static_cast<uint32_t>(std::min<int64_t>(v, (1 << 27) - 1));
          i = k + 1;
          continue;
        }
      } else if (t[i] == 't') {
        size_t k = i + 3;
        while (k < n && t[k] >= 'a' && t[k] <= 'z') ++k;
        if (k < n && t[k] == '"') {
          d.type = t.substr(i + 3, k - i - 3);
          i = k + 1;
          continue;
        }
      }
    }
    std::string_view name, value;
    const Attr got = attribute(name, value);
    if (got == Attr::Bad) return false;
    if (got != Attr::Read) {
      empty = got == Attr::Closed;
      break;
    }
    if (name.size() != 1) return false;
    if (name[0] == 'r') {
      auto c = parse_cell(value);
      if (!c || c->row != row) return false;  // the general reader explains the problem
      d.col = c->col;
    } else if (name[0] == 's') {
      auto v = parse_int(value);
      if (!v) return false;
      d.style = static_cast<uint32_t>(std::clamp<int64_t>(*v, 0, (1 << 27) - 1));
    } else if (name[0] == 't') {
      d.type = value;
    } else {
      return false;
    }
  }
  // Children: <v>, <f>, in any order, then </c>.
  if (!empty) {
    for (;;) {
      while (i < n && blank(t[i])) ++i;
      if (is(i, "</c>")) {
        i += 4;
        break;
      }
      if (is(i, "<v>")) {
        size_t e = value_end(i + 3, '<');
        if (e == std::string_view::npos || !is(e, "</v>")) return false;
        std::string_view v = t.substr(i + 3, e - i - 3);
        d.has_v = true;
        d.value = v;
        i = e + 4;
        continue;
      }
      if (is(i, "<f") && n - i > 2 && (blank(t[i + 2]) || t[i + 2] == '>' || t[i + 2] == '/')) {
        auto ff = std::make_unique<FileFormula>();
        i += 2;
        bool closed = false;
        for (;;) {
          std::string_view name, value;
          const Attr got = attribute(name, value);
          if (got == Attr::Bad || name.find(':') != std::string_view::npos) return false;
          if (got != Attr::Read) {
            closed = got == Attr::Closed;
            break;
          }
          if (name == "t")
            ff->set_type(value);
          else if (name == "ref")
            ff->more().ref = widen(value);
          else if (name == "si")
            ff->shared_index = static_cast<int32_t>(parse_int(value).value_or(-1));
          else
            ff->add_attr(name, value);
        }
        if (!closed) {
          // One pass finds the end of the text and whether it needs decoding: formulas are
          // short, and entities or carriage returns in them are rare.
          size_t e = i;
          bool decode = false;
          for (; e < n && t[e] != '<'; ++e)
            if (t[e] == '&' || t[e] == '\r') decode = true;
          if (e == n || !is(e, "</f>")) return false;
          std::string_view text = t.substr(i, e - i);
          if (decode)
            x.decode(text, ff->text);
          else
            ff->text.assign(text.data(), text.size());
          i = e + 4;
        }
        d.ff = std::move(ff);
        continue;
      }
      return false;
    }
  }
  if (d.col > kLastCol) return false;  // the general reader explains the problem
  store_cell(x, job, d);
  x.skip_bytes(i);
  col = d.col;
  return true;
}

void Loader::store_cell(XmlScanner& x, SheetJob& job, CellData& d) {
  Sheet& s = job.s;
  const int32_t row = d.row, col = d.col;
  auto fail_cell = [&](const std::string& problem) {
    x.invalid("cell " + cell_text(row, col) + " " + problem);
  };
  std::string_view value = d.value;
  // The t attribute, told apart once: 'S' for "str", 'I' for "inlineStr", the letter itself for
  // "s", "b", "e" and "d", and 'n' (a number) for anything else.
  const std::string_view t = d.type;
  const char type = t.size() == 1 && (t[0] == 's' || t[0] == 'b' || t[0] == 'e' || t[0] == 'd')
                        ? t[0]
                    : t == "str"       ? 'S'
                    : t == "inlineStr" ? 'I'
                                       : 'n';
  // An empty value is no value (some writers put <v/> in cells they leave blank).
  bool has_v = d.has_v;
  if (has_v && value.empty() && type != 'S' && type != 'I') has_v = false;
  auto number = [&]() -> double {
    auto v = parse_double(value);
    if (!v) fail_cell("holds '" + std::string(value.substr(0, 40)) + "', which is no number");
    return *v;
  };

  if (d.ff) {
    calc::Value cached;
    if (has_v) {
      if (type == 'S')
        cached = calc::Value::str(decode_escapes(from_utf8(value)));
      else if (type == 'b')
        cached = calc::Value::boolean(parse_double(value).value_or(0) != 0);
      else if (type == 'e')
        cached =
            calc::Value::error(calc::error_from_text(from_utf8(value)).value_or(cell_error::value));
      else if (type == 's') {
        // The file's shared strings only: the pool is not added to while sheets are read.
        auto i = parse_int(value);
        if (i && *i >= 0 && static_cast<size_t>(*i) < state_->strings)
          cached = calc::Value::str(String(book_->strings.text(static_cast<uint32_t>(*i))));
      } else if (auto dv = parse_double(value))
        cached = calc::Value::num(*dv);
    }
    for (auto& [n, v] : d.extra) d.ff->more().cell_attrs.emplace_back(from_utf8(n), from_utf8(v));
    book_->load_formula(s, job.formulas, row, col, std::move(d.ff), cached, d.style);
    return;
  }

  bool has_attrs = !d.extra.empty();
  if (has_attrs) job.ss.cell_attrs[{row, col}] = std::move(d.extra);
  bool is_value = has_v || d.has_is;
  // An empty cell without a format carries nothing.
  if (!is_value && d.style == 0 && !has_attrs) return;
  Cell& c = s.cells.get_or_create(row, col, d.style);
  if (c.kind() == CellKind::Formula) s.free_formula(c.index);
  c.set_style(d.style);
  c.set_kind(CellKind::Blank);
  c.num = 0;
  if (!is_value) return;
  if (type == 's') {
    auto i = parse_int(value);
    // A reference past the shared strings shows as an empty cell (as other readers show it);
    // the cell keeps its format.
    if (i && *i >= 0 && static_cast<size_t>(*i) < state_->strings) {
      c.set_kind(CellKind::Text);
      c.index = static_cast<uint32_t>(*i);
    }
  } else if (type == 'I' || type == 'S') {
    if (!d.has_is) d.is_text = decode_escapes(from_utf8(value));
    c.set_kind(CellKind::Text);
    c.index = kLocalText | static_cast<uint32_t>(job.texts.size());
    job.texts.emplace_back(std::move(d.is_text), std::move(d.is_runs));
    job.text_cells.push_back(CellRef{row, col});
  } else if (type == 'b') {
    c.set_kind(CellKind::Boolean);
    c.num = number() != 0 ? 1 : 0;
  } else if (type == 'e') {
    c.set_kind(CellKind::Error);
    c.num = calc::error_from_text(from_utf8(value)).value_or(cell_error::value);
  } else if (type == 'd') {
    auto iso = iso_parts(value);
    if (!iso) fail_cell("holds '" + std::string(value.substr(0, 40)) + "', which is no date");
    c.set_kind(CellKind::Number);
    c.num =
        numfmt::serial_from_date(iso->year, iso->month, iso->day, book_->date1904) + iso->fraction;
  } else {
    c.set_kind(CellKind::Number);
    c.num = number();
  }
}

// --- document properties ------------------------------------------------------------------------

void Loader::read_custom_props(const std::string& part) {
  std::string text;
  pugi::xml_document doc;
  pkg_->parse_part(part, text, doc);
  for (pugi::xml_node p : doc.document_element().children()) {
    if (local_name(p.name()) != "property") continue;
    CustomProperty cp;
    cp.name = from_utf8(p.attribute("name").value());
    pugi::xml_node v = p.first_child();
    while (v && v.type() != pugi::node_element) v = v.next_sibling();
    if (!v) continue;
    std::string_view vt = local_name(v.name());
    cp.file_type = from_utf8(v.name());
    std::string_view val = v.text().get();
    if (vt == "lpwstr" || vt == "lpstr" || vt == "bstr") {
      cp.type = 4;
      cp.value = Variant(from_utf8(val));
    } else if (vt == "bool") {
      cp.type = 2;
      cp.value = Variant(parse_bool(val, false));
    } else if (vt == "filetime" || vt == "date") {
      cp.type = 3;
      cp.value = Variant(Date{iso_datetime(val).value_or(0)});
    } else if (vt == "r4" || vt == "r8" || vt == "decimal" || vt == "cy") {
      cp.type = 5;
      cp.value = Variant(parse_double(val).value_or(0));
    } else if (vt.starts_with("i") || vt.starts_with("ui") || vt == "int" || vt == "uint") {
      cp.type = 1;
      auto i = parse_int(val).value_or(0);
      if (i >= INT32_MIN && i <= INT32_MAX)
        cp.value = Variant(static_cast<int32_t>(i));
      else
        cp.value = Variant(static_cast<double>(i));
    } else {
      // Types the object model has no kind for (blobs, vectors) stay in the part as they are.
      cp.type = 4;
      cp.value = Variant(from_utf8(val));
    }
    book_->props.push_back(std::move(cp));
  }
}

// ---------------------------------------------------------------------------------------------

BookPtr load(const std::filesystem::path& path, const LoadOptions& options) {
  auto pkg = std::make_shared<const Package>(Package::open(path, options.limits));
  Loader loader(pkg, options.parse_uncached);
  return loader.run(from_utf8(path.filename().string()));
}

}  // namespace qz::engine::xlsx
