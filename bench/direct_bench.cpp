// The cost that direct I/O adds to the system's calls, the gain of transfers that are not waited
// for, and the cost of a write lease.
//
// The file lies in the working folder. The time of the device and its cache is part of every figure.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>

#include "alternation.h"
#include "kivsdu/kivsdu.h"
#include "raw.h"

namespace {

namespace raw = kiv::bench::raw;
using kiv::bench::Alternate;

constexpr uint32_t kFileBlocks = 2048;  // 16 MiB
constexpr uint32_t kFileBytes = kFileBlocks * KIV_PAGE_UNIT;
constexpr uint32_t kOutstandingBlocks = 8;  // per transfer that is not waited for
constexpr uint32_t kMaxOutstanding = 32;
static_assert(kMaxOutstanding <= raw::DirectFile::kMaxUnderWay);

constexpr char kPath[] = "kivsdu-bench-blocks";
constexpr uint32_t kReadAndWrite = 0xC0000000;
constexpr uint32_t kShareAll = 7;
constexpr uint32_t kCreateAlways = 2;
constexpr uint32_t kNoWait = 0x40000000;  // the flag of files whose transfers are not waited for

// A file of kFileBytes, opened by the library and by the platform's calls, and a buffer for its
// whole contents. Its name is removed as soon as both have it open: the system deletes the file when
// the process ends, however that happens.
class File {
 public:
  explicit File(bool noWait) {
    KivSdAlignedMemAlloc(nullptr, kFileBlocks, &buffer_);
    KivSdDirectIOFileOpen(nullptr, kPath, kReadAndWrite, kShareAll, kCreateAlways, nullptr,
                          noWait ? kNoWait : 0, &file_);
    raw_ = std::make_unique<raw::DirectFile>(kPath, noWait);
    KivSdDirectIOFileRemove(nullptr, kPath);
    KivSdNoWaitCb record = {};
    uint32_t count = 0;
    KivSdDirectIOFileWrite(nullptr, file_, 0, buffer_, kFileBlocks, &record, &count);
    KivSdDirectIOWait(nullptr, file_, &record, &count);
    KivSdDirectIONoWaitCbsTerm(nullptr, &record, 1);
  }
  ~File() {
    raw_.reset();
    KivSdDirectIOFileClose(nullptr, file_);
    KivSdAlignedMemFree(nullptr, buffer_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  uint32_t file() const { return file_; }
  raw::DirectFile* raw() const { return raw_.get(); }
  char* At(uint32_t block) const {
    return static_cast<char*>(buffer_) + size_t{block} * KIV_PAGE_UNIT;
  }

 private:
  uint32_t file_ = KIV_DIRECTIO_NONE;
  void* buffer_ = nullptr;
  std::unique_ptr<raw::DirectFile> raw_;
};

// Compares transfers of range(0) blocks each, one after the other from the start of the file.
template <typename Raw, typename Library>
void Compare(benchmark::State& state, const File& file, Raw rawCall, Library library) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto first = [blocks](int number) { return static_cast<uint32_t>(number) * blocks; };
  Alternate(
      state, [] {},
      [&](int number) {
        const uint32_t block = first(number);
        return rawCall(block * KIV_PAGE_UNIT, file.At(block), blocks * KIV_PAGE_UNIT);
      },
      [&](int number) {
        const uint32_t block = first(number);
        return library(block, file.At(block), blocks);
      });
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(8)->Arg(128);  // 8 KiB, 64 KiB, 1 MiB
}

void Read(benchmark::State& state) {
  const File file(false);
  KivSdContext ctx = {};
  uint32_t done = 0;
  Compare(
      state, file,
      [&](uint32_t offset, void* buffer, uint32_t sizeBytes) {
        return file.raw()->Read(offset, buffer, sizeBytes);
      },
      [&](uint32_t block, void* buffer, uint32_t blocks) {
        return KivSdDirectIOFileRead(&ctx, file.file(), block, buffer, blocks, nullptr, &done);
      });
}
BENCHMARK(Read)->Apply(Sizes);

void Write(benchmark::State& state) {
  const File file(false);
  KivSdContext ctx = {};
  uint32_t done = 0;
  Compare(
      state, file,
      [&](uint32_t offset, const void* buffer, uint32_t sizeBytes) {
        return file.raw()->Write(offset, buffer, sizeBytes);
      },
      [&](uint32_t block, const void* buffer, uint32_t blocks) {
        return KivSdDirectIOFileWrite(&ctx, file.file(), block, buffer, blocks, nullptr, &done);
      });
}
BENCHMARK(Write)->Apply(Sizes);

// ---- Transfers that are not waited for: range(0) in progress at a time ----

void Outstanding(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1)->Arg(8)->Arg(kMaxOutstanding);
}

// Calls start(slot, block) and later collect(slot) for every transfer of the file.
template <typename Start, typename Collect>
void KeepUnderWay(benchmark::State& state, Start start, Collect collect) {
  const auto most = static_cast<uint32_t>(state.range(0));
  constexpr uint32_t kTransfers = kFileBlocks / kOutstandingBlocks;
  for (auto _ : state) {
    for (uint32_t i = 0; i < kTransfers + most; ++i) {
      if (i >= most) collect(i % most);
      if (i < kTransfers) start(i % most, i * kOutstandingBlocks);
    }
  }
  state.SetBytesProcessed(state.iterations() * kFileBytes);
}

void ReadNoWaitRaw(benchmark::State& state) {
  const File file(true);
  KeepUnderWay(
      state,
      [&](uint32_t slot, uint32_t block) {
        file.raw()->StartRead(slot, block * KIV_PAGE_UNIT, file.At(block),
                              kOutstandingBlocks * KIV_PAGE_UNIT);
      },
      [&](uint32_t slot) { file.raw()->Collect(slot); });
}
BENCHMARK(ReadNoWaitRaw)->Apply(Outstanding);

// A function that starts a transfer and does not wait. ReadNoWait and WriteNoWait each pass one.
using Starts = uint32_t (*)(KivSdContext*, uint32_t, uint32_t, void*, KivSdNoWaitCb*, uint32_t*);

void NoWait(benchmark::State& state, Starts startTransfer) {
  const File file(true);
  KivSdContext ctx = {};
  KivSdNoWaitCb records[kMaxOutstanding] = {};
  KivSdDirectIONoWaitCbsInit(&ctx, records, kMaxOutstanding);
  uint32_t count = 0;
  KeepUnderWay(
      state,
      [&](uint32_t slot, uint32_t block) {
        startTransfer(&ctx, file.file(), block, file.At(block), &records[slot], &count);
      },
      [&](uint32_t slot) { KivSdDirectIOWait(&ctx, file.file(), &records[slot], &count); });
  KivSdDirectIONoWaitCbsTerm(&ctx, records, kMaxOutstanding);
}

void ReadNoWait(benchmark::State& state) {
  NoWait(state, [](KivSdContext* ctx, uint32_t file, uint32_t block, void* buffer,
                   KivSdNoWaitCb* record, uint32_t* count) {
    return KivSdDirectIOFileRead(ctx, file, block, buffer, kOutstandingBlocks, record, count);
  });
}
BENCHMARK(ReadNoWait)->Apply(Outstanding);

void WriteNoWait(benchmark::State& state) {
  NoWait(state, [](KivSdContext* ctx, uint32_t file, uint32_t block, void* buffer,
                   KivSdNoWaitCb* record, uint32_t* count) {
    return KivSdDirectIOFileWrite(ctx, file, block, buffer, kOutstandingBlocks, record, count);
  });
}
BENCHMARK(WriteNoWait)->Apply(Outstanding);

// ---- A lease, taken and released while nothing is paused ----

void Lease(benchmark::State& state) {
  KivSdWritePause pause = {};
  KivRWLockInit(nullptr, 0, &pause.lock, 1, 0);
  KivSdWriteLease lease = {{}, &pause, nullptr, 0};
  for (auto _ : state) {
    benchmark::DoNotOptimize(KivSdGetWriteIOLease(&lease));
    benchmark::DoNotOptimize(KivSdReleaseWriteIOLease(&lease));
  }
}
BENCHMARK(Lease);

}  // namespace
