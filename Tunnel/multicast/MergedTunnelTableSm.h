#pragma once
// MergedTunnelTableSm keeps the MPLS multicast table equal to the MLDP table
// overridden by the static multicast table, tunnel id by tunnel id: a static
// entry replaces the MLDP entry of the same id whole.
//
// It works in three phases. First each input is scanned once (the scans only
// visit). Then, with initialScanDone set, each input is scanned again, and
// every entry and every later change goes through the merge rule. Last, when
// an earlier run left entries in the output, the output is walked and every
// key nothing was merged into since the start is removed. Scans and the walk
// are cut into runs of cooperative tasks with bookmarks, so an agent's event
// loop stays responsive while it merges large tables; a synchronous machine
// runs them to the end in the caller.
//
// The structure is that of a machine generated from the one-rule program
// "MulticastTunnelTableMergeSm" (line 17: from both inputs' entries, merged,
// into mergedTable.entry[tunnelId]), so traces name the rule's line.

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Rivy/InputStateMachine.h"
#include "Tunnel/framework/Rivy/SmControl.h"
#include "Tunnel/framework/Rivy/Task.h"
#include "Tunnel/multicast/MulticastTables.h"

namespace Tunnel::TunnelTable {

class MergedTunnelTableSm;

namespace RivoCode::MergedTunnelTableSm {

// Scan flags: each input's scan has ended (set by the input machine, reset
// when the second scans begin), and idle once the second scans are started.
class InputSmScanState : public Zent::Entity {
 public:
  static constexpr const char* kTypeName = "MergedTunnelTableSmInputSmScanState";
  static constexpr Zent::AttributeId kRivy_stream0ScanId = 1;
  static constexpr Zent::AttributeId kRivy_stream1ScanId = 2;
  static constexpr Zent::AttributeId kIdleId = 3;
  using Zent::Entity::Entity;

  bool rivy_stream0Scan() const { return rivy_stream0Scan_; }
  void rivy_stream0ScanIs(bool v) { attributeIs(rivy_stream0Scan_, v, kRivy_stream0ScanId); }
  bool rivy_stream1Scan() const { return rivy_stream1Scan_; }
  void rivy_stream1ScanIs(bool v) { attributeIs(rivy_stream1Scan_, v, kRivy_stream1ScanId); }
  bool idle() const { return idle_; }
  void idleIs(bool v) { attributeIs(idle_, v, kIdleId); }
  void handleIdle() { idleIs(true); }

 private:
  bool rivy_stream0Scan_ = false;
  bool rivy_stream1Scan_ = false;
  bool idle_ = false;
};

// Output readiness: ready follows mergedTableEntryOutputReady.
class OutputState : public Zent::Entity {
 public:
  static constexpr const char* kTypeName = "MergedTunnelTableSmOutputState";
  static constexpr Zent::AttributeId kMergedTableEntryOutputReadyId = 1;
  static constexpr Zent::AttributeId kReadyId = 2;
  using Zent::Entity::Entity;

  bool mergedTableEntryOutputReady() const { return mergedTableEntryOutputReady_; }
  void mergedTableEntryOutputReadyIs(bool v) {
    if (attributeIs(mergedTableEntryOutputReady_, v, kMergedTableEntryOutputReadyId)) {
      handleReady();
    }
  }
  bool ready() const { return ready_; }
  void handleReady() { attributeIs(ready_, mergedTableEntryOutputReady_, kReadyId); }

 private:
  bool mergedTableEntryOutputReady_ = false;
  bool ready_ = false;
};

// The input machine of one input table; stream 0 reads mldpTable, stream 1
// staticTable.
template <typename Table, int Stream>
class EntrySm : public Zent::PtrInterface, public Rivy::Gen::InputStateMachine<TunnelId> {
 public:
  static constexpr const char* kName = Stream == 0 ? "EntrySm0" : "EntrySm1";
  static constexpr const char* kTaskName =
      Stream == 0 ? "Tunnel::TunnelTable::MergedTunnelTableSm-EntrySm0InputScanTask"
                  : "Tunnel::TunnelTable::MergedTunnelTableSm-EntrySm1InputScanTask";

