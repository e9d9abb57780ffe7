// LMDB on /dev/shm with MDB_NOSYNC | MDB_WRITEMAP, native 64-bit keys
// (MDB_INTEGERKEY) and records written in place (MDB_RESERVE): its fastest
// setup. The first row commits every write on its own, so each is visible at
// once as a table update must be; the second commits 1,000 writes at a time.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <lmdb.h>
#include <stdexcept>
#include <string>

#include "bench/peers/Peers.h"

namespace PeerBench {
namespace {

constexpr size_t kBatch = 1000;

void check(int rc, const char* what) {
  if (rc != MDB_SUCCESS) throw std::runtime_error(std::string(what) + ": " + mdb_strerror(rc));
}

class Env {
 public:
  // A reader opens the database in a read transaction, never taking the
  // writer's lock.
  Env(std::string const& dir, uint64_t keys, bool reader) {
    check(mdb_env_create(&env_), "mdb_env_create");
    // Room for the records, their pages' overhead and the copies a write
    // makes of the pages it touches.
    check(mdb_env_set_mapsize(env_, keys * 1600 + (size_t{512} << 20)), "mdb_env_set_mapsize");
    check(mdb_env_open(env_, dir.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0600), "mdb_env_open");
    MDB_txn* txn = nullptr;
    check(mdb_txn_begin(env_, nullptr, reader ? MDB_RDONLY : 0, &txn), "mdb_txn_begin");
    check(mdb_dbi_open(txn, nullptr, MDB_INTEGERKEY | (reader ? 0 : MDB_CREATE), &dbi_),
          "mdb_dbi_open");
    check(mdb_txn_commit(txn), "mdb_txn_commit");
  }
  ~Env() { mdb_env_close(env_); }
  Env(Env const&) = delete;
  Env& operator=(Env const&) = delete;

  // Writes `order` in transactions of `batch` writes.
  int64_t write(Workload const& w, std::span<uint64_t const> order, uint32_t version,
                size_t batch) {
    int64_t t0 = nowNs();
    MDB_txn* txn = nullptr;
    size_t inTxn = 0;
    for (uint64_t key : order) {
      if (!txn) check(mdb_txn_begin(env_, nullptr, 0, &txn), "mdb_txn_begin");
      put(w, txn, key, version);
      if (++inTxn == batch) {
        check(mdb_txn_commit(txn), "mdb_txn_commit");
        txn = nullptr;
        inTxn = 0;
      }
    }
    if (txn) check(mdb_txn_commit(txn), "mdb_txn_commit");
    return nowNs() - t0;
  }

  void put(Workload const& w, MDB_txn* txn, uint64_t key, uint32_t version) {
    MDB_val k{sizeof key, &key};
    MDB_val v{kRecordLen, nullptr};
    check(mdb_put(txn, dbi_, &k, &v, MDB_RESERVE), "mdb_put");
    w.record(key, version, static_cast<char*>(v.mv_data));
  }

  void writeOne(Workload const& w, uint64_t key, uint32_t version) {
    MDB_txn* txn = nullptr;
    check(mdb_txn_begin(env_, nullptr, 0, &txn), "mdb_txn_begin");
    put(w, txn, key, version);
    check(mdb_txn_commit(txn), "mdb_txn_commit");
  }

  // A read transaction kept reset between uses (renewing is LMDB's cheap
  // way to see the present).
  MDB_txn* readTxn() {
    MDB_txn* txn = nullptr;
    check(mdb_txn_begin(env_, nullptr, MDB_RDONLY, &txn), "mdb_txn_begin");
    mdb_txn_reset(txn);
    return txn;
  }

  bool get(MDB_txn* txn, uint64_t key, char* out) {
    MDB_val k{sizeof key, &key};
    MDB_val v;
    if (mdb_get(txn, dbi_, &k, &v) != MDB_SUCCESS || v.mv_size != kRecordLen) return false;
    std::memcpy(out, v.mv_data, kRecordLen);
    return true;
  }

  MDB_dbi dbi() const { return dbi_; }

