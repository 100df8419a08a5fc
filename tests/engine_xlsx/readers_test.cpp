// What readers nobody here wrote make of the engine's files: a workbook built the way a user
// builds one (values, formulas, font colours, a hidden name, document properties) is saved,
// then read by openpyxl and by LibreOffice, which recalculates the formulas itself. Each
// check is skipped when its reader is not installed.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "engine/host/engine.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"
#include "support/test_support.hpp"

namespace qz::engine {
namespace {

namespace fs = std::filesystem;

std::string run(const std::string& cmd, int* rc = nullptr) {
  std::string out;
  if (FILE* p = ::popen(cmd.c_str(), "r")) {
    char buf[4096];
    while (size_t n = std::fread(buf, 1, sizeof buf, p)) out.append(buf, n);
    int status = ::pclose(p);
    if (rc) *rc = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  } else if (rc) {
    *rc = -1;
  }
  return out;
}

bool have(const std::string& probe) {
  int rc = 0;
  run(probe + " >/dev/null 2>&1", &rc);
  return rc == 0;
}

class OtherReaders : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { xlsx::register_format(); }

  // The workbook a user would make: sheet "Model" with inputs, formulas over them, a red
  // input, a bold blue total, a hidden name, and two custom properties; a second sheet
  // referring to the first.
  fs::path build(const std::string& file) {
    auto app = create_application();
    auto wb = app->workbooks()->add();
    auto second = wb->worksheets()->item(Variant(int32_t{1}));
    second->set_name(u"Summary");
    auto ws = wb->worksheets()->add();  // goes before the active sheet
    ws->set_name(u"Model");
    auto r = [&](const char16_t* a) { return ws->range(Variant(String(a))); };
    r(u"A1")->set_value(Variant(String(u"Revenue")));
    r(u"B1")->set_value(Variant(1200.5));
    r(u"A2")->set_value(Variant(String(u"Cost")));
    r(u"B2")->set_value(Variant(700.25));
    r(u"A3")->set_value(Variant(String(u"Margin")));
    r(u"B3")->set_formula(u"=B1-B2");
    r(u"B4")->set_formula(u"=ROUND(B3/B1,4)");
    r(u"B5")->set_formula(u"=IF(B3>0,\"profit\",\"loss\")");
    r(u"B6")->set_value(Variant(true));
    r(u"B1")->font()->set_color(Variant(int32_t{0x0000FF}));  // red
    r(u"B3")->font()->set_color(Variant(int32_t{0xFF0000}));  // blue
    r(u"B3")->font()->set_bold(Variant(true));
    host::NameAddArgs name;
    name.name = Variant(String(u"HiddenRate"));
    name.refers_to = Variant(String(u"=Model!$B$4"));
    name.visible = Variant(false);
    wb->names()->add(name);
    auto props = wb->custom_document_properties();
    props->add(u"Client", false, 4, Variant(String(u"Acme & Co")));
    props->add(u"Version", false, 1, Variant(int32_t{3}));
    second->range(Variant(String(u"A1")))->set_formula(u"=Model!B3*2");
    fs::path out = dir_ / file;
    wb->save_as(from_utf8(out.string()));
    return out;
  }
  // A home folder whose LibreOffice profile recalculates every workbook it loads (by default
  // it trusts the cached results of files from other programs).
  fs::path recalculating_home() {
    fs::path home = dir_ / "home";
    fs::path profile = home / ".config/libreoffice/4/user";
    fs::create_directories(profile);
    std::ofstream(profile / "registrymodifications.xcu")
        << R"(<?xml version="1.0" encoding="UTF-8"?>
<oor:items xmlns:oor="http://openoffice.org/2001/registry" xmlns:xs="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
<item oor:path="/org.openoffice.Office.Calc/Formula/Load"><prop oor:name="OOXMLRecalcMode" oor:op="fuse"><value>0</value></prop></item>
</oor:items>
)";
    return home;
  }
  // The lines of the CSV that LibreOffice writes of `file` after recalculating it; empty when
  // the conversion failed, with what it printed in `log`.
  std::vector<std::string> recalculated_csv(const fs::path& file, std::string& log) {
    fs::path home = recalculating_home();
    int rc = 0;
    log = run("HOME=" + home.string() +
                  " timeout 180 soffice --headless --norestore --convert-to csv --outdir " +
                  dir_.path().string() + " " + file.string() + " 2>&1",
              &rc);
    std::vector<std::string> lines;
    std::ifstream in(dir_ / (file.stem().string() + ".csv"));
    if (rc != 0 || !in) return lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }
  qz::test::TempDir dir_;
};

