// Helpers shared by the test programs.
#pragma once

#include <filesystem>
#include <string>

#include "qzxl/convert.hpp"

namespace qz::test {

/// A fresh temporary folder, removed when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

/// The shared corpus of third-party workbooks and formulas (`../shared/corpus` from the
/// project root), or an empty path when it is not present.
std::filesystem::path corpus_dir();

}  // namespace qz::test
