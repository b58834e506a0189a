#include "os/critical_section.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

KIV_SEAM_PRIMITIVE(PrepareCriticalSection, "_ZN3kiv2os22PrepareCriticalSectionEPv")
KIV_SEAM_PRIMITIVE(EndCriticalSection, "_ZN3kiv2os18EndCriticalSectionEPv")
KIV_SEAM_PRIMITIVE(EnterCriticalSection, "_ZN3kiv2os20EnterCriticalSectionEPv")
KIV_SEAM_PRIMITIVE(LeaveCriticalSection, "_ZN3kiv2os20LeaveCriticalSectionEPv")

namespace {

void Prepare(void* storage) { RealPrepareCriticalSection(storage); }
void End(void* storage) { RealEndCriticalSection(storage); }
void Enter(void* storage) { RealEnterCriticalSection(storage); }
void Leave(void* storage) { RealLeaveCriticalSection(storage); }

SeamImport<decltype(Prepare)> prepare("InitializeCriticalSection", Prepare);
SeamImport<decltype(End)> end("DeleteCriticalSection", End);
SeamImport<decltype(Enter)> enter("EnterCriticalSection", Enter);
SeamImport<decltype(Leave)> leave("LeaveCriticalSection", Leave);

}  // namespace

void WrapPrepareCriticalSection(void* storage) { prepare.Call(storage); }
void WrapEndCriticalSection(void* storage) { end.Call(storage); }
void WrapEnterCriticalSection(void* storage) { enter.Call(storage); }
void WrapLeaveCriticalSection(void* storage) { leave.Call(storage); }

}  // namespace kiv::test
