/* Shared memory segments: message channels between two processes.
 *
 * A segment is an area of shared memory, divided into five chunks. A chunk has two halves, one for
 * each direction. A pair of semaphores passes a half from its writer to its reader and back:
 *
 *   area   0            4096         8192         12288        16384        20480
 *          | chunk 0    | chunk 1    | chunk 2    | chunk 3    | chunk 4    |
 *
 *   chunk  0                        2048                      4096
 *          | first half             | second half             |
 *            kind 1 writes            kind 0 writes
 *            kind 0 reads             kind 1 reads
 *
 *   half   0      4        8                                  2048
 *          | code | length | payload, up to 2040 bytes        |
 *
 * Code and length have 32 bits each and are written as one 8-byte word in the machine's byte order.
 * A half with the code 0 is a data message. Any other code makes a code message, whose payload is
 * dropped.
 *
 * The semaphores are a shared set (semaphore.h) with the segment's name, each with a maximum of 1.
 * A wait that exceeds the segment's time-out returns KIV_ST_SEM_TIMEOUT. The members:
 *
 *   member 0       the chunk lock, which guards taking and returning chunks
 *   member 4i + 1  the first half of chunk i is full
 *   member 4i + 2  the first half of chunk i is empty
 *   member 4i + 3  the second half of chunk i is full
 *   member 4i + 4  the second half of chunk i is empty
 *
 * The peer is not trusted. Whatever it writes into the area, an operation touches no byte outside
 * the half and the caller's buffer.
 *
 * The library does not notice that a peer has died: waits for it return KIV_ST_SEM_TIMEOUT. Use a
 * finite time-out, and then ask whether the peer lives, for example by KivSdProcessCheckAlive or by
 * a pipe that breaks with it. A dead peer leaves its chunk in any state. To prepare chunk i for the
 * next peer, while nobody else uses it:
 *
 *   1. zero reading[i] and writing[i] of the descriptor
 *   2. for each half: KivSdShSemSetRequest of "full" and then of "empty", both with time-out 0 and
 *      whatever they return; then KivSdShSemSetClear of "empty"
 *
 * A peer that died while it held the chunk lock leaves member 0 at 0: KivSdShSemSetClear of member
 * 0 releases it. Do this only if taking a chunk has timed out and the peer is dead.
 *
 * Order of calls: KivFindShareMemSeg, KivCreateSharedMemSeg if the descriptor is fresh,
 * KivSetSharedMemSegBuffer, KivGetSharedMemChunk, reads and writes, KivPutSharedMemChunk,
 * KivDeleteSingleSharedMemSeg or KivDeleteSharedMemSeg.
 *
 * Threads: descriptors and their list are not locked; one thread of a process sets them up and
 * deletes them. Any thread may take or return a chunk. In each process a chunk has one writer and
 * one reader, and only these use its states in the descriptor.
 *
 * A context may always be null. Operations on chunks do not write it, not even for argument errors
 * and time-outs; only the semaphore set's own argument error is stored. The other operations pass
 * it to the operations that they call: KivSdSharedMemAlloc, KivSdSharedMemFree, KivSdMemAlloc and
 * those of the set.
 *
 * Example: examples/channel.c. */
#ifndef KIVSDU_SEGMENT_H
#define KIVSDU_SEGMENT_H

#include "api.h"
#include "context.h"
#include "semaphore.h"
#include "sharedmem.h"

/* Bytes of a segment's name, terminator included. The semaphores' names are longer than the
 * segment's, and the system limits their length: the longest name that works has 256 characters. */
#define KIV_SEGMENT_NAME_BYTES 260u

#define KIV_SEGMENT_CHUNKS 5u
#define KIV_SEGMENT_HALF_BYTES 2048u
#define KIV_SEGMENT_PAYLOAD_BYTES 2040u
#define KIV_SEGMENT_AREA_BYTES 20480u

/* The address in a descriptor's buffer field while the segment is not mapped. */
#define KIV_SEGMENT_NOT_MAPPED 0xDEADBEEFu

/* The chunk index if all chunks are taken. */
#define KIV_CHUNK_NONE (-1)

