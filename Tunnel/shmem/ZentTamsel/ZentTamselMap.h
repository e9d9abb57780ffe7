#pragma once
// The typed binding of one keyed collection to a shared-memory table: values
// go in and out through a marshaller (the value type's own record form, or a
// plain copy for fixed-size values), keys are the value's key as raw bytes.
// Tables embed one per collection and build their mutators on it.

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "Tunnel/shmem/ZentTamsel/TamselMapCore.h"

namespace ZentTamsel {

// The class that declares a member function.
template <typename M>
struct DeclaringClass;
template <typename C, typename R, typename... A>
struct DeclaringClass<R (C::*)(A...)> {
  using type = C;
};
template <typename C, typename R, typename... A>
struct DeclaringClass<R (C::*)(A...) const> {
  using type = C;
};

// Whether V reads and validates a record in one pass (deserializeChecked)
// by the same rules as its deserialize and deserializeLen: a type that
// writes those two by hand inherits a one-pass read that is not its own.
template <typename V>
constexpr bool oneCheckedPass() {
  if constexpr (requires { &V::deserializeChecked; }) {
    using C = typename DeclaringClass<decltype(&V::deserializeChecked)>::type;
    return std::is_same_v<C, typename DeclaringClass<decltype(&V::deserialize)>::type> &&
           std::is_same_v<C, typename DeclaringClass<decltype(&V::deserializeLen)>::type>;
  } else {
    return false;
  }
}

// Variable-length values: the value type's serialize / serializeLen /
// deserialize / deserializeLen.
template <typename V>
struct CustomMarshaller {
  static uint32_t len(V const& v) { return static_cast<uint32_t>(v.serializeLen()); }
  static void write(V const& v, char* dst) { v.serialize(dst); }
  static bool valid(char const* src, uint32_t len) { return probe().deserializeLen(src, len) != 0; }
  static void read(V& v, char const* src, uint32_t len) { v.deserialize(src, len); }
  // valid() then read(), in one pass where the type reads and validates at
  // once; false leaves `v` unspecified.
  static bool readChecked(V& v, char const* src, uint32_t len) {
    if constexpr (oneCheckedPass<V>()) {
      return v.deserializeChecked(src, len);
    } else {
      if (!valid(src, len)) return false;
      read(v, src, len);
      return true;
    }
  }

 private:
  // deserializeLen reads only the buffer; one instance serves every call.
  static V const& probe() {
    static V const* p = new V();
    return *p;
  }
};

// Fixed-size plain values: a raw copy, checked by the value's wellFormed()
// when it has one, since the bytes come from another process.
template <typename V>
struct FixedMarshaller {
  static_assert(std::is_trivially_copyable_v<V>);
  static uint32_t len(V const&) { return sizeof(V); }
  static void write(V const& v, char* dst) { std::memcpy(dst, &v, sizeof(V)); }
  static bool valid(char const* src, uint32_t len) {
    if (len != sizeof(V)) return false;
    if constexpr (requires(V const& v) { v.wellFormed(); }) {
      V v;
      std::memcpy(static_cast<void*>(&v), src, sizeof(V));
      return v.wellFormed();
    } else {
      return true;
    }
  }
  static void read(V& v, char const* src, uint32_t) { std::memcpy(&v, src, sizeof(V)); }
  static bool readChecked(V& v, char const* src, uint32_t len) {
    if (!valid(src, len)) return false;
    read(v, src, len);
    return true;
  }
};

template <typename Key, typename Value, typename KeyOf,
          typename Marshaller = CustomMarshaller<Value>>
class ZentTamselMap {
  static_assert(std::is_trivially_copyable_v<Key>, "keys are stored as raw bytes");

 public:
  using KeyType = Key;
  using ValueType = Value;

  // `shape` gives the type and allocator names and the bound; the key size is
  // the key type's.
  explicit ZentTamselMap(Tamsel::TableShape shape) : core_(withKey(std::move(shape))) {}

  TamselMapCore& core() { return core_; }
  TamselMapCore const& core() const { return core_; }

  void entity(std::string const& name, CollectionListener* listener) {
    core_.entity(name, listener);
  }

  // A value shadow keeps a local copy of every value: its owner refreshes
  // the copy of a notified key before anyone reads it, and every copy when
  // the mount status changes or the reader resynchronises.
  void shadowRefresh(Key const& k) {
    if (core_.mode() == MountType::valueShadow) refreshValue(k);
  }
  void shadowRefreshAll() { refreshValues(); }

  // Writes or replaces the record under the value's key.
  void safeWrite(Value const& v) {
    core_.requireWritable("safeWrite");
    put(v);
  }
  // Publishes a value that its writer changed in place.
  void directCommit(Value const& v) {
    core_.requireWritable("directCommit");
    put(v);
  }

