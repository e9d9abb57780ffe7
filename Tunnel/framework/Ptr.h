#pragma once
// Intrusive reference counting. Every entity and reactor derives from
// PtrInterface and is held through Ptr. Whether counts change with atomic
// read-modify-writes or plain updates is decided by one process-wide switch,
// read at every change, so single-threaded agents pay nothing for atomics.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Zent {

struct VFPtrInterface {
  // Set once at start-up, before threads share pointers.
  static inline std::atomic<bool> threadSafePointers_{false};
};

namespace detail {
inline void countInc(uint32_t& c) {
  if (VFPtrInterface::threadSafePointers_.load(std::memory_order_relaxed)) {
    std::atomic_ref<uint32_t>(c).fetch_add(1, std::memory_order_relaxed);
  } else {
    ++c;
  }
}
// True when the count reached zero.
inline bool countDec(uint32_t& c) {
  if (VFPtrInterface::threadSafePointers_.load(std::memory_order_relaxed)) {
    return std::atomic_ref<uint32_t>(c).fetch_sub(1, std::memory_order_acq_rel) == 1;
  }
  return --c == 0;
}
}  // namespace detail

// Per-type allocation tracking: tests read live counts to prove nothing leaks.
struct AllocTrackTypeInfo {
  explicit AllocTrackTypeInfo(std::string name);
  std::string const name;
  std::atomic<int64_t> live{0};
  std::atomic<uint64_t> allocs{0};
  std::atomic<int64_t> bytes{0};
};

std::string demangle(const char* mangled);
std::vector<AllocTrackTypeInfo const*> allocTrackTypeInfos();

template <typename T>
AllocTrackTypeInfo& zentAllocTrackTypeInfo() {
  static AllocTrackTypeInfo* info = new AllocTrackTypeInfo(demangle(typeid(T).name()));
  return *info;
}

template <typename T>
int64_t liveCount() {
  return zentAllocTrackTypeInfo<T>().live.load();
}

class PtrInterface {
 public:
  class NotifieeConst;  // reactors; defined with Entity

  // Runs when the last reference goes, before the object is destroyed.
  class ZeroReferencesNotifiee {
   public:
    virtual ~ZeroReferencesNotifiee() = default;
    virtual void onZeroReferences() = 0;
  };

  PtrInterface() = default;
  // Copies of a counted object start with no references of their own.
  PtrInterface(PtrInterface const&) : references_(0) {}
  PtrInterface& operator=(PtrInterface const&) { return *this; }
  virtual ~PtrInterface() = default;

  void referencesInc() const { detail::countInc(references_); }
  void referencesDec() const {
    if (detail::countDec(references_)) destroy();
  }
  uint32_t references() const { return references_; }

  void zeroReferencesNotifieeIs(ZeroReferencesNotifiee* n) { zeroReferencesNotifiee_ = n; }

  // Allocation through the framework allocator, recorded against a type.
  static void* zentMemAlloc(size_t size, AllocTrackTypeInfo& info);
  static void zentMemFree(void* p, size_t size, AllocTrackTypeInfo& info);

  // Runs when the last reference goes, after the zero-references notifiee and
  // before the destructor.
  virtual void onZeroReferences() const {}

 private:
  void destroy() const;

  mutable uint32_t references_ = 0;
  ZeroReferencesNotifiee* zeroReferencesNotifiee_ = nullptr;
  AllocTrackTypeInfo* allocTrack_ = nullptr;
  uint32_t allocSize_ = 0;

  template <typename T, typename... Args>
  friend T* newTracked(Args&&... args);
};

// Allocates T through the framework allocator with per-type tracking. If the
// constructor throws, the memory is released and the allocation unrecorded.
template <typename T, typename... Args>
T* newTracked(Args&&... args) {
  static_assert(std::is_base_of_v<PtrInterface, T>);
  auto& info = zentAllocTrackTypeInfo<T>();
  void* mem = PtrInterface::zentMemAlloc(sizeof(T), info);
  T* obj;
  try {
    obj = ::new (mem) T(std::forward<Args>(args)...);
  } catch (...) {
    PtrInterface::zentMemFree(mem, sizeof(T), info);
    throw;
  }
  PtrInterface* base = obj;
  base->allocTrack_ = &info;
  base->allocSize_ = sizeof(T);
  return obj;
}

template <typename T>
class Ptr {
 public:
  using element_type = T;

  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)
  Ptr(T* p) : p_(p) {              // NOLINT(google-explicit-constructor)
    if (p_) p_->referencesInc();
  }
  Ptr(Ptr const& o) : p_(o.p_) {
    if (p_) p_->referencesInc();
  }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <typename U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& o)
      : Ptr(o.ptr()) {}  // NOLINT(google-explicit-constructor)
  template <typename U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
  noexcept : p_(o.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() {
    if (p_) p_->referencesDec();
  }

  Ptr& operator=(Ptr const& o) {
    ptrAssign(o.p_);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    if (this != &o) {
      T* old = std::exchange(p_, std::exchange(o.p_, nullptr));
      if (old) old->referencesDec();
    }
    return *this;
  }

  // Increments the new object before releasing the old one, so assigning an
  // object to the pointer that holds its last reference is safe.
  void ptrAssign(T* p) {
    if (p) p->referencesInc();
    T* old = std::exchange(p_, p);
    if (old) old->referencesDec();
  }

  T* ptr() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  // Hands over the reference without decrementing.
  T* release() noexcept { return std::exchange(p_, nullptr); }

  template <typename U>
  bool operator==(Ptr<U> const& o) const noexcept {
    return p_ == o.ptr();
  }
  bool operator==(std::nullptr_t) const noexcept { return p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

template <typename T>
inline constexpr bool isPtr = false;
template <typename T>
inline constexpr bool isPtr<Ptr<T>> = true;

// Run-time type-tested downcast; null when the object is not a T.
template <typename T, typename U>
Ptr<T> dynamicPtrCast(Ptr<U> const& p) {
  return Ptr<T>(dynamic_cast<T*>(p.ptr()));
}

}  // namespace Zent
