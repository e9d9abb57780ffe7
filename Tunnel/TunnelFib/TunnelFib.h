#pragma once
// TunnelFib: the forwarding-side table of resolved tunnels. Five collections
// live in shared-memory tables, one file each under the FIB's mount
// directory: the entries, and the label-stack, IPsec-GRE, IPsec-VTI and GRE
// encapsulations their vias name. VXLAN encapsulations stay in process.
//
// Every shared-memory collection `x` has xIs, xDel, xDelAll, xCommit, the
// lookups x(key) (a default value when absent), x(key, out) and xHas, xKeys,
// xCount and xControl; its reactors hear xNotify(key), and the control's
// attributes carry the mount status and quiescence.

#include <cstdint>
#include <string>
#include <vector>

#include "Tunnel/TunnelFib/Encaps.h"
#include "Tunnel/TunnelFib/TunnelFibEntry.h"
#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/shmem/ZentTamsel/Collection.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace Tunnel::TunnelFib {

// The shared-memory collections: name, key, value, record bound (0: a plain
// copy) and the attribute identifiers of the collection and its control.
#define TUNNEL_FIB_COLLECTIONS(X)                                                            \
  X(entry, TunnelId, TunnelFibEntry, TunnelFibEntry::kMaxSerializedLen, 420, 421)            \
  X(labelStackEncap, EncapId, LabelStackEncap, LabelStackEncap::kMaxSerializedLen, 422, 423) \
  X(ipsecGreEncap, EncapId, IpsecGreEncap, 0, 424, 425)                                      \
  X(ipsecVtiEncap, EncapId, IpsecVtiEncap, 0, 426, 427)                                      \
  X(greEncap, EncapId, GreEncap, 0, 428, 429)

template <typename Value>
struct ValueKey {
  auto operator()(Value const& v) const { return v.key(); }
};
template <typename Key, typename Value, uint32_t Bound>
using FibCollection =
    ZentTamsel::Collection<Key, Value, ValueKey<Value>,
                           std::conditional_t<Bound == 0, ZentTamsel::FixedMarshaller<Value>,
                                              ZentTamsel::CustomMarshaller<Value>>>;

class TunnelFib : public Zent::Entity, public ZentTamsel::Mountable {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::TunnelFib";
  // Under the state root, beside "tunnel/table/" where the protocol tables are.
  static constexpr const char* kMountPath = "tunnel/fib";
  static constexpr Zent::AttributeId kVxlanEncapId = 430;

  explicit TunnelFib(Zent::String const& name);
  ~TunnelFib() override;

#define TUNNEL_FIB_DECLARE(x, Key, Value, bound, id, controlId)                              \
  static constexpr Zent::AttributeId x##Id = id;                                             \
  static constexpr Zent::AttributeId x##ControlId = controlId;                               \
  void x##Is(Value const& v) { x##_.is(v); }                                                 \
  Value x##Del(Key const& k) { return x##_.del(k); }                                         \
  void x##DelAll() { x##_.delAll(); }                                                        \
  void x##Commit(Value const* v) { x##_.commit(v); }                                         \
  Value x(Key const& k) const { return x##_.map().value(k); }                                \
  bool x(Key const& k, Value& out) const { return x##_.map().lookup(k, out); }               \
  bool x##Has(Key const& k) const { return x##_.map().has(k); }                              \
  std::vector<Key> x##Keys(Key const* bookmark = nullptr, size_t max = SIZE_MAX) const {     \
    return x##_.map().keys(bookmark, max);                                                   \
  }                                                                                          \
  uint64_t x##Count() const { return x##_.map().size(); }                                    \
  Zent::Ptr<ZentTamsel::CollectionControl> const& x##Control() const { return x##Control_; } \
  ZentTamsel::TamselMapCore& x##Core() { return x##_.core(); }                               \
  ZentTamsel::TamselMapCore const& x##Core() const { return x##_.core(); }
  TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_DECLARE)
#undef TUNNEL_FIB_DECLARE

  // VXLAN encapsulations: in this process only, with no notifications.
  void vxlanEncapIs(VxlanEncap const& v) { vxlanEncap_.memberIs(v.encapId(), v); }
  bool vxlanEncapDel(EncapId const& k) { return vxlanEncap_.deleteMember(k); }
  void vxlanEncapDelAll() { vxlanEncap_.clear(); }
  bool vxlanEncapHas(EncapId const& k) const { return vxlanEncap_.contains(k); }
  VxlanEncap vxlanEncap(EncapId const& k) const { return vxlanEncap_.lookup(k); }
  uint64_t vxlanEncapCount() const { return vxlanEncap_.size(); }

  Zent::CounterSet const& counters() const { return counters_; }

  // Binds every shared-memory collection to its file in `dir`.
  void tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                   ZentTamsel::MountRegistry& registry) override;
  void tamselUnmount() override;

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void entryNotify(TunnelId const&) {}
    virtual void labelStackEncapNotify(EncapId const&) {}
    virtual void ipsecGreEncapNotify(EncapId const&) {}
    virtual void ipsecVtiEncapNotify(EncapId const&) {}
    virtual void greEncapNotify(EncapId const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 protected:
  void handleParent() override;

 private:
#define TUNNEL_FIB_MEMBER(x, Key, Value, bound, id, controlId)                                 \
  void x##Notify(Key const& k) { notify(x##Id, k); }                                           \
  Zent::Ptr<ZentTamsel::CollectionControl> x##Control_ =                                       \
      ZentTamsel::collectionControlFactory(Zent::String(std::string(name().view()) + "." #x)); \
  FibCollection<Key, Value, bound> x##_{                                                       \
      #x,                                                                                      \
      FibCollection<Key, Value, bound>::shape(kTypeName, #x, bound),                           \
      std::string(name().view()) + "/" #x,                                                     \
      counters_,                                                                               \
      x##Control_,                                                                             \
      [this](Key const& k) { x##Notify(k); }};
  Zent::CounterSet counters_;
  TUNNEL_FIB_COLLECTIONS(TUNNEL_FIB_MEMBER)
#undef TUNNEL_FIB_MEMBER
  Zent::HashMap2018<EncapId, VxlanEncap> vxlanEncap_;

  // Detaches the bindings before the FIB's memory goes.
  class ZeroReferencesNotifiee : public Zent::PtrInterface::ZeroReferencesNotifiee {
   public:
    explicit ZeroReferencesNotifiee(TunnelFib& f) : fib_(f) {}
    void onZeroReferences() override { fib_.tamselUnmount(); }

   private:
    TunnelFib& fib_;
  };
  ZeroReferencesNotifiee zeroReferences_{*this};
};

// A FIB with notifications on, bound to nothing yet (its collections serve
// from in-process tables until mounted).
Zent::Ptr<TunnelFib> tunnelFibFactory(Zent::String const& name);

// Registers the FIB's value and entity types with the type registry.
void registerFibTypes();

// Mounts the FIB at `path` under the mount's state root: a writer creates
// its files, a reader or key shadow joins them. Throws Tamsel::Error when
// the files cannot be opened.
Zent::Ptr<TunnelFib> mountTunnelFib(ZentTamsel::Mount const& mount, ZentTamsel::MountType mode,
                                    Zent::String const& path = Zent::String(TunnelFib::kMountPath));

}  // namespace Tunnel::TunnelFib
