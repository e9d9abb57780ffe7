#pragma once
// The tunnel RIBs: for every tunnel endpoint, the tunnels that won. One agent
// writes a RIB; readers in other processes mount it. TunnelRib is keyed by
// the endpoint prefix alone, ColoredTunnelRib by prefix and color. Both keep
// their entries in one shared-memory collection (`tunnelRibEntry`) and a
// change counter that readers watch in a second one-record collection, so
// that a reader in another process sees every change of the counter, also
// the bump of a delete that removed nothing.
//
// Reactors hear tunnelRibEntryNotify(endpoint) for every entry written or
// removed (the uncolored endpoint of the prefix for TunnelRib) and
// handleTunnelRibUpdateCounter() when the counter changed.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/TunnelRibEntry.h"
#include "Tunnel/TunnelTable/TunnelRibId.h"
#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/shmem/ZentTamsel/Collection.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace Tunnel::TunnelTable {

// The one record of a RIB's counter collection: key 0, the counter's value.
using RibCounterKey = ZentTamsel::OneRecordKey;
struct RibCounterRecord {
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::RibCounterRecord";
  RibCounterKey key;
  uint32_t reserved = 0;
  uint64_t value = 0;
  RibCounterKey keyOf() const { return key; }
  bool wellFormed() const { return key.value == 0 && reserved == 0; }
};

class TunnelRibBase : public Zent::Entity, public ZentTamsel::Mountable {
 public:
  static constexpr Zent::AttributeId kIdId = 440;
  static constexpr Zent::AttributeId kTunnelRibUpdateCounterId = 441;
  static constexpr Zent::AttributeId kEntryControlId = 442;
  // The entry collection's attribute, one per key type: a reactor reads the
  // key as an IpGenPrefix for TunnelRib, a ColoredTunnelEndpoint otherwise.
  static constexpr Zent::AttributeId kTunnelRibEntryId = 443;
  static constexpr Zent::AttributeId kColoredTunnelRibEntryId = 444;

  ~TunnelRibBase() override;

  TunnelRibId id() const { return id_; }
  void idIs(TunnelRibId v) { attributeIs(id_, v, kIdId); }

  // Changes on every tunnelRibEntryIs that writes and on every
  // tunnelRibEntryDel; readers in other processes see it change too.
  uint64_t tunnelRibUpdateCounter() const { return tunnelRibUpdateCounter_; }
  // Stores and notifies only when the value changes. Writer only.
  void tunnelRibUpdateCounterIs(uint64_t v);
  void tunnelRibUpdateCounterInc(uint64_t delta) {
    tunnelRibUpdateCounterIs(tunnelRibUpdateCounter_ + delta);
  }

  // Slot order is part of the type; keep it.
  virtual bool isColored() const = 0;
  // Calls `fn` with a copy of every entry, in the keys' stable order.
  virtual void tunnelRibEntrys(std::function<void(TunnelRibEntry const&)> const& fn) const = 0;
  // TunnelRib looks up the prefix of `cep` only and ignores its color.
  virtual bool tunnelRibEntryHas(ColoredTunnelEndpoint const& cep) const = 0;
  // A copy; a default entry when absent.
  virtual TunnelRibEntry tunnelRibEntry(ColoredTunnelEndpoint const& cep) const = 0;
  // Bumps the counter and writes. TunnelRib skips both when the stored entry
  // is equal; ColoredTunnelRib deliberately always does both.
  virtual void tunnelRibEntryIs(TunnelRibEntry const& e) = 0;
  // Bumps the counter, also when nothing is removed, then removes.
  virtual void tunnelRibEntryDel(ColoredTunnelEndpoint const& cep) = 0;

  // False when absent, leaving `out` as it was.
  virtual bool tunnelRibEntry(ColoredTunnelEndpoint const& cep, TunnelRibEntry& out) const = 0;
  // The endpoints in a stable order; for TunnelRib the uncolored endpoint
  // of each prefix.
  virtual std::vector<ColoredTunnelEndpoint> tunnelRibEntryKeys() const = 0;
  virtual uint64_t tunnelRibEntryCount() const = 0;

