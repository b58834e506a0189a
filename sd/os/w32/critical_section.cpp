#include "os/critical_section.h"

#include "kivsdu/mutex.h"
#include "os/w32/win32.h"

static_assert(sizeof(KivSdCritSec) == sizeof(CRITICAL_SECTION), "the caller's storage");
static_assert(alignof(KivSdCritSec) == alignof(CRITICAL_SECTION), "the caller's storage");

namespace kiv::os {
namespace {

CRITICAL_SECTION* SectionIn(void* storage) { return static_cast<CRITICAL_SECTION*>(storage); }

}  // namespace

void PrepareCriticalSection(void* storage) { InitializeCriticalSection(SectionIn(storage)); }

void EndCriticalSection(void* storage) { DeleteCriticalSection(SectionIn(storage)); }

void EnterCriticalSection(void* storage) { ::EnterCriticalSection(SectionIn(storage)); }

void LeaveCriticalSection(void* storage) { ::LeaveCriticalSection(SectionIn(storage)); }

}  // namespace kiv::os
