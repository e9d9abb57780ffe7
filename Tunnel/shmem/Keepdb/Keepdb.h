#pragma once
// The state database: configuration and status entities mounted by path under
// a state root and shared across processes. Each mounted entity is one table
// of the table service (collection "attrs" in the entity's directory), one
// record per scalar attribute and per collection member, keyed by the
// attribute and the member's key. One process writes an entity; any number
// read it. A reader applies what it reads through the entity's own mutators,
// so its reactors hear exactly the changes the rules of the framework let
// through (none for a rewrite of an equal value), and a reader that starts
// (or restarts) finds the current state in one scan.
//
// An entity type tells the database how it is kept through a Schema: its
// attributes, each with how a member becomes a record and back. The typed
// builders below (scalar, collection) write those functions from the entity's
// accessors and mutators, so each type declares its attributes once.

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"

namespace Keepdb {

DABIN_FACILITY("Keepdb");

inline constexpr char const* kAttrsCollection = "attrs";

// The key of one record: the attribute, then the member's key record (empty
// for a scalar).
struct RecordKey {
  static constexpr uint32_t kMaxKeyBytes = 61;
  uint16_t attrId = 0;
  uint8_t keyLen = 0;
  char key[kMaxKeyBytes] = {};

  std::string_view keyBytes() const { return {key, keyLen}; }
  uint32_t hash() const { return Zent::hashBytes(this, sizeof(*this)); }
  // A key read from another process: its length in bounds, zeros past it.
  bool wellFormed() const;
};
static_assert(sizeof(RecordKey) == 64 && std::is_trivially_copyable_v<RecordKey>);

// A member key too long for a RecordKey, or a record too large for the
// entity's table: the change stays local and is reported.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The record form of a key or a member. Plain fixed records are copied as
// bytes (and checked with wellFormed() when the type has one, or with a
// keepdbValid(v) found by argument lookup, for enumerations); strings are
// their characters; a value type supplies
//   void keepdbRecord(std::string& out) const;
//   static bool keepdbFromRecord(std::string_view rec, T& out);
// and a member held by Ptr<T const> is kept as the T it points to.
template <typename T>
struct Codec;

template <typename T>
concept OwnRecord = requires(T const& v, std::string& out, std::string_view rec, T& dst) {
  v.keepdbRecord(out);
  { T::keepdbFromRecord(rec, dst) } -> std::same_as<bool>;
};

template <typename T>
requires(std::is_trivially_copyable_v<T> && !OwnRecord<T>) struct Codec<T> {
  static void put(T const& v, std::string& out) {
    if constexpr (std::is_same_v<T, bool>) {
      out.assign(1, v ? '\1' : '\0');
    } else {
      out.assign(reinterpret_cast<char const*>(&v), sizeof(T));
    }
  }
  static bool get(std::string_view rec, T& out) {
    if (rec.size() != sizeof(T)) return false;
    if constexpr (std::is_same_v<T, bool>) {
      if (rec[0] != 0 && rec[0] != 1) return false;
      out = rec[0] == 1;
      return true;
    } else {
      std::memcpy(&out, rec.data(), sizeof(T));
      if constexpr (requires { out.wellFormed(); }) {
        return out.wellFormed();
      } else if constexpr (requires { keepdbValid(out); }) {
        return keepdbValid(out);  // an enumeration names the values it has
      } else {
        return true;
      }
    }
  }
};

template <>
struct Codec<Zent::String> {
  static void put(Zent::String const& v, std::string& out) { out.assign(v.view()); }
  static bool get(std::string_view rec, Zent::String& out) {
    out = Zent::String(rec);
    return true;
  }
};

template <OwnRecord T>
struct Codec<T> {
  static void put(T const& v, std::string& out) { v.keepdbRecord(out); }
  static bool get(std::string_view rec, T& out) { return T::keepdbFromRecord(rec, out); }
};

template <OwnRecord T>
struct Codec<Zent::Ptr<T const>> {
  static void put(Zent::Ptr<T const> const& v, std::string& out) { v->keepdbRecord(out); }
  static bool get(std::string_view rec, Zent::Ptr<T const>& out) {
    auto p = Zent::Ptr<T>(Zent::newTracked<T>());
    if (!T::keepdbFromRecord(rec, *p)) return false;
    out = p;
    return true;
  }
};

// How the database keeps one attribute of an entity type. Keys and records
// are bytes here; the builders below give them their types.
struct Attr {
  Zent::AttributeId id = 0;
  std::string name;
  bool scalar = false;
  // The key record of the member a notification names (scalars: empty).
  // False when the key does not fit a RecordKey.
  std::function<bool(Zent::KeyRef const&, std::string&)> keyRecord;
  // The member's record; false when there is no such member.
  std::function<bool(Zent::Entity const&, std::string_view key, std::string&)> read;
  // Every member's key record.
  std::function<void(Zent::Entity const&, std::vector<std::string>&)> keys;
  // Reader side: makes the member equal to the record (false: it does not
  // decode), or removes it (a scalar returns to its default).
  std::function<bool(Zent::Entity&, std::string_view key, std::string_view rec)> apply;
  std::function<bool(Zent::Entity&, std::string_view key)> remove;
  // Members that are entities themselves: the member whose own changes
  // change its record (null when absent). Unset for plain members.
  std::function<Zent::Entity const*(Zent::Entity const&, std::string_view key)> child;
};

struct Schema {
  std::string typeName;  // recorded in the table and checked by readers
  uint32_t maxRecord = 0;
  std::vector<Attr> attrs;
  Attr const* attr(Zent::AttributeId id) const;
};

// A scalar attribute read by `get` and set by `set` (which keeps rule 1);
// removal sets the type's default.
template <typename E, typename T, typename Get, typename Set>
Attr scalar(Zent::AttributeId id, std::string name, Get get, Set set) {
  Attr a;
  a.id = id;
  a.name = std::move(name);
  a.scalar = true;
  a.keyRecord = [](Zent::KeyRef const&, std::string& out) {
    out.clear();
    return true;
  };
  a.read = [get](Zent::Entity const& e, std::string_view, std::string& out) {
    Codec<T>::put(T(get(static_cast<E const&>(e))), out);
    return true;
  };
  a.keys = [](Zent::Entity const&, std::vector<std::string>& out) { out.emplace_back(); };
  a.apply = [set](Zent::Entity& e, std::string_view, std::string_view rec) {
    T v{};
    if (!Codec<T>::get(rec, v)) return false;
    set(static_cast<E&>(e), v);
    return true;
  };
  a.remove = [set](Zent::Entity& e, std::string_view) {
    set(static_cast<E&>(e), T{});
    return true;
  };
  return a;
}

// The key side of a keyed collection: `members(e)` is its HashMap2018 and
// `del(e, key)` the entity's removal (rule 3). A collection whose members
// need a record of their own making adds read and apply to it.
template <typename E, typename Map, typename Members, typename Del>
Attr keyed(Zent::AttributeId id, std::string name, Members members, Del del) {
  using K = typename Map::KeyType;
  Attr a;
  a.id = id;
  a.name = std::move(name);
  a.keyRecord = [](Zent::KeyRef const& key, std::string& out) {
    Codec<K>::put(key.as<K>(), out);
    return out.size() <= RecordKey::kMaxKeyBytes;
  };
  a.keys = [members](Zent::Entity const& e, std::vector<std::string>& out) {
    Map const& m = members(static_cast<E const&>(e));
    for (auto it = m.begin(); it != m.end(); ++it) {
      Codec<K>::put(it.key(), out.emplace_back());
    }
  };
  a.remove = [del](Zent::Entity& e, std::string_view keyRec) {
    K key{};
    if (!Codec<K>::get(keyRec, key)) return false;
    del(static_cast<E&>(e), key);
    return true;
  };
  return a;
}

// A keyed collection whose members are kept in their Codec form; `set(e,
// key, value)` is the entity's mutator (rule 2). A member that carries its
// own key (an internal-key collection) and was read under another key is
// refused rather than stored where the record's key says.
template <typename E, typename Map, typename Members, typename Set, typename Del>
Attr collection(Zent::AttributeId id, std::string name, Members members, Set set, Del del) {
  using K = typename Map::KeyType;
  using V = typename Map::ValueType;
  Attr a = keyed<E, Map>(id, std::move(name), members, del);
  a.read = [members](Zent::Entity const& e, std::string_view keyRec, std::string& out) {
    K key{};
    if (!Codec<K>::get(keyRec, key)) return false;
    auto const* v = members(static_cast<E const&>(e)).find(key);
    if (!v) return false;
    Codec<V>::put(*v, out);
    return true;
  };
  a.apply = [set](Zent::Entity& e, std::string_view keyRec, std::string_view rec) {
    K key{};
    V v{};
    if (!Codec<K>::get(keyRec, key) || !Codec<V>::get(rec, v)) return false;
    if constexpr (Map::internalKey) {
      if (!(typename Map::KeyFunktorType()(v) == key)) return false;
    }
    set(static_cast<E&>(e), key, v);
    return true;
  };
  return a;
}

enum class Mode {
  // The database holds the truth (configuration): attaching loads the
  // stored state into the entity, then the entity's changes are published.
  writerLoad,
  // The entity holds the truth (state computed by its writer): attaching
  // publishes the entity and removes what an earlier writer left beyond it.
  writerReplace,
  // Follows another process's writer.
  reader,
};

// "<root>/<path>": where the entity at `path` is kept.
std::string directory(std::string const& root, std::string const& path);
// Whether an entity is kept at `path` under `root`.
bool exists(std::string const& root, std::string const& path);

// One mounted entity. The writer publishes at flush(): the members changed
// since the last flush are written when their record differs from the
// stored one, and removed when they are gone, so a burst of changes to one
// member is one write and a change undone before the flush is none.
class Binding : public ZentTamsel::DispatchSource {
 public:
  using CorruptionHandler = std::function<void(std::string const& message)>;

