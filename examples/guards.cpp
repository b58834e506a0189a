// The C++ layer: owners and guards, errors as exceptions or codes, containers in a short heap.
#include "kivsdu/kivsdu.hpp"

#include <cstdio>
#include <memory_resource>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

namespace {

constexpr char kPath[] = "example-prices.txt";

void ShowLibrary() {
  const auto library = kivsdu::LoadedLibrary();
  if (!library || library->version < kivsdu::kHeaderVersion) {
    std::printf("the loaded library is older than the headers\n");
  }
}

// A unit of work: all its memory goes back at once, even what it does not free.
int CountWords() {
  kivsdu::ShortHeap work;
  kivsdu::ShortHeapResource memory(work);
  std::pmr::vector<std::pmr::string> words(&memory);
  for (int i = 0; i < 1000; i++) words.emplace_back("a word beyond the small strings");
  return static_cast<int>(words.size());
}

void WriteAndRead() {
  kivsdu::File file(
      kPath, KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY);
  file.Write("4711\n", 5);
  file.Flush();
  file.Seek(0, KIV_SEEK_START);
  char line[16];
  while (file.ReadLine(line, sizeof(line))) std::printf("read: %s", line);
}

// The form without exceptions keeps the status and the OS error.
void OpenMissingFile() {
  kivsdu::ErrorCode error;
  const kivsdu::File missing("no-such-file", KIV_FILEO_READ | KIV_FILEO_BINARY, 0, error);
  std::printf("%u: %s\n", error.Status(), error.Text().c_str());
}

int SumUnderLocks() {
  kivsdu::ReaderWriterLock lock;
  kivsdu::LockTable table;  // one in each thread
  int prices[2] = {0, 0};
  {
    const auto mine = lock.With(table);
    std::lock_guard writing(mine);
    prices[0] = 40;
    prices[1] = 2;
  }
  const auto mine = lock.With(table);
  std::shared_lock reading(mine);
  return prices[0] + prices[1];
}

}  // namespace

int main() {
  // The memory manager comes first, before any record of the library.
  if (adMemThreadHeapInit(1, nullptr, "guards", 0) != KIV_ST_OK) return 1;
  try {
    ShowLibrary();
    std::printf("words: %d\n", CountWords());
    WriteAndRead();
    OpenMissingFile();
    std::printf("sum: %d\n", SumUnderLocks());
  } catch (const kivsdu::Failure& failure) {
    std::fprintf(stderr, "guards: %s\n", failure.what());
    return 1;
  }
  KivSdFileRemove(nullptr, kPath);
  adMemThreadHeapTerm();
}
