#pragma once
// What every store's run shares: the workload (keys, orders, records), one
// row of figures, child processes that hand a result back through a pipe,
// the timed readers (quiet, or while the writer replaces flat out), and the
// wake-up latency probe (a shared timestamp and an acknowledgement eventfd)
// that each store's reader calls from its notification callback.

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace PeerBench {

constexpr uint32_t kRecordLen = 680;

int64_t nowNs();

// Operations per second for `n` operations in `ns` nanoseconds.
inline double perSecond(uint64_t n, int64_t ns) {
  return static_cast<double>(n) * 1e9 / static_cast<double>(ns);
}

// The writer runs on CPU 0 and every reader process on CPU 1, so that a
// notification wakes a reader on another core, as between agents. Nothing is
// pinned on a single-CPU machine; -1 lets the process run anywhere.
void pinToCpu(int cpu);

// The work every store does: the same keys, in the same random orders, with
// the same record bytes.
struct Workload {
  uint64_t keys = 0;
  int samples = 10000;    // latency samples, after a short warm-up
  std::string workDir;    // on /dev/shm, removed at the end
  std::string shmPrefix;  // names of POSIX shared-memory objects of this run
  int round = 1;          // which round of the run this is, from 1
  std::vector<uint64_t> insertOrder, replaceOrder, lookupOrder;
  // (key, its position in replaceOrder), by key: which keys a stretch of
  // replaces touched.
  std::vector<std::pair<uint64_t, uint64_t>> replacePositions;

  Workload(uint64_t n, int samples, std::string dir, std::string prefix);
  // A 680-byte record of `key` at `version`: an LDP entry with one via, as its
  // table record.
  void record(uint64_t key, uint32_t version, char* out) const;
  // The key written by latency sample `i`.
  uint64_t sampleKey(int i) const { return insertOrder[static_cast<uint64_t>(i) % keys]; }
};

// The figures of one store at one size; NaN where a store has no figure.
struct Row {
  std::string store;
  uint64_t keys = 0;
  double insertPerSec = NAN;
  double replacePerSec = NAN;
  double lookupPerSec = NAN;
  double scanMs = NAN;
  double p50Us = NAN;
  double p99Us = NAN;
  // The same reads while the writer replaces flat out, and the writer's rate
  // meanwhile (during the lookups).
  double churnLookupPerSec = NAN;
  double churnWriterPerSec = NAN;
  double churnScanMs = NAN;
};

// Keeps in `best` the better of each figure of `best` and `next` (the higher
// rate, the shorter time).
void keepBest(Row& best, Row const& next);

// Runs `body(resultFd)` in a forked child, which exits when it returns (or
// throws). The child dies with the benchmark; the guard kills it otherwise.
class Child {
 public:
  explicit Child(std::function<void(int resultFd)> body);
  ~Child();
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  pid_t pid() const { return pid_; }
  // Everything the child wrote, once it has exited; throws when it failed.
  std::vector<char> result();
  template <typename T>
  T resultAs() {
    std::vector<char> r = result();
    T v{};
    if (r.size() < sizeof v) throw std::runtime_error("child sent a short result");
    std::memcpy(&v, r.data(), sizeof v);
    return v;
  }

 private:
  pid_t pid_ = -1;
  int fd_ = -1;
};

void writeAll(int fd, void const* data, size_t len);
template <typename T>
void writeValue(int fd, T const& v) {
  writeAll(fd, &v, sizeof v);
}

// A shared flag page: set in one process, seen in the others.
struct SharedFlags {
  std::atomic<int64_t> sentAt;
  std::atomic<int> ready;
  std::atomic<int> stop;
  std::atomic<uint64_t> replaced;  // under churn: replaces done so far
};
void freeSharedFlags(SharedFlags* f);
using SharedFlagsPtr = std::unique_ptr<SharedFlags, decltype(&freeSharedFlags)>;
SharedFlagsPtr newSharedFlags();

// Blocks until `flag` is non-zero, polling; throws after `seconds`.
void awaitFlag(std::atomic<int> const& flag, double seconds, const char* what);

class Eventfd {
 public:
  Eventfd();
  ~Eventfd();
  Eventfd(Eventfd const&) = delete;
  Eventfd& operator=(Eventfd const&) = delete;
  int fd() const { return fd_; }
  void signal(uint64_t v = 1) const;
  uint64_t wait() const;
  // As wait(), but throws after `timeoutMs` without a signal.
  uint64_t waitFor(int timeoutMs, const char* what) const;

 private:
  int fd_ = -1;
};

// Writer-to-reader latency: the writer stamps just before its write, the
// reader's callback measures the time since, then acknowledges so the writer
// sends the next sample only once the reader is back asleep.
class LatencyProbe {
 public:
  explicit LatencyProbe(int samples);
  ~LatencyProbe();
  LatencyProbe(LatencyProbe const&) = delete;
  LatencyProbe& operator=(LatencyProbe const&) = delete;

  // Writer: runs `write(key, version)` for every sample (warm-up included),
  // each after the reader acknowledged the previous one.
  void drive(Workload const& w, std::function<void(uint64_t key, uint32_t version)> const& write);
  // Reader: call first thing in the notification callback.
  void received();
  // Reader: after the callback read the record.
  void acknowledge();
  // Reader: whether every sample arrived; then send them.
  bool done() const { return received_ >= total_; }
  void sendSamples(int fd) const;
  // Writer: the reader's samples into row.p50Us / row.p99Us.
  void collect(Child& reader, Row& row);

  SharedFlags& flags() const { return *flags_; }

 private:
  int samples_;
  int total_;
  int received_ = 0;
  SharedFlagsPtr flags_;
  Eventfd ack_;
  std::vector<int64_t> lat_;
};

// A store's write of `keys` at `version`, as its replace column writes: one
// transaction, one pipeline, or a write each.
using ReplaceFn = std::function<void(std::span<uint64_t const> keys, uint32_t version)>;

// Lookups under churn, at most: a store whose writer shuts its readers out
// would take minutes for a million.
constexpr uint64_t kChurnLookups = 100000;

// How a store's writer churns: while a reader reads, it replaces
// replaceOrder pass after pass, each pass at a higher version, `batch` keys
// per call, without pause.
struct Churn {
  ReplaceFn replace;
  size_t batch = 1;
  uint32_t version = 3;  // of the next pass: above the insert's and the replace's
};

// The timed part of a reader process. Under churn it notes how far the writer
// got meanwhile and which keys a scan saw.
class ReadWindow {
 public:
  struct Figures {
    int64_t ns = 0;
    uint64_t replaced = 0;
  };
  ReadWindow(Workload const& w, Churn const* churn, SharedFlags* flags);

  // The keys to look up, in order: all, or under churn the first
  // kChurnLookups.
  std::span<uint64_t const> lookups() const { return lookups_; }
  // Starts the clock; under churn, once the writer is under way.
  void begin();
  void end();
  // A record a scan copied out.
  void seen(char const* rec);
  // Throws unless the scan saw every key of the table exactly once and
  // nothing else, where a key the writer replaced during the scan may be
  // missing or repeated: libtunnel writes a replaced record into another slot
  // and then frees the old one, so its scan can pass the new place before the
  // record lands there and reach the old one after it left (or see both).
  // Keys left alone during the scan are the ones no store may miss; LMDB's
  // snapshot and Boost's lock keep the others too. `mayRepeat`: a cursor over
  // a hash table that can return a key twice even when it was left alone.
  void checkScan(const char* store, bool mayRepeat = false);
  Figures figures() const { return {t1_ - t0_, to_ - from_}; }

 private:
  bool replacedMeanwhile(uint64_t position) const;

  Workload const& w_;
  SharedFlags* flags_;  // null when quiet
  size_t batch_;
  std::span<uint64_t const> lookups_;
  int64_t t0_ = 0, t1_ = 0;
  uint64_t from_ = 0, to_ = 0;
  // Sized up front, so that a scan's keys cost it no allocation.
  std::vector<uint64_t> seen_;
  size_t seenCount_ = 0;
};
using ReadBody = std::function<void(ReadWindow&)>;

// Fills the lookup and scan columns of `row`, each from its own reader
// process running `lookups` or `scan` (none for a row without a scan), first
// quiet, then while this process churns the store as `churn` says.
void measureReads(Workload const& w, Churn& churn, Row& row, ReadBody const& lookups,
                  ReadBody const& scan = {});

// A unique name of this run for a store: "<workDir>/<name>".
std::string storePath(Workload const& w, std::string const& name);

}  // namespace PeerBench
