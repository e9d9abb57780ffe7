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
#include "Tunnel/shmem/Reader.h"
#include "Tunnel/shmem/Writer.h"

namespace {

using namespace Tamsel;

constexpr uint64_t kKeys = 24;

uint32_t hashOf(uint64_t key) { return Zent::hashBytes(&key, sizeof(key)); }

// The pristine table: its directory, the image of its used part, its size.
struct Table {
  std::string dir;
  std::string file;
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
    shape.keySize = 8;
    shape.maxPayload = 300;
    shape.queueCapacity = 16;
    uint64_t heapEnd = 0;
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
    heapEnd = h.heapEnd;
    image.resize(heapEnd);
    if (::pread(fd, image.data(), heapEnd, 0) != static_cast<ssize_t>(heapEnd)) std::abort();
    ::close(fd);
  }
  ~Table() {
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
};

Table& table() {
  static Table t;
  return t;
}

struct Input {
  uint8_t const* p;
  size_t n;
  bool take(size_t k, uint8_t const** out) {
    if (n < k) return false;
    *out = p;
    p += k;
    n -= k;
    return true;
  }
};

// Applies the edits of one phase (before or after the reader maps the file).
void applyEdits(int fd, Input in, bool afterOpen, uint64_t limit) {
  uint8_t const* e;
  while (in.take(4, &e)) {
    uint32_t off = uint32_t{e[0]} << 16 | uint32_t{e[1]} << 8 | e[2];
    size_t len = (e[3] & 15u) + 1;
    uint8_t const* bytes;
    if (!in.take(len, &bytes)) break;
    if (((e[3] & 0x80) != 0) != afterOpen) continue;
    uint64_t at = (off & 0x800000) ? (off & 0x1ff) : (off % limit);
    (void)!::pwrite(fd, bytes, len, static_cast<off_t>(at));
  }
}

struct Touch : Reader::Handler {
  explicit Touch(Reader& r) : reader(r) {}
  Reader& reader;
  std::vector<char> out;
  void keyChanged(void const* key) override {
    uint64_t k;
    std::memcpy(&k, key, 8);
    reader.readCopy(key, hashOf(k), out);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  Table& t = table();
  Input in{data, size};
  uint8_t const* head;
  if (!in.take(4, &head)) return 0;
  uint64_t limit = t.image.size() + 4096;
  int fd = ::open(t.file.c_str(), O_RDWR);
  if (fd < 0) std::abort();
  // Back to the pristine table, then damaged.
  if (::ftruncate(fd, 0) != 0 ||
      ::pwrite(fd, t.image.data(), t.image.size(), 0) != static_cast<ssize_t>(t.image.size()) ||
      ::ftruncate(fd, static_cast<off_t>(t.size)) != 0) {
    std::abort();
  }
  applyEdits(fd, in, false, limit);
  if (head[0] & 1) {
    uint32_t cut = uint32_t{head[1]} << 16 | uint32_t{head[2]} << 8 | head[3];
    (void)!::ftruncate(fd, static_cast<off_t>(cut % limit));
  }
  try {
    Reader::Options o;
    o.spinNs = 0;
    Reader r(t.dir, "entry", 8, o);
    std::vector<char> out;
    for (uint64_t k = 0; k < kKeys + 2; k += 3) r.readCopy(&k, hashOf(k), out);
    applyEdits(fd, in, true, limit);
    r.forEach([](void const*, char const*, uint32_t, uint64_t) {});
    Touch touch(r);
    r.dispatch(touch);
  } catch (Error const&) {
    // What a damaged table must come to.
  }
  ::close(fd);
  return 0;
}

#ifdef TUNNEL_TABLE_CORPUS_DIR
// Replays the committed corpus (or the files named) through the harness.
int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  if (argc > 1) {
    for (int i = 1; i < argc; ++i) files.emplace_back(argv[i]);
  } else {
    for (auto const& f : fs::directory_iterator(TUNNEL_TABLE_CORPUS_DIR)) files.push_back(f.path());
  }
  for (auto const& f : files) {
    std::FILE* in = std::fopen(f.c_str(), "rb");
    if (!in) return 1;
    std::vector<uint8_t> bytes;
    for (int c; (c = std::fgetc(in)) != EOF;) bytes.push_back(static_cast<uint8_t>(c));
    std::fclose(in);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("replayed %zu damaged tables\n", files.size());
  return files.empty() ? 1 : 0;
}
#endif
