// Functions that are each exported under several names. kivsdu.def lists the names: all names of
// one function have the same address.
#ifndef KIV_SHARED_ENTRIES_H
#define KIV_SHARED_ENTRIES_H

#include "kivsdu/context.h"

// Reports KIV_ST_NOT_SUPPORTED.
extern "C" uint32_t KivNotSupported(KivSdContext* ctx);

// Reports KIV_ST_OK.
extern "C" uint32_t KivNothingToDo(KivSdContext* ctx);

// Ignores its arguments and does nothing.
extern "C" void KivIgnore();

// Stores 1 in the flag, which may be null, and reports KIV_ST_OK.
extern "C" uint32_t KivAnswerYes(KivSdContext* ctx, uint64_t first, uint64_t second, uint8_t* flag);

// Ignore their arguments and return a constant: 1 and 0.
extern "C" int32_t KivAlwaysTrue();
extern "C" uint32_t KivZero();

#endif
