#include "Tunnel/multicast/MergedTunnelTableSm.h"

#include <fmt/format.h>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

namespace {

// The machine's trace output, named after the program it follows.
Dabin::Facility mergeTrace{MergedTunnelTableSm::kSmName};

constexpr int kTraceLevel = 8;

}  // namespace

#define smtrace(...) fmtraceTo(*trace_, kTraceLevel, __VA_ARGS__)

namespace RivoCode::MergedTunnelTableSm {

#define entrytrace(...) fmtraceTo(mergeTrace, kTraceLevel, __VA_ARGS__)

template <typename Table, int Stream>
EntrySm<Table, Stream>::EntrySm(::Tunnel::TunnelTable::MergedTunnelTableSm& parent,
                                Zent::Ptr<Table const> table, Rivy::SmControl const& control)
    : InputStateMachine(control, kTaskName), parent_(parent), table_(std::move(table)) {
  synchronousIs(parent.synchronous());
  en_ = Zent::Ptr<Reactor>(Zent::newTracked<Reactor>(*this));
  en_->notifierIs(table_.ptr());
}

template <typename Table, int Stream>
EntrySm<Table, Stream>::~EntrySm() {
  if (en_) en_->notifierIs(nullptr);
}

template <typename Table, int Stream>
void EntrySm<Table, Stream>::streamEvent(TunnelId key) {
  // The merge reads both inputs afresh, so no entry is read here to pass
  // along: it would be the same read twice, a third of the merge's cost.
  if constexpr (Stream == 0) {
    parent_.eventToRivy_stream0(key, nullptr);
  } else {
    parent_.eventToRivy_stream1(key, nullptr);
  }
}

template <typename Table, int Stream>
void EntrySm<Table, Stream>::handleEntry(TunnelId key) {
  entrytrace("{}::handleEntry k: {}", kName, key);
  if (parent_.initialScanDone()) streamEvent(key);
}

template <typename Table, int Stream>
void EntrySm<Table, Stream>::doInputScan() {
  if (inputScanComplete()) return;
  fmassert(en() && "Sm args can only be null if marked as Optional in the SM type declaration");
  if (scanState() != Rivy::Gen::ScanState::resuming) {
    cursor_ = {};
    scanned_ = 0;
  }
  uint64_t visited = 0;
  bool yield = false;
  TunnelId next;
  bool const ended = table_->entryScan(cursor_, next, [&](TunnelId const& key) {
    handleEntry(key);
    ++visited;
    yield = shouldYield();
    return !yield;
  });
  scanned_ += visited;
  if (!ended) {
    uint64_t const count = table_->entryCount();
    uint64_t const remaining = count > scanned_ ? count - scanned_ : 0;
    scanYielded(next, visited, remaining);
    entrytrace("{} {} yielding after {} iterations ({} remaining)", "doInputScan", kName, visited,
               remaining);
    return;
  }
  scanComplete(visited);
}

template <typename Table, int Stream>
void EntrySm<Table, Stream>::scanComplete(uint64_t visited) {
  bool const parentDone = parent_.initialScanDone();
  scanEnded(parentDone, visited);
  scanned_ = 0;
  auto* flags = parent_.inputSmScanState();
  if (flags) {
    if constexpr (Stream == 0) {
      flags->rivy_stream0ScanIs(true);
    } else {
      flags->rivy_stream1ScanIs(true);
    }
  }
  entrytrace("{} {} scan, and parent scan, complete.", "doInputScan",
             parentDone ? std::string(kName) : std::string(kName) + " initial");
}

template <typename Table, int Stream>
void EntrySm<Table, Stream>::doDeleteAll() {
  // An input detached from its table (its enclosing entity deleted) may have
  // changed unseen: what it held can no longer be walked.
  if (table_->entryCore().mountStatus() == ZentTamsel::MountStatus::unmounted) {
    Dabin::assertFailed(
        "\"We missed notifications that happened to entry before the enclosing entity got "
        "deleted\" == nullptr",
        __FILE__, __func__, __LINE__);
  }
  TunnelId next;
  typename Table::ScanCursor cursor;
  table_->entryScan(cursor, next, [&](TunnelId const& key) {
    streamEvent(key);
    return true;
  });
}

template class EntrySm<MldpTunnelTable, 0>;
template class EntrySm<StaticMcastTunnelTable, 1>;

#undef entrytrace

}  // namespace RivoCode::MergedTunnelTableSm

