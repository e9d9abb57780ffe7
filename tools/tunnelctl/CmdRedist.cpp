// tunnelctl redist: prints the redistribution configuration a consumer
// computed from a protocol's table and publishes in the state database;
// with --watch it follows the consumer's changes and prints the
// configuration again after every burst of them.

#include <chrono>
#include <cstdio>
#include <unistd.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/RedistFollower.h"
#include "tools/tunnelctl/SignalStop.h"
#include "tools/tunnelctl/TableAccess.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using Tunnel::TunnelTable::TunnelId;

namespace {

void printText(RedistProtocol p, ConfigView const& v, std::string const& root) {
  fmt::print("{} redistribution of table {} under {}: {} entries, {} members\n", keyword(p),
             tableNameOf(p), root, v.size(), memberCount(v));
  for (auto const& [prefix, members] : v) {
    fmt::print("{}  {} member{}\n", prefix.stringValue(), members.size(),
               members.size() == 1 ? "" : "s");
    for (auto const& [id, metric] : members) {
      fmt::print("    {:<24} metric {}\n", TunnelTool::tunnelIdLabel(TunnelId(id)), metric);
    }
  }
}

void printJson(RedistProtocol p, ConfigView const& v, int indent) {
  nlohmann::ordered_json j;
  j["protocol"] = std::string(keyword(p));
  j["table"] = tableNameOf(p);
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
  checkStateRoot(o.root);
  std::string const path = Tunnel::TunnelRedist::tunnelRedistConfigPath(keyword(p));
  if (!Keepdb::exists(o.root, path)) {
    throw CtlError(
        fmt::format("no {} redistribution configuration under {} (no consumer publishes one)",
                    keyword(p), o.root));
  }
  if (o.watch) installStopSignals();
  ZentTamsel::MountRegistry registry;
  auto config = Tunnel::TunnelRedist::tunnelRedistConfigFactory(Zent::String(keyword(p)));
  Keepdb::Binding published(o.root, path, config, Tunnel::TunnelRedist::tunnelRedistConfigSchema(),
                            Keepdb::Mode::reader, &registry);
  if (!published.writerAlive()) {
    printNote(fmt::format("the consumer that published it (pid {}) is gone; showing what it left",
                          published.writerPid()));
  }
  bool terminal = o.watch && ::isatty(STDOUT_FILENO);
  auto print = [&] {
    if (terminal) fmt::print("\x1b[H\x1b[2J");
    if (o.json) {
      printJson(p, configView(*config), o.watch ? -1 : 2);
    } else {
      printText(p, configView(*config), o.root);
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
