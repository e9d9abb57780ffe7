#include "Tunnel/TunnelFib/TunnelFib.h"

#include <memory>

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelFib {

TunnelFib::TunnelFib(Zent::String const& name) : Entity(name), counters_(std::string(name.view())) {
  zeroReferencesNotifieeIs(&zeroReferences_);
}

TunnelFib::~TunnelFib() = default;

void TunnelFib::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                            ZentTamsel::MountRegistry& registry) {
#define TUNNEL_FIB_MOUNT(x, ...) x##_.mount(dir, info, registry);
  TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_MOUNT)
#undef TUNNEL_FIB_MOUNT
}

void TunnelFib::tamselUnmount() {
#define TUNNEL_FIB_UNMOUNT(x, ...) x##_.core().unmount();
  TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_UNMOUNT)
#undef TUNNEL_FIB_UNMOUNT
}

void TunnelFib::handleParent() {
  if (parent()) return;
#define TUNNEL_FIB_ORPHAN(x, ...) x##_.core().orphan();
  TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_ORPHAN)
#undef TUNNEL_FIB_ORPHAN
}

void TunnelFib::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  switch (id) {
#define TUNNEL_FIB_DISPATCH(x, Key, ...) \
  case TunnelFib::x##Id:                 \
    x##Notify(key.as<Key>());            \
    break;
    TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_DISPATCH)
#undef TUNNEL_FIB_DISPATCH
    default:
      break;
  }
}

Zent::Ptr<TunnelFib> tunnelFibFactory(Zent::String const& name) {
  return Zent::newEntity<TunnelFib>(name);
}

namespace {

class TunnelFibType : public Zent::GenericIf {
 public:
  TunnelFibType() : GenericIf(TunnelFib::kTypeName, Kind::entity) {
#define TUNNEL_FIB_ATTRIBUTES(x, Key, Value, ...)                                                  \
  attributeIs(                                                                                     \
      {TunnelFib::x##Id, #x, true, Zent::type(keyTypeName<Key>()), Zent::type(Value::kTypeName)}); \
  attributeIs({TunnelFib::x##ControlId, #x "Control", false, nullptr, nullptr});
    TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_ATTRIBUTES)
#undef TUNNEL_FIB_ATTRIBUTES
    attributeIs({TunnelFib::kVxlanEncapId, "vxlanEncap", true,
                 Zent::type("Tunnel::TunnelTable::EncapId"), Zent::type(VxlanEncap::kTypeName)});
  }
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return tunnelFibFactory(name);
  }
  std::unique_ptr<Zent::GenericIterator> genericIfIterator(Zent::Entity const* e,
                                                           Zent::AttributeId id) const override {
    // The iterator removes through the FIB's own mutators.
    auto* fib = const_cast<TunnelFib*>(dynamic_cast<TunnelFib const*>(e));  // NOLINT
    if (!fib) return nullptr;
    switch (id) {
#define TUNNEL_FIB_ITERATOR(x, Key, Value, ...)                                 \
  case TunnelFib::x##Id:                                                        \
    return std::make_unique<Zent::KeysIterator<Key, Value>>(                    \
        fib->x##Keys(), [fib](Key const& k, Value& v) { return fib->x(k, v); }, \
        [fib](Key const& k) { fib->x##Del(k); });
      TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_ITERATOR)
#undef TUNNEL_FIB_ITERATOR
      default:
        return nullptr;
    }
  }

 private:
  template <typename Key>
  static const char* keyTypeName() {
    return std::is_same_v<Key, TunnelId> ? "Tunnel::TunnelTable::TunnelId"
                                         : "Tunnel::TunnelTable::EncapId";
  }
};

}  // namespace

void registerFibTypes() {
  static bool done = [] {
    TunnelTable::registerTypes();
    Zent::registerValueType<TunnelFlags>(TunnelFlags::kTypeName);
    Zent::registerValueType<TunnelViaIndex>(TunnelViaIndex::typeName());
    Zent::registerValueType<TunnelFibEntry>(TunnelFibEntry::kTypeName);
    Zent::registerValueType<LabelStackEncap>(LabelStackEncap::kTypeName);
    Zent::registerValueType<GreEncap>(GreEncap::kTypeName);
    Zent::registerValueType<IpsecGreEncap>(IpsecGreEncap::kTypeName);
    Zent::registerValueType<IpsecVtiEncap>(IpsecVtiEncap::kTypeName);
    Zent::registerValueType<VxlanEncap>(VxlanEncap::kTypeName);
    Zent::typeIs(std::make_unique<TunnelFibType>());
    return true;
  }();
  (void)done;
}

Zent::Ptr<TunnelFib> mountTunnelFib(ZentTamsel::Mount const& mount, ZentTamsel::MountType mode,
                                    Zent::String const& path) {
  registerFibTypes();
  return mount.doMountAs<TunnelFib>(path, ZentTamsel::MountInfo(mode));
}

}  // namespace Tunnel::TunnelFib
