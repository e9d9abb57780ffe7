#pragma once
// DumpContext: where the indented state dumps of tunnel table entries go.
// Dumps given no context go, without indent, to one process-wide output
// (std::cout unless a test redirects it).

#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tunnel::TunnelTable {

class DumpContext {
 public:
  explicit DumpContext(std::ostream& out) : out_(&out) {}

  std::ostream& out() const { return *out_; }

  // The output of dumps made without a context.
  static std::ostream& defaultOutput();
  // Redirects dumps made without a context to `out` (not owned); null
  // restores std::cout.
  static void defaultOutputIs(std::ostream* out);

 private:
  std::ostream* out_;
};

// The blanks a dump line starts with, as printf's "%*c" prints a blank at
// width `indent`: at least one blank (width 0 or 1 both give one), and a
// negative width pads the same way, left-justified.
std::string dumpIndent(int indent);

// Writes one dump line (the caller ends it with "\n"): to ctx's output after
// the indent, or to the default output without indent when ctx is null.
void dumpLine(DumpContext* ctx, int indent, std::string_view text);

template <typename... Args>
void dumpf(DumpContext* ctx, int indent, fmt::format_string<Args...> format, Args&&... args) {
  dumpLine(ctx, indent, fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace Tunnel::TunnelTable
