// Checking and renaming files; see rename_file.h.
#include "storage/rename_file.h"

#include "host/complain.h"
#include "host/platform.h"
#include "host/thread_record.h"
#include "kivsdu/file.h"

namespace cellhost {

bool Exists(const std::string& path, bool* exists) {
  KivSdContext* ctx = ThisContext();
  uint8_t granted = 0;
  const uint32_t status = KivSdFileAccess(ctx, path.c_str(), KIV_FILE_EXISTS, &granted);
  *exists = granted != 0;
  return Succeeded(ctx, status, "look for a file");
}

bool PutInPlace(const char* path, const char* placePath) {
  const uint32_t error = Rename(path, placePath, true);
  if (error == 0) return true;
  return Complain("could not put '%s' in the place of '%s': OS error %u", path, placePath, error);
}

bool GiveName(const char* path, const char* namePath) {
  const uint32_t error = Rename(path, namePath, false);
  if (error == 0) return true;
  return Complain("could not name '%s' '%s': OS error %u", path, namePath, error);
}

bool KeepName(const std::string& path) {
  const uint32_t error = FlushName(path.c_str());
  if (error == 0) return true;
  return Complain("could not flush the folder of '%s': OS error %u", path.c_str(), error);
}

}  // namespace cellhost
