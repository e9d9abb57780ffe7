// tunnelctl watch: follows a table as a key shadow and prints every change as
// it is notified, until interrupted.

#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/KeyReactor.h"
#include "tools/tunnelctl/SignalStop.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using Tunnel::TunnelTable::TunnelId;

int runWatch(WatchOptions const& o) {
  installStopSignals();
  MountedTable table(o.root, o.table, ZentTamsel::keyShadow());
  auto printChange = [&](TunnelId const& key) {
    table.takeCorruptions();
    std::string text = table.table().entryText(key);
    auto corrupt = table.takeCorruptions();
    std::string label = TunnelTool::tunnelIdLabel(key);
    if (o.json) {
      nlohmann::ordered_json j;
      j["key"] = label;
      j["tunnelId"] = key.value();
      j["entry"] = text.empty() ? nlohmann::ordered_json() : canonicalTextToJson(text);
      if (!corrupt.empty()) j["error"] = corrupt.front();
      fmt::print("{}\n", j.dump());
    } else if (!corrupt.empty()) {
      fmt::print("{} corrupt: {}\n", label, corrupt.front());
    } else {
      fmt::print("{} {}\n", label, text.empty() ? std::string("deleted") : text);
    }
  };
  auto reactor = KeyReactor::attach(table.tablePtr().ptr(), printChange);
  std::string writer = writerText(table.file());
  fmt::print(stderr, "watching {} under {}: {} entries, writer {}; Ctrl-C stops\n",
             table.file().name, o.root, table.table().entryCount(), writer);
  std::fflush(stderr);
  while (!stopRequested()) {
    if (table.dispatch(200) > 0) std::fflush(stdout);
  }
  reactor->notifierIs(nullptr);
  std::fflush(stdout);
  return kExitOk;
}

}  // namespace TunnelCtl
