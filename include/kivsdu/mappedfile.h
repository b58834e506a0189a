/* Files behind one type of handle, accessed through a memory mapping or a descriptor, depending on
 * the platform. On this platform every file is a descriptor (file.h). An operation on a handle of
 * the kind KIV_MMAP_KIND_FILE calls the operation of file.h. An operation on a handle of any other
 * kind does nothing and succeeds.
 *
 * The lease guard, arguments and statuses are those of the operation that is called. A handle must
 * not be null; nothing checks it. A context may always be null.
 *
 * Compatibility: unless stated otherwise, the OS error in the context is 0 after a failure too.
 * Hosts check only the status.
 *
 * Any thread; a handle is not locked. */
#ifndef KIVSDU_MAPPEDFILE_H
#define KIVSDU_MAPPEDFILE_H

#include "api.h"
#include "context.h"

/* Kinds of handles. */
#define KIV_MMAP_KIND_NONE 0     /* no file */
#define KIV_MMAP_KIND_MAPPED 101 /* a mapping; not used on this platform */
#define KIV_MMAP_KIND_FILE 102   /* a descriptor */

/* Open modes. Any other number calls KivSdFileOpen. */
#define KIV_MMAP_OPEN_SHARED 1     /* KivSdFileSOpen */
#define KIV_MMAP_OPEN_LARGE 3      /* KivSdFileOpen64 */
#define KIV_MMAP_OPEN_NEW 4        /* KivSdFileOpenExclusiveMode */
#define KIV_MMAP_OPEN_NEW_LARGE 5  /* KivSdFileOpenExclusiveMode */
#define KIV_MMAP_OPEN_NEW_SHARED 6 /* KivSdFileSOpenExclusiveMode */

/* A handle, in the caller's storage. */
typedef struct KivSdMMAPFile {
  int32_t file;             /* the descriptor; -1 when no file is open */
  uint32_t extendSizes[2];  /* growth of a mapped file */
  uint8_t mappingState[20]; /* of a mapped file */
  uint16_t kind;            /* KIV_MMAP_KIND_... */
} KivSdMMAPFile;

KIV_ASSERT_SIZE(KivSdMMAPFile, 36);
KIV_ASSERT_FIELD(KivSdMMAPFile, file, 0);
KIV_ASSERT_FIELD(KivSdMMAPFile, extendSizes, 4);
KIV_ASSERT_FIELD(KivSdMMAPFile, mappingState, 12);
KIV_ASSERT_FIELD(KivSdMMAPFile, kind, 32);

/* Resets a handle to "no file". The old contents are neither read nor closed. Always returns 0. */
KIVSDU_API uint32_t KivSdMMAPHdlReset(KivSdMMAPFile* handle);

/* Opens a file.
 *
 *   shareFlags   used by the two shared modes
 *   reserved     any value
 *   reservedToo  any value
 *   mode         KIV_MMAP_OPEN_..., or any other number for KivSdFileOpen
 *   handle       receives the descriptor and the kind KIV_MMAP_KIND_FILE; unchanged on failure
 *
 * Returns the status of the open that it calls, which also writes the context. */
KIVSDU_API uint32_t KivSdMMAPFileOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                      uint32_t shareFlags, uint32_t permissions, uint64_t reserved,
                                      uint64_t reservedToo, uint16_t mode, KivSdMMAPFile* handle);

/* KivSdFileClose of the handle's descriptor, which also writes the context. The handle keeps its
 * contents: reset it before it is used again. For a handle of another kind, returns 0 and leaves
 * the context unchanged. */
KIVSDU_API uint32_t KivSdMMAPFileClose(KivSdContext* ctx, KivSdMMAPFile* handle);

/* Sets the size by which a mapped file grows. Does nothing for other kinds, and therefore nothing
 * on this platform.
 *
 *   ctx            not used
 *   first, second  stored in the handle's extendSizes */
KIVSDU_API void KivSdMMAPFileSetExtendSize(KivSdContext* ctx, uint32_t first, uint32_t second,
                                           KivSdMMAPFile* handle);

/* KivSdFileRead, KivSdFileWrite, KivSdFilePRead and KivSdFileLSeek of the handle's descriptor. For
 * a handle of another kind they return 0 and leave the outputs unchanged. */
KIVSDU_API uint32_t KivSdMMAPFileRead(KivSdContext* ctx, KivSdMMAPFile* handle, void* buffer,
                                      uint32_t length, uint32_t* count);
KIVSDU_API uint32_t KivSdMMAPFileWrite(KivSdContext* ctx, KivSdMMAPFile* handle, const void* buffer,
                                       uint32_t length, uint32_t* count);
KIVSDU_API uint32_t KivSdMMAPFilePRead(KivSdContext* ctx, KivSdMMAPFile* handle, void* buffer,
                                       uint32_t offset, uint32_t length, uint32_t* count);
KIVSDU_API uint32_t KivSdMMAPFileLSeek(KivSdContext* ctx, KivSdMMAPFile* handle, int32_t offset,
                                       uint32_t origin, uint32_t* position);

/* KivSdFilePWrite of the handle's descriptor.
 *
 *   osError  set to 0 first, for a handle of any kind; then receives the OS error, which is also in
 *            the context; may be null */
KIVSDU_API uint32_t KivSdMMAPFilePWrite(KivSdContext* ctx, KivSdMMAPFile* handle,
                                        const void* buffer, uint32_t offset, uint32_t length,
                                        uint32_t* count, uint32_t* osError);

/* KivSdFileFlush of the handle's descriptor.
 *
 *   reserved  any value */
KIVSDU_API uint32_t KivSdMMAPFileFlush(KivSdContext* ctx, uint64_t reserved, KivSdMMAPFile* handle);

/* KivSdFileSetEndOfFile of the handle's descriptor, which also writes the context. For a handle of
 * another kind, returns 0 and leaves the outputs and the context unchanged. */
KIVSDU_API uint32_t KivSdMMAPFileSetEndOfFile(KivSdContext* ctx, KivSdMMAPFile* handle,
                                              uint64_t length, uint32_t* newLength,
                                              uint32_t* osError);

#endif
