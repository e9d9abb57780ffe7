// tunnelctl fib: the tunnel FIB's entries and encapsulations, or chosen
// entries in the canonical text, a dump with each via's encapsulation
// resolved, or JSON.

#include <algorithm>
#include <iostream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/framework/Range.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/FibText.h"
#include "tools/tunnelctl/JsonText.h"
#include "tools/tunnelctl/TunnelIdText.h"

namespace TunnelCtl {

using namespace Tunnel::TunnelFib;
using Json = nlohmann::ordered_json;
using TunnelTool::tunnelIdLabel;

namespace {

std::string greText(Tunnel::GreTunnelInfo const& i) {
  std::string s = i.source().stringValue() + " -> " + i.destination().stringValue();
  if (i.keyPresent()) s += fmt::format(" key {}", i.key());
  if (i.mtu()) s += fmt::format(" mtu {}", i.mtu());
  return s;
}

std::string flagsText(TunnelFlags f) {
  if (!f) return "-";
  if (f.burnPrimaryVias() && f.viasOrdered()) return "burn,ordered";
  return f.burnPrimaryVias() ? "burn" : "ordered";
}

std::vector<TunnelFibEntry> readEntries(MountedFib& m, std::vector<TunnelId> const& ids) {
  std::vector<TunnelFibEntry> out;
  TunnelFibEntry e;
  for (TunnelId const& id : ids) {
    if (m.fib().entry(id, e)) out.push_back(e);
  }
  return out;
}

// Every encapsulation the FIB publishes, as (id, canonical text, summary).
struct EncapRow {
  EncapId id;
  std::string text, summary;
};
std::vector<EncapRow> readEncaps(TunnelFib const& fib) {
  std::vector<EncapRow> rows;
  auto add = [&](auto const& keys, auto lookup) {
    for (EncapId const& k : keys) {
      auto v = lookup(k);
      if (v) rows.push_back({k, v.stringValue(), encapValueText(fib, k)});
    }
  };
  add(fib.labelStackEncapKeys(), [&](EncapId k) { return fib.labelStackEncap(k); });
  add(fib.greEncapKeys(), [&](EncapId k) { return fib.greEncap(k); });
  add(fib.ipsecGreEncapKeys(), [&](EncapId k) { return fib.ipsecGreEncap(k); });
  add(fib.ipsecVtiEncapKeys(), [&](EncapId k) { return fib.ipsecVtiEncap(k); });
  std::sort(rows.begin(), rows.end(), [](auto const& a, auto const& b) { return a.id < b.id; });
  return rows;
}

void printListing(MountedFib const& m, std::vector<TunnelFibEntry> const& entries,
                  std::vector<EncapRow> const& encaps, std::string const& root, bool json) {
  if (json) {
    Json j;
    j["mountPath"] = m.file().mountPath;
    j["writerPid"] = m.file().writerPid;
    j["writerAlive"] = m.file().writerAlive;
    j["entries"] = Json::array();
    for (auto const& e : entries) {
      j["entries"].push_back({{"tunnel", tunnelIdLabel(e.tunnelId())},
                              {"tunnelId", e.tunnelId().value()},
                              {"arePrimaryViasUsable", e.arePrimaryViasUsable()},
                              {"burnPrimaryVias", e.flags().burnPrimaryVias()},
                              {"viasOrdered", e.flags().viasOrdered()},
                              {"seqNo", e.seqNo().value()},
                              {"primaryVias", e.tunnelViaCount()},
                              {"backupVias", e.backupTunnelViaCount()}});
    }
    j["encaps"] = Json::array();
    for (auto const& r : encaps) {
      j["encaps"].push_back({{"encap", encapIdText(r.id)}, {"value", canonicalTextToJson(r.text)}});
    }
    fmt::print("{}\n", j.dump(2));
    return;
  }
  fmt::print("tunnel FIB under {} at {}: {} entr{}, writer {}\n", root, m.file().mountPath,
             entries.size(), entries.size() == 1 ? "y" : "ies", writerText(m.file()));
  size_t w = 6;
  for (auto const& e : entries) w = std::max(w, tunnelIdLabel(e.tunnelId()).size());
  if (!entries.empty()) {
    fmt::print("{:<{}}  {:<6}  {:<12}  {:>5}  {:>7}  {:>6}\n", "TUNNEL", w, "USABLE", "FLAGS",
               "SEQNO", "PRIMARY", "BACKUP");
  }
  for (auto const& e : entries) {
    fmt::print("{:<{}}  {:<6}  {:<12}  {:>5}  {:>7}  {:>6}\n", tunnelIdLabel(e.tunnelId()), w,
               e.arePrimaryViasUsable() ? "yes" : "no", flagsText(e.flags()), e.seqNo().value(),
               e.tunnelViaCount(), e.backupTunnelViaCount());
  }
  fmt::print("{} encapsulation{}\n", encaps.size(), encaps.size() == 1 ? "" : "s");
  size_t ew = 5;
  for (auto const& r : encaps) ew = std::max(ew, encapIdText(r.id).size());
  if (!encaps.empty()) fmt::print("{:<{}}  {}\n", "ENCAP", ew, "VALUE");
  for (auto const& r : encaps) fmt::print("{:<{}}  {}\n", encapIdText(r.id), ew, r.summary);
}

void dumpVias(Tunnel::TunnelTable::DumpContext* ctx, TunnelFib const& fib, const char* name,
              TunnelViaArray const& vias) {
  dumpf(ctx, 2, "{}: {}\n", name, vias.count());
  for (uint32_t i = 0; i < vias.count(); ++i) {
    TunnelVia const& v = vias[TunnelViaIndex(static_cast<uint16_t>(i))];
    dumpf(ctx, 4, "{}: nexthop {} intf {} encap {}\n", i, v.nextHop().stringValue(),
          intfText(v.intfId()), encapText(fib, v.encapId()));
  }
}

void printShown(TunnelFib const& fib, std::vector<TunnelFibEntry> const& entries, EntryForm form) {
  if (form == EntryForm::json) {
    auto all = Json::array();
    for (auto const& e : entries) all.push_back(canonicalTextToJson(e.stringValue()));
    std::cout << all.dump(2) << '\n';
    return;
  }
  for (auto const& e : entries) {
    if (form == EntryForm::text) {
      std::cout << e.stringValue() << '\n';
      continue;
    }
    Tunnel::TunnelTable::DumpContext ctx(std::cout);
    std::cout << tunnelIdLabel(e.tunnelId()) << " (" << e.tunnelId().value() << ")\n";
    dumpf(&ctx, 2, "arePrimaryViasUsable: {}\n", e.arePrimaryViasUsable());
    dumpf(&ctx, 2, "flags: burnPrimaryVias {}, viasOrdered {}\n", e.flags().burnPrimaryVias(),
          e.flags().viasOrdered());
    dumpf(&ctx, 2, "resetFailoverState: {}\n", e.resetFailoverState());
    dumpf(&ctx, 2, "seqNo: {}\n", e.seqNo().value());
    dumpVias(&ctx, fib, "tunnelVia", e.tunnelVia());
    dumpVias(&ctx, fib, "backupTunnelVia", e.backupTunnelVia());
  }
}

}  // namespace

std::string encapIdText(EncapId id) {
  if (!id) return "none";
  return fmt::format("{} {}", id.typeCliStr(true), id.encapValue());
}

std::string encapValueText(TunnelFib const& fib, EncapId id) {
  switch (id.encapType()) {
    case EncapType::none:
      return id ? "absent" : "";
    case EncapType::labelStackEncap: {
      LabelStackEncap e;
      return fib.labelStackEncap(id, e) ? e.labelStack().stringValue() : "absent";
    }
    case EncapType::greEncap: {
      GreEncap e;
      return fib.greEncap(id, e) ? greText(e.tunnelInfo()) : "absent";
    }
    case EncapType::ipsecGreEncap: {
      IpsecGreEncap e;
      if (!fib.ipsecGreEncap(id, e)) return "absent";
      return fmt::format("{} sa {}", greText(e.tunnelInfo().greInfo()), e.tunnelInfo().ipsecSaId());
    }
    case EncapType::ipsecVtiEncap: {
      IpsecVtiEncap e;
      if (!fib.ipsecVtiEncap(id, e)) return "absent";
      auto const& i = e.tunnelInfo();
      return fmt::format("{} -> {} sa {}", i.source().stringValue(), i.destination().stringValue(),
                         i.ipsecSaId());
    }
    case EncapType::vxlanEncap:
      return "kept by the writer only";  // VXLAN encapsulations are not published
  }
  return "unknown type";
}

std::string encapText(TunnelFib const& fib, EncapId id) {
  std::string value = encapValueText(fib, id);
  return value.empty() ? encapIdText(id) : encapIdText(id) + " (" + value + ")";
}

std::string intfText(Vorn::IntfId const& intf) {
  if (!intf.isDynamicTunnel()) return intf.stringValue();
  uint64_t v = intf.tunnelIdValue();
  if (v > TunnelId::maxValue) return intf.stringValue() + " (not a tunnel id)";
  return fmt::format("{} ({})", intf.stringValue(), tunnelIdLabel(TunnelId(v)));
}

int runFib(FibOptions const& o) {
  std::vector<TunnelId> ids = parseTunnelIds(o.ids);
  MountedFib m(o.root);
  if (m.file().writerPid != 0 && !m.file().writerAlive) {
    printNote(fmt::format("the writer of the tunnel FIB (pid {}) is gone; showing what it left",
                          m.file().writerPid));
  }
  bool listing = !o.show;
  if (listing) {
    ids = m.fib().entryKeys();
    std::sort(ids.begin(), ids.end());
  }
  std::vector<TunnelFibEntry> entries = readEntries(m, ids);
  if (listing) {
    printListing(m, entries, readEncaps(m.fib()), o.root, o.form == EntryForm::json);
  } else {
    printShown(m.fib(), entries, o.form);
  }
  std::cout.flush();

  int rc = kExitOk;
  for (auto const& c : m.takeCorruptions()) {
    printError(c);
    rc = kExitRuntime;
  }
  for (TunnelId const& id : listing ? std::vector<TunnelId>{} : ids) {
    bool found = false;
    for (auto const& e : entries) found = found || e.tunnelId() == id;
    if (!found) {
      printError(fmt::format("no entry {} ({}) in the tunnel FIB", tunnelIdLabel(id), id.value()));
      rc = kExitRuntime;
    }
  }
  return rc;
}

}  // namespace TunnelCtl
