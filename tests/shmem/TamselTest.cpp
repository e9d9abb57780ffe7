#include <map>
#include <random>
#include <set>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/shmem/Reader.h"
#include "Tunnel/shmem/Writer.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tamsel;
using namespace TamselTest;

namespace {

TableShape shape(uint32_t maxPayload = 4096, uint32_t queue = 1024) {
  return testShape(maxPayload, queue);
}

struct Recorder : Reader::Handler {
  std::vector<uint64_t> keys;
  int resyncs = 0;
  std::vector<bool> quiesced;
  void keyChanged(void const* key) override {
    uint64_t k;
    std::memcpy(&k, key, 8);
    keys.push_back(k);
  }
  void resynchronised(bool) override { ++resyncs; }
  void quiescedChanged(bool q) override { quiesced.push_back(q); }
};

void put(Writer& w, uint64_t key, uint64_t gen, uint32_t len) {
  auto rec = makeRecord(key, gen, len);
  w.write(&key, keyHash(key), len, [&](char* dst) { std::memcpy(dst, rec.data(), len); });
}

bool del(Writer& w, uint64_t key) {
  return w.remove(&key, keyHash(key), [](char const*, uint32_t) {});
}

// The reader's view: key -> generation, every record checked.
std::map<uint64_t, uint64_t> view(Reader const& r) {
  std::map<uint64_t, uint64_t> out;
  r.forEach([&](void const* key, char const* rec, uint32_t len, uint64_t) {
    uint64_t k;
    std::memcpy(&k, key, 8);
    EXPECT_TRUE(recordValid(rec, len, k));
    EXPECT_TRUE(out.emplace(k, recordGen(rec)).second);
  });
  return out;
}

class TamselTest : public ::testing::Test {
 protected:
  StateRoot root;
  std::string dir = root.dir("tunnel/table/test");
};

TEST_F(TamselTest, RandomOperationsMatchAModelForWriterAndReader) {
  Writer w(dir, "entry", shape());
  Reader r(dir, "entry", 8);
  std::map<uint64_t, uint64_t> model;
  std::mt19937_64 rng(1);
  Recorder rec;
  std::vector<uint64_t> expectedKeys;
  for (int step = 0; step < 20000; ++step) {
    uint64_t key = rng() % 2000;
    if (rng() % 4 == 0) {
      bool had = model.erase(key) != 0;
      EXPECT_EQ(del(w, key), had);
      if (had) expectedKeys.push_back(key);
    } else {
      uint64_t gen = static_cast<uint64_t>(step);
      put(w, key, gen, 24 + static_cast<uint32_t>(rng() % 3000));
      model[key] = gen;
      expectedKeys.push_back(key);
    }
    if (step % 1000 == 999) {
      r.dispatch(rec);
      ASSERT_EQ(view(r), model);
      EXPECT_EQ(r.count(), model.size());
      EXPECT_EQ(r.indexedKeys(), model.size());
    }
  }
  EXPECT_EQ(rec.keys, expectedKeys);  // one notification per change, in order
  EXPECT_EQ(rec.resyncs, 0);
  for (auto const& [k, gen] : model) {
    std::vector<char> out;
    ASSERT_TRUE(r.readCopy(&k, keyHash(k), out));
    EXPECT_EQ(recordGen(out.data()), gen);
  }
  uint64_t absent = 5000;
  std::vector<char> out;
  EXPECT_FALSE(r.readCopy(&absent, keyHash(absent), out));
}

TEST_F(TamselTest, RemoveHandsBackTheRemovedRecord) {
  Writer w(dir, "entry", shape());
  put(w, 7, 3, 100);
  std::vector<char> old;
  uint64_t k = 7;
  EXPECT_TRUE(
      w.remove(&k, keyHash(k), [&](char const* rec, uint32_t len) { old.assign(rec, rec + len); }));
  ASSERT_EQ(old.size(), 100u);
  EXPECT_TRUE(recordValid(old.data(), 100, 7));
  EXPECT_FALSE(del(w, 7));
}

TEST_F(TamselTest, OversizeRecordIsRefusedAndNothingChanges) {
  Writer w(dir, "entry", shape(564));
  Reader r(dir, "entry", 8);
  put(w, 1, 1, 564);
  uint64_t head = 0;
  try {
    put(w, 1, 2, 565);
    FAIL() << "expected a range exception";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(), "TestTable::alloc() requested payloadSize:565, but max payloadSize:564");
  }
  (void)head;
  Recorder rec;
  r.dispatch(rec);
  EXPECT_EQ(rec.keys, std::vector<uint64_t>{1});  // only the accepted write
  EXPECT_EQ(view(r), (std::map<uint64_t, uint64_t>{{1, 1}}));
}

