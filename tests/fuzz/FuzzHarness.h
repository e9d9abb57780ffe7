#pragma once
// What a fuzz harness offers the corpus replay (ReplayMain.cpp).

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

// After the committed corpus was replayed: whether it still reached all the
// harness checks (a corpus gone stale after a layout change must fail loudly
// instead of testing nothing). Prints what it found.
bool corpusCoversHarness();
