// A workbook package: the zip container seen as named parts with content types and
// relationships, checked on opening to be a spreadsheet (not a presentation or a document
// under a spreadsheet's name), and parsed without trusting the XML.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

#include "engine/xlsx/zip.hpp"

namespace qz::engine::xlsx {

/// One relationship out of a part's relationships part.
struct Relationship {
  std::string id;
  std::string type;    ///< the full type URI as written
  std::string target;  ///< as written
  bool external = false;
  std::string part;  ///< the target's part name (internal targets), no leading '/'

  /// The last segment of the type ("worksheet", "officeDocument"): the same in transitional
  /// and strict packages, whose type URIs differ only in their stem.
  std::string_view kind() const;
};

/// What the package's main part says it is. Templates and add-ins read like workbooks.
enum class PackageKind { Workbook, MacroWorkbook, Template, MacroTemplate, AddIn };

/// Namespace URIs of both flavours of the format. Strict packages use the second of each
/// pair; the vocabulary inside is otherwise the same for the parts this engine models.
namespace ns {
inline constexpr std::string_view main =
    "http://schemas.openxmlformats.org/spreadsheetml/2006/main";
inline constexpr std::string_view main_strict = "http://purl.oclc.org/ooxml/spreadsheetml/main";
inline constexpr std::string_view rel =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
inline constexpr std::string_view rel_strict =
    "http://purl.oclc.org/ooxml/officeDocument/relationships";
inline constexpr std::string_view package_rels =
    "http://schemas.openxmlformats.org/package/2006/relationships";
}  // namespace ns

/// Parses XML text into `doc`, refusing a document type declaration (entity definitions are
/// how XML bombs grow; no spreadsheet part has one). `where` names the file and part in
/// errors. Whitespace-only text is kept where it is an element's only content, because a
/// string of blanks is a real cell value. The text is parsed in place and must outlive `doc`.
void parse_xml(std::string& text, pugi::xml_document& doc, const std::string& where);

/// The local part of an element or attribute name ("x:row" -> "row").
inline std::string_view local_name(std::string_view qname) {
  size_t colon = qname.find(':');
  return colon == std::string_view::npos ? qname : qname.substr(colon + 1);
}

class Package {
 public:
  /// Opens and checks a package; raises qz::Error naming the file and the problem.
  static Package open(const std::filesystem::path& path, const ZipLimits& limits = {});
  static Package from_bytes(std::string bytes, std::string display_name,
                            const ZipLimits& limits = {});

  const ZipReader& zip() const { return zip_; }
  const std::string& display_name() const { return zip_.display_name(); }
  /// The workbook part, e.g. "xl/workbook.xml".
  const std::string& workbook_part() const { return workbook_part_; }
  PackageKind kind() const { return kind_; }
  /// Whether the package uses the strict vocabulary (other namespace and relationship URIs).
  bool strict() const { return strict_; }

  bool has_part(std::string_view part) const;
  /// The inflated content of a part; raises when the part is missing or damaged.
  std::string read_part(std::string_view part) const;
  /// Reads a part and parses it (see parse_xml); `text` holds the parsed text afterwards.
  void parse_part(std::string_view part, std::string& text, pugi::xml_document& doc) const;

  /// The content type the package declares for a part (override, else by extension).
  std::string content_type(std::string_view part) const;
  /// The relationships of a part (empty when it has no relationships part).
  std::vector<Relationship> relationships(std::string_view part) const;

  /// The relationships part of a part: "xl/workbook.xml" -> "xl/_rels/workbook.xml.rels";
  /// the package's own ("") -> "_rels/.rels".
  static std::string rels_part_for(std::string_view part);
  /// The part a relative or absolute target names, seen from `source`; empty when the target
  /// climbs out of the package.
  static std::string resolve(std::string_view source, std::string_view target);

  [[noreturn]] void fail(const std::string& problem) const;

 private:
  explicit Package(ZipReader zip) : zip_(std::move(zip)) {}
  void check();

  ZipReader zip_;
  std::vector<std::pair<std::string, std::string>> defaults_;   // extension, type
  std::vector<std::pair<std::string, std::string>> overrides_;  // part name, type
  std::string workbook_part_;
  PackageKind kind_ = PackageKind::Workbook;
  bool strict_ = false;
};

}  // namespace qz::engine::xlsx
