// Reading a file; see input_file.h.
#include "host/input_file.h"

#include <errno.h>
#include <string.h>

#include "host/complain.h"
#include "host/platform.h"

namespace cellhost {

InputFile::~InputFile() {
  if (file_ != nullptr) fclose(file_);  // opened for reading: a failure loses nothing
}

bool InputFile::Open(const char* path, const char* option) {
  path_ = path;
  file_ = fopen(path, "rb");
  if (file_ == nullptr) {
    return Complain(
        "cannot open '%s': %s; start in the project's root folder, or give the file with %s", path,
        strerror(errno), option);
  }
  sizeBytes_ = SizeOf(file_);
  return true;
}

bool InputFile::Read(char* buffer, uint32_t roomBytes, uint32_t* lengthBytes) {
  *lengthBytes = static_cast<uint32_t>(fread(buffer, 1, roomBytes, file_));
  readBytes_ += *lengthBytes;
  if (ferror(file_) == 0) return true;
  return Complain("cannot read '%s' after %llu bytes: %s; is it a file?", path_,
                  static_cast<unsigned long long>(readBytes_), strerror(errno));
}

}  // namespace cellhost
