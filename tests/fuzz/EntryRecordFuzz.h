#pragma once
// The entry record fuzz harness's view of the entry types: one input is a
// selector byte (which entry type) followed by the bytes handed to that type's
// deserializeLen. The harness and the corpus generator share this list.

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tests/TunnelFib/FibTypes.h"
#include "tests/TunnelTable/RibTypes.h"

namespace Tunnel::TunnelTable::fuzz {

template <typename List>
struct TupleOf;
template <template <typename...> class List, typename... Ts>
struct TupleOf<List<Ts...>> {
  using type = std::tuple<Ts...>;
};

// Every entry type of the contract suite, so that a new one is fuzzed too,
// then the FIB's two variable-length records, the RIB entry and the multicast
// entry (whose MLDP and static kinds share its record).
using FuzzedEntryTypes = decltype(std::tuple_cat(
    std::declval<TupleOf<test::AllEntryTypes>::type>(),
    std::declval<std::tuple<TunnelFib::TunnelFibEntry, TunnelFib::LabelStackEncap, TunnelRibEntry,
                            MplsMulticastTunnelTableEntry>>()));
// deserializeLen reports the table's slot for any valid record, not its length.
template <typename T>
inline constexpr bool kReportsSlot =
    std::is_same_v<T, TunnelFib::TunnelFibEntry> || std::is_same_v<T, TunnelRibEntry>;
inline constexpr size_t kEntryTypeCount = std::tuple_size_v<FuzzedEntryTypes>;

}  // namespace Tunnel::TunnelTable::fuzz
