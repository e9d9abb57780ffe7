#pragma once
// A root entity written the way the library's entities are: a scalar
// attribute, an external-key and an internal-key collection, a reactor base
// dispatching to typed callbacks, a factory and a type-registry entry. The
// entity and registry tests drive the framework through it.

#include <cstdint>
#include <string>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/framework/String.h"
#include "tests/framework/TestValues.h"

namespace FrameworkTest {

// Immutable member of Root's internal-key collection; carries its own key.
class Item : public Zent::PtrInterface {
 public:
  static constexpr const char* kTypeName = "FrameworkTest::Item";

  Item() = default;
  Item(Zent::String name, uint32_t weight) : name_(std::move(name)), weight_(weight) {}

  Zent::String const& name() const { return name_; }
  uint32_t weight() const { return weight_; }

  bool operator==(Item const& o) const { return name_ == o.name_ && weight_ == o.weight_; }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;

 private:
  Zent::String name_;
  uint32_t weight_ = 0;
};

Zent::Ptr<Item const> itemFactory(Zent::String const& name, uint32_t weight);

struct ItemKeyFunktor {
  Zent::String operator()(Zent::Ptr<Item const> const& i) const { return i->name(); }
};

class Root : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kReadyId = 1;
  static constexpr Zent::AttributeId kPortId = 2;
  static constexpr Zent::AttributeId kItemId = 3;

  using PortMap = Zent::HashMap2018<uint16_t, Payload>;
  using ItemMap = Zent::HashMap2018<Zent::String, Zent::Ptr<Item const>, ItemKeyFunktor>;

  explicit Root(Zent::String const& name) : Entity(name) {}

  bool ready() const { return ready_; }
  void readyIs(bool ready);

  Payload port(uint16_t key) const { return port_.lookup(key); }
  PortMap const& ports() const { return port_; }
  void portIs(uint16_t key, Payload const& p);
  Payload portDel(uint16_t key);
  void portDelAll();

  Zent::Ptr<Item const> item(Zent::String const& key) const { return item_.lookup(key); }
  ItemMap const& items() const { return item_; }
  // Returns the stored member: the existing one when it is equal to `i`.
  Zent::Ptr<Item const> itemIs(Zent::Ptr<Item const> const& i);
  Zent::Ptr<Item const> itemDel(Zent::String const& key);
  void itemDelAll();

  Zent::GenericIf const* fwkType() const override;

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void handleReady() {}
    virtual void portNotify(uint16_t) {}
    virtual void itemNotify(Zent::String const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  bool ready_ = false;
  PortMap port_;
  ItemMap item_;
};

Zent::Ptr<Root> rootFactory(Zent::String const& name);

// Registers bool, uint16_t, Zent::String, Payload, Item and Root; idempotent.
void registerTypes();

}  // namespace FrameworkTest
