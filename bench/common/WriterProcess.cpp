#include "bench/common/WriterProcess.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace BenchSupport {

pid_t startWriterProcess(std::string const& who,
                         std::function<std::shared_ptr<void>()> const& publish) {
  int ready[2];
  if (::pipe(ready) != 0) throw std::runtime_error("pipe");
  pid_t pid = ::fork();
  if (pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(ready[0]);
    // A failure closes the pipe unanswered.
    try {
      std::shared_ptr<void> const kept = publish();
      char c = 1;
      if (::write(ready[1], &c, 1) != 1) ::_exit(1);
      for (;;) ::pause();
    } catch (std::exception const& e) {
      std::fprintf(stderr, "%s: %s\n", who.c_str(), e.what());
    }
    ::_exit(1);
  }
  ::close(ready[1]);
  char c = 0;
  bool const ok = ::read(ready[0], &c, 1) == 1;
  ::close(ready[0]);
  if (!ok) {
    ::waitpid(pid, nullptr, 0);
    return -1;
  }
  return pid;
}

}  // namespace BenchSupport
