// libtunnel: an LdpTunnelTable mounted as writer through TunnelTableMounter,
// with one key-shadow reader in another process whose reactor receives every
// key notification while the writer writes. Readers mount the table
// themselves. The first row reads as the peers do, copying each record out
// of the table's collection; the second reads entries as an agent does,
// through the table, which checks and decodes each record into an
// LdpTunnelTableEntry.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"
#include "bench/peers/LdpRecord.h"
#include "bench/peers/Peers.h"

namespace PeerBench {
namespace {

using namespace Tunnel::TunnelTable;

constexpr auto kTable = TunnelTableIdentifier::ldpTunnelTable;

Zent::Ptr<LdpTunnelTable> ldp(Zent::Ptr<TunnelTableBase> const& t) {
  auto table = Zent::dynamicPtrCast<LdpTunnelTable>(t);
  if (!table) throw std::runtime_error("the LDP tunnel table did not mount");
  return table;
}

// A reactor that hands each changed key to `fn`.
template <typename Fn>
class KeyReactor : public TunnelTableBase::NotifieeConst {
 public:
  explicit KeyReactor(Fn fn) : fn_(std::move(fn)) {}
  void entryNotify(TunnelId const& key) override { fn_(key); }

 private:
  Fn fn_;
};

int64_t write(LdpTunnelTable& table, LdpTunnelTableEntry& e, std::span<uint64_t const> order,
              uint32_t version) {
  int64_t t0 = nowNs();
  e.entryMetricIs(version);
  for (uint64_t key : order) {
    e.tunnelIdIs(TunnelId(key));
    table.entryIs(e);
  }
  return nowNs() - t0;
}

// The key shadow that consumes notifications while the writer writes; it
// sends how many it received.
Child consume(TunnelTableMounter const& m, SharedFlags& flags) {
  return Child([&m, &flags](int fd) {
    auto table = ldp(m.mountKeyshadow(kTable));
    uint64_t n = 0;
    KeyReactor counter([&n](TunnelId const&) { ++n; });
    counter.notifierIs(table.ptr());
    flags.ready = 1;
    while (!flags.stop.load()) m.tamselMounter().registry()->dispatchAll(20);
    while (m.tamselMounter().registry()->dispatchAll(0) > 0) {
    }
    writeValue(fd, n);
  });
}

// Copies the record of `key` out of the table's collection.
bool copyOut(LdpTunnelTable& table, uint64_t key, char* out) {
  TunnelId id(key);
  uint32_t len = 0;
  return table.entryCore().reader()->readInto(&id, id.hash(), out, kRecordLen, len);
}

// The table mounted as a plain reader: no per-key state, as the peers' readers.
Zent::Ptr<LdpTunnelTable> mountReader(TunnelTableMounter const& m) {
  return ldp(m.writeMountTable(TunnelTableMounter::getMountInfo(kTable).tableInfo(),
                               ZentTamsel::MountInfo(ZentTamsel::reader())));
}

// Copy-out lookups go through a plain reader; decoded ones through a key
// shadow's entry(key, out), as an agent reads, which also records the
// version it saw of each key.
ReadBody lookups(TunnelTableMounter const& m, bool decoded) {
  return [&m, decoded](ReadWindow& win) {
    auto table = decoded ? ldp(m.mountKeyshadow(kTable)) : mountReader(m);
    auto entry = std::make_unique<LdpTunnelTableEntry>();
    char out[kRecordLen];
    uint64_t found = 0;
    win.begin();
    if (decoded) {
      for (uint64_t key : win.lookups()) found += table->entry(TunnelId(key), *entry);
    } else {
      for (uint64_t key : win.lookups()) found += copyOut(*table, key, out);
    }
    win.end();
    if (found != win.lookups().size()) throw std::runtime_error("libtunnel lookups missed entries");
  };
}

// A process started now mounts the table as a plain reader and copies every
// record out (the reader's scan hands each one over as a stable copy), in
// the order of the file; decoded, it also checks and decodes each.
ReadBody scan(TunnelTableMounter const& m, bool decoded) {
  return [&m, decoded](ReadWindow& win) {
    win.begin();
    auto table = mountReader(m);
    auto entry = std::make_unique<LdpTunnelTableEntry>();
    char out[kRecordLen];
    table->entryCore().reader()->forEach([&](void const*, char const* rec, uint32_t len, uint64_t) {
      if (!decoded) {
        std::memcpy(out, rec, std::min<uint32_t>(len, kRecordLen));
        win.seen(out);
      } else if (entry->deserializeLen(rec, len) == len) {
        entry->deserialize(rec, len);
        win.seen(rec);
      }
    });
    win.end();
    win.checkScan("libtunnel scan");
  };
}

// The key shadow's reactor is the callback: it reads the entry and
// acknowledges; the process sleeps in dispatchAll between samples.
void latency(Workload const& w, TunnelTableMounter const& m, LdpTunnelTable& table,
             LdpTunnelTableEntry& e, Row& row) {
  LatencyProbe probe(w.samples);
  Child reader([&](int fd) {
    auto shadow = ldp(m.mountKeyshadow(kTable));
    auto entry = std::make_unique<LdpTunnelTableEntry>();
    KeyReactor reactor([&](TunnelId const& key) {
      probe.received();
      shadow->entry(key, *entry);
      probe.acknowledge();
    });
    reactor.notifierIs(shadow.ptr());
    probe.flags().ready = 1;
    while (!probe.done()) m.tamselMounter().registry()->dispatchAll(1000);
    probe.sendSamples(fd);
  });
  probe.drive(w, [&](uint64_t key, uint32_t version) {
    e.tunnelIdIs(TunnelId(key));
    e.entryMetricIs(version);
    table.entryIs(e);
  });
  probe.collect(reader, row);
}

}  // namespace

std::vector<Row> runLibtunnel(Workload const& w) {
  Row row, decoded;
  row.store = "libtunnel";
  decoded.store = "libtunnel, decoded";
  row.keys = decoded.keys = w.keys;
  std::string root = storePath(w, "tunnel");
  std::filesystem::create_directories(root);
  {
    ZentTamsel::MountRegistry registry;
    TunnelTableMounter m{ZentTamsel::Mount(Zent::String(root), registry)};
    auto table = ldp(m.mountWriter(kTable));
    // One entry object, rewritten per write: an entry has room for 600 vias.
    auto e = std::make_unique<LdpTunnelTableEntry>(ldpEntry(0, 0));
    {
      SharedFlagsPtr flags = newSharedFlags();
      Child consumer = consume(m, *flags);
      awaitFlag(flags->ready, 30, "the key-shadow reader");
      row.insertPerSec = perSecond(w.keys, write(*table, *e, w.insertOrder, 1));
      row.replacePerSec = perSecond(w.keys, write(*table, *e, w.replaceOrder, 2));
      flags->stop = 1;
      if (consumer.resultAs<uint64_t>() == 0) {
        throw std::runtime_error("the key-shadow reader saw no notification");
      }
    }
    Churn churn{[&](std::span<uint64_t const> keys, uint32_t version) {
      write(*table, *e, keys, version);
    }};
    measureReads(w, churn, row, lookups(m, false), scan(m, false));
    measureReads(w, churn, decoded, lookups(m, true), scan(m, true));
    latency(w, m, *table, *e, row);
    table = nullptr;
    m.unmount(kTable);
    m.cleanup(kTable);
  }
  std::filesystem::remove_all(root);
  return {row, decoded};
}

}  // namespace PeerBench
