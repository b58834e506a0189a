// Renames the operations that the checked flavour replaces. CMake includes this header in front of
// the sources that define them, in that flavour only: these sources then define, and call, the
// unchecked operations. All other sources, and hosts, call the checked ones.
#ifndef KIV_CHECKED_UNCHECKED_NAMES_H
#define KIV_CHECKED_UNCHECKED_NAMES_H

// memsys/front.cpp
#define adMalloc KivUncheckedMalloc
#define adMallocPolicy KivUncheckedMallocPolicy
#define adMallocAligned KivUncheckedMallocAligned
#define adRealloc KivUncheckedRealloc
#define adCalloc KivUncheckedCalloc
#define adFree KivUncheckedFree
#define adFreeAligned KivUncheckedFreeAligned
#define adMallocOnNode KivUncheckedMallocOnNode
#define adFreeOnNode KivUncheckedFreeOnNode

// memsys/short_heap.cpp
#define adMemShortHeapInit KivUncheckedShortHeapInit
#define adMemShortHeapMalloc KivUncheckedShortHeapMalloc
#define adMemShortHeapRealloc KivUncheckedShortHeapRealloc
#define adMemShortHeapTerm KivUncheckedShortHeapTerm

// memsys/initialization.cpp
#define adMemThreadHeapInit KivUncheckedThreadHeapInit
#define adMemThreadHeapTerm KivUncheckedThreadHeapTerm

// sdlibw32.cpp
#define LibraryUnloaded UncheckedLibraryUnloaded

#endif
