// Per-thread utility storage: one slot of the system's, whose index lies on the heap.
//
// Init and term run on one thread each; set and get need no lock, because they touch only the
// calling thread's value.
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

// Stored with release, once the cell is filled, and loaded with acquire: a thread that finds the
// key finds the slot's index behind it.
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

  // Looked at only now, with the cell and the slot in hand: the process ends here, so neither
  // is lost to anyone.
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
