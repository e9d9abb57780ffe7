// Shared-memory keyed tables at scale: 1,000,000 keys of 680-byte records (an
// LDP entry with one via), beside the baselines of the same run: memcpy of the
// record, a bare shared-memory hash table over the same records, and a raw
// eventfd wake-up between two processes.
//
//   table_bench [--huge-pages] [benchmark flags]
//
// --huge-pages puts the tables on a private tmpfs mounted with 2 MiB pages
// (needs root or a user namespace); by default they live on /dev/shm.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <poll.h>
#include <random>
#include <sched.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"
#include "bench/common/HugePages.h"

namespace {

constexpr uint64_t kKeys = 1'000'000;
constexpr uint32_t kRecord = 680;

// What the tunnel tables hash their 64-bit keys with.
uint32_t keyHash(uint64_t k) { return Zent::hashU64(k); }

Tamsel::TableShape shape() {
  Tamsel::TableShape s;
  s.typeName = "Bench::LdpLike";
  s.keySize = 8;
  s.maxPayload = 65372;
  s.queueCapacity = 1u << 16;
  return s;
}

// Where the tables go: /dev/shm, or the private huge-page tmpfs.
std::string gBase = "/dev/shm";

// Removed at exit. The path is kept apart from the function's static: an
// exit handler registered while that static is being built runs after the
// static is destroyed.
char gRoot[128];

std::string root() {
  static std::string r = [] {
    std::snprintf(gRoot, sizeof gRoot, "%s/tamsel-bench-XXXXXX", gBase.c_str());
    if (!::mkdtemp(gRoot)) std::abort();
    std::atexit([] { std::filesystem::remove_all(gRoot); });
    return std::string(gRoot);
  }();
  return r;
}

// The tables go on a private tmpfs with 2 MiB pages, removed at exit.
void useHugePages() {
  static char dir[] = "/dev/shm/tamsel-bench-huge-XXXXXX";
  if (!::mkdtemp(dir)) std::abort();
  try {
    BenchSupport::mountPrivateHugeTmpfs(dir, "0700");
  } catch (std::exception const& e) {
    std::fprintf(stderr, "--huge-pages: %s\n", e.what());
    ::rmdir(dir);
    std::exit(2);
  }
  std::atexit([] {
    std::filesystem::remove_all(gRoot);
    ::umount2(dir, MNT_DETACH);
    ::rmdir(dir);
  });
  gBase = dir;
}

// The million-key table every steady-state benchmark uses, filled once.
Tamsel::Writer& bigTable() {
  static Tamsel::Writer* w = [] {
    auto* writer = new Tamsel::Writer(root() + "/big", "entry", shape());
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
    auto w = std::make_unique<Tamsel::Writer>(dir, "entry", shape());
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

// Runs fn in a new process, as another agent would; fn returns the
// nanoseconds it measured, or -1 when its work went wrong.
template <typename Fn>
int64_t nsInNewProcess(Fn&& fn) {
  int fds[2];
  if (::pipe(fds) != 0) std::abort();
  pid_t pid = ::fork();
  if (pid == 0) {
    int64_t ns = fn();
    (void)!::write(fds[1], &ns, sizeof ns);
    ::_exit(0);
  }
  // A child that dies before it writes ends the read.
  ::close(fds[1]);
  int64_t ns = -1;
  if (::read(fds[0], &ns, sizeof ns) != sizeof ns) ns = -1;
  ::waitpid(pid, nullptr, 0);
  ::close(fds[0]);
  return ns;
}

constexpr uint64_t kLookups = 4'000'000;

// Random lookups of present keys by a reader process, each record copied
// out. open() runs in that process before the clock starts and returns the
// lookup: bool(uint64_t key, char* out).
template <typename Open>
void lookupsInNewProcess(benchmark::State& state, Open&& open) {
  for (auto _ : state) {
    int64_t ns = nsInNewProcess([&] {
      auto lookup = open();
      // The keys are drawn before the clock starts, so that it times lookups.
      std::vector<uint64_t> keys(kLookups);
      std::mt19937_64 rng(2);
      for (auto& k : keys) k = rng() % kKeys;
      char out[kRecord];
      int64_t t0 = nowNs();
      for (uint64_t k : keys) {
        if (!lookup(k, out)) return int64_t{-1};
        benchmark::DoNotOptimize(out);
      }
      return nowNs() - t0;
    });
    if (ns < 0) state.SkipWithError("a lookup missed");
    state.SetIterationTime(static_cast<double>(ns) / 1e9);
  }
  state.SetItemsProcessed(state.iterations() * kLookups);
}

void BM_ReaderLookupCopyOut(benchmark::State& state) {
  bigTable();
  lookupsInNewProcess(state, [] {
    auto r = std::make_shared<Tamsel::Reader>(root() + "/big", "entry", 8,
                                              Tamsel::Reader::Options{false, false});
    return [r](uint64_t k, char* out) {
      uint32_t len = 0;
      return r->readInto(&k, keyHash(k), out, kRecord, len);
    };
  });
}
BENCHMARK(BM_ReaderLookupCopyOut)->UseManualTime()->Iterations(1);

// The same lookups, handed to the reader in batches of 64 keys
// (Reader::readBatch overlaps the misses of each group of keys); the same
// keys in the same order, each record copied out.
void BM_ReaderBatchLookupCopyOut(benchmark::State& state) {
  bigTable();
  constexpr size_t kBatch = 64;
  for (auto _ : state) {
    int64_t ns = nsInNewProcess([&] {
      Tamsel::Reader r(root() + "/big", "entry", 8, Tamsel::Reader::Options{false, false});
      std::vector<uint64_t> keys(kLookups);
      std::vector<uint32_t> hashes(kLookups);
      std::mt19937_64 rng(2);
      for (auto& k : keys) k = rng() % kKeys;
      for (size_t i = 0; i < kLookups; ++i) hashes[i] = keyHash(keys[i]);
      char out[kRecord];
      size_t found = 0;
      int64_t t0 = nowNs();
      for (size_t i = 0; i < kLookups; i += kBatch) {
        found +=
            r.readBatch(&keys[i], &hashes[i], kBatch, [&](size_t, char const* rec, uint32_t len) {
              std::memcpy(out, rec, std::min<uint32_t>(len, kRecord));
              benchmark::DoNotOptimize(out);
            });
      }
      int64_t t = nowNs() - t0;
      return found == kLookups ? t : int64_t{-1};
    });
    if (ns < 0) state.SkipWithError("a lookup missed");
    state.SetIterationTime(static_cast<double>(ns) / 1e9);
  }
  state.SetItemsProcessed(state.iterations() * kLookups);
}
BENCHMARK(BM_ReaderBatchLookupCopyOut)->UseManualTime()->Iterations(1);

// The floor: a bare hash table in shared memory over the same million
// 680-byte records (open addressing, 16-byte buckets, 768-byte slots, the
// record's lines prefetched as the table does, 2 MiB-aligned mappings), with
// no versions, no torn-read checks and no bounds checks.
struct BareTable {
  static constexpr uint64_t kCap = uint64_t{1} << 21, kSlot = 768, kHuge = uint64_t{1} << 21;
  static constexpr uint64_t kBytes = kCap * 16 + kKeys * kSlot;
  std::string path = root() + "/bare";
  int fd = -1;
  char* area = nullptr;
  uint64_t const* buckets = nullptr;  // {slot + 1, key}
  char const* slots = nullptr;

  void map(bool writable) {
    fd = ::open(path.c_str(), writable ? O_RDWR | O_CREAT | O_TRUNC : O_RDONLY, 0600);
    if (fd < 0 || (writable && ::posix_fallocate(fd, 0, kBytes) != 0)) std::abort();
    area = static_cast<char*>(::mmap(nullptr, kBytes + kHuge, PROT_NONE,
                                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    char* at =
        reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(area) + kHuge - 1) & ~(kHuge - 1));
    int prot = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    if (::mmap(at, kBytes, prot, MAP_SHARED | MAP_FIXED | MAP_POPULATE, fd, 0) == MAP_FAILED) {
      std::abort();
    }
    buckets = reinterpret_cast<uint64_t const*>(at);
    slots = at + kCap * 16;
  }
  void fill() {
    map(true);
    auto* b = const_cast<uint64_t*>(buckets);
    for (uint64_t k = 0; k < kKeys; ++k) {
      uint64_t i = keyHash(k) & (kCap - 1);
      while (b[2 * i] != 0) i = (i + 1) & (kCap - 1);
      b[2 * i] = k + 1;
      b[2 * i + 1] = k;
      std::memset(const_cast<char*>(slots) + k * kSlot, 1, kRecord);
    }
    unmap();
  }
  bool lookup(uint64_t k, char* out) const {
    uint64_t i = keyHash(k) & (kCap - 1);
    while (buckets[2 * i + 1] != k) i = (i + 1) & (kCap - 1);
    char const* rec = slots + (buckets[2 * i] - 1) * kSlot;
    for (uint64_t line = 0; line < kSlot; line += 64) __builtin_prefetch(rec + line);
    std::memcpy(out, rec, kRecord);
    return true;
  }
  void unmap() {
    ::munmap(area, kBytes + kHuge);
    ::close(fd);
  }
};

void BM_BareHashTableLookupCopyOut(benchmark::State& state) {
  BareTable filled;
  filled.fill();
  lookupsInNewProcess(state, [] {
    auto t = std::make_shared<BareTable>();
    t->map(false);
    return [t](uint64_t k, char* out) { return t->lookup(k, out); };
  });
  std::filesystem::remove(filled.path);
}
BENCHMARK(BM_BareHashTableLookupCopyOut)->UseManualTime()->Iterations(1);

// A new process mounts the table and reads every record once.
void BM_ColdFullScanNewProcess(benchmark::State& state) {
  bigTable();
  for (auto _ : state) {
    int64_t ns = nsInNewProcess([] {
      int64_t t0 = nowNs();
      Tamsel::Reader r(root() + "/big", "entry", 8, Tamsel::Reader::Options{false, false});
      uint64_t n = 0, sum = 0;
      r.forEach([&](void const*, char const* rec, uint32_t, uint64_t) {
        ++n;
        sum += static_cast<unsigned char>(rec[0]);
      });
      benchmark::DoNotOptimize(sum);
      return n == kKeys ? nowNs() - t0 : -1;
    });
    if (ns < 0) state.SkipWithError("scan missed records");
    state.SetIterationTime(static_cast<double>(ns) / 1e9);
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_ColdFullScanNewProcess)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

struct Shared {
  std::atomic<int64_t> sentAt;
  std::atomic<int> ready;
};

void reportPercentiles(benchmark::State& state, std::vector<int64_t> lat) {
  if (lat.empty()) {
    state.SkipWithError("the measuring process sent no samples");
    return;
  }
  std::sort(lat.begin(), lat.end());
  state.counters["p50_us"] = static_cast<double>(lat[lat.size() / 2]) / 1000.0;
  state.counters["p99_us"] = static_cast<double>(lat[lat.size() * 99 / 100]) / 1000.0;
}

constexpr int kSamples = 20000;

// The latencies the measuring child sends through `fd` before it exits.
std::vector<int64_t> samplesOf(pid_t child, int fd) {
  std::vector<int64_t> lat(kSamples);
  size_t got = 0;
  while (got < lat.size() * sizeof(int64_t)) {
    ssize_t n =
        ::read(fd, reinterpret_cast<char*>(lat.data()) + got, lat.size() * sizeof(int64_t) - got);
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  ::waitpid(child, nullptr, 0);
  lat.resize(got / sizeof(int64_t));
  return lat;
}

void unpin() {
  cpu_set_t all;
  CPU_ZERO(&all);
  CPU_SET(0, &all);
  CPU_SET(1, &all);
  sched_setaffinity(0, sizeof all, &all);
}

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
    reportPercentiles(state, samplesOf(pid, res[0]));
    ::close(go);
    ::close(ack);
    ::close(res[0]);
    ::close(res[1]);
    ::munmap(sh, sizeof(Shared));
  }
  unpin();
}
BENCHMARK(BM_RawEventfdWake)->Arg(0)->Arg(1)->Iterations(1)->ArgName("sameCore");

// The writer publishes a record; a reader process sleeping on its fd is woken
// and handles the key notification. Measured from before the write to the
// reader's callback.
void BM_NotificationLatency(benchmark::State& state) {
  bool sameCore = state.range(0) == 1;
  for (auto _ : state) {
    std::string dir = root() + "/latency" + std::to_string(sameCore);
    auto w = std::make_unique<Tamsel::Writer>(dir, "entry", shape());
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
    reportPercentiles(state, samplesOf(pid, res[0]));
    ::close(ack);
    ::close(res[0]);
    ::close(res[1]);
    ::munmap(sh, sizeof(Shared));
  }
  unpin();
}
BENCHMARK(BM_NotificationLatency)->Arg(0)->Arg(1)->Iterations(1)->ArgName("sameCore");

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--huge-pages") == 0) {
      useHugePages();
    } else {
      args.push_back(argv[i]);
    }
  }
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
