// Range addresses from anywhere: the engine's reading and writing of areas and qualifiers,
// and the library's address services resolving them in a book with two sheets and a name.
#include <cstdlib>

#include "engine/host/engine.hpp"
#include "engine/model/address.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/qzxl.hpp"
#include "vblib/vblib.hpp"

using namespace qz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const host::ApplicationPtr app = [] {
    auto a = engine::create_application();
    auto wb = a->workbooks()->add();
    wb->worksheets()->add();
    host::NameAddArgs total;
    total.name = Variant(u"Total");
    total.refers_to = Variant(u"=Sheet1!$B$2:$C$4");
    wb->names()->add(total);
    return a;
  }();
  static const iRangePtr ranges = [] {
    auto lib = create_iXLLibPublic();
    String name;
    lib->NewPublic(name);
    lib->InitXL(app);
    return lib->NewRange();
  }();

  const String text = from_utf8(std::string_view(reinterpret_cast<const char*>(data), size));
  if (auto area = engine::parse_area(text)) {
    // An area written back in either style reads as the same area.
    for (bool absolute : {false, true})
      if (engine::parse_area(engine::area_a1(*area, absolute, !absolute)) != area) std::abort();
    (void)engine::area_r1c1(*area, false, true, engine::CellRef{2, 3});
  }
  try {
    const auto q = engine::split_qualifier(text);
    (void)engine::sheet_prefix(q.sheet);
    (void)engine::split_union(q.rest);
  } catch (const Error&) {
  }
  String qualifier, book;
  (void)vblib::Strings::qualifier_split(text, true, qualifier);
  (void)vblib::Strings::strip_wkb_name(text, &book, true);

  int32_t adjustment = 0;
  (void)ranges->MergeRanges(text, &adjustment);
  (void)ranges->RangeFromAddr(app, u"Book1", text);
  host::RangePtr range;
  try {
    range = app->range(Variant(text));
    (void)range->address(false, false);
  } catch (const Error&) {
  }
  // Splitting writes one piece per cell: whole columns are left to the areas above.
  if (range && range->count() <= 4096) {
    std::vector<String> pieces;
    (void)ranges->SplitRange(text, pieces, &adjustment, false);
  }
  return 0;
}
