#pragma once
// A Redis server of the benchmark's own: started on a free loopback port with
// persistence off, stopped by its pid when the object goes (and by the guard
// when the benchmark dies). RedisConnection is one hiredis client of it.

#include <hiredis/hiredis.h>
#include <string>
#include <sys/types.h>

namespace PeerBench {

class RedisServer {
 public:
  // `dir` is the server's working directory (nothing is saved there).
  explicit RedisServer(std::string dir);
  ~RedisServer();
  RedisServer(RedisServer const&) = delete;
  RedisServer& operator=(RedisServer const&) = delete;

  int port() const { return port_; }

 private:
  bool start(int port);

  std::string dir_;
  pid_t pid_ = -1;
  int port_ = 0;
};

class RedisConnection {
 public:
  explicit RedisConnection(int port);
  ~RedisConnection();
  RedisConnection(RedisConnection const&) = delete;
  RedisConnection& operator=(RedisConnection const&) = delete;

  redisContext* context() const { return c_; }
  // The next reply, which must not be an error; the caller frees it.
  redisReply* reply();
  // Reads and drops `n` replies, checking each.
  void dropReplies(int n);

 private:
  redisContext* c_ = nullptr;
};

}  // namespace PeerBench
