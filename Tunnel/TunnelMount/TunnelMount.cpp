#include "Tunnel/TunnelMount/TunnelMount.h"

#include <array>

#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/multicast/MulticastTables.h"

namespace Tunnel::TunnelTable {
namespace {

struct TableNames {
  const char* typeName = "";
  const char* tableName = "";
};

// The names are the interface between processes: kept exactly as they are
// ("sr", not "isisSr").
constexpr std::array<TableNames, kMaxTunnelTableIdentifier + 1> kTables = [] {
  std::array<TableNames, kMaxTunnelTableIdentifier + 1> t{};
#define TUNNEL_TABLE_NAMES(Class, factory, tunnelType, identifier, mountName, bound, Entry)    \
  t[static_cast<size_t>(TunnelTableIdentifier::identifier)] = {"Tunnel::TunnelTable::" #Class, \
                                                               mountName};
  TUNNEL_TABLES_ALL(TUNNEL_TABLE_NAMES)
#undef TUNNEL_TABLE_NAMES
  return t;
}();

// Every identifier but 0 has its row.
static_assert([] {
  for (size_t i = 1; i < kTables.size(); ++i) {
    if (kTables[i].tableName[0] == '\0') return false;
  }
  return true;
}());

std::string_view textOf(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  return std::string_view(it.ptr(), static_cast<size_t>(end - it));
}

}  // namespace

TunnelTableInfo::TunnelTableInfo(Zent::String::IteratorConst& it,
                                 Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(textOf(it, end), "Tunnel::TunnelTable::TunnelTableInfo");
  tableName_ = Zent::parseFieldText<Zent::String>(r.field("tableName"), "tableName");
  typeName_ = Zent::parseFieldText<Zent::String>(r.field("typeName"), "typeName");
  mountPath_ = Zent::parseFieldText<Zent::String>(r.field("mountPath"), "mountPath");
  it = end;
}

uint32_t TunnelTableInfo::hash(uint32_t seed) const {
  return mountPath_.hash(typeName_.hash(tableName_.hash(seed)));
}

std::string TunnelTableInfo::stringValue() const {
  return Zent::ValueText("Tunnel::TunnelTable::TunnelTableInfo")
      .field("tableName", tableName_)
      .field("typeName", typeName_)
      .field("mountPath", mountPath_)
      .str();
}

TunnelTableMountInfo::TunnelTableMountInfo(Zent::String::IteratorConst& it,
                                           Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(textOf(it, end), "Tunnel::TunnelTable::TunnelTableMountInfo");
  tableInfo_ = Zent::parseFieldText<TunnelTableInfo>(r.field("tableInfo"), "tableInfo");
  writerMountInfo_ =
      Zent::parseFieldText<ZentTamsel::MountInfo>(r.field("writerMountInfo"), "writerMountInfo");
  it = end;
}

uint32_t TunnelTableMountInfo::hash(uint32_t seed) const {
  return writerMountInfo_.hash(tableInfo_.hash(seed));
}

std::string TunnelTableMountInfo::stringValue() const {
  return Zent::ValueText("Tunnel::TunnelTable::TunnelTableMountInfo")
      .field("tableInfo", tableInfo_)
      .field("writerMountInfo", writerMountInfo_)
      .str();
}

TunnelTableMounter::TunnelTableMounter(Zent::String::IteratorConst& it,
                                       Zent::String::IteratorConst const& end) {
  Zent::ValueTextReader r(textOf(it, end), "Tunnel::TunnelTable::TunnelTableMounter");
  try {
    tamselMounter_ =
        Zent::parseFieldText<ZentTamsel::Mount>(r.field("tamselMounter"), "tamselMounter");
  } catch (Zent::RangeException const& e) {
    Zent::throwRangeException(std::string("tamselMounter: ") + e.what());
  }
  it = end;
}

std::string TunnelTableMounter::stringValue() const {
  return Zent::ValueText("Tunnel::TunnelTable::TunnelTableMounter")
      .field("tamselMounter", tamselMounter_)
      .str();
}

TunnelTableMountInfo TunnelTableMounter::getMountInfo(TunnelTableIdentifier id) {
  TunnelTableInfo info;
  ZentTamsel::MountInfo writer(ZentTamsel::writer());
  writer.collectionInfoIs("entry", 1024);
  auto i = static_cast<size_t>(id);
  if (i == 0) {
    Dabin::assertFailed("0 && \"Must give a valid TunnelTableIdentifier.\"", __FILE__, __func__,
                        __LINE__);
  }
  if (i < kTables.size()) {
    info.tableNameIs(kTables[i].tableName);
    info.typeNameIs(kTables[i].typeName);
    info.mountPathIs(Zent::String(TunnelTableInfo::kMountPathPrefix) + kTables[i].tableName);
  }
  return TunnelTableMountInfo(info, writer);
}

Zent::Ptr<TunnelTableBase> TunnelTableMounter::writeMountTable(
    TunnelTableInfo const& info, ZentTamsel::MountInfo const& mountInfo) const {
  registerMountTypes();
  Zent::Ptr<Zent::Entity> e = tamselMounter_.doMount(info.mountPath(), info.typeName(), mountInfo);
  auto table = Zent::dynamicPtrCast<TunnelTableBase>(e);
  if (!table && e) tamselMounter_.doUnmount(info.mountPath());
  return table;
}

Zent::Ptr<TunnelTableBase> TunnelTableMounter::readMountTable(TunnelTableInfo const& info) const {
  return writeMountTable(info, ZentTamsel::MountInfo(ZentTamsel::keyShadow()));
}

Zent::Ptr<TunnelTableBase> TunnelTableMounter::mountWriter(TunnelTableIdentifier id) const {
  auto m = getMountInfo(id);
  return writeMountTable(m.tableInfo(), m.writerMountInfo());
}

Zent::Ptr<TunnelTableBase> TunnelTableMounter::mountKeyshadow(TunnelTableIdentifier id) const {
  return readMountTable(getMountInfo(id).tableInfo());
}

void TunnelTableMounter::unmount(TunnelTableIdentifier id) const {
  tamselMounter_.doUnmount(getMountInfo(id).tableInfo().mountPath());
}

void TunnelTableMounter::cleanup(TunnelTableIdentifier id) const {
  tamselMounter_.cleanup(getMountInfo(id).tableInfo().mountPath());
}

void registerMountTypes() {
  static bool done = [] {
    registerTableTypes();
    registerMulticastTableTypes();
    ZentTamsel::registerTypes();
    Zent::registerValueType<TunnelTableInfo>("Tunnel::TunnelTable::TunnelTableInfo");
    Zent::registerValueType<TunnelTableMountInfo>("Tunnel::TunnelTable::TunnelTableMountInfo");
    Zent::registerValueType<TunnelTableMounter>("Tunnel::TunnelTable::TunnelTableMounter");
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
