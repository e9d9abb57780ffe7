#include "Tunnel/framework/Entity.h"

#include <algorithm>

namespace Zent {

void NotifieeList::newMember(Notifiee* n) {
  if (std::find(members_.begin(), members_.end(), n) == members_.end()) members_.push_back(n);
}

void NotifieeList::deleteMember(Notifiee* n) {
  auto it = std::find(members_.begin(), members_.end(), n);
  if (it == members_.end()) return;
  if (visiting_) {
    *it = nullptr;
    holes_ = true;
  } else {
    members_.erase(it);
  }
}

size_t NotifieeList::members() const {
  return static_cast<size_t>(
      std::count_if(members_.begin(), members_.end(), [](Notifiee* n) { return n != nullptr; }));
}

void NotifieeList::visit(AttributeId id, KeyRef const& key) const {
  ++visiting_;
  // Reactors added during the visit wait for the next change.
  size_t const n = members_.size();
  for (size_t i = 0; i < n; ++i) {
    Notifiee* r = members_[i];
    if (r && r->hasNotificationActive()) r->onAttribute(id, key);
  }
  if (--visiting_ == 0 && holes_) {
    members_.erase(std::remove(members_.begin(), members_.end(), nullptr), members_.end());
    holes_ = false;
  }
}

Entity::Entity(String name) : name_(std::move(name)) {}

Entity::~Entity() = default;

void Entity::parentIs(Entity* p) {
  if (parent_ == p) return;
  parent_ = p;
  handleParent();
}

void Entity::notify(AttributeId id) const { notifyKey(id, KeyRef()); }

void Entity::notifyKey(AttributeId id, KeyRef const& key) const {
  if (!notificationActive_ || notifieeList_.members() == 0) return;
  // A reactor may drop the last outside reference while it runs.
  Ptr<Entity const> keep(references() ? this : nullptr);
  notifieeList_.visit(id, key);
}

PtrInterface::NotifieeConst::~NotifieeConst() { notifierIs(nullptr); }

void PtrInterface::NotifieeConst::notifierIs(Entity const* e) {
  if (notifier_.ptr() == e) return;
  if (notifier_ && listed_) notifier_->notifieeList().deleteMember(this);
  listed_ = false;
  notifier_ = Ptr<Entity const>(e);
  if (notifier_ && registered_) {
    notifier_->notifieeList().newMember(this);
    listed_ = true;
  }
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool on) {
  registered_ = on;
  if (!notifier_) return;
  if (on && !listed_) {
    notifier_->notifieeList().newMember(this);
    listed_ = true;
  } else if (!on && listed_) {
    notifier_->notifieeList().deleteMember(this);
    listed_ = false;
  }
}

void PtrInterface::NotifieeConst::onAttribute(AttributeId, KeyRef const&) {}

}  // namespace Zent
