/* Directories, links, and the text of paths.
 *
 * A path has at most 1029 characters with its terminator (KIV_SYSTEM_PATH_MAX). The separator is
 * "\"; the system also accepts "/". On Linux the separator is "/" alone.
 *
 * In failover mode every operation, except KivSdDirChange, calls the lease guard (settings.h)
 * before it checks its arguments, also if it works only on text. An operation that calls others
 * calls the guard again with each of them. A context may always be null. Any thread, but the
 * process has only one working directory. */
#ifndef KIVSDU_PATH_H
#define KIVSDU_PATH_H

#include "api.h"
#include "context.h"

/* ---- Directories ---- */

/* Changes the process's working directory.
 *
 *   path  must not be null
 *
 * 0, or KIV_ST_ARGUMENT     path is null
 *       KIV_ST_DIR_MISSING  the directory does not exist; OS error 2
 *       KIV_ST_DIR_CHANGE   not changed for any other reason
 * OS error: errno. */
KIVSDU_API uint32_t KivSdDirChange(KivSdContext* ctx, const char* path);

/* Creates a directory. Its parent must exist.
 *
 *   path  must not be null
 *
 * 0, or KIV_ST_ARGUMENT    path is null
 *       KIV_ST_DIR_CREATE  not created; OS error 17 if the path exists
 * OS error: errno. */
KIVSDU_API uint32_t KivSdDirCreate(KivSdContext* ctx, const char* path);

/* Creates a directory unless the path exists, as a directory or a file. Arguments and statuses are
 * those of KivSdDirCreate. */
KIVSDU_API uint32_t KivSdDirCreateEx(KivSdContext* ctx, const char* path);

/* The longest path of KivSdCreatePath, and its status for a path that is longer or null. */
#define KIV_CREATE_PATH_MAX 1029u /* characters before the terminator */
#define KIV_CREATE_PATH_REFUSED 1u

/* Creates a directory and its missing parents.
 *
 *   path  separated by "\" only; absolute or relative
 *
 * 0, or KIV_CREATE_PATH_REFUSED  path is null or longer than KIV_CREATE_PATH_MAX. Compatibility:
 *                                this is no status of status.h, and the context is unchanged
 *       KIV_ST_DIR_CREATE        a directory could not be created; its new parents stay
 * OS error: errno. */
KIVSDU_API uint32_t KivSdCreatePath(KivSdContext* ctx, const char* path);

/* Removes a directory with all its contents, including read-only files.
 *
 * Danger: a junction in it is treated as a directory. The contents of the junction's target are
 * removed too.
 *
 *   path  must be neither null nor empty
 *
 * 0                  all files are removed. The directory itself, or an emptied directory in it,
 *                    may remain, for example because it is a working directory
 * KIV_ST_ARGUMENT    path is null or empty
 * KIV_ST_DIR_REMOVE  something was not removed; the files before it are gone. The OS error is that
 *                    of removing the directory itself. If that succeeded, it is the error that
 *                    stopped the work; 206 if a path is too long
 * OS error: errno; GetLastError if the search failed. */
KIVSDU_API uint32_t KivSdDirRemove(KivSdContext* ctx, const char* path);

/* Returns whether a file's attributes are those of a directory.
 *
 *   attributes   the low byte of a find record's attributes (filesearch.h)
 *   isDirectory  receives 1 or 0; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  isDirectory is null */
KIVSDU_API uint32_t KivSdIsAttrDirectory(KivSdContext* ctx, uint8_t attributes,
                                         uint8_t* isDirectory);

/* ---- Links ---- */

/* Creates a hard link: another name of a file, on its volume. On a system with a major version
 * below 5, which has no links, it does nothing and returns 0.
 *
 *   existing, newLink  paths; the system checks them
 *   ignored            any value
 *
 * 0, or KIV_ST_FILE_CREATE  not created
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdCreateLink(KivSdContext* ctx, const char* existing, const char* newLink,
                                    uint32_t ignored);

/* Removes a name of a file. The file is removed with its last name.
 *
 *   path  the system checks it
 *
 * 0, or KIV_ST_FILE_REMOVE  not removed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdUnLink(KivSdContext* ctx, const char* path);

/* ---- Paths as texts ---- */

/* Concatenates parts to a path, without adding separators. Creates nothing on disk.
 *
 *   count  number of parts that follow
 *   out    receives the path; must not be null, and must have room for it
 *   ...    texts; null and empty texts are skipped
 *
 * 0, or KIV_ST_ARGUMENT  out is null */
KIVSDU_API uint32_t KivSdPathCreate(KivSdContext* ctx, uint16_t count, char* out, ...);

/* Makes a path absolute and resolves "." and ".." in it. The path need not exist.
 *
 *   sizeBytes  size of out. Danger: it must not be negative. The system takes a negative size for
 *              one above 2 GiB, and writes the whole path past the end of out
 *   out        receives the path; its contents are undefined on failure
 *
 * 0                   out holds the path. Compatibility: also returned if the system cannot make
 *                     the path
 * KIV_ST_FILE_LENGTH  the path does not fit, or the size is negative */
KIVSDU_API uint32_t KivSdFileGetCanonicalPath(const char* path, int32_t sizeBytes, char* out);

/* Copies the text after the last "." of a path. The dot may be in a directory: the result for
 * "dir.v1\name" is "v1\name".
 *
 *   path        null counts as empty
 *   includeDot  not 0 to include the "."
 *   out         receives the text, empty if there is no dot; must have room for it
 *
 * Returns out. */
KIVSDU_API char* KivSdFileGetExtension(const char* path, uint8_t includeDot, char* out);

/* Copies a path up to and including its last "\" or "/". The result is ".\" if there is none.
 *
 *   path  null counts as empty
 *   out   receives the text; must have room for it
 *
 * Returns out. */
KIVSDU_API char* KivSdFileGetParentPath(const char* path, char* out);

/* ---- Packed dates ---- */

/* Computes a number from a packed time and date:
 *
 *   time  hours << 11 | minutes << 5 | seconds / 2
 *   date  (year - 1980) << 9 | month << 5 | day
 *
 * Compatibility: the number is no calendar time. The fields are multiplied in their packed
 * positions, and the month is ignored. Equal fields result in equal numbers, and hosts only compare
 * them. */
KIVSDU_API uint32_t KivSdTimetFromDOS(uint16_t time, uint16_t date);

#endif
