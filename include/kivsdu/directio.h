/* Direct I/O: block files that bypass the system's cache, with transfers that need not be waited
 * for.
 *
 * Positions, sizes and counts are in blocks of KIV_PAGE_UNIT bytes (8192), in 32 bits. Byte offsets
 * are also computed in 32 bits: only the first 4 GiB of a file are addressable, and block 524288 is
 * block 0 again.
 *
 * Files are opened unbuffered. Buffers must be aligned to the sector size of the volume; memory
 * from KivSdPhysMemAlloc and KivSdAlignedMemAlloc (memory.h) is. docs/files.md says which data a
 * completed write protects.
 *
 * A file is the system's handle in 32 bits, not a descriptor of file.h.
 *
 * In failover mode every operation, except KivSdDirectIOFileClose and KivSdDirectIONoWaitCbsTerm,
 * calls the lease guard (settings.h) before it checks its arguments. On Linux a sharing violation
 * is 16 and a full disk 28; docs/linux.md says more. A context may always be null. Any thread; the
 * library keeps no state of a file.
 *
 * Example: examples/direct.c. */
#ifndef KIVSDU_DIRECTIO_H
#define KIVSDU_DIRECTIO_H

#include "api.h"
#include "context.h"
#include "fileflags.h"

/* No file: the value that a failed open stores. */
#define KIV_DIRECTIO_NONE 0xFFFFFFFFu

/* A completion record: the system's own record of a transfer that is not waited for. The caller
 * owns it, zeroes it before its first use, and uses it in a cycle:
 *
 *   zeroed -> event added (KivSdDirectIONoWaitCbsInit, or the first transfer)
 *          -> transfer started (KivSdDirectIOFileRead, KivSdDirectIOFileWrite)
 *          -> collected (KivSdDirectIOWait) -> the next transfer ...
 *          -> event closed (KivSdDirectIONoWaitCbsTerm)
 *
 * A record serves one transfer at a time. Neither it nor the buffer may be moved or freed until the
 * transfer has been collected, because the system writes into both. Several records can be in use
 * on one file, and any thread may collect them, in any order. */
typedef struct KivSdNoWaitCb {
  uint64_t internalStatus; /* used by the system */
  uint64_t internalBytes;  /* used by the system */
  uint32_t offsetLow;      /* byte offset; set when a transfer starts */
  uint32_t offsetHigh;     /* set to 0 when a transfer starts */
  KivHandle event;         /* signalled from the end of the transfer until it is collected; null if
                              there is no event */
} KivSdNoWaitCb;

KIV_ASSERT_SIZE(KivSdNoWaitCb, 32);
KIV_ASSERT_FIELD(KivSdNoWaitCb, internalStatus, 0);
KIV_ASSERT_FIELD(KivSdNoWaitCb, internalBytes, 8);
KIV_ASSERT_FIELD(KivSdNoWaitCb, offsetLow, 16);
KIV_ASSERT_FIELD(KivSdNoWaitCb, offsetHigh, 20);
KIV_ASSERT_FIELD(KivSdNoWaitCb, event, 24);

/* ---- Files ---- */

/* Creates a file if it does not exist, and leaves it closed with its contents. Fails if others have
 * it open, except in failover mode.
 *
 *   path  must not be null
 *
 * 0, or KIV_ST_ARGUMENT     path is null
 *       KIV_ST_FILE_CREATE  not created or not opened
 *       KIV_ST_FILE_CLOSE   created, but not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFileCreate(KivSdContext* ctx, const char* path);

/* Opens a file.
 *
 *   path         must not be null
 *   access       the system's access rights, KIV_ACCESS_...
 *   shareMode    KIV_SHARE_...; in failover mode replaced by KIV_SHARE_ALL
 *   disposition  KIV_DISPOSITION_...
 *   ignored      any value
 *   flags        attributes and flags, KIV_ATTRIBUTE_... and KIV_OPEN_...; KIV_OPEN_UNBUFFERED is
 *                added. A transfer with a completion record runs in the background only with
 *                KIV_OPEN_OVERLAPPED. On such a file every transfer needs a record
 *   file         receives the file in 32 bits, KIV_DIRECTIO_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT      path or file is null
 *       KIV_ST_FILE_SHARING  sharing violation: the file is open elsewhere; OS error 32
 *       KIV_ST_FILE_CREATE   not opened for any other reason
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFileOpen(KivSdContext* ctx, const char* path, uint32_t access,
                                          uint32_t shareMode, uint32_t disposition,
                                          const void* ignored, uint32_t flags, uint32_t* file);

/* Closes a file. Collect all its transfers first.
 *
 * 0, or KIV_ST_FILE_CLOSE  not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFileClose(KivSdContext* ctx, uint32_t file);

/* Removes a file.
 *
 *   path  if null, the system refuses it
 *
 * 0, or KIV_ST_FILE_REMOVE  not removed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFileRemove(KivSdContext* ctx, const char* path);

/* ---- Transfers ---- */

