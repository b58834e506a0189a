// Files past the system's cache, and transfers that go on after the call that started them
// (transfers.h).
//
// A transfer is of whole sectors, to or from memory that lies on a multiple of the sector size. A
// platform without such transfers keeps its own control block behind the record's two internal
// words, and signals the record's event when the transfer has ended.
#ifndef KIV_OS_DIRECT_FILES_H
#define KIV_OS_DIRECT_FILES_H

#include "os/os.h"

struct KivSdNoWaitCb;

namespace kiv::os {

// OS errors of a file that someone else holds, of the end of a file, and of a transfer that goes
// on.
extern const uint32_t kErrorSharingViolation;
extern const uint32_t kErrorEndOfFile;
extern const uint32_t kErrorTransferPending;

// What a file is opened for and with; callers give these words as they are.
constexpr uint32_t kAccessWrite = 0x40000000;
constexpr uint32_t kOpenOrMake = 4;

// Unbuffered, whatever the flags. On failure the value is the platform's invalid handle, not null.
ValueResult<void*> OpenDirectFile(const char* path, uint32_t access, uint32_t shareMode,
                                  uint32_t disposition, uint32_t flags);
Result CloseDirectFile(void* file);
Result RemoveDirectFile(const char* path);

// What a transfer came to: the count of bytes, also on a failure. Does not wait.
ValueResult<uint32_t> TransferOutcome(void* file, KivSdNoWaitCb* record);

// The low 32 bits; all of them set is taken for a failure.
ValueResult<uint32_t> DirectFileSize(void* file);

Result EndFileAtPosition(void* file);

}  // namespace kiv::os

#endif
