#pragma once
// The in-process table a binding uses before it is mounted: the same
// operations as the shared-memory writer, records kept in process memory and
// held to the same bound, so a table behaves the same before and after mount.

#include <cstdint>
#include <string>
#include <unordered_map>

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

  uint64_t count() const { return records_.size(); }
  uint64_t liveBytes() const;

 private:
  std::string keyString(void const* key) const {
    return std::string(static_cast<char const*>(key), shape_.keySize);
  }
  void checkLen(uint32_t len) const;

  TableShape shape_;
  std::unordered_map<std::string, std::string> records_;
};

}  // namespace Tamsel