  // Removes the record of `k`; `old` receives it. A stored record that does
  // not decode throws CorruptionException before anything is removed.
  bool safeRemove(Key const& k, Value* old = nullptr) {
    core_.requireWritable("safeRemove");
    bool bad = false;
    uint64_t offset = 0;
    std::string message;
    auto take = [&](char const* rec, uint32_t len) {
      if (!Marshaller::valid(rec, len)) {
        bad = true;
        message = core_.corruptionMessage(offset, rec, len);
        return;
      }
      if (old) Marshaller::read(*old, rec, len);
    };
    if (auto* w = core_.writer()) {
      offset = w->slotOffset(&k, k.hash());
      if (!offset) return false;
      char const* rec;
      uint32_t len;
      w->find(&k, k.hash(), &rec, &len);
      take(rec, len);
      if (bad) throw CorruptionException(message);
      return w->remove(&k, k.hash(), [](char const*, uint32_t) {});
    }
    auto* l = core_.local();
    char const* rec;
    uint32_t len;
    if (!l->find(&k, k.hash(), &rec, &len)) return false;
    take(rec, len);
    if (bad) throw CorruptionException(message);
    return l->remove(&k, k.hash(), [](char const*, uint32_t) {});
  }

  // The value of `k` into `out`; false when absent. A record that does not
  // decode is reported to the corruption handler and treated as absent
  // (`out` is then unspecified).
  bool lookup(Key const& k, Value& out) const {
    core_.requireReadable("lookup");
    if (core_.reader() && core_.mode() == MountType::valueShadow) {
      auto it = values_.find(keyBytes(k));
      if (it == values_.end()) return false;
      out = it->second;
      return true;
    }
    return lookupShared(k, out);
  }

  // The values of `n` keys: fn(size_t i, Value const& v) for each present
  // one, in order; returns how many were. A reader overlaps the memory
  // accesses of groups of keys (Tamsel::Reader::readBatch); elsewhere each
  // key is looked up in turn. Records that do not decode are reported and
  // left out, as lookup() does.
  template <typename Fn>
  size_t lookupBatch(Key const* keys, size_t n, Fn&& fn) const {
    core_.requireReadable("lookup");
    size_t found = 0;
    Value v;
    auto* r = core_.reader();
    if (r && core_.mode() != MountType::valueShadow) {
      std::vector<uint32_t> hashes(n);
      for (size_t i = 0; i < n; ++i) hashes[i] = keys[i].hash();
      r->readBatch(keys, hashes.data(), n, [&](size_t i, char const* rec, uint32_t len) {
        if (decode(v, rec, len, r->lastSlot())) {
          ++found;
          fn(i, static_cast<Value const&>(v));
        }
      });
      return found;
    }
    for (size_t i = 0; i < n; ++i) {
      if (lookup(keys[i], v)) {
        ++found;
        fn(i, static_cast<Value const&>(v));
      }
    }
    return found;
  }

  // A value shadow's local copies, refreshed by every notification.
  size_t shadowedValues() const { return values_.size(); }

 private:
  bool lookupShared(Key const& k, Value& out) const {
    if (auto* r = core_.reader()) {
      // Decoding never looks keys up, so one buffer serves a thread.
      thread_local std::vector<char> buf;
      if (!r->readCopy(&k, k.hash(), buf)) return false;
      return decode(out, buf.data(), static_cast<uint32_t>(buf.size()), r->lastSlot());
    }
    char const* rec;
    uint32_t len;
    if (auto* w = core_.writer()) {
      if (!w->find(&k, k.hash(), &rec, &len)) return false;
      return decode(out, rec, len, w->slotOffset(&k, k.hash()));
    }
    if (!core_.local()->find(&k, k.hash(), &rec, &len)) return false;
    return decode(out, rec, len, 0);
  }

  static std::string keyBytes(Key const& k) {
    return std::string(reinterpret_cast<char const*>(&k), sizeof(Key));
  }
  void refreshValue(Key const& k) {
    Value v;
    if (lookupShared(k, v)) {
      values_[keyBytes(k)] = v;
    } else {
      values_.erase(keyBytes(k));
    }
  }
  void refreshValues() {
    values_.clear();
    if (core_.mode() != MountType::valueShadow || !core_.reader()) return;
    for (Key const& k : keys()) refreshValue(k);
  }

 public:
  Value value(Key const& k) const {
    Value v;
    if (!lookup(k, v)) return Value();
    return v;
  }

  bool has(Key const& k) const {
    core_.requireReadable("has");
    if (auto* r = core_.reader()) return r->read(&k, k.hash(), [](char const*, uint32_t) {});
    char const* rec;
    uint32_t len;
    if (auto* w = core_.writer()) return w->find(&k, k.hash(), &rec, &len);
    return core_.local()->find(&k, k.hash(), &rec, &len);
  }

  uint64_t size() const { return core_.size(); }
  // A writer sizes its index for `keys` keys (Tamsel::Writer::reserveKeys);
  // before mounting, and for readers, nothing to do.
  void reserve(uint64_t keys) {
    if (auto* w = core_.writer()) w->reserveKeys(keys);
  }

