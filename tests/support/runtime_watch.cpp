#include "support/runtime_watch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#ifdef _WIN32
#include "support/import_patch.h"
#endif

namespace {

using kiv::test::RuntimeWatch;

constexpr size_t kNever = static_cast<size_t>(-1);
constexpr size_t kCallsKept =
    4096;  // of each kind; made beforehand, so that noting allocates nothing

struct State {
  std::vector<size_t> sizes;
  std::vector<RuntimeWatch::Resized> resized;
  std::vector<const void*> freed;
  size_t callsUntilFailure = kNever;
  const char* place = nullptr;
  size_t placeBytes = 0;
  std::optional<unsigned char> fill;
  std::function<void(const void*)> look;
};

// Null while nothing is watched.
State* state = nullptr;

bool Fails() {
  if (state->callsUntilFailure == kNever) return false;
  if (state->callsUntilFailure == 0) return true;
  --state->callsUntilFailure;
  return false;
}

bool IsInPlace(const void* block) {
  const auto* address = static_cast<const char*>(block);
  return state->place != nullptr && address >= state->place &&
         address < state->place + state->placeBytes;
}

template <typename Allocate>
void* WatchedMalloc(size_t sizeBytes, Allocate allocate) {
  if (state == nullptr) return allocate(sizeBytes);
  state->sizes.push_back(sizeBytes);
  if (Fails()) return nullptr;
  void* block = allocate(sizeBytes);
  if (state->fill && block != nullptr) std::memset(block, *state->fill, sizeBytes);
  return block;
}

template <typename Reallocate>
void* WatchedRealloc(void* block, size_t sizeBytes, Reallocate reallocate) {
  if (state == nullptr) return reallocate(block, sizeBytes);
  state->resized.push_back({block, sizeBytes});
  if (state->look) state->look(block);
  if (Fails() || IsInPlace(block)) return nullptr;
  return reallocate(block, sizeBytes);
}

template <typename Free>
void WatchedFree(void* block, Free free) {
  if (state != nullptr) {
    state->freed.push_back(block);
    if (state->look) state->look(block);
    if (IsInPlace(block)) return;
  }
  free(block);
}

}  // namespace

#ifdef _WIN32

namespace {

void* MallocHere(size_t sizeBytes) {
  return WatchedMalloc(sizeBytes, [](size_t size) { return std::malloc(size); });
}

void* ReallocHere(void* block, size_t sizeBytes) {
  return WatchedRealloc(block, sizeBytes,
                        [](void* old, size_t size) { return std::realloc(old, size); });
}

void FreeHere(void* block) {
  WatchedFree(block, [](void* old) { std::free(old); });
}

}  // namespace

struct kiv::test::RuntimeWatch::Patches {
  ImportPatch malloc{"malloc", reinterpret_cast<void*>(&MallocHere)};
  ImportPatch realloc{"realloc", reinterpret_cast<void*>(&ReallocHere)};
  ImportPatch free{"free", reinterpret_cast<void*>(&FreeHere)};
};

#else

extern "C" {

void* __real_malloc(size_t);
void* __wrap_malloc(size_t);
void* __real_realloc(void*, size_t);
void* __wrap_realloc(void*, size_t);
void __real_free(void*);
void __wrap_free(void*);

void* __wrap_malloc(size_t sizeBytes) { return WatchedMalloc(sizeBytes, __real_malloc); }

void* __wrap_realloc(void* block, size_t sizeBytes) {
  return WatchedRealloc(block, sizeBytes, __real_realloc);
}

void __wrap_free(void* block) { WatchedFree(block, __real_free); }

}  // extern "C"

struct kiv::test::RuntimeWatch::Patches {};

#endif

namespace kiv::test {

RuntimeWatch::RuntimeWatch() {
  EXPECT_EQ(state, nullptr) << "one watch at a time";
  auto* made = new State;
  made->sizes.reserve(kCallsKept);
  made->resized.reserve(kCallsKept);
  made->freed.reserve(kCallsKept);
  patches_ = std::make_unique<Patches>();
  state = made;
}

RuntimeWatch::~RuntimeWatch() {
  State* old = state;
  state = nullptr;
  patches_.reset();
  delete old;
}

std::vector<size_t> RuntimeWatch::sizes() const { return state->sizes; }

std::vector<RuntimeWatch::Resized> RuntimeWatch::resized() const { return state->resized; }

std::vector<const void*> RuntimeWatch::freed() const { return state->freed; }

void RuntimeWatch::Forget() {
  state->sizes.clear();
  state->resized.clear();
  state->freed.clear();
}

void RuntimeWatch::FailAfter(size_t count) { state->callsUntilFailure = count; }

void RuntimeWatch::FailNoMore() { state->callsUntilFailure = kNever; }

void RuntimeWatch::Guard(const void* place, size_t sizeBytes) {
  state->place = static_cast<const char*>(place);
  state->placeBytes = sizeBytes;
}

void RuntimeWatch::FillWith(unsigned char byte) { state->fill = byte; }

void RuntimeWatch::Show(std::function<void(const void*)> look) { state->look = std::move(look); }

}  // namespace kiv::test
