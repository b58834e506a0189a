// Paths of the platform that the tests run on.
#ifndef KIV_TESTS_PATHS_H
#define KIV_TESTS_PATHS_H

#include <algorithm>
#include <string>

namespace kiv::test {

#ifdef _WIN32
constexpr char kSeparator = '\\';
inline const std::string kRoot = "C:\\";  // an absolute folder that exists
constexpr char kEveryFile[] = "*.*";      // the pattern with which the library lists a folder
#else
constexpr char kSeparator = '/';
inline const std::string kRoot = "/";
constexpr char kEveryFile[] = "*";
#endif

// The path with the platform's separator in place of every backslash.
inline std::string Here(std::string path) {
  std::replace(path.begin(), path.end(), '\\', kSeparator);
  return path;
}

}  // namespace kiv::test

#endif
