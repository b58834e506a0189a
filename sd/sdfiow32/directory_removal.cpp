// Removes a directory and everything in it.
//
// One path buffer serves the whole tree: a name is appended on the way down and cut off on the way
// up. Each level therefore needs stack only for its search.
#include <cstring>

#include "kivsdu/filesearch.h"
#include "kivsdu/path.h"
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/file_names.h"
#include "os/file_search.h"
#include "os/folders.h"
#include "os/path.h"
#include "report.h"
#include "text.h"

using namespace kiv;

namespace {

struct Outcome {
  uint32_t status;
  uint32_t osError;
};

// The only status of a walk that has removed every entry.
constexpr uint32_t kWalkedAll = KIV_ST_FIND_END;

class Path {
 public:
  // Returns false and changes nothing if the path would become too long.
  bool Append(const char* text) {
    const size_t added = std::strlen(text);
    if (added >= sizeof text_ - length_) return false;
    std::memcpy(text_ + length_, text, added + 1);
    length_ += added;
    return true;
  }

  // Appends a separator and a name. Returns false and changes nothing if they do not fit.
  bool Enter(const char* name) {
    const size_t before = length_;
    const char separator[] = {os::kPathSeparator, '\0'};
    if (Append(separator) && Append(name)) return true;
    CutTo(before);
    return false;
  }

  void CutTo(size_t length) {
    length_ = length;
    text_[length] = '\0';
  }

  size_t length() const { return length_; }
  const char* text() const { return text_; }

 private:
  size_t length_ = 0;
  char text_[KIV_SYSTEM_PATH_MAX] = {};
};

Outcome RemoveTree(Path* path);

Outcome RemoveFile(const char* path) {
  os::Result result = os::MakeWritable(path);
  if (result.ok) result = os::RemoveFileByName(path);
  return result.ok ? Outcome{KIV_ST_OK, 0} : Outcome{KIV_ST_DIR_REMOVE, result.error};
}

Outcome RemoveEntry(Path* path, const KivSdFindData& entry) {
  if (IsFolderItselfOrAbove(entry.name)) return {KIV_ST_OK, 0};
  const size_t folder = path->length();
  if (!path->Enter(entry.name)) return {KIV_ST_DIR_REMOVE, os::kErrorPathTooLong};
  const bool isFolder = (entry.attributes & KIV_ATTRIBUTE_DIRECTORY) != 0;
  // Removing a tree takes long, and the lease may be lost meanwhile.
  if (isFolder) RunLeaseGuard();
  const Outcome removed = isFolder ? RemoveTree(path) : RemoveFile(path->text());
  path->CutTo(folder);
  return removed;
}

Outcome RemoveEntries(Path* path) {
  const size_t folder = path->length();
  if (!path->Enter(os::kEveryFile)) return {KIV_ST_FIND_START, os::kErrorPathTooLong};
  KivSdFindData entry;
  const os::ValueResult<void*> search = os::StartFileSearch(path->text(), &entry);
  path->CutTo(folder);
  if (!search.ok) return {KIV_ST_FIND_START, search.error};

  Outcome walked = {KIV_ST_OK, 0};
  while (walked.status == KIV_ST_OK) {
    walked = RemoveEntry(path, entry);
    if (walked.status != KIV_ST_OK) break;
    const os::Result next = os::ContinueFileSearch(search.value, &entry);
    if (next.ok) continue;
    const bool walkedAll = next.error == os::kErrorNoMoreFiles;
    walked = {walkedAll ? kWalkedAll : KIV_ST_FIND_NEXT, next.error};
  }
  static_cast<void>(os::EndFileSearch(search.value));
  return walked;
}

// Compatibility: succeeds if the folder was emptied but cannot be removed. It may be the working
// directory of a process.
Outcome RemoveTree(Path* path) {
  const Outcome walked = RemoveEntries(path);
  const os::Result removed = os::RemoveFolder(path->text());
  if (walked.status == kWalkedAll) return {KIV_ST_OK, 0};
  return {KIV_ST_DIR_REMOVE, removed.ok ? walked.osError : removed.error};
}

}  // namespace

uint32_t KivSdDirRemove(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  if (path == nullptr || path[0] == '\0') return Report(ctx, KIV_ST_ARGUMENT);
  Path whole;
  if (!whole.Append(path)) return Report(ctx, KIV_ST_DIR_REMOVE, os::kErrorPathTooLong);
  const Outcome removed = RemoveTree(&whole);
  return Report(ctx, removed.status, removed.osError);
}
