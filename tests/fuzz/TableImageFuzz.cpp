// Fuzzes the readers of a shared-memory table against a damaged file: a
// valid small table is damaged by the input (bytes overwritten, the file cut
// short), mapped by a key shadow, and looked up, scanned and dispatched; the
// input may damage the file again while the reader has it mapped. Any
// failure must be a Tamsel::Error: never a crash, a hang or a sanitizer
// report. Built as a libFuzzer target with clang and replayed over
// tests/fuzz/table-corpus by every test build.
//
// An input: a flags byte (bit 0: cut the file short), three bytes of where
// to cut it, then edits of a three-byte offset (top bit set: into the
// header), a length byte (low four bits: length - 1; top bit: apply once
// the reader has the table mapped) and the bytes.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/shmem/Tamsel/Reader.h"
#include "Tunnel/shmem/Tamsel/Writer.h"
#include "tests/fuzz/FuzzHarness.h"

namespace {

using namespace Tamsel;

constexpr uint64_t kKeys = 24;
size_t tablesOpened = 0;

uint32_t hashOf(uint64_t key) { return Zent::hashBytes(&key, sizeof(key)); }

// The pristine table: its directory, the image of its used part, its size.
struct Table {
  std::string dir, file;
  std::vector<char> image;
  uint64_t size = 0;

  Table() {
    // scripts/fuzz.sh puts it in its scratch directory.
    char const* root = std::getenv("TAMSEL_FUZZ_ROOT");
    std::string tmpl = std::string(root ? root : "/dev/shm") + "/tamsel-fuzz-XXXXXX";
    if (!::mkdtemp(tmpl.data())) std::abort();
    dir = tmpl;
    file = dir + "/entry.tbl";
    TableShape shape;
    shape.typeName = "Fuzz::Table";
    shape.maxPayload = 300;
    shape.queueCapacity = 16;
    {
      Writer w(dir, "entry", shape);
      for (uint64_t k = 0; k < kKeys; ++k) {
        uint32_t len = static_cast<uint32_t>(8 + k * 11);
        w.write(&k, hashOf(k), len, [&](char* dst) { std::memset(dst, static_cast<int>(k), len); });
      }
      for (uint64_t k = 0; k < kKeys; k += 5) w.remove(&k, hashOf(k), [](char const*, uint32_t) {});
      size = w.fileBytes();
    }
    int fd = ::open(file.c_str(), O_RDONLY);
    FileHeader h{};
    if (fd < 0 || ::pread(fd, &h, sizeof(h), 0) != static_cast<ssize_t>(sizeof(h))) std::abort();
    image.resize(h.heapEnd);
    if (::pread(fd, image.data(), h.heapEnd, 0) != static_cast<ssize_t>(h.heapEnd)) std::abort();
    ::close(fd);
  }
  ~Table() {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
};

// Applies the edits of one phase (before or after the reader maps the file).
void applyEdits(int fd, uint8_t const* p, size_t n, bool afterOpen, uint64_t limit) {
  for (size_t len; n >= 4 && n - 4 >= (len = (p[3] & 15u) + 1u); p += 4 + len, n -= 4 + len) {
    if (((p[3] & 0x80) != 0) != afterOpen) continue;
    uint32_t off = uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2];
    uint64_t at = (off & 0x800000) ? (off & 0x1ff) : (off % limit);
    (void)!::pwrite(fd, p + 4, len, static_cast<off_t>(at));
  }
}

struct Touch : Reader::Handler {
  explicit Touch(Reader& r) : reader(r) {}
  Reader& reader;
  std::vector<char> out;
  void keyChanged(void const* key) override { reader.readCopy(key, Zent::hashBytes(key, 8), out); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static Table const t;
  if (size < 4) return 0;
  uint64_t limit = t.image.size() + 4096;
  int fd = ::open(t.file.c_str(), O_RDWR);
  if (fd < 0) std::abort();
  // Back to the pristine table, then damaged.
  if (::ftruncate(fd, 0) != 0 ||
      ::pwrite(fd, t.image.data(), t.image.size(), 0) != static_cast<ssize_t>(t.image.size()) ||
      ::ftruncate(fd, static_cast<off_t>(t.size)) != 0) {
    std::abort();
  }
  applyEdits(fd, data + 4, size - 4, false, limit);
  if (data[0] & 1) {
    uint32_t cut = uint32_t{data[1]} << 16 | uint32_t{data[2]} << 8 | data[3];
    (void)!::ftruncate(fd, static_cast<off_t>(cut % limit));
  }
  try {
    Reader::Options o;
    o.spinNs = 0;
    Reader r(t.dir, "entry", 8, o);
    ++tablesOpened;
    std::vector<char> out;
    for (uint64_t k = 0; k < kKeys + 2; k += 3) r.readCopy(&k, hashOf(k), out);
    applyEdits(fd, data + 4, size - 4, true, limit);
    r.forEach([](void const*, char const*, uint32_t, uint64_t) {});
    Touch touch(r);
    r.dispatch(touch);
  } catch (Error const&) {
    // What a damaged table must come to.
  }
  ::close(fd);
  return 0;
}

bool corpusCoversHarness() {
  // Inputs the reader took for a table are the ones that reach its lookups.
  std::printf("  %zu of the tables opened\n", tablesOpened);
  return tablesOpened > 0;
}
