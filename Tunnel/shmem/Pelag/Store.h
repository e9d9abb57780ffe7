#pragma once
// A value store: a tree of nodes kept as one shared-memory keyed table
// ("nodes" in the store's directory), keyed by NodeKey, each node holding its
// own record. The root node (depth 0) records the type of the tree, checked
// by everyone who attaches. Writer and Shadow are the two roles; the table
// service gives both their guarantees (a writer killed at any instant leaves
// every node on its old or new record, readers never block the writer).
//
// The tree rule is the writer's: a parent is written before its children and
// children are removed before their parent. Every prefix of a writer's
// history is then a tree plus, at worst, children whose parent is gone or not
// yet written; readers and restarted writers expect such orphans.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Tunnel/shmem/Pelag/NodeKey.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"

namespace Pelag {

inline constexpr char const* kNodesCollection = "nodes";

// The type hash seeds every node's hash but the root's: whoever attaches
// finds the root, and with it the type the store holds, whatever it expects.
inline uint32_t nodeHash(NodeKey const& k, uint32_t typeHash) {
  return k.hash(k.root() ? 0 : typeHash);
}

// What the root node's record holds.
struct RootRecord {
  static constexpr uint32_t kMagic = 0x50454c47;  // "PELG"
  uint32_t magic = kMagic;
  uint32_t typeHash = 0;
};
static_assert(sizeof(RootRecord) == 8);

struct StoreShape {
  std::string typeName;  // the root entity's type, recorded for tools
  uint32_t typeHash = 0;
  uint32_t maxRecord = 0;  // largest node record
};

class Writer {
 public:
  // Creates the store in `dir`, or attaches to the one an earlier writer
  // left (recovering it). Throws Tamsel::Error when another live process
  // writes it, or when the store holds a tree of another type.
  Writer(std::string const& dir, StoreShape const& shape,
         Tamsel::FilePermissions const& perms = {});

  void write(NodeKey const& key, char const* rec, uint32_t len);
  bool remove(NodeKey const& key);
  bool find(NodeKey const& key, char const** rec, uint32_t* len) const;
  // fn(NodeKey const&, char const* rec, uint32_t len) for every node but the
  // root, in file order.
  template <typename Fn>
  void forEach(Fn&& fn) const {
    table_->forEach([&](void const* key, char const* rec, uint32_t len) {
      NodeKey k;
      std::memcpy(&k, key, sizeof k);
      if (!k.root()) fn(k, rec, len);
    });
  }
  bool recovered() const { return table_->recovered(); }
  uint64_t count() const { return table_->count(); }
  StoreShape const& shape() const { return shape_; }
  Tamsel::Writer& table() { return *table_; }

 private:
  uint32_t hashOf(NodeKey const& k) const { return nodeHash(k, shape_.typeHash); }
  StoreShape shape_;
  std::unique_ptr<Tamsel::Writer> table_;
};

class Shadow {
 public:
  // Throws Tamsel::Error when the store does not exist or holds a tree of
  // another type.
  Shadow(std::string const& dir, uint32_t typeHash, Tamsel::Reader::Options const& options);

  // A stable copy of the node's record; false when absent.
  bool read(NodeKey const& key, std::vector<char>& out) const;
  // fn(NodeKey const&, char const* rec, uint32_t len) for every node but the
  // root, each a stable copy.
  template <typename Fn>
  void forEach(Fn&& fn) const {
    table_->forEach([&](void const* key, char const* rec, uint32_t len, uint64_t) {
      NodeKey k;
      std::memcpy(&k, key, sizeof k);
      if (!k.root()) fn(k, rec, len);
    });
  }
  // The file offset of the record the last read() returned.
  uint64_t lastOffset() const { return table_->lastSlot(); }
  uint64_t count() const { return table_->count(); }
  int fd() const { return table_->fd(); }
  size_t dispatch(Tamsel::Reader::Handler& h, size_t max = SIZE_MAX) {
    return table_->dispatch(h, max);
  }
  Tamsel::Reader& table() { return *table_; }

 private:
  uint32_t typeHash_;
  std::unique_ptr<Tamsel::Reader> table_;
};

}  // namespace Pelag
