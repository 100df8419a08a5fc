// Loading workbooks into the engine's model and saving them back: what each part of a
// package becomes in the model, and what a save changes (only what changed, appended rather
// than renumbered, everything the engine does not model kept).
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/calc/calc.hpp"
#include "engine/host/engine.hpp"
#include "engine/xlsx/common.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"
#include "support/test_support.hpp"

namespace qz::engine {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using Parts = std::map<std::string, std::string>;

const std::string kMain =
    R"(xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" xmlns:r="http://schemas.openxmlformats.org/officeDocument/2006/relationships")";

std::string sheet_xml(const std::string& data, const std::string& after = "") {
  return "<worksheet " + kMain + "><sheetData>" + data + "</sheetData>" + after + "</worksheet>";
}

// A small workbook: two sheets, a styles part with two fonts and two cell formats, three
// shared strings; `over` replaces or adds parts.
Parts book_parts(const Parts& over = {}) {
  Parts p = {
      {"[Content_Types].xml",
       R"(<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">)"
       R"(<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>)"
       R"(<Default Extension="xml" ContentType="application/xml"/>)"
       R"(<Override PartName="/xl/workbook.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml"/>)"
       R"(<Override PartName="/xl/worksheets/sheet1.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml"/>)"
       R"(<Override PartName="/xl/worksheets/sheet2.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml"/>)"
       R"(<Override PartName="/xl/calcChain.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.calcChain+xml"/>)"
       R"(</Types>)"},
      {"_rels/.rels",
       R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
       R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="xl/workbook.xml"/>)"
       R"(</Relationships>)"},
      {"xl/workbook.xml",
       "<workbook " + kMain +
           R"(><workbookPr codeName="ThisWorkbook"/>)"
           R"(<bookViews><workbookView activeTab="1"/></bookViews>)"
           R"(<sheets><sheet name="First" sheetId="1" r:id="rId1"/><sheet name="Second" sheetId="2" state="hidden" r:id="rId2"/></sheets>)"
           R"(<definedNames><definedName name="Rate">First!$A$1</definedName>)"
           R"(<definedName name="Local" localSheetId="1" hidden="1" comment="c">Second!$B$2</definedName></definedNames>)"
           R"(<calcPr calcId="191029"/><extLst><ext uri="{X}"><keep/></ext></extLst></workbook>)"},
      {"xl/_rels/workbook.xml.rels",
       R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
       R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet" Target="worksheets/sheet1.xml"/>)"
       R"(<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet" Target="worksheets/sheet2.xml"/>)"
       R"(<Relationship Id="rId3" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/styles" Target="styles.xml"/>)"
       R"(<Relationship Id="rId4" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/sharedStrings" Target="sharedStrings.xml"/>)"
       R"(<Relationship Id="rId5" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/calcChain" Target="calcChain.xml"/>)"
       R"(</Relationships>)"},
      {"xl/styles.xml",
       "<styleSheet " + kMain +
           R"(><numFmts count="1"><numFmt numFmtId="164" formatCode="0.000"/></numFmts>)"
           R"(<fonts count="2"><font><sz val="11"/><name val="Calibri"/></font><font><b/><sz val="14"/><color theme="4" tint="-0.25"/><name val="Arial"/></font></fonts>)"
           R"(<fills count="2"><fill><patternFill patternType="none"/></fill><fill><patternFill patternType="gray125"/></fill></fills>)"
           R"(<borders count="1"><border><left/><right/><top/><bottom/><diagonal/></border></borders>)"
           R"(<cellStyleXfs count="1"><xf numFmtId="0" fontId="0" fillId="0" borderId="0"/></cellStyleXfs>)"
           R"(<cellXfs count="2"><xf numFmtId="0" fontId="0" fillId="0" borderId="0" xfId="0"/>)"
           R"(<xf numFmtId="164" fontId="1" fillId="0" borderId="0" xfId="0" applyNumberFormat="1" pivotButton="1"><alignment horizontal="center" wrapText="1"/></xf></cellXfs>)"
           R"(<cellStyles count="1"><cellStyle name="Normal" xfId="0" builtinId="0"/></cellStyles>)"
           R"(<dxfs count="1"><dxf><font><i/></font></dxf></dxfs></styleSheet>)"},
      {"xl/sharedStrings.xml",
       "<sst " + kMain +
           R"( count="3" uniqueCount="3"><si><t>alpha</t></si>)"
           R"(<si><r><t xml:space="preserve">plain </t></r><r><rPr><b/><i/><u val="double"/><strike/><vertAlign val="superscript"/><sz val="9"/><color rgb="FFFF0000"/><rFont val="Arial"/></rPr><t>bold</t></r><rPh sb="0" eb="1"><t>PHONETIC</t></rPh></si>)"
           R"(<si><t>line_x000D_break</t></si></sst>)"},
      {"xl/calcChain.xml", "<calcChain " + kMain + R"(><c r="B1" i="1"/></calcChain>)"},
      {"xl/worksheets/sheet1.xml",
       sheet_xml(
           R"(<row r="1" x14ac:dyDescent="0.25" xmlns:x14ac="urn:x14ac"><c r="A1" s="1"><v>1.5</v></c><c r="B1"><f>A1*2</f><v>3</v></c><c r="C1" t="s" cm="1"><v>0</v></c></row>)",
           R"(<conditionalFormatting sqref="A1"><cfRule type="expression" dxfId="0" priority="1"><formula>A1&gt;1</formula></cfRule></conditionalFormatting>)"
           R"(<pageMargins left="0.7" right="0.7" top="0.75" bottom="0.75" header="0.3" footer="0.3"/>)"
           R"(<extLst><ext uri="{Y}" xmlns:x14="urn:x14"><x14:keep/></ext></extLst>)")},
      {"xl/worksheets/sheet2.xml", sheet_xml(R"(<row r="2"><c r="B2"><v>7</v></c></row>)")},
  };
  for (const auto& [k, v] : over) p[k] = v;
  return p;
}

class Workbooks : public ::testing::Test {
 protected:
  fs::path write(const Parts& parts, const std::string& name = "book.xlsx") {
    fs::path p = dir_ / name;
    xlsx::ZipWriter w(p);
    for (const auto& [n, c] : parts) w.add(n, c);
    w.commit();
    return p;
  }
  BookPtr load(const Parts& parts) { return xlsx::load(write(parts)); }
  fs::path save(Book& b, const std::string& name = "out.xlsx") {
    fs::path p = dir_ / name;
    xlsx::save(b, p);
    return p;
  }
  static std::string part(const fs::path& file, const std::string& name) {
    auto z = xlsx::ZipReader::open(file);
    const auto* e = z.find(name);
    return e ? z.read(*e) : std::string("(absent)");
  }
  static Sheet& sheet(Book& b, size_t i) { return *b.sheets.at(i); }
  qz::test::TempDir dir_;
};

// --- loading ----------------------------------------------------------------------------------

TEST_F(Workbooks, LoadsCellsOfEveryKind) {
  auto b = load(book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(
            R"(<row r="3"><c r="A3"><v>-2.5E-3</v></c><c t="b"><v>1</v></c>)"
            R"(<c t="e"><v>#DIV/0!</v></c><c t="inlineStr"><is><t>in</t><r><rPr><i/></rPr><t>line</t></r></is></c>)"
            R"(<c r="F3" s="1"/><c r="G3" t="s"><v/></c><c r="H3" t="d"><v>1900-03-01T12:00:00</v></c>)"
            R"(<c r="I3" t="s"><v>2</v></c></row><row><c><v>9</v></c></row>)")}}));
  Sheet& s = sheet(*b, 0);
  EXPECT_EQ(b->value(s, 2, 0), calc::Value::num(-0.0025));
  EXPECT_EQ(b->value(s, 2, 1), calc::Value::boolean(true))
      << "a cell without r follows the one before";
  EXPECT_EQ(b->value(s, 2, 2), calc::Value::error(cell_error::div0));
  EXPECT_EQ(b->value(s, 2, 3), calc::Value::str(u"inline"));
  const Cell* rich = s.cells.find(2, 3);
  // Text before the first run shows in the cell's font: the one run begins after it.
  ASSERT_EQ(b->strings.runs(rich->index).size(), 1u);
  EXPECT_EQ(b->strings.runs(rich->index)[0].start, 2u);
  EXPECT_TRUE(b->strings.runs(rich->index)[0].font->italic);
  ASSERT_NE(s.cells.find(2, 5), nullptr) << "a formatted empty cell is kept";
  EXPECT_EQ(s.cells.find(2, 5)->style(), 1u);
  EXPECT_EQ(b->value(s, 2, 6).kind, calc::Value::Kind::Empty) << "<v/> is no value";
  EXPECT_EQ(b->value(s, 2, 7), calc::Value::num(61.5)) << "ISO dates become serials";
  EXPECT_EQ(b->value(s, 2, 8), calc::Value::str(u"line\rbreak"));
  EXPECT_EQ(b->value(s, 3, 0), calc::Value::num(9)) << "a row without r follows the one before";

  // Rich shared strings: runs with their own fonts, phonetic guides not part of the text.
  auto b2 = load(book_parts());
  EXPECT_EQ(b2->strings.text(1), u"plain bold");
  const auto& runs = b2->strings.runs(1);
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0].start, 0u);
  EXPECT_FALSE(runs[0].font.has_value());
  EXPECT_EQ(runs[1].start, 6u);
  const FontRec& f = *runs[1].font;
  EXPECT_TRUE(f.bold && f.italic && f.strike);
  EXPECT_EQ(f.underline, Underline::Double);
  EXPECT_EQ(f.vert_align, VertAlign::Superscript);
  EXPECT_EQ(f.size, 9);
  EXPECT_EQ(f.name, u"Arial");
  EXPECT_EQ(f.color, Color::rgb(255));
}

