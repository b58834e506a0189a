/* Anonymous and named pipes.
 *
 * In failover mode every operation here but the closing and disconnecting ones first calls the
 * lease guard (settings.h), before it looks at its arguments. Any thread. A context may always be
 * null. Operations take a pointer to the caller's handle variable; a variable that holds null is
 * not initialised (KivSdNamedPipeIsInitialized, settings.h).
 *
 * A call that fails without an OS error counts as a success, except in KivSdPipeRead and
 * KivSdNamedPipeConnect. */
#ifndef KIVSDU_PIPE_H
#define KIVSDU_PIPE_H

#include "api.h"
#include "context.h"

/* ---- Named pipes ---- */

/* Makes an instance of a named pipe on this machine, open to every user; child processes inherit
 * the handle.
 *
 *   name                     without any folder; must not be null
 *   pipe                     receives the handle, the invalid one (-1) when the system made none;
 *                            must not be null
 *   openMode, pipeMode       the system's flags (PIPE_ACCESS_DUPLEX = 3, PIPE_WAIT = 0, ...)
 *   maximumInstances         1 to 255
 *   outBytes, inBytes        buffer sizes
 *   defaultTimeoutMs         of clients that wait without a time-out of their own
 *
 * 0, or KIV_ST_ARGUMENT           name or pipe is null
 *       KIV_ST_OUT_OF_MEMORY      no memory for the path or the access list
 *       KIV_ST_PIPE_CREATE_NAMED  not made */
KIVSDU_API uint32_t KivSdNamedPipeCreate(KivSdContext* ctx, const char* name, KivHandle* pipe,
                                         uint32_t openMode, uint32_t pipeMode,
                                         uint32_t maximumInstances, uint32_t outBytes,
                                         uint32_t inBytes, uint32_t defaultTimeoutMs);

/* Opens the client end of a named pipe, always in overlapped mode.
 *
 *   server       "local", in any case, for this machine; must not be null
 *   name         without any folder; must not be null
 *   pipe         receives the handle, the invalid one (-1) when it was not opened; must not be null
 *   access       the system's access rights
 *   shareMode    replaced by 7, all sharing, in failover mode
 *   disposition  the system's; OPEN_EXISTING = 3
 *   flags        the system's
 *
 * 0, or KIV_ST_ARGUMENT       server, name or pipe is null
 *       KIV_ST_OUT_OF_MEMORY  no memory for the path
 *       KIV_ST_PIPE_OPEN      not opened */
KIVSDU_API uint32_t KivSdNamedPipeOpen(KivSdContext* ctx, const char* server, const char* name,
                                       KivHandle* pipe, uint32_t access, uint32_t shareMode,
                                       uint32_t disposition, uint32_t flags);

/* Waits until an instance of a named pipe can be opened.
 *
 *   server, name  as in KivSdNamedPipeOpen
 *   timeoutMs     milliseconds; 0 for the pipe's default, 0xFFFFFFFF for ever
 *
 * 0, or KIV_ST_ARGUMENT       server or name is null
 *       KIV_ST_OUT_OF_MEMORY  no memory for the path
 *       KIV_ST_PIPE_WAIT      not within the time; the pipe does not exist */
KIVSDU_API uint32_t KivSdNamedPipeWait(KivSdContext* ctx, const char* server, const char* name,
                                       uint32_t timeoutMs);

/* Waits until a client opens the pipe. There are two ways to be connected, and the statuses tell
 * them apart: hosts rely on it. One status is ambiguous: KIV_ST_PIPE_CONNECT with OS error 0 also
 * stands for a call that failed without an OS error. Take it for connected; the first transfer
 * fails if it was not.
 *
 * 0                    the client had opened the pipe before the call; OS error 535
 * KIV_ST_PIPE_CONNECT  the client opened it during the call, OS error 0; or, with any other OS
 *                      error, there is no connection
 * KIV_ST_ARGUMENT      pipe is null */
KIVSDU_API uint32_t KivSdNamedPipeConnect(KivSdContext* ctx, KivHandle* pipe);

/* Cuts the client off, so that the instance can be connected to the next.
 *
 * 0, or KIV_ST_ARGUMENT         pipe is null
 *       KIV_ST_PIPE_DISCONNECT  not cut off */
KIVSDU_API uint32_t KivSdNamedPipeDisconnect(KivSdContext* ctx, KivHandle* pipe);

/* Looks at what waits in the pipe without taking it.
 *
 *   buffer, bytesRead, bytesAvailable, bytesLeft  may be null
 *
 * 0, or KIV_ST_ARGUMENT   pipe is null
 *       KIV_ST_PIPE_PEEK  could not be looked at */
KIVSDU_API uint32_t KivSdNamedPipePeek(KivSdContext* ctx, KivHandle* pipe, uint32_t bufferBytes,
                                       void* buffer, uint32_t* bytesRead, uint32_t* bytesAvailable,
                                       uint32_t* bytesLeft);

/* ---- Both kinds ---- */

/* Makes an anonymous pipe; child processes do not inherit it.
 *
 *   readEnd, writeEnd  receive the handles, both null when no pipe was made; must not be null
 *   bufferBytes        0 for the system's default
 *
 * 0, or KIV_ST_ARGUMENT     readEnd or writeEnd is null
 *       KIV_ST_PIPE_CREATE  not made */
KIVSDU_API uint32_t KivSdPipeCreate(KivSdContext* ctx, KivHandle* readEnd, KivHandle* writeEnd,
                                    uint32_t bufferBytes);

/* Closes a handle; the variable keeps its value.
 *
 * 0, or KIV_ST_ARGUMENT    pipe is null
 *       KIV_ST_PIPE_CLOSE  not closed */
KIVSDU_API uint32_t KivSdPipeClose(KivSdContext* ctx, KivHandle* pipe);

/* Reads what there is, waiting for the first byte.
 *
 *   pipe    must not be null; what it holds is not looked at
 *   length  at most, bytes
 *   count   receives the bytes read
 *
 * 0, or KIV_ST_ARGUMENT     pipe, buffer or count is null
 *       KIV_ST_PIPE_CLOSED  the pipe is being closed, OS error 232; count is 0
 *       KIV_ST_PIPE_READ    not read for any other reason; OS error 109 when the writer is gone */
KIVSDU_API uint32_t KivSdPipeRead(KivSdContext* ctx, KivHandle* pipe, void* buffer, uint32_t length,
                                  uint32_t* count);

/* Writes, waiting until the pipe has taken it all.
 *
 *   pipe   must not be null and hold a handle
 *   count  receives the bytes written, 0 on failure
 *
 * 0, or KIV_ST_ARGUMENT    pipe is null or not initialised, or buffer or count is null
 *       KIV_ST_PIPE_WRITE  not written */
KIVSDU_API uint32_t KivSdPipeWrite(KivSdContext* ctx, KivHandle* pipe, const void* buffer,
                                   uint32_t length, uint32_t* count);

#endif
