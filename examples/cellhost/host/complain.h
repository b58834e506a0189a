// What goes wrong is told on the error output, in one form everywhere:
//
//   cellhost: <what failed>: KIV_ST_OUT_OF_MEMORY (1130203), OS error 8
//   <file>:<line>: <what is wrong and what to do>
//
// What was printed before is written out first, so that the two outputs keep their order. Any
// thread.
#ifndef CELLHOST_HOST_COMPLAIN_H
#define CELLHOST_HOST_COMPLAIN_H

#include <stdint.h>

#include <string_view>

#include "kivsdu/context.h"

namespace cellhost {

// Has the compiler check values against a format.
#define CELLHOST_FORMAT(text, values) __attribute__((format(printf, text, values)))

// Tells of trouble that is in no particular line. Always false, to be returned.
CELLHOST_FORMAT(1, 2) bool Complain(const char* format, ...);

// Tells what is wrong in a line of a file. Always false, to be returned.
CELLHOST_FORMAT(3, 4)
bool ComplainAt(const char* path, uint64_t line, const char* format, ...);

// How much of a text from outside a message shows, for the %.*s of a format.
inline int ShownLength(std::string_view text) {
  constexpr size_t kShownCharacters = 40;
  return static_cast<int>(text.size() < kShownCharacters ? text.size() : kShownCharacters);
}

// Whether an operation of the library succeeded; if not, says what failed, with its status and
// the OS error of its context.
//
//   ctx   the context that the operation was given; null if it takes none
//   what  "allocate the cell table"
bool Succeeded(const KivSdContext* ctx, uint32_t status, const char* what);

// Why an operation failed, as Succeeded puts it: "KIV_ST_DRIVES (1131008), OS error 5".
struct Reason {
  char text[96];
};
Reason ReasonOf(const KivSdContext* ctx, uint32_t status);

}  // namespace cellhost

#endif
