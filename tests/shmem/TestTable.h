#pragma once
// A small mountable entity with one shared-memory collection, written the way
// the library's tables are, for the binding and mount-service tests.

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamselMap.h"

namespace TamselTest {

struct TestKey {
  uint64_t id = 0;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&id, sizeof id, seed); }
  bool operator==(TestKey const&) const = default;
};

// A variable-length record: magic, key, payload length, payload.
struct TestRecord {
  static constexpr uint32_t kMagic = 0x7e57;
  TestKey key;
  std::string payload;
  bool corrupt = false;  // serialize a record that does not decode

  uint32_t serializeLen() const { return 16 + static_cast<uint32_t>(payload.size()); }
  void serialize(void* dst) const {
    auto* p = static_cast<char*>(dst);
    uint32_t magic = corrupt ? 0 : kMagic, n = static_cast<uint32_t>(payload.size());
    std::memcpy(p, &magic, 4);
    std::memcpy(p + 4, &key.id, 8);
    std::memcpy(p + 12, &n, 4);
    std::memcpy(p + 16, payload.data(), n);
  }
  uint32_t deserializeLen(void const* src, unsigned len) const {
    if (len < 16) return 0;
    uint32_t magic, n;
    std::memcpy(&magic, src, 4);
    std::memcpy(&n, static_cast<char const*>(src) + 12, 4);
    if (magic != kMagic || 16ull + n > len) return 0;
    return 16 + n;
  }
  void deserialize(void const* src, unsigned) {
    auto const* p = static_cast<char const*>(src);
    uint32_t n;
    std::memcpy(&key.id, p + 4, 8);
    std::memcpy(&n, p + 12, 4);
    payload.assign(p + 16, n);
    corrupt = false;
  }
  bool operator==(TestRecord const& o) const { return key == o.key && payload == o.payload; }
};

struct TestKeyOf {
  TestKey operator()(TestRecord const& r) const { return r.key; }
};

class TestTable : public Zent::Entity,
                  public ZentTamsel::Mountable,
                  public ZentTamsel::CollectionListener {
 public:
  static constexpr const char* kTypeName = "TamselTest::TestTable";
  static constexpr Zent::AttributeId kEntryId = 386;

  explicit TestTable(Zent::String const& name);

  void entryIs(TestRecord const& r);
  bool entryDel(TestKey k);
  bool entry(TestKey k, TestRecord& out) const { return entry_.lookup(k, out); }

  ZentTamsel::ZentTamselMap<TestKey, TestRecord, TestKeyOf>& map() { return entry_; }

  void tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                   ZentTamsel::MountRegistry& registry) override;
  void keyChanged(void const* key) override;
  void mountStatusChanged() override;
  void tamselUnmount() override { entry_.core().unmount(); }

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void entryNotify(TestKey) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override {
      if (id == kEntryId) entryNotify(key.as<TestKey>());
    }
  };

  // Keys this table was notified of, in order (its own reactors' view).
  std::vector<uint64_t> notified;
  int mountStatusChanges = 0;

 private:
  ZentTamsel::ZentTamselMap<TestKey, TestRecord, TestKeyOf> entry_;
};

// Registers TestTable with the type registry so the mount service can create it.
void registerTestTable();

}  // namespace TamselTest
