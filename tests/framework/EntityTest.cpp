// The mutator and reactor rules, checked through the smallest entity that has
// them all. Every test compares the exact list of notifications, so a missing,
// doubled or spurious one fails, and every test ends with no live object.

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace {

using Zent::AttributeId;
using Zent::liveCount;
using Zent::Ptr;
using Zent::String;
using Log = std::vector<std::string>;

// An immutable member that carries its own key.
struct Item : Zent::PtrInterface {
  Item(String n, uint32_t w) : name(std::move(n)), weight(w) {}
  bool operator==(Item const& o) const { return name == o.name && weight == o.weight; }
  String name;
  uint32_t weight;
};
struct ItemKey {
  String operator()(Ptr<Item const> const& i) const { return i->name; }
};
Ptr<Item const> item(String n, uint32_t w) { return Ptr<Item const>(Zent::newTracked<Item>(n, w)); }

class Root : public Zent::Entity {
 public:
  enum : AttributeId { kReady = 1, kPort, kItem };
  explicit Root(String const& n) : Entity(n) {}
  void readyIs(bool r) { attributeIs(ready, r, kReady); }
  void portIs(uint16_t k, uint32_t v) { memberIs(ports, kPort, k, v); }
  bool portDel(uint16_t k) { return memberDel(ports, kPort, k); }
  void portDelAll() { memberDelAll(ports, kPort); }
  Ptr<Item const> itemIs(Ptr<Item const> const& i) {
    memberIs(items, kItem, i->name, i);
    return items.lookup(i->name);
  }

  bool ready = false;
  Zent::HashMap2018<uint16_t, uint32_t> ports;
  Zent::HashMap2018<String, Ptr<Item const>, ItemKey> items;
};

class Recorder : public Zent::PtrInterface::NotifieeConst {
 public:
  Recorder(Log* log, std::string tag) : log_(log), tag_(std::move(tag)) {}
  void onAttribute(AttributeId id, Zent::KeyRef const& key) override {
    std::string e = tag_ + (id == Root::kReady  ? ":ready"
                            : id == Root::kPort ? ":port:" + std::to_string(key.as<uint16_t>())
                                                : ":item:" + key.as<String>().stringValue());
    log_->push_back(e);
    if (action) action(e);
  }
  std::function<void(std::string const&)> action;  // runs after the event is logged

 private:
  Log* log_;
  std::string tag_;
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
    EXPECT_EQ(liveCount<Root>(), 0);
    EXPECT_EQ(liveCount<Item>(), 0);
    EXPECT_EQ(liveCount<Recorder>(), 0);
  }
  Ptr<Recorder> reactor(std::string tag, Root const* on = nullptr) {
    Ptr<Recorder> r(Zent::newTracked<Recorder>(&log_, std::move(tag)));
    r->notifierIs(on ? on : root_.ptr());
    return r;
  }
  Log take() { return std::exchange(log_, {}); }
  std::string heard() {
    std::string who;
    for (auto const& e : take()) who += e[0];
    return who;
  }
  Log takeSorted() {
    Log l = take();
    std::sort(l.begin(), l.end());
    return l;
  }

  Log log_;
  Ptr<Root> root_;
  Ptr<Recorder> a_, b_, c_, d_;
};

TEST_F(EntityTest, ScalarAndMemberNotifyOncePerRealChange) {
  root_->readyIs(true);
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{"a:ready"});
  root_->portIs(7, 1);
  root_->portIs(7, 1);
  EXPECT_EQ(take(), Log{"a:port:7"});
  root_->portIs(7, 2);
  root_->portIs(8, 0);  // a default value is still a new member
  EXPECT_EQ(take(), (Log{"a:port:7", "a:port:8"}));
  EXPECT_EQ(root_->ports.lookup(7), 2u);
}

TEST_F(EntityTest, InternalKeyMemberEqualToTheStoredOneDoesNotNotify) {
  Ptr<Item const> first = item("x", 1);
  EXPECT_EQ(root_->itemIs(first), first);
  EXPECT_EQ(root_->itemIs(first), first);
  EXPECT_EQ(take(), Log{"a:item:x"});
  // An equal copy changes nothing a reader can see: the stored member stays.
  EXPECT_EQ(root_->itemIs(item("x", 1)), first);
  EXPECT_EQ(take(), Log{});
  root_->itemIs(item("x", 2));
  EXPECT_EQ(take(), Log{"a:item:x"});
  EXPECT_EQ(first->references(), 1u);  // replaced, held only here
}

