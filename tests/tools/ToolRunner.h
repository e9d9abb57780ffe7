#pragma once
// Runs the built tunnelctl as a user would: a child process with its own
// stdout and stderr, either to completion (run) or in the background, read
// while it runs and interrupted like Ctrl-C (BackgroundTool).

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ToolTest {

struct RunResult {
  int code = -1;  // exit code, or 128 + signal
  std::string out;
  std::string err;
};

// Called in the child just before exec (for example to drop privileges).
using BeforeExec = std::function<void()>;

RunResult run(std::vector<std::string> const& args, BeforeExec before = {});

class BackgroundTool {
 public:
  explicit BackgroundTool(std::vector<std::string> const& args);
  ~BackgroundTool();  // kills the tool if it still runs
  BackgroundTool(BackgroundTool const&) = delete;
  BackgroundTool& operator=(BackgroundTool const&) = delete;

  pid_t pid() const { return pid_; }
  // Reads until the output so far contains `text`; false after `timeout`
  // or when the tool's output ends first.
  bool waitOut(std::string const& text,
               std::chrono::milliseconds timeout = std::chrono::seconds(30));
  bool waitErr(std::string const& text,
               std::chrono::milliseconds timeout = std::chrono::seconds(30));
  // Sends `sig`, reads what is left and waits for the exit.
  RunResult stop(int sig);
  std::string const& out() const { return out_; }
  std::string const& err() const { return err_; }

 private:
  bool waitFor(std::string const& text, bool fromErr, std::chrono::milliseconds timeout);
  bool pump(int timeoutMs);  // false when both pipes are closed

  pid_t pid_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  std::string out_;
  std::string err_;
};

}  // namespace ToolTest
