// The value contract of every network base type, and what the multicast
// tree name adds: its capacity, its quoting, and a record naming a longer name.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/net/MulticastTreeId.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"
#include "tests/net/RandomValues.h"

namespace valuecontract {

using Routing::Multicast::MulticastTreeId;
using namespace Vorn;

// Type is written qualified: it is also the type registry's name.
#define NET_VALUE_SOURCE(Type, ...)                                                 \
  template <>                                                                       \
  struct ValueSource<Type> {                                                        \
    using Rng = test::RandomValues;                                                 \
    static constexpr const char* kName = #Type;                                     \
    static void registerTypes() { Vorn::registerTypes(); }                          \
    static void fill(Type& v, test::RandomValues& r, bool) { v = r.__VA_ARGS__(); } \
  }

NET_VALUE_SOURCE(Vorn::IpGenAddr, addr);
NET_VALUE_SOURCE(Vorn::IpGenPrefix, prefix);
NET_VALUE_SOURCE(Vorn::IntfId, intf);
NET_VALUE_SOURCE(Vorn::MplsLabelOperation, labelOp);
NET_VALUE_SOURCE(Vorn::UnboundedMplsLabelOperation, labelOp);
NET_VALUE_SOURCE(Routing::Multicast::MulticastTreeId, treeId);

#undef NET_VALUE_SOURCE

using NetValueTypes = ::testing::Types<IpGenAddr, IpGenPrefix, IntfId, MplsLabelOperation,
                                       UnboundedMplsLabelOperation, MulticastTreeId>;
INSTANTIATE_TYPED_TEST_SUITE_P(Net, ValueContract, NetValueTypes);

TEST(NetTypesRegistration, IsIdempotentAndCoversMetricType) {
  registerTypes();
  Zent::GenericIf const* first = Zent::type("Vorn::MetricType");
  registerTypes();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Zent::type("Vorn::MetricType"), first);
  MetricType m = MetricType::none;
  first->genericIfStrepToValue(&m, "external");
  EXPECT_EQ(m, MetricType::external);
  EXPECT_EQ(first->genericIfStrRep(&m), "external");
}

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

}  // namespace valuecontract
