// Character runs: snapshots of a cell's font properties, taken before its text is rewritten
// and put back afterwards.
#include "qzxl/convert.hpp"
#include "range/range.hpp"
#include "range/support.hpp"

namespace qz {

namespace {

using FontGetter = Variant (host::Font::*)();
using FontSetter = void (host::Font::*)(const Variant&);

// One value for the whole cell, or Empty when its characters differ (the host answers Null):
// mixed values of these properties are deliberately not captured character by character.
Variant extract_uniform(const host::RangePtr& cell, FontGetter get) {
  Variant value = Variant::null();
  if (!step([&] { value = (*require(require(cell)->font()).*get)(); })) return Variant();
  if (value.is_null()) return Variant();
  return Variant(one_based({std::move(value)}));
}

// A one-element snapshot sets the whole cell; a longer one sets character i from element i.
// A snapshot that is no array (Empty: nothing was captured) has no upper bound and changes
// nothing.
void infuse(const host::RangePtr& cell, const Variant& snapshot, FontSetter set) {
  if (!snapshot.is_array()) return;
  const Array& values = snapshot.array();
  const int32_t upper = values.upper();
  if (upper == 1) {
    step([&] { (*require(require(cell)->font()).*set)(values.at(1)); });
    return;
  }
  for (int32_t i = 1; i <= upper; ++i) {
    step([&] {
      const host::FontPtr font =
          require(require(require(cell)->characters(Variant(i), Variant(1)))->font());
      (*font.*set)(values.at(i));
    });
  }
}

bool is_true(const Variant& v) {
  return v.is_bool() && v.boolean();
}

// The script code of a font: 1 superscript, 2 subscript, 0 neither.
int16_t script_of(host::Font& font) {
  if (value_or(false, [&] { return is_true(font.superscript()); })) return 1;
  if (value_or(false, [&] { return is_true(font.subscript()); })) return 2;
  return 0;
}

}  // namespace

Variant iRange::ExtractChrFontNames(const host::RangePtr& vCell) {
  return extract_uniform(vCell, &host::Font::name);
}
Variant iRange::ExtractChrFontStyles(const host::RangePtr& vCell) {
  return extract_uniform(vCell, &host::Font::font_style);
}
Variant iRange::ExtractChrFontSizes(const host::RangePtr& vCell) {
  return extract_uniform(vCell, &host::Font::size);
}
Variant iRange::ExtractChrUnderlines(const host::RangePtr& vCell) {
  return extract_uniform(vCell, &host::Font::underline);
}
Variant iRange::ExtractChrColorIndices(const host::RangePtr& vCell) {
  return extract_uniform(vCell, &host::Font::color_index);
}
Variant iRange::ExtractChrStrikethroughs(const host::RangePtr& vCell) {
  return extract_uniform(vCell, &host::Font::strikethrough);
}

Variant iRange::ExtractChrScripts(const host::RangePtr& vCell) {
  host::FontPtr font;
  Variant superscript;
  if (!step([&] {
        font = require(require(vCell)->font());
        superscript = font->superscript();
      }))
    return Variant();
  if (!superscript.is_null()) return Variant(one_based({Variant(script_of(*font))}));

  // Only superscript is asked whether it is mixed: a cell with subscripts but no
  // superscript is captured as one uniform 0.
  int32_t count = 0;
  step([&] { count = require(vCell->characters())->count(); });
  std::vector<Variant> codes(static_cast<size_t>(std::max(count, 0)), Variant(int16_t{0}));
  for (int32_t i = 1; i <= count; ++i) {
    step([&] {
      const host::FontPtr f = require(require(vCell->characters(Variant(i), Variant(1)))->font());
      codes[static_cast<size_t>(i - 1)] = Variant(script_of(*f));
    });
  }
  return Variant(one_based(std::move(codes)));
}

void iRange::InfuseChrFontNames(const host::RangePtr& vCell, const Variant& v) {
  infuse(vCell, v, &host::Font::set_name);
}
void iRange::InfuseChrFontStyles(const host::RangePtr& vCell, const Variant& v) {
  infuse(vCell, v, &host::Font::set_font_style);
}
void iRange::InfuseChrFontSizes(const host::RangePtr& vCell, const Variant& v) {
  infuse(vCell, v, &host::Font::set_size);
}
void iRange::InfuseChrUnderlines(const host::RangePtr& vCell, const Variant& v) {
  infuse(vCell, v, &host::Font::set_underline);
}
void iRange::InfuseChrColorIndices(const host::RangePtr& vCell, const Variant& v) {
  infuse(vCell, v, &host::Font::set_color_index);
}
void iRange::InfuseChrStrikethroughs(const host::RangePtr& vCell, const Variant& v) {
  infuse(vCell, v, &host::Font::set_strikethrough);
}

void iRange::InfuseChrScripts(const host::RangePtr& vCell, const Variant& vChrScripts) {
  // An Empty snapshot (nothing captured) leaves the cell's scripts as they are, like every
  // other property, rather than clearing them.
  if (!vChrScripts.is_array()) return;
  const Array& codes = vChrScripts.array();
  step([&] { require(require(vCell)->font())->set_subscript(Variant(false)); });
  step([&] { require(require(vCell)->font())->set_superscript(Variant(false)); });
  auto code_at = [&](int32_t i) {
    return value_or(int32_t{0}, [&] { return to_long(codes.at(i)); });
  };
  const int32_t upper = codes.upper();
  if (upper == 1) {
    const int32_t code = code_at(1);
    if (code == 1) step([&] { require(require(vCell)->font())->set_superscript(Variant(true)); });
    if (code == 2) step([&] { require(require(vCell)->font())->set_subscript(Variant(true)); });
    return;
  }
  for (int32_t i = 1; i <= upper; ++i) {
    const int32_t code = code_at(i);
    if (code != 1 && code != 2) continue;
    step([&] {
      const host::FontPtr f =
          require(require(require(vCell)->characters(Variant(i), Variant(1)))->font());
      if (code == 1)
        f->set_superscript(Variant(true));
      else
        f->set_subscript(Variant(true));
    });
  }
}

void iRange::ExtractChrProperties(const host::RangePtr& vCell, Variant* rChrFontNames,
                                  Variant* rChrFontStyles, Variant* rChrFontSizes,
                                  Variant* rChrUnderlines, Variant* rChrColorIndices,
                                  Variant* rChrScripts, Variant* rChrStrikethroughs) {
  if (rChrFontNames) *rChrFontNames = ExtractChrFontNames(vCell);
  if (rChrFontStyles) *rChrFontStyles = ExtractChrFontStyles(vCell);
  if (rChrFontSizes) *rChrFontSizes = ExtractChrFontSizes(vCell);
  if (rChrUnderlines) *rChrUnderlines = ExtractChrUnderlines(vCell);
  if (rChrColorIndices) *rChrColorIndices = ExtractChrColorIndices(vCell);
  if (rChrScripts) *rChrScripts = ExtractChrScripts(vCell);
  if (rChrStrikethroughs) *rChrStrikethroughs = ExtractChrStrikethroughs(vCell);
}

void iRange::InfuseChrProperties(const host::RangePtr& vCell, const Variant& vChrFontNames,
                                 const Variant& vChrFontStyles, const Variant& vChrFontSizes,
                                 const Variant& vChrUnderlines, const Variant& vChrColorIndices,
                                 const Variant& vChrScripts, const Variant& vChrStrikethroughs) {
  if (!vChrFontNames.is_missing()) InfuseChrFontNames(vCell, vChrFontNames);
  if (!vChrFontStyles.is_missing()) InfuseChrFontStyles(vCell, vChrFontStyles);
  if (!vChrFontSizes.is_missing()) InfuseChrFontSizes(vCell, vChrFontSizes);
  if (!vChrUnderlines.is_missing()) InfuseChrUnderlines(vCell, vChrUnderlines);
  if (!vChrColorIndices.is_missing()) InfuseChrColorIndices(vCell, vChrColorIndices);
  if (!vChrScripts.is_missing()) InfuseChrScripts(vCell, vChrScripts);
  if (!vChrStrikethroughs.is_missing()) InfuseChrStrikethroughs(vCell, vChrStrikethroughs);
}

}  // namespace qz
