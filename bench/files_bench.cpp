// The cost that file operations add to the raw calls, on one file and with equal sizes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "alternation.h"
#include "kivsdu/kivsdu.h"
#include "raw.h"

namespace {

namespace raw = kiv::bench::raw;

constexpr uint32_t kFileBytes = 1 << 20;
constexpr uint32_t kOpenFlags = KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_BINARY;
constexpr uint32_t kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

// A file of 1 MiB in the system's cache, deleted with the object. The library opens it, because on
// Linux it transfers by other system calls if it does not know where a descriptor comes from. All
// contenders rewind it by the runtime's call.
class BenchFile {
 public:
  BenchFile() {
    if (KivSdFileOpen(nullptr, name_.c_str(), kOpenFlags, kPermissions, &file_) != KIV_ST_OK) {
      std::abort();
    }
    const std::vector<char> content(kFileBytes, 'x');
    if (raw::WriteFile(file(), content.data(), kFileBytes) != kFileBytes) std::abort();
    Rewind();
  }
  ~BenchFile() {
    KivSdFileClose(nullptr, file_);
    raw::RemoveFile(name_);
  }
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;

  int file() const { return static_cast<int>(file_); }
  uint32_t descriptor() const { return file_; }

  void Rewind() { raw::Seek(file(), 0); }

  // Each block of calls begins at the start of the file.
  template <typename Raw, typename Library>
  void Compare(benchmark::State& state, Raw rawCall, Library library) {
    kiv::bench::Alternate(
        state, [this] { Rewind(); }, [&rawCall](int) { return rawCall(); },
        [&library](int) { return library(); });
  }

 private:
  std::string name_ = raw::TemporaryName();
  uint32_t file_ = 0;
};

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(512)->Arg(4096)->Arg(65536);
}

// Shared by all contenders: none has a more favourable address.
alignas(4096) char bytes[65536];

uint32_t Length(const benchmark::State& state) { return static_cast<uint32_t>(state.range(0)); }

// The offset of PRead and PWrite. A transfer of any size fits in the file.
constexpr uint32_t kOffset = 4096;

void Read(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Compare(
      state, [&] { return raw::ReadFile(file.file(), bytes, length); },
      [&] { return KivSdFileRead(&ctx, file.descriptor(), bytes, length, &count); });
}
BENCHMARK(Read)->Apply(Sizes);

void Write(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Compare(
      state, [&] { return raw::WriteFile(file.file(), bytes, length); },
      [&] { return KivSdFileWrite(&ctx, file.descriptor(), bytes, length, &count); });
}
BENCHMARK(Write)->Apply(Sizes);

void PRead(benchmark::State& state) {
  BenchFile file;
  const uint32_t length = Length(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Compare(
      state, [&] { return raw::ReadFileAt(file.file(), kOffset, bytes, length); },
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
      state, [&] { return raw::WriteFileAt(file.file(), kOffset, bytes, length); },
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
      state, [&] { return raw::Seek(file.file(), 7); },
      [&] { return KivSdFileLSeek(&ctx, file.descriptor(), 7, SEEK_SET, &position); });
}
BENCHMARK(Seek);

}  // namespace
