#pragma once
// Benchmarks that measure tables of a million records run them on 2 MiB pages
// on request, without touching how the machine is configured.

#include <string>

namespace BenchSupport {

// Mounts a tmpfs backed by 2 MiB pages (huge=within_size) on `dir` in a mount
// namespace of this process and the processes it starts from now on; the
// mount goes away with them. `mode` is the mount's root mode ("1777" over
// /dev/shm). Needs root or a user namespace; throws std::runtime_error with
// the reason otherwise.
void mountPrivateHugeTmpfs(std::string const& dir, std::string const& mode);

}  // namespace BenchSupport
