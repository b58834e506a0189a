/* Files as streams: opening, reading, writing, positioning, lines, and queries by name.
 *
 * A file is a descriptor of the C runtime that the library shares with its callers (README.md); on
 * Linux, of the kernel. Descriptors of the library work with the runtime's own functions, and the
 * reverse; but on Linux close them with KivSdFileClose only. Paths, open flags, permissions and
 * seek origins are passed to the runtime unchanged. Their values are part of this interface, on
 * Linux too, where flags without meaning are refused (docs/linux.md):
 *
 *   open flags   KIV_FILEO_...
 *   share flags  KIV_FILE_DENY_...
 *   permissions  KIV_FILE_MAY_...
 *   origin       KIV_SEEK_... (fileflags.h)
 *
 * Without the text or the binary flag, the runtime's default applies, which is text. In text mode
 * the runtime drops the carriage return before each line feed that it reads, adds one before each
 * line feed that it writes, and takes byte 26 for the end of the file. A count of bytes is then not
 * a distance in the file.
 *
 * In failover mode every operation, except KivSdFileClose, KivSdIsDirectIO and KivSdIsNoWaitIO,
 * calls the lease guard (settings.h) before it checks its arguments. A context may always be null.
 * Outputs are written on success and on failure; they are unchanged if an argument is invalid.
 *
 * Any thread. Threads that use one descriptor share its position. The positioned operations carry
 * their own offset.
 *
 * Danger: KivSdFilePRead, KivSdFilePWrite and the operations that call them need a file that was
 * opened without FILE_FLAG_OVERLAPPED. The runtime opens every file without it. If the host made
 * the descriptor from an overlapped handle, a transfer may be reported as failed with OS error 997
 * and still continue: the system then writes into the buffer, and into stack memory of a call that
 * has returned.
 *
 * Example: examples/files.c. */
#ifndef KIVSDU_FILE_H
#define KIVSDU_FILE_H

#include "api.h"
#include "context.h"
#include "fileflags.h"

/* The value that stands for no file. */
#define KIV_FILE_NONE 0xFFFFFFFFu

/* Open flags: one of the first three, and any of the others. */
#define KIV_FILEO_READ 0x0u
#define KIV_FILEO_WRITE 0x1u
#define KIV_FILEO_READ_WRITE 0x2u
#define KIV_FILEO_APPEND 0x8u         /* each write goes to the end of the file */
#define KIV_FILEO_RANDOM 0x10u        /* a hint: access in any order */
#define KIV_FILEO_SEQUENTIAL 0x20u    /* a hint: access from the start to the end */
#define KIV_FILEO_TEMPORARY 0x40u     /* removes the file with its last descriptor */
#define KIV_FILEO_NOT_INHERITED 0x80u /* child processes do not inherit the descriptor */
#define KIV_FILEO_CREATE 0x100u       /* creates the file if it does not exist */
#define KIV_FILEO_TRUNCATE 0x200u     /* empties the file */
#define KIV_FILEO_SHORT_LIVED 0x1000u /* a hint: keep the data in memory */
#define KIV_FILEO_TEXT 0x4000u
#define KIV_FILEO_BINARY 0x8000u

/* Open flag: fail if the file exists. Only the operations that end in ExclusiveMode use it, and
 * they add it themselves. */
#define KIV_FILEO_EXCL 0x400u

/* Share flags: the access that others are denied while the file is open. */
#define KIV_FILE_DENY_ALL 0x10u
#define KIV_FILE_DENY_WRITE 0x20u
#define KIV_FILE_DENY_READ 0x30u
#define KIV_FILE_DENY_NONE 0x40u

/* Permissions of a new file. Without KIV_FILE_MAY_WRITE it is read-only. */
#define KIV_FILE_MAY_READ 0x100u
#define KIV_FILE_MAY_WRITE 0x80u

/* The questions of KivSdFileAccess. Add the last two up to ask for both. */
#define KIV_FILE_EXISTS 0u
#define KIV_FILE_WRITABLE 2u
#define KIV_FILE_READABLE 4u

/* ---- Opening and closing ---- */

