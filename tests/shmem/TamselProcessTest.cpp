// Writers and readers in separate processes, as agents use them.
#include <fcntl.h>
#include <functional>
#include <map>
#include <poll.h>
#include <random>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Tunnel/shmem/Reader.h"
#include "Tunnel/shmem/Writer.h"
#include "tests/shmem/ShmTestUtil.h"

using namespace Tamsel;
using namespace TamselTest;

namespace {

TableShape shape(uint32_t queue = 1024) { return testShape(140000, queue); }

void put(Writer& w, uint64_t key, uint64_t gen, uint32_t len) {
  auto rec = makeRecord(key, gen, len);
  w.write(&key, keyHash(key), len, [&](char* dst) { std::memcpy(dst, rec.data(), len); });
}

// Keeps a view of the table from notifications alone, reading each key
// that changed.
struct ViewKeeper : Reader::Handler {
  explicit ViewKeeper(Reader& r) : reader(r) {}
  Reader& reader;
  std::map<uint64_t, uint64_t> view;
  std::vector<uint64_t> keys;
  bool bad = false;
  void keyChanged(void const* key) override {
    uint64_t k;
    std::memcpy(&k, key, 8);
    keys.push_back(k);
    std::vector<char> rec;
    if (reader.readCopy(&k, keyHash(k), rec)) {
      if (!recordValid(rec.data(), static_cast<uint32_t>(rec.size()), k)) bad = true;
      view[k] = recordGen(rec.data());
    } else {
      view.erase(k);
    }
  }
};

bool waitReadable(int fd, int ms) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, ms) == 1;
}

std::map<uint64_t, uint64_t> scan(Reader const& r) {
  std::map<uint64_t, uint64_t> out;
  r.forEach([&](void const* key, char const* rec, uint32_t, uint64_t) {
    uint64_t k;
    std::memcpy(&k, key, 8);
    out[k] = recordGen(rec);
  });
  return out;
}

class TamselProcessTest : public ::testing::Test {
 protected:
  StateRoot root;
  std::string dir = root.dir("tunnel/table/ldp");
};

TEST_F(TamselProcessTest, ReaderInAnotherProcessGetsEveryKeyInOrderThroughItsFd) {
  Pipe ready, go;
  std::vector<uint64_t> sent;
  for (uint64_t i = 0; i < 3000; ++i) sent.push_back((i * 7919) % 1000);
  pid_t child = forkChild([&] {
    // A queue longer than the run: a reader that overflows under load would
    // rightly get each changed key once, not every write.
    Writer w(dir, "entry", shape(4096));
    ready.signal();
    go.wait();
    for (size_t i = 0; i < sent.size(); ++i) {
      if (i % 5 == 4) {
        uint64_t k = sent[i];
        if (!w.remove(&k, keyHash(k), [](char const*, uint32_t) {})) put(w, k, i, 64);
      } else {
        put(w, sent[i], i, 64 + static_cast<uint32_t>(i % 500));
      }
      if (i % 100 == 0) ::usleep(200);  // let the reader fall asleep now and then
    }
    return true;
  });
  ASSERT_TRUE(ready.wait());
  Reader r(dir, "entry", 8);
  ViewKeeper keeper(r);
  go.signal();
  while (keeper.keys.size() < sent.size()) {
    ASSERT_TRUE(waitReadable(r.fd(), 5000)) << "no wake-up after " << keeper.keys.size();
    r.dispatch(keeper);
  }
  EXPECT_EQ(keeper.keys, sent);
  EXPECT_FALSE(keeper.bad);
  EXPECT_EQ(waitChild(child), 0);
  EXPECT_EQ(keeper.view, scan(r));
}

