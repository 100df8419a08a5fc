// The calculation check over workbooks read from files.
#include "engine/calc/check.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unordered_map>

#include "engine/calc/formula.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::calc {
namespace {

uint64_t key(int32_t row, int32_t col) {
  return (static_cast<uint64_t>(row) << 14) | static_cast<uint64_t>(col);
}

/// Cached values as evaluation reads them; nothing is recalculated.
class CachedBook : public EvalContext, public SheetResolver {
 public:
  explicit CachedBook(const CheckWorkbook& book) : book_(book), hidden_(book.hidden_rows) {
    std::sort(hidden_.begin(), hidden_.end());
    sheets_.resize(book.sheets.size());
    for (const CheckCell& c : book.cells) {
      if (c.sheet < 0 || c.sheet >= static_cast<SheetId>(sheets_.size())) continue;
      Sheet& s = sheets_[c.sheet];
      Value v = c.has_cached ? c.cached : Value::empty();
      if (!c.has_cached && c.formula.empty()) continue;
      s.cells[key(c.cell.row, c.cell.col)] = v;
      if (!c.formula.empty()) s.formulas[key(c.cell.row, c.cell.col)].text = c.formula;
      s.extent.row = std::max(s.extent.row, c.cell.row);
      s.extent.col = std::max(s.extent.col, c.cell.col);
    }
    for (Sheet& s : sheets_) {
      for (const auto& [k, v] : s.cells) {
        if (v.kind == Value::Kind::Empty) continue;
        s.ordered.push_back({static_cast<int32_t>(k >> 14), static_cast<int32_t>(k & 0x3FFF), &v});
      }
      std::sort(s.ordered.begin(), s.ordered.end(), [](const Entry& a, const Entry& b) {
        return a.row != b.row ? a.row < b.row : a.col < b.col;
      });
    }
  }

  std::optional<SheetId> sheet_id(StringView name) const override {
    for (size_t i = 0; i < book_.sheets.size(); ++i)
      if (equals_text(book_.sheets[i], name)) return static_cast<SheetId>(i);
    return std::nullopt;
  }
  String sheet_name(SheetId id) const override {
    if (id < 0 || id >= static_cast<SheetId>(book_.sheets.size())) return String();
    return book_.sheets[id];
  }
  std::vector<SheetId> sheets_between(SheetId first, SheetId last) const override {
    std::vector<SheetId> out;
    for (SheetId s = std::min(first, last); s <= std::max(first, last); ++s) out.push_back(s);
    return out;
  }
  std::vector<SheetId> sheet_order() const override {
    std::vector<SheetId> out(book_.sheets.size());
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<SheetId>(i);
    return out;
  }

