// Files as streams. file.h states the units, limits and text modes.
#ifndef KIVSDU_CPP_FILES_HPP
#define KIVSDU_CPP_FILES_HPP

#include <utility>

#include "../file.h"
#include "error.hpp"

namespace kivsdu {
namespace detail {

// The positioned operations report the system's error, but errno 9 if the descriptor is bad.
inline ErrorCode Positioned(const ErrorCode& outcome) noexcept {
  constexpr uint32_t kBadDescriptor = 9;
  const bool isBad = outcome.Status() == KIV_ST_FILE_READ && outcome.OsError() == kBadDescriptor;
  return isBad ? ErrorCode(KIV_ST_FILE_READ, kBadDescriptor, OsErrorKind::kRuntime) : outcome;
}

}  // namespace detail

// The permissions of a new file that may be read and written.
inline constexpr uint32_t kReadAndWritePermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

// An open file, closed with its owner. Text or binary: name one in the open flags.
class File {
 public:
  File() noexcept = default;

  // Opens a file that others may open too.
  //
  //   openFlags  KIV_FILEO_...
  File(const char* path, uint32_t openFlags, uint32_t permissions = kReadAndWritePermissions) {
    ErrorCode error;
    *this = File(path, openFlags, permissions, error);
    ThrowIfFailed(error, "open a file");
  }
  File(const char* path, uint32_t openFlags, uint32_t permissions, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileOpen(ctx, path, openFlags, permissions, &descriptor_);
    });
  }

  // Opens a file and limits the access of others.
  //
  //   shareFlags  KIV_FILE_DENY_...
  static File OpenShared(const char* path, uint32_t openFlags, uint32_t shareFlags,
                         uint32_t permissions = kReadAndWritePermissions) {
    ErrorCode error;
    File file = OpenShared(path, openFlags, shareFlags, permissions, error);
    ThrowIfFailed(error, "open a file");
    return file;
  }
  static File OpenShared(const char* path, uint32_t openFlags, uint32_t shareFlags,
                         uint32_t permissions, ErrorCode& error) noexcept {
    File file;
    error = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileSOpen(ctx, path, openFlags, shareFlags, permissions, &file.descriptor_);
    });
    return file;
  }

  File(File&& other) noexcept : descriptor_(other.Release()) {}
  File& operator=(File&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~File() {
    if (IsOpen()) KivSdFileClose(nullptr, descriptor_);
  }

  bool IsOpen() const noexcept { return descriptor_ != KIV_FILE_NONE; }
  uint32_t Descriptor() const noexcept { return descriptor_; }

  // Gives the descriptor to the caller, who closes it.
  uint32_t Release() noexcept { return std::exchange(descriptor_, KIV_FILE_NONE); }

  // Closes the file. The destructor does that too, but ignores a failure.
  void Close() {
    ErrorCode error;
    Close(error);
    ThrowIfFailed(error, "close a file");
  }
  void Close(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kRuntime,
                            [&](KivSdContext* ctx) { return KivSdFileClose(ctx, Release()); });
  }

  // ---- Transfers. They return the bytes transferred: 0 at the end of the file ----

  uint32_t Read(void* buffer, uint32_t length) {
    ErrorCode error;
    const uint32_t count = Read(buffer, length, error);
    ThrowIfFailed(error, "read a file");
    return count;
  }
  uint32_t Read(void* buffer, uint32_t length, ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileRead(ctx, descriptor_, buffer, length, &count);
    });
    return error ? 0 : count;
  }

  // If the disk fills up during the write, the result is less than length.
  uint32_t Write(const void* buffer, uint32_t length) {
    ErrorCode error;
    const uint32_t count = Write(buffer, length, error);
    ThrowIfFailed(error, "write a file");
    return count;
  }
  uint32_t Write(const void* buffer, uint32_t length, ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileWrite(ctx, descriptor_, buffer, length, &count);
    });
    return error ? 0 : count;
  }

  // A read at or behind the end of the file returns 0.
  uint32_t ReadAt(void* buffer, uint32_t offset, uint32_t length) {
    ErrorCode error;
    const uint32_t count = ReadAt(buffer, offset, length, error);
    ThrowIfFailed(error, "read a file");
    return count;
  }
  uint32_t ReadAt(void* buffer, uint32_t offset, uint32_t length, ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Positioned(detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdFilePRead(ctx, descriptor_, buffer, offset, length, &count);
    }));
    if (error.Status() == KIV_ST_FILE_READ && error.OsError() == KIV_OS_END_OF_FILE) error = {};
    return error ? 0 : count;
  }

  uint32_t WriteAt(const void* buffer, uint32_t offset, uint32_t length) {
    ErrorCode error;
    const uint32_t count = WriteAt(buffer, offset, length, error);
    ThrowIfFailed(error, "write a file");
    return count;
  }
  uint32_t WriteAt(const void* buffer, uint32_t offset, uint32_t length,
                   ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Positioned(detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdFilePWrite(ctx, descriptor_, buffer, offset, length, &count, nullptr);
    }));
    return error ? 0 : count;
  }

  // Reads a line with its line feed, or the part of it that fits. Returns false at the end of the
  // file.
  bool ReadLine(char* buffer, uint32_t sizeBytes) {
    ErrorCode error;
    const bool read = ReadLine(buffer, sizeBytes, error);
    ThrowIfFailed(error, "read a line");
    return read;
  }
  bool ReadLine(char* buffer, uint32_t sizeBytes, ErrorCode& error) noexcept {
    const ErrorCode outcome = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileGets(ctx, descriptor_, buffer, sizeBytes);
    });
    error = outcome.Status() == KIV_ST_FILE_END ? ErrorCode() : outcome;
    return outcome.Status() == KIV_ST_OK;
  }

  void Flush() {
    ErrorCode error;
    Flush(error);
    ThrowIfFailed(error, "flush a file");
  }
  void Flush(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kRuntime,
                            [&](KivSdContext* ctx) { return KivSdFileFlush(ctx, descriptor_); });
  }

  // ---- Position and length ----

  // Moves the position and returns the new one.
  //
  //   origin  KIV_SEEK_...
  uint64_t Seek(int64_t offset, uint32_t origin) {
    ErrorCode error;
    const uint64_t position = Seek(offset, origin, error);
    ThrowIfFailed(error, "seek in a file");
    return position;
  }
  uint64_t Seek(int64_t offset, uint32_t origin, ErrorCode& error) noexcept {
    uint64_t position = 0;
    error = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileLSeek64(ctx, descriptor_, offset, origin, &position);
    });
    return error ? 0 : position;
  }

  // Up to 2 GiB.
  uint32_t Length() {
    ErrorCode error;
    const uint32_t length = Length(error);
    ThrowIfFailed(error, "read the length of a file");
    return length;
  }
  uint32_t Length(ErrorCode& error) noexcept {
    uint32_t length = 0;
    error = detail::Outcome(OsErrorKind::kRuntime, [&](KivSdContext* ctx) {
      return KivSdFileLength(ctx, descriptor_, &length);
    });
    return error ? 0 : length;
  }

 private:
  uint32_t descriptor_ = KIV_FILE_NONE;
};

}  // namespace kivsdu

#endif
