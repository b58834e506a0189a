// Replaces the rest of the library for tests of segments. The segment sources alone are built into
// the program (kiv_segment), and their calls of other families come here.
#ifndef KIV_TESTS_SEGMENT_CALLS_H
#define KIV_TESTS_SEGMENT_CALLS_H

#include <cstdint>

#include "kivsdu/segment.h"

namespace kiv::test {

// Receives the calls during its lifetime. Only one object at a time.
class SegmentCalls {
 public:
  SegmentCalls();
  virtual ~SegmentCalls();
  SegmentCalls(const SegmentCalls&) = delete;
  SegmentCalls& operator=(const SegmentCalls&) = delete;

  virtual uint32_t Request(KivSdContext* ctx, uint16_t member, KivSdShSemSet* set,
                           uint32_t timeoutMs) = 0;
  virtual uint32_t Clear(KivSdContext* ctx, uint16_t member, KivSdShSemSet* set) = 0;

  // These calls work on descriptors. They abort the program unless they are overridden.
  virtual uint32_t CreateSet(KivSdContext* ctx, const char* name, uint16_t count, uint64_t ignored,
                             KivSdShSemSet** set);
  virtual uint32_t CloseSet(KivSdContext* ctx, KivSdShSemSet* set);
  virtual uint32_t AllocArea(KivSdContext* ctx, const char* name, uint32_t sizeBytes,
                             uint32_t openFlags, uint32_t protectionFlags, KivHandle* mapping,
                             uint32_t* mappingId, void** view);
  virtual uint32_t FreeArea(KivSdContext* ctx, KivHandle mapping, void* view);
  virtual uint32_t Alloc(KivSdContext* ctx, uint32_t sizeBytes, void** out, const char* file,
                         uint32_t line);
  virtual uint32_t Free(KivSdContext* ctx, void* block, const char* file, uint32_t line);
};

}  // namespace kiv::test

#endif
