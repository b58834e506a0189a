// The cost that operations on kernel objects, threads, pipes and modules add to the raw call.
// Operation and raw call take turns within one run, which spreads the machine's noise over both.
#include <benchmark/benchmark.h>
#include <windows.h>

#include "kivsdu/kivsdu.h"

namespace {

// Runs `operation` once for each iteration.
template <typename Operation>
void Repeat(benchmark::State& state, Operation operation) {
  for (auto _ : state) {
    operation();
    benchmark::ClobberMemory();
  }
}

void SemaphoreRaw(benchmark::State& state) {
  HANDLE semaphore = CreateSemaphoreA(nullptr, 0, 10, nullptr);
  Repeat(state, [=] {
    ReleaseSemaphore(semaphore, 1, nullptr);
    benchmark::DoNotOptimize(WaitForSingleObject(semaphore, INFINITE));
  });
  CloseHandle(semaphore);
}
BENCHMARK(SemaphoreRaw);

void Semaphore(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle semaphore = nullptr;
  KivSdCntSemCreate(&ctx, nullptr, 0, 10, &semaphore);
  Repeat(state, [&] {
    KivSdCntSemClear(&ctx, &semaphore, 1, nullptr);
    benchmark::DoNotOptimize(KivSdCntSemRequest(&ctx, &semaphore, KIV_WAIT_INFINITE));
  });
  KivSdCntSemClose(&ctx, &semaphore);
}
BENCHMARK(Semaphore);

void MutexRaw(benchmark::State& state) {
  HANDLE mutex = CreateMutexA(nullptr, FALSE, nullptr);
  Repeat(state, [=] {
    benchmark::DoNotOptimize(WaitForSingleObject(mutex, INFINITE));
    ReleaseMutex(mutex);
  });
  CloseHandle(mutex);
}
BENCHMARK(MutexRaw);

void Mutex(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle mutex = nullptr;
  KivSdMutexCreate(&ctx, nullptr, &mutex);
  Repeat(state, [&] {
    benchmark::DoNotOptimize(KivSdMutexRequest(&ctx, &mutex, INFINITE));
    KivSdMutexClear(&ctx, &mutex);
  });
  KivSdMutexClose(&ctx, &mutex);
}
BENCHMARK(Mutex);

void EventRaw(benchmark::State& state) {
  HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  Repeat(state, [=] {
    SetEvent(event);
    benchmark::DoNotOptimize(WaitForSingleObject(event, INFINITE));
  });
  CloseHandle(event);
}
BENCHMARK(EventRaw);

void GateEvent(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle event = nullptr;
  KivSdEventCreate(&ctx, &event);
  Repeat(state, [&] {
    KivSdEventClear(&ctx, &event);
    benchmark::DoNotOptimize(KivSdEventWait(&ctx, &event, INFINITE));
  });
  KivSdEventClose(&ctx, &event);
}
BENCHMARK(GateEvent);

void StandardEvent(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle event = nullptr;
  KivSdStdEventCreate(&ctx, &event);
  Repeat(state, [&] {
    KivSdStdEventSet(&ctx, &event);
    benchmark::DoNotOptimize(KivSdStdEventWait(&ctx, &event));
  });
  KivSdStdEventClose(&ctx, &event);
}
BENCHMARK(StandardEvent);

void CriticalSectionRaw(benchmark::State& state) {
  CRITICAL_SECTION section;
  InitializeCriticalSection(&section);
  Repeat(state, [&] {
    EnterCriticalSection(&section);
    LeaveCriticalSection(&section);
  });
  DeleteCriticalSection(&section);
}
BENCHMARK(CriticalSectionRaw);

void CriticalSection(benchmark::State& state) {
  KivSdContext ctx = {};
  KivSdCritSec section;
  KivSdCritSecInit(&ctx, &section);
  Repeat(state, [&] {
    KivSdCritSecEnter(&ctx, &section);
    KivSdCritSecExit(&ctx, &section);
  });
  KivSdCritSecDelete(&ctx, &section);
}
BENCHMARK(CriticalSection);

void ThreadIdRaw(benchmark::State& state) {
  Repeat(state, [] { benchmark::DoNotOptimize(GetCurrentThreadId()); });
}
BENCHMARK(ThreadIdRaw);

void ThreadId(benchmark::State& state) {
  KivSdContext ctx = {};
  uint32_t id = 0;
  Repeat(state, [&] { benchmark::DoNotOptimize(KivSdThreadIdGet(&ctx, &id)); });
}
BENCHMARK(ThreadId);

void YieldRaw(benchmark::State& state) {
  Repeat(state, [] { Sleep(0); });
}
BENCHMARK(YieldRaw);

void ThreadYield(benchmark::State& state) {
  KivSdContext ctx = {};
  Repeat(state, [&] { KivSdThreadYield(&ctx); });
}
BENCHMARK(ThreadYield);

constexpr uint32_t kMessageBytes = 100;

void PipeRaw(benchmark::State& state) {
  HANDLE read = nullptr;
  HANDLE write = nullptr;
  CreatePipe(&read, &write, nullptr, 4096);
  char message[kMessageBytes] = {};
  DWORD count = 0;
  Repeat(state, [&] {
    WriteFile(write, message, sizeof message, &count, nullptr);
    ReadFile(read, message, sizeof message, &count, nullptr);
  });
  CloseHandle(read);
  CloseHandle(write);
}
BENCHMARK(PipeRaw);

void Pipe(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  KivSdPipeCreate(&ctx, &read, &write, 4096);
  char message[kMessageBytes] = {};
  uint32_t count = 0;
  Repeat(state, [&] {
    KivSdPipeWrite(&ctx, &write, message, sizeof message, &count);
    KivSdPipeRead(&ctx, &read, message, sizeof message, &count);
  });
  KivSdPipeClose(&ctx, &read);
  KivSdPipeClose(&ctx, &write);
}
BENCHMARK(Pipe);

void EntryPointRaw(benchmark::State& state) {
  HMODULE module = GetModuleHandleA("kivsdu.dll");
  Repeat(state, [=] { benchmark::DoNotOptimize(GetProcAddress(module, "KivSdInit")); });
}
BENCHMARK(EntryPointRaw);

void EntryPoint(benchmark::State& state) {
  KivSdContext ctx = {};
  HMODULE module = GetModuleHandleA("kivsdu.dll");
  void* address = nullptr;
  Repeat(state, [&] { KivSdModuleProcAddrGet(&ctx, module, "KivSdInit", &address); });
}
BENCHMARK(EntryPoint);

}  // namespace