TEST_F(Workbooks, LoadsFormulasAsWrittenWithTheirCachedValues) {
  auto b = load(book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(
            R"(<row r="1"><c r="A1"><f t="shared" ref="A1:A3" si="0">B1+1</f><v>2</v></c>)"
            R"(<c r="B1"><f ca="1">"x"&amp;"y"</f><v>xy</v></c><c r="C1" t="str"><f>C9</f><v>text</v></c>)"
            R"(<c r="D1" t="b"><f>TRUE</f><v>1</v></c><c r="E1" t="e"><f>1/0</f><v>#DIV/0!</v></c></row>)"
            R"(<row r="2"><c r="A2"><f t="shared" si="0"/><v>3</v></c><c r="B2"><f t="array" ref="B2:C3">B1:C2*2</f><v>4</v></c></row>)")}}));
  Sheet& s = sheet(*b, 0);
  const FormulaCell& master = s.formula(*s.cells.find(0, 0));
  EXPECT_EQ(master.file->text, "B1+1");
  EXPECT_EQ(master.file->type, FileFormula::Type::Shared);
  EXPECT_EQ(master.file->ref(), u"A1:A3");
  EXPECT_EQ(master.value, calc::Value::num(2));
  const FormulaCell& child = s.formula(*s.cells.find(1, 0));
  EXPECT_EQ(child.file->text, "");
  EXPECT_EQ(child.file->rare, nullptr) << "a plain shared child keeps nothing rare";
  ASSERT_TRUE(child.shared_master.has_value());
  EXPECT_EQ(*child.shared_master, (CellRef{0, 0}));
  EXPECT_EQ(b->formula_text(s, 1, 0, calc::Notation::A1), u"=B2+1")
      << "the child moves the master's references";
  const FormulaCell& ca = s.formula(*s.cells.find(0, 1));
  ASSERT_NE(ca.file->rare, nullptr);
  EXPECT_EQ(ca.file->rare->attrs, (std::vector<std::pair<String, String>>{{u"ca", u"1"}}));
  EXPECT_EQ(s.formula(*s.cells.find(0, 2)).value, calc::Value::str(u"text"));
  EXPECT_EQ(s.formula(*s.cells.find(0, 3)).value, calc::Value::boolean(true));
  EXPECT_EQ(s.formula(*s.cells.find(0, 4)).value, calc::Value::error(cell_error::div0));
  const FormulaCell& arr = s.formula(*s.cells.find(1, 1));
  EXPECT_TRUE(arr.array);
  EXPECT_EQ(arr.array_ref, (Rect{1, 1, 2, 2}));
}

// Cells come in many spellings: whatever the writer chose, a cell lands where its reference
// says and keeps its format, and the common spelling reads the same as the rare ones.
TEST_F(Workbooks, CellsLandWhereTheirReferenceSaysHoweverItIsSpelled) {
  auto b = load(book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(R"(<row r="1"><c r="$B$1" s='1'><v>2</v></c><c r="c1" s="+1"><v>3</v></c>)"
                  R"(<c r="D01"   s="1" ><v>4</v></c><c s="1" r="E1"><v>5</v></c>)"
                  R"(<c r="F1" s="99999999999"><v>6</v></c><c r="H1"/><c><v>8</v></c>)"
                  R"(<c r="J1"><f>"x"&amp;"y"</f><v>9</v></c><c r="K1" s="1"><f>1+)"
                  "\r\n"
                  R"(2</f><v>3</v></c><c r="XFD1" s="1"><v>1</v></c></row>)"
                  R"(<row r="1048576"><c r="AB1048576" s="0"><v>7</v></c></row>)")}}));
  Sheet& s = sheet(*b, 0);
  for (int32_t col : {1, 2, 3, 4}) {
    EXPECT_EQ(b->value(s, 0, col), calc::Value::num(col + 1)) << col;
    ASSERT_NE(s.cells.find(0, col), nullptr) << col;
    EXPECT_EQ(s.cells.find(0, col)->style(), 1u) << col;
  }
  EXPECT_EQ(s.cells.find(0, 5)->style(), (1u << 27) - 1) << "an outsize format index is capped";
  EXPECT_EQ(s.cells.find(0, 7), nullptr) << "an empty cell without a format carries nothing";
  EXPECT_EQ(b->value(s, 0, 8), calc::Value::num(8)) << "a cell without r follows the one before";
  EXPECT_EQ(s.formula(*s.cells.find(0, 9)).file->text, R"("x"&"y")");
  EXPECT_EQ(s.formula(*s.cells.find(0, 10)).file->text, "1+\n2") << "line ends are normalised";
  EXPECT_EQ(s.cells.find(0, 10)->style(), 1u);
  EXPECT_EQ(b->value(s, 0, kLastCol), calc::Value::num(1));
  EXPECT_EQ(b->value(s, calc::kMaxRows - 1, 27), calc::Value::num(7));
  EXPECT_EQ(s.cells.size(), 10u);
}

// Colouring a workbook reads every formula once: reading must not leave a parsed tree on each
// cell for the life of the workbook, yet what was read still moves with later edits and is
// written back as read.
TEST_F(Workbooks, ReadingFormulasKeepsNoParseYetEditsStillMoveThem) {
  auto b = load(book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(
            R"(<row r="1"><c r="A1"><f t="shared" ref="A1:A2" si="0">B1+1</f><v>2</v></c><c r="C1"><f>SUM(B1:B2)</f><v>0</v></c></row>)"
            R"(<row r="2"><c r="A2"><f t="shared" si="0"/><v>3</v></c><c r="C2"><f>1+</f><v>0</v></c>)"
            // One writer marks every formula aca="false"; the mark, alone or among others, is
            // written back where it stood (G2 goes through the general cell reader).
            R"(<c r="D2"><f aca="false">B2*2</f></c><c r="E2"><f aca="false" ca="1">B2*3</f></c>)"
            R"(<c r="F2"><f ca="1" aca="false">B2*4</f></c><c r="G2" cm="1"><f aca="false">B2*5</f></c></row>)")}}));
  Sheet& s = sheet(*b, 0);
  EXPECT_EQ(s.formula(*s.cells.find(1, 3)).file->rare, nullptr)
      << "a lone aca=\"false\" costs no record of rare attributes";
  EXPECT_EQ(b->formula_text(s, 0, 0, calc::Notation::A1), u"=B1+1");
  EXPECT_EQ(b->formula_text(s, 1, 0, calc::Notation::A1), u"=B2+1");
  EXPECT_EQ(b->formula_text(s, 0, 2, calc::Notation::R1C1), u"=SUM(RC[-1]:R[1]C[-1])");
  EXPECT_EQ(b->formula_text(s, 1, 2, calc::Notation::A1), u"=1+") << "unparsable: shown as read";
  for (const auto& f : s.formulas)
    if (f.live) {
      EXPECT_EQ(f.parsed, nullptr) << "reading kept a parse at row " << f.at.row;
    }

  std::string xml = part(save(*b, "read.xlsx"), "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml, HasSubstr(R"(<f t="shared" ref="A1:A2" si="0">B1+1</f>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<c r="A2"><f t="shared" si="0"/>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<c r="D2"><f aca="false">B2*2</f></c>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<f aca="false" ca="1">B2*3</f>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<f ca="1" aca="false">B2*4</f>)"));
  EXPECT_THAT(xml, HasSubstr(R"(cm="1"><f aca="false">B2*5</f>)"));

  b->shift(s, true, 0, 1);
  EXPECT_EQ(b->formula_text(s, 1, 0, calc::Notation::A1), u"=B2+1");
  EXPECT_EQ(b->formula_text(s, 2, 0, calc::Notation::A1), u"=B3+1");
  EXPECT_EQ(b->formula_text(s, 1, 2, calc::Notation::A1), u"=SUM(B2:B3)");
  EXPECT_EQ(b->formula_text(s, 2, 2, calc::Notation::A1), u"=1+");
}

