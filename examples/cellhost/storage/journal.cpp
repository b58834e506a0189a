// Appending to the journal and reading it; see journal.h.
#include "storage/journal.h"

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/status.h"

namespace cellhost {
namespace {

// The runtime's flags: binary, made if it is not there, for reading and writing; others may read.
constexpr uint32_t kOpenFlags = 0x8000 | 0x100 | 0x2;
constexpr uint32_t kOthersRead = 0x20;
constexpr uint32_t kPermissions = 0x100 | 0x80;

// Offsets and lengths of the library's streams are good up to 2 GiB.
constexpr uint32_t kLengthMax = 0x7FFFFFE0;
static_assert(kLengthMax % kRecordBytes == 0);

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
  const uint32_t status =
      KivSdFileSOpen(ThisContext(), path.c_str(), kOpenFlags, kOthersRead, kPermissions, &file_);
  if (status == KIV_ST_FILE_SHARING) {
    return Complain("another server uses '%s'; end it, or give another folder with --data",
                    path.c_str());
  }
  if (status != 0) return Fails(status, "open");
  return Length(&endBytes_);
}

bool Journal::Length(uint32_t* lengthBytes) const {
  const uint32_t status = KivSdFileLength(ThisContext(), file_, lengthBytes);
  return status == 0 || Fails(status, "tell the length of");
}

bool Journal::ReadRecord(uint32_t offset, JournalRecord* record) const {
  uint32_t count = 0;
  const uint32_t status =
      KivSdFilePRead(ThisContext(), file_, record, offset, kRecordBytes, &count);
  if (status != 0) return Fails(status, "read");
  if (count == kRecordBytes) return true;
  return Complain("'%s' has become shorter while it was read; leave it to the server",
                  path_.c_str());
}

// Whether the record may be where it is.
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

// A journal whose records all are in the cells is begun anew, for the next PUT need not follow the
// last of them.
bool Journal::MakeReady(const JournalScan& scan, Replayed* replayed) {
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

// Back to the last record that counts. That is a write too, so it has a lease of its own. If it
// fails, the next PUT takes the place of what should have gone.
void Journal::CutBack(WritePause* pause) {
  WriteLease lease(pause);
  const uint32_t leased = KivSdGetWriteIOLease(lease.context());
  const bool cut = leased == 0 && CutTo(endBytes_);
  if (leased == 0) {
    Succeeded(ThisContext(), KivSdReleaseWriteIOLease(lease.context()), "give a lease back");
  }
  if (cut) return;
  Complain("PUT %llu was refused, and may be carried out if the server is killed before the next",
           static_cast<unsigned long long>(lastPut_ + 1));
}

bool Journal::WriteRecord(WritePause* pause, const JournalRecord& record) {
  KivSdContext* ctx = ThisContext();
  WriteLease lease(pause);
  uint32_t count = 0;
  uint32_t osError = 0;
  const uint32_t written = KivSdLeasedFilePWrite(lease.context(), file_, &record, endBytes_,
                                                 kRecordBytes, &count, &osError);
  if (written != 0) return Fails(written, "write");
  if (count != kRecordBytes) return Complain("'%s' took half a record", path_.c_str());
  const uint32_t flushed = KivSdFileFlush(ctx, file_);
  return flushed == 0 || Fails(flushed, "flush");
}

bool Journal::Append(WritePause* pause, const StoredCell& cell, Fault* fault) {
  if (endBytes_ >= kLengthMax) {
    return Wrong(fault, "nothing stored: the journal is full; stop the server and start it anew");
  }
  if (!WriteRecord(pause, MakeRecord(lastPut_ + 1, cell))) {
    CutBack(pause);
    return Wrong(fault, "nothing stored: the journal cannot be written; see what the server said");
  }
  endBytes_ += kRecordBytes;
  ++lastPut_;
  return true;
}

void Journal::TakeBack(WritePause* pause) {
  endBytes_ -= kRecordBytes;
  --lastPut_;
  CutBack(pause);
}

bool Journal::StartAnew() {
  if (!CutTo(0)) return false;
  endBytes_ = 0;
  return true;
}

}  // namespace cellhost
