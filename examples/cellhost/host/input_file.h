// An input file, read from front to back in large pieces. All input files are opened and read here.
#ifndef CELLHOST_HOST_INPUT_FILE_H
#define CELLHOST_HOST_INPUT_FILE_H

#include <stdint.h>
#include <stdio.h>

namespace cellhost {

class InputFile {
 public:
  InputFile() = default;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  // Opens a file. Returns false if it cannot be opened, after reporting it.
  //
  //   path    not copied
  //   option  command line option that names the file, such as "--facts", for the message
  bool Open(const char* path, const char* option);

  // Reads up to roomBytes; *lengthBytes is 0 at the end. Returns false on failure, after reporting
  // it.
  bool Read(char* buffer, uint32_t roomBytes, uint32_t* lengthBytes);

  const char* path() const { return path_; }
  uint64_t sizeBytes() const { return sizeBytes_; }  // 0 if unknown
  uint64_t readBytes() const { return readBytes_; }

 private:
  FILE* file_ = nullptr;
  const char* path_ = "";
  uint64_t sizeBytes_ = 0;
  uint64_t readBytes_ = 0;
};

}  // namespace cellhost

#endif
