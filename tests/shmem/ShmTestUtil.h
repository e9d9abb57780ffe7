#pragma once
// Helpers for tests that cross process boundaries: a private state root per
// test, forked children that report through their exit status, and records
// that check themselves so a torn read cannot pass unnoticed.

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <signal.h>
#include <stdlib.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/shmem/Table.h"

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
  Pipe& operator=(Pipe const&) = delete;
  void signal() { (void)!::write(fds[1], "x", 1); }
  bool wait() {
    char c;
    return ::read(fds[0], &c, 1) == 1;
  }
};

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
      ok = false;
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
inline Tamsel::TableShape testShape(uint32_t maxPayload, uint32_t queue) {
  Tamsel::TableShape s;
  s.typeName = "Test::Table";
  s.allocatorName = "TestTable";
  s.keySize = 8;
  s.maxPayload = maxPayload;
  s.queueCapacity = queue;
  return s;
}

inline uint32_t keyHash(uint64_t key) { return Zent::hashBytes(&key, sizeof(key)); }

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

inline std::vector<char> makeRecord(uint64_t key, uint64_t gen, uint32_t len) {
  std::vector<char> r(len);
  fillRecord(r.data(), key, gen, len);
  return r;
}

inline bool recordValid(char const* rec, uint32_t len, uint64_t key) {
  if (len < 24) return false;
  uint64_t k, sum;
  std::memcpy(&k, rec, 8);
  std::memcpy(&sum, rec + len - 8, 8);
  return k == key && sum == Zent::hashBytes(rec, len - 8, 7);
}

inline uint64_t recordGen(char const* rec) {
  uint64_t g;
  std::memcpy(&g, rec + 8, 8);
  return g;
}

}  // namespace TamselTest
