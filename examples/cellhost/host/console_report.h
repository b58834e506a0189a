// Console output of the program: headings, lines with a label and a value, and readable numbers.
#ifndef CELLHOST_HOST_CONSOLE_REPORT_H
#define CELLHOST_HOST_CONSOLE_REPORT_H

#include <stdint.h>

#include "host/complain.h"

namespace cellhost {

// A short text by value; use `text` only within the expression that makes it.
struct ShortText {
  char text[48];
};

void Heading(const char* title);

// "  label             value"
CELLHOST_FORMAT(2, 3) void Item(const char* label, const char* format, ...);

// 1234567 as "1,234,567".
ShortText Grouped(uint64_t number);

// A size as "512 bytes", "12.5 KiB", "3.1 GiB".
ShortText SizeOfBytes(uint64_t bytes);

// SizeOfBytes of one of the library's KiB counts. These stop at 0xFFFFFFFF: "4 TiB or more".
ShortText SizeOfKiB(uint32_t kibibytes);

// A duration as "3 days 4 h 05 min".
ShortText Duration(uint64_t seconds);

// Whether the standard output is a terminal, where a line can be overwritten.
bool OutputIsTerminal();

}  // namespace cellhost

#endif
