#pragma once
// Mounting protocol tunnel tables by TunnelTableIdentifier: the identifier
// gives the table's type name, its table name, its path under
// "tunnel/table/" and the writer's mount descriptor; the mounter hands them
// to the shared-memory mount service.

#include <ostream>
#include <string>

#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/TunnelTable/TunnelTableIdentifier.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace Tunnel::TunnelTable {

class TunnelTableInfo {
 public:
  static constexpr const char* kMountPathPrefix = "tunnel/table/";

  TunnelTableInfo() = default;
  TunnelTableInfo(Zent::String tableName, Zent::String typeName, Zent::String mountPath)
      : tableName_(std::move(tableName)),
        typeName_(std::move(typeName)),
        mountPath_(std::move(mountPath)) {}
  TunnelTableInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Zent::String const& tableName() const { return tableName_; }
  void tableNameIs(Zent::String const& s) { tableName_ = s; }
  Zent::String const& typeName() const { return typeName_; }
  void typeNameIs(Zent::String const& s) { typeName_ = s; }
  Zent::String const& mountPath() const { return mountPath_; }
  void mountPathIs(Zent::String const& s) { mountPath_ = s; }

  bool operator==(TunnelTableInfo const&) const = default;
  explicit operator bool() const { return !(*this == TunnelTableInfo()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelTableInfo const& v) {
    return os << v.stringValue();
  }

 private:
  Zent::String tableName_;
  Zent::String typeName_;
  Zent::String mountPath_ = kMountPathPrefix;
};

class TunnelTableMountInfo {
 public:
  TunnelTableMountInfo() = default;
  TunnelTableMountInfo(TunnelTableInfo tableInfo, ZentTamsel::MountInfo writerMountInfo)
      : tableInfo_(std::move(tableInfo)), writerMountInfo_(std::move(writerMountInfo)) {}
  TunnelTableMountInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  TunnelTableInfo const& tableInfo() const { return tableInfo_; }
  ZentTamsel::MountInfo const& writerMountInfo() const { return writerMountInfo_; }

  bool operator==(TunnelTableMountInfo const&) const = default;
  explicit operator bool() const { return !(*this == TunnelTableMountInfo()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelTableMountInfo const& v) {
    return os << v.stringValue();
  }

 private:
  TunnelTableInfo tableInfo_;
  ZentTamsel::MountInfo writerMountInfo_;
};

class TunnelTableMounter {
 public:
  TunnelTableMounter() = default;
  explicit TunnelTableMounter(ZentTamsel::Mount m) : tamselMounter_(std::move(m)) {}
  // Parse errors of the mount handle are reported under "tamselMounter".
  TunnelTableMounter(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  ZentTamsel::Mount const& tamselMounter() const { return tamselMounter_; }
  void tamselMounterIs(ZentTamsel::Mount const& m) { tamselMounter_ = m; }

  // The table's names, path and writer descriptor. Identifier 0 is a
  // programming error; identifiers above 21 deliberately give the empty
  // names and the bare "tunnel/table/" path.
  static TunnelTableMountInfo getMountInfo(TunnelTableIdentifier id);

  Zent::Ptr<TunnelTableBase> mountWriter(TunnelTableIdentifier id) const;
  Zent::Ptr<TunnelTableBase> mountKeyshadow(TunnelTableIdentifier id) const;
  // Null when the mounted entity is not a tunnel table.
  Zent::Ptr<TunnelTableBase> writeMountTable(TunnelTableInfo const& info,
                                             ZentTamsel::MountInfo const& mountInfo) const;
  Zent::Ptr<TunnelTableBase> readMountTable(TunnelTableInfo const& info) const;
  void unmount(TunnelTableIdentifier id) const;
  // Removes the table's shared-memory files once its writer is gone.
  void cleanup(TunnelTableIdentifier id) const;

  bool operator==(TunnelTableMounter const&) const = default;
  explicit operator bool() const { return static_cast<bool>(tamselMounter_); }
  uint32_t hash(uint32_t seed = 0) const { return tamselMounter_.hash(seed); }
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelTableMounter const& v) {
    return os << v.stringValue();
  }

 private:
  ZentTamsel::Mount tamselMounter_;
};

// Registers the mount value types and every table type with the registry.
void registerMountTypes();

}  // namespace Tunnel::TunnelTable