TEST_F(Workbooks, LoadsWorkbookSheetAndStyleProperties) {
  std::string sheet2 = sheet_xml(
      R"(<row r="2" ht="30" customHeight="1" hidden="1" outlineLevel="2" s="1" customFormat="1"><c r="B2"><v>7</v></c></row>)",
      R"(<mergeCells count="1"><mergeCell ref="D4:E5"/></mergeCells>)"
      R"(<hyperlinks><hyperlink ref="A1" r:id="rId7" tooltip="tip"/><hyperlink ref="A2:B2" location="First!A1" display="go"/></hyperlinks>)"
      R"(<drawing r:id="rId8"/>)");
  sheet2.replace(
      sheet2.find("<sheetData>"), 11,
      R"(<sheetPr codeName="Sheet2Code"/><sheetViews><sheetView workbookViewId="0"><pane xSplit="1" activePane="topRight" state="split"/><selection pane="topRight" activeCell="C3" sqref="C3:D4 F6"/></sheetView></sheetViews><sheetFormatPr defaultRowHeight="12.75" defaultColWidth="10"/><cols><col min="2" max="4" width="20.5" customWidth="1" hidden="1" outlineLevel="1" style="1" bestFit="1"/></cols><sheetData>)");
  Parts p = book_parts(
      {{"xl/worksheets/sheet2.xml", sheet2},
       {"xl/worksheets/_rels/sheet2.xml.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId7" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/hyperlink" Target="https://example.com/x?a=1&amp;b=2" TargetMode="External"/>)"
        R"(<Relationship Id="rId8" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/drawing" Target="../drawings/drawing1.xml"/></Relationships>)"},
       {"xl/drawings/drawing1.xml",
        R"(<xdr:wsDr xmlns:xdr="urn:xdr" xmlns:a="urn:a"><xdr:twoCellAnchor><xdr:graphicFrame><xdr:nvGraphicFramePr><xdr:cNvPr id="2" name="Revenue Chart"/></xdr:nvGraphicFramePr>)"
        R"(<a:graphic><a:graphicData uri="http://schemas.openxmlformats.org/drawingml/2006/chart"/></a:graphic></xdr:graphicFrame></xdr:twoCellAnchor>)"
        R"(<xdr:oneCellAnchor><xdr:pic><xdr:nvPicPr><xdr:cNvPr id="3" name="Logo"/></xdr:nvPicPr></xdr:pic></xdr:oneCellAnchor></xdr:wsDr>)"},
       {"docProps/custom.xml",
        R"(<Properties xmlns="http://schemas.openxmlformats.org/officeDocument/2006/custom-properties" xmlns:vt="http://schemas.openxmlformats.org/officeDocument/2006/docPropsVTypes">)"
        R"(<property fmtid="{D5CDD505-2E9C-101B-9397-08002B2CF9AE}" pid="2" name="Client"><vt:lpwstr>Acme</vt:lpwstr></property>)"
        R"(<property fmtid="{D5CDD505-2E9C-101B-9397-08002B2CF9AE}" pid="3" name="Count"><vt:i4>12</vt:i4></property>)"
        R"(<property fmtid="{D5CDD505-2E9C-101B-9397-08002B2CF9AE}" pid="4" name="Done"><vt:bool>true</vt:bool></property>)"
        R"(<property fmtid="{D5CDD505-2E9C-101B-9397-08002B2CF9AE}" pid="5" name="When"><vt:filetime>2024-03-01T12:00:00Z</vt:filetime></property>)"
        R"(<property fmtid="{D5CDD505-2E9C-101B-9397-08002B2CF9AE}" pid="6" name="Ratio"><vt:r8>0.25</vt:r8></property></Properties>)"},
       {"_rels/.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="xl/workbook.xml"/>)"
        R"(<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/custom-properties" Target="docProps/custom.xml"/></Relationships>)"}});
  p["xl/workbook.xml"].replace(p["xl/workbook.xml"].find("<workbookPr"), 11,
                               R"(<workbookPr date1904="1")");
  auto b = load(p);
  EXPECT_TRUE(b->date1904);
  EXPECT_EQ(b->code_name, u"ThisWorkbook");
  EXPECT_EQ(b->active_sheet, 1);
  EXPECT_EQ(sheet(*b, 1).visibility, 0);
  ASSERT_EQ(b->names().size(), 2u);
  auto local = b->find_name(u"Local", sheet(*b, 1).id);
  ASSERT_TRUE(local.has_value());
  EXPECT_TRUE(b->names()[*local].hidden);
  EXPECT_EQ(b->names()[*local].comment, u"c");
  EXPECT_EQ(b->names()[*local].formula, u"Second!$B$2");

  Sheet& s = sheet(*b, 1);
  EXPECT_EQ(s.code_name, u"Sheet2Code");
  const LineInfo& row = s.rows.at(1);
  EXPECT_EQ(row.size, 30);
  EXPECT_TRUE(row.hidden && row.custom_size && row.has_style);
  EXPECT_EQ(row.outline_level, 2);
  EXPECT_EQ(row.style, 1u);
  for (int c : {1, 2, 3}) {
    const LineInfo& col = s.cols.at(c);
    EXPECT_EQ(col.size, 20.5);
    EXPECT_TRUE(col.hidden);
    EXPECT_EQ(col.outline_level, 1);
    EXPECT_EQ(col.attrs, (std::vector<std::pair<String, String>>{{u"bestFit", u"1"}}));
  }
  EXPECT_FALSE(s.cols.count(0) || s.cols.count(4));
  EXPECT_EQ(s.default_row_height, 12.75);
  EXPECT_EQ(s.default_col_width, 10);
  EXPECT_EQ(s.merged, (std::vector<Rect>{{3, 3, 4, 4}}));
  ASSERT_EQ(s.hyperlinks.size(), 2u);
  EXPECT_EQ(s.hyperlinks[0].address, u"https://example.com/x?a=1&b=2");
  EXPECT_EQ(s.hyperlinks[0].screen_tip, u"tip");
  EXPECT_EQ(s.hyperlinks[1].sub_address, u"First!A1");
  EXPECT_EQ(s.hyperlinks[1].ref, (Rect{1, 0, 1, 1}));
  EXPECT_EQ(s.selection.active, (CellRef{2, 2})) << "the active pane's selection";
  EXPECT_EQ(s.selection.areas, (std::vector<Rect>{{2, 2, 3, 3}, {5, 5, 5, 5}}));
  ASSERT_EQ(s.chart_objects.size(), 1u) << "pictures are not charts";
  EXPECT_EQ(s.chart_objects[0].name, u"Revenue Chart");

  ASSERT_EQ(b->props.size(), 5u);
  EXPECT_EQ(b->props[0].value, Variant(String(u"Acme")));
  EXPECT_EQ(b->props[1].value, Variant(int32_t{12}));
  EXPECT_EQ(b->props[2].value, Variant(true));
  EXPECT_EQ(b->props[3].value, Variant(Date{45352.5}));
  EXPECT_EQ(b->props[4].value, Variant(0.25));

  const StyleTable& st = b->styles;
  ASSERT_EQ(st.fonts.size(), 2u);
  EXPECT_TRUE(st.fonts[1].bold);
  EXPECT_EQ(st.fonts[1].color.kind, Color::Kind::Theme);
  EXPECT_EQ(st.fonts[1].color.index, 4);
  EXPECT_EQ(st.fonts[1].color.tint, -0.25);
  ASSERT_EQ(st.xfs.size(), 2u);
  EXPECT_EQ(st.xfs[1].numfmt, 164u);
  EXPECT_EQ(st.numfmt_code(164), u"0.000");
  EXPECT_EQ(st.xfs[1].align.horizontal, HAlign::Center);
  EXPECT_TRUE(st.xfs[1].align.wrap);
}

TEST_F(Workbooks, RefusesContentThatMeansNothingInOneLine) {
  auto refusal = [&](const std::string& data) {
    try {
      load(book_parts({{"xl/worksheets/sheet1.xml", sheet_xml(data)}}));
      return std::string();
    } catch (const Error& e) {
      EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos);
      return std::string(e.what());
    }
  };
  EXPECT_THAT(refusal(R"(<row r="0"/>)"), HasSubstr("row number out of range"));
  EXPECT_THAT(refusal(R"(<row r="1048577"/>)"), HasSubstr("row number out of range"));
  EXPECT_THAT(refusal(R"(<row r="1"><c r="A2"><v>1</v></c></row>)"),
              HasSubstr("cell A2 inside row 1"));
  EXPECT_THAT(refusal(R"(<row r="1"><c r="XFE1"><v>1</v></c></row>)"),
              HasSubstr("bad cell reference"));
  EXPECT_THAT(refusal(R"(<row r="1"><c r="A1"><v>abc</v></c></row>)"),
              HasSubstr("cell A1 holds 'abc', which is no number"));
  EXPECT_THAT(refusal(R"(<row r="1"><c r="A1"><v>1</c></row>)"),
              HasSubstr("'xl/worksheets/sheet1.xml' is not well-formed XML"));
  EXPECT_EQ(refusal(R"(<row r="1"><c r="A1" t="s"><v>99</v></c></row>)"), "")
      << "a dangling shared string reads as empty";
}

// Sheets are read side by side; what they add to the workbook comes out as reading them in
// turn makes it: inline texts numbered in sheet order, formulas without values found on every
// sheet, and of two damaged sheets the first one reported.
TEST_F(Workbooks, SheetsReadTogetherComeOutAsReadInTurn) {
  auto four_sheets = [&](const std::string& second, const std::string& fourth) {
    std::string rels = book_parts().at("xl/_rels/workbook.xml.rels");
    const std::string kind =
        "http://schemas.openxmlformats.org/officeDocument/2006/relationships/worksheet";
    rels.insert(rels.rfind("</"),
                R"(<Relationship Id="rId6" Type=")" + kind +
                    R"(" Target="worksheets/sheet3.xml"/><Relationship Id="rId7" Type=")" + kind +
                    R"(" Target="worksheets/sheet4.xml"/>)");
    return load(book_parts(
        {{"xl/workbook.xml",
          "<workbook " + kMain +
              R"(><sheets><sheet name="First" sheetId="1" r:id="rId1"/><sheet name="Second" sheetId="2" r:id="rId2"/>)"
              R"(<sheet name="Third" sheetId="3" r:id="rId6"/><sheet name="Fourth" sheetId="4" r:id="rId7"/></sheets></workbook>)"},
         {"xl/_rels/workbook.xml.rels", rels},
         {"xl/worksheets/sheet1.xml",
          sheet_xml(
              R"(<row r="1"><c r="A1" t="inlineStr"><is><t>one</t></is></c><c r="B1"><f>Fourth!A1*2</f></c></row>)")},
         {"xl/worksheets/sheet2.xml", sheet_xml(second)},
         {"xl/worksheets/sheet3.xml",
          sheet_xml(
              R"(<row r="1"><c r="A1" t="str"><v>three</v></c><c r="B1" t="s"><f>"x"</f><v>0</v></c><c r="C1"><f>A1&amp;"!"</f></c></row>)")},
         {"xl/worksheets/sheet4.xml", sheet_xml(fourth)}}));
  };
  const std::string good2 =
      R"(<row r="1"><c r="A1" t="inlineStr"><is><t>lost</t></is></c><c r="A1" t="inlineStr"><is><t>two</t></is></c>)"
      R"(<c r="B1" t="s"><v>0</v></c><c r="C1" t="inlineStr"><is><r><t>ri</t></r><r><rPr><b/></rPr><t>ch</t></r></is></c></row>)";
  const std::string good4 =
      R"(<row r="1"><c r="A1"><v>21</v></c><c r="B1" t="inlineStr"><is><t>four</t></is></c></row>)";
  for (int round = 0; round < 5; ++round) {
    auto b = four_sheets(good2, good4);
    auto text_at = [&](size_t sheet_at, int32_t col) {
      const Cell* c = sheet(*b, sheet_at).cells.find(0, col);
      return c && c->kind() == CellKind::Text ? c->index : 999u;
    };
    // Three shared strings come first; "lost" keeps its number though "two" replaced it.
    EXPECT_EQ(text_at(0, 0), 3u);
    EXPECT_EQ(text_at(1, 0), 5u);
    EXPECT_EQ(text_at(1, 1), 0u);
    EXPECT_EQ(text_at(1, 2), 6u);
    EXPECT_EQ(text_at(2, 0), 7u);
    EXPECT_EQ(text_at(3, 1), 8u);
    EXPECT_EQ(b->strings.size(), 9u);
    EXPECT_EQ(b->strings.runs(6).size(), 2u);
    EXPECT_EQ(b->value(sheet(*b, 2), 0, 1), calc::Value::str(u"alpha"));
    b->calculate_uncached();
    EXPECT_EQ(b->value(sheet(*b, 0), 0, 1), calc::Value::num(42));
    EXPECT_EQ(b->value(sheet(*b, 2), 0, 2), calc::Value::str(u"three!"));
    // A rewritten sheet writes its inline texts inline again, the shared ones shared.
    b->set_constant(sheet(*b, 1), 5, 0, calc::Value::num(1));
    b->commit();
    std::string second = part(save(*b), "xl/worksheets/sheet2.xml");
    EXPECT_THAT(second, HasSubstr(R"(<c r="A1" t="inlineStr"><is><t>two</t></is></c>)"));
    EXPECT_THAT(second, HasSubstr(R"(<c r="B1" t="s"><v>0</v></c>)"));
  }
  auto refusal = [&](const std::string& second, const std::string& fourth) {
    try {
      four_sheets(second, fourth);
      return std::string();
    } catch (const Error& e) {
      return std::string(e.what());
    }
  };
  const std::string bad2 = R"(<row r="0"/>)";
  const std::string bad4 = R"(<row r="1"><c r="A1"><v>abc</v></c></row>)";
  for (int round = 0; round < 5; ++round) {
    EXPECT_THAT(refusal(bad2, bad4),
                AllOf(HasSubstr("sheet2.xml"), HasSubstr("row number out of range")));
    EXPECT_THAT(refusal(good2, bad4), AllOf(HasSubstr("sheet4.xml"), HasSubstr("no number")));
  }
}