/* Statuses of broken chunks, in addition to those of status.h. The last two also remain in the
 * chunk's state as its code, and block the chunk until the segment is set up again. */
#define KIV_CHUNK_LATCHED 0xFFFFFFFFu   /* an earlier code still blocks the chunk */
#define KIV_CHUNK_OVERRUN 0xFFFFFFFEu   /* more bytes were read than the half holds */
#define KIV_CHUNK_NOT_GIVEN 0xFFFFFFFDu /* the half was not passed to the peer */

/* A process's progress in one direction of a chunk. A code other than 0 blocks the chunk in this
 * direction. */
typedef struct KivSharedMemTransfer {
  uint32_t code;
  uint32_t lengthBytes; /* reading: rest of the message; writing: payload in the open half */
  uint16_t offset;      /* position in the half */
} KivSharedMemTransfer;

KIV_ASSERT_SIZE(KivSharedMemTransfer, 12);
KIV_ASSERT_FIELD(KivSharedMemTransfer, code, 0);
KIV_ASSERT_FIELD(KivSharedMemTransfer, lengthBytes, 4);
KIV_ASSERT_FIELD(KivSharedMemTransfer, offset, 8);

/* A descriptor: one process's end of a segment. The name is the first field; the descriptor's
 * address is therefore also the name's address. */
typedef struct KivSharedMemSeg {
  char name[KIV_SEGMENT_NAME_BYTES];
  KivSdShSemSet* semaphores; /* null if there is no set */
  uint16_t halfBytes;
  uint32_t kind;       /* 1 writes the first halves, 0 the second halves */
  uint32_t takenMask;  /* bit i is set while this process has taken chunk i */
  uint32_t chunkCount; /* 0 until the segment is set up */
  KivHandle mapping;   /* null if there is no area */
  KivSharedMemTransfer reading[KIV_SEGMENT_CHUNKS];
  KivSharedMemTransfer writing[KIV_SEGMENT_CHUNKS];
  void* buffer;         /* the mapped view, or the address KIV_SEGMENT_NOT_MAPPED */
  uint32_t timeoutMs;   /* of every wait; KIV_WAIT_INFINITE waits without a limit */
  uint32_t ownerStamp1; /* the caller defines the meaning of the two stamps */
  uint32_t ownerStamp2;
  struct KivSharedMemSeg* next;
} KivSharedMemSeg;

KIV_ASSERT_SIZE(KivSharedMemSeg, 448);
KIV_ASSERT_FIELD(KivSharedMemSeg, name, 0);
KIV_ASSERT_FIELD(KivSharedMemSeg, semaphores, 264);
KIV_ASSERT_FIELD(KivSharedMemSeg, halfBytes, 272);
KIV_ASSERT_FIELD(KivSharedMemSeg, kind, 276);
KIV_ASSERT_FIELD(KivSharedMemSeg, takenMask, 280);
KIV_ASSERT_FIELD(KivSharedMemSeg, chunkCount, 284);
KIV_ASSERT_FIELD(KivSharedMemSeg, mapping, 288);
KIV_ASSERT_FIELD(KivSharedMemSeg, reading, 296);
KIV_ASSERT_FIELD(KivSharedMemSeg, writing, 356);
KIV_ASSERT_FIELD(KivSharedMemSeg, buffer, 416);
KIV_ASSERT_FIELD(KivSharedMemSeg, timeoutMs, 424);
KIV_ASSERT_FIELD(KivSharedMemSeg, ownerStamp1, 428);
KIV_ASSERT_FIELD(KivSharedMemSeg, ownerStamp2, 432);
KIV_ASSERT_FIELD(KivSharedMemSeg, next, 440);

/* ---- Descriptors ---- */

