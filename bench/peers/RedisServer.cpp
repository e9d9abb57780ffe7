#include "bench/peers/RedisServer.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "bench/peers/Guard.h"
#include "bench/peers/Harness.h"

namespace PeerBench {
namespace {

constexpr const char* kLoopback = "127.0.0.1";

// A port nothing listens on now; the server may still lose it to a race,
// which start() notices.
int freeLoopbackPort() {
  int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (s < 0) throw std::runtime_error("socket failed");
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = 0;
  socklen_t len = sizeof a;
  if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
      ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
    ::close(s);
    throw std::runtime_error("no free loopback port");
  }
  ::close(s);
  return ntohs(a.sin_port);
}

redisContext* connectTo(int port) {
  timeval tv{2, 0};
  return redisConnectWithTimeout(kLoopback, port, tv);
}

std::string fileText(std::string const& path) {
  std::ifstream f(path);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

}  // namespace

RedisServer::RedisServer(std::string dir) : dir_(std::move(dir)) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (start(freeLoopbackPort())) return;
  }
  throw std::runtime_error("redis-server did not start: " + fileText(dir_ + "/redis.log"));
}

bool RedisServer::start(int port) {
  std::string portText = std::to_string(port);
  std::string log = dir_ + "/redis.log";
  std::vector<std::string> args = {
      "redis-server", "--port", portText, "--bind", kLoopback, "--protected-mode", "yes", "--save",
      "", "--appendonly", "no", "--daemonize", "no", "--dir", dir_, "--loglevel", "warning",
      "--databases", "1",
      // A subscriber that falls behind a burst of writes is not cut off.
      "--client-output-buffer-limit", "pubsub 0 0 0"};
  pid_t pid = ::fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    childStarted();
    pinToCpu(-1);
    int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd >= 0) {
      ::dup2(fd, 1);
      ::dup2(fd, 2);
    }
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execvp("redis-server", argv.data());
    ::_exit(127);
  }
  guardPid(pid);
  pid_ = pid;
  port_ = port;
  // Up when it answers PING; gone when it exited (a port taken meanwhile).
  for (int waited = 0; waited < 10000; waited += 20) {
    if (::waitpid(pid, nullptr, WNOHANG) == pid) {
      unguardPid(pid);
      pid_ = -1;
      return false;
    }
    if (redisContext* c = connectTo(port)) {
      bool up = false;
      if (!c->err) {
        auto* r = static_cast<redisReply*>(redisCommand(c, "PING"));
        up = r && r->type == REDIS_REPLY_STATUS;
        if (r) freeReplyObject(r);
      }
      redisFree(c);
      if (up) return true;
    }
    ::usleep(20000);
  }
  stopProcess(pid, 1000);
  pid_ = -1;
  return false;
}

RedisServer::~RedisServer() { stopProcess(pid_, 3000); }

RedisConnection::RedisConnection(int port) : c_(connectTo(port)) {
  if (!c_ || c_->err) {
    std::string why = c_ ? c_->errstr : "out of memory";
    if (c_) redisFree(c_);
    throw std::runtime_error("cannot connect to redis on port " + std::to_string(port) + ": " +
                             why);
  }
  // A server that stopped answering fails the run instead of hanging it.
  redisSetTimeout(c_, timeval{30, 0});
}

RedisConnection::~RedisConnection() { redisFree(c_); }

redisReply* RedisConnection::reply() {
  void* r = nullptr;
  if (redisGetReply(c_, &r) != REDIS_OK || !r) {
    throw std::runtime_error(std::string("redis: ") + c_->errstr);
  }
  auto* reply = static_cast<redisReply*>(r);
  if (reply->type == REDIS_REPLY_ERROR) {
    std::string what(reply->str, reply->len);
    freeReplyObject(reply);
    throw std::runtime_error("redis: " + what);
  }
  return reply;
}

void RedisConnection::dropReplies(int n) {
  for (int i = 0; i < n; ++i) freeReplyObject(reply());
}

}  // namespace PeerBench
