// Reading and writing blocks; see page_file.h.
#include "storage/page_file.h"

#include <string.h>

#include <algorithm>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/file.h"
#include "kivsdu/memory.h"
#include "kivsdu/status.h"

namespace cellhost {
namespace {

constexpr uint32_t kReadAndWriteAccess = KIV_ACCESS_READ | KIV_ACCESS_WRITE;

// The stream that flushes a file.
constexpr uint32_t kReadAndWriteBinary = KIV_FILEO_READ_WRITE | KIV_FILEO_BINARY;
constexpr uint32_t kNoPermissions = 0;

// The completion records have a page behind the buffers.
constexpr uint32_t kPlacePages = kTransfersMax + 1;
static_assert(kPageBytes == KIV_PAGE_UNIT);
static_assert(kTransfersMax * sizeof(KivSdNoWaitCb) <= kPageBytes);

bool Fails(const char* path, uint32_t status, const char* what) {
  return Complain("could not %s '%s': %s", what, path, ReasonOf(ThisContext(), status).text);
}

}  // namespace

PageTransfers::~PageTransfers() {
  Close();
  FreePlaces();
}

bool PageTransfers::MakePlaces() {
  KivSdContext* ctx = ThisContext();
  void* places = nullptr;
  if (!Succeeded(ctx, KivSdAlignedMemAlloc(ctx, kPlacePages, &places), "get pages for blocks")) {
    return false;
  }
  pages_ = static_cast<CellPage*>(places);
  records_ = static_cast<KivSdNoWaitCb*>(static_cast<void*>(pages_ + kTransfersMax));
  memset(records_, 0, kTransfersMax * sizeof *records_);
  hasEvents_ = true;
  return Succeeded(ctx, KivSdDirectIONoWaitCbsInit(ctx, records_, kTransfersMax),
                   "make the events of transfers");
}

// Does not free buffers into which an abandoned transfer may still write; the end of the process
// frees them.
void PageTransfers::FreePlaces() {
  if (pages_ == nullptr || abandoned_) return;
  KivSdContext* ctx = ThisContext();
  if (hasEvents_) {
    Succeeded(ctx, KivSdDirectIONoWaitCbsTerm(ctx, records_, kTransfersMax),
              "close the events of transfers");
  }
  Succeeded(ctx, KivSdAlignedMemFree(ctx, pages_), "free the pages of blocks");
  pages_ = nullptr;
}

bool PageTransfers::Open(const char* path, uint32_t access, uint32_t disposition) {
  path_ = path;
  const uint32_t status = KivSdDirectIOFileOpen(ThisContext(), path, access, KIV_SHARE_READ,
                                                disposition, nullptr, KIV_OPEN_OVERLAPPED, &file_);
  if (status != 0) return Fails(path, status, "open");
  return MakePlaces();
}

// Notes that a transfer was started. One that ended at once is collected like the others: its event
// is signalled.
bool PageTransfers::Started(uint32_t number, uint32_t status, uint32_t underWayStatus,
                            const char* what) {
  if (status != 0 && status != underWayStatus) {
    return Complain("could not %s block %u of '%s': %s", what, number, path_,
                    ReasonOf(ThisContext(), status).text);
  }
  underWay_[number % kTransfersMax] = true;
  numbers_[number % kTransfersMax] = number;
  return true;
}

bool PageTransfers::StartRead(uint32_t number) {
  uint32_t blocksRead = 0;
  const uint32_t status = KivSdDirectIOFileRead(ThisContext(), file_, number, PlaceFor(number), 1,
                                                &records_[number % kTransfersMax], &blocksRead);
  return Started(number, status, KIV_ST_DIRECT_READ_PENDING, "read");
}

bool PageTransfers::StartWrite(uint32_t number) {
  uint32_t blocksWritten = 0;
  const uint32_t status = KivSdDirectIOFileWrite(ThisContext(), file_, number, PlaceFor(number), 1,
                                                 &records_[number % kTransfersMax], &blocksWritten);
  return Started(number, status, KIV_ST_DIRECT_WRITE_PENDING, "write");
}

bool PageTransfers::Collect(uint32_t number) {
  const uint32_t place = number % kTransfersMax;
  if (!underWay_[place]) return true;
  underWay_[place] = false;
  KivSdContext* ctx = ThisContext();
  uint32_t blocksDone = 0;
  const uint32_t status = KivSdDirectIOWait(ctx, file_, &records_[place], &blocksDone);
  if (status == KIV_ST_EVENT_WAIT || status == KIV_ST_DIRECT_WAIT_ABANDONED) abandoned_ = true;
  if (status != 0) {
    return Complain("could not transfer block %u of '%s': %s", numbers_[place], path_,
                    ReasonOf(ctx, status).text);
  }
  if (blocksDone == 1) return true;
  return Complain("'%s' ends inside of block %u; restore it from a backup", path_, numbers_[place]);
}

bool PageTransfers::CollectAll(uint32_t oldest) {
  bool all = true;
  for (uint32_t at = 0; at < kTransfersMax; ++at) {
    if (!Collect(oldest + at)) all = false;
  }
  return all;
}

bool PageTransfers::Close() {
  if (file_ == KIV_DIRECTIO_NONE) return true;
  const bool collected = CollectAll(0);
  KivSdContext* ctx = ThisContext();
  const uint32_t status = KivSdDirectIOFileClose(ctx, file_);
  file_ = KIV_DIRECTIO_NONE;
  return Succeeded(ctx, status, "close a file of blocks") && collected;
}

bool PageReader::Open(const char* path) {
  if (!transfers_.Open(path, KIV_ACCESS_READ, KIV_DISPOSITION_OPEN_EXISTING)) return false;
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdDirectIOFileSize(ctx, transfers_.file(), &pageCount_),
                   "read the size of a file of blocks");
}

