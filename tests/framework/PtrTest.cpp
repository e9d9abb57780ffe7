#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Ptr.h"

namespace {

using Zent::liveCount;
using Zent::newTracked;
using Zent::Ptr;
using Log = std::vector<std::string>;

// Logs its zero-references callback and its destruction, so a test can tell
// "destroyed once" from "leaked" or "destroyed twice".
struct Logged : Zent::PtrInterface {
  explicit Logged(Log* l) : log(l) {}
  ~Logged() override { log->push_back("destroyed"); }
  void onZeroReferences() const override { log->push_back("onZeroReferences"); }
  Log* log;
};
// A singly linked chain: each node holds the only reference to the next.
struct Link : Zent::PtrInterface {
  explicit Link(Ptr<Link> n) : next(std::move(n)) {}
  Ptr<Link> next;
};

// Both paths of the counting switch must keep single-threaded counts exact.
class PtrTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { Zent::VFPtrInterface::threadSafePointers_ = GetParam(); }
  void TearDown() override {
    Zent::VFPtrInterface::threadSafePointers_ = false;
    EXPECT_EQ(liveCount<Logged>() + liveCount<Link>(), 0);
  }
  Log log_;
};

INSTANTIATE_TEST_SUITE_P(Switch, PtrTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "threadSafe" : "plain"; });

TEST_P(PtrTest, CopiesCountMovesDoNotAndTheLastDropDestroysOnce) {
  Log otherLog;
  {
    Ptr<Logged> a(newTracked<Logged>(&log_));
    Ptr<Logged> b(a);
    Ptr<Logged const> c;
    c = b;  // const and non-const share the count
    EXPECT_EQ(a->references(), 3u);
    Ptr<Logged> d(std::move(b));
    EXPECT_FALSE(b);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null by contract
    Ptr<Logged> e(newTracked<Logged>(&otherLog));
    e = std::move(d);  // releases what e held
    EXPECT_EQ(otherLog.size(), 2u);
    Ptr<Logged> const& alias = a;
    a = alias;
    Ptr<Logged>& self = e;
    e = std::move(self);
    a.ptrAssign(a.ptr());
    EXPECT_EQ(a->references(), 3u);
    EXPECT_TRUE(log_.empty());
  }
  EXPECT_EQ(log_, (Log{"onZeroReferences", "destroyed"}));
}

// Pins down walking a chain with p = p->next, where the source pointer lives
// inside the object the assignment releases.
TEST_P(PtrTest, AssigningFromInsideTheReleasedObjectIsSafe) {
  Ptr<Link> p(newTracked<Link>(newTracked<Link>(newTracked<Link>(nullptr))));
  for (int left = 2; left >= 0; --left) {
    p = p->next;
    EXPECT_EQ(liveCount<Link>(), left);
  }
  EXPECT_FALSE(p);
}

// Pins down a second destruction started by a callback that takes and drops a
// Ptr to the dying object (a table detaching itself, for example).
TEST_P(PtrTest, ZeroReferencesNotifieeRunsOnceAndMayTakeATemporaryReference) {
  struct Notifiee : Zent::PtrInterface::ZeroReferencesNotifiee {
    Logged* obj = nullptr;
    void onZeroReferences() override {
      obj->log->push_back("notifiee");
      Ptr<Logged> self(obj);
    }
  } n;
  Ptr<Logged> p(newTracked<Logged>(&log_));
  n.obj = p.ptr();
  p->zeroReferencesNotifieeIs(&n);
  Ptr<Logged> q(p);
  p = nullptr;
  EXPECT_TRUE(log_.empty());
  q = nullptr;
  EXPECT_EQ(log_, (Log{"notifiee", "onZeroReferences", "destroyed"}));
}

struct Fragile : Zent::PtrInterface {
  explicit Fragile(bool fail) {
    if (fail) throw std::runtime_error("constructor failed");
  }
};

TEST(TrackingTest, LiveCountFollowsTrackedObjectsAndAThrowingConstructorLeavesNothing) {
  auto& info = Zent::zentAllocTrackTypeInfo<Fragile>();
  uint64_t const allocs = info.allocs;
  int64_t const bytes = info.bytes;
  {
    std::vector<Ptr<Fragile>> v;
    for (int i = 0; i < 5; ++i) v.emplace_back(newTracked<Fragile>(false));
    EXPECT_EQ(liveCount<Fragile>(), 5);
    EXPECT_EQ(info.bytes.load(), bytes + 5 * static_cast<int64_t>(sizeof(Fragile)));
    EXPECT_THROW(newTracked<Fragile>(true), std::runtime_error);
    EXPECT_EQ(liveCount<Fragile>(), 5);
  }
  EXPECT_EQ(info.allocs.load(), allocs + 6);
  EXPECT_EQ(info.bytes.load(), bytes);
}

}  // namespace
