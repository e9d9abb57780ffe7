#include "Tunnel/framework/Dabin.h"

#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <stdexcept>
#include <unistd.h>

namespace Dabin {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<Facility*> facilities;
};

Registry& registry() {
  static Registry* r = new Registry;  // never destroyed: facilities outlive static teardown
  return *r;
}

StreamSink& stderrSink() {
  static StreamSink* s = new StreamSink(2);
  return *s;
}

std::atomic<Sink*> currentSink{nullptr};

void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    ssize_t n = ::write(fd, text.data(), text.size());
    if (n <= 0) return;  // a trace never fails its caller
    text.remove_prefix(static_cast<size_t>(n));
  }
}

}  // namespace

Facility::Facility(const char* name) : name_(name) {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  r.facilities.push_back(this);
}

void Facility::levelIs(int level, bool on) {
  if (level < 0 || level > kMaxLevel) {
    throw std::out_of_range(fmt::format("trace level {} outside 0..{}", level, kMaxLevel));
  }
  uint32_t bit = 1u << static_cast<unsigned>(level);
  if (on) {
    mask_.fetch_or(bit, std::memory_order_relaxed);
  } else {
    mask_.fetch_and(~bit, std::memory_order_relaxed);
  }
}

void Facility::levelsUpTo(int level) {
  if (level < -1 || level > kMaxLevel) {
    throw std::out_of_range(fmt::format("trace level {} outside -1..{}", level, kMaxLevel));
  }
  uint32_t m = level < 0 ? 0u : (1u << static_cast<unsigned>(level + 1)) - 1u;
  mask_.store(m, std::memory_order_relaxed);
}

std::string formatRecord(Record const& r) {
  return fmt::format("{} {} {}:{} {}: {}\n", r.facility->name(), r.level, r.file, r.line,
                     r.function, r.message);
}

void StreamSink::write(Record const& r) { writeAll(fd_, formatRecord(r)); }

FileSink::FileSink(std::string const& path)
    : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {
  if (fd_ < 0) throw std::runtime_error("cannot open trace file " + path);
}

FileSink::~FileSink() { ::close(fd_); }

void FileSink::write(Record const& r) { writeAll(fd_, formatRecord(r)); }

void CaptureSink::write(Record const& r) {
  lines_.push_back(Line{r.facility->name(), r.level, r.function, std::string(r.message)});
}

bool CaptureSink::contains(std::string_view text) const {
  for (auto const& l : lines_) {
    if (l.message.find(text) != std::string::npos) return true;
  }
  return false;
}

void sinkIs(Sink* s) { currentSink.store(s, std::memory_order_release); }

Sink* sink() {
  Sink* s = currentSink.load(std::memory_order_acquire);
  return s ? s : &stderrSink();
}

std::vector<Facility*> facilities() {
  auto& r = registry();
  std::lock_guard lock(r.mutex);
  return r.facilities;
}

bool levelIs(std::string_view name, int level, bool on) {
  bool found = false;
  for (Facility* f : facilities()) {
    if (name == f->name()) {
      f->levelIs(level, on);
      found = true;
    }
  }
  return found;
}

void allLevelsUpTo(int level) {
  for (Facility* f : facilities()) f->levelsUpTo(level);
}

void emit(Facility const& f, int level, const char* file, const char* function, int line,
          std::string_view message) {
  sink()->write(Record{&f, level, file, function, line, message});
}

void assertFailed(const char* condition, const char* file, const char* function, int line,
                  std::string_view message) {
  std::string text = message.empty() ? fmt::format("{}:{}: {}: assertion failed: {}\n", file, line,
                                                   function, condition)
                                     : fmt::format("{}:{}: {}: assertion failed: {}: {}\n", file,
                                                   line, function, condition, message);
  writeAll(2, text);
  std::abort();
}

void fatal(const char* file, const char* function, int line, std::string_view message) {
  writeAll(2, fmt::format("{}:{}: {}: fatal: {}\n", file, line, function, message));
  std::abort();
}

}  // namespace Dabin
