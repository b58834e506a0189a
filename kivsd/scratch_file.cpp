#include "scratch_file.h"

#include <atomic>
#include <system_error>

#include "failure.h"
#include "platform.h"

namespace kivsd {
namespace {

std::FILE* OpenOrFail(const std::filesystem::path& path, const char* mode) {
  std::FILE* file = std::fopen(path.string().c_str(), mode);
  if (file != nullptr) return file;
  throw Failure("the temporary file " + path.string() +
                " cannot be opened; check the folder for temporary files");
}

void Remove(const std::filesystem::path& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

}  // namespace

std::filesystem::path ScratchPath() {
  static std::atomic<unsigned> count = 0;
  const std::string name = "kivsd-" + std::to_string(ProcessId()) + "-" + std::to_string(++count);
  return std::filesystem::temp_directory_path() / name;
}

std::FILE* OpenScratch() {
  const std::filesystem::path path = ScratchPath();
  std::FILE* file = OpenOrFail(path, ScratchMode());
  Remove(path);
  return file;
}

ScratchFile::ScratchFile(const std::string& content) : path_(ScratchPath()) {
  std::FILE* file = OpenOrFail(path_, "wb");
  const size_t written = std::fwrite(content.data(), 1, content.size(), file);
  const bool closed = std::fclose(file) == 0;
  if (written == content.size() && closed) return;
  Remove(path_);
  throw Failure("the temporary file " + path_.string() + " cannot be written; is the disk full?");
}

ScratchFile::~ScratchFile() { Remove(path_); }

std::FILE* ScratchFile::Open() const { return OpenOrFail(path_, "r"); }

}  // namespace kivsd
