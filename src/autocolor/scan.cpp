// A colouring run over a host that can read its cells in bulk: the same rules as cell by
// cell, without a Range, a Font and a Hyperlinks object made for every cell visited. On a
// model of a million cells those objects, not the rules, were most of a run's time.
#include "autocolor/rules.hpp"
#include "frame/resume.hpp"
#include "frame/session.hpp"
#include "host/cell_scan.hpp"
#include "qzxl/convert.hpp"
#include "vblib/vblib.hpp"

namespace qz {

bool iAutoColor::color_scanned(const host::RangePtr& range, autocolor::Knobs& knobs,
                               const std::function<void(int64_t)>& visited) {
  auto* scan = dynamic_cast<host::CellScan*>(range.get());
  if (!scan) return false;
  // The veto asks a client about each cell in turn, with the cell's colour; such a run goes
  // cell by cell.
  if (frame::session().Products && frame::session().Products->contains(autocolor::kVetoProduct))
    return false;
  int32_t top = 1, left = 1, width = 1;
  // Positions for the progress display are counted in one block of cells.
  if (value_or(0, [&] { return range->areas()->count(); }) != 1) return false;
  if (!step([&] {
        top = range->row();
        left = range->column();
        width = range->columns()->count();
      }))
    return false;
  // Cells of rows or columns that are hidden, or that an observer needs as ranges, are
  // reached through a Range as before.
  auto cell_at = [&](int32_t row, int32_t column) {
    return value_or(host::RangePtr(),
                    [&] { return range->cell(row - top + 1, column - left + 1); });
  };

  // Deciding reads each cell only, so the colours are set after the walk, in its order,
  // which is the order the cell-by-cell run sets them in.
  std::vector<host::Paint> paints;
  host::ScanRequest request;
  request.hyperlinks = knobs.hyperlinks();
  request.colons = !knobs.dates();
  request.font_colors = observer_ && !observer_->needs_cells();
  // Only an observer that is handed cells as ranges reaches the host during the walk.
  request.visitor_stays_out = !(observer_ && observer_->needs_cells());
  autocolor::Subject s;
  const Variant no_colour = Variant::null();
  const bool scanned = value_or(false, [&] {
    return scan->scan(request, [&](const host::ScannedCell& cell) {
      const int32_t row = cell.row, column = cell.column;
      const Variant& value = cell.value;
      visited((static_cast<int64_t>(row - top) * width) + (column - left) + 1);
      const int32_t links = cell.hyperlinks;
      s.reread(cell.formula, cell.prefix, links);

      // The text and date opt-outs, told apart as the cell types are.
      std::optional<autocolor::Outcome> skipped;
      if (!(knobs.hyperlinks() && links > 0)) {
        if (value.is_string()) {
          if (!knobs.text()) skipped = autocolor::Outcome::SkippedText;
        } else if (!value.is_bool() && !value.is_error() && !knobs.dates()) {
          if (value.is_date() || cell.shows_colon) skipped = autocolor::Outcome::SkippedDate;
        }
      }
      std::optional<int32_t> colour;
      autocolor::Outcome outcome = skipped.value_or(autocolor::Outcome::Input);
      if (!skipped) {
        colour = autocolor::decide(s, knobs, false, nullptr, &outcome);
        paints.push_back({row, column, *colour});
      }
      if (observer_) {
        if (observer_->needs_cells())
          observer_->decided(cell_at(row, column), outcome, colour);
        else
          observer_->decided_colour(colour ? cell.font_color : no_colour, outcome, colour);
      }
      return true;
    });
  });
  if (!scanned) return false;

  // Hidden rows and columns are shown for the moment a colour takes, through a Range.
  step([&] {
    scan->set_font_colors(paints, [&](const host::Paint& p) {
      autocolor::paint(cell_at(p.row, p.column), p.colour);
    });
  });
  return true;
}

}  // namespace qz
