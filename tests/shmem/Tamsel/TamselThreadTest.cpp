// The writer and readers of one table as threads of one process, built for
// the ThreadSanitizer run: lookups and scans race with copy-on-write writes,
// and a key-shadow reader follows the notifications through overflows.

#include <atomic>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "tests/shmem/ShmTestUtil.h"

using namespace Tamsel;
using namespace TamselTest;

namespace {

constexpr uint64_t kKeys = 300;
// Record sizes fall into a few size classes, so a freed slot is filled
// again within a few writes, while readers may still be copying from it.
constexpr uint32_t kRecordSizes[] = {512, 2900, 9000, 18500};
constexpr uint32_t kSizeJitter = 40;
constexpr uint32_t kMaxRecord = 18500 + kSizeJitter;
constexpr uint32_t kQueue = 64;
constexpr uint64_t kOps = 4000;

struct Op {
  uint64_t key;
  uint32_t len;  // 0: remove
};

class TamselThreadTest : public ::testing::Test {
 protected:
  StateRoot root;
  std::string dir = root.dir("tunnel/table/test");
  Writer writer{dir, "entry", testShape(kMaxRecord, kQueue)};
  // Drawn up front, so that readers know which key the writer touches next.
  std::vector<Op> plan = makePlan();
  std::atomic<uint64_t> opsDone{0};
  std::atomic<bool> writerDone{false};
  std::atomic<bool> shadowStarted{false};
  std::atomic<int> lookupReaders{0};
  std::map<uint64_t, uint64_t> model;  // the writer's content, key -> generation

  static std::vector<Op> makePlan() {
    std::mt19937_64 rng(7);
    std::vector<Op> ops(kOps);
    for (auto& op : ops) {
      op.key = rng() % kKeys;
      op.len =
          rng() % 4 == 0 ? 0 : kRecordSizes[rng() % 4] + static_cast<uint32_t>(rng() % kSizeJitter);
    }
    return ops;
  }

  void runWriter() {
    // The lookup threads look up from the first write on.
    while (lookupReaders.load(std::memory_order_acquire) < 2) std::this_thread::yield();
    for (uint64_t gen = 1; gen <= kOps; ++gen) {
      // Halfway, the shadow reader must exist, so that it surely falls behind.
      if (gen == kOps / 2) {
        while (!shadowStarted.load(std::memory_order_acquire)) std::this_thread::yield();
      }
      uint64_t key = plan[gen - 1].key;
      uint32_t len = plan[gen - 1].len;
      if (len == 0) {
        bool had = model.erase(key) != 0;
        EXPECT_EQ(del(writer, key), had);
      } else {
        put(writer, key, gen, len);
        model[key] = gen;
      }
      opsDone.store(gen, std::memory_order_release);
    }
    writerDone.store(true, std::memory_order_release);
  }

  // Looks keys up and scans now and then. Once a lookup returned a key's
  // record, no later lookup returns an older one.
  struct LookupResult {
    uint64_t found = 0, torn = 0, wentBack = 0;
  };
  // Copies records of random keys.
  LookupResult runLookups() {
    std::mt19937_64 rng(1);
    return lookups([&](Reader& r, uint64_t& key, std::vector<char>& buf, uint64_t) {
      key = rng() % kKeys;
      return r.readCopy(&key, keyHash(key), buf);
    });
  }
  // Looks up the key the writer replaces or removes next and, in place,
  // holds on to its record while the writer moves on, so that the slot is
  // often freed and filled again under the reader.
  LookupResult runHeldLookups() {
    return lookups([this](Reader& r, uint64_t& key, std::vector<char>& buf, uint64_t done) {
      key = plan[std::min(done, kOps - 1)].key;
      uint64_t until = std::min(done + 8, kOps);
      bool held = false;
      return r.read(&key, keyHash(key), [&](char const* rec, uint32_t len) {
        if (!held) {
          while (opsDone.load(std::memory_order_acquire) < until) std::this_thread::yield();
          held = true;
        }
        buf.assign(rec, rec + len);
      });
    });
  }
  template <typename Lookup>
  LookupResult lookups(Lookup&& lookup) {
    LookupResult res;
    Reader r(dir, "entry", 8, Reader::Options{false, false});
    lookupReaders.fetch_add(1, std::memory_order_release);
    std::vector<uint64_t> lastGen(kKeys, 0);
    std::vector<char> buf;
    while (opsDone.load(std::memory_order_acquire) < kOps) {
      for (int i = 0; i < 16; ++i) {
        uint64_t key = 0;
        if (!lookup(r, key, buf, opsDone.load(std::memory_order_acquire))) continue;
        ++res.found;
        if (!recordValid(buf.data(), buf.size(), key)) {
          ++res.torn;
          continue;
        }
        uint64_t gen = recordGen(buf.data());
        if (gen < lastGen[key]) ++res.wentBack;
        lastGen[key] = gen;
      }
      r.forEach([&](void const* key, char const* rec, uint32_t len, uint64_t) {
        res.torn += !recordValid(rec, len, keyOf(key));
      });
    }
    return res;
  }

  // Starts while the writer writes (its first scan races with it), falls
  // behind by several queues' worth once, and drains after the writer stopped.
  struct ShadowResult {
    std::map<uint64_t, uint64_t> view;
    uint64_t torn = 0, overflows = 0;
  };
  ShadowResult runShadow() {
    while (opsDone.load(std::memory_order_acquire) < kOps / 10) std::this_thread::yield();
    Reader r(dir, "entry", 8);
    Follower shadow(r);
    // Races the writer: a record moved meanwhile may show twice.
    r.forEach([&](void const* key, char const* rec, uint32_t len, uint64_t) {
      shadow.torn += !recordValid(rec, len, keyOf(key));
      shadow.view[keyOf(key)] = recordGen(rec);
    });
    shadowStarted.store(true, std::memory_order_release);
    while (opsDone.load(std::memory_order_acquire) < kOps / 2 + 4 * kQueue) {
      std::this_thread::yield();
    }
    for (bool last = false; !last;) {
      last = writerDone.load(std::memory_order_acquire);
      waitReadable(r.fd(), last ? 0 : 5);
      r.dispatch(shadow);
    }
    return {std::move(shadow.view), shadow.torn, r.overflows()};
  }
};

TEST_F(TamselThreadTest, ReadersRacingTheWriterAcceptOnlyWholeRecordsAndConverge) {
  LookupResult lookups[2];
  ShadowResult shadow;
  std::thread l0([&] { lookups[0] = runLookups(); });
  std::thread l1([&] { lookups[1] = runHeldLookups(); });
  std::thread sh([&] { shadow = runShadow(); });
  std::thread wr([&] { runWriter(); });
  for (std::thread* t : {&wr, &l0, &l1, &sh}) t->join();

  for (auto const& l : lookups) {
    EXPECT_GT(l.found, 0u);
    EXPECT_EQ(l.torn, 0u);
    EXPECT_EQ(l.wentBack, 0u);
  }
  EXPECT_EQ(shadow.torn, 0u);
  EXPECT_GE(shadow.overflows, 1u);

  EXPECT_EQ(scan(Reader(dir, "entry", 8, Reader::Options{false, false})), model);
  EXPECT_EQ(shadow.view, model);
}

}  // namespace
