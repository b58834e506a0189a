// Appending to the journal and reading it; see journal.h.
#include "storage/journal.h"

#include <algorithm>

#include "host/complain.h"
#include "host/progress.h"
#include "host/thread_record.h"

namespace cellhost {
namespace {

constexpr char kSourcePiece[] = "cellhost/journal piece";

constexpr uint32_t kOpenFlags = KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_BINARY;
constexpr uint32_t kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

// The library's streams support offsets and lengths up to 2 GiB.
constexpr uint32_t kLengthMax = 0x7FFFFFE0;
static_assert(kLengthMax % kRecordBytes == 0);

// Bytes per read at the start: few calls for a long journal, and little memory.
constexpr uint32_t kPieceBytes = 1024 * 1024;
constexpr uint32_t kPieceRecords = kPieceBytes / kRecordBytes;

}  // namespace

Journal::~Journal() {
  if (file_ == KIV_FILE_NONE) return;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdFileClose(ctx, file_), "close the journal");
}

bool Journal::Fails(uint32_t status, const char* what) const {
  return Complain("could not %s '%s': %s", what, path_.c_str(),
                  ReasonOf(ThisContext(), status).text);
}

bool Journal::Open(const std::string& path) {
  path_ = path;
  const uint32_t status = KivSdFileSOpen(ThisContext(), path.c_str(), kOpenFlags,
                                         KIV_FILE_DENY_WRITE, kPermissions, &file_);
  if (status != 0) return Fails(status, "open");
  const uint32_t told = KivSdFileLength(ThisContext(), file_, &endBytes_);
  return told == 0 || Fails(told, "read the length of");
}

// Reads the complete records from the offset on, up to a piece.
bool Journal::ReadPiece(uint32_t offset, Piece* piece) const {
  const uint32_t records = std::min((endBytes_ - offset) / kRecordBytes, kPieceRecords);
  piece->Clear();
  if (!piece->Resize(records, {})) return false;
  uint32_t count = 0;
  const uint32_t status =
      KivSdFilePRead(ThisContext(), file_, piece->data(), offset, records * kRecordBytes, &count);
  if (status != 0) return Fails(status, "read");
  if (count == records * kRecordBytes) return true;
  return Complain("'%s' became shorter while it was read; let only the server change it",
                  path_.c_str());
}

bool Journal::Replay(uint64_t included, uint64_t reach, Replayed* replayed,
                     const CarryOut& carryOut) {
  *replayed = {};
  JournalScan scan(included);
  Piece piece(kSourcePiece);
  Progress progress("PUTs");
  for (uint32_t offset = 0; endBytes_ - offset >= kRecordBytes;) {
    if (!ReadPiece(offset, &piece)) return false;
    for (uint32_t at = 0; at < piece.count(); ++at, offset += kRecordBytes) {
      const JournalScan::Step step = scan.Next(piece[at]);
      if (step == JournalScan::Step::kCarryOut && !carryOut(piece[at].cell)) return false;
      if (!Count(step, offset, replayed)) return false;
      progress.Update(offset / kRecordBytes, offset, endBytes_);
    }
  }
  return MakeReady(scan, reach, replayed);
}

// Counts a record. Returns false if the record must not be at this place, after reporting it.
bool Journal::Count(JournalScan::Step step, uint32_t offset, Replayed* replayed) const {
  const bool last = endBytes_ - offset == kRecordBytes;
  switch (step) {
    case JournalScan::Step::kCarryOut:
      ++replayed->carriedOut;
      return true;
    case JournalScan::Step::kPassOver:
      ++replayed->passedOver;
      return true;
    case JournalScan::Step::kDamaged:
      replayed->droppedBytes = kRecordBytes;
      if (last) return true;
      break;
    case JournalScan::Step::kGap:
      break;
  }
  return Complain("record %u of '%s' %s; restore the folder from a backup", offset / kRecordBytes,
                  path_.c_str(),
                  step == JournalScan::Step::kGap ? "does not follow the one before it"
                                                  : "is damaged, and others follow it");
}

// Cuts off a torn end. Empties a journal whose records the cells all include, because the next PUT
// need not follow the last of these records.
bool Journal::MakeReady(const JournalScan& scan, uint64_t reach, Replayed* replayed) {
  if (scan.lastPut() < reach) {
    return Complain("'%s' ends at PUT %llu and had %llu; restore the folder from a backup",
                    path_.c_str(), static_cast<unsigned long long>(scan.lastPut()),
                    static_cast<unsigned long long>(reach));
  }
  replayed->droppedBytes += endBytes_ % kRecordBytes;
  lastPut_ = scan.lastPut();
  const uint32_t keptBytes = scan.hasNews() ? endBytes_ - replayed->droppedBytes : 0;
  if (keptBytes != endBytes_ && !CutTo(keptBytes)) return false;
  endBytes_ = keptBytes;
  return true;
}

bool Journal::CutTo(uint32_t lengthBytes) {
  KivSdContext* ctx = ThisContext();
  const uint32_t cut = KivSdFileSetEndOfFile(ctx, file_, lengthBytes, nullptr, nullptr);
  if (cut != 0) return Fails(cut, "cut");
  const uint32_t flushed = KivSdFileFlush(ctx, file_);
  return flushed == 0 || Fails(flushed, "flush");
}

// Cuts the file to the last valid record. If this fails, the next PUT overwrites the rest.
void Journal::CutBack() {
  if (CutTo(endBytes_)) return;
  const unsigned long long refused = lastPut_ + 1;
  Complain("PUT %llu was refused, and may be carried out if the server is killed before the next",
           refused);
}

bool Journal::WriteRecord(const JournalRecord& record) {
  KivSdContext* ctx = ThisContext();
  uint32_t count = 0;
  uint32_t osError = 0;
  const uint32_t written =
      KivSdFilePWrite(ctx, file_, &record, endBytes_, kRecordBytes, &count, &osError);
  if (written != 0) return Fails(written, "write");
  if (count != kRecordBytes)
    return Complain("only a part of a record could be written to '%s'", path_.c_str());
  const uint32_t flushed = KivSdFileFlush(ctx, file_);
  return flushed == 0 || Fails(flushed, "flush");
}

bool Journal::Append(const StoredCell& cell, Fault* fault) {
  if (endBytes_ >= kLengthMax) {
    return Wrong(fault, "nothing stored: the journal is full; stop the server and start it anew");
  }
  if (!WriteRecord(MakeRecord(lastPut_ + 1, cell))) {
    CutBack();
    return NotWritten(fault);
  }
  endBytes_ += kRecordBytes;
  ++lastPut_;
  return true;
}

void Journal::TakeBack() {
  endBytes_ -= kRecordBytes;
  --lastPut_;
  CutBack();
}

bool Journal::StartAnew() {
  if (!CutTo(0)) return false;
  endBytes_ = 0;
  return true;
}

bool NotWritten(Fault* fault) {
  return Wrong(fault, "nothing stored: the journal cannot be written; see what the server said");
}

}  // namespace cellhost
