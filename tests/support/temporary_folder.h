// A temporary folder for one test. The destructor removes it with its content.
#ifndef KIV_TESTS_TEMPORARY_FOLDER_H
#define KIV_TESTS_TEMPORARY_FOLDER_H

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace kiv::test {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    // Takes the first free number: create_directory returns false if the folder exists.
    for (int number = 0; number < kMax; ++number) {
      path_ = std::filesystem::temp_directory_path() / ("kivsdu-test-" + std::to_string(number));
      std::error_code error;
      if (std::filesystem::create_directory(path_, error)) return;
    }
    ADD_FAILURE() << path_ << " cannot be made, nor any before it";
    path_.clear();
  }
  ~TemporaryFolder() {
    if (path_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  // The path of a file or folder in it; without a name, its own path.
  std::string Path(const std::string& name = "") const { return (path_ / name).string(); }

  void Make(const std::string& folder) const { std::filesystem::create_directory(path_ / folder); }

  // Writes a file, byte for byte.
  void Write(const std::string& name, const std::string& bytes) const {
    std::FILE* file = std::fopen(Path(name).c_str(), "wb");
    ASSERT_NE(file, nullptr) << Path(name);
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    EXPECT_EQ(std::fclose(file), 0);
  }

  void Remove(const std::string& name) const { std::filesystem::remove(path_ / name); }

 private:
  static constexpr int kMax = 10000;

  std::filesystem::path path_;
};

}  // namespace kiv::test

#endif
