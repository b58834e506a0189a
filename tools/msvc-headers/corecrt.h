#ifndef KIV_MSVC_CORECRT_H
#define KIV_MSVC_CORECRT_H

// What the headers of the C runtime share.
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KIV_CRT extern "C" __declspec(dllimport)
#else
#define KIV_CRT extern __declspec(dllimport)
#endif

typedef int errno_t;
typedef __int64 __time64_t;

#endif
