// tunnelctl tables: every table under a state root with its entry type, size
// and writer, read from the table files alone, and where the FIB is.

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/TunnelTable/TunnelRib.h"
#include "Tunnel/multicast/MulticastMergeAgent.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/TableAccess.h"

namespace TunnelCtl {

namespace {

void printJson(std::vector<TableFile> const& tables) {
  auto all = nlohmann::ordered_json::array();
  for (auto const& t : tables) {
    nlohmann::ordered_json j;
    j["name"] = t.name;
    j["mountPath"] = t.mountPath;
    if (!t.error.empty()) {
      j["error"] = t.error;
    } else {
      j["typeName"] = t.typeName;
      j["entryType"] = t.entryType;
      j["entries"] = t.entries;
      j["liveBytes"] = t.liveBytes;
      j["writerPid"] = t.writerPid;
      j["writerAlive"] = t.writerAlive;
    }
    all.push_back(j);
  }
  fmt::print("{}\n", all.dump(2));
}

void printTable(std::string const& root, std::vector<TableFile> const& tables) {
  fmt::print("state root {}: {} table{}\n", root, tables.size(), tables.size() == 1 ? "" : "s");
  if (tables.empty()) return;
  size_t nameW = 5, pathW = 4, typeW = 10;
  for (auto const& t : tables) {
    nameW = std::max(nameW, t.name.size());
    pathW = std::max(pathW, t.mountPath.size());
    typeW = std::max(typeW, t.entryType.size());
  }
  fmt::print("{:<{}}  {:<{}}  {:<{}}  {:>8}  {:>11}  {}\n", "TABLE", nameW, "PATH", pathW,
             "ENTRY TYPE", typeW, "ENTRIES", "BYTES", "WRITER");
  for (auto const& t : tables) {
    if (!t.error.empty()) {
      fmt::print("{:<{}}  {:<{}}  {}\n", t.name, nameW, t.mountPath, pathW, t.error);
      continue;
    }
    std::string type = t.entryType.empty() ? "(unknown: " + t.typeName + ")" : t.entryType;
    fmt::print("{:<{}}  {:<{}}  {:<{}}  {:>8}  {:>11}  {}\n", t.name, nameW, t.mountPath, pathW,
               type, typeW, t.entries, t.liveBytes, writerText(t));
  }
}

// What agents publish beside the tables, and the command that shows each.
struct Published {
  const char* name;
  const char* path;
  const char* collection;  // of its entries
  const char* entryType;
  const char* what;
  const char* command;
};
const Published kPublished[] = {
    {"fib", Tunnel::TunnelFib::TunnelFib::kMountPath, "entry",
     Tunnel::TunnelFib::TunnelFibEntry::kTypeName, "tunnel FIB", "tunnelctl fib"},
    {"tunnelRib", Tunnel::TunnelTable::TunnelRib::kMountPath, "tunnelRibEntry",
     Tunnel::TunnelTable::TunnelRibEntry::kTypeName, "tunnel RIB", "tunnelctl rib"},
    {"coloredTunnelRib", Tunnel::TunnelTable::ColoredTunnelRib::kMountPath, "tunnelRibEntry",
     Tunnel::TunnelTable::TunnelRibEntry::kTypeName, "colored tunnel RIB",
     "tunnelctl rib --colored"},
    {"mergeStatus", Tunnel::TunnelTable::MulticastMergeAgent::kStatusPath,
     Tunnel::TunnelTable::MulticastMergeAgent::kStatusCollection,
     Tunnel::TunnelTable::MulticastMergeStatusRecord::kTypeName, "multicast merge status",
     "tunnelctl multicast"},
};

}  // namespace

int runTables(TablesOptions const& o) {
  std::vector<TableFile> tables = listTables(o.root);
  if (o.json) {
    printJson(tables);
  } else {
    printTable(o.root, tables);
    // The FIB, the RIBs and the merge status are no tunnel tables, but they
    // are what people look for next.
    for (Published const& p : kPublished) {
      if (!hasPublished(o.root, p.path, p.collection)) continue;
      try {
        TableFile f = inspectPublished(o.root, p.name, p.path, p.collection, p.entryType, p.what);
        fmt::print("{}: {} ({} entr{}, writer {}; '{}' lists it)\n", p.name, f.mountPath, f.entries,
                   f.entries == 1 ? "y" : "ies", writerText(f), p.command);
      } catch (CtlError const& e) {
        fmt::print("{}: {}: {}\n", p.name, p.path, e.what());
      }
    }
  }
  std::fflush(stdout);
  int rc = kExitOk;
  for (auto const& t : tables) {
    if (!t.error.empty()) {
      printError(t.error);
      rc = kExitRuntime;
    }
  }
  return rc;
}

}  // namespace TunnelCtl
