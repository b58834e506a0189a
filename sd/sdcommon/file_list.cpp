// Lists of the files that a search finds.
#include "kivsdu/filesearch.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "lease_guard.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/sdcommon";
constexpr uint32_t kLineItemAlloc = 1705;
constexpr uint32_t kLineItemFree = 1735;

// The only statuses of these operations.
constexpr uint32_t kDone = 0;
constexpr uint32_t kFailed = 1;

constexpr uint64_t kIntervalsPerSecond = 10'000'000;
constexpr int64_t kSecondsFrom1601To1970 = 11'644'473'600;

int64_t SecondsSince1970(const KivSdFileTime& time) {
  const uint64_t intervals = uint64_t{time.high} << 32 | time.low;
  return static_cast<int64_t>(intervals / kIntervalsPerSecond) - kSecondsFrom1601To1970;
}

KivSdFileListItem* MakeItem() {
  void* item = nullptr;
  static_cast<void>(adMalloc(nullptr, sizeof(KivSdFileListItem), &item, kSource, kLineItemAlloc));
  return static_cast<KivSdFileListItem*>(item);
}

}  // namespace

uint32_t KivSdAddFileListItem(KivSdFileListItem* item, const KivSdFindRecord* record,
                              uint8_t append) {
  RunLeaseGuard();
  if (item == nullptr || record == nullptr) return kFailed;
  if (append != 0) {
    item->next = MakeItem();
    if (item->next == nullptr) return kFailed;
    item = item->next;
  }
  *item = {};
  CopyText(item->name, sizeof item->name - 1, record->name);
  return KivSdGetFileSizeAndCreateDate(record, &item->size, &item->modified);
}

uint32_t KivSdDeleteFileListItems(KivSdFileListItem* head) {
  RunLeaseGuard();
  if (head == nullptr) return kDone;
  KivSdFileListItem* item = head->next;
  head->next = nullptr;
  while (item != nullptr) {
    KivSdFileListItem* next = item->next;
    // The status is dropped: a caller could not act on it.
    static_cast<void>(adFree(item, kSource, kLineItemFree));
    item = next;
  }
  return kDone;
}

// Compatibility: returns the time of the last write, although the name says "create date". Hosts
// rely on it.
uint32_t KivSdGetFileSizeAndCreateDate(const KivSdFindRecord* record, uint32_t* size,
                                       int64_t* timestamp) {
  RunLeaseGuard();
  if (record == nullptr) return kFailed;
  if (size != nullptr) *size = record->data.sizeLow;
  if (timestamp != nullptr) *timestamp = SecondsSince1970(record->data.written);
  return kDone;
}
