// Replays the committed corpus through the entry record fuzz harness, so every
// test build checks what the fuzzer found without needing libFuzzer. The
// corpus directory defaults to TUNNEL_FUZZ_CORPUS_DIR; a path given as the
// first argument (a directory or one file) replaces it.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/EntryRecordFuzz.h"

namespace {

namespace fs = std::filesystem;
using Tunnel::TunnelTable::fuzz::acceptedRecords;
using Tunnel::TunnelTable::fuzz::entryTypeName;
using Tunnel::TunnelTable::fuzz::kEntryTypeCount;

std::vector<fs::path> inputsIn(fs::path const& path) {
  std::vector<fs::path> files;
  if (fs::is_directory(path)) {
    for (auto const& f : fs::directory_iterator(path)) {
      if (f.is_regular_file()) files.push_back(f.path());
    }
  } else {
    files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  fs::path const corpus = argc > 1 ? fs::path(argv[1]) : fs::path(TUNNEL_FUZZ_CORPUS_DIR);
  if (!fs::exists(corpus)) {
    std::fprintf(stderr, "no corpus at %s\n", corpus.c_str());
    return 1;
  }
  std::vector<fs::path> const files = inputsIn(corpus);
  for (fs::path const& f : files) {
    std::ifstream in(f, std::ios::binary);
    std::vector<unsigned char> const bytes{std::istreambuf_iterator<char>(in),
                                           std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("replayed %zu inputs from %s\n", files.size(), corpus.c_str());
  if (argc > 1) return 0;
  // The committed corpus must still hold a valid record of every type.
  int missing = 0;
  for (size_t i = 0; i < kEntryTypeCount; ++i) {
    std::printf("  %6zu accepted  %.*s\n", acceptedRecords(i),
                static_cast<int>(entryTypeName(i).size()), entryTypeName(i).data());
    if (acceptedRecords(i) == 0) ++missing;
  }
  if (missing) {
    std::fprintf(stderr,
                 "%d entry types have no valid record in the corpus: regenerate the seeds with "
                 "entry_record_corpus (see tests/fuzz/CMakeLists.txt)\n",
                 missing);
    return 1;
  }
  return 0;
}
