// Blocks of cells as bytes: what goes in comes out, and no damage goes unnoticed. Places as
// numbers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host_fixture.h"
#include "storage/cell_index.h"
#include "storage/cell_page.h"

namespace cellhost {
namespace {

using Words = std::vector<std::string>;

CellPage PageOf(uint32_t number, uint32_t cells) {
  CellPage page;
  ClearPage(&page);
  for (uint32_t at = 0; at < cells; ++at) page.cells[at] = {.place = at * 7ull, .value = at / 4.0};
  SealPage(&page, number, cells);
  return page;
}

unsigned char* BytesOf(CellPage* page) { return reinterpret_cast<unsigned char*>(page); }

TEST(CellPage, HasItsNumberAndItsCells) {
  for (const uint32_t cells : {0u, 1u, kCellsInPage}) {
    const CellPage page = PageOf(5, cells);
    ASSERT_TRUE(IsSound(page, 5));
    EXPECT_EQ(page.cellCount, cells);
    for (uint32_t at = 0; at < cells; ++at) {
      ASSERT_EQ(page.cells[at].place, at * 7ull);
      ASSERT_EQ(page.cells[at].value, at / 4.0);
    }
  }
}

TEST(CellPage, IsDamagedWhenAnyByteIsAnother) {
  CellPage page = PageOf(1, kCellsInPage - 1);
  for (uint32_t at = 0; at < kPageBytes; ++at) {
    const unsigned char change = static_cast<unsigned char>(1u << at % 8);
    BytesOf(&page)[at] ^= change;
    ASSERT_FALSE(IsSound(page, 1)) << "byte " << at;
    BytesOf(&page)[at] ^= change;
  }
  EXPECT_TRUE(IsSound(page, 1));
}

TEST(CellPage, IsDamagedWhenPartsOfTwoWritesAreMixed) {
  constexpr uint32_t kSectorBytes = 512;
  for (uint32_t sectors = 1; sectors < kPageBytes / kSectorBytes; ++sectors) {
    CellPage mixed = PageOf(3, 400);
    for (StoredCell& cell : mixed.cells) cell.value += 1;
    SealPage(&mixed, 3, 400);
    const CellPage before = PageOf(3, 400);
    std::copy_n(reinterpret_cast<const unsigned char*>(&before), sectors * kSectorBytes,
                BytesOf(&mixed));
    EXPECT_FALSE(IsSound(mixed, 3)) << sectors;
  }
}

TEST(CellPage, IsDamagedInAnotherPlaceOrWithMoreCellsThanFit) {
  CellPage page = PageOf(2, 4);
  EXPECT_FALSE(IsSound(page, 3));
  SealPage(&page, 2, kCellsInPage + 1);
  EXPECT_FALSE(IsSound(page, 2));
  ClearPage(&page);
  EXPECT_FALSE(IsSound(page, 0)) << "a block that was never written";
}

TEST(CellPage, AHeadSaysWhatTheFileIs) {
  const PageFileHead written = {
      .kind = kPageFileKind, .cube = 11, .puts = 1ull << 40, .cells = 600, .pages = 3};
  CellPage page;
  PageFileHead read = {};
  MakeHead(written, &page);
  ASSERT_TRUE(ReadHead(page, &read));
  EXPECT_EQ(read.cube, 11u);
  EXPECT_EQ(read.puts, 1ull << 40);
  EXPECT_EQ(read.cells, 600u);
  EXPECT_EQ(read.pages, 3u);
}

TEST(CellPage, ABlockOfCellsIsNoHead) {
  PageFileHead head = {};
  const CellPage cells = PageOf(0, 3);
  EXPECT_FALSE(ReadHead(cells, &head));
  CellPage page;
  MakeHead({.kind = kPageFileKind + 1, .cube = 0, .puts = 0, .cells = 0, .pages = 1}, &page);
  EXPECT_FALSE(ReadHead(page, &head)) << "of another layout";
}

TEST(CellPage, AFileHasAHeadAndAsManyBlocksAsItsCellsNeed) {
  EXPECT_EQ(PagesFor(0), 1u);
  EXPECT_EQ(PagesFor(1), 2u);
  EXPECT_EQ(PagesFor(kCellsInPage), 2u);
  EXPECT_EQ(PagesFor(kCellsInPage + 1), 3u);
  EXPECT_EQ(PagesFor(0xFFFFFFFF), 1u + 8405025u);
}

class CellIndexTest : public testing::Test {
 protected:
  static void Fill(Cube* cube, const std::vector<Words>& dimensions) {
    size_t most = 0;
    for (size_t at = 0; at < dimensions.size(); ++at) {
      ASSERT_TRUE(cube->AddDimension(std::string("dimension ").append(std::to_string(at))));
      most = std::max(most, dimensions[at].size());
    }
    for (size_t member = 0; member < most; ++member) {
      std::string_view members[kDimensionsMax];
      for (size_t at = 0; at < dimensions.size(); ++at) {
        members[at] = dimensions[at][std::min(member, dimensions[at].size() - 1)];
      }
      ASSERT_TRUE(cube->AddMembers(members));
    }
  }

