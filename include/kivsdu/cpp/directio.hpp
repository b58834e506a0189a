// Direct I/O: pages, files, and transfers that go on after their call. directio.h states units,
// limits and the rules of unbuffered files.
//
//   kivsdu::TransferLease lease(writer);
//   kivsdu::Transfer transfer;
//   transfer.StartWrite(file, block, pages.Block(0), 1, &lease);
//   ...
//   transfer.Collect();
//
// Buffer and file stay as they are until the transfer has been collected.
#ifndef KIVSDU_CPP_DIRECTIO_HPP
#define KIVSDU_CPP_DIRECTIO_HPP

#include <cstddef>
#include <utility>

#include "../directio.h"
#include "../memory.h"
#include "error.hpp"
#include "leases.hpp"

namespace kivsdu {
namespace detail {

// The kind of the OS error of a transfer's status.
inline ErrorCode TransferError(const KivSdContext& ctx, uint32_t status) noexcept {
  const bool isOfWait = status == KIV_ST_EVENT_WAIT;
  return {status, ctx.osError, isOfWait ? OsErrorKind::kWait : OsErrorKind::kSystem};
}

}  // namespace detail

// ---- Pages ----

// Pages of KIV_PAGE_UNIT bytes, aligned for unbuffered files. They are outside the limit and the
// totals of the memory manager. From 524288 pages (4 GiB) on, the constructors fail with
// KIV_ST_ARGUMENT.
class AlignedPages {
 public:
  AlignedPages() noexcept = default;
  explicit AlignedPages(uint32_t count) {
    ErrorCode error;
    *this = AlignedPages(count, error);
    ThrowIfFailed(error, "allocate pages");
  }
  AlignedPages(uint32_t count, ErrorCode& error) noexcept {
    // The operation counts bytes in 32 bits, and would allocate the rest of a division by 4 GiB.
    if (count > UINT32_MAX / KIV_PAGE_UNIT) {
      error = ErrorCode(KIV_ST_ARGUMENT, 0, OsErrorKind::kSystem);
      return;
    }
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdAlignedMemAlloc(ctx, count, &pages_);
    });
    count_ = error ? 0 : count;
  }
  AlignedPages(AlignedPages&& other) noexcept
      : pages_(std::exchange(other.pages_, nullptr)), count_(std::exchange(other.count_, 0)) {}
  AlignedPages& operator=(AlignedPages&& other) noexcept {
    std::swap(pages_, other.pages_);
    std::swap(count_, other.count_);
    return *this;
  }
  ~AlignedPages() {
    if (pages_ != nullptr) KivSdAlignedMemFree(nullptr, pages_);
  }

  uint32_t Count() const noexcept { return count_; }
  void* Data() const noexcept { return pages_; }
  // The address of a page. The index is not checked.
  void* Block(uint32_t index) const noexcept {
    return static_cast<char*>(pages_) + std::size_t{index} * KIV_PAGE_UNIT;
  }

 private:
  void* pages_ = nullptr;
  uint32_t count_ = 0;
};

// ---- Files ----

// An unbuffered file, closed with its owner. Its transfers must have been collected before.
class DirectFile {
 public:
  DirectFile() noexcept = default;

