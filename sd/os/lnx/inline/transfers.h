// Linux: these primitives do too much to be inline. A transfer of an overlapped file that has a
// record with an event is only started (transfer_queue.h). Every other transfer has ended when the
// call returns.
#ifndef KIV_OS_LNX_INLINE_TRANSFERS_H
#define KIV_OS_LNX_INLINE_TRANSFERS_H

#include <cstdint>

#include "kivsdu/directio.h"
#include "os/transfers.h"

namespace kiv::os {

ValueResult<uint32_t> ReadSystemFile(void* file, void* buffer, uint32_t sizeBytes,
                                     KivSdNoWaitCb* record);
ValueResult<uint32_t> WriteSystemFile(void* file, const void* buffer, uint32_t sizeBytes,
                                      KivSdNoWaitCb* record);
ValueResult<uint32_t> MoveFilePointer(void* file, int32_t distanceBytes, Origin origin);

}  // namespace kiv::os

#endif
