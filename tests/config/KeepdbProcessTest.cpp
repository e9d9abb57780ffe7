// Entities shared through the state database across processes: a reader
// process counts its reactors' notifications per key while this process
// writes, step by step. Every change arrives exactly once, a rewrite of an
// equal value (by a mutator, by a flush, or by a restarted writer
// republishing the same state) arrives not at all, and a reader started in
// the middle finds the current state and hears one notification per member.

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/config/ConfigPaths.h"
#include "Tunnel/config/DecapConfig.h"
#include "Tunnel/config/NexthopGroupConfig.h"
#include "tests/shmem/ShmTestUtil.h"

namespace {

using Counts = std::map<std::string, int>;
using Tunnel::TunnelTable::TunnelId;

Vorn::IpGenPrefix prefixOf(std::string const& text) { return Vorn::IpGenPrefix(text); }

// Counts every notification of a redistribution configuration and of its
// entries, by key.
struct RedistCounter : Tunnel::TunnelRedist::TunnelRedistConfig::NotifieeConst {
  struct Member : Tunnel::TunnelRedist::TunnelRedistEntry::NotifieeConst {
    Counts* counts = nullptr;
    void memberTunnelInfoNotify(TunnelId const& id) override {
      ++(*counts)["member " + std::to_string(id.value())];
    }
  };
  Counts counts;
  std::map<Vorn::IpGenPrefix, Zent::Ptr<Member>> members;
  void entryNotify(Vorn::IpGenPrefix const& p) override {
    ++counts["entry " + p.stringValue()];
    auto* config = static_cast<Tunnel::TunnelRedist::TunnelRedistConfig const*>(notifier());
    auto entry = config->entry(p);
    if (!entry) return;
    auto& m = members[p];
    if (!m) m = Zent::Ptr<Member>(new Member);
    m->counts = &counts;
    m->notifierIs(entry.ptr());
  }
};

struct DecapCounter : Tunnel::Decap::Config::NotifieeConst {
  Counts counts;
  void globalDestPortToPayloadTypeNotify(uint16_t port) override {
    ++counts["port " + std::to_string(port)];
  }
  void decapGroupNotify(Zent::String const& name) override {
    ++counts["group " + name.stringValue()];
  }
  void handleReady() override { ++counts["ready"]; }
};

struct NexthopGroupCounter : Tunnel::NexthopGroup::Config::NotifieeConst {
  Counts counts;
  void entryNotify(Vorn::IpGenPrefix const& p) override { ++counts["entry " + p.stringValue()]; }
};

// What a reader that starts now hears at once: one notification per member.
Counts present(Tunnel::TunnelRedist::TunnelRedistConfig const& c) {
  Counts out;
  for (auto it = c.entries().begin(); it != c.entries().end(); ++it) {
    out["entry " + it.key().stringValue()] = 1;
    auto const& infos = (*it)->memberTunnelInfos();
    for (auto m = infos.begin(); m != infos.end(); ++m) {
      out["member " + std::to_string(m.key().value())] = 1;
    }
  }
  return out;
}

Counts present(Tunnel::Decap::Config const& c) {
  Counts out;
  for (auto it = c.globalDestPortToPayloadTypes().begin();
       it != c.globalDestPortToPayloadTypes().end(); ++it) {
    out["port " + std::to_string(it.key())] = 1;
  }
  for (auto it = c.decapGroups().begin(); it != c.decapGroups().end(); ++it) {
    out["group " + it.key().stringValue()] = 1;
  }
  if (c.ready()) out["ready"] = 1;
  return out;
}

Counts present(Tunnel::NexthopGroup::Config const& c) {
  Counts out;
  for (auto it = c.entries().begin(); it != c.entries().end(); ++it) {
    out["entry " + it.key().stringValue()] = 1;
  }
  return out;
}

std::string encode(Counts const& c) {
  std::string out;
  for (auto const& [k, n] : c) out += k + "=" + std::to_string(n) + "\n";
  return out + "end\n";
}

// A reader in its own process. On each sync byte it takes in every
// notification the writer has published so far and answers with its counts.
template <typename Entity, typename Counter>
class ReaderProcess {
 public:
  ReaderProcess(std::string const& root, std::string const& path, Zent::Ptr<Entity> (*factory)(),
                Keepdb::Schema const& schema) {
    pid_ = TamselTest::forkChild([&] {
      // Whatever this process inherited, the writer's lock included, stays
      // with the parent: the writer must be able to restart while we live.
      for (int fd = 3; fd < 1024; ++fd) {
        if (fd != toChild_.fds[0] && fd != toParent_.fds[1]) ::close(fd);
      }
      auto entity = factory();
      Zent::Ptr<Counter> counter(new Counter);
      counter->notifierIs(entity.ptr());
      Keepdb::Binding reader(root, path, entity, schema, Keepdb::Mode::reader);
      char c;
      while (::read(toChild_.fds[0], &c, 1) == 1 && c == 's') {
        while (reader.dispatch() > 0) {
        }
        std::string text = encode(counter->counts);
        if (::write(toParent_.fds[1], text.data(), text.size()) !=
            static_cast<ssize_t>(text.size())) {
          return false;
        }
      }
      return reader.corruptions() == 0;
    });
  }
  ~ReaderProcess() {
    if (pid_ > 0) ::kill(pid_, SIGKILL), ::waitpid(pid_, nullptr, 0);
  }

