// Replays a fuzz corpus through the harness linked with it, so every test
// build checks what the fuzzer found without needing libFuzzer. The corpus is
// TUNNEL_FUZZ_CORPUS_DIR unless directories or files are named.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/FuzzHarness.h"

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> const named(argv + 1, argv + argc);
  std::vector<fs::path> files;
  for (fs::path const& p : named.empty() ? std::vector<fs::path>{TUNNEL_FUZZ_CORPUS_DIR} : named) {
    if (!fs::is_directory(p)) files.push_back(p);  // or a missing corpus: unreadable
    for (auto const& f :
         fs::is_directory(p) ? fs::directory_iterator(p) : fs::directory_iterator()) {
      if (f.is_regular_file()) files.push_back(f.path());
    }
  }
  std::sort(files.begin(), files.end());
  for (fs::path const& f : files) {
    std::ifstream in(f, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", f.c_str());
      return 1;
    }
    std::vector<uint8_t> const bytes{std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("replayed %zu inputs\n", files.size());
  return !files.empty() && (!named.empty() || corpusCoversHarness()) ? 0 : 1;
}
