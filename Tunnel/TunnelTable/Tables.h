#pragma once
// Every protocol tunnel table class. Each is TunnelTableOf its entry type;
// its constructor stamps the table's TunnelType and TunnelTableIdentifier (two
// independent numberings, kept exactly as they are) and its collection takes
// records up to the table's own bound. All are registered with the type
// registry under their qualified names, so the mount service can create a
// table from its type name.

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/ColoredEntries.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelTable.h"
#include "Tunnel/TunnelTable/FrrEntries.h"
#include "Tunnel/TunnelTable/IgpEntries.h"
#include "Tunnel/TunnelTable/L3IntfEntries.h"
#include "Tunnel/TunnelTable/L3IntfTunnelTableBase.h"
#include "Tunnel/TunnelTable/NexthopGroupEntry.h"
#include "Tunnel/TunnelTable/RsvpLerEntry.h"
#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "Tunnel/TunnelTable/StaticEntries.h"
#include "Tunnel/TunnelTable/TunnelTableOf.h"

namespace Tunnel::TunnelTable {

// Declares table class `Name` on `Base` with its factory `factory`.
#define TUNNEL_TABLE_CLASS(Name, Base, factory)                             \
  class Name : public Base {                                                \
   public:                                                                  \
    static constexpr const char* kTypeName = "Tunnel::TunnelTable::" #Name; \
    explicit Name(Zent::String const& name);                                \
    Zent::GenericIf const* entryType() const override;                      \
    using TableBase = Base;                                                 \
    using Name##ZeroReferencesNotifiee = Base::ZeroReferencesNotifiee;      \
  };                                                                        \
  Zent::Ptr<Name> factory(Zent::String const& name)

using GreIntfTableBase = TunnelTableOf<GreIntfTunnelTableEntry, L3IntfTunnelTableBase>;
using IpsecVtiIntfTableBase = TunnelTableOf<IpsecVtiIntfTunnelTableEntry, L3IntfTunnelTableBase>;
using IpsecGreIntfTableBase = TunnelTableOf<IpsecGreIntfTunnelTableEntry, L3IntfTunnelTableBase>;

// The IS-IS and OSPF segment-routing tables share their entry type.
class SrTunnelTableBase : public TunnelTableOf<SrTunnelTableEntry> {
 public:
  using TunnelTableOf::TunnelTableOf;
};

TUNNEL_TABLE_CLASS(BgpLuTunnelTable, TunnelTableOf<BgpLuTunnelTableEntry>, bgpLuTunnelTableFactory);
TUNNEL_TABLE_CLASS(BgpLuPushTunnelTable, TunnelTableOf<BgpLuPushTunnelTableEntry>,
                   bgpLuPushTunnelTableFactory);
TUNNEL_TABLE_CLASS(LdpTunnelTable, TunnelTableOf<LdpTunnelTableEntry>, ldpTunnelTableFactory);
TUNNEL_TABLE_CLASS(RsvpFrrTunnelTable, TunnelTableOf<RsvpFrrTunnelTableEntry>,
                   rsvpFrrTunnelTableFactory);
TUNNEL_TABLE_CLASS(RsvpLerSubTunnelTable, TunnelTableOf<RsvpLerSubTunnelTableEntry>,
                   rsvpLerSubTunnelTableFactory);
TUNNEL_TABLE_CLASS(RsvpLerTunnelTable, TunnelTableOf<RsvpLerTunnelTableEntry>,
                   rsvpLerTunnelTableFactory);
TUNNEL_TABLE_CLASS(IsisSrTunnelTable, SrTunnelTableBase, isisSrTunnelTableFactory);
TUNNEL_TABLE_CLASS(OspfSrTunnelTable, SrTunnelTableBase, ospfSrTunnelTableFactory);
TUNNEL_TABLE_CLASS(StaticTunnelTable, TunnelTableOf<StaticTunnelTableEntry>,
                   staticTunnelTableFactory);
TUNNEL_TABLE_CLASS(NexthopGroupTunnelTable, TunnelTableOf<NexthopGroupTunnelTableEntry>,
                   nexthopGroupTunnelTableFactory);
TUNNEL_TABLE_CLASS(SrTeSegmentListTunnelTable, TunnelTableOf<SrTeSegmentListTunnelTableEntry>,
                   srTeSegmentListTunnelTableFactory);
TUNNEL_TABLE_CLASS(GreIntfTunnelTable, GreIntfTableBase, greIntfTunnelTableFactory);
TUNNEL_TABLE_CLASS(IpsecVtiIntfTunnelTable, IpsecVtiIntfTableBase, ipsecVtiIntfTunnelTableFactory);
TUNNEL_TABLE_CLASS(IpsecGreIntfTunnelTable, IpsecGreIntfTableBase, ipsecGreIntfTunnelTableFactory);
TUNNEL_TABLE_CLASS(TiLfaTunnelTable, TunnelTableOf<TiLfaTunnelTableEntry>, tiLfaTunnelTableFactory);
TUNNEL_TABLE_CLASS(SrTePolicyTunnelTable, TunnelTableOf<SrTePolicyTunnelTableEntry>,
                   srTePolicyTunnelTableFactory);
TUNNEL_TABLE_CLASS(ZorbSdkSbfdSessionTunnelTable, TunnelTableOf<ZorbSdkSbfdSessionTunnelTableEntry>,
                   zorbSdkSbfdSessionTunnelTableFactory);
TUNNEL_TABLE_CLASS(IsisFlexAlgoTunnelTable, TunnelTableOf<FlexAlgoTunnelTableEntry>,
                   isisFlexAlgoTunnelTableFactory);

#undef TUNNEL_TABLE_CLASS

// Idempotent; also registers the entry and identifier value types.
void registerTableTypes();

}  // namespace Tunnel::TunnelTable
