// Costs the framework adds to every agent: a Ptr copy with the thread-safe
// switch off and on, and a disabled trace. Each figure has its baseline in
// the same run: the switch-off copy for the switch-on copy, and an empty loop
// with the same compiler barriers for the disabled trace.

#include <cstdint>

#include <benchmark/benchmark.h>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Ptr.h"

namespace FrameworkBench {

DABIN_FACILITY("FrameworkBench");

namespace {

class Object : public Zent::PtrInterface {};

void ptrCopyDestroy(benchmark::State& state, bool threadSafe) {
  Zent::VFPtrInterface::threadSafePointers_ = threadSafe;
  Zent::Ptr<Object> held(Zent::newTracked<Object>());
  for (auto _ : state) {
    Zent::Ptr<Object> copy(held);
    benchmark::DoNotOptimize(copy);
  }
  Zent::VFPtrInterface::threadSafePointers_ = false;
}

void BM_PtrCopyDestroy_SwitchOff(benchmark::State& state) { ptrCopyDestroy(state, false); }
void BM_PtrCopyDestroy_SwitchOn(benchmark::State& state) { ptrCopyDestroy(state, true); }

void BM_EmptyLoop(benchmark::State& state) {
  uint64_t i = 0;
  for (auto _ : state) {
    ++i;
    benchmark::DoNotOptimize(i);
    benchmark::ClobberMemory();
  }
}

void BM_DisabledTrace(benchmark::State& state) {
  dabinFacility_.levelsUpTo(-1);
  uint64_t i = 0;
  for (auto _ : state) {
    ++i;
    fmtrace(5, "entry {} changed", i);
    benchmark::DoNotOptimize(i);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_PtrCopyDestroy_SwitchOff);
BENCHMARK(BM_PtrCopyDestroy_SwitchOn);
BENCHMARK(BM_EmptyLoop);
BENCHMARK(BM_DisabledTrace);

}  // namespace
}  // namespace FrameworkBench

BENCHMARK_MAIN();
