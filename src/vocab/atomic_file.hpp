// One way to replace a file: write a temporary file in the target's folder, flush it to disk,
// give it the target's permissions, rename it over the target and flush the folder. A reader
// sees the old content or the new, never part of either, and a crash after commit() keeps the
// new content. Every file the project writes for its users goes through here; it is the only
// place that renames files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace qz {

class AtomicFile {
 public:
  /// Creates the temporary file beside `target`. When that fails, ok() is false and
  /// error_code() and error() say why.
  explicit AtomicFile(std::filesystem::path target);
  /// Removes the temporary file unless it was committed.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Whether the temporary file is open for writing (not yet committed, no failure yet).
  bool ok() const noexcept { return fd_ >= 0 && error_code_ == 0; }
  /// The system's error number of the first failure, 0 while there is none.
  int error_code() const noexcept { return error_code_; }
  /// The system's text for the first failure, "" while there is none.
  std::string error() const;
  const std::filesystem::path& target() const noexcept { return target_; }

  /// Appends bytes; false (and the failure kept) when the write fails.
  bool write(const void* data, size_t size);
  bool write(std::string_view bytes) { return write(bytes.data(), bytes.size()); }
  /// Writes over bytes already written, at `offset` from the start of the file.
  bool write_at(const void* data, size_t size, uint64_t offset);

  /// Flushes the file to disk, keeps the permissions of the file it replaces (a new file gets
  /// the usual ones), renames it over the target and flushes the folder. False when any step
  /// but the last fails; the target is then untouched.
  bool commit();

 private:
  bool failed();

  std::filesystem::path target_;
  std::filesystem::path temp_;
  int fd_ = -1;
  int error_code_ = 0;
  bool committed_ = false;
  // Bytes appended, and how many of them were handed to the system's writeback.
  static constexpr uint64_t kWriteback = uint64_t{1} << 20;
  uint64_t written_ = 0;
  uint64_t queued_ = 0;
};

/// Replaces `target` with `bytes` through an AtomicFile. Returns "" when it did, else the
/// system's text for what failed.
std::string write_file_atomically(const std::filesystem::path& target, std::string_view bytes);

}  // namespace qz