TEST_F(TamselProcessTest, StoppedReaderCatchesUpAcrossTenQueuesOfChanges) {
  constexpr uint32_t kQueue = 256;
  Writer w(dir, "entry", shape(kQueue));
  for (uint64_t k = 0; k < 300; ++k) put(w, k, 0, 100);
  Pipe ready;
  pid_t child = forkChild([&] {
    Reader r(dir, "entry", 8);
    ViewKeeper keeper(r);
    for (auto const& [k, g] : scan(r)) keeper.view[k] = g;
    ready.signal();
    uint64_t const kDone = 999999;
    while (!keeper.view.count(kDone)) {
      if (!waitReadable(r.fd(), 10000)) return false;
      r.dispatch(keeper);
    }
    return !keeper.bad && r.overflows() >= 1 && keeper.view == scan(r);
  });
  ASSERT_TRUE(ready.wait());
  ::kill(child, SIGSTOP);
  std::mt19937_64 rng(3);
  for (uint32_t i = 0; i < 10 * kQueue; ++i) {
    uint64_t k = rng() % 400;
    if (rng() % 3 == 0) {
      w.remove(&k, keyHash(k), [](char const*, uint32_t) {});
    } else {
      put(w, k, i + 1, 100 + static_cast<uint32_t>(rng() % 1000));
    }
  }
  ::kill(child, SIGCONT);
  put(w, 999999, 1, 64);
  EXPECT_EQ(waitChild(child), 0);
}

TEST_F(TamselProcessTest, WritingThroughAReadersMappingFaults) {
  { Writer w(dir, "entry", shape()); }
  pid_t child = forkChild([&] {
    Reader r(dir, "entry", 8);
    ::signal(SIGSEGV, SIG_DFL);  // the sanitizer would turn the fault into an exit code
    *const_cast<volatile char*>(r.mappingBase() + 64) = 1;
    return true;
  });
  EXPECT_EQ(waitChild(child), 128 + SIGSEGV);
}

// A refused write leaves the table exactly as it was. 88-byte records fill
// 128-byte slots, so the file first runs out when the index, not a slot,
// needs room (at 8192 keys), and again at every further key.
TEST_F(TamselProcessTest, WritesRefusedForWantOfSpaceLeaveTheTableAsItWas) {
  pid_t child = forkChild([&] {
    Writer w(dir, "entry", shape());
    // Growth past the file's first size fails as on a full file system.
    ::signal(SIGXFSZ, SIG_IGN);
    rlimit lim{w.fileBytes(), RLIM_INFINITY};
    if (::setrlimit(RLIMIT_FSIZE, &lim) != 0) return false;
    uint64_t accepted = 0;
    int refused = 0;
    for (uint64_t k = 0; refused < 3 && k < 20000; ++k) {
      try {
        put(w, k, k, 88);
        ++accepted;
      } catch (Error const& e) {
        if (std::string(e.what()).find("cannot reserve") == std::string::npos) return false;
        ++refused;
      }
    }
    Reader r(dir, "entry", 8);
    return refused == 3 && scan(r).size() == accepted && r.indexedKeys() == accepted &&
           w.count() == accepted;
  });
  EXPECT_EQ(waitChild(child), 0);
}

// Exactly one of two writers racing for a table wins, and the loser is told
// the pid of the live winner, on a fresh table and on one whose last writer
// was killed (the next winner takes it over).
TEST_F(TamselProcessTest, ALosingWriterNamesTheLiveWinner) {
  for (int round = 0; round < 20; ++round) {
    Pipe go, lost;
    auto racer = [&] {
      return forkChild([&] {
        go.wait();
        try {
          Writer w(dir, "entry", shape());
          ::pause();
        } catch (Error const& e) {
          std::string m = std::to_string(::getpid()) + " " + e.what();
          return ::write(lost.fds[1], m.data(), m.size()) == static_cast<ssize_t>(m.size());
        }
        return false;
      });
    };
    pid_t a = racer(), b = racer();
    go.signal();
    go.signal();
    ASSERT_TRUE(waitReadable(lost.fds[0], 10000));
    char buf[512];
    ssize_t n = ::read(lost.fds[0], buf, sizeof(buf));
    ASSERT_GT(n, 0);
    std::string msg(buf, static_cast<size_t>(n));
    pid_t winner = std::stoi(msg) == a ? b : a;
    EXPECT_NE(msg.find("(pid " + std::to_string(winner) + ")"), std::string::npos) << msg;
    EXPECT_EQ(::waitpid(winner, nullptr, WNOHANG), 0);  // it still writes
    ::kill(a, SIGKILL);
    ::kill(b, SIGKILL);
    waitChild(a);
    waitChild(b);
  }
}

