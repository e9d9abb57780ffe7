#pragma once
// The binding of an entity tree to a value store. Every entity of the tree is
// a ZentPelag::Entity; the tree's root is a RootEntity, which attaches to a
// store as its one writer or as a shadow. A writer's mutators change the
// local tree at once (and notify at once); the nodes they touch wait for the
// flush, which publishes parents before children and removes children before
// parents. A shadow follows another process's writer: the binding turns the
// store's per-node changes into handleChild / handleChildDel on the parent
// entity, and after a (re)attach or a resynchronisation reports every
// existing member again through handleChildRestart.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/shmem/Pelag/NodeKey.h"
#include "Tunnel/shmem/Pelag/Store.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"

namespace ZentPelag {

DABIN_FACILITY("ZentPelag");

class RootEntity;
class FlushTask;

// snapshot: a shadow that reads the store once and follows no later change
// (no key index, no notifications): what a one-shot reader wants.
enum class Mode { writer, shadow, snapshot };

// A child node as the store holds it: its key and a stable copy of its record.
struct ChildView {
  Pelag::NodeKey key;
  char const* rec = nullptr;
  uint32_t len = 0;
};

// What applying a record from the store did to an entity. `replaced`: the
// record is another member's under the same key (the writer removed this one
// and made a new one before the shadow looked); the binding drops this one,
// subtree first, and builds the new one.
enum class RecordUpdate { unchanged, changed, replaced, malformed };

// "invalid attrId:<id>": a child callback for an attribute the type does not have.
[[noreturn]] void throwInvalidAttrId(Zent::AttributeId id);

class Entity : public Zent::Entity {
 public:
  explicit Entity(Zent::String name = {});
  ~Entity() override;

  // One-time set-up once the entity is bound to its store.
  virtual void doPelagInit() {}
  // Removes every child (locally, and from the store at the next flush),
  // children before their parent.
  virtual void pelagDelAll() {}
  // The agent's flush task asks this entity to publish what is pending.
  virtual void handleFlush(FlushTask& task);
  // Shadow side: the child `pointer` under `attrId` appeared or changed; its
  // record sits at file offset `offset` (corruption reports name it).
  virtual void handleChild(uint64_t offset, ChildView const* pointer, Zent::AttributeId attrId);
  // Shadow side: the child named `key` under `attrId` went away. A node is
  // named by its key, not by an offset: the store rewrites records elsewhere.
  virtual void handleChildDel(Pelag::NodeKey const& key, Zent::AttributeId attrId);
  // Shadow side, after an attach or a resynchronisation: the child exists.
  virtual void handleChildRestart(ChildView const* pointer, Zent::AttributeId attrId);

  // The node's own record, as the store keeps it.
  virtual void pelagRecord(std::string& out) const { out.clear(); }
  // Applies a record read from the store.
  virtual RecordUpdate pelagRecordIs(char const* rec, uint32_t len) {
    (void)rec;
    return len == 0 ? RecordUpdate::unchanged : RecordUpdate::malformed;
  }
  // The bound children, for the binding's walks.
  virtual void pelagChildren(std::vector<Entity*>& out) const { (void)out; }

  Pelag::NodeKey const& pelagKey() const { return key_; }
  RootEntity* pelagRoot() const { return root_; }
  // Bound to a store as a shadow: mutators are programming errors.
  bool pelagShadow() const;

 protected:
  // The entity's own record changed: the writer publishes it at the next flush.
  void pelagChanged();
  // Brings the entity's own record and the store in step: a writer publishes
  // it again at the next flush; a shadow applies the record the store holds
  // (pelagRecordIs) and reports one that does not decode. What applying it
  // did; `unchanged` on a writer or when the store holds none.
  RecordUpdate pelagSyncOwnRecord();
  void requireMutable(const char* op) const;
  // Whether the store has a corruption to report: it goes to the store's
  // corruption handler, and the caller skips its local notification.
  bool pelagCorruption() const;
  // Hands a child record that does not decode to the corruption handler.
  void pelagMalformed(uint64_t offset, ChildView const* child) const;

 private:
  friend class RootEntity;
  template <typename, typename>
  friend class EntityMap;
  void pelagBind(RootEntity* root, Pelag::NodeKey const& key);
  void pelagUnbind();

  RootEntity* root_ = nullptr;
  Pelag::NodeKey key_;
};

// A root is mountable through the mount service: a writer mount attaches as
// the writer, any other mount type as a shadow.
class RootEntity : public Entity, public ZentTamsel::Mountable {
 public:
  using CorruptionHandler = std::function<void(std::string const& message)>;

