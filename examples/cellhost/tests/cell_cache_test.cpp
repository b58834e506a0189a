// The cell cache: the effects of PUTs, and many threads that read and write at the same time.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <string_view>
#include <thread>

#include "cube/cell_cache.h"
#include "host_fixture.h"
#include "support/threads.h"

namespace cellhost {
namespace {

using kiv::test::OnThreads;
using test::AnswerTo;
using test::CountOf;
using test::InThread;
using test::Put;

// Fruit by place, and two cells of the four:
//
//           Lima   Oslo
//   apple    1.5      -
//   pear       -     20
class CellCacheTest : public testing::Test {
 protected:
  CellCacheTest() {
    const std::string_view facts[][2] = {{"apple", "Lima"}, {"pear", "Oslo"}};
    EXPECT_TRUE(cube_.AddDimension("fruit") && cube_.AddDimension("place"));
    EXPECT_TRUE(cube_.AddFact(facts[0], 1.5) && cube_.AddFact(facts[1], 20));
  }

  // The count and all answers, to compare states.
  std::string Everything() {
    std::string all = std::to_string(CountOf(&cells_));
    for (const char* query : {"TOP fruit 9", "TOP place 9", "CELL apple Lima", "CELL apple Oslo",
                              "CELL pear Lima", "CELL pear Oslo"}) {
      all += "; " + AnswerTo(&cells_, query);
    }
    return all;
  }

  test::InHost host_;
  Cube cube_;
  CellCache cells_{&cube_};
};

constexpr char kAtFirst[] = "2; pear 20, apple 1.5; Oslo 20, Lima 1.5; 1.5; no data; no data; 20";

TEST_F(CellCacheTest, AnswersFromTheFacts) { EXPECT_EQ(Everything(), kAtFirst); }

TEST_F(CellCacheTest, PutReplacesTheNumber) {
  EXPECT_EQ(Put(&cells_, "PUT apple Lima 4"), "");
  EXPECT_EQ(Everything(), "2; pear 20, apple 4; Oslo 20, Lima 4; 4; no data; no data; 20");
  EXPECT_EQ(Put(&cells_, "PUT apple Lima 25"), "");
  EXPECT_EQ(Put(&cells_, "PUT apple Lima 25"), "");
  EXPECT_EQ(Everything(), "2; apple 25, pear 20; Lima 25, Oslo 20; 25; no data; no data; 20");
}

TEST_F(CellCacheTest, PutMakesAMissingCell) {
  EXPECT_EQ(Put(&cells_, "PUT pear Lima -2"), "");
  EXPECT_EQ(Everything(), "3; pear 18, apple 1.5; Oslo 20, Lima -0.5; 1.5; no data; -2; 20");
  EXPECT_EQ(AnswerTo(&cells_, "SUM fruit=pear"), "18");
}

TEST_F(CellCacheTest, ACellOfZeroStays) {
  EXPECT_EQ(Put(&cells_, "PUT pear Oslo 0"), "");
  EXPECT_EQ(Put(&cells_, "PUT apple Oslo -0"), "");
  EXPECT_EQ(Everything(), "3; apple 1.5, pear 0; Lima 1.5, Oslo 0; 1.5; 0; no data; 0");
}

TEST_F(CellCacheTest, PutOfAnUnknownMemberChangesNothing) {
  EXPECT_EQ(Put(&cells_, "PUT quince Lima 5"), "nothing stored: 'fruit' has no member 'quince'");
  EXPECT_EQ(Put(&cells_, "PUT apple Rome 5"), "nothing stored: 'place' has no member 'Rome'");
  EXPECT_EQ(Put(&cells_, "PUT quince Rome 5"), "nothing stored: 'fruit' has no member 'quince'");
  EXPECT_EQ(Put(&cells_, "PUT Lima apple 5"), "nothing stored: 'fruit' has no member 'Lima'");
  EXPECT_EQ(Put(&cells_, "PUT \"\" Lima 5"), "nothing stored: 'fruit' has no member ''");
  EXPECT_EQ(Put(&cells_, "PUT apple LIMA 5"), "nothing stored: 'place' has no member 'LIMA'");
  EXPECT_EQ(Everything(), kAtFirst);
}

TEST_F(CellCacheTest, PutOfAWrongNumberOfMembersChangesNothing) {
  EXPECT_EQ(Put(&cells_, "PUT apple 5"),
            "nothing stored: a cell has 2 members, one of each dimension, not 1");
  EXPECT_EQ(Put(&cells_, "PUT apple Lima Lima 5"),
            "nothing stored: a cell has 2 members, one of each dimension, not 3");
  EXPECT_EQ(Everything(), kAtFirst);
}

TEST_F(CellCacheTest, IsFreeAfterEveryOrderAndQuery) {
  // If the lock stayed held, one of these would wait forever or be refused.
  for (const char* order : {"PUT apple Lima 1", "PUT quince Lima 1", "PUT apple Lima 2"}) {
    Put(&cells_, order);
    EXPECT_EQ(CountOf(&cells_), 2u);
    std::thread([this, order] {
      const InThread record;
      Put(&cells_, order);
    }).join();
  }
  EXPECT_EQ(AnswerTo(&cells_, "CELL apple Lima"), "2");
}

TEST_F(CellCacheTest, ThreadsMayComeAndGo) {
  for (int round = 0; round < 20; ++round) {
    std::thread([this, round] {
      const InThread record;
      EXPECT_EQ(Put(&cells_, "PUT apple Lima " + std::to_string(round)), "");
      EXPECT_EQ(AnswerTo(&cells_, "CELL apple Lima"), std::to_string(round));
    }).join();
  }
  EXPECT_EQ(AnswerTo(&cells_, "CELL apple Lima"), "19");
}

// ---- At the same time ----

constexpr uint32_t kWriters = 3;
constexpr uint32_t kReaders = 3;
constexpr uint32_t kCellsEach = 200;  // enough for every array to move several times
constexpr uint32_t kRounds = 3;

std::string Row(uint32_t writer) { return "row" + std::to_string(writer); }
std::string Column(uint32_t column) { return "column" + std::to_string(column); }
std::string OrderOf(const std::string& cell, uint32_t value) {
  return "PUT " + cell + " " + std::to_string(value);
}

// A cube in which all members are known but most cells are missing.
class ManyThreads : public testing::Test {
 protected:
  ManyThreads() {
    EXPECT_TRUE(cube_.AddDimension("row") && cube_.AddDimension("column"));
    // A member becomes known only with a cell. Give each row and column a cell of value 0.
    for (uint32_t number = 0; number < kCellsEach; ++number) {
      const std::string row = Row(number < kWriters ? number : kWriters);
      const std::string column = Column(number);
      const std::string_view members[] = {row, column};
      EXPECT_TRUE(cube_.AddFact(members, 0));
    }
  }

