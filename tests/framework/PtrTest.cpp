#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/Ptr.h"

namespace {

using Zent::liveCount;
using Zent::newTracked;
using Zent::Ptr;

// Logs its zero-references callback and its destruction, so a test can tell
// "destroyed once" from "leaked" or "destroyed twice".
class Logged : public Zent::PtrInterface {
 public:
  explicit Logged(std::vector<std::string>* log = nullptr) : log_(log) {}
  ~Logged() override { record("destroyed"); }
  void onZeroReferences() const override { record("onZeroReferences"); }

 private:
  void record(const char* what) const {
    if (log_) log_->push_back(what);
  }
  std::vector<std::string>* log_;
};

class Derived : public Logged {
 public:
  using Logged::Logged;
};

class Unrelated : public Zent::PtrInterface {};

// A singly linked chain: each node holds the only reference to the next.
class Node : public Zent::PtrInterface {
 public:
  explicit Node(Ptr<Node> n) : next(std::move(n)) {}
  Ptr<Node> next;
};

// Both paths of the counting switch must keep single-threaded counts exact.
class PtrTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { Zent::VFPtrInterface::threadSafePointers_ = GetParam(); }
  void TearDown() override {
    Zent::VFPtrInterface::threadSafePointers_ = false;
    EXPECT_EQ(liveCount<Logged>(), 0);
    EXPECT_EQ(liveCount<Derived>(), 0);
    EXPECT_EQ(liveCount<Node>(), 0);
  }
  std::vector<std::string> log_;
};

INSTANTIATE_TEST_SUITE_P(Switch, PtrTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "threadSafe" : "plain"; });

TEST_P(PtrTest, CopiesCountAndTheLastDropDestroysOnce) {
  {
    Ptr<Logged> a(newTracked<Logged>(&log_));
    EXPECT_EQ(a->references(), 1u);
    {
      Ptr<Logged> b(a);
      Ptr<Logged> c;
      c = b;
      EXPECT_EQ(a->references(), 3u);
      EXPECT_TRUE(c == a);
    }
    EXPECT_EQ(a->references(), 1u);
    EXPECT_TRUE(log_.empty());
  }
  EXPECT_EQ(log_, (std::vector<std::string>{"onZeroReferences", "destroyed"}));
}

TEST_P(PtrTest, MovesHandOverTheReferenceWithoutCounting) {
  std::vector<std::string> otherLog;
  Ptr<Logged> a(newTracked<Logged>(&log_));
  Ptr<Logged> b(std::move(a));
  EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move): a moved-from Ptr is null by contract
  EXPECT_EQ(b->references(), 1u);

  Ptr<Logged> c(newTracked<Logged>(&otherLog));
  c = std::move(b);  // releases what c held
  EXPECT_EQ(otherLog.size(), 2u);
  EXPECT_EQ(c->references(), 1u);

  Ptr<Logged>& alias = c;
  c = std::move(alias);
  ASSERT_TRUE(c);
  EXPECT_EQ(c->references(), 1u);
  EXPECT_TRUE(log_.empty());
}

TEST_P(PtrTest, SelfAssignmentOfTheLastReferenceKeepsTheObject) {
  Ptr<Logged> p(newTracked<Logged>(&log_));
  p.ptrAssign(p.ptr());
  Ptr<Logged> const& alias = p;
  p = alias;
  ASSERT_TRUE(p);
  EXPECT_EQ(p->references(), 1u);
  EXPECT_TRUE(log_.empty());
  p.ptrAssign(nullptr);
  EXPECT_EQ(log_.size(), 2u);
}

// Pins down walking a chain with p = p->next, where the source pointer lives
// inside the object the assignment releases.
TEST_P(PtrTest, AssigningFromInsideTheReleasedObjectIsSafe) {
  Ptr<Node> p(newTracked<Node>(newTracked<Node>(newTracked<Node>(nullptr))));
  EXPECT_EQ(liveCount<Node>(), 3);
  int steps = 0;
  while (p) {
    p = p->next;
    ++steps;
    EXPECT_EQ(liveCount<Node>(), 3 - steps);
    if (p) {
      EXPECT_EQ(p->references(), 1u);
    }
  }
  EXPECT_EQ(steps, 3);
}

TEST_P(PtrTest, ConstPtrSharesTheCount) {
  Ptr<Logged> a(newTracked<Logged>(&log_));
  {
    Ptr<Logged const> c(a);
    EXPECT_EQ(c->references(), 2u);
    Ptr<Logged const> d(newTracked<Logged>(&log_));
    d = c;
    EXPECT_EQ(a->references(), 3u);
    EXPECT_EQ(log_.size(), 2u);  // d's first object went away
  }
  EXPECT_EQ(a->references(), 1u);
}

