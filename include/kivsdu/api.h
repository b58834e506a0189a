/* Linkage and layout helpers that every public header of kivsdu uses.
 *
 * The headers are plain C11 and C++17. They need no header of the operating system, and
 * compile unchanged with MSVC, clang and GCC. */
#ifndef KIVSDU_API_H
#define KIVSDU_API_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define KIVSDU_EXTERN extern "C"
#else
#define KIVSDU_EXTERN extern
#endif

/* KIVSDU_BUILDING is defined while the library itself is compiled; kivsdu.def lists its exports.
 * Define KIVSDU_STATIC in programs that link the library's objects directly. */
#if defined(_WIN32) && !defined(KIVSDU_BUILDING) && !defined(KIVSDU_STATIC)
#define KIVSDU_API KIVSDU_EXTERN __declspec(dllimport)
#elif !defined(_WIN32) && defined(KIVSDU_BUILDING)
#define KIVSDU_API KIVSDU_EXTERN __attribute__((visibility("default")))
#else
#define KIVSDU_API KIVSDU_EXTERN
#endif

/* A null pointer, in C and in C++. */
#ifdef __cplusplus
#define KIV_NULL nullptr
#else
#define KIV_NULL ((void*)0)
#endif

/* Records cross the library boundary. Each one therefore asserts its size and the offset of every
 * field. MSVC knows the C++ word in C too, and the C word only with /std:c11. */
#if defined(__cplusplus) || (defined(_MSC_VER) && !defined(__clang__))
#define KIV_ASSERT_LAYOUT(condition, text) static_assert(condition, text)
#else
#define KIV_ASSERT_LAYOUT(condition, text) _Static_assert(condition, text)
#endif
#define KIV_ASSERT_SIZE(record, sizeBytes) \
  KIV_ASSERT_LAYOUT(sizeof(record) == (sizeBytes), #record " is " #sizeBytes " bytes")
#define KIV_ASSERT_FIELD(record, field, offsetBytes)          \
  KIV_ASSERT_LAYOUT(offsetof(record, field) == (offsetBytes), \
                    #record "." #field " lies at " #offsetBytes)

/* A handle of the operating system: a HANDLE on Windows. Null stands for no handle. */
typedef void* KivHandle;

/* The time-out of a wait without a limit. */
#define KIV_WAIT_INFINITE 0xFFFFFFFFu

/* The unit of every page count in this library, in bytes. It does not depend on the machine's page
 * size. */
#define KIV_PAGE_UNIT 8192u

#endif
