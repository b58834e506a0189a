// Changing a file's name; see file_place.h.
#include "storage/rename_file.h"

#include <windows.h>

#include "host/complain.h"

namespace cellhost {

bool PutInPlace(const char* path, const char* placePath) {
  constexpr DWORD kHow = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  if (MoveFileExA(path, placePath, kHow) != 0) return true;
  return Complain("could not put '%s' in the place of '%s': OS error %lu", path, placePath,
                  GetLastError());
}

}  // namespace cellhost