// --- saving -----------------------------------------------------------------------------------

TEST_F(Workbooks, ChangedSheetKeepsWhatTheEngineDoesNotModel) {
  auto b = load(book_parts());
  Sheet& s = sheet(*b, 0);
  b->set_constant(s, 0, 0, calc::Value::num(2.25));
  b->set_constant(s, 4, 1, calc::Value::str(u"new"));
  fs::path out = save(*b);
  std::string xml = part(out, "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml, HasSubstr(R"(<c r="A1" s="1"><v>2.25</v></c>)"));
  EXPECT_THAT(xml, HasSubstr(R"(x14ac:dyDescent="0.25")"))
      << "row attributes the model does not know";
  EXPECT_THAT(xml, HasSubstr(R"(<c r="C1" cm="1" t="s"><v>0</v></c>)")) << "cell attributes too";
  EXPECT_THAT(xml, HasSubstr(R"(<f>A1*2</f>)"));
  EXPECT_THAT(xml, HasSubstr("<conditionalFormatting"));
  EXPECT_THAT(xml, HasSubstr(R"(<x14:keep/>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<dimension ref="A1:C5"/>)"));
  EXPECT_LT(xml.find("</sheetData>"), xml.find("<conditionalFormatting")) << "schema order kept";
  EXPECT_EQ(part(out, "xl/worksheets/sheet2.xml"),
            part(write(book_parts(), "orig.xlsx"), "xl/worksheets/sheet2.xml"));

  // The reloaded workbook sees what was saved.
  auto again = xlsx::load(out);
  EXPECT_EQ(again->value(sheet(*again, 0), 0, 0), calc::Value::num(2.25));
  EXPECT_EQ(again->value(sheet(*again, 0), 4, 1), calc::Value::str(u"new"));
  EXPECT_EQ(again->value(sheet(*again, 0), 0, 2), calc::Value::str(u"alpha"));
}

// A part that binds the main namespace to a prefix: a changed sheet's cells, of every kind and
// however they are written, go back with the part's prefix, each row's number on its cells.
TEST_F(Workbooks, AChangedPrefixedSheetWritesEveryKindOfCellUnderItsPrefix) {
  const std::string main = R"(xmlns:x="http://schemas.openxmlformats.org/spreadsheetml/2006/main")";
  auto b = load(book_parts(
      {{"xl/worksheets/sheet1.xml",
        "<x:worksheet " + main + "><x:sheetData>" +
            R"(<x:row r="12"><x:c r="A12" s="1"><x:v>1.5</x:v></x:c><x:c r="B12" t="b"><x:v>1</x:v></x:c>)"
            R"(<x:c r="C12" s="1"/><x:c r="D12" t="s"><x:v>2</x:v></x:c><x:c r="E12" t="s" cm="1"><x:v>0</x:v></x:c>)"
            R"(<x:c r="F12"><x:f>A12*2</x:f><x:v>3</x:v></x:c>)"
            R"(<x:c r="G12" t="b"><x:f aca="false">A12&gt;1</x:f><x:v>1</x:v></x:c><x:c r="H12"><x:f>H9</x:f></x:c>)"
            R"(<x:c r="I12"><x:f t="shared" ref="I12:J12" si="0">A12+1</x:f><x:v>2.5</x:v></x:c>)"
            R"(<x:c r="J12"><x:f t="shared" si="0"/><x:v>1</x:v></x:c></x:row>)"
            R"(<x:row r="9"><x:c r="Z9" t="e"><x:v>#N/A</x:v></x:c></x:row>)"
            "</x:sheetData></x:worksheet>"}}));
  Sheet& s = sheet(*b, 0);
  b->set_constant(s, 123455, 27, calc::Value::num(-0.25));
  b->set_constant(s, 123455, 28, calc::Value::str(u"fresh"));
  const std::string xml = part(save(*b), "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml, HasSubstr(R"(<x:row r="9"><x:c r="Z9" t="e"><x:v>#N/A</x:v></x:c></x:row>)"));
  EXPECT_THAT(
      xml,
      HasSubstr(
          R"(<x:row r="12"><x:c r="A12" s="1"><x:v>1.5</x:v></x:c><x:c r="B12" t="b"><x:v>1</x:v></x:c>)"
          R"(<x:c r="C12" s="1"/><x:c r="D12" t="s"><x:v>2</x:v></x:c><x:c r="E12" cm="1" t="s"><x:v>0</x:v></x:c>)"
          R"(<x:c r="F12"><x:f>A12*2</x:f><x:v>3</x:v></x:c>)"
          R"(<x:c r="G12" t="b"><x:f aca="false">A12&gt;1</x:f><x:v>1</x:v></x:c><x:c r="H12"><x:f>H9</x:f></x:c>)"
          R"(<x:c r="I12"><x:f t="shared" ref="I12:J12" si="0">A12+1</x:f><x:v>2.5</x:v></x:c>)"
          R"(<x:c r="J12"><x:f t="shared" si="0"/><x:v>1</x:v></x:c></x:row>)"));
  EXPECT_THAT(
      xml,
      HasSubstr(
          R"(<x:row r="123456"><x:c r="AB123456"><x:v>-0.25</x:v></x:c><x:c r="AC123456" t="s"><x:v>3</x:v></x:c></x:row>)"));
}

// A sheet large enough that loading gives back the pages of rows already read and saving
// deflates rows as they are written, with cells of the usual shape and of others mixed in each
// row; saved twice, the second save starting from what the first one wrote.
TEST_F(Workbooks, LargeSheetsReadAndWrittenInPiecesStayWhole) {
  const int n = 40000;
  std::string rows;
  for (int r = 1; r <= n; ++r) {
    std::string rs = std::to_string(r);
    rows += "<row r=\"" + rs + "\"><c r=\"A" + rs + "\" s=\"1\"><v>" + rs + "</v></c>" +
            "<c r=\"B" + rs + "\"><f>A" + rs + "*2</f><v>" + std::to_string(2 * r) + "</v></c>" +
            "<c t=\"str\"><v>x&amp;" + rs + "</v></c>" +  // entity, no reference: column C
            "<c><v>" + rs + ".5</v></c>" +                // the usual shape, column D
            "<!-- -->\n<c r=\"F" + rs + "\" t=\"inlineStr\"><is><t>i" + rs + "</t></is></c></row>";
  }
  const std::string after =
      R"(<pageMargins left="0.7" right="0.7" top="0.75" bottom="0.75" header="0.3" footer="0.3"/>)";
  auto b = load(book_parts({{"xl/worksheets/sheet1.xml", sheet_xml(rows, after)}}));
  auto check = [&](Book& book, const std::string& when) {
    Sheet& s = sheet(book, 0);
    for (int r : {1, n / 2, n - 1}) {
      std::string rs = std::to_string(r);
      EXPECT_EQ(book.value(s, r - 1, 1), calc::Value::num(2 * r)) << when << " row " << r;
      EXPECT_EQ(book.formula_text(s, r - 1, 1, calc::Notation::A1), from_utf8("=A" + rs + "*2"))
          << when;
      EXPECT_EQ(book.value(s, r - 1, 2), calc::Value::str(from_utf8("x&" + rs))) << when;
      EXPECT_EQ(book.value(s, r - 1, 3), calc::Value::num(r + 0.5)) << when;
      EXPECT_EQ(book.value(s, r - 1, 5), calc::Value::str(from_utf8("i" + rs))) << when;
      EXPECT_EQ(s.cells.find(r - 1, 0)->style(), 1u) << when;
    }
  };
  check(*b, "loaded");
  EXPECT_EQ(b->value(sheet(*b, 0), n - 1, 0), calc::Value::num(n));

  Sheet& s = sheet(*b, 0);
  b->set_constant(s, 0, 0, calc::Value::num(-1));
  fs::path first = save(*b, "first.xlsx");
  b->set_constant(s, n - 1, 0, calc::Value::str(u"last"));
  fs::path second = save(*b, "second.xlsx");
  EXPECT_THAT(part(second, "xl/worksheets/sheet1.xml"), HasSubstr(after));
  auto again = xlsx::load(second);
  check(*again, "saved twice");
  EXPECT_EQ(again->value(sheet(*again, 0), 0, 0), calc::Value::num(-1));
  EXPECT_EQ(again->value(sheet(*again, 0), n - 1, 0), calc::Value::str(u"last"));
  auto earlier = xlsx::load(first);
  EXPECT_EQ(earlier->value(sheet(*earlier, 0), n - 1, 0), calc::Value::num(n))
      << "the first save is as it was";
}

TEST_F(Workbooks, StylesAndStringsAreAppendedNeverRenumbered) {
  fs::path in = write(book_parts(), "in.xlsx");
  auto b = xlsx::load(in);
  Sheet& s = sheet(*b, 0);
  // A new font colour on the formatted cell: a new font and a new cell format derived from
  // the old one; a new number format; a new text.
  b->restyle(s, {0, 0, 0, 0}, [&](const Xf& x) {
    Xf y = x;
    FontRec f = b->styles.font(x.font);
    f.color = Color::rgb(255);
    y.font = b->styles.font_index(f);
    y.numfmt = b->styles.numfmt_id(u"0.0%");
    return y;
  });
  b->set_constant(s, 9, 0, calc::Value::str(u"appended & <escaped>"));
  fs::path out = save(*b);

  std::string styles = part(out, "xl/styles.xml");
  EXPECT_THAT(styles, HasSubstr(R"(<fonts count="3">)"));
  EXPECT_THAT(styles, HasSubstr(R"(<color rgb="FFFF0000"/>)"));
  EXPECT_THAT(styles, HasSubstr(R"(<numFmt numFmtId="165" formatCode="0.0%"/>)"));
  EXPECT_THAT(styles, HasSubstr(R"(<cellXfs count="3">)"));
  EXPECT_THAT(
      styles,
      HasSubstr(
          R"(<xf numFmtId="165" fontId="2" fillId="0" borderId="0" xfId="0" applyNumberFormat="1" pivotButton="1" applyFont="1" applyAlignment="1"><alignment horizontal="center" wrapText="1"/>)"))
      << "the derived format keeps its origin's attributes";
  EXPECT_THAT(styles, HasSubstr(R"(<dxfs count="1">)"));
  EXPECT_THAT(part(out, "xl/worksheets/sheet1.xml"), HasSubstr(R"(<c r="A1" s="2">)"));

  std::string old_sst = part(in, "xl/sharedStrings.xml");
  std::string sst = part(out, "xl/sharedStrings.xml");
  EXPECT_THAT(sst, HasSubstr(R"(count="4" uniqueCount="4")"));
  EXPECT_THAT(sst, HasSubstr("<rPh sb=\"0\" eb=\"1\"><t>PHONETIC</t></rPh>"))
      << "old entries stay as written";
  EXPECT_THAT(sst, HasSubstr("<si><t>appended &amp; &lt;escaped&gt;</t></si></sst>"));
  std::string tail = old_sst.substr(old_sst.find("><si>") + 1);
  EXPECT_THAT(sst, HasSubstr(tail.substr(0, tail.size() - 6)));
  EXPECT_THAT(part(out, "xl/worksheets/sheet1.xml"), HasSubstr(R"(<c r="A10" t="s"><v>3</v></c>)"));

  // A second save after the first appends after what the first appended.
  b->set_constant(s, 10, 0, calc::Value::str(u"second"));
  fs::path out2 = save(*b, "out2.xlsx");
  EXPECT_THAT(part(out2, "xl/sharedStrings.xml"), HasSubstr("<si><t>second</t></si></sst>"));
  EXPECT_THAT(part(out2, "xl/worksheets/sheet1.xml"),
              HasSubstr(R"(<c r="A11" t="s"><v>4</v></c>)"));
  auto again = xlsx::load(out2);
  EXPECT_EQ(again->value(sheet(*again, 0), 9, 0), calc::Value::str(u"appended & <escaped>"));
  EXPECT_EQ(again->value(sheet(*again, 0), 10, 0), calc::Value::str(u"second"));
}

TEST_F(Workbooks, ChangedFormulasAskForRecalculationAndDropTheChain) {
  auto b = load(book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(
            R"(<row r="1"><c r="A1"><f t="shared" ref="A1:A3" si="0">B1+1</f><v>1</v></c><c r="B1"><v>5</v></c></row>)"
            R"(<row r="2"><c r="A2"><f t="shared" si="0"/><v>1</v></c></row><row r="3"><c r="A3"><f t="shared" si="0"/><v>1</v></c></row>)")}}));
  Sheet& s = sheet(*b, 0);
  // A value change leaves formulas as they were: no recalculation request.
  b->set_constant(s, 0, 1, calc::Value::num(6));
  fs::path plain = save(*b, "plain.xlsx");
  EXPECT_THAT(part(plain, "xl/workbook.xml"), Not(HasSubstr("fullCalcOnLoad")));
  EXPECT_NE(part(plain, "xl/calcChain.xml"), "(absent)");

  // Replacing the shared formula's master: its children are written as formulas of their own.
  b->set_formula(s, 0, 0, u"B1*10", calc::Notation::A1);
  b->commit();
  fs::path out = save(*b);
  EXPECT_THAT(part(out, "xl/workbook.xml"),
              HasSubstr(R"(<calcPr calcId="191029" fullCalcOnLoad="1"/>)"));
  EXPECT_EQ(part(out, "xl/calcChain.xml"), "(absent)");
  EXPECT_THAT(part(out, "xl/_rels/workbook.xml.rels"), Not(HasSubstr("calcChain")));
  EXPECT_THAT(part(out, "[Content_Types].xml"), Not(HasSubstr("calcChain")));
  std::string xml = part(out, "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml, HasSubstr(R"(<c r="A1"><f>B1*10</f><v>60</v></c>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<c r="A2"><f>B2+1</f>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<c r="A3"><f>B3+1</f>)"));
  EXPECT_THAT(xml, Not(HasSubstr("si=")));
  EXPECT_THAT(part(out, "xl/workbook.xml"), HasSubstr(R"(<ext uri="{X}"><keep/></ext>)"));
}

TEST_F(Workbooks, SheetsAddedRenamedHiddenMovedAndDeleted) {
  auto b = load(book_parts());
  b->rename_sheet(sheet(*b, 0), u"Renamed");
  sheet(*b, 1).visibility = -1;
  b->changed.workbook = true;
  Sheet& added = b->add_sheet(u"Added", SheetKind::Worksheet, 0);
  b->set_constant(added, 0, 0, calc::Value::num(1));
  fs::path out = save(*b);
  std::string wb = part(out, "xl/workbook.xml");
  EXPECT_THAT(
      wb,
      HasSubstr(
          R"(<sheet name="Added" sheetId="3" r:id="rId6"/><sheet name="Renamed" sheetId="1" r:id="rId1"/><sheet name="Second" sheetId="2" r:id="rId2"/>)"));
  EXPECT_THAT(wb, HasSubstr(R"(localSheetId="2")"))
      << "sheet-level names follow their sheet's new position";
  EXPECT_THAT(part(out, "xl/worksheets/sheet3.xml"), HasSubstr(R"(<c r="A1"><v>1</v></c>)"));
  EXPECT_THAT(part(out, "[Content_Types].xml"), HasSubstr(R"(/xl/worksheets/sheet3.xml)"));

  auto again = xlsx::load(out);
  ASSERT_EQ(again->sheets.size(), 3u);
  EXPECT_EQ(again->sheets[0]->name, u"Added");
  EXPECT_EQ(again->sheets[2]->visibility, -1);
  EXPECT_TRUE(again->find_name(u"Local", again->sheets[2]->id).has_value());

  again->delete_sheet(again->sheets[1]->id);
  fs::path out2 = save(*again, "out2.xlsx");
  EXPECT_EQ(part(out2, "xl/worksheets/sheet1.xml"), "(absent)");
  EXPECT_THAT(part(out2, "xl/_rels/workbook.xml.rels"), Not(HasSubstr("sheet1.xml")));
  EXPECT_THAT(part(out2, "[Content_Types].xml"), Not(HasSubstr("sheet1.xml")));
  auto third = xlsx::load(out2);
  EXPECT_EQ(third->sheets.size(), 2u);
}

TEST_F(Workbooks, HyperlinksPropertiesAndChartNamesWriteBack) {
  Parts p = book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml("", R"(<hyperlinks><hyperlink ref="A1" r:id="rId1"/></hyperlinks>)")},
       {"xl/worksheets/_rels/sheet1.xml.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/hyperlink" Target="https://old.example/" TargetMode="External"/></Relationships>)"}});
  auto b = load(p);
  Sheet& s = sheet(*b, 0);
  s.hyperlinks[0].address = u"https://new.example/?q=1&r=2";
  s.hyperlinks.push_back(HyperlinkRec{{1, 1, 1, 1}, u"", u"Second!B2", u"", u"", u""});
  s.changed.cells = true;
  b->props.push_back(CustomProperty{u"Reviewed", 2, Variant(true), u""});
  b->props.push_back(CustomProperty{u"Owner", 4, Variant(String(u"Ann")), u""});
  fs::path out = save(*b);
  std::string rels = part(out, "xl/worksheets/_rels/sheet1.xml.rels");
  EXPECT_THAT(rels, Not(HasSubstr("old.example")));
  EXPECT_THAT(rels,
              HasSubstr(R"(Target="https://new.example/?q=1&amp;r=2" TargetMode="External")"));
  std::string xml = part(out, "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml, HasSubstr(R"(<hyperlink ref="B2" location="Second!B2"/>)"));
  std::string custom = part(out, "docProps/custom.xml");
  EXPECT_THAT(custom, HasSubstr(R"(name="Reviewed"><vt:bool>true</vt:bool>)"));
  EXPECT_THAT(custom, HasSubstr(R"(pid="3" name="Owner"><vt:lpwstr>Ann</vt:lpwstr>)"));
  EXPECT_THAT(part(out, "_rels/.rels"), HasSubstr("custom-properties"));
  EXPECT_THAT(part(out, "[Content_Types].xml"), HasSubstr("/docProps/custom.xml"));

  auto again = xlsx::load(out);
  EXPECT_EQ(again->sheets[0]->hyperlinks[0].address, u"https://new.example/?q=1&r=2");
  ASSERT_EQ(again->props.size(), 2u);
  EXPECT_EQ(again->props[1].value, Variant(String(u"Ann")));
}

// A sheet with filter buttons over a list whose formulas read another workbook, as the
// application writes it: both come back, the link keeps its values through recalculation, and
// links typed later are numbered after it.
TEST_F(Workbooks, FiltersAndLinksToOtherWorkbooksRoundTrip) {
  const std::string link_part =
      "<externalLink " + kMain +
      R"(><externalBook r:id="rId1"><sheetNames><sheetName val="Rates"/></sheetNames>)"
      R"(<sheetDataSet><sheetData sheetId="0"><row r="2"><cell r="B2"><v>0.25</v></cell>)"
      R"(<cell r="C2" t="str"><v>x&amp;y</v></cell></row></sheetData></sheetDataSet>)"
      R"(</externalBook></externalLink>)";
  Parts p = book_parts(
      {{"xl/worksheets/sheet2.xml",
        sheet_xml(
            R"(<row r="2"><c r="B2"><f>[1]Rates!B2*2</f><v>0.5</v></c><c r="C2" t="str"><f>[1]Rates!C2</f><v>x&amp;y</v></c></row>)",
            R"(<autoFilter ref="A1:C2"><filterColumn colId="1"/></autoFilter>)")},
       {"xl/externalLinks/externalLink1.xml", link_part},
       {"xl/externalLinks/_rels/externalLink1.xml.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/externalLinkPath" Target="Book2.xlsx" TargetMode="External"/></Relationships>)"}});
  std::string& wbx = p["xl/workbook.xml"];
  wbx.replace(wbx.find("<definedNames>"), 0,
              R"(<externalReferences><externalReference r:id="rId9"/></externalReferences>)");
  std::string& rels = p["xl/_rels/workbook.xml.rels"];
  rels.replace(
      rels.find("</Relationships>"), 0,
      R"(<Relationship Id="rId9" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/externalLink" Target="externalLinks/externalLink1.xml"/>)");
  auto b = load(p);
  Sheet& s = sheet(*b, 1);
  ASSERT_TRUE(s.auto_filter);
  EXPECT_EQ(*s.auto_filter, (Rect{0, 0, 1, 2}));
  ASSERT_EQ(b->links.size(), 1u);
  EXPECT_EQ(b->links[0].target, u"Book2.xlsx");
  b->calculate(true);
  EXPECT_EQ(b->value(s, 1, 1), calc::Value::num(0.5)) << "the link's values, not #REF!";
  EXPECT_EQ(b->value(s, 1, 2), calc::Value::str(u"x&y"));
  EXPECT_EQ(b->formula_text(s, 1, 1, calc::Notation::A1), u"=[Book2.xlsx]Rates!B2*2");

  // Typed links: to the linked workbook by name, and to a new one.
  b->set_formula(s, 3, 1, u"'[Book2.xlsx]Rates'!B2+1", calc::Notation::A1);
  b->set_formula(s, 4, 1, u"'C:\\Data\\[Book3.xlsx]My Sheet'!A1", calc::Notation::A1);
  b->commit();
  EXPECT_EQ(b->value(s, 3, 1), calc::Value::num(1.25));
  fs::path out = save(*b);
  EXPECT_EQ(part(out, "xl/externalLinks/externalLink1.xml"), link_part) << "kept as it was";
  std::string sx = part(out, "xl/worksheets/sheet2.xml");
  EXPECT_THAT(sx, HasSubstr(R"(<autoFilter ref="A1:C2"><filterColumn colId="1"/></autoFilter>)"));
  EXPECT_THAT(sx, HasSubstr("<f>[1]Rates!B2+1</f>"));
  EXPECT_THAT(sx, HasSubstr("<f>'[2]My Sheet'!A1</f>"));
  EXPECT_THAT(part(out, "xl/workbook.xml"),
              HasSubstr(R"(<externalReference r:id="rId9"/><externalReference r:id=")"));
  EXPECT_THAT(part(out, "xl/externalLinks/_rels/externalLink2.xml.rels"),
              HasSubstr(R"(Target="file:///C:\Data\Book3.xlsx" TargetMode="External")"));
  EXPECT_THAT(part(out, "[Content_Types].xml"), HasSubstr("/xl/externalLinks/externalLink2.xml"));

  // The buttons go, and so does the hidden name that marks the list.
  auto again = xlsx::load(out);
  Sheet& s2 = sheet(*again, 1);
  again->set_auto_filter(s2, Rect{0, 0, 4, 1});
  EXPECT_TRUE(again->find_name(u"_xlnm._FilterDatabase", s2.id));
  again->set_auto_filter(s2, std::nullopt);
  EXPECT_FALSE(again->find_name(u"_xlnm._FilterDatabase", s2.id));
  fs::path last = save(*again, "last.xlsx");
  EXPECT_THAT(part(last, "xl/worksheets/sheet2.xml"), Not(HasSubstr("autoFilter")));
  EXPECT_EQ(xlsx::load(last)->links.size(), 2u);
}

// A table read from its part: structured references name its columns, it moves and grows with
// inserted rows and columns, and its part is written back with the rest of it kept.
TEST_F(Workbooks, TablesAreReadFollowEditsAndWriteBack) {
  Parts p = book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(
            R"(<row r="1"><c r="A1" t="inlineStr"><is><t>Item</t></is></c><c r="B1" t="inlineStr"><is><t>Unit Price</t></is></c></row>)"
            R"(<row r="2"><c r="A2"><v>2</v></c><c r="B2"><v>10</v></c><c r="C2"><f>Sales[[#This Row],[Unit Price]]*2</f></c></row>)"
            R"(<row r="3"><c r="A3"><v>3</v></c><c r="B3"><v>20</v></c><c r="D3"><f>SUM(Sales[Unit Price])</f></c></row>)",
            R"(<tableParts count="1"><tablePart r:id="rId7"/></tableParts>)")},
       {"xl/worksheets/_rels/sheet1.xml.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId7" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/table" Target="../tables/table1.xml"/></Relationships>)"},
       {"xl/tables/table1.xml",
        R"(<table xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" id="1" name="Sales" displayName="Sales" ref="A1:B3">)"
        R"(<autoFilter ref="A1:B3"/><tableColumns count="2"><tableColumn id="1" name="Item"/><tableColumn id="4" name="Unit Price" totalsRowFunction="sum"/></tableColumns>)"
        R"(<tableStyleInfo name="TableStyleMedium2" showRowStripes="1"/></table>)"}});
  auto b = load(p);
  Sheet& s = sheet(*b, 0);
  ASSERT_EQ(s.tables.size(), 1u);
  b->calculate(true);
  EXPECT_EQ(b->value(s, 1, 2), calc::Value::num(20));
  EXPECT_EQ(b->value(s, 2, 3), calc::Value::num(30));

  b->shift(s, true, 2, 1);   // a row inside the table
  b->shift(s, false, 1, 1);  // a column between its two
  b->set_constant(s, 2, 2, calc::Value::num(5));
  b->set_formula(s, 2, 1, u"[@Item]&\"/\"&[@[Unit Price]]", calc::Notation::A1);
  b->calculate(true);
  EXPECT_EQ(b->value(s, 3, 4), calc::Value::num(35)) << "the sum reads the grown column";
  EXPECT_EQ(b->value(s, 2, 1), calc::Value::str(u"/5"));
  fs::path out = save(*b);
  EXPECT_THAT(part(out, "xl/worksheets/sheet1.xml"),
              HasSubstr("<f>Sales[[#This Row],[Item]]&amp;\"/\"&amp;Sales[[#This Row],[Unit "
                        "Price]]</f>"));
  std::string table = part(out, "xl/tables/table1.xml");
  EXPECT_THAT(table, HasSubstr(R"(ref="A1:C4")"));
  EXPECT_THAT(table, HasSubstr(R"(<autoFilter ref="A1:C4"/>)"));
  EXPECT_THAT(table, HasSubstr(R"(<tableColumn id="5" name="Column3"/>)"));
  EXPECT_THAT(table,
              HasSubstr(R"(<tableColumn id="4" name="Unit Price" totalsRowFunction="sum"/>)"));
  EXPECT_THAT(table, HasSubstr("TableStyleMedium2"));
  EXPECT_LT(table.find(R"(id="5")"), table.find(R"(id="4")")) << "columns keep their order";

  auto again = xlsx::load(out);
  ASSERT_EQ(again->sheets[0]->tables.size(), 1u);
  EXPECT_EQ(again->sheets[0]->tables[0].ref, (Rect{0, 0, 3, 2}));
  EXPECT_EQ(again->sheets[0]->tables[0].columns[2], u"Unit Price");
}

// A workbook whose first sheet holds formulas that spill, with the cell metadata part that
// marks them (only their first cell carries cm="1"; the rest of a block is plain values).
Parts spill_parts(const std::string& rows) {
  const std::string metadata =
      R"(<metadata xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" xmlns:xda="http://schemas.microsoft.com/office/spreadsheetml/2017/dynamicarray">)"
      R"(<metadataTypes count="1"><metadataType name="XLDAPR" minSupportedVersion="120000" copy="1" pasteAll="1" pasteValues="1" merge="1" splitFirst="1" rowColShift="1" clearFormats="1" clearComments="1" assign="1" coerce="1" cellMeta="1"/></metadataTypes>)"
      R"(<futureMetadata name="XLDAPR" count="1"><bk><extLst><ext uri="{bdbb8cdc-fa1e-496e-a857-3c3f30c029c3}"><xda:dynamicArrayProperties fDynamic="1" fCollapsed="0"/></ext></extLst></bk></futureMetadata>)"
      R"(<cellMetadata count="1"><bk><rc t="1" v="0"/></bk></cellMetadata></metadata>)";
  Parts p =
      book_parts({{"xl/worksheets/sheet1.xml", sheet_xml(rows)}, {"xl/metadata.xml", metadata}});
  std::string& rels = p["xl/_rels/workbook.xml.rels"];
  rels.insert(
      rels.find("</Relationships>"),
      R"(<Relationship Id="rId9" Type="http://schemas.microsoft.com/office/2017/06/relationships/sheetMetadata" Target="metadata.xml"/>)");
  std::string& types = p["[Content_Types].xml"];
  types.insert(
      types.find("</Types>"),
      R"(<Override PartName="/xl/metadata.xml" ContentType="application/vnd.openxmlformats-officedocument.spreadsheetml.sheetMetadata+xml"/>)");
  return p;
}

TEST_F(Workbooks, SpilledFormulasFillTheBlockTheirResultNeedsAndKeepTheirMetadata) {
  // A1:A4 holds 3, 1, 3, 2: four values, three of them distinct. The file's UNIQUE spilled
  // over two cells when it was saved (before A4 became 2); SUM reads the spilled block
  // through its anchor.
  auto b = load(spill_parts(
      R"(<row r="1"><c r="A1"><v>3</v></c><c r="C1" cm="1"><f t="array" ref="C1:C2">_xlfn.UNIQUE(A1:A4)</f><v>3</v></c><c r="E1"><f>SUM(_xlfn.ANCHORARRAY(C1))</f><v>4</v></c></row>)"
      R"(<row r="2"><c r="A2"><v>1</v></c><c r="C2"><v>1</v></c></row>)"
      R"(<row r="3"><c r="A3"><v>3</v></c></row>)"
      R"(<row r="4"><c r="A4"><v>2</v></c></row>)"
      R"(<row r="5"><c r="C5"><f>_xlfn._xlws.SORT(A1:A4,1,-1)</f><v>3</v></c></row>)"));
  Sheet& s = sheet(*b, 0);
  b->calculate(true);
  EXPECT_EQ(b->value(s, 2, 2), calc::Value::num(2)) << "the block grew to the third value";
  EXPECT_EQ(b->value(s, 0, 4), calc::Value::num(6)) << "the anchor stands for the whole block";
  EXPECT_EQ(b->value(s, 4, 2), calc::Value::num(3)) << "a plain formula shows the first value";

  fs::path out = save(*b);
  std::string xml = part(out, "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml,
              HasSubstr(R"(<c r="C1" cm="1"><f t="array" ref="C1:C3">_xlfn.UNIQUE(A1:A4)</f>)"));
  EXPECT_THAT(xml, HasSubstr(R"(<c r="C3"><v>2</v></c>)"));
  EXPECT_THAT(part(out, "xl/metadata.xml"), HasSubstr("dynamicArrayProperties fDynamic=\"1\""));
  EXPECT_THAT(part(out, "[Content_Types].xml"), HasSubstr("/xl/metadata.xml"));

  // Loaded again, the blocks are where they were saved.
  auto again = xlsx::load(out);
  Sheet& t = sheet(*again, 0);
  again->calculate(true);
  EXPECT_EQ(again->value(t, 2, 2), calc::Value::num(2));
  EXPECT_EQ(again->value(t, 0, 4), calc::Value::num(6));
}

TEST_F(Workbooks, ABlockedSpillShowsSpillAndAShrunkResultLeavesItsOldCellsEmpty) {
  auto b = load(spill_parts(
      R"(<row r="1"><c r="A1"><v>5</v></c><c r="C1" cm="1"><f t="array" ref="C1:C3">_xlfn._xlws.FILTER(A1:A3,A1:A3&gt;1)</f><v>5</v></c><c r="E1" cm="1"><f t="array" ref="E1:E2">_xlfn.SEQUENCE(A1)</f><v>1</v></c></row>)"
      R"(<row r="2"><c r="A2"><v>0</v></c><c r="C2"><v>7</v></c><c r="E2"><v>2</v></c></row>)"
      R"(<row r="3"><c r="A3"><v>7</v></c><c r="C3"><v>0</v></c></row><row r="4"><c r="E4"><v>1</v></c></row>)"));
  Sheet& s = sheet(*b, 0);
  b->calculate(true);
  EXPECT_EQ(b->value(s, 1, 2), calc::Value::num(7));
  EXPECT_EQ(b->value(s, 2, 2), calc::Value::empty()) << "FILTER now keeps two values";
  EXPECT_EQ(b->value(s, 0, 4), calc::Value::error(2045)) << "E4 stands in SEQUENCE's way";
  EXPECT_EQ(b->value(s, 1, 4), calc::Value::empty());
  fs::path out = save(*b);
  std::string xml = part(out, "xl/worksheets/sheet1.xml");
  EXPECT_THAT(xml, HasSubstr(R"(<f t="array" ref="C1:C2">)"));
  EXPECT_THAT(xml, HasSubstr(R"(<f t="array" ref="E1">)"));
}

TEST_F(Workbooks, RenamedTablesAndColumnsCarryTheirFormulasAlongDeletedColumnsBreakThem) {
  Parts p = book_parts(
      {{"xl/worksheets/sheet1.xml",
        sheet_xml(
            R"(<row r="1"><c r="A1" t="inlineStr"><is><t>Item</t></is></c><c r="B1" t="inlineStr"><is><t>Unit Price</t></is></c><c r="C1" t="inlineStr"><is><t>Twice</t></is></c></row>)"
            R"(<row r="2"><c r="A2"><v>2</v></c><c r="B2"><v>10</v></c><c r="C2"><f>Sales[[#This Row],[Unit Price]]*2</f></c></row>)"
            R"(<row r="3"><c r="A3"><v>3</v></c><c r="B3"><v>20</v></c><c r="D3"><f>SUM(Sales[Unit Price])+ROWS(sales)</f></c></row>)",
            R"(<tableParts count="1"><tablePart r:id="rId7"/></tableParts>)")},
       {"xl/worksheets/_rels/sheet1.xml.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId7" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/table" Target="../tables/table1.xml"/></Relationships>)"},
       {"xl/tables/table1.xml",
        R"(<table xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main" id="1" name="Sales" displayName="Sales" ref="A1:C3">)"
        R"(<autoFilter ref="A1:C3"/><tableColumns count="3"><tableColumn id="1" name="Item"/><tableColumn id="4" name="Unit Price" totalsRowFunction="sum"/><tableColumn id="5" name="Twice"/></tableColumns></table>)"}});
  auto b = load(p);
  Sheet& s = sheet(*b, 0);
  Sheet& other = sheet(*b, 1);
  b->define_name(u"Top", calc::kNoSheet, u"MAX(Sales[Unit Price])", false);
  b->set_formula(other, 0, 0, u"SUM(Sales[Item])*Top", calc::Notation::A1);
  b->set_formula(s, 1, 2, u"[@[Unit Price]]*[@Item]", calc::Notation::A1);
  auto text = [&](Sheet& on, int32_t row, int32_t col) {
    return to_utf8(b->formula_text(on, row, col, calc::Notation::A1));
  };

  EXPECT_THROW(b->rename_table(u"Sales", u"Rate"), Error) << "a defined name has it";
  EXPECT_THROW(b->rename_table(u"Sales", u"B2"), Error);
  EXPECT_THROW(b->rename_table_column(u"Sales", 1, u"item"), Error);
  EXPECT_THROW(b->rename_table_column(u"Sales", 3, u"Extra"), Error);
  b->rename_table(u"sales", u"Orders");
  b->rename_table_column(u"Orders", 1, u"Price");
  b->calculate(true);
  EXPECT_EQ(text(s, 2, 3), "=SUM(Orders[Price])+ROWS(Orders)");
  EXPECT_EQ(text(s, 1, 2), "=[@Price]*[@Item]") << "no table named, none added";
  EXPECT_EQ(text(other, 0, 0), "=SUM(Orders[Item])*Top");
  EXPECT_EQ(to_utf8(b->names()[*b->find_name(u"Top", calc::kNoSheet)].formula),
            "MAX(Orders[Price])");
  EXPECT_EQ(b->value(s, 0, 1), calc::Value::str(u"Price")) << "the header says it too";
  EXPECT_EQ(b->value(s, 2, 3), calc::Value::num(32));
  EXPECT_EQ(b->value(other, 0, 0), calc::Value::num(100));

  fs::path out = save(*b);
  std::string table = part(out, "xl/tables/table1.xml");
  EXPECT_THAT(table, HasSubstr(R"(name="Orders" displayName="Orders")"));
  EXPECT_THAT(table, HasSubstr(R"(<tableColumn id="4" name="Price" totalsRowFunction="sum"/>)"));
  EXPECT_THAT(part(out, "xl/workbook.xml"), HasSubstr(">MAX(Orders[Price])<"));

  // Deleting the sheet's first column takes the table's Item column; what named it is #REF!.
  b->shift(s, false, 0, -1);
  b->calculate(true);
  EXPECT_EQ(text(s, 1, 1), "=[@Price]*#REF!");
  EXPECT_EQ(text(other, 0, 0), "=SUM(#REF!)*Top");
  EXPECT_EQ(text(s, 2, 2), "=SUM(Orders[Price])+ROWS(Orders)");
  EXPECT_EQ(b->value(other, 0, 0), calc::Value::error(cell_error::ref));
  EXPECT_EQ(b->value(s, 2, 2), calc::Value::num(32));
}

TEST_F(Workbooks, ANewWorkbookSavesAsACompletePackage) {
  Book b(u"Book1");
  Sheet& s = b.add_sheet(u"Data");
  b.set_constant(s, 0, 0, calc::Value::num(3));
  b.set_constant(s, 1, 0, calc::Value::str(u" padded "));
  b.set_constant(s, 2, 0, calc::Value::str(u"ab"));
  b.set_rich_text(s, 2, 0, u"ab", {engine::Run{0, std::nullopt}, engine::Run{1, FontRec{}}});
  b.set_formula(s, 3, 0, u"A1*2", calc::Notation::A1);
  b.define_name(u"Hidden", calc::kNoSheet, u"Data!$A$1", true);
  fs::path out = save(b);
  auto pkg = xlsx::Package::open(out);
  EXPECT_EQ(pkg.kind(), xlsx::PackageKind::Workbook);
  auto again = xlsx::load(out);
  Sheet& t = *again->sheets.at(0);
  EXPECT_EQ(t.name, u"Data");
  EXPECT_EQ(again->value(t, 0, 0), calc::Value::num(3));
  EXPECT_EQ(again->value(t, 1, 0), calc::Value::str(u" padded "));
  EXPECT_EQ(again->strings.runs(t.cells.find(2, 0)->index).size(), 2u);
  EXPECT_EQ(again->formula_text(t, 3, 0, calc::Notation::A1), u"=A1*2");
  EXPECT_EQ(again->value(t, 3, 0), calc::Value::num(6));
  ASSERT_EQ(again->names().size(), 1u);
  EXPECT_TRUE(again->names()[0].hidden);
}

TEST_F(Workbooks, SavesOverItsOwnFileOnlyWhenNamed) {
  fs::path in = write(book_parts(), "same.xlsx");
  auto b = xlsx::load(in);
  b->set_constant(sheet(*b, 0), 0, 0, calc::Value::num(99));
  xlsx::save(*b, in);
  EXPECT_EQ(xlsx::load(in)->value(sheet(*xlsx::load(in), 0), 0, 0), calc::Value::num(99));
  // A failed save leaves the target as it was.
  EXPECT_THROW(xlsx::save(*b, dir_ / "missing" / "x.xlsx"), Error);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path()), fs::directory_iterator()), 1);
}

