// A writer killed at any instant leaves every record either old or new: a
// reader checking every record it sees never accepts a torn one, and each
// new writer finds every record its predecessors committed.
#include <atomic>
#include <map>
#include <random>
#include <sys/mman.h>

#include <gtest/gtest.h>

#include "Tunnel/shmem/Reader.h"
#include "Tunnel/shmem/Writer.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tamsel;
using namespace TamselTest;

namespace {

constexpr uint64_t kKeys = 48;

// Shared with the writer children through an anonymous shared mapping.
struct Progress {
  std::atomic<uint64_t> generation;  // last generation handed out
  std::atomic<uint64_t> writes;      // writes completed, all children
  std::atomic<uint32_t> inWrite;     // a child is between the start and end of a write
  std::atomic<uint32_t> started;
  // Generation committed last per key (the child writes it after the write).
  std::atomic<uint64_t> committed[kKeys];
};

TableShape shape() {
  TableShape s;
  s.typeName = "Test::CrashTable";
  s.keySize = 8;
  s.maxPayload = 133120;
  s.queueCapacity = 4096;
  return s;
}

TEST(TamselCrashTest, KilledWritersNeverLeaveTornRecords) {
  StateRoot root;
  std::string dir = root.dir("tunnel/table/crash");
  auto* progress = static_cast<Progress*>(
      ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(progress, MAP_FAILED);
  new (progress) Progress{};
  { Writer w(dir, "entry", shape()); }
  Reader reader(dir, "entry", 8, Reader::Options{false, false});

  std::mt19937_64 rng(42);
  int kills = 0, killsInsideWrite = 0, rounds = 0;
  uint64_t tornAccepted = 0, recordsChecked = 0;
  std::map<uint64_t, uint64_t> seen;  // the highest generation seen per key

  auto checkAll = [&] {
    for (uint64_t k = 0; k < kKeys; ++k) {
      std::vector<char> rec;
      if (!reader.readCopy(&k, keyHash(k), rec)) continue;
      ++recordsChecked;
      if (!recordValid(rec.data(), static_cast<uint32_t>(rec.size()), k)) {
        ++tornAccepted;
        continue;
      }
      uint64_t gen = recordGen(rec.data());
      EXPECT_GE(gen, seen[k]) << "key " << k << " went back in time";
      seen[k] = std::max(seen[k], gen);
    }
  };

  int const wantKills =
      std::getenv("TAMSEL_CRASH_KILLS") ? std::atoi(std::getenv("TAMSEL_CRASH_KILLS")) : 200;
  auto t0 = std::chrono::steady_clock::now();
  while (kills < wantKills || progress->writes.load() < 10000) {
    ++rounds;
    progress->started = 0;
    pid_t child = forkChild([&] {
      Writer w(dir, "entry", shape());
      // Every record its predecessors committed is still there.
      for (uint64_t k = 0; k < kKeys; ++k) {
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
        uint64_t k = local() % kKeys;
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
      int status = 0;
      if (::waitpid(child, &status, WNOHANG) == child) FAIL() << "writer child failed to recover";
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
  // The figures for the record: how often the kill caught a write half done.
  std::printf("%.1f s: ",
              std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
  std::printf("kills %d, inside a write %d, writes %llu, records checked %llu\n", kills,
              killsInsideWrite, static_cast<unsigned long long>(progress->writes.load()),
              static_cast<unsigned long long>(recordsChecked));
  ::munmap(progress, sizeof(Progress));
}

}  // namespace
