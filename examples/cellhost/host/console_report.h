// The form of what the server prints: headings, lines of a label and a value, and numbers that
// are easy to read.
#ifndef CELLHOST_HOST_CONSOLE_REPORT_H
#define CELLHOST_HOST_CONSOLE_REPORT_H

#include <stdint.h>

#include "host/complain.h"

namespace cellhost {

// A short text, to be used within the expression that asks for it.
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

// The same from one of the library's KiB counts, which end at 0xFFFFFFFF.
ShortText SizeOfKiB(uint32_t kibibytes);

// A duration as "3 days 4 h 05 min".
ShortText Duration(uint64_t seconds);

// Whether the standard output is a terminal, where a line can be written over.
bool OutputIsTerminal();

}  // namespace cellhost

#endif
