#pragma once
// Bounded writer and reader of the flat records tunnel table entries are kept
// as in shared memory: fields byte-packed in native order with no padding,
// lists as a u32 count followed by raw element records. Every entry's record
// code goes through these two classes, so bounds and count checks live here.

#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/framework/Dabin.h"

namespace Tunnel::TunnelTable {

// deserialize() was handed a record that deserializeLen() would refuse.
class RecordError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Whether a fixed record read from another process is a value of its type.
template <typename T>
bool recordValid(T const& v) {
  if constexpr (std::is_same_v<T, TunnelId>) {
    return v.value() <= TunnelId::maxValue;  // raw bytes skip the constructor's check
  } else if constexpr (requires { v.wellFormed(); }) {
    return v.wellFormed();
  } else {
    return true;
  }
}

// Writes a record of a length announced up front (the owner's serializeLen());
// writing past it is a programming error and aborts.
class RecordWriter {
 public:
  RecordWriter(void* buf, uint32_t len) : buf_(static_cast<unsigned char*>(buf)), len_(len) {}

  uint32_t offset() const { return pos_; }

  // A bool is one byte, 0 or 1; any other type is its raw record.
  template <typename T>
  void put(T const& v) {
    if constexpr (std::is_same_v<T, bool>) {
      uint8_t const b = v ? 1 : 0;
      putBytes(&b, 1);
    } else {
      static_assert(std::is_trivially_copyable_v<T>, "records hold plain values");
      putBytes(&v, sizeof(T));
    }
  }
  void putBytes(void const* src, uint32_t n) {
    if (n) std::memcpy(reserve(n), src, n);
  }
  void putZeros(uint32_t n) {
    if (n) std::memset(reserve(n), 0, n);
  }
  // A list: the u32 count, then the elements' raw records.
  template <typename Array>
  void putList(Array const& a) {
    Array::validateSize(a.count());
    put<uint32_t>(a.count());
    putBytes(a.data(), static_cast<uint32_t>(sizeof(typename Array::value_type) * a.count()));
  }

 private:
  unsigned char* reserve(uint32_t n) {
    fmassert(n <= len_ - pos_, "record of {} bytes, {} more at offset {}", len_, n, pos_);
    unsigned char* p = buf_ + pos_;
    pos_ += n;
    return p;
  }

  unsigned char* buf_;
  uint32_t len_;
  uint32_t pos_ = 0;
};

// Reads a record in place, never outside [buf, buf + len). The first failure
// (a short buffer, a count over a list's capacity, a value its type rejects,
// non-zero reserved bytes) sticks: later reads yield defaults and ok() stays
// false, so validation code reads straight through and asks once at the end.
class RecordReader {
 public:
  RecordReader(void const* buf, uint64_t len)
      : buf_(static_cast<unsigned char const*>(buf)), len_(len) {}

  bool ok() const { return ok_; }
  uint32_t offset() const { return static_cast<uint32_t>(pos_); }
  // Marks the record invalid at the current offset.
  bool fail() {
    if (ok_) failedAt_ = pos_;
    ok_ = false;
    return false;
  }

  // Reads a T into `out`; on failure `out` keeps its value.
  template <typename T>
  bool get(T& out) {
    if constexpr (std::is_same_v<T, bool>) {
      unsigned char const* p = take(1);
      if (!p) return false;
      if (*p > 1) return failBack(1);
      out = *p == 1;
    } else {
      static_assert(std::is_trivially_copyable_v<T>, "records hold plain values");
      unsigned char const* p = take(sizeof(T));
      if (!p) return false;
      T v;
      std::memcpy(static_cast<void*>(&v), p, sizeof(T));
      if (!recordValid(v)) return failBack(sizeof(T));
      out = v;
    }
    return true;
  }
  template <typename T>
  T get() {
    T v{};
    get(v);
    return v;
  }

  bool skip(uint64_t n) { return take(n) != nullptr; }
  // The next n bytes must be zero.
  bool skipZeros(uint64_t n) {
    unsigned char const* p = take(n);
    if (!p) return false;
    // Words or'ed together without an early exit, which compiles to vector
    // code: every base record has hundreds of bytes of fill.
    uint64_t i = 0, any = 0;
    for (; i + 8 <= n; i += 8) {
      uint64_t w;
      std::memcpy(&w, p + i, 8);
      any |= w;
    }
    for (; i < n; ++i) any |= p[i];
    return any == 0 || failBack(n);
  }
  unsigned char const* bytes(uint64_t n) { return take(n); }

