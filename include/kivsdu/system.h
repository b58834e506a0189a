/* System and resource information.
 *
 * The caller owns every record; it is zeroed before it is filled. Sizes of memory and disk are in
 * KiB (1024 bytes), at most 0xFFFFFFFF. Working sets are in units of 8192 bytes.
 *
 * In failover mode every operation, except KivSdGetSessionLoginUsername, calls the lease guard
 * (settings.h) before it checks its arguments; an operation that calls others calls it more than
 * once. A context may always be null. Any thread. Where a null pointer is called a programming
 * error, it ends the process through the C runtime's assertion. docs/linux.md says what Linux
 * reports, and which of its file systems are drives. */
#ifndef KIVSDU_SYSTEM_H
#define KIVSDU_SYSTEM_H

#include "api.h"
#include "context.h"
#include "time.h"

#define KIV_DRIVES_MAX 32u       /* highest drive ordinal */
#define KIV_PROCESSOR_KINDS 33u  /* entries of the processor-name table */
#define KIV_SYSTEM_PATH_MAX 1029 /* characters of a path, terminator included */
#define KIV_LOGIN_NAME_MAX 512u  /* bytes of a login-name buffer */

/* ---- Records ---- */

typedef struct KivSdProcessorInfo {
  uint32_t count;
  uint32_t kind; /* see KIV_PROCESSOR_ below */
  char name[64]; /* at most 60 characters */
} KivSdProcessorInfo;

KIV_ASSERT_SIZE(KivSdProcessorInfo, 72);
KIV_ASSERT_FIELD(KivSdProcessorInfo, count, 0);
KIV_ASSERT_FIELD(KivSdProcessorInfo, kind, 4);
KIV_ASSERT_FIELD(KivSdProcessorInfo, name, 8);

/* The processor kinds that this platform reports. The numbers 0 to KIV_PROCESSOR_KINDS - 1 are
 * shared with platforms that report other kinds. */
#define KIV_PROCESSOR_UNKNOWN 0u
#define KIV_PROCESSOR_80386 3u
#define KIV_PROCESSOR_80486 4u
#define KIV_PROCESSOR_PENTIUM 5u
#define KIV_PROCESSOR_MIPS_R4000 6u
#define KIV_PROCESSOR_ALPHA_21064 7u
#define KIV_PROCESSOR_X86_64 24u
#define KIV_PROCESSOR_IA64 32u

typedef struct KivSdOSInfo {
  char name[61];    /* "Windows NT" or "Windows"; "Linux" on Linux */
  char version[61]; /* major and minor number, such as "6.02" */
} KivSdOSInfo;

KIV_ASSERT_SIZE(KivSdOSInfo, 122);
KIV_ASSERT_FIELD(KivSdOSInfo, name, 0);
KIV_ASSERT_FIELD(KivSdOSInfo, version, 61);

typedef struct KivSdPhysMemInfo {
  uint32_t totalKiB;
  uint32_t usedKiB; /* total minus available, after both were limited to 0xFFFFFFFF */
  uint32_t availableKiB;
} KivSdPhysMemInfo;

KIV_ASSERT_SIZE(KivSdPhysMemInfo, 12);
KIV_ASSERT_FIELD(KivSdPhysMemInfo, totalKiB, 0);
KIV_ASSERT_FIELD(KivSdPhysMemInfo, usedKiB, 4);
KIV_ASSERT_FIELD(KivSdPhysMemInfo, availableKiB, 8);

/* Bits of KivSdSwapInfo.flags. */
#define KIV_SWAP_FOUND 0x01u         /* there are paging files */
#define KIV_SWAP_EMPTY 0x02u         /* the paging-file setting is empty */
#define KIV_SWAP_UNREADABLE 0x04u    /* the paging-file setting could not be read */
#define KIV_SWAP_STATUS_FAILED 0x08u /* the memory status could not be read; the sizes are 0 */

typedef struct KivSdSwapInfo {
  uint32_t flags;
  char pagingFiles[KIV_SYSTEM_PATH_MAX]; /* first string of the setting */
  uint32_t totalKiB;
  uint32_t usedKiB; /* total minus free */
  uint32_t freeKiB;
} KivSdSwapInfo;

