#pragma once
// Keyed collections owned by entities, on the standard library's hash map.
// Two forms:
//  - external key: HashMap2018<Key, Value> stores key and value side by side;
//  - internal key: HashMap2018<Key, Ptr<M const>, MKeyFunktor> stores members
//    that carry their own key, extracted by the key functor.
// Iteration stays valid when the member under the iterator is deleted (the
// iterator already holds its successor); inserting while iterating does not.

#include <functional>
#include <iterator>
#include <type_traits>
#include <unordered_map>
#include <utility>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Hash.h"

namespace Zent {

struct NoKeyFunktor {};

template <typename Key>
struct KeyHash {
  size_t operator()(Key const& k) const {
    if constexpr (HasZentHash<Key>) {
      return k.hash();
    } else {
      return std::hash<Key>()(k);
    }
  }
};

template <typename Key, typename Value, typename KeyFunktor = NoKeyFunktor>
class HashMap2018 {
  using Map = std::unordered_map<Key, Value, KeyHash<Key>>;

 public:
  static constexpr bool internalKey = !std::is_same_v<KeyFunktor, NoKeyFunktor>;
  using KeyType = Key;
  using ValueType = Value;
  using KeyFunktorType = KeyFunktor;

  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }

  Value const* find(Key const& k) const {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : &it->second;
  }
  Value* find(Key const& k) {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : &it->second;
  }
  bool contains(Key const& k) const { return map_.count(k) != 0; }

  // The member, or a default value (a null Ptr for member pointers).
  Value lookup(Key const& k) const {
    auto const* v = find(k);
    return v ? *v : Value{};
  }

  // Inserts a new member under `k`; an existing member is kept and returned
  // with false.
  std::pair<Value*, bool> newMember(Key const& k, Value const& v) {
    if constexpr (internalKey) {
      fmassert(k == KeyFunktor()(v), "fwkKey() == KeyFunktor()( _value )");
    }
    auto [it, inserted] = map_.try_emplace(k, v);
    return {&it->second, inserted};
  }
  // Internal-key form: the key comes from the member.
  std::pair<Value*, bool> newMember(Value const& v) requires internalKey {
    return newMember(KeyFunktor()(v), v);
  }

  // Inserts or overwrites.
  Value& memberIs(Key const& k, Value const& v) {
    if constexpr (internalKey) {
      fmassert(k == KeyFunktor()(v), "fwkKey() == KeyFunktor()( _value )");
    }
    auto [it, inserted] = map_.try_emplace(k, v);
    if (!inserted) it->second = v;
    return it->second;
  }

  // Removes the member under `k`; when one was removed, `old` receives it.
  bool deleteMember(Key const& k, Value* old = nullptr) {
    auto it = map_.find(k);
    if (it == map_.end()) return false;
    if (old) *old = std::move(it->second);
    map_.erase(it);
    return true;
  }

  Value& operator[](Key const& k) { return map_[k]; }
  void clear() { map_.clear(); }
  // Members per bucket before the table grows (1 by default). Lower values
  // make lookups of absent keys cheaper for more memory.
  void maxLoadFactorIs(float f) { map_.max_load_factor(f); }

  template <bool Const>
  class IteratorBase {
    using MapRef = std::conditional_t<Const, Map const, Map>;
    using Under = std::conditional_t<Const, typename Map::const_iterator, typename Map::iterator>;

   public:
    IteratorBase() = default;
    IteratorBase(MapRef* m, Under cur) : map_(m), cur_(cur), next_(advance(cur)) {}
    Key const& key() const { return cur_->first; }
    auto& value() const { return cur_->second; }
    auto& operator*() const { return cur_->second; }
    auto* operator->() const { return &cur_->second; }
    IteratorBase& operator++() {
      cur_ = next_;
      next_ = advance(cur_);
      return *this;
    }
    bool operator==(IteratorBase const& o) const { return cur_ == o.cur_; }
    explicit operator bool() const { return map_ && cur_ != map_->end(); }

   private:
    Under advance(Under it) const { return it == map_->end() ? it : std::next(it); }
    MapRef* map_ = nullptr;
    Under cur_{};
    Under next_{};
  };
  using Iterator = IteratorBase<false>;
  using IteratorConst = IteratorBase<true>;

  Iterator begin() { return Iterator(&map_, map_.begin()); }
  Iterator end() { return Iterator(&map_, map_.end()); }
  IteratorConst begin() const { return IteratorConst(&map_, map_.begin()); }
  IteratorConst end() const { return IteratorConst(&map_, map_.end()); }

  friend bool operator==(HashMap2018 const& a, HashMap2018 const& b) { return a.map_ == b.map_; }

 private:
  Map map_;
};

}  // namespace Zent
