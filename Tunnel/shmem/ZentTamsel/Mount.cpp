#include "Tunnel/shmem/ZentTamsel/Mount.h"

#include <cstring>
#include <dirent.h>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#include "Tunnel/framework/TypeRegistry.h"
#include "Tunnel/shmem/Tamsel/ShmFile.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"

namespace ZentTamsel {

Mount::Mount(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  std::string_view text(it.ptr(), static_cast<size_t>(end - it));
  Zent::ValueTextReader r(text, "ZentTamsel::Mount");
  stateRoot_ = Zent::String(Zent::unquoteText(r.field("stateRoot")));
  it = end;
}

std::string Mount::stringValue() const {
  return Zent::ValueText("ZentTamsel::Mount").field("stateRoot", stateRoot_).str();
}

std::string Mount::dir(Zent::String const& path) const {
  std::string p(path.view());
  while (!p.empty() && p.back() == '/') p.pop_back();
  return std::string(stateRoot_.view()) + "/" + p;
}

Zent::Ptr<Zent::Entity> Mount::doMount(Zent::String const& path, Zent::String const& typeName,
                                       MountInfo const& info) const {
  Zent::GenericIf const* type = Zent::type(typeName.view());
  if (!type) {
    throw Tamsel::Error(
        fmt::format("cannot mount {}: no type named {}", path.view(), typeName.view()), EINVAL);
  }
  std::string d = dir(path);
  std::string name = d.substr(d.rfind('/') + 1);
  Zent::Ptr<Zent::Entity> e = type->newEntityForDir(Zent::String(name));
  if (auto* m = dynamic_cast<Mountable*>(e.ptr())) {
    MountRegistry& registry = requireRegistry("doMount");
    m->tamselMount(d, info, registry);
    registry.mountedIs(d, e);
  }
  return e;
}

void Mount::doUnmount(Zent::String const& path) const {
  for (auto const& e : requireRegistry("doUnmount").unmountedIs(dir(path))) {
    if (auto* m = dynamic_cast<Mountable*>(e.ptr())) m->tamselUnmount();
  }
}

void Mount::cleanup(Zent::String const& path) const {
  std::string d = dir(path);
  DIR* dp = ::opendir(d.c_str());
  if (!dp) return;  // nothing left to clean
  std::vector<std::string> files;
  while (dirent* de = ::readdir(dp)) {
    std::string n = de->d_name;
    if (n == "." || n == "..") continue;
    files.push_back(n);
  }
  ::closedir(dp);
  // A live writer holds byte 0 of its collection's lock file.
  for (auto const& n : files) {
    if (n.size() > 5 && n.compare(n.size() - 5, 5, ".lock") == 0) {
      int fd = Tamsel::openExistingFile(d + "/" + n, true);
      bool live = Tamsel::byteLocked(fd, 0);
      ::close(fd);
      if (live) {
        throw Tamsel::Error(fmt::format("cannot clean up {}: its writer is still running", d),
                            EBUSY);
      }
    }
  }
  for (auto const& n : files) {
    bool ours = false;
    for (const char* ext : {".tbl", ".readers", ".lock"}) {
      size_t l = std::strlen(ext);
      if (n.size() > l && n.compare(n.size() - l, l, ext) == 0) ours = true;
    }
    if (ours && ::unlink((d + "/" + n).c_str()) != 0 && errno != ENOENT) {
      int err = errno;
      throw Tamsel::Error(fmt::format("cannot remove {}/{}: {}", d, n, Tamsel::errnoText(err)),
                          err);
    }
  }
  ::rmdir(d.c_str());  // only when nothing else is left in it
}

MountRegistry& Mount::requireRegistry(const char* op) const {
  fmassert(registry_, "{} on mount {} without a registry", op, stateRoot_.view());
  return *registry_;
}

}  // namespace ZentTamsel
