// One contract for every identifier, preference and index value type: exact
// canonical text, parse of that text, hashing consistent with equality,
// operator bool, the type registry and use as an unordered_map key.

#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/Prefs.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {
namespace {

// For each type: its registry name and samples with their exact text. The
// first sample is the default value; the others differ from it and each other.
template <typename T>
struct Samples;

template <>
struct Samples<TunnelId> {
  static constexpr const char* name = "Tunnel::TunnelTable::TunnelId";
  static std::vector<std::pair<TunnelId, std::string>> values() {
    return {{TunnelId(), "0"},
            {TunnelId(TunnelId::convertToTunnelValue(ldpTunnel, 5)), "52776558133253"},
            {TunnelId(TunnelId::maxValue), "562949953421311"}};
  }
};
template <>
struct Samples<TunnelEntryPref> {
  static constexpr const char* name = "Tunnel::TunnelTable::TunnelEntryPref";
  static std::vector<std::pair<TunnelEntryPref, std::string>> values() {
    return {{TunnelEntryPref(), "0"}, {55, "55"}, {TunnelEntryPref::kNoPreference, "255"}};
  }
};
template <>
struct Samples<TunnelIgpPref> {
  static constexpr const char* name = "Tunnel::TunnelTable::TunnelIgpPref";
  static std::vector<std::pair<TunnelIgpPref, std::string>> values() {
    return {{TunnelIgpPref(), "0"},
            {TunnelIgpPref::defaultRsvpLerIgpPref, "45"},
            {TunnelIgpPref::maxIgpPref, "4294967295"}};
  }
};
template <typename Index>
struct IndexSamples {
  static constexpr const char* name = Index::typeName();
  static std::vector<std::pair<Index, std::string>> values() {
    return {{Index(), "0"}, {1, "1"}, {Index::max, std::to_string(Index::max)}};
  }
};
template <>
struct Samples<ViaIndex> : IndexSamples<ViaIndex> {};
template <>
struct Samples<TunnelIdCollIndex> : IndexSamples<TunnelIdCollIndex> {};
template <>
struct Samples<TepIndex> : IndexSamples<TepIndex> {};
template <>
struct Samples<NameIndex> : IndexSamples<NameIndex> {};
template <>
struct Samples<EncapId> {
  static constexpr const char* name = "Tunnel::TunnelTable::EncapId";
  static std::vector<std::pair<EncapId, std::string>> values() {
    return {{EncapId(),
             "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': none, 'encapValue': 0})"},
            {EncapId(EncapType::none, 1),
             "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': none, 'encapValue': 1})"},
            {EncapId(EncapType::greEncap, 7),
             "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap, 'encapValue': 7})"},
            {EncapId(EncapType::vxlanEncap, 0xffffffff),
             "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': vxlanEncap, 'encapValue': "
             "4294967295})"}};
  }
};

template <typename T>
class ValueTypeTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { registerTypes(); }
  std::vector<std::pair<T, std::string>> const samples_ = Samples<T>::values();
};

using ValueTypes = ::testing::Types<TunnelId, TunnelEntryPref, TunnelIgpPref, ViaIndex,
                                    TunnelIdCollIndex, TepIndex, NameIndex, EncapId>;
TYPED_TEST_SUITE(ValueTypeTest, ValueTypes);

TYPED_TEST(ValueTypeTest, RendersCanonicalTextOnStreamAndStrep) {
  for (auto const& [v, text] : this->samples_) {
    EXPECT_EQ(valueToStrep(v), text);
    std::ostringstream os;
    os << v;
    EXPECT_EQ(os.str(), text);
    EXPECT_EQ(fmt::format("{}", v), text);
  }
}

TYPED_TEST(ValueTypeTest, CanonicalTextParsesBackToAnEqualValue) {
  for (auto const& [v, text] : this->samples_) {
    auto const parsed = Zent::strepToValue<TypeParam>(text);
    EXPECT_EQ(parsed, v) << text;
    EXPECT_EQ(parsed.hash(), v.hash()) << text;
  }
}