TEST_F(OtherReaders, OpenpyxlSeesValuesFormulasColoursHiddenNamesAndProperties) {
  if (!have("/usr/bin/python3 -c 'import openpyxl'")) GTEST_SKIP() << "openpyxl is not installed";
  fs::path file = build("model.xlsx");
  std::string script = R"(
import json, sys, openpyxl
wb = openpyxl.load_workbook(sys.argv[1])
values = openpyxl.load_workbook(sys.argv[1], data_only=True)
out = {"sheets": wb.sheetnames, "cells": {}, "names": {}, "props": {}}
for ws in wb.worksheets:
    for row in ws.iter_rows():
        for c in row:
            if c.value is None: continue
            col = c.font.color.rgb if c.font.color is not None else None
            out["cells"][ws.title + "!" + c.coordinate] = [c.value, values[ws.title][c.coordinate].value, col, bool(c.font.b)]
for n in wb.defined_names.definedName:
    out["names"][n.name] = [n.attr_text, bool(n.hidden)]
# This openpyxl predates custom properties; Python's own XML reader takes that part.
import zipfile, xml.etree.ElementTree as ET
with zipfile.ZipFile(sys.argv[1]) as z:
    if "docProps/custom.xml" in z.namelist():
        for p in ET.fromstring(z.read("docProps/custom.xml")):
            v = p[0]
            kind = v.tag.split("}")[1]
            out["props"][p.get("name")] = int(v.text) if kind == "i4" else v.text
print(json.dumps(out))
)";
  std::ofstream(dir_ / "read.py") << script;
  int rc = 0;
  std::string text =
      run("/usr/bin/python3 " + (dir_ / "read.py").string() + " " + file.string() + " 2>&1", &rc);
  ASSERT_EQ(rc, 0) << text;
  auto j = nlohmann::json::parse(text);
  EXPECT_EQ(j["sheets"], nlohmann::json::array({"Model", "Summary"}));
  auto cell = [&](const char* at) { return j["cells"][at]; };
  EXPECT_EQ(cell("Model!A1")[0], "Revenue");
  EXPECT_EQ(cell("Model!B1")[0], 1200.5);
  EXPECT_EQ(cell("Model!B1")[2], "FFFF0000") << "red font";
  EXPECT_EQ(cell("Model!B3")[0], "=B1-B2");
  EXPECT_EQ(cell("Model!B3")[1], 500.25) << "the cached value the engine computed";
  EXPECT_EQ(cell("Model!B3")[2], "FF0000FF") << "blue font";
  EXPECT_EQ(cell("Model!B3")[3], true) << "bold";
  EXPECT_EQ(cell("Model!B4")[0], "=ROUND(B3/B1,4)");
  EXPECT_EQ(cell("Model!B4")[1], 0.4167);
  EXPECT_EQ(cell("Model!B5")[1], "profit");
  EXPECT_EQ(cell("Model!B6")[0], true);
  EXPECT_EQ(cell("Summary!A1")[0], "=Model!B3*2");
  EXPECT_EQ(cell("Summary!A1")[1], 1000.5);
  EXPECT_EQ(j["names"]["HiddenRate"][0], "Model!$B$4");
  EXPECT_EQ(j["names"]["HiddenRate"][1], true) << "hidden";
  EXPECT_EQ(j["props"]["Client"], "Acme & Co");
  EXPECT_EQ(j["props"]["Version"], 3);
}

TEST_F(OtherReaders, LibreOfficeOpensTheFileAndComputesTheSameValues) {
  if (!have("command -v soffice")) GTEST_SKIP() << "LibreOffice is not installed";
  fs::path built = build("built.xlsx");
  // Wrong cached results: what LibreOffice shows must then be its own calculation of the
  // formulas the engine wrote.
  fs::path file = dir_ / "model.xlsx";
  {
    auto z = xlsx::ZipReader::open(built);
    xlsx::ZipWriter w(file);
    for (const auto& e : z.entries()) {
      std::string content = z.read(e);
      for (const char* v : {"<v>500.25</v>", "<v>0.4167</v>", "<v>profit</v>"}) {
        size_t at = content.find(v);
        if (at != std::string::npos) content.replace(at, std::strlen(v), "<v>0</v>");
      }
      w.add(e.name, content, &e);
    }
    w.commit();
  }
  std::string log;
  std::vector<std::string> lines = recalculated_csv(file, log);
  ASSERT_GE(lines.size(), 6u);
  EXPECT_EQ(lines[0], "Revenue,1200.5");
  EXPECT_EQ(lines[1], "Cost,700.25");
  EXPECT_EQ(lines[2], "Margin,500.25");
  EXPECT_EQ(lines[3], ",0.4167");
  EXPECT_EQ(lines[4], ",profit");
  EXPECT_EQ(lines[5], ",TRUE");
}

