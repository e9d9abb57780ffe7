// The floor under every notification figure: a writer signals an eventfd and
// a reader process sleeping on it wakes, with no store in between.
#include "bench/peers/Peers.h"

namespace PeerBench {

std::vector<Row> runWakeFloor(Workload const& w) {
  Row row;
  row.store = "eventfd wake, no store";
  row.keys = w.keys;
  LatencyProbe probe(w.samples);
  Eventfd wake;
  Child reader([&](int fd) {
    probe.flags().ready = 1;
    while (!probe.done()) {
      wake.wait();
      probe.received();
      probe.acknowledge();
    }
    probe.sendSamples(fd);
  });
  probe.drive(w, [&](uint64_t key, uint32_t) { wake.signal(key + 1); });
  probe.collect(reader, row);
  return {row};
}

}  // namespace PeerBench
