// One stored copy of each distinct parsed formula.
//
// Two formulas are the same when every node, reference and pooled text is: relative parts of
// references are offsets from the formula's cell, so the copies of a formula filled across a
// block compare equal although their texts differ.
#include <cstring>
#include <unordered_set>

#include "engine/calc/formula.hpp"

namespace qz::engine::calc {
namespace {

// The number shares its bytes with the reference, function and column fields; comparing the
// bytes compares whichever of them the node uses (and tells -0 from 0, as rendering does).
uint64_t payload(const Node& n) {
  uint64_t bits = 0;
  std::memcpy(&bits, &n.number, sizeof bits);
  return bits;
}

bool same_node(const Node& x, const Node& y) {
  return x.kind == y.kind && x.op == y.op && x.nargs == y.nargs && x.size == y.size &&
         x.str == y.str && x.ws == y.ws && x.ws2 == y.ws2 && payload(x) == payload(y);
}

bool same_ref(const RefInfo& x, const RefInfo& y) {
  return x.kind == y.kind && x.a == y.a && x.b == y.b && x.sheet == y.sheet &&
         x.sheet2 == y.sheet2 && x.external == y.external && x.has_sheet == y.has_sheet &&
         x.quoted == y.quoted && x.deleted == y.deleted && x.sheet_deleted == y.sheet_deleted &&
         x.name_only == y.name_only;
}

bool same(const Formula& x, const Formula& y) {
  if (x.nodes.size() != y.nodes.size() || x.refs.size() != y.refs.size() || x.pool != y.pool ||
      x.trailing_ws != y.trailing_ws || x.is_volatile != y.is_volatile ||
      x.has_unknown_function != y.has_unknown_function)
    return false;
  for (size_t i = 0; i < x.nodes.size(); ++i)
    if (!same_node(x.nodes[i], y.nodes[i])) return false;
  for (size_t i = 0; i < x.refs.size(); ++i)
    if (!same_ref(x.refs[i], y.refs[i])) return false;
  return true;
}

struct Hasher {
  uint64_t h = 1469598103934665603ull;
  void add(uint64_t v) { h ^= v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2); }
};

size_t hash_of(const Formula& f) {
  Hasher h;
  for (const Node& n : f.nodes) {
    h.add(static_cast<uint64_t>(n.kind) | static_cast<uint64_t>(n.op) << 8 |
          static_cast<uint64_t>(n.nargs) << 16 | static_cast<uint64_t>(n.size) << 32);
    h.add(static_cast<uint64_t>(n.str) | static_cast<uint64_t>(n.ws) << 32);
    h.add(n.ws2);
    h.add(payload(n));
  }
  for (const RefInfo& r : f.refs) {
    h.add(static_cast<uint32_t>(r.a.row) | static_cast<uint64_t>(static_cast<uint32_t>(r.a.col))
                                               << 32);
    h.add(static_cast<uint32_t>(r.b.row) | static_cast<uint64_t>(static_cast<uint32_t>(r.b.col))
                                               << 32);
    h.add(static_cast<uint32_t>(r.sheet) | static_cast<uint64_t>(r.kind) << 32 |
          static_cast<uint64_t>(r.a.row_abs) << 40 | static_cast<uint64_t>(r.a.col_abs) << 41 |
          static_cast<uint64_t>(r.b.row_abs) << 42 | static_cast<uint64_t>(r.b.col_abs) << 43);
  }
  for (const String& s : f.pool) h.add(std::hash<String>{}(s));
  h.add(f.trailing_ws);
  return static_cast<size_t>(h.h);
}

struct Entry {
  size_t hash;
  FormulaPtr formula;
};
struct EntryHash {
  size_t operator()(const Entry& e) const { return e.hash; }
};
struct EntrySame {
  bool operator()(const Entry& x, const Entry& y) const {
    return x.hash == y.hash && (x.formula == y.formula || same(*x.formula, *y.formula));
  }
};

}  // namespace

struct FormulaCache::Impl {
  std::unordered_set<Entry, EntryHash, EntrySame> entries;
  Formula scratch;  // parsed into, then looked up
  // Entries no cell holds any more are dropped when the cache has doubled since the last
  // sweep, so that a long session of edits does not keep every formula it ever saw.
  size_t sweep_at = 4096;

  void sweep() {
    for (auto it = entries.begin(); it != entries.end();)
      it = it->formula.use_count() == 1 ? entries.erase(it) : std::next(it);
    sweep_at = std::max<size_t>(4096, 2 * entries.size());
  }
};

FormulaCache::FormulaCache() : impl_(std::make_unique<Impl>()) {}
FormulaCache::~FormulaCache() = default;
FormulaCache::FormulaCache(FormulaCache&&) noexcept = default;
FormulaCache& FormulaCache::operator=(FormulaCache&&) noexcept = default;

FormulaPtr FormulaCache::intern(FormulaPtr f) {
  if (!f) return f;
  if (impl_->entries.size() >= impl_->sweep_at) impl_->sweep();
  Entry e{hash_of(*f), std::move(f)};
  return impl_->entries.insert(std::move(e)).first->formula;
}

FormulaPtr FormulaCache::parse(StringView text, Notation notation, CellRef origin, SheetId home,
                               const SheetResolver& sheets) {
  Formula& f = impl_->scratch;
  // Back to what a new formula holds, keeping the vectors' memory.
  f.nodes.clear();
  f.refs.clear();
  f.pool.resize(1);
  f.trailing_ws = 0;
  f.is_volatile = false;
  f.has_unknown_function = false;
  parse_into(f, text, notation, origin, home, sheets);
  const size_t hash = hash_of(f);
  // A probe that points at the buffer without owning it.
  auto found = impl_->entries.find(Entry{hash, FormulaPtr(FormulaPtr(), &f)});
  if (found != impl_->entries.end()) return found->formula;
  if (impl_->entries.size() >= impl_->sweep_at) impl_->sweep();
  return impl_->entries.insert(Entry{hash, std::make_shared<const Formula>(f)}).first->formula;
}

void FormulaCache::clear() {
  impl_->entries.clear();
  impl_->sweep_at = 4096;
}

size_t FormulaCache::size() const {
  return impl_->entries.size();
}

}  // namespace qz::engine::calc
