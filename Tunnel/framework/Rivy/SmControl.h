#pragma once
// The control record a generated state machine is built with: which scheduler
// runs its tasks, at what priority and slice, and whether it runs synchronously
// (every scan to the end in the caller, without tasks).

#include <chrono>
#include <cstdint>
#include <string>

namespace Rivy {

class TaskScheduler;

enum class SynchronousMode : uint8_t { byDefault = 0, synchronous = 1, asynchronous = 2 };

struct SmControl {
  // The machine runs in the leading agent, where it is synchronous by default.
  bool leading = false;
  TaskScheduler* taskScheduler = nullptr;
  int taskPriority = 0;
  std::string taskName;
  // Zero takes the scheduler's slice.
  std::chrono::nanoseconds yieldTime{0};
  SynchronousMode synchronousMode = SynchronousMode::byDefault;

  // Whether a machine whose synchronous flag was `previous` runs synchronously:
  // an explicit mode wins, else a leading machine is synchronous and any other
  // keeps what it had.
  bool synchronousFrom(bool previous) const {
    switch (synchronousMode) {
      case SynchronousMode::synchronous:
        return true;
      case SynchronousMode::asynchronous:
        return false;
      case SynchronousMode::byDefault:
        break;
    }
    return leading || previous;
  }
};

}  // namespace Rivy
