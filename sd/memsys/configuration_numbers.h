// Numbers as a configuration file writes them. The same on every platform: they are scanned here
// and not by the C runtime, whose scanners part where a number is too long or has a sign.
#ifndef KIV_MEMSYS_CONFIGURATION_NUMBERS_H
#define KIV_MEMSYS_CONFIGURATION_NUMBERS_H

#include <cstdint>

namespace kiv {

// A size or a count: a number by itself, or one above 0 and a unit, K, M or G in either case,
// straight behind it. A number too large for its unit counts as 1 TiB. False for anything else.
bool ScanSize(const char* word, uint64_t* value);

// A byte: one decimal digit. False for anything else.
bool ScanByte(const char* word, uint64_t* value);

}  // namespace kiv

#endif
