#include "Tunnel/TunnelTable/TunnelTableBase.h"

namespace Tunnel::TunnelTable {

TunnelTableBase::TunnelTableBase(Zent::String const& name)
    : Entity(name),
      entryIsCounter_(counters().counterIs("entryIs")),
      entryDelCounter_(counters().counterIs("entryDel")),
      entryNotifyCounter_(counters().counterIs("entryNotify")),
      entryControl_(ZentTamsel::collectionControlFactory(name)) {}

TunnelTableBase::~TunnelTableBase() = default;

void TunnelTableBase::entryControlIs(Zent::Ptr<ZentTamsel::CollectionControl> const& c) {
  if (entryControl_ == c) return;
  entryControl_ = c;
  notify(kEntryControlId);
}

void TunnelTableBase::entryNotify(TunnelId const& key) {
  entryNotifyCounter_.inc();
  notify(kEntryId, key);
}

void TunnelTableBase::entryNotifyMountStatus() {
  auto const& core = entryCore();
  fmtrace(5, "mountStatus {} {}", core.mountDir(), ZentTamsel::stringValue(core.mountStatus()));
  if (entryControl_) {
    entryControl_->modeIs(core.mode());
    entryControl_->mountStatusIs(core.mountStatus());
  }
}

void TunnelTableBase::entryNotifyQuiesced(bool quiesced) {
  if (entryControl_) entryControl_->quiescedIs(quiesced);
}

void TunnelTableBase::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info) {
  Tamsel::FilePermissions perms;
  perms.mode = info.fileMode();
  if (info.fileGroup() >= 0) perms.group = static_cast<gid_t>(info.fileGroup());
  entryCore().mount(dir, "entry", info.mountType(), perms);
}

void TunnelTableBase::tamselUnmount() { entryCore().unmount(); }

void TunnelTableBase::handleParent() {
  if (!parent()) entryCore().orphan();
}

void TunnelTableBase::corruptionDetected(std::string const& message) {
  entryCore().doCorruptionDetected(message);
  Dabin::fatal(__FILE__, __func__, __LINE__, "in no man's land");
}

void TunnelTableBase::NotifieeConst::onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) {
  switch (id) {
    case kEntryId:
      entryNotify(key.as<TunnelId>());
      break;
    case kEntryControlId:
      handleEntryControl();
      break;
    case kTableTypeId:
      handleTableType();
      break;
    case kTunnelTableIdId:
      handleTunnelTableId();
      break;
    default:
      break;
  }
}

}  // namespace Tunnel::TunnelTable