/* Creates a file, or truncates an existing one, and opens it for writing in text mode: each line
 * feed is written as a carriage return and a line feed. For bytes, use KivSdFileOpen with
 * KIV_FILEO_BINARY.
 *
 *   path         must not be null
 *   permissions  of a new file; the runtime's values
 *   file         receives the descriptor, KIV_FILE_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     path or file is null
 *       KIV_ST_FILE_CREATE  not created
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileCreate(KivSdContext* ctx, const char* path, uint32_t permissions,
                                    uint32_t* file);

/* Open a file and let others open it too. The two operations do the same work: both support files
 * of more than 4 GiB.
 *
 *   path         must not be null
 *   openFlags    must not contain KIV_FILEO_EXCL: after the null checks, an assertion ends the
 *                process
 *   permissions  of a new file; the runtime's values
 *   file         receives the descriptor, KIV_FILE_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   path or file is null
 *       KIV_ST_FILE_OPEN  not opened
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                  uint32_t permissions, uint32_t* file);
KIVSDU_API uint32_t KivSdFileOpen64(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                    uint32_t permissions, uint32_t* file);

/* KivSdFileOpen with KIV_FILEO_EXCL added. If openFlags ask to create the file and it exists, the
 * operation fails with KIV_ST_FILE_OPEN, OS error 17. */
KIVSDU_API uint32_t KivSdFileOpenExclusiveMode(KivSdContext* ctx, const char* path,
                                               uint32_t openFlags, uint32_t permissions,
                                               uint32_t* file);

/* Opens a file and limits the access of others.
 *
 *   path         must not be null
 *   openFlags    must not contain KIV_FILEO_EXCL: after the null checks, an assertion ends the
 *                process
 *   shareFlags   KIV_FILE_DENY_...; in failover mode replaced by KIV_FILE_DENY_NONE
 *   permissions  of a new file; the runtime's values
 *   file         receives the descriptor, KIV_FILE_NONE on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT         path or file is null
 *       KIV_ST_FILE_SHARING     sharing violation: the file is open elsewhere in a conflicting
 *                               mode; OS error 13 (Linux: 16)
 *       KIV_ST_FILE_SHARE_OPEN  not opened for any other reason
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileSOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                   uint32_t shareFlags, uint32_t permissions, uint32_t* file);

/* KivSdFileSOpen with KIV_FILEO_EXCL added. If openFlags ask to create the file and it exists, the
 * operation fails with KIV_ST_FILE_SHARE_OPEN, OS error 17. */
KIVSDU_API uint32_t KivSdFileSOpenExclusiveMode(KivSdContext* ctx, const char* path,
                                                uint32_t openFlags, uint32_t shareFlags,
                                                uint32_t permissions, uint32_t* file);

/* Closes a file. For KIV_FILE_NONE it fails with OS error 9 without calling the runtime.
 *
 * 0, or KIV_ST_FILE_CLOSE  not closed
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileClose(KivSdContext* ctx, uint32_t file);

/* ---- Transferring ---- */

/* Reads from the file's position and advances it.
 *
 *   buffer  must not be null
 *   length  bytes at most
 *   count   receives the bytes read; must not be null. 0 at the end of the file, less than length
 *           near the end, 0xFFFFFFFF on failure
 *
 * 0, or KIV_ST_ARGUMENT   buffer or count is null
 *       KIV_ST_FILE_READ  not read
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t length,
                                  uint32_t* count);

/* Reads at `offset` and leaves the file's position behind the bytes read.
 *
 *   buffer  receives the file's bytes, unconverted in text mode too; must not be null
 *   offset  byte offset; only the first 4 GiB are addressable
 *   length  bytes at most
 *   count   receives the bytes read; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   buffer or count is null
 *       KIV_ST_FILE_READ  not read. OS error 9 if the descriptor is not open, 38 if offset is
 *                         at or behind the end of the file
 * OS error: errno of a bad descriptor, else GetLastError. */
KIVSDU_API uint32_t KivSdFilePRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t offset,
                                   uint32_t length, uint32_t* count);

