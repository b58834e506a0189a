// The operations under the checks. unchecked_names.h gives them these names.
#ifndef KIV_CHECKED_UNCHECKED_H
#define KIV_CHECKED_UNCHECKED_H

#include "kivsdu/manager.h"
#include "kivsdu/shortheap.h"
#include "library.h"

extern "C" {

extern decltype(adMalloc) KivUncheckedMalloc;
extern decltype(adMallocPolicy) KivUncheckedMallocPolicy;
extern decltype(adMallocAligned) KivUncheckedMallocAligned;
extern decltype(adRealloc) KivUncheckedRealloc;
extern decltype(adCalloc) KivUncheckedCalloc;
extern decltype(adFree) KivUncheckedFree;
extern decltype(adFreeAligned) KivUncheckedFreeAligned;
extern decltype(adMallocOnNode) KivUncheckedMallocOnNode;
extern decltype(adFreeOnNode) KivUncheckedFreeOnNode;
extern decltype(adMemShortHeapInit) KivUncheckedShortHeapInit;
extern decltype(adMemShortHeapMalloc) KivUncheckedShortHeapMalloc;
extern decltype(adMemShortHeapTerm) KivUncheckedShortHeapTerm;
extern decltype(adMemThreadHeapInit) KivUncheckedThreadHeapInit;
extern decltype(adMemThreadHeapTerm) KivUncheckedThreadHeapTerm;

}  // extern "C"

namespace kiv {

extern decltype(LibraryUnloaded) UncheckedLibraryUnloaded;

}  // namespace kiv

#endif
