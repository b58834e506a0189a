/* Searches the table of statuses, which the build makes from the public headers. */
#include "kivsdu/status_text.h"

#include <string.h>

#include "status_table.h"

const KivStatusInfo* KivStatusFind(uint32_t status) {
  size_t begin = 0;
  size_t end = kivStatusCount;
  while (begin < end) {
    const size_t middle = begin + (end - begin) / 2;
    if (kivStatusTable[middle].status == status) return &kivStatusTable[middle];
    if (kivStatusTable[middle].status < status) {
      begin = middle + 1;
    } else {
      end = middle;
    }
  }
  return NULL;
}

const KivStatusInfo* KivStatusFindName(const char* name) {
  if (name == NULL) return NULL;
  for (size_t i = 0; i < kivStatusCount; ++i) {
    if (strcmp(kivStatusTable[i].name, name) == 0) return &kivStatusTable[i];
  }
  return NULL;
}

size_t KivStatusCount(void) { return kivStatusCount; }

const KivStatusInfo* KivStatusAt(size_t index) {
  return index < kivStatusCount ? &kivStatusTable[index] : NULL;
}
