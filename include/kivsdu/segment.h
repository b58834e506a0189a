/* Shared memory segments: message channels between two processes.
 *
 * A segment is an area of shared memory that is cut into five chunks. A chunk has two halves, one
 * for each direction, and a pair of semaphores hands a half from its writer to its reader and back:
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
 * Code and length are 32-bit and written as one 8-byte word in the machine's byte order. A code of
 * 0 makes a data message; any other makes a code message, whose payload is dropped.
 *
 * The semaphores are a shared set (semaphore.h) of the segment's name, each of at most 1: member 0
 * guards the taking of chunks; members 4i+1 and 4i+2 say that the first half of chunk i is full and
 * empty, 4i+3 and 4i+4 the same of its second half. A member that is not given within the
 * segment's time-out ends the operation with KIV_ST_SEM_TIMEOUT. The peer is not trusted: whatever
 * it writes into the area, an operation touches no byte outside the half and the caller's buffer.
 *
 * In the order of their use: KivFindShareMemSeg, KivCreateSharedMemSeg on a fresh descriptor,
 * KivSetSharedMemSegBuffer, KivGetSharedMemChunk, reading and writing, KivPutSharedMemChunk,
 * KivDeleteSingleSharedMemSeg or KivDeleteSharedMemSeg.
 *
 * Threads: a descriptor and the list that it is in are not locked; one thread of a process sets
 * them up and tears them down. Taking and giving back a chunk is for any thread. A chunk has one
 * writer and one reader in each process, and its states in the descriptor belong to them.
 *
 * A context may always be null. Operations on chunks write nothing into it, not even their argument
 * errors: after them, time-outs included, it is as it was. Only the set tells it when it is asked
 * for a member of no set. The other operations hand it to what they call: KivSdSharedMemAlloc,
 * KivSdSharedMemFree, KivSdMemAlloc, and the set's argument errors.
 *
 * Example: examples/channel.c. */
#ifndef KIVSDU_SEGMENT_H
#define KIVSDU_SEGMENT_H

#include "api.h"
#include "context.h"
#include "semaphore.h"

/* With the terminator. Semaphores are named after the segment: the longest name that the system
 * takes has 256 characters. */
#define KIV_SEGMENT_NAME_BYTES 260u

#define KIV_SEGMENT_CHUNKS 5u
#define KIV_SEGMENT_HALF_BYTES 2048u
#define KIV_SEGMENT_PAYLOAD_BYTES 2040u
#define KIV_SEGMENT_AREA_BYTES 20480u

/* The address in a descriptor's buffer while the segment is not mapped. */
#define KIV_SEGMENT_NOT_MAPPED 0xDEADBEEFu

/* The chunk index that says that all chunks are taken. */
#define KIV_CHUNK_NONE (-1)

/* Statuses of chunks that are broken, beside those of status.h. The last two are also the codes
 * that then stay in the chunk's state; nothing takes them away but setting up the segment anew. */
#define KIV_CHUNK_LATCHED 0xFFFFFFFFu   /* a code of before is left in the chunk's state */
#define KIV_CHUNK_OVERRUN 0xFFFFFFFEu   /* more was read than the message's half holds */
#define KIV_CHUNK_NOT_GIVEN 0xFFFFFFFDu /* the half could not be handed to the other process */

/* How far a process is with its half of a chunk. A code that is not 0 blocks the chunk in this
 * direction. */
typedef struct KivSharedMemTransfer {
  uint32_t code;
  uint32_t lengthBytes; /* reading: left of the message; writing: in the half that is open */
  uint16_t offset;      /* in the half */
} KivSharedMemTransfer;

KIV_ASSERT_SIZE(KivSharedMemTransfer, 12);
KIV_ASSERT_FIELD(KivSharedMemTransfer, code, 0);
KIV_ASSERT_FIELD(KivSharedMemTransfer, lengthBytes, 4);
KIV_ASSERT_FIELD(KivSharedMemTransfer, offset, 8);

/* One process's end of a segment. The name lies first, so that the descriptor's address is the
 * name's. */
