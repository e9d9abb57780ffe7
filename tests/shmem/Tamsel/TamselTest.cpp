// The table core: one writer and its readers in one process, in separate
// processes, and writers killed in the middle of their writes.
#include <atomic>
#include <fcntl.h>
#include <map>
#include <random>
#include <set>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tuple>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "tests/net/ErrorText.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tamsel;
using namespace TamselTest;

namespace {

class TamselTest : public ::testing::Test {
 protected:
  StateRoot root;
  std::string dir = root.dir("tunnel/table/test");
};

TEST_F(TamselTest, RandomOperationsMatchAModelForWriterAndReader) {
  Writer w(dir, "entry", testShape());
  Reader r(dir, "entry", 8);
  Follower f(r);
  std::map<uint64_t, uint64_t> model;
  std::mt19937_64 rng(1);
  std::vector<uint64_t> expectedKeys;
  for (uint64_t step = 0; step < 20000; ++step) {
    uint64_t key = rng() % 2000;
    if (rng() % 4 == 0) {
      auto had = model.find(key);
      uint64_t removedGen = kBadRecord;
      EXPECT_EQ(w.remove(&key, keyHash(key),
                         [&](char const* rec, uint32_t len) {
                           if (recordValid(rec, len, key)) removedGen = recordGen(rec);
                         }),
                had != model.end());
      if (had != model.end()) {
        EXPECT_EQ(removedGen, had->second);  // the removed record is handed back
        model.erase(had);
        expectedKeys.push_back(key);
      }
    } else {
      put(w, key, step, 24 + static_cast<uint32_t>(rng() % 3000));
      model[key] = step;
      expectedKeys.push_back(key);
    }
    if (step % 1000 == 999) {
      r.dispatch(f);
      ASSERT_EQ(scan(r), model);
      EXPECT_EQ(f.view, model);
      EXPECT_EQ(r.count(), model.size());
      EXPECT_EQ(r.indexedKeys(), model.size());
    }
  }
  EXPECT_EQ(f.keys, expectedKeys);  // one notification per change, in order
  EXPECT_EQ(f.resyncs, 0);
}

// A refused size is a range exception naming the sizes, and changes nothing.
TEST_F(TamselTest, RecordsOfARefusedSizeChangeNothing) {
  struct Case {
    uint32_t maxPayload, fixedPayload, ok, refused;
    std::string message;
  };
  for (Case const& c :
       {Case{564, 0, 564, 565,
             "TestTable::alloc() requested payloadSize:565, but max payloadSize:564"},
        Case{4096, 48, 48, 40,
             "TestTable::alloc() requested payloadSize:40, but fixed payloadSize:48"}}) {
    StateRoot caseRoot;
    TableShape s = testShape(c.maxPayload);
    s.fixedPayload = c.fixedPayload;
    Writer w(caseRoot.path(), "entry", s);
    Reader r(caseRoot.path(), "entry", 8);
    put(w, 1, 1, c.ok);
    EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>([&] { put(w, 1, 2, c.refused); }),
              c.message);
    Follower f(r);
    r.dispatch(f);
    EXPECT_EQ(f.keys, std::vector<uint64_t>{1});  // only the accepted write
    EXPECT_EQ(scan(r), (std::map<uint64_t, uint64_t>{{1, 1}}));
  }
}

