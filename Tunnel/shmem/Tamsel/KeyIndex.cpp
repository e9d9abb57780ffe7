#include "Tunnel/shmem/Tamsel/KeyIndex.h"

#include <new>
#include <sys/mman.h>

namespace Tamsel {

namespace {
constexpr uint64_t kInitialEntries = 64;
constexpr size_t kHugePage = size_t{1} << 21;
}  // namespace

KeyIndex::KeyIndex(uint32_t keySize) : keySize_(keySize), stride_(2 + (keySize + 7) / 8) {
  clear();
}

KeyIndex::~KeyIndex() { release(words_, bytes_); }

KeyIndex& KeyIndex::operator=(KeyIndex&& o) noexcept {
  if (this != &o) {
    release(words_, bytes_);
    keySize_ = o.keySize_;
    stride_ = o.stride_;
    mask_ = o.mask_;
    size_ = o.size_;
    words_ = std::exchange(o.words_, nullptr);
    bytes_ = std::exchange(o.bytes_, 0);
    o.mask_ = 0;
    o.size_ = 0;
  }
  return *this;
}

uint64_t* KeyIndex::allocate(uint64_t words, size_t* bytes) {
  size_t const want = words * sizeof(uint64_t);
  if (want < kHugePage) {
    *bytes = want;
    return static_cast<uint64_t*>(::operator new(want));  // zeroed below
  }
  // Anonymous memory comes zeroed; aligned to a huge page so that the
  // kernel can back it with huge pages where it allows them.
  size_t const size = (want + kHugePage - 1) & ~(kHugePage - 1);
  void* p = ::mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) throw std::bad_alloc();
  auto const at = reinterpret_cast<uintptr_t>(p);
  uintptr_t const aligned = (at + kHugePage - 1) & ~(kHugePage - 1);
  if (aligned > at) ::munmap(p, aligned - at);
  if (aligned + size < at + size + kHugePage) {
    ::munmap(reinterpret_cast<void*>(aligned + size), at + kHugePage - aligned);
  }
  (void)::madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
  *bytes = size;
  return reinterpret_cast<uint64_t*>(aligned);
}

void KeyIndex::release(uint64_t* words, size_t bytes) {
  if (!words) return;
  if (bytes < kHugePage) {
    ::operator delete(words);
  } else {
    ::munmap(words, bytes);
  }
}

void KeyIndex::clear() {
  release(words_, bytes_);
  mask_ = kInitialEntries - 1;
  size_ = 0;
  words_ = allocate(kInitialEntries * stride_, &bytes_);
  std::memset(words_, 0, kInitialEntries * stride_ * sizeof(uint64_t));
}

uint64_t* KeyIndex::find(void const* key, uint32_t hash) {
  for (uint64_t i = hash & mask_;; i = (i + 1) & mask_) {
    uint64_t* e = entry(i);
    if (!used(e)) return nullptr;
    if (holds(e, key, hash)) return e;
  }
}

void KeyIndex::put(void const* key, uint32_t hash, uint64_t version) {
  // At most three quarters full, so that a probe ends soon.
  if ((size_ + 1) * 4 > (mask_ + 1) * 3) grow();
  for (uint64_t i = hash & mask_;; i = (i + 1) & mask_) {
    uint64_t* e = entry(i);
    if (!used(e)) {
      e[0] = version;
      e[1] = kUsed | hash;
      e[stride_ - 1] = 0;  // the key's padding
      std::memcpy(e + 2, key, keySize_);
      ++size_;
      return;
    }
    if (holds(e, key, hash)) {
      e[0] = version;
      return;
    }
  }
}

void KeyIndex::erase(void const* key, uint32_t hash) {
  uint64_t* e = find(key, hash);
  if (!e) return;
  // Linear probing without tombstones: later entries of the run move back
  // into the hole when their probe would have passed through it.
  uint64_t hole = static_cast<uint64_t>(e - words_) / stride_;
  for (uint64_t i = (hole + 1) & mask_;; i = (i + 1) & mask_) {
    uint64_t* n = entry(i);
    if (!used(n)) break;
    uint64_t home = static_cast<uint32_t>(n[1]) & mask_;
    // Whether `home` lies cyclically outside (hole, i]: then the entry's
    // probe passes the hole, and it may move there.
    if (((i - home) & mask_) >= ((i - hole) & mask_)) {
      std::memcpy(entry(hole), n, stride_ * sizeof(uint64_t));
      hole = i;
    }
  }
  std::memset(entry(hole), 0, stride_ * sizeof(uint64_t));
  --size_;
}

void KeyIndex::grow() {
  uint64_t* const old = words_;
  size_t const oldBytes = bytes_;
  uint64_t const oldEntries = mask_ + 1;
  uint64_t const entries = oldEntries * 2;
  words_ = allocate(entries * stride_, &bytes_);
  if (bytes_ < kHugePage) std::memset(words_, 0, entries * stride_ * sizeof(uint64_t));
  mask_ = entries - 1;
  for (uint64_t j = 0; j < oldEntries; ++j) {
    uint64_t const* o = old + j * stride_;
    if (!used(o)) continue;
    uint64_t i = static_cast<uint32_t>(o[1]) & mask_;
    while (used(entry(i))) i = (i + 1) & mask_;
    std::memcpy(entry(i), o, stride_ * sizeof(uint64_t));
  }
  release(old, oldBytes);
}

}  // namespace Tamsel
