/* Anonymous and named pipes.
 *
 * In failover mode every operation, except for closing and disconnecting, calls the lease guard
 * (settings.h) before it checks its arguments. Operations take a pointer to the caller's handle
 * variable. A variable that holds null is not initialised (KivSdNamedPipeIsInitialized in
 * settings.h). A context may always be null. Any thread.
 *
 * Compatibility: a system call that fails without an OS error counts as a success, except in
 * KivSdPipeRead and KivSdNamedPipeConnect.
 *
 * To stop a server that waits in KivSdNamedPipeConnect, set a flag of your own and open the pipe as
 * a client: the wait ends, and the server sees the flag. To stop one that waits in KivSdPipeRead,
 * let the client send a last message, which ends the read with 0, or close its end, which ends it
 * with KIV_ST_PIPE_READ. Closing the server's own handle in another thread ends neither wait
 * reliably. */
#ifndef KIVSDU_PIPE_H
#define KIVSDU_PIPE_H

#include "api.h"
#include "context.h"
#include "fileflags.h"

/* ---- Named pipes ---- */

/* Open modes of a named pipe. KIV_OPEN_WRITE_THROUGH and KIV_OPEN_OVERLAPPED may be added.
 *
 * Danger: no operation passes an OVERLAPPED record, which Windows requires for a pipe that was made
 * with KIV_OPEN_OVERLAPPED. While a transfer is in progress, another transfer or a connect on such
 * a pipe may be reported as complete although it is not (see KivSdNamedPipeOpen). */
#define KIV_PIPE_INBOUND 0x1u            /* data goes from the client to the server */
#define KIV_PIPE_OUTBOUND 0x2u           /* data goes from the server to the client */
#define KIV_PIPE_DUPLEX 0x3u             /* data goes both ways */
#define KIV_PIPE_FIRST_INSTANCE 0x80000u /* fails if a pipe of this name exists */

/* Pipe modes: bytes or messages, wait or not, and which clients. Add them up. */
#define KIV_PIPE_BYTES 0x0u
#define KIV_PIPE_MESSAGES 0x4u
#define KIV_PIPE_READ_BYTES 0x0u
#define KIV_PIPE_READ_MESSAGES 0x2u
#define KIV_PIPE_WAIT 0x0u
#define KIV_PIPE_NO_WAIT 0x1u       /* connect, read and write return at once */
#define KIV_PIPE_ACCEPT_REMOTE 0x0u /* clients of other machines too */
#define KIV_PIPE_REJECT_REMOTE 0x8u /* only clients of this machine */

#define KIV_PIPE_INSTANCES_MAX 255u /* as many instances as the system can make */

/* The server name that stands for this machine. */
#define KIV_PIPE_THIS_MACHINE "local"

/* OS error of KivSdNamedPipeConnect: a client had opened the pipe before the call. */
#define KIV_PIPE_CONNECTED_BEFORE 535u

/* Creates an instance of a named pipe on this machine, open to every user (Linux: to the same
 * user). Child processes inherit the handle (Linux: only through a fork).
 *
 *   name                without a folder; must not be null
 *   pipe                receives the handle, or the invalid handle (-1) if none was created;
 *                       unchanged if memory ran out; must not be null
 *   openMode            KIV_PIPE_INBOUND, _OUTBOUND or _DUPLEX, and flags
 *   pipeMode            KIV_PIPE_BYTES, KIV_PIPE_MESSAGES, ...
 *   maximumInstances    1 to KIV_PIPE_INSTANCES_MAX
 *   outBytes, inBytes   buffer sizes in bytes
 *   defaultTimeoutMs    milliseconds; for clients that wait with a time-out of 0
 *
 * 0, or KIV_ST_ARGUMENT           name or pipe is null
 *       KIV_ST_OUT_OF_MEMORY      no memory for the path or the access list
 *       KIV_ST_PIPE_CREATE_NAMED  not created
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdNamedPipeCreate(KivSdContext* ctx, const char* name, KivHandle* pipe,
                                         uint32_t openMode, uint32_t pipeMode,
                                         uint32_t maximumInstances, uint32_t outBytes,
                                         uint32_t inBytes, uint32_t defaultTimeoutMs);

/* Opens the client end of a named pipe, always in overlapped mode.
 *
 * Danger: KivSdPipeRead and KivSdPipeWrite pass no OVERLAPPED record, which an overlapped handle
 * requires. Windows may then report a transfer as complete while it is still in progress. It waits
 * for the handle, which any transfer on it signals. These uses of the client's end are safe:
 *
 *   - one transfer at a time on the handle, over all threads: never a read beside a write
 *   - a read of no more bytes than KivSdNamedPipePeek has just reported, by the only reader
 *
 * A client that reads and writes at the same time opens two pipes. Linux has no overlapped mode:
 * every transfer is complete when the call returns.
 *
 *   server       KIV_PIPE_THIS_MACHINE, in any case, the only one on Linux; must not be null
 *   name         without a folder; must not be null
 *   pipe         receives the handle, or the invalid handle (-1) if it was not opened; unchanged if
 *                memory ran out; must not be null
 *   access       the system's access rights, KIV_ACCESS_...
 *   shareMode    KIV_SHARE_...; in failover mode replaced by KIV_SHARE_ALL
 *   disposition  KIV_DISPOSITION_OPEN_EXISTING
 *   flags        KIV_OPEN_...
 *
 * 0, or KIV_ST_ARGUMENT       server, name or pipe is null
 *       KIV_ST_OUT_OF_MEMORY  no memory for the path
 *       KIV_ST_PIPE_OPEN      not opened
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdNamedPipeOpen(KivSdContext* ctx, const char* server, const char* name,
                                       KivHandle* pipe, uint32_t access, uint32_t shareMode,
                                       uint32_t disposition, uint32_t flags);

/* Waits until an instance of a named pipe can be opened.
 *
 *   server, name  as in KivSdNamedPipeOpen
 *   timeoutMs     milliseconds; 0 for the pipe's default, KIV_WAIT_INFINITE without a limit
 *
 * 0, or KIV_ST_ARGUMENT       server or name is null
 *       KIV_ST_OUT_OF_MEMORY  no memory for the path
 *       KIV_ST_PIPE_WAIT      the time is over, or the pipe does not exist
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdNamedPipeWait(KivSdContext* ctx, const char* server, const char* name,
                                       uint32_t timeoutMs);

/* Waits until a client opens the pipe.
 *
 * 0                    the client had opened the pipe before the call; OS error
 *                      KIV_PIPE_CONNECTED_BEFORE
 * KIV_ST_PIPE_CONNECT  OS error 0: the client opened the pipe during the call. Any other OS error:
 *                      there is no connection
 * KIV_ST_ARGUMENT      pipe is null
 * OS error: GetLastError.
 *
 * Compatibility: only a client that was there before the call yields 0, and hosts rely on it. A
 * call that fails without an OS error also looks like a connection during the call. Treat OS error
 * 0 as connected: if there is no connection, the first transfer fails. */
