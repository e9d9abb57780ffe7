#include "Tunnel/framework/Rivy/Task.h"

#include <algorithm>

#include "Tunnel/framework/Dabin.h"

namespace Rivy {

Task::Task(TaskScheduler& scheduler, std::string name, int priority, std::function<void()> run)
    : scheduler_(scheduler),
      name_(std::move(name)),
      priority_(priority),
      run_(std::make_shared<std::function<void()>>(std::move(run))) {
  fmassert(*run_, "task {} has nothing to run", name_);
  ++scheduler_.liveTasks_;
}

Task::~Task() {
  unschedule();
  scheduler_.forget(*this);
}

void Task::schedule() {
  if (scheduled_) return;
  scheduled_ = true;
  scheduler_.enqueue(*this);
}

void Task::unschedule() {
  if (!scheduled_) return;
  scheduled_ = false;
  scheduler_.dequeue(*this);
}

bool Task::running() const { return scheduler_.running_ == this; }

bool Task::shouldYield() const { return running() && scheduler_.shouldYield(); }

TaskScheduler::TaskScheduler(std::chrono::nanoseconds yieldTime)
    : yieldTime_(yieldTime), clock_([] {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
      }) {}

TaskScheduler::~TaskScheduler() {
  fmassert(liveTasks_ == 0, "{} tasks outlive their scheduler", liveTasks_);
}

bool TaskScheduler::shouldYield() const {
  if (!inRun_) return false;
  switch (yieldPolicy_) {
    case YieldPolicy::everyCall:
      return true;
    case YieldPolicy::never:
      return false;
    case YieldPolicy::timeSlice:
      break;
  }
  return now() - runStart_ >= runSlice_;
}

void TaskScheduler::enqueue(Task& t) {
  ready_[t.priority_].push_back(&t);
  ++scheduledCount_;
}

void TaskScheduler::dequeue(Task& t) {
  auto it = ready_.find(t.priority_);
  fmassert(it != ready_.end(), "scheduled task {} is not queued", t.name_);
  auto& queue = it->second;
  queue.erase(std::find(queue.begin(), queue.end(), &t));
  if (queue.empty()) ready_.erase(it);
  --scheduledCount_;
}

void TaskScheduler::forget(Task& t) {
  --liveTasks_;
  if (running_ == &t) running_ = nullptr;
}

bool TaskScheduler::runSome() {
  fmassert(!inRun_, "a task runs the scheduler");
  if (ready_.empty()) return false;
  auto it = ready_.begin();
  Task* task = it->second.front();
  it->second.pop_front();
  if (it->second.empty()) ready_.erase(it);
  --scheduledCount_;
  task->scheduled_ = false;

  running_ = task;
  inRun_ = true;
  runSlice_ = task->yieldTime_.count() > 0 ? task->yieldTime_ : yieldTime_;
  runStart_ = now();
  auto run = task->run_;
  try {
    (*run)();
  } catch (...) {
    // The error is the caller's to handle; the scheduler stays usable.
    endRun(task);
    throw;
  }
  endRun(task);
  return true;
}

void TaskScheduler::endRun(Task* task) {
  inRun_ = false;
  auto const took = now() - runStart_;
  longestRun_ = std::max(longestRun_, took);
  if (running_ != task) return;  // the task destroyed itself
  running_ = nullptr;
  ++task->runs_;
  task->longestRun_ = std::max(task->longestRun_, took);
}

uint64_t TaskScheduler::runUntilIdle(uint64_t maxRuns) {
  uint64_t runs = 0;
  while (runs < maxRuns && runSome()) ++runs;
  return runs;
}

}  // namespace Rivy
