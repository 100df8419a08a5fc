// The named-link rule: a formula takes the worksheet-link colour when a defined name whose
// text occurs in it (anywhere, without regard to case) refers to cells on another sheet. A
// run builds one matcher over the names' texts (an Aho-Corasick automaton) and reads each
// formula once, so its cost grows with the formula's length, not with the number of names.
#include <algorithm>
#include <deque>

#include "autocolor/internal.hpp"
#include "frame/resume.hpp"
#include "qzxl/convert.hpp"
#include "vocab/text_fold.hpp"

namespace qz::autocolor {

namespace {

// The sheet a name's range lies on, or nothing when it refers to no range.
std::optional<String> target_sheet(const host::NamePtr& name) {
  return value_or(std::optional<String>(), [&] {
    return std::optional<String>(require(name)->refers_to_range()->worksheet()->name());
  });
}

}  // namespace

struct NameLinks::Automaton {
  struct Node {
    std::vector<std::pair<char16_t, int32_t>> next;  // sorted by character
    int32_t fail = 0;
    int32_t output = -1;        // a name ending here (the first in collection order)
    int32_t dict = -1;          // nearest node down the fail chain with an output
    std::vector<int32_t> more;  // further names of the same text, in collection order
  };
  std::vector<Node> nodes{Node{}};

  int32_t child(int32_t n, char16_t c) const {
    const auto& next = nodes[static_cast<size_t>(n)].next;
    auto it = std::lower_bound(next.begin(), next.end(), std::make_pair(c, int32_t{-1}));
    return it != next.end() && it->first == c ? it->second : -1;
  }

  void add(StringView text, int32_t index) {
    int32_t n = 0;
    for (char16_t raw : text) {
      const char16_t c = fold_case(raw);
      int32_t k = child(n, c);
      if (k < 0) {
        k = static_cast<int32_t>(nodes.size());
        auto& next = nodes[static_cast<size_t>(n)].next;
        next.insert(std::lower_bound(next.begin(), next.end(), std::make_pair(c, int32_t{-1})),
                    {c, k});
        nodes.emplace_back();
      }
      n = k;
    }
    Node& end = nodes[static_cast<size_t>(n)];
    if (end.output < 0)
      end.output = index;
    else
      end.more.push_back(index);
  }

  void link() {
    std::deque<int32_t> queue;
    for (const auto& [c, k] : nodes[0].next) queue.push_back(k);
    while (!queue.empty()) {
      const int32_t n = queue.front();
      queue.pop_front();
      const Node& node = nodes[static_cast<size_t>(n)];
      for (const auto& [c, k] : node.next) {
        int32_t f = node.fail;
        int32_t to = child(f, c);
        while (to < 0 && f != 0) {
          f = nodes[static_cast<size_t>(f)].fail;
          to = child(f, c);
        }
        Node& kid = nodes[static_cast<size_t>(k)];
        kid.fail = to >= 0 && to != k ? to : 0;
        const Node& back = nodes[static_cast<size_t>(kid.fail)];
        kid.dict = back.output >= 0 ? kid.fail : back.dict;
        queue.push_back(k);
      }
    }
  }

  // Every name occurring in `text`, in no particular order (repeats possible).
  void find(StringView text, std::vector<int32_t>& out) const {
    int32_t n = 0;
    for (char16_t raw : text) {
      const char16_t c = fold_case(raw);
      int32_t to = child(n, c);
      while (to < 0 && n != 0) {
        n = nodes[static_cast<size_t>(n)].fail;
        to = child(n, c);
      }
      n = to < 0 ? 0 : to;
      for (int32_t m =
               nodes[static_cast<size_t>(n)].output >= 0 ? n : nodes[static_cast<size_t>(n)].dict;
           m >= 0; m = nodes[static_cast<size_t>(m)].dict) {
        const Node& hit = nodes[static_cast<size_t>(m)];
        out.push_back(hit.output);
        out.insert(out.end(), hit.more.begin(), hit.more.end());
      }
    }
  }
};

NameLinks::NameLinks(const host::WorkbookPtr& workbook)
    : automaton_(std::make_unique<Automaton>()) {
  step([&] { names_ = require(workbook)->names(); });
  int32_t count = 0;
  step([&] { count = require(names_)->count(); });
  target_.assign(static_cast<size_t>(std::max(count, 0)), std::nullopt);
  for (int32_t i = 1; i <= count; ++i) {
    // A name whose text cannot be read can never be found in a formula.
    String text;
    if (!assign(text, [&] { return names_->item(Variant(i))->name(); }) || text.empty()) continue;
    automaton_->add(text, i - 1);
  }
  automaton_->link();
}

NameLinks::~NameLinks() = default;

bool NameLinks::links_elsewhere(StringView body, StringView sheet_name) {
  // A formula of one character holds no name worth following.
  if (body.size() < 2) return false;
  found_.clear();
  automaton_->find(body, found_);
  std::sort(found_.begin(), found_.end());
  found_.erase(std::unique(found_.begin(), found_.end()), found_.end());
  for (int32_t i : found_) {
    auto& target = target_[static_cast<size_t>(i)];
    if (!target) {
      host::NamePtr name;
      step([&] { name = names_->item(Variant(i + 1)); });
      target = target_sheet(name);
    }
    if (*target && **target != sheet_name) return true;
  }
  return false;
}

bool names_link_elsewhere(const host::WorkbookPtr& workbook, StringView body,
                          StringView sheet_name) {
  host::NamesPtr names;
  if (!step([&] { names = require(workbook)->names(); })) return false;
  const int32_t count = value_or(int32_t{0}, [&] { return names->count(); });
  for (int32_t i = 1; i <= count; ++i) {
    host::NamePtr name;
    String text;
    if (!step([&] {
          name = names->item(Variant(i));
          text = name->name();
        }))
      continue;
    if (instr_text(1, body, text) == 0) continue;
    // A name that refers to no range fails the test and the walk goes on.
    std::optional<String> target = target_sheet(name);
    if (target && *target != sheet_name && body.size() >= 2) return true;
  }
  return false;
}

}  // namespace qz::autocolor