TEST_F(TamselTest, GrowthIsFollowedByReadersAndNeverShrinks) {
  Writer w(dir, "entry", shape(130000));
  Reader r(dir, "entry", 8);
  uint64_t before = r.fileBytes();
  for (uint64_t k = 0; k < 200; ++k) put(w, k, k, 100000);
  EXPECT_GT(r.fileBytes(), before);
  EXPECT_EQ(view(r).size(), 200u);
  for (uint64_t k = 0; k < 200; ++k) del(w, k);
  uint64_t grown = r.fileBytes();
  EXPECT_EQ(r.count(), 0u);
  EXPECT_EQ(r.fileBytes(), grown);
  // Freed slots are reused rather than the file growing again.
  for (uint64_t k = 0; k < 200; ++k) put(w, k, k, 100000);
  EXPECT_EQ(r.fileBytes(), grown);
  // Mappings start on a huge-page boundary, where huge pages can back them.
  EXPECT_EQ(reinterpret_cast<uintptr_t>(r.mappingBase()) % (uintptr_t{1} << 21), 0u);
}

TEST_F(TamselTest, FixedSizeTableAcceptsOnlyItsSize) {
  TableShape s = shape();
  s.fixedPayload = 48;
  Writer w(dir, "entry", s);
  put(w, 1, 1, 48);
  EXPECT_THROW(put(w, 2, 1, 40), Zent::RangeException);
  EXPECT_EQ(w.count(), 1u);
}

TEST_F(TamselTest, ReaderThatFellBehindStillLearnsEveryChangedKey) {
  Writer w(dir, "entry", shape(4096, 64));
  for (uint64_t k = 0; k < 100; ++k) put(w, k, 0, 64);
  Reader r(dir, "entry", 8);
  Recorder rec;
  // Ten times the queue: updates, deletions and new keys.
  std::set<uint64_t> touched;
  for (uint64_t k = 0; k < 40; ++k) {
    del(w, k);
    touched.insert(k);
  }
  for (uint64_t k = 50; k < 60; ++k) {
    put(w, k, 1, 64);
    touched.insert(k);
  }
  for (uint64_t k = 1000; k < 1600; ++k) {
    put(w, k, 1, 64);
    touched.insert(k);
  }
  r.dispatch(rec);
  EXPECT_EQ(r.overflows(), 1u);
  EXPECT_EQ(std::set<uint64_t>(rec.keys.begin(), rec.keys.end()), touched);
  EXPECT_EQ(rec.keys.size(), touched.size());  // each changed key once
  EXPECT_EQ(r.indexedKeys(), w.count());
}

TEST_F(TamselTest, QuiescedFlagReachesReaders) {
  Writer w(dir, "entry", shape());
  Reader r(dir, "entry", 8);
  Recorder rec;
  w.quiescedIs(true);
  w.quiescedIs(true);
  r.dispatch(rec);
  w.quiescedIs(false);
  r.dispatch(rec);
  EXPECT_EQ(rec.quiesced, (std::vector<bool>{true, false}));
}

TEST_F(TamselTest, NewWriterRecoversTheTableAndReadersResynchronise) {
  auto w = std::make_unique<Writer>(dir, "entry", shape());
  for (uint64_t k = 0; k < 500; ++k) put(*w, k, k, 200 + static_cast<uint32_t>(k));
  for (uint64_t k = 0; k < 100; ++k) del(*w, k);
  Reader r(dir, "entry", 8);
  Recorder rec;
  w.reset();
  w = std::make_unique<Writer>(dir, "entry", shape());
  EXPECT_TRUE(w->recovered());
  EXPECT_EQ(w->count(), 400u);
  put(*w, 1000, 1, 64);
  r.dispatch(rec);
  EXPECT_EQ(rec.resyncs, 1);
  EXPECT_EQ(rec.keys, std::vector<uint64_t>{1000});  // nothing else changed
  EXPECT_EQ(view(r).size(), 401u);
}

