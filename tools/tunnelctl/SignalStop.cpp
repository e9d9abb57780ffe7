#include "tools/tunnelctl/SignalStop.h"

#include <csignal>

namespace TunnelCtl {

namespace {

volatile std::sig_atomic_t stopSignal_ = 0;

void onStop(int sig) { stopSignal_ = sig; }

}  // namespace

void installStopSignals() {
  struct sigaction sa {};
  sa.sa_handler = onStop;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = 0;  // no SA_RESTART: a blocked poll returns at once
  ::sigaction(SIGINT, &sa, nullptr);
  ::sigaction(SIGTERM, &sa, nullptr);
}

bool stopRequested() { return stopSignal_ != 0; }

int stopSignal() { return stopSignal_; }

}  // namespace TunnelCtl
