#include "tests/shmem/TestTable.h"

#include "Tunnel/framework/TypeRegistry.h"

namespace TamselTest {
namespace {
Tamsel::TableShape testShape() {
  Tamsel::TableShape s;
  s.typeName = TestTable::kTypeName;
  s.allocatorName = "TestTable";
  s.maxPayload = 1000;
  s.queueCapacity = 256;
  return s;
}
}  // namespace

TestTable::TestTable(Zent::String const& name) : Entity(name), entry_(testShape()) {
  entry_.entity(std::string(name.view()), this);
}

void TestTable::keyChanged(void const* key) {
  TestKey k;
  std::memcpy(&k, key, sizeof k);
  entry_.shadowRefresh(k);
  notified.push_back(k.id);
  notify(kEntryId, k);
}

void TestTable::mountStatusChanged() {
  entry_.shadowRefreshAll();
  ++mountStatusChanges;
}

void TestTable::entryIs(TestRecord const& r) {
  entry_.safeWrite(r);
  notified.push_back(r.key.id);
  notify(kEntryId, r.key);
}

bool TestTable::entryDel(TestKey k) {
  if (!entry_.safeRemove(k)) return false;
  notified.push_back(k.id);
  notify(kEntryId, k);
  return true;
}

void TestTable::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                            ZentTamsel::MountRegistry& registry) {
  Tamsel::FilePermissions perms;
  perms.mode = info.fileMode();
  entry_.core().mount(dir, "entry", info.mountType(), perms, registry);
}

namespace {
class TestTableType : public Zent::GenericIf {
 public:
  TestTableType() : GenericIf(TestTable::kTypeName, Kind::entity) {}
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return Zent::newEntity<TestTable>(name);
  }
};
}  // namespace

void registerTestTable() {
  static bool done = [] {
    Zent::typeIs(std::make_unique<TestTableType>());
    return true;
  }();
  (void)done;
}

}  // namespace TamselTest