// A key shadow that slept through a writer's deletions, its death and a new
// writer's rewrites of the same keys must hear of every rewritten key: the
// new writer's versions may not repeat the ones the shadow holds.
TEST_F(TamselTest, KeysRewrittenByANewWriterAreReportedWhateverCameBetween) {
  struct Case {
    std::vector<uint64_t> deleted, rewritten;
  };
  std::vector<uint64_t> all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  for (Case const& c : {Case{{9}, {9}}, Case{all, all}}) {
    StateRoot caseRoot;
    std::string d = caseRoot.dir("t");
    auto w = std::make_unique<Writer>(d, "entry", shape());
    for (uint64_t k : all) put(*w, k, 1, 64);
    Reader r(d, "entry", 8);
    for (uint64_t k : c.deleted) del(*w, k);
    w.reset();
    w = std::make_unique<Writer>(d, "entry", shape());
    for (uint64_t k : c.rewritten) put(*w, k, 2, 64);
    Recorder rec;
    r.dispatch(rec);
    std::set<uint64_t> expected(c.deleted.begin(), c.deleted.end());
    expected.insert(c.rewritten.begin(), c.rewritten.end());
    EXPECT_EQ(std::set<uint64_t>(rec.keys.begin(), rec.keys.end()), expected) << c.deleted.size();
  }
}

TEST_F(TamselTest, ATableIsRefusedToAWriterOfAnotherShape) {
  { Writer w(dir, "entry", shape(4096)); }
  EXPECT_THROW(Writer(dir, "entry", shape(8192)), Error);
}

TEST_F(TamselTest, MissingTableIsAClearError) {
  try {
    Reader r(dir, "entry", 8);
    FAIL();
  } catch (Error const& e) {
    EXPECT_NE(std::string(e.what()).find("entry.tbl"), std::string::npos) << e.what();
  }
}

TEST_F(TamselTest, FilesAreCreatedWithTheMountModeWhateverTheUmask) {
  mode_t old = ::umask(0);
  FilePermissions perms;
  perms.mode = 0640;
  { Writer w(dir, "entry", shape(), perms); }
  ::umask(old);
  struct stat st {};
  ASSERT_EQ(::stat((dir + "/entry.tbl").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  ::umask(0077);
  std::string dir2 = root.dir("tunnel/table/other");
  { Writer w(dir2, "entry", shape()); }
  ::umask(old);
  ASSERT_EQ(::stat((dir2 + "/entry.tbl").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(TamselTest, SymbolicLinksAndForeignFilesAreRefused) {
  std::filesystem::create_directories(dir);
  std::string target = root.path() + "/elsewhere";
  {
    std::FILE* f = std::fopen(target.c_str(), "w");
    std::fclose(f);
  }
  ASSERT_EQ(::symlink(target.c_str(), (dir + "/entry.lock").c_str()), 0);
  EXPECT_THROW(Writer(dir, "entry", shape()), Error);
  ::unlink((dir + "/entry.lock").c_str());
  if (::geteuid() != 0) GTEST_SKIP() << "changing a file's owner needs root";
  {
    std::FILE* f = std::fopen((dir + "/entry.lock").c_str(), "w");
    std::fclose(f);
  }
  ASSERT_EQ(::chown((dir + "/entry.lock").c_str(), 65534, 65534), 0);
  try {
    Writer w(dir, "entry", shape());
    FAIL();
  } catch (Error const& e) {
    EXPECT_NE(std::string(e.what()).find("owned by uid 65534"), std::string::npos) << e.what();
  }
}

}  // namespace

namespace {

TEST(SizeClassesTest, ComputedClassIsTheSmallestThatFits) {
  Tamsel::SizeClasses classes(Tamsel::slotBytesFor(8, 130160));
  for (uint32_t bytes = 1; bytes <= classes.maxSlot() + 8; ++bytes) {
    uint32_t expected = 0;
    while (expected < classes.count() && classes.size(expected) < bytes) ++expected;
    ASSERT_EQ(classes.classOf(bytes), expected) << bytes;
  }
}

}  // namespace
