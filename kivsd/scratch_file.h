// Files in the folder for temporary files.
#ifndef KIVSD_SCRATCH_FILE_H
#define KIVSD_SCRATCH_FILE_H

#include <cstdio>
#include <string>

namespace kivsd {

// Opens an empty file for writing and reading. The system removes it when it is closed.
std::FILE* OpenScratch();

// A path for a new file or folder, unique among all processes, in the encoding of fopen.
std::string ScratchPath();

// A file with a content, removed at its end.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& content);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  // Opens it for reading as text, as the library opens its configuration. The caller closes it.
  std::FILE* Open() const;

 private:
  std::string path_;
};

}  // namespace kivsd

#endif
