/* File search: walking a directory, collecting the names that match a pattern, and lists of files.
 *
 * In failover mode every operation, except KivSdFileFindClose, calls the lease guard (settings.h)
 * before it checks its arguments. KivSdFileFind calls it again with each step of its search, and
 * KivSdAddFileListItem once more for size and time. A context may always be null. On Linux the end
 * of a search is OS error 2. Any thread, but only one at a time uses a record, an array or a list.
 *
 * Example: examples/files.c. */
#ifndef KIVSDU_FILESEARCH_H
#define KIVSDU_FILESEARCH_H

#include "api.h"
#include "context.h"
#include "fileflags.h"

/* ---- Walking a directory ---- */

/* A time: intervals of 100 nanoseconds since 1601, UTC, in two halves. */
typedef struct KivSdFileTime {
  uint32_t low;
  uint32_t high;
} KivSdFileTime;

/* The system's data about a file: a WIN32_FIND_DATAA. On Linux the library fills it. */
typedef struct KivSdFindData {
  uint32_t attributes; /* KIV_ATTRIBUTE_... */
  KivSdFileTime created;
  KivSdFileTime accessed;
  KivSdFileTime written;
  uint32_t sizeHigh;
  uint32_t sizeLow;
  uint32_t reserved[2];
  char name[260];
  char shortName[14];
} KivSdFindData;

KIV_ASSERT_SIZE(KivSdFindData, 320);
KIV_ASSERT_FIELD(KivSdFindData, attributes, 0);
KIV_ASSERT_FIELD(KivSdFindData, created, 4);
KIV_ASSERT_FIELD(KivSdFindData, accessed, 12);
KIV_ASSERT_FIELD(KivSdFindData, written, 20);
KIV_ASSERT_FIELD(KivSdFindData, sizeHigh, 28);
KIV_ASSERT_FIELD(KivSdFindData, sizeLow, 32);
KIV_ASSERT_FIELD(KivSdFindData, reserved, 36);
KIV_ASSERT_FIELD(KivSdFindData, name, 44);
KIV_ASSERT_FIELD(KivSdFindData, shortName, 304);

/* A search, in the caller's storage. Zero it before its first use. Do not move it while the name is
 * used: the name pointer leads into the record. */
typedef struct KivSdFindRecord {
  KivHandle search;
  KivSdFindData data;
  const char* name;    /* the file's name, inside data */
  uint32_t attributes; /* the file's attributes */
  uint32_t flags;      /* the caller's own; not used by the library */
} KivSdFindRecord;

KIV_ASSERT_SIZE(KivSdFindRecord, 344);
KIV_ASSERT_FIELD(KivSdFindRecord, search, 0);
KIV_ASSERT_FIELD(KivSdFindRecord, data, 8);
KIV_ASSERT_FIELD(KivSdFindRecord, name, 328);
KIV_ASSERT_FIELD(KivSdFindRecord, attributes, 336);
KIV_ASSERT_FIELD(KivSdFindRecord, flags, 340);

/* Starts a search and finds its first file.
 *
 *   pattern  a path whose last part may contain "*" and "?"; the system checks it
 *   flags    any value; stored in the record
 *   record   receives the file; must not be null. On failure its handle is the invalid handle (-1),
 *            which must not be closed; name and attributes are unchanged
 *
 * 0, or KIV_ST_ARGUMENT    record is null
 *       KIV_ST_FIND_START  nothing matches, or the directory cannot be searched
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdFileFindFirst(KivSdContext* ctx, const char* pattern, uint32_t flags,
                                       KivSdFindRecord* record);

/* Finds the next file.
 *
 *   record  of a started search; must not be null. On failure the name pointer and the attributes
 *           are unchanged, but the find data is undefined, including the name that the pointer
 *           leads to: copy anything you still need before the call
 *
 * 0, or KIV_ST_ARGUMENT   record is null
 *       KIV_ST_FIND_END   there are no more files; OS error 18
 *       KIV_ST_FIND_NEXT  not found for any other reason
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdFileFindNext(KivSdContext* ctx, KivSdFindRecord* record);

/* Ends a search. The record keeps the file that was found last, unless KivSdFileFindNext failed
 * after it.
 *
 * 0, or KIV_ST_ARGUMENT    record is null
 *       KIV_ST_FIND_CLOSE  not ended
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdFileFindClose(KivSdContext* ctx, KivSdFindRecord* record);

/* Returns the low half of a found file's size, and the time of its last write in seconds since
 * 1970, UTC. Compatibility: the name promises the creation date, but hosts rely on the last write.
 *
 *   record           must not be null
 *   size, timestamp  each receives its value; may be null
 *
 * Returns 0, or 1 if record is null. */
