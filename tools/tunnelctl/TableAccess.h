#pragma once
// Finding and opening the tunnel tables under a state root for the commands:
// TableFile describes one table from its file header alone (no mount, no
// registration with the writer); MountedTable mounts one through the type
// registry, by the type name its file carries, so a table type added later
// needs no change here. Failures become CtlError with a message for people.

#include <cstdint>
#include <string>
#include <vector>

#include "Tunnel/TunnelFib/TunnelFib.h"
#include "Tunnel/TunnelMount/TunnelMount.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/framework/Ptr.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace TunnelCtl {

struct TableFile {
  std::string name;       // the directory under tunnel/table/
  std::string mountPath;  // "tunnel/table/<name>"
  std::string typeName;   // the table's type, from its file
  std::string entryType;  // the entry type the registry gives; empty when unknown
  uint64_t entries = 0;
  uint64_t liveBytes = 0;
  uint32_t writerPid = 0;
  bool writerAlive = false;
  uint64_t publishedCounters[3] = {};  // the writer's entryIs, entryDel, entryNotify
  uint64_t notifications = 0;
  uint64_t writerEpoch = 0;
  std::string error;  // why the table could not be read (listTables only)
};

// Throws CtlError when `root` does not exist, is not a directory or cannot be
// read.
void checkStateRoot(std::string const& root);

// Every table under `root`, by name. A table that cannot be read is listed
// with its error.
std::vector<TableFile> listTables(std::string const& root);

// The table `name` under `root`: its directory name ("ldp") or its table
// identifier ("ldpTunnelTable"). Throws CtlError naming what is missing.
TableFile inspectTable(std::string const& root, std::string const& name);

// "pid 123, alive", "pid 123, gone" or "none".
std::string writerText(TableFile const& t);

// A table mounted in this process (a plain reader or a key shadow) until the
// object goes. Corrupt records met while reading are collected, not fatal.
class MountedTable {
 public:
  MountedTable(std::string const& root, std::string const& name, ZentTamsel::MountType mode);
  ~MountedTable();
  MountedTable(MountedTable const&) = delete;
  MountedTable& operator=(MountedTable const&) = delete;

  TableFile const& file() const { return file_; }
  Tunnel::TunnelTable::TunnelTableBase& table() const { return *table_; }
  Zent::Ptr<Tunnel::TunnelTable::TunnelTableBase> const& tablePtr() const { return table_; }

  // The corruption reports since the last call, in the order met.
  std::vector<std::string> takeCorruptions();
  // Waits up to `timeoutMs` for news on the table and dispatches it.
  size_t dispatch(int timeoutMs) { return registry_.dispatchAll(timeoutMs); }

 private:
  ZentTamsel::MountRegistry registry_;
  Tunnel::TunnelTable::TunnelTableMounter mounter_;
  TableFile file_;
  Zent::Ptr<Tunnel::TunnelTable::TunnelTableBase> table_;
  std::vector<std::string> corruptions_;
};

// An entity published beside the tables (the FIB, a RIB), from the header of
// the file of its entries' `collection` in `mountPath` under `root`, listed
// as `name`. Throws CtlError naming `what` when there is none.
TableFile inspectPublished(std::string const& root, std::string const& name,
                           std::string const& mountPath, std::string const& collection,
                           std::string const& entryType, std::string const& what);
bool hasPublished(std::string const& root, std::string const& mountPath,
                  std::string const& collection);

// The tunnel FIB under `root`, from the header of its entry file: name "fib",
// mount path "tunnel/fib". Throws CtlError when there is none.
TableFile inspectFib(std::string const& root);
// Whether `root` holds a tunnel FIB.
bool hasFib(std::string const& root);

// The tunnel FIB mounted as a plain reader until the object goes. Corrupt
// records met while reading are collected, not fatal.
class MountedFib {
 public:
  explicit MountedFib(std::string const& root);
  ~MountedFib();
  MountedFib(MountedFib const&) = delete;
  MountedFib& operator=(MountedFib const&) = delete;

  TableFile const& file() const { return file_; }
  Tunnel::TunnelFib::TunnelFib const& fib() const { return *fib_; }
  Zent::Ptr<Tunnel::TunnelFib::TunnelFib> const& fibPtr() const { return fib_; }
  std::vector<std::string> takeCorruptions();

 private:
  ZentTamsel::MountRegistry registry_;
  ZentTamsel::Mount mount_;
  TableFile file_;
  Zent::Ptr<Tunnel::TunnelFib::TunnelFib> fib_;
  std::vector<std::string> corruptions_;
};

}  // namespace TunnelCtl