/* Reads blocks.
 *
 *   buffer      blockCount blocks; the system checks it
 *   record      null: the call returns when the transfer is complete, and moves the file's
 *               position. Otherwise the transfer may continue after the call; a record without an
 *               event receives one
 *   blocksRead  receives the whole blocks read, also on failure; must not be null
 *
 * 0                           read. If the file ends inside the request, blocksRead is smaller; a
 *                             partial last block is not counted. Linux reads at most 262143 blocks
 *                             at once
 * KIV_ST_FILE_END             (with a record) there is no more data, OS error 38; a partial last
 *                             block is counted. Without a record, a read at the end or behind it
 *                             returns 0, and blocksRead is 0
 * KIV_ST_DIRECT_READ_PENDING  (with a record) in progress, OS error 997. This is the usual outcome
 *                             and no failure; collect it with KivSdDirectIOWait. blocksRead is 0
 * KIV_ST_EVENT_CREATE         (with a record) no event, nothing started; blocksRead is 0
 * KIV_ST_DIRECT_READ          (with a record) not started
 * KIV_ST_DIRECT_POINTER_SET   (without a record) the position was not reached; blocksRead is 0.
 *                             This happens for every block from 262144 on (2 GiB), because the seek
 *                             takes a signed number: use a record there
 * KIV_ST_FILE_READ            (without a record) not read
 * KIV_ST_ARGUMENT             blocksRead is null
 * OS error: GetLastError.
 *
 * Danger: a read without a record seeks and then reads, in two steps. Two threads that read one
 * file without records can read each other's blocks, with status 0. Use a record or a file for each
 * thread.
 *
 * A transfer with a record that returns 0 leaves the record's event signalled. KivSdDirectIOWait
 * then returns that outcome again and resets the event. */
KIVSDU_API uint32_t KivSdDirectIOFileRead(KivSdContext* ctx, uint32_t file, uint32_t firstBlock,
                                          void* buffer, uint32_t blockCount, KivSdNoWaitCb* record,
                                          uint32_t* blocksRead);

/* Writes blocks.
 *
 *   buffer         as for reading
 *   record         null: the call returns when the transfer is complete. It does not seek;
 *                  firstBlock alone determines the position. Otherwise as for reading
 *   blocksWritten  receives the whole blocks written, also on failure; must not be null
 *
 * 0, or KIV_ST_DISK_FULL             OS error 112
 *       KIV_ST_DIRECT_WRITE_PENDING  in progress, OS error 997; blocksWritten is 0. With a record
 *                                    this is the usual outcome; collect it with KivSdDirectIOWait
 *       KIV_ST_EVENT_CREATE          (with a record) no event, nothing started; blocksWritten is 0
 *       KIV_ST_DIRECT_WRITE          (with a record) not started
 *       KIV_ST_FILE_WRITE            (without a record) not written
 *       KIV_ST_ARGUMENT              blocksWritten is null
 * OS error: GetLastError.
 *
 * Danger: on a file opened with KIV_OPEN_OVERLAPPED, a write without a record can be in progress
 * when the call returns. It cannot be collected, and the system later writes into stack memory of
 * the returned call. Use a record for every transfer on such a file. */
KIVSDU_API uint32_t KivSdDirectIOFileWrite(KivSdContext* ctx, uint32_t file, uint32_t firstBlock,
                                           const void* buffer, uint32_t blockCount,
                                           KivSdNoWaitCb* record, uint32_t* blocksWritten);

