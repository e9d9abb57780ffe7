#include "Tunnel/TunnelTable/Tables.h"

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

// Defines the constructor (the stamps and the collection's bound), the entry
// type and the factory of table `Name`.
#define TUNNEL_TABLE_DEFINE(Name, factory, tunnelType, id, bound, Entry)     \
  Name::Name(Zent::String const& name) : TableBase(name, kTypeName, bound) { \
    tableTypeIs(tunnelType);                                                 \
    tunnelTableIdIs(TunnelTableIdentifier::id);                              \
  }                                                                          \
  Zent::GenericIf const* Name::entryType() const {                           \
    return Zent::type("Tunnel::TunnelTable::" #Entry);                       \
  }                                                                          \
  Zent::Ptr<Name> factory(Zent::String const& name) { return Zent::newEntity<Name>(name); }

TUNNEL_TABLE_DEFINE(BgpLuTunnelTable, bgpLuTunnelTableFactory, bgpLuTunnel, bgpLuTunnelTable, 22257,
                    BgpLuTunnelTableEntry)
TUNNEL_TABLE_DEFINE(BgpLuPushTunnelTable, bgpLuPushTunnelTableFactory, bgpLuPushTunnel,
                    bgpLuPushTunnelTable, 22229, BgpLuPushTunnelTableEntry)
TUNNEL_TABLE_DEFINE(LdpTunnelTable, ldpTunnelTableFactory, ldpTunnel, ldpTunnelTable, 65372,
                    LdpTunnelTableEntry)
TUNNEL_TABLE_DEFINE(RsvpFrrTunnelTable, rsvpFrrTunnelTableFactory, rsvpFrrTunnel,
                    rsvpFrrTunnelTable, 772, RsvpFrrTunnelTableEntry)
TUNNEL_TABLE_DEFINE(RsvpLerSubTunnelTable, rsvpLerSubTunnelTableFactory, rsvpLerSubTunnel,
                    rsvpLerSubTunnelTable, 772, RsvpLerSubTunnelTableEntry)
TUNNEL_TABLE_DEFINE(RsvpLerTunnelTable, rsvpLerTunnelTableFactory, rsvpLerTunnel,
                    rsvpLerTunnelTable, 65596, RsvpLerTunnelTableEntry)
TUNNEL_TABLE_DEFINE(IsisSrTunnelTable, isisSrTunnelTableFactory, isisSrTunnel, isisSrTunnelTable,
                    65372, SrTunnelTableEntry)
TUNNEL_TABLE_DEFINE(OspfSrTunnelTable, ospfSrTunnelTableFactory, ospfSrTunnel, ospfSrTunnelTable,
                    65372, SrTunnelTableEntry)
TUNNEL_TABLE_DEFINE(StaticTunnelTable, staticTunnelTableFactory, staticTunnel, staticTunnelTable,
                    130160, StaticTunnelTableEntry)
TUNNEL_TABLE_DEFINE(NexthopGroupTunnelTable, nexthopGroupTunnelTableFactory, nexthopGroupTunnel,
                    nexthopGroupTunnelTable, 564, NexthopGroupTunnelTableEntry)
TUNNEL_TABLE_DEFINE(SrTeSegmentListTunnelTable, srTeSegmentListTunnelTableFactory,
                    srTeSegmentListTunnel, srTeSegmentListTunnelTable, 65356,
                    SrTeSegmentListTunnelTableEntry)
TUNNEL_TABLE_DEFINE(GreIntfTunnelTable, greIntfTunnelTableFactory, staticInterfaceTunnel,
                    greIntfTunnelTable, 22220, GreIntfTunnelTableEntry)
TUNNEL_TABLE_DEFINE(IpsecVtiIntfTunnelTable, ipsecVtiIntfTunnelTableFactory, staticInterfaceTunnel,
                    ipsecVtiIntfTunnelTable, 22204, IpsecVtiIntfTunnelTableEntry)
TUNNEL_TABLE_DEFINE(IpsecGreIntfTunnelTable, ipsecGreIntfTunnelTableFactory, staticInterfaceTunnel,
                    ipsecGreIntfTunnelTable, 22224, IpsecGreIntfTunnelTableEntry)
TUNNEL_TABLE_DEFINE(TiLfaTunnelTable, tiLfaTunnelTableFactory, tiLfaTunnel, tiLfaTunnelTable, 772,
                    TiLfaTunnelTableEntry)
TUNNEL_TABLE_DEFINE(SrTePolicyTunnelTable, srTePolicyTunnelTableFactory, srTePolicyTunnel,
                    srTePolicyTunnelTable, 564, SrTePolicyTunnelTableEntry)
TUNNEL_TABLE_DEFINE(ZorbSdkSbfdSessionTunnelTable, zorbSdkSbfdSessionTunnelTableFactory,
                    zorbSdkSbfdSessionTunnel, zorbSdkSbfdSessionTunnelTable, 140,
                    ZorbSdkSbfdSessionTunnelTableEntry)
TUNNEL_TABLE_DEFINE(IsisFlexAlgoTunnelTable, isisFlexAlgoTunnelTableFactory, isisFlexAlgoTunnel,
                    isisFlexAlgoTunnelTable, 65372, FlexAlgoTunnelTableEntry)

#undef TUNNEL_TABLE_DEFINE

namespace {

template <typename Table>
void registerTable(Zent::Ptr<Table> (*factory)(Zent::String const&), const char* entryTypeName) {
  Zent::typeIs(std::make_unique<TunnelTableTypeImpl<Table>>(
      Table::kTypeName, factory, Zent::type(entryTypeName),
      Zent::type("Tunnel::TunnelTable::TunnelId")));
}

}  // namespace

void registerTableTypes() {
  static bool done = [] {
    registerTypes();
    registerTable<BgpLuTunnelTable>(bgpLuTunnelTableFactory,
                                    "Tunnel::TunnelTable::BgpLuTunnelTableEntry");
    registerTable<BgpLuPushTunnelTable>(bgpLuPushTunnelTableFactory,
                                        "Tunnel::TunnelTable::BgpLuPushTunnelTableEntry");
    registerTable<LdpTunnelTable>(ldpTunnelTableFactory,
                                  "Tunnel::TunnelTable::LdpTunnelTableEntry");
    registerTable<RsvpFrrTunnelTable>(rsvpFrrTunnelTableFactory,
                                      "Tunnel::TunnelTable::RsvpFrrTunnelTableEntry");
    registerTable<RsvpLerSubTunnelTable>(rsvpLerSubTunnelTableFactory,
                                         "Tunnel::TunnelTable::RsvpLerSubTunnelTableEntry");
    registerTable<RsvpLerTunnelTable>(rsvpLerTunnelTableFactory,
                                      "Tunnel::TunnelTable::RsvpLerTunnelTableEntry");
    registerTable<IsisSrTunnelTable>(isisSrTunnelTableFactory,
                                     "Tunnel::TunnelTable::SrTunnelTableEntry");
    registerTable<OspfSrTunnelTable>(ospfSrTunnelTableFactory,
                                     "Tunnel::TunnelTable::SrTunnelTableEntry");
    registerTable<StaticTunnelTable>(staticTunnelTableFactory,
                                     "Tunnel::TunnelTable::StaticTunnelTableEntry");
    registerTable<NexthopGroupTunnelTable>(nexthopGroupTunnelTableFactory,
                                           "Tunnel::TunnelTable::NexthopGroupTunnelTableEntry");
    registerTable<SrTeSegmentListTunnelTable>(
        srTeSegmentListTunnelTableFactory, "Tunnel::TunnelTable::SrTeSegmentListTunnelTableEntry");
    registerTable<GreIntfTunnelTable>(greIntfTunnelTableFactory,
                                      "Tunnel::TunnelTable::GreIntfTunnelTableEntry");
    registerTable<IpsecVtiIntfTunnelTable>(ipsecVtiIntfTunnelTableFactory,
                                           "Tunnel::TunnelTable::IpsecVtiIntfTunnelTableEntry");
    registerTable<IpsecGreIntfTunnelTable>(ipsecGreIntfTunnelTableFactory,
                                           "Tunnel::TunnelTable::IpsecGreIntfTunnelTableEntry");
    registerTable<EvpnVxlanTunnelTable>(evpnVxlanTunnelTableFactory,
                                        "Tunnel::TunnelTable::EvpnVxlanTunnelEntry");
    registerTable<TiLfaTunnelTable>(tiLfaTunnelTableFactory,
                                    "Tunnel::TunnelTable::TiLfaTunnelTableEntry");
    registerTable<SrTePolicyTunnelTable>(srTePolicyTunnelTableFactory,
                                         "Tunnel::TunnelTable::SrTePolicyTunnelTableEntry");
    registerTable<ZorbSdkSbfdSessionTunnelTable>(
        zorbSdkSbfdSessionTunnelTableFactory,
        "Tunnel::TunnelTable::ZorbSdkSbfdSessionTunnelTableEntry");
    registerTable<IsisFlexAlgoTunnelTable>(isisFlexAlgoTunnelTableFactory,
                                           "Tunnel::TunnelTable::FlexAlgoTunnelTableEntry");
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
