#include "Tunnel/TunnelTable/TunnelTableBase.h"

#include <cstring>

namespace Tunnel::TunnelTable {

TunnelTableBase::TunnelTableBase(Zent::String const& name)
    : Entity(name),
      counters_(name.stringValue()),
      entryIsCounter_(counters_.counterIs("entryIs")),
      entryDelCounter_(counters_.counterIs("entryDel")),
      entryNotifyCounter_(counters_.counterIs("entryNotify")),
      entryControl_(ZentTamsel::collectionControlFactory(name)) {}

TunnelTableBase::~TunnelTableBase() = default;

void TunnelTableBase::entryControlIs(Zent::Ptr<ZentTamsel::CollectionControl> const& c) {
  if (entryControl_ == c) return;
  entryControl_ = c;
  notify(kEntryControlId);
}

void TunnelTableBase::keyChanged(void const* key) {
  TunnelId k;
  std::memcpy(static_cast<void*>(&k), key, sizeof k);
  if (entryCore().mode() == ZentTamsel::MountType::valueShadow) entryShadowRefresh(&k);
  entryNotify(k);
}

void TunnelTableBase::resynchronised(bool overflow) {
  fmtrace(5, "{} resynchronised overflow:{}", name().view(), overflow);
  entryShadowRefresh(nullptr);
}

void TunnelTableBase::mountStatusChanged() {
  auto const& core = entryCore();
  fmtrace(5, "mountStatus {} {}", core.mountDir(), ZentTamsel::stringValue(core.mountStatus()));
  entryShadowRefresh(nullptr);
  if (entryControl_) {
    entryControl_->modeIs(core.mode());
    entryControl_->mountStatusIs(core.mountStatus());
  }
}

void TunnelTableBase::quiescedChanged(bool quiesced) {
  if (entryControl_) entryControl_->quiescedIs(quiesced);
}

void TunnelTableBase::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                                  ZentTamsel::MountRegistry& registry) {
  entryCore().mount(dir, "entry", info, registry);
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
