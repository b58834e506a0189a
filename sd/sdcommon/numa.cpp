// NUMA resources. Node discovery is switched off on this platform, so that the node table is always
// empty. The queries also work for a table with nodes.
#include "sdcommon/numa.h"

#include "os/environment.h"

using namespace kiv;

namespace {

NodeTable nodes = {0, nullptr};

}  // namespace

void KivSdInitNumaResources() {
  // Compatibility: the variable is read and its value ignored, because discovery is off anyway.
  static_cast<void>(os::EnvironmentValue("AD_TURN_OFF_NUMA"));
  nodes = {0, nullptr};
}

uint32_t KivSdGetNumNumaNodes() { return nodes.count; }

int32_t KivSdGetNumaNodeIdIndex(int32_t index) { return kiv::NodePosition(nodes, index); }

uint32_t KivSdGetNumaNodeId(int32_t index) { return NodeAt(nodes, NodePosition(nodes, index)); }

uint32_t KivSdGetNumaNodeIdFromIndex(int32_t index) { return kiv::NodeAt(nodes, index); }