KIVSDU_API uint32_t KivSdNamedPipeConnect(KivSdContext* ctx, KivHandle* pipe);

/* Disconnects the client. The instance can then be connected to another client.
 *
 * 0, or KIV_ST_ARGUMENT         pipe is null
 *       KIV_ST_PIPE_DISCONNECT  not disconnected
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdNamedPipeDisconnect(KivSdContext* ctx, KivHandle* pipe);

/* Copies data from the pipe without removing it.
 *
 *   bufferBytes     size of buffer in bytes
 *   buffer          receives the data; may be null
 *   bytesRead       receives the bytes copied; may be null
 *   bytesAvailable  receives the bytes in the pipe; may be null
 *   bytesLeft       receives the remaining bytes of the message; may be null
 *
 * 0, or KIV_ST_ARGUMENT   pipe is null
 *       KIV_ST_PIPE_PEEK  the pipe could not be peeked
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdNamedPipePeek(KivSdContext* ctx, KivHandle* pipe, uint32_t bufferBytes,
                                       void* buffer, uint32_t* bytesRead, uint32_t* bytesAvailable,
                                       uint32_t* bytesLeft);

/* ---- Both kinds ---- */

/* Creates an anonymous pipe. Child processes do not inherit its handles.
 *
 *   readEnd, writeEnd  receive the handles, both null if no pipe was created; must not be null
 *   bufferBytes        bytes; 0 for the system's default
 *
 * 0, or KIV_ST_ARGUMENT     readEnd or writeEnd is null
 *       KIV_ST_PIPE_CREATE  not created
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdPipeCreate(KivSdContext* ctx, KivHandle* readEnd, KivHandle* writeEnd,
                                    uint32_t bufferBytes);

/* Closes a handle. The variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT    pipe is null
 *       KIV_ST_PIPE_CLOSE  not closed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdPipeClose(KivSdContext* ctx, KivHandle* pipe);

/* Reads the bytes that are in the pipe. Waits if there are none.
 *
 *   pipe    must not be null; the handle in it is not checked
 *   buffer  must not be null
 *   length  bytes at most
 *   count   receives the bytes read; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     pipe, buffer or count is null
 *       KIV_ST_PIPE_CLOSED  the pipe is being closed, OS error 232 (Linux: the pipe does
 *                           not wait and is empty, ENODATA); count is 0
 *       KIV_ST_PIPE_READ    not read for any other reason. OS error 109 (Linux: EPIPE): the writing
 *                           end is closed. 233 (Linux: EPIPE): the server has disconnected this
 *                           client. 234 (Linux: EMSGSIZE): the message is longer than the buffer;
 *                           count bytes were read, and the next read continues the message
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdPipeRead(KivSdContext* ctx, KivHandle* pipe, void* buffer, uint32_t length,
                                  uint32_t* count);

/* Writes all bytes. Waits until the pipe has room for them. In no-wait mode it writes those that
 * have room: count may then be less than length, or 0, with status 0.
 *
 *   pipe    must not be null and must hold a handle
 *   buffer  must not be null
 *   length  bytes
 *   count   receives the bytes written, 0 on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    pipe is null or holds null, or buffer or count is null
 *       KIV_ST_PIPE_WRITE  not written
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdPipeWrite(KivSdContext* ctx, KivHandle* pipe, const void* buffer,
                                   uint32_t length, uint32_t* count);

#endif
