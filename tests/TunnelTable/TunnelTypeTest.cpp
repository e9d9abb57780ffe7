#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"

namespace Tunnel::TunnelTable {
namespace {

bool isAssigned(uint32_t v) { return v <= 23 || v == 31; }

TEST(TunnelTypeDeathTest, DefaultPrefOfUnassignedTypeAborts) {
  char const* const pattern =
      "TunnelType\\.cpp:[0-9]+: getDefaultPrefForType: assertion failed: "
      "false && \"Unknown tunnel type\"";
  for (uint32_t v : {24u, 30u, 32u, 0xffffffffu}) {
    EXPECT_DEATH(getDefaultPrefForType(static_cast<TunnelType>(v)), pattern) << "type " << v;
  }
}

TEST(TunnelTypeTest, NameRoundTripsForEveryEnumerator) {
  std::set<std::string_view> names;
  for (uint32_t v = 0; v < 32; ++v) {
    if (!isAssigned(v)) continue;
    auto const type = static_cast<TunnelType>(v);
    TunnelType parsed = static_cast<TunnelType>(24);
    ASSERT_TRUE(sequenceToValue(stringValue(type), parsed)) << stringValue(type);
    EXPECT_EQ(parsed, type);
    names.insert(stringValue(type));
  }
  EXPECT_EQ(names.size(), 25u);
  EXPECT_EQ(stringValue(isisFlexAlgoTunnel), "isisFlexAlgoTunnel");
}

TEST(TunnelTypeTest, UnknownNamesDoNotParseAndLeaveTheTarget) {
  for (std::string_view bad : {"", "ldp", "LdpTunnel", "ldpTunnel ", "invalidTunnelType", "3"}) {
    TunnelType t = mldpTunnel;
    EXPECT_FALSE(sequenceToValue(bad, t)) << bad;
    EXPECT_EQ(t, mldpTunnel);
  }
  EXPECT_EQ(stringValue(static_cast<TunnelType>(26)), "invalidTunnelType");
}

TEST(TunnelTypeTest, StreamsItsNameNotItsNumber) {
  std::ostringstream os;
  os << ldpTunnel;
  EXPECT_EQ(os.str(), "ldpTunnel");
  EXPECT_EQ(valueToStrep(ldpTunnel), "ldpTunnel");
}

TEST(EncapTypeTest, NameRoundTripsForEveryEnumerator) {
  std::set<std::string_view> names;
  for (uint32_t v = 0; v <= 5; ++v) {
    auto const type = static_cast<EncapType>(v);
    EncapType parsed = EncapType::vxlanEncap;
    ASSERT_TRUE(sequenceToValue(stringValue(type), parsed)) << stringValue(type);
    EXPECT_EQ(parsed, type);
    names.insert(stringValue(type));
  }
  EXPECT_EQ(names.size(), 6u);
  EncapType t = EncapType::greEncap;
  EXPECT_FALSE(sequenceToValue("gre", t));
  EXPECT_EQ(t, EncapType::greEncap);
  EXPECT_EQ(stringValue(static_cast<EncapType>(6)), "invalidEncapType");
}

}  // namespace
}  // namespace Tunnel::TunnelTable
