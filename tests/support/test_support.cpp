#include "test_support.hpp"

#include <cstdlib>
#include <random>

namespace qz::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::random_device rd;
  for (int attempt = 0; attempt < 100; ++attempt) {
    fs::path p = fs::temp_directory_path() / ("qzxl-test-" + std::to_string(rd()));
    std::error_code ec;
    if (fs::create_directory(p, ec)) {
      path_ = p;
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary folder");
}

TempDir::~TempDir() {
  std::error_code ec;
  fs::remove_all(path_, ec);
}

fs::path corpus_dir() {
  if (const char* d = std::getenv("QZXL_CORPUS"); d && *d) return fs::path(d);
  fs::path p = fs::current_path() / ".." / "shared" / "corpus";
  std::error_code ec;
  return fs::is_directory(p, ec) ? fs::canonical(p) : fs::path();
}

}  // namespace qz::test
