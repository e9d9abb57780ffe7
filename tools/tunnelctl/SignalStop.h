#pragma once
// SIGINT and SIGTERM as a request to stop: the commands that run until
// interrupted (watch, redist --watch, demo) poll it between dispatches, so
// they end cleanly, unmount, and report.

namespace TunnelCtl {

// Idempotent.
void installStopSignals();
bool stopRequested();
// The signal that asked to stop, or 0.
int stopSignal();

}  // namespace TunnelCtl
