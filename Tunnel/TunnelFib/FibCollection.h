#pragma once
// One shared-memory collection of the tunnel FIB: its binding, its control
// attribute, its three counters, and the listener that turns what the binding
// hears into the FIB's notifications. The FIB holds five of these.

#include <functional>
#include <string>
#include <vector>

#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamselMap.h"

namespace Tunnel::TunnelFib {

template <typename Value>
struct ValueKey {
  auto operator()(Value const& v) const { return v.key(); }
};

template <typename Key, typename Value, typename Marshaller>
class FibCollection final : public ZentTamsel::CollectionListener {
 public:
  using Map = ZentTamsel::ZentTamselMap<Key, Value, ValueKey<Value>, Marshaller>;
  using Notify = std::function<void(Key const&)>;

  // `name` is the collection's ("entry"), `owner` the FIB's name, `typeName`
  // the FIB's type recorded in the file; `bound` 0 keeps plain copies.
  FibCollection(std::string const& name, std::string const& owner, const char* typeName,
                uint32_t bound, Zent::CounterSet& counters, Notify notify)
      : name_(name),
        map_(shape(name, typeName, bound)),
        control_(ZentTamsel::collectionControlFactory(Zent::String(owner + "." + name))),
        isCounter_(counters.counterIs(name + "Is")),
        delCounter_(counters.counterIs(name + "Del")),
        notifyCounter_(counters.counterIs(name + "Notify")),
        notify_(std::move(notify)) {
    map_.entity(owner + "/" + name, this);
  }

  std::string const& name() const { return name_; }
  Map& map() { return map_; }
  Map const& map() const { return map_; }
  ZentTamsel::TamselMapCore& core() { return map_.core(); }
  ZentTamsel::TamselMapCore const& core() const { return map_.core(); }
  Zent::Ptr<ZentTamsel::CollectionControl> const& control() const { return control_; }

  void is(Value const& v) {
    isCounter_.inc();
    guarded([&] { map_.safeWrite(v); });
    notified(v.key());
  }
  // The removed value; a default one, without notification, when absent.
  Value del(Key const& k) {
    delCounter_.inc();
    Value old;
    bool removed = false;
    guarded([&] { removed = map_.safeRemove(k, &old); });
    if (!removed) {
      publishCounters();
      return Value();
    }
    notified(k);
    return old;
  }
  void delAll() {
    for (Key const& k : map_.keys()) del(k);
  }
  void commit(Value const* v) {
    guarded([&] { map_.directCommit(*v); });
    notified(v->key());
  }

  void mount(std::string const& dir, ZentTamsel::MountInfo const& info,
             ZentTamsel::MountRegistry& registry) {
    core().mount(dir, name_, info, registry);
  }

  // The binding's news.
  void keyChanged(void const* key) override {
    Key k;
    std::memcpy(static_cast<void*>(&k), key, sizeof k);
    map_.shadowRefresh(k);
    notified(k);
  }
  void resynchronised(bool overflow) override {
    fmtraceTo(ZentTamsel::dabinFacility_, 5, "{} resynchronised overflow:{}", core().name(),
              overflow);
    map_.shadowRefreshAll();
  }
  void mountStatusChanged() override {
    map_.shadowRefreshAll();
    control_->modeIs(core().mode());
    control_->mountStatusIs(core().mountStatus());
  }
  void quiescedChanged(bool quiesced) override { control_->quiescedIs(quiesced); }

 private:
  static Tamsel::TableShape shape(std::string const& name, const char* typeName, uint32_t bound) {
    Tamsel::TableShape s;
    s.typeName = typeName;
    s.allocatorName = name;
    if (bound == 0) {
      s.fixedPayload = sizeof(Value);
    } else {
      s.maxPayload = bound;
    }
    return s;
  }
  // A corrupt record met by a mutator stops the process: shared memory that
  // is corrupt is never written further.
  template <typename Fn>
  void guarded(Fn&& fn) {
    try {
      fn();
    } catch (ZentTamsel::CorruptionException const& c) {
      core().doCorruptionDetected(c.what());
      Dabin::fatal(__FILE__, __func__, __LINE__, "in no man's land");
    }
  }
  void notified(Key const& k) {
    notifyCounter_.inc();
    notify_(k);
    publishCounters();
  }
  // A writer publishes its counters in the collection's file, for tools.
  void publishCounters() {
    if (auto* w = core().writer()) {
      w->publishedCounterIs(0, isCounter_.value());
      w->publishedCounterIs(1, delCounter_.value());
      w->publishedCounterIs(2, notifyCounter_.value());
    }
  }

  std::string name_;
  Map map_;
  Zent::Ptr<ZentTamsel::CollectionControl> control_;
  Zent::Counter& isCounter_;
  Zent::Counter& delCounter_;
  Zent::Counter& notifyCounter_;
  Notify notify_;
};

}  // namespace Tunnel::TunnelFib
