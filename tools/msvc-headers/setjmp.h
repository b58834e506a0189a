#ifndef KIV_MSVC_SETJMP_H
#define KIV_MSVC_SETJMP_H

// For clang's intrin.h.
typedef __int64 jmp_buf[32];

#endif