  static uint64_t Fingerprint(const std::vector<Words>& dimensions) {
    Cube cube;
    Fill(&cube, dimensions);
    return FingerprintOf(cube);
  }

  test::InHost host_;
};

TEST_F(CellIndexTest, EachPlaceHasOneAndComesBackFromIt) {
  Cube cube;
  Fill(&cube, {{"a", "b", "c"}, {"x"}, {"m", "n"}});
  CellIndex numbers;
  ASSERT_TRUE(numbers.Set(cube));
  CellPlace place;
  for (uint32_t first = 0; first < 3; ++first) {
    for (uint32_t last = 0; last < 2; ++last) {
      const uint32_t coordinates[] = {first, 0, last};
      const uint64_t number = numbers.NumberOf(coordinates);
      EXPECT_EQ(number, first * 2 + last);
      ASSERT_TRUE(numbers.PlaceOf(number, &place));
      EXPECT_EQ(place.coordinates[0], first);
      EXPECT_EQ(place.coordinates[1], 0u);
      EXPECT_EQ(place.coordinates[2], last);
    }
  }
  EXPECT_FALSE(numbers.PlaceOf(6, &place));
  EXPECT_FALSE(numbers.PlaceOf(UINT64_MAX, &place));
}

TEST_F(CellIndexTest, AddingMembersMakesNoCell) {
  Cube cube;
  Fill(&cube, {{"a", "b"}, {"x", "y"}});
  EXPECT_EQ(cube.cells().count(), 0u);
  EXPECT_EQ(cube.dimension(0).memberCount(), 2u);
}

TEST_F(CellIndexTest, MoreThan64BitsAreRefused) {
  Words members;
  for (uint32_t at = 0; at < 16; ++at) members.push_back(std::to_string(at));
  Cube most;
  std::vector<Words> dimensions(15, members);  // 60 bits
  dimensions.push_back(Words(members.begin(), members.begin() + 15));
  Fill(&most, dimensions);
  CellIndex numbers;
  EXPECT_TRUE(numbers.Set(most));
  Cube tooMany;
  dimensions.back() = members;  // 64 bits: one place more than they can count
  Fill(&tooMany, dimensions);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(numbers.Set(tooMany));
  EXPECT_NE(testing::internal::GetCapturedStderr().find("more places than 64 bits"),
            std::string::npos);
}

TEST_F(CellIndexTest, AFingerprintTellsCubesApart) {
  const uint64_t one = Fingerprint({{"a", "b"}, {"x"}});
  EXPECT_EQ(one, Fingerprint({{"a", "b"}, {"x"}}));
  EXPECT_NE(one, Fingerprint({{"b", "a"}, {"x"}}));
  EXPECT_NE(one, Fingerprint({{"a", "b"}, {"x", "y"}}));
  EXPECT_NE(one, Fingerprint({{"ab"}, {"x"}}));
  EXPECT_NE(one, Fingerprint({{"a", "b"}}));
}

}  // namespace
}  // namespace cellhost
