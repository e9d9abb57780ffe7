// Redis as a producer/consumer state table: the records in one hash, each
// update an HSET of the record plus a PUBLISH of its key on the table's
// channel, with one subscriber consuming the keys while the writer writes.
// The first row waits for each update's replies before the next update (its
// two commands go out together: one round trip per update); the second
// pipelines 100 updates, and 100 lookups, per round trip.
#include <filesystem>
#include <stdexcept>
#include <string>

#include "bench/peers/Peers.h"
#include "bench/peers/RedisServer.h"

namespace PeerBench {
namespace {

constexpr const char* kTable = "ldp";
constexpr size_t kPipelined = 100;
constexpr uint64_t kScanCount = 1000;

void appendUpdate(RedisConnection& c, Workload const& w, uint64_t key, uint32_t version) {
  char rec[kRecordLen];
  w.record(key, version, rec);
  redisAppendCommand(c.context(), "HSET %s %b %b", kTable, &key, sizeof key, rec,
                     size_t{kRecordLen});
  redisAppendCommand(c.context(), "PUBLISH %s %b", kTable, &key, sizeof key);
}

int64_t write(RedisConnection& c, Workload const& w, std::span<uint64_t const> order,
              uint32_t version, size_t pipeline) {
  int64_t t0 = nowNs();
  for (size_t i = 0; i < order.size(); i += pipeline) {
    size_t end = std::min(order.size(), i + pipeline);
    for (uint64_t j = i; j < end; ++j) appendUpdate(c, w, order[j], version);
    c.dropReplies(static_cast<int>(2 * (end - i)));
  }
  return nowNs() - t0;
}

// The consumer: counts the keys published until the empty message that ends
// the phase.
Child subscribe(int port, SharedFlags& flags) {
  return Child([port, &flags](int fd) {
    RedisConnection c(port);
    redisAppendCommand(c.context(), "SUBSCRIBE %s", kTable);
    c.dropReplies(1);
    flags.ready = 1;
    uint64_t n = 0;
    for (;;) {
      redisReply* r = c.reply();
      bool last = r->type == REDIS_REPLY_ARRAY && r->elements == 3 && r->element[2]->len == 0;
      freeReplyObject(r);
      if (last) break;
      ++n;
    }
    writeValue(fd, n);
  });
}

// A reader process connects and looks keys up, `pipeline` per round trip,
// copying each record out.
ReadBody lookups(int port, size_t pipeline) {
  return [port, pipeline](ReadWindow& win) {
    RedisConnection c(port);
    char out[kRecordLen];
    uint64_t found = 0;
    auto keys = win.lookups();
    win.begin();
    for (size_t i = 0; i < keys.size(); i += pipeline) {
      size_t end = std::min(keys.size(), i + pipeline);
      for (size_t j = i; j < end; ++j) {
        redisAppendCommand(c.context(), "HGET %s %b", kTable, &keys[j], sizeof(uint64_t));
      }
      for (size_t j = i; j < end; ++j) {
        redisReply* r = c.reply();
        if (r->type == REDIS_REPLY_STRING && r->len == kRecordLen) {
          std::memcpy(out, r->str, kRecordLen);
          ++found;
        }
        freeReplyObject(r);
      }
    }
    win.end();
    if (found != keys.size()) throw std::runtime_error("Redis lookups missed records");
  };
}

// A process started now connects and walks the hash with HSCAN, which may
// return a field twice (while the hash is resized).
ReadBody scan(int port) {
  return [port](ReadWindow& win) {
    win.begin();
    RedisConnection c(port);
    char out[kRecordLen];
    std::string cursor = "0";
    do {
      redisAppendCommand(c.context(), "HSCAN %s %s COUNT %llu", kTable, cursor.c_str(),
                         static_cast<unsigned long long>(kScanCount));
      redisReply* r = c.reply();
      cursor.assign(r->element[0]->str, r->element[0]->len);
      redisReply* items = r->element[1];
      for (size_t i = 1; i < items->elements; i += 2) {
        std::memcpy(out, items->element[i]->str,
                    std::min<size_t>(items->element[i]->len, kRecordLen));
        win.seen(out);
      }
      freeReplyObject(r);
    } while (cursor != "0");
    win.end();
    win.checkScan("Redis scan", true);
  };
}

// The reader waits in SUBSCRIBE; on each key it reads the record over a
// second connection (a subscribed connection takes no other commands).
void latency(Workload const& w, int port, RedisConnection& writer, Row& row) {
  LatencyProbe probe(w.samples);
  Child reader([&](int fd) {
    RedisConnection sub(port), get(port);
    redisAppendCommand(sub.context(), "SUBSCRIBE %s", kTable);
    sub.dropReplies(1);
    probe.flags().ready = 1;
    char out[kRecordLen];
    while (!probe.done()) {
      redisReply* m = sub.reply();
      probe.received();
      uint64_t key = 0;
      if (m->type == REDIS_REPLY_ARRAY && m->elements == 3 && m->element[2]->len == sizeof key) {
        std::memcpy(&key, m->element[2]->str, sizeof key);
      }
      freeReplyObject(m);
      redisAppendCommand(get.context(), "HGET %s %b", kTable, &key, sizeof key);
      redisReply* r = get.reply();
      if (r->type == REDIS_REPLY_STRING)
        std::memcpy(out, r->str, std::min<size_t>(r->len, kRecordLen));
      freeReplyObject(r);
      probe.acknowledge();
    }
    probe.sendSamples(fd);
  });
  probe.drive(w, [&](uint64_t key, uint32_t version) {
    appendUpdate(writer, w, key, version);
    writer.dropReplies(2);
  });
  probe.collect(reader, row);
}

Row runRow(Workload const& w, size_t pipeline) {
  Row row;
  row.store = pipeline == 1 ? "Redis" : "Redis, pipelined 100";
  row.keys = w.keys;
  std::string dir = storePath(w, "redis-" + std::to_string(pipeline));
  std::filesystem::create_directories(dir);
  {
    RedisServer server(dir);
    RedisConnection c(server.port());
    SharedFlagsPtr flags = newSharedFlags();
    Child subscriber = subscribe(server.port(), *flags);
    awaitFlag(flags->ready, 30, "the Redis subscriber");
    row.insertPerSec = perSecond(w.keys, write(c, w, w.insertOrder, 1, pipeline));
    row.replacePerSec = perSecond(w.keys, write(c, w, w.replaceOrder, 2, pipeline));
    redisAppendCommand(c.context(), "PUBLISH %s %b", kTable, "", size_t{0});
    c.dropReplies(1);
    if (subscriber.resultAs<uint64_t>() != 2 * w.keys) {
      throw std::runtime_error("the Redis subscriber missed keys");
    }
    Churn churn{[&](std::span<uint64_t const> keys, uint32_t version) {
                  write(c, w, keys, version, pipeline);
                },
                pipeline};
    measureReads(w, churn, row, lookups(server.port(), pipeline),
                 pipeline == 1 ? scan(server.port()) : ReadBody());
    if (pipeline == 1) latency(w, server.port(), c, row);
  }
  std::filesystem::remove_all(dir);
  return row;
}

}  // namespace

// Unpipelined Redis runs in the first round only: its rounds would take most
// of the run, and it trails by well over an order of magnitude either way.
std::vector<Row> runRedis(Workload const& w) {
  if (w.round > 1) return {runRow(w, kPipelined)};
  return {runRow(w, 1), runRow(w, kPipelined)};
}

}  // namespace PeerBench
