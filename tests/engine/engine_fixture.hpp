// A fresh engine application with one workbook, and short ways to reach its cells.
#pragma once

#include <gtest/gtest.h>

#include "engine/host/engine.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::test {

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ApplicationOptions opts;
    // A fixed clock: 14 November 2026, 09:30.
    opts.clock = [] { return 46340.0 + 9.5 / 24; };
    app = create_application(opts);
    wb = app->workbooks()->add();
    ws = wb->worksheets()->item(Variant(int32_t{1}));
  }

  host::RangePtr r(const char* address) { return ws->range(Variant(u16(address))); }
  void put(const char* address, const char* typed) { r(address)->set_formula(u16(typed)); }
  std::string text(const char* address) { return to_utf8(r(address)->text()); }
  std::string formula(const char* address) { return to_utf8(r(address)->formula()); }
  Variant value(const char* address) { return r(address)->value(); }
  std::string addr(const host::RangePtr& range) {
    return range ? to_utf8(range->address(false, false)) : std::string("(nothing)");
  }
  Book& book() { return *book_of(wb); }
  Sheet& sheet() { return *sheet_of(ws); }

  host::ApplicationPtr app;
  host::WorkbookPtr wb;
  host::WorksheetPtr ws;
};

inline Variant V(const char* s) {
  return Variant(u16(s));
}
inline Variant V(int32_t i) {
  return Variant(i);
}

}  // namespace qz::engine::test
