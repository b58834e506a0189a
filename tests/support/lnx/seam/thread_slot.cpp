#include "os/thread_slot.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr uint32_t kNoSlot = 0xFFFFFFFF;

KIV_SEAM_PRIMITIVE(AllocateThreadSlot, "_ZN3kiv2os18AllocateThreadSlotEv")
KIV_SEAM_PRIMITIVE(FreeThreadSlot, "_ZN3kiv2os14FreeThreadSlotEj")
KIV_SEAM_PRIMITIVE(WriteThreadSlot, "_ZN3kiv2os15WriteThreadSlotEjPv")

namespace {

uint32_t TlsAlloc() {
  const ValueResult<uint32_t> slot = RealAllocateThreadSlot();
  StoreError({slot.ok, slot.error});
  return slot.ok ? slot.value : kNoSlot;
}

int32_t TlsFree(uint32_t slot) { return ToBool(RealFreeThreadSlot(slot)); }

int32_t TlsSetValue(uint32_t slot, void* value) { return ToBool(RealWriteThreadSlot(slot, value)); }

SeamImport<decltype(TlsAlloc)> tlsAlloc("TlsAlloc", TlsAlloc);
SeamImport<decltype(TlsFree)> tlsFree("TlsFree", TlsFree);
SeamImport<decltype(TlsSetValue)> tlsSetValue("TlsSetValue", TlsSetValue);

}  // namespace

ValueResult<uint32_t> WrapAllocateThreadSlot() {
  const uint32_t slot = tlsAlloc.Call();
  const Result result = FromBool(slot != kNoSlot);
  return {result.ok, result.error, slot};
}

Result WrapFreeThreadSlot(uint32_t slot) { return FromBool(tlsFree.Call(slot)); }

Result WrapWriteThreadSlot(uint32_t slot, void* value) {
  return FromBool(tlsSetValue.Call(slot, value));
}

}  // namespace kiv::test
