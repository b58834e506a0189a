// Walks a directory with a find record.
#include "kivsdu/filesearch.h"
#include "lease_guard.h"
#include "os/file_search.h"
#include "report.h"

using namespace kiv;

namespace {

// Fills the fields that callers read from the system's data in the record.
void ShowFound(KivSdFindRecord* record) {
  record->name = record->data.name;
  record->attributes = record->data.attributes;
}

}  // namespace

uint32_t KivSdFileFindFirst(KivSdContext* ctx, const char* pattern, uint32_t flags,
                            KivSdFindRecord* record) {
  RunLeaseGuard();
  if (record == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  record->flags = flags;
  const os::ValueResult<void*> search = os::StartFileSearch(pattern, &record->data);
  record->search = search.value;
  if (search.ok) ShowFound(record);
  return ReportOutcome(ctx, search, KIV_ST_FIND_START);
}

uint32_t KivSdFileFindNext(KivSdContext* ctx, KivSdFindRecord* record) {
  RunLeaseGuard();
  if (record == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result next = os::ContinueFileSearch(record->search, &record->data);
  if (next.ok) ShowFound(record);
  const bool end = next.error == os::kErrorNoMoreFiles;
  return ReportOutcome(ctx, next, end ? KIV_ST_FIND_END : KIV_ST_FIND_NEXT);
}

uint32_t KivSdFileFindClose(KivSdContext* ctx, KivSdFindRecord* record) {
  if (record == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::EndFileSearch(record->search), KIV_ST_FIND_CLOSE);
}
