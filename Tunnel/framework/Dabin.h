#pragma once
// Dabin: the formatting trace facility and the always-on assertion.
// Traces are grouped in named facilities, each with levels 0 to 9 switched on
// one by one. A disabled trace costs one load and one predictable branch: the
// arguments are not formatted and nothing is allocated.

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>

namespace Dabin {

constexpr int kMaxLevel = 9;

class Facility {
 public:
  // Registers the facility by name so that programs can switch it on by name.
  explicit Facility(const char* name);
  Facility(Facility const&) = delete;
  Facility& operator=(Facility const&) = delete;

  const char* name() const { return name_; }
  bool enabled(int level) const {
    return (mask_.load(std::memory_order_relaxed) >> static_cast<unsigned>(level)) & 1u;
  }
  void levelIs(int level, bool on);
  // Switches on levels 0..level and off the rest; -1 switches all off.
  void levelsUpTo(int level);
  uint32_t mask() const { return mask_.load(std::memory_order_relaxed); }

 private:
  const char* name_;
  std::atomic<uint32_t> mask_{0};
};

struct Record {
  Facility const* facility;
  int level;
  const char* file;
  const char* function;
  int line;
  std::string_view message;
};

// Where trace lines go. The default sink writes one line per record to stderr.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void write(Record const& r) = 0;
};

// Formats a record as "<facility> <level> <file>:<line> <function>: <message>".
std::string formatRecord(Record const& r);

class StreamSink : public Sink {
 public:
  // Writes to the given file descriptor (2 for stderr); does not own it.
  explicit StreamSink(int fd) : fd_(fd) {}
  void write(Record const& r) override;

 private:
  int fd_;
};

// Appends to a file, opened once.
class FileSink : public Sink {
 public:
  explicit FileSink(std::string const& path);
  ~FileSink() override;
  FileSink(FileSink const&) = delete;
  FileSink& operator=(FileSink const&) = delete;
  void write(Record const& r) override;

 private:
  int fd_;
};

// Keeps every record in memory; tests read them back.
class CaptureSink : public Sink {
 public:
  struct Line {
    std::string facility;
    int level;
    std::string function;
    std::string message;
  };
  void write(Record const& r) override;
  std::vector<Line> const& lines() const { return lines_; }
  bool contains(std::string_view text) const;
  void clear() { lines_.clear(); }

 private:
  std::vector<Line> lines_;
};

// Directs traces to `sink` (not owned); null restores the stderr sink.
void sinkIs(Sink* sink);
Sink* sink();

// All registered facilities, and switching one on by name. Returns false when
// no facility has that name.
std::vector<Facility*> facilities();
bool levelIs(std::string_view facility, int level, bool on);
void allLevelsUpTo(int level);

void emit(Facility const& f, int level, const char* file, const char* function, int line,
          std::string_view message);

template <typename... Args>
void trace(Facility const& f, int level, const char* file, const char* function, int line,
           fmt::format_string<Args...> format, Args&&... args) {
  fmt::memory_buffer buf;
  fmt::format_to(std::back_inserter(buf), format, std::forward<Args>(args)...);
  emit(f, level, file, function, line, std::string_view(buf.data(), buf.size()));
}

[[noreturn]] void assertFailed(const char* condition, const char* file, const char* function,
                               int line, std::string_view message = {});

// Stops a process whose state can no longer be trusted.
[[noreturn]] void fatal(const char* file, const char* function, int line, std::string_view message);

}  // namespace Dabin

// The facility a bare fmtrace uses: the innermost `dabinFacility_` visible
// where the trace is written. Namespaces declare their own to group traces.
inline Dabin::Facility dabinFacility_{"Default"};

#define DABIN_FACILITY(name) \
  inline ::Dabin::Facility dabinFacility_ { name }

#define fmtraceTo(facility, level, ...)                                               \
  do {                                                                                \
    if (__builtin_expect((facility).enabled(level), 0)) {                             \
      ::Dabin::trace((facility), (level), __FILE__, __func__, __LINE__, __VA_ARGS__); \
    }                                                                                 \
  } while (0)

#define fmtrace(level, ...) fmtraceTo(dabinFacility_, level, __VA_ARGS__)

// Always on. The message is the condition's text, followed by the formatted
// arguments when given.
#define fmassert(cond, ...)                                                     \
  do {                                                                          \
    if (__builtin_expect(!(cond), 0)) {                                         \
      ::Dabin::assertFailed(#cond, __FILE__, __func__,                          \
                            __LINE__ __VA_OPT__(, ::fmt::format(__VA_ARGS__))); \
    }                                                                           \
  } while (0)
