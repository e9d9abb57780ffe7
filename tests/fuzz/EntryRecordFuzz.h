#pragma once
// The entry record fuzz harness's view of the entry types: one input is a
// selector byte (which entry type) followed by the bytes handed to that type's
// deserializeLen. The replay test and the corpus generator share this list.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <tuple>

#include "tests/TunnelTable/EntryTypes.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace Tunnel::TunnelTable::fuzz {

template <typename List>
struct TupleOf;
template <template <typename...> class List, typename... Ts>
struct TupleOf<List<Ts...>> {
  using type = std::tuple<Ts...>;
};

// Every entry type of the contract suite, so that a new one is fuzzed too.
using FuzzedEntryTypes = TupleOf<test::AllEntryTypes>::type;
inline constexpr size_t kEntryTypeCount = std::tuple_size_v<FuzzedEntryTypes>;

// The entry type an input's first byte selects.
inline size_t entryTypeIndex(uint8_t selector) { return selector % kEntryTypeCount; }

// The qualified name of entry type `index`.
std::string_view entryTypeName(size_t index);

// How many inputs of entry type `index` deserializeLen has accepted in this
// process: the replay test requires at least one of each, so a corpus gone
// stale after a layout change fails loudly instead of testing nothing.
size_t acceptedRecords(size_t index);

}  // namespace Tunnel::TunnelTable::fuzz
