#include "Tunnel/TunnelTable/TunnelRib.h"

#include <memory>

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

namespace {
constexpr RibCounterKey kCounterKey{};
}  // namespace

TunnelRibBase::TunnelRibBase(Zent::String const& name)
    : Entity(name),
      counters_(name.stringValue()),
      entryControl_(ZentTamsel::collectionControlFactory(name)),
      counterControl_(ZentTamsel::collectionControlFactory(
          Zent::String(name.stringValue() + ".tunnelRibUpdateCounter"))),
      updateCounter_(
          "tunnelRibUpdateCounter",
          CounterCollection::shape(RibCounterRecord::kTypeName, "tunnelRibUpdateCounter", 0),
          name.stringValue() + "/tunnelRibUpdateCounter", counters_, counterControl_,
          [this](RibCounterKey const&) { updateCounterRefresh(); }) {}

TunnelRibBase::~TunnelRibBase() = default;

void TunnelRibBase::tunnelRibUpdateCounterIs(uint64_t v) {
  if (v == tunnelRibUpdateCounter_) return;
  RibCounterRecord r;
  r.value = v;
  // The write's own notification takes the value over and tells reactors,
  // as a reader's does.
  updateCounter_.is(r);
}

void TunnelRibBase::updateCounterRefresh() {
  RibCounterRecord r;
  if (!updateCounter_.map().lookup(kCounterKey, r)) r.value = 0;
  if (r.value == tunnelRibUpdateCounter_) return;
  tunnelRibUpdateCounter_ = r.value;
  notify(kTunnelRibUpdateCounterId);
}

bool TunnelRibBase::getCurrentQuiescedState() const { return entryCore().quiesced(); }

void TunnelRibBase::entryControlIs(Zent::Ptr<ZentTamsel::CollectionControl> const& c) {
  if (entryControl_ == c) return;
  entryControl_ = c;
  notify(kEntryControlId);
}

void TunnelRibBase::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                                ZentTamsel::MountRegistry& registry) {
  entryMount(dir, info, registry);
  updateCounter_.mount(dir, info, registry);
  // A reader starts from the writer's value, a writer that took over a
  // table from the one before it continues from its value.
  updateCounterRefresh();
}

void TunnelRibBase::tamselUnmount() {
  entryCore().unmount();
  updateCounter_.core().unmount();
}

void TunnelRibBase::handleParent() {
  if (parent()) return;
  entryCore().orphan();
  updateCounter_.core().orphan();
}

void TunnelRibBase::dumpState(DumpContext* ctx, int indent) const {
  bool const colored = isColored();
  dumpf(ctx, indent, "{} id {}\n", colored ? "ColoredTunnelRib" : "TunnelRib", id_);
  dumpf(ctx, indent, "  tunnelRibUpdateCounter={}\n", tunnelRibUpdateCounter_);
  dumpf(ctx, indent, "  {} tamsel seqno {}\n",
        colored ? "ColoredTunnelRibEntries" : "TunnelRibEntries", entryCore().seqno());
  tunnelRibEntrys([&](TunnelRibEntry const& e) {
    dumpf(ctx, indent, "TunnelRibEntry {} metric {} metric2 {} pref {} pref2 {}\n",
          colored ? e.coloredTep().stringValue() : e.tep().stringValue(), e.metric(), e.metric2(),
          e.pref(), e.pref2());
  });
}

void TunnelRibBase::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  switch (id) {
    case kTunnelRibEntryId:
      tunnelRibEntryNotify(ColoredTunnelEndpoint(key.as<Vorn::IpGenPrefix>()));
      break;
    case kColoredTunnelRibEntryId:
      tunnelRibEntryNotify(key.as<ColoredTunnelEndpoint>());
      break;
    case kTunnelRibUpdateCounterId:
      handleTunnelRibUpdateCounter();
      break;
    case kIdId:
      handleId();
      break;
    case kEntryControlId:
      handleEntryControl();
      break;
    default:
      break;
  }
}

