#include "Tunnel/TunnelTable/TunnelTableBase.h"

#include <cstring>

namespace Tunnel::TunnelTable {

TunnelTableBase::TunnelTableBase(Zent::String const& name)
    : Entity(name),
      counters_(name.stringValue()),
      entryControl_(ZentTamsel::collectionControlFactory(name)) {}

TunnelTableBase::~TunnelTableBase() = default;

void TunnelTableBase::entryControlIs(Zent::Ptr<ZentTamsel::CollectionControl> const& c) {
  if (entryControl_ == c) return;
  entryControl_ = c;
  notify(kEntryControlId);
}

void TunnelTableBase::tamselMount(std::string const& dir, ZentTamsel::MountInfo const& info,
                                  ZentTamsel::MountRegistry& registry) {
  entryCore().mount(dir, "entry", info, registry);
}

void TunnelTableBase::tamselUnmount() { entryCore().unmount(); }

void TunnelTableBase::handleParent() {
  if (!parent()) entryCore().orphan();
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
