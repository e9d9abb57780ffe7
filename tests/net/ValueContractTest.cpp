// The value contract of every network base type.

#include <gtest/gtest.h>

#include "Tunnel/framework/TypeRegistry.h"
#include "tests/common/ValueContract.h"
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

}  // namespace valuecontract
