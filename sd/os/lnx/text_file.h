// Reads the kernel's text files (/proc, /sys) field by field. Lines and files may have any length:
// the reader holds only one block of the file.
#ifndef KIV_OS_LNX_TEXT_FILE_H
#define KIV_OS_LNX_TEXT_FILE_H

#include <cstddef>
#include <cstdint>

namespace kiv::os {

class TextFile {
 public:
  explicit TextFile(const char* path);
  ~TextFile();
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  // errno of the failed open or read; 0 while the file can be read.
  uint32_t error() const { return error_; }

  // Copies the next field of the line, cut to the buffer and terminated. Blanks separate fields.
  // The kernel writes a blank inside a field as an octal escape, which this decodes. False at the
  // end of the line.
  bool ReadField(char* field, size_t sizeBytes);

  // Copies the rest of the line as it is, cut to the buffer and terminated.
  void ReadRest(char* rest, size_t sizeBytes);

  bool SkipFields(int count);

  // Reads the next field as a number. A field that is not a number, such as "max", is UINT64_MAX.
  bool ReadNumber(uint64_t* number);

  // Moves to the next line. False at the end of the file.
  bool NextLine();

 private:
  static constexpr int kEnd = -1;

  int Peek();
  char TakeEscaped();

  int descriptor_;
  uint32_t error_;
  size_t next_ = 0;
  size_t end_ = 0;
  char block_[1024];
};

}  // namespace kiv::os

#endif
