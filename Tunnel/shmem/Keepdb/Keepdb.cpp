#include "Tunnel/shmem/Keepdb/Keepdb.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace Keepdb {

namespace {

Tamsel::TableShape tableShape(Schema const& s) {
  Tamsel::TableShape t;
  t.typeName = s.typeName;
  t.allocatorName = s.typeName + " attribute";
  t.keySize = sizeof(RecordKey);
  t.maxPayload = std::max<uint32_t>(s.maxRecord, 1);
  return t;
}

RecordKey recordKey(Zent::AttributeId id, std::string_view key) {
  fmassert(key.size() <= RecordKey::kMaxKeyBytes, "key record of {} bytes", key.size());
  RecordKey k;
  k.attrId = static_cast<uint16_t>(id);
  k.keyLen = static_cast<uint8_t>(key.size());
  if (!key.empty()) std::memcpy(k.key, key.data(), key.size());
  return k;
}

}  // namespace

bool RecordKey::wellFormed() const {
  if (keyLen > kMaxKeyBytes) return false;
  return std::all_of(key + keyLen, key + kMaxKeyBytes, [](char c) { return c == 0; });
}

Attr const* Schema::attr(Zent::AttributeId id) const {
  for (auto const& a : attrs) {
    if (a.id == id) return &a;
  }
  return nullptr;
}

std::string directory(std::string const& root, std::string const& path) {
  return root + "/" + path;
}

bool exists(std::string const& root, std::string const& path) {
  struct stat st {};
  return ::stat(Tamsel::TablePaths(directory(root, path), kAttrsCollection).table.c_str(), &st) ==
         0;
}

// The writer's reactor on the entity, and on each member that is an entity
// of its own (whose changes change its parent's record of it).
class Binding::Watch : public Zent::PtrInterface::NotifieeConst {
 public:
  Watch(Binding& b, Zent::Entity const* e) : binding_(b) { notifierIs(e); }
  Watch(Binding& b, Zent::Entity const* e, DirtyKey member)
      : binding_(b), member_(std::move(member)), child_(true) {
    notifierIs(e);
  }
  void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override {
    if (child_) {
      binding_.childChanged(member_);
    } else {
      binding_.changed(id, key);
    }
  }

 private:
  Binding& binding_;
  DirtyKey member_;
  bool child_ = false;
};

class Binding::ReaderHandler : public Tamsel::Reader::Handler {
 public:
  explicit ReaderHandler(Binding& b) : binding_(b) {}
  void keyChanged(void const* key) override {
    RecordKey k;
    std::memcpy(&k, key, sizeof k);
    binding_.keyChanged(k);
  }

 private:
  Binding& binding_;
};

Binding::Binding(std::string const& root, std::string const& path, Zent::Ptr<Zent::Entity> entity,
                 Schema const& schema, Mode mode, ZentTamsel::MountRegistry* registry)
    : dir_(directory(root, path)), entity_(std::move(entity)), schema_(schema), mode_(mode) {
  fmassert(entity_, "a null entity mounted at {}", dir_);
  if (mode_ == Mode::reader) {
    Tamsel::Reader::Options options;
    options.spinNs = 0;  // configuration changes come seldom
    reader_ = std::make_unique<Tamsel::Reader>(dir_, kAttrsCollection, sizeof(RecordKey), options);
    if (reader_->typeName() != schema_.typeName) {
      throw Tamsel::Error(fmt::format("{}: holds {}, expected {}", reader_->paths().table,
                                      reader_->typeName(), schema_.typeName));
    }
    handler_ = std::make_unique<ReaderHandler>(*this);
    load();
    if (registry) {
      registry_ = registry;
      registry_->readerIs(this, true);
    }
    return;
  }
  writer_ = std::make_unique<Tamsel::Writer>(dir_, kAttrsCollection, tableShape(schema_));
  if (writer_->shape().typeName != schema_.typeName) {
    throw Tamsel::Error(fmt::format("{}: holds {}, expected {}", writer_->paths().table,
                                    writer_->shape().typeName, schema_.typeName));
  }
  if (mode_ == Mode::writerLoad) load();
  markAll();
  watch_ = Zent::Ptr<Watch>(new Watch(*this, entity_.ptr()));
}

Binding::~Binding() {
  if (registry_) registry_->readerIs(this, false);
  for (auto& [k, w] : children_) w->notifierIs(nullptr);
  if (watch_) watch_->notifierIs(nullptr);
}

void Binding::changed(Zent::AttributeId id, Zent::KeyRef const& key) {
  Attr const* a = schema_.attr(id);
  if (!a) return;  // an attribute the database does not keep
  DirtyKey dk{id, {}};
  if (!a->keyRecord(key, dk.second)) {
    corrupt(fmt::format("{}: a key of {} bytes under {} cannot be kept (at most {})", dir_,
                        dk.second.size(), a->name, RecordKey::kMaxKeyBytes));
    return;
  }
  dirty_.insert(std::move(dk));
}

