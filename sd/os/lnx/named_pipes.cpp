// Linux: named pipes are local sockets in a private folder of the user (pipe_names.h). They reach
// this machine and this user only.
#include "os/named_pipes.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "os/lnx/anonymous_pipe.h"
#include "os/lnx/futex.h"
#include "os/lnx/named_pipe.h"
#include "os/lnx/pipe_handle.h"
#include "os/thread.h"

namespace kiv::os {

const uint32_t kPipeOverlapped = 0x40000000;

namespace {

constexpr int kNoDescriptor = -1;

// ---- The flags of Windows ----

// Open mode.
constexpr uint32_t kInbound = 0x1;   // from client to server
constexpr uint32_t kOutbound = 0x2;  // from server to client
constexpr uint32_t kDirections = kInbound | kOutbound;
constexpr uint32_t kFirstInstance = 0x00080000;
constexpr uint32_t kWriteThrough = 0x80000000;  // every local transfer is
constexpr uint32_t kOpenModes = kDirections | kFirstInstance | kWriteThrough | 0x40000000;

// Pipe mode.
constexpr uint32_t kNoWait = 0x1;
constexpr uint32_t kReadMessages = 0x2;
constexpr uint32_t kMessages = 0x4;
constexpr uint32_t kRejectRemote = 0x8;  // no remote client can connect anyway
constexpr uint32_t kPipeModes = kNoWait | kReadMessages | kMessages | kRejectRemote;

// Access of a client: generic rights, rights to data, and rights that concern no data.
constexpr uint32_t kReadAccess = 0x80000000 | 0x10000000 | 0x1;
constexpr uint32_t kWriteAccess = 0x40000000 | 0x10000000 | 0x2 | 0x4;
constexpr uint32_t kOtherAccess = 0x00100000 | 0x00020000 | 0x80 | 0x100;
constexpr uint32_t kAccesses = kReadAccess | kWriteAccess | kOtherAccess;

constexpr uint32_t kShareModes = 0x7;  // without effect: a connection has one client
constexpr uint32_t kOpenExisting = 3;
constexpr uint32_t kOpenAlways = 4;

// What a server may do in the client's name: nothing here, which is the least of all.
constexpr uint32_t kImpersonation = 0x001F0000;
constexpr uint32_t kNormalFile = 0x80;
constexpr uint32_t kClientFlags = 0x40000000 | kWriteThrough | kImpersonation | kNormalFile;

bool HasOnly(uint32_t flags, uint32_t known) { return (flags & ~known) == 0; }

// A default time-out of 0 means this one.
constexpr uint32_t kUsualTimeoutMs = 50;

void* InvalidHandle() { return reinterpret_cast<void*>(intptr_t{-1}); }

ValueResult<void*> FailedOpen(uint32_t error) { return {false, error, InvalidHandle()}; }

// ---- Making ----

bool IsValid(const NamedPipeShape& shape) {
  const bool readsMessagesOfBytes =
      (shape.pipeMode & kReadMessages) != 0 && (shape.pipeMode & kMessages) == 0;
  return HasOnly(shape.openMode, kOpenModes) && HasOnly(shape.pipeMode, kPipeModes) &&
         (shape.openMode & kDirections) != 0 && !readsMessagesOfBytes &&
         shape.maximumInstances >= 1 && shape.maximumInstances <= kUnlimitedPipes;
}

PipeTraits TraitsOf(const NamedPipeShape& shape) {
  return {shape.openMode & kDirections, (shape.pipeMode & kMessages) != 0 ? 1u : 0u,
          shape.maximumInstances, shape.inBytes,
          shape.defaultTimeoutMs != 0 ? shape.defaultTimeoutMs : kUsualTimeoutMs};
}

// Takes the instance's place and its socket, for a record that owns nothing yet.
Result TakePlace(const PipeFolder& folder, const NamedPipeShape& shape, NamedPipe* pipe) {
  const PipeTraits traits = TraitsOf(shape);
  const bool onlyFirst = (shape.openMode & kFirstInstance) != 0;
  const ValueResult<PipeInstance> place = TakeInstance(folder, pipe->name, traits, onlyFirst);
  if (!place.ok) return {false, place.error};
  const ValueResult<int> listener =
      ListenAt(folder, pipe->name, place.value.number, traits.isMessage != 0);
  if (!listener.ok) {
    LeaveInstance(folder, pipe->name, place.value);
    return {false, listener.error};
  }
  pipe->isServer = true;
  pipe->instance = place.value;
  pipe->listener = listener.value;
  return {true, 0};
}

Result TakePlaceInFolder(const NamedPipeShape& shape, NamedPipe* pipe) {
  const PipeFolder folder;
  return folder.result().ok ? TakePlace(folder, shape, pipe) : folder.result();
}

// Gives a complete record a handle, or ends it.
ValueResult<void*> FinishOpen(NamedPipe* pipe, const Result& result, bool canRead, bool canWrite) {
  void* handle = result.ok ? MakePipeHandle(pipe, kNoDescriptor, canRead, canWrite) : nullptr;
  if (handle != nullptr) return {true, 0, handle};
  EndNamedPipe(pipe);
  return FailedOpen(result.ok ? uint32_t{ENOMEM} : result.error);
}

// ---- Opening ----

bool IsAllowed(uint32_t access, const PipeTraits& traits) {
  const bool mayRead = (traits.access & kOutbound) != 0;
  const bool mayWrite = (traits.access & kInbound) != 0;
  return (mayRead || (access & kReadAccess) == 0) && (mayWrite || (access & kWriteAccess) == 0);
}

// Connects to any instance that waits.
ValueResult<int> ConnectToAny(const PipeFolder& folder, const NameFile& name,
                              const ExistingPipe& existing) {
  uint32_t number = 0;
  while ((number = NextInstance(existing.file, number)) != 0) {
    const ValueResult<int> connected =
        ConnectTo(folder, name, number, existing.traits.isMessage != 0);
    if (connected.ok || connected.error != EBUSY) return connected;
  }
  return {false, EBUSY, kNoDescriptor};
}

Result OpenClient(const NameFile& name, uint32_t access, NamedPipe* pipe) {
  const PipeFolder folder;
  if (!folder.result().ok) return folder.result();
  const ValueResult<ExistingPipe> found = FindPipe(folder, name);
  if (!found.ok) return {false, found.error};
  const ValueResult<int> connected = IsAllowed(access, found.value.traits)
                                         ? ConnectToAny(folder, name, found.value)
                                         : ValueResult<int>{false, EACCES, kNoDescriptor};
  close(found.value.file);
  if (!connected.ok) return {false, connected.error};
  pipe->connection = connected.value;
  pipe->isMessage = found.value.traits.isMessage != 0;
  PrepareConnection(pipe->connection, pipe->isMessage, found.value.traits.clientBytes);
  return {true, 0};
}

// ---- Waiting ----

constexpr uint32_t kFirstPauseMs = 1;
constexpr uint32_t kLongestPauseMs = 8;

// Looks once for an instance that waits: EBUSY if all have clients, ENOENT if there is none.
Result LookForInstance(const NameFile& name, uint32_t* defaultTimeoutMs) {
  const PipeFolder folder;
  if (!folder.result().ok) return folder.result();
  const ValueResult<ExistingPipe> found = FindPipe(folder, name);
  if (!found.ok) return {false, found.error};
  *defaultTimeoutMs = found.value.traits.defaultTimeoutMs;
  uint32_t number = 0;
  bool isFree = false;
  while (!isFree && (number = NextInstance(found.value.file, number)) != 0) {
    isFree = IsListening(folder, name, number);
  }
  close(found.value.file);
  return {isFree, isFree ? 0 : uint32_t{EBUSY}};
}

}  // namespace

// The folder of the names decides who may connect: nobody but the user. The list is not used.
Result PrepareAccessList(void* storage) {
  std::memset(storage, 0, kAccessListBytes);
  return {true, 0};
}

Result OpenAccessListToAll(void* /*storage*/) { return {true, 0}; }

ValueResult<void*> MakeNamedPipe(const char* path, const NamedPipeShape& shape,
                                 void* /*accessList*/) {
  if (!IsValid(shape)) return FailedOpen(EINVAL);
  NameFile name;
  const Result named = FileOfPipe(path, &name);
  if (!named.ok) return FailedOpen(named.error);
  NamedPipe* pipe = MakeNamedPipeRecord();
  if (pipe == nullptr) return FailedOpen(ENOMEM);
  pipe->name = name;
  pipe->isMessage = (shape.pipeMode & kMessages) != 0;
  pipe->readsMessages = (shape.pipeMode & kReadMessages) != 0;
  pipe->isNoWait = (shape.pipeMode & kNoWait) != 0;
  pipe->writeBytes = shape.outBytes;
  const Result taken = TakePlaceInFolder(shape, pipe);
  return FinishOpen(pipe, taken, (shape.openMode & kInbound) != 0,
                    (shape.openMode & kOutbound) != 0);
}

ValueResult<void*> OpenPipeFile(const char* path, uint32_t access, uint32_t shareMode,
                                uint32_t disposition, uint32_t flags) {
  const bool opens = disposition == kOpenExisting || disposition == kOpenAlways;
  const bool areKnown =
      HasOnly(access, kAccesses) && HasOnly(shareMode, kShareModes) && HasOnly(flags, kClientFlags);
  if (!opens || !areKnown) return FailedOpen(EINVAL);
  NameFile name;
  const Result named = FileOfPipe(path, &name);
  if (!named.ok) return FailedOpen(named.error);
  NamedPipe* pipe = MakeNamedPipeRecord();
  if (pipe == nullptr) return FailedOpen(ENOMEM);
  const Result opened = OpenClient(name, access, pipe);
  return FinishOpen(pipe, opened, (access & kReadAccess) != 0, (access & kWriteAccess) != 0);
}

// Looks again from time to time: no process is sure to announce that an instance is free, because it
// may be killed.
Result WaitForNamedPipe(const char* path, uint32_t timeoutMs) {
  NameFile name;
  const Result named = FileOfPipe(path, &name);
  if (!named.ok) return named;
  uint32_t limitMs = 0;
  Result look = LookForInstance(name, &limitMs);
  if (timeoutMs != 0) limitMs = timeoutMs;
  const Deadline deadline = DeadlineAfter(limitMs);
  uint32_t pauseMs = kFirstPauseMs;
  while (!look.ok && look.error == EBUSY) {
    if (IsPast(deadline)) return {false, ETIMEDOUT};
    SleepMs(pauseMs);
    if (pauseMs < kLongestPauseMs) pauseMs *= 2;
    look = LookForInstance(name, &limitMs);
  }
  return look;
}

Result ConnectPipe(void* pipe) {
  const PipeUse use(pipe);
  if (!use) return {false, EBADF};
  return use->named != nullptr ? ConnectNamedPipe(use->named) : Result{false, EINVAL};
}

Result DisconnectPipe(void* pipe) {
  const PipeUse use(pipe);
  if (!use) return {false, EBADF};
  return use->named != nullptr ? DisconnectNamedPipe(use->named) : Result{false, EINVAL};
}

ValueResult<PipeContent> PeekPipe(void* pipe, void* buffer, uint32_t sizeBytes) {
  const PipeUse use(pipe);
  if (!use) return {false, EBADF, {}};
  if (!use->canRead) return {false, EACCES, {}};
  if (use->named == nullptr) return PeekAnonymousPipe(use->descriptor, buffer, sizeBytes);
  return PeekNamedPipe(use->named, buffer, sizeBytes);
}

}  // namespace kiv::os
