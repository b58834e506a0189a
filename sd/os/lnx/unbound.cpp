// Primitives that this platform does not bind. Each fails with ENOSYS.
#include <cerrno>
#include <cstring>

#include "os/console.h"
#include "os/descriptors.h"
#include "os/direct_files.h"
#include "os/error_boxes.h"
#include "os/file_names.h"
#include "os/file_search.h"
#include "os/folders.h"
#include "os/kernel_objects.h"
#include "os/links.h"
#include "os/machine.h"
#include "os/modules.h"
#include "os/named_pipes.h"
#include "os/process.h"
#include "os/registry.h"
#include "os/shared_memory.h"
#include "os/volumes.h"
#include "os/working_set.h"

namespace kiv::os {
namespace {

constexpr Result kUnbound = {false, ENOSYS};

template <typename Value>
ValueResult<Value> UnboundValue(Value value = {}) {
  return {false, ENOSYS, value};
}

}  // namespace

// ---- console.h ----

ValueResult<void*> StandardInput() { return UnboundValue<void*>(); }
ValueResult<void*> StandardOutput() { return UnboundValue<void*>(); }
ValueResult<uint32_t> ConsoleEventsWaiting(void*) { return UnboundValue<uint32_t>(); }
ValueResult<ConsoleEvent> TakeConsoleEvent(void*) { return UnboundValue<ConsoleEvent>(); }
uint8_t ReadKeyByte() { return 0; }
Result PrintText(const char*) { return kUnbound; }

// ---- descriptors.h ----

const uint32_t kErrnoBadDescriptor = EBADF;
const uint32_t kErrnoNoSpace = ENOSPC;
const uint32_t kErrorDiskFull = ENOSPC;

ValueResult<uint32_t> CreateDescriptor(const char*, uint32_t) {
  return UnboundValue(kNoDescriptor);
}
ValueResult<uint32_t> OpenDescriptor(const char*, uint32_t, uint32_t) {
  return UnboundValue(kNoDescriptor);
}
ValueResult<SharedDescriptor> OpenSharedDescriptor(const char*, uint32_t, uint32_t, uint32_t) {
  return UnboundValue(SharedDescriptor{kNoDescriptor, false});
}
Result CloseDescriptor(uint32_t) { return kUnbound; }
Result FlushDescriptor(uint32_t) { return kUnbound; }
ValueResult<uint32_t> TellDescriptor(uint32_t) { return UnboundValue(0xFFFFFFFFu); }
ValueResult<uint32_t> DescriptorLength(uint32_t) { return UnboundValue(0xFFFFFFFFu); }
int32_t IsAtEnd(uint32_t) { return -1; }
Result ResizeDescriptor(uint32_t, int32_t) { return kUnbound; }

// ---- direct_files.h ----

const uint32_t kErrorSharingViolation = EBUSY;
const uint32_t kErrorEndOfFile = 38;
const uint32_t kErrorTransferPending = 997;

ValueResult<void*> OpenDirectFile(const char*, uint32_t, uint32_t, uint32_t, uint32_t) {
  return UnboundValue<void*>();
}
Result CloseDirectFile(void*) { return kUnbound; }
Result RemoveDirectFile(const char*) { return kUnbound; }
ValueResult<uint32_t> TransferOutcome(void*, KivSdNoWaitCb*) { return UnboundValue<uint32_t>(); }
ValueResult<uint32_t> DirectFileSize(void*) { return UnboundValue<uint32_t>(); }
Result EndFileAtPosition(void*) { return kUnbound; }

// ---- error_boxes.h ----

uint32_t SetErrorBoxes(uint32_t) { return kErrorBoxesHidden; }

// ---- file_names.h ----

bool IsAccessible(const char*, uint32_t) { return false; }
Result RemoveFileByName(const char*) { return kUnbound; }
ValueResult<char*> MakeTemporaryName(const char*) { return UnboundValue<char*>(); }
int32_t RuntimeProcessId() { return 0; }

// ---- file_search.h ----

const uint32_t kErrorNoMoreFiles = ENOENT;
const uint32_t kErrorPathTooLong = ENAMETOOLONG;
const char* const kEveryFile = "*";

ValueResult<void*> StartFileSearch(const char*, KivSdFindData*) { return UnboundValue<void*>(); }
Result ContinueFileSearch(void*, KivSdFindData*) { return kUnbound; }
Result EndFileSearch(void*) { return kUnbound; }
uint32_t AbsolutePath(const char*, uint32_t, char*) { return 0; }

// ---- folders.h ----

const uint32_t kErrnoMissing = ENOENT;

Result ChangeFolder(const char*) { return kUnbound; }
Result MakeFolder(const char*) { return kUnbound; }
Result RemoveFolder(const char*) { return kUnbound; }
Result MakeWritable(const char*) { return kUnbound; }

// ---- kernel_objects.h ----

const uint32_t kErrorTooManyPosts = EOVERFLOW;

Wait WaitOne(void*, uint32_t) { return {0xFFFFFFFF, ENOSYS}; }
Result CloseObject(void*) { return kUnbound; }
ValueResult<void*> MakeSemaphore(const char*, int32_t, int32_t) { return UnboundValue<void*>(); }
ValueResult<void*> OpenNamedSemaphore(const char*) { return UnboundValue<void*>(); }
Result GiveSemaphore(void*, int32_t, int32_t*) { return kUnbound; }
ValueResult<void*> MakeMutex(const char*) { return UnboundValue<void*>(); }
ValueResult<void*> OpenNamedMutex(const char*) { return UnboundValue<void*>(); }
Result GiveMutex(void*) { return kUnbound; }
ValueResult<void*> MakeAutoEvent(bool) { return UnboundValue<void*>(); }
ValueResult<void*> MakeManualEvent() { return UnboundValue<void*>(); }
Result SignalEvent(void*) { return kUnbound; }
Result UnsignalEvent(void*) { return kUnbound; }

// ---- links.h ----

const uint32_t kFirstVersionWithLinks = 0;

uint32_t MajorVersion() { return 0; }
Result MakeLink(const char*, const char*) { return kUnbound; }

// ---- machine.h ----

const uint32_t kErrorBufferTooSmall = ERANGE;

uint32_t SystemVersion() { return 0; }
MemoryStatus PhysicalMemory() { return {}; }
ValueResult<MemoryStatus> PagingMemory() { return UnboundValue<MemoryStatus>(); }
ValueResult<uint32_t> SystemDirectory(char*, uint32_t) { return UnboundValue<uint32_t>(); }
Result LoginName(char*, uint32_t) { return kUnbound; }

// ---- modules.h ----

const uint32_t kErrorFirstModuleText = 0;
const uint32_t kErrorLastModuleText = 0;

ValueResult<void*> LoadModule(const char*, ModuleSearch) { return UnboundValue<void*>(); }
Result UnloadModule(void*) { return kUnbound; }
ValueResult<void*> FindEntry(void*, const char*) { return UnboundValue<void*>(); }
void* MainModule() { return nullptr; }
ValueResult<uint32_t> ModulePath(void*, char*, uint32_t) { return UnboundValue<uint32_t>(); }
void UpperCase(char*) {}
ValueResult<uint32_t> SystemMessage(uint32_t, const char* const*, char*, uint32_t) {
  return UnboundValue<uint32_t>();
}

// ---- named_pipes.h ----

const uint32_t kErrorPipeConnected = 535;
const uint32_t kPipeOverlapped = 0x40000000;

Result PrepareAccessList(void* storage) {
  std::memset(storage, 0, kAccessListBytes);
  return {true, 0};
}
Result OpenAccessListToAll(void*) { return {true, 0}; }
ValueResult<void*> MakeNamedPipe(const char*, const NamedPipeShape&, void*) {
  return UnboundValue<void*>();
}
ValueResult<void*> OpenPipeFile(const char*, uint32_t, uint32_t, uint32_t, uint32_t) {
  return UnboundValue<void*>();
}
Result WaitForNamedPipe(const char*, uint32_t) { return kUnbound; }
Result ConnectPipe(void*) { return kUnbound; }
Result DisconnectPipe(void*) { return kUnbound; }
ValueResult<PipeContent> PeekPipe(void*, void*, uint32_t) { return UnboundValue<PipeContent>(); }

// ---- process.h ----

const uint32_t kErrorAccessDenied = EPERM;

void* CurrentProcessHandle() { return nullptr; }
uint32_t CurrentProcessId() { return 0; }
Result EndProcess(void*, uint32_t) { return kUnbound; }
ValueResult<uint32_t> ReadPriorityClass(void*) { return UnboundValue<uint32_t>(); }
Result WritePriorityClass(void*, uint32_t) { return kUnbound; }

// ---- registry.h ----

const uint32_t kRegistryMultiString = 7;

ValueResult<void*> OpenRegistryKey(const char*) { return UnboundValue<void*>(); }
ValueResult<uint32_t> LargestRegistryValue(void*) { return UnboundValue<uint32_t>(); }
ValueResult<RegistryValue> ReadRegistryValue(void*, const char*, void*, uint32_t) {
  return UnboundValue<RegistryValue>();
}
Result CloseRegistryKey(void*) { return kUnbound; }

// ---- shared_memory.h ----

const uint32_t kErrorNameExists = EEXIST;

ValueResult<void*> MakeBlock(const char*, uint32_t, uint32_t) { return UnboundValue<void*>(); }
ValueResult<void*> OpenBlock(const char*, uint32_t) { return UnboundValue<void*>(); }
Result CloseBlock(void*) { return kUnbound; }
ValueResult<void*> MapBlock(void*, uint32_t, uint32_t) { return UnboundValue<void*>(); }
Result UnmapBlock(void*) { return kUnbound; }

// ---- volumes.h ----

ValueResult<uint32_t> DriveMask() { return UnboundValue<uint32_t>(); }
uint32_t CurrentDrive() { return 0; }
Result VolumeNames(const char*, char*, uint32_t, char*, uint32_t) { return kUnbound; }
ValueResult<DiskSpace> FreeDiskSpace(const char*) { return UnboundValue<DiskSpace>(); }
DriveType TypeOfDrive(const char*) { return DriveType::kUnknown; }

// ---- working_set.h ----

const uint32_t kErrorNoSuchPrivilege = EPERM;
const uint32_t kErrorPrivilegeNotHeld = EPERM;

ValueResult<WorkingSet> ReadWorkingSet(void*) { return UnboundValue<WorkingSet>(); }
Result WriteWorkingSet(void*, const WorkingSet&) { return kUnbound; }

}  // namespace kiv::os
