#include "bench/peers/Harness.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <poll.h>
#include <random>
#include <sched.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include "bench/peers/Guard.h"
#include "bench/peers/LdpRecord.h"

namespace PeerBench {
namespace {

constexpr int kWarmup = 200;
// The longest a churning writer waits for its reader.
constexpr double kChurnSeconds = 900;
// Time the writer leaves the reader to fall asleep again between samples,
// so that each sample measures a wake-up.
constexpr int kSettleUs = 30;

// Offsets of the fields that differ between records of the template.
constexpr size_t kKeyOffset = 0;
constexpr size_t kMetricOffset = 17;

std::vector<char> recordTemplate() {
  auto e = ldpEntry(0, 0);
  if (e.serializeLen() != kRecordLen) {
    throw std::runtime_error("an LDP entry with one via is " + std::to_string(e.serializeLen()) +
                             " bytes, expected " + std::to_string(kRecordLen));
  }
  std::vector<char> t(kRecordLen);
  e.serialize(t.data());
  return t;
}

std::vector<uint64_t> shuffled(uint64_t n, uint64_t seed) {
  std::vector<uint64_t> v(n);
  for (uint64_t i = 0; i < n; ++i) v[i] = ldpKey(i);
  std::shuffle(v.begin(), v.end(), std::mt19937_64(seed));
  return v;
}

}  // namespace

int64_t nowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void pinToCpu(int cpu) {
  long n = ::sysconf(_SC_NPROCESSORS_ONLN);
  if (n < 2) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  for (long c = 0; c < n; ++c) {
    if (cpu < 0 || c == cpu) CPU_SET(static_cast<int>(c), &set);
  }
  ::sched_setaffinity(0, sizeof set, &set);
}

Workload::Workload(uint64_t n, int s, std::string dir, std::string prefix)
    : keys(n), samples(s), workDir(std::move(dir)), shmPrefix(std::move(prefix)) {
  insertOrder = shuffled(n, 1);
  replaceOrder = shuffled(n, 2);
  lookupOrder = shuffled(n, 3);
  replacePositions.reserve(n);
  for (uint64_t i = 0; i < n; ++i) replacePositions.emplace_back(replaceOrder[i], i);
  std::sort(replacePositions.begin(), replacePositions.end());
  // The peers get the entry's record bytes: check that patching the template
  // gives exactly what serializing the entry gives.
  char a[kRecordLen], b[kRecordLen];
  record(ldpKey(41), 7, a);
  ldpEntry(ldpKey(41), 7).serialize(b);
  if (std::memcmp(a, b, kRecordLen) != 0) {
    throw std::runtime_error("record template does not match the LDP entry's record");
  }
}

void Workload::record(uint64_t key, uint32_t version, char* out) const {
  static std::vector<char> const t = recordTemplate();
  std::memcpy(out, t.data(), kRecordLen);
  std::memcpy(out + kKeyOffset, &key, sizeof key);
  std::memcpy(out + kMetricOffset, &version, sizeof version);
}

std::string storePath(Workload const& w, std::string const& name) { return w.workDir + "/" + name; }

void keepBest(Row& best, Row const& next) {
  auto higher = [](double& b, double n) {
    if (std::isnan(b) || n > b) b = n;
  };
  auto lower = [](double& b, double n) {
    if (std::isnan(b) || n < b) b = n;
  };
  higher(best.insertPerSec, next.insertPerSec);
  higher(best.replacePerSec, next.replacePerSec);
  higher(best.lookupPerSec, next.lookupPerSec);
  lower(best.scanMs, next.scanMs);
  lower(best.p50Us, next.p50Us);
  lower(best.p99Us, next.p99Us);
  higher(best.churnLookupPerSec, next.churnLookupPerSec);
  higher(best.churnWriterPerSec, next.churnWriterPerSec);
  lower(best.churnScanMs, next.churnScanMs);
}

void writeAll(int fd, void const* data, size_t len) {
  auto const* p = static_cast<char const*>(data);
  while (len > 0) {
    ssize_t n = ::write(fd, p, len);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw std::runtime_error("write to the parent failed");
    p += n;
    len -= static_cast<size_t>(n);
  }
}

Child::Child(std::function<void(int)> body) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("fork failed");
  if (pid_ == 0) {
    childStarted();
    pinToCpu(1);
    ::close(fds[0]);
    int rc = 0;
    try {
      body(fds[1]);
    } catch (std::exception const& e) {
      std::fprintf(stderr, "peers_bench child: %s\n", e.what());
      rc = 1;
    } catch (...) {
      rc = 1;
    }
    ::_exit(rc);
  }
  guardPid(pid_);
  ::close(fds[1]);
  fd_ = fds[0];
}

