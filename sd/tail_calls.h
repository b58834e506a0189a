// The rare ends of short operations, which tail-call them.
//
// Each returns KIV_ST_OK. They lie in a source of their own: a compiler that sees the constant uses it
// in place of the tail call, and the operation would then save registers or align the stack in every
// call.
#ifndef KIV_TAIL_CALLS_H
#define KIV_TAIL_CALLS_H

#include <cstdint>

namespace kiv {

// Writes the number in decimal, with its sign.
uint32_t PrintError(char* text, uint32_t osError);

// Copies between regions that may overlap.
uint32_t MoveBytes(void* destination, const void* source, uint32_t lengthBytes);

}  // namespace kiv

#endif
