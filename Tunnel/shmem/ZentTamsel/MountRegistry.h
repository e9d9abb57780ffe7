#pragma once
// What an agent has mounted: the entities held for their mount paths (as the
// state database would hold them), and the readers whose notifications its
// event loop dispatches. The agent owns one and hands it to its mounts.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Tunnel/framework/Entity.h"

namespace ZentTamsel {

// Anything whose news arrives on a pollable fd and is handed out by
// dispatch(): a table reader, a value-store shadow.
class DispatchSource {
 public:
  virtual ~DispatchSource() = default;
  virtual int fd() const = 0;
  virtual size_t dispatch(size_t max = SIZE_MAX) = 0;
  // The registry it joined is going away.
  virtual void registryGone() = 0;
};

class MountRegistry {
 public:
  MountRegistry() = default;
  // Releases what is still mounted; readers that outlive it stop reporting.
  ~MountRegistry();
  MountRegistry(MountRegistry const&) = delete;
  MountRegistry& operator=(MountRegistry const&) = delete;

  void readerIs(DispatchSource* source, bool present);
  // Waits up to `timeoutMs` for any reader's fd (-1: forever, 0: no wait) and
  // dispatches every reader that has news. Returns notifications delivered.
  size_t dispatchAll(int timeoutMs);

  void mountedIs(std::string const& dir, Zent::Ptr<Zent::Entity> const& e);
  // Removes and returns every entity mounted at `dir`.
  std::vector<Zent::Ptr<Zent::Entity>> unmountedIs(std::string const& dir);

 private:
  std::vector<DispatchSource*> readers_;
  std::multimap<std::string, Zent::Ptr<Zent::Entity>> mounted_;
};

}  // namespace ZentTamsel
