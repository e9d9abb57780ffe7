// tunnelctl multicast: the MLDP, static multicast and MPLS multicast tables,
// the merge agent's status, and whether the merged table equals the merge of
// its inputs, checked here from the tables themselves.

#include <cstdio>
#include <iostream>
#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/multicast/MulticastMergeAgent.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/TableAccess.h"

namespace TunnelCtl {

namespace {

using Json = nlohmann::ordered_json;
using Tunnel::TunnelTable::MplsMulticastTunnelTable;

constexpr const char* kMergedName = "mplsMulticast";

struct Input {
  const char* name;
  std::unique_ptr<MountedTable> table;  // null: no producer has published it
};

MplsMulticastTunnelTable const* multicastTable(MountedTable const& t) {
  auto const* m = dynamic_cast<MplsMulticastTunnelTable const*>(&t.table());
  if (!m) {
    throw CtlError(fmt::format("table {} holds type {}, not a multicast tunnel table",
                               t.file().name, t.file().typeName));
  }
  return m;
}

std::string durationText(int64_t ns) {
  if (ns < 1'000'000) return fmt::format("{:.0f} µs", static_cast<double>(ns) / 1e3);
  return fmt::format("{:.1f} ms", static_cast<double>(ns) / 1e6);
}

}  // namespace

int runMulticast(MulticastOptions const& o) {
  checkStateRoot(o.root);
  if (!hasPublished(o.root, MplsMulticastTunnelTable::kMountPath, "entry")) {
    throw CtlError(fmt::format(
        "no MPLS multicast table under {} (no merge agent has published one at {}; --root names "
        "another)",
        o.root, MplsMulticastTunnelTable::kMountPath));
  }
  MountedTable merged(o.root, kMergedName, ZentTamsel::reader());
  Input inputs[] = {{"mldpTunnel", nullptr}, {"staticMcast", nullptr}};
  // An input nobody published yet counts as empty in the check.
  MplsMulticastTunnelTable const* tables[2] = {};
  auto none = Tunnel::TunnelTable::mplsMulticastTunnelTableFactory(Zent::String("none"));
  for (int i = 0; i < 2; ++i) {
    if (hasPublished(
            o.root,
            std::string(Tunnel::TunnelTable::TunnelTableInfo::kMountPathPrefix) + inputs[i].name,
            "entry")) {
      inputs[i].table =
          std::make_unique<MountedTable>(o.root, inputs[i].name, ZentTamsel::reader());
      tables[i] = multicastTable(*inputs[i].table);
    } else {
      tables[i] = none.ptr();
    }
  }
  uint64_t differ = Tunnel::TunnelTable::multicastMergeDifferences(*tables[0], *tables[1],
                                                                   *multicastTable(merged));
  auto status = Tunnel::TunnelTable::readMulticastMergeStatus(o.root);

  if (o.json) {
    Json j;
    auto tableJson = [](MountedTable const* t) {
      Json x;
      if (!t) return Json(nullptr);
      x["mountPath"] = t->file().mountPath;
      x["entries"] = t->table().entryCount();
      x["writerPid"] = t->file().writerPid;
      x["writerAlive"] = t->file().writerAlive;
      return x;
    };
    j["mldpTunnel"] = tableJson(inputs[0].table.get());
    j["staticMcast"] = tableJson(inputs[1].table.get());
    j[kMergedName] = tableJson(&merged);
    if (status) {
      auto const& r = status->record;
      j["merge"] = {{"phase", multicastMergePhaseText(r.phaseValue())},
                    {"ready", r.ready()},
                    {"writerPid", status->writerPid},
                    {"writerAlive", status->writerAlive},
                    {"merges", r.merges},
                    {"mergeDeletes", r.mergeDeletes},
                    {"reconciledDeletes", r.reconciledDeletes},
                    {"longestRunNs", r.longestRunNs},
                    {"yieldTimeNs", r.yieldTimeNs}};
    } else {
      j["merge"] = nullptr;
    }
    j["equalsMergeOfInputs"] = differ == 0;
    j["keysDiffering"] = differ;
    std::cout << j.dump(2) << "\n";
    return kExitOk;
  }

  fmt::print("multicast tables under {}:\n", o.root);
  auto line = [](const char* name, MountedTable const* t) {
    if (!t) {
      fmt::print("  {:<14} none (no producer has published it)\n", name);
      return;
    }
    fmt::print("  {:<14} {:<27} {:>7} entries  writer {}\n", name, t->file().mountPath,
               t->table().entryCount(), writerText(t->file()));
  };
  line(inputs[0].name, inputs[0].table.get());
  line(inputs[1].name, inputs[1].table.get());
  line(kMergedName, &merged);
  if (status) {
    auto const& r = status->record;
    fmt::print(
        "merge agent (pid {}, {}): {}; {} merged, {} removed, {} left by an earlier run removed; "
        "longest task run {} of a {} slice\n",
        status->writerPid, status->writerAlive ? "alive" : "gone",
        multicastMergePhaseText(r.phaseValue()), r.merges, r.mergeDeletes, r.reconciledDeletes,
        r.longestRunNs ? durationText(r.longestRunNs) : std::string("(none recorded)"),
        durationText(r.yieldTimeNs));
  } else {
    fmt::print("merge agent: no status published\n");
  }
  if (differ == 0) {
    fmt::print("equal to the merge of the inputs (static overrides MLDP): match\n");
  } else {
    fmt::print(
        "equal to the merge of the inputs (static overrides MLDP): MISMATCH, {} key{} differ{}\n",
        differ, differ == 1 ? "" : "s", differ == 1 ? "s" : "");
  }
  std::fflush(stdout);
  return kExitOk;
}

}  // namespace TunnelCtl