KIV_ASSERT_SIZE(KivSdSwapInfo, 1048);
KIV_ASSERT_FIELD(KivSdSwapInfo, flags, 0);
KIV_ASSERT_FIELD(KivSdSwapInfo, pagingFiles, 4);
KIV_ASSERT_FIELD(KivSdSwapInfo, totalKiB, 1036);
KIV_ASSERT_FIELD(KivSdSwapInfo, usedKiB, 1040);
KIV_ASSERT_FIELD(KivSdSwapInfo, freeKiB, 1044);

typedef struct KivSdDrives {
  uint32_t count;
  uint32_t current; /* 1 is A */
  uint32_t mask;    /* bit 0 is A */
} KivSdDrives;

KIV_ASSERT_SIZE(KivSdDrives, 12);
KIV_ASSERT_FIELD(KivSdDrives, count, 0);
KIV_ASSERT_FIELD(KivSdDrives, current, 4);
KIV_ASSERT_FIELD(KivSdDrives, mask, 8);

/* Values of KivSdDriveInfo.type. */
#define KIV_DRIVE_UNKNOWN 0u /* optical drives included */
#define KIV_DRIVE_REMOVABLE 1u
#define KIV_DRIVE_FIXED 2u
#define KIV_DRIVE_RAM 3u
#define KIV_DRIVE_REMOTE 4u

typedef struct KivSdDriveInfo {
  uint32_t ordinal;                /* 1 is A, to KIV_DRIVES_MAX */
  char name[KIV_SYSTEM_PATH_MAX];  /* the letter alone */
  char label[KIV_SYSTEM_PATH_MAX]; /* Linux: the mount point */
  uint32_t type;
  char typeName[64]; /* "Unknown", "Removable", "Fixed", "RAM" or "Remote" */
  char fileSystem[64];
  uint32_t totalKiB; /* the sizes are 0 for a drive without a medium */
  uint32_t usedKiB;  /* total minus free */
  uint32_t freeKiB;
} KivSdDriveInfo;

KIV_ASSERT_SIZE(KivSdDriveInfo, 2208);
KIV_ASSERT_FIELD(KivSdDriveInfo, ordinal, 0);
KIV_ASSERT_FIELD(KivSdDriveInfo, name, 4);
KIV_ASSERT_FIELD(KivSdDriveInfo, label, 1033);
KIV_ASSERT_FIELD(KivSdDriveInfo, type, 2064);
KIV_ASSERT_FIELD(KivSdDriveInfo, typeName, 2068);
KIV_ASSERT_FIELD(KivSdDriveInfo, fileSystem, 2132);
KIV_ASSERT_FIELD(KivSdDriveInfo, totalKiB, 2196);
KIV_ASSERT_FIELD(KivSdDriveInfo, usedKiB, 2200);
KIV_ASSERT_FIELD(KivSdDriveInfo, freeKiB, 2204);

/* All records above in one. The drive records follow one another from `drive` on, in ascending
 * order. KivSdOSResourcesSizeGet returns the size of the whole record. */
typedef struct KivSdOSResources {
  KivSdOSInfo os;
  KivSdLocalTime localTime; /* at the time of the call */
  uint32_t elapsedSeconds;  /* since the system started */
  KivSdProcessorInfo processor;
  KivSdPhysMemInfo memory;
  KivSdSwapInfo paging;
  KivSdDrives drives;
  KivSdDriveInfo drive[1];
} KivSdOSResources;

KIV_ASSERT_SIZE(KivSdOSResources, 3500);
KIV_ASSERT_FIELD(KivSdOSResources, os, 0);
KIV_ASSERT_FIELD(KivSdOSResources, localTime, 124);
KIV_ASSERT_FIELD(KivSdOSResources, elapsedSeconds, 144);
KIV_ASSERT_FIELD(KivSdOSResources, processor, 148);
KIV_ASSERT_FIELD(KivSdOSResources, memory, 220);
KIV_ASSERT_FIELD(KivSdOSResources, paging, 232);
KIV_ASSERT_FIELD(KivSdOSResources, drives, 1280);
KIV_ASSERT_FIELD(KivSdOSResources, drive, 1292);