typedef struct KivSharedMemSeg {
  char name[KIV_SEGMENT_NAME_BYTES];
  KivSdShSemSet* semaphores; /* null while there is none */
  uint16_t halfBytes;
  uint32_t kind;       /* 1 writes first halves, 0 second halves */
  uint32_t takenMask;  /* bit i while this process has chunk i */
  uint32_t chunkCount; /* 0 until the segment is set up */
  KivHandle mapping;   /* null while there is none */
  KivSharedMemTransfer reading[KIV_SEGMENT_CHUNKS];
  KivSharedMemTransfer writing[KIV_SEGMENT_CHUNKS];
  void* buffer;         /* the mapped view, or the address KIV_SEGMENT_NOT_MAPPED */
  uint32_t timeoutMs;   /* of every wait; KIV_WAIT_INFINITE waits for ever */
  uint32_t ownerStamp1; /* what the two stamps mean is the caller's business */
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
 * A descriptor of another kind is not found: the result is null. One of kind 1 whose stamps differ
 * belonged to an owner before this one: its set and its area are closed, whatever that comes to,
 * and it is fresh again; its semaphores are then no longer valid. Set it up by
 * KivCreateSharedMemSeg or delete it before anything else. An empty name that no descriptor has
 * yields the head of a list that is not empty, as a fresh descriptor.
 *
 * A descriptor that is made is zeroed, has no name until KivCreateSharedMemSeg gives it one, and
 * is put at the list's end.
 *
 *   name          compared byte for byte; must not be null
 *   kind          0 or 1
 *   list          the list's head, null in an empty list; changed when that list gets its first
 *                 descriptor; must not be null
 *   createFlag    not 0 to make a descriptor that is not found
 *   ownerStamp1, ownerStamp2  compared by kind 1 alone
 *   fresh         receives 1 when the segment has to be set up, else 0; may be null
 *   notMapped     receives 1 when the descriptor was found and has no view, else 0; the stamps are
 *                 then not compared. May be null
 *   segment       receives the descriptor, null when there is none; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       name, list or segment is null
 *       KIV_ST_OUT_OF_MEMORY  no memory for a descriptor */
KIVSDU_API uint32_t KivFindShareMemSeg(KivSdContext* ctx, const char* name, uint32_t kind,
                                       KivSharedMemSeg** list, uint8_t createFlag,
                                       uint32_t ownerStamp1, uint32_t ownerStamp2, uint8_t* fresh,
                                       uint8_t* notMapped, KivSharedMemSeg** segment);

/* Sets up a segment, or joins the one that has the name: fills the descriptor, makes the set and
 * the area. A set and an area that the descriptor held before are overwritten, not closed. After a
 * failure the earlier area is still the descriptor's and is freed with it, its set is not.
 *
 *   name             at most 259 characters, and what the system takes; must not be null
 *   kind             0 or 1, unlike the other end's
 *   openFlags, protectionFlags  of the area, as for KivSdSharedMemAlloc: 8 | 2 and 1 for a view to
 *                    write to
 *   segment          from KivFindShareMemSeg; must not be null
 *   timeoutMs        of every wait for the peer
 *   mappingId, view  as for KivSdSharedMemAlloc; must not be null
 *
 * 0, or KIV_ST_ARGUMENT          a pointer is null, or the name is empty
 *       KIV_ST_SEGMENT_NAME      260 characters or more, or a kind other than 0 and 1; the
 *                                descriptor is left alone
 *       KIV_ST_OUT_OF_MEMORY     no memory for the set
 *       KIV_ST_SEM_CREATE        the set could not be made, also for a name too long for it
 *       KIV_ST_SHARED_MEM_ALLOC  the area could not be made or mapped; the set is closed again */
KIVSDU_API uint32_t KivCreateSharedMemSeg(KivSdContext* ctx, const char* name, uint32_t kind,
                                          uint32_t openFlags, uint32_t protectionFlags,
                                          KivSharedMemSeg* segment, uint32_t timeoutMs,
                                          uint32_t* mappingId, void** view);

/* Tells a descriptor where its area is mapped.
 *
 *   view  the whole area, as KivCreateSharedMemSeg gave it. Null takes the view away and the name
 *         with it (its first eight bytes), so that the descriptor serves another
 *
 * 0, or KIV_ST_ARGUMENT  segment is null */
KIVSDU_API uint32_t KivSetSharedMemSegBuffer(KivSdContext* ctx, KivSharedMemSeg* segment,
                                             void* view);

/* Gives a descriptor's name, which is the descriptor's own and changes with it.
 *
 * 0, or KIV_ST_ARGUMENT  segment or name is null */
KIVSDU_API uint32_t KivGetSharedMemSegName(KivSdContext* ctx, KivSharedMemSeg* segment,
                                           const char** name);

/* Closes the sets and areas of all descriptors of a list and frees the descriptors. The status
 * carries over from one to the next: after one whose area could not be freed, which stays
 * allocated, those that have no set stay allocated too, and keep their areas. The list is not to be
 * used again.
 *
 *   list  the list's head itself; may be null
 *
 * 0, or the status of the last closing: KIV_ST_SHARED_MEM_FREE, also for an area whose view was
 *       never told to its descriptor */
KIVSDU_API uint32_t KivDeleteSharedMemSeg(KivSdContext* ctx, KivSharedMemSeg* list);

/* Closes the set and the area of one descriptor, which stays in its list.
 *
 * 0, or KIV_ST_ARGUMENT         segment is null
 *       KIV_ST_SHARED_MEM_FREE  as in KivDeleteSharedMemSeg */
KIVSDU_API uint32_t KivDeleteSingleSharedMemSeg(KivSdContext* ctx, KivSharedMemSeg* segment);

/* ---- Chunks ---- */

/* Takes the lowest chunk that this process has not taken. Each process counts its own: which chunk
 * the peer uses is agreed with the peer.
 *
 *   chunk  receives its index, or KIV_CHUNK_NONE when all are taken; left alone when the wait
 *          failed; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     segment or chunk is null
 *       KIV_ST_SEM_TIMEOUT  the other processes did not let go of the chunks' lock in time
 *       KIV_ST_SEM_REQUEST  the wait failed
 *       KIV_ST_SEM_CLEAR    the lock could not be released; the chunk is taken all the same */
KIVSDU_API uint32_t KivGetSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                         int32_t* chunk);

