#pragma once
// The agent side of the multicast merge: MulticastMergeAgent mounts the MLDP
// and static multicast tables as key shadows and the MPLS multicast table as
// writer, runs MergedTunnelTableSm on an agent's event loop and publishes how
// far the merge has come in a one-record shared-memory table, which
// readMulticastMergeStatus reads back for tools.

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Rivy/EventLoop.h"
#include "Tunnel/multicast/MergedTunnelTableSm.h"
#include "Tunnel/shmem/ZentTamsel/Collection.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"

namespace Tunnel::TunnelTable {

// Where the merge stands, in the order it goes through.
enum class MulticastMergePhase : uint32_t {
  waitingForInputs = 0,  // an input table has no file yet
  firstScan = 1,
  secondScan = 2,
  reconciling = 3,  // removing what an earlier run left in the output
  ready = 4,
};
// "waiting for inputs", "first scan", "second scan", "reconciling", "ready".
const char* multicastMergePhaseText(MulticastMergePhase p);

using MulticastMergeStatusKey = ZentTamsel::OneRecordKey;

// The one record (key 0) of the status table. Plain data: tools of another
// build read it straight from the file.
struct MulticastMergeStatusRecord {
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::MulticastMergeStatus";
  MulticastMergeStatusKey key;
  uint32_t phase = 0;  // a MulticastMergePhase
  uint64_t merges = 0;
  uint64_t mergeDeletes = 0;
  uint64_t reconciledDeletes = 0;
  uint64_t mldpEntries = 0;
  uint64_t staticEntries = 0;
  uint64_t mergedEntries = 0;
  // The longest single task run on the agent's loop: how long the merge held
  // the thread at most, beside the slice it was given.
  int64_t longestRunNs = 0;
  int64_t yieldTimeNs = 0;

  MulticastMergeStatusKey keyOf() const { return key; }
  bool wellFormed() const {
    return key.value == 0 && phase <= static_cast<uint32_t>(MulticastMergePhase::ready);
  }
  MulticastMergePhase phaseValue() const { return static_cast<MulticastMergePhase>(phase); }
  bool ready() const { return phaseValue() == MulticastMergePhase::ready; }
  friend bool operator==(MulticastMergeStatusRecord const&,
                         MulticastMergeStatusRecord const&) = default;
};
static_assert(sizeof(MulticastMergeStatusRecord) == 72);

struct MulticastMergeStatus {
  MulticastMergeStatusRecord record;
  uint32_t writerPid = 0;
  bool writerAlive = false;
};

// The status published under `stateRoot`; nullopt when no merge agent has
// published one there. Throws Tamsel::Error when the file cannot be read or
// its record is malformed (naming the file).
std::optional<MulticastMergeStatus> readMulticastMergeStatus(std::string const& stateRoot);

// The keys at which `merged` differs from `mldp` overridden by `statics`
// (a static entry replaces the MLDP entry of its tunnel id whole), read
// afresh from the three tables.
uint64_t multicastMergeDifferences(MplsMulticastTunnelTable const& mldp,
                                   MplsMulticastTunnelTable const& statics,
                                   MplsMulticastTunnelTable const& merged);

struct MulticastMergeOptions {
  // The slice of one scan or reconciliation run.
  std::chrono::nanoseconds yieldTime = std::chrono::milliseconds(5);
  int taskPriority = 0;
  // How often an input that has no file yet is looked for again.
  std::chrono::milliseconds inputRetry{100};
  std::chrono::milliseconds statusPeriod{20};
  // Notifications one table hands over per loop round.
  size_t dispatchTurn = 256;
};

class MulticastMergeAgent {
 public:
  static constexpr const char* kStatusPath = "tunnel/multicast/mergeStatus";
  static constexpr const char* kStatusCollection = "status";

  // Mounts the output and the status table as writer at once (throws
  // Tamsel::Error when that fails, e.g. another live agent writes them) and
  // the inputs as soon as they exist. `loop` must outlive the agent; with a
  // Mount, so must its registry.
  MulticastMergeAgent(ZentTamsel::Mount const& mount, Rivy::EventLoop& loop,
                      MulticastMergeOptions const& options = {});
  MulticastMergeAgent(std::string const& stateRoot, Rivy::EventLoop& loop,
                      MulticastMergeOptions const& options = {});
  ~MulticastMergeAgent();
  MulticastMergeAgent(MulticastMergeAgent const&) = delete;
  MulticastMergeAgent& operator=(MulticastMergeAgent const&) = delete;

  // Null until both inputs are mounted.
  MergedTunnelTableSm const* sm() const { return sm_.ptr(); }
  Zent::Ptr<MplsMulticastTunnelTable> const& mergedTable() const { return merged_; }
  MulticastMergePhase phase() const;
  // What was last published.
  MulticastMergeStatusRecord const& status() const { return published_; }
  // Publishes the status when it changed; the agent's timer calls it too.
  void statusRefresh();

 private:
  struct StatusKeyOf {
    MulticastMergeStatusKey operator()(MulticastMergeStatusRecord const& r) const {
      return r.keyOf();
    }
  };
  using StatusCollection =
      ZentTamsel::Collection<MulticastMergeStatusKey, MulticastMergeStatusRecord, StatusKeyOf,
                             ZentTamsel::FixedMarshaller<MulticastMergeStatusRecord>>;

  void init();
  void mountInputs();
  void start();

  std::unique_ptr<ZentTamsel::MountRegistry> ownRegistry_;
  ZentTamsel::Mount mount_;
  Rivy::EventLoop& loop_;
  MulticastMergeOptions options_;
  Zent::CounterSet counters_{"MulticastMergeAgent"};
  Zent::Ptr<ZentTamsel::CollectionControl> statusControl_;
  std::unique_ptr<StatusCollection> status_;
  Zent::Ptr<MplsMulticastTunnelTable> merged_;
  Zent::Ptr<MldpTunnelTable> mldp_;
  Zent::Ptr<StaticMcastTunnelTable> static_;
  Zent::Ptr<MergedTunnelTableSm> sm_;
  Rivy::EventLoop::TimerId retryTimer_ = 0;
  Rivy::EventLoop::TimerId statusTimer_ = 0;
  MulticastMergeStatusRecord published_;
  bool publishedOnce_ = false;
};

}  // namespace Tunnel::TunnelTable
