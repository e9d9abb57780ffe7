// The entity binding of shared-memory tables: a small mountable entity with
// one collection, written the way the library's tables are, mounted through
// the mount service as writer, key shadow, value shadow or plain reader.
#include <algorithm>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>

#include <gtest/gtest.h>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamselMap.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace TamselTest;
using ZentTamsel::MountInfo;

namespace {

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
    uint32_t head[4] = {corrupt ? 0 : kMagic, 0, 0, static_cast<uint32_t>(payload.size())};
    std::memcpy(&head[1], &key.id, 8);
    std::memcpy(dst, head, 16);
    std::memcpy(static_cast<char*>(dst) + 16, payload.data(), payload.size());
  }
  uint32_t deserializeLen(void const* src, unsigned len) const {
    uint32_t head[4];
    if (len < 16) return 0;
    std::memcpy(head, src, 16);
    return head[0] == kMagic && 16ull + head[3] <= len ? 16 + head[3] : 0;
  }
  void deserialize(void const* src, unsigned) {
    uint32_t head[4];
    std::memcpy(head, src, 16);
    std::memcpy(&key.id, &head[1], 8);
    payload.assign(static_cast<char const*>(src) + 16, head[3]);
  }
  bool operator==(TestRecord const& o) const { return key == o.key && payload == o.payload; }
};

using TestKeyOf = decltype([](TestRecord const& r) { return r.key; });

class TestTable : public Zent::Entity,
                  public ZentTamsel::Mountable,
                  public ZentTamsel::CollectionListener {
 public:
  static constexpr const char* kTypeName = "TamselTest::TestTable";

  explicit TestTable(Zent::String const& name) : Entity(name), entry_(mapShape()) {
    entry_.entity(std::string(name.view()), this);
  }
  void keyChanged(void const* key) override {
    TestKey k;
    std::memcpy(&k, key, sizeof k);
    entry_.shadowRefresh(k);
    notified.push_back(k.id);
  }
  void mountStatusChanged() override {
    entry_.shadowRefreshAll();
    ++mountStatusChanges;
  }
  void entryIs(TestRecord const& r) {
    entry_.safeWrite(r);
    notified.push_back(r.key.id);
  }
  bool entryDel(TestKey k) {
    if (!entry_.safeRemove(k)) return false;
    notified.push_back(k.id);
    return true;
  }
  std::string payload(uint64_t id) const {
    TestRecord r;
    return entry_.lookup(TestKey{id}, r) ? r.payload : "<none>";
  }
  ZentTamsel::ZentTamselMap<TestKey, TestRecord, TestKeyOf>& map() { return entry_; }

  void tamselMount(std::string const& dir, MountInfo const& info,
                   ZentTamsel::MountRegistry& registry) override {
    Tamsel::FilePermissions perms;
    perms.mode = info.fileMode();
    entry_.core().mount(dir, "entry", info.mountType(), perms, registry);
  }
  void tamselUnmount() override { entry_.core().unmount(); }

  std::vector<uint64_t> notified;  // keys this table was told of, in order
  int mountStatusChanges = 0;

 private:
  static Tamsel::TableShape mapShape() {
    Tamsel::TableShape s = testShape(1000, 256);
    s.typeName = kTypeName;
    return s;
  }
  ZentTamsel::ZentTamselMap<TestKey, TestRecord, TestKeyOf> entry_;
};

// Lets the mount service create TestTable by its type name.
class TestTableType : public Zent::GenericIf {
 public:
  TestTableType() : GenericIf(TestTable::kTypeName, Kind::entity) {}
  Zent::Ptr<Zent::Entity> newEntityForDir(Zent::String const& name) const override {
    return Zent::newEntity<TestTable>(name);
  }
};

TestRecord rec(uint64_t id, std::string payload) { return TestRecord{TestKey{id}, payload}; }

MountInfo writerInfo() {
  MountInfo m(ZentTamsel::writer());
  m.collectionInfoIs("entry", 1024);
  return m;
}

Zent::Ptr<TestTable> mountTable(ZentTamsel::Mount const& mount, MountInfo const& info) {
  auto e = mount.doMount("test/table/t1", TestTable::kTypeName, info);
  return Zent::dynamicPtrCast<TestTable>(e);
}

