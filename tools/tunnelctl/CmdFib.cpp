// tunnelctl fib: the tunnel FIB's entries and encapsulations, or chosen
// entries in the canonical text, a dump with each via's encapsulation
// resolved, or JSON.

#include <algorithm>
#include <iostream>
#include <memory>

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

// What the listing shows of an entry: a FIB entry holds room for 1,200 vias,
// so a listing keeps these rows rather than the entries.
struct EntryRow {
  TunnelId id;
  bool usable;
  TunnelFlags flags;
  uint16_t seqNo;
  uint32_t primaryVias, backupVias;
};

std::vector<EntryRow> readRows(TunnelFib const& fib) {
  std::vector<TunnelId> ids = fib.entryKeys();
  std::sort(ids.begin(), ids.end());
  std::vector<EntryRow> rows;
  auto e = std::make_unique<TunnelFibEntry>();
  for (TunnelId const& id : ids) {
    if (!fib.entry(id, *e)) continue;
    rows.push_back({id, e->arePrimaryViasUsable(), e->flags(), e->seqNo().value(),
                    e->tunnelViaCount(), e->backupTunnelViaCount()});
  }
  return rows;
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

void printListing(MountedFib const& m, std::vector<EntryRow> const& entries,
                  std::vector<EncapRow> const& encaps, std::string const& root, bool json) {
  if (json) {
    Json j;
    j["mountPath"] = m.file().mountPath;
    j["writerPid"] = m.file().writerPid;
    j["writerAlive"] = m.file().writerAlive;
    j["entries"] = Json::array();
    for (auto const& e : entries) {
      j["entries"].push_back({{"tunnel", tunnelIdLabel(e.id)},
                              {"tunnelId", e.id.value()},
                              {"arePrimaryViasUsable", e.usable},
                              {"burnPrimaryVias", e.flags.burnPrimaryVias()},
                              {"viasOrdered", e.flags.viasOrdered()},
                              {"seqNo", e.seqNo},
                              {"primaryVias", e.primaryVias},
                              {"backupVias", e.backupVias}});
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
  for (auto const& e : entries) w = std::max(w, tunnelIdLabel(e.id).size());
  if (!entries.empty()) {
    fmt::print("{:<{}}  {:<6}  {:<12}  {:>5}  {:>7}  {:>6}\n", "TUNNEL", w, "USABLE", "FLAGS",
               "SEQNO", "PRIMARY", "BACKUP");
  }
  for (auto const& e : entries) {
    fmt::print("{:<{}}  {:<6}  {:<12}  {:>5}  {:>7}  {:>6}\n", tunnelIdLabel(e.id), w,
               e.usable ? "yes" : "no", flagsText(e.flags), e.seqNo, e.primaryVias, e.backupVias);
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

// Prints the entries of `ids` as they are read; returns the ids absent.
std::vector<TunnelId> printShown(TunnelFib const& fib, std::vector<TunnelId> const& ids,
                                 EntryForm form) {
  std::vector<TunnelId> absent;
  auto all = Json::array();
  auto e = std::make_unique<TunnelFibEntry>();
  for (TunnelId const& id : ids) {
    if (!fib.entry(id, *e)) {
      absent.push_back(id);
      continue;
    }
    if (form == EntryForm::json) {
      all.push_back(canonicalTextToJson(e->stringValue()));
    } else if (form == EntryForm::text) {
      std::cout << e->stringValue() << '\n';
    } else {
      Tunnel::TunnelTable::DumpContext ctx(std::cout);
      std::cout << tunnelIdLabel(id) << " (" << id.value() << ")\n";
      dumpf(&ctx, 2, "arePrimaryViasUsable: {}\n", e->arePrimaryViasUsable());
      dumpf(&ctx, 2, "flags: burnPrimaryVias {}, viasOrdered {}\n", e->flags().burnPrimaryVias(),
            e->flags().viasOrdered());
      dumpf(&ctx, 2, "resetFailoverState: {}\n", e->resetFailoverState());
      dumpf(&ctx, 2, "seqNo: {}\n", e->seqNo().value());
      dumpVias(&ctx, fib, "tunnelVia", e->tunnelVia());
      dumpVias(&ctx, fib, "backupTunnelVia", e->backupTunnelVia());
    }
  }
  if (form == EntryForm::json) std::cout << all.dump(2) << '\n';
  return absent;
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
  std::vector<TunnelId> absent;
  if (o.show) {
    absent = printShown(m.fib(), ids, o.form);
  } else {
    printListing(m, readRows(m.fib()), readEncaps(m.fib()), o.root, o.form == EntryForm::json);
  }
  std::cout.flush();

  int rc = kExitOk;
  for (auto const& c : m.takeCorruptions()) {
    printError(c);
    rc = kExitRuntime;
  }
  for (TunnelId const& id : absent) {
    printError(fmt::format("no entry {} ({}) in the tunnel FIB", tunnelIdLabel(id), id.value()));
    rc = kExitRuntime;
  }
  return rc;
}

}  // namespace TunnelCtl
