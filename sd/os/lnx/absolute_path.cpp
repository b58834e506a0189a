// Absolute paths, made from the text alone: links are not followed, and nothing need exist.
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "os/file_search.h"

namespace kiv::os {
namespace {

// Longer than any path that the kernel takes, with room for the working directory in front.
constexpr size_t kMost = size_t{8} * PATH_MAX;

constexpr size_t kEndBytes = 2;  // a separator and the terminator

class Whole {
 public:
  // Adds a part with a separator in front, and leaves room for Finish. Returns false if the path
  // becomes too long.
  bool Add(const char* part, size_t length) {
    if (length_ + 1 + length + kEndBytes > sizeof text_) return false;
    text_[length_++] = '/';
    std::memcpy(text_ + length_, part, length);
    length_ += length;
    return true;
  }

  void DropLast() {
    while (length_ > 0 && text_[length_ - 1] != '/') --length_;
    if (length_ > 0) --length_;
  }

  // Adds the parts of a path in turn. Returns false if the path becomes too long.
  bool AddPath(const char* path) {
    while (*path != '\0') {
      const size_t length = std::strcspn(path, "/");
      if (length == 2 && std::memcmp(path, "..", 2) == 0) {
        DropLast();
      } else if (length != 0 && (length != 1 || *path != '.')) {
        if (!Add(path, length)) return false;
      }
      path += length;
      if (*path == '/') ++path;
    }
    return true;
  }

  // Completes the path. The root, and a path that ended with a separator, keep theirs.
  void Finish(bool endsWithSeparator) {
    if (length_ == 0 || endsWithSeparator) text_[length_++] = '/';
    text_[length_] = '\0';
  }

  const char* text() const { return text_; }
  size_t length() const { return length_; }

 private:
  char text_[kMost];
  size_t length_ = 0;
};

bool AddWorkingDirectory(Whole* whole) {
  char folder[PATH_MAX];
  if (getcwd(folder, sizeof folder) == nullptr) return false;
  static_cast<void>(whole->AddPath(folder));  // fits: it is the first, and shorter than kMost
  return true;
}

}  // namespace

uint32_t AbsolutePath(const char* path, uint32_t sizeBytes, char* buffer) {
  if (path == nullptr || path[0] == '\0') return 0;
  Whole whole;
  if (path[0] != '/' && !AddWorkingDirectory(&whole)) return 0;
  if (!whole.AddPath(path)) {
    errno = ENAMETOOLONG;
    return 0;
  }
  whole.Finish(path[std::strlen(path) - 1] == '/');
  if (whole.length() >= sizeBytes) return static_cast<uint32_t>(whole.length() + 1);
  std::memcpy(buffer, whole.text(), whole.length() + 1);
  return static_cast<uint32_t>(whole.length());
}

}  // namespace kiv::os
