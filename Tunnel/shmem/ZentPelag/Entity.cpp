#include "Tunnel/shmem/ZentPelag/Entity.h"

#include <algorithm>
#include <stdexcept>

#include <fmt/format.h>

#include "Tunnel/shmem/Tamsel/Table.h"

namespace ZentPelag {

void throwInvalidAttrId(Zent::AttributeId id) {
  throw std::invalid_argument(fmt::format("invalid attrId:{}", id));
}

Entity::Entity(Zent::String name) : Zent::Entity(std::move(name)) {}

Entity::~Entity() {
  if (root_ && root_ != this) root_->nodeIs(this, false);
}

void Entity::handleFlush(FlushTask& task) {
  task.moreIs(root_ ? root_->flushSome(task.budget()) : false);
}

void Entity::handleChild(uint64_t, ChildView const*, Zent::AttributeId attrId) {
  throwInvalidAttrId(attrId);
}

void Entity::handleChildDel(Pelag::NodeKey const&, Zent::AttributeId attrId) {
  throwInvalidAttrId(attrId);
}

void Entity::handleChildRestart(ChildView const*, Zent::AttributeId attrId) {
  throwInvalidAttrId(attrId);
}

bool Entity::pelagShadow() const { return root_ && root_->shadow_; }

void Entity::pelagChanged() {
  if (root_) root_->changedIs(*this);
}

void Entity::requireMutable(const char* op) const {
  fmassert(!pelagShadow(), "{} not allowed on a shadow of {}", op, root_->shape().typeName);
}

RecordUpdate Entity::pelagSyncOwnRecord() {
  if (!pelagShadow()) {
    pelagChanged();
    return RecordUpdate::unchanged;
  }
  std::vector<char> rec;
  if (!root_->shadow_->read(key_, rec)) return RecordUpdate::unchanged;
  auto const len = static_cast<uint32_t>(rec.size());
  RecordUpdate const u = pelagRecordIs(rec.data(), len);
  if (u == RecordUpdate::malformed) {
    ChildView const v{key_, rec.data(), len};
    pelagMalformed(root_->shadow_->lastOffset(), &v);
  }
  return u;
}

bool Entity::pelagCorruption() const {
  if (!root_ || root_->storeError_.empty()) return false;
  root_->doCorruptionDetected(root_->storeError_);
  return true;
}

void Entity::pelagMalformed(uint64_t offset, ChildView const* child) const {
  if (!root_) return;
  root_->doCorruptionDetected(
      fmt::format("{} Corrupted serialized value detected at offset: {}, contents: {}",
                  root_->shape().typeName, offset, Tamsel::hexBytes(child->rec, child->len, 64)));
}

void Entity::pelagBind(RootEntity* root, Pelag::NodeKey const& key) {
  root_ = root;
  key_ = key;
  root_->nodeIs(this, true);
}

void Entity::pelagUnbind() {
  if (root_ && root_ != this) root_->nodeIs(this, false);
  root_ = nullptr;
}

// The shadow's ear on the store.
class RootEntity::ShadowHandler : public Tamsel::Reader::Handler {
 public:
  explicit ShadowHandler(RootEntity& root) : root_(root) {}
  void keyChanged(void const* key) override {
    Pelag::NodeKey k;
    std::memcpy(&k, key, sizeof k);
    root_.nodeChanged(k, false);
  }
  void resynchronised(bool) override { root_.restartAll(); }

 private:
  RootEntity& root_;
};

class RootEntity::Source : public ZentTamsel::DispatchSource {
 public:
  explicit Source(RootEntity& root) : root_(root) {}
  int fd() const override { return root_.fd(); }
  size_t dispatch(size_t max) override { return root_.dispatch(max); }
  void registryGone() override { root_.registry_ = nullptr; }

