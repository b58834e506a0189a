/* Files as streams: opening, transferring, positioning, lines, and what is known of a file by its
 * name.
 *
 * A file is a descriptor of the C runtime that the library shares with its callers (msvcrt.dll):
 * what is opened here can be passed to the runtime's own functions, and back. Paths, open flags,
 * permissions and the origins of a seek are the runtime's and passed to it as they are; their
 * values are part of this interface:
 *
 *   open flags   0 read, 1 write, 2 both, 8 append, 0x100 create, 0x200 truncate,
 *                0x400 only if new (KIV_FILEO_EXCL), 0x4000 text, 0x8000 binary
 *   share flags  0x10 nothing, 0x20 reading, 0x30 writing, 0x40 all: what others may do meanwhile
 *   permissions  of a new file: 0x100 reading, 0x80 writing
 *   origin       0 the start, 1 the position, 2 the end
 *
 * A file that is opened neither as text nor as binary is what the runtime's default says, which
 * is text. In text mode the runtime drops the carriage return before a line feed that it reads and
 * puts one before each that it writes, and takes byte 26 for the end: counts of bytes are then not
 * distances in the file.
 *
 * In failover mode every operation here but KivSdFileClose, KivSdIsDirectIO and KivSdIsNoWaitIO
 * first calls the lease guard (settings.h), before it looks at its arguments. A context may always
 * be null. OS errors are errno unless it is said otherwise. Outputs are written whether the call
 * succeeds or fails, and left alone when an argument is bad.
 *
 * Any thread. Threads that use one descriptor at a time share its position; only the positioned
 * operations carry theirs with them.
 *
 * Danger: KivSdFilePRead, KivSdFilePWrite and what is built on them take only descriptors of files
 * that are opened without FILE_FLAG_OVERLAPPED, as all are that the runtime opens. On a descriptor
 * that the host made of an overlapped handle a transfer may be reported as a failure with OS error
 * 997 and go on: the system then writes into the buffer, and into what was the stack of the
 * call.
 *
 * Example: examples/files.c. */
#ifndef KIVSDU_FILE_H
#define KIVSDU_FILE_H

#include "api.h"
#include "context.h"

/* What stands for a file where there is none. */
#define KIV_FILE_NONE 0xFFFFFFFFu

/* Open flag: fail if the file exists. Only the operations that end in ExclusiveMode may ask for
 * it, and they add it themselves. */
#define KIV_FILEO_EXCL 0x400u

/* ---- Opening and closing ---- */

/* Makes a file, or empties one that exists, and opens it for writing.
 *
 *   path         must not be null
 *   permissions  the runtime's, of a new file
 *   file         receives the descriptor, KIV_FILE_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     path or file is null
 *       KIV_ST_FILE_CREATE  not made */
KIVSDU_API uint32_t KivSdFileCreate(KivSdContext* ctx, const char* path, uint32_t permissions,
                                    uint32_t* file);

/* Opens a file that others may open too. The two do the same: files may be larger than 4 GiB with
 * either.
 *
 *   path         must not be null
 *   openFlags    without KIV_FILEO_EXCL: with it, once nothing is null, the process ends with an
 *                assertion
 *   permissions  the runtime's, of a new file
 *   file         receives the descriptor, KIV_FILE_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   path or file is null
 *       KIV_ST_FILE_OPEN  not opened */
KIVSDU_API uint32_t KivSdFileOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                  uint32_t permissions, uint32_t* file);
KIVSDU_API uint32_t KivSdFileOpen64(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                    uint32_t permissions, uint32_t* file);

/* The same with KIV_FILEO_EXCL added: when openFlags say that a file is to be made, one that
 * exists is a failure, with OS error 17. */
KIVSDU_API uint32_t KivSdFileOpenExclusiveMode(KivSdContext* ctx, const char* path,
                                               uint32_t openFlags, uint32_t permissions,
                                               uint32_t* file);

/* Opens a file and says what others may do with it meanwhile.
 *
 *   path         must not be null
 *   openFlags    without KIV_FILEO_EXCL: with it, once nothing is null, the process ends with an
 *                assertion
 *   shareFlags   replaced by 0x40, all sharing, in failover mode
 *   permissions  the runtime's, of a new file
 *   file         receives the descriptor, KIV_FILE_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT         path or file is null
 *       KIV_ST_FILE_SHARING     another has the file open and the two do not go together
 *       KIV_ST_FILE_SHARE_OPEN  not opened for any other reason */
KIVSDU_API uint32_t KivSdFileSOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                   uint32_t shareFlags, uint32_t permissions, uint32_t* file);

/* The same with KIV_FILEO_EXCL added. */
KIVSDU_API uint32_t KivSdFileSOpenExclusiveMode(KivSdContext* ctx, const char* path,
                                                uint32_t openFlags, uint32_t shareFlags,
                                                uint32_t permissions, uint32_t* file);

