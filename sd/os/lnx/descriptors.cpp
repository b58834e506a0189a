// Linux: a file is a descriptor of the kernel. The words of the Windows runtime are translated
// here, bit by bit.
//
//   word      value   Linux
//   append    0x0008  every write goes to the end in one step. O_APPEND is not used, because then
//                     writes at an offset would go to the end too
//   random    0x0010  advice to the kernel
//   sequence  0x0020  advice to the kernel
//   delete    0x0040  CloseDescriptor removes the file; a process that is killed leaves it behind
//   private   0x0080  always: no program that the process starts inherits a descriptor
//   create    0x0100  O_CREAT
//   empty     0x0200  the file is emptied after its share mode is granted
//   only new  0x0400  O_EXCL; without "create" it means nothing
//   short     0x1000  a hint without meaning here
//   text      0x4000  text_mode.h; the default
//   binary    0x8000  has precedence over text
#include "os/descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "os/lnx/descriptor_modes.h"
#include "os/lnx/open_file.h"
#include "os/lnx/posix.h"
#include "os/lnx/raw_transfers.h"
#include "os/lnx/share_claims.h"
#include "os/lnx/system_file.h"
#include "os/lnx/text_mode.h"

namespace kiv::os {

const uint32_t kErrnoBadDescriptor = EBADF;
const uint32_t kErrnoNoSpace = ENOSPC;
const uint32_t kErrorDiskFull = ENOSPC;

namespace {

constexpr uint32_t kOpenAccess = 0x0003;
constexpr uint32_t kOpenAppend = 0x0008;
constexpr uint32_t kOpenRandom = 0x0010;
constexpr uint32_t kOpenSequential = 0x0020;
constexpr uint32_t kOpenTemporary = 0x0040;
constexpr uint32_t kOpenNotInherited = 0x0080;
constexpr uint32_t kOpenCreate = 0x0100;
constexpr uint32_t kOpenEmpty = 0x0200;
constexpr uint32_t kOpenShortLived = 0x1000;
constexpr uint32_t kOpenText = 0x4000;
constexpr uint32_t kOpenKnown = kOpenAccess | kOpenAppend | kOpenRandom | kOpenSequential |
                                kOpenTemporary | kOpenNotInherited | kOpenCreate | kOpenEmpty |
                                kOpenOnlyIfNew | kOpenShortLived | kOpenText | kOpenBinary;

constexpr uint32_t kShareDenyWrite = 0x20;
constexpr uint32_t kShareDenyRead = 0x30;
constexpr uint32_t kShareSecure = 0x80;  // others may read what this open only reads

// The bit of a permission word that makes a new file writable. Every file is readable.
constexpr uint32_t kPermissionToWrite = 0x80;

int NumberOf(uint32_t file) { return static_cast<int>(file); }

uint32_t LastErrno() { return static_cast<uint32_t>(errno); }

template <typename Value>
ValueResult<Value> Failed(uint32_t error) {
  return {false, error, static_cast<Value>(-1)};
}

template <typename Value>
ValueResult<Value> FromNumber(int64_t number) {
  if (number == -1) return Failed<Value>(LastErrno());
  return {true, 0, static_cast<Value>(number)};
}

// ---- Opening ----

bool TranslateAccess(uint32_t openFlags, OpenPlan* plan) {
  switch (openFlags & kOpenAccess) {
    case 0:
      plan->access = O_RDONLY;
      plan->uses = kRightRead;
      return true;
    case 1:
      plan->access = O_WRONLY;
      plan->uses = kRightWrite;
      return true;
    case 2:
      plan->access = O_RDWR;
      plan->uses = kRightRead | kRightWrite;
      return true;
    default:
      return false;
  }
}

bool TranslateShare(uint32_t shareFlags, OpenPlan* plan) {
  switch (shareFlags) {
    case kShareNothing:
      plan->denies = kRightRead | kRightWrite;
      return true;
    case kShareDenyWrite:
      plan->denies = kRightWrite;
      return true;
    case kShareDenyRead:
      plan->denies = kRightRead;
      return true;
    case kShareEverything:
      return true;
    case kShareSecure:
      plan->denies = plan->access == O_RDONLY ? kRightWrite : kRightRead | kRightWrite;
      return true;
    default:
      return false;
  }
}

bool TranslateOpen(uint32_t openFlags, uint32_t permissions, OpenPlan* plan) {
  if ((openFlags & ~kOpenKnown) != 0 || !TranslateAccess(openFlags, plan)) return false;
  const bool creates = (openFlags & kOpenCreate) != 0;
  const bool onlyNew = (openFlags & kOpenOnlyIfNew) != 0;
  if (creates) plan->making = onlyNew ? Making::kOnlyNew : Making::kIfMissing;
  plan->empties = (openFlags & kOpenEmpty) != 0;
  plan->readOnlyIfNew = (permissions & kPermissionToWrite) == 0;
  // Emptying a file that is not opened for writing needs "create", as on Windows.
  return !plan->empties || creates || plan->access != O_RDONLY;
}

DescriptorMode ModeFor(uint32_t openFlags, bool isRegular) {
  uint32_t mode = kModeOpened;
  if ((openFlags & kOpenBinary) == 0) mode |= kModeText;
  if ((openFlags & kOpenAppend) != 0) mode |= kModeAppend;
  if ((openFlags & kOpenTemporary) != 0) mode |= kModeDeleteOnClose;
  if (isRegular) mode |= kModeRegular;
  return static_cast<DescriptorMode>(mode);
}

void Advise(int descriptor, uint32_t openFlags) {
  if ((openFlags & kOpenRandom) != 0) posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
  if ((openFlags & kOpenSequential) != 0) posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
}

// The runtime drops an end mark that ends a text file it opens for reading and writing: writes at
// the end would otherwise lie behind the mark.
void DropEndMark(int descriptor) {
  constexpr char kEndMark = 26;
  const off_t last = lseek(descriptor, -1, SEEK_END);
  char byte = 0;
  if (last != -1 && ReadRaw(descriptor, &byte, 1) == 1 && byte == kEndMark) {
    static_cast<void>(FromErrno(ftruncate(descriptor, last)));
  }
  lseek(descriptor, 0, SEEK_SET);
}

ValueResult<SharedDescriptor> Open(const char* path, uint32_t openFlags, uint32_t shareFlags,
                                   uint32_t permissions) {
  constexpr SharedDescriptor kNone = {kNoDescriptor, false};
  OpenPlan plan;
  if (!TranslateOpen(openFlags, permissions, &plan) || !TranslateShare(shareFlags, &plan)) {
    return {false, EINVAL, kNone};
  }
  const OpenedFile opened = OpenFile(path, plan);
  if (opened.descriptor == -1) {
    return {false, opened.error, {kNoDescriptor, opened.heldByAnother}};
  }
  const DescriptorMode mode = ModeFor(openFlags, opened.isRegular);
  if (!RememberDescriptor(opened.descriptor, mode)) {
    static_cast<void>(CloseOnce(opened.descriptor));
    return {false, ENOMEM, kNone};
  }
  Advise(opened.descriptor, openFlags);
  const bool mayEndInMark = (mode & kModeText) != 0 && opened.isRegular && plan.access == O_RDWR;
  if (mayEndInMark) DropEndMark(opened.descriptor);
  return {true, 0, {static_cast<uint32_t>(opened.descriptor), false}};
}

// ---- Positions ----

bool IsOrigin(uint32_t origin) { return origin <= SEEK_END; }

// A read that met the end mark goes on behind the new position.
void ForgetReadAhead(int descriptor) {
  const DescriptorMode mode = ModeOf(descriptor);
  if ((mode & (kModeEndSeen | kModeHolds)) == 0) return;
  TakeFromMode(descriptor, static_cast<DescriptorMode>(0xFF00 | kModeEndSeen | kModeHolds));
}

int64_t Seek(int descriptor, int64_t offset, uint32_t origin) {
  if (!IsOrigin(origin)) {
    errno = EINVAL;
    return -1;
  }
  const int64_t position = lseek(descriptor, offset, static_cast<int>(origin));
  if (position != -1) ForgetReadAhead(descriptor);
  return position;
}

}  // namespace

ValueResult<uint32_t> CreateDescriptor(const char* path, uint32_t permissions) {
  return OpenDescriptor(path, kOpenCreate | kOpenEmpty | kOpenReadWrite, permissions);
}

ValueResult<uint32_t> OpenDescriptor(const char* path, uint32_t openFlags, uint32_t permissions) {
  const ValueResult<SharedDescriptor> opened = Open(path, openFlags, kShareEverything, permissions);
  return {opened.ok, opened.error, opened.value.file};
}

ValueResult<SharedDescriptor> OpenSharedDescriptor(const char* path, uint32_t openFlags,
                                                   uint32_t shareFlags, uint32_t permissions) {
  return Open(path, openFlags, shareFlags, permissions);
}

Result CloseDescriptor(uint32_t file) {
  const int descriptor = NumberOf(file);
  // Forgotten first: as soon as the descriptor is closed, another thread may open its number.
  const DescriptorMode mode = ForgetDescriptor(descriptor);
  if ((mode & kModeDeleteOnClose) != 0) RemoveNameOf(descriptor);
  return CloseOnce(descriptor);
}

// ---- Transfers ----

ValueResult<uint32_t> ReadDescriptor(uint32_t file, void* buffer, uint32_t length) {
  const int descriptor = NumberOf(file);
  if ((ModeOf(descriptor) & kModeText) != 0) {
    return FromNumber<uint32_t>(ReadText(descriptor, static_cast<char*>(buffer), length));
  }
  return FromNumber<uint32_t>(ReadRaw(descriptor, buffer, length));
}

ValueResult<uint32_t> WriteDescriptor(uint32_t file, const void* buffer, uint32_t length) {
  const int descriptor = NumberOf(file);
  const DescriptorMode mode = ModeOf(descriptor);
  if ((mode & kModeText) != 0) {
    return FromNumber<uint32_t>(WriteText(descriptor, static_cast<const char*>(buffer), length));
  }
  if ((mode & kModeAppend) != 0) return FromNumber<uint32_t>(AppendRaw(descriptor, buffer, length));
  if ((mode & kModeRegular) != 0) return FromNumber<uint32_t>(WriteRaw(descriptor, buffer, length));
  return FromNumber<uint32_t>(WriteRawWithoutSignal(descriptor, buffer, length));
}

Result FlushDescriptor(uint32_t file) {
  Result flushed = {false, EINTR};
  while (!flushed.ok && flushed.error == EINTR) flushed = FromErrno(fsync(NumberOf(file)));
  return flushed;
}

ValueResult<void*> SystemFile(uint32_t file) {
  const int descriptor = NumberOf(file);
  // An entry saves the call: the binding opened the descriptor, and has not closed it.
  if (ModeOf(descriptor) == 0 && fcntl(descriptor, F_GETFD) == -1) {
    return {false, LastErrno(), nullptr};
  }
  return {true, 0, SystemFileOf(descriptor)};
}

// ---- Positions and sizes ----

ValueResult<uint32_t> SeekDescriptor(uint32_t file, int32_t offset, uint32_t origin) {
  const int descriptor = NumberOf(file);
  const int64_t before = origin == SEEK_SET ? 0 : lseek(descriptor, 0, SEEK_CUR);
  const int64_t position = Seek(descriptor, offset, origin);
  if (position <= INT32_MAX) return FromNumber<uint32_t>(position);
  lseek(descriptor, before, SEEK_SET);
  return Failed<uint32_t>(EOVERFLOW);
}

ValueResult<uint64_t> SeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin) {
  return FromNumber<uint64_t>(Seek(NumberOf(file), offset, origin));
}

ValueResult<uint32_t> TellDescriptor(uint32_t file) {
  const int64_t position = lseek(NumberOf(file), 0, SEEK_CUR);
  if (position > INT32_MAX) return Failed<uint32_t>(EOVERFLOW);
  return FromNumber<uint32_t>(position);
}

ValueResult<uint32_t> DescriptorLength(uint32_t file) {
  struct stat status;
  if (fstat(NumberOf(file), &status) == -1) return Failed<uint32_t>(LastErrno());
  if (!S_ISREG(status.st_mode)) return Failed<uint32_t>(ESPIPE);
  if (status.st_size > INT32_MAX) return Failed<uint32_t>(EOVERFLOW);
  return {true, 0, static_cast<uint32_t>(status.st_size)};
}

int32_t IsAtEnd(uint32_t file) {
  const int descriptor = NumberOf(file);
  struct stat status;
  const int64_t position = Seek(descriptor, 0, SEEK_CUR);
  if (position == -1 || fstat(descriptor, &status) == -1) return -1;
  return position == status.st_size ? 1 : 0;
}

Result ResizeDescriptor(uint32_t file, int32_t length) {
  if (length < 0) return {false, EINVAL};
  return ResizeFile(NumberOf(file), length);
}

}  // namespace kiv::os
