#pragma once
// Helpers for tests that cross process boundaries: a private state root per
// test, forked children that report through their exit status, and records
// that check themselves so a torn read cannot pass unnoticed.

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"

namespace TamselTest {

class StateRoot {
 public:
  StateRoot() {
    char tmpl[] = "/dev/shm/tamsel-test-XXXXXX";
    char* d = ::mkdtemp(tmpl);
    if (!d) std::abort();
    path_ = d;
  }
  ~StateRoot() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  std::string const& path() const { return path_; }
  std::string dir(std::string const& mountPath) const { return path_ + "/" + mountPath; }

 private:
  std::string path_;
};

// A one-way signal between a parent and its forked child.
struct Pipe {
  int fds[2];
  Pipe() {
    if (::pipe(fds) != 0) std::abort();
  }
  ~Pipe() {
    ::close(fds[0]);
    ::close(fds[1]);
  }
  Pipe(Pipe const&) = delete;
  void signal() { (void)!::write(fds[1], "x", 1); }
  bool wait() {
    char c;
    return ::read(fds[0], &c, 1) == 1;
  }
};

inline bool waitReadable(int fd, int ms) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, ms) == 1;
}

// Runs fn in a child; the child exits 0 when fn returns true.
inline pid_t forkChild(std::function<bool()> fn) {
  pid_t parent = ::getpid();
  pid_t pid = ::fork();
  if (pid == 0) {
    // A child never outlives a test that was stopped.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);
    bool ok = false;
    try {
      ok = fn();
    } catch (...) {
    }
    ::_exit(ok ? 0 : 1);
  }
  return pid;
}

// The child's exit code, or 128 + signal.
inline int waitChild(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Dispatches this process's readers until `done` holds or `timeoutMs` pass.
// A wake-up may deliver nothing (the news was handled by an earlier one), so
// an empty dispatch is no reason to stop.
template <typename Done, typename Dispatch>
bool dispatchUntil(Done&& done, Dispatch&& dispatch, int timeoutMs = 10000) {
  auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!done()) {
    if (std::chrono::steady_clock::now() > until) return false;
    dispatch(100);
  }
  return true;
}

// A table of 8-byte keys, as the tests use.
inline Tamsel::TableShape testShape(uint32_t maxPayload = 4096, uint32_t queue = 1024) {
  Tamsel::TableShape s;
  s.typeName = "Test::Table";
  s.allocatorName = "TestTable";
  s.keySize = 8;
  s.maxPayload = maxPayload;
  s.queueCapacity = queue;
  return s;
}

inline uint32_t keyHash(uint64_t key) { return Zent::hashBytes(&key, sizeof(key)); }

inline uint64_t keyOf(void const* key) {
  uint64_t k;
  std::memcpy(&k, key, 8);
  return k;
}

// A record of `len` bytes (at least 24) that names its key and generation and
// ends with a checksum of everything before it.
inline void fillRecord(char* r, uint64_t key, uint64_t gen, uint32_t len) {
  std::memcpy(r, &key, 8);
  std::memcpy(r + 8, &gen, 8);
  uint64_t x = key * 0x9e3779b97f4a7c15ull ^ gen;
  for (uint32_t i = 16; i + 8 < len; ++i) {
    x = x * 6364136223846793005ull + 1442695040888963407ull;
    r[i] = static_cast<char>(x >> 56);
  }
  uint64_t sum = Zent::hashBytes(r, len - 8, 7);
  std::memcpy(r + len - 8, &sum, 8);
}

inline bool recordValid(char const* rec, size_t len, uint64_t key) {
  uint64_t sum;
  if (len < 24 || keyOf(rec) != key) return false;
  std::memcpy(&sum, rec + len - 8, 8);
  return sum == Zent::hashBytes(rec, static_cast<uint32_t>(len - 8), 7);
}

inline uint64_t recordGen(char const* rec) { return keyOf(rec + 8); }

inline void put(Tamsel::Writer& w, uint64_t key, uint64_t gen, uint32_t len) {
  w.write(&key, keyHash(key), len, [&](char* dst) { fillRecord(dst, key, gen, len); });
}

inline bool del(Tamsel::Writer& w, uint64_t key) {
  return w.remove(&key, keyHash(key), [](char const*, uint32_t) {});
}

// What a view holds for a key whose record is torn, or listed twice.
constexpr uint64_t kBadRecord = ~uint64_t{0};

// A reader's content by scan: key -> generation.
inline std::map<uint64_t, uint64_t> scan(Tamsel::Reader const& r) {
  std::map<uint64_t, uint64_t> out;
  r.forEach([&](void const* key, char const* rec, uint32_t len, uint64_t) {
    uint64_t k = keyOf(key);
    auto [it, fresh] = out.emplace(k, recordValid(rec, len, k) ? recordGen(rec) : kBadRecord);
    if (!fresh) it->second = kBadRecord;
  });
  return out;
}

// Follows a table from notifications alone, reading each key that changed,
// as an agent mirroring the table does.
struct Follower : Tamsel::Reader::Handler {
  explicit Follower(Tamsel::Reader& r) : reader(r) {}
  Tamsel::Reader& reader;
  std::map<uint64_t, uint64_t> view;  // key -> generation
  std::vector<uint64_t> keys;         // every notification, in order
  std::vector<bool> quiesced;
  int resyncs = 0;
  uint64_t torn = 0;
  std::vector<char> buf;
  void keyChanged(void const* key) override {
    uint64_t k = keyOf(key);
    keys.push_back(k);
    if (!reader.readCopy(&k, keyHash(k), buf)) {
      view.erase(k);
    } else if (recordValid(buf.data(), buf.size(), k)) {
      view[k] = recordGen(buf.data());
    } else {
      ++torn;
    }
  }
  void resynchronised(bool) override { ++resyncs; }
  void quiescedChanged(bool q) override { quiesced.push_back(q); }
};

}  // namespace TamselTest