  //   access       KIV_ACCESS_...
  //   shareMode    KIV_SHARE_...
  //   disposition  KIV_DISPOSITION_...
  //   flags        KIV_ATTRIBUTE_... and KIV_OPEN_.... With KIV_OPEN_OVERLAPPED a Transfer goes on
  //                after its start, and Read and Write must not be used
  DirectFile(const char* path, uint32_t access, uint32_t shareMode, uint32_t disposition,
             uint32_t flags) {
    ErrorCode error;
    *this = DirectFile(path, access, shareMode, disposition, flags, error);
    ThrowIfFailed(error, "open a direct file");
  }
  DirectFile(const char* path, uint32_t access, uint32_t shareMode, uint32_t disposition,
             uint32_t flags, ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileOpen(ctx, path, access, shareMode, disposition, nullptr, flags,
                                   &file_);
    });
  }
  DirectFile(DirectFile&& other) noexcept : file_(other.Release()) {}
  DirectFile& operator=(DirectFile&& other) noexcept {
    std::swap(file_, other.file_);
    return *this;
  }
  ~DirectFile() {
    if (IsOpen()) KivSdDirectIOFileClose(nullptr, file_);
  }

  bool IsOpen() const noexcept { return file_ != KIV_DIRECTIO_NONE; }
  uint32_t Get() const noexcept { return file_; }

  // Gives the file to the caller, who closes it.
  uint32_t Release() noexcept { return std::exchange(file_, KIV_DIRECTIO_NONE); }

  void Close() {
    ErrorCode error;
    Close(error);
    ThrowIfFailed(error, "close a direct file");
  }
  void Close(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileClose(ctx, Release());
    });
  }

  // Reads blocks, and returns the blocks read: fewer at the end of the file. One thread at a time may
  // read.
  uint32_t Read(uint32_t firstBlock, void* buffer, uint32_t blockCount) {
    ErrorCode error;
    const uint32_t count = Read(firstBlock, buffer, blockCount, error);
    ThrowIfFailed(error, "read blocks");
    return count;
  }
  uint32_t Read(uint32_t firstBlock, void* buffer, uint32_t blockCount, ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileRead(ctx, file_, firstBlock, buffer, blockCount, nullptr, &count);
    });
    if (error.Status() == KIV_ST_FILE_END) error = {};
    return count;
  }

  // Writes blocks, and returns the whole blocks written.
  uint32_t Write(uint32_t firstBlock, const void* buffer, uint32_t blockCount) {
    ErrorCode error;
    const uint32_t count = Write(firstBlock, buffer, blockCount, error);
    ThrowIfFailed(error, "write blocks");
    return count;
  }
  uint32_t Write(uint32_t firstBlock, const void* buffer, uint32_t blockCount,
                 ErrorCode& error) noexcept {
    uint32_t count = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileWrite(ctx, file_, firstBlock, buffer, blockCount, nullptr, &count);
    });
    return count;
  }

  // The size in whole blocks.
  uint32_t Size() {
    ErrorCode error;
    const uint32_t blocks = Size(error);
    ThrowIfFailed(error, "read the size of a direct file");
    return blocks;
  }
  uint32_t Size(ErrorCode& error) noexcept {
    uint32_t blocks = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileSize(ctx, file_, &blocks);
    });
    return blocks;
  }

  // Truncates or extends the file to a number of blocks below 262144 (2 GiB).
  void Resize(uint32_t blocks) {
    ErrorCode error;
    Resize(blocks, error);
    ThrowIfFailed(error, "resize a direct file");
  }
  void Resize(uint32_t blocks, ErrorCode& error) noexcept {
    uint32_t newSize = 0;
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileSetEndOfFile(ctx, file_, blocks, &newSize);
    });
  }

 private:
  uint32_t file_ = KIV_DIRECTIO_NONE;
};

// ---- Transfers in the background ----

// One write lease for the transfers of one thread: taken when the first of them starts, and returned
// when the last has been collected. A pause of the writers therefore waits for all of them.
//
// The writer must not have another lease meanwhile. The lease outlives its transfers, and the
// writer's thread starts and collects them.
class TransferLease {
 public:
  explicit TransferLease(Writer& writer) noexcept : writer_(writer) {}
  TransferLease(const TransferLease&) = delete;
  TransferLease& operator=(const TransferLease&) = delete;

  // Transfers that have not been collected.
  uint32_t InFlight() const noexcept { return inFlight_; }

 private:
  friend class Transfer;

  void Enter(ErrorCode& error) noexcept {
    if (inFlight_ == 0) writer_.lock(error);
    if (!error) ++inFlight_;
  }
  void Leave() noexcept {
    --inFlight_;
    if (inFlight_ == 0) writer_.unlock();
  }

  Writer& writer_;
  uint32_t inFlight_ = 0;
};

// A completion record and its event. It serves one transfer after the other. The destructor collects
// a transfer that is still in flight, and waits for it.
//
// The system writes into the record while a transfer is in flight, so a Transfer cannot be moved.
class Transfer {
 public:
  Transfer() {
    ErrorCode error;
    Make(error);
    ThrowIfFailed(error, "make a completion record");
  }
  explicit Transfer(ErrorCode& error) noexcept { Make(error); }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() {
    ErrorCode ignored;
    if (inFlight_) Collect(ignored);
    if (record_.event != nullptr) KivSdDirectIONoWaitCbsTerm(nullptr, &record_, 1);
  }

