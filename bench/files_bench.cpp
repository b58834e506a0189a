// What file operations add to the call underneath: each operation in turn with its raw call, on the
// same file and with the same sizes, in one run, so that the machine's noise falls on both.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "kivsdu/kivsdu.h"

namespace {

constexpr int64_t kFileBytes = 1 << 20;

// A file of a mebibyte that lies in the system's cache, gone with the object. At its end it is
// rewound, by the runtime's own call, so that all contenders do it alike.
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

  // Runs `transfer` once for each iteration, at the file's position.
  template <typename Transfer>
  void Run(benchmark::State& state, Transfer transfer) {
    const int64_t size = state.range(0);
    int64_t position = 0;
    for (auto _ : state) {
      benchmark::DoNotOptimize(transfer());
      benchmark::ClobberMemory();
      position += size;
      if (position == kFileBytes) {
        Rewind();
        position = 0;
      }
    }
    state.SetBytesProcessed(state.iterations() * size);
  }

 private:
  char* name_;
  int file_ = -1;
};

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(512)->Arg(4096)->Arg(65536);
}

class Buffer {
 public:
  explicit Buffer(const benchmark::State& state)
      : bytes_(static_cast<size_t>(state.range(0)), 'y') {}

  char* data() { return bytes_.data(); }
  uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }

 private:
  std::vector<char> bytes_;
};

OVERLAPPED At(uint32_t offset) {
  OVERLAPPED position = {};
  position.Offset = offset;
  return position;
}

// An offset within the file, for transfers of every size.
constexpr uint32_t kOffset = 4096;

void ReadRaw(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  file.Run(state, [&] { return _read(file.file(), buffer.data(), buffer.size()); });
}
BENCHMARK(ReadRaw)->Apply(Sizes);

void Read(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Run(state, [&] {
    return KivSdFileRead(&ctx, file.descriptor(), buffer.data(), buffer.size(), &count);
  });
}
BENCHMARK(Read)->Apply(Sizes);

void WriteRaw(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  file.Run(state, [&] { return _write(file.file(), buffer.data(), buffer.size()); });
}
BENCHMARK(WriteRaw)->Apply(Sizes);

void Write(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Run(state, [&] {
    return KivSdFileWrite(&ctx, file.descriptor(), buffer.data(), buffer.size(), &count);
  });
}
BENCHMARK(Write)->Apply(Sizes);

void PReadRaw(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  file.Run(state, [&] {
    OVERLAPPED position = At(kOffset);
    DWORD count = 0;
    return ReadFile(reinterpret_cast<HANDLE>(_get_osfhandle(file.file())), buffer.data(),
                    buffer.size(), &count, &position);
  });
}
BENCHMARK(PReadRaw)->Apply(Sizes);

void PRead(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  file.Run(state, [&] {
    return KivSdFilePRead(&ctx, file.descriptor(), buffer.data(), kOffset, buffer.size(), &count);
  });
}
BENCHMARK(PRead)->Apply(Sizes);

void PWriteRaw(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  file.Run(state, [&] {
    OVERLAPPED position = At(kOffset);
    DWORD count = 0;
    return WriteFile(reinterpret_cast<HANDLE>(_get_osfhandle(file.file())), buffer.data(),
                     buffer.size(), &count, &position);
  });
}
BENCHMARK(PWriteRaw)->Apply(Sizes);

void PWrite(benchmark::State& state) {
  BenchFile file;
  Buffer buffer(state);
  KivSdContext ctx = {};
  uint32_t count = 0;
  uint32_t error = 0;
  file.Run(state, [&] {
    return KivSdFilePWrite(&ctx, file.descriptor(), buffer.data(), kOffset, buffer.size(), &count,
                           &error);
  });
}
BENCHMARK(PWrite)->Apply(Sizes);

void SeekRaw(benchmark::State& state) {
  BenchFile file;
  for (auto _ : state) benchmark::DoNotOptimize(_lseek(file.file(), 7, SEEK_SET));
}
BENCHMARK(SeekRaw);

void Seek(benchmark::State& state) {
  BenchFile file;
  KivSdContext ctx = {};
  uint32_t position = 0;
  for (auto _ : state) {
    KivSdFileLSeek(&ctx, file.descriptor(), 7, SEEK_SET, &position);
    benchmark::DoNotOptimize(position);
  }
}
BENCHMARK(Seek);

// The runtime refuses these without asking the system: what is left is what the library adds.
constexpr int kNoFile = 2047;

void SeekRefusedRaw(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(_lseek(kNoFile, 7, SEEK_SET));
    benchmark::DoNotOptimize(errno);
  }
}
BENCHMARK(SeekRefusedRaw);

void SeekRefused(benchmark::State& state) {
  KivSdContext ctx = {};
  uint32_t position = 0;
  for (auto _ : state) {
    KivSdFileLSeek(&ctx, kNoFile, 7, SEEK_SET, &position);
    benchmark::DoNotOptimize(position);
  }
}
BENCHMARK(SeekRefused);

void ReadRefusedRaw(benchmark::State& state) {
  char byte = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(_read(kNoFile, &byte, 1));
    benchmark::DoNotOptimize(errno);
  }
}
BENCHMARK(ReadRefusedRaw);

void ReadRefused(benchmark::State& state) {
  KivSdContext ctx = {};
  char byte = 0;
  uint32_t count = 0;
  for (auto _ : state) {
    KivSdFileRead(&ctx, kNoFile, &byte, 1, &count);
    benchmark::DoNotOptimize(count);
  }
}
BENCHMARK(ReadRefused);

}  // namespace
