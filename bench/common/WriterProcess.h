#pragma once
// A writer in a process of its own, for benchmarks that measure a reader in
// another process: the child publishes, says so, and lives until killed (or
// until the benchmark dies).

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

namespace BenchSupport {

// Runs `publish` in a child process and returns its pid once it has
// published; -1 when it failed (the child reports why on stderr, naming
// `who`). What `publish` returns (its writer, say) lives as long as the
// child. Nothing unwinds into the benchmark's own code in the child.
pid_t startWriterProcess(std::string const& who,
                         std::function<std::shared_ptr<void>()> const& publish);

}  // namespace BenchSupport
