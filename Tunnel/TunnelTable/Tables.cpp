#include "Tunnel/TunnelTable/Tables.h"

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

#define TUNNEL_TABLE_DEFINE(Class, factory, tunnelType, identifier, mountName, bound, Entry)   \
  Class::Class(Zent::String const& name) : TableBaseFor<Entry>::type(name, kTypeName, bound) { \
    tableTypeIs(tunnelType);                                                                   \
    tunnelTableIdIs(TunnelTableIdentifier::identifier);                                        \
  }                                                                                            \
  Zent::GenericIf const* Class::entryType() const {                                            \
    return Zent::type("Tunnel::TunnelTable::" #Entry);                                         \
  }                                                                                            \
  Zent::Ptr<Class> factory(Zent::String const& name) { return Zent::newEntity<Class>(name); }

TUNNEL_TABLES(TUNNEL_TABLE_DEFINE)

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
#define TUNNEL_TABLE_REGISTER(Class, factory, tunnelType, identifier, mountName, bound, Entry) \
  registerTable<Class>(factory, "Tunnel::TunnelTable::" #Entry);
    TUNNEL_TABLES(TUNNEL_TABLE_REGISTER)
#undef TUNNEL_TABLE_REGISTER
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
