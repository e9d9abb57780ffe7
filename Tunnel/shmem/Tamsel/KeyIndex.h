#pragma once
// What a key-shadow reader last saw of each key: the record's version and the
// key's hash, in one flat open-addressed array placed by the table's own hash
// of the key. Recording a lookup then touches one cache line, which the
// reader asks for while it probes the table, and costs no allocation. A
// large index asks for huge pages, so that a lookup at random does not pay a
// page walk for it as well as for the table.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Tamsel {

class KeyIndex {
 public:
  explicit KeyIndex(uint32_t keySize);
  ~KeyIndex();
  KeyIndex(KeyIndex&& o) noexcept { *this = std::move(o); }
  KeyIndex& operator=(KeyIndex&& o) noexcept;

  size_t size() const { return size_; }
  void clear();
  // A hint: the line where `hash`'s probe starts.
  void prefetch(uint32_t hash) const { __builtin_prefetch(entry(hash & mask_)); }
  // The version recorded for `key`, or null; valid until the index changes.
  uint64_t* find(void const* key, uint32_t hash);
  bool contains(void const* key, uint32_t hash) const {
    return const_cast<KeyIndex*>(this)->find(key, hash) != nullptr;
  }
  void put(void const* key, uint32_t hash, uint64_t version);
  void erase(void const* key, uint32_t hash);
  // fn(void const* key, uint32_t hash, uint64_t& version) for every key; fn
  // may change the version, not the index.
  template <typename Fn>
  void forEach(Fn&& fn) {
    for (uint64_t i = 0; i <= mask_; ++i) {
      uint64_t* e = entry(i);
      if (used(e)) fn(static_cast<void const*>(e + 2), static_cast<uint32_t>(e[1]), e[0]);
    }
  }

 private:
  // An entry: the version, then the hash with a presence bit above it, then
  // the key padded to whole words.
  static constexpr uint64_t kUsed = uint64_t{1} << 32;
  uint64_t* entry(uint64_t i) { return words_ + i * stride_; }
  uint64_t const* entry(uint64_t i) const { return words_ + i * stride_; }
  static bool used(uint64_t const* e) { return (e[1] & kUsed) != 0; }
  bool holds(uint64_t const* e, void const* key, uint32_t hash) const {
    return e[1] == (kUsed | hash) && std::memcmp(e + 2, key, keySize_) == 0;
  }
  void grow();
  // Zeroed room for `entries` entries.
  static uint64_t* allocate(uint64_t words, size_t* bytes);
  static void release(uint64_t* words, size_t bytes);

  uint32_t keySize_ = 0;
  uint32_t stride_ = 2;  // words per entry
  uint64_t mask_ = 0;
  size_t size_ = 0;
  uint64_t* words_ = nullptr;
  size_t bytes_ = 0;
};

}  // namespace Tamsel