// What the application makes of a file's kind and of the arguments a macro opens it with.
TEST_F(Workbooks, TheApplicationListsAddInsByTitleAndOpensTemplatesAsAsked) {
  xlsx::register_format();
  auto app = create_application();
  auto path = [&](const Parts& parts, const std::string& name) {
    return from_utf8(write(parts, name).string());
  };
  Parts titled = book_parts(
      {{"docProps/core.xml",
        R"(<cp:coreProperties xmlns:cp="urn:cp" xmlns:dc="http://purl.org/dc/elements/1.1/">)"
        R"(<dc:creator>Ann</dc:creator><dc:title>Model Tools</dc:title></cp:coreProperties>)"},
       {"_rels/.rels",
        R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)"
        R"(<Relationship Id="rId1" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument" Target="xl/workbook.xml"/>)"
        R"(<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties" Target="docProps/core.xml"/></Relationships>)"}});
  EXPECT_EQ(app->add_ins()->add(path(titled, "tools.xlam"))->title(), u"Model Tools");
  EXPECT_EQ(app->add_ins()->add(path(book_parts(), "plain.xlam"))->title(), u"plain");

  // A template opens as a new workbook made from it, or as itself when editable.
  host::OpenArgs args;
  args.filename = path(book_parts(), "Plan.xltx");
  for (int i = 0; i < 2; ++i) {
    auto made = app->workbooks()->open(args);
    EXPECT_EQ(made->name() + u"|" + made->path(), i == 0 ? u"Plan1|" : u"Plan2|");
    EXPECT_EQ(made->worksheets()->count(), 2);
  }
  args.editable = Variant(true);
  args.read_only = Variant(true);
  auto itself = app->workbooks()->open(args);
  EXPECT_EQ(itself->name(), u"Plan.xltx");
  EXPECT_TRUE(itself->read_only());
  args.filename = path(book_parts(), "Data.xlsx");
  args.read_only = Variant(false);
  EXPECT_FALSE(app->workbooks()->open(args)->read_only());
}

