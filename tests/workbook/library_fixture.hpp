// A client's session over a fresh engine application: the factory created, the sibling
// services loaded, InitXL given the application. Workbook files are tiny text files of a test
// format ("QZTEST", then one sheet name per line) that the engine opens and saves for the
// extensions .xls, .xlt and .xla, so that opening by folder and name is exercised without a
// real file layer.
#pragma once

#include <gtest/gtest.h>

#include <fstream>

#include "engine/host/engine.hpp"
#include "frame/session.hpp"
#include "qzxl/qzxl.hpp"
#include "support/fake_env.hpp"

namespace qz::test {

inline void register_text_books() {
  static const bool done = [] {
    engine::FileFormat f;
    f.extensions = {u"xls", u"xlt", u"xla"};
    f.open = [](const String& path, const host::OpenArgs&) {
      std::ifstream in(to_utf8(path));
      std::string line;
      if (!std::getline(in, line) || line != "QZTEST") throw Error(err::host_failure, "not a book");
      auto book = std::make_shared<engine::Book>(u"Book");
      while (std::getline(in, line)) book->add_sheet(u16(line));
      return book;
    };
    f.save = [](engine::Book& book, const String& path) {
      std::ofstream out(to_utf8(path));
      out << "QZTEST\n";
      for (auto& s : book.sheets) out << to_utf8(s->name) << "\n";
    };
    engine::register_file_format(f);
    return true;
  }();
  (void)done;
}

class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest() {
    register_text_books();
    engine::ApplicationOptions options;
    options.program_folder = u16((dir / "program").string());
    app = engine::create_application(options);
    lib = create_iXLLibPublic();
    String name;
    lib->NewPublic(name);
    lib->InitXL(app);
  }

  /// Writes a workbook file into the test's folder; returns its full name.
  String write_book(const std::string& name, const std::string& sheets = "Sheet1") {
    std::ofstream(dir / name) << "QZTEST\n" << sheets << "\n";
    return u16((dir / name).string());
  }
  String folder() const { return u16(dir.path().string()); }
  host::WorkbookPtr add_book() { return app->workbooks()->add(); }
  host::WorksheetPtr sheet(const host::WorkbookPtr& wb, int32_t i = 1) {
    return wb->worksheets()->item(Variant(i));
  }
  int32_t books() { return app->workbooks()->count(); }

  SessionScope scope;  // first: the session is fresh before the factory loads it
  TempDir dir;
  host::ApplicationPtr app;
  iXLLibPublicPtr lib;
};

}  // namespace qz::test