  EntrySm(::Tunnel::TunnelTable::MergedTunnelTableSm& parent, Zent::Ptr<Table const> table,
          Rivy::SmControl const& control);
  ~EntrySm() override;

  Zent::Ptr<Table const> const& table() const { return table_; }
  // The reactor on the input table's entries.
  TunnelTableBase::NotifieeConst const* en() const { return en_.ptr(); }
  bool codefEnabled() const { return codefEnabled_; }

  // The input changed at `key`: once the parent's initial scan is done, send
  // the key down the stream.
  void handleEntry(TunnelId key);
  void handleEntryReactor(TunnelId key) { handleEntry(key); }
  // Sends every input key down the stream as deleted.
  void doDeleteAll();
  // One run of the scan: from the bookmark, until told to yield or the end.
  void doInputScan() override;

 private:
  class Reactor : public TunnelTableBase::NotifieeConst {
   public:
    explicit Reactor(EntrySm& sm) : sm_(sm) {}
    void entryNotify(TunnelId const& key) override { sm_.handleEntryReactor(key); }

   private:
    EntrySm& sm_;
  };

  void streamEvent(TunnelId key);
  void scanComplete(uint64_t visited);

  ::Tunnel::TunnelTable::MergedTunnelTableSm& parent_;
  Zent::Ptr<Table const> table_;
  Zent::Ptr<Reactor> en_;
  typename Table::EntryMap::ScanCursor cursor_;
  uint64_t scanned_ = 0;
  bool codefEnabled_ = true;
};

using EntrySm0 = EntrySm<MldpTunnelTable, 0>;
using EntrySm1 = EntrySm<StaticMcastTunnelTable, 1>;

}  // namespace RivoCode::MergedTunnelTableSm

class MergedTunnelTableSm : public Zent::Entity {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::MergedTunnelTableSm";
  static constexpr const char* kSmName = "MulticastTunnelTableMergeSm";
  static constexpr const char* kReconciliationTaskName =
      "MergedTunnelTableSm-mergedTableEntryOutputTask";

  using InputSmScanState = RivoCode::MergedTunnelTableSm::InputSmScanState;
  using OutputState = RivoCode::MergedTunnelTableSm::OutputState;
  using EntrySm0 = RivoCode::MergedTunnelTableSm::EntrySm0;
  using EntrySm1 = RivoCode::MergedTunnelTableSm::EntrySm1;

  // The key of an output entry as the reconciliation records it.
  class MergedTableEntryOutputKeyType {
   public:
    static constexpr const char* kTypeName =
        "Tunnel::TunnelTable::MergedTunnelTableSm::MergedTableEntryOutputKeyType";
    MergedTableEntryOutputKeyType() = default;
    MergedTableEntryOutputKeyType(TunnelId k0, bool k0Valid) : k0_(k0), k0Valid_(k0Valid) {}

    TunnelId k0() const { return k0_; }
    bool k0Valid() const { return k0Valid_; }
    // Every value is valid.
    static bool validate() { return true; }

    friend bool operator==(MergedTableEntryOutputKeyType const&,
                           MergedTableEntryOutputKeyType const&) = default;
    friend auto operator<=>(MergedTableEntryOutputKeyType const& a,
                            MergedTableEntryOutputKeyType const& b) {
      if (auto c = a.k0_.value() <=> b.k0_.value(); c != 0) return c;
      return a.k0Valid_ <=> b.k0Valid_;
    }
    uint32_t hash(uint32_t seed = 0) const;
    std::string stringValue() const;
    friend std::ostream& operator<<(std::ostream& os, MergedTableEntryOutputKeyType const& k) {
      return os << k.stringValue();
    }