/* ---- The whole machine ---- */

/* Returns the size of the record of KivSdOSResourcesGet: 3500 bytes for up to one drive, and 2208
 * more for each further drive.
 *
 *   sizeBytes  receives the size; unchanged on failure; null is a programming error
 *
 * 0, or KIV_ST_DRIVES  the drives could not be listed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdOSResourcesSizeGet(KivSdContext* ctx, uint64_t* sizeBytes);

/* Fills one large record with all information.
 *
 *   sizeBytes  size of the buffer; nothing is written past it
 *   resources  the buffer; null is a programming error
 *
 * 0, or KIV_ST_OS_RESOURCES  the buffer is too small. It is zeroed except for its drives field, as
 *                            far as the buffer extends
 *       KIV_ST_DRIVES        the drives could not be listed
 *       KIV_ST_LOCAL_TIME    the local time was not obtained; earlier parts are filled
 *       KIV_ST_DRIVE_INFO    a drive has no root directory; earlier parts are filled
 * OS error: GetLastError of the drives, errno of the local time, else 0. */
KIVSDU_API uint32_t KivSdOSResourcesGet(KivSdContext* ctx, uint32_t sizeBytes,
                                        KivSdOSResources* resources);

/* ---- Processor and system ---- */

/* Returns the processors' count, kind and name. Always returns 0.
 *
 *   info  receives them; null is a programming error */
KIVSDU_API uint32_t KivSdCPUInfoGet(KivSdContext* ctx, KivSdProcessorInfo* info);

/* Returns the number of processors, at least 1. */
KIVSDU_API uint32_t KivSdCPUCountGet(void);

/* Returns name and version of the operating system. Always returns 0.
 *
 *   info  receives them; null is a programming error */
KIVSDU_API uint32_t KivSdOSInfoGet(KivSdContext* ctx, KivSdOSInfo* info);

/* ---- Memory ---- */

/* Returns the sizes of physical memory. Always returns 0.
 *
 *   info  receives them; null is a programming error */
KIVSDU_API uint32_t KivSdPhysMemInfoGet(KivSdContext* ctx, KivSdPhysMemInfo* info);

/* Returns the sizes of paging space and the machine's paging-file setting. Always returns 0;
 * info->flags reports failures.
 *
 *   info  receives them; null is a programming error */
KIVSDU_API uint32_t KivSdSwapInfoGet(KivSdContext* ctx, KivSdSwapInfo* info);

/* Returns the sum of free paging space and available physical memory.
 *
 *   sizeKiB  receives the sum in KiB; unchanged on failure; null is a programming error
 *
 * 0, or KIV_ST_AVAIL_VIRT_MEM  the memory status could not be read
 * OS error: always 0. */
KIVSDU_API uint32_t KivSdAvailVirtMemGet(KivSdContext* ctx, uint64_t* sizeKiB);

/* ---- Drives ---- */

/* Returns the present drives and the current drive.
 *
 *   drives  receives them; null is a programming error
 *
 * 0, or KIV_ST_DRIVES  the system lists no drive; count and mask are 0
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdDrivesGet(KivSdContext* ctx, KivSdDrives* drives);

/* Returns a drive's letter in a zeroed buffer. Always returns 0.
 *
 *   ordinal  1 (A) to KIV_DRIVES_MAX; any other value is a programming error
 *   length   size of name in bytes; 0 is a programming error. If 1, the letter has no terminator
 *   name     receives the letter; null is a programming error */
KIVSDU_API uint32_t KivSdDriveOrdinalToName(KivSdContext* ctx, uint32_t ordinal, uint32_t length,
                                            char* name);

