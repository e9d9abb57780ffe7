#pragma once
// What every tunnelctl command shares: the default state root, the two kinds
// of failure a command reports (a usage error exits 2, anything the
// environment did exits 1) and the message prefix.

#include <stdexcept>
#include <string>

namespace TunnelCtl {

// The state root agents mount their tables under unless told otherwise; the
// demo uses it too, so that the commands it prints need no --root.
inline constexpr const char* kDefaultStateRoot = "/dev/shm/libtunnel";

enum ExitCode : int { kExitOk = 0, kExitRuntime = 1, kExitUsage = 2 };

// The command line asks for something that cannot be: exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The environment refused: no such state root or table, permission denied,
// a table that cannot be read. Exit code 1.
class CtlError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes "tunnelctl: <message>" to stderr.
void printError(std::string const& message);
// Writes "tunnelctl: note: <message>" to stderr.
void printNote(std::string const& message);

}  // namespace TunnelCtl
