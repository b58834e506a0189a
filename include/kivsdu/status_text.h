/* Names, meanings and advice of the statuses in status.h, for messages and tools.
 *
 * These functions are not part of the library kivsdu. They are in the small static library
 * kivsdu_status, which needs nothing but the C runtime and can be linked without kivsdu. Its table
 * is made from the comments of status.h and of the operations. The records are constant and valid
 * as long as the program runs. Any thread may call. */
#ifndef KIVSDU_STATUS_TEXT_H
#define KIVSDU_STATUS_TEXT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KivStatusInfo {
  uint32_t status;
  const char* name;              /* such as "KIV_ST_FILE_OPEN" */
  const char* text;              /* the meaning: one or more sentences */
  const char* advice;            /* what to do: one or more sentences */
  const char* const* operations; /* names of the operations that return it, in alphabetical order */
  size_t operationCount;         /* 0 for KIV_ST_OK, which is not listed for each operation, and
                                    for statuses that no operation returns */
} KivStatusInfo;

/* Returns the record of a status, or null if the number is not a status of status.h. */
const KivStatusInfo* KivStatusFind(uint32_t status);

/* Returns the record of a name such as "KIV_ST_FILE_OPEN", compared byte for byte, or null if there
 * is no such status.
 *
 *   name  may be null, which no status has */
const KivStatusInfo* KivStatusFindName(const char* name);

/* Return the number of statuses, and one of their records in ascending order of the numbers.
 *
 *   index  0 to KivStatusCount() - 1; otherwise the result is null */
size_t KivStatusCount(void);
const KivStatusInfo* KivStatusAt(size_t index);

#ifdef __cplusplus
}
#endif

#endif
