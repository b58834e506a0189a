#include "os/descriptors.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::SharedDescriptor;
using os::ValueResult;

constexpr int32_t kFailed = -1;
constexpr uint32_t kSharingViolation = 32;

KIV_SEAM_PRIMITIVE(CreateDescriptor, "_ZN3kiv2os16CreateDescriptorEPKcj")
KIV_SEAM_PRIMITIVE(OpenDescriptor, "_ZN3kiv2os14OpenDescriptorEPKcjj")
KIV_SEAM_PRIMITIVE(OpenSharedDescriptor, "_ZN3kiv2os20OpenSharedDescriptorEPKcjjj")
KIV_SEAM_PRIMITIVE(CloseDescriptor, "_ZN3kiv2os15CloseDescriptorEj")
KIV_SEAM_PRIMITIVE(ReadDescriptor, "_ZN3kiv2os14ReadDescriptorEjPvj")
KIV_SEAM_PRIMITIVE(WriteDescriptor, "_ZN3kiv2os15WriteDescriptorEjPKvj")
KIV_SEAM_PRIMITIVE(FlushDescriptor, "_ZN3kiv2os15FlushDescriptorEj")
KIV_SEAM_PRIMITIVE(SystemFile, "_ZN3kiv2os10SystemFileEj")
KIV_SEAM_PRIMITIVE(SeekDescriptor, "_ZN3kiv2os14SeekDescriptorEjij")
KIV_SEAM_PRIMITIVE(SeekDescriptor64, "_ZN3kiv2os16SeekDescriptor64Ejlj")
KIV_SEAM_PRIMITIVE(TellDescriptor, "_ZN3kiv2os14TellDescriptorEj")
KIV_SEAM_PRIMITIVE(DescriptorLength, "_ZN3kiv2os16DescriptorLengthEj")
KIV_SEAM_PRIMITIVE(IsAtEnd, "_ZN3kiv2os7IsAtEndEj")
KIV_SEAM_PRIMITIVE(ResizeDescriptor, "_ZN3kiv2os16ResizeDescriptorEji")

namespace {

// The stand-ins return numbers of the runtime: -1 is a failure.
int32_t ToNumber(const ValueResult<uint32_t>& result) {
  return static_cast<int32_t>(ToValue(result));
}

ValueResult<uint32_t> FromNumber(int32_t number) {
  const auto value = static_cast<uint32_t>(number);
  if (number != kFailed) return {true, 0, value};
  return {false, static_cast<uint32_t>(errno), value};
}

int32_t Creat(const char* path, uint32_t permissions) {
  return ToNumber(RealCreateDescriptor(path, permissions));
}

int32_t Open(const char* path, uint32_t flags, uint32_t permissions) {
  return ToNumber(RealOpenDescriptor(path, flags, permissions));
}

int32_t ShareOpen(const char* path, uint32_t flags, uint32_t share, uint32_t permissions) {
  const ValueResult<SharedDescriptor> opened =
      RealOpenSharedDescriptor(path, flags, share, permissions);
  if (!opened.ok) {
    SetErrors(static_cast<int>(opened.error),
              opened.value.heldByAnother ? kSharingViolation : opened.error);
  }
  return static_cast<int32_t>(opened.value.file);
}

int32_t Close(uint32_t file) { return ToZero(RealCloseDescriptor(file)); }

int32_t Read(uint32_t file, void* buffer, uint32_t length) {
  return ToNumber(RealReadDescriptor(file, buffer, length));
}

int32_t Write(uint32_t file, const void* buffer, uint32_t length) {
  return ToNumber(RealWriteDescriptor(file, buffer, length));
}

int32_t Commit(uint32_t file) { return ToZero(RealFlushDescriptor(file)); }

intptr_t GetOsHandle(uint32_t file) {
  const ValueResult<void*> found = RealSystemFile(file);
  StoreError({found.ok, found.error});
  return found.ok ? reinterpret_cast<intptr_t>(found.value) : kFailed;
}

int32_t Seek(uint32_t file, int32_t offset, uint32_t origin) {
  return ToNumber(RealSeekDescriptor(file, offset, origin));
}

int64_t Seek64(uint32_t file, int64_t offset, uint32_t origin) {
  return static_cast<int64_t>(ToValue(RealSeekDescriptor64(file, offset, origin)));
}

int32_t Tell(uint32_t file) { return ToNumber(RealTellDescriptor(file)); }
int32_t Length(uint32_t file) { return ToNumber(RealDescriptorLength(file)); }
int32_t Eof(uint32_t file) { return RealIsAtEnd(file); }

int32_t ChangeSize(uint32_t file, int32_t length) {
  return ToZero(RealResizeDescriptor(file, length));
}

SeamImport<decltype(Creat)> creat("_creat", Creat);
SeamImport<decltype(Open)> open("_open", Open);
SeamImport<decltype(ShareOpen)> shareOpen("_sopen", ShareOpen);
SeamImport<decltype(Close)> close("_close", Close);
SeamImport<decltype(Read)> read("_read", Read);
SeamImport<decltype(Write)> write("_write", Write);
SeamImport<decltype(Commit)> commit("_commit", Commit);
SeamImport<decltype(GetOsHandle)> getOsHandle("_get_osfhandle", GetOsHandle);
SeamImport<decltype(Seek)> seek("_lseek", Seek);
SeamImport<decltype(Seek64)> seek64("_lseeki64", Seek64);
SeamImport<decltype(Tell)> tell("_tell", Tell);
SeamImport<decltype(Length)> length("_filelength", Length);
SeamImport<decltype(Eof)> eof("_eof", Eof);
SeamImport<decltype(ChangeSize)> changeSize("_chsize", ChangeSize);

}  // namespace