  Value cell_value(SheetId sheet, CellRef cell) override {
    if (sheet < 0 || sheet >= static_cast<SheetId>(sheets_.size()))
      return Value::error(cell_error::ref);
    auto& cells = sheets_[sheet].cells;
    auto it = cells.find(key(cell.row, cell.col));
    return it == cells.end() ? Value::empty() : it->second;
  }
  void for_each_value(SheetId sheet, const Rect& area,
                      const std::function<void(CellRef, const Value&)>& visit) override {
    if (sheet < 0 || sheet >= static_cast<SheetId>(sheets_.size())) return;
    const auto& ordered = sheets_[sheet].ordered;
    auto it = std::lower_bound(ordered.begin(), ordered.end(), area.row1,
                               [](const Entry& e, int32_t row) { return e.row < row; });
    for (; it != ordered.end() && it->row <= area.row2; ++it)
      if (it->col >= area.col1 && it->col <= area.col2)
        visit(CellRef{it->row, it->col}, *it->value);
  }
  CellRef used_extent(SheetId sheet) override {
    if (sheet < 0 || sheet >= static_cast<SheetId>(sheets_.size())) return CellRef{-1, -1};
    return sheets_[sheet].extent;
  }
  std::optional<NameDefinition> name(StringView text, SheetId scope) override {
    String upper = to_upper(text);
    for (SheetId s : {scope, kNoSheet}) {
      auto cached = names_.find({upper, s});
      if (cached != names_.end()) return cached->second;
      for (const CheckName& n : book_.names) {
        if (n.scope != s || to_upper(n.name) != upper) continue;
        std::optional<NameDefinition> def;
        try {
          SheetId home = s == kNoSheet ? 0 : s;
          def = NameDefinition{parse(n.formula, Notation::A1, CellRef{0, 0}, home, *this), s};
        } catch (const Error&) {
        }
        names_[{upper, s}] = def;
        return def;
      }
    }
    return std::nullopt;
  }
  const SheetResolver& sheets() override { return *this; }
  bool date1904() override { return book_.date1904; }
  double now() override { return 45000; }
  bool row_hidden(SheetId sheet, int32_t row) override {
    return std::binary_search(hidden_.begin(), hidden_.end(), std::make_pair(sheet, row));
  }
  FormulaPtr formula_at(SheetId sheet, CellRef cell) override {
    if (sheet < 0 || sheet >= static_cast<SheetId>(sheets_.size())) return nullptr;
    auto& s = sheets_[sheet];
    auto it = s.formulas.find(key(cell.row, cell.col));
    if (it == s.formulas.end()) return nullptr;
    if (!it->second.parsed) {
      it->second.parsed = true;
      try {
        it->second.formula = parse(it->second.text, Notation::A1, cell, sheet, *this);
      } catch (const Error&) {
      }
    }
    return it->second.formula;
  }

 private:
  struct Entry {
    int32_t row, col;
    const Value* value;
  };
  struct CellFormula {
    String text;
    bool parsed = false;
    FormulaPtr formula;
  };
  struct Sheet {
    std::unordered_map<uint64_t, CellFormula> formulas;
    std::unordered_map<uint64_t, Value> cells;
    std::vector<Entry> ordered;
    CellRef extent{-1, -1};
  };
  const CheckWorkbook& book_;
  std::vector<std::pair<SheetId, int32_t>> hidden_;
  std::vector<Sheet> sheets_;
  std::map<std::pair<String, SheetId>, std::optional<NameDefinition>> names_;
};

bool same(const Value& got, const Value& want) {
  if (want.kind == Value::Kind::Number) {
    if (got.kind != Value::Kind::Number) return false;
    double scale = std::max(std::fabs(got.number), std::fabs(want.number));
    return std::fabs(got.number - want.number) <= std::max(1e-9 * scale, 1e-12);
  }
  return got == want;
}

std::string show(const Value& v) {
  switch (v.kind) {
    case Value::Kind::Empty:
      return "(empty)";
    case Value::Kind::Number: {
      char buf[40];
      std::snprintf(buf, sizeof buf, "%.15g", v.number);
      return buf;
    }
    case Value::Kind::Text:
      return "\"" + to_utf8(v.text) + "\"";
    case Value::Kind::Boolean:
      return v.number != 0 ? "TRUE" : "FALSE";
    case Value::Kind::Error:
      return to_utf8(error_text(v.error_code()));
  }
  return "?";
}

/// Why a formula cannot be checked against its cached value, or nothing. Names are looked
/// into, since a name may stand for a table column or another workbook's cell.
const char* reason_to_skip(const Formula& f, EvalContext& ctx, SheetId sheet, int depth = 0) {
  for (const Node& n : f.nodes) {
    if (n.kind == NodeKind::Name && depth < 8) {
      SheetId scope =
          n.ref != kNoRef && f.refs[n.ref].sheet != kNoSheet ? f.refs[n.ref].sheet : sheet;
      if (auto def = ctx.name(f.text(n.str), scope); def && def->formula)
        if (const char* why = reason_to_skip(*def->formula, ctx, sheet, depth + 1)) return why;
    }
    if (n.kind == NodeKind::Opaque) return "structured reference";
    if ((n.kind == NodeKind::Ref || n.kind == NodeKind::Name) && n.ref != kNoRef &&
        (f.refs[n.ref].external || f.refs[n.ref].sheet_deleted))
      return "other workbook";
    if (n.kind == NodeKind::Func) {
      if (n.func < 0) return "unknown function";
      String name = f.text(n.str);
      size_t dot = name.rfind(u'.');
      StringView bare = StringView(name);
      if (name.rfind(u"_xl", 0) == 0 && dot != String::npos) bare = bare.substr(dot + 1);
      if (bare == u"RAND" || bare == u"RANDBETWEEN" || bare == u"NOW" || bare == u"TODAY" ||
          bare == u"RANDARRAY" || bare == u"CELL" || bare == u"INFO")
        return "volatile";
      if (function_not_computable(bare)) return "not computable from a file";
    }
  }
  return nullptr;
}

}  // namespace

