#include "tools/tunnelctl/TableAccess.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Tunnel/TunnelTable/TunnelTableIdentifier.h"
#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "tools/tunnelctl/CtlCommon.h"

namespace TunnelCtl {

using Tunnel::TunnelTable::TunnelTableBase;
using Tunnel::TunnelTable::TunnelTableIdentifier;
using Tunnel::TunnelTable::TunnelTableInfo;
using Tunnel::TunnelTable::TunnelTableMounter;

namespace {

std::string tablesDir(std::string const& root) { return root + "/tunnel/table"; }

bool isFile(std::string const& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string entryTypeOf(std::string const& typeName) {
  Tunnel::TunnelTable::registerMountTypes();
  Zent::GenericIf const* t = Zent::type(typeName);
  if (!t) return {};
  auto const* a = t->attribute(TunnelTableBase::kEntryId);
  return a && a->valueType ? a->valueType->name() : std::string();
}

// The directory name of `name`, which may also be a table identifier.
std::string resolveName(std::string const& root, std::string const& name) {
  if (isFile(tablesDir(root) + "/" + name + "/entry.tbl")) return name;
  TunnelTableIdentifier id{};
  if (Tunnel::TunnelTable::sequenceToValue(name, id) &&
      id != TunnelTableIdentifier::invalidTunnelTable) {
    return std::string(TunnelTableMounter::getMountInfo(id).tableInfo().tableName().view());
  }
  return name;
}

[[noreturn]] void throwTableError(std::string const& root, std::string const& name,
                                  Tamsel::Error const& e) {
  int err = e.errnoValue();
  if (err == ENOENT) {
    throw CtlError(
        fmt::format("no such table: {} under {} ('tunnelctl tables --root {}' lists the tables)",
                    name, root, root));
  }
  if (err == EACCES || err == EPERM) throw CtlError(fmt::format("permission denied: {}", e.what()));
  throw CtlError(fmt::format("cannot read table {}: {}", name, e.what()));
}

}  // namespace

void checkStateRoot(std::string const& root) {
  struct stat st {};
  if (::stat(root.c_str(), &st) != 0) {
    int err = errno;
    if (err == EACCES) throw CtlError(fmt::format("permission denied: state root {}", root));
    throw CtlError(fmt::format(
        "no such state root: {} (no agent has published tables there; --root names another)",
        root));
  }
  if (!S_ISDIR(st.st_mode)) throw CtlError(fmt::format("state root {} is not a directory", root));
  if (::access(root.c_str(), R_OK | X_OK) != 0) {
    throw CtlError(fmt::format("permission denied: state root {}", root));
  }
}

std::string writerText(TableFile const& t) {
  if (t.writerPid == 0) return "none";
  return fmt::format("pid {}, {}", t.writerPid, t.writerAlive ? "alive" : "gone");
}

namespace {

// What the header of the entry file in `dir` says; errors name the table
// `asked`, as the user gave it.
void readHeader(std::string const& root, std::string const& asked, std::string const& dir,
                TableFile& t, std::string const& collection = "entry") {
  try {
    Tamsel::Reader r(dir, collection, 0, Tamsel::Reader::Options{false, false});
    t.typeName = r.typeName();
    t.entries = r.count();
    t.liveBytes = r.liveBytes();
    t.writerPid = r.writerPid();
    t.writerAlive = r.writerAlive();
    for (uint32_t i = 0; i < 3; ++i) t.publishedCounters[i] = r.publishedCounter(i);
    t.notifications = r.notifications();
    t.writerEpoch = r.writerEpoch();
  } catch (Tamsel::Error const& e) {
    throwTableError(root, asked, e);
  }
}

}  // namespace

TableFile inspectTable(std::string const& root, std::string const& name) {
  checkStateRoot(root);
  TableFile t;
  t.name = resolveName(root, name);
  t.mountPath = std::string(TunnelTableInfo::kMountPathPrefix) + t.name;
  readHeader(root, name, tablesDir(root) + "/" + t.name, t);
  t.entryType = entryTypeOf(t.typeName);
  return t;
}

bool hasPublished(std::string const& root, std::string const& mountPath,
                  std::string const& collection) {
  return isFile(root + "/" + mountPath + "/" + collection + ".tbl");
}

TableFile inspectPublished(std::string const& root, std::string const& name,
                           std::string const& mountPath, std::string const& collection,
                           std::string const& entryType, std::string const& what) {
  checkStateRoot(root);
  if (!hasPublished(root, mountPath, collection)) {
    throw CtlError(
        fmt::format("no {} under {} (no agent has published one at {}; --root names another)", what,
                    root, mountPath));
  }
  TableFile t;
  t.name = name;
  t.mountPath = mountPath;
  readHeader(root, t.name, root + "/" + mountPath, t, collection);
  t.entryType = entryType;
  return t;
}

bool hasFib(std::string const& root) {
  return hasPublished(root, Tunnel::TunnelFib::TunnelFib::kMountPath, "entry");
}

TableFile inspectFib(std::string const& root) {
  return inspectPublished(root, "fib", Tunnel::TunnelFib::TunnelFib::kMountPath, "entry",
                          Tunnel::TunnelFib::TunnelFibEntry::kTypeName, "tunnel FIB");
}

std::vector<TableFile> listTables(std::string const& root) {
  checkStateRoot(root);
  std::vector<std::string> names;
  std::string dir = tablesDir(root);
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* de = ::readdir(d)) {
      std::string n = de->d_name;
      if (n != "." && n != ".." && isFile(dir + "/" + n + "/entry.tbl")) names.push_back(n);
    }
    ::closedir(d);
  } else if (errno == EACCES) {
    throw CtlError(fmt::format("permission denied: {}", dir));
  }
  std::sort(names.begin(), names.end());
  std::vector<TableFile> out;
  for (auto const& n : names) {
    try {
      out.push_back(inspectTable(root, n));
    } catch (CtlError const& e) {
      TableFile t;
      t.name = n;
      t.mountPath = std::string(TunnelTableInfo::kMountPathPrefix) + n;
      t.error = e.what();
      out.push_back(t);
    }
  }
  return out;
}

