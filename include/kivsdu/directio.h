/* Direct I/O: block files past the system's cache, with transfers that need not be waited for.
 *
 * Every position, size and count is in blocks of KIV_PAGE_UNIT bytes (8192), 32 bits wide. Bytes
 * are computed in 32 bits as well: a file is addressed up to 4 GiB, and block 524288 is block 0
 * again.
 *
 * Files are opened unbuffered: buffers must lie on a multiple of the sector size of the volume;
 * memory of KivSdPhysMemAlloc and KivSdAlignedMemAlloc (memory.h) does. What an ended write
 * promises, and what it does not, is in docs/files.md.
 *
 * A file is the system's handle, carried in 32 bits; it is no descriptor of file.h.
 *
 * In failover mode every operation but KivSdDirectIOFileClose and KivSdDirectIONoWaitCbsTerm first
 * calls the lease guard (settings.h), before it looks at its arguments. A context may always be
 * null. Any thread; the library keeps no state of a file. */
#ifndef KIVSDU_DIRECTIO_H
#define KIVSDU_DIRECTIO_H

#include "api.h"
#include "context.h"

/* No file: what an open that fails leaves in the caller's variable. */
#define KIV_DIRECTIO_NONE 0xFFFFFFFFu

/* A completion record, for a transfer that is not waited for: the system's own record of a
 * transfer. It is the caller's, zeroed before its first use, and goes round:
 *
 *   zeroed -> event added (KivSdDirectIONoWaitCbsInit, or the first transfer)
 *          -> transfer started (KivSdDirectIOFileRead, KivSdDirectIOFileWrite)
 *          -> collected (KivSdDirectIOWait) -> the next transfer ...
 *          -> event closed (KivSdDirectIONoWaitCbsTerm)
 *
 * One record is for one transfer at a time, and must stay where it is until the transfer has been
 * collected: the system writes into it and into the buffer. Several records may be under way on one
 * file, and be collected in any order by any threads. */
typedef struct KivSdNoWaitCb {
  uint64_t internalStatus; /* the system's */
  uint64_t internalBytes;  /* the system's */
  uint32_t offsetLow;      /* bytes; written when a transfer starts */
  uint32_t offsetHigh;     /* always 0 then */
  KivHandle event;         /* signalled when the transfer has ended, and until it is collected; null
                              where there is none */
} KivSdNoWaitCb;

KIV_ASSERT_SIZE(KivSdNoWaitCb, 32);
KIV_ASSERT_FIELD(KivSdNoWaitCb, internalStatus, 0);
KIV_ASSERT_FIELD(KivSdNoWaitCb, internalBytes, 8);
KIV_ASSERT_FIELD(KivSdNoWaitCb, offsetLow, 16);
KIV_ASSERT_FIELD(KivSdNoWaitCb, offsetHigh, 20);
KIV_ASSERT_FIELD(KivSdNoWaitCb, event, 24);

/* ---- Files ---- */

/* Makes sure that a file is there, and leaves it closed with the contents it has. Others may not
 * have it open, unless failover mode is on.
 *
 * 0, or KIV_ST_ARGUMENT     path is null
 *       KIV_ST_FILE_CREATE  not made or not opened
 *       KIV_ST_FILE_CLOSE   made and not closed */
KIVSDU_API uint32_t KivSdDirectIOFileCreate(KivSdContext* ctx, const char* path);

/* Opens a file.
 *
 *   path         must not be null
 *   access       the system's access rights (GENERIC_READ = 0x80000000, GENERIC_WRITE = 0x40000000)
 *   shareMode    the system's; replaced by 7, all sharing, in failover mode
 *   disposition  the system's (OPEN_EXISTING = 3, OPEN_ALWAYS = 4)
 *   ignored      any value
 *   flags        the system's attributes and flags; unbuffered access is added. Transfers with
 *                completion records go on by themselves only with FILE_FLAG_OVERLAPPED
 *                (0x40000000); on such a file every transfer needs a record
 *   file         receives the file, KIV_DIRECTIO_NONE when it was not opened. A variable of 32
 *                bits: nothing behind it is written. Must not be null
 *
 * 0, or KIV_ST_ARGUMENT      path or file is null
 *       KIV_ST_FILE_SHARING  someone else holds the file; OS error 32
 *       KIV_ST_FILE_CREATE   not opened */
KIVSDU_API uint32_t KivSdDirectIOFileOpen(KivSdContext* ctx, const char* path, uint32_t access,
                                          uint32_t shareMode, uint32_t disposition,
                                          const void* ignored, uint32_t flags, uint32_t* file);

