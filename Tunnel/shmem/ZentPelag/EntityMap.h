#pragma once
// One child collection of a value-store entity: local key -> member entity,
// kept in key order. On a writer (or an entity bound to no store) the owner's
// mutators create and remove members through it, and it hands what changed
// to the root for the next flush. On a shadow the binding's callbacks create,
// update and remove members from the records another process wrote.
//
// A member type supplies
//   static Zent::Ptr<Member> pelagNew(K const& key, char const* rec, uint32_t len)
// which builds a member from its record (null when the record is malformed).

#include <map>
#include <type_traits>
#include <vector>

#include "Tunnel/shmem/ZentPelag/Entity.h"

namespace ZentPelag {

template <typename K, typename Member>
class EntityMap {
  static_assert(std::is_trivially_copyable_v<K>, "a key is copied into the node key as bytes");

 public:
  using Map = std::map<K, Zent::Ptr<Member>>;

  EntityMap(Entity& owner, Zent::AttributeId attr) : owner_(owner), attr_(attr) {}
  EntityMap(EntityMap const&) = delete;
  EntityMap& operator=(EntityMap const&) = delete;

  Zent::AttributeId attrId() const { return attr_; }
  Member* find(K const& k) const {
    auto it = members_.find(k);
    return it == members_.end() ? nullptr : it->second.ptr();
  }
  Zent::Ptr<Member> member(K const& k) const { return Zent::Ptr<Member>(find(k)); }
  size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(members_.size());
    for (auto const& [k, m] : members_) out.push_back(k);
    return out;
  }
  typename Map::const_iterator begin() const { return members_.begin(); }
  typename Map::const_iterator end() const { return members_.end(); }

  // The member under `k`, created with make() when absent (`created` says
  // which). The new member waits for the flush.
  template <typename Make>
  Zent::Ptr<Member> is(K const& k, Make&& make, bool& created) {
    owner_.requireMutable("EntityMap::is");
    created = false;
    if (Member* m = find(k)) return Zent::Ptr<Member>(m);
    Zent::Ptr<Member> m = make();
    members_.emplace(k, m);
    bind(k, *m);
    if (owner_.root_) owner_.root_->changedIs(*m);
    created = true;
    return m;
  }

  // Removes the member under `k`: its own children first, then the member.
  // False when there was none.
  bool del(K const& k) {
    owner_.requireMutable("EntityMap::del");
    auto it = members_.find(k);
    if (it == members_.end()) return false;
    Zent::Ptr<Member> m = it->second;
    m->pelagDelAll();
    members_.erase(k);  // pelagDelAll may have moved the iterator's node
    if (owner_.root_ && m->root_) owner_.root_->removedIs(m->key_);
    unbind(*m);
    return true;
  }

  // Shadow: applies the child `v` (created or updated). `created` says
  // whether it is new; malformed records change nothing.
  RecordUpdate childIs(ChildView const& v, bool& created) {
    created = false;
    K k;
    if (!v.key.lastKeyAs(k)) return RecordUpdate::malformed;
    if (Member* old = find(k)) {
      RecordUpdate u = old->pelagRecordIs(v.rec, v.len);
      if (u != RecordUpdate::replaced) return u;
      // Built first: a record that does not decode leaves the old member be.
      Zent::Ptr<Member> m = Member::pelagNew(k, v.rec, v.len);
      if (!m) return RecordUpdate::malformed;
      owner_.root_->dropNode(*old);
      return add(k, m, created);
    }
    Zent::Ptr<Member> m = Member::pelagNew(k, v.rec, v.len);
    if (!m) return RecordUpdate::malformed;
    return add(k, m, created);
  }

  // Shadow: the member named `key` is gone; its children went before it.
  // The local key of the removed member goes to `out`.
  bool childDel(Pelag::NodeKey const& key, K& out) {
    if (!key.lastKeyAs(out)) return false;
    auto it = members_.find(out);
    if (it == members_.end()) return false;
    Zent::Ptr<Member> m = it->second;
    members_.erase(it);
    unbind(*m);
    return true;
  }

  // Shadow callbacks of the owner for this collection, whole: the attribute
  // must be this collection's ("invalid attrId:<id>" otherwise); a new or
  // removed member is announced to the owner's reactors with its key, and a
  // malformed record goes to the corruption handler, unannounced.
  void childNotified(uint64_t offset, ChildView const& v, Zent::AttributeId attrId) {
    if (attrId != attr_) throwInvalidAttrId(attrId);
    bool created = false;
    if (childIs(v, created) == RecordUpdate::malformed) {
      owner_.pelagMalformed(offset, &v);
    } else if (created) {
      K k;
      v.key.lastKeyAs(k);
      owner_.notify(attr_, k);
    }
  }
  void childDelNotified(Pelag::NodeKey const& key, Zent::AttributeId attrId) {
    if (attrId != attr_) throwInvalidAttrId(attrId);
    K k;
    if (childDel(key, k)) owner_.notify(attr_, k);
  }

  void children(std::vector<Entity*>& out) const {
    for (auto const& [k, m] : members_) out.push_back(m.ptr());
  }

 private:
  RecordUpdate add(K const& k, Zent::Ptr<Member> const& m, bool& created) {
    members_.emplace(k, m);
    bind(k, *m);
    created = true;
    return RecordUpdate::changed;
  }
  void bind(K const& k, Member& m) {
    m.parentIs(&owner_);
    if (owner_.root_) {
      m.pelagBind(owner_.root_, owner_.key_.child(static_cast<uint16_t>(attr_), k));
      m.doPelagInit();
    }
  }
  void unbind(Member& m) {
    m.pelagUnbind();
    m.parentIs(nullptr);
  }

  Entity& owner_;
  Zent::AttributeId attr_;
  Map members_;
};

}  // namespace ZentPelag