TEST_F(TamselTest, GrowthIsFollowedByReadersAndNeverShrinks) {
  Writer w(dir, "entry", testShape(130000));
  Reader r(dir, "entry", 8);
  uint64_t before = r.fileBytes();
  for (uint64_t k = 0; k < 200; ++k) put(w, k, k, 100000);
  EXPECT_GT(r.fileBytes(), before);
  EXPECT_EQ(scan(r).size(), 200u);
  for (uint64_t k = 0; k < 200; ++k) del(w, k);
  uint64_t grown = r.fileBytes();
  EXPECT_EQ(r.count(), 0u);
  // Freed slots are reused rather than the file growing again.
  for (uint64_t k = 0; k < 200; ++k) put(w, k, k, 100000);
  EXPECT_EQ(r.fileBytes(), grown);
  // Mappings start on a huge-page boundary, where huge pages can back them.
  EXPECT_EQ(reinterpret_cast<uintptr_t>(r.mappingBase()) % (uintptr_t{1} << 21), 0u);
  // An index sized up front takes its keys without a rebuild.
  auto index = [&] { return reinterpret_cast<FileHeader const*>(r.mappingBase())->indexOffset; };
  w.reserveKeys(5000);
  uint64_t const sized = index();
  for (uint64_t k = 200; k < 5200; ++k) put(w, k, k, 8);
  EXPECT_EQ(index(), sized);
}

TEST_F(TamselTest, ReaderThatFellBehindLearnsEveryChangedKeyOnce) {
  Writer w(dir, "entry", testShape(4096, 64));
  for (uint64_t k = 0; k < 100; ++k) put(w, k, 0, 64);
  Reader r(dir, "entry", 8);
  put(w, 500, 0, 64);  // seen by the scan below before its notification is read
  r.forEach([](void const*, char const*, uint32_t, uint64_t) {});
  std::set<uint64_t> touched;
  auto change = [&](uint64_t from, uint64_t to, bool remove) {
    for (uint64_t k = from; k < to; ++k) {
      remove ? (void)del(w, k) : put(w, k, 1, 64);
      touched.insert(k);
    }
  };
  // Ten times the queue: deletions, updates and new keys.
  change(0, 40, true);
  change(500, 501, true);
  change(50, 60, false);
  change(1000, 1600, false);
  Follower f(r);
  r.dispatch(f);
  EXPECT_EQ(r.overflows(), 1u);
  EXPECT_EQ(std::set<uint64_t>(f.keys.begin(), f.keys.end()), touched);
  EXPECT_EQ(f.keys.size(), touched.size());
  EXPECT_EQ(r.indexedKeys(), w.count());
}

// A batch finds exactly what single lookups find, each record once and
// under its own position, across groups and with absent keys among them.
// Copies (single, cut short, and batched) hand out what an in-place read
// sees, for keys in their home bucket and past it, and for absent ones.
TEST_F(TamselTest, CopiesAndBatchesFindWhatInPlaceReadsFind) {
  Writer w(dir, "entry", testShape(4096, 64));
  for (uint64_t k = 0; k < 100; ++k) put(w, k, k % 7, 16 + 8 * (k % 5));
  for (uint64_t k = 0; k < 20; k += 2) del(w, k);
  Reader r(dir, "entry", 8, Reader::Options{false, false});
  std::vector<uint64_t> keys;
  for (uint64_t k = 0; k < 37; ++k) keys.push_back((k * 7919) % 130);  // past the end too
  std::vector<uint32_t> hashes;
  for (uint64_t k : keys) hashes.push_back(keyHash(k));
  std::map<size_t, std::vector<char>> got;
  size_t n = r.readBatch(keys.data(), hashes.data(), keys.size(),
                         [&](size_t i, char const* rec, uint32_t len) {
                           EXPECT_TRUE(got.emplace(i, std::vector<char>(rec, rec + len)).second);
                         });
  EXPECT_EQ(n, got.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    std::vector<char> inPlace, copy;
    bool present = r.read(&keys[i], hashes[i],
                          [&](char const* rec, uint32_t len) { inPlace.assign(rec, rec + len); });
    EXPECT_EQ(r.readCopy(&keys[i], hashes[i], copy), present) << keys[i];
    EXPECT_EQ(got.count(i) == 1, present) << keys[i];
    if (!present) continue;
    EXPECT_EQ(copy, inPlace) << keys[i];
    EXPECT_EQ(got[i], inPlace) << keys[i];
    char half[64];
    uint32_t len = 0;
    auto cap = static_cast<uint32_t>(inPlace.size() / 2);
    ASSERT_TRUE(r.readInto(&keys[i], hashes[i], half, cap, len));
    EXPECT_EQ(len, inPlace.size());
    EXPECT_EQ(std::vector<char>(half, half + cap),
              std::vector<char>(inPlace.data(), inPlace.data() + cap));
  }
}