// Some writers keep no values for their formulas and leave calculating them to whoever opens
// the file: those are calculated on opening, and only those.
TEST_F(Workbooks, FormulasKeptWithoutValuesAreCalculatedOnOpeningAndNoOthers) {
  xlsx::register_format();
  auto app = create_application();
  const std::string cells =
      R"(<row r="1"><c r="A1"><v>2</v></c><c r="B1"><f>A1*3</f><v></v></c><c r="C1"><f>""</f></c>)"
      R"(<c r="D1"><f>NOW()</f><v>5</v></c><c r="E1"><f>D1+B1+F1</f></c>)"
      R"(<c r="F1"><f>A1</f><v>99</v></c><c r="G1" t="str"><f>Second!B2&amp;"!"</f></c></row>)";
  const fs::path in = write(book_parts({{"xl/worksheets/sheet1.xml", sheet_xml(cells)}}));
  host::OpenArgs args;
  args.filename = from_utf8(in.string());
  auto book = app->workbooks()->open(args);
  auto value = [&](const char16_t* at) {
    return book->worksheets()->item(Variant(u"First"))->range(Variant(at))->value();
  };
  EXPECT_EQ(value(u"B1"), Variant(6.0));
  EXPECT_EQ(value(u"C1"), Variant(String())) << "an empty text is no empty cell";
  EXPECT_FALSE(value(u"C1").is_empty());
  EXPECT_EQ(value(u"D1"), Variant(5.0)) << "a volatile formula keeps the value it was kept with";
  EXPECT_EQ(value(u"F1"), Variant(99.0));
  EXPECT_EQ(value(u"E1"), Variant(110.0)) << "kept values are read as they are";
  EXPECT_EQ(value(u"G1"), Variant(String(u"7!")));
  EXPECT_TRUE(book->saved());
  // Nothing was changed, so nothing is rewritten: the sheet stays as the writer left it.
  const fs::path out = dir_ / "copy.xlsx";
  book->save_as(from_utf8(out.string()));
  EXPECT_EQ(part(out, "xl/worksheets/sheet1.xml"), part(in, "xl/worksheets/sheet1.xml"));
}

