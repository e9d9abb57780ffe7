#include <deque>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tunnel/framework/Rivy/EventLoop.h"
#include "Tunnel/framework/Rivy/InputStateMachine.h"

namespace {

using namespace std::chrono_literals;
using Rivy::Gen::ScanState;

Rivy::SmControl control(Rivy::TaskScheduler* scheduler, bool leading = false) {
  Rivy::SmControl c;
  c.leading = leading;
  c.taskScheduler = scheduler;
  return c;
}

TEST(RivySchedulerTest, HigherPriorityRunsFirstAndEqualPrioritiesTakeTurns) {
  Rivy::TaskScheduler scheduler;
  std::string order;
  std::map<char, int> left = {{'a', 3}, {'b', 3}, {'H', 2}};
  std::deque<Rivy::Task> tasks;
  for (char name : {'a', 'b', 'H'}) {
    tasks.emplace_back(scheduler, std::string(1, name), name == 'H' ? 5 : 1,
                       [&, name, i = tasks.size()] {
                         order += name;
                         if (--left[name] > 0) tasks[i].schedule();
                       });
    tasks.back().schedule();
    tasks.back().schedule();  // already scheduled: no second run
  }
  EXPECT_EQ(scheduler.runUntilIdle(), 8u);
  EXPECT_EQ(order, "HHababab");
}

// A task works through items that each cost 1ms on a hand-driven clock.
TEST(RivySchedulerTest, TimeSliceComesFromTheTaskElseFromTheScheduler) {
  for (auto [taskSlice, items] :
       {std::tuple{0ns, 5}, std::tuple{std::chrono::nanoseconds(3ms), 3}}) {
    Rivy::TaskScheduler scheduler(5ms);
    std::chrono::nanoseconds now{0};
    scheduler.clockIs([&] { return now; });
    int done = 0;
    Rivy::Task task(scheduler, "t", 0, [&] {
      do {
        now += 1ms;
        ++done;
      } while (!scheduler.shouldYield());
    });
    task.yieldTimeIs(taskSlice);
    EXPECT_FALSE(task.shouldYield());  // not running
    task.schedule();
    scheduler.runSome();
    EXPECT_EQ(done, items);
    EXPECT_EQ(task.longestRun(), std::chrono::nanoseconds(1ms) * items);
  }
}

// The scheduler's figure must not lose the run in which a task deleted itself.
// A task that deletes itself still ends its run: what it calls afterwards
// yields on the run's slice, and the run counts.
TEST(RivySchedulerTest, ARunOutlivesATaskThatDeletesItself) {
  Rivy::TaskScheduler scheduler(2ms);
  std::chrono::nanoseconds now{0};
  scheduler.clockIs([&] { return now; });
  std::unique_ptr<Rivy::Task> task;
  bool yieldAfterDelete = false;
  task = std::make_unique<Rivy::Task>(scheduler, "t", 0, [&] {
    now += 3ms;
    task.reset();
    yieldAfterDelete = scheduler.shouldYield();
  });
  task->schedule();
  scheduler.runSome();
  EXPECT_TRUE(yieldAfterDelete);
  EXPECT_FALSE(scheduler.shouldYield());
  EXPECT_EQ(scheduler.longestRun(), 3ms);
}

// An input machine over 1,000 keys of a std::map, scanned as a merge input is.
// It is its own parent: the end of its first scan ends the parent's initial
// scan, which starts the second scan from inside the first one's last run.
struct MapInput : Rivy::Gen::InputStateMachine<uint64_t> {
  std::map<uint64_t, int> table;
  std::map<uint64_t, int> visits;
  bool parentInitialScanDone = false;
  ScanState firstScanEnd = ScanState::notStarted;
  explicit MapInput(Rivy::SmControl c) : InputStateMachine(std::move(c), "MapInputScanTask") {
    for (uint64_t k = 0; k < 1000; ++k) table[k * 7] = 0;
  }
  void doInputScan() override {
    if (inputScanComplete()) return;
    auto start = scanStart();
    auto it = start ? table.lower_bound(*start) : table.begin();
    uint64_t n = 0;
    while (it != table.end()) {
      ++visits[(it++)->first];
      ++n;
      if (it != table.end() && shouldYield()) {
        return scanYielded(it->first, n, std::distance(it, table.end()));
      }
    }
    scanEnded(parentInitialScanDone, n);
    if (parentInitialScanDone) return;
    firstScanEnd = scanState();
    parentInitialScanDone = true;
    rescan();
  }
};

// A leading machine is synchronous: it scans in its caller, without a task.
TEST(RivyInputStateMachineTest, ABookmarkedScanVisitsEveryKeyOnceWhateverTheYields) {
  for (auto [policy, leading, runsPerScan] :
       {std::tuple{Rivy::YieldPolicy::everyCall, false, 1000u},
        std::tuple{Rivy::YieldPolicy::never, false, 1u},
        std::tuple{Rivy::YieldPolicy::everyCall, true, 0u}}) {
    Rivy::TaskScheduler scheduler;
    scheduler.yieldPolicyIs(policy);
    MapInput input(control(&scheduler, leading));
    input.handleInitialized();
    EXPECT_EQ(input.visits.empty(), !leading);  // asynchronous: the task runs the scan
    // The second scan is a run of its own; its last run deletes the task.
    EXPECT_EQ(scheduler.runUntilIdle(), 2 * runsPerScan);
    EXPECT_EQ(input.firstScanEnd, ScanState::initialScanComplete);
    EXPECT_TRUE(input.inputScanComplete());
    EXPECT_EQ(input.scanTask(), nullptr);
    ASSERT_EQ(input.visits.size(), 1000u);
    for (auto [key, n] : input.visits) ASSERT_EQ(n, 2) << key;
  }
}

TEST(RivySmControlTest, AnExplicitModeWinsElseLeadingMakesSynchronousElseThePreviousValueStays) {
  for (bool leading : {false, true}) {
    for (bool previous : {false, true}) {
      Rivy::SmControl c = control(nullptr, leading);
      EXPECT_EQ(c.synchronousFrom(previous), leading || previous);
      c.synchronousMode = Rivy::SynchronousMode::synchronous;
      EXPECT_TRUE(c.synchronousFrom(previous));
      c.synchronousMode = Rivy::SynchronousMode::asynchronous;
      EXPECT_FALSE(c.synchronousFrom(previous));
    }
  }
}

TEST(RivyEventLoopTest, DispatchesReadableFdsTimersAndTasks) {
  Rivy::EventLoop loop;
  int taskRuns = 0;
  Rivy::Task task(loop.taskScheduler(), "t", 0, [&] { ++taskRuns; });
  task.schedule();
  loop.timerIs(60s, [] { ADD_FAILURE() << "a scheduled task did not cut the wait"; });
  loop.runOnce(-1);
  EXPECT_EQ(taskRuns, 1);
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  std::string got;
  loop.fdIs(p[0], [&] {
    char c;
    ASSERT_EQ(read(p[0], &c, 1), 1);
    got += c;
    loop.fdDel(p[0]);  // removing itself while it runs
  });
  int once = 0, periodic = 0;
  loop.timerIs(1ms, [&] { ++once; });
  Rivy::EventLoop::TimerId tick = 0;
  auto tock = [&] {
    if (++periodic < 3) return;
    loop.timerDel(tick);  // a periodic timer ends itself
    loop.stop();
  };
  tick = loop.timerIs(1ms, tock, 1ms);
  ASSERT_EQ(write(p[1], "x", 1), 1);
  loop.run();
  EXPECT_EQ(got, "x");
  EXPECT_EQ(once, 1);
  EXPECT_EQ(periodic, 3);
  close(p[0]);
  close(p[1]);
}

}  // namespace
