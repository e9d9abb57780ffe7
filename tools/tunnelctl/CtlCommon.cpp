#include "tools/tunnelctl/CtlCommon.h"

#include <cstdio>

namespace TunnelCtl {

void printError(std::string const& message) {
  std::fflush(stdout);  // keeps the order of what went to both
  std::fprintf(stderr, "tunnelctl: %s\n", message.c_str());
}

void printNote(std::string const& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "tunnelctl: note: %s\n", message.c_str());
}

}  // namespace TunnelCtl