// Cell values are read by a quick path for short decimals and the general conversion for the
// rest; both must give the very double the text denotes, or a value changes on a round trip.
TEST(CellNumbers, ShortDecimalsReadAsTheGeneralConversionReadsThem) {
  std::mt19937_64 rng(5);
  std::vector<std::string> texts = {"0",
                                    "-0",
                                    "12",
                                    "0.1",
                                    "0.3",
                                    "-48.25",
                                    "5.",
                                    ".5",
                                    "999999999999999",
                                    "9999999999999999",
                                    "0.000000000000001",
                                    "1.7976931348623157e308",
                                    "1e-7",
                                    "123456789.123456",
                                    "00012.5000",
                                    "+3.5",
                                    " 7 "};
  for (int i = 0; i < 20000; ++i) {
    std::string t = (rng() & 1) ? "-" : "";
    int whole = 1 + static_cast<int>(rng() % 9), fraction = static_cast<int>(rng() % 9);
    for (int k = 0; k < whole; ++k) t += static_cast<char>('0' + rng() % 10);
    if (fraction) t += '.';
    for (int k = 0; k < fraction; ++k) t += static_cast<char>('0' + rng() % 10);
    texts.push_back(t);
  }
  for (const std::string& t : texts) {
    auto got = xlsx::parse_double(t);
    ASSERT_TRUE(got.has_value()) << t;
    double want = std::strtod(t.c_str(), nullptr);
    EXPECT_EQ(std::memcmp(&*got, &want, sizeof want), 0) << t << " read as " << *got;
  }
  for (const char* bad : {"", "-", ".", "1.2.3", "12a", "--1", "1e", "nan", "inf"})
    EXPECT_FALSE(xlsx::parse_double(bad).has_value()) << bad;
}

// Whole numbers are written by a quick path too: the text must be the general conversion's
// shortest one, exponent forms included ("1e+05").
TEST(CellNumbers, WholeNumbersWriteAsTheGeneralConversionWritesThem) {
  std::vector<double> values = {-0.0, 0.5, 1e15, -1e15, 1e15 - 1, 999999999999990, 1e20, 2.5e-3};
  for (double d = -120000; d <= 120000; ++d) values.push_back(d);
  std::mt19937_64 rng(7);
  for (int i = 0; i < 20000; ++i)
    values.push_back(
        static_cast<double>(static_cast<int64_t>(rng() % 2000000000000000) - 1000000000000000) /
        static_cast<double>(i % 3 == 0   ? 1
                            : i % 3 == 1 ? 10
                                         : 1000));
  for (double d : values) {
    char buf[32];
    std::string want(buf, std::to_chars(buf, buf + sizeof buf, d == 0 ? 0.0 : d).ptr);
    ASSERT_EQ(xlsx::double_text(d), want);
  }
}

}  // namespace
}  // namespace qz::engine
