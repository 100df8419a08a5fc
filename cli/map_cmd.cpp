// qzxl map: one HTML page that shows a model at a glance. Each sheet is drawn on one canvas,
// every used cell a small square coloured by what AutoColor's rules make of it, so that a
// typed number in a row of formulas stands out; the audit's findings link to their cells.
// The page is self-contained (no network, no fonts of its own) and its size in elements does
// not grow with the sheets: the cells travel as data that a small script draws.
#include <fmt/core.h>

#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "audit.hpp"
#include "autocolor/autocolor.hpp"
#include "common.hpp"
#include "qzxl/convert.hpp"

namespace qzcli {

namespace {

using qz::String;
using qz::autocolor::Outcome;

struct Options {
  std::string in;
  std::string out;
  std::vector<std::string> sheets;
};

// The map's categories, in the order of the legend, with colours chosen to be told apart on
// a small square (AutoColor's own font colours give named and sheet links one colour).
enum Category {
  kInput,
  kPartial,
  kFormula,
  kSheetLink,
  kWorkbookLink,
  kNamedLink,
  kHyperlink,
  kText,
  kDate,
  kEmpty,
  kCategories
};
struct CategoryInfo {
  const char* key;
  const char* label;
  const char* colour;
};
constexpr std::array<CategoryInfo, kCategories> kInfo{{
    {"input", "input", "#1f5fd6"},
    {"partial_input", "partial input", "#e0362c"},
    {"formula", "formula", "#5a5a5a"},
    {"sheet_link", "sheet link", "#2e9e44"},
    {"workbook_link", "workbook link", "#9c3fb5"},
    {"named_link", "named link", "#14a3a3"},
    {"hyperlink", "hyperlink", "#e08a00"},
    {"text", "text", "#cbbd92"},
    {"date", "date", "#e6a3c8"},
    {"empty", "empty", "#e4e4e4"},
}};

Category category_of(Outcome o) {
  switch (o) {
    case Outcome::Input:
      return kInput;
    case Outcome::PartialInput:
      return kPartial;
    case Outcome::Formula:
      return kFormula;
    case Outcome::SheetLink:
      return kSheetLink;
    case Outcome::WorkbookLink:
      return kWorkbookLink;
    case Outcome::NamedLink:
      return kNamedLink;
    case Outcome::Hyperlink:
      return kHyperlink;
    case Outcome::SkippedText:
      return kText;
    case Outcome::SkippedDate:
      return kDate;
    case Outcome::Vetoed:
      break;
  }
  return kInput;
}

int64_t key_of(int32_t row, int32_t col) {
  return static_cast<int64_t>(row) * 16385 + col;
}

// What the rules decided for each cell of the sheet being run.
class Recorder final : public qz::autocolor::Observer {
 public:
  void decided(const qz::host::RangePtr& cell, Outcome outcome, std::optional<int32_t>) override {
    if (current) (*current)[key_of(cell->row(), cell->column())] = outcome;
  }
  std::unordered_map<int64_t, Outcome>* current = nullptr;
};

struct SheetMap {
  std::string name;
  int32_t row0 = 1, col0 = 1, rows = 0, cols = 0;
  std::array<int64_t, kCategories> counts{};
  nlohmann::json cells = nlohmann::json::array();
};

std::string html(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

SheetMap map_sheet(const qz::host::WorksheetPtr& wks,
                   const std::unordered_map<int64_t, Outcome>& decided) {
  SheetMap m;
  m.name = qz::to_utf8(wks->name());
  const auto used = wks->used_range();
  m.row0 = used->row();
  m.col0 = used->column();
  m.rows = static_cast<int32_t>(used->rows()->count());
  m.cols = static_cast<int32_t>(used->columns()->count());
  int64_t filled = 0;
  used->for_each_cell([&](const qz::host::RangePtr& cell) {
    const bool formula = cell->has_formula();
    if (!formula && cell->value().is_empty()) return true;
    const auto it = decided.find(key_of(cell->row(), cell->column()));
    // A cell the rules left alone without saying why holds a constant they do not colour
    // (a truth value, an error): it is typed in all the same.
    Category k = it != decided.end() ? category_of(it->second) : formula ? kFormula : kInput;
    ++m.counts[k];
    ++filled;
    m.cells.push_back({cell->row(), cell->column(), static_cast<int>(k),
                       formula ? printable(cell->formula()) : std::string(),
                       printable(cell->text())});
    return true;
  });
  m.counts[kEmpty] = static_cast<int64_t>(m.rows) * m.cols - filled;
  return m;
}

// The page's script: draws each sheet, shows a cell under the pointer, follows a finding's
// link to its cell, and notes where it drew so that a check can find the squares.
const char* const kScript = R"JS(
(function () {
  const data = JSON.parse(document.getElementById('map-data').textContent);
  const tip = document.getElementById('tip');
  const EMPTY = data.categories.length - 1;
  function columnName(c) {
    let s = '';
    for (; c > 0; c = Math.floor((c - 1) / 26)) s = String.fromCharCode(65 + (c - 1) % 26) + s;
    return s;
  }
  function columnNumber(s) {
    let c = 0;
    for (const ch of s) c = c * 26 + ch.charCodeAt(0) - 64;
    return c;
  }
  const sheets = data.sheets.map(function (sh, i) {
    const canvas = document.getElementById('map-' + (i + 1));
    const ctx = canvas.getContext('2d');
    const s = sh.px, q = sh.per, gap = s >= 4 ? 1 : 0;
    const index = new Map();
    ctx.fillStyle = data.categories[EMPTY].colour;
    const across = Math.ceil(sh.cols / q), down = Math.ceil(sh.rows / q);
    for (let y = 0; y < down; y++)
      for (let x = 0; x < across; x++) ctx.fillRect(x * s, y * s, s - gap, s - gap);
    sh.cells.forEach(function (cell, n) {
      ctx.fillStyle = data.categories[cell[2]].colour;
      ctx.fillRect(Math.floor((cell[1] - sh.col0) / q) * s, Math.floor((cell[0] - sh.row0) / q) * s,
                   s - gap, s - gap);
      index.set(cell[0] * 16385 + cell[1], n);
    });
    function at(r, c) {
      const n = index.get(r * 16385 + c);
      const cell = n === undefined ? null : sh.cells[n];
      return {address: sh.name + '!' + columnName(c) + r,
              category: data.categories[cell ? cell[2] : EMPTY].label,
              formula: cell ? cell[3] : '', shown: cell ? cell[4] : ''};
    }
    function show(r, c, x, y) {
      const cell = at(r, c);
      tip.replaceChildren();
      for (const [cls, text] of [['address', cell.address + '  (' + cell.category + ')'],
                                 ['formula', cell.formula], ['shown', cell.shown]]) {
        if (!text) continue;
        const line = document.createElement('div');
        line.className = cls;
        line.textContent = text;
        tip.appendChild(line);
      }
      tip.style.left = (x + 14) + 'px';
      tip.style.top = (y + 14) + 'px';
      tip.hidden = false;
      return cell;
    }
    canvas.addEventListener('mousemove', function (e) {
      const box = canvas.getBoundingClientRect();
      const c = sh.col0 + Math.floor((e.clientX - box.left) / s) * q;
      const r = sh.row0 + Math.floor((e.clientY - box.top) / s) * q;
      if (r < sh.row0 + sh.rows && c < sh.col0 + sh.cols) show(r, c, e.pageX, e.pageY);
    });
    canvas.addEventListener('mouseleave', function () { tip.hidden = true; });
    const box = canvas.getBoundingClientRect();
    canvas.dataset.left = Math.round(box.left + window.scrollX);
    canvas.dataset.top = Math.round(box.top + window.scrollY);
    canvas.dataset.px = s;
    canvas.dataset.row0 = sh.row0;
    canvas.dataset.col0 = sh.col0;
    return {canvas: canvas, sh: sh, show: show, ring: canvas.parentNode.querySelector('.ring')};
  });
  function focus(hash) {
    const m = /^#sheet-(\d+)-([A-Z]+)(\d+)$/.exec(hash);
    if (!m || !sheets[m[1] - 1]) return;
    const it = sheets[m[1] - 1], sh = it.sh, s = sh.px, q = sh.per;
    const c = columnNumber(m[2]), r = Number(m[3]);
    const x = Math.floor((c - sh.col0) / q) * s, y = Math.floor((r - sh.row0) / q) * s;
    it.ring.style.left = (x - 3) + 'px';
    it.ring.style.top = (y - 3) + 'px';
    it.ring.style.width = it.ring.style.height = (s + 4) + 'px';
    it.ring.hidden = false;
    it.canvas.scrollIntoView({block: 'center'});
    const box = it.canvas.getBoundingClientRect();
    const cell = it.show(r, c, box.left + window.scrollX + x, box.top + window.scrollY + y);
    document.body.dataset.focus = cell.address;
  }
  window.addEventListener('hashchange', function () { focus(location.hash); });
  if (location.hash) focus(location.hash);
  document.body.dataset.drawn = String(sheets.length);
})();
)JS";

const char* const kStyle = R"CSS(
body { font: 14px system-ui, sans-serif; margin: 16px; color: #222; }
h1 { font-size: 20px; margin: 0 0 12px; }
h2 { font-size: 16px; margin: 20px 0 6px; }
.legend { border-collapse: collapse; margin-bottom: 8px; }
.legend td { padding: 1px 8px 1px 0; }
.legend td.count { text-align: right; }
.swatch { display: inline-block; width: 12px; height: 12px; vertical-align: middle; }
.map { position: relative; display: inline-block; max-width: 100%; overflow: auto; }
.map canvas { display: block; }
.ring { position: absolute; border: 2px solid #000; pointer-events: none; }
#tip { position: absolute; background: #fffff0; border: 1px solid #888; padding: 4px 6px;
       font-size: 12px; white-space: pre; pointer-events: none; }
#tip .address { font-weight: bold; }
.findings li { margin: 2px 0; }
code { background: #f4f4f4; }
)CSS";

std::string page(const std::string& title, const std::vector<SheetMap>& maps,
                 const Groups& groups) {
  constexpr size_t kFindingsShown = 200;  // per group: the page stays small for any model
  std::map<std::string, size_t> section;
  nlohmann::json data;
  data["categories"] = nlohmann::json::array();
  for (const auto& c : kInfo)
    data["categories"].push_back({{"key", c.key}, {"label", c.label}, {"colour", c.colour}});
  data["sheets"] = nlohmann::json::array();

  std::string body;
  for (size_t i = 0; i < maps.size(); ++i) {
    const auto& m = maps[i];
    section[m.name] = i + 1;
    // Squares as large as a wide sheet allows, and several cells to a pixel for a sheet
    // that would not fit a canvas even at one pixel each.
    constexpr int kMaxSide = 12000;
    const int side = std::max({m.rows, m.cols, 1});
    const int px = std::clamp(kMaxSide / side, 1, 14);
    const int per = side > kMaxSide ? (side + kMaxSide - 1) / kMaxSide : 1;
    const int width = std::max(1, (m.cols + per - 1) / per * px);
    const int height = std::max(1, (m.rows + per - 1) / per * px);
    data["sheets"].push_back({{"name", m.name},
                              {"row0", m.row0},
                              {"col0", m.col0},
                              {"rows", m.rows},
                              {"cols", m.cols},
                              {"px", px},
                              {"per", per},
                              {"cells", m.cells}});
    body += fmt::format("<section class=\"sheet\" id=\"sheet-{}\" data-sheet=\"{}\">\n", i + 1,
                        html(m.name));
    body += fmt::format("<h2>{}</h2>\n<table class=\"legend\">\n", html(m.name));
    for (size_t k = 0; k < kCategories; ++k)
      body += fmt::format(
          "<tr data-category=\"{}\"><td><span class=\"swatch\" style=\"background:{}\"></span>"
          "</td><td>{}</td><td class=\"count\">{}</td></tr>\n",
          kInfo[k].key, kInfo[k].colour, kInfo[k].label, m.counts[k]);
    body += fmt::format(
        "</table>\n<div class=\"map\"><canvas id=\"map-{}\" width=\"{}\" height=\"{}\" "
        "style=\"width:{}px;height:{}px\"></canvas><div class=\"ring\" hidden></div></div>\n"
        "</section>\n",
        i + 1, width, height, width, height);
  }

  body += "<section class=\"findings\" id=\"findings\">\n<h2>Findings</h2>\n";
  for (const auto& g : groups) {
    body += fmt::format("<h3 data-group=\"{}\">{} <span class=\"count\">{}</span></h3>\n", g.key,
                        html(g.title), g.items.size());
    if (g.items.empty()) continue;
    body += "<ul>\n";
    for (size_t i = 0; i < g.items.size() && i < kFindingsShown; ++i) {
      const auto& f = g.items[i];
      const auto s = section.find(f.sheet);
      std::string where = html(f.where);
      if (!f.cell.empty() && s != section.end())
        where = fmt::format("<a class=\"finding\" href=\"#sheet-{}-{}\">{}</a>", s->second, f.cell,
                            where);
      body += fmt::format("<li>{} <code>{}</code>{}</li>\n", where, html(f.what),
                          f.detail.empty() ? "" : " " + html(f.detail));
    }
    if (g.items.size() > kFindingsShown)
      body += fmt::format("<li>... and {} more (qzxl audit --max 0 lists all)</li>\n",
                          g.items.size() - kFindingsShown);
    body += "</ul>\n";
  }
  body += "</section>\n";

  // Inside a script element only "</" could end it early; "<\/" reads the same as JSON.
  std::string json = data.dump(-1, ' ', true);
  for (size_t at = json.find("</"); at != std::string::npos; at = json.find("</", at + 3))
    json.replace(at, 2, "<\\/");
  return fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
      "<title>Map of {}</title>\n<style>{}</style>\n</head>\n<body>\n<h1>Map of {}</h1>\n{}"
      "<div id=\"tip\" hidden></div>\n"
      "<script type=\"application/json\" id=\"map-data\">{}</script>\n<script>{}</script>\n"
      "</body>\n</html>\n",
      html(title), kStyle, html(title), body, json, kScript);
}

int run(const Options& o) {
  const fs::path in = o.in;
  check_input(in);
  const fs::path out =
      o.out.empty() ? in.parent_path() / (in.stem().string() + ".map.html") : fs::path(o.out);
  if (fs::absolute(out) == fs::absolute(in)) throw Failure("the map cannot replace its workbook");
  std::error_code ec;
  if (!fs::is_directory(fs::absolute(out).parent_path(), ec))
    throw Failure(fmt::format("{}: no such folder", fs::absolute(out).parent_path().string()));

  Interaction interaction;
  interaction.progress = false;
  Session session(std::make_shared<TerminalUi>(interaction));
  const auto book = session.open(in);
  std::vector<qz::host::WorksheetPtr> sheets;
  if (!o.sheets.empty()) {
    for (const auto& name : o.sheets) sheets.push_back(find_sheet(book, name));
  } else {
    for (const auto& s : worksheets(book))
      if (s->type() == qz::host::xl::Worksheet) sheets.push_back(s);
  }

  // The audit reads the workbook as it came, before AutoColor's run changes its colours.
  size_t audited = 0;
  Groups groups = audit_workbook(session.lib, book, audited);

  auto ac = std::dynamic_pointer_cast<qz::iAutoColor>(session.lib->NewAutoColor());
  if (!ac) throw Failure("this build's AutoColor cannot report on its runs");
  Recorder recorder;
  ac->set_observer(&recorder);
  std::vector<SheetMap> maps;
  for (const auto& sheet : sheets) {
    // The run `autocolor --names` makes, so that links through names are told apart too;
    // the colours it sets are never saved.
    std::unordered_map<int64_t, Outcome> decided;
    recorder.current = &decided;
    bool do_names = true;
    ac->AutoColorRange(sheet->used_range(), sheet->name(), &do_names);
    recorder.current = nullptr;
    maps.push_back(map_sheet(sheet, decided));
  }
  ac->set_observer(nullptr);

  write_file_atomically(out, page(in.filename().string(), maps, groups));
  int64_t cells = 0;
  for (const auto& m : maps)
    for (size_t k = 0; k < kEmpty; ++k) cells += m.counts[k];
  fmt::print("Map of {} -> {} ({} sheet{}, {} cells)\n", in.string(), out.string(), maps.size(),
             maps.size() == 1 ? "" : "s", grouped(cells));
  return 0;
}

}  // namespace

Command make_map_command(CLI::App& parent) {
  static Options o;
  auto* cmd = add_command(parent, "map",
                          "Draw each sheet's cells, coloured by what they hold, on one HTML page "
                          "with the audit's findings");
  cmd->add_option("IN", o.in, "The workbook (.xlsx or .xlsm)")->required();
  cmd->add_option("-o,--output", o.out, "The page to write (default: IN's name with .map.html)");
  cmd->add_option("--sheet", o.sheets, "Draw only this sheet (repeat for more)");
  add_locale_option(cmd);
  return {cmd, [] { return run(o); }};
}

}  // namespace qzcli
