#pragma once
// What this process has mounted: the entities held for their mount paths (as
// the state database would hold them), and the readers whose notifications
// an event loop dispatches.

#include <map>
#include <string>
#include <vector>

#include "Tunnel/framework/Entity.h"

namespace ZentTamsel {

class TamselMapCore;

class MountRegistry {
 public:
  static MountRegistry& instance();

  void readerIs(TamselMapCore* core, bool present);
  std::vector<TamselMapCore*> const& readers() const { return readers_; }
  // Waits up to `timeoutMs` for any reader's fd (-1: forever, 0: no wait) and
  // dispatches every reader that has news. Returns notifications delivered.
  size_t dispatchAll(int timeoutMs);

  void mountedIs(std::string const& dir, Zent::Ptr<Zent::Entity> const& e);
  // Removes and returns every entity mounted at `dir`.
  std::vector<Zent::Ptr<Zent::Entity>> unmountedIs(std::string const& dir);
  size_t mounts() const { return mounted_.size(); }

 private:
  std::vector<TamselMapCore*> readers_;
  std::multimap<std::string, Zent::Ptr<Zent::Entity>> mounted_;
};

}  // namespace ZentTamsel
