// iWorksheet: a sheet's working area, safe renaming, and the landmark name that identifies a
// sheet whatever the user calls it.
#include "workbook/worksheet.hpp"

#include "qzxl/convert.hpp"
#include "workbook/services.hpp"

namespace qz {

namespace {

// The marks around a tag's identifier; a sheet's landmark is a tag on all of its cells.
constexpr char16_t kTagStart[] = u"_bqz.";
constexpr char16_t kTagEnd[] = u".eqz";

bool is_sheet_level(StringView name_text) {
  return name_text.find(u'!') != StringView::npos;
}

}  // namespace

host::RangePtr iWorksheet::QZUsedRange(const host::WorksheetPtr& vWks) {
  host::WorksheetPtr wks = vWks;
  if (!wks) {
    // A chart sheet has no cells: the result is then Nothing.
    step([&] { wks = std::dynamic_pointer_cast<host::Worksheet>(wb::app()->active_sheet()); });
  }
  if (!wks) return nullptr;
  host::RangePtr last;
  step([&] {
    bool by_row = true;
    last = require(frame::session().LibRange)->LastCellInRange(wks->used_range(), &by_row);
  });
  // From A1 always, so that the area keeps its corner when the data starts further in.
  return value_or(host::RangePtr(), [&] {
    return wks->range(Variant(wks->range(Variant(u"A1"))), Variant(require(last)));
  });
}

void iWorksheet::NameWorksheet(const host::WorksheetPtr& vWks, const String& vName) {
  if (!vWks || vName.empty()) return;
  String candidate = vName.substr(0, 31);
  int32_t counter = 1;
  bool refused = !step([&] { vWks->set_name(candidate); });
  // Names are tried as "Budget", "Budget (2)", "Budget (3)", ... cut so that they stay within
  // 31 characters. The loop has no limit: it ends when a name is accepted, so a name refused
  // for another reason than a clash (a forbidden character) keeps it going.
  while (refused) {
    if (counter > 1)
      candidate =
          vblib::Strings::cut_end(candidate, static_cast<int32_t>(wb::digits(counter).size()) + 3);
    ++counter;
    String suffix = wb::digits(counter);
    candidate = candidate.substr(0, 28 - suffix.size()) + u" (" + suffix + u")";
    refused = !step([&] { vWks->set_name(candidate); });
  }
}

String iWorksheet::StripWksName(const String& vString, String* rWksName, bool bCleanWksName) {
  return value_or(String(),
                  [&] { return wb::strings().strip_wks_name(vString, rWksName, bCleanWksName); });
}

host::WorksheetPtr iWorksheet::WksFromLandmark(const host::WorkbookPtr& vWkb,
                                               const String& vWksLandmark,
                                               const Variant& vWksName) {
  if (!vWkb) return nullptr;
  for (;;) {
    host::NamePtr name =
        value_or(host::NamePtr(), [&] { return vWkb->names()->item(Variant(vWksLandmark)); });
    if (!name) break;
    host::RangePtr target = value_or(host::RangePtr(), [&] { return name->refers_to_range(); });
    String text = value_or(String(), [&] { return name->name(); });
    if (target && !is_sheet_level(text))
      return value_or(host::WorksheetPtr(), [&] { return target->worksheet(); });
    // A dead reference, or a sheet-level namesake that hides the landmark: it goes, and the
    // next name of that text is looked at. One that cannot be deleted would come back for
    // ever, so it ends the search.
    if (!step([&] { name->delete_(); })) break;
  }
  // Not found by landmark: by the sheet's name, when the caller gave one.
  if (vWksName.is_missing()) return nullptr;
  return value_or(host::WorksheetPtr(),
                  [&] { return vWkb->worksheets()->item(Variant(to_string(vWksName))); });
}

String iWorksheet::AssignQZWksName(const host::WorksheetPtr& vWks, const String& vDirtyTagName) {
  if (!vWks) return String();
  host::RangePtr cells = value_or(host::RangePtr(), [&] { return vWks->cells(); });
  if (!cells) return String();
  for (;;) {
    host::NamePtr name = value_or(host::NamePtr(), [&] { return cells->name(); });
    if (!name) break;
    String text = value_or(String(), [&] { return name->name(); });
    if (!is_sheet_level(text)) return text;  // the sheet has its landmark already
    // A sheet-level name over all cells is no landmark (it would move with a copied sheet);
    // it goes, so that the workbook-level one is found or made. One that cannot be deleted
    // would be found again for ever.
    if (!step([&] { name->delete_(); })) break;
  }

  String landmark;
  host::WorkbookPtr wkb = value_or(host::WorkbookPtr(), [&] { return vWks->parent(); });
  step([&] {
    host::NameAddArgs args;
    args.name = Variant(String(kTagStart) + require(wb::vblib().iGUID)->new_guid() + kTagEnd);
    args.refers_to = Variant(cells);
    args.visible = Variant(false);
    landmark = require(wkb)->names()->add(args)->name();
  });
  if (landmark.empty()) return landmark;
  // The workbook gained a name: the client must know it needs saving.
  step([&] {
    auto& props = *require(wb::vblib().iDocProp);
    props.prepare(wkb, vDirtyTagName);
    props.set_text(wkb, vDirtyTagName, u"true");
  });
  return landmark;
}

}  // namespace qz
