#include "Tunnel/shmem/Tamsel/ShmFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace Tamsel {

std::string errnoText(int err) { return std::strerror(err); }

namespace {

mode_t dirMode(mode_t fileMode) {
  mode_t m = fileMode | 0700;
  if (fileMode & 0040) m |= 0010;
  if (fileMode & 0004) m |= 0001;
  return m & 0777;
}

struct stat regularFile(int fd, std::string const& path) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    int err = errno;
    throw Error(fmt::format("cannot stat {}: {}", path, errnoText(err)), err);
  }
  if (!S_ISREG(st.st_mode)) throw Error(fmt::format("{} is not a regular file", path), EINVAL);
  return st;
}

void checkOwned(int fd, std::string const& path) {
  struct stat st = regularFile(fd, path);
  if (st.st_uid != ::geteuid()) {
    throw Error(fmt::format("{} is owned by uid {}, not by this process's uid {}; refusing it",
                            path, st.st_uid, ::geteuid()),
                EPERM);
  }
}

// Opens without blocking: opening a FIFO for reading waits for a writer, and
// the caller refuses anything but a regular file once it is open.
int openNoFollow(std::string const& path, int access) {
  int fd = ::open(path.c_str(), access | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    int err = errno;
    if (err == ELOOP) throw Error(fmt::format("{} is a symbolic link; refusing it", path), err);
    throw Error(fmt::format("cannot open {}: {}", path, errnoText(err)), err);
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

}  // namespace

void makeDirs(std::string const& dir, FilePermissions const& perms) {
  if (dir.empty()) return;
  size_t pos = 0;
  while (pos != std::string::npos) {
    pos = dir.find('/', pos + 1);
    std::string part = dir.substr(0, pos);
    if (part.empty()) continue;
    if (::mkdir(part.c_str(), dirMode(perms.mode)) == 0) {
      ::chmod(part.c_str(), dirMode(perms.mode));
      if (perms.group != static_cast<gid_t>(-1) && ::chown(part.c_str(), -1, perms.group) != 0) {
        int err = errno;
        throw Error(fmt::format("cannot set group of {}: {}", part, errnoText(err)), err);
      }
      continue;
    }
    int err = errno;
    if (err != EEXIST) {
      throw Error(fmt::format("cannot create directory {}: {}", part, errnoText(err)), err);
    }
    struct stat st {};
    if (::lstat(part.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
      // A link to a directory is fine above the state root, but not inside it.
      if (::stat(part.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        throw Error(fmt::format("{} exists and is not a directory", part), ENOTDIR);
      }
    }
  }
}

int openOwnedFile(std::string const& path, bool create, FilePermissions const& perms,
                  bool* created) {
  if (created) *created = false;
  int fd = -1;
  if (create) {
    fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, perms.mode);
    if (fd >= 0) {
      // The umask must not decide who may read a table.
      if (::fchmod(fd, perms.mode) != 0 ||
          (perms.group != static_cast<gid_t>(-1) && ::fchown(fd, -1, perms.group) != 0)) {
        int err = errno;
        ::close(fd);
        ::unlink(path.c_str());
        throw Error(fmt::format("cannot set permissions of {}: {}", path, errnoText(err)), err);
      }
      if (created) *created = true;
      return fd;
    }
    if (errno != EEXIST) {
      int err = errno;
      throw Error(fmt::format("cannot create {}: {}", path, errnoText(err)), err);
    }
  }
  fd = openNoFollow(path, O_RDWR);
  try {
    checkOwned(fd, path);
  } catch (...) {
    ::close(fd);
    throw;
  }
  return fd;
}

int openExistingFile(std::string const& path, bool writable) {
  int fd = openNoFollow(path, writable ? O_RDWR : O_RDONLY);
  try {
    regularFile(fd, path);
  } catch (...) {
    ::close(fd);
    throw;
  }
  return fd;
}

uint64_t fileSize(int fd, std::string const& path) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    int err = errno;
    throw Error(fmt::format("cannot stat {}: {}", path, errnoText(err)), err);
  }
  return static_cast<uint64_t>(st.st_size);
}

void reserveSpace(int fd, std::string const& path, uint64_t size) {
  uint64_t cur = fileSize(fd, path);
  if (cur >= size) return;
  int err = ::posix_fallocate(fd, static_cast<off_t>(cur), static_cast<off_t>(size - cur));
  if (err != 0) {
    // Leave the file as it was: a partly reserved tail would be unused anyway,
    // but a smaller file keeps readers' view of the size honest.
    if (::ftruncate(fd, static_cast<off_t>(cur)) != 0) {
      // Nothing more to do: the reservation failed either way.
    }
    throw Error(fmt::format("cannot reserve {} bytes for {} (it has {}): {}", size, path, cur,
                            errnoText(err)),
                err);
  }
}

