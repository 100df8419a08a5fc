// Number formats and typed entries from anywhere. An input is a format code, optionally
// followed by a line break and an entry; the code renders the entry and a few fixed values.
#include "engine/numfmt/numfmt.hpp"
#include "qzxl/convert.hpp"
#include "qzxl/error.hpp"

using namespace qz;
using engine::numfmt::CellValue;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const String text = from_utf8(std::string_view(reinterpret_cast<const char*>(data), size));
  const size_t cut = text.find(u'\n');
  const StringView code = StringView(text).substr(0, cut);
  const StringView typed = cut == String::npos ? code : StringView(text).substr(cut + 1);

  (void)engine::numfmt::classify(code);
  (void)engine::numfmt::builtin_id(code);
  try {
    engine::numfmt::validate(code);
  } catch (const Error&) {
  }
  for (bool date1904 : {false, true}) {
    const auto entry = engine::numfmt::parse_entry(typed, date1904);
    std::vector<CellValue> values = {
        {CellValue::Type::Number, entry.number, {}}, {CellValue::Type::Text, 0, entry.text},
        {CellValue::Type::Number, -1234.5678, {}},   {CellValue::Type::Number, 2958465.99999, {}},
        {CellValue::Type::Number, 1e308, {}},        {CellValue::Type::Number, -1e-300, {}},
        {CellValue::Type::Boolean, 1, {}},           {CellValue::Type::Error, 2007, {}}};
    for (const CellValue& value : values) {
      try {
        (void)engine::numfmt::render(value, code, date1904);
      } catch (const Error&) {
      }
    }
  }
  return 0;
}
