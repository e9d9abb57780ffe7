// Reference counts shared between threads with the thread-safe switch on.
// Built as its own executable so that the ThreadSanitizer run selects it.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Ptr.h"
#include "Tunnel/framework/String.h"

namespace {

using Zent::Ptr;

constexpr int kThreads = 4;
constexpr int kObjects = 2;  // few objects: the threads contend on the same counts
constexpr int kRounds = 20000;

std::atomic<int> destroyed{0};

struct Shared : Zent::PtrInterface {
  explicit Shared(int i) : name("shared object " + std::to_string(i)) {}
  ~Shared() override { destroyed.fetch_add(1, std::memory_order_relaxed); }
  Zent::String const name;
};

class PtrThreadTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Zent::VFPtrInterface::threadSafePointers_ = true;
    destroyed = 0;
    for (int i = 0; i < kObjects; ++i) objects_.emplace_back(Zent::newTracked<Shared>(i));
  }
  void TearDown() override {
    objects_.clear();
    Zent::VFPtrInterface::threadSafePointers_ = false;
    EXPECT_EQ(Zent::liveCount<Shared>(), 0);
  }

  // Copies, moves and drops pointers to the shared objects and copies of their
  // names, many times over.
  static void churn(std::vector<Ptr<Shared>> const& objects, int seed) {
    for (int r = 0; r < kRounds; ++r) {
      Ptr<Shared> a(objects[static_cast<size_t>(r + seed) % objects.size()]);
      Ptr<Shared const> b;
      b = a;
      Ptr<Shared> d(std::move(a));
      Zent::String name;
      name = b->name;
      d.ptrAssign(nullptr);
    }
  }

  std::vector<Ptr<Shared>> objects_;
};

TEST_F(PtrThreadTest, CountsReturnToOneAfterThreadsShareCopies) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(churn, std::cref(objects_), t);
  for (auto& th : threads) th.join();
  EXPECT_EQ(destroyed, 0);
  for (auto const& o : objects_) {
    EXPECT_EQ(o->references(), 1u);
    EXPECT_EQ(o->name.sharedReferences(), 1u);
  }
}

TEST_F(PtrThreadTest, LastReferenceDroppedOnAnyThreadDestroysOnce) {
  std::vector<std::vector<Ptr<Shared>>> copies(kThreads, objects_);
  std::vector<Zent::String> names;
  for (auto const& o : objects_) names.push_back(o->name);
  objects_.clear();  // from here the threads hold the only references

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&copies, t, names] {
      std::vector<Ptr<Shared>> mine = std::move(copies[static_cast<size_t>(t)]);
      std::vector<Zent::String> myNames = names;
      churn(mine, t);
    });
  }
  names.clear();
  for (auto& th : threads) th.join();
  EXPECT_EQ(destroyed, kObjects);
}

}  // namespace
