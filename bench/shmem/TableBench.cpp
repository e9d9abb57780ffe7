// Shared-memory keyed tables at scale: 1,000,000 keys of 680-byte records (an
// LDP entry with one via), beside the baselines of the same run: memcpy of the
// record, and a raw eventfd wake-up between two processes.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <poll.h>
#include <random>
#include <sched.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/shmem/Reader.h"
#include "Tunnel/shmem/Writer.h"

namespace {

constexpr uint64_t kKeys = 1'000'000;
constexpr uint32_t kRecord = 680;

uint32_t keyHash(uint64_t k) { return Zent::hashBytes(&k, sizeof k); }

Tamsel::TableSpec spec() {
  Tamsel::TableSpec s;
  s.typeName = "Bench::LdpLike";
  s.keySize = 8;
  s.maxPayload = 65372;
  s.queueCapacity = 1u << 16;
  return s;
}

std::string root() {
  static std::string r = [] {
    char tmpl[] = "/dev/shm/tamsel-bench-XXXXXX";
    std::string d = ::mkdtemp(tmpl);
    std::atexit([] { std::filesystem::remove_all(root()); });
    return d;
  }();
  return r;
}

// The million-key table every steady-state benchmark uses, filled once.
Tamsel::Writer& bigTable() {
  static Tamsel::Writer* w = [] {
    auto* writer = new Tamsel::Writer(root() + "/big", "entry", spec());
    char rec[kRecord] = {};
    for (uint64_t k = 0; k < kKeys; ++k) {
      std::memcpy(rec, &k, 8);
      writer->write(&k, keyHash(k), kRecord, [&](char* d) { std::memcpy(d, rec, kRecord); });
    }
    return writer;
  }();
  return *w;
}

int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void pin(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  sched_setaffinity(0, sizeof set, &set);
}

void BM_Memcpy680(benchmark::State& state) {
  char src[kRecord], dst[kRecord];
  std::memset(src, 1, sizeof src);
  for (auto _ : state) {
    benchmark::DoNotOptimize(src);
    std::memcpy(dst, src, kRecord);
    benchmark::DoNotOptimize(dst);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Memcpy680);

void BM_InsertNewTable1M(benchmark::State& state) {
  char rec[kRecord] = {};
  int run = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::string dir = root() + "/insert" + std::to_string(run++);
    auto w = std::make_unique<Tamsel::Writer>(dir, "entry", spec());
    state.ResumeTiming();
    for (uint64_t k = 0; k < kKeys; ++k) {
      w->write(&k, keyHash(k), kRecord, [&](char* d) { std::memcpy(d, rec, kRecord); });
    }
    state.PauseTiming();
    w.reset();
    std::filesystem::remove_all(dir);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_InsertNewTable1M)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_Replace(benchmark::State& state) {
  auto& w = bigTable();
  char rec[kRecord] = {};
  std::mt19937_64 rng(1);
  for (auto _ : state) {
    uint64_t k = rng() % kKeys;
    w.write(&k, keyHash(k), kRecord, [&](char* d) { std::memcpy(d, rec, kRecord); });
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Replace);

void BM_ReaderLookupCopyOut(benchmark::State& state) {
  bigTable();
  Tamsel::Reader r(root() + "/big", "entry", 8, Tamsel::Reader::Options{false, false});
  char out[kRecord];
  std::mt19937_64 rng(2);
  for (auto _ : state) {
    uint64_t k = rng() % kKeys;
    bool found = r.read(&k, keyHash(k), [&](char const* rec, uint32_t len) {
      std::memcpy(out, rec, std::min<uint32_t>(len, kRecord));
    });
    benchmark::DoNotOptimize(found);
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReaderLookupCopyOut);

// A new process mounts the table and reads every record once.
void BM_ColdFullScanNewProcess(benchmark::State& state) {
  bigTable();
  for (auto _ : state) {
    int fds[2];
    if (::pipe(fds) != 0) std::abort();
    pid_t pid = ::fork();
    if (pid == 0) {
      int64_t t0 = nowNs();
      Tamsel::Reader r(root() + "/big", "entry", 8, Tamsel::Reader::Options{false, false});
      uint64_t n = 0, sum = 0;
      r.forEach([&](void const*, char const* rec, uint32_t, uint64_t) {
        ++n;
        sum += static_cast<unsigned char>(rec[0]);
      });
      int64_t elapsed = n == kKeys ? nowNs() - t0 : -1;
      (void)!::write(fds[1], &elapsed, sizeof elapsed);
      ::_exit(sum == 12345 ? 1 : 0);
    }
    int64_t elapsed = 0;
    (void)!::read(fds[0], &elapsed, sizeof elapsed);
    ::waitpid(pid, nullptr, 0);
    ::close(fds[0]);
    ::close(fds[1]);
    if (elapsed < 0) state.SkipWithError("scan missed records");
    state.SetIterationTime(static_cast<double>(elapsed) / 1e9);
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_ColdFullScanNewProcess)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

struct Shared {
  std::atomic<int64_t> sentAt;
  std::atomic<int> ready;
};

void reportPercentiles(benchmark::State& state, std::vector<int64_t>& lat) {
  std::sort(lat.begin(), lat.end());
  state.counters["p50_us"] = static_cast<double>(lat[lat.size() / 2]) / 1000.0;
  state.counters["p99_us"] = static_cast<double>(lat[lat.size() * 99 / 100]) / 1000.0;
}

constexpr int kSamples = 20000;

// One process writes a timestamp and wakes the other through an eventfd; the
// other measures how long the wake-up took.
void BM_RawEventfdWake(benchmark::State& state) {
  bool sameCore = state.range(0) == 1;
  for (auto _ : state) {
    auto* sh = static_cast<Shared*>(
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int go = ::eventfd(0, 0), ack = ::eventfd(0, 0), res[2];
    if (::pipe(res) != 0) std::abort();
    pid_t pid = ::fork();
    if (pid == 0) {
      pin(sameCore ? 0 : 1);
      std::vector<int64_t> lat;
      for (int i = 0; i < kSamples; ++i) {
        uint64_t v;
        (void)!::read(go, &v, sizeof v);
        lat.push_back(nowNs() - sh->sentAt.load());
        v = 1;
        (void)!::write(ack, &v, sizeof v);
      }
      (void)!::write(res[1], lat.data(), lat.size() * sizeof(int64_t));
      ::_exit(0);
    }
    pin(0);
    for (int i = 0; i < kSamples; ++i) {
      ::usleep(20);  // let the other side go to sleep
      sh->sentAt.store(nowNs());
      uint64_t v = 1;
      (void)!::write(go, &v, sizeof v);
      (void)!::read(ack, &v, sizeof v);
    }
    std::vector<int64_t> lat(kSamples);
    size_t got = 0;
    while (got < lat.size() * sizeof(int64_t)) {
      ssize_t n = ::read(res[0], reinterpret_cast<char*>(lat.data()) + got,
                         lat.size() * sizeof(int64_t) - got);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    ::waitpid(pid, nullptr, 0);
    reportPercentiles(state, lat);
    ::close(go);
    ::close(ack);
    ::close(res[0]);
    ::close(res[1]);
    ::munmap(sh, sizeof(Shared));
  }
  cpu_set_t all;
  CPU_ZERO(&all);
  CPU_SET(0, &all);
  CPU_SET(1, &all);
  sched_setaffinity(0, sizeof all, &all);
}
BENCHMARK(BM_RawEventfdWake)->Arg(0)->Arg(1)->Iterations(1)->ArgName("sameCore");

// The writer publishes a record; a reader process sleeping on its fd is woken
// and handles the key notification. Measured from before the write to the
// reader's callback.
void BM_NotificationLatency(benchmark::State& state) {
  bool sameCore = state.range(0) == 1;
  for (auto _ : state) {
    std::string dir = root() + "/latency" + std::to_string(sameCore);
    auto w = std::make_unique<Tamsel::Writer>(dir, "entry", spec());
    auto* sh = static_cast<Shared*>(
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    sh->ready = 0;
    int ack = ::eventfd(0, 0), res[2];
    if (::pipe(res) != 0) std::abort();
    pid_t pid = ::fork();
    if (pid == 0) {
      pin(sameCore ? 0 : 1);
      Tamsel::Reader r(dir, "entry", 8, Tamsel::Reader::Options{true, true});
      struct H : Tamsel::Reader::Handler {
        Shared* sh;
        std::vector<int64_t> lat;
        int ack;
        void keyChanged(void const*) override {
          lat.push_back(nowNs() - sh->sentAt.load());
          uint64_t v = 1;
          (void)!::write(ack, &v, sizeof v);
        }
      } h;
      h.sh = sh;
      h.ack = ack;
      sh->ready = 1;
      while (h.lat.size() < kSamples) {
        pollfd p{r.fd(), POLLIN, 0};
        ::poll(&p, 1, 1000);
        r.dispatch(h);
      }
      (void)!::write(res[1], h.lat.data(), h.lat.size() * sizeof(int64_t));
      ::_exit(0);
    }
    pin(0);
    while (!sh->ready.load()) ::usleep(100);
    char rec[kRecord] = {};
    for (uint64_t i = 0; i < kSamples; ++i) {
      ::usleep(20);
      sh->sentAt.store(nowNs());
      uint64_t k = i % 1000;
      w->write(&k, keyHash(k), kRecord, [&](char* d) { std::memcpy(d, rec, kRecord); });
      uint64_t v;
      (void)!::read(ack, &v, sizeof v);
    }
    std::vector<int64_t> lat(kSamples);
    size_t got = 0;
    while (got < lat.size() * sizeof(int64_t)) {
      ssize_t n = ::read(res[0], reinterpret_cast<char*>(lat.data()) + got,
                         lat.size() * sizeof(int64_t) - got);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    ::waitpid(pid, nullptr, 0);
    reportPercentiles(state, lat);
    ::close(ack);
    ::close(res[0]);
    ::close(res[1]);
    ::munmap(sh, sizeof(Shared));
  }
  cpu_set_t all;
  CPU_ZERO(&all);
  CPU_SET(0, &all);
  CPU_SET(1, &all);
  sched_setaffinity(0, sizeof all, &all);
}
BENCHMARK(BM_NotificationLatency)->Arg(0)->Arg(1)->Iterations(1)->ArgName("sameCore");

}  // namespace

BENCHMARK_MAIN();
