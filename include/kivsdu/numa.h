/* NUMA resources: the machine's memory nodes, and binding a thread to one.
 *
 * Node discovery is off on this platform: every query answers as on a machine without nodes, and
 * binding does nothing. Any thread, after KivSdInitNumaResources.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_NUMA_H
#define KIVSDU_NUMA_H

#include "api.h"

/* The result of KivSdGetNumaNodeId and KivSdGetNumaNodeIdFromIndex if there is no node. */
#define KIV_NUMA_NO_NODE 0xFFFFFFFFu

/* Leaves the process without nodes. Reads the environment variable "AD_TURN_OFF_NUMA" and ignores
 * its value. Call it at start-up. */
KIVSDU_API void KivSdInitNumaResources(void);

/* Returns the number of nodes, which is 0. */
KIVSDU_API uint32_t KivSdGetNumNumaNodes(void);

/* Returns a position in the node table: index modulo the node count, with the sign of index.
 * Returns 0 if there is no node. */
KIVSDU_API int32_t KivSdGetNumaNodeIdIndex(int32_t index);

/* Returns the node at index modulo the node count, or KIV_NUMA_NO_NODE if there is no node. On a
 * machine with nodes, a negative index that is not a multiple of the count would be outside the
 * table. */
KIVSDU_API uint32_t KivSdGetNumaNodeId(int32_t index);

/* Returns the node at index, or KIV_NUMA_NO_NODE if there is no node.
 *
 *   index  below the node count; not checked */
KIVSDU_API uint32_t KivSdGetNumaNodeIdFromIndex(int32_t index);

/* Does nothing. adMemInfo and adSetMemTag export the same function. */
KIVSDU_API void KivSdBindThreadToNumaNode(int32_t index);

#endif