/* Gives a chunk back.
 *
 * 0, or KIV_ST_ARGUMENT         segment is null, or it has no such chunk
 *       KIV_ST_CHUNK_NOT_TAKEN  the chunk was not taken. The chunks' lock then stays taken, and
 *                               every later taking and giving back ends with KIV_ST_SEM_TIMEOUT
 *       KIV_ST_SEM_TIMEOUT, KIV_ST_SEM_REQUEST, KIV_ST_SEM_CLEAR  as for KivGetSharedMemChunk */
KIVSDU_API uint32_t KivPutSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                         int32_t chunk);

/* Writes data. It goes into the half that is open, or waits for one that the peer has emptied; the
 * half is handed over when it is full or the end flag says so, and else stays open for the next
 * write.
 *
 *   lengthBytes  0 returns at once
 *   endFlag      not 0 to hand over the half that the last byte went into
 *   splitFlag    not 0 to fill one half after the other. 0 hands over the half as it is, though it
 *                be empty, when the data does not fit it, and the data goes whole into the next,
 *                which is handed over too. More than KIV_SEGMENT_PAYLOAD_BYTES need the flag:
 *                without it one empty half after the other is handed over, until the peer takes no
 *                more of them
 *   data         must not be null
 *
 * 0, or KIV_ST_ARGUMENT     segment or data is null, or it has no such chunk
 *       KIV_CHUNK_LATCHED   the chunk is blocked for writing
 *       KIV_ST_SEM_TIMEOUT  the peer gave no half back in time; what was handed over before stays
 *       KIV_ST_SEM_REQUEST  the wait failed
 *       KIV_ST_SEM_CLEAR    the half could not be handed over; the chunk is blocked from now on */
KIVSDU_API uint32_t KivWriteSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                           int32_t chunk, uint32_t lengthBytes, uint8_t endFlag,
                                           uint8_t splitFlag, const void* data);

