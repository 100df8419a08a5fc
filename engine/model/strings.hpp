// The workbook's shared-string pool: the texts cells hold, interned, with their rich-text runs.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "engine/model/styles.hpp"

namespace qz::engine {

/// A rich-text run: from `start` (UTF-16 units) to the next run's start. A run without a font
/// shows in the cell's font.
struct Run {
  uint32_t start = 0;
  std::optional<FontRec> font;
  friend bool operator==(const Run&, const Run&) = default;
};

/// The workbook's texts, interned: a cell holds an index into this pool. Plain texts are kept
/// in one buffer and deduplicated; rich texts (with runs) are entries of their own. Entries
/// are appended, never renumbered, so a file's shared-string indices can be kept as they are.
class StringPool {
 public:
  /// The index of a plain text, adding it when new.
  uint32_t intern(StringView text);
  /// Adds a text with runs (always a new entry; `runs` empty means plain).
  uint32_t add_rich(StringView text, std::vector<Run> runs);
  /// Appends an entry as a file lists it, without deduplication (a loader keeps the file's
  /// numbering this way).
  uint32_t append(StringView text, std::vector<Run> runs = {});

  StringView text(uint32_t index) const;
  /// The runs of an entry (empty for plain text).
  const std::vector<Run>& runs(uint32_t index) const;
  size_t size() const { return starts_.size(); }
  size_t memory_bytes() const;

  /// Set when an entry was appended after loading.
  bool changed = false;

 private:
  // Texts live in fixed blocks, each preceded by its length, so that growing the pool never
  // copies it and no block is more than one text short of full.
  static constexpr uint32_t kBlock = 1u << 16;
  void grow_table();
  std::vector<std::unique_ptr<char16_t[]>> blocks_;
  uint32_t fill_ = kBlock;                     // units used in the last block
  std::vector<uint32_t> starts_;               // block << 16 | position of the length unit
  std::unordered_map<uint32_t, String> long_;  // texts too long for a block
  std::vector<uint32_t> table_;                // open addressing: index + 1, 0 = free
  size_t table_used_ = 0;
  std::unordered_map<uint32_t, std::vector<Run>> runs_;
};

}  // namespace qz::engine