/* Transfers that are under way must have been collected.
 *
 * 0, or KIV_ST_FILE_CLOSE */
KIVSDU_API uint32_t KivSdDirectIOFileClose(KivSdContext* ctx, uint32_t file);

/* Removes a file. 0, or KIV_ST_FILE_REMOVE; the system refuses a null path. */
KIVSDU_API uint32_t KivSdDirectIOFileRemove(KivSdContext* ctx, const char* path);

/* ---- Transfers ---- */

/* Reads blocks.
 *
 *   buffer      blockCount blocks long; judged by the system alone
 *   record      null: the call ends with the transfer, and moves the file's position. Otherwise the
 *               transfer may go on after it; a record without an event is given one
 *   blocksRead  must not be null; on a failure as well it receives what was read, in whole blocks
 *
 * 0                            read. Where the file ends inside the request, blocksRead is smaller,
 *                              and a block that the file does not fill is not counted
 * KIV_ST_FILE_END              there is nothing more, OS error 38; a block that was read in part is
 *                              counted
 * KIV_ST_DIRECT_READ_PENDING   (with a record) under way, OS error 997: the usual outcome, and no
 *                              failure; collect it with KivSdDirectIOWait. blocksRead is 0
 * KIV_ST_EVENT_CREATE          (with a record) no event, nothing started; blocksRead is 0
 * KIV_ST_DIRECT_READ           (with a record) not started
 * KIV_ST_DIRECT_POINTER_SET    (without) the position cannot be reached; blocksRead is 0. Every
 *                              read from block 262144 on, 2 GiB, ends like this: the move is a
 *                              signed number. Read with a record there
 * KIV_ST_FILE_READ             (without) not read
 * KIV_ST_ARGUMENT              blocksRead is null
 *
 * Danger: a read without a record moves the file's position and then reads from there, in two
 * steps. Two threads that read one file without records get each other's blocks, with status 0.
 * Give each thread a record or a file of its own.
 *
 * A transfer with a record that returns 0 at once leaves the record's event signalled; collecting
 * it all the same gives that outcome again and resets the event. */
KIVSDU_API uint32_t KivSdDirectIOFileRead(KivSdContext* ctx, uint32_t file, uint32_t firstBlock,
                                          void* buffer, uint32_t blockCount, KivSdNoWaitCb* record,
                                          uint32_t* blocksRead);

/* Writes blocks.
 *
 *   buffer, record  as for reading. Without a record the block alone says where: no seek fails
 *   blocksWritten   must not be null; on a failure as well it receives what was written, in whole
 *                   blocks
 *
 * 0, or KIV_ST_DISK_FULL             OS error 112
 *       KIV_ST_DIRECT_WRITE_PENDING  under way, OS error 997; blocksWritten is 0. With a record the
 *                                    usual outcome, to be collected with KivSdDirectIOWait
 *       KIV_ST_EVENT_CREATE          (with a record) no event, nothing started; blocksWritten is 0
 *       KIV_ST_DIRECT_WRITE          (with a record) not started
 *       KIV_ST_FILE_WRITE            (without) not written
 *       KIV_ST_ARGUMENT              blocksWritten is null
 *
 * Danger: on a file opened with FILE_FLAG_OVERLAPPED a write without a record may be reported as
 * under way too. Nothing can collect it then, and when it ends the system writes into what was the
 * stack of this call. Give every transfer on such a file a record. */
KIVSDU_API uint32_t KivSdDirectIOFileWrite(KivSdContext* ctx, uint32_t file, uint32_t firstBlock,
                                           const void* buffer, uint32_t blockCount,
                                           KivSdNoWaitCb* record, uint32_t* blocksWritten);

/* Waits, without a limit, until a record's transfer has ended, and makes the record fit for the
 * next. The only operation that resets the event.
 *
 * Call it only after a transfer with this record that returned 0 or pending. After any other status
 * (also KIV_ST_FILE_END) nothing signals the event and the wait never returns.
 *
 *   record      of a transfer of this file; must not be null
 *   blocksDone  must not be null; on a failed transfer as well it receives what was transferred, in
 *               whole blocks
 *
 * 0, or KIV_ST_FILE_END               there was nothing more, OS error 38; a block that was read in
 *                                     part is counted
 *       KIV_ST_DISK_FULL              OS error 112
 *       KIV_ST_DIRECT_COMPLETION      the transfer failed
 *       KIV_ST_COMPLETION_RESET       collected, with blocksDone, and the event is still signalled:
 *                                     this outcome hides the transfer's own
 *       KIV_ST_DIRECT_WAIT_ABANDONED  OS error 128
 *       KIV_ST_EVENT_WAIT             the wait failed, as it does for a record without an event; OS
 *                                     error is the wait's result. Here as for an abandoned wait
 *                                     blocksDone is left alone, and the event as it is
 *       KIV_ST_ARGUMENT               record or blocksDone is null */
