/* System and resource information.
 *
 * Every record belongs to the caller and is zeroed before it is filled. Sizes of memory and disk
 * are in KiB (1024 bytes), clamped to 0xFFFFFFFF; working sets are in units of 8192 bytes.
 *
 * In failover mode every operation here but KivSdGetSessionLoginUsername first calls the lease
 * guard (settings.h), before it looks at its arguments; one that is built of others calls it
 * more than once. Any thread. A context may always be null. Where a null pointer is called a
 * programming error, it ends the process through the C runtime's assertion. */
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

/* The kinds that this platform reports. The numbering, 0 to KIV_PROCESSOR_KINDS - 1, is shared
 * with platforms that report others. */
#define KIV_PROCESSOR_UNKNOWN 0u
#define KIV_PROCESSOR_80386 3u
#define KIV_PROCESSOR_80486 4u
#define KIV_PROCESSOR_PENTIUM 5u
#define KIV_PROCESSOR_MIPS_R4000 6u
#define KIV_PROCESSOR_ALPHA_21064 7u
#define KIV_PROCESSOR_X86_64 24u
#define KIV_PROCESSOR_IA64 32u

typedef struct KivSdOSInfo {
  char name[61];    /* "Windows NT" or "Windows" */
  char version[61]; /* major and minor number, such as "6.02" */
} KivSdOSInfo;

KIV_ASSERT_SIZE(KivSdOSInfo, 122);
KIV_ASSERT_FIELD(KivSdOSInfo, name, 0);
KIV_ASSERT_FIELD(KivSdOSInfo, version, 61);

