#include "workbook/display.hpp"

#include <algorithm>

#include "qzxl/convert.hpp"
#include "workbook/services.hpp"

namespace qz {

namespace {

struct Listing {
  std::vector<String> headers;
};

constexpr int32_t kLabelRow = 1;
constexpr int32_t kHeaderRow = 3;  // a blank row apart, so the filter does not take the label
// Fitted widths stay readable for long descriptions.
constexpr size_t kWidestColumn = 100;

bool is_blank(const Variant& v) {
  return v.is_empty() || v.is_null() || v.is_missing() || (v.is_string() && v.str().empty());
}

// A value as the list shows it: numbers, dates, Booleans and errors as they are; text kept as
// text by its leading apostrophe; anything else (objects, nested arrays) left blank.
Variant cell_value(const Variant& v) {
  if (v.is_string()) return v.str().empty() ? Variant() : Variant(u"'" + v.str());
  if (v.is_number() || v.is_bool() || v.is_date() || v.is_error()) return v;
  return Variant();
}

// What a person reads in the cell, for fitting its column.
size_t shown_length(const Variant& v) {
  if (v.is_string()) return v.str().size() - (v.str().rfind(u"'", 0) == 0 ? 1 : 0);
  if (v.is_empty() || v.is_error()) return v.is_error() ? 7 : 0;
  return value_or(String(), [&] { return to_string(v); }).size();
}

// The entries of the client's array, each as its columns.
std::vector<std::vector<Variant>> entries_of(const Array& array) {
  std::vector<std::vector<Variant>> rows;
  for (const Variant& element : array.items) {
    std::vector<Variant> row;
    if (element.is_array())
      for (const Variant& column : element.array().items) row.push_back(cell_value(column));
    else
      row.push_back(cell_value(element));
    if (std::all_of(row.begin(), row.end(), is_blank)) continue;
    rows.push_back(std::move(row));
  }
  return rows;
}

void display(const Variant& array, const host::WorksheetPtr& given, const String& top_label,
             const Listing& listing) {
  if (!array.is_array()) return;
  std::vector<std::vector<Variant>> rows = entries_of(array.array());
  // Without a sheet the list goes on the active one; a chart sheet has no cells for it.
  host::WorksheetPtr wks = given;
  if (!wks)
    step([&] { wks = std::dynamic_pointer_cast<host::Worksheet>(wb::app()->active_sheet()); });
  if (!wks) return;

  size_t columns = listing.headers.size();
  for (const auto& row : rows) columns = std::max(columns, row.size());
  std::vector<Variant> header;
  for (size_t c = 0; c < columns; ++c)
    header.emplace_back(c < listing.headers.size() ? listing.headers[c]
                                                   : u"Column " + wb::digits(c + 1));
  std::vector<size_t> widths(columns, 0);
  for (size_t c = 0; c < columns; ++c) widths[c] = shown_length(header[c]);
  std::vector<Variant> block;
  for (auto& row : rows) {
    row.resize(columns);
    for (size_t c = 0; c < columns; ++c) widths[c] = std::max(widths[c], shown_length(row[c]));
    block.emplace_back(one_based(std::move(row)));
  }
  const auto width = static_cast<int32_t>(columns);
  const auto height = static_cast<int32_t>(block.size());

  // An earlier list, or whatever else was there, goes first: the sheet's working area, from
  // A1 to its last cell.
  step([&] { require(require(frame::session().LibWorksheet)->QZUsedRange(wks))->clear(); });
  step([&] {
    host::RangePtr label = wks->cell(kLabelRow, 1);
    label->set_value(Variant(u"'" + top_label));
    label->font()->set_bold(Variant(true));
  });
  host::RangePtr heading =
      value_or(host::RangePtr(), [&] { return wks->cell(kHeaderRow, 1)->resize(1, width); });
  step([&] {
    require(heading)->set_value(Variant(one_based({Variant(one_based(header))})));
    heading->font()->set_bold(Variant(true));
  });
  if (height > 0) {
    step([&] {
      wks->cell(kHeaderRow + 1, 1)->resize(height, width)->set_value(Variant(one_based(block)));
    });
  }
  // The application's filter buttons over the list; a host without filters still gets the
  // headed list. Buttons the sheet already shows go first: AutoFilter alone would turn them
  // off rather than move them.
  step([&] {
    if (wks->auto_filter_mode()) wks->set_auto_filter_mode(false);
  });
  step([&] { wks->cell(kHeaderRow, 1)->resize(height + 1, width)->auto_filter(); });
  // The columns are fitted as the application measures the list's texts in their fonts (the
  // label above is left out, so that it does not widen the first column). A host that cannot
  // fit columns gets widths from the number of characters instead.
  if (step([&] {
        late::call(wks->cell(kHeaderRow, 1)->resize(height + 1, width)->columns(), u"AutoFit");
      }))
    widths.clear();
  for (int32_t c = 1; c <= static_cast<int32_t>(widths.size()); ++c) {
    // Two characters more than the longest text: room for the bold header and its button.
    double fitted =
        static_cast<double>(std::min(widths[static_cast<size_t>(c - 1)] + 2, kWidestColumn));
    step([&] { wks->cell(kHeaderRow, c)->entire_column()->set_column_width(fitted); });
  }
  step([&] {
    wks->parent()->activate();
    wks->activate();
    wks->cell(1, 1)->select();
  });
}

}  // namespace

void iDisplay::DisplayKeyArray(const Variant& vKeyArray, const host::WorksheetPtr& vWks,
                               const String& vTopLabel) {
  display(vKeyArray, vWks, vTopLabel, {{u"Key", u"Description"}});
}

void iDisplay::DisplayMacroArray(const Variant& vMacroArray, const host::WorksheetPtr& vWks,
                                 const String& vTopLabel) {
  display(vMacroArray, vWks, vTopLabel, {{u"Macro", u"Description"}});
}

void iDisplay::DisplayHotKeyArray(const Variant& vHotKeyArray, const host::WorksheetPtr& vWks,
                                  const String& vTopLabel) {
  display(vHotKeyArray, vWks, vTopLabel, {{u"Hot Key", u"Macro", u"Description"}});
}

}  // namespace qz
