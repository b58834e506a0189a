// Text mode of descriptors, with the rules of the Windows runtime: a text file written on one
// platform is read on the other.
//
//   reading   CR LF becomes LF; a CR without LF stays. Byte 26 ends the file: reads from there on
//             return nothing until the position is moved
//   writing   LF becomes CR LF
//   counts    of the caller's bytes, not of the file's
//
// A CR at the end of a read is decided by the next byte of the file. In a file, the position then
// moves back in front of that byte. In a pipe or terminal the byte is kept for the next read.
#ifndef KIV_OS_LNX_TEXT_MODE_H
#define KIV_OS_LNX_TEXT_MODE_H

#include <cstddef>
#include <cstdint>

namespace kiv::os {

// Both return the count, or -1 with errno. The descriptor has an entry in descriptor_modes.h.
int64_t ReadText(int descriptor, char* buffer, size_t length);
int64_t WriteText(int descriptor, const char* text, size_t length);

}  // namespace kiv::os

#endif
