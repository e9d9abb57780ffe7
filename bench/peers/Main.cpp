// libtunnel's shared-memory tables beside the stores an agent would otherwise
// share tunnel state through (LMDB, Redis, Boost.Interprocess), on the same
// workload in one run, quiet and while the writer replaces flat out; prints
// every figure with the ratio of libtunnel to each peer.
//
//   peers_bench [--keys 100000,1000000] [--samples 10000] [--rounds 2]
//               [--stores libtunnel,lmdb,redis,boost,wake] [--huge-pages]
//
// Each figure is the best of its rounds. --huge-pages runs every store on a
// /dev/shm of 2 MiB pages, private to the run.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#include "bench/common/HugePages.h"
#include "bench/peers/Guard.h"
#include "bench/peers/Peers.h"
#include "bench/peers/Report.h"

namespace fs = std::filesystem;
using namespace PeerBench;

namespace {

constexpr const char* kShmRoot = "/dev/shm";
constexpr const char* kPrefix = "tunnel-peers-";

std::vector<std::string> split(std::string const& s) {
  std::vector<std::string> out;
  std::stringstream ss(s);
  for (std::string item; std::getline(ss, item, ',');) {
    if (!item.empty()) out.push_back(item);
  }
  return out;
}

// Files a run killed outright (SIGKILL) could not remove: those of runs
// whose process is gone.
void removeStale() {
  std::error_code ec;
  for (auto const& e : fs::directory_iterator(kShmRoot, ec)) {
    std::string n = e.path().filename().string();
    if (n.rfind(kPrefix, 0) != 0) continue;
    long pid = std::strtol(n.c_str() + std::strlen(kPrefix), nullptr, 10);
    if (pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
      fs::remove_all(e.path(), ec);
    }
  }
}

struct WorkDir {
  std::string path;
  WorkDir() : path(fmt::format("{}/{}{}", kShmRoot, kPrefix, ::getpid())) {
    fs::create_directories(path);
    guardDir(path);
  }
  ~WorkDir() {
    std::error_code ec;
    fs::remove_all(path, ec);
  }
};

using Runner = std::vector<Row> (*)(Workload const&);

Runner runner(std::string const& name) {
  if (name == "libtunnel") return runLibtunnel;
  if (name == "lmdb") return runLmdb;
  if (name == "redis") return runRedis;
  if (name == "boost") return runBoost;
  if (name == "wake") return runWakeFloor;
  throw std::runtime_error("unknown store " + name + " (libtunnel, lmdb, redis, boost, wake)");
}

int run(int argc, char** argv) {
  std::vector<uint64_t> sizes = {100000, 1000000};
  std::vector<std::string> stores = {"libtunnel", "lmdb", "redis", "boost", "wake"};
  int samples = 10000;
  int rounds = 2;
  bool hugePages = false;
  for (int i = 1; i < argc; i += 2) {
    std::string opt = argv[i];
    if (opt == "--huge-pages") {
      hugePages = true;
      --i;
      continue;
    }
    if (i + 1 >= argc) throw std::runtime_error("option " + opt + " needs a value");
    std::string val = argv[i + 1];
    if (opt == "--keys") {
      sizes.clear();
      for (auto const& k : split(val)) sizes.push_back(std::stoull(k));
    } else if (opt == "--samples") {
      samples = std::stoi(val);
    } else if (opt == "--rounds") {
      rounds = std::max(1, std::stoi(val));
    } else if (opt == "--stores") {
      stores = split(val);
    } else {
      throw std::runtime_error("unknown option " + opt);
    }
  }
  for (auto const& s : stores) runner(s);

  removeStale();
  // Over /dev/shm itself, so that every store's shared memory (files, POSIX
  // shared-memory objects) lands on the same pages.
  if (hugePages) BenchSupport::mountPrivateHugeTmpfs(kShmRoot, "1777");
  pinToCpu(0);
  WorkDir dir;
  std::vector<Row> rows;
  for (uint64_t n : sizes) {
    Workload w(n, samples, dir.path, fmt::format("{}{}.", kPrefix, ::getpid()));
    size_t first = rows.size();
    // Rounds run every store in turn, so that a burst of other work on the
    // machine rarely spoils every round of one store.
    for (int round = 1; round <= rounds; ++round) {
      w.round = round;
      for (auto const& s : stores) {
        std::cerr << fmt::format("{:>9} keys, round {}: {:<10}", n, round, s) << std::flush;
        int64_t t0 = nowNs();
        size_t at = first;
        for (auto& r : runner(s)(w)) {
          while (at < rows.size() && rows[at].store != r.store) ++at;
          if (at < rows.size()) {
            keepBest(rows[at], r);
          } else {
            rows.push_back(std::move(r));
          }
        }
        std::cerr << fmt::format(" {:6.1f} s\n", static_cast<double>(nowNs() - t0) / 1e9);
      }
    }
  }
  std::cout << "\n"
            << machineLine() << "\n"
            << (hugePages ? "/dev/shm on 2 MiB pages (a tmpfs private to this run)\n\n"
                          : "/dev/shm as the machine has it\n\n");
  printTable(std::cout, rows);
  std::cout << "\nxN: libtunnel is N times better than that peer (a higher rate or a "
               "shorter time).\n\n";
  printTargets(std::cout, rows);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  installGuard();
  try {
    return run(argc, argv);
  } catch (std::exception const& e) {
    std::cerr << "\npeers_bench: " << e.what() << "\n";
    return 1;
  }
}
