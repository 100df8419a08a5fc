// The package above the container: finding the workbook through the relationships,
// telling a workbook from other Office files, and parsing parts without trusting them.
#include "engine/xlsx/package.hpp"

#include <fstream>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qzxl/error.hpp"
#include "support/test_support.hpp"

namespace qz::engine::xlsx {
namespace {

using ::testing::HasSubstr;
using Parts = std::map<std::string, std::string>;

const char* kTypes =
    R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">
<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>
<Default Extension="XML" ContentType="application/xml"/>
<Override PartName="/xl/workbook.xml" ContentType="MAIN"/>
</Types>)";

std::string rels(std::string_view type_stem, std::string_view target) {
  return std::string(
             R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">)") +
         R"(<Relationship Id="rId1" Type=")" + std::string(type_stem) +
         R"(/officeDocument" Target=")" + std::string(target) + R"("/></Relationships>)";
}

Parts workbook_parts(
    std::string main_type =
        "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml") {
  std::string types = kTypes;
  types.replace(types.find("MAIN"), 4, main_type);
  return {{"[Content_Types].xml", types},
          {"_rels/.rels", rels(ns::rel, "xl/workbook.xml")},
          {"xl/workbook.xml",
           R"(<workbook xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"/>)"}};
}

std::string zip_of(const Parts& parts) {
  qz::test::TempDir dir;
  {
    ZipWriter w(dir / "p.zip");
    for (const auto& [name, content] : parts) w.add(name, content);
    w.commit();
  }
  std::ifstream in(dir / "p.zip", std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string refusal(const Parts& parts) {
  try {
    Package::from_bytes(zip_of(parts), "deck.xlsx");
    return "";
  } catch (const Error& e) {
    EXPECT_THAT(e.what(), HasSubstr("'deck.xlsx'"));
    return e.what();
  }
}

TEST(Package, FindsTheWorkbookAndSaysWhatKindItIs) {
  Package p = Package::from_bytes(zip_of(workbook_parts()), "a.xlsx");
  EXPECT_EQ(p.workbook_part(), "xl/workbook.xml");
  EXPECT_EQ(p.kind(), PackageKind::Workbook);
  EXPECT_FALSE(p.strict());
  EXPECT_EQ(p.content_type("xl/other.xml"), "application/xml") << "extensions ignore case";
  EXPECT_EQ(p.content_type("XL/Workbook.xml"),
            "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml");
  EXPECT_EQ(p.content_type("xl/media/image.png"), "");

  const std::pair<const char*, PackageKind> kinds[] = {
      {"application/vnd.ms-excel.sheet.macroEnabled.main+xml", PackageKind::MacroWorkbook},
      {"application/vnd.openxmlformats-officedocument.spreadsheetml.template.main+xml",
       PackageKind::Template},
      {"application/vnd.ms-excel.template.macroEnabled.main+xml", PackageKind::MacroTemplate},
      {"application/vnd.ms-excel.addin.macroEnabled.main+xml", PackageKind::AddIn}};
  for (const auto& [type, kind] : kinds)
    EXPECT_EQ(Package::from_bytes(zip_of(workbook_parts(type)), "a").kind(), kind) << type;

  // Strict packages differ in their relationship and namespace URIs; they still open.
  Parts strict = workbook_parts();
  strict["_rels/.rels"] = rels(ns::rel_strict, "/xl/workbook.xml");
  EXPECT_TRUE(Package::from_bytes(zip_of(strict), "s.xlsx").strict());
}

TEST(Package, RefusesOtherDocumentsAndMissingParts) {
  EXPECT_THAT(
      refusal(workbook_parts(
          "application/vnd.openxmlformats-officedocument.presentationml.presentation.main+xml")),
      HasSubstr("is a presentation, not a workbook"));
  EXPECT_THAT(
      refusal(workbook_parts(
          "application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml")),
      HasSubstr("word-processing document"));
  EXPECT_THAT(refusal(workbook_parts("application/vnd.ms-excel.sheet.binary.macroEnabled.main")),
              HasSubstr(".xlsb"));

  Parts p = workbook_parts();
  p.erase("[Content_Types].xml");
  EXPECT_THAT(refusal(p), HasSubstr("not an Office package"));
  p = workbook_parts();
  p.erase("_rels/.rels");
  EXPECT_THAT(refusal(p), HasSubstr("_rels/.rels is missing"));
  p = workbook_parts();
  p.erase("xl/workbook.xml");
  EXPECT_THAT(refusal(p), HasSubstr("'xl/workbook.xml' is missing"));
  p = workbook_parts();
  p["_rels/.rels"] =
      R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships"/>)";
  EXPECT_THAT(refusal(p), HasSubstr("names no main document"));
  p = workbook_parts();
  p["_rels/.rels"] = rels(ns::rel, "../../etc/workbook.xml");
  EXPECT_THAT(refusal(p), HasSubstr("is not a part"));
  for (const char* bad : {"<Types><Default", "junk<Types/>", "<Types/><Types/>", "<Types/>junk",
                          "<?xml version='1.0'?>"}) {
    p = workbook_parts();
    p["[Content_Types].xml"] = bad;
    EXPECT_THAT(refusal(p), HasSubstr("part '[Content_Types].xml' is not well-formed XML")) << bad;
  }
}

TEST(Package, RefusesDocumentTypeDeclarations) {
  const char* bomb = R"(<?xml version="1.0"?>
<!-- a comment first -->
<!DOCTYPE lolz [<!ENTITY lol "lol"><!ENTITY lol2 "&lol;&lol;&lol;&lol;&lol;&lol;">]>
<sst xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"><si><t>&lol2;</t></si></sst>)";
  std::string text = bomb;
  pugi::xml_document doc;
  try {
    parse_xml(text, doc, "part 'xl/sharedStrings.xml'");
    FAIL() << "a DTD must be refused";
  } catch (const Error& e) {
    EXPECT_THAT(e.what(), HasSubstr("part 'xl/sharedStrings.xml' has a document type declaration"));
  }

  // Through a package: the check applies to every part read, including the first ones.
  Parts p = workbook_parts();
  p["_rels/.rels"] = "<!DOCTYPE x [<!ENTITY a 'b'>]>" + p["_rels/.rels"];
  EXPECT_THAT(refusal(p), HasSubstr("document type declaration"));

  // Text that merely mentions a DOCTYPE is content, not a declaration; blanks are values.
  text = R"(<sst><si><t>&lt;!DOCTYPE x&gt;</t></si><si><t xml:space="preserve">   </t></si></sst>)";
  parse_xml(text, doc, "x");
  auto si = doc.document_element().first_child();
  EXPECT_STREQ(si.child("t").text().get(), "<!DOCTYPE x>");
  EXPECT_STREQ(si.next_sibling().child("t").text().get(), "   ");
}

TEST(Package, ResolvesRelationshipTargetsInsideThePackageOnly) {
  EXPECT_EQ(Package::resolve("xl/workbook.xml", "worksheets/sheet1.xml"),
            "xl/worksheets/sheet1.xml");
  EXPECT_EQ(Package::resolve("xl/worksheets/sheet1.xml", "../drawings/drawing1.xml"),
            "xl/drawings/drawing1.xml");
  EXPECT_EQ(Package::resolve("xl/workbook.xml", "/xl/styles.xml"), "xl/styles.xml");
  EXPECT_EQ(Package::resolve("", "xl/workbook.xml"), "xl/workbook.xml");
  EXPECT_EQ(Package::resolve("xl/workbook.xml", "./theme/theme%201.xml"), "xl/theme/theme 1.xml");
  EXPECT_EQ(Package::resolve("xl/workbook.xml", "../../outside.xml"), "");

  EXPECT_EQ(Package::rels_part_for("xl/workbook.xml"), "xl/_rels/workbook.xml.rels");
  EXPECT_EQ(Package::rels_part_for(""), "_rels/.rels");

  Parts p = workbook_parts();
  p["xl/_rels/workbook.xml.rels"] =
      R"(<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">
<Relationship Id="rId1" Type="http://purl.oclc.org/ooxml/officeDocument/relationships/worksheet" Target="worksheets/sheet1.xml"/>
<Relationship Id="rId9" Type="http://schemas.openxmlformats.org/officeDocument/2006/relationships/hyperlink" Target="https://example.com/a?b" TargetMode="External"/>
</Relationships>)";
  Package pkg = Package::from_bytes(zip_of(p), "a.xlsx");
  auto rs = pkg.relationships("xl/workbook.xml");
  ASSERT_EQ(rs.size(), 2u);
  EXPECT_EQ(rs[0].kind(), "worksheet");
  EXPECT_EQ(rs[0].part, "xl/worksheets/sheet1.xml");
  EXPECT_TRUE(rs[1].external);
  EXPECT_EQ(rs[1].part, "");
  EXPECT_TRUE(pkg.relationships("xl/styles.xml").empty());
}

}  // namespace
}  // namespace qz::engine::xlsx
