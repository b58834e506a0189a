// A file system that records what a program does to the files below one folder, and makes the states
// in which a disk may be after the power was cut at any moment:
//
//   write              may be lost until the file is flushed, as a whole or by sectors
//   size of a file     may be lost until the file is flushed; an earlier size never after a later one
//   new, renamed and   may be lost until the folder is flushed, each by itself; those of one name
//   removed names      keep their order
//   rename             happens as a whole or not at all
//
// This is less than file systems usually guarantee, and all that docs/files.md promises.
#ifndef CELLHOST_TESTS_RECORDED_DISK_H
#define CELLHOST_TESTS_RECORDED_DISK_H

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace cellhost::test {

constexpr uint32_t kNoFile = UINT32_MAX;

// One step of the program. Files and folders have numbers; 0 is the folder that is recorded.
struct DiskStep {
  enum Kind { kWrite, kResize, kFlushFile, kName, kRename, kRemove, kFlushFolder };

  Kind kind;
  uint32_t file;          // the file that is changed or flushed; the folder of a name
  uint64_t offset = 0;    // of a write; the new size of a file
  std::string data = {};  // of a write; the name
  std::string newName = {};
  uint32_t named = kNoFile;  // the file or folder that receives the name
  bool isFolder = false;     // whether a new name is that of a folder
};

// How much of what was not flushed reaches the disk.
enum class Reached { kNothing, kEverything, kSome };

// The files and folders of one state of a disk.
struct DiskImage {
  std::map<std::string, std::string> files;  // content by path
  std::vector<std::string> folders;

  // Writes it into an empty folder.
  void WriteTo(const std::string& folder) const;
};

// The disk while it goes through the steps of a record.
class Disk {
 public:
  Disk();

  void Take(const DiskStep& step);

  DiskImage Cut(Reached reached, std::mt19937* random) const;

 private:
  struct Names {
    std::map<std::string, uint32_t> entries;
    std::vector<DiskStep> pending;
  };
  struct Content {
    std::string bytes;
    std::vector<DiskStep> pending;
  };

  static void ApplyName(const DiskStep& step, std::map<std::string, uint32_t>* entries);
  static void ApplyBytes(const DiskStep& step, std::string* bytes);
  std::map<std::string, uint32_t> EntriesOf(const Names& names, Reached reached,
                                            std::mt19937* random) const;
  std::string BytesOf(const Content& content, Reached reached, std::mt19937* random) const;
  void AddFolder(uint32_t folder, const std::string& path, Reached reached, std::mt19937* random,
                 DiskImage* image) const;

  std::map<uint32_t, Names> folders_;
  std::map<uint32_t, Content> files_;
};

// Records what the parts of the server do below a folder, which is empty at first. One thread at a
// time changes files. The linker redirects the calls of the library and of the platform to
// recorded_calls.cpp; there flushes are only recorded, because no power is cut.
class Recording {
 public:
  explicit Recording(const std::string& folder);
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  const std::vector<DiskStep>& steps() const;
};

}  // namespace cellhost::test

#endif
