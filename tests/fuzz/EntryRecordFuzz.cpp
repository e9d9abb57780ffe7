// Fuzzes the record code of every tunnel table entry type and of the FIB's
// variable-length records. Arbitrary bytes are refused or accepted without a
// read outside the buffer; an accepted record reads back into a value that
// writes the very same bytes, and reading those again gives an equal value. Built as a libFuzzer
// target with clang and replayed over the committed corpus by every test build.

#include "tests/fuzz/EntryRecordFuzz.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamselMap.h"
#include "tests/fuzz/FuzzHarness.h"

namespace Tunnel::TunnelTable::fuzz {
namespace {

std::array<size_t, kEntryTypeCount> acceptedCounts{};

// A broken property is a crash to the fuzzer, which then keeps the input.
[[noreturn]] void failed(std::string_view type, char const* what, size_t len) {
  std::fprintf(stderr, "%.*s: record of %zu bytes: failed: %s\n", static_cast<int>(type.size()),
               type.data(), len, what);
  std::abort();
}

#define FUZZ_CHECK(cond) ((cond) ? void() : failed(T::kTypeName, #cond, n))

// A heap block holding exactly these bytes: ASan flags any read past its end.
std::unique_ptr<unsigned char[]> exactCopy(unsigned char const* p, size_t n) {
  std::unique_ptr<unsigned char[]> b(new unsigned char[n]);
  if (n) std::memcpy(b.get(), p, n);
  return b;
}

template <typename T>
void fuzzRecord(size_t index, unsigned char const* data, unsigned n) {
  auto const rec = exactCopy(data, n);
  // deserializeLen reads no state of its entry: one default entry serves.
  static T const* const probe = new T();
  uint32_t const len = probe->deserializeLen(rec.get(), n);
  if constexpr (ZentTamsel::oneCheckedPass<T>()) {
    // The one-pass read accepts exactly what deserializeLen accepts, and
    // reads what deserialize reads.
    auto const c = std::make_unique<T>();
    FUZZ_CHECK(c->deserializeChecked(rec.get(), n) == (len != 0));
    if (len != 0) {
      auto const d = std::make_unique<T>();
      d->deserialize(rec.get(), n);
      FUZZ_CHECK(*c == *d);
    }
  }
  if (len == 0) {
    // Refused bytes may still be handed to deserialize: it may throw, or read
    // values that make no sense, but stays inside the buffer and the arrays.
    auto const e = std::make_unique<T>();
    try {
      e->deserialize(rec.get(), n);
    } catch (RecordError const&) {
    } catch (Zent::RangeException const&) {
    }
    return;
  }
  ++acceptedCounts[index];
  // The record's own length, which a slot-reporting type leaves to its value.
  uint32_t size = len;
  if constexpr (kReportsSlot<T>) {
    FUZZ_CHECK(len == T::kMaxSerializedLen);
    auto const first = std::make_unique<T>();
    first->deserialize(rec.get(), n);
    size = first->serializeLen();
  }
  FUZZ_CHECK(size <= n);
  // Whether a record is valid does not depend on the bytes after it.
  auto const exact = exactCopy(data, size);
  FUZZ_CHECK(probe->deserializeLen(exact.get(), size) == len);

  // An accepted record reads without throwing (an escaping exception aborts).
  auto const e = std::make_unique<T>();
  e->deserialize(exact.get(), size);
  FUZZ_CHECK(e->serializeLen() == size);
  // Filled first, so that a byte serialize leaves unwritten shows.
  std::unique_ptr<unsigned char[]> const again(new unsigned char[size]);
  std::memset(again.get(), 0xa5, size);
  e->serialize(again.get());
  // Records are canonical: the value read writes back the bytes it came from.
  FUZZ_CHECK(std::memcmp(again.get(), exact.get(), size) == 0);

  auto const back = std::make_unique<T>();
  back->deserialize(again.get(), size);
  FUZZ_CHECK(*back == *e);
  FUZZ_CHECK(back->hash() == e->hash());
  FUZZ_CHECK(back->stringValue() == e->stringValue());
}

#undef FUZZ_CHECK

template <size_t... I>
void fuzzType(size_t index, unsigned char const* data, unsigned n, std::index_sequence<I...>) {
  ((index == I ? fuzzRecord<std::tuple_element_t<I, FuzzedEntryTypes>>(I, data, n) : void()), ...);
}

}  // namespace

}  // namespace Tunnel::TunnelTable::fuzz

// The committed corpus must still hold a valid record of every type.
bool corpusCoversHarness() {
  using namespace Tunnel::TunnelTable::fuzz;
  size_t const missing = [&]<size_t... I>(std::index_sequence<I...>) {
    return ((std::printf("  %6zu accepted  %s\n", acceptedCounts[I],
                         std::tuple_element_t<I, FuzzedEntryTypes>::kTypeName),
             acceptedCounts[I] == 0) +
            ...);
  }
  (std::make_index_sequence<kEntryTypeCount>());
  if (missing)
    std::fprintf(stderr, "%zu entry types lack a record: rerun entry_record_corpus\n", missing);
  return missing == 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  using namespace Tunnel::TunnelTable::fuzz;
  if (size == 0 || size - 1 > std::numeric_limits<unsigned>::max()) return 0;
  fuzzType(data[0] % kEntryTypeCount, data + 1, static_cast<unsigned>(size - 1),
           std::make_index_sequence<kEntryTypeCount>());
  return 0;
}
