#pragma once
// The untyped heart of a collection binding: which table serves the
// collection (the local default writer before mounting, the shared-memory
// writer, or a reader / shadow), the mode and mount status, the callbacks to
// the owning entity, and the corruption handler. Keys and records are bytes
// here; ZentTamselMap adds the types.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/shmem/LocalTable.h"
#include "Tunnel/shmem/Reader.h"
#include "Tunnel/shmem/Writer.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace ZentTamsel {

DABIN_FACILITY("ZentTamsel");

// A record failed validation in a table this process writes.
class CorruptionException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class TamselMapCore {
 public:
  using KeyCallback = std::function<void(void const* keyBytes)>;
  using TableCallback = std::function<void()>;
  using QuiescedCallback = std::function<void(bool)>;
  using CorruptionHandler = std::function<void(std::string const& message)>;

  explicit TamselMapCore(Tamsel::TableShape shape);
  ~TamselMapCore();
  TamselMapCore(TamselMapCore const&) = delete;
  TamselMapCore& operator=(TamselMapCore const&) = delete;

  // Initialises the binding for its owner: the per-key callback (the table's
  // xNotify), the whole-table callback (its mount-status handler) and the
  // quiesced callback. Creates the local default writer.
  void entity(std::string const& name, Zent::Entity* owner, KeyCallback perKey,
              TableCallback wholeTable, QuiescedCallback quiesced);
  bool initialized() const { return initialized_; }
  std::string const& name() const { return name_; }
  Tamsel::TableShape const& shape() const { return shape_; }

  // Attaches to the shared-memory files of `collection` in `dir` in `mode`,
  // replacing the local default writer (whose contents are dropped).
  void mount(std::string const& dir, std::string const& collection, MountType mode,
             Tamsel::FilePermissions const& perms);
  // Detaches from shared memory; afterwards every operation is refused.
  void unmount();
  // The owner lost its parent: trace and detach.
  void orphan();

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
  // Pollable fd of a reader or shadow (-1 for writers), and the dispatch that
  // turns queued changes into per-key callbacks.
  int fd() const { return reader_ ? reader_->fd() : -1; }
  size_t dispatch(size_t max = SIZE_MAX);

  void corruptionHandlerIs(CorruptionHandler h) { corruptionHandler_ = std::move(h); }
  // Reports a corrupt record: "<table> Corrupted serialized value detected at
  // offset: <offset>, contents: <hex bytes>".
  std::string corruptionMessage(uint64_t offset, char const* rec, uint32_t len) const;
  void doCorruptionDetected(std::string const& message);
  uint64_t corruptions() const { return corruptions_; }

 private:
  class Relay;

  Tamsel::TableShape shape_;
  std::string name_;
  Zent::Entity* owner_ = nullptr;
  KeyCallback perKey_;
  TableCallback wholeTable_;
  QuiescedCallback quiesced_;
  CorruptionHandler corruptionHandler_;
  bool initialized_ = false;
  MountType mode_ = MountType::writer;
  MountStatus status_ = MountStatus::unmounted;
  std::string dir_;
  std::unique_ptr<Tamsel::LocalTable> local_;
  std::unique_ptr<Tamsel::Writer> writer_;
  std::unique_ptr<Tamsel::Reader> reader_;
  std::unique_ptr<Relay> relay_;
  uint64_t corruptions_ = 0;
};

}  // namespace ZentTamsel
