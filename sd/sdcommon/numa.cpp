// NUMA resources of a platform whose node discovery is switched off: the table stays empty, and
// the queries are written for one that is not.
#include "sdcommon/numa.h"

#include "os/environment.h"

using namespace kiv;

namespace {

NodeTable nodes = {0, nullptr};

}  // namespace

void KivSdInitNumaResources() {
  // Read and not used: with discovery off there is nothing left for it to turn off.
  static_cast<void>(os::EnvironmentValue("AD_TURN_OFF_NUMA"));
  nodes = {0, nullptr};
}

uint32_t KivSdGetNumNumaNodes() { return nodes.count; }

int32_t KivSdGetNumaNodeIdIndex(int32_t index) { return kiv::NodePosition(nodes, index); }

uint32_t KivSdGetNumaNodeId(int32_t index) { return NodeAt(nodes, NodePosition(nodes, index)); }

uint32_t KivSdGetNumaNodeIdFromIndex(int32_t index) { return kiv::NodeAt(nodes, index); }
