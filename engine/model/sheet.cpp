#include "engine/model/sheet.hpp"

namespace qz::engine {

uint32_t Sheet::style_at(int32_t row, int32_t col) const {
  if (const Cell* c = cells.find(row, col)) return c->style();
  if (auto r = rows.find(row); r != rows.end() && r->second.has_style) return r->second.style;
  if (auto c = cols.find(col); c != cols.end() && c->second.has_style) return c->second.style;
  return 0;
}

uint32_t Sheet::new_formula() {
  if (!free_formulas.empty()) {
    uint32_t i = free_formulas.back();
    free_formulas.pop_back();
    formulas[i] = FormulaCell{};
    formulas[i].live = true;
    return i;
  }
  formulas.emplace_back();
  formulas.back().live = true;
  return static_cast<uint32_t>(formulas.size() - 1);
}

void Sheet::free_formula(uint32_t index) {
  formulas[index] = FormulaCell{};
  free_formulas.push_back(index);
}

}  // namespace qz::engine
