// Transfers of the system's files, and their positions.
//
//   ValueResult<uint32_t> ReadSystemFile(void* file, void* buffer, uint32_t sizeBytes,
//                                        KivSdNoWaitCb* record)
//   ValueResult<uint32_t> WriteSystemFile(void* file, const void* buffer, uint32_t sizeBytes,
//                                         KivSdNoWaitCb* record)
//       The value is the count of bytes, also on a failure. The record holds the offset, and the
//       event to signal or none; without one the transfer is at the file's position.
//   ValueResult<uint32_t> MoveFilePointer(void* file, int32_t distanceBytes, Origin origin)
//       The new position. It fails where that takes more than 32 bits.
//
// Inline: behind a call that entered the kernel each frame costs as much as all that an operation
// does besides.
#ifndef KIV_OS_TRANSFERS_H
#define KIV_OS_TRANSFERS_H

#include "os/os.h"

namespace kiv::os {

enum class Origin : uint32_t { kBeginning = 0, kPosition = 1, kEnd = 2 };

}  // namespace kiv::os

#include "inline/transfers.h"

#endif