/* Closes a file. KIV_FILE_NONE is refused with OS error 9, without asking the runtime.
 *
 * 0, or KIV_ST_FILE_CLOSE  not closed */
KIVSDU_API uint32_t KivSdFileClose(KivSdContext* ctx, uint32_t file);

/* ---- Transferring ---- */

/* Reads from the file's position on.
 *
 *   buffer  must not be null
 *   length  bytes at most
 *   count   receives the bytes read: 0 at the end of the file, fewer than length shortly before
 *           it, 0xFFFFFFFF on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   buffer or count is null
 *       KIV_ST_FILE_READ  not read */
KIVSDU_API uint32_t KivSdFileRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t length,
                                  uint32_t* count);

/* Reads from `offset` on and leaves the file's position behind what was read.
 *
 *   buffer  must not be null; receives the file's bytes as they are, in text mode too
 *   offset  bytes from the start: what lies beyond 4 GiB cannot be read so
 *   length  bytes at most
 *   count   receives the bytes read; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   buffer or count is null
 *       KIV_ST_FILE_READ  not read: the descriptor is not open, OS error 9; or GetLastError, 38
 *                         when offset is at or behind the end of the file */
KIVSDU_API uint32_t KivSdFilePRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t offset,
                                   uint32_t length, uint32_t* count);

/* Writes at the file's position.
 *
 *   buffer  must not be null
 *   length  bytes
 *   count   receives the bytes written, 0xFFFFFFFF on failure; a disk that fills up meanwhile can
 *           make it less than length, which is no failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    buffer or count is null
 *       KIV_ST_DISK_FULL   no room, OS error 28
 *       KIV_ST_FILE_WRITE  not written for any other reason */
KIVSDU_API uint32_t KivSdFileWrite(KivSdContext* ctx, uint32_t file, const void* buffer,
                                   uint32_t length, uint32_t* count);

/* Writes at `offset` and leaves the file's position behind what was written.
 *
 *   buffer   must not be null; written as it is, in text mode too
 *   offset   bytes from the start: nothing can be written beyond 4 GiB so
 *   length   bytes
 *   count    receives the bytes written; must not be null
 *   osError  receives the OS error, 0 before anything else is done; may be null
 *
 * 0, or KIV_ST_ARGUMENT    buffer or count is null
 *       KIV_ST_FILE_READ   the descriptor is not open, OS error 9
 *       KIV_ST_DISK_FULL   no room, OS error 112
 *       KIV_ST_FILE_WRITE  not written for any other reason; OS error GetLastError */
KIVSDU_API uint32_t KivSdFilePWrite(KivSdContext* ctx, uint32_t file, const void* buffer,
                                    uint32_t offset, uint32_t length, uint32_t* count,
                                    uint32_t* osError);

/* Reads one line, with its line feed, or as much of it as there is room for; the rest is read by
 * the next call. A carriage return stays.
 *
 *   buffer     must not be null; receives the bytes and a terminator
 *   sizeBytes  of the buffer; with 1 nothing is read and the line is empty
 *
 * Open the file as binary and keep to its first 2 GiB: the position behind the line is counted
 * from the bytes that were read, in 32 bits, so in text mode each call lands one byte early for
 * every carriage return that the runtime dropped.
 *
 * Reads sizeBytes - 1 bytes and seeks back, each as an operation of its own: in failover mode the
 * guard runs for each of them.
 *
 * 0, or KIV_ST_ARGUMENT   buffer is null, or sizeBytes is 0
 *       KIV_ST_FILE_END   there is nothing more to read; OS error 0
 *       KIV_ST_FILE_GETS  the file could not be read or positioned */
KIVSDU_API uint32_t KivSdFileGets(KivSdContext* ctx, uint32_t file, char* buffer,
                                  uint32_t sizeBytes);

/* Waits until what was written to the file is on the device; docs/files.md says what that is worth.
 *
 * 0, or KIV_ST_FILE_FLUSH  not flushed */
KIVSDU_API uint32_t KivSdFileFlush(KivSdContext* ctx, uint32_t file);

/* ---- Position and length ---- */

/* Moves the file's position; behind the end too.
 *
 *   position  receives the new position, all bits set on failure; may be null. The first goes up
 *             to 2 GiB only
 *
 * 0, or KIV_ST_FILE_SEEK  not moved */
KIVSDU_API uint32_t KivSdFileLSeek(KivSdContext* ctx, uint32_t file, int32_t offset,
                                   uint32_t origin, uint32_t* position);
KIVSDU_API uint32_t KivSdFileLSeek64(KivSdContext* ctx, uint32_t file, int64_t offset,
                                     uint32_t origin, uint64_t* position);

/* Tells the file's position, up to 2 GiB.
 *
 *   position  0xFFFFFFFF on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   position is null
 *       KIV_ST_FILE_TELL  not known */
KIVSDU_API uint32_t KivSdFileTell(KivSdContext* ctx, uint32_t file, uint32_t* position);

