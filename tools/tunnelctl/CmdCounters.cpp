// tunnelctl counters: the counters a table's writer publishes in the table
// file, and what the file itself says about the table.

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/TableAccess.h"

namespace TunnelCtl {

int runCounters(CountersOptions const& o) {
  TableFile t = inspectTable(o.root, o.table);
  if (o.json) {
    nlohmann::ordered_json j;
    j["name"] = t.name;
    j["typeName"] = t.typeName;
    j["entryIs"] = t.publishedCounters[0];
    j["entryDel"] = t.publishedCounters[1];
    j["entryNotify"] = t.publishedCounters[2];
    j["entries"] = t.entries;
    j["liveBytes"] = t.liveBytes;
    j["notifications"] = t.notifications;
    j["writerEpoch"] = t.writerEpoch;
    j["writerPid"] = t.writerPid;
    j["writerAlive"] = t.writerAlive;
    fmt::print("{}\n", j.dump(2));
    return kExitOk;
  }
  fmt::print("table {} ({}) under {}\n", t.name, t.typeName, o.root);
  fmt::print("  {:<14} {}\n", "entryIs", t.publishedCounters[0]);
  fmt::print("  {:<14} {}\n", "entryDel", t.publishedCounters[1]);
  fmt::print("  {:<14} {}\n", "entryNotify", t.publishedCounters[2]);
  fmt::print("  {:<14} {}\n", "entries", t.entries);
  fmt::print("  {:<14} {}\n", "bytes in use", t.liveBytes);
  fmt::print("  {:<14} {}\n", "notifications", t.notifications);
  fmt::print("  {:<14} {}\n", "writer epoch", t.writerEpoch);
  fmt::print("  {:<14} {}\n", "writer", writerText(t));
  return kExitOk;
}

}  // namespace TunnelCtl
