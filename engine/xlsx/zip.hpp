// The zip container under a workbook package: reading entries out of a package file and
// writing a new package in which unchanged entries are copied as they were compressed.
//
// Packages arrive from anywhere (mail attachments, fuzzers, other programs' bugs), so the
// reader trusts nothing it reads: every offset and size is checked against the file, names
// that could climb out of the package are refused, and inflation is bounded by the sizes the
// central directory states, by an absolute limit and by a ratio limit. Every failure is a
// qz::Error whose one-line message names the file and the problem.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace qz::engine::xlsx {

/// Bounds on what a package may make the reader allocate.
struct ZipLimits {
  uint64_t max_entry_size = uint64_t{1} << 30;  ///< inflated size of one entry
  uint64_t max_total_size = uint64_t{4} << 30;  ///< inflated size of all entries together
  /// Largest inflated/compressed ratio accepted for entries above `ratio_floor` bytes. Real
  /// sheet XML compresses at most a few hundred to one; bombs reach a thousand.
  uint64_t max_ratio = 1000;
  uint64_t ratio_floor = uint64_t{4} << 20;
  uint64_t max_entries = 200000;
};

/// One entry as the central directory describes it (sizes and offsets already checked).
struct ZipEntry {
  std::string name;  ///< as stored (UTF-8 for every package we accept)
  uint16_t version_made_by = 0;
  uint16_t flags = 0;
  uint16_t method = 0;  ///< 0 stored, 8 deflated
  uint16_t mod_time = 0;
  uint16_t mod_date = 0;
  uint32_t crc32 = 0;
  uint64_t compressed_size = 0;
  uint64_t size = 0;  ///< inflated size
  uint16_t internal_attributes = 0;
  uint32_t external_attributes = 0;
  uint64_t header_offset = 0;  ///< local header
  uint64_t data_offset = 0;    ///< first byte of the compressed data

  bool is_directory() const { return !name.empty() && name.back() == '/'; }
};

/// A package file held in memory, its entries indexed. Immutable after opening, so one
/// reader serves any number of saves (including a save over the file it was read from).
class ZipReader {
 public:
  /// Reads and indexes a package. `display_name` is how errors name the file.
  static ZipReader open(const std::filesystem::path& path, const ZipLimits& limits = {});
  static ZipReader from_bytes(std::string bytes, std::string display_name,
                              const ZipLimits& limits = {});

  const std::string& display_name() const { return display_name_; }
  const std::vector<ZipEntry>& entries() const { return entries_; }

  /// The entry of that name, compared as package part names are (ASCII case-insensitive);
  /// null when absent.
  const ZipEntry* find(std::string_view name) const;

  /// The inflated content of an entry, its size and CRC verified.
  std::string read(const ZipEntry& entry) const;

  /// The entry's compressed bytes exactly as stored in the file.
  std::span<const uint8_t> raw(const ZipEntry& entry) const;

  /// The whole file.
  std::string_view bytes() const { return bytes_; }

 private:
  ZipReader() = default;
  void index();
  [[noreturn]] void fail(const std::string& problem) const;

  std::string display_name_;
  std::string bytes_;
  ZipLimits limits_;
  std::vector<ZipEntry> entries_;
  std::vector<uint32_t> by_name_;  // indices into entries_, sorted by folded name
};

/// The first bytes of an OLE2 compound file: what encrypted packages and legacy binary
/// workbooks are stored in.
bool looks_like_compound_file(std::string_view bytes);

/// Writes a package to a temporary file beside the target and, on commit, moves it into
/// place; the target is either the complete new package or untouched. Entries are written in
/// the order they are added.
class ZipWriter {
 public:
  /// `level` is the deflate level for entries added with content (1 fastest … 12 smallest).
  explicit ZipWriter(std::filesystem::path target, int level = 6);
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  /// Copies an entry of another package: same compressed bytes, CRC, sizes, method and
  /// timestamp, so readers see it exactly as before.
  void copy(const ZipReader& source, const ZipEntry& entry);

  /// Adds an entry with new content, deflated. `like` (optional) lends its timestamp and
  /// attributes, so a rewritten part looks like the one it replaces.
  void add(std::string_view name, std::string_view content, const ZipEntry* like = nullptr);

  /// Writes the central directory, flushes the file to disk and renames it over the target.
  void commit();

 private:
  struct Central;
  void write(const void* data, size_t n);
  void flush();
  void write_entry(Central c, std::span<const uint8_t> data);
  [[noreturn]] void fail(const std::string& problem);

  std::filesystem::path target_;
  std::filesystem::path temp_;
  int fd_ = -1;
  int level_;
  uint64_t offset_ = 0;
  std::string buffer_;
  std::vector<Central> central_;
  std::unordered_set<std::string> names_;
  void* compressor_ = nullptr;
  bool committed_ = false;
};

}  // namespace qz::engine::xlsx
