// The mutator and reactor rules, checked through the smallest entity that has
// them all. Every test compares the exact list of notifications, so a missing,
// doubled or spurious one fails, and every test ends with no live object.

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"

namespace {

using Zent::AttributeId;
using Zent::liveCount;
using Zent::Ptr;
using Log = std::vector<std::string>;

// An immutable member held by Ptr.
struct Item : Zent::PtrInterface {
  explicit Item(uint32_t w) : weight(w) {}
  bool operator==(Item const& o) const { return weight == o.weight; }
  uint32_t weight;
};
Ptr<Item const> item(uint32_t w) { return Ptr<Item const>(Zent::newTracked<Item>(w)); }

class Root : public Zent::Entity {
 public:
  enum : AttributeId { kReady = 1, kPort, kItem };
  explicit Root(Zent::String const& n) : Entity(n) {}
  void readyIs(bool r) { attributeIs(ready, r, kReady); }
  void portIs(uint16_t k, uint32_t v) { memberIs(ports, kPort, k, v); }
  bool portDel(uint16_t k) { return memberDel(ports, kPort, k); }
  void portDelAll() { memberDelAll(ports, kPort); }
  Ptr<Item const> itemIs(uint16_t k, Ptr<Item const> const& i) {
    memberIs(items, kItem, k, i);
    return items.lookup(k);
  }

  bool ready = false;
  Zent::HashMap2018<uint16_t, uint32_t> ports;
  Zent::HashMap2018<uint16_t, Ptr<Item const>> items;
};

struct Recorder : Zent::PtrInterface::NotifieeConst {
  Recorder(Log* l, std::string t) : log(l), tag(std::move(t)) {}
  void onAttribute(AttributeId id, Zent::KeyRef const& key) override {
    std::string e = tag + (id == Root::kReady ? ":ready"
                                              : (id == Root::kPort ? ":port:" : ":item:") +
                                                    std::to_string(key.as<uint16_t>()));
    log->push_back(e);
    if (action) action(e);
  }
  Log* log;
  std::string tag;
  std::function<void(std::string const&)> action;  // runs after the event is logged
};

class EntityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = Zent::newEntity<Root>("root");
    a_ = reactor("a");
  }
  void TearDown() override {
    a_ = b_ = c_ = d_ = nullptr;
    root_ = nullptr;
    EXPECT_EQ(liveCount<Root>() + liveCount<Item>() + liveCount<Recorder>(), 0);
  }
  Ptr<Recorder> reactor(std::string tag, Root const* on = nullptr) {
    Ptr<Recorder> r(Zent::newTracked<Recorder>(&log_, std::move(tag)));
    r->notifierIs(on ? on : root_.ptr());
    return r;
  }
  // What was heard since the last call, sorted: one change reaches reactors in no set order.
  Log take() {
    Log l = std::exchange(log_, {});
    std::sort(l.begin(), l.end());
    return l;
  }
  std::string heard() {
    std::string who;
    for (auto const& e : take()) who += e[0];
    return who;
  }

  Log log_;
  Ptr<Root> root_;
  Ptr<Recorder> a_, b_, c_, d_;
};

// Each step is one change and what reactor a hears of it, in any order.
TEST_F(EntityTest, MutatorsNotifyOncePerRealChangeAndNeverForNoChange) {
  Ptr<Item const> first = item(1);
  std::vector<std::pair<std::function<void()>, Log>> const steps = {
      {[&] { root_->readyIs(true); }, {"a:ready"}},
      {[&] { root_->readyIs(true); }, {}},
      {[&] { root_->portIs(7, 1); }, {"a:port:7"}},
      {[&] { root_->portIs(7, 1); }, {}},
      {[&] { root_->portIs(7, 2); }, {"a:port:7"}},
      {[&] { root_->portIs(8, 0); }, {"a:port:8"}},  // a default value is still a member
      {[&] { EXPECT_EQ(root_->itemIs(5, first), first); }, {"a:item:5"}},
      // An equal copy changes nothing a reader can see: the stored member stays.
      {[&] { EXPECT_EQ(root_->itemIs(5, item(1)), first); }, {}},
      {[&] { root_->itemIs(5, item(2)); }, {"a:item:5"}},
      {[&] { EXPECT_FALSE(root_->portDel(9)); }, {}},
      {[&] { EXPECT_TRUE(root_->portDel(8)); }, {"a:port:8"}},
      {[&] { root_->portIs(1, 1), root_->portIs(2, 2); }, {"a:port:1", "a:port:2"}},
      {[&] { root_->portDelAll(); }, {"a:port:1", "a:port:2", "a:port:7"}},
      {[&] { root_->portDelAll(); }, {}},
  };
  for (size_t i = 0; i < steps.size(); ++i) {
    steps[i].first();
    EXPECT_EQ(take(), steps[i].second) << "step " << i;
  }
  EXPECT_EQ(first->references(), 1u);  // replaced, held only here
}

