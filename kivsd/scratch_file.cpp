#include "scratch_file.h"

#include <atomic>

#include "failure.h"
#include "platform.h"

namespace kivsd {
namespace {

std::FILE* OpenOrFail(const std::string& path, const char* mode) {
  std::FILE* file = std::fopen(path.c_str(), mode);
  if (file != nullptr) return file;
  throw Failure("the temporary file " + path +
                " cannot be opened; check the folder for temporary files");
}

}  // namespace

std::string ScratchPath() {
  static std::atomic<unsigned> count = 0;
  return TemporaryFolder() + "kivsd-" + std::to_string(ProcessId()) + "-" + std::to_string(++count);
}

std::FILE* OpenScratch() {
  const std::string path = ScratchPath();
  std::FILE* file = OpenOrFail(path, ScratchMode());
  std::remove(path.c_str());
  return file;
}

ScratchFile::ScratchFile(const std::string& content) : path_(ScratchPath()) {
  std::FILE* file = OpenOrFail(path_, "wb");
  const size_t written = std::fwrite(content.data(), 1, content.size(), file);
  const bool closed = std::fclose(file) == 0;
  if (written == content.size() && closed) return;
  std::remove(path_.c_str());
  throw Failure("the temporary file " + path_ + " cannot be written; is the disk full?");
}

ScratchFile::~ScratchFile() { std::remove(path_.c_str()); }

std::FILE* ScratchFile::Open() const { return OpenOrFail(path_, "r"); }

}  // namespace kivsd