// A list with borders and filter buttons, whose formulas read another workbook that was saved
// beside it and closed: the saved file must carry all three so that other readers see them.
class FormatAndLinks : public OtherReaders {
 protected:
  fs::path build_list() {
    auto app = create_application();
    auto other = app->workbooks()->add();
    auto rates = other->worksheets()->item(Variant(int32_t{1}));
    rates->set_name(u"Rates");
    rates->range(Variant(String(u"B2")))->set_value(Variant(0.055));
    auto spaced = other->worksheets()->add();
    spaced->set_name(u"My Rates");
    spaced->range(Variant(String(u"C3")))->set_value(Variant(String(u"fixed")));
    other->save_as(from_utf8((dir_ / "Other.xlsx").string()));
    other->close(Variant(false));

    auto wb = app->workbooks()->add();
    auto ws = wb->worksheets()->item(Variant(int32_t{1}));
    ws->set_name(u"List");
    auto r = [&](const char16_t* a) { return ws->range(Variant(String(a))); };
    r(u"A1:B3")->set_value(
        Variant(one_based({Variant(one_based({Variant(u"Key"), Variant(u"Value")})),
                           Variant(one_based({Variant(u"a"), Variant(1.0)})),
                           Variant(one_based({Variant(u"b"), Variant(2.0)}))})));
    for (int32_t edge :
         {host::xl::EdgeLeft, host::xl::EdgeTop, host::xl::EdgeRight, host::xl::EdgeBottom})
      r(u"A1:B3")->borders()->item(edge)->set_line_style(Variant(host::xl::Continuous));
    auto under = r(u"A1:B1")->borders()->item(host::xl::EdgeBottom);
    under->set_weight(Variant(host::xl::Medium));
    under->set_color(Variant(int32_t{0x0000FF}));
    r(u"A1:B3")->auto_filter();
    r(u"C1")->set_formula(u"='[Other.xlsx]Rates'!B2*2");
    r(u"C2")->set_formula(u"='[Other.xlsx]My Rates'!C3");
    fs::path out = dir_ / "list.xlsx";
    wb->save_as(from_utf8(out.string()));
    return out;
  }
};

TEST_F(FormatAndLinks, OpenpyxlSeesBordersTheFilterAndTheLinkWithItsValues) {
  if (!have("/usr/bin/python3 -c 'import openpyxl'")) GTEST_SKIP() << "openpyxl is not installed";
  fs::path file = build_list();
  std::ofstream(dir_ / "read.py") << R"(
import json, sys, openpyxl
wb = openpyxl.load_workbook(sys.argv[1])
values = openpyxl.load_workbook(sys.argv[1], data_only=True)
ws = wb["List"]
side = lambda s: [s.style, s.color.rgb if s.color is not None and s.color.type == "rgb" else None]
out = {"filter": ws.auto_filter.ref,
       "borders": {a: {k: side(getattr(ws[a].border, k)) for k in ("left", "right", "top", "bottom")}
                   for a in ("A1", "B1", "A2", "B3")},
       "links": [l.file_link.Target for l in wb._external_links],
       "formulas": [ws["C1"].value, ws["C2"].value],
       "values": [values["List"]["C1"].value, values["List"]["C2"].value]}
print(json.dumps(out))
)";
  int rc = 0;
  std::string text =
      run("/usr/bin/python3 " + (dir_ / "read.py").string() + " " + file.string() + " 2>&1", &rc);
  ASSERT_EQ(rc, 0) << text;
  auto j = nlohmann::json::parse(text);
  EXPECT_EQ(j["filter"], "A1:B3");
  auto b = j["borders"];
  EXPECT_EQ(b["A1"]["left"][0], "thin");
  EXPECT_EQ(b["A1"]["right"][0], nullptr) << "no inside line was asked for";
  EXPECT_EQ(b["B1"]["right"][0], "thin");
  EXPECT_EQ(b["A1"]["bottom"], nlohmann::json::array({"medium", "FFFF0000"}));
  EXPECT_EQ(b["A2"]["left"][0], "thin");
  EXPECT_EQ(b["A2"]["top"][0], nullptr);
  EXPECT_EQ(b["B3"]["bottom"][0], "thin");
  EXPECT_EQ(j["links"], nlohmann::json::array({"Other.xlsx"}));
  EXPECT_EQ(j["formulas"], nlohmann::json::array({"=[1]Rates!B2*2", "='[1]My Rates'!C3"}));
  EXPECT_EQ(j["values"], nlohmann::json::array({0.11, "fixed"}));
}

