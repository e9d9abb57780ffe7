#include "bench/peers/Guard.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace PeerBench {
namespace {

// Fixed arrays: the signal handler may only read them and call kill/unlink.
constexpr int kMaxPids = 64;
constexpr int kMaxShm = 8;
constexpr size_t kShmNameLen = 96;

std::atomic<pid_t> pids[kMaxPids];
char shmNames[kMaxShm][kShmNameLen];
std::atomic<bool> shmUsed[kMaxShm];
pid_t owner = 0;
char guardedDir[256];

// Removes a directory tree with system calls only, as a signal handler may.
void removeTree(int parent, char const* name, int depth) {
  int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    ::unlinkat(parent, name, 0);
    return;
  }
  alignas(8) char buf[4096];
  for (;;) {
    long n = ::syscall(SYS_getdents64, fd, buf, sizeof buf);
    if (n <= 0) break;
    for (long off = 0; off < n;) {
      auto* d = reinterpret_cast<dirent64*>(buf + off);
      off += d->d_reclen;
      if (std::strcmp(d->d_name, ".") == 0 || std::strcmp(d->d_name, "..") == 0) continue;
      if (d->d_type == DT_DIR && depth < 4) {
        removeTree(fd, d->d_name, depth + 1);
      } else {
        ::unlinkat(fd, d->d_name, 0);
      }
    }
  }
  ::close(fd);
  ::unlinkat(parent, name, AT_REMOVEDIR);
}

void cleanUp() {
  if (::getpid() != owner) return;
  for (auto& p : pids) {
    pid_t pid = p.exchange(0);
    if (pid > 0) ::kill(pid, SIGKILL);
  }
  for (int i = 0; i < kMaxShm; ++i) {
    if (shmUsed[i].exchange(false)) ::shm_unlink(shmNames[i]);
  }
}

void onSignal(int sig) {
  cleanUp();
  if (::getpid() == owner && guardedDir[0]) removeTree(AT_FDCWD, guardedDir, 0);
  ::signal(sig, SIG_DFL);
  ::raise(sig);
}

}  // namespace

void installGuard() {
  owner = ::getpid();
  std::atexit(cleanUp);
  for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    ::sigaction(sig, &sa, nullptr);
  }
  ::signal(SIGPIPE, SIG_IGN);
}

void guardPid(pid_t pid) {
  for (auto& p : pids) {
    pid_t expected = 0;
    if (p.compare_exchange_strong(expected, pid)) return;
  }
  // No room to guard it: do not leave it running unguarded.
  ::kill(pid, SIGKILL);
  std::abort();
}

void unguardPid(pid_t pid) {
  for (auto& p : pids) {
    pid_t expected = pid;
    if (p.compare_exchange_strong(expected, 0)) return;
  }
}

void guardDir(std::string const& path) {
  std::strncpy(guardedDir, path.c_str(), sizeof guardedDir - 1);
}

void guardShm(std::string const& name) {
  for (int i = 0; i < kMaxShm; ++i) {
    if (!shmUsed[i].load()) {
      std::strncpy(shmNames[i], ("/" + name).c_str(), kShmNameLen - 1);
      shmUsed[i] = true;
      return;
    }
  }
  std::abort();
}

void unguardShm(std::string const& name) {
  std::string n = "/" + name;
  for (int i = 0; i < kMaxShm; ++i) {
    if (shmUsed[i].load() && n == shmNames[i]) shmUsed[i] = false;
  }
}

void childStarted() {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != owner) ::_exit(1);  // the benchmark died while forking
  for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::signal(sig, SIG_DFL);
}

void stopProcess(pid_t pid, int graceMs) {
  if (pid <= 0) return;
  ::kill(pid, SIGTERM);
  for (int waited = 0; waited < graceMs; waited += 5) {
    if (::waitpid(pid, nullptr, WNOHANG) == pid) {
      unguardPid(pid);
      return;
    }
    ::usleep(5000);
  }
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
  unguardPid(pid);
}

}  // namespace PeerBench
