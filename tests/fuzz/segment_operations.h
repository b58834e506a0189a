// Operations on a chunk whose peer is hostile, and what must hold after each.
#ifndef KIV_TESTS_FUZZ_SEGMENT_OPERATIONS_H
#define KIV_TESTS_FUZZ_SEGMENT_OPERATIONS_H

#include <functional>

#include "fuzz/input.h"
#include "kivsdu/segment.h"

namespace kiv::fuzz {

// Runs one operation on the chunk, chosen by the input. Before it, `expose` makes the half that the
// operation may touch accessible, and nothing else of the area. The caller's buffers have the
// smallest size allowed.
void OperateOnChunk(Input* input, KivSharedMemSeg* segment, int32_t chunk,
                    const std::function<void(bool reading)>& expose);

}  // namespace kiv::fuzz

#endif