TEST_P(PtrTest, DynamicPtrCastSharesOwnershipOrYieldsNull) {
  Ptr<Logged> base(newTracked<Derived>(&log_));
  Ptr<Derived> d = Zent::dynamicPtrCast<Derived>(base);
  ASSERT_TRUE(d);
  EXPECT_EQ(d.ptr(), base.ptr());
  EXPECT_EQ(base->references(), 2u);

  EXPECT_FALSE(Zent::dynamicPtrCast<Unrelated>(base));
  EXPECT_EQ(base->references(), 2u);

  Ptr<Logged const> cbase(base);
  Ptr<Derived const> cd = Zent::dynamicPtrCast<Derived const>(cbase);
  EXPECT_TRUE(cd);
  EXPECT_EQ(base->references(), 4u);

  Ptr<Logged> up(std::move(d));  // converting move: no count change
  EXPECT_FALSE(d);               // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(base->references(), 4u);
}

TEST_P(PtrTest, ZeroReferencesNotifieeRunsOnceBeforeDestruction) {
  struct Notifiee : Zent::PtrInterface::ZeroReferencesNotifiee {
    std::vector<std::string>* log;
    void onZeroReferences() override { log->push_back("notifiee"); }
  } n;
  n.log = &log_;
  Ptr<Logged> p(newTracked<Logged>(&log_));
  p->zeroReferencesNotifieeIs(&n);
  Ptr<Logged> q(p);
  p = nullptr;
  EXPECT_TRUE(log_.empty());
  q = nullptr;
  EXPECT_EQ(log_, (std::vector<std::string>{"notifiee", "onZeroReferences", "destroyed"}));
}

// Pins down a second destruction started by a callback that takes and drops a
// Ptr to the dying object (a table detaching itself, for example).
TEST_P(PtrTest, ZeroReferencesNotifieeMayTakeATemporaryReference) {
  struct Notifiee : Zent::PtrInterface::ZeroReferencesNotifiee {
    Logged* obj = nullptr;
    std::vector<std::string>* log = nullptr;
    void onZeroReferences() override {
      log->push_back("notifiee");
      Ptr<Logged> self(obj);
    }
  } n;
  Ptr<Logged> p(newTracked<Logged>(&log_));
  n.obj = p.ptr();
  n.log = &log_;
  p->zeroReferencesNotifieeIs(&n);
  p = nullptr;
  EXPECT_EQ(log_, (std::vector<std::string>{"notifiee", "onZeroReferences", "destroyed"}));
}

// A constructor that throws when asked to.
class Fragile : public Zent::PtrInterface {
 public:
  explicit Fragile(bool fail) {
    if (fail) throw std::runtime_error("constructor failed");
  }
};

class FragileEntity : public Zent::Entity {
 public:
  explicit FragileEntity(bool fail) : Entity("FragileEntity") {
    if (fail) throw std::runtime_error("constructor failed");
  }
};

class TrackingTest : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(liveCount<Fragile>(), 0);
    EXPECT_EQ(liveCount<FragileEntity>(), 0);
  }
};

TEST_F(TrackingTest, LiveCountFollowsTrackedObjectsBackToZero) {
  auto& info = Zent::zentAllocTrackTypeInfo<Fragile>();
  uint64_t const allocs = info.allocs;
  int64_t const bytes = info.bytes;
  {
    std::vector<Ptr<Fragile>> v;
    for (int i = 0; i < 5; ++i) v.emplace_back(newTracked<Fragile>(false));
    EXPECT_EQ(liveCount<Fragile>(), 5);
    EXPECT_EQ(info.bytes.load(), bytes + 5 * static_cast<int64_t>(sizeof(Fragile)));
  }
  EXPECT_EQ(info.allocs.load(), allocs + 5);
  EXPECT_EQ(info.bytes.load(), bytes);
  EXPECT_EQ(info.name, "(anonymous namespace)::Fragile");
}

TEST_F(TrackingTest, ThrowingConstructorReleasesTheMemoryAndIsNotLive) {
  auto& info = Zent::zentAllocTrackTypeInfo<Fragile>();
  uint64_t const allocs = info.allocs;
  int64_t const bytes = info.bytes;
  EXPECT_THROW(newTracked<Fragile>(true), std::runtime_error);
  EXPECT_EQ(info.allocs.load(), allocs + 1);
  EXPECT_EQ(info.live.load(), 0);
  EXPECT_EQ(info.bytes.load(), bytes);
}

TEST_F(TrackingTest, EntityFactoryThatThrowsLeavesNoEntityOrCounterSetBehind) {
  size_t const sets = Zent::counterSets().size();
  EXPECT_THROW(Zent::newEntity<FragileEntity>(true), std::runtime_error);
  EXPECT_EQ(Zent::counterSets().size(), sets);

  Ptr<FragileEntity> e = Zent::newEntity<FragileEntity>(false);
  EXPECT_TRUE(e->hasNotificationActive());
  EXPECT_EQ(e->references(), 1u);
  EXPECT_EQ(liveCount<FragileEntity>(), 1);
}

}  // namespace
