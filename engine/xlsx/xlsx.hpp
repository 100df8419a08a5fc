// .xlsx/.xlsm (and .xltx/.xltm/.xlam) workbooks for the engine: loading a package into the
// engine's model and saving the model back without losing what the engine does not model.
//
// A save copies every part the engine did not change exactly as it was compressed; a changed
// part is patched rather than regenerated, so elements, attributes and namespaces the engine
// does not know survive. Styles and shared strings are appended to, never renumbered.
#pragma once

#include <filesystem>

#include "engine/model/book.hpp"
#include "engine/xlsx/zip.hpp"

namespace qz::engine::xlsx {

struct LoadOptions {
  ZipLimits limits;
  /// The caller calculates the formulas kept without a value right after loading (as
  /// Workbooks.Open does): they are parsed while the sheets are read, on the reading threads.
  bool parse_uncached = false;
};

struct SaveOptions {
  /// Deflate level for rewritten parts (1 fastest … 12 smallest).
  int level = 6;
  /// Every formula's cached value was just calculated: the file no longer asks the
  /// application to recalculate it on opening.
  bool calculated = false;
};

/// Loads a workbook package. Raises qz::Error with a one-line message naming the file and
/// the problem when it cannot.
BookPtr load(const std::filesystem::path& path, const LoadOptions& options = {});

/// Saves a workbook atomically (a temporary file beside `path`, then a rename). A workbook
/// loaded from a package is written as that package with its changed parts replaced; the
/// book then counts as loaded from the saved file. Raises qz::Error on failure, leaving any
/// existing file at `path` untouched.
void save(Book& book, const std::filesystem::path& path, const SaveOptions& options = {});

/// Registers the format with the engine (`Workbooks.Open`, `Workbook.Save`/`SaveAs`) for
/// the extensions xlsx, xlsm, xltx, xltm and xlam.
void register_format();

}  // namespace qz::engine::xlsx
