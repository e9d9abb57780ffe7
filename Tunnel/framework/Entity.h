#pragma once
// Entities and reactors. An entity is a reference-counted object with a name,
// scalar attributes and keyed collections; every change is announced to the
// reactors (notifiees) registered on it, by attribute identifier and, for a
// collection, the key of the member that changed. The mutator helpers below
// keep the framework's rules: one notification per real change, none for an
// unchanged value, one per member when a collection is emptied.

#include <concepts>
#include <cstdint>
#include <vector>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/framework/String.h"

namespace Zent {

using AttributeId = uint32_t;
class Entity;
class GenericIf;

// The key of the collection member that changed, without its type in the
// signature. The attribute identifier tells a reactor the key's type; `as<K>()`
// checks only the size, which costs nothing on the path every change takes
// and still stops a reactor reading a key of another shape.
class KeyRef {
 public:
  KeyRef() = default;
  template <typename K>
  explicit KeyRef(K const& k) : ptr_(&k), size_(sizeof(K)) {}
  bool empty() const { return ptr_ == nullptr; }
  template <typename K>
  K const& as() const {
    fmassert(size_ == sizeof(K), "key of {} bytes read as one of {}", size_, sizeof(K));
    return *static_cast<K const*>(ptr_);
  }
  void const* ptr() const { return ptr_; }

 private:
  void const* ptr_ = nullptr;
  size_t size_ = 0;
};

class NotifieeList {
 public:
  using Notifiee = PtrInterface::NotifieeConst;
  void newMember(Notifiee* n);
  void deleteMember(Notifiee* n);
  size_t members() const;
  void visit(AttributeId id) const { visit(id, KeyRef()); }
  void visit(AttributeId id, KeyRef const& key) const;

 private:
  // Removal during a visit leaves a hole, closed when the outermost visit ends.
  mutable std::vector<Notifiee*> members_;
  mutable int visiting_ = 0;
  mutable bool holes_ = false;
};

class Entity : public PtrInterface {
 public:
  explicit Entity(String name = {});
  ~Entity() override;

  String const& name() const { return name_; }
  virtual GenericIf const* fwkType() const { return nullptr; }
  NotifieeList& notifieeList() const { return notifieeList_; }

  bool hasNotificationActive() const { return notificationActive_; }
  void hasNotificationActiveIs(bool on) { notificationActive_ = on; }

  // The entity that contains this one; not counted (a parent owns its
  // children, not the other way round).
  Entity* parent() const { return parent_; }
  void parentIs(Entity* p);

 protected:
  // Runs after the parent changed; a null parent means this entity is orphaned.
  virtual void handleParent() {}

  void notify(AttributeId id) const;
  template <typename K>
  void notify(AttributeId id, K const& key) const {
    notifyKey(id, KeyRef(key));
  }

  // Rule 1: store and notify only when the value changes.
  template <typename T, typename V>
  bool attributeIs(T& field, V const& v, AttributeId id) {
    if (field == v) return false;
    field = v;
    notify(id);
    return true;
  }

  // Rule 2: add or replace a member; no notification when it is equal.
  // Members held by Ptr compare by the objects they point to, when those
  // compare: an equal copy of an immutable member changes nothing a reader
  // can see, so the stored member stays.
  template <typename Map, typename K, typename V>
  bool memberIs(Map& m, AttributeId id, K const& key, V const& v) {
    if (auto* cur = m.find(key)) {
      if (sameMember<typename Map::ValueType>(*cur, v)) return false;
      *cur = v;
    } else {
      m.newMember(key, v);
    }
    notify(id, key);
    return true;
  }

  // Rule 3: remove a member; notify only when one was removed.
  template <typename Map, typename K>
  bool memberDel(Map& m, AttributeId id, K const& key, typename Map::ValueType* old = nullptr) {
    if (!m.deleteMember(key, old)) return false;
    notify(id, key);
    return true;
  }

  // Rule 4: one removal, and one notification, per member. The keys are taken
  // first: a reactor may remove other members while it is notified, which
  // would leave an iterator over the live collection dangling. Members it
  // adds meanwhile stay.
  template <typename Map>
  size_t memberDelAll(Map& m, AttributeId id) {
    std::vector<typename Map::KeyType> keys;
    keys.reserve(m.size());
    for (auto it = m.begin(); it != m.end(); ++it) keys.push_back(it.key());
    size_t n = 0;
    for (auto const& key : keys) {
      if (memberDel(m, id, key)) ++n;
    }
    return n;
  }

 private:
  template <typename V>
  static bool sameMember(V const& a, V const& b) {
    if constexpr (isPtr<V>) {
      if constexpr (std::equality_comparable<typename V::element_type>) {
        return a == b || (a && b && *a == *b);
      } else {
        return a == b;
      }
    } else {
      return a == b;
    }
  }

  void notifyKey(AttributeId id, KeyRef const& key) const;

  String name_;
  mutable NotifieeList notifieeList_;
  bool notificationActive_ = false;
  Entity* parent_ = nullptr;
};

// Base of every reactor. A reactor holds its notifier while attached and
// detaches itself when destroyed. Entity types derive their own NotifieeConst
// whose onAttribute dispatches to typed callbacks (handleX, xNotify(key)).
class PtrInterface::NotifieeConst : public PtrInterface {
 public:
  NotifieeConst() = default;
  NotifieeConst(NotifieeConst const&) = delete;
  NotifieeConst& operator=(NotifieeConst const&) = delete;
  ~NotifieeConst() override;

  Entity const* notifier() const { return notifier_.ptr(); }
  // Attaches to `e` (detaching from the previous notifier); null detaches.
  void notifierIs(Entity const* e);

  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool on) { active_ = on; }

  // Whether the reactor is in its notifier's list. A reactor can stay
  // attached (holding the notifier) while taken off the list.
  bool isRegisteredNotifiee() const { return registered_; }
  void isRegisteredNotifieeIs(bool on);

  // Generic entry point, called for every change of the notifier.
  virtual void onAttribute(AttributeId id, KeyRef const& key);

 private:
  Ptr<Entity const> notifier_;
  bool active_ = true;
  bool registered_ = true;
  bool listed_ = false;
};

// Creates a root entity through the tracked allocator and switches its
// notifications on; the factory of every root entity type is built on it.
template <typename T, typename... Args>
Ptr<T> newEntity(Args&&... args) {
  Ptr<T> p(newTracked<T>(std::forward<Args>(args)...));
  p->hasNotificationActiveIs(true);
  return p;
}

}  // namespace Zent
