// Reading and writing a folder's mark; see folder_mark.h.
#include "storage/folder_mark.h"

#include <stddef.h>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/status.h"
#include "storage/checksum.h"

namespace cellhost {
namespace {

constexpr uint32_t kOpenFlags = KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_BINARY;
constexpr uint32_t kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

struct MarkBytes {
  uint64_t kind;  // kMarkKind
  uint64_t lastPut;
  uint64_t checksum;  // of the fields before it
};
static_assert(offsetof(MarkBytes, lastPut) == 8, "layout of the file");
static_assert(offsetof(MarkBytes, checksum) == 16, "layout of the file");
static_assert(sizeof(MarkBytes) == 24, "layout of the file");

constexpr uint64_t kMarkKind = 0x0001'6B72'616D'6C63;  // "clmark" and layout version 1

uint64_t ChecksumOfMark(const MarkBytes& mark) {
  return ChecksumOf(&mark, offsetof(MarkBytes, checksum));
}

}  // namespace

FolderMark::~FolderMark() {
  if (file_ == KIV_FILE_NONE) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdFileClose(ctx, file_), "close a folder's mark");
}

bool FolderMark::Fails(uint32_t status, const char* what) const {
  return Complain("could not %s '%s': %s", what, path_.c_str(),
                  ReasonOf(ThisContext(), status).text);
}

bool FolderMark::Open(const std::string& path) {
  path_ = path;
  KivSdContext* ctx = ThisContext();
  const uint32_t opened =
      KivSdFileSOpen(ctx, path.c_str(), kOpenFlags, KIV_FILE_DENY_WRITE, kPermissions, &file_);
  if (opened == KIV_ST_FILE_SHARING) {
    return Complain("another server uses '%s'; end it, or give another folder with --data",
                    path.c_str());
  }
  if (opened != 0) return Fails(opened, "open");
  MarkBytes mark = {};
  uint32_t count = 0;
  const uint32_t read = KivSdFileRead(ctx, file_, &mark, sizeof mark, &count);
  if (read != 0) return Fails(read, "read");
  isEmpty_ = count == 0;
  isWhole_ =
      count == sizeof mark && mark.kind == kMarkKind && mark.checksum == ChecksumOfMark(mark);
  lastPut_ = isWhole_ ? mark.lastPut : 0;
  return true;
}

bool FolderMark::Set(uint64_t lastPut) {
  MarkBytes mark = {.kind = kMarkKind, .lastPut = lastPut, .checksum = 0};
  mark.checksum = ChecksumOfMark(mark);
  KivSdContext* ctx = ThisContext();
  uint32_t count = 0;
  uint32_t osError = 0;
  const uint32_t written = KivSdFilePWrite(ctx, file_, &mark, 0, sizeof mark, &count, &osError);
  if (written != 0) return Fails(written, "write");
  if (count != sizeof mark)
    return Complain("only a part of the mark could be written to '%s'", path_.c_str());
  const uint32_t flushed = KivSdFileFlush(ctx, file_);
  if (flushed != 0) return Fails(flushed, "flush");
  isEmpty_ = false;
  isWhole_ = true;
  lastPut_ = lastPut;
  return true;
}

}  // namespace cellhost