// The key shadow's index against a model, through growth and deletions
// that shift later entries back.
TEST(KeyIndexTest, MatchesAModelThroughGrowthAndDeletions) {
  KeyIndex index(12);
  std::map<std::string, uint64_t> model;
  std::mt19937 rng(5);
  for (int step = 0; step < 20000; ++step) {
    uint32_t k = rng() % 600;
    std::string key = std::to_string(1000000000000 + k).substr(1);  // 12 digits
    uint32_t hash = k % 61;  // few hashes: long runs to shift through
    if (rng() % 3 == 0) {
      index.erase(key.data(), hash);
      model.erase(key);
    } else {
      index.put(key.data(), hash, step);
      model[key] = step;
    }
  }
  EXPECT_EQ(index.size(), model.size());
  size_t seen = 0;
  index.forEach([&](void const* key, uint32_t, uint64_t& version) {
    std::string k(static_cast<char const*>(key), 12);
    ASSERT_TRUE(model.count(k)) << k;
    EXPECT_EQ(version, model[k]);
    ++seen;
  });
  EXPECT_EQ(seen, model.size());
}

TEST_F(TamselTest, QuiescedFlagReachesReadersOncePerChange) {
  Writer w(dir, "entry", testShape());
  Reader r(dir, "entry", 8);
  Follower f(r);
  w.quiescedIs(true);
  w.quiescedIs(true);
  r.dispatch(f);
  w.quiescedIs(false);
  r.dispatch(f);
  EXPECT_EQ(f.quiesced, (std::vector<bool>{true, false}));
}

// A new writer takes the table over, and a reader that slept through the
// old writer's deletions, its death and the new writer's rewrites of the
// same keys hears of every such key and no other: the new writer's versions
// may not repeat the ones the reader holds.
TEST_F(TamselTest, KeysRewrittenByANewWriterAreReportedWhateverCameBetween) {
  struct Case {
    std::vector<uint64_t> deleted, rewritten;
  };
  std::vector<uint64_t> all;
  for (uint64_t k = 0; k < 500; ++k) all.push_back(k);
  // The last key written holds the highest version there is.
  for (Case const& c : {Case{{}, {1000}}, Case{{499}, {499}}, Case{all, all}}) {
    StateRoot caseRoot;
    auto w = std::make_unique<Writer>(caseRoot.path(), "entry", testShape());
    for (uint64_t k : all) put(*w, k, 1, 200 + static_cast<uint32_t>(k));
    Reader r(caseRoot.path(), "entry", 8);
    for (uint64_t k : c.deleted) del(*w, k);
    w.reset();
    w = std::make_unique<Writer>(caseRoot.path(), "entry", testShape());
    EXPECT_TRUE(w->recovered());
    EXPECT_EQ(w->count(), all.size() - c.deleted.size());
    for (uint64_t k : c.rewritten) put(*w, k, 2, 64);
    Follower f(r);
    r.dispatch(f);
    std::set<uint64_t> expected(c.deleted.begin(), c.deleted.end());
    expected.insert(c.rewritten.begin(), c.rewritten.end());
    EXPECT_EQ(std::set<uint64_t>(f.keys.begin(), f.keys.end()), expected) << c.deleted.size();
    EXPECT_EQ(f.resyncs, 1);
  }
}

// A writer killed while it created the reader registry (file there, magic not
// yet) must not leave a table that no later writer can take over.
TEST_F(TamselTest, NextWriterRepairsARegistryItsPredecessorDidNotFinish) {
  for (off_t size : {off_t{0}, off_t{4096}}) {
    StateRoot caseRoot;
    std::make_unique<Writer>(caseRoot.path(), "entry", testShape()).reset();
    std::string registry = caseRoot.path() + "/entry.readers";
    ASSERT_EQ(::truncate(registry.c_str(), 0), 0);
    ASSERT_EQ(::truncate(registry.c_str(), size), 0);
    Writer w(caseRoot.path(), "entry", testShape());
    put(w, 1, 1, 64);
    Reader r(caseRoot.path(), "entry", 8);
    EXPECT_EQ(r.count(), 1u);
  }
}

