// The parsed form of a formula, shared by the parser, the renderer, the adjuster and the
// evaluator. Internal to the calc component.
//
// A formula is a tree stored flat in post-order: every node follows its children, and a node
// records how many nodes its subtree holds, so a subtree is a contiguous slice and walking it
// needs no pointers. Text the renderer must reproduce (blanks, number spellings, names as
// typed) lives in a small per-formula pool; index 0 of the pool is always the empty string, so
// most nodes carry no text at all.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/calc/calc.hpp"

namespace qz::engine::calc {

enum class NodeKind : uint8_t {
  Number,   ///< number; `str` holds the spelling when it differs from the canonical one
  Text,     ///< string literal; `str` holds the value (without quotes)
  Boolean,  ///< TRUE/FALSE; `number` 0/1
  Error,    ///< error literal; `number` holds the code
  Ref,      ///< reference; `ref` indexes Formula::refs
  Name,     ///< defined name; `str` as typed; `ref` indexes a RefInfo for a sheet or book prefix
  Func,     ///< function call; `str` the name as typed; `func` the known function or -1
  Unary,    ///< prefix operator; `op`
  Percent,  ///< postfix %
  Binary,   ///< binary operator; `op`
  Paren,    ///< parentheses around one child
  Array,    ///< array constant; children row by row; `cols` per row
  Missing,  ///< an argument left empty ("IF(A1,,1)")
  Opaque,   ///< a structured reference kept as written; `str`
  Spill,    ///< postfix #: the block spilled from an anchor cell
  Invoke,   ///< a call of a function value, "LAMBDA(x,x+1)(2)": the callee, then the arguments
};

/// Operators, as typed.
enum class Op : uint8_t {
  None,
  Add,
  Sub,
  Mul,
  Div,
  Pow,
  Concat,
  Eq,
  Ne,
  Lt,
  Le,
  Gt,
  Ge,
  Range,      ///< ":"
  Union,      ///< ","
  Intersect,  ///< blanks between two references; `str` holds the blanks
  Neg,        ///< unary -
  Plus,       ///< unary +
  At,         ///< unary @ (implicit intersection)
};

inline constexpr uint32_t kNoRef = 0xFFFFFFFFu;

struct Node {
  NodeKind kind = NodeKind::Number;
  Op op = Op::None;
  uint16_t nargs = 0;  ///< number of children
  uint32_t size = 1;   ///< nodes in this subtree, the node itself included
  uint32_t str = 0;    ///< pool index of the node's text (0 = none)
  uint32_t ws = 0;     ///< pool index of the blanks before the node's own first token
  /// Pool index of the first of the blanks before each separator and the closing bracket
  /// (Func: nargs entries, at least one; Array: one per element; Paren: one). 0 = all empty.
  uint32_t ws2 = 0;
  union {
    double number = 0;
    uint32_t ref;  ///< Ref, Name: index into Formula::refs (Name: kNoRef when unqualified)
    int32_t func;  ///< Func: function index, -1 when unknown
    int32_t cols;  ///< Array: elements per row
  };
};

enum class RefKind : uint8_t { Cell, Area, Cols, Rows };

/// One corner of a reference: an absolute 0-based index where the part is absolute, the
/// offset from the formula's cell where it is relative.
struct RefPart {
  int32_t row = 0;
  int32_t col = 0;
  bool row_abs = false;
  bool col_abs = false;
  friend bool operator==(const RefPart&, const RefPart&) = default;
};

struct RefInfo {
  RefKind kind = RefKind::Cell;
  RefPart a, b;                ///< b is used by Area, Cols and Rows
  SheetId sheet = kNoSheet;    ///< kNoSheet: the formula's own sheet
  SheetId sheet2 = kNoSheet;   ///< the last sheet of a 3-D reference, else kNoSheet
  uint32_t external = 0;       ///< pool index of another workbook's prefix, as written
  bool has_sheet = false;      ///< written with a sheet name
  bool quoted = false;         ///< the sheet name was written in quotes
  bool deleted = false;        ///< the reference lost its cells: renders "#REF!"
  bool sheet_deleted = false;  ///< written "#REF!A1": the sheet is gone
  bool name_only = false;      ///< a prefix for a Name node, no cells of its own
};

class Formula {
 public:
  std::vector<Node> nodes;  ///< post-order; the root is last
  std::vector<RefInfo> refs;
  std::vector<String> pool{String()};
  uint32_t trailing_ws = 0;  ///< blanks after the last token
  bool is_volatile = false;
  bool has_unknown_function = false;

  uint32_t root() const { return static_cast<uint32_t>(nodes.size() - 1); }
  const String& text(uint32_t index) const { return pool[index]; }
  /// The blanks before separator `k` (or the closing bracket) of node `n`.
  const String& ws2(const Node& n, uint32_t k) const {
    return n.ws2 == 0 ? pool[0] : pool[n.ws2 + k];
  }
  /// Indices of the children of node `i`, first to last.
  template <class Vec>
  void children(uint32_t i, Vec& out) const {
    const Node& n = nodes[i];
    out.resize(n.nargs);
    // Child k's root sits just before child k+1's subtree; the last child's root is i - 1.
    uint32_t end = i - 1;
    for (int k = n.nargs - 1; k >= 0; --k) {
      out[k] = end;
      end -= nodes[end].size;
    }
  }
};

/// Parses into `f`, which holds what a new Formula holds (its vectors may keep capacity).
void parse_into(Formula& f, StringView text, Notation notation, CellRef origin, SheetId home,
                const SheetResolver& sheets);

/// Index of the first (leftmost) node of the subtree rooted at `i`.
inline uint32_t subtree_begin(const Formula& f, uint32_t i) {
  return i + 1 - f.nodes[i].size;
}

/// The functions evaluation knows.
struct FunctionInfo;
/// The index of a function by its upper-case name without _xlfn./_xlws. prefixes; -1 if unknown.
int32_t find_function(StringView upper_name);
bool function_is_volatile(int32_t index);

/// A number as the application spells it in a formula (up to 15 significant digits).
String canonical_number(double v);

/// Quotes a sheet name for a formula when it needs it.
bool sheet_name_needs_quotes(StringView name);
/// Column letters of a 0-based column ("A", "XFD").
String column_letters(int32_t col);

}  // namespace qz::engine::calc