class ZentTamselTest : public ::testing::Test {
 protected:
  void SetUp() override {
    [[maybe_unused]] static bool registered =
        (Zent::typeIs(std::make_unique<TestTableType>()), true);
    ZentTamsel::dabinFacility_.levelIs(5, true);
    Dabin::sinkIs(&traces);
  }
  void TearDown() override {
    Dabin::sinkIs(nullptr);
    ZentTamsel::dabinFacility_.levelIs(5, false);
    mount.doUnmount("test/table/t1");
  }
  StateRoot root;
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount{Zent::String(root.path()), registry};
  std::function<size_t(int)> dispatch = [this](int ms) { return registry.dispatchAll(ms); };
  Dabin::CaptureSink traces;
};

TEST_F(ZentTamselTest, UnmountedTableWorksOnItsLocalWriterWithinTheBound) {
  auto t = Zent::newEntity<TestTable>("local");
  EXPECT_EQ(t->map().core().mountStatus(), ZentTamsel::MountStatus::localWriter);
  t->entryIs(rec(1, "one"));
  EXPECT_EQ(t->payload(1), "one");
  EXPECT_THROW(t->entryIs(rec(2, std::string(1000, 'x'))), Zent::RangeException);
  EXPECT_EQ(t->payload(2), "<none>");
  EXPECT_TRUE(t->entryDel(TestKey{1}));
  EXPECT_FALSE(t->entryDel(TestKey{1}));
  t->map().entity("again", t.ptr());
  EXPECT_TRUE(traces.contains("name:again already initialized"));
}

// The mount service creates the table by type name; a key shadow hears of
// every change, in order, and may not write.
TEST_F(ZentTamselTest, MountServiceCreatesTheTypeByNameAndRelaysKeysToAKeyShadow) {
  EXPECT_THROW(mount.doMount("test/table/x", "No::Such::Type", writerInfo()), Tamsel::Error);
  auto w = mountTable(mount, writerInfo());
  ASSERT_TRUE(w);
  EXPECT_EQ(w->map().core().mountStatus(), ZentTamsel::MountStatus::mounted);
  EXPECT_EQ(w->mountStatusChanges, 1);
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  ASSERT_TRUE(shadow);
  for (uint64_t k = 0; k < 10; ++k) w->entryIs(rec(k, "v" + std::to_string(k)));
  w->entryIs(rec(3, "v3"));  // an equal rewrite is a change to relay too
  w->entryDel(TestKey{4});
  ASSERT_TRUE(dispatchUntil([&] { return shadow->notified.size() >= 12; }, dispatch));
  EXPECT_EQ(shadow->notified, w->notified);
  EXPECT_EQ(shadow->payload(7), "v7");
  EXPECT_EQ(shadow->payload(4), "<none>");
  EXPECT_EQ(shadow->map().size(), 9u);
  EXPECT_DEATH(shadow->entryIs(rec(1, "x")),
               "safeWrite not allowed at this time, initialized:true keyNotifications:true");
}

TEST_F(ZentTamselTest, ValueShadowKeepsLocalCopiesCurrent) {
  auto w = mountTable(mount, writerInfo());
  w->entryIs(rec(1, "before"));
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::valueShadow()));
  EXPECT_EQ(shadow->map().shadowedValues(), 1u);
  w->entryIs(rec(1, "after"));
  w->entryIs(rec(2, "two"));
  w->entryDel(TestKey{1});
  ASSERT_TRUE(dispatchUntil([&] { return shadow->notified.size() >= 3; }, dispatch));
  EXPECT_EQ(shadow->payload(1), "<none>");
  EXPECT_EQ(shadow->payload(2), "two");
  EXPECT_EQ(shadow->map().shadowedValues(), 1u);
}

