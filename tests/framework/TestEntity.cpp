#include "tests/framework/TestEntity.h"

#include <memory>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace FrameworkTest {

uint32_t Item::hash(uint32_t seed) const {
  return name_.hash(Zent::hashBytes(&weight_, sizeof(weight_), seed));
}

std::string Item::stringValue() const {
  return Zent::ValueText(kTypeName).field("name", name_).field("weight", weight_).str();
}

Zent::Ptr<Item const> itemFactory(Zent::String const& name, uint32_t weight) {
  return Zent::Ptr<Item const>(Zent::newTracked<Item>(name, weight));
}

void Root::readyIs(bool ready) { attributeIs(ready_, ready, kReadyId); }

void Root::portIs(uint16_t key, Payload const& p) { memberIs(port_, kPortId, key, p); }

Payload Root::portDel(uint16_t key) {
  Payload old;
  memberDel(port_, kPortId, key, &old);
  return old;
}

void Root::portDelAll() { memberDelAll(port_, kPortId); }

Zent::Ptr<Item const> Root::itemIs(Zent::Ptr<Item const> const& i) {
  fmassert(i, "itemIs needs a member");
  memberIs(item_, kItemId, i->name(), i);
  return item_.lookup(i->name());
}

Zent::Ptr<Item const> Root::itemDel(Zent::String const& key) {
  Zent::Ptr<Item const> old;
  memberDel(item_, kItemId, key, &old);
  return old;
}

void Root::itemDelAll() { memberDelAll(item_, kItemId); }

Zent::GenericIf const* Root::fwkType() const {
  registerTypes();
  static Zent::GenericIf const* t = Zent::type("FrameworkTest::Root");
  return t;
}

void Root::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  switch (id) {
    case kReadyId:
      handleReady();
      break;
    case kPortId:
      portNotify(key.as<uint16_t>());
      break;
    case kItemId:
      itemNotify(key.as<Zent::String>());
      break;
    default:
      fmassert(false, "unknown attribute {}", id);
  }
}

Zent::Ptr<Root> rootFactory(Zent::String const& name) { return Zent::newEntity<Root>(name); }

namespace {

using Zent::AttributeId;
using Zent::GenericIf;

// The registry entry of Root, as the code generator would write it.
class RootType : public GenericIf {
 public:
  RootType() : GenericIf("FrameworkTest::Root", Kind::entity) {
    attributeIs({Root::kReadyId, "ready", false, nullptr, Zent::type("bool")});
    attributeIs(
        {Root::kPortId, "port", true, Zent::type("uint16_t"), Zent::type(Payload::kTypeName)});
    attributeIs(
        {Root::kItemId, "item", true, Zent::type("Zent::String"), Zent::type(Item::kTypeName)});
  }

  bool genericIfAttributeOp(Zent::Entity* e, AttributeId id, AttributeOp op, void const* key,
                            void* value) const override {
    auto* root = dynamic_cast<Root*>(e);
    if (!root) return false;
    switch (id) {
      case Root::kReadyId:
        if (op == AttributeOp::get) {
          *static_cast<bool*>(value) = root->ready();
          return true;
        }
        if (op == AttributeOp::set) {
          root->readyIs(*static_cast<bool const*>(value));
          return true;
        }
        return false;
      case Root::kPortId:
        return collectionOp(
            root->ports(), op, key, value,
            [root](uint16_t const& k, void* v) { *static_cast<Payload*>(v) = root->port(k); },
            [root](uint16_t const& k, void const* v) {
              root->portIs(k, *static_cast<Payload const*>(v));
            },
            [root](uint16_t const& k) { root->portDel(k); });
      case Root::kItemId:
        return collectionOp(
            root->items(), op, key, value,
            [root](Zent::String const& k, void* v) { *static_cast<Item*>(v) = *root->item(k); },
            [root](Zent::String const&, void const* v) {
              auto const& i = *static_cast<Item const*>(v);
              root->itemIs(itemFactory(i.name(), i.weight()));
            },
            [root](Zent::String const& k) { root->itemDel(k); });
      default:
        return false;
    }
  }

  std::unique_ptr<Zent::GenericIterator> genericIfIterator(Zent::Entity const* e,
                                                           AttributeId id) const override {
    // Removal through the iterator is a mutation of the entity.
    auto* root = const_cast<Root*>(dynamic_cast<Root const*>(e));
    if (!root) return nullptr;
    switch (id) {
      case Root::kPortId:
        return Zent::collectionIterator(root->ports(),
                                        [root](uint16_t const& k) { root->portDel(k); });
      case Root::kItemId:
        return Zent::collectionIterator(root->items(),
                                        [root](Zent::String const& k) { root->itemDel(k); });
      default:
        return nullptr;
    }
  }

  Zent::Ptr<Zent::Entity> genericIfConstructFromCtorArgs(
      std::vector<std::string> const& args) const override {
    return rootFactory(args.empty() ? Zent::String() : Zent::String(args.front()));
  }

 private:
  template <typename Map, typename Get, typename Set, typename Del>
  static bool collectionOp(Map const& m, AttributeOp op, void const* key, void* value, Get get,
                           Set set, Del del) {
    using Key = typename Map::KeyType;
    switch (op) {
      case AttributeOp::lookup:
        if (!m.contains(*static_cast<Key const*>(key))) return false;
        get(*static_cast<Key const*>(key), value);
        return true;
      case AttributeOp::set:
        set(*static_cast<Key const*>(key), value);
        return true;
      case AttributeOp::del:
        del(*static_cast<Key const*>(key));
        return true;
      case AttributeOp::count:
        *static_cast<size_t*>(value) = m.size();
        return true;
      default:
        return false;
    }
  }
};

}  // namespace

void registerTypes() {
  static bool const done = [] {
    Zent::registerValueType<bool>("bool");
    Zent::registerValueType<uint16_t>("uint16_t");
    Zent::registerValueType<Zent::String>("Zent::String");
    Zent::registerValueType<Payload>(Payload::kTypeName);
    Zent::registerValueType<Item>(Item::kTypeName);
    Zent::typeIs(std::make_unique<RootType>());
    return true;
  }();
  (void)done;
}

}  // namespace FrameworkTest