TEST_F(FormatAndLinks, LibreOfficeReadsTheLinkedValuesAndKeepsBordersAndFilter) {
  if (!have("command -v soffice")) GTEST_SKIP() << "LibreOffice is not installed";
  if (!have("/usr/bin/python3 -c 'import openpyxl'")) GTEST_SKIP() << "openpyxl is not installed";
  fs::path file = build_list();
  fs::path home = dir_ / "home";
  fs::create_directories(home);
  fs::path lo = dir_ / "lo";
  int rc = 0;
  std::string log =
      run("cd " + dir_.path().string() + " && HOME=" + home.string() +
              " timeout 180 soffice --headless --norestore --convert-to xlsx --outdir " +
              lo.string() + " " + file.string() + " 2>&1",
          &rc);
  ASSERT_EQ(rc, 0) << log;
  log += run("cd " + dir_.path().string() + " && HOME=" + home.string() +
             " timeout 180 soffice --headless --norestore --convert-to csv --outdir " +
             lo.string() + " " + file.string() + " 2>&1");
  std::ifstream in(lo / "list.csv");
  ASSERT_TRUE(in) << log;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_GE(lines.size(), 3u) << log;
  // No Err:540 (a link it cannot follow): the values the link keeps.
  EXPECT_EQ(lines[0], "Key,Value,0.11");
  EXPECT_EQ(lines[1], "a,1,fixed");
  // LibreOffice's own copy still has the borders and the filter it read from ours.
  std::string check = run(
      "/usr/bin/python3 -c \"import openpyxl,sys; ws=openpyxl.load_workbook(sys.argv[1]).active; "
      "print(ws.auto_filter.ref, ws['A1'].border.left.style, ws['A1'].border.bottom.style)\" " +
      (lo / "list.xlsx").string() + " 2>&1");
  EXPECT_EQ(check, "A1:B3 thin medium\n") << log;
}

// A table with a totals row and formulas that name it, as a file brought it, then renamed
// (table and a column) and recalculated by the engine: other readers must find the table
// under its new names and compute the same values from the formulas as written.
class TablesSaved : public OtherReaders {
 protected:
  // `stale`: the last entry (B3 = 6.5) is not calculated, so the cached results are wrong
  // and a reader that shows the right ones computed them itself.
  fs::path build_table(bool stale = false) {
    const std::string ns =
        R"(xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships")";
    const std::string rel = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/";
    std::map<std::string, std::string> parts = {
        {"[Content_Types].xml",
         R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
         R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
         R"(<Default Extension="xml" ContentType="application/xml"/>)"
         R"(<Override PartName="/xl/workbook.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml"/>)"
         R"(<Override PartName="/xl/worksheets/sheet1.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml"/>)"
         R"(<Override PartName="/xl/tables/table1.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.table+xml"/>)"
         R"(</Types>)"},
        {"_rels/.rels",
         R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships"><Relationship Id="rId1" Type=")" +
             rel + R"(officeDocument" Target="xl/workbook.xml"/></Relationships>)"},
        {"xl/workbook.xml",
         "<workbook " + ns +
             R"(><sheets><sheet name="Data" sheetId="1" r:id="rId1"/></sheets></workbook>)"},
        {"xl/_rels/workbook.xml.rels",
         R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships"><Relationship Id="rId1" Type=")" +
             rel + R"(worksheet" Target="worksheets/sheet1.xml"/></Relationships>)"},
        {"xl/worksheets/sheet1.xml",
         "<worksheet " + ns + "><sheetData>" +
             R"(<row r="1"><c r="A1" t="inlineStr"><is><t>Item</t></is></c><c r="B1" t="inlineStr"><is><t>Amount</t></is></c><c r="C1" t="inlineStr"><is><t>Double</t></is></c><c r="E1"><f>SUM(Sales[Amount])</f></c></row>)"
             R"(<row r="2"><c r="A2" t="inlineStr"><is><t>pen</t></is></c><c r="B2"><v>4</v></c><c r="C2"><f>Sales[[#This Row],[Amount]]*2</f></c><c r="E2"><f>Sales[[#Totals],[Amount]]/COUNT(Sales[Amount])</f></c></row>)"
             R"(<row r="3"><c r="A3" t="inlineStr"><is><t>ink</t></is></c><c r="B3"><v>1</v></c><c r="C3"><f>Sales[[#This Row],[Amount]]*2</f></c></row>)"
             R"(<row r="4"><c r="A4" t="inlineStr"><is><t>Total</t></is></c><c r="B4"><f>SUBTOTAL(109,Sales[Amount])</f></c></row>)"
             R"(</sheetData><tableParts count="1"><tablePart r:id="rId1"/></tableParts></worksheet>)"},
        {"xl/worksheets/_rels/sheet1.xml.rels",
         R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships"><Relationship Id="rId1" Type=")" +
             rel + R"(table" Target="../tables/table1.xml"/></Relationships>)"},
        {"xl/tables/table1.xml",
         R"(<table xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" id="1" name="Sales" displayName="Sales" ref="A1:C4" totalsRowCount="1">)"
         R"(<autoFilter ref="A1:C3"/><tableColumns count="3"><tableColumn id="1" name="Item" totalsRowLabel="Total"/>)"
         R"(<tableColumn id="2" name="Amount" totalsRowFunction="sum"/><tableColumn id="3" name="Double"><calculatedColumnFormula>Sales[[#This Row],[Amount]]*2</calculatedColumnFormula></tableColumn></tableColumns>)"
         R"(<tableStyleInfo name="TableStyleMedium2" showFirstColumn="0" showLastColumn="0" showRowStripes="1" showColumnStripes="0"/></table>)"},
    };
    fs::path source = dir_ / "source.xlsx";
    {
      xlsx::ZipWriter w(source);
      for (const auto& [name, content] : parts) w.add(name, content);
      w.commit();
    }
    auto book = xlsx::load(source);
    book->rename_table(u"Sales", u"Orders");
    book->rename_table_column(u"Orders", 1, u"Net");
    book->calculate(true);
    book->auto_calc = !stale;
    book->set_constant(*book->sheets[0], 2, 1, calc::Value::num(6.5));
    book->commit();
    fs::path out = dir_ / "table.xlsx";
    xlsx::save(*book, out);
    return out;
  }
};

