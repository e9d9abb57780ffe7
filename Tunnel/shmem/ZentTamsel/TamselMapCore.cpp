#include "Tunnel/shmem/ZentTamsel/TamselMapCore.h"

#include <fmt/format.h>

#include "Tunnel/shmem/ZentTamsel/MountRegistry.h"

namespace ZentTamsel {

TamselMapCore::TamselMapCore(Tamsel::TableShape shape) : shape_(std::move(shape)) {}

TamselMapCore::~TamselMapCore() {
  // The owner is partly destroyed by now: it hears nothing more.
  listener_ = nullptr;
  unmount();
}

void TamselMapCore::entity(std::string const& name, CollectionListener* listener) {
  if (initialized_) {
    fmtrace(5, "name:{} already initialized", name);
    return;
  }
  name_ = name;
  listener_ = listener;
  initialized_ = true;
  fmtrace(5, "creating local TamselWriter {}", name);
  local_ = std::make_unique<Tamsel::LocalTable>(shape_);
  mode_ = MountType::writer;
  status_ = MountStatus::localWriter;
}

void TamselMapCore::mount(std::string const& dir, std::string const& collection,
                          MountInfo const& info, MountRegistry& registry) {
  mount(dir, collection, info.mountType(), info.filePermissions(), registry);
}

void TamselMapCore::mount(std::string const& dir, std::string const& collection, MountType mode,
                          Tamsel::FilePermissions const& perms, MountRegistry& registry) {
  fmassert(initialized_, "mount not allowed at this time, initialized:{} keyNotifications:{}",
           initialized_, keyNotifications());
  std::unique_ptr<Tamsel::Writer> w;
  std::unique_ptr<Tamsel::Reader> r;
  if (mode == MountType::writer) {
    w = std::make_unique<Tamsel::Writer>(dir, collection, shape_, perms);
  } else {
    Tamsel::Reader::Options o;
    o.keyIndex = mode != MountType::reader;
    r = std::make_unique<Tamsel::Reader>(dir, collection, shape_.keySize, o);
  }
  unmount();
  local_.reset();
  writer_ = std::move(w);
  reader_ = std::move(r);
  if (reader_) {
    registry_ = &registry;
    registry.readerIs(this, true);
  }
  mode_ = mode;
  dir_ = dir;
  status_ = MountStatus::mounted;
  mountStatusChanged();
}

void TamselMapCore::unmount() {
  if (reader_ && registry_) registry_->readerIs(this, false);
  registry_ = nullptr;
  bool was = writer_ || reader_;
  writer_.reset();
  reader_.reset();
  if (was) {
    status_ = MountStatus::unmounted;
    mountStatusChanged();
  }
}

void TamselMapCore::orphan() {
  fmtrace(5, "{} is now an orphan", name_);
  unmount();
}

bool TamselMapCore::quiesced() const {
  if (writer_) return writer_->quiesced();
  if (reader_) return reader_->quiesced();
  return false;
}

void TamselMapCore::quiescedIs(bool q) {
  requireWritable("quiescedIs");
  if (writer_) writer_->quiescedIs(q);
}

uint64_t TamselMapCore::size() const {
  if (local_) return local_->count();
  if (writer_) return writer_->count();
  if (reader_) return reader_->count();
  return 0;
}

uint64_t TamselMapCore::seqno() const {
  if (writer_) return writer_->notifications();
  if (reader_) return reader_->notifications();
  return 0;
}

size_t TamselMapCore::dispatch(size_t max) {
  if (!reader_ || !listener_) return 0;
  return reader_->dispatch(*listener_, max);
}

std::string TamselMapCore::corruptionMessage(uint64_t offset, char const* rec, uint32_t len) const {
  return fmt::format("{} Corrupted serialized value detected at offset: {}, contents: {}", name_,
                     offset, Tamsel::hexBytes(rec, len, 64));
}

void TamselMapCore::doCorruptionDetected(std::string const& message) const {
  if (corruptionHandler_) {
    corruptionHandler_(message);
  } else {
    fmtrace(0, "{}", message);
  }
}

}  // namespace ZentTamsel