  // Throws Tamsel::Error when the table cannot be opened, another live
  // process writes it, or it holds another type. A reader joins `registry`
  // when one is given.
  Binding(std::string const& root, std::string const& path, Zent::Ptr<Zent::Entity> entity,
          Schema const& schema, Mode mode, ZentTamsel::MountRegistry* registry = nullptr);
  ~Binding() override;
  Binding(Binding const&) = delete;
  Binding& operator=(Binding const&) = delete;

  Zent::Ptr<Zent::Entity> const& entity() const { return entity_; }
  Mode mode() const { return mode_; }
  std::string const& dir() const { return dir_; }

  // Writer: publishes what changed; returns the records written or removed.
  // A member the table refuses (a record larger than its bound, a full file
  // system) stays pending while the others go out; then Error says which.
  size_t flush();
  size_t pendingCount() const { return dirty_.size(); }
  uint64_t writes() const { return writes_; }
  uint64_t removes() const { return removes_; }

  // Reader: the writer's news.
  int fd() const override;
  size_t dispatch(size_t max = SIZE_MAX) override;
  void registryGone() override { registry_ = nullptr; }
  bool writerAlive() const;
  uint32_t writerPid() const;

  // Records another process wrote that do not decode (or name an attribute
  // the schema lacks) go here, unheard by reactors; a trace when unset.
  void corruptionHandlerIs(CorruptionHandler h) { corruptionHandler_ = std::move(h); }
  uint64_t corruptions() const { return corruptions_; }

