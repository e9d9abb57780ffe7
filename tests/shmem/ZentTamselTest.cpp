#include <filesystem>
#include <set>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "tests/shmem/ShmTestUtil.h"
#include "tests/shmem/TestTable.h"

using namespace TamselTest;
using ZentTamsel::MountInfo;
using ZentTamsel::MountType;

namespace {

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
    registerTestTable();
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
  Dabin::CaptureSink traces;
};

TEST_F(ZentTamselTest, UnmountedTableWorksOnItsLocalWriterWithinTheBound) {
  auto t = Zent::newEntity<TestTable>("local");
  EXPECT_TRUE(traces.contains("creating local TamselWriter local"));
  EXPECT_EQ(t->map().core().mountStatus(), ZentTamsel::MountStatus::localWriter);
  t->entryIs(rec(1, "one"));
  TestRecord out;
  ASSERT_TRUE(t->entry(TestKey{1}, out));
  EXPECT_EQ(out.payload, "one");
  EXPECT_THROW(t->entryIs(rec(2, std::string(1000, 'x'))), Zent::RangeException);
  EXPECT_FALSE(t->entry(TestKey{2}, out));
  EXPECT_TRUE(t->entryDel(TestKey{1}));
  EXPECT_FALSE(t->entryDel(TestKey{1}));
  t->map().entity("again", t.ptr());
  EXPECT_TRUE(traces.contains("name:again already initialized"));
}

TEST_F(ZentTamselTest, MountServiceCreatesTheTypeByNameAndRelaysKeysToAKeyShadow) {
  auto w = mountTable(mount, writerInfo());
  ASSERT_TRUE(w);
  EXPECT_EQ(w->map().core().mountStatus(), ZentTamsel::MountStatus::mounted);
  EXPECT_EQ(w->mountStatusChanges, 1);
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  ASSERT_TRUE(shadow);
  for (uint64_t k = 0; k < 10; ++k) w->entryIs(rec(k, "v" + std::to_string(k)));
  w->entryIs(rec(3, "v3"));  // an equal rewrite is a change to relay too
  w->entryDel(TestKey{4});
  ASSERT_TRUE(dispatchUntil([&] { return shadow->notified.size() >= 12; },
                            [&](int ms) { return registry.dispatchAll(ms); }));
  EXPECT_EQ(shadow->notified, w->notified);
  TestRecord out;
  ASSERT_TRUE(shadow->entry(TestKey{7}, out));
  EXPECT_EQ(out.payload, "v7");
  EXPECT_FALSE(shadow->entry(TestKey{4}, out));
  EXPECT_EQ(shadow->map().size(), 9u);
}

TEST_F(ZentTamselTest, ValueShadowKeepsLocalCopiesCurrent) {
  auto w = mountTable(mount, writerInfo());
  w->entryIs(rec(1, "before"));
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::valueShadow()));
  EXPECT_EQ(shadow->map().shadowedValues(), 1u);
  w->entryIs(rec(1, "after"));
  w->entryIs(rec(2, "two"));
  w->entryDel(TestKey{1});
  ASSERT_TRUE(dispatchUntil([&] { return shadow->notified.size() >= 3; },
                            [&](int ms) { return registry.dispatchAll(ms); }));
  TestRecord out;
  EXPECT_FALSE(shadow->entry(TestKey{1}, out));
  ASSERT_TRUE(shadow->entry(TestKey{2}, out));
  EXPECT_EQ(out.payload, "two");
  EXPECT_EQ(shadow->map().shadowedValues(), 1u);
}

