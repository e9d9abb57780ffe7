#include "Tunnel/TunnelTable/Types.h"

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/ColoredEntries.h"
#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/FrrEntries.h"
#include "Tunnel/TunnelTable/IgpEntries.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/L3IntfEntries.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/NexthopGroupEntry.h"
#include "Tunnel/TunnelTable/Prefs.h"
#include "Tunnel/TunnelTable/RsvpLerEntry.h"
#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "Tunnel/TunnelTable/StaticEntries.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/TunnelTable/TunnelVia.h"
#include "Tunnel/TunnelTable/Via.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/net/NetTypes.h"

namespace Tunnel::TunnelTable {

namespace {

bool registerAll() {
  // The vias and tunnel information are made of the network base types.
  Vorn::registerTypes();
  Zent::registerValueType<TunnelType>("Tunnel::TunnelTable::TunnelType");
  Zent::registerValueType<TunnelEntryPref>("Tunnel::TunnelTable::TunnelEntryPref");
  Zent::registerValueType<TunnelId>("Tunnel::TunnelTable::TunnelId");
  Zent::registerValueType<TunnelIgpPref>("Tunnel::TunnelTable::TunnelIgpPref");
  Zent::registerValueType<ViaIndex>(ViaIndex::typeName());
  Zent::registerValueType<TunnelIdCollIndex>(TunnelIdCollIndex::typeName());
  Zent::registerValueType<TepIndex>(TepIndex::typeName());
  Zent::registerValueType<NameIndex>(NameIndex::typeName());
  Zent::registerValueType<EncapType>("Tunnel::TunnelTable::EncapType");
  Zent::registerValueType<EncapId>("Tunnel::TunnelTable::EncapId");
  Zent::registerValueType<Via>("Tunnel::TunnelTable::Via");
  Zent::registerValueType<MplsVia>("Tunnel::TunnelTable::MplsVia");
  Zent::registerValueType<MplsCosVia>("Tunnel::TunnelTable::MplsCosVia");
  Zent::registerValueType<TunnelVia>("Tunnel::TunnelTable::TunnelVia");
  Zent::registerValueType<TunnelBandwidth>("Tunnel::TunnelTable::TunnelBandwidth");
  Zent::registerValueType<Tunnel::TunnelEntrySequenceNumber>("Tunnel::TunnelEntrySequenceNumber");
  Zent::registerValueType<ContributionToTunnelRIB>("Tunnel::TunnelTable::ContributionToTunnelRIB");
  Zent::registerValueType<TristateState>("Tunnel::TunnelTable::TristateState");
  Zent::registerValueType<TristateU32>("Tunnel::TunnelTable::TristateU32");
  Zent::registerValueType<ColoredTunnelEndpoint>("Tunnel::TunnelTable::ColoredTunnelEndpoint");
  Zent::registerValueType<Tunnel::GreTunnelInfo>("Tunnel::GreTunnelInfo");
  Zent::registerValueType<Tunnel::IpsecGreTunnelInfo>("Tunnel::IpsecGreTunnelInfo");
  Zent::registerValueType<Tunnel::IpsecVtiTunnelInfo>("Tunnel::IpsecVtiTunnelInfo");
  Zent::registerValueType<Tunnel::VxlanTunnelInfo>("Tunnel::VxlanTunnelInfo");
  Zent::registerValueType<EvpnVxlanTunnelEntry>("Tunnel::TunnelTable::EvpnVxlanTunnelEntry");
  // Tunnel table entries: the base, IGP, FRR, RSVP LER and colored families.
  Zent::registerValueType<TunnelTableEntry>(TunnelTableEntry::kTypeName);
  Zent::registerValueType<IgpTunnelTableEntryBase>(IgpTunnelTableEntryBase::kTypeName);
  Zent::registerValueType<LdpTunnelTableEntry>(LdpTunnelTableEntry::kTypeName);
  Zent::registerValueType<SrTunnelTableEntry>(SrTunnelTableEntry::kTypeName);
  Zent::registerValueType<FrrTunnelTableEntry>(FrrTunnelTableEntry::kTypeName);
  Zent::registerValueType<RsvpFrrTunnelTableEntry>(RsvpFrrTunnelTableEntry::kTypeName);
  Zent::registerValueType<RsvpLerSubTunnelTableEntry>(RsvpLerSubTunnelTableEntry::kTypeName);
  Zent::registerValueType<TiLfaTunnelTableEntry>(TiLfaTunnelTableEntry::kTypeName);
  Zent::registerValueType<RsvpLerTunnelTableEntry>(RsvpLerTunnelTableEntry::kTypeName);
  Zent::registerValueType<ColoredTunnelTableEntry>(ColoredTunnelTableEntry::kTypeName);
  Zent::registerValueType<SrTePolicyTunnelTableEntry>(SrTePolicyTunnelTableEntry::kTypeName);
  Zent::registerValueType<FlexAlgoTunnelTableEntry>(FlexAlgoTunnelTableEntry::kTypeName);
  // Tunnel table entries: interface tunnel, nexthop-group, SBFD session,
  // static, SR-TE segment list and BGP-LU entries.
  Zent::registerValueType<L3IntfTunnelTableEntry>(L3IntfTunnelTableEntry::kTypeName);
  Zent::registerValueType<GreIntfTunnelTableEntry>(GreIntfTunnelTableEntry::kTypeName);
  Zent::registerValueType<IpsecGreIntfTunnelTableEntry>(IpsecGreIntfTunnelTableEntry::kTypeName);
  Zent::registerValueType<IpsecVtiIntfTunnelTableEntry>(IpsecVtiIntfTunnelTableEntry::kTypeName);
  Zent::registerValueType<NexthopGroupTunnelTableEntry>(NexthopGroupTunnelTableEntry::kTypeName);
  Zent::registerValueType<ZorbSdkSbfdSessionTunnelTableEntry>(
      ZorbSdkSbfdSessionTunnelTableEntry::kTypeName);
  Zent::registerValueType<StaticTunnelTableEntry>(StaticTunnelTableEntry::kTypeName);
  Zent::registerValueType<SrTeSegmentListTunnelTableEntry>(
      SrTeSegmentListTunnelTableEntry::kTypeName);
  Zent::registerValueType<BgpLuPushTunnelTableEntry>(BgpLuPushTunnelTableEntry::kTypeName);
  Zent::registerValueType<BgpLuTunnelTableEntry>(BgpLuTunnelTableEntry::kTypeName);
  return true;
}

}  // namespace

void registerTypes() {
  // A function-local static runs once, also when threads race to it.
  [[maybe_unused]] static bool const registered = registerAll();
}

}  // namespace Tunnel::TunnelTable
