// The mutator and reactor rules, checked through a small root entity. Every
// test compares the exact list of notifications, so a missing, doubled or
// spurious notification fails, and every test ends with no live entity.

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Entity.h"
#include "tests/framework/TestEntity.h"

namespace FrameworkTest {
namespace {

using Zent::liveCount;
using Zent::Ptr;
using Zent::String;
using Log = std::vector<std::string>;

class Recorder : public Root::NotifieeConst {
 public:
  Recorder(Log* log, std::string tag) : log_(log), tag_(std::move(tag)) {}
  void handleReady() override { record("ready"); }
  void portNotify(uint16_t key) override { record("port:" + std::to_string(key)); }
  void itemNotify(String const& key) override { record("item:" + key.stringValue()); }

  // Runs after each notification is recorded; the key is the event text.
  std::function<void(std::string const&)> action;

 private:
  void record(std::string const& event) {
    log_->push_back(tag_ + ":" + event);
    if (action) action(event);
  }
  Log* log_;
  std::string tag_;
};

class EntityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = rootFactory("root");
    a_ = reactor("a", root_.ptr());
  }
  void TearDown() override {
    a_ = nullptr;
    b_ = nullptr;
    root_ = nullptr;
    EXPECT_EQ(liveCount<Root>(), 0);
    EXPECT_EQ(liveCount<Item>(), 0);
    EXPECT_EQ(liveCount<Recorder>(), 0);
  }

  Ptr<Recorder> reactor(std::string tag, Root const* on) {
    Ptr<Recorder> r(Zent::newTracked<Recorder>(&log_, std::move(tag)));
    r->notifierIs(on);
    return r;
  }
  // The notifications since the last call, in order.
  Log take() { return std::exchange(log_, {}); }
  Log takeSorted() {
    Log l = take();
    std::sort(l.begin(), l.end());
    return l;
  }

  Log log_;
  Ptr<Root> root_;
  Ptr<Recorder> a_;
  Ptr<Recorder> b_;
};

TEST_F(EntityTest, ScalarNotifiesOnlyWhenTheValueChanges) {
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"a:ready"});
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{});
  root_->readyIs(false);
  EXPECT_EQ(take(), Log{"a:ready"});
  EXPECT_FALSE(root_->ready());
}

TEST_F(EntityTest, ExternalKeyMemberNotifiesOncePerChangeWithItsKey) {
  root_->portIs(7, Payload(1, "x"));
  EXPECT_EQ(take(), Log{"a:port:7"});
  root_->portIs(7, Payload(1, String(std::string("x"))));
  EXPECT_EQ(take(), Log{});
  root_->portIs(7, Payload(2, "x"));
  EXPECT_EQ(take(), Log{"a:port:7"});
  EXPECT_EQ(root_->port(7), Payload(2, "x"));
  root_->portIs(8, Payload());
  EXPECT_EQ(take(), Log{"a:port:8"});
  EXPECT_EQ(root_->ports().size(), 2u);
}

TEST_F(EntityTest, InternalKeyMemberEqualToTheStoredOneDoesNotNotify) {
  Ptr<Item const> first = itemFactory("x", 1);
  EXPECT_EQ(root_->itemIs(first), first);
  EXPECT_EQ(take(), Log{"a:item:x"});
  EXPECT_EQ(root_->itemIs(first), first);
  EXPECT_EQ(take(), Log{});
  // An equal copy changes nothing a reader can see: the stored member stays.
  EXPECT_EQ(root_->itemIs(itemFactory("x", 1)), first);
  EXPECT_EQ(take(), Log{});
  root_->itemIs(itemFactory("x", 2));
  EXPECT_EQ(take(), Log{"a:item:x"});
  EXPECT_EQ(root_->item("x")->weight(), 2u);
  EXPECT_EQ(first->references(), 1u);  // replaced, held only here
}

