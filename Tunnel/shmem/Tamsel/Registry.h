#pragma once
// The reader registry of a table: a small file that readers map read-write
// (the table itself they map read-only). Each reader owns one record, proven
// alive by an advisory lock on its byte of the table's lock file, and wakes up
// through a datagram socket in the abstract namespace named by its wake id.
// The writer reads the registry only to know whom to wake; it trusts nothing
// else in it.

#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

#include "Tunnel/shmem/Tamsel/Layout.h"
#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "Tunnel/shmem/Tamsel/Table.h"

namespace Tamsel {

class ReaderRegistry {
 public:
  ReaderRegistry() = default;
  ReaderRegistry(ReaderRegistry const&) = delete;
  ReaderRegistry& operator=(ReaderRegistry const&) = delete;
  ~ReaderRegistry();

  void open(TablePaths const& paths, bool create, FilePermissions const& perms);
  bool isOpen() const { return map_.base() != nullptr; }
  RegistryHeader* header() const { return reinterpret_cast<RegistryHeader*>(map_.base()); }

  // Reader side: claims a free record (one whose owner holds no lock) and
  // returns its index. Throws Error when all records are taken.
  uint32_t claim(int lockFd, uint64_t wakeId);
  void release(int lockFd, uint32_t slot);
  void asleepIs(uint32_t slot, bool asleep);

  // Writer side: takes the set of sleeping readers of one mask word, clearing it.
  uint64_t takeSleepers(uint32_t word);

 private:
  int fd_ = -1;
  Mapping map_;
};

// The writer's side of sleeping and waking: after publishing, the writer
// checks which readers sleep. A reader announces sleep, then re-reads the
// queue head. The two orderings meet through an asymmetric barrier: a writer
// registered for expedited barriers needs only a compiler barrier; the rarely
// sleeping reader pays for a process-wide barrier instead. Without kernel
// support the writer falls back to a full fence of its own.
bool registerAsymmetricWriter();
void writerPublishFence(bool asymmetric);
void readerSleepFence();

// The abstract-namespace address of a reader's wake-up socket.
sockaddr_un wakeAddress(uint64_t wakeId, socklen_t* len);

}  // namespace Tamsel
