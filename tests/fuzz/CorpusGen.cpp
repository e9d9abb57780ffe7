// Writes the seed corpus of the entry record fuzzer: for every fuzzed type its
// default entry, the contract suite's small entry, two random entries and one
// with every array full, each as the selector byte and the entry's record.
// Run it again after a record layout changes, naming the type to rewrite
// only its seeds:
//   build/asan/tests/fuzz/entry_record_corpus tests/fuzz/corpus [TunnelRibEntry]

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/fuzz/EntryRecordFuzz.h"

namespace Tunnel::TunnelTable::fuzz {
namespace {

namespace fs = std::filesystem;

template <typename T>
void writeSeeds(fs::path const& dir, std::string const& only, size_t index) {
  using Traits = test::EntryTraits<T>;
  test::EntryRng rng(0xc0de + static_cast<uint32_t>(index));
  std::string const name(T::kTypeName);
  if (!only.empty() && name.substr(name.rfind(':') + 1) != only) return;
  char prefix[8];
  std::snprintf(prefix, sizeof prefix, "%02zu-", index);
  auto write = [&](std::string const& variant, T const& e) {
    std::vector<char> bytes(1 + e.serializeLen());
    bytes[0] = static_cast<char>(index);
    e.serialize(bytes.data() + 1);
    std::ofstream(dir / (prefix + name.substr(name.rfind(':') + 1) + "-" + variant),
                  std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  };
  // A default label stack names no encapsulation type, so it has no record.
  if constexpr (!std::is_same_v<T, Tunnel::TunnelFib::LabelStackEncap>) {
    write("default", *std::make_unique<T>());
  }
  write("small", *std::make_unique<T>(test::smallEntry<T>()));
  for (int i = 0; i < 3; ++i) {  // two random entries, then one with every array full
    auto e = std::make_unique<T>();
    Traits::randomize(*e, rng, i == 2);
    write(i == 2 ? "full" : "random" + std::to_string(i), *e);
  }
}

template <size_t... I>
void writeAll(fs::path const& dir, std::string const& only, std::index_sequence<I...>) {
  (writeSeeds<std::tuple_element_t<I, FuzzedEntryTypes>>(dir, only, I), ...);
}

}  // namespace
}  // namespace Tunnel::TunnelTable::fuzz

int main(int argc, char** argv) {
  using namespace Tunnel::TunnelTable::fuzz;
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: %s <corpus directory> [entry type]\n", argv[0]);
    return 2;
  }
  std::filesystem::create_directories(argv[1]);
  writeAll(argv[1], argc == 3 ? argv[2] : "", std::make_index_sequence<kEntryTypeCount>());
  return 0;
}