TEST_F(EntityTest, DelAndDelAllNotifyOncePerRemovedMember) {
  EXPECT_FALSE(root_->portDel(9));
  root_->portDelAll();
  EXPECT_EQ(take(), Log{});
  for (uint16_t k = 1; k <= 4; ++k) root_->portIs(k, k);
  take();
  EXPECT_TRUE(root_->portDel(3));
  EXPECT_FALSE(root_->portDel(3));
  EXPECT_EQ(take(), Log{"a:port:3"});
  root_->portDelAll();
  EXPECT_EQ(takeSorted(), (Log{"a:port:1", "a:port:2", "a:port:4"}));
  EXPECT_TRUE(root_->ports.empty());
}

// Pins down xDelAll walking a collection that a reactor changed under it.
TEST_F(EntityTest, DelAllToleratesAReactorRemovingOtherMembers) {
  Log expect;
  for (uint16_t k = 0; k < 40; ++k) {
    root_->portIs(k, k);
    expect.push_back("a:port:" + std::to_string(k));
  }
  take();
  Root* root = root_.ptr();
  a_->action = [root](std::string const& e) {
    root->portDel(static_cast<uint16_t>((std::stoi(e.substr(7)) + 13) % 40));
  };
  root_->portDelAll();
  std::sort(expect.begin(), expect.end());
  EXPECT_EQ(takeSorted(), expect);
  EXPECT_TRUE(root_->ports.empty());
}

TEST_F(EntityTest, SwitchedOffEntitiesAndReactorsHearNothing) {
  Ptr<Root> quiet(Zent::newTracked<Root>("quiet"));  // not made by newEntity: off
  b_ = reactor("b", quiet.ptr());
  quiet->readyIs(true);
  EXPECT_EQ(take(), Log{});
  quiet->hasNotificationActiveIs(true);
  quiet->readyIs(false);
  EXPECT_EQ(take(), Log{"b:ready"});

  c_ = reactor("c");
  a_->hasNotificationActiveIs(false);
  c_->isRegisteredNotifieeIs(false);
  EXPECT_EQ(c_->notifier(), root_.ptr());  // still attached, off the list
  root_->readyIs(true);
  EXPECT_EQ(take(), Log{});
  a_->hasNotificationActiveIs(true);
  c_->isRegisteredNotifieeIs(true);
  c_->isRegisteredNotifieeIs(true);
  root_->readyIs(false);
  EXPECT_EQ(take(), (Log{"a:ready", "c:ready"}));

  // Unregistered before attaching: attaching does not list it.
  b_->isRegisteredNotifieeIs(false);
  b_->notifierIs(root_.ptr());
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

// The generic walk hands out a Ptr member as the object itself and survives
// removal of the member it stands on.
TEST_F(EntityTest, CollectionIteratorReadsMembersAndRemovesAsItGoes) {
  for (char const* n : {"x", "y", "z"}) root_->itemIs(item(n, 5));
  take();
  Root* root = root_.ptr();
  std::vector<std::string> seen;
  auto it = Zent::collectionIterator(root->items,
                                     [root](String const& k) { root->items.deleteMember(k); });
  while (it->iterNonnull()) {
    auto const* i = static_cast<Item const*>(it->iterObj());
    seen.push_back(static_cast<String const*>(it->iterKey())->stringValue() + "=" +
                   std::to_string(i->weight));
    EXPECT_EQ(i, root->items.lookup(i->name).ptr());
    it->iterDel();
  }
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (Log{"x=5", "y=5", "z=5"}));
  EXPECT_TRUE(root->items.empty());
}

TEST(KeyRefDeathTest, ReadingAKeyAsTheWrongTypeAborts) {
  uint16_t const port = 5;
  Zent::KeyRef key(port);
  EXPECT_EQ(key.as<uint16_t>(), 5);
  EXPECT_DEATH(key.as<uint32_t>(), "key of type unsigned short read as unsigned int");
}

}  // namespace
