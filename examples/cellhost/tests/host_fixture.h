// Helpers for tests of the server's parts: a thread record, queries and PUTs.
#ifndef CELLHOST_TESTS_HOST_FIXTURE_H
#define CELLHOST_TESTS_HOST_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "cube/cell_cache.h"
#include "cube/put_order.h"
#include "cube/query.h"
#include "host/scratch.h"
#include "host/thread_record.h"
#include "kivsdu/vorutil.h"

namespace cellhost::test {

// A thread record for one scope.
class InThread {
 public:
  InThread() { EXPECT_TRUE(EnterThread()); }
  InThread(const InThread&) = delete;
  InThread& operator=(const InThread&) = delete;
  ~InThread() { LeaveThread(); }
};

// The per-thread slot, and a record of the test's thread. Must be a test's first member, because it
// must be destroyed last.
class InHost {
 public:
  InHost() {
    EXPECT_EQ(KivSdVorUtilTlsInit(), 0u);
    EXPECT_TRUE(EnterThread());
  }
  InHost(const InHost&) = delete;
  InHost& operator=(const InHost&) = delete;
  ~InHost() {
    LeaveThread();
    KivSdVorUtilTlsTerm();
  }
};

// Answers a query; returns the part of the answer behind the query.
inline std::string AnswerTo(CellCache* cells, std::string_view text) {
  TextStack words;
  Query query;
  Fault fault = {};
  std::string_view answer;
  if (!ParseQuery(text, &words, &query, &fault)) return fault.text;
  EXPECT_TRUE(cells->Answer(query, &answer));
  EXPECT_TRUE(answer.starts_with(std::string(text) + ": ")) << answer;
  std::string said(answer.substr(std::min(answer.size(), text.size() + 2)));
  ResetScratch();
  return said;
}

// Carries out a PUT. Returns the message if it is refused, else an empty text.
inline std::string Put(CellCache* cells, std::string_view text) {
  TextStack words;
  PutOrder order;
  Fault fault = {};
  return ParsePut(text, &words, &order, &fault) && cells->Put(order, &fault) ? "" : fault.text;
}

inline uint32_t CountOf(CellCache* cells) {
  uint32_t count = 0;
  EXPECT_TRUE(cells->Count(&count));
  return count;
}

}  // namespace cellhost::test

#endif