// ---- MergedTableEntryOutputKeyType ----

uint32_t MergedTunnelTableSm::MergedTableEntryOutputKeyType::hash(uint32_t seed) const {
  uint8_t const valid = k0Valid_ ? 1 : 0;
  return Zent::hashBytes(&valid, 1, k0_.hash(seed));
}

std::string MergedTunnelTableSm::MergedTableEntryOutputKeyType::stringValue() const {
  return Zent::ValueText(kTypeName).field("k0", k0_).field("k0Valid", k0Valid_).str();
}

// ---- MergedTunnelTableSm ----

MergedTunnelTableSm::MergedTunnelTableSm(Zent::Ptr<MldpTunnelTable const> mldp,
                                         Zent::Ptr<StaticMcastTunnelTable const> statics,
                                         Zent::Ptr<MplsMulticastTunnelTable> merged,
                                         Rivy::SmControl const& control)
    : mldpTable_(std::move(mldp)),
      staticTable_(std::move(statics)),
      mergedTable_(std::move(merged)),
      control_(control),
      trace_(&mergeTrace) {
  fmassert(mldpTable() && "Pointer SM args cannot be null unless they are marked Optional");
  fmassert(staticTable() && "Pointer SM args cannot be null unless they are marked Optional");
  fmassert(mergedTable() && "Pointer SM args cannot be null unless they are marked Optional");
}

MergedTunnelTableSm::~MergedTunnelTableSm() {
  // Input machines first: their tasks and reactors go before the state they report to.
  entrySm0Del();
  entrySm1Del();
  inputSmScanStateDel();
  outputStateDel();
  mergedTableEntryOutputReconciliationTaskDel();
}

bool MergedTunnelTableSm::idle() const {
  return ready() && (synchronous_ || (inputSmScanState_ && inputSmScanState_->idle()));
}

void MergedTunnelTableSm::ScanStateReactor::onAttribute(Zent::AttributeId id, Zent::KeyRef const&) {
  if (id == InputSmScanState::kRivy_stream0ScanId || id == InputSmScanState::kRivy_stream1ScanId) {
    sm_.handleMergedTableEntryOutputInputReady();
  }
}

Zent::Ptr<MergedTunnelTableSm::InputSmScanState> MergedTunnelTableSm::inputSmScanStateFactory() {
  return Zent::newEntity<InputSmScanState>(Zent::String(InputSmScanState::kTypeName));
}

Zent::Ptr<MergedTunnelTableSm::OutputState> MergedTunnelTableSm::outputStateFactory() {
  return Zent::newEntity<OutputState>(Zent::String(OutputState::kTypeName));
}

Zent::Ptr<MergedTunnelTableSm::EntrySm0> MergedTunnelTableSm::entrySm0Factory() {
  return Zent::Ptr<EntrySm0>(Zent::newTracked<EntrySm0>(*this, mldpTable_, control_));
}

Zent::Ptr<MergedTunnelTableSm::EntrySm1> MergedTunnelTableSm::entrySm1Factory() {
  return Zent::Ptr<EntrySm1>(Zent::newTracked<EntrySm1>(*this, staticTable_, control_));
}

void MergedTunnelTableSm::inputSmScanStateIs(Zent::Ptr<InputSmScanState> const& s) {
  if (scanStateReactor_) scanStateReactor_->notifierIs(nullptr);
  inputSmScanState_ = s;
  if (!s) return;
  if (!scanStateReactor_) {
    scanStateReactor_ = Zent::Ptr<ScanStateReactor>(Zent::newTracked<ScanStateReactor>(*this));
  }
  scanStateReactor_->notifierIs(s.ptr());
}

void MergedTunnelTableSm::mergedTableEntryOutputReconciliationTaskIs(Rivy::TaskScheduler& scheduler,
                                                                     int priority,
                                                                     std::string const& name) {
  reconciliationTask_ =
      std::make_unique<Rivy::Task>(scheduler, name, priority, [this] { reconcileOutput(); });
  reconciliationTask_->yieldTimeIs(control_.yieldTime);
}

