#pragma once
// The mount service: mounts an entity type, known by name, at a path under
// the agent's state root, binds its collections to the shared-memory files
// there, and removes those files once their users are gone. What it mounts
// is kept in the agent's MountRegistry.

#include <string>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace ZentTamsel {

// Implemented by entities whose collections live in shared-memory tables.
class Mountable {
 public:
  virtual ~Mountable() = default;
  // Binds every shared-memory collection of the entity to files in `dir` as
  // `info` says (its mode, its collections' parameters, file permissions);
  // readers join `registry`.
  virtual void tamselMount(std::string const& dir, MountInfo const& info,
                           MountRegistry& registry) = 0;
  virtual void tamselUnmount() = 0;
};

class Mount {
 public:
  Mount() = default;
  // `stateRoot` is a directory the agent chooses (typically on /dev/shm);
  // `registry` the agent's, which must outlive what this mount mounts.
  Mount(Zent::String stateRoot, MountRegistry& registry)
      : stateRoot_(std::move(stateRoot)), registry_(&registry) {}
  // The text form names the state root only: a parsed mount needs
  // registryIs before it mounts anything.
  Mount(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Zent::String const& stateRoot() const { return stateRoot_; }
  MountRegistry* registry() const { return registry_; }
  void registryIs(MountRegistry& r) { registry_ = &r; }
  // The directory that holds the files of the table mounted at `path`.
  std::string dir(Zent::String const& path) const;

  // Creates an entity of `typeName` through the type registry, named after
  // the last component of `path`, and binds it as `info` says. The mount
  // holds the entity until doUnmount. An entity type that has no
  // shared-memory collections is returned unbound. Throws Tamsel::Error for
  // an unknown type or a failed mount.
  Zent::Ptr<Zent::Entity> doMount(Zent::String const& path, Zent::String const& typeName,
                                  MountInfo const& info) const;
  // doMount of an entity of type E (named by E::kTypeName); null when what
  // is mounted at `path` is not an E.
  template <typename E>
  Zent::Ptr<E> doMountAs(Zent::String const& path, MountInfo const& info) const {
    Zent::Ptr<Zent::Entity> e = doMount(path, Zent::String(E::kTypeName), info);
    return Zent::Ptr<E>(dynamic_cast<E*>(e.ptr()));
  }
  // Detaches this process from every entity it mounted at `path`.
  void doUnmount(Zent::String const& path) const;
  // Removes the files of the table at `path`. Refused while a writer lives.
  void cleanup(Zent::String const& path) const;

  // The registry is the process's, not part of the value.
  bool operator==(Mount const& o) const { return stateRoot_ == o.stateRoot_; }
  explicit operator bool() const { return !stateRoot_.empty(); }
  uint32_t hash(uint32_t seed = 0) const { return stateRoot_.hash(seed); }
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, Mount const& m) {
    return os << m.stringValue();
  }

 private:
  MountRegistry& requireRegistry(const char* op) const;

  Zent::String stateRoot_;
  MountRegistry* registry_ = nullptr;
};

}  // namespace ZentTamsel
