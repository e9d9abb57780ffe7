#pragma once
// The key of one node of a value-store tree: the path from the root, as the
// child attribute and the key record of each level. A child's key names its
// parent's (drop the last level), so a store needs no parent pointers and a
// reader can tell whether a node's parent is present.

#include <cstdint>
#include <cstring>
#include <functional>
#include <type_traits>

#include "Tunnel/framework/Hash.h"

namespace Pelag {

class NodeKey {
 public:
  static constexpr uint32_t kMaxDepth = 4;
  static constexpr uint32_t kMaxKeyBytes = 50;

  // The root: depth 0.
  NodeKey() = default;

  uint32_t depth() const { return depth_; }
  bool root() const { return depth_ == 0; }
  // The child attribute of the last level (0 for the root).
  uint16_t attrId() const { return depth_ == 0 ? 0 : attr_[depth_ - 1]; }
  // The key record of the last level.
  char const* lastKey() const { return bytes_ + used_ - lastLen(); }
  uint32_t lastLen() const { return depth_ == 0 ? 0 : keyLen_[depth_ - 1]; }

  // The key of the child under attribute `attr` whose key record is
  // [key, key + len). Programming error when the path gets too deep or long.
  NodeKey child(uint16_t attr, void const* key, uint32_t len) const;
  // The parent's key; the root's parent is the root.
  NodeKey parent() const;
  template <typename K>
  NodeKey child(uint16_t attr, K const& key) const {
    static_assert(std::is_trivially_copyable_v<K>);
    return child(attr, &key, sizeof(K));
  }
  // The last level's key record as a K; false when it is not K-sized.
  template <typename K>
  bool lastKeyAs(K& out) const {
    static_assert(std::is_trivially_copyable_v<K>);
    if (lastLen() != sizeof(K)) return false;
    std::memcpy(&out, lastKey(), sizeof(K));
    return true;
  }

  // A key read from another process's record: consistent lengths, zero
  // bytes past the path.
  bool wellFormed() const;

  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }
  friend bool operator==(NodeKey const& a, NodeKey const& b) {
    return std::memcmp(&a, &b, sizeof(NodeKey)) == 0;
  }
  // Shallower first, then by bytes: the order in which a writer publishes.
  friend bool operator<(NodeKey const& a, NodeKey const& b) {
    if (a.depth_ != b.depth_) return a.depth_ < b.depth_;
    return std::memcmp(&a, &b, sizeof(NodeKey)) < 0;
  }

 private:
  uint8_t depth_ = 0;
  uint8_t used_ = 0;  // bytes_ in use
  uint8_t keyLen_[kMaxDepth] = {};
  uint16_t attr_[kMaxDepth] = {};
  char bytes_[kMaxKeyBytes] = {};
};

static_assert(sizeof(NodeKey) == 64);
static_assert(std::is_trivially_copyable_v<NodeKey> && std::is_standard_layout_v<NodeKey>);

struct NodeKeyHash {
  size_t operator()(NodeKey const& k) const { return k.hash(); }
};

}  // namespace Pelag