// Pins down xDelAll walking a collection that a reactor changed under it.
TEST_F(EntityTest, DelAllToleratesAReactorRemovingOtherMembers) {
  for (uint16_t k = 0; k < 40; ++k) root_->portIs(k, k);
  take();
  Root* root = root_.ptr();
  a_->action = [root](std::string const& e) {
    root->portDel(static_cast<uint16_t>((std::stoi(e.substr(7)) + 13) % 40));
  };
  root_->portDelAll();
  Log const heard = take();
  EXPECT_EQ(heard.size(), 40u);
  EXPECT_EQ(std::set<std::string>(heard.begin(), heard.end()).size(), 40u);
  EXPECT_TRUE(root_->ports.empty());
}

TEST_F(EntityTest, SwitchedOffEntitiesAndReactorsHearNothing) {
  Ptr<Root> quiet(Zent::newTracked<Root>("quiet"));  // not made by newEntity: off
  b_ = reactor("b", quiet.ptr());
  quiet->readyIs(true);
  c_ = reactor("c");
  a_->hasNotificationActiveIs(false);
  c_->isRegisteredNotifieeIs(false);  // still attached, off the list
  root_->readyIs(true);
  EXPECT_EQ(heard(), "");
  quiet->hasNotificationActiveIs(true);
  a_->hasNotificationActiveIs(true);
  c_->isRegisteredNotifieeIs(true);
  c_->isRegisteredNotifieeIs(true);
  quiet->readyIs(false);
  root_->readyIs(false);
  EXPECT_EQ(heard(), "abc");
  b_->isRegisteredNotifieeIs(false);
  b_->notifierIs(root_.ptr());  // unregistered before attaching: not listed
  EXPECT_EQ(root_->notifieeList().members(), 2u);
}

// Reactors a, b and c, in that order; one of them changes the list while it is
// notified. The change must neither skip nor repeat the others.
TEST_F(EntityTest, ReactorListChangedDuringANotification) {
  struct Case {
    char const* what;
    char actor;
    std::function<void()> change;
    std::string first, second;  // who heard the change, and the next one
  };
  std::vector<Case> const cases = {
      {"a detaches itself", 'a', [this] { a_->notifierIs(nullptr); }, "abc", "bc"},
      {"a detaches b", 'a', [this] { b_->notifierIs(nullptr); }, "ac", "ac"},
      {"b detaches a, already run", 'b', [this] { a_->notifierIs(nullptr); }, "abc", "bc"},
      {"a destroys b", 'a', [this] { b_ = nullptr; }, "ac", "ac"},
      {"a attaches d, heard from the next change", 'a', [this] { d_ = reactor("d"); }, "abc",
       "abcd"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    a_ = reactor("a");
    b_ = reactor("b");
    c_ = reactor("c");
    Ptr<Recorder> actor = c.actor == 'a' ? a_ : b_;
    actor->action = [&c](std::string const&) { c.change(); };
    root_->readyIs(!root_->ready);
    EXPECT_EQ(heard(), c.first);
    actor->action = nullptr;
    root_->readyIs(!root_->ready);
    EXPECT_EQ(heard(), c.second);
    a_ = b_ = c_ = d_ = nullptr;
  }
}

// Pins down an entity destroyed in the middle of its own notification when
// the reactor held the last reference and detached.
TEST_F(EntityTest, ReactorHoldingTheLastReferenceMayDetachDuringANotification) {
  Root* root = root_.ptr();
  root_ = nullptr;
  Recorder* a = a_.ptr();
  a_->action = [a](std::string const&) { a->notifierIs(nullptr); };
  root->portIs(3, 3);
  EXPECT_EQ(take(), Log{"a:port:3"});
  EXPECT_EQ(liveCount<Root>(), 0);
}

TEST(KeyRefDeathTest, ReadingAKeyAsTheWrongTypeAborts) {
  uint16_t const port = 5;
  Zent::KeyRef key(port);
  EXPECT_EQ(key.as<uint16_t>(), 5);
  EXPECT_DEATH(key.as<uint32_t>(), "key of 2 bytes read as one of 4");
}

}  // namespace
