#pragma once
// The single-thread loop of an agent: it waits on file descriptors (the
// shared-memory tables and value stores signal changes through one), fires
// timers on the monotonic clock and gives the cooperative tasks their runs.
// Every callback runs on the thread that calls run() or runOnce().

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "Tunnel/framework/Rivy/Task.h"

namespace Rivy {

class EventLoop {
 public:
  using TimerId = uint64_t;

  EventLoop() = default;
  EventLoop(EventLoop const&) = delete;
  EventLoop& operator=(EventLoop const&) = delete;

  TaskScheduler& taskScheduler() { return scheduler_; }

  // Calls onReadable whenever fd is readable (or hung up: the callback then
  // reads the end of the stream). Replaces an earlier callback for fd. The loop
  // does not own fd.
  void fdIs(int fd, std::function<void()> onReadable);
  void fdDel(int fd);

  // Fires once after delay, or every period when period is positive. Callbacks
  // may add and remove fds and timers, including their own.
  TimerId timerIs(std::chrono::nanoseconds delay, std::function<void()> onExpiry,
                  std::chrono::nanoseconds period = {});
  void timerDel(TimerId id);

  // One round: waits up to timeoutMs (-1: without limit) unless a task is
  // scheduled or a timer is due sooner, dispatches readable fds and due timers,
  // then gives one task one run, so a busy task delays the fds by at most a slice.
  void runOnce(int timeoutMs);
  // Rounds until stop(); stop() from a callback ends the current round's loop.
  void run();
  void stop() { stopped_ = true; }

 private:
  struct Timer {
    std::chrono::steady_clock::time_point due;
    std::chrono::nanoseconds period;
    std::shared_ptr<std::function<void()>> onExpiry;
  };
  int waitMs(int timeoutMs) const;
  void fireDueTimers();

  TaskScheduler scheduler_;
  // Shared so a callback that removes itself is not destroyed while it runs.
  std::map<int, std::shared_ptr<std::function<void()>>> fds_;
  // An agent has a handful of timers; a linear walk finds the next one.
  std::map<TimerId, Timer> timers_;
  TimerId nextTimerId_ = 1;
  bool stopped_ = false;
};

}  // namespace Rivy
