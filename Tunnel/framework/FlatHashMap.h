#pragma once
// A keyed collection in one array (open addressing, linear probing), for
// large collections of small members looked up on every event: a lookup
// touches about one cache line, where HashMap2018's nodes cost a bucket, the
// node before and the node itself. The interface is HashMap2018's
// external-key form. Deleting leaves a tombstone and moves nothing, so
// iteration stays valid when the member under the iterator is deleted;
// inserting while iterating does not.

#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "Tunnel/framework/HashMap2018.h"

namespace Zent {

template <typename Key, typename Value>
class FlatHashMap {
 public:
  using KeyType = Key;
  using ValueType = Value;

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  Value const* find(Key const& k) const {
    size_t const i = slotOf(k);
    return i == kNone ? nullptr : &slots_[i].value;
  }
  Value* find(Key const& k) {
    size_t const i = slotOf(k);
    return i == kNone ? nullptr : &slots_[i].value;
  }
  bool contains(Key const& k) const { return slotOf(k) != kNone; }

  // Starts loading the slot where the search for `k` begins (both its cache
  // lines when it straddles two), so that its miss overlaps other work before
  // the lookup. The empty asm keeps g++ from finding this function pure and
  // dropping its calls.
  void prefetch(Key const& k) const {
    if (slots_.empty()) return;
    auto const* s = reinterpret_cast<char const*>(&slots_[home(k)]);
    __builtin_prefetch(s);
    __builtin_prefetch(s + sizeof(Slot) - 1);
    asm volatile("" : : "r"(s));
  }

  // The member, or a default value.
  Value lookup(Key const& k) const {
    auto const* v = find(k);
    return v ? *v : Value{};
  }

  // Inserts a new member under `k`; an existing member is kept and returned
  // with false.
  std::pair<Value*, bool> newMember(Key const& k, Value const& v) {
    if (Value* cur = find(k)) return {cur, false};
    return {&insert(k, v), true};
  }

  // Inserts or overwrites.
  Value& memberIs(Key const& k, Value const& v) {
    if (Value* cur = find(k)) return *cur = v;
    return insert(k, v);
  }

  // Removes the member under `k`; when one was removed, `old` receives it.
  bool deleteMember(Key const& k, Value* old = nullptr) {
    size_t const i = slotOf(k);
    if (i == kNone) return false;
    Slot& s = slots_[i];
    if (old) *old = std::move(s.value);
    s = Slot{};
    --size_;
    // A tombstone is needed only where a probe may have to go on past it: a
    // run that ends here ends at an empty slot, with the tombstones before it.
    if (slots_[(i + 1) & mask()].state != State::empty) {
      s.state = State::deleted;
      ++deleted_;
      return true;
    }
    for (size_t j = (i - 1) & mask(); slots_[j].state == State::deleted; j = (j - 1) & mask()) {
      slots_[j].state = State::empty;
      --deleted_;
    }
    return true;
  }

  void clear() {
    slots_.clear();
    size_ = deleted_ = 0;
    shift_ = 64;
  }

  template <bool Const>
  class IteratorBase {
    using MapRef = std::conditional_t<Const, FlatHashMap const, FlatHashMap>;

   public:
    IteratorBase() = default;
    IteratorBase(MapRef* m, size_t i) : map_(m), i_(m->nextFull(i)) {}
    Key const& key() const { return map_->slots_[i_].key; }
    auto& value() const { return map_->slots_[i_].value; }
    auto& operator*() const { return value(); }
    auto* operator->() const { return &value(); }
    IteratorBase& operator++() {
      i_ = map_->nextFull(i_ + 1);
      return *this;
    }
    bool operator==(IteratorBase const& o) const { return i_ == o.i_; }
    explicit operator bool() const { return map_ && i_ < map_->slots_.size(); }

   private:
    MapRef* map_ = nullptr;
    size_t i_ = 0;
  };
  using Iterator = IteratorBase<false>;
  using IteratorConst = IteratorBase<true>;

  Iterator begin() { return Iterator(this, 0); }
  Iterator end() { return Iterator(this, slots_.size()); }
  IteratorConst begin() const { return IteratorConst(this, 0); }
  IteratorConst end() const { return IteratorConst(this, slots_.size()); }

  friend bool operator==(FlatHashMap const& a, FlatHashMap const& b) {
    if (a.size() != b.size()) return false;
    for (auto it = a.begin(); it; ++it) {
      Value const* v = b.find(it.key());
      if (!v || !(*v == *it)) return false;
    }
    return true;
  }

 private:
  enum class State : uint8_t { empty, full, deleted };
  struct Slot {
    Key key{};
    Value value{};
    State state = State::empty;
  };
  static constexpr size_t kNone = SIZE_MAX;
  static constexpr size_t kMinSlots = 8;

  // The key's hash spread over the top bits (Fibonacci hashing), so that a
  // weak hash such as the identity of small integers still probes evenly.
  size_t home(Key const& k) const {
    return static_cast<size_t>((uint64_t{KeyHash<Key>()(k)} * 0x9e3779b97f4a7c15ull) >> shift_);
  }
  size_t mask() const { return slots_.size() - 1; }

  size_t slotOf(Key const& k) const {
    if (size_ == 0) return kNone;
    for (size_t i = home(k);; i = (i + 1) & mask()) {
      Slot const& s = slots_[i];
      if (s.state == State::empty) return kNone;
      if (s.state == State::full && s.key == k) return i;
    }
  }

  size_t nextFull(size_t i) const {
    while (i < slots_.size() && slots_[i].state != State::full) ++i;
    return i;
  }

  // `k` is known to be absent. Members and tombstones together stay under
  // three quarters of the slots, so that every probe ends at an empty slot.
  Value& insert(Key const& k, Value const& v) {
    if ((size_ + deleted_ + 1) * 4 > slots_.size() * 3) rehash();
    size_t i = home(k);
    while (slots_[i].state == State::full) i = (i + 1) & mask();
    if (slots_[i].state == State::deleted) --deleted_;
    slots_[i] = Slot{k, v, State::full};
    ++size_;
    return slots_[i].value;
  }

  // Drops the tombstones, and doubles the slots while members would fill
  // more than half of them.
  void rehash() {
    size_t n = kMinSlots;
    while ((size_ + 1) * 2 > n) n *= 2;
    std::vector<Slot> old(n);
    old.swap(slots_);
    shift_ = 64;
    for (size_t b = n; b > 1; b /= 2) --shift_;
    deleted_ = 0;
    for (Slot& s : old) {
      if (s.state != State::full) continue;
      size_t i = home(s.key);
      while (slots_[i].state == State::full) i = (i + 1) & mask();
      slots_[i] = std::move(s);
    }
  }

  std::vector<Slot> slots_;
  size_t size_ = 0;
  size_t deleted_ = 0;
  unsigned shift_ = 64;  // 64 less log2 of the slots
};

}  // namespace Zent
