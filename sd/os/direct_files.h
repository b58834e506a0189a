// Unbuffered files, whose transfers bypass the system's cache. A transfer may continue after the
// call that started it returns (transfers.h).
//
// A transfer moves whole sectors, to or from memory aligned to the sector size. The record's first
// internal word is kErrorTransferPending until the transfer has ended (w32: the system's own value);
// then the record's event is signalled.
#ifndef KIV_OS_DIRECT_FILES_H
#define KIV_OS_DIRECT_FILES_H

#include "os/os.h"

struct KivSdNoWaitCb;

namespace kiv::os {

// OS errors: the file is open elsewhere without sharing; a read at the end of the file; a transfer
// that was started and has not ended.
extern const uint32_t kErrorSharingViolation;
extern const uint32_t kErrorEndOfFile;
extern const uint32_t kErrorTransferPending;

// Access and disposition of an open. Callers pass these words in the encoding of Windows.
constexpr uint32_t kAccessWrite = 0x40000000;
constexpr uint32_t kOpenOrMake = 4;

// Opens the file unbuffered, whatever the flags, and fails if the file system cannot. On failure the value is the platform's invalid
// handle, not null.
ValueResult<void*> OpenDirectFile(const char* path, uint32_t access, uint32_t shareMode,
                                  uint32_t disposition, uint32_t flags);
Result CloseDirectFile(void* file);
Result RemoveDirectFile(const char* path);

// The outcome of a transfer; does not wait. The value is the count of bytes, also on failure.
ValueResult<uint32_t> TransferOutcome(void* file, KivSdNoWaitCb* record);

// The low 32 bits of the size. A size with all of them set is reported as a failure.
ValueResult<uint32_t> DirectFileSize(void* file);

// Cuts or extends the file to its current position.
Result EndFileAtPosition(void* file);

}  // namespace kiv::os

#endif
