// The command HOG: its syntax, and its outcome in every memory mode.
#include "server/hog.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "host/scratch.h"
#include "memory_modes.h"
#include "support/process.h"

namespace cellhost {
namespace {

using test::InMemoryMode;

constexpr char kForm[] = "write HOG and how many MiB, a whole number from 1 to 1024";

struct Parsed {
  std::string fault;  // empty: the command is valid
  uint32_t mebibytes;
};

Parsed Parse(std::string_view text) {
  ScratchRoom words;
  Fault fault = {};
  uint32_t mebibytes = 0;
  const bool parsed = ParseHog(text, &words, &mebibytes, &fault);
  ResetScratch();
  return {parsed ? "" : fault.text, mebibytes};
}

TEST(HogOrder, HasANumberOfMebibytes) {
  const test::InHost host;
  for (const uint32_t number : {1u, 64u, 1024u}) {
    const Parsed parsed = Parse("HOG " + std::to_string(number));
    EXPECT_EQ(parsed.fault, "");
    EXPECT_EQ(parsed.mebibytes, number);
  }
  EXPECT_EQ(Parse(" \tHOG\t \"12\" ").mebibytes, 12u);
}

TEST(HogOrder, IsInvalidWithoutAWholeNumberFrom1To1024) {
  const test::InHost host;
  for (const char* text : {"", "HOG", "HOG 0", "HOG 1025", "HOG -1", "HOG +1", "HOG 1.5", "HOG 64M",
                           "HOG many", "HOG \"\"", "HOG 99999999999", "hog 1", "HOGS 1", "PUT 1"}) {
    EXPECT_EQ(Parse(text).fault, kForm) << text;
  }
  EXPECT_EQ(Parse("HOG 1 2").fault, "more than 2 words; quote a member that has blanks");
  EXPECT_EQ(Parse("HOG \"1").fault,
            "a quote is not closed; add one, or double it if it is part of a name");
}

std::string OutcomeOf(uint32_t mebibytes) {
  std::string outcome = Hog(mebibytes).text;
  ResetScratch();
  return outcome;
}

// Removes the number from the outcome, because it depends on other memory in use.
std::string RefusedAfter(const std::string& outcome, uint32_t* mebibytes) {
  int at = 0;
  const bool refused = std::sscanf(outcome.c_str(), "refused after %u MiB; %n", mebibytes, &at) > 0;
  return refused ? outcome.substr(static_cast<size_t>(at)) : outcome;
}

// Returns how many MiB were allocated.
uint32_t ExpectFirstRefusal() {
  uint32_t mebibytes = 0;
  EXPECT_EQ(RefusedAfter(OutcomeOf(64), &mebibytes), "warning seen; totals back");
  EXPECT_EQ(MemoryMessagesSeen().warnings, 1u);
  EXPECT_EQ(MemoryMessagesSeen().refusals, 1u);
  EXPECT_GE(mebibytes, 54u);
  EXPECT_LT(mebibytes, 64u);
  return mebibytes;
}

// Soon after the first warning, the library suppresses the next one, but still reports the refusal.
uint32_t ExpectSecondRefusal() {
  uint32_t mebibytes = 0;
  EXPECT_EQ(RefusedAfter(OutcomeOf(1024), &mebibytes), "no warning; totals back");
  EXPECT_EQ(MemoryMessagesSeen().warnings, 1u);
  EXPECT_EQ(MemoryMessagesSeen().refusals, 2u);
  return mebibytes;
}

void ExpectRefusals() {
  EXPECT_EQ(OutcomeOf(2), "took 2 MiB; no warning; totals back");
  const uint32_t most = ExpectFirstRefusal();
  EXPECT_EQ(ExpectSecondRefusal(), most);
  EXPECT_EQ(OutcomeOf(most), "took " + std::to_string(most) + " MiB; no warning; totals back");
}

TEST(Hog, IsRefusedAtTheLimitAndFreesEverything) {
  for (const test::MemoryMode& mode :
       {test::kHeaps, test::kNoShortHeaps, test::kNoHeaps, test::kLargeBlocks}) {
    SCOPED_TRACE(mode.name);
    IN_FRESH_PROCESS([&] {
      const InMemoryMode inMode(mode);
      ExpectRefusals();
    });
  }
}

TEST(Hog, IsWarnedAbove90PercentOfTheLimit) {
  IN_FRESH_PROCESS([] {
    const InMemoryMode inMode(test::kNoHeaps);
    EXPECT_EQ(OutcomeOf(57), "took 57 MiB; no warning; totals back");
    EXPECT_EQ(OutcomeOf(58), "took 58 MiB; warning seen; totals back");
    EXPECT_EQ(MemoryMessagesSeen().refusals, 0u);
  });
}

TEST(Hog, GetsAllMemoryInPlainMode) {
  IN_FRESH_PROCESS([] {
    const InMemoryMode inMode(test::kPlain);
    EXPECT_EQ(OutcomeOf(128), "took 128 MiB; no warning; totals not counted");
  });
}

}  // namespace
}  // namespace cellhost
