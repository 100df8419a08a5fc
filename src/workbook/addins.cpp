// iWorkbook: add-ins, the startup template, the number formats a workbook offers, and palette
// indices of colours.
#include <algorithm>

#include "qzxl/convert.hpp"
#include "workbook/services.hpp"
#include "workbook/workbook.hpp"

namespace qz {

namespace {

// The add-ins list walked in order; `visit` returns true to stop at an add-in.
void walk_add_ins(const std::function<bool(const host::AddInPtr&)>& visit) {
  int32_t count = value_or(int32_t{0}, [] { return wb::app()->add_ins()->count(); });
  for (int32_t i = 1; i <= count; ++i) {
    host::AddInPtr add_in =
        value_or(host::AddInPtr(), [&] { return wb::app()->add_ins()->item(Variant(i)); });
    if (add_in && visit(add_in)) return;
  }
}

bool has_name(const host::AddInPtr& add_in, const String& name) {
  // Binary comparison: "ADDIN" is not "Addin".
  return value_or(String(), [&] { return add_in->name(); }) == name;
}

// The startup folders, in the order the application reads them: its alternate startup
// folder, the user's own, and the one beside its program. Missing ones are left out.
std::vector<String> startup_folders(bool normalise_each) {
  std::vector<String> out;
  String alternate = value_or(String(), [] { return wb::app()->alt_startup_path(); });
  if (!alternate.empty())
    out.push_back(normalise_each
                      ? value_or(alternate, [&] { return wb::files().normalise_folder(alternate); })
                      : alternate);
  String user = value_or(String(), [] { return wb::files().app_data_folder(); });
  user += u"\\Microsoft\\Excel\\XLStart";
  out.push_back(normalise_each ? value_or(user, [&] { return wb::files().normalise_folder(user); })
                               : user);
  String program = value_or(String(), [] { return wb::app()->path(); });
  if (!program.empty())
    out.push_back(value_or(program, [&] { return wb::files().normalise_folder(program); }) +
                  u"\\XLStart");
  return out;
}

}  // namespace

int32_t iWorkbook::ColorIndexFromColor(int32_t vColor, const host::WorkbookPtr& vWkb) {
  host::WorkbookPtr wkb = vWkb;
  if (!wkb) assign(wkb, [] { return wb::app()->active_workbook(); });
  host::RangePtr probe = value_or(host::RangePtr(), [&] {
    return require(wkb)->worksheets()->item(Variant(int32_t{1}))->range(Variant(u"A1"));
  });
  if (!probe) return 0;

  // The application maps a colour to the nearest palette entry when it fills a cell with it;
  // the probe's own fill is put back afterwards.
  Variant old_index = value_or(Variant(), [&] { return probe->interior()->color_index(); });
  int32_t old_color = 0;
  bool had_fill = assign(old_color, [&] { return wkb->colors(to_long(old_index)); });
  int32_t result = 0;
  step([&] { probe->interior()->set_color(Variant(vColor)); });
  step([&] {
    // Selecting the selection again lets the application settle the new fill.
    ObjectPtr selection = wb::app()->selection();
    if (auto cells = std::dynamic_pointer_cast<host::Range>(selection))
      cells->select();
    else
      late::call(selection, u"Select");
  });
  assign(result, [&] { return to_long(probe->interior()->color_index()); });
  if (had_fill)
    step([&] { probe->interior()->set_color(Variant(old_color)); });
  else
    // A probe without a fill has no palette colour to put back; writing 0 would paint it
    // black, so it gets its "no fill" back instead.
    step([&] { probe->interior()->set_color_index(Variant(host::xl::ColorIndexNone)); });
  return result;
}

bool iWorkbook::InAddInCollection(const String& vAddInName) {
  bool found = false;
  walk_add_ins([&](const host::AddInPtr& a) { return found = has_name(a, vAddInName); });
  return found;
}

String iWorkbook::GetTitle(const String& vAddInName) {
  String title;
  walk_add_ins([&](const host::AddInPtr& a) {
    if (!has_name(a, vAddInName)) return false;
    assign(title, [&] { return a->title(); });
    return true;
  });
  return title;
}

bool iWorkbook::InstallAddIn(const String& vFullName) {
  // Unlike the other members, the first failure ends this one with False.
  try {
    bool started = false;
    host::ApplicationPtr xl = require(frame::GetXLApp(started));
    require(xl->add_ins()->add(vFullName))->set_installed(true);
    // An application started only for this goes again.
    if (started) xl->quit();
    return true;
  } catch (...) {
    return false;
  }
}

void iWorkbook::RestoreDefaultTemplate(const String& vFileName) {
  host::WorkbookPtr open = value_or(
      host::WorkbookPtr(), [&] { return wb::app()->workbooks()->item(Variant(vFileName)); });
  String location;
  if (open)
    step([&] { location = wb::files().normalise_folder(open->path()) + u"\\" + open->name(); });
  for (const String& folder : startup_folders(true)) {
    String file = folder + u"\\" + vFileName;
    if (!value_or(false, [&] { return wb::files().exists(file); })) continue;
    // The template open from this very file is saved and closed first, deliberately, so
    // that nothing done to it is lost with the file.
    if (open && !location.empty() && wb::same_path(file, location)) {
      step([&] { open->close(Variant(true)); });
      open = nullptr;
    }
    step([&] { wb::files().remove(file); });
  }
}

String iWorkbook::SyncTemplate(const String& vFromXLTPath, const String& vFromXLTName) {
  String message, destination;
  bool found = false;
  for (const String& folder : startup_folders(false)) {
    if (!value_or(false, [&] { return wb::files().folder_exists(folder); })) continue;
    if (!found) {
      destination = folder;
      found = true;
    } else {
      // A stale copy in a later folder would shadow nothing but confuse the user.
      step([&] { wb::files().remove(folder + u"\\" + vFromXLTName); });
    }
  }
  if (!found) message = u"No valid template path could be located.";

  String source =
      value_or(String(), [&] { return wb::strings().join_path(vFromXLTPath, vFromXLTName); });
  if (!value_or(false, [&] { return wb::files().exists(source); })) {
    return u"The source file at '" + source +
           u"' could not be found.  It may have been moved or deleted.";
  }
  // With no startup folder there is nowhere to copy to: a bare "\" & name would land in the
  // root of the drive, so no copy is tried and the message stays the one for no folder.
  if (!found) return message;
  String target = destination + u"\\" + vFromXLTName;
  step([&] { wb::files().copy(source, target, true); });
  if (!value_or(false, [&] { return wb::files().exists(target); })) {
    message = u"Could not write to the following destination: " + target + u"\r\r" +
              u"Please check the write permissions to the folder listed above.";
  }
  return message;
}

Variant iWorkbook::WkbCustomNumFormats(const host::WorkbookPtr& vWkb) {
  Array formats(1, {});
  host::WorkbookPtr wkb = vWkb;
  if (!wkb) assign(wkb, [] { return wb::app()->active_workbook(); });
  if (!wkb) return Variant(std::move(formats));

  // The dialog works on a worksheet's selection: the active sheet when it is one of this
  // workbook's worksheets, else the workbook's first worksheet.
  host::WorksheetPtr wks;
  step([&] {
    auto active = std::dynamic_pointer_cast<host::Worksheet>(wb::app()->active_sheet());
    if (active && active->type() == host::xl::Worksheet &&
        to_upper(active->parent()->name()) == to_upper(wkb->name()))
      wks = active;
  });
  if (!wks) {
    int32_t count = value_or(int32_t{0}, [&] { return wkb->sheets()->count(); });
    for (int32_t i = 1; i <= count && !wks; ++i) {
      step([&] {
        auto sheet = std::dynamic_pointer_cast<host::Worksheet>(wkb->sheets()->item(Variant(i)));
        if (sheet && sheet->type() == host::xl::Worksheet) wks = sheet;
      });
    }
  }
  if (!wks) return Variant(std::move(formats));

  const host::ApplicationPtr xl = value_or(host::ApplicationPtr(), [] { return wb::app(); });
  if (!xl) return Variant(std::move(formats));
  int32_t saved_calc =
      value_or(int32_t{host::xl::CalculationAutomatic}, [&] { return xl->calculation(); });
  bool saved_alerts = value_or(true, [&] { return xl->display_alerts(); });
  // Every format tried lands on the probe cell, which must not set off a recalculation or a
  // question.
  step([&] { xl->set_calculation(host::xl::CalculationManual); });
  step([&] { xl->set_display_alerts(false); });

  host::RangePtr probe = value_or(host::RangePtr(), [&] { return wks->range(Variant(u"A1")); });
  ObjectPtr old_sheet = value_or(ObjectPtr(), [&] { return xl->active_sheet(); });
  ObjectPtr old_selection = value_or(ObjectPtr(), [&] { return xl->selection(); });
  step([&] { wkb->activate(); });
  step([&] { wks->activate(); });
  step([&] { require(probe)->select(); });
  String probe_format =
      value_or(String(), [&] { return to_string(require(probe)->number_format()); });
  if (probe_format.empty()) probe_format = u"General";

  String current = u"General";
  for (;;) {
    step([&] { xl->send_keys(u"{tab 3}{down}{enter}", true); });
    step([&] {
      Variant arg(current);
      xl->dialogs(host::xl::DialogFormatNumber)->show(std::span<Variant>(&arg, 1));
    });
    String shown = value_or(String(), [&] { return to_string(require(probe)->number_format()); });
    // The list ends where the next entry is the one we had; a dialog that never moves (or
    // one that came round again) ends the walk as well.
    if (shown == current) break;
    if (std::find(formats.items.begin(), formats.items.end(), Variant(shown)) !=
        formats.items.end())
      break;
    formats.items.emplace_back(shown);
    current = shown;
  }

  step([&] { require(probe)->set_number_format(probe_format); });
  // The user finds the sheet and cells they had, or the chart sheet they were on.
  if (auto cells = std::dynamic_pointer_cast<host::Range>(old_selection)) {
    step([&] {
      host::WorksheetPtr sheet = cells->worksheet();
      sheet->parent()->activate();
      sheet->activate();
      cells->select();
    });
  } else if (auto chart = std::dynamic_pointer_cast<host::Chart>(old_sheet)) {
    step([&] { chart->activate(); });
  }
  step([&] { xl->set_calculation(saved_calc); });
  step([&] { xl->set_display_alerts(saved_alerts); });
  step([&] { xl->set_screen_updating(true); });
  return Variant(std::move(formats));
}

}  // namespace qz
