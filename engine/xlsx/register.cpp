#include "engine/host/engine.hpp"
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/xlsx.hpp"
#include "qzxl/convert.hpp"

namespace qz::engine::xlsx {

void register_format() {
  FileFormat f;
  f.extensions = {u"xlsx", u"xlsm", u"xltx", u"xltm", u"xlam"};
  f.open = [](const String& path, const host::OpenArgs&) {
    // Workbooks.Open calculates what the file kept no value for as soon as it has loaded.
    LoadOptions options;
    options.parse_uncached = true;
    return load(std::filesystem::path(to_utf8(path)), options);
  };
  f.save = [](Book& book, const String& path) { save(book, std::filesystem::path(to_utf8(path))); };
  f.title = [](const String& path) {
    // Only the package's core properties are read, not the workbook.
    Package pkg = Package::open(std::filesystem::path(to_utf8(path)));
    for (const auto& r : pkg.relationships("")) {
      if (r.kind() != "core-properties" || r.external || !pkg.has_part(r.part)) continue;
      std::string text;
      pugi::xml_document doc;
      pkg.parse_part(r.part, text, doc);
      for (pugi::xml_node p : doc.document_element().children())
        if (local_name(p.name()) == "title") return from_utf8(p.text().get());
    }
    return String();
  };
  register_file_format(std::move(f));
}

}  // namespace qz::engine::xlsx