/* Returns a drive's label, type, file system and sizes. Never asks the user for a medium.
 *
 * Compatibility: error boxes are off in the whole process while it runs. Afterwards the process's
 * error mode (SetErrorMode) is 0, whatever it was before. KivSdOSResourcesGet has this effect too.
 *
 *   ordinal  1 (A) to KIV_DRIVES_MAX; any other value is a programming error
 *   info     receives them; null is a programming error
 *
 * 0, or KIV_ST_DRIVE_INFO  the drive has no root directory
 * OS error: always 0. */
KIVSDU_API uint32_t KivSdDriveInfoGet(KivSdContext* ctx, uint32_t ordinal, KivSdDriveInfo* info);

/* ---- Limits ---- */

/* Returns the machine's page size in bytes. It may differ from KIV_PAGE_UNIT.
 *
 * 0, or KIV_ST_ARGUMENT  sizeBytes is null */
KIVSDU_API uint32_t KivSdPageSizeGet(KivSdContext* ctx, uint32_t* sizeBytes);

/* Returns the largest allocation size: 0xFFFFFFFFFFFFFFE0 bytes.
 *
 * 0, or KIV_ST_ARGUMENT  sizeBytes is null */
KIVSDU_API uint32_t KivSdMaxAllocGet(KivSdContext* ctx, uint64_t* sizeBytes);

/* Returns 8: the alignment in bytes that every block of the memory manager has, in each mode
 * (manager.h). Some types need more, such as SSE vectors and, on Linux, long double: 16.
 *
 * 0, or KIV_ST_ARGUMENT  alignment is null */
KIVSDU_API uint32_t KivSdMaxAlignGet(KivSdContext* ctx, uint32_t* alignment);

/* Tests whether a number is infinite or not a number.
 *
 *   flag  receives 1 if it is, else 0; must not be null
 *
 * 0, or KIV_ST_ARGUMENT  flag is null */
KIVSDU_API uint32_t KivSdIsInfinite(KivSdContext* ctx, double value, uint8_t* flag);

/* ---- Process and user ---- */

/* Returns the path of the system directory.
 *
 *   length  size of path in bytes; if 0, nothing is written and the operation succeeds
 *   path    receives the path; must not be null
 *
 * 0, or KIV_ST_ARGUMENT   path is null
 *       KIV_ST_HOME_PATH  not obtained. OS error 122 (Linux: ERANGE) if the buffer is too small;
 *                         path is then the empty text
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdHomePathGet(KivSdContext* ctx, uint32_t length, char* path);

/* Returns a process's working-set limits in units of 8192 bytes, rounded down.
 *
 *   process           handle of the process
 *   minimum, maximum  receive the limits; unchanged on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT         minimum or maximum is null
 *       KIV_ST_WORKING_SET_GET  not read
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdProcessWorkingSetSizeGet(KivSdContext* ctx, KivHandle process,
                                                  uint64_t* minimum, uint64_t* maximum);

/* Sets a process's working-set limits. Linux has none: the minimum sets what the process may lock
 * in memory, the maximum what it should keep resident.
 *
 *   process           handle of the process
 *   minimum, maximum  in units of 8192 bytes, at least 1. Values of 0x40000 and more become
 *                     0x7FFFFFFF bytes
 *
 * 0, or KIV_ST_ARGUMENT               a limit is 0 bytes
 *       KIV_ST_WORKING_SET_PRIVILEGE  a privilege is missing, OS error 1313 or 1314 (Linux: EPERM)
 *       KIV_ST_WORKING_SET_SET        not set for any other reason
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdProcessWorkingSetSizeSet(KivSdContext* ctx, KivHandle process,
                                                  uint64_t minimum, uint64_t maximum);

/* Returns the login name of the user of the process. Does not call the lease guard.
 *
 *   name    receives the name; must not be null, and must have KIV_LOGIN_NAME_MAX bytes. On failure
 *           its first eight bytes are zeroed
 *   length  receives the name's length without its terminator, 0 on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    name or length is null
 *       KIV_ST_LOGIN_USER  not obtained; OS error 0 */
KIVSDU_API uint32_t KivSdGetSessionLoginUsername(KivSdContext* ctx, char* name, uint32_t* length);

#endif
