// Error reports: messages on the error output, in one form everywhere:
//
//   cellhost: <what failed>: KIV_ST_OUT_OF_MEMORY (1130203), OS error 8
//   <file>:<line>: <what is wrong and what to do>
//
// Each report first flushes the standard output, so that both outputs keep their order. Any thread.
#ifndef CELLHOST_HOST_COMPLAIN_H
#define CELLHOST_HOST_COMPLAIN_H

#include <stdint.h>

#include <string_view>

#include "kivsdu/context.h"

namespace cellhost {

// Makes the compiler check the arguments against the format.
#define CELLHOST_FORMAT(text, values) __attribute__((format(printf, text, values)))

// Reports an error that belongs to no line of a file. Always returns false, so that callers can
// return the result.
CELLHOST_FORMAT(1, 2) bool Complain(const char* format, ...);

// Reports an error in a line of a file. Always returns false.
CELLHOST_FORMAT(3, 4)
bool ComplainAt(const char* path, uint64_t line, const char* format, ...);

// How many characters of an input text a message shows; for %.*s.
inline int ShownLength(std::string_view text) {
  constexpr size_t kShownCharacters = 40;
  return static_cast<int>(text.size() < kShownCharacters ? text.size() : kShownCharacters);
}

// Returns whether an operation of the library succeeded. If it failed, reports the status and the
// OS error.
//
//   ctx   the context that the operation received; null if it takes none
//   what  completes "could not ...", for example "allocate the cell table"
bool Succeeded(const KivSdContext* ctx, uint32_t status, const char* what);

// Why an operation failed, in the words of Succeeded: "KIV_ST_DRIVES (1131008), OS error 5".
struct Reason {
  char text[96];
};
Reason ReasonOf(const KivSdContext* ctx, uint32_t status);

}  // namespace cellhost

#endif
