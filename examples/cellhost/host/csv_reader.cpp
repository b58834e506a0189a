// Rows of a CSV file; see csv_reader.h.
#include "host/csv_reader.h"

#include <string.h>

#include "host/complain.h"

namespace cellhost {
namespace {

constexpr char kSourceBuffer[] = "cellhost/csv_reader buffer";
constexpr char kSourceText[] = "cellhost/csv_reader text";
constexpr char kSourceEnds[] = "cellhost/csv_reader ends";

constexpr uint32_t kBufferBytes = 64 * 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

CsvReader::CsvReader() : buffer_(kSourceBuffer), text_(kSourceText), fieldEnds_(kSourceEnds) {}

bool CsvReader::Open(const char* path, const char* option) {
  return file_.Open(path, option) && buffer_.Resize(kBufferBytes, 0) && SkipMark();
}

// The first read returns the whole mark, if the file has one.
bool CsvReader::SkipMark() {
  if (!Refill()) return !failed_;
  const std::string_view start(buffer_.data(), end_);
  if (start.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    at_ += static_cast<uint32_t>(kByteOrderMark.size());
  }
  return true;
}

// Moves the unread bytes to the front of the buffer and reads more behind them. Returns false at
// the end of the file, or if the read fails.
bool CsvReader::Refill() {
  const uint32_t left = end_ - at_;
  memmove(buffer_.data(), buffer_.data() + at_, left);
  at_ = 0;
  uint32_t lengthBytes = 0;
  if (!file_.Read(buffer_.data() + left, kBufferBytes - left, &lengthBytes)) failed_ = true;
  end_ = left + lengthBytes;
  return lengthBytes != 0;
}

// Returns the next byte without taking it. Skips the CR of a CR LF.
int CsvReader::Peek() {
  if (at_ == end_ && !Refill()) return kEndOfFile;
  if (buffer_[at_] == '\r' && (at_ + 1 < end_ || Refill()) && buffer_[at_ + 1] == '\n') ++at_;
  return static_cast<unsigned char>(buffer_[at_]);
}

void CsvReader::Take() {
  if (buffer_[at_++] == '\n') ++line_;
}

CsvStep CsvReader::Next() {
  text_.Clear();
  fieldEnds_.Clear();
  while (Peek() == '\n') Take();
  rowLine_ = line_;
  if (Peek() == kEndOfFile) return failed_ ? CsvStep::kBad : CsvStep::kEnd;

  while (ReadField()) {
    const int separator = Peek();
    if (separator != kEndOfFile) Take();
    if (separator != ',') return failed_ ? CsvStep::kBad : CsvStep::kRow;
  }
  return CsvStep::kBad;
}

bool CsvReader::ReadField() {
  const bool read = Peek() == '"' ? ReadQuotedField() : ReadPlainField();
  return read && fieldEnds_.Append(text_.count());
}

bool CsvReader::ReadPlainField() {
  for (;;) {
    const int byte = Peek();
    if (byte == ',' || byte == '\n' || byte == kEndOfFile) return true;
    if (byte == '"') {
      return ComplainAt(file_.path(), line_,
                        "a quote inside a plain field; put the whole field in quotes and double "
                        "the ones inside");
    }
    if (!Keep(byte)) return false;
    Take();
  }
}

bool CsvReader::ReadQuotedField() {
  const uint64_t openedAt = line_;
  Take();
  for (;;) {
    const int byte = Peek();
    if (byte == kEndOfFile) {
      return ComplainAt(file_.path(), openedAt, "a quoted field is never closed; add the quote");
    }
    Take();
    if (byte == '"') {
      if (Peek() != '"') break;
      Take();
    }
    if (!Keep(byte)) return false;
  }
  const int next = Peek();
  if (next == ',' || next == '\n' || next == kEndOfFile) return true;
  return ComplainAt(file_.path(), line_,
                    "text behind a closing quote; double quotes that belong to the field");
}

bool CsvReader::Keep(int byte) {
  if (byte == 0) {
    return ComplainAt(file_.path(), line_, "not text: a zero byte; save the file as UTF-8");
  }
  return text_.Append(static_cast<char>(byte));
}

std::string_view CsvReader::field(uint32_t number) const {
  const uint32_t start = number == 0 ? 0 : fieldEnds_[number - 1];
  return {text_.data() + start, fieldEnds_[number] - start};
}

}  // namespace cellhost