/* Finds the descriptor of a name in the caller's list, or makes one.
 *
 * A descriptor of the name but of the other kind yields null. A missing descriptor also yields
 * null, unless createFlag asks for a new one. A new descriptor is zeroed, is appended to the list,
 * and has no name until KivCreateSharedMemSeg gives it one.
 *
 * A descriptor of kind 1 with other stamps belongs to an earlier owner. Its set and its area are
 * closed, ignoring failures, and it is returned as fresh. Its semaphores are then invalid: the next
 * call must be KivCreateSharedMemSeg or a delete.
 *
 * An empty name that no descriptor has yields the head of the list as fresh, if createFlag is set
 * and the list is not empty.
 *
 *   name         compared byte for byte; must not be null
 *   kind         0 or 1
 *   list         head of the list, null if empty; must not be null. Changed if the list was empty
 *                and a descriptor is made
 *   createFlag   not 0 to make a missing descriptor
 *   ownerStamp1  compared only for kind 1
 *   ownerStamp2  compared only for kind 1
 *   fresh        receives 1 if the segment must be set up, else 0; may be null
 *   notMapped    receives 1 if the descriptor was found and has no view, else 0; may be null. With
 *                1, the stamps are not compared
 *   segment      receives the descriptor, or null; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       name, list or segment is null
 *       KIV_ST_OUT_OF_MEMORY  no memory for a descriptor */
KIVSDU_API uint32_t KivFindShareMemSeg(KivSdContext* ctx, const char* name, uint32_t kind,
                                       KivSharedMemSeg** list, uint8_t createFlag,
                                       uint32_t ownerStamp1, uint32_t ownerStamp2, uint8_t* fresh,
                                       uint8_t* notMapped, KivSharedMemSeg** segment);

/* Sets up a segment, or joins the segment of this name: fills the descriptor, and creates the
 * semaphore set and the area. A set and an area that the descriptor already has are overwritten,
 * not closed. After a failure the descriptor still has the earlier area, and deleting it frees that
 * area, but not the earlier set.
 *
 *   name             at most 259 characters, of which the system accepts 256; must not be null
 *   kind             0 or 1; the two ends must differ
 *   openFlags        of the area, as for KivSdSharedMemAlloc: KIV_SHAREDMEM_CREATE |
 *                    KIV_SHAREDMEM_WRITE for a writable view, creating the area if needed
 *   protectionFlags  of the area, as for KivSdSharedMemAlloc: KIV_SHAREDMEM_PAGES_READ_WRITE
 *   segment          from KivFindShareMemSeg; must not be null
 *   timeoutMs        milliseconds; of every wait for the peer
 *   mappingId        as for KivSdSharedMemAlloc; must not be null
 *   view             as for KivSdSharedMemAlloc; must not be null
 *
 * 0, or KIV_ST_ARGUMENT          a pointer is null, or the name is empty
 *       KIV_ST_SEGMENT_NAME      the name has 260 characters or more, or the kind is neither 0 nor
 *                                1; the descriptor is unchanged
 *       KIV_ST_OUT_OF_MEMORY     no memory for the set
 *       KIV_ST_SEM_CREATE        the set was not created, for example because the name is too long
 *                                for it
 *       KIV_ST_SHARED_MEM_ALLOC  the area was not created or not mapped; the set is closed again
 * OS error: GetLastError of the area; of the set it is not recorded. */
KIVSDU_API uint32_t KivCreateSharedMemSeg(KivSdContext* ctx, const char* name, uint32_t kind,
                                          uint32_t openFlags, uint32_t protectionFlags,
                                          KivSharedMemSeg* segment, uint32_t timeoutMs,
                                          uint32_t* mappingId, void** view);

/* Stores the address of the area's view in a descriptor.
 *
 *   view  the view that KivCreateSharedMemSeg returned. Null removes the view and zeroes the first
 *         eight bytes of the name, which frees the descriptor for another segment
 *
 * 0, or KIV_ST_ARGUMENT  segment is null */
KIVSDU_API uint32_t KivSetSharedMemSegBuffer(KivSdContext* ctx, KivSharedMemSeg* segment,
                                             void* view);

/* Returns a descriptor's name. The text belongs to the descriptor and changes with it.
 *
 *   name  receives the text; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  segment or name is null */
KIVSDU_API uint32_t KivGetSharedMemSegName(KivSdContext* ctx, KivSharedMemSeg* segment,
                                           const char** name);

