// The blocks of `cells.pag`, as bytes. Each has a header that says what it is and whether it is
// whole, and cells behind it:
//
//   0        4            8          16                    8192
//   | number | cell count | checksum | place, value | ...  |
//
// Block 0 holds no cells but the head, which says what the file is as a whole. The checksum is of
// the whole block with the checksum itself as 0; what no cell fills is 0. Numbers have their lowest
// byte first. Knows of no file.
#ifndef CELLHOST_STORAGE_CELL_PAGE_H
#define CELLHOST_STORAGE_CELL_PAGE_H

#include <stddef.h>
#include <stdint.h>

namespace cellhost {

// A cell as files have it: the number of its place (cell_index.h), and its value.
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
  uint32_t number;     // of the block in its file, from 0
  uint32_t cellCount;  // at most kCellsInPage
  uint64_t checksum;
  StoredCell cells[kCellsInPage];
};
static_assert(offsetof(CellPage, cellCount) == 4, "layout of the file");
static_assert(offsetof(CellPage, checksum) == 8, "layout of the file");
static_assert(offsetof(CellPage, cells) == kPageHeaderBytes, "layout of the file");
static_assert(sizeof(CellPage) == kPageBytes, "layout of the file");

// What block 0 says, behind its header.
struct PageFileHead {
  uint64_t kind;  // kPageFileKind
  uint64_t cube;  // FingerprintOf the cube whose cells these are
  uint64_t puts;  // the number of the last PUT that the cells have in them
  uint32_t cells;
  uint32_t pages;  // blocks, this one included
};
static_assert(offsetof(PageFileHead, cube) == 8, "layout of the file");
static_assert(offsetof(PageFileHead, puts) == 16, "layout of the file");
static_assert(offsetof(PageFileHead, cells) == 24, "layout of the file");
static_assert(sizeof(PageFileHead) == 32, "layout of the file");

constexpr uint64_t kPageFileKind = 0x0001'6761'706C'6563;  // "celpag", and the layout's number

// How many blocks a file of so many cells has.
constexpr uint32_t PagesFor(uint32_t cells) {
  return 1 + static_cast<uint32_t>((uint64_t{cells} + kCellsInPage - 1) / kCellsInPage);
}

// Empties a block, whatever it held.
void ClearPage(CellPage* page);

// Gives a block that was cleared and filled its header. To be done last.
void SealPage(CellPage* page, uint32_t number, uint32_t cellCount);

// Whether a block is the one of this number, and whole.
bool IsSound(const CellPage& page, uint32_t number);

// Fill block 0, and read it. False if it is none, or of a file of another kind.
void MakeHead(const PageFileHead& head, CellPage* page);
bool ReadHead(const CellPage& page, PageFileHead* head);

}  // namespace cellhost

#endif
