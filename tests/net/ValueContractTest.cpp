// One contract for every network base type: copies are equal, equal values
// hash equal and have identical records, the text parses back to the value,
// and the type registry handles the type by name the same way.

#include <cstring>
#include <set>
#include <sstream>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/framework/TypeRegistry.h"
#include "tests/net/RandomValues.h"

namespace Vorn::test {
namespace {

using Routing::Multicast::MulticastTreeId;

template <typename T>
struct Contract;

template <>
struct Contract<IpGenAddr> {
  static constexpr const char* kName = "Vorn::IpGenAddr";
  static IpGenAddr random(RandomValues& r) { return r.addr(); }
};
template <>
struct Contract<IpGenPrefix> {
  static constexpr const char* kName = "Vorn::IpGenPrefix";
  static IpGenPrefix random(RandomValues& r) { return r.prefix(); }
};
template <>
struct Contract<IntfId> {
  static constexpr const char* kName = "Vorn::IntfId";
  static IntfId random(RandomValues& r) { return r.intf(); }
};
template <>
struct Contract<MplsLabelOperation> {
  static constexpr const char* kName = "Vorn::MplsLabelOperation";
  static MplsLabelOperation random(RandomValues& r) { return r.labelOp(); }
};
template <>
struct Contract<UnboundedMplsLabelOperation> {
  static constexpr const char* kName = "Vorn::UnboundedMplsLabelOperation";
  static UnboundedMplsLabelOperation random(RandomValues& r) { return r.labelOp(); }
};
template <>
struct Contract<MulticastTreeId> {
  static constexpr const char* kName = "Routing::Multicast::MulticastTreeId";
  static MulticastTreeId random(RandomValues& r) { return r.treeId(); }
};

template <typename T>
class ValueContractTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { registerTypes(); }
  std::vector<T> values(size_t n = 400) {
    std::vector<T> out;
    for (size_t i = 0; i < n; ++i) out.push_back(Contract<T>::random(rng_));
    return out;
  }
  RandomValues rng_{0x5eed};
};

using NetValueTypes = ::testing::Types<IpGenAddr, IpGenPrefix, IntfId, MplsLabelOperation,
                                       UnboundedMplsLabelOperation, MulticastTreeId>;
TYPED_TEST_SUITE(ValueContractTest, NetValueTypes);

TYPED_TEST(ValueContractTest, CopiesAreEqualAndHashEqual) {
  for (TypeParam const& v : this->values()) {
    TypeParam copy = v;
    TypeParam assigned;
    assigned = v;
    EXPECT_EQ(copy, v);
    EXPECT_EQ(assigned, v);
    for (uint32_t seed : {0u, 1u, 0xdeadbeefu}) EXPECT_EQ(copy.hash(seed), v.hash(seed));
  }
}

TYPED_TEST(ValueContractTest, TextParsesBackToAnEqualValueWithTheSameRecord) {
  for (TypeParam const& v : this->values()) {
    std::string text = v.stringValue();
    SCOPED_TRACE(text);
    TypeParam parsed = Zent::strepToValue<TypeParam>(Zent::String(text));
    EXPECT_EQ(parsed, v);
    EXPECT_EQ(parsed.hash(7), v.hash(7));
    EXPECT_EQ(parsed.stringValue(), text);
    // Equal values must be equal byte for byte: records are compared and
    // hashed raw by the shared-memory tables.
    EXPECT_EQ(std::memcmp(&parsed, &v, sizeof(TypeParam)), 0);

    std::ostringstream os;
    os << v;
    EXPECT_EQ(os.str(), text);
    EXPECT_EQ(fmt::format("{}", v), text);
    EXPECT_EQ(Zent::valueToStrep(v), text);
  }
}

TYPED_TEST(ValueContractTest, DistinctValuesAreUnequalAndMostlyHashApart) {
  std::vector<TypeParam> vs = this->values();
  size_t distinctPairs = 0;
  size_t collisions = 0;
  for (size_t i = 0; i + 1 < vs.size(); ++i) {
    TypeParam const& a = vs[i];
    TypeParam const& b = vs[i + 1];
    EXPECT_EQ(a == b, a.stringValue() == b.stringValue()) << a << " vs " << b;
    if (a == b) {
      EXPECT_EQ(a.hash(), b.hash());
    } else {
      ++distinctPairs;
      if (a.hash() == b.hash()) ++collisions;
    }
  }
  ASSERT_GT(distinctPairs, 100u);
  // A hash that skips a field collides on every pair differing only there.
  EXPECT_LT(collisions, distinctPairs / 50 + 1);
}

TYPED_TEST(ValueContractTest, OrderingAgreesWithEquality) {
  std::vector<TypeParam> vs = this->values(200);
  std::set<TypeParam> ordered(vs.begin(), vs.end());
  for (TypeParam const& v : vs) {
    auto it = ordered.find(v);
    ASSERT_NE(it, ordered.end());
    EXPECT_EQ(*it, v);
  }
  for (size_t i = 0; i + 1 < vs.size(); ++i) {
    auto c = vs[i] <=> vs[i + 1];
    EXPECT_EQ(c == 0, vs[i] == vs[i + 1]);
    EXPECT_EQ(c<0, (vs[i + 1] <=> vs[i])> 0);
  }
}

TYPED_TEST(ValueContractTest, OnlyTheDefaultValueIsFalse) {
  EXPECT_FALSE(static_cast<bool>(TypeParam()));
  for (TypeParam const& v : this->values()) {
    EXPECT_EQ(static_cast<bool>(v), v != TypeParam()) << v;
  }
}

TYPED_TEST(ValueContractTest, FixedRecordIsTheRawValue) {
  static_assert(std::is_trivially_copyable_v<TypeParam>);
  EXPECT_TRUE(TypeParam().wellFormed());
  for (TypeParam const& v : this->values()) {
    ASSERT_TRUE(v.wellFormed()) << v;
    alignas(TypeParam) unsigned char record[sizeof(TypeParam)];
    std::memcpy(record, &v, sizeof(record));
    TypeParam back;
    std::memcpy(&back, record, sizeof(record));
    EXPECT_EQ(back, v);
  }
}

// The types whose records have a variable length.
template <typename T>
class VariableRecordTest : public ValueContractTest<T> {};
using VariableRecordTypes = ::testing::Types<UnboundedMplsLabelOperation, MulticastTreeId>;
TYPED_TEST_SUITE(VariableRecordTest, VariableRecordTypes);

TYPED_TEST(VariableRecordTest, RecordRoundTripsAndReportsItsLength) {
  for (TypeParam const& v : this->values()) {
    uint32_t len = v.serializeLen();
    std::vector<unsigned char> buf(len);
    v.serialize(buf.data());
    EXPECT_EQ(v.deserializeLen(buf.data(), len), len);
    TypeParam back;
    back.deserialize(buf.data(), len);
    EXPECT_EQ(back, v);
  }
}

TYPED_TEST(ValueContractTest, RegistryHandlesTheTypeByName) {
  Zent::GenericIf const* t = Zent::type(Contract<TypeParam>::kName);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->genericIfSize(), sizeof(TypeParam));
  for (TypeParam const& v : this->values(50)) {
    EXPECT_EQ(t->genericIfStrRep(&v), v.stringValue());
    EXPECT_EQ(t->genericIfHash(&v), v.hash());
    TypeParam parsed;
    t->genericIfStrepToValue(&parsed, v.stringValue());
    EXPECT_TRUE(t->genericIfEqual(&parsed, &v));
  }
}

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

}  // namespace
}  // namespace Vorn::test
