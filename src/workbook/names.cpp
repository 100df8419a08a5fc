// Name housekeeping of iWorkbook and iWorksheet: showing, hiding and deleting the library's
// tagged names in bulk, and removing dead names.
#include <vector>

#include "host/host.hpp"
#include "qzxl/convert.hpp"
#include "workbook/services.hpp"
#include "workbook/workbook.hpp"
#include "workbook/worksheet.hpp"

namespace qz {

namespace {

enum class Act { show, hide, remove };

// The names of a collection as its enumerator hands them out: listed once before the walk,
// so that deleting one does not shift the names still to come.
std::vector<host::NamePtr> listed(const host::NamesPtr& names) {
  std::vector<host::NamePtr> out;
  const int32_t count = value_or(int32_t{0}, [&] { return require(names)->count(); });
  out.reserve(static_cast<size_t>(count));
  for (int32_t i = 1; i <= count; ++i) {
    host::NamePtr name;
    if (assign(name, [&] { return names->item(Variant(i)); }) && name) out.push_back(name);
  }
  return out;
}

// A tagged name is recognised by its text without the sheet qualifier, so that a sheet-level
// tag ("Data!_bqz.x") counts like a workbook-level one. The prefix is compared code unit by
// code unit: "_BQZ." is somebody else's name.
bool is_tagged(host::Name& name, const String& tag) {
  return value_or(false, [&] {
    const String bare = wb::strings().strip_wks_name(name.name(), nullptr, false);
    return StringView(bare).substr(0, tag.size()) == StringView(tag);
  });
}

void act_on(const host::NamesPtr& names, Act act, bool only_tagged, const String& tag) {
  bool deleted_tagged = false;
  for (const host::NamePtr& name : listed(names)) {
    const bool selected = !only_tagged || is_tagged(*name, tag);
    if (!selected) {
      // Tags sort together, so deleting stops at the first untagged name after the run of
      // tags it has deleted. Under an enumeration that does not keep tags together, later
      // tags survive; callers rely on the walk being this short.
      if (act == Act::remove && deleted_tagged) break;
      continue;
    }
    switch (act) {
      case Act::show:
        step([&] { name->set_visible(true); });
        break;
      case Act::hide:
        step([&] { name->set_visible(false); });
        break;
      case Act::remove:
        // A name that refuses (a built-in one, a protected sheet's) still counts as the
        // start of the run.
        step([&] { name->delete_(); });
        deleted_tagged = only_tagged;
        break;
    }
  }
}

host::NamesPtr workbook_names(const host::WorkbookPtr& wkb) {
  host::WorkbookPtr book = wkb;
  if (!book) assign(book, [] { return wb::app()->active_workbook(); });
  if (!book) return nullptr;
  return value_or(host::NamesPtr(), [&] { return book->names(); });
}

host::NamesPtr worksheet_names(const host::WorksheetPtr& wks) {
  host::WorksheetPtr sheet = wks;
  // A chart sheet that is active has no names of its own to tidy: nothing is done.
  if (!sheet)
    assign(sheet,
           [] { return std::dynamic_pointer_cast<host::Worksheet>(wb::app()->active_sheet()); });
  if (!sheet) return nullptr;
  return value_or(host::NamesPtr(), [&] { return sheet->names(); });
}

bool contains_text(StringView text, StringView sought) {
  return to_upper(text).find(to_upper(sought)) != String::npos;
}

}  // namespace

void iWorkbook::ShowNames(const host::WorkbookPtr& vWkb, bool bOnlyQZNames, const String& vBQZTag) {
  if (auto names = workbook_names(vWkb)) act_on(names, Act::show, bOnlyQZNames, vBQZTag);
}

void iWorkbook::HideNames(const host::WorkbookPtr& vWkb, bool bOnlyQZNames, const String& vBQZTag) {
  if (auto names = workbook_names(vWkb)) act_on(names, Act::hide, bOnlyQZNames, vBQZTag);
}

void iWorkbook::DeleteNames(const host::WorkbookPtr& vWkb, bool bOnlyQZNames,
                            const String& vBQZTag) {
  if (auto names = workbook_names(vWkb)) act_on(names, Act::remove, bOnlyQZNames, vBQZTag);
}

void iWorkbook::CleanUpNames(const host::WorkbookPtr& vWkb) {
  const host::NamesPtr names = workbook_names(vWkb);
  if (!names) return;
  // From the last to the first, so that a deletion shifts only names already visited.
  const int32_t count = value_or(int32_t{0}, [&] { return names->count(); });
  for (int32_t i = count; i >= 1; --i) {
    host::NamePtr name;
    if (!assign(name, [&] { return names->item(Variant(i)); }) || !name) continue;
    const String refers = value_or(String(), [&] { return name->refers_to(); });
    // A deleted sheet or cell leaves "#REF!"; a reference to another file carries its book
    // in brackets. Either way the name points at nothing this workbook can show.
    if (contains_text(refers, u"#ref") || contains_text(refers, u"["))
      step([&] { name->delete_(); });
  }
}

void iWorksheet::ShowWksNames(const host::WorksheetPtr& vWks, bool bOnlyQZNames,
                              const String& vBQZTag) {
  if (auto names = worksheet_names(vWks)) act_on(names, Act::show, bOnlyQZNames, vBQZTag);
}

void iWorksheet::HideWksNames(const host::WorksheetPtr& vWks, bool bOnlyQZNames,
                              const String& vBQZTag) {
  if (auto names = worksheet_names(vWks)) act_on(names, Act::hide, bOnlyQZNames, vBQZTag);
}

void iWorksheet::DeleteWksNames(const host::WorksheetPtr& vWks, bool bOnlyQZNames,
                                const String& vBQZTag) {
  if (auto names = worksheet_names(vWks)) act_on(names, Act::remove, bOnlyQZNames, vBQZTag);
}

}  // namespace qz
