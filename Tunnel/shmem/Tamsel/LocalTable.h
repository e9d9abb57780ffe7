#pragma once
// The in-process table a binding uses before it is mounted: the same
// operations as the shared-memory writer, records kept in process memory and
// held to the same bound, so a table behaves the same before and after mount.

#include <cstdint>
#include <map>
#include <string>

#include "Tunnel/shmem/Tamsel/Table.h"

namespace Tamsel {

class LocalTable {
 public:
  explicit LocalTable(TableShape const& shape) : shape_(shape) {}

  template <typename Fill>
  void write(void const* key, uint32_t /*hash*/, uint32_t len, Fill&& fill) {
    checkLen(len);
    std::string rec(len, '\0');
    fill(rec.data());
    records_[keyString(key)] = std::move(rec);
  }

  template <typename Old>
  bool remove(void const* key, uint32_t /*hash*/, Old&& old) {
    auto it = records_.find(keyString(key));
    if (it == records_.end()) return false;
    old(it->second.data(), static_cast<uint32_t>(it->second.size()));
    records_.erase(it);
    return true;
  }

  bool find(void const* key, uint32_t /*hash*/, char const** rec, uint32_t* len) const {
    auto it = records_.find(keyString(key));
    if (it == records_.end()) return false;
    *rec = it->second.data();
    *len = static_cast<uint32_t>(it->second.size());
    return true;
  }

  template <typename Fn>
  void forEach(Fn&& fn) const {
    for (auto const& [k, r] : records_) fn(k.data(), r.data(), static_cast<uint32_t>(r.size()));
  }

  // Keys in byte order from the first key not below `from` (empty: the
  // start): fn(void const* key) returns false to stop at that key without
  // taking it, and may write and remove. Returns whether the end was reached; `from` then names no
  // key.
  template <typename Fn>
  bool forEachKeyFrom(std::string& from, Fn&& fn) const {
    // fn may remove the key it is given: the walk goes on from a copy.
    for (auto it = records_.lower_bound(from); it != records_.end();
         it = records_.upper_bound(from)) {
      from = it->first;
      if (!fn(static_cast<void const*>(from.data()))) return false;
    }
    from.clear();
    return true;
  }

  uint64_t count() const { return records_.size(); }
  uint64_t liveBytes() const;

 private:
  std::string keyString(void const* key) const {
    return std::string(static_cast<char const*>(key), shape_.keySize);
  }
  void checkLen(uint32_t len) const;

  TableShape shape_;
  // Ordered, so a scan cut into runs resumes at a key.
  std::map<std::string, std::string> records_;
};

}  // namespace Tamsel
