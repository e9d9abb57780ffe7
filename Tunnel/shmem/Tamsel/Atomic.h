#pragma once
// Atomic access to plain fields of shared-memory structs. The layout structs
// stay trivially copyable; concurrency lives in how fields are read and
// written. All shared fields are naturally aligned 32- or 64-bit words, which
// are lock-free on every target we build for.

#include <atomic>
#include <cstdint>

namespace Tamsel {

template <typename T>
inline T loadAcquire(T const& field) {
  static_assert(std::atomic_ref<T>::is_always_lock_free);
  return std::atomic_ref<T>(const_cast<T&>(field)).load(std::memory_order_acquire);
}

template <typename T>
inline T loadRelaxed(T const& field) {
  return std::atomic_ref<T>(const_cast<T&>(field)).load(std::memory_order_relaxed);
}

template <typename T>
inline void storeRelease(T& field, T v) {
  std::atomic_ref<T>(field).store(v, std::memory_order_release);
}

template <typename T>
inline void storeRelaxed(T& field, T v) {
  std::atomic_ref<T>(field).store(v, std::memory_order_relaxed);
}

}  // namespace Tamsel
