#pragma once
// A reactor that hands each key a table notifies to a function: how watch
// prints changes and how the demo's consumer times its notifications.

#include <functional>
#include <utility>

#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/framework/Ptr.h"

namespace TunnelCtl {

class KeyReactor : public Tunnel::TunnelTable::TunnelTableBase::NotifieeConst {
 public:
  using Fn = std::function<void(Tunnel::TunnelTable::TunnelId const&)>;

  // Attached to `table` until the returned pointer's reactor is detached or
  // destroyed.
  static Zent::Ptr<KeyReactor> attach(Tunnel::TunnelTable::TunnelTableBase const* table, Fn fn) {
    Zent::Ptr<KeyReactor> r(Zent::newTracked<KeyReactor>(std::move(fn)));
    r->notifierIs(table);
    return r;
  }
  explicit KeyReactor(Fn fn) : fn_(std::move(fn)) {}
  void entryNotify(Tunnel::TunnelTable::TunnelId const& key) override { fn_(key); }

 private:
  Fn fn_;
};

}  // namespace TunnelCtl