/* Tells the file's length, up to 2 GiB.
 *
 *   length  bytes, 0xFFFFFFFF on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     length is null
 *       KIV_ST_FILE_LENGTH  not known */
KIVSDU_API uint32_t KivSdFileLength(KivSdContext* ctx, uint32_t file, uint32_t* length);

/* Tells whether the position is at the end of the file.
 *
 *   atEnd  1 at the end, 0 before it, 0xFF when that is not known, as for a bad descriptor; must
 *          not be null
 *
 * 0, or KIV_ST_ARGUMENT  atEnd is null */
KIVSDU_API uint32_t KivSdFileEof(KivSdContext* ctx, uint32_t file, uint8_t* atEnd);

/* Cuts a file off, or lengthens it with zeros.
 *
 *   file       a descriptor in 64 bits, of which the lower 32 count
 *   length     bytes, of which the lower 32 bits count: up to 2 GiB, and a length beyond 4 GiB
 *              cuts the file to what is left of it in 32 bits
 *   newLength  receives the length that was asked for, 0 on failure; may be null
 *   osError    receives the OS error, 0 on success; may be null
 *
 * 0, or KIV_ST_DISK_FULL       no room, OS error 28
 *       KIV_ST_DIRECT_SET_END  not set for any other reason */
KIVSDU_API uint32_t KivSdFileSetEndOfFile(KivSdContext* ctx, uint64_t file, uint64_t length,
                                          uint32_t* newLength, uint32_t* osError);

/* ---- Files by name ---- */

/* Tests a file.
 *
 *   mode     0 whether it exists, 2 may be written, 4 may be read, 6 both
 *   granted  receives 1, or 0 also for a path that is null; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  granted is null */
KIVSDU_API uint32_t KivSdFileAccess(KivSdContext* ctx, const char* path, uint32_t mode,
                                    uint8_t* granted);

/* Removes a file.
 *
 * 0, or KIV_ST_ARGUMENT     path is null
 *       KIV_ST_FILE_REMOVE  not removed */
KIVSDU_API uint32_t KivSdFileRemove(KivSdContext* ctx, const char* path);

/* Bits of a file's status word. */
#define KIV_FSTAT_UNSETTLED 0x01u /* nobody has tried to open the file */
#define KIV_FSTAT_INUSE 0x02u     /* it could not be had for reading and writing alone */
#define KIV_FSTAT_FREE 0x04u      /* it could */
#define KIV_FSTAT_NOTEXIST 0x08u  /* it does not exist */
#define KIV_FSTAT_NOREAD 0x10u    /* it may not be read */

/* Finds out whether somebody uses a file, by opening it for reading and writing alone and closing
 * it at once. In failover mode it is opened with all sharing, so that a file in use is found free
 * as long as its other users share it.
 *
 *   status  in and out; must not be null. Sets KIV_FSTAT_UNSETTLED and then, for a file that
 *             does not exist    sets KIV_FSTAT_NOTEXIST
 *             may not be read   sets KIV_FSTAT_NOREAD
 *             cannot be opened  sets KIV_FSTAT_INUSE, clears the free and the unsettled bit
 *             can be opened     sets KIV_FSTAT_FREE, clears the other two
 *           All other bits stay: those of an earlier state too, so pass a word of 0 to start
 *
 * A file that may only be read counts as in use.
 *
 * 0, or KIV_ST_ARGUMENT  path or status is null */
KIVSDU_API uint32_t KivSdFileGetStatus(KivSdContext* ctx, const char* path, uint32_t* status);

/* Makes the name of a temporary file that did not exist a moment ago; makes no file.
 *
 *   prefix  at most two characters of it, for the name to begin with; null or empty for "qx", and
 *           "x" follows a prefix of one character. Of names that are taken the second character
 *           changes from the 6th attempt on, the first from the 258th
 *   name    receives at most 1029 bytes (KIV_SYSTEM_PATH_MAX), terminator included: a path in the
 *           runtime's folder for temporary files; must not be null
 *
 * 0, or KIV_ST_ARGUMENT        name is null
 *       KIV_ST_FILE_TEMP_NAME  the runtime made no name; or, with OS error 0, the name is too long
 *                              or 16384 names are taken */
KIVSDU_API uint32_t KivSdFileTempNameGet(KivSdContext* ctx, const char* prefix, char* name);

/* ---- Kinds of transfer ---- */

/* Tell whether a file's transfers may bypass the system's cache, and whether they may be waited
 * for later. Here they may, whatever the file: the two are one entry with one address.
 *
 *   first, second  not looked at
 *   flag           receives 1; may be null
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdIsDirectIO(KivSdContext* ctx, uint64_t first, uint64_t second,
                                    uint8_t* flag);
KIVSDU_API uint32_t KivSdIsNoWaitIO(KivSdContext* ctx, uint64_t first, uint64_t second,
                                    uint8_t* flag);

#endif
