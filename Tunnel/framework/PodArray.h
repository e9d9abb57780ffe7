#pragma once
// Fixed-capacity inline array of plain records, indexed by a bounded index
// type. The whole array lives inside its owner (an entry is one flat value
// that can be copied into a shared-memory slot), but copies, comparisons and
// hashes touch only the elements in use.

#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Range.h"

namespace Zent {

template <typename T, typename Index, uint32_t Capacity = 600, uint32_t Min = 0>
class PodArray {
  static_assert(std::is_trivially_copyable_v<T>, "PodArray holds plain records");

 public:
  static constexpr uint32_t capacity = Capacity;
  using value_type = T;
  using IndexType = Index;

  PodArray() = default;
  PodArray(PodArray const& o) : count_(o.count_) { copyFrom(o); }
  PodArray& operator=(PodArray const& o) {
    if (this != &o) {
      count_ = o.count_;
      copyFrom(o);
    }
    return *this;
  }

  uint32_t count() const { return count_; }
  bool empty() const { return count_ == 0; }
  bool full() const { return count_ == Capacity; }

  // The member at `i`, or a default record when `i` is at or past the end.
  T member(Index i) const {
    uint32_t pos = position(i);
    return pos < count_ ? data()[pos] : T{};
  }
  T const& operator[](Index i) const { return data()[position(i)]; }

  // Stores `v` at `i`. Setting at or past the end makes the length i + 1;
  // members in a gap are default records.
  void memberIs(Index i, T const& v) {
    uint32_t pos = position(i);
    for (uint32_t k = count_; k < pos; ++k) ::new (&data()[k]) T{};
    ::new (&data()[pos]) T(v);
    if (pos >= count_) count_ = pos + 1;
  }

  // Appends when there is room; false when full.
  bool push(T const& v) {
    if (count_ == Capacity) return false;
    ::new (&data()[count_]) T(v);
    ++count_;
    return true;
  }

  // Removes the member at `i`, moving later members down one place. Removing
  // past the end does nothing.
  void _memberDel(Index i) {
    uint32_t pos = position(i);
    if (pos >= count_) return;
    std::memmove(static_cast<void*>(&data()[pos]), &data()[pos + 1],
                 sizeof(T) * (count_ - pos - 1));
    --count_;
  }

  void clear() { count_ = 0; }

  // Replaces the contents with `n` records; more than the capacity is refused
  // before anything changes.
  void set(uint64_t n, T const* src) {
    validateSize(n);
    if (n) std::memcpy(static_cast<void*>(data()), src, sizeof(T) * n);
    count_ = static_cast<uint32_t>(n);
  }

  static void validateSize(uint64_t n) {
    if (n > Capacity) {
      throwRangeException("PodArray::set expected size <= " + std::to_string(Capacity) +
                          ", instead got " + std::to_string(n));
    }
  }

  T const* data() const { return std::launder(reinterpret_cast<T const*>(storage_)); }
  T* data() { return std::launder(reinterpret_cast<T*>(storage_)); }

  class IteratorConst {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T const*;
    using reference = T const&;

    IteratorConst() = default;
    IteratorConst(PodArray const* a, uint32_t pos) : a_(a), pos_(pos) {}
    Index key() const { return Index(uint64_t{pos_} + Min); }
    T const& operator*() const { return a_->data()[pos_]; }
    T const* operator->() const { return &a_->data()[pos_]; }
    IteratorConst& operator++() {
      ++pos_;
      return *this;
    }
    IteratorConst operator++(int) {
      IteratorConst old = *this;
      ++pos_;
      return old;
    }
    bool operator==(IteratorConst const& o) const { return pos_ == o.pos_; }

   private:
    PodArray const* a_ = nullptr;
    uint32_t pos_ = 0;
  };

  IteratorConst begin() const { return IteratorConst(this, 0); }
  IteratorConst end() const { return IteratorConst(this, count_); }

  friend bool operator==(PodArray const& a, PodArray const& b) {
    if (a.count_ != b.count_) return false;
    for (uint32_t i = 0; i < a.count_; ++i) {
      if (!(a.data()[i] == b.data()[i])) return false;
    }
    return true;
  }

  uint32_t hash(uint32_t seed = 0) const {
    uint32_t h = hashBytes(&count_, sizeof(count_), seed);
    for (uint32_t i = 0; i < count_; ++i) h = data()[i].hash(h);
    return h;
  }

 private:
  static uint32_t position(Index i) { return static_cast<uint32_t>(uint64_t(i) - Min); }
  void copyFrom(PodArray const& o) {
    if (count_) std::memcpy(static_cast<void*>(data()), o.data(), sizeof(T) * count_);
  }

  uint32_t count_ = 0;
  alignas(T) unsigned char storage_[sizeof(T) * Capacity];
};

}  // namespace Zent
