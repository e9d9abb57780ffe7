// tunnelctl demo: starts the producers (of three tables, of the FIB and of
// the two multicast tables), the consumer, the RIB calculator and the
// multicast merge agent as child processes, shows their progress,
// stops them when the consumer and the calculator have checked what they
// keep, prints the summary and removes the tables (unless --keep).
// Interrupted, it stops every child it started and cleans up the same way.

#include "tools/tunnelctl/Demo.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "tools/tunnelctl/DemoFib.h"
#include "tools/tunnelctl/DemoMulticast.h"
#include "tools/tunnelctl/DemoRib.h"
#include "tools/tunnelctl/SignalStop.h"
#include "tools/tunnelctl/TableAccess.h"

namespace TunnelCtl {

using namespace Demo;

namespace {

struct Child {
  pid_t pid = 0;
  int slot = 0;
  bool running = false;
  int status = 0;  // exit code, or 128 + signal
};

std::vector<std::string> demoTablePaths() {
  std::vector<std::string> paths;
  for (RedistProtocol p : kRedistProtocols) {
    paths.push_back("tunnel/table/" + tableNameOf(p));
    paths.push_back(Tunnel::TunnelRedist::tunnelRedistConfigPath(keyword(p)));
  }
  paths.push_back(Tunnel::TunnelFib::TunnelFib::kMountPath);
  for (auto const* p : kRibPaths) paths.push_back(p);
  for (auto const* p : kMulticastPaths) paths.push_back(p);
  return paths;
}

// Leaves no table of an earlier demo behind, and refuses a root whose tables
// a live process still writes.
void prepareRoot(std::string const& root) {
  struct stat st {};
  if (::stat(root.c_str(), &st) != 0) return;  // the producers create it
  if (!S_ISDIR(st.st_mode)) throw CtlError(fmt::format("state root {} is not a directory", root));
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount{Zent::String(root), registry};
  for (auto const& path : demoTablePaths()) {
    try {
      mount.cleanup(Zent::String(path));
    } catch (Tamsel::Error const& e) {
      throw CtlError(
          fmt::format("state root {} is in use: {} (stop that process, or give the "
                      "demo another --root)",
                      root, e.what()));
    }
  }
}

void removeTables(std::string const& root) {
  ZentTamsel::MountRegistry registry;
  ZentTamsel::Mount mount{Zent::String(root), registry};
  for (auto const& path : demoTablePaths()) {
    try {
      mount.cleanup(Zent::String(path));
    } catch (Tamsel::Error const& e) {
      printError(e.what());
    }
  }
  // Only directories left empty go.
  for (auto const& dir :
       {root + "/tunnel/table", root + "/tunnel/rib", root + "/tunnel/cli",
        root + "/tunnel/multicast", root + "/tunnel/redist", root + "/tunnel", root}) {
    ::rmdir(dir.c_str());
  }
}

template <typename Fn>
Child spawn(int slot, Fn&& fn) {
  std::fflush(stdout);
  std::fflush(stderr);
  pid_t parent = ::getpid();
  pid_t pid = ::fork();
  if (pid < 0) throw CtlError(fmt::format("cannot start a demo process: {}", std::strerror(errno)));
  if (pid == 0) {
    // Ctrl-C reaches the whole process group; the parent decides what stops.
    ::signal(SIGINT, SIG_IGN);
    ::signal(SIGTERM, SIG_DFL);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) ::_exit(1);
    int rc = fn();
    std::fflush(stdout);
    ::_exit(rc);
  }
  return Child{pid, slot, true, 0};
}

void reap(Child& c, bool wait) {
  if (!c.running) return;
  int status = 0;
  pid_t r;
  while ((r = ::waitpid(c.pid, &status, wait ? 0 : WNOHANG)) < 0 && errno == EINTR) {
  }
  if (r != c.pid) return;
  c.running = false;
  c.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Waits up to two seconds for each child, then kills what is left.
void stopAll(std::vector<Child>& children, bool terminate) {
  for (auto& c : children) {
    if (terminate && c.running) ::kill(c.pid, SIGTERM);
  }
  int64_t deadline = nowNs() + 2'000'000'000;
  for (auto& c : children) {
    while (c.running && nowNs() < deadline) {
      reap(c, false);
      if (c.running) ::usleep(5000);
    }
    if (c.running) {
      ::kill(c.pid, SIGKILL);
      reap(c, true);
    }
  }
}

// What went wrong, in the words of the process it went wrong in; empty while
// all is well. The consumer ends by itself, with status 0, when it is done.
std::string failureOf(SharedRegion const& region, std::vector<Child> const& children) {
  for (auto const& c : children) {
    bool fib = c.slot == kFibWriter;
    ProcStatus const& p = fib ? region.header().fibProducer : statusOf(region, c.slot);
    std::string who = fib ? std::string("FIB producer") : processName(c.slot);
    if (p.phaseNow() == Phase::failed) return fmt::format("{}: {}", who, p.message);
    if (!c.running && (c.slot != kConsumer || c.status != 0)) {
      return fmt::format("{} (pid {}) ended early with status {}", who, c.pid, c.status);
    }
  }
  return {};
}

// How to call this tunnelctl from the current directory.
std::string commandPath() {
  std::error_code ec;
  auto exe = std::filesystem::canonical("/proc/self/exe", ec);
  if (ec) return "tunnelctl";
  auto cwd = std::filesystem::current_path(ec);
  auto rel = exe.lexically_relative(cwd);
  if (!ec && !rel.empty() && rel.native().rfind("..", 0) != 0) return "./" + rel.native();
  return exe.native();
}

class Progress {
 public:
  // A terminal gets its lines redrawn in place at once; a log gets a block
  // of plain lines a second.
  Progress(SharedRegion const& region, bool terminal)
      : region_(region), terminal_(terminal), last_(terminal ? 0 : start_) {}

  void show(bool force) {
    int64_t now = nowNs();
    if (!force && now - last_ < (terminal_ ? 100'000'000 : 1'000'000'000)) return;
    double secs = last_ ? static_cast<double>(now - last_) / 1e9 : 0;
    if (secs > 0 && secs < 0.01) secs = 0;  // too short for a rate
    if (terminal_ && drawn_) fmt::print("\x1b[{}A", std::size(kSlots));
    for (int slot : kSlots) {
      uint64_t writes = statusOf(region_, slot).writes.load();
      double rate = secs > 0 ? static_cast<double>(writes - lastWrites_[slot]) / secs : 0;
      lastWrites_[slot] = writes;
      std::string line = progressLine(region_, slot, rate);
      if (terminal_) {
        fmt::print("\r\x1b[2K{}\n", line);
      } else {
        fmt::print("[{:5.1f}s] {}\n", static_cast<double>(now - start_) / 1e9, line);
      }
    }
    std::fflush(stdout);
    drawn_ = true;
    last_ = now;
  }

 private:
  SharedRegion const& region_;
  bool terminal_;
  bool drawn_ = false;
  int64_t start_ = nowNs();
  int64_t last_;
  // The processes with a progress line: producers, consumer, RIB calculator,
  // the multicast producers and the merge agent.
  static constexpr int kSlots[] = {
      0, 1, 2, kConsumer, kRibCalc, kMldpProducer, kStaticMcastProducer, kMergeAgent};
  uint64_t lastWrites_[kMergeAgent + 1] = {};
};

}  // namespace

int runDemo(DemoOptions const& o) {
  if (o.tunnels < 1 || o.tunnels > 1'000'000) {
    throw UsageError("--tunnels must be between 1 and 1000000");
  }
  if (!(o.seconds > 0 && o.seconds <= 3600)) {
    throw UsageError("--seconds must be more than 0 and at most 3600");
  }
  prepareRoot(o.root);
  SharedRegion region(o.tunnels);
  SharedHeader& h = region.header();
  installStopSignals();
  fmt::print("tunnelctl demo: {} tunnels per table, {:.1f} s of churn, state root {}\n",
             grouped(o.tunnels), o.seconds, o.root);

  std::vector<Child> children;
  for (int i = 0; i < kProducers; ++i) {
    children.push_back(spawn(i, [&, i] { return runProducer(region, kRedistProtocols[i], o); }));
  }
  children.push_back(spawn(kFibWriter, [&] { return runFibProducer(region, o); }));
  children.push_back(spawn(kRibCalc, [&] { return runRibCalculator(region, o); }));
  for (int slot : {kMldpProducer, kStaticMcastProducer}) {
    children.push_back(spawn(slot, [&, slot] { return runMulticastProducer(region, slot, o); }));
  }
  children.push_back(spawn(kMergeAgent, [&] { return runMergeAgent(region, o); }));
  // Last: the demo ends when the consumer does.
  children.push_back(spawn(kConsumer, [&] { return runConsumer(region, o); }));

  Progress progress(region, ::isatty(STDOUT_FILENO) != 0);
  std::string failure;
  while (!stopRequested()) {
    for (auto& c : children) reap(c, false);
    failure = failureOf(region, children);
    // Done when the consumer has ended and the RIB calculator and the merge
    // agent have checked.
    if (!failure.empty() || (!children.back().running && h.ribCalc.phaseNow() == Phase::done &&
                             h.mergeAgent.phaseNow() == Phase::done)) {
      break;
    }
    progress.show(false);
    ::usleep(20'000);
  }
  bool interrupted = stopRequested();
  h.shutdown.store(1, std::memory_order_release);
  stopAll(children, interrupted);
  progress.show(true);

  // What the consumer published, read back by another process than the
  // one that wrote it, before the tables go.
  for (int i = 0; i < kProducers; ++i) {
    auto published = publishedView(o.root, kRedistProtocols[i]);
    h.result[i].matchesPublished.store(published &&
                                       configDigest(*published) == h.proc[i].digest.load());
  }
  if (!o.keep) removeTables(o.root);
  if (interrupted) {
    fmt::print("\ninterrupted: stopped {} processes; {}\n", children.size(),
               o.keep ? "tables kept in " + o.root : "removed the tables under " + o.root);
    return kExitRuntime;
  }
  if (!failure.empty()) {
    printError("demo failed: " + failure);
    return kExitRuntime;
  }
  printSummary(region, o, commandPath(), o.root == kDefaultStateRoot ? "" : " --root " + o.root);
  bool match = h.rib.matches.load() != 0 && h.multicast.matches.load() != 0;
  for (auto const& r : h.result) {
    match = match && r.matchesTable.load() && r.matchesProducer.load() && r.matchesPublished.load();
  }
  return match ? kExitOk : kExitRuntime;
}

}  // namespace TunnelCtl
