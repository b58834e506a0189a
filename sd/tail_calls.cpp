#include "tail_calls.h"

#include <cstdio>
#include <cstring>

#include "kivsdu/status.h"

uint32_t kiv::PrintError(char* text, uint32_t osError) {
  std::sprintf(text, "%d", static_cast<int>(osError));
  return KIV_ST_OK;
}

uint32_t kiv::MoveBytes(void* destination, const void* source, uint32_t lengthBytes) {
  if (lengthBytes != 0) std::memmove(destination, source, lengthBytes);
  return KIV_ST_OK;
}
