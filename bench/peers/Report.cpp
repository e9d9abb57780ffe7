#include "bench/peers/Report.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <initializer_list>
#include <ostream>
#include <sys/utsname.h>
#include <unistd.h>

#include <fmt/format.h>

namespace PeerBench {
namespace {

constexpr const char* kSelf = "libtunnel";

std::string rateText(double perSec) {
  if (perSec >= 1e6) return fmt::format("{:.2f}M", perSec / 1e6);
  if (perSec >= 1e4) return fmt::format("{:.0f}k", perSec / 1e3);
  return fmt::format("{:.1f}k", perSec / 1e3);
}

std::string timeText(double v) {
  return v >= 100 ? fmt::format("{:.0f}", v) : fmt::format("{:.1f}", v);
}

std::string withCommas(uint64_t n) {
  std::string digits = std::to_string(n), out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

// How many times better libtunnel is: a higher rate, or a shorter time.
double ratio(double self, double peer, bool isRate) {
  if (std::isnan(self) || std::isnan(peer) || self <= 0 || peer <= 0) return NAN;
  return isRate ? self / peer : peer / self;
}

std::string ratioText(double r) {
  if (std::isnan(r)) return "";
  return r >= 10 ? fmt::format("x{:.0f}", r) : fmt::format("x{:.1f}", r);
}

Row const* selfRow(std::vector<Row> const& rows, uint64_t keys) {
  for (auto const& r : rows) {
    if (r.keys == keys && r.store == kSelf) return &r;
  }
  return nullptr;
}

Row const* findRow(std::vector<Row> const& rows, uint64_t keys, std::string const& store) {
  for (auto const& r : rows) {
    if (r.keys == keys && r.store == store) return &r;
  }
  return nullptr;
}

std::string cpuModel() {
  std::ifstream f("/proc/cpuinfo");
  std::string line;
  while (std::getline(f, line)) {
    if (line.rfind("model name", 0) == 0) {
      auto p = line.find(':');
      if (p != std::string::npos) return line.substr(p + 2);
    }
  }
  return "unknown CPU";
}

struct Column {
  const char* head;
  double Row::*field;
  bool isRate;
};

// One table of `columns`; rows with none of them are left out.
void printColumns(std::ostream& os, std::vector<Row> const& rows,
                  std::initializer_list<Column> columns) {
  std::string line = fmt::format("{:>10}  {:<21}", "keys", "store");
  for (auto const& c : columns) line += fmt::format("  {:>14}", c.head);
  os << line << "\n" << std::string(line.size(), '-') << "\n";
  uint64_t lastKeys = 0;
  for (auto const& r : rows) {
    if (std::all_of(columns.begin(), columns.end(),
                    [&r](Column const& c) { return std::isnan(r.*c.field); })) {
      continue;
    }
    if (lastKeys && r.keys != lastKeys) os << "\n";
    lastKeys = r.keys;
    Row const* self = selfRow(rows, r.keys);
    // Ratios are against the peers; the libtunnel rows are what they divide.
    bool peer = self && r.store.rfind(kSelf, 0) != 0;
    std::string out = fmt::format("{:>10}  {:<21}", withCommas(r.keys), r.store);
    for (auto const& c : columns) {
      double v = r.*c.field;
      std::string text = std::isnan(v) ? "-" : c.isRate ? rateText(v) : timeText(v);
      std::string x = peer ? ratioText(ratio(self->*c.field, v, c.isRate)) : "";
      out += fmt::format("  {:>8} {:<5}", text, x);
    }
    os << out << "\n";
  }
}

}  // namespace

std::string machineLine() {
  std::time_t now = std::time(nullptr);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d", std::localtime(&now));
  double load[1] = {0};
  ::getloadavg(load, 1);
  double mem = static_cast<double>(::sysconf(_SC_PHYS_PAGES)) *
               static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024 * 1024);
  utsname u{};
  ::uname(&u);
  return fmt::format("{}, {} cores ({}), {:.0f} GiB memory, {} {}, load average {:.1f} at the end",
                     date, ::sysconf(_SC_NPROCESSORS_ONLN), cpuModel(), mem, u.sysname, u.release,
                     load[0]);
}

void printTable(std::ostream& os, std::vector<Row> const& rows) {
  printColumns(os, rows,
               {{"insert/s", &Row::insertPerSec, true},
                {"replace/s", &Row::replacePerSec, true},
                {"lookup/s", &Row::lookupPerSec, true},
                {"scan ms", &Row::scanMs, false},
                {"notify p50 us", &Row::p50Us, false},
                {"notify p99 us", &Row::p99Us, false}});
  os << "\nWhile the writer replaces flat out:\n\n";
  printColumns(os, rows,
               {{"lookup/s", &Row::churnLookupPerSec, true},
                {"writer/s", &Row::churnWriterPerSec, true},
                {"scan ms", &Row::churnScanMs, false}});
}

bool printTargets(std::ostream& os, std::vector<Row> const& rows) {
  uint64_t keys = 0;
  for (auto const& r : rows) keys = std::max(keys, r.keys);
  Row const* self = selfRow(rows, keys);
  if (!self) return false;
  struct Target {
    const char* what;
    const char* peer;
    double Row::*field;
    bool isRate;
    double atLeast;
  } const targets[] = {
      {"replace, at least 4x LMDB txn per write", "LMDB, txn per write", &Row::replacePerSec, true,
       4},
      {"replace, at least 8x pipelined Redis", "Redis, pipelined 100", &Row::replacePerSec, true,
       8},
      {"lookup with copy-out, at least 4x LMDB", "LMDB, txn per write", &Row::lookupPerSec, true,
       4},
      {"full scan, at least 2x faster than LMDB", "LMDB, txn per write", &Row::scanMs, false, 2},
      {"notification p50, at most 1/5 of Redis", "Redis", &Row::p50Us, false, 5},
  };
  os << fmt::format("Targets at {} keys (libtunnel against the peer, same run):\n",
                    withCommas(keys));
  bool all = true;
  for (auto const& t : targets) {
    Row const* peer = findRow(rows, keys, t.peer);
    double r = peer ? ratio(self->*t.field, peer->*t.field, t.isRate) : NAN;
    bool met = !std::isnan(r) && r >= t.atLeast;
    all = all && met;
    os << fmt::format("  {:<44} {:>6}  {}\n", t.what, std::isnan(r) ? "-" : ratioText(r),
                      std::isnan(r) ? "not measured"
                      : met         ? "met"
                                    : "MISSED");
  }
  return all;
}

}  // namespace PeerBench