const CellPage* PageReader::Next() {
  // The caller no longer uses the last returned block, so that its buffer is free.
  const uint32_t end = std::min(pageCount_, next_ + kTransfersMax);
  for (; started_ < end; ++started_) {
    if (!transfers_.StartRead(started_)) return nullptr;
  }
  if (!transfers_.Collect(next_)) return nullptr;
  const CellPage* page = transfers_.PlaceFor(next_);
  if (!IsSound(*page, next_)) {
    Complain("block %u of '%s' is damaged; restore the folder from a backup", next_,
             transfers_.path());
    return nullptr;
  }
  ++next_;
  return page;
}

bool PageWriter::Make(const char* path, uint32_t pageCount) {
  if (!transfers_.Open(path, kReadAndWriteAccess, KIV_DISPOSITION_CREATE_ALWAYS)) return false;
  KivSdContext* ctx = ThisContext();
  uint32_t newSize = 0;
  return Succeeded(ctx, KivSdDirectIOFileSetEndOfFile(ctx, transfers_.file(), pageCount, &newSize),
                   "set the size of a file of blocks");
}

CellPage* PageWriter::Room() {
  return transfers_.Collect(next_) ? transfers_.PlaceFor(next_) : nullptr;
}

bool PageWriter::Write() { return transfers_.StartWrite(next_++); }

bool PageWriter::Finish() {
  return transfers_.CollectAll(next_) && transfers_.Close() && FlushFile(transfers_.path());
}

bool FlushFile(const char* path) {
  KivSdContext* ctx = ThisContext();
  uint32_t file = KIV_FILE_NONE;
  const uint32_t opened = KivSdFileOpen(ctx, path, kReadAndWriteBinary, kNoPermissions, &file);
  if (opened != 0) return Fails(path, opened, "open");
  const uint32_t flushed = KivSdFileFlush(ctx, file);
  const bool onDevice = flushed == 0 || Fails(path, flushed, "flush");
  return Succeeded(ctx, KivSdFileClose(ctx, file), "close a file") && onDevice;
}

}  // namespace cellhost
