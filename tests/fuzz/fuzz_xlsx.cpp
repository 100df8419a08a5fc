// Workbook packages from anywhere: the zip reader on any bytes, then the loader on whatever
// the reader accepts. Either reads the package or refuses it with an error.
#include "engine/xlsx/package.hpp"
#include "engine/xlsx/read.hpp"
#include "qzxl/error.hpp"

using namespace qz;
using namespace qz::engine::xlsx;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  // Small limits, so that a bomb is refused rather than inflated.
  ZipLimits limits;
  limits.max_entry_size = limits.ratio_floor = 16 << 20;
  limits.max_total_size = 64 << 20;
  try {
    const ZipReader zip = ZipReader::from_bytes(bytes, "fuzz.xlsx", limits);
    for (const ZipEntry& entry : zip.entries()) {
      try {
        (void)zip.read(entry);
      } catch (const Error&) {
      }
    }
  } catch (const Error&) {
  }
  try {
    auto package = std::make_shared<const Package>(Package::from_bytes(bytes, "fuzz.xlsx", limits));
    (void)Loader(package).run(u"fuzz.xlsx");
  } catch (const Error&) {
  }
  return 0;
}
