// One contract for the vias, entry fields, tunnel information and EVPN entry:
// copies and parses are equal with equal hashes and identical records, records
// survive a raw byte copy, and a record that passes wellFormed() after a byte
// was damaged is still a value whose text reads back.

#include <cstring>
#include <set>
#include <sstream>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/TunnelTable/TunnelVia.h"
#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/TunnelTable/Via.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "tests/net/RandomValues.h"

namespace Tunnel::TunnelTable {
namespace {

// The record sizes other processes and the table bounds are built on.
static_assert(sizeof(Via) == 36);
static_assert(sizeof(MplsVia) == 108);
static_assert(sizeof(TunnelVia) == 40);
static_assert(sizeof(MplsCosVia) == 112);
static_assert(sizeof(TunnelBandwidth) == 4);
static_assert(sizeof(TunnelEntrySequenceNumber) == 2);
static_assert(sizeof(ContributionToTunnelRIB) == 4);
static_assert(sizeof(TristateU32) == 8);
static_assert(sizeof(ColoredTunnelEndpoint) == 32);
static_assert(sizeof(GreTunnelInfo) == 64);
static_assert(sizeof(IpsecGreTunnelInfo) == 68);
static_assert(sizeof(IpsecVtiTunnelInfo) == 48);
static_assert(sizeof(VxlanTunnelInfo) == 48);
static_assert(sizeof(EvpnVxlanTunnelEntry) == 56);

using Random = Vorn::test::RandomValues;

GreTunnelInfo randomGre(Random& r) {
  return GreTunnelInfo(r.addr(), r.addr(), static_cast<uint32_t>(r.upTo(UINT32_MAX)),
                       static_cast<uint16_t>(r.upTo(UINT16_MAX)), static_cast<uint8_t>(r.upTo(255)),
                       static_cast<uint8_t>(r.upTo(255)), r.coin(), r.coin());
}
VxlanTunnelInfo randomVxlan(Random& r) {
  return VxlanTunnelInfo(r.addr(), r.addr(),
                         static_cast<uint32_t>(r.upTo(VxlanTunnelInfo::kMaxVni)),
                         static_cast<uint16_t>(r.upTo(UINT16_MAX)));
}
MplsVia randomMplsVia(Random& r) { return MplsVia(r.addr(), r.intf(), r.labelOp()); }

template <typename T>
struct Contract;

template <>
struct Contract<Via> {
  static constexpr const char* kName = "Tunnel::TunnelTable::Via";
  static Via random(Random& r) { return Via(r.addr(), r.intf()); }
};
template <>
struct Contract<MplsVia> {
  static constexpr const char* kName = "Tunnel::TunnelTable::MplsVia";
  static MplsVia random(Random& r) { return randomMplsVia(r); }
};
template <>
struct Contract<TunnelVia> {
  static constexpr const char* kName = "Tunnel::TunnelTable::TunnelVia";
  static TunnelVia random(Random& r) {
    EncapId encap(static_cast<EncapType>(r.below(6)), static_cast<uint32_t>(r.upTo(UINT32_MAX)));
    return TunnelVia(r.addr(), r.intf(), encap);
  }
};
template <>
struct Contract<MplsCosVia> {
  static constexpr const char* kName = "Tunnel::TunnelTable::MplsCosVia";
  static MplsCosVia random(Random& r) {
    return MplsCosVia(randomMplsVia(r), static_cast<uint8_t>(r.upTo(255)));
  }
};
template <>
struct Contract<TunnelBandwidth> {
  static constexpr const char* kName = "Tunnel::TunnelTable::TunnelBandwidth";
  static TunnelBandwidth random(Random& r) { return static_cast<uint32_t>(r.upTo(UINT32_MAX)); }
};
template <>
struct Contract<TunnelEntrySequenceNumber> {
  static constexpr const char* kName = "Tunnel::TunnelEntrySequenceNumber";
  static TunnelEntrySequenceNumber random(Random& r) {
    return static_cast<uint16_t>(r.upTo(UINT16_MAX));
  }
};
template <>
struct Contract<ContributionToTunnelRIB> {
  static constexpr const char* kName = "Tunnel::TunnelTable::ContributionToTunnelRIB";
  static ContributionToTunnelRIB random(Random& r) {
    return static_cast<ContributionToTunnelRIB::Code>(r.below(3));
  }
};
template <>
struct Contract<TristateU32> {
  static constexpr const char* kName = "Tunnel::TunnelTable::TristateU32";
  static TristateU32 random(Random& r) {
    return TristateU32(static_cast<uint32_t>(r.upTo(UINT32_MAX)),
                       static_cast<TristateState>(r.below(3)));
  }
};
template <>
struct Contract<ColoredTunnelEndpoint> {
  static constexpr const char* kName = "Tunnel::TunnelTable::ColoredTunnelEndpoint";
  static ColoredTunnelEndpoint random(Random& r) {
    if (r.below(4) == 0) return ColoredTunnelEndpoint(r.prefix());
    return ColoredTunnelEndpoint(r.prefix(), static_cast<uint32_t>(r.upTo(UINT32_MAX)), r.coin());
  }
};
template <>
struct Contract<GreTunnelInfo> {
  static constexpr const char* kName = "Tunnel::GreTunnelInfo";
  static GreTunnelInfo random(Random& r) { return randomGre(r); }
};
template <>
struct Contract<IpsecGreTunnelInfo> {
  static constexpr const char* kName = "Tunnel::IpsecGreTunnelInfo";
  static IpsecGreTunnelInfo random(Random& r) {
    return IpsecGreTunnelInfo(randomGre(r), static_cast<uint32_t>(r.upTo(UINT32_MAX)));
  }
};
template <>
struct Contract<IpsecVtiTunnelInfo> {
  static constexpr const char* kName = "Tunnel::IpsecVtiTunnelInfo";
  static IpsecVtiTunnelInfo random(Random& r) {
    return IpsecVtiTunnelInfo(r.addr(), r.addr(), static_cast<uint32_t>(r.upTo(UINT32_MAX)),
                              static_cast<uint16_t>(r.upTo(UINT16_MAX)),
                              static_cast<uint8_t>(r.upTo(255)), static_cast<uint8_t>(r.upTo(255)));
  }
};
template <>
struct Contract<VxlanTunnelInfo> {
  static constexpr const char* kName = "Tunnel::VxlanTunnelInfo";
  static VxlanTunnelInfo random(Random& r) { return randomVxlan(r); }
};
template <>
struct Contract<EvpnVxlanTunnelEntry> {
  static constexpr const char* kName = "Tunnel::TunnelTable::EvpnVxlanTunnelEntry";
  static EvpnVxlanTunnelEntry random(Random& r) {
    return EvpnVxlanTunnelEntry(TunnelId(r.upTo(TunnelId::maxValue)), randomVxlan(r));
  }
};

template <typename T>
class TunnelValueContractTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { registerTypes(); }
  std::vector<T> values(size_t n = 300) {
    std::vector<T> out;
    for (size_t i = 0; i < n; ++i) out.push_back(Contract<T>::random(rng_));
    return out;
  }
  Random rng_{0x7e11};
};

using TunnelValueTypes =
    ::testing::Types<Via, MplsVia, TunnelVia, MplsCosVia, TunnelBandwidth,
                     TunnelEntrySequenceNumber, ContributionToTunnelRIB, TristateU32,
                     ColoredTunnelEndpoint, GreTunnelInfo, IpsecGreTunnelInfo, IpsecVtiTunnelInfo,
                     VxlanTunnelInfo, EvpnVxlanTunnelEntry>;
TYPED_TEST_SUITE(TunnelValueContractTest, TunnelValueTypes);

TYPED_TEST(TunnelValueContractTest, TextParsesBackToAnEqualValueWithTheSameRecord) {
  for (TypeParam const& v : this->values()) {
    std::string const text = v.stringValue();
    SCOPED_TRACE(text);
    TypeParam const copy = v;
    EXPECT_EQ(copy, v);
    TypeParam const parsed = Zent::strepToValue<TypeParam>(Zent::String(text));
    EXPECT_EQ(parsed, v);
    for (uint32_t seed : {0u, 0x5a5a5a5au}) EXPECT_EQ(parsed.hash(seed), v.hash(seed));
    // Shared-memory tables compare and hash records raw.
    EXPECT_EQ(std::memcmp(&parsed, &v, sizeof(TypeParam)), 0);
    std::ostringstream os;
    os << v;
    EXPECT_EQ(os.str(), text);
    EXPECT_EQ(fmt::format("{}", v), text);
    EXPECT_EQ(valueToStrep(v), text);
    EXPECT_THROW(Zent::strepToValue<TypeParam>(Zent::String(text + "x")), Zent::ParseError);
  }
}

TYPED_TEST(TunnelValueContractTest, DistinctValuesAreUnequalAndMostlyHashApart) {
  std::vector<TypeParam> vs = this->values();
  size_t distinct = 0;
  size_t collisions = 0;
  for (size_t i = 0; i + 1 < vs.size(); ++i) {
    TypeParam const& a = vs[i];
    TypeParam const& b = vs[i + 1];
    EXPECT_EQ(a == b, a.stringValue() == b.stringValue()) << a << " vs " << b;
    if (a != b) {
      ++distinct;
      collisions += a.hash() == b.hash();
    }
  }
  ASSERT_GT(distinct, 100u);
  // A hash that skips a field collides on every pair differing only there.
  EXPECT_LT(collisions, distinct / 50 + 1);
}

TYPED_TEST(TunnelValueContractTest, OnlyTheDefaultValueIsFalse) {
  EXPECT_FALSE(static_cast<bool>(TypeParam()));
  for (TypeParam const& v : this->values()) EXPECT_EQ(static_cast<bool>(v), v != TypeParam()) << v;
}

TYPED_TEST(TunnelValueContractTest, RecordRoundTripsThroughRawBytes) {
  static_assert(std::is_trivially_copyable_v<TypeParam>);
  static_assert(std::is_standard_layout_v<TypeParam>);
  EXPECT_TRUE(TypeParam().wellFormed());
  for (TypeParam const& v : this->values()) {
    ASSERT_TRUE(v.wellFormed()) << v;
    unsigned char record[sizeof(TypeParam)];
    std::memcpy(record, &v, sizeof record);
    TypeParam back;
    std::memcpy(&back, record, sizeof record);
    EXPECT_EQ(back, v);
    EXPECT_EQ(back.hash(3), v.hash(3));
  }
}

// wellFormed() is the only check a reader makes on a foreign record: whatever
// it lets through must be a value, so its text reads back to it.
TYPED_TEST(TunnelValueContractTest, DamagedRecordsThatPassWellFormedAreValues) {
  for (TypeParam const& v : this->values(100)) {
    for (size_t n = 0; n < 16; ++n) {
      unsigned char record[sizeof(TypeParam)];
      std::memcpy(record, &v, sizeof record);
      record[this->rng_.below(sizeof record)] = static_cast<unsigned char>(this->rng_.below(256));
      TypeParam damaged;
      std::memcpy(&damaged, record, sizeof record);
      if (!damaged.wellFormed()) continue;
      std::string const text = damaged.stringValue();
      TypeParam parsed;
      ASSERT_NO_THROW(parsed = Zent::strepToValue<TypeParam>(Zent::String(text))) << text;
      EXPECT_EQ(parsed, damaged) << text;
    }
  }
}

TYPED_TEST(TunnelValueContractTest, RegistryHandlesTheTypeByName) {
  Zent::GenericIf const* t = Zent::type(Contract<TypeParam>::kName);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->genericIfSize(), sizeof(TypeParam));
  for (TypeParam const& v : this->values(30)) {
    EXPECT_EQ(t->genericIfStrRep(&v), v.stringValue());
    EXPECT_EQ(t->genericIfHash(&v), v.hash());
    TypeParam parsed;
    t->genericIfStrepToValue(&parsed, v.stringValue());
    EXPECT_TRUE(t->genericIfEqual(&parsed, &v));
  }
}

template <typename T>
class OrderedTunnelValueTest : public TunnelValueContractTest<T> {};
using OrderedTunnelValueTypes =
    ::testing::Types<Via, MplsVia, TunnelVia, MplsCosVia, TunnelBandwidth, ColoredTunnelEndpoint>;
TYPED_TEST_SUITE(OrderedTunnelValueTest, OrderedTunnelValueTypes);

TYPED_TEST(OrderedTunnelValueTest, OrderingIsStrictAndAgreesWithEquality) {
  std::vector<TypeParam> vs = this->values(200);
  std::set<TypeParam> ordered(vs.begin(), vs.end());
  for (TypeParam const& v : vs) {
    auto it = ordered.find(v);
    ASSERT_NE(it, ordered.end());
    EXPECT_EQ(*it, v);
  }
  for (size_t i = 0; i + 1 < vs.size(); ++i) {
    TypeParam const& a = vs[i];
    TypeParam const& b = vs[i + 1];
    EXPECT_EQ((a <=> b) == 0, a == b);
    EXPECT_EQ(a<b, b> a);
  }
}

}  // namespace
}  // namespace Tunnel::TunnelTable