MountedTable::MountedTable(std::string const& root, std::string const& name,
                           ZentTamsel::MountType mode)
    : mounter_(ZentTamsel::Mount(Zent::String(root), registry_)), file_(inspectTable(root, name)) {
  if (file_.entryType.empty()) {
    throw CtlError(
        fmt::format("table {} holds type {}, which this tunnelctl does not know as a tunnel table",
                    file_.name, file_.typeName));
  }
  TunnelTableInfo info(Zent::String(file_.name), Zent::String(file_.typeName),
                       Zent::String(file_.mountPath));
  try {
    table_ = mounter_.writeMountTable(info, ZentTamsel::MountInfo(mode));
  } catch (Tamsel::Error const& e) {
    throwTableError(root, file_.name, e);
  }
  if (!table_) {
    throw CtlError(fmt::format("table {} holds type {}, which is not a tunnel table", file_.name,
                               file_.typeName));
  }
  table_->entryCore().corruptionHandlerIs(
      [this](std::string const& message) { corruptions_.push_back(message); });
}

MountedTable::~MountedTable() {
  if (!table_) return;
  table_->entryCore().corruptionHandlerIs(nullptr);
  mounter_.tamselMounter().doUnmount(Zent::String(file_.mountPath));
  table_ = nullptr;
}

MountedFib::MountedFib(std::string const& root)
    : mount_(Zent::String(root), registry_), file_(inspectFib(root)) {
  try {
    fib_ = Tunnel::TunnelFib::mountTunnelFib(mount_, ZentTamsel::reader());
  } catch (Tamsel::Error const& e) {
    throwTableError(root, file_.name, e);
  }
  if (!fib_) throw CtlError(fmt::format("cannot mount the tunnel FIB under {}", root));
  auto collect = [this](std::string const& message) { corruptions_.push_back(message); };
#define TUNNELCTL_FIB_HANDLER(x, ...) fib_->x##Core().corruptionHandlerIs(collect);
  TUNNEL_FIB_COLLECTIONS(TUNNELCTL_FIB_HANDLER)
#undef TUNNELCTL_FIB_HANDLER
}

MountedFib::~MountedFib() {
  if (!fib_) return;
#define TUNNELCTL_FIB_HANDLER(x, ...) fib_->x##Core().corruptionHandlerIs(nullptr);
  TUNNEL_FIB_COLLECTIONS(TUNNELCTL_FIB_HANDLER)
#undef TUNNELCTL_FIB_HANDLER
  mount_.doUnmount(Zent::String(file_.mountPath));
  fib_ = nullptr;
}

std::vector<std::string> MountedFib::takeCorruptions() {
  std::vector<std::string> out;
  out.swap(corruptions_);
  return out;
}

std::vector<std::string> MountedTable::takeCorruptions() {
  std::vector<std::string> out;
  out.swap(corruptions_);
  return out;
}

}  // namespace TunnelCtl
