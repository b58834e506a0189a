// The mark of a data folder, `cells.mrk`. The open file keeps other servers out of the folder. Its
// content states what the folder must contain:
//
//   0      8          16         24
//   | kind | last PUT | checksum |
//
// An empty mark: the folder has never had cells. Otherwise cells.pag and cells.jnl must exist, and
// must together reach the PUT with this number. A backup's mark has the number of the last PUT
// before the copy. It is written before anything is copied, and therefore exposes an incomplete
// copy.
//
// One thread at a time, with a record.
#ifndef CELLHOST_STORAGE_FOLDER_MARK_H
#define CELLHOST_STORAGE_FOLDER_MARK_H

#include <stdint.h>

#include <string>

#include "kivsdu/file.h"

namespace cellhost {

class FolderMark {
 public:
  FolderMark() = default;
  FolderMark(const FolderMark&) = delete;
  FolderMark& operator=(const FolderMark&) = delete;
  ~FolderMark();

  // Opens or makes the file, and keeps it open. Meanwhile other processes can open it for reading
  // only; in failover mode also for writing. Returns false on failure, after reporting it.
  bool Open(const std::string& path);

  bool IsEmpty() const { return isEmpty_; }

  // Whether the mark is valid. A mark that is neither empty nor valid is torn or damaged.
  bool IsWhole() const { return isWhole_; }
  uint64_t lastPut() const { return lastPut_; }  // 0 unless the mark is valid

  // Writes and flushes the mark. Returns false on failure, after reporting it.
  bool Set(uint64_t lastPut);

 private:
  bool Fails(uint32_t status, const char* what) const;

  std::string path_;
  uint32_t file_ = KIV_FILE_NONE;
  bool isEmpty_ = true;
  bool isWhole_ = false;
  uint64_t lastPut_ = 0;
};

}  // namespace cellhost

#endif