TEST_F(TamselTest, FilesAreCreatedWithTheMountModeWhateverTheUmask) {
  mode_t old = ::umask(0);
  for (auto [mask, mode, want] : {std::tuple{0, 0640, 0640}, std::tuple{077, 0, 0600}}) {
    StateRoot caseRoot;
    FilePermissions perms;
    if (mode) perms.mode = static_cast<mode_t>(mode);
    ::umask(static_cast<mode_t>(mask));
    { Writer w(caseRoot.path(), "entry", testShape(), perms); }
    struct stat st {};
    ASSERT_EQ(::stat((caseRoot.path() + "/entry.tbl").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, static_cast<unsigned>(want));
  }
  ::umask(old);
}

// Tables that cannot be opened as asked are errors that say why.
TEST_F(TamselTest, UnusableTablesAreClearErrors) {
  auto error = [](auto&& open) { return Vorn::test::errorOf<Error>(open); };
  EXPECT_NE(error([&] { Reader r(dir, "entry", 8); }).find("entry.tbl"), std::string::npos);
  { Writer w(dir, "entry", testShape(4096)); }
  EXPECT_NE(error([&] { Writer w(dir, "entry", testShape(8192)); }), "no exception");
  std::string lock = dir + "/entry.lock", target = root.path() + "/elsewhere";
  std::fclose(std::fopen(target.c_str(), "w"));
  ::unlink(lock.c_str());
  ASSERT_EQ(::symlink(target.c_str(), lock.c_str()), 0);
  EXPECT_NE(error([&] { Writer w(dir, "entry", testShape()); }), "no exception");
  ::unlink(lock.c_str());
  if (::geteuid() != 0) GTEST_SKIP() << "changing a file's owner needs root";
  std::fclose(std::fopen(lock.c_str(), "w"));
  ASSERT_EQ(::chown(lock.c_str(), 65534, 65534), 0);
  EXPECT_NE(error([&] { Writer w(dir, "entry", testShape()); }).find("owned by uid 65534"),
            std::string::npos);
}

TEST(SizeClassesTest, ComputedClassIsTheSmallestThatFits) {
  SizeClasses classes(slotBytesFor(8, 130160));
  for (uint32_t bytes = 1; bytes <= classes.maxSlot() + 8; ++bytes) {
    uint32_t expected = 0;
    while (expected < classes.count() && classes.size(expected) < bytes) ++expected;
    ASSERT_EQ(classes.classOf(bytes), expected) << bytes;
  }
}

// Writers and readers in separate processes, as agents use them.
using TamselProcessTest = TamselTest;
TableShape shape(uint32_t queue = 1024) { return testShape(140000, queue); }

TEST_F(TamselProcessTest, ReaderInAnotherProcessGetsEveryKeyInOrderThroughItsFd) {
  Pipe ready, go;
  std::vector<uint64_t> sent;
  for (uint64_t i = 0; i < 3000; ++i) sent.push_back((i * 7919) % 1000);
  pid_t child = forkChild([&] {
    // A queue longer than the run: a reader that overflows under load would
    // rightly get each changed key once, not every write.
    Writer w(dir, "entry", shape(4096));
    ready.signal();
    go.wait();
    for (size_t i = 0; i < sent.size(); ++i) {
      // Every fifth change deletes the key if it can.
      if (i % 5 != 4 || !del(w, sent[i])) put(w, sent[i], i, 64 + static_cast<uint32_t>(i % 500));
      if (i % 100 == 0) ::usleep(200);  // let the reader fall asleep now and then
    }
    return true;
  });
  ASSERT_TRUE(ready.wait());
  Reader r(dir, "entry", 8);
  Follower keeper(r);
  go.signal();
  while (keeper.keys.size() < sent.size()) {
    ASSERT_TRUE(waitReadable(r.fd(), 20000)) << "no wake-up after " << keeper.keys.size();
    r.dispatch(keeper);
  }
  EXPECT_EQ(keeper.keys, sent);
  EXPECT_EQ(keeper.torn, 0u);
  EXPECT_EQ(waitChild(child), 0);
  EXPECT_EQ(keeper.view, scan(r));
}

TEST_F(TamselProcessTest, StoppedReaderCatchesUpAcrossTenQueuesOfChanges) {
  constexpr uint32_t kQueue = 256;
  Writer w(dir, "entry", shape(kQueue));
  for (uint64_t k = 0; k < 300; ++k) put(w, k, 0, 100);
  Pipe ready;
  pid_t child = forkChild([&] {
    Reader r(dir, "entry", 8);
    Follower keeper(r);
    keeper.view = scan(r);
    ready.signal();
    uint64_t const kDone = 999999;
    while (!keeper.view.count(kDone)) {
      if (!waitReadable(r.fd(), 10000)) return false;
      r.dispatch(keeper);
    }
    return keeper.torn == 0 && r.overflows() >= 1 && keeper.view == scan(r);
  });
  ASSERT_TRUE(ready.wait());
  ::kill(child, SIGSTOP);
  std::mt19937_64 rng(3);
  for (uint32_t i = 0; i < 10 * kQueue; ++i) {
    uint64_t k = rng() % 400;
    rng() % 3 == 0 ? (void)del(w, k) : put(w, k, i + 1, 100 + static_cast<uint32_t>(rng() % 1000));
  }
  ::kill(child, SIGCONT);
  put(w, 999999, 1, 64);
  EXPECT_EQ(waitChild(child), 0);
}

TEST_F(TamselProcessTest, WritingThroughAReadersMappingFaults) {
  { Writer w(dir, "entry", shape()); }
  pid_t child = forkChild([&] {
    Reader r(dir, "entry", 8);
    ::signal(SIGSEGV, SIG_DFL);  // the sanitizer would turn the fault into an exit code
    *const_cast<volatile char*>(r.mappingBase() + 64) = 1;
    return true;
  });
  EXPECT_EQ(waitChild(child), 128 + SIGSEGV);
}

// A refused write leaves the table exactly as it was. 88-byte records fill
// 128-byte slots, so the file first runs out when the index, not a slot,
// needs room (at 8192 keys), and again at every further key.
TEST_F(TamselProcessTest, WritesRefusedForWantOfSpaceLeaveTheTableAsItWas) {
  pid_t child = forkChild([&] {
    Writer w(dir, "entry", shape());
    // Growth past the file's first size fails as on a full file system.
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit lim{w.fileBytes(), RLIM_INFINITY};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) return false;
    uint64_t accepted = 0;
    int refused = 0;
    for (uint64_t k = 0; refused < 3 && k < 20000; ++k) {
      try {
        put(w, k, k, 88);
        ++accepted;
      } catch (Error const& e) {
        if (std::string(e.what()).find("cannot reserve") == std::string::npos) return false;
        ++refused;
      }
    }
    Reader r(dir, "entry", 8);
    return refused == 3 && scan(r).size() == accepted && r.indexedKeys() == accepted &&
           w.count() == accepted;
  });
  EXPECT_EQ(waitChild(child), 0);
}

