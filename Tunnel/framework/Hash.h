#pragma once
// The byte hash mixer every value type's hash() is built on (MurmurHash3,
// x86 32-bit variant: fast, well distributed and stable across processes,
// which matters because shared-memory tables hash keys in every process).

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace Zent {

uint32_t hashBytes(void const* data, size_t len, uint32_t seed = 0);

// hashBytes of the 8 bytes of `v`, inline: 64-bit keys are hashed on every
// table operation.
inline uint32_t hashU64(uint64_t v, uint32_t seed = 0) {
  auto rotl = [](uint32_t x, int r) { return (x << r) | (x >> (32 - r)); };
  uint32_t h = seed;
  for (uint32_t k : {static_cast<uint32_t>(v), static_cast<uint32_t>(v >> 32)}) {
    k *= 0xcc9e2d51;
    k = rotl(k, 15);
    k *= 0x1b873593;
    h ^= k;
    h = rotl(h, 13);
    h = h * 5 + 0xe6546b64;
  }
  h ^= 8;
  h ^= h >> 16;
  h *= 0x85ebca6b;
  h ^= h >> 13;
  h *= 0xc2b2ae35;
  h ^= h >> 16;
  return h;
}

inline uint32_t hashCombine(uint32_t seed, uint32_t h) {
  return seed ^ (h + 0x9e3779b9u + (seed << 6) + (seed >> 2));
}

template <typename T>
concept HasZentHash = requires(T const& t) {
  { t.hash() } -> std::convertible_to<uint32_t>;
};

// Adapts a value type's hash() to the standard containers.
struct Hasher {
  template <HasZentHash T>
  size_t operator()(T const& t) const {
    return t.hash();
  }
};

}  // namespace Zent
