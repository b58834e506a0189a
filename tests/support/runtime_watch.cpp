#include "support/runtime_watch.h"

#include <cstring>
#include <optional>

#include "support/runtime_hook.h"

namespace kiv::test {
namespace {

constexpr size_t kNever = static_cast<size_t>(-1);
constexpr size_t kCallsKept =
    4096;  // of each kind; reserved beforehand, so that recording does not allocate

}  // namespace

class RuntimeWatch::State : public RuntimeHook {
 public:
  State() {
    sizes.reserve(kCallsKept);
    resized.reserve(kCallsKept);
    freed.reserve(kCallsKept);
  }

  void* Allocate(size_t sizeBytes) override {
    sizes.push_back(sizeBytes);
    if (Fails()) return nullptr;
    void* block = RealAllocate(sizeBytes);
    if (fill && block != nullptr) std::memset(block, *fill, sizeBytes);
    return block;
  }

  void* Reallocate(void* block, size_t sizeBytes) override {
    resized.push_back({block, sizeBytes});
    if (look) look(block);
    if (Fails() || IsInPlace(block)) return nullptr;
    return RealReallocate(block, sizeBytes);
  }

  void Free(void* block) override {
    freed.push_back(block);
    if (look) look(block);
    if (!IsInPlace(block)) RealFree(block);
  }

  std::vector<size_t> sizes;
  std::vector<Resized> resized;
  std::vector<const void*> freed;
  size_t callsUntilFailure = kNever;
  const char* place = nullptr;
  size_t placeBytes = 0;
  std::optional<unsigned char> fill;
  std::function<void(const void*)> look;

 private:
  bool Fails() {
    if (callsUntilFailure == kNever) return false;
    if (callsUntilFailure == 0) return true;
    --callsUntilFailure;
    return false;
  }

  bool IsInPlace(const void* block) const {
    const auto* address = static_cast<const char*>(block);
    return place != nullptr && address >= place && address < place + placeBytes;
  }

  // The last member: calls arrive as soon as it is constructed.
  std::optional<RuntimeHooked> hooked_{this};
};

RuntimeWatch::RuntimeWatch() : state_(std::make_unique<State>()) {}

RuntimeWatch::~RuntimeWatch() = default;

std::vector<size_t> RuntimeWatch::sizes() const { return state_->sizes; }

std::vector<RuntimeWatch::Resized> RuntimeWatch::resized() const { return state_->resized; }

std::vector<const void*> RuntimeWatch::freed() const { return state_->freed; }

void RuntimeWatch::Forget() {
  state_->sizes.clear();
  state_->resized.clear();
  state_->freed.clear();
}

void RuntimeWatch::FailAfter(size_t count) { state_->callsUntilFailure = count; }

void RuntimeWatch::FailNoMore() { state_->callsUntilFailure = kNever; }

void RuntimeWatch::Guard(const void* place, size_t sizeBytes) {
  state_->place = static_cast<const char*>(place);
  state_->placeBytes = sizeBytes;
}

void RuntimeWatch::FillWith(unsigned char byte) { state_->fill = byte; }

void RuntimeWatch::Show(std::function<void(const void*)> look) { state_->look = std::move(look); }

}  // namespace kiv::test