// A plain reader keeps no key index, yet its table's reactors must hear of
// every key that may have changed across a writer restart and an overflow.
TEST_F(ZentTamselTest, PlainReaderRelaysChangedKeysAcrossAWriterRestartAndAnOverflow) {
  auto w = mountTable(mount, writerInfo());
  for (uint64_t k = 0; k < 5; ++k) w->entryIs(rec(k, "a"));
  auto r = mountTable(mount, MountInfo(ZentTamsel::reader()));
  EXPECT_DEATH(r->entryIs(rec(1, "x")), "safeWrite not allowed at this time");
  auto heard = [&](uint64_t from, uint64_t to) {
    std::set<uint64_t> got(r->notified.begin(), r->notified.end());
    return std::distance(got.lower_bound(from), got.lower_bound(to)) ==
           static_cast<long>(to - from);
  };
  w->entryDel(TestKey{0});  // still queued when its writer goes away
  w->entryIs(rec(1, "b"));
  w->tamselUnmount();
  w = mountTable(mount, writerInfo());
  w->entryIs(rec(2, "c"));
  ASSERT_TRUE(dispatchUntil([&] { return heard(0, 3); }, dispatch));
  r->notified.clear();
  for (uint64_t k = 100; k < 400; ++k) w->entryIs(rec(k, "d"));  // laps the queue
  ASSERT_TRUE(dispatchUntil([&] { return heard(100, 400); }, dispatch));
}

TEST_F(ZentTamselTest, KeysResumeFromABookmarkInAStableOrder) {
  auto w = mountTable(mount, writerInfo());
  for (uint64_t k = 0; k < 50; ++k) w->entryIs(rec(k * 37 % 101, "x"));
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  auto all = shadow->map().keys();
  ASSERT_EQ(all.size(), 50u);
  std::vector<TestKey> resumed, page;
  do {
    page = shadow->map().keys(resumed.empty() ? nullptr : &resumed.back(), 7);
    resumed.insert(resumed.end(), page.begin(), page.end());
  } while (!page.empty());
  EXPECT_EQ(resumed, all);
  EXPECT_EQ(w->map().keys(), all);  // the writer's order is the same
}

// Scans cut after every key, by the table's local writer, by its mounted
// writer, and by a reader whose writer is a child taking orders through a
// pipe: each order is a key and a payload length, or one of these.
constexpr int32_t kDel = -1, kRestart = -2, kQuit = -3;
struct Order {
  uint64_t id;
  int32_t len;
};

class ZentTamselScanTest : public ZentTamselTest,
                           public ::testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    ZentTamselTest::SetUp();
    if (GetParam() == "local") {
      scanned_ = writer_ = Zent::newEntity<TestTable>("local");
    } else if (GetParam() == "writer") {
      scanned_ = writer_ = mountTable(mount, writerInfo());
    } else {
      child_ = forkChild([&] {
        writer_ = mountTable(mount, writerInfo());
        done_.signal();
        Order o;
        while (::read(orders_.fds[0], &o, sizeof o) == sizeof o && o.len != kQuit) {
          apply(o);
          done_.signal();
        }
        return true;
      });
      ASSERT_TRUE(done_.wait());
      scanned_ = mountTable(mount, MountInfo(ZentTamsel::reader()));
    }
    for (uint64_t k = 0; k < 30; ++k) order({k, static_cast<int32_t>(k % 5 * 40)});
  }
  void TearDown() override {
    if (child_) {
      order({0, kQuit});
      EXPECT_EQ(waitChild(child_), 0);
    }
    scanned_ = writer_ = nullptr;
    ZentTamselTest::TearDown();
  }
  void apply(Order o) {
    if (o.len == kDel) {
      writer_->entryDel(TestKey{o.id});
    } else if (o.len == kRestart) {
      writer_->tamselUnmount();
      writer_ = mountTable(mount, writerInfo());
    } else {
      writer_->entryIs(rec(o.id, std::string(o.len, 'p')));
    }
  }
  void order(Order o) {
    if (!child_) {
      apply(o);
      scanned_ = writer_;  // a restart mounts a new writer
      return;
    }
    ASSERT_EQ(::write(orders_.fds[1], &o, sizeof o), static_cast<ssize_t>(sizeof o));
    if (o.len != kQuit) {
      ASSERT_TRUE(done_.wait());
    }
  }
  // Runs of one key each until the pass ends; `between` runs after each run.
  std::vector<uint64_t> pass(std::function<void()> between = {}, bool removeTaken = false) {
    std::vector<uint64_t> seen;
    TestKey next;
    for (int runs = 0; runs < 100; ++runs) {
      bool const ended = scanned_->map().scan(cursor_, next, [&](TestKey const& k) {
        seen.push_back(k.id);
        if (removeTaken) scanned_->entryDel(k);
        return false;
      });
      if (ended) return seen;
      if (between) between();
    }
    ADD_FAILURE() << "the pass did not end";
    return seen;
  }
  static std::vector<uint64_t> sorted(std::vector<uint64_t> v) {
    std::sort(v.begin(), v.end());
    return v;
  }
  static std::vector<uint64_t> range(uint64_t n) {
    std::vector<uint64_t> v(n);
    std::iota(v.begin(), v.end(), 0);
    return v;
  }

  Zent::Ptr<TestTable> writer_, scanned_;
  ZentTamsel::ZentTamselMap<TestKey, TestRecord, TestKeyOf>::ScanCursor cursor_;
  pid_t child_ = 0;
  Pipe orders_, done_;
};
INSTANTIATE_TEST_SUITE_P(Tables, ZentTamselScanTest,
                         ::testing::Values("local", "writer", "reader"));

