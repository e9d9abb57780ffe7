#pragma once
// What the demo's processes share besides the tunnel tables: one anonymous
// shared mapping, made before the fork, with each process's status for the
// progress lines, the consumer's results for the summary, and per tunnel the
// time its producer last wrote it, from which the consumer measures how long
// a notification took to reach it.

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace TunnelCtl::Demo {

inline constexpr int kProducers = 3;  // LDP, IS-IS SR, BGP-LU, in RedistProtocol order
inline constexpr int kConsumer = 3;   // the slot of the consumer's status
inline constexpr int kFibWriter = 4;  // the FIB's writer: SharedHeader::fibProducer
inline constexpr int kRibCalc = 5;    // the RIB calculator: SharedHeader::ribCalc
// The multicast processes: SharedHeader::mcast[0] (MLDP), mcast[1] (static)
// and mergeAgent.
inline constexpr int kMldpProducer = 6;
inline constexpr int kStaticMcastProducer = 7;
inline constexpr int kMergeAgent = 8;

enum class Phase : uint32_t {
  starting,
  waiting,    // producer: mounted, waits for the consumer
  loading,    // producer: publishing its tunnels
  loaded,     // producer: published, waits until the consumer has caught up
  churning,   // producer: changing them
  finished,   // producer: done writing, keeps its table until told to go
  following,  // consumer: running the machines
  settling,   // consumer: producers finished, draining notifications
  verifying,  // consumer: comparing configurations with the tables
  done,       // consumer: results published
  failed,     // see message
};
const char* phaseText(Phase p);

struct ProcStatus {
  std::atomic<int32_t> pid{0};
  std::atomic<uint32_t> phase{0};
  // Producer: live tunnels. Consumer: redistribution members of all three.
  std::atomic<uint64_t> tunnels{0};
  // Producer: entryIs and entryDel calls. Consumer: notifications handled.
  std::atomic<uint64_t> writes{0};
  // Producer: writes while churning, and when churning began and ended.
  std::atomic<uint64_t> churnWrites{0};
  std::atomic<int64_t> churnStartNs{0};
  std::atomic<int64_t> churnEndNs{0};
  // Producer: memberDigest of every tunnel it left in its table.
  std::atomic<uint64_t> digest{0};
  // Consumer: redistribution entries of all three.
  std::atomic<uint64_t> entries{0};
  char message[240] = {};

  Phase phaseNow() const { return static_cast<Phase>(phase.load(std::memory_order_acquire)); }
  void phaseIs(Phase p) { phase.store(static_cast<uint32_t>(p), std::memory_order_release); }
  void fail(const char* text);
};

// The consumer's findings for one protocol.
struct ProtocolResult {
  std::atomic<uint64_t> tableEntries{0};
  std::atomic<uint64_t> redistEntries{0};
  std::atomic<uint64_t> members{0};
  std::atomic<uint64_t> notifications{0};
  std::atomic<uint32_t> matchesTable{0};     // configuration == what the table implies
  std::atomic<uint32_t> matchesProducer{0};  // and its digest == the producer's own
  // and what it published in the state database, read back by the demo's
  // own process, has the producer's digest too
  std::atomic<uint32_t> matchesPublished{0};
  std::atomic<uint64_t> sampleTunnel{0};  // a tunnel id present at the end, for `show`
};

struct LatencyResult {
  std::atomic<uint64_t> samples{0};
  std::atomic<uint64_t> p50Ns{0};
  std::atomic<uint64_t> p99Ns{0};
  std::atomic<uint64_t> maxNs{0};
};

// The RIB calculator's findings.
struct RibResult {
  std::atomic<uint64_t> endpoints{0};  // tunnel RIB entries
  std::atomic<uint64_t> coloredEndpoints{0};
  std::atomic<uint64_t> candidates{0};    // of both command-line views
  std::atomic<uint64_t> computations{0};  // endpoints recomputed
  std::atomic<uint64_t> ribWrites{0};
  std::atomic<uint64_t> updateCounter{0};  // the tunnel RIB's
  std::atomic<uint32_t> matches{0};        // equal to a calculation afresh
  char sampleEndpoint[64] = {};  // an endpoint with the most candidates, for `rib --candidates`
};

// The merge agent's findings, checked once both multicast producers are done.
struct MulticastResult {
  std::atomic<uint64_t> mldpEntries{0};
  std::atomic<uint64_t> staticEntries{0};
  std::atomic<uint64_t> overrides{0};  // static entries under an MLDP tunnel id
  std::atomic<uint64_t> mergedEntries{0};
  std::atomic<uint64_t> merges{0};
  std::atomic<uint32_t> ready{0};
  std::atomic<uint32_t> matches{0};  // equal to the merge of the inputs, made afresh
};

struct SharedHeader {
  ProcStatus proc[kProducers + 1];
  // The FIB's writer: tunnels counts its entries, entries its encapsulations.
  ProcStatus fibProducer;
  std::atomic<uint64_t> fibExampleVias{0};  // flattened vias of Demo::fibExample()
  // The RIB calculator: writes counts notifications, tunnels RIB entries.
  ProcStatus ribCalc;
  RibResult rib;
  // Multicast producers: tunnels counts table entries, writes their writes.
  ProcStatus mcast[2];
  // The merge agent: writes counts entries merged, tunnels the merged table.
  ProcStatus mergeAgent;
  MulticastResult multicast;
  ProtocolResult result[kProducers];
  LatencyResult loadLatency;
  LatencyResult churnLatency;
  std::atomic<int64_t> followStartNs{0};
  std::atomic<int64_t> followEndNs{0};
  std::atomic<uint32_t> consumerReady{0};
  // The consumer has taken in the initial load: churn starts from a steady
  // state, so its latencies are not those of the load's backlog.
  std::atomic<uint32_t> churnGo{0};
  std::atomic<uint32_t> shutdown{0};
};

class SharedRegion {
 public:
  // Room for the stamps of tunnel indexes 1..tunnels of each producer.
  explicit SharedRegion(uint32_t tunnels);
  ~SharedRegion();
  SharedRegion(SharedRegion const&) = delete;
  SharedRegion& operator=(SharedRegion const&) = delete;

  SharedHeader& header() const { return *header_; }
  uint32_t tunnels() const { return tunnels_; }
  // When producer `producer` last wrote tunnel index `index`; 0 never.
  std::atomic<int64_t>& stamp(int producer, uint64_t index) const {
    return stamps_[static_cast<size_t>(producer) * (tunnels_ + 1) + index];
  }

 private:
  void* base_ = nullptr;
  size_t size_ = 0;
  uint32_t tunnels_;
  SharedHeader* header_ = nullptr;
  std::atomic<int64_t>* stamps_ = nullptr;
};

// Whether every producer is in phase `p`.
bool producersIn(SharedHeader const& h, Phase p);
// A producer failed, or the demo is shutting down.
bool shouldStop(SharedHeader const& h);

// CLOCK_MONOTONIC in nanoseconds: one clock for every process of the host.
int64_t nowNs();

}  // namespace TunnelCtl::Demo
