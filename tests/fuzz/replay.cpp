// Runs a fuzzer once on each file of the folders that are its arguments. The fuzzer ends the program
// if a check fails; the last line of output names the input.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) __attribute__((weak));
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesIn(const char* folder) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void Run(const fs::path& path) {
  std::fprintf(stderr, "%s\n", path.c_str());
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  // A copy of the exact size shows reads past its end.
  const std::vector<uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& path : FilesIn(argv[i])) {
      Run(path);
      ++count;
    }
  }
  if (count != 0) return EXIT_SUCCESS;
  std::fprintf(stderr, "replay: there are no inputs; name folders with inputs as arguments\n");
  return EXIT_FAILURE;
}
