#include "soak/board.h"

#include "kivsdu/sharedmem.h"
#include "soak/check.h"

namespace kiv::soak {

uint64_t Progress::Steps() const {
  uint64_t sum = 0;
  for (const std::atomic<uint64_t>& count : steps) sum += count.load();
  return sum;
}

// A new block is zeroed: the first process finds a fresh record.
Board::Board(const std::string& prefix) {
  uint32_t id = 0;
  void* view = nullptr;
  Done(KivSdSharedMemAlloc(nullptr, (prefix + "-board").c_str(), sizeof(BoardRecord),
                           KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE,
                           KIV_SHAREDMEM_PAGES_READ_WRITE, &mapping_, &id, &view),
       "KivSdSharedMemAlloc of the board");
  record_ = static_cast<BoardRecord*>(view);
}

Board::~Board() {
  Done(KivSdSharedMemFree(nullptr, mapping_, record_), "KivSdSharedMemFree of the board");
}

}  // namespace kiv::soak
