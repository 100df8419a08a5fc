// What the part writers of one save share (internal to the workbook layer). The package the
// workbook came from is the starting point: each part the engine did not change is copied as it
// was compressed, and each changed part is patched — its tree edited where the model differs,
// its cell data regenerated — so what the engine does not model stays as the file had it.
//
// A save (write.cpp) runs the writers in this order: the shared strings (first, since sheets
// refer to their indices) and the sheets (write_sheet.cpp), the workbook part
// (write_workbook.cpp, which writes the shared strings too), the styles (write_styles.cpp) and
// the custom document properties (write_props.cpp). Each edits the package only through the
// PackageWriter.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <pugixml.hpp>

#include "engine/model/book.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/state.hpp"
#include "engine/xlsx/zip.hpp"

namespace qz::engine::xlsx {

inline constexpr const char* kDecl =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
inline constexpr const char* kRelDoc =
    "http://schemas.openxmlformats.org/officeDocument/2006/relationships";

// ---------------------------------------------------------------------------------------------
// Editing parts as trees

/// "x:" for "x:worksheet", "" for an unprefixed name.
std::string prefix_of(std::string_view qname);
/// The first child element with that local name, or a null node.
pugi::xml_node child(const pugi::xml_node& n, std::string_view tag);
/// The position of a child in its parent's schema order; unknown names sort with what precedes
/// them (they stay where they are).
size_t order_of(const std::vector<std::string_view>& order, const pugi::xml_node& n);
/// The child `tag` of `parent`, created at its schema position when absent.
pugi::xml_node ensure_child(pugi::xml_node parent, std::string_view tag,
                            const std::vector<std::string_view>& order, bool* created = nullptr);
/// Sets an attribute, reporting whether that changed anything.
bool set_attr(pugi::xml_node n, const char* name, std::string_view value);
bool remove_attr(pugi::xml_node n, const char* name);
/// Gives every element of a fragment the prefix its new parent's vocabulary uses.
void apply_prefix(pugi::xml_node n, const std::string& prefix);
/// Parses `xml` (one or more elements) and appends them to `parent`.
void append_fragment(pugi::xml_node parent, const std::string& xml);
/// A part's text, with a declaration when the tree has none.
std::string serialize(const pugi::xml_document& doc);
/// <si>/<is> content: plain text, or runs with their fonts.
void append_rich(std::string& out, StringView text, const std::vector<Run>& runs);
/// A relationship target for `to` as seen from `from`: relative when it lies in from's folder
/// or below, absolute otherwise.
std::string relative_target(const std::string& from, const std::string& to);
/// A part beside `sibling` ("xl/workbook.xml" + "styles.xml" -> "xl/styles.xml").
std::string beside(const std::string& sibling, const std::string& name);

// ---------------------------------------------------------------------------------------------
// The package being written

/// The package one save produces, and what it starts from: the workbook, what the file layer
/// kept of the package the workbook came from, and the parts, relationships and content types
/// written so far.
class PackageWriter {
 public:
  /// Starts a save of `book` to `target` (named in messages). A workbook that came from no
  /// package gets the file layer's state here.
  PackageWriter(Book& book, std::string target);

  Book& book;
  const std::string target;
  /// What the file layer keeps for the workbook.
  const std::shared_ptr<BookState> state;
  /// The package the workbook came from; nullptr for a new workbook.
  const std::shared_ptr<const Package> source;

  /// A part's text as the source package has it, or empty when it has no such part.
  std::string source_text(const std::string& part) const;
  bool in_source(const std::string& part) const { return source && source->has_part(part); }
  /// Parses a part's text; raises naming the file and the part when it does not parse.
  void parse(const std::string& part, std::string& text, pugi::xml_document& doc) const;

