// The node table of the NUMA queries.
#ifndef KIV_SDCOMMON_NUMA_H
#define KIV_SDCOMMON_NUMA_H

#include <cstdint>

#include "kivsdu/numa.h"

namespace kiv {

struct NodeTable {
  uint32_t count;
  const uint32_t* ids;  // array of `count` identifiers; null if count is 0
};

// Returns the index modulo the count. Compatibility: the remainder has the sign of the index, so
// that a negative index returns a negative number or 0. Callers pass no negative index.
inline int32_t NodePosition(const NodeTable& table, int32_t index) {
  return table.count == 0 ? 0 : index % static_cast<int32_t>(table.count);
}

inline uint32_t NodeAt(const NodeTable& table, int32_t position) {
  return table.count == 0 ? KIV_NUMA_NO_NODE : table.ids[position];
}

}  // namespace kiv

#endif
