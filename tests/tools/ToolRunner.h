#pragma once
// Runs the built tunnelctl as a user would: its stdout and stderr go to memory
// files read while it runs; waited for, or interrupted like Ctrl-C.

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ToolTest {

struct RunResult {
  int code = -1;  // exit code, or 128 + signal
  std::string out, err;
};

class Tool {
 public:
  // `before` runs in the child just before exec (for example to drop privileges).
  explicit Tool(std::vector<std::string> const& args, std::function<void()> const& before = {})
      : out_(::memfd_create("out", MFD_CLOEXEC)), err_(::memfd_create("err", MFD_CLOEXEC)) {
    pid_ = ::fork();
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::dup2(out_, STDOUT_FILENO);
      ::dup2(err_, STDERR_FILENO);
      ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
      if (before) before();
      std::vector<char*> argv{const_cast<char*>(TUNNELCTL_PATH)};
      for (auto const& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(TUNNELCTL_PATH, argv.data());
      ::_exit(127);
    }
  }
  ~Tool() {  // kills a tool that still runs
    if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0) ::waitpid(pid_, nullptr, 0);
    ::close(out_);
    ::close(err_);
  }

  RunResult seen() const { return {-1, text(out_), text(err_)}; }
  // Whether stdout (or stderr) contains `text` within 30 s.
  bool waitFor(std::string const& part, bool inErr = false) const {
    for (int i = 0; i < 600; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
      if (text(inErr ? err_ : out_).find(part) != std::string::npos) return true;
    }
    return false;
  }
  // Sends `sig` (none for 0) and waits for the exit; a tool still running after
  // two minutes is killed, which the exit code shows.
  RunResult stop(int sig) {
    if (sig != 0) ::kill(pid_, sig);
    int status = 0;
    for (int i = 0; ::waitpid(pid_, &status, WNOHANG) == 0; ++i) {
      if (i == 12000) ::kill(pid_, SIGKILL);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), text(out_),
            text(err_)};
  }

 private:
  static std::string text(int fd) {
    std::string s;
    char buf[65536];
    for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, static_cast<off_t>(s.size()))) > 0;) {
      s.append(buf, static_cast<size_t>(n));
    }
    return s;
  }

  int out_, err_;
  pid_t pid_ = -1;
};

inline RunResult run(std::vector<std::string> const& args,
                     std::function<void()> const& before = {}) {
  return Tool(args, before).stop(0);
}

}  // namespace ToolTest
