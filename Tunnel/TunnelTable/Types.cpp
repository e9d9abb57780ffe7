#include "Tunnel/TunnelTable/Types.h"

#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/Prefs.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

namespace {

bool registerAll() {
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
  return true;
}

}  // namespace

void registerTypes() {
  // A function-local static runs once, also when threads race to it.
  [[maybe_unused]] static bool const registered = registerAll();
}

}  // namespace Tunnel::TunnelTable