KIVSDU_API uint32_t KivSdDirectIOWait(KivSdContext* ctx, uint32_t file, KivSdNoWaitCb* record,
                                      uint32_t* blocksDone);

/* ---- Position and size ---- */

/* Moves the file's position, which only reads without a record use.
 *
 *   blocks    from the beginning (method 0), the position (1) or the end (2); times 8192 it is a
 *             signed number of 32 bits, negative from 262144 on
 *   method    handed to the system as it is, which refuses any other
 *   position  receives the new position, rounded down; 0 on failure; must not be null
 *
 * 0, or KIV_ST_DIRECT_POINTER_SET
 *       KIV_ST_ARGUMENT            position is null */
KIVSDU_API uint32_t KivSdDirectIOFilePointerSet(KivSdContext* ctx, uint32_t file, uint32_t blocks,
                                                uint32_t method, uint32_t* position);

/* 0, or KIV_ST_DIRECT_POINTER_GET  position receives 0
 *       KIV_ST_ARGUMENT            position is null */
KIVSDU_API uint32_t KivSdDirectIOFilePointerGet(KivSdContext* ctx, uint32_t file,
                                                uint32_t* position);

/* The file's size in blocks. A last block that is not full is not counted, nor is what lies past
 * 4 GiB; a file of one byte less than that counts as a failure.
 *
 * 0, or KIV_ST_FILE_LENGTH  blocks receives 0
 *       KIV_ST_ARGUMENT     blocks is null */
KIVSDU_API uint32_t KivSdDirectIOFileSize(KivSdContext* ctx, uint32_t file, uint32_t* blocks);

/* Ends the file behind a number of blocks, and moves its position there.
 *
 *   blocks   below 262144, 2 GiB
 *   newSize  receives the new size, 0 on failure; must not be null
 *
 * 0, or KIV_ST_DIRECT_POINTER_SET
 *       KIV_ST_DIRECT_SET_END      the position was moved, the end was not
 *       KIV_ST_ARGUMENT            newSize is null */
KIVSDU_API uint32_t KivSdDirectIOFileSetEndOfFile(KivSdContext* ctx, uint32_t file, uint32_t blocks,
                                                  uint32_t* newSize);

/* The same for a file that the C runtime has open: the one operation here that takes a descriptor
 * (file.h) and no file.
 *
 *   blocks   below 262144, 2 GiB
 *   newSize  receives `blocks`; left alone on failure; must not be null
 *
 * 0, or KIV_ST_DISK_FULL       OS error is errno, 28
 *       KIV_ST_DIRECT_SET_END  OS error is errno
 *       KIV_ST_ARGUMENT        newSize is null */
KIVSDU_API uint32_t KivSdDirectIOFileChangeSize(KivSdContext* ctx, uint32_t descriptor,
                                                uint32_t blocks, uint32_t* newSize);

/* ---- Completion records ---- */

/* Gives each record of an array a new event, whatever its field held.
 *
 *   records  must not be null, unless count is 0
 *
 * 0, or KIV_ST_EVENT_CREATE  some have none: their field is null, all others have theirs. OS error
 *                            of the last that failed
 *       KIV_ST_ARGUMENT      records is null */
KIVSDU_API uint32_t KivSdDirectIONoWaitCbsInit(KivSdContext* ctx, KivSdNoWaitCb* records,
                                               uint32_t count);

/* Closes the events of an array's records; those that have none are passed over. The fields keep
 * the closed handles: zero a record before it is used again. No transfer may be under way.
 *
 *   records  must not be null, unless count is 0
 *
 * 0, or KIV_ST_EVENT_CLOSE  some were not closed, all others were. OS error of the last that failed
 *       KIV_ST_ARGUMENT     records is null */
KIVSDU_API uint32_t KivSdDirectIONoWaitCbsTerm(KivSdContext* ctx, KivSdNoWaitCb* records,
                                               uint32_t count);

#endif
