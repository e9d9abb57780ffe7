#include "tests/tools/ToolRunner.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ToolTest {

namespace {

pid_t spawn(std::vector<std::string> const& args, int& outFd, int& errFd,
            BeforeExec const& before) {
  int out[2], err[2];
  if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) std::abort();
  pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(err[1], STDERR_FILENO);
    int devNull = ::open("/dev/null", O_RDONLY);
    ::dup2(devNull, STDIN_FILENO);
    if (before) before();
    std::vector<char*> argv;
    std::string path = TUNNELCTL_PATH;
    argv.push_back(path.data());
    for (auto const& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(path.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(out[1]);
  ::close(err[1]);
  outFd = out[0];
  errFd = err[0];
  return pid;
}

int waitExit(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Appends what `fd` has; closes it and sets it to -1 at end of file.
void drain(int& fd, std::string& to) {
  char buf[65536];
  ssize_t n = ::read(fd, buf, sizeof buf);
  if (n > 0) {
    to.append(buf, static_cast<size_t>(n));
  } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
    ::close(fd);
    fd = -1;
  }
}

}  // namespace

RunResult run(std::vector<std::string> const& args, BeforeExec before) {
  RunResult r;
  int outFd, errFd;
  pid_t pid = spawn(args, outFd, errFd, before);
  while (outFd >= 0 || errFd >= 0) {
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) continue;
    if (fds[0].revents) drain(outFd, r.out);
    if (fds[1].revents) drain(errFd, r.err);
  }
  r.code = waitExit(pid);
  return r;
}

BackgroundTool::BackgroundTool(std::vector<std::string> const& args) {
  pid_ = spawn(args, outFd_, errFd_, {});
}

BackgroundTool::~BackgroundTool() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    waitExit(pid_);
  }
  if (outFd_ >= 0) ::close(outFd_);
  if (errFd_ >= 0) ::close(errFd_);
}

bool BackgroundTool::pump(int timeoutMs) {
  if (outFd_ < 0 && errFd_ < 0) return false;
  pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
  if (::poll(fds, 2, timeoutMs) <= 0) return true;
  if (fds[0].revents) drain(outFd_, out_);
  if (fds[1].revents) drain(errFd_, err_);
  return true;
}

bool BackgroundTool::waitFor(std::string const& text, bool fromErr,
                             std::chrono::milliseconds timeout) {
  auto until = std::chrono::steady_clock::now() + timeout;
  std::string const& seen = fromErr ? err_ : out_;
  while (seen.find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > until || !pump(50)) return false;
  }
  return true;
}

bool BackgroundTool::waitOut(std::string const& text, std::chrono::milliseconds timeout) {
  return waitFor(text, false, timeout);
}

bool BackgroundTool::waitErr(std::string const& text, std::chrono::milliseconds timeout) {
  return waitFor(text, true, timeout);
}

RunResult BackgroundTool::stop(int sig) {
  ::kill(pid_, sig);
  // A tool that ignores the signal is killed after a while: the test then
  // sees the kill in the exit code.
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (pump(100)) {
    if (std::chrono::steady_clock::now() > until) ::kill(pid_, SIGKILL);
  }
  RunResult r;
  r.code = waitExit(pid_);
  pid_ = -1;
  r.out = out_;
  r.err = err_;
  return r;
}

}  // namespace ToolTest
