// Prints what all subcommands share: JSON, wrapped paragraphs, sizes and lengths of time.
#ifndef KIVSD_OUTPUT_H
#define KIVSD_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "json_forward.h"

namespace kivsd {

// Whether a subcommand prints text for a person or JSON for a program.
enum class Format { kText, kJson };

constexpr size_t kLineWidth = 80;  // of a terminal

// Prints a value on standard output, and a line end. Bytes that are not UTF-8 are replaced.
void PrintJson(const Json& value);
// Prints it on one line.
void PrintJsonLine(const Json& value);

// Breaks a text into lines of at most `width`. The first line begins with `label`, a space, and more
// spaces up to `indent`; the others begin with `indent` spaces.
std::string Wrapped(const std::string& label, size_t indent, const std::string& text,
                    size_t width = kLineWidth);

// A size with a unit, such as "1.5 MiB" or "640 bytes".
std::string SizeText(uint64_t bytes);

// A length of time, such as "2 d 3 h", "5 min 10 s" or "7 s".
std::string DurationText(uint64_t seconds);

// A count with a plural s where it is due: "1 line", "2 lines".
std::string Counted(uint64_t count, const std::string& noun);

}  // namespace kivsd

#endif
