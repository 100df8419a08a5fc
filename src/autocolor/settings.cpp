// The eleven AutoColor settings. They live in the user's settings store under the section
// "AutoColor", as text, so every iAutoColor object of every client agrees on them and they
// outlast the application. A getter that finds nothing stored writes the default first.
#include "autocolor/internal.hpp"
#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz {

namespace {

String read_setting(const char16_t* name) {
  return value_or(String(), [&] {
    return require(frame::session().AutoColorSettings)->read(vblib::kHkeyCurrentUser, name);
  });
}

void write_setting(const char16_t* name, const Variant& value) {
  step([&] {
    require(frame::session().AutoColorSettings)
        ->write(vblib::kHkeyCurrentUser, name, to_string(value));
  });
}

// A setter: a missing argument stands for the default; whatever is given is stored as it
// is (no range check) and handed back converted.
bool set_bool(const char16_t* name, const Variant& v, bool fallback) {
  const Variant value = v.is_missing() ? Variant(fallback) : v;
  write_setting(name, value);
  return value_or(false, [&] { return to_bool(value); });
}

int32_t set_long(const char16_t* name, const Variant& v, int32_t fallback) {
  const Variant value = v.is_missing() ? Variant(fallback) : v;
  write_setting(name, value);
  return value_or(int32_t{0}, [&] { return to_long(value); });
}

// A getter: the stored text converted, or the setter's answer when nothing is stored.
template <class Setter>
bool get_bool(const char16_t* name, Setter set_default) {
  const String text = read_setting(name);
  if (text.empty()) return set_default();
  return value_or(false, [&] { return to_bool(Variant(text)); });
}

template <class Setter>
int32_t get_long(const char16_t* name, Setter set_default) {
  const String text = read_setting(name);
  if (text.empty()) return set_default();
  return value_or(int32_t{0}, [&] { return to_long(Variant(text)); });
}

const Variant kMissing = Variant::missing();

}  // namespace

bool iAutoColor::AutoColorOn() {
  return get_bool(u"On", [&] { return SetAutoColorOn(kMissing); });
}
bool iAutoColor::SetAutoColorOn(const Variant& vAutoColorOn) {
  const Variant value = vAutoColorOn.is_missing() ? Variant(true) : vAutoColorOn;
  const bool on = set_bool(u"On", value, true);
  // The on-entry button's check mark and the application's hook follow the switch.
  UpdateAutoColorMenuBtns(value);
  return on;
}

bool iAutoColor::AutoColorHyperlinks() {
  return get_bool(u"Hyperlinks", [&] { return SetAutoColorHyperlinks(kMissing); });
}
bool iAutoColor::SetAutoColorHyperlinks(const Variant& v) {
  return set_bool(u"Hyperlinks", v, true);
}

bool iAutoColor::AutoColorText() {
  return get_bool(u"Text", [&] { return SetAutoColorText(kMissing); });
}
bool iAutoColor::SetAutoColorText(const Variant& v) {
  return set_bool(u"Text", v, false);
}

bool iAutoColor::AutoColorDates() {
  return get_bool(u"Dates", [&] { return SetAutoColorDates(kMissing); });
}
bool iAutoColor::SetAutoColorDates(const Variant& v) {
  return set_bool(u"Dates", v, false);
}

// The colour defaults are written here rather than taken from the public constants: what
// a fresh user gets is this class's decision.
int32_t iAutoColor::InputColor() {
  return get_long(u"InputColor", [&] { return SetInputColor(kMissing); });
}
int32_t iAutoColor::SetInputColor(const Variant& v) {
  return set_long(u"InputColor", v, 16711680);
}

int32_t iAutoColor::PartialInputColor() {
  return get_long(u"PartialInputColor", [&] { return SetPartialInputColor(kMissing); });
}
int32_t iAutoColor::SetPartialInputColor(const Variant& v) {
  return set_long(u"PartialInputColor", v, 255);
}

int32_t iAutoColor::FormulaColor() {
  return get_long(u"FormulaColor", [&] { return SetFormulaColor(kMissing); });
}
int32_t iAutoColor::SetFormulaColor(const Variant& v) {
  return set_long(u"FormulaColor", v, 0);
}

int32_t iAutoColor::WksLinkColor() {
  return get_long(u"WksLinkColor", [&] { return SetWksLinkColor(kMissing); });
}
int32_t iAutoColor::SetWksLinkColor(const Variant& v) {
  return set_long(u"WksLinkColor", v, 0);
}

int32_t iAutoColor::WkbLinkColor() {
  return get_long(u"WkbLinkColor", [&] { return SetWkbLinkColor(kMissing); });
}
int32_t iAutoColor::SetWkbLinkColor(const Variant& v) {
  return set_long(u"WkbLinkColor", v, 255);
}

int32_t iAutoColor::HyperlinkColor() {
  return get_long(u"HyperlinkColor", [&] { return SetHyperlinkColor(kMissing); });
}
int32_t iAutoColor::SetHyperlinkColor(const Variant& v) {
  return set_long(u"HyperlinkColor", v, 6697881);
}

int32_t iAutoColor::DummyNumberColor() {
  return get_long(u"DummyNumberColor", [&] { return SetDummyNumberColor(kMissing); });
}
int32_t iAutoColor::SetDummyNumberColor(const Variant& v) {
  return set_long(u"DummyNumberColor", v, 255);
}

bool iAutoColor::ToggleAutoColor() {
  return SetAutoColorOn(Variant(!AutoColorOn()));
}

String iAutoColor::NoAutoColorSmartCycleName() {
  return u"No AutoColor";
}

namespace autocolor {

Knobs Knobs::snapshot(iAutoColor& owner) {
  Knobs k(owner);
  k.fixed_ = Values{owner.AutoColorHyperlinks(), owner.AutoColorText(),     owner.AutoColorDates(),
                    owner.InputColor(),          owner.PartialInputColor(), owner.FormulaColor(),
                    owner.WksLinkColor(),        owner.WkbLinkColor(),      owner.HyperlinkColor()};
  return k;
}

bool Knobs::hyperlinks() {
  return fixed_ ? fixed_->hyperlinks : owner_.AutoColorHyperlinks();
}
bool Knobs::text() {
  return fixed_ ? fixed_->text : owner_.AutoColorText();
}
bool Knobs::dates() {
  return fixed_ ? fixed_->dates : owner_.AutoColorDates();
}
int32_t Knobs::input() {
  return fixed_ ? fixed_->input : owner_.InputColor();
}
int32_t Knobs::partial_input() {
  return fixed_ ? fixed_->partial_input : owner_.PartialInputColor();
}
int32_t Knobs::formula() {
  return fixed_ ? fixed_->formula : owner_.FormulaColor();
}
int32_t Knobs::wks_link() {
  return fixed_ ? fixed_->wks_link : owner_.WksLinkColor();
}
int32_t Knobs::wkb_link() {
  return fixed_ ? fixed_->wkb_link : owner_.WkbLinkColor();
}
int32_t Knobs::hyperlink() {
  return fixed_ ? fixed_->hyperlink : owner_.HyperlinkColor();
}

}  // namespace autocolor
}  // namespace qz
