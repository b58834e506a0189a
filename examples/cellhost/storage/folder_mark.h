// The mark of a folder of cells, `cells.mrk`. It keeps other servers out of the folder, and says
// what must be in the folder once there have been cells:
//
//   0      8          16         24
//   | kind | last PUT | checksum |
//
// An empty mark says nothing: no cells have been in the folder yet. Otherwise cells.pag and
// cells.jnl must be there, and together they must reach the PUT of this number. A backup's mark has
// the number that the copy was made at, and is written before anything is copied, so that a copy
// that is not whole is never taken for one.
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

  // Opens or makes the file. Until the object's end others can read it and not open it for writing,
  // except in failover mode, in which the library lets them. False on failure, which has then been
  // told.
  bool Open(const std::string& path);

  bool IsEmpty() const { return isEmpty_; }

  // Whether it says how far the PUTs must reach. If it does not and is not empty, it is torn or
  // damaged.
  bool IsWhole() const { return isWhole_; }
  uint64_t lastPut() const { return lastPut_; }  // 0 unless it is whole

  // Writes the mark, which is on the device afterwards. False on failure, which has then been told.
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