  RootEntity(Zent::String name, Pelag::StoreShape shape);
  ~RootEntity() override;

  // Attaches the tree to the store in `dir`: a writer creates it or takes
  // over the one an earlier writer left (rebuilding the local tree from it and
  // removing orphans); a shadow builds the local tree from one scan and
  // reports each member through handleChildRestart, and joins `registry`
  // (when given), whose event loop dispatches its news; a snapshot builds
  // the tree the same way and follows nothing after. The tree must have
  // no children yet. Throws Tamsel::Error when the store cannot be opened or
  // holds another type.
  void pelagAttach(std::string const& dir, Mode mode, ZentTamsel::MountRegistry* registry = nullptr,
                   Tamsel::FilePermissions const& perms = {});
  void pelagDetach();
  void tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                   ZentTamsel::MountRegistry& registry) override;
  void tamselUnmount() override { pelagDetach(); }
  bool pelagAttached() const { return writer_ || shadow_; }
  // Detaches and unbinds the whole tree; a derived root calls it first in its
  // destructor, before its collections go.
  void pelagTeardown();
  Mode mode() const { return shadow_ ? (snapshot_ ? Mode::snapshot : Mode::shadow) : Mode::writer; }
  Pelag::StoreShape const& shape() const { return shape_; }

  // Writer: publishes up to `budget` pending nodes; true when more wait.
  bool flushSome(size_t budget);
  void flush() { flushSome(SIZE_MAX); }
  size_t pendingCount() const { return writes_.size() + removals_.size(); }

  // Shadow: readable when the writer has news; dispatch delivers it.
  int fd() const;
  size_t dispatch(size_t max = SIZE_MAX);
  // Children whose parent the shadow has not seen yet.
  size_t heldBack() const;

  // A corrupt or undecodable record, or a store the writer cannot write,
  // goes to the handler (a trace when none is set); nothing aborts.
  void corruptionHandlerIs(CorruptionHandler h) { corruptionHandler_ = std::move(h); }
  void doCorruptionDetected(std::string const& message) const;
  uint64_t corruptions() const { return corruptions_; }

  Pelag::Writer* storeWriter() const { return writer_.get(); }
  Pelag::Shadow* storeShadow() const { return shadow_.get(); }
  // The bound entity of `key`, null when none.
  Entity* node(Pelag::NodeKey const& key) const;

 private:
  friend class Entity;
  template <typename, typename>
  friend class EntityMap;
  class ShadowHandler;
  class Source;
  struct Scan;

  void nodeIs(Entity* e, bool present);
  void changedIs(Entity& e);
  void removedIs(Pelag::NodeKey const& key);
  // Shadow: one node changed in the store.
  void nodeChanged(Pelag::NodeKey const& key, bool restart);
  void applyChild(Pelag::NodeKey const& key, std::string_view rec, uint64_t offset, bool restart);
  void dropNode(Entity& e);
  void releaseHeldBack(Pelag::NodeKey const& parent, bool restart);
  void restartAll();
  // Writer: the local tree from the store, orphans removed.
  void rebuildFromStore();

  Pelag::StoreShape shape_;
  std::unique_ptr<Pelag::Writer> writer_;
  std::unique_ptr<Pelag::Shadow> shadow_;
  std::unique_ptr<ShadowHandler> handler_;
  CorruptionHandler corruptionHandler_;
  std::unordered_map<Pelag::NodeKey, Entity*, Pelag::NodeKeyHash> nodes_;
  // Writer: what the next flush publishes (shallow first) and removes (deep first).
  std::map<Pelag::NodeKey, Zent::Ptr<Entity>> writes_;
  std::set<Pelag::NodeKey> removals_;
  // The error the last flush met, reported again by mutators until a flush succeeds.
  std::string storeError_;
  std::unique_ptr<Source> source_;
  ZentTamsel::MountRegistry* registry_ = nullptr;
  mutable uint64_t corruptions_ = 0;
  bool snapshot_ = false;
  // Shadow: parent key -> children seen before their parent.
  std::multimap<Pelag::NodeKey, Pelag::NodeKey> heldBack_;
  std::string scratch_;
};

// The agent's flush task: its event loop runs it until nothing is pending.
class FlushTask {
 public:
  explicit FlushTask(RootEntity& root) : root_(root) {}
  // Publishes up to `budget` nodes; true when more are pending.
  bool run(size_t budget);
  size_t budget() const { return budget_; }
  bool more() const { return more_; }
  void moreIs(bool m) { more_ = m; }

 private:
  RootEntity& root_;
  size_t budget_ = 0;
  bool more_ = false;
};

}  // namespace ZentPelag