   private:
    TunnelId k0_;
    bool k0Valid_ = false;
  };
  struct OutputKeyHash {
    size_t operator()(MergedTableEntryOutputKeyType const& k) const { return k.hash(); }
  };
  using OutputKeySet = std::unordered_set<MergedTableEntryOutputKeyType, OutputKeyHash>;

  // Stores the arguments; handleInitialized() starts the work. Null tables
  // fail their assertions.
  MergedTunnelTableSm(Zent::Ptr<MldpTunnelTable const> mldpTable,
                      Zent::Ptr<StaticMcastTunnelTable const> staticTable,
                      Zent::Ptr<MplsMulticastTunnelTable> mergedTable,
                      Rivy::SmControl const& control);
  ~MergedTunnelTableSm() override;

  Zent::Ptr<MldpTunnelTable const> const& mldpTable() const { return mldpTable_; }
  Zent::Ptr<StaticMcastTunnelTable const> const& staticTable() const { return staticTable_; }
  Zent::Ptr<MplsMulticastTunnelTable> const& mergedTable() const { return mergedTable_; }
  Rivy::SmControl const& control() const { return control_; }

  InputSmScanState* inputSmScanState() const { return inputSmScanState_.ptr(); }
  OutputState* outputState() const { return outputState_.ptr(); }
  EntrySm0* entrySm0() const { return entrySm0_.ptr(); }
  EntrySm1* entrySm1() const { return entrySm1_.ptr(); }

  bool mergedTableEntryOutputReconciling() const { return reconciling_; }
  OutputKeySet const& mergedTableEntryOutputSeen() const { return seen_; }
  MergedTableEntryOutputKeyType const& mergedTableEntryOutputBookmark() const { return bookmark_; }
  bool mergedTableEntryOutputUseBookmark() const { return useBookmark_; }
  Rivy::Task* mergedTableEntryOutputReconciliationTask() const { return reconciliationTask_.get(); }

  bool synchronous() const { return synchronous_; }
  void synchronousIs(bool s) { synchronous_ = s; }
  bool initialScanDone() const { return initialScanDone_; }
  bool initialized() const { return initialized_; }
  void initializedIs(bool v) { initialized_ = v; }
  // The output equals the merge of the inputs and follows their changes.
  bool ready() const { return outputState_ && outputState_->ready(); }
  // Ready, and no second scan is left to start.
  bool idle() const;

  // Chooses the mode, prepares reconciliation and starts both input machines.
  void handleInitialized();
  // Both first scans have ended: start the second scans with the merge on.
  void handleInitialScanDone();
  // The reactor on the scan flags: readiness and reconciliation.
  void handleMergedTableEntryOutputInputReady();

  // An input changed at `tunnelId`; `entry` is what the input holds, when the
  // caller read it. The merge reads both inputs afresh and does not use it.
  void eventToRivy_stream0(TunnelId tunnelId, MplsMulticastTunnelTableEntry const* entry);
  void eventToRivy_stream1(TunnelId tunnelId, MplsMulticastTunnelTableEntry const* entry);
  // The merge rule for one key.
  void eventToRivy_pipeline0(TunnelId tunnelId);

  // Every input key goes down its stream as deleted (static first).
  void doDeleteAll();

