// NUMA resources: the rules for a machine with nodes, and the exports, whose table has no node.
#include "sdcommon/numa.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "kivsdu/kivsdu.h"
#include "support/process.h"

namespace {

using kiv::NodeAt;
using kiv::NodePosition;
using kiv::NodeTable;

constexpr uint32_t kIds[] = {7, 0, 0xFFFFFFFE};
constexpr NodeTable kThreeNodes = {3, kIds};
constexpr NodeTable kNoNode = {0, nullptr};

TEST(NodeTableWithNodes, PositionIsTheIndexModuloTheCountWithTheIndexsSign) {
  const struct {
    int32_t index;
    int32_t position;
  } cases[] = {{0, 0},   {1, 1},   {2, 2},     {3, 0},         {4, 1},         {5, 2},
               {-1, -1}, {-2, -2}, {-3, 0},    {-4, -1},       {-6, 0},        {300, 0},
               {301, 1}, {-5, -2}, {-301, -1}, {INT32_MAX, 1}, {INT32_MIN, -2}};
  for (const auto& [index, position] : cases) {
    EXPECT_EQ(NodePosition(kThreeNodes, index), position) << "index " << index;
  }
}

TEST(NodeTableWithNodes, ReturnsTheIdentifierAtAPosition) {
  EXPECT_EQ(NodeAt(kThreeNodes, 0), 7u);
  EXPECT_EQ(NodeAt(kThreeNodes, 1), 0u);
  EXPECT_EQ(NodeAt(kThreeNodes, 2), 0xFFFFFFFEu);
  EXPECT_EQ(NodeAt(kThreeNodes, NodePosition(kThreeNodes, 302)), 0xFFFFFFFEu);
  EXPECT_EQ(NodeAt(kThreeNodes, NodePosition(kThreeNodes, -303)), 7u);
}

TEST(NodeTableWithNodes, OneNodeServesEveryIndex) {
  const NodeTable one = {1, kIds};
  for (const int32_t index : {0, 1, -1, 5, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(NodePosition(one, index), 0);
    EXPECT_EQ(NodeAt(one, NodePosition(one, index)), 7u);
  }
}

TEST(NodeTableWithoutNodes, ReturnsPositionZeroAndNoNode) {
  for (const int32_t index : {0, 1, 5, -5, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(NodePosition(kNoNode, index), 0);
    EXPECT_EQ(NodeAt(kNoNode, index), 0xFFFFFFFFu);
  }
}

void ExpectNoNode() {
  EXPECT_EQ(KivSdGetNumNumaNodes(), 0u);
  for (const int32_t index : {0, 1, 5, -5, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(KivSdGetNumaNodeIdIndex(index), 0);
    EXPECT_EQ(KivSdGetNumaNodeId(index), 0xFFFFFFFFu);
    EXPECT_EQ(KivSdGetNumaNodeIdFromIndex(index), 0xFFFFFFFFu);
    KivSdBindThreadToNumaNode(index);
  }
}

void SetVariable(const char* value) {
#ifdef _WIN32
  ASSERT_EQ(_putenv_s("AD_TURN_OFF_NUMA", value), 0);
#else
  ASSERT_EQ(setenv("AD_TURN_OFF_NUMA", value, 1), 0);
#endif
}

TEST(NumaResources, HaveNoNodeBeforeTheyAreInitialized) { IN_FRESH_PROCESS(ExpectNoNode); }

TEST(NumaResources, HaveNoNodeWithoutTheVariable) {
  IN_FRESH_PROCESS([] {
    KivSdInitNumaResources();
    ExpectNoNode();
  });
}

TEST(NumaResources, HaveNoNodeForAnyValueOfTheVariable) {
  IN_FRESH_PROCESS([] {
    for (const char* value : {"1", "0", "FALSE", "nonsense"}) {
      SetVariable(value);
      KivSdInitNumaResources();
      ExpectNoNode();
    }
  });
}

TEST(NumaResources, BindingAndMemoryTagsAreOneFunction) {
  // Read through volatile: the compiler assumes that functions with different names differ.
  void* volatile bind = reinterpret_cast<void*>(&KivSdBindThreadToNumaNode);
  void* volatile info = reinterpret_cast<void*>(&adMemInfo);
  void* volatile tag = reinterpret_cast<void*>(&adSetMemTag);
  EXPECT_EQ(bind, info);
  EXPECT_EQ(bind, tag);
}

}  // namespace
