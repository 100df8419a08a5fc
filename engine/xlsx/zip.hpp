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
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "vocab/atomic_file.hpp"

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

/// An inflated part. Large ones live in pages of their own, which a reader going through the
/// part from front to back hands back to the system as it goes (`release_before`), so that a
/// large worksheet and the cells made from it are not both in memory in full.
class PartBuffer {
 public:
  PartBuffer() = default;
  explicit PartBuffer(size_t size);
  ~PartBuffer();
  PartBuffer(PartBuffer&& o) noexcept;
  PartBuffer& operator=(PartBuffer&& o) noexcept;
  PartBuffer(const PartBuffer&) = delete;
  PartBuffer& operator=(const PartBuffer&) = delete;

  char* data() { return data_; }
  size_t size() const { return size_; }
  std::string_view view() const { return {data_, size_}; }
  /// Gives back the whole pages between `from` and `to`; the text there must not be read
  /// again. A reader keeps the text of the elements it is still inside (their names are
  /// checked against their end tags) by starting `from` past them.
  void release(size_t from, size_t to);

 private:
  char* data_ = nullptr;
  size_t size_ = 0;
  size_t mapped_ = 0;    // bytes mapped (0: held in `small_`)
  size_t released_ = 0;  // end of the last range given back
  std::string small_;
};

/// A package file, its entries indexed. The file stays open and entries are read from it on
/// demand, so an opened package costs memory only for what is read. Immutable after opening:
/// one reader serves any number of saves, including a save over the file it was read from
/// (the replaced file stays readable through the open handle).
class ZipReader {
 public:
  /// Opens and indexes a package. Errors name the file by `path`.
  static ZipReader open(const std::filesystem::path& path, const ZipLimits& limits = {});
  /// A package held in memory; `display_name` is how errors name it.
  static ZipReader from_bytes(std::string bytes, std::string display_name,
                              const ZipLimits& limits = {});

  const std::string& display_name() const { return display_name_; }
  const std::vector<ZipEntry>& entries() const { return entries_; }

  /// The entry of that name, compared as package part names are (ASCII case-insensitive);
  /// null when absent.
  const ZipEntry* find(std::string_view name) const;

  /// The inflated content of an entry, its size and CRC verified.
  std::string read(const ZipEntry& entry) const;
  /// The same, in a buffer whose pages can be given back while it is read.
  PartBuffer read_buffer(const ZipEntry& entry) const;

  /// The entry's compressed bytes exactly as stored in the file.
  std::string raw(const ZipEntry& entry) const;
  /// Hands the compressed bytes to `sink` piece by piece (for copying large entries).
  void copy_raw(const ZipEntry& entry, const std::function<void(const char*, size_t)>& sink) const;

 private:
  struct Source;
  ZipReader() = default;
  void index();
  void read_at(uint64_t offset, size_t length, char* out) const;
  void inflate_into(const ZipEntry& entry, char* out) const;
  [[noreturn]] void fail(const std::string& problem) const;

  std::string display_name_;
  std::shared_ptr<const Source> source_;
  ZipLimits limits_;
  std::vector<ZipEntry> entries_;
  std::vector<uint32_t> by_name_;  // indices into entries_, sorted by folded name
};

/// The first bytes of an OLE2 compound file: what encrypted packages and legacy binary
/// workbooks are stored in.
bool looks_like_compound_file(std::string_view bytes);

/// Collects a streamed entry's content: callers append to `text` and call `flush_if_full`
/// now and then; what has been flushed is compressed and written.
class EntrySink {
 public:
  /// How much `text` holds before `flush_if_full` hands it over: small enough to stay in the
  /// cache until it is copied on.
  static constexpr size_t kChunk = 1 << 16;
  std::string text;
  void flush_if_full() {
    if (text.size() >= kChunk) flush();
  }
  /// Hands over what `text` holds, then `piece`, without copying `piece` into `text` first.
  void write(std::string_view piece);
  /// Bytes handed over so far, flushed or not.
  uint64_t total() const { return flushed_ + text.size(); }

 private:
  friend class ZipWriter;
  void flush();
  std::function<void(std::string_view)> consume_;
  uint64_t flushed_ = 0;
};

/// The zlib level a streamed entry is deflated at, for a writer's `level`.
int stream_level(int level);

/// Writes a package to a temporary file beside the target and, on commit, moves it into
/// place; the target is either the complete new package or untouched. Entries are written in
/// the order they are added.
class ZipWriter {
 public:
  /// `level` is the deflate level for entries with new content (1 fastest … 12 smallest;
  /// streamed entries get `stream_level(level)`).
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

  /// Adds an entry whose content `produce` writes into a sink piece by piece; it is deflated
  /// as it comes, so the whole content never needs to be in memory. Content is deflated in
  /// 1 MiB segments, each continuing the stream from the one before, on a second thread
  /// beside `produce` (unless `set_parallel(false)`); segments are cut by position, so the
  /// bytes written depend on the content only, not on the pieces or the timing. The last
  /// segments may still be deflating when this returns, beside whatever the caller produces
  /// next; they reach the file, in order, before anything added after them.
  void add_stream(std::string_view name, const std::function<void(EntrySink&)>& produce,
                  const ZipEntry* like = nullptr);

  /// Whether streamed entries may be deflated on a second thread (on by default). The
  /// output is the same either way.
  void set_parallel(bool on) { parallel_ = on; }

  /// Writes the central directory, flushes the file to disk and renames it over the target.
  void commit();

 private:
  struct Central;
  struct Segment;
  struct Pipeline;
  void write(const void* data, size_t n);
  void flush();
  Central begin_entry(std::string_view name, const ZipEntry* like);
  void write_header(Central& c);
  void write_entry(Central c, std::string_view data);
  void write_segment(Segment& s);
  /// Writes the streamed segments that are ready, in order; with `all`, every one (deflating
  /// beside the second thread until none is left), otherwise only until few enough wait.
  void drain(bool all);
  [[noreturn]] void fail(const std::string& problem);

  std::filesystem::path target_;
  AtomicFile file_;
  int level_;
  uint64_t offset_ = 0;
  std::string buffer_;
  std::vector<Central> central_;
  std::unordered_set<std::string> names_;
  void* compressor_ = nullptr;
  bool committed_ = false;
  bool parallel_ = true;
  std::unique_ptr<Pipeline> pipeline_;
};

}  // namespace qz::engine::xlsx
