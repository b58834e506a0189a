// Reading, writing and positioning files by the system's handles.
//
//   ValueResult<uint32_t> ReadSystemFile(void* file, void* buffer, uint32_t sizeBytes,
//                                        KivSdNoWaitCb* record)
//   ValueResult<uint32_t> WriteSystemFile(void* file, const void* buffer, uint32_t sizeBytes,
//                                         KivSdNoWaitCb* record)
//       The value is the count of bytes, also on failure. The record holds the offset and the
//       event to signal; the event may be null. Without a record, the transfer starts at the
//       file's position.
//   ValueResult<uint32_t> MoveFilePointer(void* file, int32_t distanceBytes, Origin origin)
//       The value is the new position. Fails if the position does not fit in 32 bits.
//
// A transfer at a record's offset moves the file's position behind its bytes, unless the file is
// overlapped.
//
// w32: inline, because after a call that entered the kernel one more stack frame costs as much as
// everything else that an operation does.
#ifndef KIV_OS_TRANSFERS_H
#define KIV_OS_TRANSFERS_H

#include "os/os.h"

namespace kiv::os {

enum class Origin : uint32_t { kBeginning = 0, kPosition = 1, kEnd = 2 };

}  // namespace kiv::os

#include "inline/transfers.h"

#endif
