#include "Tunnel/framework/Rivy/EventLoop.h"

#include <cerrno>
#include <poll.h>
#include <system_error>
#include <vector>

#include <fmt/format.h>

namespace Rivy {

void EventLoop::fdIs(int fd, std::function<void()> onReadable) {
  fds_[fd] = std::make_shared<std::function<void()>>(std::move(onReadable));
}

void EventLoop::fdDel(int fd) { fds_.erase(fd); }

EventLoop::TimerId EventLoop::timerIs(std::chrono::nanoseconds delay,
                                      std::function<void()> onExpiry,
                                      std::chrono::nanoseconds period) {
  TimerId id = nextTimerId_++;
  timers_[id] = Timer{std::chrono::steady_clock::now() + delay, period,
                      std::make_shared<std::function<void()>>(std::move(onExpiry))};
  return id;
}

void EventLoop::timerDel(TimerId id) { timers_.erase(id); }

int EventLoop::waitMs(int timeoutMs) const {
  if (!scheduler_.idle()) return 0;
  int wait = timeoutMs;
  auto now = std::chrono::steady_clock::now();
  for (auto const& [id, timer] : timers_) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(timer.due - now).count();
    int ms = left <= 0 ? 0 : static_cast<int>(std::min<int64_t>(left, INT32_MAX));
    if (wait < 0 || ms < wait) wait = ms;
  }
  return wait;
}

void EventLoop::fireDueTimers() {
  auto now = std::chrono::steady_clock::now();
  std::vector<TimerId> due;
  for (auto const& [id, timer] : timers_) {
    if (timer.due <= now) due.push_back(id);
  }
  for (TimerId id : due) {
    auto it = timers_.find(id);
    if (it == timers_.end()) continue;  // an earlier callback removed it
    auto onExpiry = it->second.onExpiry;
    if (it->second.period.count() > 0) {
      // The next expiry counts from now, so a late loop does not fire a burst.
      it->second.due = now + it->second.period;
    } else {
      timers_.erase(it);
    }
    (*onExpiry)();
  }
}

void EventLoop::runOnce(int timeoutMs) {
  std::vector<pollfd> polled;
  polled.reserve(fds_.size());
  for (auto const& [fd, cb] : fds_) polled.push_back(pollfd{fd, POLLIN, 0});
  int n = ::poll(polled.data(), polled.size(), waitMs(timeoutMs));
  if (n < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(),
                            fmt::format("poll of {} fds", polled.size()));
  }
  for (auto const& p : polled) {
    if (n <= 0) break;
    if (p.revents == 0) continue;
    --n;
    if (p.revents & POLLNVAL) {
      throw std::system_error(EBADF, std::generic_category(),
                              fmt::format("poll: fd {} is not open", p.fd));
    }
    auto it = fds_.find(p.fd);
    if (it == fds_.end()) continue;  // removed by an earlier callback of this round
    auto onReadable = it->second;
    (*onReadable)();
  }
  fireDueTimers();
  scheduler_.runSome();
}

void EventLoop::run() {
  stopped_ = false;
  while (!stopped_) runOnce(-1);
}

}  // namespace Rivy
