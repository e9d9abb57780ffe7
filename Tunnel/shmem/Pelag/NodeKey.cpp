#include "Tunnel/shmem/Pelag/NodeKey.h"

#include <algorithm>

#include "Tunnel/framework/Dabin.h"

namespace Pelag {

NodeKey NodeKey::child(uint16_t attr, void const* key, uint32_t len) const {
  fmassert(depth_ < kMaxDepth && used_ + len <= kMaxKeyBytes,
           "node key too deep or too long: depth {}, {} + {} bytes", depth_, used_, len);
  NodeKey k = *this;
  k.attr_[depth_] = attr;
  k.keyLen_[depth_] = static_cast<uint8_t>(len);
  std::memcpy(k.bytes_ + used_, key, len);
  k.used_ = static_cast<uint8_t>(used_ + len);
  k.depth_ = static_cast<uint8_t>(depth_ + 1);
  return k;
}

NodeKey NodeKey::parent() const {
  if (depth_ == 0) return *this;
  NodeKey k = *this;
  uint32_t len = lastLen();
  k.depth_ = static_cast<uint8_t>(depth_ - 1);
  k.used_ = static_cast<uint8_t>(used_ - len);
  std::memset(k.bytes_ + k.used_, 0, len);
  k.attr_[k.depth_] = 0;
  k.keyLen_[k.depth_] = 0;
  return k;
}

bool NodeKey::wellFormed() const {
  if (depth_ > kMaxDepth || used_ > kMaxKeyBytes) return false;
  uint32_t sum = 0;
  for (uint32_t i = 0; i < kMaxDepth; ++i) {
    if (i < depth_) {
      sum += keyLen_[i];
    } else if (keyLen_[i] != 0 || attr_[i] != 0) {
      return false;
    }
  }
  return sum == used_ &&
         std::all_of(bytes_ + used_, bytes_ + kMaxKeyBytes, [](char c) { return c == 0; });
}

}  // namespace Pelag