  Zent::Ptr<InputSmScanState> inputSmScanStateFactory();
  Zent::Ptr<OutputState> outputStateFactory();
  Zent::Ptr<EntrySm0> entrySm0Factory();
  Zent::Ptr<EntrySm1> entrySm1Factory();
  void inputSmScanStateIs(Zent::Ptr<InputSmScanState> const& s);
  void inputSmScanStateDel() { inputSmScanStateIs(nullptr); }
  void outputStateIs(Zent::Ptr<OutputState> const& s) { outputState_ = s; }
  void outputStateDel() { outputState_ = nullptr; }
  void entrySm0Is(Zent::Ptr<EntrySm0> const& sm) { entrySm0_ = sm; }
  void entrySm0Del() { entrySm0_ = nullptr; }
  void entrySm1Is(Zent::Ptr<EntrySm1> const& sm) { entrySm1_ = sm; }
  void entrySm1Del() { entrySm1_ = nullptr; }
  void mergedTableEntryOutputSeenIs(MergedTableEntryOutputKeyType const& k) { seen_.insert(k); }
  void mergedTableEntryOutputSeenDel(MergedTableEntryOutputKeyType const& k) { seen_.erase(k); }
  void mergedTableEntryOutputSeenDelAll() { seen_.clear(); }
  void mergedTableEntryOutputReconciliationTaskIs(Rivy::TaskScheduler& scheduler, int priority,
                                                  std::string const& name);
  void mergedTableEntryOutputReconciliationTaskDel() { reconciliationTask_.reset(); }

  // Diagnostics: entries written and removed by the merge rule, and by the
  // reconciliation.
  uint64_t merges() const { return merges_; }
  uint64_t mergeDeletes() const { return mergeDeletes_; }
  uint64_t reconciledDeletes() const { return reconciledDeletes_; }

 private:
  class ScanStateReactor : public Zent::PtrInterface::NotifieeConst {
   public:
    explicit ScanStateReactor(MergedTunnelTableSm& sm) : sm_(sm) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;

   private:
    MergedTunnelTableSm& sm_;
  };

  // The reconciliation walk from the bookmark; stops when told to yield.
  void reconcileOutput();
  // Whether a walk in the caller's run should give the thread back.
  bool reconciliationShouldYield() const;

  Zent::Ptr<MldpTunnelTable const> mldpTable_;
  Zent::Ptr<StaticMcastTunnelTable const> staticTable_;
  Zent::Ptr<MplsMulticastTunnelTable> mergedTable_;
  Zent::Ptr<InputSmScanState> inputSmScanState_;
  Zent::Ptr<ScanStateReactor> scanStateReactor_;
  Zent::Ptr<OutputState> outputState_;
  Zent::Ptr<EntrySm1> entrySm1_;
  Zent::Ptr<EntrySm0> entrySm0_;
  bool reconciling_ = false;
  OutputKeySet seen_;
  MergedTableEntryOutputKeyType bookmark_;
  bool useBookmark_ = false;
  MplsMulticastTunnelTable::EntryMap::ScanCursor reconciliationCursor_;
  std::unique_ptr<Rivy::Task> reconciliationTask_;
  Rivy::SmControl control_;
  bool synchronous_ = false;
  Dabin::Facility* trace_;
  bool initialScanDone_ = false;
  bool initialized_ = false;
  uint64_t merges_ = 0;
  uint64_t mergeDeletes_ = 0;
  uint64_t reconciledDeletes_ = 0;
  // Reused by every merge: an entry is 65 KB.
  MplsMulticastTunnelTableEntry mldpScratch_;
  MplsMulticastTunnelTableEntry staticScratch_;
};

Zent::Ptr<MergedTunnelTableSm> mergedTunnelTableSmFactory(
    Zent::Ptr<MldpTunnelTable const> const& mldpTable,
    Zent::Ptr<StaticMcastTunnelTable const> const& staticTable,
    Zent::Ptr<MplsMulticastTunnelTable> const& mergedTable, Rivy::SmControl const& control);
inline Zent::Ptr<MergedTunnelTableSm> MergedTunnelTableSmIs(
    Zent::Ptr<MldpTunnelTable const> const& mldpTable,
    Zent::Ptr<StaticMcastTunnelTable const> const& staticTable,
    Zent::Ptr<MplsMulticastTunnelTable> const& mergedTable, Rivy::SmControl const& control) {
  return mergedTunnelTableSmFactory(mldpTable, staticTable, mergedTable, control);
}

}  // namespace Tunnel::TunnelTable
