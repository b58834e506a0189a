/* Files that are accessed through a memory mapping or through a descriptor, as the platform has
 * it. Here every one is a descriptor (file.h): a handle of that kind passes its operations on to
 * it, and a handle of any other kind does nothing and succeeds.
 *
 * The lease guard, arguments and statuses are those of the operation that is named; a handle must
 * never be null. A context may always be null. Where nothing else is said the OS error in the
 * record is 0 for a failure too: users of mapped files have only the status to go by.
 *
 * Any thread; a handle is not locked. */
#ifndef KIVSDU_MAPPEDFILE_H
#define KIVSDU_MAPPEDFILE_H

#include "api.h"
#include "context.h"

/* Kinds of handles. */
#define KIV_MMAP_KIND_NONE 0     /* reset: no file */
#define KIV_MMAP_KIND_MAPPED 101 /* a mapping; not made on this platform */
#define KIV_MMAP_KIND_FILE 102   /* a descriptor */

/* How a file is opened; any other number means KivSdFileOpen. */
#define KIV_MMAP_OPEN_SHARED 1     /* KivSdFileSOpen */
#define KIV_MMAP_OPEN_LARGE 3      /* KivSdFileOpen64 */
#define KIV_MMAP_OPEN_NEW 4        /* KivSdFileOpenExclusiveMode */
#define KIV_MMAP_OPEN_NEW_LARGE 5  /* KivSdFileOpenExclusiveMode */
#define KIV_MMAP_OPEN_NEW_SHARED 6 /* KivSdFileSOpenExclusiveMode */

/* A handle, in the caller's storage. */
typedef struct KivSdMMAPFile {
  int32_t file;             /* the descriptor; -1 when no file is open */
  uint32_t extendSizes[2];  /* by how much a mapped file grows */
  uint8_t mappingState[20]; /* of a mapped file */
  uint16_t kind;            /* KIV_MMAP_KIND_... */
} KivSdMMAPFile;

KIV_ASSERT_SIZE(KivSdMMAPFile, 36);
KIV_ASSERT_FIELD(KivSdMMAPFile, file, 0);
KIV_ASSERT_FIELD(KivSdMMAPFile, extendSizes, 4);
KIV_ASSERT_FIELD(KivSdMMAPFile, mappingState, 12);
KIV_ASSERT_FIELD(KivSdMMAPFile, kind, 32);

/* Makes a handle of no file; what it held is neither closed nor looked at. Always 0. */
KIVSDU_API uint32_t KivSdMMAPHdlReset(KivSdMMAPFile* handle);

/* Opens a file.
 *
 *   shareFlags              used by the two shared modes
 *   reserved, reservedToo   not looked at
 *   mode                    KIV_MMAP_OPEN_..., or any other number for KivSdFileOpen
 *   handle                  receives the descriptor and KIV_MMAP_KIND_FILE; left alone on failure
 *
 * The status of the operation that opens, which also writes the record. */
KIVSDU_API uint32_t KivSdMMAPFileOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                      uint32_t shareFlags, uint32_t permissions, uint64_t reserved,
                                      uint64_t reservedToo, uint16_t mode, KivSdMMAPFile* handle);

/* KivSdFileClose, which writes the record. The handle stays as it is: reset it before it is used
 * again. A handle of another kind: 0, and the record is left alone. */
KIVSDU_API uint32_t KivSdMMAPFileClose(KivSdContext* ctx, KivSdMMAPFile* handle);

/* Says by how much a mapped file grows. Does nothing for other kinds, so nothing here.
 *
 *   ctx  not looked at */
KIVSDU_API void KivSdMMAPFileSetExtendSize(KivSdContext* ctx, uint32_t first, uint32_t second,
                                           KivSdMMAPFile* handle);

/* KivSdFileRead, KivSdFileWrite, KivSdFilePRead and KivSdFileLSeek of the handle's descriptor. A
 * handle of another kind: 0, and the outputs are left alone. */
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
 *   osError  0 before anything else is done, for a handle of any kind; then the OS error, which is
 *            also in the record; may be null */
KIVSDU_API uint32_t KivSdMMAPFilePWrite(KivSdContext* ctx, KivSdMMAPFile* handle,
                                        const void* buffer, uint32_t offset, uint32_t length,
                                        uint32_t* count, uint32_t* osError);

/* KivSdFileFlush of the handle's descriptor.
 *
 *   reserved  not looked at */
KIVSDU_API uint32_t KivSdMMAPFileFlush(KivSdContext* ctx, uint64_t reserved, KivSdMMAPFile* handle);

/* KivSdFileSetEndOfFile, which writes the record. A handle of another kind: 0, and the outputs and
 * the record are left alone. */
KIVSDU_API uint32_t KivSdMMAPFileSetEndOfFile(KivSdContext* ctx, KivSdMMAPFile* handle,
                                              uint64_t length, uint32_t* newLength,
                                              uint32_t* osError);

#endif
