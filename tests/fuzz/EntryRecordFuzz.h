#pragma once
// The entry record fuzz harness's view of the entry types: one input is a
// selector byte (which entry type) followed by the bytes handed to that type's
// deserializeLen. The harness and the corpus generator share this list.

#include <cstddef>
#include <tuple>

#include "tests/TunnelTable/EntryTypes.h"

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

}  // namespace Tunnel::TunnelTable::fuzz
