#include "Tunnel/TunnelTable/Types.h"

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/Prefs.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
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
  return true;
}

}  // namespace

void registerTypes() {
  // A function-local static runs once, also when threads race to it.
  [[maybe_unused]] static bool const registered = registerAll();
}

}  // namespace Tunnel::TunnelTable