Child::~Child() {
  if (pid_ > 0) stopProcess(pid_, 100);
  if (fd_ >= 0) ::close(fd_);
}

std::vector<char> Child::result() {
  std::vector<char> out;
  char buf[1 << 16];
  for (;;) {
    ssize_t n = ::read(fd_, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.insert(out.end(), buf, buf + n);
  }
  int status = 0;
  ::waitpid(pid_, &status, 0);
  unguardPid(pid_);
  pid_ = -1;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("a reader process failed");
  }
  return out;
}

SharedFlagsPtr newSharedFlags() {
  void* p = ::mmap(nullptr, sizeof(SharedFlags), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                   -1, 0);
  if (p == MAP_FAILED) throw std::runtime_error("mmap failed");
  return SharedFlagsPtr(new (p) SharedFlags{}, freeSharedFlags);
}

void freeSharedFlags(SharedFlags* f) { ::munmap(f, sizeof(SharedFlags)); }

void awaitFlag(std::atomic<int> const& flag, double seconds, const char* what) {
  int64_t deadline = nowNs() + static_cast<int64_t>(seconds * 1e9);
  while (!flag.load()) {
    if (nowNs() > deadline) throw std::runtime_error(std::string("timed out waiting for ") + what);
    ::usleep(200);
  }
}

Eventfd::Eventfd() : fd_(::eventfd(0, EFD_CLOEXEC)) {
  if (fd_ < 0) throw std::runtime_error("eventfd failed");
}

Eventfd::~Eventfd() { ::close(fd_); }

void Eventfd::signal(uint64_t v) const {
  while (::write(fd_, &v, sizeof v) < 0 && errno == EINTR) {
  }
}

uint64_t Eventfd::wait() const {
  uint64_t v = 0;
  while (::read(fd_, &v, sizeof v) < 0) {
    if (errno != EINTR) throw std::runtime_error("eventfd read failed");
  }
  return v;
}

uint64_t Eventfd::waitFor(int timeoutMs, const char* what) const {
  pollfd p{fd_, POLLIN, 0};
  int n;
  while ((n = ::poll(&p, 1, timeoutMs)) < 0 && errno == EINTR) {
  }
  if (n == 0) throw std::runtime_error(std::string("timed out waiting for ") + what);
  return wait();
}

LatencyProbe::LatencyProbe(int samples)
    : samples_(samples), total_(samples + kWarmup), flags_(newSharedFlags()) {
  lat_.reserve(static_cast<size_t>(total_));
}

LatencyProbe::~LatencyProbe() = default;

void LatencyProbe::drive(Workload const& w, std::function<void(uint64_t, uint32_t)> const& write) {
  awaitFlag(flags_->ready, 60, "the latency reader");
  for (int i = 0; i < total_; ++i) {
    ::usleep(kSettleUs);
    uint64_t key = w.sampleKey(i);
    flags_->sentAt.store(nowNs());
    write(key, static_cast<uint32_t>(1000 + i));
    ack_.waitFor(10000, "the reader's acknowledgement");
  }
}

void LatencyProbe::received() {
  lat_.push_back(nowNs() - flags_->sentAt.load());
  ++received_;
}

void LatencyProbe::acknowledge() { ack_.signal(); }

void LatencyProbe::sendSamples(int fd) const {
  writeAll(fd, lat_.data() + kWarmup, static_cast<size_t>(samples_) * sizeof(int64_t));
}

void LatencyProbe::collect(Child& reader, Row& row) {
  std::vector<char> r = reader.result();
  std::vector<int64_t> lat(r.size() / sizeof(int64_t));
  std::memcpy(lat.data(), r.data(), lat.size() * sizeof(int64_t));
  if (lat.size() != static_cast<size_t>(samples_)) {
    throw std::runtime_error("the latency reader sent " + std::to_string(lat.size()) + " samples");
  }
  std::sort(lat.begin(), lat.end());
  row.p50Us = static_cast<double>(lat[lat.size() / 2]) / 1000.0;
  row.p99Us = static_cast<double>(lat[lat.size() * 99 / 100]) / 1000.0;
}

