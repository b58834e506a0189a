// Per-thread utility storage: one thread-local slot of the system. The slot's index lies in a heap
// block, the key.
//
// One thread calls init and term, at start-up and shutdown. Set and get need no lock, because they
// access only the calling thread's value.
#include "kivsdu/vorutil.h"

#include "atomic.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "os/thread_slot.h"
#include "require.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdvorutil";
constexpr uint32_t kLineSetAssertion = 43;
constexpr uint32_t kLineKeyAlloc = 90;
constexpr uint32_t kLineKeyFreeOnFailure = 97;
constexpr uint32_t kLineInitAssertion = 109;
constexpr uint32_t kLineKeyFree = 123;

KivSdVorUtilGlobalsRecord globals = {nullptr, nullptr};

// Stored with release after the block is filled, and loaded with acquire: a thread that sees the
// key also sees the slot's index.
AtomicRef<uint32_t*> Key() { return AtomicRef<uint32_t*>(globals.tlsKey); }

}  // namespace

KivSdVorUtilGlobalsRecord* KivSdVorUtilGlobals() { return &globals; }

uint32_t KivSdVorUtilTlsInit() {
  void* cell = nullptr;
  const uint32_t status = adMalloc(nullptr, sizeof(uint32_t), &cell, kSource, kLineKeyAlloc);
  if (status != KIV_ST_OK) return status;

  const os::ValueResult<uint32_t> slot = os::AllocateThreadSlot();
  if (!slot.ok) {
    static_cast<void>(adFree(cell, kSource, kLineKeyFreeOnFailure));
    return KIV_ST_THREAD_SLOT;
  }

  // Checked only after both were allocated. A failing check ends the process, so nothing leaks.
  Require(KivSdVorUtilGlobals()->tlsKey == KIV_NULL, "KivSdVorUtilGlobals()->tlsKey == KIV_NULL",
          kSource, kLineInitAssertion);
  auto* key = static_cast<uint32_t*>(cell);
  *key = slot.value;
  Key().store(key, std::memory_order_release);
  return KIV_ST_OK;
}

uint32_t KivSdVorUtilTlsSet(void* value) {
  const uint32_t* key = Key().load(std::memory_order_acquire);
  Require(key != KIV_NULL, "key != KIV_NULL", kSource, kLineSetAssertion);
  return os::WriteThreadSlot(*key, value).ok ? KIV_ST_OK : KIV_ST_THREAD_SLOT;
}

void* KivSdVorUtilTlsGet() {
  const uint32_t* key = Key().load(std::memory_order_acquire);
  return key == nullptr ? nullptr : os::ReadThreadSlot(*key);
}

void KivSdVorUtilTlsTerm() {
  if (globals.tlsKey == nullptr) return;
  const uint32_t slot = *globals.tlsKey;
  static_cast<void>(adFree(globals.tlsKey, kSource, kLineKeyFree));
  static_cast<void>(os::FreeThreadSlot(slot));
  globals.tlsKey = nullptr;
}
