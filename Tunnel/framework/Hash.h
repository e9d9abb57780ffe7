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
