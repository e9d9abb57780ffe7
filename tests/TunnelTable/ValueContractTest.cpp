// The value contract of the identifiers, preferences, indexes, vias, entry
// fields, tunnel information and the EVPN entry.

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/TunnelVia.h"
#include "Tunnel/TunnelTable/Types.h"
#include "tests/TunnelTable/EntryTypes.h"
#include "tests/common/ValueContract.h"

namespace valuecontract {

using namespace Tunnel::TunnelTable;
using Tunnel::TunnelEntrySequenceNumber;
using Tunnel::VxlanTunnelInfo;
using Tunnel::TunnelTable::test::EntryRng;

// Type is written qualified: it is also the type registry's name.
#define TUNNEL_VALUE_SOURCE(Type, ...)                                                    \
  template <>                                                                             \
  struct ValueSource<Type> {                                                              \
    using Rng = EntryRng;                                                                 \
    static constexpr const char* kName = #Type;                                           \
    static void registerTypes() { Tunnel::TunnelTable::registerTypes(); }                 \
    static void fill(Type& v, [[maybe_unused]] EntryRng& r, [[maybe_unused]] bool full) { \
      __VA_ARGS__;                                                                        \
    }                                                                                     \
  }

TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TunnelId, v = r.tunnelId());
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TunnelEntryPref, v = r.u8());
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TunnelIgpPref, v = r.u32());
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::ViaIndex, v = r.upTo(ViaIndex::max));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TunnelIdCollIndex, v = r.upTo(TunnelIdCollIndex::max));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TepIndex, v = r.upTo(TepIndex::max));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::NameIndex, v = r.upTo(NameIndex::max));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::EncapId,
                    v = EncapId(static_cast<Tunnel::TunnelTable::EncapType>(r.below(6)), r.u32()));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::Via, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::MplsVia, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TunnelVia,
                    v = TunnelVia(r.addr(), r.intf(),
                                  EncapId(static_cast<EncapType>(r.below(6)), r.u32())));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::MplsCosVia, MplsVia m; r.fill(m, full);
                    v = MplsCosVia(m, r.u8()));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TunnelBandwidth, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelEntrySequenceNumber, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::ContributionToTunnelRIB, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::TristateU32, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::ColoredTunnelEndpoint,
                    v = r.below(4) == 0 ? ColoredTunnelEndpoint(r.prefix())
                                        : ColoredTunnelEndpoint(r.prefix(), r.u32(), r.coin()));
TUNNEL_VALUE_SOURCE(Tunnel::GreTunnelInfo, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::IpsecGreTunnelInfo, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::IpsecVtiTunnelInfo, r.fill(v, full));
TUNNEL_VALUE_SOURCE(Tunnel::VxlanTunnelInfo,
                    v = VxlanTunnelInfo(r.addr(), r.addr(), r.upTo(VxlanTunnelInfo::kMaxVni),
                                        r.u16()));
TUNNEL_VALUE_SOURCE(Tunnel::TunnelTable::EvpnVxlanTunnelEntry,
                    v = EvpnVxlanTunnelEntry(TunnelId(r.upTo(TunnelId::maxValue)),
                                             VxlanTunnelInfo(r.addr(), r.addr(), r.u16(),
                                                             r.u16())));

#undef TUNNEL_VALUE_SOURCE

using TunnelValueTypes = ::testing::Types<
    TunnelId, TunnelEntryPref, TunnelIgpPref, ViaIndex, TunnelIdCollIndex, TepIndex, NameIndex,
    EncapId, Via, MplsVia, TunnelVia, MplsCosVia, TunnelBandwidth, TunnelEntrySequenceNumber,
    ContributionToTunnelRIB, TristateU32, ColoredTunnelEndpoint, Tunnel::GreTunnelInfo,
    Tunnel::IpsecGreTunnelInfo, Tunnel::IpsecVtiTunnelInfo, VxlanTunnelInfo, EvpnVxlanTunnelEntry>;
INSTANTIATE_TYPED_TEST_SUITE_P(TunnelValues, ValueContract, TunnelValueTypes);

// The shared-memory tables hash keys in every process with this function.
TEST(TunnelIdHashTest, IsTheByteHashOfItsValue) {
  uint64_t const raw = TunnelId::convertToTunnelValue(rsvpLerTunnel, 77);
  EXPECT_EQ(TunnelId(raw).hash(), Zent::hashBytes(&raw, 8, 0));
  EXPECT_EQ(TunnelId(raw).hash(9), Zent::hashBytes(&raw, 8, 9));
}

TEST(TunnelTableRegistrationTest, RegistersTheEnumerationsOnce) {
  registerTypes();
  Zent::GenericIf const* type = Zent::type("Tunnel::TunnelTable::TunnelType");
  registerTypes();
  ASSERT_NE(type, nullptr);
  EXPECT_EQ(Zent::type("Tunnel::TunnelTable::TunnelType"), type);
  EXPECT_NE(Zent::type("Tunnel::TunnelTable::EncapType"), nullptr);
  Zent::GenericValue v(type);
  type->genericIfStrepToValue(v.ptr(), "mldpTunnel");
  EXPECT_EQ(v.strRep(), "mldpTunnel");
}

}  // namespace valuecontract
