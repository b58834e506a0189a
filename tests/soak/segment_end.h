// One end of a shared memory segment.
#ifndef KIV_TESTS_SOAK_SEGMENT_END_H
#define KIV_TESTS_SOAK_SEGMENT_END_H

#include <cstdint>
#include <string>

#include "kivsdu/segment.h"

namespace kiv::soak {

class SegmentEnd {
 public:
  SegmentEnd(const std::string& name, uint32_t kind, uint32_t timeoutMs);
  ~SegmentEnd();
  SegmentEnd(const SegmentEnd&) = delete;
  SegmentEnd& operator=(const SegmentEnd&) = delete;

  // A message of at most KIV_SEGMENT_PAYLOAD_BYTES, with the status of the library's operation.
  uint32_t Send(int32_t chunk, const void* data, uint32_t lengthBytes);
  uint32_t Receive(int32_t chunk, void* buffer, uint32_t lengthBytes);

  // Prepares a chunk for the next peer after a peer was killed. Nobody may use the chunk meanwhile.
  void Prepare(int32_t chunk);

 private:
  KivSharedMemSeg* list_ = nullptr;
  KivSharedMemSeg* segment_ = nullptr;
};

// Every message between a process and the coordinator: a number and bytes that depend on it.
struct EchoMessage {
  uint64_t number;
  char bytes[1500];
};

constexpr int32_t kEchoChunk = 0;
constexpr uint32_t kEchoServerKind = 1;
constexpr uint32_t kEchoClientKind = 0;

inline std::string EchoName(const std::string& prefix, uint32_t process) {
  return prefix + "-echo-" + std::to_string(process);
}

}  // namespace kiv::soak

#endif
