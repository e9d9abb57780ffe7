#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"

#include <algorithm>
#include <poll.h>

namespace ZentTamsel {

MountRegistry::~MountRegistry() {
  // Entities released here unmount and leave readers_ while it is intact.
  auto mounted = std::move(mounted_);
  mounted.clear();
  for (auto* c : readers_) c->registryGone();
}

void MountRegistry::readerIs(DispatchSource* source, bool present) {
  auto it = std::find(readers_.begin(), readers_.end(), source);
  if (present && it == readers_.end()) readers_.push_back(source);
  if (!present && it != readers_.end()) readers_.erase(it);
}

size_t MountRegistry::dispatchAll(int timeoutMs) {
  std::vector<pollfd> fds;
  std::vector<DispatchSource*> cores = readers_;
  for (auto* c : cores) fds.push_back({c->fd(), POLLIN, 0});
  if (fds.empty()) return 0;
  if (::poll(fds.data(), fds.size(), timeoutMs) <= 0) return 0;
  size_t n = 0;
  for (size_t i = 0; i < fds.size(); ++i) {
    // A callback may have unmounted a later reader.
    if (fds[i].revents && std::find(readers_.begin(), readers_.end(), cores[i]) != readers_.end()) {
      n += cores[i]->dispatch();
    }
  }
  return n;
}

void MountRegistry::mountedIs(std::string const& dir, Zent::Ptr<Zent::Entity> const& e) {
  mounted_.emplace(dir, e);
}

std::vector<Zent::Ptr<Zent::Entity>> MountRegistry::unmountedIs(std::string const& dir) {
  std::vector<Zent::Ptr<Zent::Entity>> out;
  auto [b, e] = mounted_.equal_range(dir);
  for (auto it = b; it != e; ++it) out.push_back(it->second);
  mounted_.erase(b, e);
  return out;
}

}  // namespace ZentTamsel
