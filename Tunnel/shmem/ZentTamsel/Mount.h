#pragma once
// The mount service: mounts an entity type, known by name, at a path under
// the agent's state root, binds its collections to the shared-memory files
// there, and removes those files once their users are gone.

#include <string>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace ZentTamsel {

// Implemented by entities whose collections live in shared-memory tables.
class Mountable {
 public:
  virtual ~Mountable() = default;
  // Binds every shared-memory collection of the entity to files in `dir` as
  // `info` says (its mode, its collections' parameters, file permissions).
  virtual void tamselMount(std::string const& dir, MountInfo const& info) = 0;
  virtual void tamselUnmount() = 0;
};

class Mount {
 public:
  Mount() = default;
  // `stateRoot` is a directory the agent chooses (typically on /dev/shm).
  explicit Mount(Zent::String stateRoot) : stateRoot_(std::move(stateRoot)) {}
  Mount(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Zent::String const& stateRoot() const { return stateRoot_; }
  // The directory that holds the files of the table mounted at `path`.
  std::string dir(Zent::String const& path) const;

  // Creates an entity of `typeName` through the type registry, named after
  // the last component of `path`, and binds it as `info` says. The mount
  // holds the entity until doUnmount. An entity type that has no
  // shared-memory collections is returned unbound. Throws Tamsel::Error for
  // an unknown type or a failed mount.
  Zent::Ptr<Zent::Entity> doMount(Zent::String const& path, Zent::String const& typeName,
                                  MountInfo const& info) const;
  // Detaches this process from every entity it mounted at `path`.
  void doUnmount(Zent::String const& path) const;
  // Removes the files of the table at `path`. Refused while a writer lives.
  void cleanup(Zent::String const& path) const;

  bool operator==(Mount const&) const = default;
  explicit operator bool() const { return !stateRoot_.empty(); }
  uint32_t hash(uint32_t seed = 0) const { return stateRoot_.hash(seed); }
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, Mount const& m) {
    return os << m.stringValue();
  }

 private:
  Zent::String stateRoot_;
};

// Waits up to `timeoutMs` for news on any table this process reads and
// dispatches it; returns the notifications delivered.
size_t dispatchAll(int timeoutMs);

}  // namespace ZentTamsel