  // The collection's operations, below the counter: they never touch it.
  // entryIs writes and notifies also when the stored entry is equal.
  virtual void entryIs(TunnelRibEntry const& e) = 0;
  // Publishes an entry its writer changed in place.
  virtual void entryCommit(TunnelRibEntry const* e) = 0;
  // The removed entry; a default one, without notification, when absent.
  virtual TunnelRibEntry entryDel(ColoredTunnelEndpoint const& cep) = 0;
  // One removal, and one notification, per entry.
  virtual void entryDelAll() = 0;
  bool getCurrentQuiescedState() const;

  Zent::Ptr<ZentTamsel::CollectionControl> const& entryControl() const { return entryControl_; }
  void entryControlIs(Zent::Ptr<ZentTamsel::CollectionControl> const& c);
  virtual ZentTamsel::TamselMapCore& entryCore() = 0;
  virtual ZentTamsel::TamselMapCore const& entryCore() const = 0;

  // The RIB's own counters ("tunnelRibEntryIs", "tunnelRibEntryDel",
  // "tunnelRibEntryNotify", and the same for the update counter's record).
  Zent::CounterSet const& counters() const { return counters_; }

  // The header lines, the counter, the table's sequence number and one line
  // per entry; to `ctx` after `indent` blanks, or to the default dump output
  // without indent when `ctx` is null.
  void dumpState(DumpContext* ctx, int indent) const;

  void tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                   ZentTamsel::MountRegistry& registry) override;
  void tamselUnmount() override;

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void tunnelRibEntryNotify(ColoredTunnelEndpoint const&) {}
    virtual void handleTunnelRibUpdateCounter() {}
    virtual void handleId() {}
    virtual void handleEntryControl() {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 protected:
  explicit TunnelRibBase(Zent::String const& name);
  void handleParent() override;
  // Takes the counter from the shared record when it differs.
  void updateCounterRefresh();
  virtual void entryMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                          ZentTamsel::MountRegistry& registry) = 0;

  Zent::CounterSet counters_;
  Zent::Ptr<ZentTamsel::CollectionControl> entryControl_;

 private:
  struct CounterKeyOf {
    RibCounterKey operator()(RibCounterRecord const& r) const { return r.keyOf(); }
  };
  using CounterCollection = ZentTamsel::Collection<RibCounterKey, RibCounterRecord, CounterKeyOf,
                                                   ZentTamsel::FixedMarshaller<RibCounterRecord>>;

  TunnelRibId id_ = kNoTunnelRibId;
  uint64_t tunnelRibUpdateCounter_ = 0;
  Zent::Ptr<ZentTamsel::CollectionControl> counterControl_;
  CounterCollection updateCounter_;
};

// How a RIB keys its entries: the key type, the key of an entry and of an
// endpoint, and back to the endpoint reactors hear.
struct UncoloredRibKey {
  using Key = Vorn::IpGenPrefix;
  static constexpr Zent::AttributeId kAttributeId = TunnelRibBase::kTunnelRibEntryId;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::TunnelRib";
  // An equal rewrite changes nothing and bumps nothing.
  static constexpr bool kWritesEqualEntries = false;
  static Key of(ColoredTunnelEndpoint const& cep) { return cep.tep(); }
  static ColoredTunnelEndpoint endpoint(Key const& k) { return ColoredTunnelEndpoint(k); }
};
struct ColoredRibKey {
  using Key = ColoredTunnelEndpoint;
  static constexpr Zent::AttributeId kAttributeId = TunnelRibBase::kColoredTunnelRibEntryId;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::ColoredTunnelRib";
  // Deliberately unlike the plain RIB: every write bumps the counter.
  static constexpr bool kWritesEqualEntries = true;
  static Key of(ColoredTunnelEndpoint const& cep) { return cep; }
  static ColoredTunnelEndpoint endpoint(Key const& k) { return k; }
};

// The part both RIBs share beyond the base, over their key type.
template <typename KeyTraits>
class TunnelRibOf : public TunnelRibBase {
 public:
  using Key = typename KeyTraits::Key;