void MergedTunnelTableSm::handleInitialized() {
  synchronous_ = control_.synchronousFrom(synchronous_);
  if (mergedTable_->entryCount() != 0) {
    reconciling_ = true;
    if (!synchronous_ && control_.taskScheduler) {
      mergedTableEntryOutputReconciliationTaskIs(*control_.taskScheduler, control_.taskPriority,
                                                 kReconciliationTaskName);
    }
    // Every key the merge writes is recorded; sized once, the set never
    // rehashes inside a run.
    seen_.reserve(mergedTable_->entryCount() + mldpTable_->entryCount() +
                  staticTable_->entryCount());
    smtrace("Reconciling mergedTableEntryOutput: {:}", mergedTable_->entryCount());
  } else {
    reconciling_ = false;
  }
  // The output will hold about as many keys as both inputs: growing its index
  // now keeps a rebuild out of the scans' runs.
  mergedTable_->entryReserve(mldpTable_->entryCount() + staticTable_->entryCount());
  inputSmScanStateIs(inputSmScanStateFactory());
  outputStateIs(outputStateFactory());
  smtrace("create local SMs");
  smtrace("create non-public arg SMs");
  entrySm1Is(entrySm1Factory());
  entrySm1_->handleInitialized();
  entrySm0Is(entrySm0Factory());
  entrySm0_->handleInitialized();
  initializedIs(true);
  // A synchronous machine finished both first scans above, before it was
  // initialized, so their flags found the reactor not yet willing: look again.
  handleMergedTableEntryOutputInputReady();
}

void MergedTunnelTableSm::handleInitialScanDone() {
  if (initialScanDone_) return;
  if (!inputSmScanState_->rivy_stream0Scan()) {
    smtrace(" rivy_stream0 scan is false");
    return;
  }
  if (!inputSmScanState_->rivy_stream1Scan()) {
    smtrace(" rivy_stream1 scan is false");
    return;
  }
  if (!entrySm0_ || !entrySm1_) {
    smtrace("{}: Initial scan done for child SM MergedTunnelTableSm.", kSmName);
    return;
  }
  smtrace("{}:Initial scan done for child SMs. Now scanning with events triggered.", kSmName);
  initialScanDone_ = true;
  inputSmScanState_->rivy_stream0ScanIs(false);
  inputSmScanState_->rivy_stream1ScanIs(false);
  // Static first, as at initialization. rescan() runs the scan here unless
  // the machine's task is scheduled or running, which then runs it.
  if (synchronous_) {
    entrySm1_->doInputScan();
    if (entrySm0_) entrySm0_->doInputScan();
  } else {
    entrySm1_->rescan();
    if (entrySm0_) entrySm0_->rescan();
  }
  if (inputSmScanState_) inputSmScanState_->handleIdle();
  handleMergedTableEntryOutputInputReady();
}

void MergedTunnelTableSm::handleMergedTableEntryOutputInputReady() {
  if (!initialized_) return;
  smtrace("handleMergedTableEntryOutputInputReady");
  if (outputState_->mergedTableEntryOutputReady()) {
    smtrace(" .. not reconciling.");
    return;
  }
  if (!inputSmScanState_->rivy_stream0Scan() || !inputSmScanState_->rivy_stream1Scan()) return;
  if (!initialScanDone_) {
    handleInitialScanDone();
    return;
  }
  smtrace("Input scans for mergedTableEntryOutput complete");
  if (!reconciling_) {
    outputState_->mergedTableEntryOutputReadyIs(true);
    return;
  }
  reconcileOutput();
}

bool MergedTunnelTableSm::reconciliationShouldYield() const {
  // The walk may start in the run of an input's scan task: it then yields on
  // that task's slice too, so no run holds the thread past its slice.
  if (synchronous_ || !reconciliationTask_) return false;
  return reconciliationTask_->scheduler().shouldYield();
}

