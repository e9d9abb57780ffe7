#pragma once
// The machinery the three protocol redistribution machines share. Each keeps
// a redistribution configuration equal to what its input tunnel table
// implies: every tunnel is a member of the entry of its endpoint prefix. The
// machines differ only in a small table of traits (input table, assertion
// text, metric, what an unchanged endpoint does); the code is written once.

#include <string>
#include <vector>

#include "Tunnel/TunnelRedist/TunnelRedistConfig.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/FlatHashMap.h"
#include "Tunnel/shmem/ZentTamsel/ZentTamsel.h"

namespace Tunnel::TunnelRedist {

DABIN_FACILITY("Tunnel::TunnelRedist");

// Traits supply:
//   using Table, Entry;
//   static constexpr const char* kClassName      qualified class name, for traces
//   static constexpr const char* kAssertion      text of the reader-mode assertion
//   static constexpr bool kIgpMetric             member metric is the entry's igpMetric (else 0)
//   static constexpr bool kNoOpOnSameEndpoint    an unchanged endpoint changes nothing
template <typename Traits>
class TunnelRedistConfigSm : public Zent::PtrInterface {
 public:
  using Table = typename Traits::Table;
  using Entry = typename Traits::Entry;
  // Flat: looked up on every notification, and as large as the input table.
  using TidToTepMap = Zent::FlatHashMap<TunnelId, TunnelIdToEndPoint>;
  // Whether members carry the input entry's IGP metric (else 0).
  static constexpr bool kCarriesIgpMetric = Traits::kIgpMetric;

  TunnelRedistConfigSm(Zent::Ptr<TunnelRedistConfig> config, Zent::Ptr<Table const> table)
      : config_(std::move(config)), table_(std::move(table)) {
    reactor_ = Zent::Ptr<TableReactor>(Zent::newTracked<TableReactor>(this));
    reactor_->notifierIs(table_.ptr());
  }
  ~TunnelRedistConfigSm() override {
    if (reactor_) reactor_->notifierIs(nullptr);
  }

  Zent::Ptr<TunnelRedistConfig> const& tunnelRedistConfig() const { return config_; }
  bool initialized() const { return initialized_; }

  TunnelIdToEndPoint tidToTep(TunnelId const& id) const { return tidToTep_.lookup(id); }
  TidToTepMap const& tidToTeps() const { return tidToTep_; }

  void handleInitialized() {
    fmtrace(8, "{}", sig("handleInitialized()"));
    if (table_->entryControl()->mode() == ZentTamsel::reader()) {
      Dabin::assertFailed(Traits::kAssertion, __FILE__, sig("handleInitialized()").c_str(),
                          __LINE__);
    }
    initialized_ = true;
    handleTunnelEntry();
  }

  void handleDelete() {
    fmtrace(8, "{}", sig("handleDelete()"));
    initialized_ = false;
  }

  // Full resynchronisation. tidToTep is deliberately left alone: records of
  // tunnels still present are found again by the per-key handler, and those
  // of tunnels gone stay until a notification for that key arrives.
  void handleTunnelEntry() {
    if (!initialized_) return;
    fmtrace(8, "{}", sig("handleTunnelEntry()"));
    config_->entryDelAll();
    for (TunnelId const& id : table_->entryKeys(nullptr, SIZE_MAX)) handleTunnelEntry(id);
  }

