#pragma once
// One shared-memory collection of an entity, whole: its typed binding, its
// counters ("<name>Is", "<name>Del", "<name>Notify", also published in the
// writer's file for tools), the mutators built on them, and the listener
// that turns what the binding hears into the entity's notifications and its
// control attribute. Protocol tables hold one (`entry`), the FIB five.

#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamselMap.h"

namespace ZentTamsel {

// The key of a collection that holds one record (a counter, a status): 0.
struct OneRecordKey {
  uint32_t value = 0;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&value, sizeof value, seed); }
  friend bool operator==(OneRecordKey, OneRecordKey) = default;
};

template <typename Key, typename Value, typename KeyOf, typename Marshaller>
class Collection final : public CollectionListener {
 public:
  using Map = ZentTamselMap<Key, Value, KeyOf, Marshaller>;
  // Tells the owner's reactors that `key` changed.
  using Notify = std::function<void(Key const&)>;

  // The table shape of a collection of `typeName`'s entity whose records are
  // at most `bound` bytes, or plain copies when `bound` is 0.
  static Tamsel::TableShape shape(std::string typeName, std::string allocatorName, uint32_t bound) {
    Tamsel::TableShape s;
    s.typeName = std::move(typeName);
    s.allocatorName = std::move(allocatorName);
    if (bound == 0) {
      s.fixedPayload = sizeof(Value);
    } else {
      s.maxPayload = bound;
    }
    return s;
  }

  // `name` is the collection's ("entry"), `bindingName` names the binding in
  // traces and corruption reports. `control` is the owner's control
  // attribute, which it may replace; it must outlive the collection.
  Collection(std::string name, Tamsel::TableShape shape, std::string const& bindingName,
             Zent::CounterSet& counters, Zent::Ptr<CollectionControl> const& control, Notify notify)
      : name_(std::move(name)),
        map_(std::move(shape)),
        control_(control),
        isCounter_(counters.counterIs(name_ + "Is")),
        delCounter_(counters.counterIs(name_ + "Del")),
        notifyCounter_(counters.counterIs(name_ + "Notify")),
        notify_(std::move(notify)) {
    map_.entity(bindingName, this);
  }

  std::string const& name() const { return name_; }
  Map& map() { return map_; }
  Map const& map() const { return map_; }
  TamselMapCore& core() { return map_.core(); }
  TamselMapCore const& core() const { return map_.core(); }

  // Writes and notifies, also when the stored value is equal: readers rely
  // on a notification per write.
  void is(Value const& v) {
    isCounter_.inc();
    guarded([&] { map_.safeWrite(v); });
    notified(KeyOf()(v));
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
  // One removal, and one notification, per member.
  void delAll() {
    for (Key const& k : map_.keys()) del(k);
  }
  // Publishes a value its writer changed in place.
  void commit(Value const* v) {
    guarded([&] { map_.directCommit(*v); });
    notified(KeyOf()(*v));
  }

  void mount(std::string const& dir, MountInfo const& info, MountRegistry& registry) {
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
    fmtraceTo(dabinFacility_, 5, "{} resynchronised overflow:{}", core().name(), overflow);
    map_.shadowRefreshAll();
  }
  void mountStatusChanged() override {
    fmtraceTo(dabinFacility_, 5, "mountStatus {} {}", core().mountDir(),
              stringValue(core().mountStatus()));
    map_.shadowRefreshAll();
    if (control_) {
      control_->modeIs(core().mode());
      control_->mountStatusIs(core().mountStatus());
    }
  }
  void quiescedChanged(bool quiesced) override {
    if (control_) control_->quiescedIs(quiesced);
  }

 private:
  // A corrupt record met by a mutator stops the process: shared memory that
  // is corrupt is never written further.
  template <typename Fn>
  void guarded(Fn&& fn) {
    try {
      fn();
    } catch (CorruptionException const& c) {
      core().doCorruptionDetected(c.what());
      Dabin::fatal(__FILE__, __func__, __LINE__, "in no man's land");
    }
  }
  void notified(Key const& k) {
    notifyCounter_.inc();
    notify_(k);
    publishCounters();
  }
  void publishCounters() {
    if (auto* w = core().writer()) {
      w->publishedCounterIs(0, isCounter_.value());
      w->publishedCounterIs(1, delCounter_.value());
      w->publishedCounterIs(2, notifyCounter_.value());
    }
  }

  std::string name_;
  Map map_;
  Zent::Ptr<CollectionControl> const& control_;
  Zent::Counter& isCounter_;
  Zent::Counter& delCounter_;
  Zent::Counter& notifyCounter_;
  Notify notify_;
};

}  // namespace ZentTamsel