template <typename KeyTraits>
TunnelRibOf<KeyTraits>::TunnelRibOf(Zent::String const& name)
    : TunnelRibBase(name),
      entry_("tunnelRibEntry",
             EntryCollection::shape(KeyTraits::kTypeName, "tunnelRibEntry",
                                    TunnelRibEntry::kMaxSerializedLen),
             name.stringValue() + "/tunnelRibEntry", counters_, entryControl_,
             [this](Key const& k) { notify(KeyTraits::kAttributeId, k); }) {
  zeroReferencesNotifieeIs(&zeroReferences_);
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::tunnelRibEntrys(
    std::function<void(TunnelRibEntry const&)> const& fn) const {
  // One entry at a time: a RIB of thousands of 7 KB entries is not copied whole.
  TunnelRibEntry e;
  for (Key const& k : entry_.map().keys()) {
    if (entry_.map().lookup(k, e)) fn(e);
  }
}

template <typename KeyTraits>
bool TunnelRibOf<KeyTraits>::tunnelRibEntryHas(ColoredTunnelEndpoint const& cep) const {
  return entry_.map().has(KeyTraits::of(cep));
}

template <typename KeyTraits>
TunnelRibEntry TunnelRibOf<KeyTraits>::tunnelRibEntry(ColoredTunnelEndpoint const& cep) const {
  return entry_.map().value(KeyTraits::of(cep));
}

template <typename KeyTraits>
bool TunnelRibOf<KeyTraits>::tunnelRibEntry(ColoredTunnelEndpoint const& cep,
                                            TunnelRibEntry& out) const {
  return entry_.map().lookup(KeyTraits::of(cep), out);
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::tunnelRibEntryIs(TunnelRibEntry const& e) {
  if constexpr (!KeyTraits::kWritesEqualEntries) {
    TunnelRibEntry stored;
    if (entry_.map().lookup(KeyOf()(e), stored) && stored == e) return;
  }
  tunnelRibUpdateCounterInc(1);
  entryIs(e);
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::tunnelRibEntryDel(ColoredTunnelEndpoint const& cep) {
  tunnelRibUpdateCounterInc(1);
  entryDel(cep);
}

template <typename KeyTraits>
std::vector<ColoredTunnelEndpoint> TunnelRibOf<KeyTraits>::tunnelRibEntryKeys() const {
  std::vector<ColoredTunnelEndpoint> out;
  for (Key const& k : entry_.map().keys()) out.push_back(KeyTraits::endpoint(k));
  return out;
}

template <typename KeyTraits>
uint64_t TunnelRibOf<KeyTraits>::tunnelRibEntryCount() const {
  return entry_.map().size();
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::entryIs(TunnelRibEntry const& e) {
  entry_.is(e);
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::entryCommit(TunnelRibEntry const* e) {
  entry_.commit(e);
}

template <typename KeyTraits>
TunnelRibEntry TunnelRibOf<KeyTraits>::entryDel(ColoredTunnelEndpoint const& cep) {
  return entry_.del(KeyTraits::of(cep));
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::entryDelAll() {
  entry_.delAll();
}

template <typename KeyTraits>
ZentTamsel::TamselMapCore& TunnelRibOf<KeyTraits>::entryCore() {
  return entry_.core();
}

template <typename KeyTraits>
ZentTamsel::TamselMapCore const& TunnelRibOf<KeyTraits>::entryCore() const {
  return entry_.core();
}

template <typename KeyTraits>
std::vector<typename KeyTraits::Key> TunnelRibOf<KeyTraits>::entryKeys() const {
  return entry_.map().keys();
}

template <typename KeyTraits>
bool TunnelRibOf<KeyTraits>::entry(Key const& k, TunnelRibEntry& out) const {
  return entry_.map().lookup(k, out);
}

template <typename KeyTraits>
void TunnelRibOf<KeyTraits>::entryMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                                        ZentTamsel::MountRegistry& registry) {
  entry_.mount(dir, info, registry);
}

template class TunnelRibOf<UncoloredRibKey>;
template class TunnelRibOf<ColoredRibKey>;

Zent::Ptr<TunnelRib> tunnelRibFactory(Zent::String const& name) {
  return Zent::newEntity<TunnelRib>(name);
}

Zent::Ptr<ColoredTunnelRib> coloredTunnelRibFactory(Zent::String const& name) {
  return Zent::newEntity<ColoredTunnelRib>(name);
}

namespace {

template <typename Rib, typename KeyTraits>
class TunnelRibType : public Zent::GenericIf {
 public:
  TunnelRibType(const char* keyTypeName, Zent::Ptr<Rib> (*factory)(Zent::String const&))
      : GenericIf(Rib::kTypeName, Kind::entity), factory_(factory) {
    attributeIs({KeyTraits::kAttributeId, "tunnelRibEntry", true, Zent::type(keyTypeName),
                 Zent::type(TunnelRibEntry::kTypeName)});
    attributeIs({TunnelRibBase::kEntryControlId, "entryControl", false, nullptr, nullptr});
    attributeIs({TunnelRibBase::kTunnelRibUpdateCounterId, "tunnelRibUpdateCounter", false, nullptr,
                 nullptr});
    attributeIs({TunnelRibBase::kIdId, "id", false, nullptr, nullptr});
  }
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return factory_(name);
  }
  std::unique_ptr<Zent::GenericIterator> genericIfIterator(Zent::Entity const* e,
                                                           Zent::AttributeId id) const override {
    // The iterator removes through the RIB's own mutators.
    auto* rib = const_cast<Rib*>(dynamic_cast<Rib const*>(e));  // NOLINT
    if (!rib || id != KeyTraits::kAttributeId) return nullptr;
    using Key = typename KeyTraits::Key;
    return std::make_unique<Zent::KeysIterator<Key, TunnelRibEntry>>(
        rib->entryKeys(), [rib](Key const& k, TunnelRibEntry& v) { return rib->entry(k, v); },
        [rib](Key const& k) { rib->entryDel(KeyTraits::endpoint(k)); });
  }

 private:
  Zent::Ptr<Rib> (*factory_)(Zent::String const&);
};

}  // namespace

void registerRibTypes() {
  static bool done = [] {
    registerTypes();
    Zent::registerValueType<TunnelRibEntry>(TunnelRibEntry::kTypeName);
    Zent::typeIs(std::make_unique<TunnelRibType<TunnelRib, UncoloredRibKey>>("Vorn::IpGenPrefix",
                                                                             tunnelRibFactory));
    Zent::typeIs(std::make_unique<TunnelRibType<ColoredTunnelRib, ColoredRibKey>>(
        "Tunnel::TunnelTable::ColoredTunnelEndpoint", coloredTunnelRibFactory));
    return true;
  }();
  (void)done;
}

Zent::Ptr<TunnelRib> mountTunnelRib(ZentTamsel::Mount const& mount, ZentTamsel::MountType mode,
                                    Zent::String const& path) {
  registerRibTypes();
  return mount.doMountAs<TunnelRib>(path, ZentTamsel::MountInfo(mode));
}

Zent::Ptr<ColoredTunnelRib> mountColoredTunnelRib(ZentTamsel::Mount const& mount,
                                                  ZentTamsel::MountType mode,
                                                  Zent::String const& path) {
  registerRibTypes();
  return mount.doMountAs<ColoredTunnelRib>(path, ZentTamsel::MountInfo(mode));
}

}  // namespace Tunnel::TunnelTable