/* Closes the sets and areas of all descriptors in a list, and frees the descriptors. The list must
 * not be used afterwards.
 *
 * Compatibility: the status of one descriptor carries over to the next. A descriptor whose area was
 * not freed stays allocated. After it, descriptors without a set stay allocated too, and keep their
 * areas.
 *
 *   list  head of the list; may be null
 *
 * 0, or KIV_ST_SHARED_MEM_FREE  the last close failed, for example because KivSetSharedMemSegBuffer
 *                               never stored the view
 * OS error: GetLastError of the area; of the set it is not recorded. */
KIVSDU_API uint32_t KivDeleteSharedMemSeg(KivSdContext* ctx, KivSharedMemSeg* list);

/* Closes the set and the area of one descriptor, which stays in its list with its name, its view's
 * address and the state of its chunks. KivFindShareMemSeg therefore still finds it as set up: store
 * a null view with KivSetSharedMemSegBuffer, and use its chunks only after it is set up again.
 *
 * 0, or KIV_ST_ARGUMENT         segment is null
 *       KIV_ST_SHARED_MEM_FREE  as for KivDeleteSharedMemSeg
 * OS error: GetLastError of the area; of the set it is not recorded. */
KIVSDU_API uint32_t KivDeleteSingleSharedMemSeg(KivSdContext* ctx, KivSharedMemSeg* segment);

/* ---- Chunks ---- */

/* Takes the lowest chunk that this process has not taken. Each process counts its own chunks, so
 * that the first call in every process yields chunk 0: nothing keeps two processes from the same
 * chunk. The two ends must agree on the chunk that they use. With several clients, the server takes
 * the chunks and tells each client its index, over a pipe for example; the clients take none.
 *
 *   chunk  receives the chunk's index, or KIV_CHUNK_NONE if all are taken; unchanged if the wait
 *          failed; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     segment or chunk is null
 *       KIV_ST_SEM_TIMEOUT  other processes held the chunk lock for too long
 *       KIV_ST_SEM_REQUEST  the wait failed
 *       KIV_ST_SEM_CLEAR    the chunk is taken, but the chunk lock was not released
 * OS error: not recorded. */
KIVSDU_API uint32_t KivGetSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                         int32_t* chunk);

/* Returns a chunk.
 *
 * 0, or KIV_ST_ARGUMENT         segment is null, or it has no such chunk
 *       KIV_ST_CHUNK_NOT_TAKEN  the chunk was not taken. Compatibility: the chunk lock stays taken,
 *                               and taking or returning any chunk fails with KIV_ST_SEM_TIMEOUT
 *                               from then on
 *       KIV_ST_SEM_TIMEOUT      as for KivGetSharedMemChunk
 *       KIV_ST_SEM_REQUEST      the wait failed
 *       KIV_ST_SEM_CLEAR        the chunk is returned, but the chunk lock was not released
 * OS error: not recorded. */
KIVSDU_API uint32_t KivPutSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                         int32_t chunk);

/* Writes data into the open half, or waits for a half that the peer has emptied. A half is sent
 * when it is full, or if endFlag is set. Otherwise it stays open for the next write.
 *
 *   lengthBytes  0 returns at once
 *   endFlag      not 0 to send the half that holds the last byte
 *   splitFlag    not 0 to fill one half after the other. If 0 and the data does not fit, the
 *                current half is sent as it is (even empty), and the data goes whole into the next
 *                half, which is sent too. More than KIV_SEGMENT_PAYLOAD_BYTES need a value other
 *                than 0: with 0, empty halves are sent until the peer stops returning them
 *   data         must not be null
 *
 * 0, or KIV_ST_ARGUMENT     segment or data is null, or there is no such chunk
 *       KIV_CHUNK_LATCHED   the chunk is blocked for writing
 *       KIV_ST_SEM_TIMEOUT  the peer returned no half in time; earlier halves stay sent
 *       KIV_ST_SEM_REQUEST  the wait failed
 *       KIV_ST_SEM_CLEAR    the half was not sent; the chunk is blocked from now on
 * OS error: not recorded. */
KIVSDU_API uint32_t KivWriteSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                           int32_t chunk, uint32_t lengthBytes, uint8_t endFlag,
                                           uint8_t splitFlag, const void* data);

