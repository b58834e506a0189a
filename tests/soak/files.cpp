// Files as streams: written, positioned, cut, shared, found and removed.
#include <cstring>
#include <string>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kMostBytes = 20'000;
constexpr uint32_t kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;
constexpr uint32_t kOpenFlags =
    KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY;

class FilesVisitor : public Visitor {
 public:
  FilesVisitor(const World& world, uint32_t place, Random* random)
      : path_(FileOf(world, place, "file")), random_(*random) {}

  void Step() override {
    uint32_t file = KIV_FILE_NONE;
    Done(KivSdFileSOpen(nullptr, path_.c_str(), kOpenFlags, KIV_FILE_DENY_WRITE, kPermissions,
                        &file),
         "KivSdFileSOpen");
    WriteAndRead(file);
    Cut(file);
    CheckSharing();
    Done(KivSdFileClose(nullptr, file), "KivSdFileClose");
    Find();
    Done(KivSdFileRemove(nullptr, path_.c_str()), "KivSdFileRemove");
  }

 private:
  void WriteAndRead(uint32_t file) {
    length_ = random_.Between(1, kMostBytes);
    uint32_t count = 0;
    Fill(written_, length_, length_);
    const uint32_t first = random_.Below(length_ + 1);
    Done(KivSdFileWrite(nullptr, file, written_, first, &count), "KivSdFileWrite");
    Expect(count == first, "a write writes all");
    uint32_t osError = 0;
    Done(KivSdFilePWrite(nullptr, file, written_ + first, first, length_ - first, &count, &osError),
         "KivSdFilePWrite");
    const uint32_t from = random_.Below(length_);
    Done(KivSdFilePRead(nullptr, file, read_, from, kMostBytes, &count), "KivSdFilePRead");
    Expect(count == length_ - from && std::memcmp(read_, written_ + from, count) == 0,
           "a file returns what was written");
    uint32_t position = 0;
    Done(KivSdFileLSeek(nullptr, file, 0, KIV_SEEK_START, &position), "KivSdFileLSeek");
    Done(KivSdFileRead(nullptr, file, read_, kMostBytes, &count), "KivSdFileRead");
    Expect(count == length_ && IsFilled(read_, length_, length_),
           "a file returns what was written");
  }

  void Cut(uint32_t file) {
    length_ = random_.Below(length_);
    uint32_t told = 0;
    Done(KivSdFileSetEndOfFile(nullptr, file, length_, nullptr, nullptr), "KivSdFileSetEndOfFile");
    Done(KivSdFileLength(nullptr, file, &told), "KivSdFileLength");
    Expect(told == length_, "a file has the length to which it was cut");
    if (random_.OneIn(50)) Done(KivSdFileFlush(nullptr, file), "KivSdFileFlush");
  }

  // The open file denies others to write.
  void CheckSharing() const {
    uint32_t file = KIV_FILE_NONE;
    Expect(KivSdFileSOpen(nullptr, path_.c_str(), KIV_FILEO_READ_WRITE | KIV_FILEO_BINARY,
                          KIV_FILE_DENY_NONE, kPermissions, &file) == KIV_ST_FILE_SHARING,
           "a file that denies writing cannot be opened for writing");
  }

  void Find() const {
    KivSdFindRecord record = {};
    Done(KivSdFileFindFirst(nullptr, path_.c_str(), 0, &record), "KivSdFileFindFirst");
    Expect(record.data.sizeLow == length_, "a search finds the file with its size");
    Done(KivSdFileFindClose(nullptr, &record), "KivSdFileFindClose");
  }

  const std::string path_;
  Random& random_;
  uint32_t length_ = 0;
  char written_[kMostBytes] = {};
  char read_[kMostBytes] = {};
};

}  // namespace

std::unique_ptr<Subsystem> MakeFiles(const World& world) {
  return std::make_unique<Separate<FilesVisitor>>(world);
}

}  // namespace kiv::soak
