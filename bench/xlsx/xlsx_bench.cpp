// Timed runs of the workbook layer, for bench/xlsx/run.sh to compare with other readers:
//
//   qzxl_xlsx_bench generate OUT CELLS      a workbook of CELLS cells, a third of them formulas
//   qzxl_xlsx_bench loadsave IN OUT [touch] load, optionally change one cell on every sheet, save
//   qzxl_xlsx_bench floor IN OUT [touch]    inflate every part, deflate the parts a save with
//                                           the same changes rewrites, write the package
//
// Each run prints one line: what it did, seconds, and the peak resident memory in MiB.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "engine/model/book.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "engine/xlsx/zip.hpp"
#include "qzxl/error.hpp"

namespace {

using namespace qz::engine;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double current_mib() {
  std::FILE* f = std::fopen("/proc/self/statm", "r");
  long pages = 0, resident = 0;
  if (f) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return static_cast<double>(resident) * 4096.0 / (1024.0 * 1024.0);
}

double peak_mib() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_maxrss) / 1024.0;
}

std::string column(int c) {
  std::string s;
  for (++c; c > 0; c = (c - 1) / 26) s.insert(s.begin(), static_cast<char>('A' + (c - 1) % 26));
  return s;
}

// A plain workbook in the shape spreadsheets usually have: rows of numbers and labels, and a
// third of the cells formulas over the row's other cells, with cached values.
void generate(const fs::path& out, long cells) {
  const int cols = 12;
  long rows = (cells + cols - 1) / cols;
  std::string sheet =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
      "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
      "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
      "<dimension ref=\"A1:" +
      column(cols - 1) + std::to_string(rows) + "\"/><sheetData>";
  sheet.reserve(static_cast<size_t>(cells) * 40);
  long written = 0;
  int strings = 1000;
  for (long r = 1; r <= rows && written < cells; ++r) {
    std::string rs = std::to_string(r);
    sheet += "<row r=\"" + rs + "\">";
    double a = static_cast<double>(r % 97) + 0.5, b = static_cast<double>(r % 13);
    for (int c = 0; c < cols && written < cells; ++c, ++written) {
      std::string ref = column(c) + rs;
      if (c % 3 == 2) {
        // =A{r}*B{r}+C{r}-style formulas over the two cells to the left.
        std::string f = column(c - 2) + rs + "*" + column(c - 1) + rs;
        char v[32];
        std::snprintf(v, sizeof v, "%.17g", a * b);
        sheet += "<c r=\"" + ref + "\"><f>" + f + "</f><v>" + v + "</v></c>";
      } else if (c == 3) {
        sheet += "<c r=\"" + ref + "\" t=\"s\"><v>" + std::to_string(r % strings) + "</v></c>";
        a = 1;
      } else {
        char v[32];
        std::snprintf(v, sizeof v, "%.17g", c % 3 == 0 ? a : b);
        sheet += "<c r=\"" + ref + "\" s=\"1\"><v>" + v + "</v></c>";
      }
    }
    sheet += "</row>";
  }
  sheet +=
      "</sheetData><pageMargins left=\"0.7\" right=\"0.7\" top=\"0.75\" bottom=\"0.75\" "
      "header=\"0.3\" footer=\"0.3\"/></worksheet>";
  std::string sst =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
      "<sst xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" count=\"" +
      std::to_string(strings) + "\" uniqueCount=\"" + std::to_string(strings) + "\">";
  for (int i = 0; i < strings; ++i) sst += "<si><t>Label " + std::to_string(i) + "</t></si>";
  sst += "</sst>";
  qz::engine::xlsx::ZipWriter w(out, 6);
  w.add(
      "[Content_Types].xml",
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
      "<Override PartName=\"/xl/workbook.xml\" "
      "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml\"/>"
      "<Override PartName=\"/xl/worksheets/sheet1.xml\" "
      "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml\"/>"
      "<Override PartName=\"/xl/styles.xml\" "
      "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.styles+xml\"/>"
      "<Override PartName=\"/xl/sharedStrings.xml\" "
      "ContentType=\"application/"
      "vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml\"/>"
      "</Types>");
  w.add("_rels/.rels",
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
        "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
        "<Relationship Id=\"rId1\" "
        "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/"
        "officeDocument\" Target=\"xl/workbook.xml\"/>"
        "</Relationships>");
  w.add("xl/workbook.xml",
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
        "<workbook xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\" "
        "xmlns:r=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships\">"
        "<bookViews><workbookView/></bookViews><sheets><sheet name=\"Data\" sheetId=\"1\" "
        "r:id=\"rId1\"/></sheets>"
        "<calcPr calcId=\"191029\"/></workbook>");
  w.add("xl/_rels/workbook.xml.rels",
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
        "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
        "<Relationship Id=\"rId1\" "
        "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet\" "
        "Target=\"worksheets/sheet1.xml\"/>"
        "<Relationship Id=\"rId2\" "
        "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles\" "
        "Target=\"styles.xml\"/>"
        "<Relationship Id=\"rId3\" "
        "Type=\"http://schemas.openxmlformats.org/officeDocument/2006/relationships/"
        "sharedStrings\" Target=\"sharedStrings.xml\"/>"
        "</Relationships>");
  w.add("xl/worksheets/sheet1.xml", sheet);
  w.add("xl/styles.xml",
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
        "<styleSheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\">"
        "<numFmts count=\"1\"><numFmt numFmtId=\"164\" formatCode=\"0.000\"/></numFmts>"
        "<fonts count=\"1\"><font><sz val=\"11\"/><name val=\"Calibri\"/><family "
        "val=\"2\"/></font></fonts>"
        "<fills count=\"2\"><fill><patternFill patternType=\"none\"/></fill><fill><patternFill "
        "patternType=\"gray125\"/></fill></fills>"
        "<borders count=\"1\"><border><left/><right/><top/><bottom/><diagonal/></border></borders>"
        "<cellStyleXfs count=\"1\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" "
        "borderId=\"0\"/></cellStyleXfs>"
        "<cellXfs count=\"2\"><xf numFmtId=\"0\" fontId=\"0\" fillId=\"0\" borderId=\"0\" "
        "xfId=\"0\"/>"
        "<xf numFmtId=\"164\" fontId=\"0\" fillId=\"0\" borderId=\"0\" xfId=\"0\" "
        "applyNumberFormat=\"1\"/></cellXfs>"
        "<cellStyles count=\"1\"><cellStyle name=\"Normal\" xfId=\"0\" "
        "builtinId=\"0\"/></cellStyles></styleSheet>");
  w.add("xl/sharedStrings.xml", sst);
  w.commit();
}

