// A fresh library session serving a fresh engine application with one workbook.
#pragma once

#include <gtest/gtest.h>

#include "engine/host/engine.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"

namespace qz::test {

class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    String name;
    lib->NewPublic(name);
    lib->InitXL(app);
  }
  host::RangePtr r(const char* address) { return ws->range(Variant(u16(address))); }
  void put(const char* address, const char* typed) { r(address)->set_formula(u16(typed)); }
  static host::NamePtr define(const host::NamesPtr& names, const char16_t* text,
                              const char16_t* refers_to, bool visible = true) {
    host::NameAddArgs args;
    args.name = Variant(text);
    args.refers_to = Variant(refers_to);
    args.visible = Variant(visible);
    return names->add(args);
  }
  static std::string addr(const host::RangePtr& range) {
    return range ? to_utf8(range->address(false, false)) : "(nothing)";
  }

  SessionScope scope;
  host::ApplicationPtr app = engine::create_application();
  host::WorkbookPtr wb = app->workbooks()->add();
  host::WorksheetPtr ws = wb->worksheets()->item(Variant(int32_t{1}));
  iXLLibPublicPtr lib = create_iXLLibPublic();
  std::shared_ptr<_iRange> ranges = lib->NewRange();
};

}  // namespace qz::test
