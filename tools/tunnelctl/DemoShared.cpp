#include "tools/tunnelctl/DemoShared.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <sys/mman.h>

#include <fmt/format.h>

#include "tools/tunnelctl/CtlCommon.h"

namespace TunnelCtl::Demo {

static_assert(std::atomic<uint64_t>::is_always_lock_free &&
                  std::atomic<int64_t>::is_always_lock_free,
              "shared counters must be lock-free to work across processes");

const char* phaseText(Phase p) {
  switch (p) {
    case Phase::starting:
      return "starting";
    case Phase::waiting:
      return "waiting";
    case Phase::loading:
      return "loading";
    case Phase::loaded:
      return "loaded";
    case Phase::churning:
      return "churning";
    case Phase::finished:
      return "finished";
    case Phase::following:
      return "following";
    case Phase::settling:
      return "settling";
    case Phase::verifying:
      return "verifying";
    case Phase::done:
      return "done";
    case Phase::failed:
      return "failed";
  }
  return "?";
}

void ProcStatus::fail(const char* text) {
  std::strncpy(message, text, sizeof(message) - 1);
  phaseIs(Phase::failed);
}

SharedRegion::SharedRegion(uint32_t tunnels) : tunnels_(tunnels) {
  size_t stamps = static_cast<size_t>(kProducers) * (tunnels_ + 1);
  size_t headerBytes = (sizeof(SharedHeader) + 63) / 64 * 64;
  size_ = headerBytes + stamps * sizeof(std::atomic<int64_t>);
  base_ = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (base_ == MAP_FAILED) {
    base_ = nullptr;
    throw CtlError(fmt::format("cannot map {} bytes of shared memory for the demo: {}", size_,
                               std::strerror(errno)));
  }
  header_ = ::new (base_) SharedHeader();
  stamps_ = reinterpret_cast<std::atomic<int64_t>*>(static_cast<char*>(base_) + headerBytes);
  for (size_t i = 0; i < stamps; ++i) ::new (&stamps_[i]) std::atomic<int64_t>(0);
}

SharedRegion::~SharedRegion() {
  if (base_) ::munmap(base_, size_);
}

int64_t nowNs() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec;
}

bool producersIn(SharedHeader const& h, Phase p) {
  for (int i = 0; i < kProducers; ++i) {
    if (h.proc[i].phaseNow() != p) return false;
  }
  return true;
}

bool shouldStop(SharedHeader const& h) {
  for (auto const& p : h.proc) {
    if (p.phaseNow() == Phase::failed) return true;
  }
  return h.shutdown.load() != 0;
}

}  // namespace TunnelCtl::Demo
