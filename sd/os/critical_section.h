// Critical sections in the caller's storage, which has the size and alignment of KivSdCritSec. The
// owner may re-enter and then leaves as often. None of these can fail.
#ifndef KIV_OS_CRITICAL_SECTION_H
#define KIV_OS_CRITICAL_SECTION_H

namespace kiv::os {

void PrepareCriticalSection(void* storage);
void EndCriticalSection(void* storage);
void EnterCriticalSection(void* storage);
void LeaveCriticalSection(void* storage);

}  // namespace kiv::os

#endif
