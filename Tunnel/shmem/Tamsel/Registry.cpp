#include "Tunnel/shmem/Tamsel/Registry.h"

#include <atomic>
#include <cstring>
#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Tunnel/shmem/Tamsel/Atomic.h"

namespace Tamsel {

ReaderRegistry::~ReaderRegistry() {
  map_.unmap();
  if (fd_ >= 0) ::close(fd_);
}

void ReaderRegistry::open(TablePaths const& paths, bool create, FilePermissions const& perms) {
  fd_ =
      create ? openOwnedFile(paths.registry, true, perms) : openExistingFile(paths.registry, true);
  // The writer, which holds the table's lock, makes the registry whole: an
  // earlier writer may have died while creating it, before its magic.
  if (create && fileSize(fd_, paths.registry) < sizeof(RegistryHeader)) {
    reserveSpace(fd_, paths.registry, sizeof(RegistryHeader));
  }
  if (fileSize(fd_, paths.registry) < sizeof(RegistryHeader)) {
    throw Error(fmt::format("{} is truncated", paths.registry), EINVAL);
  }
  map_.map(fd_, paths.registry, sizeof(RegistryHeader), true);
  auto* h = header();
  bool valid = loadAcquire(h->magic) == kRegistryMagic && h->maxReaders == kMaxReaders;
  if (!valid && create) {
    std::memset(static_cast<void*>(h), 0, sizeof(RegistryHeader));
    h->maxReaders = kMaxReaders;
    storeRelease(h->magic, kRegistryMagic);
  } else if (!valid) {
    throw Error(fmt::format("{} is not a reader registry", paths.registry), EINVAL);
  }
}

uint32_t ReaderRegistry::claim(int lockFd, uint64_t wakeId) {
  auto* h = header();
  for (uint32_t i = 0; i < kMaxReaders; ++i) {
    if (!tryLockByte(lockFd, 1 + i)) continue;
    ReaderSlot& s = h->readers[i];
    storeRelaxed(s.pid, static_cast<uint32_t>(::getpid()));
    storeRelaxed(s.position, uint64_t{0});
    storeRelaxed(s.wakeId, wakeId);
    storeRelease(s.inUse, 1u);
    return i;
  }
  throw Error(fmt::format("table has {} readers already; no room for another", kMaxReaders), EBUSY);
}

void ReaderRegistry::release(int lockFd, uint32_t slot) {
  auto* h = header();
  asleepIs(slot, false);
  storeRelease(h->readers[slot].inUse, 0u);
  unlockByte(lockFd, 1 + slot);
}

void ReaderRegistry::asleepIs(uint32_t slot, bool asleep) {
  std::atomic_ref<uint64_t> word(header()->asleepMask[slot / 64]);
  uint64_t bit = uint64_t{1} << (slot % 64);
  if (asleep) {
    word.fetch_or(bit, std::memory_order_seq_cst);
  } else {
    word.fetch_and(~bit, std::memory_order_seq_cst);
  }
}

uint64_t ReaderRegistry::takeSleepers(uint32_t word) {
  std::atomic_ref<uint64_t> w(header()->asleepMask[word]);
  if (w.load(std::memory_order_seq_cst) == 0) return 0;
  return w.exchange(0, std::memory_order_seq_cst);
}

bool registerAsymmetricWriter() {
  return ::syscall(__NR_membarrier, MEMBARRIER_CMD_REGISTER_GLOBAL_EXPEDITED, 0, 0) == 0;
}

void writerPublishFence(bool asymmetric) {
  if (asymmetric) {
    std::atomic_signal_fence(std::memory_order_seq_cst);
  } else {
    std::atomic_thread_fence(std::memory_order_seq_cst);
  }
}

void readerSleepFence() {
  std::atomic_thread_fence(std::memory_order_seq_cst);
  // Every registered writer that is running executes a full barrier before
  // this returns, so its last publication is visible to the re-check.
  (void)::syscall(__NR_membarrier, MEMBARRIER_CMD_GLOBAL_EXPEDITED, 0, 0);
}

sockaddr_un wakeAddress(uint64_t wakeId, socklen_t* len) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  std::string name = fmt::format("tamsel.{:016x}", wakeId);
  a.sun_path[0] = '\0';
  std::memcpy(a.sun_path + 1, name.data(), name.size());
  *len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  return a;
}

}  // namespace Tamsel
