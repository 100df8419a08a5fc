// A worksheet's cells: the 16-byte stored cell, the formula cell's state (and how a loaded
// formula was written in its file), and the sparse store that keeps cells per column in sorted
// chunks.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/calc/calc.hpp"
#include "qzxl/variant.hpp"

namespace qz::engine {

using calc::CellRef;
using calc::Rect;
using calc::SheetId;

/// Last row and column, 0-based.
inline constexpr int32_t kLastRow = calc::kMaxRows - 1;
inline constexpr int32_t kLastCol = calc::kMaxCols - 1;

// ---------------------------------------------------------------------------------------------
// Cells

enum class CellKind : uint8_t {
  Blank,    ///< no value; kept because it has a format
  Number,   ///< `num`
  Text,     ///< `index` into the StringPool
  Boolean,  ///< `num` 0 or 1
  Error,    ///< `num` the error code (2007 #DIV/0!, ...)
  Formula,  ///< `index` into the sheet's formula table
};

/// One stored cell: 16 bytes, so that a million numbers stay well under 40 bytes each.
struct Cell {
  int32_t row = 0;
  uint32_t bits = 0;  // low 4 bits: kind; the rest: the xf index
  union {
    double num;
    uint32_t index;
  };
  Cell() : num(0) {}

  CellKind kind() const { return static_cast<CellKind>(bits & 15u); }
  uint32_t style() const { return bits >> 4; }
  void set_kind(CellKind k) { bits = (bits & ~15u) | static_cast<uint32_t>(k); }
  void set_style(uint32_t xf) { bits = (bits & 15u) | (xf << 4); }
  /// Has a value or a formula (what Ctrl+arrow and `Value` see as non-empty).
  bool has_content() const { return kind() != CellKind::Blank; }
};
static_assert(sizeof(Cell) == 16);

/// How a formula was written in the file it came from; kept so that an unchanged formula is
/// written back exactly as read. A loaded workbook holds one per formula cell, often millions,
/// so the record is small: the text stays in the file's UTF-8 (formulas are nearly always
/// short ASCII, which fits inside the string itself) and is widened only when someone reads or
/// parses it; what only some formulas carry sits behind one pointer.
struct FileFormula {
  /// The <f> element's t attribute.
  enum class Type : uint8_t {
    None,       ///< no t attribute
    Normal,     ///< t="normal"
    Shared,     ///< t="shared"
    Array,      ///< t="array"
    DataTable,  ///< t="dataTable"
    Other,      ///< another value, kept in `rare->type`
  };
  /// What few formulas have.
  struct Rare {
    String type;  ///< the t attribute when `Type::Other`
    String ref;   ///< the ref attribute (shared master, array, data table)
    /// Other attributes of <f> as name/value pairs (aca, ca, dt2D, ...).
    std::vector<std::pair<String, String>> attrs;
    /// Attributes of the <c> element the model does not describe (cm, vm, ph).
    std::vector<std::pair<String, String>> cell_attrs;
  };

  std::string text;  ///< the <f> text as read (UTF-8, without "="); "" for a shared child
  Type type = Type::None;
  /// The element's other attributes are exactly aca="false". One writer puts that on every
  /// formula; as a flag it costs nothing, where a `rare` record per formula would be the
  /// largest part of a loaded workbook's memory. Never set together with `rare->attrs`.
  bool aca_false = false;
  int32_t shared_index = -1;
  std::unique_ptr<Rare> rare;  ///< nullptr when there is nothing rare

  /// `rare`, made when absent (for a loader).
  Rare& more() {
    if (!rare) rare = std::make_unique<Rare>();
    return *rare;
  }
  /// The ref attribute; "" when absent.
  const String& ref() const;
  /// The t attribute as the file wrote it; "" when absent.
  String type_text() const;
  /// Sets `type` (and `rare->type` for values without a name here) from a t attribute.
  void set_type(std::string_view t);
  /// Adds an attribute of <f> besides t, ref and si, after those added before.
  void add_attr(std::string_view name, std::string_view value);
  /// The text, widened.
  String text16() const;
};

/// A formula cell's state.
struct FormulaCell {
  CellRef at;                         ///< where it is (kept in step with structural changes)
  calc::FormulaPtr parsed;            ///< nullptr until parsed (formulas from files parse lazily)
  calc::Value value;                  ///< the last calculated (or loaded) value
  std::unique_ptr<FileFormula> file;  ///< as read from a file; dropped when the formula changes
  /// For a shared-formula child read from a file: the master's position (its parsed formula
  /// is shared, since references are stored relative).
  std::optional<CellRef> shared_master;
  bool array = false;  ///< an array formula (entered over `array_ref`)
  Rect array_ref;
  /// A formula whose result spills: `array_ref` is where it spilled, and it follows the size
  /// of the result as it changes.
  bool spills = false;
  bool dirty = false;        ///< needs recalculation
  bool in_progress = false;  ///< on the evaluation path (circular references see it)
  bool is_volatile = false;
  bool live = false;  ///< slot in use
  /// Its value may differ from the application's for reasons outside the calculation: it calls
  /// a volatile function or one that needs an outside source, reads another workbook, or
  /// reads a cell that does (followed only when Book::trace_uncertain is set).
  bool uncertain = false;
};

/// A sparse cell store for one worksheet: per column, sorted chunks of cells.
class CellStore {
 public:
  const Cell* find(int32_t row, int32_t col) const;
  Cell* find(int32_t row, int32_t col);
  /// The cell, created Blank with style `style` when absent.
  Cell& get_or_create(int32_t row, int32_t col, uint32_t style = 0);
  void erase(int32_t row, int32_t col);

