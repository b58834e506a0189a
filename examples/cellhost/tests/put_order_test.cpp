// Parsing of PUTs: valid orders, and the messages for invalid ones.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "cube/put_order.h"
#include "host_fixture.h"

namespace cellhost {
namespace {

using Members = std::vector<std::string>;

class PutOrderTest : public testing::Test {
 protected:
  // Returns the fault's text, or an empty text. The order's texts stay valid during the test.
  std::string Parse(std::string_view text, PutOrder* order) {
    Fault fault = {};
    return ParsePut(text, &words_, order, &fault) ? "" : fault.text;
  }

  std::string FaultOf(std::string_view text) {
    PutOrder order;
    return Parse(text, &order);
  }

  static Members MembersOf(const PutOrder& order) {
    return Members(order.members, order.members + order.memberCount);
  }

 private:
  test::InHost host_;
  TextStack words_;
};

constexpr char kForm[] = "write PUT, a member of each dimension, and a number";

TEST_F(PutOrderTest, HasMembersAndANumber) {
  PutOrder order;
  ASSERT_EQ(Parse("PUT libs optional amd64 15727418", &order), "");
  EXPECT_EQ(MembersOf(order), (Members{"libs", "optional", "amd64"}));
  EXPECT_EQ(order.value, 15727418);
  EXPECT_EQ(order.text, "PUT libs optional amd64 15727418");
  EXPECT_EQ(order.cell, "libs optional amd64");
}

TEST_F(PutOrderTest, MayHaveBlanksAroundAndBetween) {
  PutOrder order;
  ASSERT_EQ(Parse(" \tPUT\tapple  Lima \t 3 ", &order), "");
  EXPECT_EQ(MembersOf(order), (Members{"apple", "Lima"}));
  EXPECT_EQ(order.value, 3);
  EXPECT_EQ(order.text, "PUT\tapple  Lima \t 3");
  EXPECT_EQ(order.cell, "apple  Lima");
}

TEST_F(PutOrderTest, AcceptsQuotedMembers) {
  PutOrder order;
  ASSERT_EQ(Parse("PUT \"pear, \"\"late\"\"\" \"New York\" \"a=b\" \"\" 1", &order), "");
  EXPECT_EQ(MembersOf(order), (Members{"pear, \"late\"", "New York", "a=b", ""}));
  EXPECT_EQ(order.cell, "\"pear, \"\"late\"\"\" \"New York\" \"a=b\" \"\"");
}

TEST_F(PutOrderTest, AcceptsANumberAsAMember) {
  PutOrder order;
  ASSERT_EQ(Parse("PUT 7 8 9", &order), "");
  EXPECT_EQ(MembersOf(order), (Members{"7", "8"}));
  EXPECT_EQ(order.value, 9);
}

TEST_F(PutOrderTest, AcceptsEveryNotationOfNumbersInFacts) {
  struct {
    const char* text;
    double value;
  } const numbers[] = {{"0", 0},       {"-3.5", -3.5},
                       {".25", 0.25},  {"1e3", 1000},
                       {"-2E-1", -.2}, {"007", 7},
                       {"5.", 5},      {"1.7976931348623157e308", 1.7976931348623157e308}};
  for (const auto& [text, value] : numbers) {
    PutOrder order;
    EXPECT_EQ(Parse(std::string("PUT m ") + text, &order), "");
    EXPECT_EQ(order.value, value) << text;
  }
}

TEST_F(PutOrderTest, IsInvalidWithoutACompleteNumberAtTheEnd) {
  for (const std::string number : {"many", "5x", "x5", "+5", "1,5", "0x10", "--5", "-", ".", "e3",
                                   "1e", "inf", "-inf", "nan", "infinity", "1e999", "-1e999"}) {
    EXPECT_EQ(FaultOf("PUT apple Lima " + number),
              "'" + number + "' is not a number; write it as in 12 or -3.5");
  }
  EXPECT_EQ(FaultOf("PUT apple Lima \"\""), "'' is not a number; write it as in 12 or -3.5");
  EXPECT_EQ(FaultOf("PUT apple Lima \"5 6\""), "'5 6' is not a number; write it as in 12 or -3.5");
  EXPECT_EQ(FaultOf("PUT apple 5 Lima"), "'Lima' is not a number; write it as in 12 or -3.5");
}

TEST_F(PutOrderTest, ShowsOnlyTheStartOfALongWord) {
  EXPECT_EQ(FaultOf("PUT apple " + std::string(4000, '9') + "x"),
            "'" + std::string(40, '9') + "' is not a number; write it as in 12 or -3.5");
}

TEST_F(PutOrderTest, IsInvalidWithoutVerbMemberAndNumber) {
  for (const char* text : {"", "  ", "PUT", "PUT 5", "PUT apple", "put apple 5", "PUTS apple 5",
                           "QUERY apple 5", "apple Lima 5", "\"PUT apple\" 5"}) {
    EXPECT_EQ(FaultOf(text), kForm) << text;
  }
}

TEST_F(PutOrderTest, IsInvalidWithAnOpenQuote) {
  EXPECT_EQ(FaultOf("PUT \"apple Lima 5"),
            "a quote is not closed; add one, or double it if it is part of a name");
}

TEST_F(PutOrderTest, MayHaveAMemberForEachOfTheMostDimensions) {
  std::string text = "PUT";
  for (uint32_t member = 0; member < kDimensionsMax; ++member) text += " m";
  PutOrder order;
  ASSERT_EQ(Parse(text + " 5", &order), "");
  EXPECT_EQ(order.memberCount, kDimensionsMax);
  EXPECT_EQ(FaultOf(text + " m 5"), "more than 18 words; quote a member that has blanks");
}

TEST_F(PutOrderTest, DoesNotRaiseTheWordLimitOfACellQuery) {
  std::string text = "CELL";
  for (uint32_t member = 0; member < kDimensionsMax; ++member) text += " m";
  TextStack words;
  Query query;
  Fault fault = {};
  ASSERT_TRUE(ParseQuery(text, &words, &query, &fault));
  EXPECT_EQ(query.memberCount, kDimensionsMax);
  const std::string longer = text + " m";
  EXPECT_FALSE(ParseQuery(longer, &words, &query, &fault));
  EXPECT_STREQ(fault.text, "more than 17 words; quote a member that has blanks");
}

}  // namespace
}  // namespace cellhost
