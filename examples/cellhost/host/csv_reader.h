// Reads a CSV file row by row, as RFC 4180 has it: fields are separated by commas; a field in
// double quotes may hold commas, line ends and doubled quotes. Beyond that:
//
//   - lines end with LF or CR LF, also inside quotes, where either is read as LF
//   - blank lines are skipped, and so is a UTF-8 byte order mark at the start
//   - the last line needs no end
//
// Used by one thread at a time.
#ifndef CELLHOST_HOST_CSV_READER_H
#define CELLHOST_HOST_CSV_READER_H

#include <stdint.h>

#include <string_view>

#include "host/host_memory.h"
#include "host/input_file.h"

namespace cellhost {

enum class CsvStep {
  kRow,  // the fields are there
  kEnd,  // there are no more rows
  kBad,  // the file is broken or cannot be read, which has been told
};

class CsvReader {
 public:
  CsvReader();

  // See InputFile::Open.
  bool Open(const char* path, const char* option);

  CsvStep Next();

  // The fields of the row, until the next step.
  uint32_t fieldCount() const { return fieldEnds_.count(); }
  std::string_view field(uint32_t number) const;

  uint64_t rowLine() const { return rowLine_; }  // on which the row begins
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
  uint32_t at_ = 0;       // the next byte in the buffer
  uint32_t end_ = 0;      // behind its last
  bool failed_ = false;   // a read failed; the file then seems to end
  uint64_t line_ = 1;     // of the next byte
  uint64_t rowLine_ = 1;  // of the row's first
  HostArray<char> text_;  // the fields, one behind the other
  HostArray<uint32_t> fieldEnds_;
};

}  // namespace cellhost

#endif
