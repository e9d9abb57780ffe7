#include "Tunnel/multicast/MulticastMergeAgent.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/shmem/Tamsel/Reader.h"

namespace Tunnel::TunnelTable {

namespace {

Dabin::Facility agentTrace{"MulticastMergeAgent"};

#define agenttrace(level, ...) fmtraceTo(agentTrace, level, __VA_ARGS__)

Zent::String inputPath(TunnelTableIdentifier id) {
  return TunnelTableMounter::getMountInfo(id).tableInfo().mountPath();
}

template <typename Table>
void mountInput(TunnelTableMounter const& mounter, TunnelTableIdentifier id,
                Zent::Ptr<Table>& table) {
  if (table) return;
  try {
    table = Zent::dynamicPtrCast<Table>(mounter.mountKeyshadow(id));
    fmassert(table, "{} is not a {}", inputPath(id).view(), Table::kTypeName);
  } catch (Tamsel::Error const& e) {
    agenttrace(3, "waiting for {}: {}", inputPath(id).view(), e.what());
  }
}

}  // namespace

const char* multicastMergePhaseText(MulticastMergePhase p) {
  switch (p) {
    case MulticastMergePhase::waitingForInputs:
      return "waiting for inputs";
    case MulticastMergePhase::firstScan:
      return "first scan";
    case MulticastMergePhase::secondScan:
      return "second scan";
    case MulticastMergePhase::reconciling:
      return "reconciling";
    case MulticastMergePhase::ready:
      return "ready";
  }
  return "unknown";
}

std::optional<MulticastMergeStatus> readMulticastMergeStatus(std::string const& stateRoot) {
  std::string dir = stateRoot + "/" + MulticastMergeAgent::kStatusPath;
  std::optional<Tamsel::Reader> reader;
  try {
    reader.emplace(dir, MulticastMergeAgent::kStatusCollection,
                   static_cast<uint32_t>(sizeof(MulticastMergeStatusKey)),
                   Tamsel::Reader::Options{false, false});
  } catch (Tamsel::Error const& e) {
    if (e.errnoValue() == ENOENT) return std::nullopt;
    throw;
  }
  MulticastMergeStatus out;
  out.writerPid = reader->writerPid();
  out.writerAlive = reader->writerAlive();
  MulticastMergeStatusKey key;
  std::vector<char> buf;
  // A writer that has not published yet leaves the record absent: all zero.
  if (reader->readCopy(&key, key.hash(), buf)) {
    if (!ZentTamsel::FixedMarshaller<MulticastMergeStatusRecord>::valid(
            buf.data(), static_cast<uint32_t>(buf.size()))) {
      throw Tamsel::Error(fmt::format("{}/{}: malformed merge status record ({} bytes)", dir,
                                      MulticastMergeAgent::kStatusCollection, buf.size()),
                          EINVAL);
    }
    std::memcpy(static_cast<void*>(&out.record), buf.data(), sizeof out.record);
  }
  return out;
}

uint64_t multicastMergeDifferences(MplsMulticastTunnelTable const& mldp,
                                   MplsMulticastTunnelTable const& statics,
                                   MplsMulticastTunnelTable const& merged) {
  std::vector<TunnelId> keys;
  for (auto const* t : {&mldp, &statics, &merged}) {
    auto k = t->entryKeys(nullptr, SIZE_MAX);
    keys.insert(keys.end(), k.begin(), k.end());
  }
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  uint64_t differ = 0;
  MplsMulticastTunnelTableEntry want, have;
  for (TunnelId const& k : keys) {
    bool const expected = statics.entry(k, want) || mldp.entry(k, want);
    bool const present = merged.entry(k, have);
    if (expected != present || (expected && !(want == have))) ++differ;
  }
  return differ;
}

MulticastMergeAgent::MulticastMergeAgent(ZentTamsel::Mount const& mount, Rivy::EventLoop& loop,
                                         MulticastMergeOptions const& options)
    : mount_(mount), loop_(loop), options_(options) {
  init();
}

MulticastMergeAgent::MulticastMergeAgent(std::string const& stateRoot, Rivy::EventLoop& loop,
                                         MulticastMergeOptions const& options)
    : ownRegistry_(std::make_unique<ZentTamsel::MountRegistry>()),
      mount_(Zent::String(stateRoot), *ownRegistry_),
      loop_(loop),
      options_(options) {
  init();
}

void MulticastMergeAgent::init() {
  registerMountTypes();
  statusControl_ = ZentTamsel::collectionControlFactory(Zent::String("multicastMergeStatus"));
  status_ = std::make_unique<StatusCollection>(
      kStatusCollection,
      StatusCollection::shape(MulticastMergeStatusRecord::kTypeName, "status", 0),
      "multicastMergeStatus", counters_, statusControl_, [](MulticastMergeStatusKey const&) {});
  status_->mount(mount_.dir(Zent::String(kStatusPath)),
                 ZentTamsel::MountInfo(ZentTamsel::MountType::writer), *mount_.registry());
  merged_ = mountMplsMulticastTunnelTable(mount_, ZentTamsel::MountType::writer);
  fmassert(merged_, "{} does not hold an MPLS multicast table",
           mount_.dir(Zent::String(MplsMulticastTunnelTable::kMountPath)));
  statusRefresh();
  statusTimer_ = loop_.timerIs(
      options_.statusPeriod, [this] { statusRefresh(); }, options_.statusPeriod);
  mountInputs();
  if (!sm_) {
    retryTimer_ = loop_.timerIs(
        options_.inputRetry, [this] { mountInputs(); }, options_.inputRetry);
  }
}

MulticastMergeAgent::~MulticastMergeAgent() {
  if (retryTimer_) loop_.timerDel(retryTimer_);
  loop_.timerDel(statusTimer_);
  if (sm_) {
    loop_.fdDel(mldp_->entryCore().fd());
    loop_.fdDel(static_->entryCore().fd());
  }
  // The machine first: its reactors and tasks go before the tables.
  sm_ = nullptr;
  mldp_ = nullptr;
  static_ = nullptr;
  merged_ = nullptr;
  for (auto const& path : {inputPath(TunnelTableIdentifier::mldpTunnelTable),
                           inputPath(TunnelTableIdentifier::staticMcastTunnelTable),
                           Zent::String(MplsMulticastTunnelTable::kMountPath)}) {
    mount_.doUnmount(path);
  }
  status_.reset();
}

// An input that has no file yet is waited for rather than taken as empty:
// an empty input would let the reconciliation remove every output entry that
// a producer which is merely late (or restarting) still holds, and readers
// of the output would see its tunnels go and come back.
void MulticastMergeAgent::mountInputs() {
  TunnelTableMounter mounter(mount_);
  mountInput(mounter, TunnelTableIdentifier::mldpTunnelTable, mldp_);
  mountInput(mounter, TunnelTableIdentifier::staticMcastTunnelTable, static_);
  if (!mldp_ || !static_) return;
  if (retryTimer_) {
    loop_.timerDel(retryTimer_);  // a callback may remove its own timer
    retryTimer_ = 0;
  }
  start();
}

void MulticastMergeAgent::start() {
  Rivy::SmControl control;
  control.taskScheduler = &loop_.taskScheduler();
  control.taskPriority = options_.taskPriority;
  control.yieldTime = options_.yieldTime;
  control.synchronousMode = Rivy::SynchronousMode::asynchronous;
  sm_ = mergedTunnelTableSmFactory(mldp_, static_, merged_, control);
  // The reactors hear the inputs from the loop's dispatch of their readers;
  // a bounded turn each keeps one busy table from starving the tasks.
  for (ZentTamsel::TamselMapCore* core : {&mldp_->entryCore(), &static_->entryCore()}) {
    loop_.fdIs(core->fd(), [core, turn = options_.dispatchTurn] { core->dispatch(turn); });
  }
  sm_->handleInitialized();
  agenttrace(3, "merging into {} ({} entries there)", merged_->entryCore().mountDir(),
             merged_->entryCount());
  statusRefresh();
}

MulticastMergePhase MulticastMergeAgent::phase() const {
  if (!sm_) return MulticastMergePhase::waitingForInputs;
  if (sm_->ready()) return MulticastMergePhase::ready;
  if (!sm_->initialScanDone()) return MulticastMergePhase::firstScan;
  auto scanned = [](auto const* input) {
    return !input || input->scanState() == Rivy::Gen::ScanState::complete;
  };
  if (sm_->mergedTableEntryOutputReconciling() && scanned(sm_->entrySm0()) &&
      scanned(sm_->entrySm1())) {
    return MulticastMergePhase::reconciling;
  }
  return MulticastMergePhase::secondScan;
}

void MulticastMergeAgent::statusRefresh() {
  MulticastMergeStatusRecord r;
  r.phase = static_cast<uint32_t>(phase());
  if (sm_) {
    r.merges = sm_->merges();
    r.mergeDeletes = sm_->mergeDeletes();
    r.reconciledDeletes = sm_->reconciledDeletes();
  }
  r.mldpEntries = mldp_ ? mldp_->entryCount() : 0;
  r.staticEntries = static_ ? static_->entryCount() : 0;
  r.mergedEntries = merged_ ? merged_->entryCount() : 0;
  r.longestRunNs = loop_.taskScheduler().longestRun().count();
  r.yieldTimeNs = options_.yieldTime.count();
  if (publishedOnce_ && r == published_) return;
  status_->is(r);
  published_ = r;
  publishedOnce_ = true;
}

#undef agenttrace

}  // namespace Tunnel::TunnelTable
