// iWorkbook: finding, opening and inspecting workbooks.
#include "workbook/workbook.hpp"

#include "qzxl/convert.hpp"
#include "workbook/services.hpp"

namespace qz {

namespace {

// The open-file dialog's filter: a description and its pattern, NUL-separated.
const String kExcelFilter = String(u"Excel Files (*.XLS)") + u'\0' + u"*.xls";

}  // namespace

host::WorkbookPtr iWorkbook::OpenWkbFromUser(const String& vDefFileName, const String& vDefFilePath,
                                             bool vPromptOnOpen) {
  String chosen;
  step([&] {
    host::FileDialogArgs args;
    args.default_name = vDefFileName;
    args.default_folder = vDefFilePath;
    args.filter = kExcelFilter;
    args.default_extension = u"xls";
    args.title = u"Quazel -- Choose File";
    args.must_exist = true;
    chosen = wb::files().choose_file(args);
  });
  if (chosen.empty()) return nullptr;

  String file_name, folder;
  step([&] { wb::strings().split_full_name(chosen, file_name, folder); });

  host::WorkbookPtr result;
  if (IsOpen(nullptr, file_name)) {
    // The copy already open wins, whichever folder it came from: the application cannot hold
    // two workbooks of one name.
    assign(result, [&] { return wb::app()->workbooks()->item(Variant(file_name)); });
    return result;
  }
  host::OpenArgs args;
  args.filename = chosen;
  if (!vPromptOnOpen) {
    // Quietly: no link updates, no read-only recommendation.
    args.update_links = Variant(int32_t{0});
    args.ignore_read_only_recommended = Variant(true);
  }
  assign(result, [&] { return wb::app()->workbooks()->open(args); });
  return result;
}

bool iWorkbook::IsOpen(const host::WorkbookPtr& vWkb, const String& vWkbName) {
  String name = vWkbName;
  if (vWkb) assign(name, [&] { return vWkb->name(); });
  return value_or(false, [&] { return wb::app()->workbooks()->item(Variant(name)) != nullptr; });
}

String iWorkbook::GetWkbCodeName(const host::WorkbookPtr& vWkb) {
  if (!vWkb) return String();
  String code_name = value_or(String(), [&] { return vWkb->code_name(); });
  // A workbook whose project was never compiled has no code name yet; its module is still
  // the one every workbook starts with.
  return code_name.empty() ? String(u"ThisWorkbook") : code_name;
}

bool iWorkbook::ExcelIsReady() {
  // While the application is busy (a cell in edit, a modal dialog) it disables File New.
  return value_or(false, [] {
    return require(require(frame::session().LibMenu)->FileNewButton(false))->enabled();
  });
}

String iWorkbook::StripWkbName(const String& vString, String* rWkbName) {
  return value_or(String(), [&] { return wb::strings().strip_wkb_name(vString, rWkbName, false); });
}

bool iWorkbook::WkbIsHidden(const host::WorkbookPtr& vWkb) {
  // Hidden unless a visible window is found: also with no windows, or no workbook at all.
  int32_t count = value_or(int32_t{0}, [&] { return require(vWkb)->windows()->count(); });
  for (int32_t i = 1; i <= count; ++i) {
    bool visible = value_or(false, [&] { return vWkb->windows()->item(Variant(i))->visible(); });
    if (visible) return false;
  }
  return true;
}

host::WorkbookPtr iWorkbook::GetWkb(const host::ApplicationPtr& vApp, const String& vWkbName,
                                    const String& vPath, bool vReadOnly, bool* rOpened,
                                    bool* rConflict, String* rBlankName, int32_t* rXLCalc,
                                    bool* rXLAlerts, bool* rXLSaveCalc, bool* rChangedCalcs,
                                    const Variant& vEditable) {
  // Outputs the caller left out still steer the method, so each has a local stand-in.
  bool opened_local = false, conflict_local = false, alerts_local = false, save_calc_local = false,
       changed_local = false;
  int32_t calc_local = 0;
  String blank_local;
  bool& opened = rOpened ? *rOpened : opened_local;
  bool& conflict = rConflict ? *rConflict : conflict_local;
  String& blank_name = rBlankName ? *rBlankName : blank_local;
  int32_t& xl_calc = rXLCalc ? *rXLCalc : calc_local;
  bool& xl_alerts = rXLAlerts ? *rXLAlerts : alerts_local;
  bool& xl_save_calc = rXLSaveCalc ? *rXLSaveCalc : save_calc_local;
  bool& changed_calcs = rChangedCalcs ? *rChangedCalcs : changed_local;

  const String full_name = vPath + u"\\" + vWkbName;
  host::WorkbookPtr result;
  opened = false;
  conflict = false;
  blank_name.clear();
  // Without an application nothing can be found or opened.
  if (!vApp) return result;

  host::WorkbookPtr open_copy =
      value_or(host::WorkbookPtr(), [&] { return vApp->workbooks()->item(Variant(vWkbName)); });
  if (open_copy) {
    String folder =
        value_or(String(), [&] { return wb::files().normalise_folder(open_copy->path()); });
    if (wb::same_path(folder, vPath))
      result = open_copy;
    else
      conflict = true;  // a namesake from another folder blocks the open
  }

  if (!value_or(false, [&] { return wb::files().exists(full_name); })) return result;

  bool reopened = false;
  if (result && !vReadOnly && value_or(false, [&] { return result->read_only(); })) {
    // Open for reading only, but wanted for writing: close it and open it again below.
    step([&] { result->close(Variant(false)); });
    reopened = true;
    result = nullptr;
  }

  if (!result && !conflict) {
    host::WorkbookPtr fresh;
    host::OpenArgs args;
    args.filename = full_name;
    args.update_links = Variant(false);
    args.editable = vEditable;
    if (vReadOnly) {
      // A quiet read: the application must not recalculate, ask or save while the caller
      // reads data out of the file, and calculation settings need an open workbook.
      if (value_or(int32_t{-1}, [&] { return vApp->workbooks()->count(); }) == 0) {
        step([&] { blank_name = vApp->workbooks()->add()->name(); });
        changed_calcs = true;
      }
      int32_t calc = value_or(int32_t{0}, [&] { return vApp->calculation(); });
      bool alerts = value_or(false, [&] { return vApp->display_alerts(); });
      bool save_calc = value_or(false, [&] { return vApp->calculate_before_save(); });
      if (save_calc || calc != host::xl::CalculationManual || alerts) {
        changed_calcs = true;
        assign(xl_calc, [&] { return vApp->calculation(); });
        assign(xl_alerts, [&] { return vApp->display_alerts(); });
        assign(xl_save_calc, [&] { return vApp->calculate_before_save(); });
        step([&] { vApp->set_calculation(host::xl::CalculationManual); });
        step([&] { vApp->set_display_alerts(false); });
        step([&] { vApp->set_calculate_before_save(false); });
      }
      args.read_only = Variant(true);
    } else {
      // A file marked read-only opens read-only without the application asking.
      args.read_only =
          Variant(value_or(false, [&] { return wb::files().is_read_only(full_name); }));
    }
    assign(fresh, [&] { return vApp->workbooks()->open(args); });
    if (fresh) {
      result = fresh;
      // A reopened workbook was open before the call, so the caller must not close it.
      if (!reopened) opened = true;
    }
  }
  return result;
}

bool iWorkbook::SetWksCount(const host::WorkbookPtr& vWkb, int32_t vWksCount) {
  host::WorkbookPtr wkb = vWkb;
  if (!wkb) assign(wkb, [] { return wb::app()->active_workbook(); });
  if (!wkb) return false;
  // No limit on the rounds: a count the workbook cannot reach keeps the loop going, and
  // callers pass one it can.
  int32_t count = 0;
  for (;;) {
    assign(count, [&] { return wkb->worksheets()->count(); });
    if (count == vWksCount) break;
    if (count > vWksCount)
      step([&] { wkb->worksheets()->item(Variant(count))->delete_(); });
    else
      step([&] { wkb->worksheets()->add(); });
  }
  return true;
}

}  // namespace qz