// A damaged or hostile table file is an Error for its readers (lookups,
// scans, a key shadow's start), within a bounded number of retries: never a
// hang or a signal. Each case runs in a child whose alarm turns a hang into
// a failure.
TEST_F(TamselProcessTest, DamagedTableFilesAreErrorsNeverHangsOrSignals) {
  struct Case {
    const char* name;
    std::function<void(int fd, FileHeader const& h, uint64_t slot, uint64_t bucket)> damage;
    const char* error;
  };
  auto poke = [](int fd, uint64_t off, auto value) {
    ASSERT_EQ(::pwrite(fd, &value, sizeof(value), static_cast<off_t>(off)),
              static_cast<ssize_t>(sizeof(value)));
  };
  std::vector<Case> cases{
      {"header field",
       [&](int fd, FileHeader const&, uint64_t, uint64_t) {
         poke(fd, offsetof(FileHeader, queueCapacity), uint32_t{1000});
       },
       "is corrupt at offset"},
      {"bucket redirected past the heap",
       [&](int fd, FileHeader const& h, uint64_t, uint64_t bucket) {
         poke(fd, bucket, makeBucketWord(h.fileSize * 2, 0, keyHash(5)));
       },
       "is corrupt at offset"},
      {"slot stuck mid-write",
       [&](int fd, FileHeader const&, uint64_t slot, uint64_t) {
         poke(fd, slot + offsetof(SlotHeader, seq), uint32_t{7});
       },
       "is corrupt at offset"},
      {"truncated file",
       [&](int fd, FileHeader const& h, uint64_t, uint64_t) {
         ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(h.heapOffset + 4096)), 0);
       },
       "is corrupt at offset"},
      {"a FIFO in the table's place",
       [&](int, FileHeader const&, uint64_t, uint64_t) {
         ASSERT_EQ(::unlink((dir + "/entry.tbl").c_str()), 0);
         ASSERT_EQ(::mkfifo((dir + "/entry.tbl").c_str(), 0600), 0);
       },
       "is not a regular file"},
  };
  uint64_t const k5 = 5;
  for (Case const& c : cases) {
    std::filesystem::remove_all(dir);
    uint64_t slot = 0;
    {
      Writer w(dir, "entry", shape());
      for (uint64_t k = 0; k < 10; ++k) put(w, k, k, 64);
      slot = w.slotOffset(&k5, keyHash(k5));
    }
    int fd = ::open((dir + "/entry.tbl").c_str(), O_RDWR);
    FileHeader h{};
    ASSERT_EQ(::pread(fd, &h, sizeof(h), 0), static_cast<ssize_t>(sizeof(h)));
    uint64_t buckets = h.indexOffset + sizeof(SlotHeader) + sizeof(IndexHeader), bucket = 0;
    for (uint64_t b = buckets; bucket == 0; b += sizeof(Bucket)) {
      uint64_t word = 0;
      ASSERT_EQ(::pread(fd, &word, 8, static_cast<off_t>(b)), 8);
      if (bucketLive(word) && bucketSlot(word) == slot) bucket = b;
    }
    c.damage(fd, h, slot, bucket);
    ::close(fd);
    pid_t child = forkChild([&] {
      ::alarm(20);
      try {
        Reader r(dir, "entry", 8);
        std::vector<char> out;
        for (uint64_t k = 0; k < 10; ++k) r.readCopy(&k, keyHash(k), out);
        scan(r);
        ViewKeeper v(r);
        r.dispatch(v);
      } catch (Error const& e) {
        return std::string(e.what()).find(c.error) != std::string::npos;
      }
      return false;
    });
    EXPECT_EQ(waitChild(child), 0) << c.name;
  }
}

}  // namespace