 private:
  class Watch;
  class ReaderHandler;
  using DirtyKey = std::pair<Zent::AttributeId, std::string>;

  void changed(Zent::AttributeId id, Zent::KeyRef const& key);
  void childChanged(DirtyKey const& key) { dirty_.insert(key); }
  void watchChild(Attr const& a, DirtyKey const& key);
  void markAll();
  void load();
  void keyChanged(RecordKey const& key);
  void applyRecord(RecordKey const& key, std::string_view rec);
  void corrupt(std::string const& message);

  std::string dir_;
  Zent::Ptr<Zent::Entity> entity_;
  Schema const& schema_;
  Mode mode_;
  std::unique_ptr<Tamsel::Writer> writer_;
  std::unique_ptr<Tamsel::Reader> reader_;
  std::unique_ptr<ReaderHandler> handler_;
  Zent::Ptr<Watch> watch_;
  std::map<DirtyKey, Zent::Ptr<Watch>> children_;
  std::set<DirtyKey> dirty_;
  ZentTamsel::MountRegistry* registry_ = nullptr;
  CorruptionHandler corruptionHandler_;
  uint64_t writes_ = 0;
  uint64_t removes_ = 0;
  uint64_t corruptions_ = 0;
  std::string scratch_;
};

}  // namespace Keepdb