// Exactly one of two writers racing for a table wins, and the loser is told
// the pid of the live winner, on a fresh table and on one whose last writer
// was killed (the next winner takes it over).
TEST_F(TamselProcessTest, ALosingWriterNamesTheLiveWinner) {
  for (int round = 0; round < 20; ++round) {
    Pipe go, lost;
    auto racer = [&] {
      return forkChild([&] {
        go.wait();
        try {
          Writer w(dir, "entry", shape());
          ::pause();
        } catch (Error const& e) {
          std::string m = std::to_string(::getpid()) + " " + e.what();
          return ::write(lost.fds[1], m.data(), m.size()) == static_cast<ssize_t>(m.size());
        }
        return false;
      });
    };
    pid_t a = racer(), b = racer();
    go.signal();
    go.signal();
    ASSERT_TRUE(waitReadable(lost.fds[0], 10000));
    char buf[512];
    ssize_t n = ::read(lost.fds[0], buf, sizeof(buf));
    ASSERT_GT(n, 0);
    std::string msg(buf, static_cast<size_t>(n));
    pid_t winner = std::stoi(msg) == a ? b : a;
    EXPECT_NE(msg.find("(pid " + std::to_string(winner) + ")"), std::string::npos) << msg;
    EXPECT_EQ(::waitpid(winner, nullptr, WNOHANG), 0);  // it still writes
    ::kill(a, SIGKILL);
    ::kill(b, SIGKILL);
    waitChild(a);
    waitChild(b);
  }
}