TEST_F(EntityTest, DelNotifiesOnlyWhenAMemberWasRemoved) {
  EXPECT_EQ(root_->portDel(9), Payload());
  EXPECT_FALSE(root_->itemDel("nothing"));
  EXPECT_EQ(take(), Log{});

  root_->portIs(9, Payload(3, "p"));
  root_->itemIs(itemFactory("x", 4));
  take();
  EXPECT_EQ(root_->portDel(9), Payload(3, "p"));
  EXPECT_EQ(take(), Log{"a:port:9"});
  EXPECT_EQ(root_->portDel(9), Payload());
  EXPECT_EQ(take(), Log{});

  Ptr<Item const> old = root_->itemDel("x");
  EXPECT_EQ(take(), Log{"a:item:x"});
  ASSERT_TRUE(old);  // a removed member lives on while a caller holds it
  EXPECT_EQ(old->weight(), 4u);
  EXPECT_EQ(liveCount<Item>(), 1);
  old = nullptr;
  EXPECT_EQ(liveCount<Item>(), 0);
}

TEST_F(EntityTest, DelAllNotifiesOncePerMember) {
  Log expectPorts;
  for (uint16_t k = 1; k <= 5; ++k) {
    root_->portIs(k, Payload(k, "p"));
    expectPorts.push_back("a:port:" + std::to_string(k));
  }
  for (std::string n : {"w", "x", "y", "z"}) root_->itemIs(itemFactory(n, 1));
  take();

  root_->portDelAll();
  EXPECT_EQ(takeSorted(), expectPorts);
  EXPECT_TRUE(root_->ports().empty());
  root_->itemDelAll();
  EXPECT_EQ(takeSorted(), (Log{"a:item:w", "a:item:x", "a:item:y", "a:item:z"}));
  EXPECT_TRUE(root_->items().empty());

  root_->portDelAll();
  root_->itemDelAll();
  EXPECT_EQ(take(), Log{});
}

// Pins down xDelAll walking a collection that a reactor changed under it.
TEST_F(EntityTest, DelAllToleratesAReactorRemovingOtherMembers) {
  Log expect;
  for (uint16_t k = 0; k < 40; ++k) {
    root_->portIs(k, Payload(k, "p"));
    expect.push_back("a:port:" + std::to_string(k));
  }
  take();
  Root* root = root_.ptr();
  a_->action = [root](std::string const& event) {
    uint16_t const k = static_cast<uint16_t>(std::stoi(event.substr(5)));
    root->portDel(static_cast<uint16_t>((k + 13) % 40));
  };
  root_->portDelAll();
  std::sort(expect.begin(), expect.end());
  EXPECT_EQ(takeSorted(), expect);
  EXPECT_TRUE(root_->ports().empty());
}

TEST_F(EntityTest, NotificationsAreOffUntilSwitchedOn) {
  Ptr<Root> quiet(Zent::newTracked<Root>("quiet"));
  b_ = reactor("b", quiet.ptr());
  quiet->readyIs(true);
  quiet->portIs(1, Payload(1, "p"));
  EXPECT_EQ(take(), Log{});
  EXPECT_TRUE(quiet->ready());

  quiet->hasNotificationActiveIs(true);
  quiet->readyIs(false);
  EXPECT_EQ(take(), Log{"b:ready"});
}

TEST_F(EntityTest, InactiveReactorIsSkipped) {
  b_ = reactor("b", root_.ptr());
  a_->hasNotificationActiveIs(false);
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"b:ready"});
  a_->hasNotificationActiveIs(true);
  root_->readyIs(false);
  EXPECT_EQ(take(), (Log{"a:ready", "b:ready"}));
}

TEST_F(EntityTest, UnregisteredReactorLeavesTheListButKeepsItsNotifier) {
  a_->isRegisteredNotifieeIs(false);
  EXPECT_EQ(root_->notifieeList().members(), 0u);
  EXPECT_EQ(a_->notifier(), root_.ptr());
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{});

  a_->isRegisteredNotifieeIs(true);
  a_->isRegisteredNotifieeIs(true);
  EXPECT_EQ(root_->notifieeList().members(), 1u);
  root_->readyIs(false);
  EXPECT_EQ(take(), Log{"a:ready"});

  // Unregistered before attaching: attaching does not list it.
  Ptr<Recorder> c(Zent::newTracked<Recorder>(&log_, "c"));
  c->isRegisteredNotifieeIs(false);
  c->notifierIs(root_.ptr());
  EXPECT_EQ(root_->notifieeList().members(), 1u);
}

