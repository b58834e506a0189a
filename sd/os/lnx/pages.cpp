// Linux does not record the size of a mapping, and ReleasePages takes none. Each mapping therefore
// begins one page early, and that page stores the mapping's length. ReleasePages reads it there and
// cannot detect a wrong address.
//
//   | length page | the caller's pages ... |
#include "os/pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "os/lnx/posix.h"
#include "os/processor.h"

namespace kiv::os {

const uint32_t kErrorLockQuota = ENOMEM;

ValueResult<void*> CommitPages(uint64_t sizeBytes) {
  if (sizeBytes == 0) return {false, EINVAL, nullptr};
  const uint64_t page = PageSizeBytes();
  const uint64_t length = sizeBytes + page;
  void* mapped = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return {false, static_cast<uint32_t>(errno), nullptr};
  std::memcpy(mapped, &length, sizeof length);
  return {true, 0, static_cast<unsigned char*>(mapped) + page};
}

Result ReleasePages(void* address) {
  void* mapped = static_cast<unsigned char*>(address) - PageSizeBytes();
  uint64_t length;
  std::memcpy(&length, mapped, sizeof length);
  return FromErrno(munmap(mapped, length));
}

Result LockPages(void* address, uint64_t sizeBytes) { return FromErrno(mlock(address, sizeBytes)); }

Result UnlockPages(void* address, uint64_t sizeBytes) {
  return FromErrno(munlock(address, sizeBytes));
}

}  // namespace kiv::os