// A damaged or hostile table file is an Error for its readers (lookups,
// scans, a key shadow's start), within a bounded number of retries: never a
// hang or a signal. Each case runs in a child whose alarm turns a hang into
// a failure.
TEST_F(TamselProcessTest, DamagedTableFilesAreErrorsNeverHangsOrSignals) {
  enum Damage { headerField, bucketPastHeap, slotMidWrite, truncated, fifo };
  uint64_t const k5 = 5;
  std::string const file = dir + "/entry.tbl";
  for (Damage d : {headerField, bucketPastHeap, slotMidWrite, truncated, fifo}) {
    std::filesystem::remove_all(dir);
    uint64_t slot = 0;
    {
      Writer w(dir, "entry", shape());
      for (uint64_t k = 0; k < 10; ++k) put(w, k, k, 64);
      slot = w.slotOffset(&k5, keyHash(k5));
    }
    int fd = ::open(file.c_str(), O_RDWR);
    FileHeader h{};
    ASSERT_EQ(::pread(fd, &h, sizeof(h), 0), static_cast<ssize_t>(sizeof(h)));
    auto poke = [&](uint64_t off, auto value) {
      ASSERT_EQ(::pwrite(fd, &value, sizeof(value), static_cast<off_t>(off)),
                static_cast<ssize_t>(sizeof(value)));
    };
    if (d == headerField) poke(offsetof(FileHeader, queueCapacity), uint32_t{1000});
    if (d == slotMidWrite) poke(slot + offsetof(SlotHeader, seq), uint32_t{7});
    ASSERT_TRUE(d != truncated || ::ftruncate(fd, static_cast<off_t>(h.heapOffset + 4096)) == 0);
    if (d == fifo) {
      ASSERT_EQ(::unlink(file.c_str()), 0);
      ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    }
    uint64_t b = h.indexOffset + sizeof(SlotHeader) + sizeof(IndexHeader);
    for (uint64_t word = 0; d == bucketPastHeap; b += sizeof(Bucket)) {
      ASSERT_EQ(::pread(fd, &word, 8, static_cast<off_t>(b)), 8);
      if (bucketLive(word) && bucketSlot(word) == slot) break;
    }
    if (d == bucketPastHeap) poke(b, makeBucketWord(h.fileSize * 2, 0, keyHash(5)));
    ::close(fd);
    pid_t child = forkChild([&] {
      ::alarm(20);
      try {
        Reader r(dir, "entry", 8);
        std::vector<char> out;
        for (uint64_t k = 0; k < 10; ++k) r.readCopy(&k, keyHash(k), out);
        scan(r);
        Follower v(r);
        r.dispatch(v);
      } catch (Error const& e) {
        return std::string(e.what()).find(d == fifo ? "is not a regular file"
                                                    : "is corrupt at offset") != std::string::npos;
      }
      return false;
    });
    EXPECT_EQ(waitChild(child), 0) << "damage " << d;
  }
}

