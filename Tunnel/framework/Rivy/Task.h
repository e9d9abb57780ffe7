#pragma once
// Cooperative tasks of an agent's single event thread. A long job (a scan of a
// large table) runs as a Task in short runs: the TaskScheduler runs one task at
// a time, highest priority first, and the task asks shouldYield() between items
// and reschedules itself with a bookmark when told to give the thread back.

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace Rivy {

class TaskScheduler;

// A unit of cooperative work. Scheduling an already scheduled task does nothing;
// a task may reschedule or destroy itself while it runs. Its scheduler must
// outlive it.
class Task {
 public:
  Task(TaskScheduler& scheduler, std::string name, int priority, std::function<void()> run);
  ~Task();
  Task(Task const&) = delete;
  Task& operator=(Task const&) = delete;

  TaskScheduler& scheduler() const { return scheduler_; }
  std::string const& name() const { return name_; }
  // Higher runs first; equal priorities take turns in the order they were scheduled.
  int priority() const { return priority_; }

  void schedule();
  void unschedule();
  bool scheduled() const { return scheduled_; }
  bool running() const;
  // True when the scheduler wants this task, if running, to give the thread back.
  bool shouldYield() const;

  // The time slice of one run; zero takes the scheduler's.
  std::chrono::nanoseconds yieldTime() const { return yieldTime_; }
  void yieldTimeIs(std::chrono::nanoseconds t) { yieldTime_ = t; }

  // Items done so far over all runs, and items the task knows are still left;
  // both are the task's own accounting, for diagnostics.
  uint64_t workCount() const { return workCount_; }
  void workCountInc(uint64_t n) { workCount_ += n; }
  uint64_t pendingWork() const { return pendingWork_; }
  void pendingWorkIs(uint64_t n) { pendingWork_ = n; }

  uint64_t runs() const { return runs_; }
  // The longest single run, on the scheduler's clock: a task that honours
  // shouldYield() stays within its slice plus the cost of one item.
  std::chrono::nanoseconds longestRun() const { return longestRun_; }

 private:
  friend class TaskScheduler;
  TaskScheduler& scheduler_;
  std::string name_;
  int priority_;
  // Shared so a task destroyed during its own run keeps its callback until the run returns.
  std::shared_ptr<std::function<void()>> run_;
  bool scheduled_ = false;
  std::chrono::nanoseconds yieldTime_{0};
  uint64_t workCount_ = 0;
  uint64_t pendingWork_ = 0;
  uint64_t runs_ = 0;
  std::chrono::nanoseconds longestRun_{0};
};

// How the scheduler answers shouldYield(). The time slice is the production
// rule; the other two make a task's interleaving deterministic in tests.
enum class YieldPolicy { timeSlice, everyCall, never };

class TaskScheduler {
 public:
  using Clock = std::function<std::chrono::nanoseconds()>;

  explicit TaskScheduler(std::chrono::nanoseconds yieldTime = std::chrono::milliseconds(10));
  ~TaskScheduler();
  TaskScheduler(TaskScheduler const&) = delete;
  TaskScheduler& operator=(TaskScheduler const&) = delete;

  YieldPolicy yieldPolicy() const { return yieldPolicy_; }
  void yieldPolicyIs(YieldPolicy p) { yieldPolicy_ = p; }
  std::chrono::nanoseconds yieldTime() const { return yieldTime_; }
  void yieldTimeIs(std::chrono::nanoseconds t) { yieldTime_ = t; }
  // Replaces the monotonic clock, so tests can move time by hand.
  void clockIs(Clock clock) { clock_ = std::move(clock); }
  std::chrono::nanoseconds now() const { return clock_(); }

  Task* runningTask() const { return running_; }
  // The longest single run of any task so far, on this clock, counting runs in
  // which the task deleted itself (a scan task does in its last run): the
  // longest the loop went without a turn because of a task.
  std::chrono::nanoseconds longestRun() const { return longestRun_; }
  // The verdict for the current run, by its task's slice; false outside a run.
  bool shouldYield() const;
  bool idle() const { return scheduledCount_ == 0; }

  // Runs the next task once and returns false when none was scheduled. An
  // exception from the task passes through. Not reentrant: a task may not run
  // the scheduler.
  bool runSome();
  // Runs tasks until none is scheduled or maxRuns runs happened; returns the runs.
  uint64_t runUntilIdle(uint64_t maxRuns = UINT64_MAX);

 private:
  friend class Task;
  void enqueue(Task& t);
  void dequeue(Task& t);
  void forget(Task& t);
  void endRun(Task* task);

  std::chrono::nanoseconds yieldTime_;
  YieldPolicy yieldPolicy_ = YieldPolicy::timeSlice;
  Clock clock_;
  std::map<int, std::deque<Task*>, std::greater<>> ready_;
  uint64_t scheduledCount_ = 0;
  uint64_t liveTasks_ = 0;
  Task* running_ = nullptr;
  // A run lasts until its task returns, even when the task destroyed itself:
  // what it calls afterwards still yields on the run's slice.
  bool inRun_ = false;
  std::chrono::nanoseconds runSlice_{0};
  std::chrono::nanoseconds runStart_{0};
  std::chrono::nanoseconds longestRun_{0};
};

}  // namespace Rivy