TEST_F(TablesSaved, OpenpyxlFindsTheRenamedTableItsTotalsRowAndTheValues) {
  if (!have("/usr/bin/python3 -c 'import openpyxl'")) GTEST_SKIP() << "openpyxl is not installed";
  fs::path file = build_table();
  std::ofstream(dir_ / "read.py") << R"(
import json, sys, openpyxl
ws = openpyxl.load_workbook(sys.argv[1])["Data"]
values = openpyxl.load_workbook(sys.argv[1], data_only=True)["Data"]
t = ws.tables["Orders"]
print(json.dumps({"ref": t.ref, "totals": t.totalsRowCount,
                  "columns": [c.name for c in t.tableColumns],
                  "formulas": [ws[a].value for a in ("C2", "B4", "E1", "E2")],
                  "values": [values[a].value for a in ("C2", "C3", "B4", "E1", "E2")]}))
)";
  int rc = 0;
  std::string text =
      run("/usr/bin/python3 " + (dir_ / "read.py").string() + " " + file.string() + " 2>&1", &rc);
  ASSERT_EQ(rc, 0) << text;
  auto j = nlohmann::json::parse(text);
  EXPECT_EQ(j["ref"], "A1:C4");
  EXPECT_EQ(j["totals"], 1);
  EXPECT_EQ(j["columns"], nlohmann::json::array({"Item", "Net", "Double"}));
  EXPECT_EQ(j["formulas"], nlohmann::json::array({"=Orders[[#This Row],[Net]]*2",
                                                  "=SUBTOTAL(109,Orders[Net])", "=SUM(Orders[Net])",
                                                  "=Orders[[#Totals],[Net]]/COUNT(Orders[Net])"}));
  EXPECT_EQ(j["values"], nlohmann::json::array({8, 13, 10.5, 10.5, 5.25}));
}

TEST_F(TablesSaved, LibreOfficeComputesTheStructuredReferencesAsTheEngineDid) {
  if (!have("command -v soffice")) GTEST_SKIP() << "LibreOffice is not installed";
  fs::path file = build_table(true);
  std::string log;
  std::vector<std::string> lines = recalculated_csv(file, log);
  ASSERT_GE(lines.size(), 4u) << log;
  EXPECT_EQ(lines[0], "Item,Net,Double,,10.5");
  EXPECT_EQ(lines[1], "pen,4,8,,5.25");
  EXPECT_EQ(lines[2], "ink,6.5,13,,");
  EXPECT_EQ(lines[3], "Total,10.5,,,");
}

}  // namespace
}  // namespace qz::engine