  // Every key, in a stable order (the bytes of the key), starting after
  // `bookmark` when one is given: a scan can stop and resume from the last
  // key it handled.
  std::vector<Key> keys(Key const* bookmark = nullptr, size_t max = SIZE_MAX) const {
    core_.requireReadable("keys");
    std::vector<std::string> all;
    auto add = [&](void const* key) {
      all.emplace_back(static_cast<char const*>(key), sizeof(Key));
    };
    if (auto* r = core_.reader()) {
      if (r->indexedKeys() || r->count() == 0) {
        r->forEachIndexedKey(add);
      } else {
        r->forEach([&](void const* key, char const*, uint32_t, uint64_t) { add(key); });
      }
    } else if (auto* w = core_.writer()) {
      w->forEach([&](char const* key, char const*, uint32_t) { add(key); });
    } else {
      core_.local()->forEach([&](char const* key, char const*, uint32_t) { add(key); });
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    auto it = all.begin();
    if (bookmark) {
      std::string b(reinterpret_cast<char const*>(bookmark), sizeof(Key));
      it = std::upper_bound(all.begin(), all.end(), b);
    }
    std::vector<Key> out;
    for (; it != all.end() && out.size() < max; ++it) {
      Key k;
      std::memcpy(static_cast<void*>(&k), it->data(), sizeof(Key));
      out.push_back(k);
    }
    return out;
  }

  // Where a scan cut into runs goes on.
  struct ScanCursor {
    uint64_t position = 0;  // a mounted table's heap position; 0: the start
    uint64_t epoch = 0;     // the writer the position belongs to
    std::string key;        // before mounting: the key to resume at
    bool resuming = false;
  };

  // A scan in the table's own order (the file's once mounted, the keys' bytes
  // before), cut into runs: fn(key) takes a key and returns whether to go on.
  // Returns true at the end of the table (the cursor is then reset), false
  // when fn asked to stop: the cursor and `next` then name the following key,
  // where the next call resumes. A key that stays in the table throughout is
  // taken once per pass; one written or removed meanwhile may or may not be,
  // and its notification tells of it. fn may write and remove. A corrupt table
  // met on the way goes to the corruption handler and ends the pass.
  template <typename Fn>
  bool scan(ScanCursor& c, Key& next, Fn&& fn) const {
    core_.requireReadable("scan");
    bool stop = false;
    auto take = [&](void const* kb) {
      std::memcpy(static_cast<void*>(&next), kb, sizeof(Key));
      if (stop) return false;
      stop = !fn(static_cast<Key const&>(next));
      return true;
    };
    bool ended;
    try {
      if (auto* r = core_.reader()) {
        ended = scanHeap(c, r->writerEpoch(), [&](uint64_t from) {
          return r->forEachKeyFrom(from, [&](void const* kb, uint64_t) { return take(kb); });
        });
      } else if (auto* w = core_.writer()) {
        ended = scanHeap(c, w->epoch(), [&](uint64_t from) {
          return w->forEachKeyFrom(from, [&](void const* kb, uint64_t) { return take(kb); });
        });
      } else {
        if (!c.resuming) c.key.clear();
        ended = core_.local()->forEachKeyFrom(c.key, take);
        c.resuming = !ended;
      }
    } catch (Tamsel::Error const& e) {
      core_.doCorruptionDetected(e.what());
      ended = true;
    }
    if (ended) c = ScanCursor();
    return ended;
  }

  // Every value (stable copies; corrupt records reported and skipped).
  template <typename Fn>
  void forEach(Fn&& fn) const {
    for (Key const& k : keys()) {
      Value v;
      if (lookup(k, v)) fn(v);
    }
  }

 private:
  // One leg of a mounted scan: a cursor of another writer starts again.
  template <typename Walk>
  static bool scanHeap(ScanCursor& c, uint64_t epoch, Walk&& walk) {
    uint64_t from = c.resuming && c.epoch == epoch ? c.position : 0;
    uint64_t stopped = walk(from);
    c.position = stopped;
    c.epoch = epoch;
    c.resuming = stopped != 0;
    return stopped == 0;
  }

  static Tamsel::TableShape withKey(Tamsel::TableShape s) {
    s.keySize = sizeof(Key);
    return s;
  }

  void put(Value const& v) {
    Key k = KeyOf()(v);
    uint32_t len = Marshaller::len(v);
    auto fill = [&](char* dst) { Marshaller::write(v, dst); };
    if (auto* w = core_.writer()) {
      w->write(&k, k.hash(), len, fill);
    } else {
      core_.local()->write(&k, k.hash(), len, fill);
    }
  }

  bool decode(Value& out, char const* rec, uint32_t len, uint64_t offset) const {
    if (Marshaller::readChecked(out, rec, len)) return true;
    core_.doCorruptionDetected(core_.corruptionMessage(offset, rec, len));
    return false;
  }

  TamselMapCore core_;
  std::unordered_map<std::string, Value> values_;
};

}  // namespace ZentTamsel
