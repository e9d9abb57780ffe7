#pragma once
// Files and mappings under a state root: created with exact permissions
// whatever the umask, refusing symbolic links and files of other users, with
// space reserved before use so a full file system is an error, not a SIGBUS.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <sys/types.h>

namespace Tamsel {

// Failures of the environment: what failed and where.
class Error : public std::runtime_error {
 public:
  Error(std::string const& message, int err = 0) : std::runtime_error(message), errno_(err) {}
  int errnoValue() const { return errno_; }

 private:
  int errno_;
};

struct FilePermissions {
  mode_t mode = 0600;
  gid_t group = static_cast<gid_t>(-1);  // -1 keeps the creator's group
};

// Creates `dir` and its parents; directories get the file mode plus search
// permission where the file mode grants read.
void makeDirs(std::string const& dir, FilePermissions const& perms);

// Opens `path` read-write, creating it when `create` is set. Refuses a symbolic
// link, anything but a regular file, and a file owned by another user.
int openOwnedFile(std::string const& path, bool create, FilePermissions const& perms,
                  bool* created = nullptr);

// Opens an existing regular file; refuses symbolic links.
int openExistingFile(std::string const& path, bool writable);

uint64_t fileSize(int fd, std::string const& path);

// Makes the file at least `size` bytes long with the space allocated.
void reserveSpace(int fd, std::string const& path, uint64_t size);

// A shared mapping of a file that grows in place: the address range is
// reserved once, so the base never moves and pointers into the mapping stay
// valid while the file grows.
class Mapping {
 public:
  static constexpr uint64_t kReserve = uint64_t{1} << 36;  // 64 GiB of address space
  static constexpr uint64_t kHugePage = uint64_t{1} << 21;

  Mapping() = default;
  Mapping(Mapping const&) = delete;
  Mapping& operator=(Mapping const&) = delete;
  ~Mapping();

  void map(int fd, std::string const& path, uint64_t size, bool writable);
  // Follows the file to a new, larger size; the base stays where it is.
  void remap(uint64_t size);
  // Maps the pages of [0, end) now rather than at first touch. Readers touch
  // records at random, and a fault per first touch costs more than the
  // record; the tail past the data is left to fault when the data reaches it.
  void populate(uint64_t end);
  void unmap();

  char* base() const { return base_; }
  uint64_t size() const { return size_; }
  bool writable() const { return writable_; }

 private:
  char* base_ = nullptr;
  uint64_t size_ = 0;
  uint64_t reserved_ = 0;
  uint64_t populated_ = 0;
  bool writable_ = false;
  int fd_ = -1;
  std::string path_;
};

// The advisory locks of a table: byte 0 is the writer's, bytes 1..N the
// readers'. Open-file-description locks: released by the kernel when the
// holder dies, and distinct per open even within one process.
bool tryLockByte(int fd, uint64_t byte);
void unlockByte(int fd, uint64_t byte);
bool byteLocked(int fd, uint64_t byte);

std::string errnoText(int err);

}  // namespace Tamsel