void CheckReport::add(const CheckReport& other, size_t max_reports) {
  formulas += other.formulas;
  checked += other.checked;
  agreed += other.agreed;
  for (const auto& [why, n] : other.skipped) skipped[why] += n;
  for (const auto& d : other.disagreements)
    if (disagreements.size() < max_reports) disagreements.push_back(d);
}

CheckReport check_cached_values(const CheckWorkbook& book, size_t max_reports) {
  CheckReport report;
  CachedBook ctx(book);
  std::unordered_map<uint64_t, const CheckCell*> by_cell;
  for (const CheckCell& c : book.cells)
    by_cell[(static_cast<uint64_t>(static_cast<uint32_t>(c.sheet)) << 34) |
            key(c.cell.row, c.cell.col)] = &c;

  for (const CheckCell& c : book.cells) {
    if (c.formula.empty() && !c.data_table) continue;
    ++report.formulas;
    if (c.data_table) {
      ++report.skipped["data table"];
      continue;
    }
    if (!c.has_cached || c.cached.kind == Value::Kind::Empty) {
      ++report.skipped["no cached value"];
      continue;
    }
    FormulaPtr f;
    try {
      f = parse(c.formula, Notation::A1, c.cell, c.sheet, ctx);
    } catch (const Error&) {
      ++report.skipped["does not parse"];
      continue;
    }
    if (const char* why = reason_to_skip(*f, ctx, c.sheet)) {
      ++report.skipped[why];
      continue;
    }
    ++report.checked;
    std::vector<std::pair<CellRef, Value>> results;
    if (c.array) {
      int32_t rows = c.array_range.row2 - c.array_range.row1 + 1;
      int32_t cols = c.array_range.col2 - c.array_range.col1 + 1;
      std::vector<Value> block = evaluate_array(*f, c.cell, c.sheet, ctx, rows, cols);
      for (int32_t r = 0; r < rows; ++r)
        for (int32_t k = 0; k < cols; ++k)
          results.push_back(
              {CellRef{c.cell.row + r, c.cell.col + k}, block[static_cast<size_t>(r) * cols + k]});
    } else {
      results.push_back({c.cell, evaluate(*f, c.cell, c.sheet, ctx)});
    }
    bool ok = true;
    std::string detail;
    for (const auto& [at, got] : results) {
      auto it = by_cell.find((static_cast<uint64_t>(static_cast<uint32_t>(c.sheet)) << 34) |
                             key(at.row, at.col));
      if (it == by_cell.end() || !it->second->has_cached ||
          it->second->cached.kind == Value::Kind::Empty)
        continue;
      if (!same(got, it->second->cached)) {
        ok = false;
        detail = to_utf8(column_letters(at.col)) + std::to_string(at.row + 1) + " " + show(got) +
                 ", file has " + show(it->second->cached);
        break;
      }
    }
    if (ok) {
      ++report.agreed;
    } else if (report.disagreements.size() < max_reports) {
      report.disagreements.push_back(book.label + "!" + to_utf8(book.sheets[c.sheet]) + "!" +
                                     to_utf8(column_letters(c.cell.col)) +
                                     std::to_string(c.cell.row + 1) + ": =" + to_utf8(c.formula) +
                                     " -> " + detail);
    }
  }
  return report;
}

}  // namespace qz::engine::calc
