#pragma once
// The untyped heart of a collection binding: which table serves the
// collection (the local default writer before mounting, the shared-memory
// writer, or a reader / shadow), the mode and mount status, the owner's
// listener, and the corruption handler. Keys and records are bytes here;
// ZentTamselMap adds the types.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/shmem/Tamsel/LocalTable.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"
#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace ZentTamsel {

DABIN_FACILITY("ZentTamsel");

// A record failed validation in a table this process writes.
class CorruptionException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What the owner of a collection hears from its binding. The reader's own
// handler interface carries the key changes, resynchronisations and
// quiescence straight from the shared table; the binding adds the changes of
// its mount status.
class CollectionListener : public Tamsel::Reader::Handler {
 public:
  // The mode or mount status changed (mounted, unmounted).
  virtual void mountStatusChanged() = 0;
};

class TamselMapCore : public DispatchSource {
 public:
  using CorruptionHandler = std::function<void(std::string const& message)>;

  explicit TamselMapCore(Tamsel::TableShape shape);
  ~TamselMapCore() override;
  TamselMapCore(TamselMapCore const&) = delete;
  TamselMapCore& operator=(TamselMapCore const&) = delete;

  // Initialises the binding for its owner, whose listener hears every change
  // (and must outlive the binding's mount). Creates the local default writer.
  void entity(std::string const& name, CollectionListener* listener);
  std::string const& name() const { return name_; }
  Tamsel::TableShape const& shape() const { return shape_; }

  // Attaches to the shared-memory files of `collection` in `dir` in `mode`,
  // replacing the local default writer (whose contents are dropped). A
  // reader joins `registry`, whose event loop dispatches its notifications.
  void mount(std::string const& dir, std::string const& collection, MountType mode,
             Tamsel::FilePermissions const& perms, MountRegistry& registry);
  // The same, with the mode and the permissions of the files a writer
  // creates taken from a mount descriptor.
  void mount(std::string const& dir, std::string const& collection, MountInfo const& info,
             MountRegistry& registry);
  // Detaches from shared memory; afterwards every operation is refused.
  void unmount();
  // The owner lost its parent: trace and detach.
  void orphan();
  // The registry this reader joined is going away.
  void registryGone() override { registry_ = nullptr; }

  MountType mode() const { return mode_; }
  MountStatus mountStatus() const { return status_; }
  bool keyNotifications() const { return reader_ != nullptr; }
  std::string const& mountDir() const { return dir_; }
  bool quiesced() const;
  void quiescedIs(bool q);  // writer only

  // Refuses, through the binding's assertion, an operation the current mode
  // or state forbids.
  void requireWritable(const char* op) const {
    fmassert(initialized_ && (local_ || writer_),
             "{} not allowed at this time, initialized:{} keyNotifications:{}", op, initialized_,
             keyNotifications());
  }
  void requireReadable(const char* op) const {
    fmassert(initialized_ && (local_ || writer_ || reader_),
             "{} not allowed at this time, initialized:{} keyNotifications:{}", op, initialized_,
             keyNotifications());
  }

  Tamsel::LocalTable* local() const { return local_.get(); }
  Tamsel::Writer* writer() const { return writer_.get(); }
  Tamsel::Reader* reader() const { return reader_.get(); }

  uint64_t size() const;
  // The shared table's sequence number, which moves with every change a
  // reader is told of; 0 for the local default writer.
  uint64_t seqno() const;
  // Pollable fd of a reader or shadow (-1 for writers), and the dispatch that
  // hands queued changes to the listener.
  int fd() const override { return reader_ ? reader_->fd() : -1; }
  size_t dispatch(size_t max = SIZE_MAX) override;

  void corruptionHandlerIs(CorruptionHandler h) { corruptionHandler_ = std::move(h); }
  // Reports a corrupt record: "<table> Corrupted serialized value detected at
  // offset: <offset>, contents: <hex bytes>".
  std::string corruptionMessage(uint64_t offset, char const* rec, uint32_t len) const;
  // Reporting a corrupt record changes nothing a reader of the table sees.
  void doCorruptionDetected(std::string const& message) const;

 private:
  void mountStatusChanged() {
    if (listener_) listener_->mountStatusChanged();
  }

  Tamsel::TableShape shape_;
  std::string name_;
  CollectionListener* listener_ = nullptr;
  MountRegistry* registry_ = nullptr;
  CorruptionHandler corruptionHandler_;
  bool initialized_ = false;
  MountType mode_ = MountType::writer;
  MountStatus status_ = MountStatus::unmounted;
  std::string dir_;
  std::unique_ptr<Tamsel::LocalTable> local_;
  std::unique_ptr<Tamsel::Writer> writer_;
  std::unique_ptr<Tamsel::Reader> reader_;
};

}  // namespace ZentTamsel
