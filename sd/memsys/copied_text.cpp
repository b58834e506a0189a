// Copies of texts. The copy is a block of the memory manager, made by its public operation.
#include <cstring>

#include "kivsdu/manager.h"
#include "kivsdu/status.h"

namespace {

constexpr uint32_t kZeroTailBytes = 4;  // after the terminator of a copied text

}  // namespace

char* adStrDup(const char* text, const char* file, uint32_t line) {
  const uint64_t lengthBytes = std::strlen(text) + 1;
  void* copy = nullptr;
  const uint32_t status = adMalloc(nullptr, lengthBytes + kZeroTailBytes, &copy, file, line);
  if (status != KIV_ST_OK) return nullptr;
  std::memcpy(copy, text, lengthBytes);
  std::memset(static_cast<char*>(copy) + lengthBytes, 0, kZeroTailBytes);
  return static_cast<char*>(copy);
}