TEST_F(EntityTest, ReactorDetachingItselfDuringANotificationDoesNotStopTheOthers) {
  b_ = reactor("b", root_.ptr());
  Recorder* a = a_.ptr();
  a_->action = [a](std::string const&) { a->notifierIs(nullptr); };
  root_->readyIs(true);
  EXPECT_EQ(take(), (Log{"a:ready", "b:ready"}));
  root_->readyIs(false);
  EXPECT_EQ(take(), Log{"b:ready"});
  EXPECT_EQ(root_->notifieeList().members(), 1u);
}

TEST_F(EntityTest, ReactorDetachingAnotherDuringANotification) {
  b_ = reactor("b", root_.ptr());
  Recorder* b = b_.ptr();
  a_->action = [b](std::string const&) { b->notifierIs(nullptr); };
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"a:ready"});  // b was gone before its turn

  b_->notifierIs(root_.ptr());  // now listed after a; b detaches a, already run
  a_->action = nullptr;
  Recorder* a = a_.ptr();
  b_->action = [a](std::string const&) { a->notifierIs(nullptr); };
  root_->readyIs(false);
  EXPECT_EQ(take(), (Log{"a:ready", "b:ready"}));
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"b:ready"});
}

TEST_F(EntityTest, ReactorDestroyedByAnotherDuringANotification) {
  b_ = reactor("b", root_.ptr());
  Ptr<Recorder> c = reactor("c", root_.ptr());
  a_->action = [this](std::string const&) { b_ = nullptr; };
  root_->readyIs(true);
  EXPECT_EQ(take(), (Log{"a:ready", "c:ready"}));
  EXPECT_EQ(liveCount<Recorder>(), 2);
  EXPECT_EQ(root_->notifieeList().members(), 2u);
}

TEST_F(EntityTest, ReactorDestructionDetachesAndReleasesTheNotifier) {
  b_ = reactor("b", root_.ptr());
  EXPECT_EQ(root_->notifieeList().members(), 2u);
  EXPECT_EQ(root_->references(), 3u);  // the test and two reactors
  b_ = nullptr;
  EXPECT_EQ(root_->notifieeList().members(), 1u);
  EXPECT_EQ(root_->references(), 2u);
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"a:ready"});
}

// Pins down an entity destroyed in the middle of its own notification when
// the reactor held the last reference and detached.
TEST_F(EntityTest, ReactorHoldingTheLastReferenceMayDetachDuringANotification) {
  b_ = reactor("b", root_.ptr());
  Root* root = root_.ptr();
  root_ = nullptr;
  b_ = nullptr;
  Recorder* a = a_.ptr();
  a_->action = [a](std::string const&) { a->notifierIs(nullptr); };
  root->portIs(3, Payload(3, "p"));
  EXPECT_EQ(take(), Log{"a:port:3"});
  EXPECT_EQ(liveCount<Root>(), 0);
}

TEST_F(EntityTest, ReactorAttachedDuringANotificationWaitsForTheNextChange) {
  Root const* root = root_.ptr();
  a_->action = [this, root](std::string const&) {
    if (!b_) b_ = reactor("b", root);
  };
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"a:ready"});
  root_->readyIs(false);
  EXPECT_EQ(take(), (Log{"a:ready", "b:ready"}));
}

TEST(KeyRefDeathTest, ReadingAKeyAsTheWrongTypeAborts) {
  uint16_t const port = 5;
  Zent::KeyRef key(port);
  EXPECT_EQ(key.as<uint16_t>(), 5);
  EXPECT_DEATH(key.as<uint32_t>(), "key of 2 bytes read as one of 4");
}

}  // namespace
}  // namespace FrameworkTest