void Binding::watchChild(Attr const& a, DirtyKey const& key) {
  Zent::Entity const* child = a.child(*entity_, key.second);
  auto it = children_.find(key);
  if (!child) {
    if (it != children_.end()) {
      it->second->notifierIs(nullptr);
      children_.erase(it);
    }
    return;
  }
  if (it != children_.end() && it->second->notifier() == child) return;
  if (it != children_.end()) it->second->notifierIs(nullptr);
  children_[key] = Zent::Ptr<Watch>(new Watch(*this, child, key));
}

void Binding::markAll() {
  std::vector<std::string> keys;
  for (auto const& a : schema_.attrs) {
    keys.clear();
    a.keys(*entity_, keys);
    for (auto& k : keys) dirty_.emplace(a.id, std::move(k));
  }
  // What the table holds beyond the entity goes at the next flush.
  writer_->forEach([&](char const* key, char const*, uint32_t) {
    RecordKey k;
    std::memcpy(&k, key, sizeof k);
    dirty_.emplace(k.attrId, std::string(k.keyBytes()));
  });
}

size_t Binding::flush() {
  fmassert(writer_, "flush on a reader of {}", dir_);
  size_t n = 0;
  std::set<DirtyKey> failed;
  std::string firstError;
  while (!dirty_.empty()) {
    auto node = dirty_.extract(dirty_.begin());
    DirtyKey const& dk = node.value();
    Attr const* a = schema_.attr(dk.first);
    RecordKey key = recordKey(dk.first, dk.second);
    try {
      bool present = a && a->read(*entity_, dk.second, scratch_);
      char const* rec = nullptr;
      uint32_t len = 0;
      bool stored = writer_->find(&key, key.hash(), &rec, &len);
      if (present && (!stored || std::string_view(rec, len) != scratch_)) {
        writer_->write(&key, key.hash(), static_cast<uint32_t>(scratch_.size()), [&](char* dst) {
          if (!scratch_.empty()) std::memcpy(dst, scratch_.data(), scratch_.size());
        });
        ++writes_;
        ++n;
      } else if (!present && stored) {
        writer_->remove(&key, key.hash(), [](char const*, uint32_t) {});
        ++removes_;
        ++n;
      }
    } catch (std::exception const& e) {
      // The other members still go out; this one waits for the next flush.
      if (firstError.empty()) {
        firstError = fmt::format("{}: {} not kept: {}", dir_, a ? a->name : "attribute", e.what());
      }
      failed.insert(std::move(node));
      continue;
    }
    if (a && a->child) watchChild(*a, dk);
  }
  if (!failed.empty()) {
    dirty_.merge(failed);
    throw Error(firstError);
  }
  return n;
}

void Binding::load() {
  auto each = [&](void const* key, char const* rec, uint32_t len) {
    RecordKey k;
    std::memcpy(&k, key, sizeof k);
    applyRecord(k, std::string_view(rec, len));
  };
  if (writer_) {
    writer_->forEach([&](char const* key, char const* rec, uint32_t len) { each(key, rec, len); });
  } else {
    reader_->forEach(
        [&](void const* key, char const* rec, uint32_t len, uint64_t) { each(key, rec, len); });
  }
}

void Binding::applyRecord(RecordKey const& key, std::string_view rec) {
  Attr const* a = key.wellFormed() ? schema_.attr(key.attrId) : nullptr;
  if (!a) {
    corrupt(fmt::format("{}: a record under unknown attribute {}", dir_, key.attrId));
    return;
  }
  if (!a->apply(*entity_, key.keyBytes(), rec)) {
    corrupt(fmt::format("{}: a record of {} bytes under {} does not decode", dir_, rec.size(),
                        a->name));
  }
}

void Binding::keyChanged(RecordKey const& key) {
  std::vector<char> rec;
  if (reader_->readCopy(&key, key.hash(), rec)) {
    applyRecord(key, std::string_view(rec.data(), rec.size()));
    return;
  }
  Attr const* a = key.wellFormed() ? schema_.attr(key.attrId) : nullptr;
  if (!a || !a->remove(*entity_, key.keyBytes())) {
    corrupt(fmt::format("{}: a removal under attribute {} does not decode", dir_, key.attrId));
  }
}

int Binding::fd() const { return reader_ ? reader_->fd() : -1; }

size_t Binding::dispatch(size_t max) { return reader_ ? reader_->dispatch(*handler_, max) : 0; }

bool Binding::writerAlive() const { return writer_ || reader_->writerAlive(); }

uint32_t Binding::writerPid() const {
  return writer_ ? static_cast<uint32_t>(::getpid()) : reader_->writerPid();
}

void Binding::corrupt(std::string const& message) {
  ++corruptions_;
  if (corruptionHandler_) {
    corruptionHandler_(message);
  } else {
    fmtrace(0, "{}", message);
  }
}

}  // namespace Keepdb
