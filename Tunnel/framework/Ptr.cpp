#include "Tunnel/framework/Ptr.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <mutex>
#include <new>

#include "Tunnel/framework/Dabin.h"

namespace Zent {
namespace {
struct TrackRegistry {
  std::mutex mutex;
  std::vector<AllocTrackTypeInfo const*> infos;
};
TrackRegistry& trackRegistry() {
  static TrackRegistry* r = new TrackRegistry;
  return *r;
}
}  // namespace

AllocTrackTypeInfo::AllocTrackTypeInfo(std::string n) : name(std::move(n)) {
  auto& r = trackRegistry();
  std::lock_guard lock(r.mutex);
  r.infos.push_back(this);
}

std::vector<AllocTrackTypeInfo const*> allocTrackTypeInfos() {
  auto& r = trackRegistry();
  std::lock_guard lock(r.mutex);
  return r.infos;
}

std::string demangle(const char* mangled) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> out(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), std::free);
  return status == 0 && out ? std::string(out.get()) : std::string(mangled);
}

void* PtrInterface::zentMemAlloc(size_t size, AllocTrackTypeInfo& info) {
  void* p = ::operator new(size);
  info.live.fetch_add(1, std::memory_order_relaxed);
  info.allocs.fetch_add(1, std::memory_order_relaxed);
  info.bytes.fetch_add(static_cast<int64_t>(size), std::memory_order_relaxed);
  return p;
}

void PtrInterface::zentMemFree(void* p, size_t size, AllocTrackTypeInfo& info) {
  info.live.fetch_sub(1, std::memory_order_relaxed);
  info.bytes.fetch_sub(static_cast<int64_t>(size), std::memory_order_relaxed);
  ::operator delete(p);
}

void PtrInterface::destroy() const {
  // The callbacks run with one reference held, so one that takes and drops a
  // Ptr to the object does not start a second destruction. Nobody else can
  // reach the object any more, so plain stores suffice.
  references_ = 1;
  if (zeroReferencesNotifiee_) zeroReferencesNotifiee_->onZeroReferences();
  onZeroReferences();
  fmassert(references_ == 1, "a zero-references callback kept a reference to the object");
  references_ = 0;
  auto* self = const_cast<PtrInterface*>(this);
  AllocTrackTypeInfo* info = allocTrack_;
  if (!info) {
    delete self;
    return;
  }
  size_t size = allocSize_;
  void* base = dynamic_cast<void*>(self);
  self->~PtrInterface();
  zentMemFree(base, size, *info);
}

}  // namespace Zent