  // Validates a list in place: a count within the capacity, then that many
  // well-formed element records.
  template <typename Array>
  bool checkList() {
    uint32_t n = 0;
    if (!get(n)) return false;
    if (n > Array::capacity) return failBack(sizeof n);
    typename Array::value_type v;
    for (uint32_t i = 0; i < n; ++i) {
      if (!get(v)) return false;
    }
    return true;
  }

  // Reads a list into `a`. A count over the capacity throws the array's range
  // exception before `a` changes; a short buffer fails the reader and leaves
  // `a` unchanged.
  template <typename Array>
  void getList(Array& a) {
    uint32_t n = 0;
    if (!get(n)) return;
    getElements(a, n);
  }
  // The same with every element checked, as checkList does: a count over the
  // capacity or an element its type rejects fails the reader, and `a` is
  // then unspecified. One pass both validates and reads.
  template <typename Array>
  void getListChecked(Array& a) {
    uint32_t n = 0;
    if (!get(n)) return;
    getElements<Array, true>(a, n);
  }

  // Replaces the contents of `a` with the next n raw element records. Unless
  // kChecked, they are copied, not checked (deserializeLen checks them), and
  // a count over the capacity throws before `a` changes; a short buffer
  // fails the reader and leaves `a` unchanged.
  template <typename Array, bool kChecked = false>
  void getElements(Array& a, uint32_t n) {
    using T = typename Array::value_type;
    if constexpr (kChecked) {
      if (n > Array::capacity) {
        fail();
        return;
      }
    } else {
      Array::validateSize(n);
    }
    uint64_t const at = pos_;
    unsigned char const* p = take(uint64_t{n} * sizeof(T));
    if (!p) return;
    if constexpr (alignof(T) == 1) {
      a.set(n, reinterpret_cast<T const*>(p));
      if constexpr (kChecked) {
        for (uint32_t i = 0; i < n; ++i) {
          if (!recordValid(a.data()[i])) return failAt(at + uint64_t{i} * sizeof(T));
        }
      }
    } else {
      // Element records may sit at any offset: a batch of them is copied out
      // into aligned storage, then appended. Fixed-size copies stay cheap for
      // a single element, and a batch is written before any of it is read.
      constexpr uint32_t kBatch = sizeof(T) >= 4096 ? 1 : 4096 / sizeof(T);
      alignas(T) unsigned char stage[kBatch * sizeof(T)];
      a.clear();
      for (uint32_t i = 0; i < n; i += kBatch) {
        uint32_t const k = n - i < kBatch ? n - i : kBatch;
        std::memcpy(stage, p + uint64_t{i} * sizeof(T), uint64_t{k} * sizeof(T));
        T const* v = std::launder(reinterpret_cast<T const*>(stage));
        for (uint32_t j = 0; j < k; ++j) {
          if constexpr (kChecked) {
            if (!recordValid(v[j])) return failAt(at + (uint64_t{i} + j) * sizeof(T));
          }
          a.push(v[j]);
        }
      }
    }
  }

  // A reader of the next n bytes, a fixed-size part of the record, or a
  // failed one when they are not there; join() it back when done. A local
  // reader keeps its state in registers, while one reached through a
  // reference is reloaded after every store into the entry.
  RecordReader part(uint64_t n) {
    uint64_t const at = pos_;
    unsigned char const* p = take(n);
    RecordReader sub(p, p ? n : 0);
    sub.origin_ = at;
    sub.ok_ = p != nullptr;
    return sub;
  }
  // Takes over the first failure of a reader made by part().
  void join(RecordReader const& sub) {
    if (sub.ok_ || !ok_) return;
    ok_ = false;
    failedAt_ = sub.origin_ + sub.failedAt_;
  }

  // For deserialize(): throws RecordError naming the type and the offset of
  // the first failure.
  void expectOk(std::string_view typeName) const {
    if (ok_) return;
    throw RecordError(std::string(typeName) + ": invalid record of " + std::to_string(len_) +
                      " bytes at offset " + std::to_string(failedAt_));
  }

 private:
  unsigned char const* take(uint64_t n) {
    if (!ok_) return nullptr;
    if (n > len_ - pos_) {
      fail();
      return nullptr;
    }
    unsigned char const* p = buf_ + pos_;
    pos_ += n;
    return p;
  }
  // Fails at the start of the field just taken.
  bool failBack(uint64_t n) {
    pos_ -= n;
    return fail();
  }
  void failAt(uint64_t at) {
    pos_ = at;
    fail();
  }

  unsigned char const* buf_;
  uint64_t len_;
  uint64_t pos_ = 0;
  uint64_t failedAt_ = 0;
  uint64_t origin_ = 0;  // where a part() reader starts in its whole record
  bool ok_ = true;
};

}  // namespace Tunnel::TunnelTable
