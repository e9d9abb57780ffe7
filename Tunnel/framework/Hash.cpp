#include "Tunnel/framework/Hash.h"

#include <cstring>

namespace Zent {
namespace {
inline uint32_t rotl(uint32_t x, int r) { return (x << r) | (x >> (32 - r)); }
}  // namespace

uint32_t hashBytes(void const* data, size_t len, uint32_t seed) {
  auto const* bytes = static_cast<uint8_t const*>(data);
  size_t const nblocks = len / 4;
  uint32_t h = seed;
  constexpr uint32_t c1 = 0xcc9e2d51;
  constexpr uint32_t c2 = 0x1b873593;
  for (size_t i = 0; i < nblocks; ++i) {
    uint32_t k;
    std::memcpy(&k, bytes + i * 4, 4);
    k *= c1;
    k = rotl(k, 15);
    k *= c2;
    h ^= k;
    h = rotl(h, 13);
    h = h * 5 + 0xe6546b64;
  }
  uint8_t const* tail = bytes + nblocks * 4;
  uint32_t k = 0;
  switch (len & 3) {
    case 3:
      k ^= uint32_t{tail[2]} << 16;
      [[fallthrough]];
    case 2:
      k ^= uint32_t{tail[1]} << 8;
      [[fallthrough]];
    case 1:
      k ^= tail[0];
      k *= c1;
      k = rotl(k, 15);
      k *= c2;
      h ^= k;
  }
  h ^= static_cast<uint32_t>(len);
  h ^= h >> 16;
  h *= 0x85ebca6b;
  h ^= h >> 13;
  h *= 0xc2b2ae35;
  h ^= h >> 16;
  return h;
}

}  // namespace Zent
