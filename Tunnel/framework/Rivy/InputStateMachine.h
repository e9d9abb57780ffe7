#pragma once
// The runtime's part of a generated input machine: it owns the scan task, starts
// the first scan on initialization and keeps the bookkeeping of a scan that is
// cut into task runs. The derived machine walks its input in key order from
// scanStart() and reports each stop with scanYielded() or scanEnded().

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Rivy/SmControl.h"
#include "Tunnel/framework/Rivy/Task.h"

namespace Rivy::Gen {

enum class ScanState : uint8_t {
  notStarted = 0,
  resuming = 1,             // the bookmark is valid
  complete = 2,             // the parent's initial scan is done too
  initialScanComplete = 3,  // this input is scanned, the parent's initial scan is not done
};

template <class Key>
class InputStateMachine {
 public:
  InputStateMachine(SmControl control, std::string taskName)
      : control_(std::move(control)),
        taskName_(std::move(taskName)),
        synchronous_(control_.synchronousFrom(false)) {}
  virtual ~InputStateMachine() = default;
  InputStateMachine(InputStateMachine const&) = delete;
  InputStateMachine& operator=(InputStateMachine const&) = delete;

  SmControl const& control() const { return control_; }
  bool synchronous() const { return synchronous_; }
  void synchronousIs(bool s) { synchronous_ = s; }
  ScanState scanState() const { return scanState_; }
  void scanStateIs(ScanState s) { scanState_ = s; }
  bool inputScanComplete() const { return scanState_ == ScanState::complete; }
  std::optional<Key> const& bookmark() const { return bookmark_; }
  Task* scanTask() const { return scanTask_.get(); }

  // Sets up the scan task and starts the first scan: in the caller when
  // synchronous or without a task, else in the task's first run.
  void handleInitialized() {
    doInitializeTask();
    if (synchronous_ || !scanTask_) {
      doInputScan();
    } else {
      scanTask_->schedule();
    }
  }

  // Starts a later scan (the parent's second one): in the caller unless the
  // task is scheduled or running, which then runs it, since a scan may not run
  // inside itself.
  void rescan() {
    if (scanTask_ && !synchronous_ && (scanTask_->scheduled() || scanTask_->running())) {
      scanTask_->schedule();
    } else {
      doInputScan();
    }
  }

  // False when no task runs the scan or the machine is synchronous, else the
  // scheduler's verdict for the running task.
  bool shouldYield() const {
    if (!scanTask_ || synchronous_) return false;
    return scanTask_->scheduler().shouldYield();
  }

  void scanTaskIs() {
    fmassert(control_.taskScheduler, "{} needs a task scheduler to run asynchronously", taskName_);
    scanTask_ = std::make_unique<Task>(*control_.taskScheduler, taskName_, control_.taskPriority,
                                       [this] { doInputScan(); });
    scanTask_->yieldTimeIs(control_.yieldTime);
  }
  // Safe from the task's own run.
  void scanTaskDel() { scanTask_.reset(); }

 protected:
  virtual void doInputScan() = 0;
  // Creates the scan task unless the machine is synchronous.
  virtual void doInitializeTask() {
    if (!synchronous_) scanTaskIs();
  }

  // Where the scan goes on: the bookmark when resuming, else (nullopt) the first key.
  std::optional<Key> scanStart() const {
    return scanState_ == ScanState::resuming ? bookmark_ : std::nullopt;
  }

  // A yield after `visited` items with `next` the first key not visited; the
  // task resumes the scan there. Only a machine with a task is told to yield.
  void scanYielded(Key next, uint64_t visited, uint64_t remaining) {
    fmassert(scanTask_, "{} yields without a task to resume it", taskName_);
    bookmark_ = std::move(next);
    scanState_ = ScanState::resuming;
    scanTask_->workCountInc(visited);
    scanTask_->pendingWorkIs(remaining);
    scanTask_->schedule();
  }

  // The end of the input. Once the parent's initial scan is done the task is no
  // longer needed: later changes arrive as notifications.
  void scanEnded(bool parentInitialScanDone, uint64_t visited) {
    bookmark_.reset();
    if (scanTask_) {
      scanTask_->workCountInc(visited);
      scanTask_->pendingWorkIs(0);
    }
    if (parentInitialScanDone) {
      scanState_ = ScanState::complete;
      scanTaskDel();
    } else {
      scanState_ = ScanState::initialScanComplete;
    }
  }

 private:
  SmControl control_;
  std::string taskName_;
  bool synchronous_;
  ScanState scanState_ = ScanState::notStarted;
  std::optional<Key> bookmark_;
  std::unique_ptr<Task> scanTask_;
};

}  // namespace Rivy::Gen
