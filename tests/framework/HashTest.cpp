#include <random>

#include <gtest/gtest.h>

#include "Tunnel/framework/Hash.h"

namespace {

// Keys are hashed in every process that maps a table: the inline 64-bit form
// must give exactly the byte hash.
TEST(HashTest, InlineU64HashIsTheByteHashOfItsEightBytes) {
  std::mt19937_64 rng(5);
  for (int i = 0; i < 10000; ++i) {
    uint64_t v = rng();
    uint32_t seed = static_cast<uint32_t>(rng());
    ASSERT_EQ(Zent::hashU64(v, seed), Zent::hashBytes(&v, sizeof v, seed));
  }
  uint64_t zero = 0;
  EXPECT_EQ(Zent::hashU64(0), Zent::hashBytes(&zero, 8));
}

}  // namespace
