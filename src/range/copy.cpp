// Copying: a cell's visible format, row and column layout, where a paste lands, blocks with
// their formulas turned into values, and pictures of ranges; with the border, black-font and
// export helpers that copying uses.
#include <filesystem>
#include <fstream>

#include "host/environment.hpp"
#include "qzxl/convert.hpp"
#include "range/range.hpp"
#include "range/support.hpp"
#include "vblib/vblib.hpp"
#include "vocab/atomic_file.hpp"

namespace qz {

void iRange::TransferFormat(const host::RangePtr& vCopyToCell,
                            const host::RangePtr& vCopyFromCell) {
  auto to = [&] { return require(vCopyToCell); };
  auto from = [&] { return require(vCopyFromCell); };
  step([&] { to()->set_horizontal_alignment(from()->horizontal_alignment()); });
  step([&] { to()->set_number_format(to_string(from()->number_format())); });
  step([&] { require(to()->font())->set_color_index(require(from()->font())->color_index()); });
  step([&] { require(to()->font())->set_name(require(from()->font())->name()); });
  step([&] { require(to()->font())->set_font_style(require(from()->font())->font_style()); });
  step([&] { require(to()->font())->set_size(require(from()->font())->size()); });
}

void iRange::CopyRowColAttrs(const host::RangePtr& vFrom, const host::RangePtr& vTo) {
  // The outline level goes first, so that grouping is in place when rows are hidden.
  const int64_t rows =
      value_or(int64_t{0}, [&] { return require(require(vFrom)->rows())->count(); });
  for (int64_t i = 1; i <= rows; ++i) {
    auto src = [&] { return require(require(vFrom->rows())->item(i)); };
    auto dst = [&] { return require(require(require(vTo)->rows())->item(i)); };
    step([&] { dst()->set_outline_level(to_long(src()->outline_level())); });
    step([&] { dst()->set_hidden(to_bool(src()->hidden())); });
    step([&] { dst()->set_row_height(to_double(src()->row_height())); });
  }
  const int64_t columns =
      value_or(int64_t{0}, [&] { return require(require(vFrom)->columns())->count(); });
  for (int64_t j = 1; j <= columns; ++j) {
    auto src = [&] { return require(require(vFrom->columns())->item(j)); };
    auto dst = [&] { return require(require(require(vTo)->columns())->item(j)); };
    step([&] { dst()->set_outline_level(to_long(src()->outline_level())); });
    step([&] { dst()->set_hidden(to_bool(src()->hidden())); });
    step([&] { dst()->set_column_width(to_double(src()->column_width())); });
  }
}

host::RangePtr iRange::PasteRange(const host::RangePtr& vTopLeft,
                                  const host::RangePtr& vCopyRange) {
  return value_or(host::RangePtr(), [&] {
    const auto rows = static_cast<int32_t>(require(require(vCopyRange)->rows())->count());
    const auto columns = static_cast<int32_t>(require(vCopyRange->columns())->count());
    return require(require(vTopLeft)->worksheet())
        ->range(Variant(vTopLeft), Variant(vTopLeft->offset(rows - 1, columns - 1)));
  });
}

void iRange::CopyNoFmlas(const host::RangePtr& vFrom, const host::RangePtr& vTo, bool vBlackFonts,
                         bool vRemoveOSBorder) {
  step([&] { require(vFrom)->copy(require(vTo)); });
  const int64_t count = value_or(int64_t{0}, [&] { return require(vFrom)->count(); });
  host::RangePtr from_cells, to_cells;
  step([&] { from_cells = require(vFrom->cells()); });
  step([&] { to_cells = require(require(vTo)->cells()); });
  for (int64_t i = 1; i <= count; ++i) {
    step([&] {
      const host::RangePtr src = require(require(from_cells)->item(i));
      // Text coloured like its fill is hidden on purpose; such a cell keeps what the copy
      // put there, formula and all.
      if (require(src->interior())->color() == require(src->font())->color()) return;
      const host::RangePtr dst = require(require(to_cells)->item(i));
      const Variant value = src->value();
      if (src->prefix_character() == u"'") {
        // Text that looked like a number stays text.
        dst->set_formula(u"'" + to_string(value));
      } else if (value.is_string()) {
        dst->set_formula(value.str());
      } else {
        dst->set_value(value);
      }
    });
  }
  if (vBlackFonts) MakeBlackFonts(vTo);
  if (vRemoveOSBorder) RemoveSelOSBorders(vTo, true, true, true, true);
}

bool iRange::CopyRangeToBmpFile(const host::RangePtr& vRange, const String& vFileFullName) {
  if (vFileFullName.empty()) return false;
  step([&] { vblib::Files::remove(vFileFullName); });
  step([&] { require(vRange)->copy_picture(host::xl::Screen, host::xl::Bitmap); });
  // The platform saves whatever bitmap the clipboard holds and then empties and closes the
  // clipboard in every case: the user's clipboard content is given up, by design.
  const bool saved = value_or(false, [&] {
    return require(host::environment().platform)->save_clipboard_bitmap(vFileFullName);
  });
  return saved && value_or(false, [&] { return vblib::Files::exists(vFileFullName); });
}

bool iRange::TakeRangePicture(const host::RangePtr& vRange) {
  // A picture of the range as shown on screen, left on the clipboard for the caller to paste.
  return step([&] { require(vRange)->copy_picture(host::xl::Screen, host::xl::Picture); });
}

// The host model carries no cell borders, so there is nothing to read, remove or restore:
// the three border helpers below do nothing, and the snapshot they pass around is Empty.
void iRange::RestoreOSBorders(const host::RangePtr&, const Variant&) {}
void iRange::RemoveSelOSBorders(const host::RangePtr&, bool, bool, bool, bool) {}
Variant iRange::CommonOSBorders(const host::RangePtr&) {
  return Variant();
}

void iRange::MakeBlackFonts(const host::RangePtr& vRange) {
  step([&] { require(require(vRange)->font())->set_color(Variant(int32_t{0})); });
}

bool iRange::ExportRangeToFile(const host::RangePtr& vRange, const String& vFileFullName) {
  // The range as its cells show it: one line per row, cells separated by tabs, UTF-8. The
  // file appears whole or not at all.
  if (vFileFullName.empty()) return false;
  return step([&] {
    const host::RangePtr range = require(vRange);
    const host::RangePtr first = require(require(range->areas())->item(1));
    const int64_t rows = require(first->rows())->count();
    const int64_t columns = require(first->columns())->count();
    std::string text;
    for (int64_t r = 1; r <= rows; ++r) {
      for (int64_t c = 1; c <= columns; ++c) {
        if (c > 1) text += '\t';
        text += to_utf8(value_or(String(), [&] {
          return require(first->cell(static_cast<int32_t>(r), static_cast<int32_t>(c)))->text();
        }));
      }
      text += '\n';
    }
    const std::filesystem::path target(vFileFullName);
    if (std::string why = write_file_atomically(target, text); !why.empty())
      throw Error(err::host_failure, "cannot write the export file: " + why);
  });
}

}  // namespace qz
