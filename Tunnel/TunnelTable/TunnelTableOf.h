#pragma once
// TunnelTableOf<Entry>: the typed operations every protocol tunnel table has,
// on one shared-memory collection `entry` keyed by TunnelId. A table class is
// TunnelTableOf of its entry type plus the stamps its constructor sets.
//
// entryIs writes and notifies even when the stored entry is equal: readers
// rely on a notification per write.

#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/shmem/ZentTamsel/Collection.h"

namespace Tunnel::TunnelTable {

template <typename Entry>
struct EntryTunnelId {
  TunnelId operator()(Entry const& e) const { return e.tunnelId(); }
};

template <typename Entry, typename Base = TunnelTableBase,
          typename Marshaller = ZentTamsel::CustomMarshaller<Entry>>
class TunnelTableOf : public Base {
 public:
  using EntryType = Entry;
  using EntryCollection = ZentTamsel::Collection<TunnelId, Entry, EntryTunnelId<Entry>, Marshaller>;
  using EntryMap = typename EntryCollection::Map;

  // `typeName` is the table's qualified type name; `bound` the largest record
  // its collection accepts (0 for fixed-size records).
  TunnelTableOf(Zent::String const& name, const char* typeName, uint32_t bound)
      : Base(name),
        entry_("entry", EntryCollection::shape(typeName, allocatorName(typeName), bound),
               std::string(name.view()), this->counters_, this->entryControl_,
               [this](TunnelId const& k) { this->entryNotify(k); }),
        zeroReferences_(*this) {
    this->zeroReferencesNotifieeIs(&zeroReferences_);
  }

  // Inserts or replaces the entry under e.tunnelId() and notifies once.
  void entryIs(Entry const& e) { entry_.is(e); }
  // Removes and returns the entry; a default entry, without notification,
  // when there was none.
  Entry entryDel(TunnelId const& key) { return entry_.del(key); }
  // Removes every entry, one notification per entry.
  void entryDelAll() { entry_.delAll(); }
  // Publishes an entry its writer changed in place.
  void entryCommit(Entry const* e) { entry_.commit(e); }

  // Makes room for `keys` entries before a burst of writes.
  void entryReserve(uint64_t keys) { entry_.map().reserve(keys); }

  // The entry under `key`, or a default entry when there is none.
  Entry entry(TunnelId const& key) const { return entry_.map().value(key); }
  bool entry(TunnelId const& key, Entry& out) const { return entry_.map().lookup(key, out); }
  // The entries of `n` ids: fn(size_t i, Entry const& e) for each present
  // one; returns how many were. A reader overlaps the lookups' misses, which
  // is what a consumer reading many keys after a burst of notifications
  // wants.
  template <typename Fn>
  size_t entryBatch(TunnelId const* ids, size_t n, Fn&& fn) const {
    return entry_.map().lookupBatch(ids, n, std::forward<Fn>(fn));
  }
  bool entryHas(TunnelId const& key) const { return entry_.map().has(key); }

  // A scan of the entries cut into runs (ZentTamselMap::scan): fn(key)
  // returns whether to go on; true at the end of the table.
  using ScanCursor = typename EntryMap::ScanCursor;
  template <typename Fn>
  bool entryScan(ScanCursor& cursor, TunnelId& next, Fn&& fn) const {
    return entry_.map().scan(cursor, next, std::forward<Fn>(fn));
  }

  ZentTamsel::TamselMapCore& entryCore() override { return entry_.core(); }
  ZentTamsel::TamselMapCore const& entryCore() const override { return entry_.core(); }
  uint64_t entryCount() const override { return entry_.map().size(); }
  std::vector<TunnelId> entryKeys(TunnelId const* bookmark, size_t max) const override {
    return entry_.map().keys(bookmark, max);
  }
  std::string entryText(TunnelId const& key) const override {
    Entry e;
    return entry_.map().lookup(key, e) ? e.stringValue() : std::string();
  }
  // Entry types without a dump form show their canonical text as one line.
  std::string entryDumpText(TunnelId const& key) const override {
    Entry e;
    if (!entry_.map().lookup(key, e)) return std::string();
    std::ostringstream out;
    DumpContext ctx(out);
    if constexpr (requires { e.dumpState(&ctx, 2); }) {
      e.dumpState(&ctx, 2);
    } else {
      dumpf(&ctx, 2, "{}\n", e.stringValue());
    }
    return out.str();
  }

  // Detaches the binding before the table's memory goes.
  class ZeroReferencesNotifiee : public Zent::PtrInterface::ZeroReferencesNotifiee {
   public:
    explicit ZeroReferencesNotifiee(TunnelTableOf& t) : table_(t) {}
    void onZeroReferences() override { table_.entry_.core().unmount(); }

