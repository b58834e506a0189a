// Direct I/O: several transfers under way on one file, collected in another order.
#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kTransfers = 4;
constexpr uint32_t kFileBlocks = 16;

class DirectFilesVisitor : public Visitor {
 public:
  DirectFilesVisitor(const World& world, uint32_t place, Random* random)
      : path_(FileOf(world, place, "direct")), random_(*random) {
    uint32_t newSize = 0;
    void* pages = nullptr;
    Done(KivSdDirectIOFileOpen(nullptr, path_.c_str(), KIV_ACCESS_READ | KIV_ACCESS_WRITE,
                               KIV_SHARE_READ, KIV_DISPOSITION_CREATE_ALWAYS, nullptr,
                               KIV_OPEN_OVERLAPPED, &file_),
         "KivSdDirectIOFileOpen");
    Done(KivSdDirectIOFileSetEndOfFile(nullptr, file_, kFileBlocks, &newSize),
         "KivSdDirectIOFileSetEndOfFile");
    Done(KivSdAlignedMemAlloc(nullptr, kTransfers, &pages), "KivSdAlignedMemAlloc");
    pages_ = static_cast<char*>(pages);
    Done(KivSdDirectIONoWaitCbsInit(nullptr, records_, kTransfers), "KivSdDirectIONoWaitCbsInit");
  }
  ~DirectFilesVisitor() override {
    Done(KivSdDirectIONoWaitCbsTerm(nullptr, records_, kTransfers), "KivSdDirectIONoWaitCbsTerm");
    Done(KivSdDirectIOFileClose(nullptr, file_), "KivSdDirectIOFileClose");
    Done(KivSdDirectIOFileRemove(nullptr, path_.c_str()), "KivSdDirectIOFileRemove");
    Done(KivSdAlignedMemFree(nullptr, pages_), "KivSdAlignedMemFree");
  }

  void Step() override {
    const uint32_t first = random_.Below(kFileBlocks - kTransfers + 1);
    const uint32_t number = random_.Next();
    uint32_t count = 0;
    for (uint32_t at = 0; at < kTransfers; ++at) {
      Fill(Page(at), KIV_PAGE_UNIT, number + at);
      DoneOr(KivSdDirectIOFileWrite(nullptr, file_, first + at, Page(at), 1, &records_[at], &count),
             KIV_ST_DIRECT_WRITE_PENDING, "KivSdDirectIOFileWrite");
    }
    Collect();
    std::memset(pages_, 0, kTransfers * KIV_PAGE_UNIT);
    for (uint32_t at = 0; at < kTransfers; ++at) {
      DoneOr(KivSdDirectIOFileRead(nullptr, file_, first + at, Page(at), 1, &records_[at], &count),
             KIV_ST_DIRECT_READ_PENDING, "KivSdDirectIOFileRead");
    }
    Collect();
    for (uint32_t at = 0; at < kTransfers; ++at) {
      Expect(IsFilled(Page(at), KIV_PAGE_UNIT, number + at),
             "a block has what was written into it");
    }
  }

 private:
  char* Page(uint32_t at) { return pages_ + at * KIV_PAGE_UNIT; }

  // Begins with any transfer, not always with the oldest.
  void Collect() {
    const uint32_t first = random_.Below(kTransfers);
    for (uint32_t at = 0; at < kTransfers; ++at) {
      uint32_t done = 0;
      Done(KivSdDirectIOWait(nullptr, file_, &records_[(first + at) % kTransfers], &done),
           "KivSdDirectIOWait");
      Expect(done == 1, "a collected transfer is complete");
    }
  }

  const std::string path_;
  Random& random_;
  uint32_t file_ = KIV_DIRECTIO_NONE;
  char* pages_ = nullptr;
  KivSdNoWaitCb records_[kTransfers] = {};
};

}  // namespace

std::unique_ptr<Subsystem> MakeDirectFiles(const World& world) {
  return std::make_unique<Separate<DirectFilesVisitor>>(world);
}

}  // namespace kiv::soak
