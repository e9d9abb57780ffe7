#pragma once
// What an agent has mounted: the entities held for their mount paths (as the
// state database would hold them), and the readers whose notifications its
// event loop dispatches. The agent owns one and hands it to its mounts.

#include <map>
#include <string>
#include <vector>

#include "Tunnel/framework/Entity.h"

namespace ZentTamsel {

class TamselMapCore;

class MountRegistry {
 public:
  MountRegistry() = default;
  // Releases what is still mounted; readers that outlive it stop reporting.
  ~MountRegistry();
  MountRegistry(MountRegistry const&) = delete;
  MountRegistry& operator=(MountRegistry const&) = delete;

  void readerIs(TamselMapCore* core, bool present);
  // Waits up to `timeoutMs` for any reader's fd (-1: forever, 0: no wait) and
  // dispatches every reader that has news. Returns notifications delivered.
  size_t dispatchAll(int timeoutMs);

  void mountedIs(std::string const& dir, Zent::Ptr<Zent::Entity> const& e);
  // Removes and returns every entity mounted at `dir`.
  std::vector<Zent::Ptr<Zent::Entity>> unmountedIs(std::string const& dir);

 private:
  std::vector<TamselMapCore*> readers_;
  std::multimap<std::string, Zent::Ptr<Zent::Entity>> mounted_;
};

}  // namespace ZentTamsel
