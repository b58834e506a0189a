// Reads a CSV file row by row, in the format of RFC 4180: commas separate fields; a field in double
// quotes may contain commas, line ends and doubled quotes. In addition:
//
//   - lines end with LF or CR LF; inside quotes too, where both are read as LF
//   - blank lines and a UTF-8 byte order mark at the start are skipped
//   - the last line needs no line end
//
// One thread at a time.
#ifndef CELLHOST_HOST_CSV_READER_H
#define CELLHOST_HOST_CSV_READER_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"
#include "host/input_file.h"

namespace cellhost {

enum class CsvStep {
  kRow,  // the fields of a row can be read
  kEnd,  // no more rows
  kBad,  // the file is malformed or cannot be read; the error was reported
};

class CsvReader {
 public:
  CsvReader();

  // See InputFile::Open.
  bool Open(const char* path, const char* option);

  CsvStep Next();

  // The fields of the row; valid until the next call of Next.
  uint32_t fieldCount() const { return fieldEnds_.count(); }
  std::string_view field(uint32_t number) const;

  uint64_t rowLine() const { return rowLine_; }  // line on which the row begins
  const InputFile& file() const { return file_; }

 private:
  static constexpr int kEndOfFile = -1;

  bool Refill();
  int Peek();
  void Take();
  bool SkipMark();
  bool ReadField();
  bool ReadPlainField();
  bool ReadQuotedField();
  bool Keep(int byte);

  InputFile file_;
  HostArray<char> buffer_;
  uint32_t at_ = 0;       // index of the next byte in the buffer
  uint32_t end_ = 0;      // number of bytes in the buffer
  bool failed_ = false;   // a read failed; afterwards the file seems to end
  uint64_t line_ = 1;     // line of the next byte
  uint64_t rowLine_ = 1;  // line of the row's first byte
  HostArray<char> text_;  // the fields, concatenated
  HostArray<uint32_t> fieldEnds_;
};

}  // namespace cellhost

#endif