ReadWindow::ReadWindow(Workload const& w, Churn const* churn, SharedFlags* flags)
    : w_(w),
      flags_(flags),
      batch_(churn ? churn->batch : 0),
      lookups_(w.lookupOrder),
      seen_(w.keys) {
  if (churn) lookups_ = lookups_.first(std::min(kChurnLookups, w.keys));
}

void ReadWindow::begin() {
  if (flags_) {
    awaitFlag(flags_->ready, 60, "the churning writer");
    from_ = flags_->replaced.load(std::memory_order_acquire);
  }
  t0_ = nowNs();
}

void ReadWindow::end() {
  t1_ = nowNs();
  if (flags_) {
    to_ = flags_->replaced.load(std::memory_order_acquire);
    flags_->stop = 1;
  }
}

void ReadWindow::seen(char const* rec) {
  if (seenCount_ == seen_.size()) seen_.resize(2 * seen_.size());
  std::memcpy(&seen_[seenCount_++], rec + kKeyOffset, sizeof(uint64_t));
}

bool ReadWindow::replacedMeanwhile(uint64_t position) const {
  if (!flags_) return false;
  // The replaces done meanwhile, and the call the writer was in at the end
  // (the one it was in at the start is counted from `from_` on).
  uint64_t n = to_ - from_ + batch_;
  return n >= w_.keys || (position + w_.keys - from_ % w_.keys) % w_.keys < n;
}

void ReadWindow::checkScan(const char* store, bool mayRepeat) {
  seen_.resize(seenCount_);
  std::sort(seen_.begin(), seen_.end());
  auto it = seen_.begin();
  for (auto const& [key, position] : w_.replacePositions) {
    if (it != seen_.end() && *it < key) break;
    auto next = std::upper_bound(it, seen_.end(), key);
    auto times = next - it;
    it = next;
    if (times == 1 || replacedMeanwhile(position)) continue;
    if (times > 1 && mayRepeat) continue;
    throw std::runtime_error(fmt::format("{} saw key {:#x} {} times", store, key, times));
  }
  if (it != seen_.end()) {
    throw std::runtime_error(fmt::format("{} saw key {:#x}, not in the table", store, *it));
  }
}

namespace {

// Replaces flat out until the reader is done (or gone).
void churn(Workload const& w, Churn& c, SharedFlags& f) {
  int64_t deadline = nowNs() + static_cast<int64_t>(kChurnSeconds * 1e9);
  uint64_t done = 0;
  for (;; ++c.version) {
    for (uint64_t i = 0; i < w.keys; i += c.batch) {
      size_t n = std::min<uint64_t>(c.batch, w.keys - i);
      c.replace(std::span(w.replaceOrder).subspan(i, n), c.version);
      done += n;
      f.replaced.store(done, std::memory_order_release);
      if (done == n) f.ready = 1;
      if (f.stop.load(std::memory_order_relaxed)) {
        ++c.version;  // the next churn starts a pass of its own
        return;
      }
      if (done % 4096 < n && nowNs() > deadline) {
        throw std::runtime_error("timed out churning for the reader");
      }
    }
  }
}

// Runs `body` in a reader process, while this process churns when `c` is set.
ReadWindow::Figures timedRead(Workload const& w, Churn* c, ReadBody const& body) {
  SharedFlagsPtr flags = newSharedFlags();
  Child reader([&](int fd) {
    ReadWindow window(w, c, c ? flags.get() : nullptr);
    try {
      body(window);
    } catch (...) {
      flags->stop = 1;
      throw;
    }
    writeValue(fd, window.figures());
  });
  if (c) churn(w, *c, *flags);
  return reader.resultAs<ReadWindow::Figures>();
}

}  // namespace

void measureReads(Workload const& w, Churn& churn, Row& row, ReadBody const& lookups,
                  ReadBody const& scan) {
  row.lookupPerSec = perSecond(w.keys, timedRead(w, nullptr, lookups).ns);
  if (scan) row.scanMs = static_cast<double>(timedRead(w, nullptr, scan).ns) / 1e6;
  auto f = timedRead(w, &churn, lookups);
  row.churnLookupPerSec = perSecond(std::min(kChurnLookups, w.keys), f.ns);
  row.churnWriterPerSec = perSecond(f.replaced, f.ns);
  if (scan) row.churnScanMs = static_cast<double>(timedRead(w, &churn, scan).ns) / 1e6;
}

}  // namespace PeerBench