  using TunnelRibBase::tunnelRibEntry;
  void tunnelRibEntrys(std::function<void(TunnelRibEntry const&)> const& fn) const override;
  bool tunnelRibEntryHas(ColoredTunnelEndpoint const& cep) const override;
  TunnelRibEntry tunnelRibEntry(ColoredTunnelEndpoint const& cep) const override;
  void tunnelRibEntryIs(TunnelRibEntry const& e) override;
  void tunnelRibEntryDel(ColoredTunnelEndpoint const& cep) override;
  bool tunnelRibEntry(ColoredTunnelEndpoint const& cep, TunnelRibEntry& out) const override;
  std::vector<ColoredTunnelEndpoint> tunnelRibEntryKeys() const override;
  uint64_t tunnelRibEntryCount() const override;

  void entryIs(TunnelRibEntry const& e) override;
  void entryCommit(TunnelRibEntry const* e) override;
  TunnelRibEntry entryDel(ColoredTunnelEndpoint const& cep) override;
  void entryDelAll() override;
  ZentTamsel::TamselMapCore& entryCore() override;
  ZentTamsel::TamselMapCore const& entryCore() const override;

  // By the table's own key, for the type registry's iterator.
  std::vector<Key> entryKeys() const;
  bool entry(Key const& k, TunnelRibEntry& out) const;

 protected:
  explicit TunnelRibOf(Zent::String const& name);
  void entryMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                  ZentTamsel::MountRegistry& registry) override;

 private:
  struct KeyOf {
    Key operator()(TunnelRibEntry const& e) const { return KeyTraits::of(e.coloredTep()); }
  };
  using EntryCollection = ZentTamsel::Collection<Key, TunnelRibEntry, KeyOf,
                                                 ZentTamsel::CustomMarshaller<TunnelRibEntry>>;
  EntryCollection entry_;

  // Detaches the bindings before the RIB's memory goes.
  class ZeroReferencesNotifiee : public Zent::PtrInterface::ZeroReferencesNotifiee {
   public:
    explicit ZeroReferencesNotifiee(TunnelRibOf& r) : rib_(r) {}
    void onZeroReferences() override { rib_.tamselUnmount(); }

   private:
    TunnelRibOf& rib_;
  };
  ZeroReferencesNotifiee zeroReferences_{*this};
};

// Both are instantiated once, in TunnelRib.cpp.
extern template class TunnelRibOf<UncoloredRibKey>;
extern template class TunnelRibOf<ColoredRibKey>;

// Keyed by the endpoint prefix: entries of two colors of one prefix are one.
class TunnelRib : public TunnelRibOf<UncoloredRibKey> {
 public:
  static constexpr const char* kTypeName = UncoloredRibKey::kTypeName;
  // Under the state root, beside "tunnel/table/" where the protocol tables are.
  static constexpr const char* kMountPath = "tunnel/rib/tunnelRib";

  explicit TunnelRib(Zent::String const& name) : TunnelRibOf(name) {}
  bool isColored() const override { return false; }
};

// Keyed by the whole colored endpoint.
class ColoredTunnelRib : public TunnelRibOf<ColoredRibKey> {
 public:
  static constexpr const char* kTypeName = ColoredRibKey::kTypeName;
  static constexpr const char* kMountPath = "tunnel/rib/coloredTunnelRib";

  explicit ColoredTunnelRib(Zent::String const& name) : TunnelRibOf(name) {}
  bool isColored() const override { return true; }
};

// RIBs with notifications on, bound to nothing yet (their collections serve
// from in-process tables until mounted).
Zent::Ptr<TunnelRib> tunnelRibFactory(Zent::String const& name);
Zent::Ptr<ColoredTunnelRib> coloredTunnelRibFactory(Zent::String const& name);

// Registers the RIB's value and entity types with the type registry.
void registerRibTypes();

// Mounts a RIB at `path` under the mount's state root: a writer creates its
// files, a reader or key shadow joins them. Throws Tamsel::Error when the
// files cannot be opened.
Zent::Ptr<TunnelRib> mountTunnelRib(ZentTamsel::Mount const& mount, ZentTamsel::MountType mode,
                                    Zent::String const& path = Zent::String(TunnelRib::kMountPath));
Zent::Ptr<ColoredTunnelRib> mountColoredTunnelRib(
    ZentTamsel::Mount const& mount, ZentTamsel::MountType mode,
    Zent::String const& path = Zent::String(ColoredTunnelRib::kMountPath));

}  // namespace Tunnel::TunnelTable