  /// Visits the stored cells of `area` row by row, left to right. Stops when `visit` returns
  /// false.
  void for_each(const Rect& area,
                const std::function<bool(int32_t row, int32_t col, const Cell&)>& visit) const;
  /// The same walk over the whole store for visitors called once per stored cell (writing a
  /// sheet out): `visit(row, col, cell)` is called directly, without a std::function, and
  /// narrow or dense sheets merge their columns by a scan per row instead of through a heap.
  /// Never stops early.
  template <class Visit>
  void for_each_cell(Visit&& visit) const;
  /// Mutable visit (same order); the visitor may change the cell but not add or erase cells.
  void for_each_mut(const Rect& area,
                    const std::function<void(int32_t row, int32_t col, Cell&)>& visit);
  /// Stored cells of one column between rows r1 and r2, top down.
  void for_each_in_column(int32_t col, int32_t r1, int32_t r2,
                          const std::function<bool(int32_t row, const Cell&)>& visit) const;
  /// Number of stored cells inside `area`.
  size_t count_in(const Rect& area) const;

  /// The nearest row in `col` after (`down`) or before `row` whose cell has content.
  std::optional<int32_t> next_content_in_column(int32_t col, int32_t row, bool down) const;

  size_t size() const { return size_; }
  /// Changes whenever cells are added, removed or moved, so that a caller holding cell
  /// pointers knows whether they still hold.
  uint64_t shape() const { return shape_; }
  /// The bottom-right corner of all stored cells; nothing when empty.
  std::optional<Rect> extent() const;
  /// Columns that may hold cells: 0 .. column_span()-1.
  int32_t column_span() const { return static_cast<int32_t>(cols_.size()); }

  /// Shifts cells for inserted or deleted rows/columns; deleted cells are handed to
  /// `removed` first (so their formula slots can be freed).
  void insert_rows(int32_t at, int32_t count);
  void delete_rows(int32_t at, int32_t count, const std::function<void(const Cell&)>& removed);
  void insert_cols(int32_t at, int32_t count);
  void delete_cols(int32_t at, int32_t count, const std::function<void(const Cell&)>& removed);
  void clear();

  size_t memory_bytes() const;

 private:
  using Chunk = std::vector<Cell>;
  struct Column {
    std::vector<Chunk> chunks;
  };
  static constexpr size_t kChunk = 512;
  /// Up to this many used columns (or more, when the cells fill most of their rows) a
  /// row-order walk scans every column's cursor per row; the scan costs one comparison per
  /// column and row, which beats a heap's reordering per cell until rows hold few of the
  /// columns.
  static constexpr size_t kMergeByScan = 64;
  static Cell* find_in(Column& c, int32_t row);
  std::vector<Column> cols_;
  size_t size_ = 0;
  uint64_t shape_ = 0;
};

template <class Visit>
void CellStore::for_each_cell(Visit&& visit) const {
  struct Cursor {
    int32_t col;
    const Chunk* chunk;  // the chunk `at` is in
    const Chunk* last;   // the column's last chunk
    const Cell* at;
  };
  std::vector<Cursor> cur;
  for (size_t col = 0; col < cols_.size(); ++col) {
    const auto& chunks = cols_[col].chunks;
    if (!chunks.empty())
      cur.push_back(
          {static_cast<int32_t>(col), &chunks.front(), &chunks.back(), chunks.front().data()});
  }
  // The scan costs a step per cursor and row; beyond kMergeByScan columns it is used only when
  // rows hold a good share of the columns (a wide block of data), and a heap merges sparse
  // ones.
  int32_t first = kLastRow, last = 0;
  for (const Cursor& c : cur) {
    first = std::min(first, c.at->row);
    last = std::max(last, c.last->back().row);
  }
  const uint64_t scan_steps =
      static_cast<uint64_t>(cur.size()) * (cur.empty() ? 0 : last - first + 1);
  if (cur.size() > kMergeByScan && scan_steps > 4 * static_cast<uint64_t>(size_)) {
    for_each(Rect{0, 0, kLastRow, kLastCol}, [&](int32_t r, int32_t c, const Cell& cell) {
      visit(r, c, cell);
      return true;
    });
    return;
  }
  // Cursors stay in column order; each pass visits the cells of the lowest row left and finds
  // the next lowest row on the way. Empty chunks do not occur (erasing drops them).
  constexpr int32_t kDone = kLastRow + 1;
  int32_t row = kDone;
  for (const Cursor& c : cur) row = std::min(row, c.at->row);
  while (row != kDone) {
    int32_t next = kDone;
    for (Cursor& c : cur) {
      if (c.at == nullptr) continue;
      if (c.at->row == row) {
        visit(row, c.col, *c.at);
        if (++c.at == c.chunk->data() + c.chunk->size()) {
          if (c.chunk == c.last) {
            c.at = nullptr;
            continue;
          }
          ++c.chunk;
          c.at = c.chunk->data();
        }
      }
      next = std::min(next, c.at->row);
    }
    row = next;
  }
}

}  // namespace qz::engine
