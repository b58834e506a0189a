// Linux: transfers of the C library. A file handle is a descriptor stored in a pointer. Every
// transfer has ended when the call returns, and the record's event is not signalled. Offsets and
// positions beyond 32 bits are not detected.
#ifndef KIV_OS_LNX_INLINE_TRANSFERS_H
#define KIV_OS_LNX_INLINE_TRANSFERS_H

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "kivsdu/directio.h"
#include "os/transfers.h"

namespace kiv::os {

inline int NumberOf(const void* file) { return static_cast<int>(reinterpret_cast<intptr_t>(file)); }

inline ValueResult<uint32_t> FromCount(int64_t count) {
  if (count < 0) return {false, static_cast<uint32_t>(errno), 0};
  return {true, 0, static_cast<uint32_t>(count)};
}

inline ValueResult<uint32_t> ReadSystemFile(void* file, void* buffer, uint32_t sizeBytes,
                                            KivSdNoWaitCb* record) {
  if (record == nullptr) return FromCount(read(NumberOf(file), buffer, sizeBytes));
  return FromCount(pread(NumberOf(file), buffer, sizeBytes, record->offsetLow));
}

inline ValueResult<uint32_t> WriteSystemFile(void* file, const void* buffer, uint32_t sizeBytes,
                                             KivSdNoWaitCb* record) {
  if (record == nullptr) return FromCount(write(NumberOf(file), buffer, sizeBytes));
  return FromCount(pwrite(NumberOf(file), buffer, sizeBytes, record->offsetLow));
}

inline ValueResult<uint32_t> MoveFilePointer(void* file, int32_t distanceBytes, Origin origin) {
  return FromCount(lseek(NumberOf(file), distanceBytes, static_cast<int>(origin)));
}

}  // namespace kiv::os

#endif