  /// The new content of a part.
  void put(const std::string& part, std::string content) { out_[part] = std::move(content); }
  /// A part whose content is produced while the package is written (deflated as it comes).
  void stream(const std::string& part, std::function<void(EntrySink&)> produce);
  /// Leaves a part of the source package out.
  void drop(const std::string& part);
  /// Lists a part the source package does not have: new parts are written in this order.
  void add_new(const std::string& part) { new_order_.push_back(part); }
  /// A part name no part of the package has yet: `stem` numbered from 1 for sheets, otherwise
  /// the plain name first.
  std::string fresh_part(const std::string& stem, const std::string& ext);

  /// Relationships and content types, edited in memory and written if they changed.
  std::string add_rel(const std::string& source_part, const std::string& type,
                      const std::string& target_part, bool external);
  void remove_rel(const std::string& source_part, const std::string& id);
  void set_content_type(const std::string& part, const std::string& type);
  void remove_content_type(const std::string& part);

  /// Writes the package to `path`: the source's entries in their order (replaced, copied or
  /// left out), then the new parts.
  void write(const std::filesystem::path& path, int level);

 private:
  struct Rels {
    std::string part;
    std::string text;
    pugi::xml_document doc;
    bool dirty = false;
  };
  Rels& rels_of(const std::string& source_part);

  std::map<std::string, std::string> out_;
  std::set<std::string> dropped_;
  std::vector<std::string> new_order_;
  std::map<std::string, std::unique_ptr<Rels>> rels_;
  std::string types_text_;
  pugi::xml_document types_;
  bool types_dirty_ = false;
  // Worksheets written as they are deflated, by part.
  std::map<std::string, std::function<void(EntrySink&)>> streams_;
};

// ---------------------------------------------------------------------------------------------
// The part writers

/// The shared strings one save appends to the part.
struct SharedStrings {
  /// Pool index -> shared-string index, for the pool entries added since loading.
  std::map<uint32_t, uint32_t> index;
  /// The pool entries this save appends, in order.
  std::vector<uint32_t> appended;
};

/// Appends the pool entries added since loading to the shared-strings part (write_workbook.cpp).
SharedStrings write_strings(PackageWriter& w);
/// The workbook part: date system, sheets in tab order, windows, defined names, and a full
/// recalculation on opening when `formulas_changed` (write_workbook.cpp).
void write_workbook(PackageWriter& w, bool formulas_changed);
/// The style records added since loading, and the palette (write_styles.cpp).
void write_styles(PackageWriter& w);
/// The custom document properties, when they changed (write_props.cpp).
void write_custom_props(PackageWriter& w);

/// The worksheet parts (write_sheet.cpp). Cell data is written while the package is deflated,
/// so the writer lives until the package is written.
class SheetWriter {
 public:
  SheetWriter(PackageWriter& w, const SharedStrings& strings) : w_(w), strings_(strings) {}
  /// Writes new and changed sheets, and drops the parts of sheets deleted since loading.
  void write();
  /// After the package is written: the sheets' file state describes the saved parts.
  void rebase();

 private:
  void write_sheet(Sheet& s, SheetState& ss, bool is_new);
  void sheet_data(Sheet& s, SheetState& ss, EntrySink& sink);
  void patch_skeleton(pugi::xml_document& doc, Sheet& s, SheetState& ss, bool is_new);
  void write_hyperlinks(pugi::xml_node ws, Sheet& s, SheetState& ss);
  void write_drawing_names(Sheet& s, SheetState& ss);

  PackageWriter& w_;
  const SharedStrings& strings_;
  // Formula cells written from the model: after the save they carry what the file now has.
  std::vector<std::tuple<Sheet*, uint32_t, std::unique_ptr<FileFormula>>> written_formulas_;
  // What a sheet's state becomes once the save is complete: the part's text around the cell
  // data, and where the cell data lies.
  struct Rebased {
    std::string head, tail;
    size_t begin = 0, end = 0;
  };
  std::map<Sheet*, Rebased> rebased_;
};

}  // namespace qz::engine::xlsx
