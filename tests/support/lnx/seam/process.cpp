#include "os/process.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;
using os::Wait;

constexpr uint32_t kWaitFailed = 0xFFFFFFFF;

KIV_SEAM_PRIMITIVE(WaitForProcess, "_ZN3kiv2os14WaitForProcessEPvj")
KIV_SEAM_PRIMITIVE(EndProcess, "_ZN3kiv2os10EndProcessEPvj")
KIV_SEAM_PRIMITIVE(ReadPriorityClass, "_ZN3kiv2os17ReadPriorityClassEPv")
KIV_SEAM_PRIMITIVE(WritePriorityClass, "_ZN3kiv2os18WritePriorityClassEPvj")

namespace {

uint32_t WaitForProcessObject(void* process, uint32_t timeoutMs) {
  const Wait waited = RealWaitForProcess(process, timeoutMs);
  if (waited.result == kWaitFailed) StoreError({false, waited.error});
  return waited.result;
}

int32_t TerminateProcess(void* process, uint32_t exitCode) {
  return ToBool(RealEndProcess(process, exitCode));
}

uint32_t GetPriorityClass(void* process) {
  const ValueResult<uint32_t> read = RealReadPriorityClass(process);
  StoreError({read.ok, read.error});
  return read.ok ? read.value : 0;
}

int32_t SetPriorityClass(void* process, uint32_t priorityClass) {
  return ToBool(RealWritePriorityClass(process, priorityClass));
}

SeamImport<decltype(WaitForProcessObject)> waitForProcess("WaitForSingleObject",
                                                          WaitForProcessObject);
SeamImport<decltype(TerminateProcess)> terminateProcess("TerminateProcess", TerminateProcess);
SeamImport<decltype(GetPriorityClass)> getPriorityClass("GetPriorityClass", GetPriorityClass);
SeamImport<decltype(SetPriorityClass)> setPriorityClass("SetPriorityClass", SetPriorityClass);

}  // namespace

Wait WrapWaitForProcess(void* process, uint32_t timeoutMs) {
  const uint32_t result = waitForProcess.Call(process, timeoutMs);
  return {result, result == os::kWaitSignalled ? 0 : SeamLastError()};
}

Result WrapEndProcess(void* process, uint32_t exitCode) {
  return FromBool(terminateProcess.Call(process, exitCode));
}

ValueResult<uint32_t> WrapReadPriorityClass(void* process) {
  const uint32_t priorityClass = getPriorityClass.Call(process);
  const Result result = FromBool(priorityClass != 0);
  return {result.ok, result.error, priorityClass};
}

Result WrapWritePriorityClass(void* process, uint32_t priorityClass) {
  return FromBool(setPriorityClass.Call(process, priorityClass));
}

}  // namespace kiv::test
