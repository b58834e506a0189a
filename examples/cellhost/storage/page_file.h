// Files of blocks (cell_page.h), read or written from front to back by direct I/O. The files are
// opened overlapped, so that every transfer has a completion record, and up to 8 are under way:
//
//   reading   blocks 0 to 7 are asked for; with each that is taken off the front, one more
//   writing   each block goes off when it is full; the place of the oldest is waited for
//
// Each object is for one thread, with a record.
#ifndef CELLHOST_STORAGE_PAGE_FILE_H
#define CELLHOST_STORAGE_PAGE_FILE_H

#include <stdint.h>

#include "kivsdu/directio.h"
#include "storage/cell_page.h"

namespace cellhost {

constexpr uint32_t kTransfersMax = 8;

// An open file, places for blocks, and the transfers between the two. What reading and writing
// share.
class PageTransfers {
 public:
  PageTransfers() = default;
  PageTransfers(const PageTransfers&) = delete;
  PageTransfers& operator=(const PageTransfers&) = delete;
  ~PageTransfers();  // waits for what is under way

  // All of them are false on failure, which has then been told.
  bool Open(const char* path, uint32_t access, uint32_t disposition);
  bool StartRead(uint32_t number);
  bool StartWrite(uint32_t number);
  // Wait for the transfer under way in the place of a block, if there is one; and for all of them,
  // beginning with the place of the block `oldest`.
  bool Collect(uint32_t number);
  bool CollectAll(uint32_t oldest);
  bool Close();

  // Where a block lies, and the 8th after it.
  CellPage* PlaceFor(uint32_t number) { return &pages_[number % kTransfersMax]; }
  uint32_t file() const { return file_; }
  const char* path() const { return path_; }

 private:
  bool MakePlaces();
  void FreePlaces();
  bool Started(uint32_t number, uint32_t status, uint32_t underWayStatus, const char* what);

  const char* path_ = "";
  uint32_t file_ = KIV_DIRECTIO_NONE;
  CellPage* pages_ = nullptr;         // so many as transfers, and behind them
  KivSdNoWaitCb* records_ = nullptr;  // theirs, in memory of the same kind
  bool hasEvents_ = false;
  bool underWay_[kTransfersMax] = {};
  uint32_t numbers_[kTransfersMax] = {};  // of the blocks
  bool abandoned_ = false;                // the system may still write into the places
};

class PageReader {
 public:
  // Opens a file. False on failure, which has then been told.
  //
  //   path  not copied
  bool Open(const char* path);

  uint32_t pageCount() const { return pageCount_; }

  // The next block, until the next call; null on failure, a damaged block included, which has then
  // been told. At most pageCount times.
  const CellPage* Next();

 private:
  uint32_t pageCount_ = 0;
  uint32_t next_ = 0;
  uint32_t started_ = 0;
  PageTransfers transfers_;
};

class PageWriter {
 public:
  // Makes a file, or empties one that is there, and gives it its size, so that no block that is
  // written makes it longer. False on failure, which has then been told.
  //
  //   path  not copied
  bool Make(const char* path, uint32_t pageCount);

  // Room for the next block, whatever it held; null on failure.
  CellPage* Room();

  // Sends the block off that Room gave.
  bool Write();

  // After the last block: waits for all of them, closes the file and has the system and the device
  // write what they hold of it.
  bool Finish();

 private:
  uint32_t next_ = 0;
  PageTransfers transfers_;
};

// Has the system and the device write what they hold of a file. False on failure, which has then
// been told.
bool FlushFile(const char* path);

}  // namespace cellhost

#endif
