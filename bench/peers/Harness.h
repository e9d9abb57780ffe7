#pragma once
// What every store's run shares: the workload (keys, orders, records), one
// row of figures, child processes that hand a result back through a pipe,
// and the wake-up latency probe (a shared timestamp and an acknowledgement
// eventfd) that each store's reader calls from its notification callback.

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <vector>

namespace PeerBench {

constexpr uint32_t kRecordLen = 680;

int64_t nowNs();

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

// A unique name of this run for a store: "<workDir>/<name>".
std::string storePath(Workload const& w, std::string const& name);

}  // namespace PeerBench