  // Whether a transfer was started and has not been collected.
  bool IsInFlight() const noexcept { return inFlight_; }

  // Starts to read blocks. The earlier transfer must have been collected.
  void StartRead(const DirectFile& file, uint32_t firstBlock, void* buffer, uint32_t blockCount) {
    ErrorCode error;
    StartRead(file, firstBlock, buffer, blockCount, error);
    ThrowIfFailed(error, "start to read blocks");
  }
  void StartRead(const DirectFile& file, uint32_t firstBlock, void* buffer, uint32_t blockCount,
                 ErrorCode& error) noexcept {
    Start(file, nullptr, error, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileRead(ctx, file.Get(), firstBlock, buffer, blockCount, &record_,
                                   &blocks_);
    });
  }

  // Starts to write blocks.
  //
  //   lease  held until the transfer has been collected; null if no pause can stop the writers.
  //          Waits while a pause is in force
  void StartWrite(const DirectFile& file, uint32_t firstBlock, const void* buffer,
                  uint32_t blockCount, TransferLease* lease = nullptr) {
    ErrorCode error;
    StartWrite(file, firstBlock, buffer, blockCount, lease, error);
    ThrowIfFailed(error, "start to write blocks");
  }
  void StartWrite(const DirectFile& file, uint32_t firstBlock, const void* buffer,
                  uint32_t blockCount, TransferLease* lease, ErrorCode& error) noexcept {
    Start(file, lease, error, [&](KivSdContext* ctx) {
      return KivSdDirectIOFileWrite(ctx, file.Get(), firstBlock, buffer, blockCount, &record_,
                                    &blocks_);
    });
  }

  // Waits until the transfer has ended, and returns the blocks transferred: fewer than asked for at
  // the end of the file. Without a transfer in flight it returns the last number again.
  uint32_t Collect() {
    ErrorCode error;
    const uint32_t blocks = Collect(error);
    ThrowIfFailed(error, "transfer blocks");
    return blocks;
  }
  uint32_t Collect(ErrorCode& error) noexcept {
    error = {};
    if (!inFlight_) return blocks_;
    KivSdContext ctx = {};
    const uint32_t status = KivSdDirectIOWait(&ctx, file_, &record_, &blocks_);
    // After a failed wait the system may still use the record: the transfer stays in flight.
    if (status != KIV_ST_EVENT_WAIT && status != KIV_ST_DIRECT_WAIT_ABANDONED) End();
    if (status != KIV_ST_OK && status != KIV_ST_FILE_END)
      error = detail::TransferError(ctx, status);
    return blocks_;
  }

  KivSdNoWaitCb* Get() noexcept { return &record_; }

 private:
  void Make(ErrorCode& error) noexcept {
    error = detail::Outcome(OsErrorKind::kSystem, [&](KivSdContext* ctx) {
      return KivSdDirectIONoWaitCbsInit(ctx, &record_, 1);
    });
  }

  static bool HasStarted(uint32_t status) noexcept {
    return status == KIV_ST_OK || status == KIV_ST_DIRECT_READ_PENDING ||
           status == KIV_ST_DIRECT_WRITE_PENDING;
  }

  template <class Operation>
  void Start(const DirectFile& file, TransferLease* lease, ErrorCode& error,
             Operation operation) noexcept {
    error = {};
    if (inFlight_) {
      error = ErrorCode(KIV_ST_ARGUMENT, 0, OsErrorKind::kSystem);
      return;
    }
    if (lease != nullptr) lease->Enter(error);
    if (error) return;
    blocks_ = 0;
    file_ = file.Get();
    lease_ = lease;
    inFlight_ = true;
    KivSdContext ctx = {};
    const uint32_t status = operation(&ctx);
    if (HasStarted(status)) return;
    End();
    // A read behind the end of the file starts nothing and needs no wait.
    if (status != KIV_ST_FILE_END) error = detail::TransferError(ctx, status);
  }

  void End() noexcept {
    inFlight_ = false;
    if (lease_ != nullptr) std::exchange(lease_, nullptr)->Leave();
  }

  KivSdNoWaitCb record_ = {};
  TransferLease* lease_ = nullptr;
  uint32_t file_ = KIV_DIRECTIO_NONE;
  uint32_t blocks_ = 0;
  bool inFlight_ = false;
};

}  // namespace kivsdu

#endif
