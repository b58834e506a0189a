// A server's cells in files, without the server, for tests: a cube, its cache and its files. A
// store that is destroyed without WriteBack leaves its files like a killed process.
#ifndef CELLHOST_TESTS_CELL_STORE_H
#define CELLHOST_TESTS_CELL_STORE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "cube/cell_cache.h"
#include "cube/put_order.h"
#include "host_fixture.h"
#include "storage/cell_files.h"
#include "support/temporary_folder.h"

namespace cellhost::test {

// The facts: cell (r0, c0) is 1, (r1, c1) is 2, and so on.
constexpr uint32_t kRows = 40;

// Returns text and number together, such as "r5".
inline std::string Numbered(const char* text, uint32_t number) {
  return std::string(text).append(std::to_string(number));
}

class CellStore {
 public:
  // rows: number of members of each of the two dimensions.
  explicit CellStore(uint32_t rows = kRows) : rows_(rows) {}

  // Opens and loads, as a server does.
  bool Open(const std::string& folder) {
    return files_.Open(folder) && AddFacts() && files_.Load(&cube_) && MakeCache();
  }
  bool WriteBack() { return files_.WriteBack(cube_); }

  // Carries out a PUT. Returns the message if it is refused, else an empty text.
  std::string Put(const std::string& text) {
    TextStack words;
    PutOrder order;
    Fault fault = {};
    const bool done = ParsePut(text, &words, &order, &fault) && files_.Put(&*cells_, order, &fault);
    return done ? "" : fault.text;
  }
  std::string Put(uint32_t row, uint32_t column, double value) {
    char text[80];
    std::snprintf(text, sizeof text, "PUT r%u c%u %.17g", row, column, value);
    return Put(text);
  }

  std::string Ask(const std::string& query) { return AnswerTo(&*cells_, query); }
  std::string Cell(uint32_t row, uint32_t column) {
    return Ask(Numbered("CELL r", row) + Numbered(" c", column));
  }
  // The count and all sums, to compare the cells of two stores.
  std::string Everything() {
    return std::to_string(CountOf(&*cells_)) + "; " + Ask("TOP row 1000") + "; " +
           Ask("TOP column 1000");
  }

  BackupReport Backup(uint32_t maxSeconds, bool* made) {
    BackupReport report = {};
    *made = files_.MakeBackup(maxSeconds, &report);
    return report;
  }

  CellFiles& files() { return files_; }
  CellCache* cache() { return &*cells_; }

 private:
  bool AddFacts() {
    bool added = cube_.AddDimension("row") && cube_.AddDimension("column");
    for (uint32_t at = 0; at < rows_ && added; ++at) {
      const std::string row = Numbered("r", at);
      const std::string column = Numbered("c", at);
      const std::string_view members[] = {row, column};
      added = files_.HasCells() ? cube_.AddMembers(members) : cube_.AddFact(members, at + 1);
    }
    return added;
  }
  bool MakeCache() {
    cells_.emplace(&cube_);
    return true;
  }

  uint32_t rows_;
  Cube cube_;
  CellFiles files_;
  std::optional<CellCache> cells_;
};

// A test with a thread record and a folder for cells.
class CellStoreTest : public testing::Test {
 protected:
  std::string Folder() const { return folder_.Path("data"); }
  std::string Path(const std::string& name) const { return Join(Folder(), name); }

  static std::string Join(const std::string& folder, const std::string& name) {
    return (std::filesystem::path(folder) / name).string();
  }

  // Opens a store on the folder. Returns its cells, or the error output of the failure.
  std::string Reopen(const std::string& folder, uint32_t rows = kRows) {
    CellStore store(rows);
    testing::internal::CaptureStderr();
    const bool opened = store.Open(folder);
    const std::string told = testing::internal::GetCapturedStderr();
    return opened ? store.Everything() : told;
  }
  std::string Reopen() { return Reopen(Folder()); }

  // Runs `action` and returns its error output.
  static std::string ToldBy(const std::function<void()>& action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
  }

  static std::string Bytes(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    EXPECT_NE(file, nullptr) << path;
    std::string bytes;
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
      bytes += static_cast<char>(byte);
    }
    std::fclose(file);
    return bytes;
  }
  static void Write(const std::string& path, const std::string& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr) << path;
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    EXPECT_EQ(std::fclose(file), 0);
  }

  test::InHost host_;
  kiv::test::TemporaryFolder folder_;
};

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace cellhost::test

#endif
