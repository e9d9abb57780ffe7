// Boost.Interprocess: a hash map of fixed 680-byte records in a
// managed_shared_memory segment, under an interprocess sharable mutex
// (writers exclusive, readers shared). Readers are woken through an
// interprocess condition variable in the same segment.
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/sync/interprocess_condition.hpp>
#include <boost/interprocess/sync/interprocess_mutex.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#include <boost/unordered_map.hpp>
#include <stdexcept>
#include <string>

#include "bench/peers/Guard.h"
#include "bench/peers/Peers.h"

namespace PeerBench {
namespace {

namespace bip = boost::interprocess;

struct Record {
  char bytes[kRecordLen];
};
using Segment = bip::managed_shared_memory;
using Alloc = bip::allocator<std::pair<uint64_t const, Record>, Segment::segment_manager>;
using Map =
    boost::unordered_map<uint64_t, Record, boost::hash<uint64_t>, std::equal_to<uint64_t>, Alloc>;

struct Control {
  bip::interprocess_sharable_mutex table;
  bip::interprocess_mutex wakeMutex;
  bip::interprocess_condition wake;
  uint64_t published = 0;  // writes announced so far
  uint64_t key = 0;        // the key of the last one
};

using WriteLock = bip::scoped_lock<bip::interprocess_sharable_mutex>;
using ReadLock = bip::sharable_lock<bip::interprocess_sharable_mutex>;

// A process's view of the segment: it maps the segment itself.
struct View {
  explicit View(std::string const& name)
      : segment(bip::open_only, name.c_str()),
        map(segment.find<Map>("map").first),
        control(segment.find<Control>("control").first) {
    if (!map || !control) throw std::runtime_error("segment " + name + " has no table");
  }
  bool get(uint64_t key, char* out) {
    ReadLock l(control->table);
    auto it = map->find(key);
    if (it == map->end()) return false;
    std::memcpy(out, it->second.bytes, kRecordLen);
    return true;
  }
  Segment segment;
  Map* map;
  Control* control;
};

int64_t insertAll(Workload const& w, Map& map, Control& ctl) {
  int64_t t0 = nowNs();
  for (uint64_t key : w.insertOrder) {
    WriteLock l(ctl.table);
    w.record(key, 1, map[key].bytes);
  }
  return nowNs() - t0;
}

void replace(Workload const& w, Map& map, Control& ctl, uint64_t key, uint32_t version) {
  WriteLock l(ctl.table);
  auto it = map.find(key);
  if (it == map.end()) throw std::runtime_error("Boost map lost a key");
  w.record(key, version, it->second.bytes);
}

// A reader process maps the segment and looks keys up, copying each record
// out.
ReadBody lookups(std::string const& name) {
  return [name](ReadWindow& win) {
    View v(name);
    char out[kRecordLen];
    uint64_t found = 0;
    win.begin();
    for (uint64_t key : win.lookups()) found += v.get(key, out);
    win.end();
    if (found != win.lookups().size()) throw std::runtime_error("Boost lookups missed records");
  };
}

// A process started now maps the segment and copies every record out, under
// one sharable lock.
ReadBody scan(std::string const& name) {
  return [name](ReadWindow& win) {
    win.begin();
    View v(name);
    char out[kRecordLen];
    {
      ReadLock l(v.control->table);
      for (auto const& [key, rec] : *v.map) {
        std::memcpy(out, rec.bytes, kRecordLen);
        win.seen(out);
      }
    }
    win.end();
    win.checkScan("Boost scan");
  };
}

void latency(Workload const& w, std::string const& name, Map& map, Control& ctl, Row& row) {
  LatencyProbe probe(w.samples);
  Child reader([&](int fd) {
    View v(name);
    char out[kRecordLen];
    uint64_t seen;
    {
      bip::scoped_lock<bip::interprocess_mutex> l(v.control->wakeMutex);
      seen = v.control->published;
    }
    probe.flags().ready = 1;
    while (!probe.done()) {
      uint64_t key;
      {
        bip::scoped_lock<bip::interprocess_mutex> l(v.control->wakeMutex);
        while (v.control->published == seen) v.control->wake.wait(l);
        seen = v.control->published;
        key = v.control->key;
      }
      probe.received();
      v.get(key, out);
      probe.acknowledge();
    }
    probe.sendSamples(fd);
  });
  probe.drive(w, [&](uint64_t key, uint32_t version) {
    replace(w, map, ctl, key, version);
    {
      bip::scoped_lock<bip::interprocess_mutex> l(ctl.wakeMutex);
      ++ctl.published;
      ctl.key = key;
    }
    ctl.wake.notify_one();
  });
  probe.collect(reader, row);
}

}  // namespace

std::vector<Row> runBoost(Workload const& w) {
  Row row;
  row.store = "Boost.Interprocess";
  row.keys = w.keys;
  std::string name = w.shmPrefix + "boost";
  guardShm(name);
  bip::shared_memory_object::remove(name.c_str());
  try {
    // Room for the nodes (record, key, link, allocator header) and buckets.
    Segment segment(bip::create_only, name.c_str(), w.keys * 1024 + (size_t{64} << 20));
    auto* map =
        segment.construct<Map>("map")(16, boost::hash<uint64_t>(), std::equal_to<uint64_t>(),
                                      Alloc(segment.get_segment_manager()));
    auto* ctl = segment.construct<Control>("control")();
    row.insertPerSec = perSecond(w.keys, insertAll(w, *map, *ctl));
    Churn churn{[&](std::span<uint64_t const> keys, uint32_t version) {
      for (uint64_t key : keys) replace(w, *map, *ctl, key, version);
    }};
    int64_t t0 = nowNs();
    churn.replace(w.replaceOrder, 2);
    row.replacePerSec = perSecond(w.keys, nowNs() - t0);
    measureReads(w, churn, row, lookups(name), scan(name));
    latency(w, name, *map, *ctl, row);
  } catch (...) {
    bip::shared_memory_object::remove(name.c_str());
    unguardShm(name);
    throw;
  }
  bip::shared_memory_object::remove(name.c_str());
  unguardShm(name);
  return {row};
}

}  // namespace PeerBench
