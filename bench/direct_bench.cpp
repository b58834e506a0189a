// The cost that direct I/O adds to the system's calls, the gain of transfers that are not waited
// for, and the cost of a write lease.
//
// The files lie in the folder for temporary files. The time of the device and its cache is part of
// every figure.
#include <benchmark/benchmark.h>
#include <windows.h>

#include <cstdint>
#include <string>

#include "alternation.h"
#include "kivsdu/kivsdu.h"

namespace {

using kiv::bench::Alternate;

constexpr uint32_t kFileBlocks = 2048;  // 16 MiB
constexpr uint32_t kFileBytes = kFileBlocks * KIV_PAGE_UNIT;
constexpr uint32_t kOutstandingBlocks = 8;  // per transfer that is not waited for
constexpr uint32_t kMaxOutstanding = 8;

// A file of kFileBytes that is deleted when it is closed, and a buffer for its whole contents.
class File {
 public:
  explicit File(DWORD flags) {
    char folder[MAX_PATH] = "";
    GetTempPathA(sizeof folder, folder);
    const std::string path = std::string(folder) + "kivsdu-bench-blocks";
    KivSdDirectIOFileOpen(nullptr, path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS,
                          nullptr, flags | FILE_FLAG_DELETE_ON_CLOSE, &file_);
    KivSdNoWaitCb record = {};
    uint32_t count = 0;
    KivSdDirectIOFileWrite(nullptr, file_, 0, buffer_, kFileBlocks, &record, &count);
    KivSdDirectIOWait(nullptr, file_, &record, &count);
    KivSdDirectIONoWaitCbsTerm(nullptr, &record, 1);
  }
  ~File() {
    KivSdDirectIOFileClose(nullptr, file_);
    VirtualFree(buffer_, 0, MEM_RELEASE);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  uint32_t file() const { return file_; }
  HANDLE handle() const {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(static_cast<int32_t>(file_)));
  }
  char* At(uint32_t block) const { return buffer_ + size_t{block} * KIV_PAGE_UNIT; }

 private:
  uint32_t file_ = KIV_DIRECTIO_NONE;
  char* buffer_ = static_cast<char*>(
      VirtualAlloc(nullptr, kFileBytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
};

// Compares transfers of range(0) blocks each, one after the other from the start of the file.
template <typename Raw, typename Library>
void Compare(benchmark::State& state, const File& file, Raw raw, Library library) {
  const auto blocks = static_cast<uint32_t>(state.range(0));
  const auto first = [blocks](int number) { return static_cast<uint32_t>(number) * blocks; };
  Alternate(
      state, [] {},
      [&](int number) {
        const uint32_t block = first(number);
        return raw(block * KIV_PAGE_UNIT, file.At(block), blocks * KIV_PAGE_UNIT);
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
  const File file(0);
  KivSdContext ctx = {};
  uint32_t done = 0;
  Compare(
      state, file,
      [&](uint32_t offset, void* buffer, uint32_t sizeBytes) {
        DWORD count = 0;
        SetFilePointer(file.handle(), static_cast<LONG>(offset), nullptr, FILE_BEGIN);
        return ReadFile(file.handle(), buffer, sizeBytes, &count, nullptr);
      },
      [&](uint32_t block, void* buffer, uint32_t blocks) {
        return KivSdDirectIOFileRead(&ctx, file.file(), block, buffer, blocks, nullptr, &done);
      });
}
BENCHMARK(Read)->Apply(Sizes);

void Write(benchmark::State& state) {
  const File file(0);
  KivSdContext ctx = {};
  uint32_t done = 0;
  Compare(
      state, file,
      [&](uint32_t offset, const void* buffer, uint32_t sizeBytes) {
        OVERLAPPED record = {};
        record.Offset = offset;
        DWORD count = 0;
        return WriteFile(file.handle(), buffer, sizeBytes, &count, &record);
      },
      [&](uint32_t block, const void* buffer, uint32_t blocks) {
        return KivSdDirectIOFileWrite(&ctx, file.file(), block, buffer, blocks, nullptr, &done);
      });
}
BENCHMARK(Write)->Apply(Sizes);

// ---- Transfers that are not waited for: range(0) in progress at a time ----

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
  const File file(FILE_FLAG_OVERLAPPED);
  OVERLAPPED records[kMaxOutstanding] = {};
  for (OVERLAPPED& record : records) record.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  KeepUnderWay(
      state,
      [&](uint32_t slot, uint32_t block) {
        records[slot].Offset = block * KIV_PAGE_UNIT;
        DWORD count = 0;
        ReadFile(file.handle(), file.At(block), kOutstandingBlocks * KIV_PAGE_UNIT, &count,
                 &records[slot]);
      },
      [&](uint32_t slot) {
        DWORD count = 0;
        WaitForSingleObject(records[slot].hEvent, INFINITE);
        GetOverlappedResult(file.handle(), &records[slot], &count, FALSE);
        ResetEvent(records[slot].hEvent);
      });
  for (const OVERLAPPED& record : records) CloseHandle(record.hEvent);
}
BENCHMARK(ReadNoWaitRaw)->Arg(1)->Arg(8);

// A function that starts a transfer and does not wait. ReadNoWait and WriteNoWait each pass one.
using Starts = uint32_t (*)(KivSdContext*, uint32_t, uint32_t, void*, KivSdNoWaitCb*, uint32_t*);

void NoWait(benchmark::State& state, Starts startTransfer) {
  const File file(FILE_FLAG_OVERLAPPED);
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
BENCHMARK(ReadNoWait)->Arg(1)->Arg(8);

void WriteNoWait(benchmark::State& state) {
  NoWait(state, [](KivSdContext* ctx, uint32_t file, uint32_t block, void* buffer,
                   KivSdNoWaitCb* record, uint32_t* count) {
    return KivSdDirectIOFileWrite(ctx, file, block, buffer, kOutstandingBlocks, record, count);
  });
}
BENCHMARK(WriteNoWait)->Arg(1)->Arg(8);

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
