#include "control/control.hpp"

#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/host.hpp"
#include "qzxl/convert.hpp"

// Forms, frames, text boxes and reference-edit boxes belong to the client's forms package, so
// every member is reached by name at run time (qz::late). A member the object lacks raises
// 438 and, like any other failure, skips only the step that asked for it.

namespace qz {

namespace {

Variant get(const ObjectPtr& obj, StringView member) {
  return late::get(obj, member);
}

double number(const ObjectPtr& obj, StringView member) {
  return to_double(get(obj, member));
}

// The container's Controls collection; raises when the object has none.
ObjectPtr controls_of(const ObjectPtr& container) {
  return require(get(container, u"Controls").object());
}

int32_t control_count(const ObjectPtr& controls) {
  return to_long(get(controls, u"Count"));
}

// The control added last: Item is 0-based, so this is Item(Count - 1).
ObjectPtr last_control(const ObjectPtr& controls, int32_t count) {
  Variant index[1] = {Variant(count - 1)};
  return require(late::call(controls, u"Item", index).object());
}

// A numbered text of the sibling string service; raises when the services are not loaded,
// so that a message that cannot be worded is not shown at all.
String numbered(int32_t number) {
  const auto& vblib = require(frame::session().VBLib);
  return require(vblib->iString)->message(number);
}

void show_ok_message(const String& text, const String& caption) {
  require(host::environment().ui)->msg_box(text, msgbox::OKOnly, caption);
}

// After a refused entry: bring the box's page to the front and select the whole entry, so
// that the person can type over it at once.
void return_to_entry(const ObjectPtr& box, const ObjectPtr& multipage, int32_t page,
                     StringView selected_member) {
  if (multipage) step([&] { late::put(multipage, u"Value", Variant(page)); });
  bool reachable = value_or(
      false, [&] { return to_bool(get(box, u"Visible")) && to_bool(get(box, u"Enabled")); });
  if (!reachable) return;
  step([&] { late::call(box, u"SetFocus"); });
  step([&] { late::put(box, u"SelStart", Variant(0)); });
  step([&] {
    auto length = static_cast<int32_t>(to_string(get(box, selected_member)).size());
    late::put(box, u"SelLength", Variant(length));
  });
}

bool same_sheet(const host::WorksheetPtr& a, const host::WorksheetPtr& b) {
  // Host objects may be fresh wrappers on every call, so sheets are compared by identity in
  // the workbook: their names and their workbooks' names.
  return a->name() == b->name() && a->parent()->name() == b->parent()->name();
}

}  // namespace

int32_t iControl::NextControlTop(const ObjectPtr& vFormOrFrame, bool bSameLevel, int32_t vXSpace,
                                 int32_t vLabelAdjust, int32_t vTopMargin) {
  if (!vFormOrFrame) return 0;
  return value_or(int32_t{0}, [&] {
    ObjectPtr controls = controls_of(vFormOrFrame);
    int32_t count = control_count(controls);
    if (count == 0) return vTopMargin;
    ObjectPtr last = last_control(controls, count);
    // The label adjustment counts four times over; clients' layouts are built on that.
    double top = number(last, u"Top") + 4.0 * vLabelAdjust;
    if (!bSameLevel) top += number(last, u"Height") + vXSpace;
    return to_long(Variant(top));
  });
}

int32_t iControl::NextControlLeft(const ObjectPtr& vFormOrFrame, bool bSameLevel, int16_t vXSpace,
                                  int32_t vLeftMargin) {
  if (!vFormOrFrame) return 0;
  return value_or(int32_t{0}, [&] {
    // A container without controls of its own yields 0 even for a new row.
    ObjectPtr controls = controls_of(vFormOrFrame);
    if (!bSameLevel) {
      // A new row starts at the margin; only a spacing other than the default 4 is added to
      // it. Existing forms are laid out on exactly this rule.
      return vXSpace == 4 ? vLeftMargin : vLeftMargin + vXSpace;
    }
    int32_t count = control_count(controls);
    if (count == 0) return vLeftMargin;
    ObjectPtr last = last_control(controls, count);
    return to_long(Variant(number(last, u"Left") + number(last, u"Width") + vXSpace));
  });
}

void iControl::DeleteControls(const ObjectPtr& vFormOrFrame) {
  ObjectPtr controls;
  if (!assign(controls, [&] { return controls_of(vFormOrFrame); })) return;
  // Names first, removal after: removing while walking the collection would shift the
  // remaining controls under the walk and leave every other one behind.
  std::vector<String> names;
  int32_t count = value_or(int32_t{0}, [&] { return control_count(controls); });
  for (int32_t i = 0; i < count; ++i) {
    step([&] {
      Variant index[1] = {Variant(i)};
      ObjectPtr control = require(late::call(controls, u"Item", index).object());
      names.push_back(to_string(get(control, u"Name")));
    });
  }
  for (const String& name : names) {
    step([&] {
      Variant args[1] = {Variant(name)};
      late::call(controls, u"Remove", args);
    });
  }
}

// The checks of a reference typed or picked into a reference-edit box:
//  - Nothing, with no message, when there is no box or it is disabled (a disabled box offers
//    the person no choice), or when its text is empty after trimming (nothing was chosen;
//    whether a range is required is the caller's affair). A leading "=" is ignored.
//  - With `vWks` given, an unqualified reference is read on that sheet, and the reference
//    must lie on it; without it the reference is read as the application reads it (on the
//    active sheet unless it names its own sheet or workbook).
//  - With a workbook in `vWkb` on entry, the reference must lie in that workbook.
//  - Anything that does not resolve, or lies elsewhere, is refused: unless `bSimpleAbort` is
//    True, a message (OK button, title `vMsgBoxCaption`) says "<string 2002><sheet>
//    <string 4>", naming `vWks`, else the sheet the reference named, else the active sheet;
//    then the box gets the focus back with its text selected, as a refused number does.
//  - On success `vWkb` (when passed) receives the range's workbook; on refusal it keeps what it
//    held.
host::RangePtr iControl::RefEditRange(const ObjectPtr& vRefEdit, const host::WorksheetPtr& vWks,
                                      const Variant& bSimpleAbort, host::WorkbookPtr* vWkb,
                                      const String& vMsgBoxCaption) {
  if (!vRefEdit) return nullptr;
  if (!value_or(false, [&] { return to_bool(get(vRefEdit, u"Enabled")); })) return nullptr;
  String text;
  step([&] { text = String(trim(to_string(get(vRefEdit, u"Text")))); });
  if (!text.empty() && text.front() == u'=') text = String(trim(StringView(text).substr(1)));
  if (text.empty()) return nullptr;

  String named_sheet;
  const String address = vblib::Strings::qualifier_split(
      vblib::Strings::strip_wkb_name(text, nullptr, true), true, named_sheet);
  const bool qualified = !named_sheet.empty() || address.size() != text.size();

  host::RangePtr range;
  step([&] {
    if (vWks && !qualified)
      range = vWks->range(Variant(text));
    else
      range = require(frame::session().XLApp)->range(Variant(text));
  });
  if (range && vWks && !value_or(false, [&] { return same_sheet(range->worksheet(), vWks); }))
    range = nullptr;
  if (range && vWkb && *vWkb) {
    bool same_book =
        value_or(false, [&] { return range->worksheet()->parent()->name() == (*vWkb)->name(); });
    if (!same_book) range = nullptr;
  }
  if (range) {
    if (vWkb) step([&] { *vWkb = require(range->worksheet())->parent(); });
    return range;
  }

  bool simple =
      value_or(false, [&] { return !bSimpleAbort.is_missing() && to_bool(bSimpleAbort); });
  if (simple) return nullptr;
  String sheet_name = named_sheet;
  if (vWks) step([&] { sheet_name = vWks->name(); });
  if (sheet_name.empty()) {
    step([&] {
      const ObjectPtr active = require(require(frame::session().XLApp)->active_sheet());
      if (auto wks = std::dynamic_pointer_cast<host::Worksheet>(active))
        sheet_name = wks->name();
      else
        sheet_name = to_string(get(active, u"Name"));  // a chart sheet
    });
  }
  bool shown =
      step([&] { show_ok_message(numbered(2002) + sheet_name + numbered(4), vMsgBoxCaption); });
  if (shown) return_to_entry(vRefEdit, nullptr, 0, u"Text");
  return nullptr;
}

bool iControl::IsValidNumber(const ObjectPtr& vTextbox, const String& vNumName, int32_t vUpperLimit,
                             bool vAllowNegative, const ObjectPtr& vMultiPage, int32_t vPage,
                             const String& vMsgBoxCaption) {
  int32_t n = 0;
  String message;
  if (!assign(n, [&] { return to_long(get(vTextbox, u"Value")); })) {
    if (vNumName.empty()) return false;
    assign(message, [&] { return numbered(2004) + vNumName + numbered(4); });
  } else if (vAllowNegative || n >= 0) {
    if (vUpperLimit == 0 || n <= vUpperLimit) return true;
    if (vNumName.empty()) return false;
    assign(message, [&] {
      return numbered(2006) + vNumName + numbered(2007) + u16(std::to_string(vUpperLimit)) +
             numbered(4);
    });
  } else {
    if (vNumName.empty()) return false;
    assign(message, [&] { return numbered(2005) + vNumName + numbered(4); });
  }
  // A message that could not be worded (the sibling services are not loaded) is not shown;
  // the entry is refused all the same.
  if (!message.empty()) step([&] { show_ok_message(message, vMsgBoxCaption); });
  return_to_entry(vTextbox, vMultiPage, vPage, u"Value");
  return false;
}

void iControl::ParseTextbox(const String& vTextboxString, std::vector<String>& rEntries) {
  step([&] {
    const auto& vblib = require(frame::session().VBLib);
    rEntries = require(vblib->iString)->parse_textbox(vTextboxString);
  });
}

void iControl::SetLockedText(const ObjectPtr& vTextbox, const String& vText, int32_t vBackColor) {
  step([&] { late::put(vTextbox, u"Value", Variant(vText)); });
  step([&] { late::put(vTextbox, u"SelStart", Variant(0)); });
  step([&] { late::put(vTextbox, u"Locked", Variant(true)); });
  step([&] { late::put(vTextbox, u"BackColor", Variant(vBackColor)); });
}

}  // namespace qz