 private:
  RootEntity& root_;
};

// The nodes of one scan, parents before children, their records copied into one buffer.
struct RootEntity::Scan {
  struct Item {
    Pelag::NodeKey key;
    size_t off;
    uint32_t len;
  };
  std::vector<Item> items;
  std::string bytes;
  void add(Pelag::NodeKey const& k, char const* rec, uint32_t len) {
    items.push_back({k, bytes.size(), len});
    bytes.append(rec, len);
  }
  void sort() {
    std::sort(items.begin(), items.end(),
              [](Item const& a, Item const& b) { return a.key < b.key; });
  }
  std::string_view record(Item const& i) const { return {bytes.data() + i.off, i.len}; }
};

RootEntity::RootEntity(Zent::String name, Pelag::StoreShape shape)
    : Entity(std::move(name)), shape_(std::move(shape)) {
  pelagBind(this, Pelag::NodeKey());
}

RootEntity::~RootEntity() { pelagTeardown(); }

void RootEntity::pelagTeardown() {
  pelagDetach();
  // Unbound in one sweep: members held outside the tree outlive it, and the
  // members that die with it need not leave the registry one by one.
  for (auto& [k, e] : nodes_) {
    if (e != this) e->root_ = nullptr;
  }
  nodes_.clear();
}

void RootEntity::nodeIs(Entity* e, bool present) {
  if (present) {
    nodes_[e->key_] = e;
  } else {
    auto it = nodes_.find(e->key_);
    if (it != nodes_.end() && it->second == e) nodes_.erase(it);
  }
}

Entity* RootEntity::node(Pelag::NodeKey const& key) const {
  auto it = nodes_.find(key);
  return it == nodes_.end() ? nullptr : it->second;
}

void RootEntity::doCorruptionDetected(std::string const& message) const {
  ++corruptions_;
  if (corruptionHandler_) {
    corruptionHandler_(message);
  } else {
    fmtrace(0, "{}", message);
  }
}

void RootEntity::pelagAttach(std::string const& dir, Mode mode, ZentTamsel::MountRegistry* registry,
                             Tamsel::FilePermissions const& perms) {
  fmassert(!pelagAttached(), "{} is attached already", shape_.typeName);
  fmassert(nodes_.size() == 1, "{} attaches with {} nodes; attach an empty tree", shape_.typeName,
           nodes_.size());
  if (mode == Mode::writer) {
    writer_ = std::make_unique<Pelag::Writer>(dir, shape_, perms);
    rebuildFromStore();
    return;
  }
  Tamsel::Reader::Options options;
  options.spinNs = 0;
  snapshot_ = mode == Mode::snapshot;
  options.keyIndex = options.notifications = !snapshot_;
  shadow_ = std::make_unique<Pelag::Shadow>(dir, shape_.typeHash, options);
  handler_ = std::make_unique<ShadowHandler>(*this);
  // Nodes written during the scan are announced afterwards; the reader
  // listens from before it.
  Scan scan;
  shadow_->forEach(
      [&](Pelag::NodeKey const& k, char const* rec, uint32_t len) { scan.add(k, rec, len); });
  nodes_.reserve(scan.items.size() + 1);
  scan.sort();
  for (auto const& item : scan.items) {
    if (!item.key.wellFormed()) {
      doCorruptionDetected(fmt::format("{}: malformed node key", shadow_->table().paths().table));
      continue;
    }
    applyChild(item.key, scan.record(item), 0, true);
  }
  if (registry && !snapshot_) {
    source_ = std::make_unique<Source>(*this);
    registry_ = registry;
    registry_->readerIs(source_.get(), true);
  }
}

void RootEntity::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                             ZentTamsel::MountRegistry& registry) {
  pelagAttach(dir, info.mountType() == ZentTamsel::MountType::writer ? Mode::writer : Mode::shadow,
              &registry, info.filePermissions());
}

void RootEntity::pelagDetach() {
  if (registry_ && source_) registry_->readerIs(source_.get(), false);
  registry_ = nullptr;
  source_.reset();
  writer_.reset();
  shadow_.reset();
  handler_.reset();
  writes_.clear();
  removals_.clear();
  heldBack_.clear();
  storeError_.clear();
  snapshot_ = false;
}

void RootEntity::changedIs(Entity& e) {
  if (!writer_) return;
  removals_.erase(e.key_);
  writes_[e.key_] = Zent::Ptr<Entity>(&e);
}

void RootEntity::removedIs(Pelag::NodeKey const& key) {
  if (!writer_) return;
  writes_.erase(key);
  removals_.insert(key);
}

bool RootEntity::flushSome(size_t budget) {
  if (!writer_) return false;
  try {
    // Children go before their parents, parents are written before children:
    // a writer stopped between any two steps leaves a tree.
    while (budget != 0 && !removals_.empty()) {
      auto last = std::prev(removals_.end());
      writer_->remove(*last);
      removals_.erase(last);
      --budget;
    }
    while (budget != 0 && !writes_.empty()) {
      auto first = writes_.begin();
      first->second->pelagRecord(scratch_);
      writer_->write(first->first, scratch_.data(), static_cast<uint32_t>(scratch_.size()));
      writes_.erase(first);
      --budget;
    }
    storeError_.clear();
  } catch (Tamsel::Error const& e) {
    // The node stays pending; the next run tries again.
    storeError_ = e.what();
    doCorruptionDetected(storeError_);
    return true;
  }
  return pendingCount() != 0;
}

int RootEntity::fd() const { return shadow_ ? shadow_->fd() : -1; }

size_t RootEntity::dispatch(size_t max) {
  if (!shadow_) return 0;
  try {
    return shadow_->dispatch(*handler_, max);
  } catch (Tamsel::Error const& e) {
    doCorruptionDetected(e.what());
    return 0;
  }
}

size_t RootEntity::heldBack() const { return heldBack_.size(); }