// A writer killed at any instant leaves every record either old or new: a
// reader checking every record it sees never accepts a torn one, and each
// new writer finds every record its predecessors committed.
constexpr uint64_t kCrashKeys = 48;

// Shared with the writer children through an anonymous shared mapping.
struct Progress {
  std::atomic<uint64_t> generation;  // last generation handed out
  std::atomic<uint64_t> writes;      // writes completed, all children
  std::atomic<uint32_t> inWrite;     // a child is between the start and end of a write
  std::atomic<uint32_t> started;
  // Generation committed last per key (the child writes it after the write).
  std::atomic<uint64_t> committed[kCrashKeys];
};

using TamselCrashTest = TamselTest;
TEST_F(TamselCrashTest, KilledWritersNeverLeaveTornRecords) {
  auto* progress = static_cast<Progress*>(
      ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(progress, MAP_FAILED);
  new (progress) Progress{};
  { Writer w(dir, "entry", testShape(133120, 4096)); }
  Reader reader(dir, "entry", 8, Reader::Options{false, false});

  std::mt19937_64 rng(42);
  int kills = 0, killsInsideWrite = 0;
  uint64_t tornAccepted = 0, recordsChecked = 0;
  std::vector<uint64_t> seen(kCrashKeys);  // the highest generation seen per key

  auto checkAll = [&] {
    for (uint64_t k = 0; k < kCrashKeys; ++k) {
      std::vector<char> rec;
      if (!reader.readCopy(&k, keyHash(k), rec)) continue;
      ++recordsChecked;
      if (!recordValid(rec.data(), rec.size(), k)) {
        ++tornAccepted;
        continue;
      }
      uint64_t gen = recordGen(rec.data());
      EXPECT_GE(gen, seen[k]) << "key " << k << " went back in time";
      seen[k] = gen;
    }
  };

  int const wantKills =
      std::getenv("TAMSEL_CRASH_KILLS") ? std::atoi(std::getenv("TAMSEL_CRASH_KILLS")) : 200;
  while (kills < wantKills || progress->writes.load() < 10000) {
    progress->started = 0;
    pid_t child = forkChild([&] {
      Writer w(dir, "entry", testShape(133120, 4096));
      // Every record its predecessors committed is still there.
      for (uint64_t k = 0; k < kCrashKeys; ++k) {
        char const* rec;
        uint32_t len;
        uint64_t committed = progress->committed[k].load();
        if (committed == 0) continue;
        if (!w.find(&k, keyHash(k), &rec, &len) || !recordValid(rec, len, k) ||
            recordGen(rec) < committed) {
          return false;
        }
      }
      progress->started = 1;
      std::mt19937_64 local(static_cast<uint64_t>(::getpid()));
      for (;;) {
        uint64_t k = local() % kCrashKeys;
        uint32_t len = 512 + static_cast<uint32_t>(local() % (130 * 1024 - 512));
        uint64_t gen = progress->generation.fetch_add(1) + 1;
        progress->inWrite = 1;
        // Filled straight into the slot, as a serializer does.
        w.write(&k, keyHash(k), len, [&](char* dst) { fillRecord(dst, k, gen, len); });
        progress->inWrite = 0;
        progress->committed[k] = gen;
        progress->writes.fetch_add(1);
      }
    });
    while (progress->started.load() == 0) {
      if (::waitpid(child, nullptr, WNOHANG) == child) FAIL() << "writer child failed to recover";
      checkAll();
    }
    auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(rng() % 3000);
    while (std::chrono::steady_clock::now() < until) checkAll();
    ::kill(child, SIGKILL);
    ASSERT_EQ(waitChild(child), 128 + SIGKILL);
    ++kills;
    if (progress->inWrite.exchange(0)) ++killsInsideWrite;
    checkAll();
  }
  EXPECT_EQ(tornAccepted, 0u);
  EXPECT_GT(recordsChecked, 0u);
  EXPECT_GT(killsInsideWrite, 0) << "no kill caught a write half done";
  ::munmap(progress, sizeof(Progress));
}

}  // namespace
