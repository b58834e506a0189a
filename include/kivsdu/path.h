/* Directories, links, and paths as texts.
 *
 * A path has at most 1029 characters with its terminator (KIV_SYSTEM_PATH_MAX). Directories in it
 * are separated by "\"; the system understands "/" too. OS errors are errno unless it is said
 * otherwise.
 *
 * In failover mode every operation here but KivSdDirChange first calls the lease guard
 * (settings.h), before it looks at its arguments, those on texts alone too; one that is made of
 * others calls it again with each of them. A context may always be null. Any thread; but the
 * working directory is the process's. */
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
 *       KIV_ST_DIR_MISSING  there is no such directory; OS error 2
 *       KIV_ST_DIR_CHANGE   not changed for any other reason */
KIVSDU_API uint32_t KivSdDirChange(KivSdContext* ctx, const char* path);

/* Makes a directory in one that exists.
 *
 *   path  must not be null
 *
 * 0, or KIV_ST_ARGUMENT    path is null
 *       KIV_ST_DIR_CREATE  not made; OS error 17 when the path exists */
KIVSDU_API uint32_t KivSdDirCreate(KivSdContext* ctx, const char* path);

/* Makes a directory unless the path exists, be it as a directory or as a file.
 *
 * As KivSdDirCreate. */
KIVSDU_API uint32_t KivSdDirCreateEx(KivSdContext* ctx, const char* path);

/* The longest path that KivSdCreatePath takes, and what it returns for one that it does not. */
#define KIV_CREATE_PATH_MAX 1029u /* characters before the terminator */
#define KIV_CREATE_PATH_REFUSED 1u

/* Makes a directory and those above it that do not exist.
 *
 *   path  separated by "\" alone, relative or not
 *
 * 0, or KIV_CREATE_PATH_REFUSED  path is null or longer than KIV_CREATE_PATH_MAX. This is no status
 *                                of the table, and the context is left alone
 *       KIV_ST_DIR_CREATE        a directory could not be made; those above it stay */
KIVSDU_API uint32_t KivSdCreatePath(KivSdContext* ctx, const char* path);

/* Removes a directory with all that is in it, files that are read-only included. A junction in it
 * is a directory like any other: what it leads to goes too.
 *
 *   path  must be neither null nor empty
 *
 * 0, also when all files are gone and an emptied directory stays, be it the directory itself or
 * one in it: it may be somebody's working directory
 * KIV_ST_ARGUMENT    path is null or empty
 * KIV_ST_DIR_REMOVE  not all was removed; what was is gone. The OS error is that of removing the
 *                    directory itself; if that went well, of what broke the work off: errno, the
 *                    system's error of the search, or 206 when a path is too long */
KIVSDU_API uint32_t KivSdDirRemove(KivSdContext* ctx, const char* path);

/* Tells whether attributes of a file are a directory's.
 *
 *   attributes   the low byte of those of a find record (filesearch.h)
 *   isDirectory  receives 1 or 0; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  isDirectory is null */
KIVSDU_API uint32_t KivSdIsAttrDirectory(KivSdContext* ctx, uint8_t attributes,
                                         uint8_t* isDirectory);

/* ---- Links ---- */

/* Gives a file another name on its volume. On a system of a major version before 5, which has no
 * links, nothing is done, and that is a success.
 *
 *   existing, newLink  paths; the system judges them
 *   ignored            any value
 *
 * 0, or KIV_ST_FILE_CREATE  not linked; the OS error is the system's */
KIVSDU_API uint32_t KivSdCreateLink(KivSdContext* ctx, const char* existing, const char* newLink,
                                    uint32_t ignored);

/* Removes a name of a file; the file goes with its last name.
 *
 * 0, or KIV_ST_FILE_REMOVE  not removed; the OS error is the system's */
KIVSDU_API uint32_t KivSdUnLink(KivSdContext* ctx, const char* path);

/* ---- Paths as texts ---- */

/* Joins parts to a path, one behind the other, with nothing in between. Makes nothing on disk.
 *
 *   count  of the parts that follow
 *   out    receives the path, and must have room for it; must not be null
 *   ...    texts; null and empty ones are passed over
 *
 * 0, or KIV_ST_ARGUMENT  out is null */
KIVSDU_API uint32_t KivSdPathCreate(KivSdContext* ctx, uint16_t count, char* out, ...);

/* Makes a path absolute, and resolves "." and ".." in it. It need not exist.
 *
 *   sizeBytes  of out. Danger: never negative. The system takes a negative size for one beyond
 *              2 GiB and writes the whole path, past the end of out
 *   out        receives the path; left as the system leaves it when there is none
 *
 * 0, also when the system cannot tell
 * KIV_ST_FILE_LENGTH  the path does not fit, or the size is negative */
KIVSDU_API uint32_t KivSdFileGetCanonicalPath(const char* path, int32_t sizeBytes, char* out);

/* The text behind the last "." of a path, wherever that is: of "dir.v1\name" it is "v1\name".
 *
 *   path        null counts as empty
 *   includeDot  not 0: with the "."
 *   out         receives the text, or an empty one; must have room for it
 *
 * out. */
KIVSDU_API char* KivSdFileGetExtension(const char* path, uint8_t includeDot, char* out);

/* A path up to its last "\" or "/" and with it; ".\" when there is none.
 *
 *   path  null counts as empty
 *   out   receives the text; must have room for it
 *
 * out. */
KIVSDU_API char* KivSdFileGetParentPath(const char* path, char* out);

/* ---- Packed dates ---- */

/* A number made of a packed time and date:
 *
 *   time  hours << 11 | minutes << 5 | seconds / 2
 *   date  (year - 1980) << 9 | month << 5 | day
 *
 * It is no time of any calendar: the fields are multiplied where they lie, and the month does not
 * count. It is the same for the same fields, which is what hosts compare it for. */
KIVSDU_API uint32_t KivSdTimetFromDOS(uint16_t time, uint16_t date);

#endif