/* Writes a code and hands over the half: the one that is open, whose data the peer then does not
 * get, or the next.
 *
 *   code  not 0. A code of 0 ends the half that is open as the data message it is, and makes an
 *         empty data message of the next half when none is open
 *
 * 0, or KIV_ST_ARGUMENT     segment is null, or it has no such chunk
 *       KIV_CHUNK_LATCHED   the chunk is blocked for writing
 *       KIV_ST_SEM_TIMEOUT  the peer gave no half back in time; the code blocks the chunk from now
 *                           on, for it was not sent
 *       KIV_ST_SEM_REQUEST  the wait failed, with the same consequence
 *       KIV_ST_SEM_CLEAR    the half could not be handed over; the chunk is blocked from now on */
KIVSDU_API uint32_t KivWriteSharedMemChunkCode(KivSdContext* ctx, KivSharedMemSeg* segment,
                                               int32_t chunk, uint32_t code);

/* Reads data, from as many messages as it takes, waiting for each. A message is handed back when
 * all of it was read; what is left of it is for the next read. A code message ends the read: what
 * came before it has been copied.
 *
 *   lengthBytes  never more than the messages hold: a read stops at a half's end and not at the
 *                message's, copies what lies behind it, and does not hand that half back. 0 returns
 *                at once. Not looked at with the string flag
 *   stringFlag   not 0 to read up to and including the next zero byte, or to the message's end
 *                where it has none
 *   code         receives 0 or the code with every message that is begun, or what broke the chunk;
 *                may be null
 *   buffer       with room for lengthBytes, or for KIV_SEGMENT_HALF_BYTES with the string flag:
 *                the peer decides how long a string is; must not be null
 *
 * 0, or KIV_ST_ARGUMENT      segment or buffer is null, or it has no such chunk
 *       KIV_CHUNK_LATCHED    the chunk is blocked for reading
 *       KIV_ST_SEM_TIMEOUT   no message came in time; what was read before stays
 *       KIV_ST_SEM_REQUEST   the wait failed
 *       KIV_CHUNK_NOT_GIVEN  the half could not be handed back; the chunk is blocked from now on
 *       KIV_CHUNK_OVERRUN    the half is read to its end, and its message says that there is more,
 *                            or less was there than was read; the chunk is blocked from now on
 *
 * With the string flag there is no KIV_CHUNK_OVERRUN. A peer that announces more bytes than its
 * half holds gives a reader of strings an empty string for every further read: each returns 0 at
 * once, writes nothing, and never waits. A server that does not trust its peer looks at the chunk's
 * state after every read and gives the connection up when this holds:
 *
 *   state->lengthBytes > KIV_SEGMENT_HALF_BYTES - state->offset
 *
 * where state is &segment->reading[chunk]. It never holds for a peer that keeps to the format and a
 * reader that asks for no more than the message holds. */
KIVSDU_API uint32_t KivReadSharedMemChunk(KivSdContext* ctx, KivSharedMemSeg* segment,
                                          int32_t chunk, uint32_t lengthBytes, uint8_t stringFlag,
                                          uint32_t* code, void* buffer);

/* Waits for a message and takes its code alone; the half is handed back at once. Only for messages
 * without data: the length of any data stays behind, and the next read takes it for a message that
 * lies in the half already. Not in the middle of a message: the peer cannot send the next one
 * before the rest is read, and the wait times out; the rest stays for KivReadSharedMemChunk.
 *
 *   code  receives the code, 0 of a data message; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    segment or code is null, or it has no such chunk
 *       KIV_ST_CHUNK_CODE  the chunk is blocked for reading
 *       KIV_ST_SEM_TIMEOUT, KIV_ST_SEM_REQUEST  as for KivReadSharedMemChunk
 *       KIV_ST_SEM_CLEAR   the half could not be handed back */
KIVSDU_API uint32_t KivReadSharedMemChunkCode(KivSdContext* ctx, KivSharedMemSeg* segment,
                                              int32_t chunk, uint32_t* code);

#endif
