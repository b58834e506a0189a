// Files of blocks (cell_page.h), read or written from front to back by direct I/O. The files are
// opened overlapped. Each transfer has a completion record; up to 8 are under way:
//
//   reading   starts to read blocks 0 to 7; after each block that is returned, starts one more
//   writing   starts to write each block when it is full; waits if all 8 buffers are in use
//
// Each object belongs to one thread, with a record.
#ifndef CELLHOST_STORAGE_PAGE_FILE_H
#define CELLHOST_STORAGE_PAGE_FILE_H

#include <stdint.h>

#include "kivsdu/directio.h"
#include "storage/cell_page.h"

namespace cellhost {

constexpr uint32_t kTransfersMax = 8;

// The part that reading and writing share: an open file, buffers for blocks, and the transfers
// between them.
class PageTransfers {
 public:
  PageTransfers() = default;
  PageTransfers(const PageTransfers&) = delete;
  PageTransfers& operator=(const PageTransfers&) = delete;
  ~PageTransfers();  // waits for the transfers under way

  // All return false on failure, after reporting it.
  bool Open(const char* path, uint32_t access, uint32_t disposition);
  bool StartRead(uint32_t number);
  bool StartWrite(uint32_t number);
  // Collect waits for the transfer that uses the block's buffer, if there is one. CollectAll waits
  // for all transfers, beginning with that of the block `oldest`.
  bool Collect(uint32_t number);
  bool CollectAll(uint32_t oldest);
  bool Close();

  // The buffer of a block. It is also the buffer of the 8th block after it.
  CellPage* PlaceFor(uint32_t number) { return &pages_[number % kTransfersMax]; }
  uint32_t file() const { return file_; }
  const char* path() const { return path_; }

 private:
  bool MakePlaces();
  void FreePlaces();
  bool Started(uint32_t number, uint32_t status, uint32_t underWayStatus, const char* what);

  const char* path_ = "";
  uint32_t file_ = KIV_DIRECTIO_NONE;
  CellPage* pages_ = nullptr;         // the buffers; the completion records follow them
  KivSdNoWaitCb* records_ = nullptr;  // one for each buffer
  bool hasEvents_ = false;
  bool underWay_[kTransfersMax] = {};
  uint32_t numbers_[kTransfersMax] = {};  // numbers of the blocks in the buffers
  bool abandoned_ = false;                // the system may still write into the buffers
};

class PageReader {
 public:
  // Opens a file. Returns false on failure, after reporting it.
  //
  //   path  not copied
  bool Open(const char* path);

  uint32_t pageCount() const { return pageCount_; }

  // Returns the next block, valid until the next call. Null if the block cannot be read or is
  // damaged, after reporting it. Call it at most pageCount times.
  const CellPage* Next();

 private:
  uint32_t pageCount_ = 0;
  uint32_t next_ = 0;
  uint32_t started_ = 0;
  PageTransfers transfers_;
};

class PageWriter {
 public:
  // Makes a file or empties an existing one, and sets its size, so that writing a block need not
  // extend it. Returns false on failure, after reporting it.
  //
  //   path  not copied
  bool Make(const char* path, uint32_t pageCount);

  // Returns the buffer for the next block, with undefined content; null on failure.
  CellPage* Room();

  // Starts to write the block that Room returned.
  bool Write();

  // Call after the last block. Waits for all transfers, closes the file and flushes it to the
  // device.
  bool Finish();

 private:
  uint32_t next_ = 0;
  PageTransfers transfers_;
};

// Flushes the caches of the system and the device for a file. Returns false on failure, after
// reporting it.
bool FlushFile(const char* path);

}  // namespace cellhost

#endif
