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
  // A fresh profile told to recalculate every workbook it loads (by default it trusts the
  // cached results of files from other programs).
  fs::path home = dir_ / "home";
  fs::path profile = home / ".config/libreoffice/4/user";
  fs::create_directories(profile);
  std::ofstream(profile / "registrymodifications.xcu") << R"(<?xml version="1.0" encoding="UTF-8"?>
<oor:items xmlns:oor="http://openoffice.org/2001/registry" xmlns:xs="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">
<item oor:path="/org.openoffice.Office.Calc/Formula/Load"><prop oor:name="OOXMLRecalcMode" oor:op="fuse"><value>0</value></prop></item>
</oor:items>
)";
  int rc = 0;
  std::string log =
      run("HOME=" + home.string() +
              " timeout 180 soffice --headless --norestore --convert-to csv --outdir " +
              dir_.path().string() + " " + file.string() + " 2>&1",
          &rc);
  ASSERT_EQ(rc, 0) << log;
  std::ifstream in(dir_ / "model.csv");
  ASSERT_TRUE(in) << log;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_GE(lines.size(), 6u);
  EXPECT_EQ(lines[0], "Revenue,1200.5");
  EXPECT_EQ(lines[1], "Cost,700.25");
  EXPECT_EQ(lines[2], "Margin,500.25");
  EXPECT_EQ(lines[3], ",0.4167");
  EXPECT_EQ(lines[4], ",profit");
  EXPECT_EQ(lines[5], ",TRUE");
}

}  // namespace
}  // namespace qz::engine
