// A host in C++: the library's version, the text of a status, and a container in a short heap.
#include <cstdio>
#include <memory_resource>
#include <vector>

#include "kivsdu/kivsdu.hpp"

int main() {
  if (adMemThreadHeapInit(1, nullptr, "consumer", 0) != KIV_ST_OK) return 1;
  const auto library = kivsdu::LoadedLibrary();
  if (!library || library->version != kivsdu::kHeaderVersion) return 2;
  std::printf("consumer in C++, kivsdu %s, %.*s\n", KIV_VERSION,
              static_cast<int>(library->flavour.size()), library->flavour.data());
  {
    kivsdu::ShortHeap work;
    kivsdu::ShortHeapResource memory(work);
    const std::pmr::vector<int> numbers(1000, 42, &memory);
    if (numbers[999] != 42) return 3;
  }
  try {
    const kivsdu::File missing("no such file", KIV_FILEO_READ | KIV_FILEO_BINARY);
    return 4;
  } catch (const kivsdu::Failure& failure) {
    if (failure.Error().Status() != KIV_ST_FILE_OPEN) return 5;
    std::printf("%s\n", failure.what());
  }
  adMemThreadHeapTerm();
}
