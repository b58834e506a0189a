/* File search: walking a directory, collecting the names that match a pattern, and lists of what
 * was found.
 *
 * In failover mode every operation here but KivSdFileFindClose first calls the lease guard
 * (settings.h), before it looks at its arguments; KivSdFileFind calls it again with each step of
 * its search, KivSdAddFileListItem for size and time. A context may always be null. OS errors are
 * the system's. Any thread; a record, an array and a list belong to one at a time.
 *
 * Example: examples/files.c. */
#ifndef KIVSDU_FILESEARCH_H
#define KIVSDU_FILESEARCH_H

#include "api.h"
#include "context.h"

/* ---- Walking a directory ---- */

/* The bit of a file's attributes that says it is a directory. */
#define KIV_ATTRIBUTE_DIRECTORY 0x10u

/* Intervals of 100 nanoseconds since 1601, UTC, in two halves. */
typedef struct KivSdFileTime {
  uint32_t low;
  uint32_t high;
} KivSdFileTime;

/* What the system tells of a file: its WIN32_FIND_DATAA. */
typedef struct KivSdFindData {
  uint32_t attributes;
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

/* A search; the caller's, zeroed before its first use. It must not be moved while the name in it is
 * used. */
typedef struct KivSdFindRecord {
  KivHandle search;
  KivSdFindData data;
  const char* name;    /* the file's, in the data */
  uint32_t attributes; /* the file's */
  uint32_t flags;      /* the caller's own; the library does not use them */
} KivSdFindRecord;

KIV_ASSERT_SIZE(KivSdFindRecord, 344);
KIV_ASSERT_FIELD(KivSdFindRecord, search, 0);
KIV_ASSERT_FIELD(KivSdFindRecord, data, 8);
KIV_ASSERT_FIELD(KivSdFindRecord, name, 328);
KIV_ASSERT_FIELD(KivSdFindRecord, attributes, 336);
KIV_ASSERT_FIELD(KivSdFindRecord, flags, 340);

/* Starts a search and finds its first file.
 *
 *   pattern  a path whose last part may have "*" and "?"; the system judges it
 *   flags    any value, kept in the record
 *   record   receives the file; must not be null. On failure its handle is the invalid one (-1),
 *            there is nothing to close, and name and attributes are left alone
 *
 * 0, or KIV_ST_ARGUMENT    record is null
 *       KIV_ST_FIND_START  nothing matches, or the directory cannot be searched */
KIVSDU_API uint32_t KivSdFileFindFirst(KivSdContext* ctx, const char* pattern, uint32_t flags,
                                       KivSdFindRecord* record);

/* Finds the next file.
 *
 *   record  of a search that was started; must not be null. On failure the name pointer and the
 *           attributes are left alone, but what the find data holds is undefined, the name that
 *           the pointer leads to included: copy what is still needed before the call
 *
 * 0, or KIV_ST_ARGUMENT   record is null
 *       KIV_ST_FIND_END   there are no more; OS error 18
 *       KIV_ST_FIND_NEXT  not found for any other reason */
KIVSDU_API uint32_t KivSdFileFindNext(KivSdContext* ctx, KivSdFindRecord* record);

/* Ends a search. The record keeps what was found last, unless the next file was then asked for in
 * vain.
 *
 * 0, or KIV_ST_ARGUMENT    record is null
 *       KIV_ST_FIND_CLOSE  not ended */
KIVSDU_API uint32_t KivSdFileFindClose(KivSdContext* ctx, KivSdFindRecord* record);

/* The low half of a found file's size, and when it was last written to, in seconds since 1970, UTC.
 * The name speaks of its creation; hosts keep the other.
 *
 *   record           must not be null
 *   size, timestamp  each receives its value; may be null
 *
 * 0, or 1 when record is null. */
KIVSDU_API uint32_t KivSdGetFileSizeAndCreateDate(const KivSdFindRecord* record, uint32_t* size,
                                                  int64_t* timestamp);

/* ---- Collecting names ---- */

#define KIV_FILE_NAME_BYTES 1029u /* of the block of each name */

/* Collects the files that match a pattern, but for "." and "..".
 *
 *   memory   the caller's context for the memory manager (manager.h), or null
 *   prefix   put before every name as it is, so it ends with its separator. When it is null the
 *            absolute path of the pattern's directory is put there. It chooses no directory
 *   pattern  a path whose last part may have "*" and "?"; must not be null
 *   flags    as in KivSdFileFindFirst
 *   names    receives an array of names, each a block of its own, to be freed with
 *            KivSdFileFreeNames; null when nothing matches, and on failure. When only "." and ".."
 *            match it is not null, though count is 0, and is to be freed too. Must not be null
 *   count    receives how many names there are; must not be null
 *
 * 0, also when nothing matches or the directory cannot be searched
 * KIV_ST_ARGUMENT   pattern, names or count is null
 * KIV_ST_FIND_NEXT  the search broke off; OS error 206 when a name does not fit its block
 *                   (KIV_FILE_NAME_BYTES) behind the prefix
 * or the memory manager's own status (KIV_ST_OUT_OF_MEMORY) */
KIVSDU_API uint32_t KivSdFileFind(void* memory, KivSdContext* ctx, const char* prefix,
                                  const char* pattern, uint32_t flags, char*** names,
                                  uint32_t* count);

/* Frees an array of names.
 *
 *   ignored  any value; hosts pass their context for the memory manager
 *   names    of KivSdFileFind; null is ignored
 *   count    as it was told
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdFileFreeNames(const void* ignored, char** names, uint32_t count);

/* ---- Lists of files ---- */

/* A file of a list. The first one is the caller's; the others come from the memory manager. */
typedef struct KivSdFileListItem {
  char name[1032];
  int64_t modified; /* seconds since 1970, UTC */
  uint32_t size;    /* the low half, in bytes */
  uint32_t unused;
  struct KivSdFileListItem* next; /* null in the last one */
} KivSdFileListItem;

KIV_ASSERT_SIZE(KivSdFileListItem, 1056);
KIV_ASSERT_FIELD(KivSdFileListItem, name, 0);
KIV_ASSERT_FIELD(KivSdFileListItem, modified, 1032);
KIV_ASSERT_FIELD(KivSdFileListItem, size, 1040);
KIV_ASSERT_FIELD(KivSdFileListItem, next, 1048);

/* Puts the file that a search found into a list.
 *
 *   item    the one to fill, or, to append, the last of its list; must not be null
 *   record  must not be null, and hold a file
 *   append  0: fills item, and makes it the last one. Otherwise fills a new one behind it
 *
 * 0, or 1 when item or record is null or there is no memory. */
KIVSDU_API uint32_t KivSdAddFileListItem(KivSdFileListItem* item, const KivSdFindRecord* record,
                                         uint8_t append);

/* Frees all of a list but its first one, which becomes the last.
 *
 *   head  null is ignored
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdDeleteFileListItems(KivSdFileListItem* head);

#endif