Mapping::~Mapping() { unmap(); }

void Mapping::map(int fd, std::string const& path, uint64_t size, bool writable) {
  unmap();
  // Ask for the full reservation, and settle for less where address space is
  // limited (ulimit -v, tools that run the process under emulation).
  void* r = MAP_FAILED;
  for (reserved_ = std::max(size, kReserve); reserved_ >= std::max<uint64_t>(size, 1);
       reserved_ /= 2) {
    r = ::mmap(nullptr, reserved_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (r != MAP_FAILED) break;
  }
  if (r == MAP_FAILED) {
    int err = errno;
    throw Error(fmt::format("cannot reserve address space for {}: {}", path, errnoText(err)), err);
  }
  // Start the file on a 2 MiB boundary, so that a state root on a tmpfs with
  // huge pages maps them whole: at a million records, 4 KiB pages make every
  // random lookup a TLB miss.
  uintptr_t start = reinterpret_cast<uintptr_t>(r);
  uint64_t skip = ((start + kHugePage - 1) & ~(kHugePage - 1)) - start;
  if (skip != 0 && reserved_ - skip >= size) {
    ::munmap(r, skip);
    reserved_ -= skip;
    r = reinterpret_cast<void*>(start + skip);
  }
  base_ = static_cast<char*>(r);
  writable_ = writable;
  fd_ = fd;
  path_ = path;
  try {
    remap(size);
  } catch (...) {
    unmap();
    throw;
  }
}

void Mapping::remap(uint64_t size) {
  if (size <= size_) return;
  if (size > reserved_) {
    throw Error(fmt::format("{} grew to {} bytes, beyond the {} reserved", path_, size, reserved_),
                EFBIG);
  }
  // Only the new tail is mapped, so pages already mapped keep their entries.
  // A writer's pages fault once, when it first fills them; readers populate.
  uint64_t from = size_ % 4096 == 0 ? size_ : 0;
  if (from < populated_) populated_ = from;
  int flags = MAP_SHARED | MAP_FIXED;
  void* p = ::mmap(base_ + from, size - from, writable_ ? PROT_READ | PROT_WRITE : PROT_READ, flags,
                   fd_, static_cast<off_t>(from));
  if (p == MAP_FAILED) {
    int err = errno;
    throw Error(fmt::format("cannot map {} to {} bytes: {}", path_, size, errnoText(err)), err);
  }
  // Lets a tmpfs mounted with huge=advise back the table with huge pages;
  // elsewhere it changes nothing.
  ::madvise(p, size - from, MADV_HUGEPAGE);
  size_ = size;
}

void Mapping::populate(uint64_t end) {
  end = std::min(end, size_);
  uint64_t from = populated_ & ~uint64_t{4095};
  if (end <= populated_) return;
  // Without MADV_POPULATE_READ (before Linux 5.14) the pages fault at first touch.
  (void)::madvise(base_ + from, end - from, MADV_POPULATE_READ);
  populated_ = end;
}

void Mapping::unmap() {
  if (base_) ::munmap(base_, reserved_);
  base_ = nullptr;
  size_ = 0;
  reserved_ = 0;
  populated_ = 0;
}

namespace {
struct flock byteLock(short type, uint64_t byte) {
  struct flock fl {};
  fl.l_type = type;
  fl.l_whence = SEEK_SET;
  fl.l_start = static_cast<off_t>(byte);
  fl.l_len = 1;
  return fl;
}
}  // namespace

bool tryLockByte(int fd, uint64_t byte) {
  struct flock fl = byteLock(F_WRLCK, byte);
  return ::fcntl(fd, F_OFD_SETLK, &fl) == 0;
}

void unlockByte(int fd, uint64_t byte) {
  struct flock fl = byteLock(F_UNLCK, byte);
  ::fcntl(fd, F_OFD_SETLK, &fl);
}

bool byteLocked(int fd, uint64_t byte) {
  struct flock fl = byteLock(F_WRLCK, byte);
  if (::fcntl(fd, F_OFD_GETLK, &fl) != 0) return false;
  return fl.l_type != F_UNLCK;
}

}  // namespace Tamsel
