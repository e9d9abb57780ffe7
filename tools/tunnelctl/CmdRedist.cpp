// tunnelctl redist: runs a protocol's redistribution machine over its table,
// mounted as a key shadow, and prints the configuration it keeps; with
// --watch it follows the table and prints the configuration again after
// every change.

#include <chrono>
#include <cstdio>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/RedistFollower.h"
#include "tools/tunnelctl/SignalStop.h"
#include "tools/tunnelctl/TableAccess.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using Tunnel::TunnelTable::TunnelId;

namespace {

void printText(RedistFollower const& f, std::string const& table, std::string const& root) {
  ConfigView v = f.current();
  fmt::print("{} redistribution of table {} under {}: {} entries, {} members\n",
             keyword(f.protocol()), table, root, v.size(), memberCount(v));
  for (auto const& [prefix, members] : v) {
    fmt::print("{}  {} member{}\n", prefix.stringValue(), members.size(),
               members.size() == 1 ? "" : "s");
    for (auto const& [id, metric] : members) {
      fmt::print("    {:<24} metric {}\n", TunnelTool::tunnelIdLabel(TunnelId(id)), metric);
    }
  }
}

void printJson(RedistFollower const& f, std::string const& table, int indent) {
  ConfigView v = f.current();
  nlohmann::ordered_json j;
  j["protocol"] = std::string(keyword(f.protocol()));
  j["table"] = table;
  auto entries = nlohmann::ordered_json::array();
  for (auto const& [prefix, members] : v) {
    nlohmann::ordered_json e;
    e["prefix"] = prefix.stringValue();
    auto list = nlohmann::ordered_json::array();
    for (auto const& [id, metric] : members) {
      list.push_back(canonicalTextToJson(
          Tunnel::TunnelRedist::TunnelInfo(TunnelId(id), metric).stringValue()));
    }
    e["members"] = std::move(list);
    entries.push_back(std::move(e));
  }
  j["entries"] = std::move(entries);
  fmt::print("{}\n", j.dump(indent));
}

}  // namespace

int runRedist(RedistOptions const& o) {
  RedistProtocol p{};
  if (!parseRedistProtocol(o.protocol, p)) {
    throw UsageError(fmt::format("unknown protocol '{}' (ldp, isis-sr or bgp-lu)", o.protocol));
  }
  std::string table = tableNameOf(p);
  TableFile file = inspectTable(o.root, table);  // names what is missing
  if (file.writerPid != 0 && !file.writerAlive) {
    printNote(fmt::format("the writer of table {} (pid {}) is gone; using what it left", table,
                          file.writerPid));
  }
  if (o.watch) installStopSignals();
  ZentTamsel::MountRegistry registry;
  Tunnel::TunnelTable::TunnelTableMounter mounter(
      ZentTamsel::Mount(Zent::String(o.root), registry));
  auto follower = RedistFollower::create(p, mounter);
  bool terminal = o.watch && ::isatty(STDOUT_FILENO);
  auto print = [&] {
    if (terminal) fmt::print("\x1b[H\x1b[2J");
    if (o.json) {
      printJson(*follower, table, o.watch ? -1 : 2);
    } else {
      printText(*follower, table, o.root);
    }
    std::fflush(stdout);
  };
  print();
  if (!o.watch) return kExitOk;

  using Clock = std::chrono::steady_clock;
  auto last = Clock::now();
  bool dirty = false;
  while (!stopRequested()) {
    dirty = registry.dispatchAll(100) > 0 || dirty;
    // Reprinted at most a few times a second: a burst of changes shows once.
    if (dirty && Clock::now() - last >= std::chrono::milliseconds(300)) {
      if (!terminal && !o.json) fmt::print("\n");
      print();
      last = Clock::now();
      dirty = false;
    }
  }
  return kExitOk;
}

}  // namespace TunnelCtl