void MergedTunnelTableSm::reconcileOutput() {
  if (!reconciling_) return;
  if (!useBookmark_) reconciliationCursor_ = {};
  uint64_t items = 0;
  uint64_t deletions = 0;
  TunnelId next;
  bool const ended = mergedTable_->entryScan(reconciliationCursor_, next, [&](TunnelId const& k) {
    if (!seen_.contains(MergedTableEntryOutputKeyType(k, true))) {
      mergedTable_->entryDel(k);
      ++deletions;
    }
    ++items;
    return !reconciliationShouldYield();
  });
  reconciledDeletes_ += deletions;
  if (!ended) {
    bookmark_ = MergedTableEntryOutputKeyType(next, true);
    useBookmark_ = true;
    smtrace(
        "Yielding in reconciliation processing after processing {} items, including {} "
        "deletions .",
        items, deletions);
    reconciliationTask_->workCountInc(items);
    reconciliationTask_->schedule();
    return;
  }
  smtrace(
      "Deletion scan for reconciliation is done, last task run processed {} items, deleting "
      "{} items.",
      items, deletions);
  if (reconciliationTask_) reconciliationTask_->workCountInc(items);
  mergedTableEntryOutputReconciliationTaskDel();  // safe from the task's own run
  bookmark_ = MergedTableEntryOutputKeyType();
  useBookmark_ = false;
  reconciling_ = false;
  mergedTableEntryOutputSeenDelAll();
  outputState_->mergedTableEntryOutputReadyIs(true);
}

void MergedTunnelTableSm::eventToRivy_stream0(TunnelId tunnelId,
                                              MplsMulticastTunnelTableEntry const*) {
  smtrace("Line 17: from( mldpTable.entry[] ): tunnelId={}", tunnelId);
  eventToRivy_pipeline0(tunnelId);
}

void MergedTunnelTableSm::eventToRivy_stream1(TunnelId tunnelId,
                                              MplsMulticastTunnelTableEntry const*) {
  smtrace("Line 17: from( staticTable.entry[] ): tunnelId={}", tunnelId);
  eventToRivy_pipeline0(tunnelId);
}

void MergedTunnelTableSm::eventToRivy_pipeline0(TunnelId tunnelId) {
  if (!initialScanDone_) return;
  smtrace("Line 17: merge( rivy_stream0, rivy_stream1 ): tunnelId={}", tunnelId);
  // A static entry wins whole, so MLDP is read only when there is none.
  MplsMulticastTunnelTableEntry const* value = nullptr;
  if (staticTable_->entry(tunnelId, staticScratch_)) {
    value = &staticScratch_;
  } else if (mldpTable_->entry(tunnelId, mldpScratch_)) {
    value = &mldpScratch_;
  }
  if (reconciling_) mergedTableEntryOutputSeenIs(MergedTableEntryOutputKeyType(tunnelId, true));
  if (!value) {
    smtrace("into( mergedTable.entry[ tunnelId ] ): deleting k1={}", tunnelId);
    mergedTable_->entryDel(tunnelId);
    ++mergeDeletes_;
    return;
  }
  smtrace("into( mergedTable.entry[ tunnelId ] ): inserting k1={}, value={}", tunnelId,
          value->stringValue());
  if (value->tunnelId() != tunnelId) {
    Dabin::assertFailed("value->tunnelId() == tunnelId", __FILE__, __func__, __LINE__,
                        fmt::format("In \"into( mergedTable.entry[ tunnelId ] )\" the value "
                                    "inserted in the into statement has internal key: {}, but "
                                    "the key specified in the into is: {}",
                                    value->tunnelId(), tunnelId));
  }
  mergedTable_->entryIs(*value);
  ++merges_;
}

void MergedTunnelTableSm::doDeleteAll() {
  if (entrySm1_) entrySm1_->doDeleteAll();
  if (entrySm0_) entrySm0_->doDeleteAll();
}

Zent::Ptr<MergedTunnelTableSm> mergedTunnelTableSmFactory(
    Zent::Ptr<MldpTunnelTable const> const& mldpTable,
    Zent::Ptr<StaticMcastTunnelTable const> const& staticTable,
    Zent::Ptr<MplsMulticastTunnelTable> const& mergedTable, Rivy::SmControl const& control) {
  return Zent::newEntity<MergedTunnelTableSm>(mldpTable, staticTable, mergedTable, control);
}

#undef smtrace

}  // namespace Tunnel::TunnelTable