KIVSDU_API uint32_t KivSdGetFileSizeAndCreateDate(const KivSdFindRecord* record, uint32_t* size,
                                                  int64_t* timestamp);

/* ---- Collecting names ---- */

#define KIV_FILE_NAME_BYTES 1029u /* size of the block of each name */

/* Collects the names that match a pattern, except "." and "..".
 *
 *   memory   the caller's context for the memory manager (manager.h), or null
 *   prefix   put before every name unchanged; it should end with its separator. If null, the
 *            absolute path of the pattern's directory is used. It does not choose the directory
 *   pattern  a path whose last part may contain "*" and "?"; must not be null
 *   flags    as in KivSdFileFindFirst
 *   names    receives an array of names, each in its own block; must not be null. Free it with
 *            KivSdFileFreeNames. It is null on failure and if nothing matches. If only "." and ".."
 *            match, it is not null although count is 0, and must be freed too
 *   count    receives the number of names; must not be null
 *
 * 0                     also if nothing matches or the directory cannot be searched
 * KIV_ST_ARGUMENT       pattern, names or count is null
 * KIV_ST_FIND_NEXT      the search failed; OS error 206 if a name with its prefix does not fit its
 *                       block (KIV_FILE_NAME_BYTES)
 * KIV_ST_OUT_OF_MEMORY  no memory; or another status of the memory manager
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdFileFind(void* memory, KivSdContext* ctx, const char* prefix,
                                  const char* pattern, uint32_t flags, char*** names,
                                  uint32_t* count);

/* Frees an array of names.
 *
 *   ignored  any value; hosts pass their context for the memory manager
 *   names    from KivSdFileFind; null is ignored
 *   count    from KivSdFileFind
 *
 * Always returns 0. */
KIVSDU_API uint32_t KivSdFileFreeNames(const void* ignored, char** names, uint32_t count);

/* ---- Lists of files ---- */

/* A file in a list. The caller owns the first item; the memory manager allocates the others. */
typedef struct KivSdFileListItem {
  char name[1032];
  int64_t modified; /* seconds since 1970, UTC */
  uint32_t size;    /* bytes; the low 32 bits */
  uint32_t unused;
  struct KivSdFileListItem* next; /* null in the last item */
} KivSdFileListItem;

KIV_ASSERT_SIZE(KivSdFileListItem, 1056);
KIV_ASSERT_FIELD(KivSdFileListItem, name, 0);
KIV_ASSERT_FIELD(KivSdFileListItem, modified, 1032);
KIV_ASSERT_FIELD(KivSdFileListItem, size, 1040);
KIV_ASSERT_FIELD(KivSdFileListItem, next, 1048);

/* Adds the file that a search found to a list.
 *
 *   item    the item to fill or, to append, the last item of its list; must not be null
 *   record  must not be null, and must hold a file
 *   append  0 fills item, which becomes the last of its list. Otherwise a new item is filled and
 *           appended to it
 *
 * Returns 0, or 1 if item or record is null or there is no memory. */
KIVSDU_API uint32_t KivSdAddFileListItem(KivSdFileListItem* item, const KivSdFindRecord* record,
                                         uint8_t append);

/* Frees all items of a list except the first, which becomes the last.
 *
 *   head  null is ignored
 *
 * Always returns 0. */
KIVSDU_API uint32_t KivSdDeleteFileListItems(KivSdFileListItem* head);

#endif
