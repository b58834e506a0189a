// Looking for files and changing their names; see rename_file.h.
#include "storage/rename_file.h"

#include <windows.h>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/file.h"

namespace cellhost {

bool Exists(const std::string& path, bool* exists) {
  constexpr uint32_t kToBeThere = 0;
  KivSdContext* ctx = ThisContext();
  uint8_t granted = 0;
  const uint32_t status = KivSdFileAccess(ctx, path.c_str(), kToBeThere, &granted);
  *exists = granted != 0;
  return Succeeded(ctx, status, "look for a file");
}

bool PutInPlace(const char* path, const char* placePath) {
  constexpr DWORD kHow = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (MoveFileExA(path, placePath, kHow) != 0) return true;
  return Complain("could not put '%s' in the place of '%s': OS error %lu", path, placePath,
                  GetLastError());
}

// A folder takes no other's place: the system refuses the flag for it.
bool GiveName(const char* path, const char* namePath) {
  if (MoveFileExA(path, namePath, MOVEFILE_WRITE_THROUGH) != 0) return true;
  return Complain("could not name '%s' '%s': OS error %lu", path, namePath, GetLastError());
}

}  // namespace cellhost
