// The lines of a small text file, in memory. Line ends are LF or CR LF; a line does not include its
// end.
#ifndef CELLHOST_HOST_TEXT_LINES_H
#define CELLHOST_HOST_TEXT_LINES_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"

namespace cellhost {

class TextLines {
 public:
  TextLines();

  // Reads the file; see InputFile::Open for the arguments. Returns false on failure, after
  // reporting it.
  bool Read(const char* path, const char* option);

  uint32_t count() const { return lines_.count(); }
  std::string_view line(uint32_t number) const { return lines_[number]; }  // from 0

 private:
  bool ReadText(const char* path, const char* option);

  HostArray<char> text_;
  HostArray<std::string_view> lines_;
};

}  // namespace cellhost

#endif
