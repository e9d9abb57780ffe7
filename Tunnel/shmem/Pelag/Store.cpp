#include "Tunnel/shmem/Pelag/Store.h"

#include <fmt/format.h>

namespace Pelag {

namespace {

Tamsel::TableShape tableShape(StoreShape const& s) {
  Tamsel::TableShape t;
  t.typeName = s.typeName;
  t.allocatorName = s.typeName + " node";
  t.keySize = sizeof(NodeKey);
  t.maxPayload = std::max<uint32_t>(s.maxRecord, sizeof(RootRecord));
  return t;
}

// The root record a store of `typeHash` must hold; Error naming the table
// when it holds another.
void checkRoot(std::string const& table, char const* rec, uint32_t len, uint32_t typeHash) {
  RootRecord r;
  if (len != sizeof r) {
    throw Tamsel::Error(
        fmt::format("{}: root record of {} bytes, expected {}", table, len, sizeof r));
  }
  std::memcpy(&r, rec, sizeof r);
  if (r.magic != RootRecord::kMagic || r.typeHash != typeHash) {
    throw Tamsel::Error(fmt::format("{}: holds type hash {} (magic {:#x}), expected {}", table,
                                    r.typeHash, r.magic, typeHash));
  }
}

}  // namespace

Writer::Writer(std::string const& dir, StoreShape const& shape,
               Tamsel::FilePermissions const& perms)
    : shape_(shape),
      table_(std::make_unique<Tamsel::Writer>(dir, kNodesCollection, tableShape(shape), perms)) {
  NodeKey root;
  char const* rec = nullptr;
  uint32_t len = 0;
  if (table_->find(&root, hashOf(root), &rec, &len)) {
    checkRoot(table_->paths().table, rec, len, shape_.typeHash);
    return;
  }
  RootRecord r;
  r.typeHash = shape_.typeHash;
  write(root, reinterpret_cast<char const*>(&r), sizeof r);
}

void Writer::write(NodeKey const& key, char const* rec, uint32_t len) {
  table_->write(&key, hashOf(key), len, [&](char* dst) {
    if (len != 0) std::memcpy(dst, rec, len);
  });
}

bool Writer::remove(NodeKey const& key) {
  return table_->remove(&key, hashOf(key), [](char const*, uint32_t) {});
}

bool Writer::find(NodeKey const& key, char const** rec, uint32_t* len) const {
  return table_->find(&key, hashOf(key), rec, len);
}

Shadow::Shadow(std::string const& dir, uint32_t typeHash, Tamsel::Reader::Options const& options)
    : typeHash_(typeHash),
      table_(std::make_unique<Tamsel::Reader>(dir, kNodesCollection, sizeof(NodeKey), options)) {
  std::vector<char> rec;
  if (!read(NodeKey(), rec)) {
    // A writer that died before its first write leaves no root; a later
    // writer writes it, so only a root of another type is refused.
    return;
  }
  checkRoot(table_->paths().table, rec.data(), static_cast<uint32_t>(rec.size()), typeHash_);
}

bool Shadow::read(NodeKey const& key, std::vector<char>& out) const {
  return table_->readCopy(&key, nodeHash(key, typeHash_), out);
}

}  // namespace Pelag