void RootEntity::nodeChanged(Pelag::NodeKey const& key, bool restart) {
  if (key.root()) return;
  if (!key.wellFormed()) {
    doCorruptionDetected(fmt::format("{}: malformed node key", shadow_->table().paths().table));
    return;
  }
  std::vector<char> rec;
  bool present;
  try {
    present = shadow_->read(key, rec);
  } catch (Tamsel::Error const& e) {
    doCorruptionDetected(e.what());
    return;
  }
  if (present) {
    applyChild(key, std::string_view(rec.data(), rec.size()), shadow_->lastOffset(), restart);
    return;
  }
  auto [b, e] = heldBack_.equal_range(key.parent());
  for (auto it = b; it != e; ++it) {
    if (it->second == key) {
      heldBack_.erase(it);
      break;
    }
  }
  if (Entity* n = node(key)) dropNode(*n);
}

void RootEntity::applyChild(Pelag::NodeKey const& key, std::string_view rec, uint64_t offset,
                            bool restart) {
  Entity* parent = node(key.parent());
  if (!parent) {
    // Its parent is not written yet, or already gone: wait for it.
    auto [b, e] = heldBack_.equal_range(key.parent());
    if (std::none_of(b, e, [&](auto const& kv) { return kv.second == key; })) {
      heldBack_.emplace(key.parent(), key);
    }
    return;
  }
  ChildView v{key, rec.data(), static_cast<uint32_t>(rec.size())};
  // Only a node seen for the first time can free children held back for it.
  bool const waiting = !heldBack_.empty() && node(key) == nullptr;
  try {
    if (restart) {
      parent->handleChildRestart(&v, key.attrId());
    } else {
      parent->handleChild(offset, &v, key.attrId());
    }
  } catch (std::exception const& e) {
    // Another process's record must not stop this one.
    doCorruptionDetected(fmt::format("{} at offset {}: {}", shape_.typeName, offset, e.what()));
    return;
  }
  if (waiting && node(key)) releaseHeldBack(key, restart);
}

void RootEntity::releaseHeldBack(Pelag::NodeKey const& parent, bool restart) {
  auto [b, e] = heldBack_.equal_range(parent);
  if (b == e) return;
  std::vector<Pelag::NodeKey> kids;
  for (auto it = b; it != e; ++it) kids.push_back(it->second);
  heldBack_.erase(b, e);
  for (auto const& k : kids) nodeChanged(k, restart);
}

void RootEntity::dropNode(Entity& e) {
  Zent::Ptr<Entity> keep(&e);
  std::vector<Entity*> kids;
  e.pelagChildren(kids);
  std::vector<Zent::Ptr<Entity>> held(kids.begin(), kids.end());
  for (auto const& k : held) dropNode(*k);
  Pelag::NodeKey key = e.key_;
  if (Entity* parent = node(key.parent())) {
    try {
      parent->handleChildDel(key, key.attrId());
    } catch (std::exception const& ex) {
      doCorruptionDetected(fmt::format("{}: {}", shape_.typeName, ex.what()));
    }
  }
}

void RootEntity::restartAll() {
  // The keys that changed arrived first; now every member is reported again.
  std::vector<Pelag::NodeKey> keys;
  for (auto const& [k, e] : nodes_) {
    if (!k.root()) keys.push_back(k);
  }
  for (auto const& [p, k] : heldBack_) keys.push_back(k);
  std::sort(keys.begin(), keys.end());
  for (auto const& k : keys) nodeChanged(k, true);
}

void RootEntity::rebuildFromStore() {
  Scan scan;
  writer_->forEach(
      [&](Pelag::NodeKey const& k, char const* rec, uint32_t len) { scan.add(k, rec, len); });
  nodes_.reserve(scan.items.size() + 1);
  scan.sort();
  std::vector<Pelag::NodeKey> orphans;
  for (auto const& item : scan.items) {
    Pelag::NodeKey const& k = item.key;
    std::string_view rec = scan.record(item);
    Entity* parent = k.wellFormed() ? node(k.parent()) : nullptr;
    if (parent) {
      ChildView v{k, rec.data(), static_cast<uint32_t>(rec.size())};
      try {
        parent->handleChildRestart(&v, k.attrId());
      } catch (std::exception const& e) {
        doCorruptionDetected(fmt::format("{}: {}", shape_.typeName, e.what()));
      }
    }
    // A child whose parent the earlier writer removed (or never wrote), or
    // one that does not decode: the tree rule lets neither stay.
    if (!node(k)) orphans.push_back(k);
  }
  for (auto it = orphans.rbegin(); it != orphans.rend(); ++it) writer_->remove(*it);
}

bool FlushTask::run(size_t budget) {
  budget_ = budget;
  more_ = false;
  root_.handleFlush(*this);
  return more_;
}

}  // namespace ZentPelag