ValueResult<uint32_t> WrapCreateDescriptor(const char* path, uint32_t permissions) {
  return FromNumber(creat.Call(path, permissions));
}

ValueResult<uint32_t> WrapOpenDescriptor(const char* path, uint32_t flags, uint32_t permissions) {
  return FromNumber(open.Call(path, flags, permissions));
}

ValueResult<SharedDescriptor> WrapOpenSharedDescriptor(const char* path, uint32_t flags,
                                                       uint32_t share, uint32_t permissions) {
  SetErrors(errno, 0);
  const int32_t file = shareOpen.Call(path, flags, share, permissions);
  if (file != kFailed) return {true, 0, {static_cast<uint32_t>(file), false}};
  const bool held = SeamLastError() == kSharingViolation;
  return {false, static_cast<uint32_t>(errno), {os::kNoDescriptor, held}};
}

Result WrapCloseDescriptor(uint32_t file) { return FromZero(close.Call(file)); }

ValueResult<uint32_t> WrapReadDescriptor(uint32_t file, void* buffer, uint32_t sizeBytes) {
  return FromNumber(read.Call(file, buffer, sizeBytes));
}

ValueResult<uint32_t> WrapWriteDescriptor(uint32_t file, const void* buffer, uint32_t sizeBytes) {
  return FromNumber(write.Call(file, buffer, sizeBytes));
}

Result WrapFlushDescriptor(uint32_t file) { return FromZero(commit.Call(file)); }

ValueResult<void*> WrapSystemFile(uint32_t file) {
  const intptr_t handle = getOsHandle.Call(file);
  if (handle != kFailed) return {true, 0, reinterpret_cast<void*>(handle)};
  return {false, static_cast<uint32_t>(errno), nullptr};
}

ValueResult<uint32_t> WrapSeekDescriptor(uint32_t file, int32_t offset, uint32_t origin) {
  return FromNumber(seek.Call(file, offset, origin));
}

ValueResult<uint64_t> WrapSeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin) {
  const int64_t position = seek64.Call(file, offset, origin);
  const auto value = static_cast<uint64_t>(position);
  if (position != kFailed) return {true, 0, value};
  return {false, static_cast<uint32_t>(errno), value};
}

ValueResult<uint32_t> WrapTellDescriptor(uint32_t file) { return FromNumber(tell.Call(file)); }
ValueResult<uint32_t> WrapDescriptorLength(uint32_t file) { return FromNumber(length.Call(file)); }
int32_t WrapIsAtEnd(uint32_t file) { return eof.Call(file); }

Result WrapResizeDescriptor(uint32_t file, int32_t sizeBytes) {
  return FromZero(changeSize.Call(file, sizeBytes));
}

}  // namespace kiv::test
