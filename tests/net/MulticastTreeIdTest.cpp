// Multicast tree names: capacity, quoting, and a record naming a longer name.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/MulticastTreeId.h"
#include "tests/net/ErrorText.h"

namespace Routing::Multicast {
namespace {

TEST(MulticastTreeIdTest, NamesUpToCapacityAreKeptAndLongerOnesRefused) {
  std::string full(MulticastTreeId::kMaxNameLen, 'n');
  EXPECT_EQ(MulticastTreeId(full).name(), full);
  EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>([&] { MulticastTreeId(full + "n"); }),
            "Routing::Multicast::MulticastTreeId::name length < 0 or > 63 not allowed, got 64");
  EXPECT_THROW(Zent::strepToValue<MulticastTreeId>(Zent::String("'" + full + "n'")),
               Zent::ParseError);
  EXPECT_EQ(MulticastTreeId("mldp, 'x'").stringValue(), "'mldp, \\'x\\''");
  EXPECT_THROW(Zent::strepToValue<MulticastTreeId>(Zent::String("tree-1")), Zent::ParseError);
}

TEST(MulticastTreeIdTest, RecordNamingALongerNameIsRefused) {
  std::vector<unsigned char> rec(100, 'a');
  rec[0] = 64;  // longer than any name
  EXPECT_EQ(MulticastTreeId::recordLen(rec.data(), 100), 0u);
  MulticastTreeId kept("kept");
  EXPECT_THROW(kept.deserialize(rec.data(), 100), Zent::RangeException);
  EXPECT_EQ(kept.name(), "kept");
}

}  // namespace
}  // namespace Routing::Multicast
