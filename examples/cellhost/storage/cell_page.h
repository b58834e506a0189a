// The byte layout of the blocks of `cells.pag`; no file I/O here. A block is a header and cells:
//
//   0        4            8          16                    8192
//   | number | cell count | checksum | place, value | ...  |
//
// Block 0 holds the head of the file instead of cells. The checksum covers the whole block, with 0
// in place of the checksum. Unused bytes are 0. Numbers are stored lowest byte first.
#ifndef CELLHOST_STORAGE_CELL_PAGE_H
#define CELLHOST_STORAGE_CELL_PAGE_H

#include <stddef.h>
#include <stdint.h>

namespace cellhost {

// A cell in a file: the number of its place (cell_index.h), and its value.
struct StoredCell {
  uint64_t place;
  double value;
};
static_assert(sizeof(StoredCell) == 16, "layout of the file");

constexpr uint32_t kPageBytes = 8192;
constexpr uint32_t kPageHeaderBytes = 16;
constexpr uint32_t kCellsInPage = (kPageBytes - kPageHeaderBytes) / sizeof(StoredCell);
static_assert(kCellsInPage == 511);

struct CellPage {
  uint32_t number;     // position in the file, in blocks from 0
  uint32_t cellCount;  // at most kCellsInPage
  uint64_t checksum;
  StoredCell cells[kCellsInPage];
};
static_assert(offsetof(CellPage, cellCount) == 4, "layout of the file");
static_assert(offsetof(CellPage, checksum) == 8, "layout of the file");
static_assert(offsetof(CellPage, cells) == kPageHeaderBytes, "layout of the file");
static_assert(sizeof(CellPage) == kPageBytes, "layout of the file");

// The head of the file, in block 0 behind the header.
struct PageFileHead {
  uint64_t kind;  // kPageFileKind
  uint64_t cube;  // FingerprintOf the cube
  uint64_t puts;  // number of the last PUT that the cells include
  uint32_t cells;
  uint32_t pages;  // number of blocks, including this one
};
static_assert(offsetof(PageFileHead, cube) == 8, "layout of the file");
static_assert(offsetof(PageFileHead, puts) == 16, "layout of the file");
static_assert(offsetof(PageFileHead, cells) == 24, "layout of the file");
static_assert(sizeof(PageFileHead) == 32, "layout of the file");

constexpr uint64_t kPageFileKind = 0x0001'6761'706C'6563;  // "celpag" and layout version 1

// The number of blocks of a file with this many cells.
constexpr uint32_t PagesFor(uint32_t cells) {
  return 1 + static_cast<uint32_t>((uint64_t{cells} + kCellsInPage - 1) / kCellsInPage);
}

// Fills a block with zeros.
void ClearPage(CellPage* page);

// Writes the header of a block that was cleared and filled. The last step, because of the checksum.
void SealPage(CellPage* page, uint32_t number, uint32_t cellCount);

// Whether a block is undamaged and has this number.
bool IsSound(const CellPage& page, uint32_t number);

// Write and read block 0. ReadHead returns false if the block is damaged or not a head.
void MakeHead(const PageFileHead& head, CellPage* page);
bool ReadHead(const CellPage& page, PageFileHead* head);

}  // namespace cellhost

#endif