// A plain reader keeps no key index, yet its table's reactors must hear of
// every key that may have changed across a writer restart and an overflow.
TEST_F(ZentTamselTest, PlainReaderRelaysChangedKeysAcrossAWriterRestartAndAnOverflow) {
  auto w = mountTable(mount, writerInfo());
  for (uint64_t k = 0; k < 5; ++k) w->entryIs(rec(k, "a"));
  auto r = mountTable(mount, MountInfo(ZentTamsel::reader()));
  auto heard = [&](uint64_t from, uint64_t to) {
    std::set<uint64_t> got(r->notified.begin(), r->notified.end());
    for (uint64_t k = from; k < to; ++k) {
      if (!got.count(k)) return false;
    }
    return true;
  };
  w->entryDel(TestKey{0});  // still queued when its writer goes away
  w->entryIs(rec(1, "b"));
  w->tamselUnmount();
  w = mountTable(mount, writerInfo());
  w->entryIs(rec(2, "c"));
  ASSERT_TRUE(dispatchUntil([&] { return heard(0, 3); }, ZentTamsel::dispatchAll));
  r->notified.clear();
  for (uint64_t k = 100; k < 400; ++k) w->entryIs(rec(k, "d"));  // laps the queue
  ASSERT_TRUE(dispatchUntil([&] { return heard(100, 400); }, ZentTamsel::dispatchAll));
}

TEST_F(ZentTamselTest, KeysResumeFromABookmarkInAStableOrder) {
  auto w = mountTable(mount, writerInfo());
  for (uint64_t k = 0; k < 50; ++k) w->entryIs(rec(k * 37 % 101, "x"));
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  auto all = shadow->map().keys();
  ASSERT_EQ(all.size(), 50u);
  std::vector<TestKey> resumed;
  TestKey const* bookmark = nullptr;
  std::vector<TestKey> page;
  do {
    page = shadow->map().keys(bookmark, 7);
    resumed.insert(resumed.end(), page.begin(), page.end());
    if (!page.empty()) bookmark = &resumed.back();
  } while (!page.empty());
  EXPECT_EQ(resumed, all);
  EXPECT_EQ(w->map().keys(), all);  // the writer's order is the same
}

TEST_F(ZentTamselTest, CorruptRecordIsReportedToReadersAndStopsTheWriterMutator) {
  auto w = mountTable(mount, writerInfo());
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  std::vector<std::string> reports;
  shadow->map().core().corruptionHandlerIs([&](std::string const& m) { reports.push_back(m); });
  TestRecord bad = rec(9, "abc");
  bad.corrupt = true;
  w->entryIs(bad);
  TestRecord out;
  EXPECT_FALSE(shadow->entry(TestKey{9}, out));
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_NE(reports[0].find("t1 Corrupted serialized value detected at offset: "),
            std::string::npos)
      << reports[0];
  EXPECT_NE(reports[0].find(", contents: 00000000"), std::string::npos) << reports[0];
  EXPECT_THROW(w->entryDel(TestKey{9}), ZentTamsel::CorruptionException);
  EXPECT_TRUE(w->map().has(TestKey{9}));  // nothing removed
}

TEST_F(ZentTamselTest, WritingThroughAKeyShadowIsRefused) {
  auto w = mountTable(mount, writerInfo());
  auto shadow = mountTable(mount, MountInfo(ZentTamsel::keyShadow()));
  EXPECT_DEATH(shadow->entryIs(rec(1, "x")),
               "safeWrite not allowed at this time, initialized:true keyNotifications:true");
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

TEST_F(ZentTamselTest, UnknownTypeAndNonMountableTypesAreHandled) {
  EXPECT_THROW(mount.doMount("test/table/x", "No::Such::Type", writerInfo()), Tamsel::Error);
}

TEST_F(ZentTamselTest, MountInfoTextRoundTrips) {
  MountInfo m = writerInfo();
  m.fileModeIs(0640);
  std::string text = m.stringValue();
  EXPECT_EQ(text,
            "Value('ZentTamsel::MountInfo', ** {'mountType': writer, 'collectionInfo': "
            "[Value('ZentTamsel::MountInfo::CollectionInfo', ** {'name': 'entry', 'size': 1024})], "
            "'fileMode': 416, 'fileGroup': -1})");
  EXPECT_EQ(Zent::strepToValue<MountInfo>(Zent::String(text)), m);
  EXPECT_EQ(Zent::strepToValue<ZentTamsel::Mount>(Zent::String(mount.stringValue())), mount);
}

}  // namespace
