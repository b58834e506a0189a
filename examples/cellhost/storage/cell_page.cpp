// Layout of blocks; see cell_page.h.
#include "storage/cell_page.h"

#include <string.h>

#include "storage/checksum.h"

namespace cellhost {
namespace {

constexpr uint32_t kHeadNumber = 0;

uint64_t ChecksumOfPage(const CellPage& page) {
  constexpr uint64_t kWithoutChecksum = 0;
  uint64_t sum = ChecksumOf(&page, offsetof(CellPage, checksum));
  sum = ChecksumOf(&kWithoutChecksum, sizeof kWithoutChecksum, sum);
  return ChecksumOf(page.cells, sizeof page.cells, sum);
}

}  // namespace

void ClearPage(CellPage* page) { memset(static_cast<void*>(page), 0, sizeof *page); }

void SealPage(CellPage* page, uint32_t number, uint32_t cellCount) {
  page->number = number;
  page->cellCount = cellCount;
  page->checksum = ChecksumOfPage(*page);
}

bool IsSound(const CellPage& page, uint32_t number) {
  return page.number == number && page.cellCount <= kCellsInPage &&
         page.checksum == ChecksumOfPage(page);
}

void MakeHead(const PageFileHead& head, CellPage* page) {
  ClearPage(page);
  memcpy(static_cast<void*>(page->cells), &head, sizeof head);
  SealPage(page, kHeadNumber, 0);
}

bool ReadHead(const CellPage& page, PageFileHead* head) {
  memcpy(head, page.cells, sizeof *head);
  return IsSound(page, kHeadNumber) && head->kind == kPageFileKind;
}

}  // namespace cellhost
