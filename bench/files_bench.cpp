// The cost that file operations add to the raw calls, on one file and with equal sizes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "alternation.h"
#include "kivsdu/kivsdu.h"

namespace {

constexpr int64_t kFileBytes = 1 << 20;

// A file of 1 MiB in the system's cache, deleted with the object. All contenders rewind it by the
// runtime's call.
class BenchFile {
 public:
  BenchFile() : name_(_tempnam(nullptr, "kb")) {
    file_ = _open(name_, _O_CREAT | _O_RDWR | _O_BINARY | _O_TRUNC, _S_IREAD | _S_IWRITE);
    const std::vector<char> content(kFileBytes, 'x');
    if (_write(file_, content.data(), kFileBytes) != kFileBytes) std::abort();
    Rewind();
  }
  ~BenchFile() {
    _close(file_);
    _unlink(name_);
    std::free(name_);
  }
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;

  int file() const { return file_; }
  uint32_t descriptor() const { return static_cast<uint32_t>(file_); }

  void Rewind() { _lseeki64(file_, 0, SEEK_SET); }

  // Each block of calls begins at the start of the file.
  template <typename Raw, typename Library>
  void Compare(benchmark::State& state, Raw raw, Library library) {
    kiv::bench::Alternate(
        state, [this] { Rewind(); }, [&raw](int) { return raw(); },
        [&library](int) { return library(); });
  }

 private:
  char* name_;
  int file_ = -1;
};

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(512)->Arg(4096)->Arg(65536);
}

// Shared by all contenders: none has a more favourable address.
alignas(4096) char bytes[65536];

uint32_t Length(const benchmark::State& state) { return static_cast<uint32_t>(state.range(0)); }

OVERLAPPED At(uint32_t offset) {
  OVERLAPPED position = {};
  position.Offset = offset;
  return position;
}

// The offset of PRead and PWrite. A transfer of any size fits in the file.
constexpr uint32_t kOffset = 4096;

void Read(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Compare(
      state, [&] { return _read(file.file(), bytes, length); },
      [&] { return KivSdFileRead(&ctx, file.descriptor(), bytes, length, &count); });
}
BENCHMARK(Read)->Apply(Sizes);

void Write(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Compare(
      state, [&] { return _write(file.file(), bytes, length); },
      [&] { return KivSdFileWrite(&ctx, file.descriptor(), bytes, length, &count); });
}
BENCHMARK(Write)->Apply(Sizes);

void PRead(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Compare(
      state,
      [&] {
        OVERLAPPED position = At(kOffset);
        DWORD read = 0;
        return ReadFile(reinterpret_cast<HANDLE>(_get_osfhandle(file.file())), bytes, length, &read,
                        &position);
      },
      [&] { return KivSdFilePRead(&ctx, file.descriptor(), bytes, kOffset, length, &count); });
}
BENCHMARK(PRead)->Apply(Sizes);

void PWrite(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  uint32_t error = 0;
  file.Compare(
      state,
      [&] {
        OVERLAPPED position = At(kOffset);
        DWORD written = 0;
        return WriteFile(reinterpret_cast<HANDLE>(_get_osfhandle(file.file())), bytes, length,
                         &written, &position);
      },
      [&] {
        return KivSdFilePWrite(&ctx, file.descriptor(), bytes, kOffset, length, &count, &error);
      });
}
BENCHMARK(PWrite)->Apply(Sizes);

void Seek(benchmark::State& state) {
  BenchFile file;
  KivSdContext ctx = {};
  uint32_t position = 0;
  file.Compare(
      state, [&] { return _lseek(file.file(), 7, SEEK_SET); },
      [&] { return KivSdFileLSeek(&ctx, file.descriptor(), 7, SEEK_SET, &position); });
}
BENCHMARK(Seek);

}  // namespace