/* Writes at the file's position and advances it.
 *
 *   buffer  must not be null
 *   length  bytes
 *   count   receives the bytes written, 0xFFFFFFFF on failure; must not be null. If the disk fills
 *           up during the write, it is less than length, and the status is 0
 *
 * 0, or KIV_ST_ARGUMENT    buffer or count is null
 *       KIV_ST_DISK_FULL   no room, OS error 28
 *       KIV_ST_FILE_WRITE  not written for any other reason
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileWrite(KivSdContext* ctx, uint32_t file, const void* buffer,
                                   uint32_t length, uint32_t* count);

/* Writes at `offset` and leaves the file's position behind the bytes written.
 *
 *   buffer   written unconverted in text mode too; must not be null
 *   offset   byte offset; only the first 4 GiB are addressable
 *   length   bytes
 *   count    receives the bytes written; must not be null
 *   osError  set to 0 first, then receives the OS error; may be null
 *
 * 0, or KIV_ST_ARGUMENT    buffer or count is null
 *       KIV_ST_FILE_READ   the descriptor is not open, OS error 9. Compatibility: hosts expect the
 *                          status of a read here
 *       KIV_ST_DISK_FULL   no room, OS error 112
 *       KIV_ST_FILE_WRITE  not written for any other reason
 * OS error: errno of a bad descriptor, else GetLastError. */
KIVSDU_API uint32_t KivSdFilePWrite(KivSdContext* ctx, uint32_t file, const void* buffer,
                                    uint32_t offset, uint32_t length, uint32_t* count,
                                    uint32_t* osError);

/* Reads one line with its line feed. If the buffer is too small, it reads the beginning of the
 * line; the next call continues. Carriage returns are kept.
 *
 *   buffer     receives the bytes and a terminator; must not be null
 *   sizeBytes  size of the buffer; if 1, nothing is read and the text is empty
 *
 * Open the file as binary, and use only its first 2 GiB. The position behind the line is computed
 * in 32 bits from the bytes read. In text mode it is one byte too low for every carriage return
 * that the runtime dropped.
 *
 * The operation reads sizeBytes - 1 bytes and seeks back, by KivSdFileRead and KivSdFileLSeek: in
 * failover mode the guard runs for each of them.
 *
 * 0, or KIV_ST_ARGUMENT   buffer is null, or sizeBytes is 0
 *       KIV_ST_FILE_END   the end of the file; OS error 0
 *       KIV_ST_FILE_GETS  the file could not be read or positioned
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileGets(KivSdContext* ctx, uint32_t file, char* buffer,
                                  uint32_t sizeBytes);

/* Waits until all data written to the file is on the device. docs/files.md says which events the
 * data then survives.
 *
 * 0, or KIV_ST_FILE_FLUSH  not flushed
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileFlush(KivSdContext* ctx, uint32_t file);

/* ---- Position and length ---- */

/* Move the file's position, also beyond the end of the file.
 *
 *   offset    bytes from the origin; may be negative
 *   origin    KIV_SEEK_...
 *   position  receives the new position, all bits set on failure; may be null. KivSdFileLSeek
 *             supports positions up to 2 GiB
 *
 * 0, or KIV_ST_FILE_SEEK  not moved
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileLSeek(KivSdContext* ctx, uint32_t file, int32_t offset,
                                   uint32_t origin, uint32_t* position);
KIVSDU_API uint32_t KivSdFileLSeek64(KivSdContext* ctx, uint32_t file, int64_t offset,
                                     uint32_t origin, uint64_t* position);

/* Returns the file's position, up to 2 GiB.
 *
 *   position  receives bytes from the start, 0xFFFFFFFF on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   position is null
 *       KIV_ST_FILE_TELL  not known
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileTell(KivSdContext* ctx, uint32_t file, uint32_t* position);

/* Returns the file's length, up to 2 GiB.
 *
 *   length  receives bytes, 0xFFFFFFFF on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT     length is null
 *       KIV_ST_FILE_LENGTH  not known
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileLength(KivSdContext* ctx, uint32_t file, uint32_t* length);

/* Returns whether the file's position is at its end.
 *
 *   atEnd  receives 1 at the end, 0 before it, 0xFF on failure, as for a bad descriptor; must not
 *          be null
 *
 * 0, or KIV_ST_ARGUMENT  atEnd is null
 * Compatibility: a failure returns 0; hosts check the flag. */
KIVSDU_API uint32_t KivSdFileEof(KivSdContext* ctx, uint32_t file, uint8_t* atEnd);

