#include "bench/common/HugePages.h"

#include <cerrno>
#include <cstring>
#include <sched.h>
#include <stdexcept>
#include <sys/mount.h>

namespace BenchSupport {

void mountPrivateHugeTmpfs(std::string const& dir, std::string const& mode) {
  auto fail = [&](char const* what) {
    throw std::runtime_error("cannot mount a private huge-page tmpfs on " + dir + ": " + what +
                             ": " + std::strerror(errno));
  };
  if (::unshare(CLONE_NEWNS) != 0) fail("unshare");
  // Nothing mounted here may reach the machine's own mount table.
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) fail("private /");
  std::string options = "huge=within_size,mode=" + mode;
  if (::mount("tmpfs", dir.c_str(), "tmpfs", 0, options.c_str()) != 0) fail("mount");
}

}  // namespace BenchSupport
