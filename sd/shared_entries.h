// Bodies that several exports share. kivsdu.def gives each its public names, so that all names
// of a body are one address.
#ifndef KIV_SHARED_ENTRIES_H
#define KIV_SHARED_ENTRIES_H

#include "kivsdu/context.h"

// Reports KIV_ST_NOT_SUPPORTED.
extern "C" uint32_t KivNotSupported(KivSdContext* ctx);

// Clears the context and succeeds.
extern "C" uint32_t KivNothingToDo(KivSdContext* ctx);

// Takes anything, does nothing, returns nothing.
extern "C" void KivIgnore();

// Stores 1 in the flag, which may be null, clears the context and succeeds.
extern "C" uint32_t KivAnswerYes(KivSdContext* ctx, uint64_t first, uint64_t second, uint8_t* flag);

// Take anything, do nothing, and return 1 and 0.
extern "C" int32_t KivAlwaysTrue();
extern "C" uint32_t KivZero();

#endif