/* Writes a code and sends the half. If a half is open, the code goes into it, and the peer does not
 * receive the data in it.
 *
 *   code  not 0. A code of 0 sends the open half as a data message, or an empty data message if no
 *         half is open
 *
 * 0, or KIV_ST_ARGUMENT     segment is null, or there is no such chunk
 *       KIV_CHUNK_LATCHED   the chunk is blocked for writing
 *       KIV_ST_SEM_TIMEOUT  the peer returned no half in time; the code was not sent and blocks the
 *                           chunk from now on
 *       KIV_ST_SEM_REQUEST  the wait failed; the chunk is blocked likewise
 *       KIV_ST_SEM_CLEAR    the half was not sent; the chunk is blocked from now on
 * OS error: not recorded. */
KIVSDU_API uint32_t KivWriteSharedMemChunkCode(KivSdContext* ctx, KivSharedMemSeg* segment,
                                               int32_t chunk, uint32_t code);

/* Reads data from one or more messages, and waits for each. A half is returned to the peer once its
 * message has been read completely. The rest of a message stays for the next read. A code message
 * ends the read; data before it has been copied.
 *
 *   lengthBytes  at most the bytes of the messages; 0 returns at once; ignored if stringFlag is
 *                set. A read is limited by the end of the half, not of the message: a longer read
 *                copies the bytes behind the message and does not return the half
 *   stringFlag   not 0 to read up to and including the next zero byte, or to the end of the message
 *                if it has none
 *   code         receives the code of each message that is begun (0 for data), or the code that
 *                blocks the chunk; may be null
 *   buffer       must not be null. It has room for lengthBytes, or for KIV_SEGMENT_HALF_BYTES if
 *                stringFlag is set, because the peer decides the length of a string
 *
 * 0, or KIV_ST_ARGUMENT      segment or buffer is null, or there is no such chunk
 *       KIV_CHUNK_LATCHED    the chunk is blocked for reading
 *       KIV_ST_SEM_TIMEOUT   no message arrived in time; earlier data has been copied
 *       KIV_ST_SEM_REQUEST   the wait failed
 *       KIV_CHUNK_NOT_GIVEN  the half was not returned; the chunk is blocked from now on
 *       KIV_CHUNK_OVERRUN    the read reached the end of the half, but the message claims more
 *                            bytes, or the caller read past the message; the chunk is blocked from
 *                            now on
 * OS error: not recorded.
 *
 * Danger: with stringFlag there is no KIV_CHUNK_OVERRUN. If the peer announces more bytes than its
 * half holds, every further string read returns 0 at once, without waiting and without data. A
 * server that does not trust its peer checks the chunk's state after every read, and drops the
 * connection if this holds:
 *
 *   state->lengthBytes > KIV_SEGMENT_HALF_BYTES - state->offset
 *
 * where state is &segment->reading[chunk]. It never holds if the peer keeps to the format and the
 * reader asks for no more than the message holds. */
KIVSDU_API uint32_t KivReadSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                          int32_t chunk, uint32_t lengthBytes, uint8_t stringFlag,
                                          uint32_t* code, void* buffer);

/* Waits for a message, reads only its code, and returns the half at once.
 *
 * Use it only if no data is expected. The length of any data remains in the state, and the next
 * read takes it for the length of a message that is already there. Do not use it in the middle of a
 * message: the peer cannot send before the rest is read, and the wait times out. The rest stays for
 * KivReadSharedMemChunk.
 *
 *   code  receives the code, 0 for a data message; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     segment or code is null, or there is no such chunk
 *       KIV_ST_CHUNK_CODE   the chunk is blocked for reading
 *       KIV_ST_SEM_TIMEOUT  no message arrived in time
 *       KIV_ST_SEM_REQUEST  the wait failed
 *       KIV_ST_SEM_CLEAR    the half was not returned
 * OS error: not recorded. */
KIVSDU_API uint32_t KivReadSharedMemChunkCode(KivSdContext* ctx, KivSharedMemSeg* segment,
                                              int32_t chunk, uint32_t* code);

#endif
