#include "os/working_set.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;
using os::WorkingSet;

KIV_SEAM_PRIMITIVE(ReadWorkingSet, "_ZN3kiv2os14ReadWorkingSetEPv")
KIV_SEAM_PRIMITIVE(WriteWorkingSet, "_ZN3kiv2os15WriteWorkingSetEPvRKNS0_10WorkingSetE")

namespace {

BOOL GetProcessWorkingSetSize(HANDLE process, SIZE_T* minimum, SIZE_T* maximum) {
  const ValueResult<WorkingSet> limits = RealReadWorkingSet(process);
  *minimum = limits.value.minimumBytes;
  *maximum = limits.value.maximumBytes;
  return ToBool({limits.ok, limits.error});
}

BOOL SetProcessWorkingSetSize(HANDLE process, SIZE_T minimum, SIZE_T maximum) {
  return ToBool(RealWriteWorkingSet(process, {minimum, maximum}));
}

SeamImport<decltype(GetProcessWorkingSetSize)> getProcessWorkingSetSize("GetProcessWorkingSetSize",
                                                                        GetProcessWorkingSetSize);
SeamImport<decltype(SetProcessWorkingSetSize)> setProcessWorkingSetSize("SetProcessWorkingSetSize",
                                                                        SetProcessWorkingSetSize);

}  // namespace

ValueResult<WorkingSet> WrapReadWorkingSet(void* process) {
  SIZE_T minimum = 0;
  SIZE_T maximum = 0;
  const Result result = FromBool(getProcessWorkingSetSize.Call(process, &minimum, &maximum));
  return {result.ok, result.error, {minimum, maximum}};
}

Result WrapWriteWorkingSet(void* process, const WorkingSet& limits) {
  return FromBool(setProcessWorkingSetSize.Call(process, limits.minimumBytes, limits.maximumBytes));
}

}  // namespace kiv::test