  Counts sync() {
    (void)!::write(toChild_.fds[1], "s", 1);
    Counts out;
    std::string line;
    for (char c; ::read(toParent_.fds[0], &c, 1) == 1;) {
      if (c != '\n') {
        line += c;
        continue;
      }
      if (line == "end") break;
      auto eq = line.rfind('=');
      out[line.substr(0, eq)] = std::stoi(line.substr(eq + 1));
      line.clear();
    }
    return out;
  }
  // Ends the reader the hard way, as a crash would.
  void kill() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  bool quit() {
    (void)!::write(toChild_.fds[1], "q", 1);
    bool ok = TamselTest::waitChild(pid_) == 0;
    pid_ = -1;
    return ok;
  }

 private:
  TamselTest::Pipe toChild_;
  TamselTest::Pipe toParent_;
  pid_t pid_ = -1;
};

// One step of a script: a change to the writer's entity and the
// notifications each key must cause in a reader.
template <typename Entity>
struct Step {
  std::function<void(Entity&)> change;
  Counts heard;
};

void add(Counts& to, Counts const& from) {
  for (auto const& [k, n] : from) to[k] += n;
}

// Runs `steps` with one reader from the start and a second one started
// after `restartAt` steps (the first is killed there, mid-run). After every
// step both the writer's flush and a restarted writer republishing the same
// state are rewrites that must add nothing.
template <typename Entity, typename Counter>
void runScript(std::string const& path, Zent::Ptr<Entity> (*factory)(),
               Keepdb::Schema const& schema, std::vector<Step<Entity>> const& steps,
               size_t restartAt) {
  TamselTest::StateRoot root;
  auto entity = factory();
  auto writer = std::make_unique<Keepdb::Binding>(root.path(), path, entity, schema,
                                                  Keepdb::Mode::writerReplace);
  using Reader = ReaderProcess<Entity, Counter>;
  auto first = std::make_unique<Reader>(root.path(), path, factory, schema);
  EXPECT_EQ(first->sync(), Counts{});
  std::unique_ptr<Reader> second;
  Counts firstHeard, secondHeard;
  for (size_t i = 0; i < steps.size(); ++i) {
    if (i == restartAt) {
      first->kill();
      first.reset();
      second = std::make_unique<Reader>(root.path(), path, factory, schema);
      secondHeard = present(*entity);
      EXPECT_EQ(second->sync(), secondHeard) << "a reader started at step " << i;
    }
    steps[i].change(*entity);
    writer->flush();
    EXPECT_EQ(writer->flush(), 0u) << "step " << i;
    // A new writer takes the table over with the same state: nothing to say.
    writer.reset();
    writer = std::make_unique<Keepdb::Binding>(root.path(), path, entity, schema,
                                               Keepdb::Mode::writerReplace);
    EXPECT_EQ(writer->flush(), 0u) << "step " << i;
    add(first ? firstHeard : secondHeard, steps[i].heard);
    if (first) {
      EXPECT_EQ(first->sync(), firstHeard) << "step " << i;
    }
    if (second) {
      EXPECT_EQ(second->sync(), secondHeard) << "step " << i;
    }
  }
  ASSERT_TRUE(second);
  EXPECT_TRUE(second->quit());
}

std::string member(uint64_t index) {
  return "member " + std::to_string(TunnelId(Tunnel::TunnelTable::ldpTunnel, index).value());
}

TEST(KeepdbProcessTest, RedistributionConfigurationMembersArriveOnceEach) {
  using Config = Tunnel::TunnelRedist::TunnelRedistConfig;
  using Tunnel::TunnelRedist::TunnelInfo;
  auto info = [](uint64_t index, uint32_t metric) {
    return TunnelInfo(TunnelId(Tunnel::TunnelTable::ldpTunnel, index), metric);
  };
  auto const p1 = prefixOf("10.0.0.1/32"), p2 = prefixOf("2001:db8::1/128");
  std::vector<Step<Config>> steps = {
      {[&](Config& c) {
         c.entryIs(p1)->memberTunnelInfoIs(info(1, 10));
         c.entryIs(p1)->memberTunnelInfoIs(info(2, 20));
         c.entryIs(p2)->memberTunnelInfoIs(info(3, 30));
       },
       {{"entry 10.0.0.1/32", 1},
        {"entry 2001:db8::1/128", 1},
        {member(1), 1},
        {member(2), 1},
        {member(3), 1}}},
      // An equal metric is no change; a new one is one.
      {[&](Config& c) {
         c.entryIs(p1)->memberTunnelInfoIs(info(1, 10));
         c.entryIs(p1)->memberTunnelInfoIs(info(2, 21));
       },
       {{member(2), 1}}},
      // Changed and changed back before the flush: nothing goes out.
      {[&](Config& c) {
         c.entryIs(p2)->memberTunnelInfoIs(info(3, 31));
         c.entryIs(p2)->memberTunnelInfoIs(info(3, 30));
       },
       {}},
      {[&](Config& c) { c.entryIs(p1)->memberTunnelInfoDel(info(1, 0).tunnelId()); },
       {{member(1), 1}}},
      {[&](Config& c) {
         c.entryDel(p2);
         c.entryIs(p1)->memberTunnelInfoIs(info(4, 40));
       },
       {{"entry 2001:db8::1/128", 1}, {member(4), 1}}},
  };
  runScript<Config, RedistCounter>(
      Tunnel::TunnelRedist::tunnelRedistConfigPath("ldp"),
      +[] { return Tunnel::TunnelRedist::tunnelRedistConfigFactory("ldp"); },
      Tunnel::TunnelRedist::tunnelRedistConfigSchema(), steps, 3);
}

TEST(KeepdbProcessTest, DecapsulationConfigurationChangesArriveOnceEach) {
  using namespace Tunnel::Decap;
  using Config = Tunnel::Decap::Config;
  auto group = [](char const* name, std::vector<char const*> ips) {
    DecapGroup g(name, DecapTunnelType::gre);
    for (uint32_t i = 0; i < ips.size(); ++i) g.decapIpIs(DecapIpIndex(i), prefixOf(ips[i]));
    return DecapGroupIs(g);
  };
  std::vector<Step<Config>> steps = {
      {[&](Config& c) {
         c.globalDestPortToPayloadTypeIs(4789, PayloadType::ethernet);
         c.globalDestPortToPayloadTypeIs(6635, PayloadType::mpls);
         c.decapGroupIs(group("g1", {"192.0.2.1/32", "2001:db8::/64"}));
         c.readyIs(true);
       },
       {{"port 4789", 1}, {"port 6635", 1}, {"group g1", 1}, {"ready", 1}}},
      // The same values again, the group as a new but equal object.
      {[&](Config& c) {
         c.globalDestPortToPayloadTypeIs(4789, PayloadType::ethernet);
         c.decapGroupIs(group("g1", {"192.0.2.1/32", "2001:db8::/64"}));
         c.readyIs(true);
         c.decapGroupDel("absent");
       },
       {}},
      {[&](Config& c) {
         c.decapGroupIs(group("g1", {"192.0.2.1/32", "2001:db8::/64", "198.51.100.0/24"}));
         c.globalDestPortToPayloadTypeIs(6635, PayloadType::ipv4);
       },
       {{"group g1", 1}, {"port 6635", 1}}},
      {[&](Config& c) {
         c.globalDestPortToPayloadTypeDel(4789);
         c.decapGroupIs(group("g2", {}));
       },
       {{"port 4789", 1}, {"group g2", 1}}},
      {[&](Config& c) {
         c.decapGroupDelAll();
         c.readyIs(false);
       },
       {{"group g1", 1}, {"group g2", 1}, {"ready", 1}}},
  };
  runScript<Config, DecapCounter>(Tunnel::Config::kDecapConfigPath, &configFactory, configSchema(),
                                  steps, 2);
}

TEST(KeepdbProcessTest, NexthopGroupConfigurationChangesArriveOnceEach) {
  using namespace Tunnel::NexthopGroup;
  using Config = Tunnel::NexthopGroup::Config;
  auto entry = [](char const* p, char const* nhg, uint32_t metric) {
    return NexthopGroupTunnelConfigEntry(prefixOf(p), nhg, 10, metric);
  };
  std::vector<Step<Config>> steps = {
      {[&](Config& c) {
         c.entryIs(entry("10.1.0.0/16", "nhg1", 5));
         c.entryIs(entry("2001:db8:1::/48", "nhg2", 5));
       },
       {{"entry 10.1.0.0/16", 1}, {"entry 2001:db8:1::/48", 1}}},
      {[&](Config& c) {
         c.entryIs(entry("10.1.0.0/16", "nhg1", 5));
         c.entryDel(prefixOf("10.9.0.0/16"));
       },
       {}},
      {[&](Config& c) { c.entryIs(entry("10.1.0.0/16", "nhg1", 6)); }, {{"entry 10.1.0.0/16", 1}}},
      {[&](Config& c) { c.entryDelAll(); },
       {{"entry 10.1.0.0/16", 1}, {"entry 2001:db8:1::/48", 1}}},
  };
  runScript<Config, NexthopGroupCounter>(Tunnel::Config::kNexthopGroupConfigPath, &configFactory,
                                         configSchema(), steps, 1);
}

// What the database refuses, and what it does with records it cannot use.
TEST(KeepdbProcessTest, RefusalsAndRecordsThatDoNotDecode) {
  TamselTest::StateRoot root;
  std::string const path = Tunnel::Config::kDecapConfigPath;
  auto const& schema = Tunnel::Decap::configSchema();
  EXPECT_THROW(Keepdb::Binding(root.path(), path, Tunnel::Decap::configFactory(), schema,
                               Keepdb::Mode::reader),
               Tamsel::Error);  // nothing there yet
  {
    // A table of another type at the path, with a record that does not decode
    // under the group attribute and one under an attribute nobody declared.
    Tamsel::TableShape shape{schema.typeName, "", sizeof(Keepdb::RecordKey), schema.maxRecord};
    Tamsel::Writer raw(Keepdb::directory(root.path(), path), Keepdb::kAttrsCollection, shape);
    for (uint32_t attr : {Tunnel::Decap::Config::kDecapGroupId, 999u}) {
      Keepdb::RecordKey k;
      k.attrId = static_cast<uint16_t>(attr);
      k.keyLen = 2;
      std::memcpy(k.key, "g1", 2);
      raw.write(&k, k.hash(), 3, [](char* dst) { std::memcpy(dst, "\x01\x09x", 3); });
    }
  }
  auto config = Tunnel::Decap::configFactory();
  Zent::Ptr<DecapCounter> counter(new DecapCounter);
  counter->notifierIs(config.ptr());
  Keepdb::Binding reader(root.path(), path, config, schema, Keepdb::Mode::reader);
  EXPECT_EQ(reader.corruptions(), 2u);
  EXPECT_TRUE(counter->counts.empty());
  EXPECT_EQ(config->decapGroups().size(), 0u);

  auto writer = std::make_unique<Keepdb::Binding>(root.path(), path, Tunnel::Decap::configFactory(),
                                                  schema, Keepdb::Mode::writerLoad);
  EXPECT_THROW(Keepdb::Binding(root.path(), path, Tunnel::Decap::configFactory(), schema,
                               Keepdb::Mode::writerLoad),
               Tamsel::Error);  // one writer at a time
  EXPECT_THROW(Keepdb::Binding(root.path(), path, Tunnel::NexthopGroup::configFactory(),
                               Tunnel::NexthopGroup::configSchema(), Keepdb::Mode::reader),
               Tamsel::Error);  // another type

  // A redistribution entry past what a record holds stays pending; the
  // others go out.
  using namespace Tunnel::TunnelRedist;
  auto redist = tunnelRedistConfigFactory("ldp");
  Keepdb::Binding published(root.path(), tunnelRedistConfigPath("ldp"), redist,
                            tunnelRedistConfigSchema(), Keepdb::Mode::writerReplace);
  for (uint64_t i = 1; i <= 601; ++i) {
    redist->entryIs(prefixOf("10.0.0.1/32"))
        ->memberTunnelInfoIs(TunnelInfo(TunnelId(Tunnel::TunnelTable::ldpTunnel, i), 1));
  }
  redist->entryIs(prefixOf("10.0.0.2/32"))
      ->memberTunnelInfoIs(TunnelInfo(TunnelId(Tunnel::TunnelTable::ldpTunnel, 900), 1));
  EXPECT_THROW(published.flush(), Keepdb::Error);
  EXPECT_EQ(published.writes(), 1u);
  EXPECT_EQ(published.pendingCount(), 1u);
}

}  // namespace