typedef struct KivSdPhysMemInfo {
  uint32_t totalKiB;
  uint32_t usedKiB; /* total minus available, both clamped */
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
  char pagingFiles[KIV_SYSTEM_PATH_MAX]; /* the setting's first string */
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
  uint32_t ordinal;               /* 1 is A, to KIV_DRIVES_MAX */
  char name[KIV_SYSTEM_PATH_MAX]; /* the letter alone */
  char label[KIV_SYSTEM_PATH_MAX];
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

/* Everything above in one. As many drive records as there are drives lie one behind the other
 * from `drive` on, in ascending order: KivSdOSResourcesSizeGet says how many bytes that takes. */
typedef struct KivSdOSResources {
  KivSdOSInfo os;
  KivSdLocalTime localTime; /* of the moment of the call */
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

/* The bytes that KivSdOSResourcesGet needs: 3500 for up to one drive and 2208 for each further.
 *
 *   sizeBytes  null is a programming error; left alone on failure
 *
 * 0, or KIV_ST_DRIVES */
KIVSDU_API uint32_t KivSdOSResourcesSizeGet(KivSdContext* ctx, uint64_t* sizeBytes);

/* Fills one large record with all there is to know.
 *
 *   sizeBytes  of the buffer behind resources; nothing is written past it
 *   resources  null is a programming error
 *
 * 0, or KIV_ST_OS_RESOURCES  the buffer is too small; it is zeroed but for the drives field, as
 *                            far as that lies inside it
 *       KIV_ST_DRIVES, KIV_ST_DRIVE_INFO, KIV_ST_LOCAL_TIME  the first part that failed; what
 *                            was filled before stays */
KIVSDU_API uint32_t KivSdOSResourcesGet(KivSdContext* ctx, uint32_t sizeBytes,
                                        KivSdOSResources* resources);

/* ---- Processor and system ---- */

/* Processor count, kind and name. info: null is a programming error. Always 0. */
KIVSDU_API uint32_t KivSdCPUInfoGet(KivSdContext* ctx, KivSdProcessorInfo* info);

/* The number of processors, at least 1. */
KIVSDU_API uint32_t KivSdCPUCountGet(void);

/* Name and version of the operating system. info: null is a programming error. Always 0. */
KIVSDU_API uint32_t KivSdOSInfoGet(KivSdContext* ctx, KivSdOSInfo* info);

/* ---- Memory ---- */

/* Physical memory. info: null is a programming error. Always 0. */
KIVSDU_API uint32_t KivSdPhysMemInfoGet(KivSdContext* ctx, KivSdPhysMemInfo* info);

/* Paging space and the machine's paging-file setting. info: null is a programming error. Always
 * 0: trouble is told in info->flags. */
KIVSDU_API uint32_t KivSdSwapInfoGet(KivSdContext* ctx, KivSdSwapInfo* info);

/* Free paging space and available physical memory together.
 *
 *   sizeKiB  null is a programming error; left alone on failure
 *
 * 0, or KIV_ST_AVAIL_VIRT_MEM  the memory status could not be read */
KIVSDU_API uint32_t KivSdAvailVirtMemGet(KivSdContext* ctx, uint64_t* sizeKiB);

/* ---- Drives ---- */

/* The drives present and the current one.
 *
 *   drives  null is a programming error
 *
 * 0, or KIV_ST_DRIVES  the system names no drive; the count and mask are 0 */
KIVSDU_API uint32_t KivSdDrivesGet(KivSdContext* ctx, KivSdDrives* drives);

/* A drive's letter, in a cleared buffer.
 *
 *   ordinal  1 (A) to KIV_DRIVES_MAX; any other is a programming error
 *   length   size of name in bytes; 0 is a programming error. At 1 the letter is not terminated
 *   name     null is a programming error
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdDriveOrdinalToName(KivSdContext* ctx, uint32_t ordinal, uint32_t length,
                                            char* name);

/* A drive's label, type, file system and room. Never prompts for a medium.
 *
 *   ordinal  1 (A) to KIV_DRIVES_MAX; any other is a programming error
 *   info     null is a programming error
 *
 * 0, or KIV_ST_DRIVE_INFO  the drive has no root directory */
KIVSDU_API uint32_t KivSdDriveInfoGet(KivSdContext* ctx, uint32_t ordinal, KivSdDriveInfo* info);

/* ---- Limits ---- */

/* The machine's page size in bytes (not KIV_PAGE_UNIT).
 *
 * 0, or KIV_ST_ARGUMENT  sizeBytes is null */
KIVSDU_API uint32_t KivSdPageSizeGet(KivSdContext* ctx, uint32_t* sizeBytes);

/* The largest size that can be asked for: 0xFFFFFFFFFFFFFFE0.
 *
 * 0, or KIV_ST_ARGUMENT  sizeBytes is null */
KIVSDU_API uint32_t KivSdMaxAllocGet(KivSdContext* ctx, uint64_t* sizeBytes);

/* The largest alignment that any plain type needs: 8 bytes.
 *
 * 0, or KIV_ST_ARGUMENT  alignment is null */
KIVSDU_API uint32_t KivSdMaxAlignGet(KivSdContext* ctx, uint32_t* alignment);

/* Whether a number is infinite or not a number.
 *
 *   flag  receives 1 if it is, else 0
 *
 * 0, or KIV_ST_ARGUMENT  flag is null */
KIVSDU_API uint32_t KivSdIsInfinite(KivSdContext* ctx, double value, uint8_t* flag);

/* ---- Process and user ---- */

/* The system directory.
 *
 *   length  size of path in bytes; at 0 nothing is written and the operation succeeds
 *   path    must not be null
 *
 * 0, or KIV_ST_ARGUMENT   path is null
 *       KIV_ST_HOME_PATH  not determined; OS error 122 if the buffer is too small for it, and
 *                         path is then the empty text */
KIVSDU_API uint32_t KivSdHomePathGet(KivSdContext* ctx, uint32_t length, char* path);

/* A process's working-set limits, in units of 8192 bytes, rounded down.
 *
 *   process  handle of the process
 *   minimum, maximum  must not be null; left alone on failure
 *
 * 0, or KIV_ST_ARGUMENT         minimum or maximum is null
 *       KIV_ST_WORKING_SET_GET  not read */
KIVSDU_API uint32_t KivSdProcessWorkingSetSizeGet(KivSdContext* ctx, KivHandle process,
                                                  uint64_t* minimum, uint64_t* maximum);

/* Sets a process's working-set limits.
 *
 *   process           handle of the process
 *   minimum, maximum  units of 8192 bytes, at least 1; 0x40000 and more become 0x7FFFFFFF bytes
 *
 * 0, or KIV_ST_ARGUMENT               a limit is 0
 *       KIV_ST_WORKING_SET_PRIVILEGE  not set for lack of a privilege, OS error 1313 or 1314
 *       KIV_ST_WORKING_SET_SET        not set for any other reason */
KIVSDU_API uint32_t KivSdProcessWorkingSetSizeSet(KivSdContext* ctx, KivHandle process,
                                                  uint64_t minimum, uint64_t maximum);

/* The login name of the user who runs the process. Does not call the lease guard.
 *
 *   name    at least KIV_LOGIN_NAME_MAX bytes; must not be null. On failure its first eight
 *           bytes are zeroed
 *   length  receives the name's length without its terminator, 0 on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT    name or length is null
 *       KIV_ST_LOGIN_USER  not obtained; OS error is 0 */
KIVSDU_API uint32_t KivSdGetSessionLoginUsername(KivSdContext* ctx, char* name, uint32_t* length);

#endif