/* Collects a transfer: waits without a limit until it has ended, resets the event, and makes the
 * record ready for the next transfer. No other operation resets the event.
 *
 * Danger: call it only after a transfer with this record that returned 0,
 * KIV_ST_DIRECT_READ_PENDING or KIV_ST_DIRECT_WRITE_PENDING. After any other status, including
 * KIV_ST_FILE_END, nothing signals the event, and the wait never returns.
 *
 *   file        the file of the transfer
 *   record      the record of the transfer; must not be null
 *   blocksDone  receives the whole blocks transferred, also if the transfer failed; must not be
 *               null. Unchanged if the wait failed or was abandoned
 *
 * 0, or KIV_ST_FILE_END               there was no more data, OS error 38; a partial last block is
 *                                     counted
 *       KIV_ST_DISK_FULL              OS error 112
 *       KIV_ST_DIRECT_COMPLETION      the transfer failed
 *       KIV_ST_COMPLETION_RESET       collected, but the event is still signalled. This status
 *                                     hides the transfer's own status
 *       KIV_ST_DIRECT_WAIT_ABANDONED  the wait was abandoned, OS error 128; the event is not reset
 *       KIV_ST_EVENT_WAIT             the wait failed, for example because the record has no event;
 *                                     the event is not reset
 *       KIV_ST_ARGUMENT               record or blocksDone is null
 * OS error: the wait's result for KIV_ST_EVENT_WAIT, else GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOWait(KivSdContext* ctx, uint32_t file, KivSdNoWaitCb* record,
                                      uint32_t* blocksDone);

/* ---- Position and size ---- */

/* Moves the file's position. Only reads without a record use it.
 *
 *   blocks    distance from the place that `method` names. Multiplied by 8192 it is a signed 32-bit
 *             number, negative from 262144 on
 *   method    KIV_SEEK_...; the system refuses other values
 *   position  receives the new position in blocks, rounded down, 0 on failure; must not be null
 *
 * 0, or KIV_ST_DIRECT_POINTER_SET  not moved
 *       KIV_ST_ARGUMENT            position is null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFilePointerSet(KivSdContext* ctx, uint32_t file, uint32_t blocks,
                                                uint32_t method, uint32_t* position);

/* Returns the file's position.
 *
 *   position  receives the position in blocks, rounded down, 0 on failure; must not be null
 *
 * 0, or KIV_ST_DIRECT_POINTER_GET  not known
 *       KIV_ST_ARGUMENT            position is null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFilePointerGet(KivSdContext* ctx, uint32_t file,
                                                uint32_t* position);

/* Returns the file's size.
 *
 *   blocks  receives the size in blocks, 0 on failure; must not be null. A partial last block is
 *           not counted. The size is taken modulo 4 GiB: a file of exactly 4 GiB has 0 blocks
 *
 * 0, or KIV_ST_FILE_LENGTH  not known. Also returned for a file of 4 GiB less one byte
 *       KIV_ST_ARGUMENT     blocks is null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFileSize(KivSdContext* ctx, uint32_t file, uint32_t* blocks);

/* Truncates or extends the file to a number of blocks, and moves its position to the new end.
 *
 *   blocks   below 262144 (2 GiB)
 *   newSize  receives the new size in blocks, 0 on failure; must not be null
 *
 * 0, or KIV_ST_DIRECT_POINTER_SET  the position was not moved
 *       KIV_ST_DIRECT_SET_END      the position was moved, but the end was not set
 *       KIV_ST_ARGUMENT            newSize is null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIOFileSetEndOfFile(KivSdContext* ctx, uint32_t file, uint32_t blocks,
                                                  uint32_t* newSize);

/* Truncates or extends a file that is open in the C runtime. It is the only operation here that
 * takes a descriptor (file.h).
 *
 *   descriptor  of the C runtime
 *   blocks      below 262144 (2 GiB)
 *   newSize     receives `blocks`, unchanged on failure; must not be null
 *
 * 0, or KIV_ST_DISK_FULL       no room; OS error 28
 *       KIV_ST_DIRECT_SET_END  not set for any other reason
 *       KIV_ST_ARGUMENT        newSize is null
 * OS error: errno. */
KIVSDU_API uint32_t KivSdDirectIOFileChangeSize(KivSdContext* ctx, uint32_t descriptor,
                                                uint32_t blocks, uint32_t* newSize);

/* ---- Completion records ---- */

/* Creates a new event for each record of an array. Earlier values of the event field are
 * overwritten, not closed.
 *
 *   records  must not be null, unless count is 0
 *
 * 0, or KIV_ST_EVENT_CREATE  some records have no event: their field is null. All others have one.
 *                            The OS error is that of the last failure
 *       KIV_ST_ARGUMENT      records is null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIONoWaitCbsInit(KivSdContext* ctx, KivSdNoWaitCb* records,
                                               uint32_t count);

/* Closes the events of an array's records, and skips records without one. The fields keep the
 * closed handles: zero a record before it is used again. No transfer may be in progress.
 *
 *   records  must not be null, unless count is 0
 *
 * 0, or KIV_ST_EVENT_CLOSE  some events were not closed; all others were. The OS error is that of
 *                           the last failure
 *       KIV_ST_ARGUMENT     records is null
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDirectIONoWaitCbsTerm(KivSdContext* ctx, KivSdNoWaitCb* records,
                                               uint32_t count);

#endif