/* Truncates a file, or extends it with zeros.
 *
 *   file       a descriptor in 64 bits; only the low 32 count
 *   length     bytes; only the low 32 bits count, up to 2 GiB. Danger: a length above 4 GiB
 *              truncates the file to its low 32 bits
 *   newLength  receives the requested length, 0 on failure; may be null
 *   osError    receives the OS error, 0 on success; may be null
 *
 * 0, or KIV_ST_DISK_FULL       no room, OS error 28
 *       KIV_ST_DIRECT_SET_END  not set for any other reason
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileSetEndOfFile(KivSdContext* ctx, uint64_t file, uint64_t length,
                                          uint32_t* newLength, uint32_t* osError);

/* ---- Files by name ---- */

/* Tests access to a file.
 *
 *   path     if null, granted receives 0
 *   mode     KIV_FILE_EXISTS, KIV_FILE_WRITABLE, KIV_FILE_READABLE, or the sum of the last two
 *   granted  receives 1 or 0; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  granted is null */
KIVSDU_API uint32_t KivSdFileAccess(KivSdContext* ctx, const char* path, uint32_t mode,
                                    uint8_t* granted);

/* Removes a file.
 *
 *   path  must not be null
 *
 * 0, or KIV_ST_ARGUMENT     path is null
 *       KIV_ST_FILE_REMOVE  not removed
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileRemove(KivSdContext* ctx, const char* path);

/* Bits of a file's status word; see KivSdFileGetStatus. */
#define KIV_FSTAT_UNSETTLED 0x01u /* no open was tried */
#define KIV_FSTAT_INUSE 0x02u     /* an exclusive open failed */
#define KIV_FSTAT_FREE 0x04u      /* an exclusive open succeeded */
#define KIV_FSTAT_NOTEXIST 0x08u  /* the file does not exist */
#define KIV_FSTAT_NOREAD 0x10u    /* the file cannot be read */

/* Tests whether a file is in use: opens it for reading and writing with exclusive access, and
 * closes it at once. In failover mode the open shares everything: a file in use then counts as free
 * if its other users share it. A file that can only be read counts as in use.
 *
 *   path    must not be null
 *   status  in and out; must not be null. Other bits are kept, also those of an earlier test: start
 *           with 0
 *
 * KIV_FSTAT_UNSETTLED is set first. Then the bits depend on the file:
 *
 *   does not exist    sets KIV_FSTAT_NOTEXIST
 *   cannot be read    sets KIV_FSTAT_NOREAD
 *   cannot be opened  sets KIV_FSTAT_INUSE, clears KIV_FSTAT_FREE and KIV_FSTAT_UNSETTLED
 *   can be opened     sets KIV_FSTAT_FREE, clears KIV_FSTAT_INUSE and KIV_FSTAT_UNSETTLED
 *
 * 0, or KIV_ST_ARGUMENT  path or status is null */
KIVSDU_API uint32_t KivSdFileGetStatus(KivSdContext* ctx, const char* path, uint32_t* status);

/* Makes the name of a temporary file in the runtime's folder for such files. No file of this name
 * existed at the time of the check. The file is not created: open it with
 * KivSdFileOpenExclusiveMode.
 *
 *   prefix  the name begins with its first two characters; null or empty stands for "qx", and a
 *           prefix of one character is completed with "x". If names are taken, the second character
 *           changes from the 6th attempt, the first from the 258th
 *   name    receives the path, at most 1029 bytes (KIV_SYSTEM_PATH_MAX) with its terminator; must
 *           not be null
 *
 * 0, or KIV_ST_ARGUMENT        name is null
 *       KIV_ST_FILE_TEMP_NAME  the runtime made no name; or, with OS error 0, the name is too long
 *                              or 16384 names are taken
 * OS error: errno. */
KIVSDU_API uint32_t KivSdFileTempNameGet(KivSdContext* ctx, const char* prefix, char* name);

/* ---- Kinds of transfer ---- */

/* Return whether transfers of a file can bypass the system's cache, and whether they can be started
 * without waiting. On this platform the answer is always yes. Both names export one function.
 *
 *   first, second  any values
 *   flag           receives 1; may be null
 *
 * Always return 0. */
KIVSDU_API uint32_t KivSdIsDirectIO(KivSdContext* ctx, uint64_t first, uint64_t second,
                                    uint8_t* flag);
KIVSDU_API uint32_t KivSdIsNoWaitIO(KivSdContext* ctx, uint64_t first, uint64_t second,
                                    uint8_t* flag);

#endif
