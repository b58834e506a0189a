/* NUMA resources: which memory nodes the machine has, and binding a thread to one.
 *
 * Node discovery is switched off on this platform, so every query answers as on a machine
 * without nodes, and binding does nothing. Any thread, after KivSdInitNumaResources.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_NUMA_H
#define KIVSDU_NUMA_H

#include "api.h"

/* What KivSdGetNumaNodeId and KivSdGetNumaNodeIdFromIndex answer when there is no node. */
#define KIV_NUMA_NO_NODE 0xFFFFFFFFu

/* Reads the environment variable "AD_TURN_OFF_NUMA", whose value makes no difference, and leaves
 * the process with no node. At start-up. */
KIVSDU_API void KivSdInitNumaResources(void);

/* The number of nodes: 0. */
KIVSDU_API uint32_t KivSdGetNumNumaNodes(void);

/* The position of a node in the node table: index modulo the count, with the sign of index; 0
 * when there is no node. */
KIVSDU_API int32_t KivSdGetNumaNodeIdIndex(int32_t index);

/* The node at index modulo the count; KIV_NUMA_NO_NODE when there is none. With nodes, a
 * negative index that is no multiple of the count lies outside the table. */
KIVSDU_API uint32_t KivSdGetNumaNodeId(int32_t index);

/* The node at index, which must be below the count; KIV_NUMA_NO_NODE when there is none. */
KIVSDU_API uint32_t KivSdGetNumaNodeIdFromIndex(int32_t index);

/* Does nothing; one entry with adMemInfo and adSetMemTag. */
KIVSDU_API void KivSdBindThreadToNumaNode(int32_t index);

#endif
