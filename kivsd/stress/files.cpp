// Files: each thread writes pieces of its own file in any order, and reads them back.
#include <array>
#include <cstdio>

#include "kivsdu/file.h"
#include "kivsdu/status.h"
#include "scratch_file.h"
#include "stress/subject.h"

namespace kivsd {
namespace {

constexpr uint32_t kPieceWords = 512;
constexpr uint32_t kPieceBytes = kPieceWords * sizeof(uint64_t);
constexpr uint32_t kPieces = 256;
constexpr uint32_t kOpenNew =
    KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY | KIV_FILEO_READ_WRITE;
constexpr uint32_t kReadWrite = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

using Piece = std::array<uint64_t, kPieceWords>;

class FileSubject : public StressSubject {
 public:
  FileSubject(StressRun* run, uint32_t threads) : StressSubject("files", run), threads_(threads) {}

  uint32_t ThreadCount() const override { return threads_; }

  void Work(uint32_t thread) override {
    const std::string path = ScratchPath();
    Random random(thread + 1);
    while (!run()->IsOver()) WriteAndRead(path, &random);
    std::remove(path.c_str());
  }

 private:
  // Fills a new file and checks it.
  void WriteAndRead(const std::string& path, Random* random) {
    uint32_t file = KIV_FILE_NONE;
    const uint32_t opened = KivSdFileOpen(nullptr, path.c_str(), kOpenNew, kReadWrite, &file);
    if (!Succeeded(opened, "open a file")) return;
    std::array<uint64_t, kPieces> written = {};  // the number in each piece; 0: not written
    for (uint32_t i = 0; i < 2 * kPieces && !run()->IsOver(); ++i) {
      const uint32_t at = Below(random, kPieces);
      if (written[at] != 0 && i % 2 == 0) {
        Read(file, at, written[at]);
      } else {
        written[at] = (*random)();
        Write(file, at, written[at]);
      }
    }
    for (uint32_t at = 0; at < kPieces && !run()->IsOver(); ++at) {
      if (written[at] != 0) Read(file, at, written[at]);
    }
    Succeeded(KivSdFileClose(nullptr, file), "close a file");
  }

  void Write(uint32_t file, uint32_t at, uint64_t number) {
    Piece piece;
    piece.fill(number);
    uint32_t count = 0;
    const uint32_t status = KivSdFilePWrite(nullptr, file, piece.data(), at * kPieceBytes,
                                            kPieceBytes, &count, nullptr);
    if (!Succeeded(status, "write a file")) return;
    if (count != kPieceBytes) Fail("a write stored too few bytes; is the disk full?");
    Count(1);
  }

  void Read(uint32_t file, uint32_t at, uint64_t number) {
    Piece piece;
    uint32_t count = 0;
    const uint32_t status =
        KivSdFilePRead(nullptr, file, piece.data(), at * kPieceBytes, kPieceBytes, &count);
    if (!Succeeded(status, "read a file")) return;
    Piece expected;
    expected.fill(number);
    if (count != kPieceBytes || piece != expected) Fail("a read returned other bytes than written");
    Count(1);
  }

  const uint32_t threads_;
};

}  // namespace

std::unique_ptr<StressSubject> MakeFileSubject(StressRun* run, uint32_t threads) {
  return std::make_unique<FileSubject>(run, threads);
}

}  // namespace kivsd
