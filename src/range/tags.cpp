// Tags and landmarks: hidden defined names "_bqz.<identifier>.eqz" that follow a tagged range
// wherever the user moves it, and the searches that find them again.
#include "qzxl/convert.hpp"
#include "range/range.hpp"
#include "range/support.hpp"
#include "vblib/vblib.hpp"

namespace qz {

using range_support::left;
using range_support::right;
using range_support::xl;
using vblib::Strings;

namespace {

String unqualified(const String& name) {
  String qualifier;
  return Strings::qualifier_split(name, false, qualifier);
}

// Compares the beginning of `name` with `start` by character code, as the sorted scan does.
int compare_start(StringView name, StringView start, int32_t start_len) {
  const int c = left(name, start_len).compare(start);
  return c < 0 ? -1 : c > 0 ? 1 : 0;
}

// Walks the names of the cell's worksheet in the host's sorted order and returns the first
// tag that `matches`. The walk stops at the first name whose beginning sorts after `start`:
// names are sorted by character code, so one beginning with a lower-case letter (after "_")
// ends the search while one beginning with a capital or a digit does not. That early stop,
// with its case asymmetry, is how tags have always been found, and is kept.
template <class Matches>
String sorted_scan(const host::RangePtr& cell, const String& start, int32_t start_len,
                   const String& end, int32_t end_len, Matches matches) {
  host::NamesPtr names;
  int32_t count = 0;
  step([&] {
    names = require(require(require(cell)->worksheet())->names());
    count = names->count();
  });
  for (int32_t i = 1; i <= count; ++i) {
    host::NamePtr name;
    String text;
    if (!step([&] {
          name = require(names->item(Variant(i)));
          text = unqualified(name->name());
        }))
      continue;
    const int order = compare_start(text, start, start_len);
    if (order > 0) return String();
    if (order != 0 || right(text, end_len) != StringView(end)) continue;
    // A name that refers to no range (a constant, a formula) fails the test and is passed
    // over.
    if (value_or(false, [&] { return matches(*name); })) return text;
  }
  return String();
}

}  // namespace

String iRange::SrchForQZTag(const host::RangePtr& vCell, const String& vStart, int32_t vStartLen,
                            const String& vEnd, int32_t vEndLen) {
  return sorted_scan(vCell, vStart, vStartLen, vEnd, vEndLen, [&](host::Name& name) {
    return xl().intersect(name.refers_to_range(), require(vCell)) != nullptr;
  });
}

String iRange::SrchForQZCellTag(const host::RangePtr& vCell, const String& vStart,
                                int32_t vStartLen, const String& vEnd, int32_t vEndLen) {
  return sorted_scan(vCell, vStart, vStartLen, vEnd, vEndLen, [&](host::Name& name) {
    return require(name.refers_to_range())->address() == require(vCell)->address();
  });
}

String iRange::FindQZTag(const host::RangePtr& vCell, const String& vStart, int32_t vStartLen,
                         const String& vEnd, int32_t vEndLen, bool vLookForRangeNames) {
  const host::NamePtr own = value_or(host::NamePtr(), [&] { return require(vCell)->name(); });
  const String text = own ? value_or(String(), [&] { return unqualified(own->name()); }) : String();
  if (!own) {
    if (vLookForRangeNames) return SrchForQZTag(vCell, vStart, vStartLen, vEnd, vEndLen);
    return String();
  }
  const int order = compare_start(text, vStart, vStartLen);
  if (order > 0) return String();
  if (order == 0 && right(text, vEndLen) == StringView(vEnd)) return text;
  return SrchForQZTag(vCell, vStart, vStartLen, vEnd, vEndLen);
}

String iRange::FindSpecificQZTag(const host::RangePtr& vCell, const String& vStart,
                                 int32_t vStartLen, const String& vEnd, int32_t vEndLen) {
  const host::NamePtr own = value_or(host::NamePtr(), [&] { return require(vCell)->name(); });
  if (!own) return String();
  const String text = value_or(String(), [&] { return unqualified(own->name()); });
  const int order = compare_start(text, vStart, vStartLen);
  if (order > 0) return String();
  if (order == 0 && right(text, vEndLen) == StringView(vEnd)) return text;
  return SrchForQZCellTag(vCell, vStart, vStartLen, vEnd, vEndLen);
}

bool iRange::AssignRangeTag(const host::RangePtr& vRange, String& rQZWksName, String& rLandmark,
                            const String& vDirtyTagName, bool* rDidCreate) {
  bool result = false;
  host::WorksheetPtr wks;
  step([&] { wks = require(require(vRange)->worksheet()); });
  step([&] {
    rQZWksName = require(frame::session().LibWorksheet)->AssignQZWksName(wks, vDirtyTagName);
  });

  const host::NamePtr own = value_or(host::NamePtr(), [&] { return require(vRange)->name(); });
  host::NamePtr added;
  if (!own) {
    // The identifier comes from the session's sibling services: without them there is no
    // tag text, and so no name is added.
    String tag;
    step([&] {
      tag = u"_bqz." + require(require(frame::session().VBLib)->iGUID)->new_guid() + u".eqz";
    });
    if (!tag.empty()) {
      step([&] {
        host::NameAddArgs args;
        args.name = Variant(tag);
        args.refers_to = Variant(require(vRange));
        args.visible = Variant(false);
        added = require(require(require(wks)->names())->add(args));
      });
    }
    step([&] { rLandmark = require(added)->name(); });
    // Each step goes on after a failed one, as everywhere else: the caller is told a tag was
    // made even when the worksheet refused the name, and keeps its own landmark then.
    if (rDidCreate) *rDidCreate = true;
    result = true;
  } else {
    // The caller's landmark stands when it still resolves to this very range.
    const bool same = value_or(false, [&] {
      const host::RangePtr at = require(require(wks)->range(Variant(rLandmark)));
      return to_upper(at->address(true, true, host::xl::A1, true)) ==
             to_upper(vRange->address(true, true, host::xl::A1, true));
    });
    if (!same) step([&] { rLandmark = own->name(); });
    // True when the landmark is none of the worksheet's own names.
    result = !value_or(
        false, [&] { return require(require(wks)->names())->item(Variant(rLandmark)) != nullptr; });
  }
  rLandmark = unqualified(rLandmark);

  // A workbook that gained a tag must be saved; the client reads this mark to know it. Only a
  // name actually added marks it.
  if (added) {
    step([&] {
      const host::WorkbookPtr wkb = require(wks->parent());
      auto& props = *require(require(frame::session().VBLib)->iDocProp);
      props.prepare(wkb, vDirtyTagName);
      props.set_text(wkb, vDirtyTagName, u"true");
    });
  }
  return result;
}

host::RangePtr iRange::RangeFromLandmark(const host::WorkbookPtr& vWkb, const String& vLandmark,
                                         const String& vQZWksName, const Variant& vWksName) {
  if (!vWkb || vLandmark.empty()) return nullptr;
  return value_or(host::RangePtr(), [&] {
    if (vQZWksName.empty())  // a workbook-level name
      return require(require(require(vWkb->names())->item(Variant(vLandmark))))->refers_to_range();
    const host::WorksheetPtr wks =
        require(frame::session().LibWorksheet)->WksFromLandmark(vWkb, vQZWksName, vWksName);
    return require(wks)->range(Variant(vLandmark));
  });
}

void iRange::EraseNamesInRange(const host::RangePtr& vRange) {
  host::RangePtr range = vRange;
  if (!range) step([&] { range = std::dynamic_pointer_cast<host::Range>(xl().selection()); });
  // The names are listed first, so that deleting one does not shift the rest under the walk.
  std::vector<host::NamePtr> names;
  step([&] {
    const host::NamesPtr all = require(require(require(range)->worksheet())->names());
    const int32_t count = all->count();
    for (int32_t i = 1; i <= count; ++i) step([&] { names.push_back(all->item(Variant(i))); });
  });
  // A name touching any cell of the range touches the range: one intersection per name
  // gives what a walk over its cells would.
  for (const host::NamePtr& name : names) {
    const bool touches = value_or(false, [&] {
      return xl().intersect(require(name)->refers_to_range(), require(range)) != nullptr;
    });
    if (touches) step([&] { name->delete_(); });
  }
}

}  // namespace qz