 private:
  MDB_env* env_ = nullptr;
  MDB_dbi dbi_ = 0;
};

// A reader process: opens the environment itself and looks keys up, copying
// each record out, with one read transaction per `batch` lookups.
ReadBody lookups(Workload const& w, std::string const& dir, size_t batch) {
  return [&w, dir, batch](ReadWindow& win) {
    Env env(dir, w.keys, true);
    MDB_txn* txn = env.readTxn();
    char out[kRecordLen];
    uint64_t found = 0;
    auto keys = win.lookups();
    win.begin();
    for (size_t i = 0; i < keys.size(); i += batch) {
      check(mdb_txn_renew(txn), "mdb_txn_renew");
      for (uint64_t key : keys.subspan(i, std::min(batch, keys.size() - i))) {
        found += env.get(txn, key, out);
      }
      mdb_txn_reset(txn);
    }
    win.end();
    if (found != keys.size()) throw std::runtime_error("LMDB lookups missed records");
  };
}

// A process started now opens the environment and copies every record out,
// in one read transaction.
ReadBody scan(Workload const& w, std::string const& dir) {
  return [&w, dir](ReadWindow& win) {
    win.begin();
    Env env(dir, w.keys, true);
    MDB_txn* txn = env.readTxn();
    check(mdb_txn_renew(txn), "mdb_txn_renew");
    MDB_cursor* cur = nullptr;
    check(mdb_cursor_open(txn, env.dbi(), &cur), "mdb_cursor_open");
    MDB_val k, v;
    char out[kRecordLen];
    for (int rc = mdb_cursor_get(cur, &k, &v, MDB_FIRST); rc == MDB_SUCCESS;
         rc = mdb_cursor_get(cur, &k, &v, MDB_NEXT)) {
      std::memcpy(out, v.mv_data, std::min<size_t>(v.mv_size, kRecordLen));
      win.seen(out);
    }
    win.end();
    win.checkScan("LMDB scan");
  };
}

// The reader sleeps on an eventfd the writer signals after each commit, with
// the key as the count; it then reads the record in a renewed transaction.
void latency(Workload const& w, std::string const& dir, Env& env, Row& row) {
  LatencyProbe probe(w.samples);
  Eventfd wake;
  Child reader([&](int fd) {
    Env renv(dir, w.keys, true);
    MDB_txn* txn = renv.readTxn();
    char out[kRecordLen];
    probe.flags().ready = 1;
    while (!probe.done()) {
      uint64_t key = wake.wait() - 1;
      probe.received();
      check(mdb_txn_renew(txn), "mdb_txn_renew");
      renv.get(txn, key, out);
      mdb_txn_reset(txn);
      probe.acknowledge();
    }
    probe.sendSamples(fd);
  });
  probe.drive(w, [&](uint64_t key, uint32_t version) {
    env.writeOne(w, key, version);
    wake.signal(key + 1);
  });
  probe.collect(reader, row);
}

Row runRow(Workload const& w, size_t batch) {
  Row row;
  row.store = batch == 1 ? "LMDB, txn per write" : "LMDB, 1000 per txn";
  row.keys = w.keys;
  std::string dir = storePath(w, "lmdb-" + std::to_string(batch));
  std::filesystem::create_directories(dir);
  {
    Env env(dir, w.keys, false);
    row.insertPerSec = perSecond(w.keys, env.write(w, w.insertOrder, 1, batch));
    row.replacePerSec = perSecond(w.keys, env.write(w, w.replaceOrder, 2, batch));
    Churn churn{[&](std::span<uint64_t const> keys, uint32_t version) {
                  env.write(w, keys, version, batch);
                },
                batch};
    measureReads(w, churn, row, lookups(w, dir, batch), batch == 1 ? scan(w, dir) : ReadBody());
    if (batch == 1) latency(w, dir, env, row);
  }
  std::filesystem::remove_all(dir);
  return row;
}

}  // namespace

std::vector<Row> runLmdb(Workload const& w) { return {runRow(w, 1), runRow(w, kBatch)}; }

}  // namespace PeerBench