  void handleTunnelEntry(TunnelId const& id) {
    if (!initialized_) return;
    // Each update reads tidToTep and moves a member between two entries, each
    // a likely cache miss; the loads start early so that they overlap the
    // table's lookup and each other.
    tidToTep_.prefetch(id);
    Entry e;
    bool present = table_->entry(id, e) && static_cast<bool>(e);
    if (!present) {
      TunnelIdToEndPoint old = tidToTep_.lookup(id);
      tidToTep_.deleteMember(id);
      delTunnelRedistConfig(old.tep(), id);
      return;
    }
    Vorn::IpGenPrefix tep = e.tep();
    TunnelIdToEndPoint const* old = tidToTep_.find(id);
    prefetchMember(tep, id);
    if (old && old->tep() != tep) prefetchMember(old->tep(), id);
    if (old && old->tep() == tep) {
      if constexpr (Traits::kNoOpOnSameEndpoint) {
        fmtrace(8, "{} no-op for tunnelId:{} tep:{}", sig("handleTunnelEntry(TunnelId)"), id, tep);
        return;
      } else {
        fmtrace(8, "{} update for tunnelId:{} tep:{}", sig("handleTunnelEntry(TunnelId)"), id, tep);
      }
    } else {
      if (old) {
        fmtrace(8, "{} tunnelId:{} replace tep new:{} old:{}", sig("handleTunnelEntry(TunnelId)"),
                id, tep, old->tep());
        Vorn::IpGenPrefix oldTep = old->tep();
        delTunnelRedistConfig(oldTep, id);
      }
      tidToTep_.memberIs(id, TunnelIdToEndPoint(id, tep));
    }
    if constexpr (Traits::kIgpMetric) {
      addOrUpdateTunnelRedistConfig(tep, TunnelInfo(id, memberMetric(e)));
    } else {
      addTunnelRedistConfig(tep, id);
    }
  }

  // The metric of the member a present entry of the input table gives: the
  // entry's IGP metric when the protocol carries one, else 0. Tools and
  // tests that recompute a configuration ask here.
  static uint32_t memberMetric(Entry const& e) {
    if constexpr (Traits::kIgpMetric) {
      return e.igpMetric();
    } else {
      return 0;
    }
  }

  void addOrUpdateTunnelRedistConfig(Vorn::IpGenPrefix const& prefix, TunnelInfo const& info) {
    fmtrace(8, "{} tunnelId:{} tep:{}", sig("addOrUpdateTunnelRedistConfig()"), info.tunnelId(),
            prefix);
    config_->entryIs(prefix)->memberTunnelInfoIs(info);
  }

  // The member with metric 0: the source carries no IGP metric.
  void addTunnelRedistConfig(Vorn::IpGenPrefix const& prefix, TunnelId const& id) {
    fmtrace(8, "{} tunnelId:{} tep:{}", sig("addTunnelRedistConfig()"), id, prefix);
    config_->entryIs(prefix)->memberTunnelInfoIs(TunnelInfo(id, 0));
  }

  void delTunnelRedistConfig(Vorn::IpGenPrefix const& prefix, TunnelId const& id) {
    Zent::Ptr<TunnelRedistEntry> entry = config_->entry(prefix);
    if (!entry) return;
    fmtrace(8, "{} del tunnelId:{}", sig("delTunnelRedistConfig()"), id);
    entry->memberTunnelInfoDel(id);
    if (entry->memberTunnelInfoCount() == 0) {
      config_->entryDel(prefix);
      fmtrace(8, "{} del tep:{}", sig("delTunnelRedistConfig()"), prefix);
    }
  }

 protected:
  Zent::Ptr<Table const> const& table() const { return table_; }

 private:
  // Relays the input table's per-key notifications.
  class TableReactor : public TunnelTable::TunnelTableBase::NotifieeConst {
   public:
    explicit TableReactor(TunnelRedistConfigSm* sm) : sm_(sm) {}
    void entryNotify(TunnelId const& id) override { sm_->handleTunnelEntry(id); }

   private:
    TunnelRedistConfigSm* sm_;
  };

  void prefetchMember(Vorn::IpGenPrefix const& prefix, TunnelId const& id) const {
    if (auto const* entry = config_->entries().find(prefix)) {
      (*entry)->memberTunnelInfos().prefetch(id);
    }
  }

  static std::string sig(const char* fn) { return std::string(Traits::kClassName) + "::" + fn; }

  Zent::Ptr<TunnelRedistConfig> config_;
  Zent::Ptr<Table const> table_;
  TidToTepMap tidToTep_;
  bool initialized_ = false;
  Zent::Ptr<TableReactor> reactor_;
};

// The factories of the machines: created with their output and input, inert
// until handleInitialized.
template <typename Sm, typename Table>
Zent::Ptr<Sm> newTunnelRedistConfigSm(Zent::Ptr<TunnelRedistConfig> const& config,
                                      Zent::Ptr<Table const> const& table) {
  return Zent::Ptr<Sm>(Zent::newTracked<Sm>(config, table));
}

}  // namespace Tunnel::TunnelRedist