TEST_P(ZentTamselScanTest, EveryKeyIsTakenOnceAndKeysThatStayOutliveChurn) {
  EXPECT_EQ(sorted(pass()), range(30));
  // Odd keys are removed, rewritten larger and written back; new keys come.
  uint64_t step = 0;
  auto const seen = pass([&] {
    if (step == 30) return;  // new keys ahead of the cursor would outrun it
    order({100 + step, 8});
    order({step % 15 * 2 + 1, kDel});
    order({(step + 7) % 15 * 2 + 1, static_cast<int32_t>(step % 4 * 60)});
    ++step;
  });
  std::map<uint64_t, int> times;
  for (uint64_t k : seen) ++times[k];
  for (uint64_t k = 0; k < 30; k += 2) EXPECT_EQ(times[k], 1) << k;
  for (auto [k, n] : times) EXPECT_TRUE(k < 30 || (k >= 100 && k < 100 + step)) << k;
}

TEST_P(ZentTamselScanTest, TheScanMayRemoveTheKeyItIsGiven) {
  if (child_) GTEST_SKIP() << "a reader removes nothing";
  EXPECT_EQ(sorted(pass({}, true)), range(30));
  EXPECT_EQ(scanned_->map().size(), 0u);
}

TEST_P(ZentTamselScanTest, ACursorOfAnotherWriterStartsOver) {
  if (GetParam() == "local") GTEST_SKIP() << "a local table has no other writer";
  int runs = 0;
  auto const seen = pass([&] {
    if (++runs == 5) order({0, kRestart});
  });
  // Five keys under the first writer, then all of them under the second.
  ASSERT_EQ(seen.size(), 35u);
  EXPECT_EQ(sorted({seen.begin() + 5, seen.end()}), range(30));
}

TEST_F(ZentTamselTest, CorruptRecordIsReportedToReadersAndStopsTheWriterMutator) {
  auto w = mountTable(mount, writerInfo());
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  std::vector<std::string> reports;
  shadow->map().core().corruptionHandlerIs([&](std::string const& m) { reports.push_back(m); });
  w->entryIs(TestRecord{TestKey{9}, "abc", true});
  EXPECT_EQ(shadow->payload(9), "<none>");
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_TRUE(reports[0].find("t1 Corrupted serialized value detected at offset: ") !=
                  std::string::npos &&
              reports[0].find(", contents: 00000000") != std::string::npos)
      << reports[0];
  EXPECT_THROW(w->entryDel(TestKey{9}), ZentTamsel::CorruptionException);
  EXPECT_TRUE(w->map().has(TestKey{9}));  // nothing removed
}

TEST_F(ZentTamselTest, CleanupRemovesEveryFileOnceTheWriterIsGone) {
  auto w = mountTable(mount, writerInfo());
  w->entryIs(rec(1, "x"));
  std::string dir = mount.dir("test/table/t1");
  EXPECT_THROW(mount.cleanup("test/table/t1"), Tamsel::Error);
  w = nullptr;
  mount.doUnmount("test/table/t1");
  mount.cleanup("test/table/t1");
  EXPECT_FALSE(std::filesystem::exists(dir));
}

TEST_F(ZentTamselTest, MountInfoTextRoundTrips) {
  MountInfo m = writerInfo();
  m.fileModeIs(0640);
  EXPECT_EQ(Zent::strepToValue<MountInfo>(Zent::String(m.stringValue())), m);
  EXPECT_NE(Zent::strepToValue<MountInfo>(Zent::String(writerInfo().stringValue())), m);
  EXPECT_EQ(Zent::strepToValue<ZentTamsel::Mount>(Zent::String(mount.stringValue())), mount);
}

}  // namespace
