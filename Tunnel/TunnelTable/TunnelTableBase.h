#pragma once
// TunnelTableBase: what every protocol tunnel table shares. A table is an
// entity with one keyed collection `entry` kept in a shared-memory table, its
// collection control, the type and identifier it stamps on itself, and the
// counters "entryIs", "entryDel" and "entryNotify". The typed operations live
// in TunnelTableOf; this base is what reactors, the mount service and tools
// see without knowing the entry type.

#include <cstdint>
#include <string>
#include <vector>

#include "Tunnel/TunnelTable/Trace.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelTableIdentifier.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/TamselMapCore.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace Tunnel::TunnelTable {

class TunnelTableBase : public Zent::Entity, public ZentTamsel::Mountable {
 public:
  static constexpr Zent::AttributeId kTableTypeId = 384;
  static constexpr Zent::AttributeId kTunnelTableIdId = 385;
  static constexpr Zent::AttributeId kEntryId = 386;
  static constexpr Zent::AttributeId kEntryControlId = 387;

  explicit TunnelTableBase(Zent::String const& name);
  ~TunnelTableBase() override;

  TunnelType tableType() const { return tableType_; }
  void tableTypeIs(TunnelType t) { attributeIs(tableType_, t, kTableTypeId); }
  TunnelTableIdentifier tunnelTableId() const { return tunnelTableId_; }
  void tunnelTableIdIs(TunnelTableIdentifier id) {
    attributeIs(tunnelTableId_, id, kTunnelTableIdId);
  }

  Zent::Ptr<ZentTamsel::CollectionControl> const& entryControl() const { return entryControl_; }
  void entryControlIs(Zent::Ptr<ZentTamsel::CollectionControl> const& c);

  // The table's own counters, listed with the process's named counters.
  Zent::CounterSet const& counters() const { return counters_; }

  // The collection without its entry type, for tools and the type registry.
  virtual Zent::GenericIf const* entryType() const = 0;
  virtual uint64_t entryCount() const = 0;
  // Keys in a stable order, after `bookmark` when given.
  virtual std::vector<TunnelId> entryKeys(TunnelId const* bookmark = nullptr,
                                          size_t max = SIZE_MAX) const = 0;
  // The canonical text of the entry under `key`; empty when absent.
  virtual std::string entryText(TunnelId const& key) const = 0;
  // The entry's indented dump lines (indent 2); empty when absent.
  virtual std::string entryDumpText(TunnelId const& key) const = 0;
  virtual ZentTamsel::TamselMapCore& entryCore() = 0;
  virtual ZentTamsel::TamselMapCore const& entryCore() const = 0;

  void tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                   ZentTamsel::MountRegistry& registry) override;
  void tamselUnmount() override;

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void entryNotify(TunnelId const&) {}
    virtual void handleEntryControl() {}
    virtual void handleTableType() {}
    virtual void handleTunnelTableId() {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 protected:
  void handleParent() override;
  // Announces a change of `key` to the reactors.
  void entryNotify(TunnelId const& key) { notify(kEntryId, key); }

  Zent::CounterSet counters_;
  Zent::Ptr<ZentTamsel::CollectionControl> entryControl_;

 private:
  TunnelType tableType_ = unknownTunnel;
  TunnelTableIdentifier tunnelTableId_ = TunnelTableIdentifier::invalidTunnelTable;
};

}  // namespace Tunnel::TunnelTable