   private:
    TunnelTableOf& table_;
  };

 private:
  // The allocator is named after the table type's last component.
  static std::string allocatorName(const char* typeName) {
    std::string n = typeName;
    return n.substr(n.rfind(':') + 1);
  }

  EntryCollection entry_;
  ZeroReferencesNotifiee zeroReferences_;
};

// The base a table class of `Entry` derives from: the shared operations,
// unless the table needs more (interface tunnels, EVPN identifiers).
template <typename Entry>
struct TableBaseFor {
  using type = TunnelTableOf<Entry>;
};

// Whether a collection bound of `bound` takes every record of `Entry`; 0
// stands for entries stored as a plain copy.
template <typename Entry>
constexpr bool boundHoldsEntry(uint32_t bound) {
  if constexpr (requires { Entry::kTableBound; }) {
    return bound == Entry::kTableBound;  // the entry names its tables' bound
  } else if constexpr (requires { Entry::kMaxSerializedLen; }) {
    return bound != 0 && Entry::kMaxSerializedLen <= bound;
  } else {
    return bound == 0 && std::is_trivially_copyable_v<Entry>;
  }
}

// The registry entry of a table type: created by name (for the mount
// service), with its collections readable by attribute identifier.
template <typename Table>
class TunnelTableTypeImpl : public Zent::GenericIf {
 public:
  using Factory = Zent::Ptr<Table> (*)(Zent::String const&);
  TunnelTableTypeImpl(std::string name, Factory f, Zent::GenericIf const* entryType,
                      Zent::GenericIf const* keyType)
      : GenericIf(std::move(name), Kind::entity), factory_(f) {
    attributeIs({TunnelTableBase::kEntryId, "entry", true, keyType, entryType});
    attributeIs({TunnelTableBase::kEntryControlId, "entryControl", false, nullptr, nullptr});
  }
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return factory_(name);
  }
  std::unique_ptr<Zent::GenericIterator> genericIfIterator(Zent::Entity const* e,
                                                           Zent::AttributeId id) const override {
    auto const* t = dynamic_cast<Table const*>(e);
    if (!t || id != TunnelTableBase::kEntryId) return nullptr;
    // The iterator removes through the table's own mutator.
    auto* table = const_cast<Table*>(t);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    using Entry = typename Table::EntryType;
    return std::make_unique<Zent::KeysIterator<TunnelId, Entry>>(
        table->entryKeys(nullptr, SIZE_MAX),
        [table](TunnelId const& k, Entry& v) { return table->entry(k, v); },
        [table](TunnelId const& k) { table->entryDel(k); });
  }

 private:
  Factory factory_;
};

// Registers a table type: created by name, with its entry and key types.
template <typename Table>
void registerTableType(Zent::Ptr<Table> (*factory)(Zent::String const&),
                       const char* entryTypeName) {
  Zent::typeIs(std::make_unique<TunnelTableTypeImpl<Table>>(
      Table::kTypeName, factory, Zent::type(entryTypeName),
      Zent::type("Tunnel::TunnelTable::TunnelId")));
}

}  // namespace Tunnel::TunnelTable

// A table class from its row (TableList.h): declared in a header, defined and
// registered in one source file. Each is TableBaseFor its entry, with the row's
// stamps and bound.
#define TUNNEL_TABLE_DECLARE(Class, factory, tunnelType, identifier, mountName, bound, Entry)  \
  class Class : public TableBaseFor<Entry>::type {                                             \
   public:                                                                                     \
    static constexpr const char* kTypeName = "Tunnel::TunnelTable::" #Class;                   \
    explicit Class(Zent::String const& name);                                                  \
    Zent::GenericIf const* entryType() const override;                                         \
  };                                                                                           \
  static_assert(boundHoldsEntry<Entry>(bound), #Class "'s bound must hold its largest entry"); \
  Zent::Ptr<Class> factory(Zent::String const& name);

#define TUNNEL_TABLE_DEFINE(Class, factory, tunnelType, identifier, mountName, bound, Entry)   \
  Class::Class(Zent::String const& name) : TableBaseFor<Entry>::type(name, kTypeName, bound) { \
    tableTypeIs(tunnelType);                                                                   \
    tunnelTableIdIs(TunnelTableIdentifier::identifier);                                        \
  }                                                                                            \
  Zent::GenericIf const* Class::entryType() const {                                            \
    return Zent::type("Tunnel::TunnelTable::" #Entry);                                         \
  }                                                                                            \
  Zent::Ptr<Class> factory(Zent::String const& name) { return Zent::newEntity<Class>(name); }

#define TUNNEL_TABLE_REGISTER(Class, factory, tunnelType, identifier, mountName, bound, Entry) \
  registerTableType<Class>(factory, "Tunnel::TunnelTable::" #Entry);