  // Ends the readers with the last writer, even if that fails.
  struct Working {
    ~Working() { count->fetch_sub(1); }
    std::atomic<uint32_t>* count;
  };

  // Stores the round's number in every cell of a row, and reads each back.
  void Write(uint32_t writer) {
    const InThread record;
    const Working working{&working_};
    for (uint32_t round = 1; round <= kRounds; ++round) {
      for (uint32_t column = 0; column < kCellsEach; ++column) {
        const std::string cell = Row(writer) + " " + Column(column);
        ASSERT_EQ(Put(&cells_, OrderOf(cell, round)), "");
        ASSERT_EQ(AnswerTo(&cells_, "CELL " + cell), std::to_string(round));
      }
    }
  }

  // No cell ever decreases; therefore no sum and no count may decrease.
  void Read(uint32_t reader) {
    const InThread record;
    const std::string query = "SUM row=" + Row(reader % kWriters);
    double before = 0;
    uint32_t countBefore = 0;
    while (working_.load() != 0) {
      const double sum = std::stod(AnswerTo(&cells_, query));
      ASSERT_GE(sum, before);
      before = sum;
      const uint32_t count = CountOf(&cells_);
      ASSERT_GE(count, countBefore);
      countBefore = count;
    }
  }

  test::InHost host_;
  Cube cube_;
  CellCache cells_{&cube_};
  std::atomic<uint32_t> working_{kWriters};
};

TEST_F(ManyThreads, ReadWhileOthersChangeAndMakeCells) {
  OnThreads(kWriters + kReaders, [this](uint32_t number) {
    if (number < kWriters) {
      Write(number);
    } else {
      Read(number - kWriters);
    }
  });
  for (uint32_t writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(AnswerTo(&cells_, "SUM row=" + Row(writer)), std::to_string(kRounds * kCellsEach));
  }
  EXPECT_EQ(AnswerTo(&cells_, "SUM row=" + Row(kWriters)), "0") << "nobody's";
  EXPECT_EQ(AnswerTo(&cells_, "SUM column=" + Column(7)), std::to_string(kRounds * kWriters));
  // One cell for each writer and column, plus the initial cells outside the writers' rows.
  EXPECT_EQ(CountOf(&cells_), kWriters * kCellsEach + kCellsEach - kWriters);
}

TEST_F(ManyThreads, WriteTheSameCell) {
  OnThreads(kWriters, [this](uint32_t writer) {
    const InThread record;
    const std::string order = "PUT row0 column1 " + std::to_string(writer + 1);
    for (uint32_t time = 0; time < kCellsEach; ++time) ASSERT_EQ(Put(&cells_, order), "");
  });
  const std::string last = AnswerTo(&cells_, "CELL row0 column1");
  EXPECT_TRUE(last == "1" || last == "2" || last == "3") << last;
  EXPECT_EQ(CountOf(&cells_), kCellsEach + 1) << "made once";
}

}  // namespace
}  // namespace cellhost
