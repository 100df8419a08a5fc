#include "engine/model/strings.hpp"

namespace qz::engine {

namespace {
uint64_t hash_text(StringView s) {
  uint64_t h = 1469598103934665603ull;
  for (char16_t c : s) {
    h ^= static_cast<uint64_t>(c);
    h *= 1099511628211ull;
  }
  return h;
}
}  // namespace

uint32_t StringPool::append(StringView text, std::vector<Run> runs) {
  uint32_t idx = static_cast<uint32_t>(starts_.size());
  if (text.size() >= kBlock - 1) {
    long_.emplace(idx, String(text));
    starts_.push_back(UINT32_MAX);
  } else {
    uint32_t need = static_cast<uint32_t>(text.size()) + 1;
    if (fill_ + need > kBlock) {
      blocks_.push_back(std::make_unique<char16_t[]>(kBlock));
      fill_ = 0;
    }
    char16_t* p = blocks_.back().get() + fill_;
    p[0] = static_cast<char16_t>(text.size());
    std::copy(text.begin(), text.end(), p + 1);
    starts_.push_back(static_cast<uint32_t>((blocks_.size() - 1) << 16) | fill_);
    fill_ += need;
  }
  if (!runs.empty()) runs_.emplace(idx, std::move(runs));
  changed = true;
  return idx;
}

void StringPool::grow_table() {
  size_t n = table_.empty() ? 1024 : table_.size() * 2;
  std::vector<uint32_t> t(n, 0);
  for (uint32_t slot : table_) {
    if (!slot) continue;
    size_t i = hash_text(text(slot - 1)) & (n - 1);
    while (t[i]) i = (i + 1) & (n - 1);
    t[i] = slot;
  }
  table_.swap(t);
}

uint32_t StringPool::intern(StringView s) {
  // Entries appended by a loader join the dedupe table lazily, on the first intern.
  if (table_used_ < size()) {
    for (size_t i = table_used_; i < size(); ++i) {
      if (runs_.count(static_cast<uint32_t>(i))) continue;
      if ((table_used_ + 1) * 10 > table_.size() * 7) grow_table();
      size_t mask = table_.size() - 1, j = hash_text(text(static_cast<uint32_t>(i))) & mask;
      bool dup = false;
      while (table_[j]) {
        if (text(table_[j] - 1) == text(static_cast<uint32_t>(i))) {
          dup = true;
          break;
        }
        j = (j + 1) & mask;
      }
      if (!dup) table_[j] = static_cast<uint32_t>(i + 1);
      table_used_ = i + 1;
    }
  }
  if ((size() + 1) * 10 > table_.size() * 7) grow_table();
  size_t mask = table_.size() - 1, i = hash_text(s) & mask;
  while (table_[i]) {
    if (text(table_[i] - 1) == s) return table_[i] - 1;
    i = (i + 1) & mask;
  }
  uint32_t idx = append(s);
  table_[i] = idx + 1;
  table_used_ = size();
  return idx;
}

uint32_t StringPool::add_rich(StringView text, std::vector<Run> runs) {
  if (runs.empty()) return intern(text);
  return append(text, std::move(runs));
}

StringView StringPool::text(uint32_t index) const {
  if (index >= starts_.size()) return {};
  uint32_t at = starts_[index];
  if (at == UINT32_MAX) return long_.at(index);
  const char16_t* p = blocks_[at >> 16].get() + (at & 0xFFFF);
  return StringView(p + 1, p[0]);
}

const std::vector<Run>& StringPool::runs(uint32_t index) const {
  static const std::vector<Run> none;
  auto it = runs_.find(index);
  return it == runs_.end() ? none : it->second;
}

size_t StringPool::memory_bytes() const {
  size_t n = blocks_.size() * kBlock * sizeof(char16_t) + starts_.capacity() * sizeof(uint32_t) +
             table_.capacity() * sizeof(uint32_t) + runs_.size() * 64;
  for (const auto& [i, t] : long_) n += t.capacity() * sizeof(char16_t);
  return n;
}

}  // namespace qz::engine
