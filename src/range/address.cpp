// Range addresses and references: expanding and merging address lists, resolving
// sheet-level addresses, bringing a range on screen, display names, the filled block beside
// a cell.
#include "qzxl/convert.hpp"
#include "range/range.hpp"
#include "range/support.hpp"
#include "vblib/vblib.hpp"

namespace qz {

using range_support::is_empty_cell;
using range_support::xl;
using vblib::Strings;

String iRange::SplitRange(const String& vRangeString, std::vector<String>& rPieces,
                          int32_t* rLenAdjustment, bool vExclSheetName) {
  rPieces.clear();
  String sheet;
  const String address = Strings::qualifier_split(vRangeString, true, sheet);
  // The address part alone is resolved, so an unqualified address means the active sheet
  // whatever sheet name the text carried.
  host::RangePtr range;
  host::RangePtr cells;
  int64_t count = 0;
  step([&] {
    range = require(xl().range(Variant(address)));
    cells = require(range->cells());
    count = range->count();
  });
  String result;
  // Text the application cannot resolve gives no pieces and an empty result; the adjustment
  // is still worked out below, so a caller editing a formula in place sees the text gone.
  const int64_t n = range && count > 0 ? count : 0;
  rPieces.resize(static_cast<size_t>(n));
  const String qualifier = u"'" + sheet + u"'!";
  for (int64_t i = 1; i <= n; ++i) {
    String& piece = rPieces[static_cast<size_t>(i - 1)];
    step([&] {
      const String cell = require(cells->item(i))->address(false, false);
      // The sheet name is always quoted, whether or not the application would need it.
      piece = sheet.empty() || vExclSheetName ? cell : qualifier + cell;
    });
    result += piece;
    if (i < n) result += u',';
  }
  if (rLenAdjustment)
    *rLenAdjustment =
        static_cast<int32_t>(result.size()) - static_cast<int32_t>(vRangeString.size());
  return result;
}

String iRange::MergeRanges(const String& vSequenceString, int32_t* rLenAdjustment) {
  // The first failure ends the method (an address the application cannot resolve, areas on
  // two sheets): the result is then empty and the caller's adjustment is left alone.
  try {
    std::vector<String> pieces = Strings::split(vSequenceString, u",", -1, 1);
    for (String& piece : pieces) {
      piece = String(trim(piece));
      // A subtraction cannot be folded into a union.
      if (!piece.empty() && piece.front() == u'-') return vSequenceString;
      if (!piece.empty() && piece.front() == u'+')
        piece = String(trim(StringView(piece).substr(1)));
    }
    String qualifier;
    Strings::qualifier_split(pieces.at(0), false, qualifier);
    host::Application& app = xl();
    host::RangePtr merged = require(app.range(Variant(pieces.at(0))));
    for (size_t i = 1; i < pieces.size(); ++i)
      merged = require(app.union_(merged, require(app.range(Variant(pieces[i])))));
    // Every area carries the first piece's qualifier: 'Data'!A1:A3,'Data'!C5.
    const String address = merged->address(false, false);
    const String result = qualifier + Strings::replace(address, u",", u"," + qualifier, 1, -1, 1);
    if (rLenAdjustment)
      *rLenAdjustment =
          static_cast<int32_t>(result.size()) - static_cast<int32_t>(vSequenceString.size());
    return result;
  } catch (...) {
    return String();
  }
}

host::RangePtr iRange::RefRange(const host::WorkbookPtr& vWkb, const String& vSheetLevelAddr) {
  host::ApplicationPtr app;
  String name;
  step([&] { app = require(vWkb)->application(); });
  step([&] { name = require(vWkb)->name(); });
  return RangeFromAddr(app, name, vSheetLevelAddr);
}

host::RangePtr iRange::RangeFromAddr(const host::ApplicationPtr& vXL, const String& vWkbName,
                                     const String& vSheetLevelAddr) {
  return value_or(host::RangePtr(), [&] {
    const host::WorkbookPtr wkb = require(require(vXL)->workbooks())->item(Variant(vWkbName));
    String sheet;
    const String address = Strings::qualifier_split(vSheetLevelAddr, true, sheet);
    const auto wks = std::dynamic_pointer_cast<host::Worksheet>(
        require(require(wkb)->sheets())->item(Variant(sheet)));
    // A defined name in the address part resolves like an address.
    return require(wks)->range(Variant(address));
  });
}

void iRange::RangeActivate(const host::RangePtr& vRange) {
  host::WorksheetPtr wks;
  step([&] { wks = require(vRange)->worksheet(); });
  step([&] { require(require(wks)->parent())->activate(); });
  step([&] { require(wks)->activate(); });
  step([&] { require(vRange)->select(); });
}

String iRange::RangeNameFriendly(const host::NamePtr& vXLName, const String& vFullName) {
  String full = vFullName;
  bool visible = true;
  if (vXLName) {
    visible = false;
    step([&] { full = vXLName->name(); });
    step([&] { visible = vXLName->visible(); });
  }
  // Hidden names are the library's own tags.
  if (!visible) return u"Auto-generated range name";
  if (full.find(u'!') == String::npos) return full;
  String sheet;
  const String name = Strings::qualifier_split(full, true, sheet);
  return name + u" (" + sheet + u")";
}

host::RangePtr iRange::AdjustedRange(const host::RangePtr& vOrig) {
  host::Application* app = value_or<host::Application*>(nullptr, [] { return &xl(); });
  host::RangePtr selected;
  bool updating = true;
  if (app) {
    step([&] {
      selected = require(require(std::dynamic_pointer_cast<host::Range>(app->selection()))->areas())
                     ->item(1);
    });
    step([&] { updating = app->screen_updating(); });
    step([&] { app->set_screen_updating(false); });
  }

  host::RangePtr result;
  step([&] {
    const host::RangePtr top = require(require(vOrig)->cell(1, 1));
    // The end of the filled run from `top` in one direction; `top` itself when the
    // neighbour is empty or the run ends on an empty cell.
    auto run_end = [&](int32_t rows, int32_t columns, int32_t direction) {
      if (is_empty_cell(value_or(host::RangePtr(), [&] { return top->offset(rows, columns); })))
        return top;
      host::RangePtr end = value_or(host::RangePtr(), [&] { return top->end(direction); });
      return end && !is_empty_cell(end) ? end : top;
    };
    const host::RangePtr right = run_end(0, 1, host::xl::ToRight);
    const host::RangePtr bottom = run_end(1, 0, host::xl::Down);
    const host::WorksheetPtr wks = require(top->worksheet());
    const host::RangePtr corner = wks->cell(bottom->row(), right->column());
    result = wks->range(Variant(top), Variant(corner));
  });

  // A selection of several areas comes back as its first area alone.
  if (app) {
    step([&] { require(selected)->select(); });
    step([&] { app->set_screen_updating(updating); });
  }
  return result;
}

}  // namespace qz