// Marks one cell of every worksheet changed (a new number in its top-left cell), which makes
// a save rewrite every worksheet part.
void touch(Book& book) {
  for (auto& s : book.sheets) {
    if (s->kind != SheetKind::Worksheet) continue;
    Cell& c = s->cells.get_or_create(0, 0);
    if (c.kind() == CellKind::Formula) continue;
    c.set_kind(CellKind::Number);
    c.num = 42;
    s->changed.cells = true;
  }
}

// The least any load and save must do: inflate every part, and deflate and write the parts a
// save rewrites (every worksheet when touched), copying the rest. Rewritten worksheets go
// through the same deflater at the same level as a save's, so that the comparison is of
// everything else a save does. It deflates on one thread: what a save gains from deflating
// beside its work shows in the ratio.
void floor_run(const fs::path& in, const fs::path& out, bool touched) {
  auto pkg = qz::engine::xlsx::Package::open(in);
  qz::engine::xlsx::ZipWriter w(out, qz::engine::xlsx::SaveOptions{}.level);
  // The floor is one thread inflating and deflating; a save may use a second one.
  w.set_parallel(false);
  std::vector<std::string> sheets;
  for (const auto& r : pkg.relationships(pkg.workbook_part()))
    if (r.kind() == "worksheet") sheets.push_back(r.part);
  for (const auto& e : pkg.zip().entries()) {
    std::string content = pkg.zip().read(e);
    bool rewritten = touched && std::find(sheets.begin(), sheets.end(), e.name) != sheets.end();
    if (rewritten)
      w.add_stream(
          e.name, [&](qz::engine::xlsx::EntrySink& sink) { sink.text = std::move(content); }, &e);
    else
      w.copy(pkg.zip(), e);
  }
  w.commit();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr,
                 "usage: %s generate OUT CELLS | loadsave IN OUT [touch] | floor IN OUT [touch]\n",
                 argv[0]);
    return 2;
  }
  std::string cmd = argv[1];
  try {
    auto t0 = Clock::now();
    if (cmd == "generate" && argc == 4) {
      generate(argv[2], std::atol(argv[3]));
    } else if (cmd == "loadsave" && argc >= 4) {
      BookPtr book = qz::engine::xlsx::load(argv[2]);
      auto t1 = Clock::now();
      std::printf("(after load: %.1f MiB resident, peak %.1f) ", current_mib(), peak_mib());
      if (argc > 4 && std::string(argv[4]) == "touch") touch(*book);
      qz::engine::xlsx::save(*book, argv[3]);
      auto t2 = Clock::now();
      std::printf("loadsave %s load %.3f s save %.3f s ", argc > 4 ? "touch" : "plain",
                  std::chrono::duration<double>(t1 - t0).count(),
                  std::chrono::duration<double>(t2 - t1).count());
    } else if (cmd == "floor" && argc >= 4) {
      floor_run(argv[2], argv[3], argc > 4 && std::string(argv[4]) == "touch");
      std::printf("floor %s ", argc > 4 ? "touch" : "plain");
    } else {
      std::fprintf(stderr, "bad arguments\n");
      return 2;
    }
    auto t = std::chrono::duration<double>(Clock::now() - t0).count();
    std::printf("total %.3f s peak %.1f MiB\n", t, peak_mib());
  } catch (const qz::Error& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
