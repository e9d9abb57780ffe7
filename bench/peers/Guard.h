#pragma once
// Whatever the benchmark starts goes when it ends, however it ends: the
// processes it forked or ran (Redis, readers) are killed by pid and its
// shared-memory objects unlinked, at exit and from fatal signals.

#include <string>
#include <sys/types.h>

namespace PeerBench {

// Installs the exit and signal handlers; call once, first thing in main.
void installGuard();

void guardPid(pid_t pid);
void unguardPid(pid_t pid);

// A directory (of at most a few levels) to remove when a signal ends the run;
// a normal end removes it itself.
void guardDir(std::string const& path);

// A POSIX shared-memory object name (without the leading slash) to unlink.
void guardShm(std::string const& name);
void unguardShm(std::string const& name);

// Call first thing in a forked child: it dies with the benchmark, and does
// not run the benchmark's own cleanup when it exits.
void childStarted();

// Kills the process by pid (SIGTERM, then SIGKILL after `graceMs`) and reaps it.
void stopProcess(pid_t pid, int graceMs);

}  // namespace PeerBench