TYPED_TEST(ValueTypeTest, ParseRejectsTrailingJunk) {
  for (auto const& [v, text] : this->samples_) {
    EXPECT_THROW(Zent::strepToValue<TypeParam>(text + "x"), Zent::ParseError) << text;
  }
}

TYPED_TEST(ValueTypeTest, EqualValuesHashEqualAndDistinctSamplesAreDistinct) {
  std::set<uint32_t> hashes;
  for (size_t i = 0; i < this->samples_.size(); ++i) {
    TypeParam const& v = this->samples_[i].first;
    TypeParam const copy = v;
    EXPECT_EQ(copy, v);
    EXPECT_EQ(copy.hash(), v.hash());
    EXPECT_EQ(copy.hash(42), v.hash(42));
    hashes.insert(v.hash());
    for (size_t j = i + 1; j < this->samples_.size(); ++j) {
      EXPECT_NE(v, this->samples_[j].first) << i << " vs " << j;
    }
  }
  // Not a constant: a table keyed by this type would otherwise be one bucket.
  EXPECT_GT(hashes.size(), 1u);
}

TYPED_TEST(ValueTypeTest, OnlyTheDefaultValueIsFalse) {
  EXPECT_FALSE(static_cast<bool>(TypeParam()));
  for (size_t i = 1; i < this->samples_.size(); ++i) {
    EXPECT_TRUE(static_cast<bool>(this->samples_[i].first)) << this->samples_[i].second;
  }
}

TYPED_TEST(ValueTypeTest, RegistryHandlesTheTypeByName) {
  Zent::GenericIf const* t = Zent::type(Samples<TypeParam>::name);
  ASSERT_NE(t, nullptr);
  registerTypes();  // a second call registers nothing new
  EXPECT_EQ(Zent::type(Samples<TypeParam>::name), t);
  for (auto const& [v, text] : this->samples_) {
    EXPECT_EQ(t->genericIfStrRep(&v), text);
    EXPECT_EQ(t->genericIfHash(&v), v.hash());
    TypeParam parsed;
    t->genericIfStrepToValue(&parsed, text);
    EXPECT_TRUE(t->genericIfEqual(&parsed, &v)) << text;
  }
}

TYPED_TEST(ValueTypeTest, WorksAsUnorderedMapKey) {
  std::unordered_map<TypeParam, size_t, Zent::KeyHash<TypeParam>> map;
  for (size_t i = 0; i < this->samples_.size(); ++i) map[this->samples_[i].first] = i;
  ASSERT_EQ(map.size(), this->samples_.size());
  for (size_t i = 0; i < this->samples_.size(); ++i) {
    EXPECT_EQ(map.at(this->samples_[i].first), i);
  }
}

TEST(ValueTypeRegistryTest, RegistersBothEnumerations) {
  registerTypes();
  for (const char* name : {"Tunnel::TunnelTable::TunnelType", "Tunnel::TunnelTable::EncapType"}) {
    EXPECT_NE(Zent::type(name), nullptr) << name;
  }
  Zent::GenericValue v(Zent::type("Tunnel::TunnelTable::TunnelType"));
  Zent::type("Tunnel::TunnelTable::TunnelType")->genericIfStrepToValue(v.ptr(), "mldpTunnel");
  EXPECT_EQ(v.strRep(), "mldpTunnel");
}

// The shared-memory tables hash keys in every process with this function.
TEST(ValueTypeHashTest, TunnelIdHashIsTheByteHashOfItsValue) {
  uint64_t const raw = TunnelId::convertToTunnelValue(rsvpLerTunnel, 77);
  EXPECT_EQ(TunnelId(raw).hash(), Zent::hashBytes(&raw, 8, 0));
  EXPECT_EQ(TunnelId(raw).hash(9), Zent::hashBytes(&raw, 8, 9));
}

}  // namespace
}  // namespace Tunnel::TunnelTable
