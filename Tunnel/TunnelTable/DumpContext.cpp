#include "Tunnel/TunnelTable/DumpContext.h"

#include <atomic>
#include <cstdint>
#include <iostream>

namespace Tunnel::TunnelTable {

namespace {

// Null means std::cout; an atomic so a test's redirect is seen by dumps made
// from other threads.
std::atomic<std::ostream*> defaultOutput_{nullptr};

}  // namespace

std::ostream& DumpContext::defaultOutput() {
  std::ostream* out = defaultOutput_.load(std::memory_order_acquire);
  return out ? *out : std::cout;
}

void DumpContext::defaultOutputIs(std::ostream* out) {
  defaultOutput_.store(out, std::memory_order_release);
}

std::string dumpIndent(int indent) {
  int64_t width = indent < 0 ? -int64_t{indent} : int64_t{indent};
  return std::string(static_cast<size_t>(width < 1 ? 1 : width), ' ');
}

void dumpLine(DumpContext* ctx, int indent, std::string_view text) {
  if (!ctx) {
    DumpContext::defaultOutput() << text;
    return;
  }
  ctx->out() << dumpIndent(indent) << text;
}

}  // namespace Tunnel::TunnelTable
