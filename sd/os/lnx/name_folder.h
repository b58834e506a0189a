// The private folder of a user, in which a file or a socket stands for each name that processes
// share. It lies in memory (/dev/shm) where the system has that, else in the user's runtime folder
// or in /tmp.
#ifndef KIV_OS_LNX_NAME_FOLDER_H
#define KIV_OS_LNX_NAME_FOLDER_H

#include <cstddef>
#include <cstdint>

#include "os/os.h"

namespace kiv::os {

// Longer names are refused with ENAMETOOLONG, as on Windows. Characters are those of UTF-8.
constexpr size_t kMaxNameCharacters = 259;
constexpr size_t kMaxNameBytes = kMaxNameCharacters * 4;

constexpr size_t kNameFileBytes = 256;  // with the terminator

struct NameFile {
  char text[kNameFileBytes];
};

// What a file of the folder is for. The first character of its name.
constexpr char kObjectFile = 'o';
constexpr char kPipeFile = 'p';

// Opens the folder, and makes it if it is missing. The caller closes the descriptor. EACCES if the
// folder belongs to another user or other users may enter it.
ValueResult<int> OpenNameFolder();

// The path of the folder, zero-terminated. ENAMETOOLONG if it does not fit.
Result NameFolderPath(char* path, size_t sizeBytes);

// The file of a name. Any byte but zero may be part of a name.
Result FileOfName(char purpose, const char* name, NameFile* file);

}  // namespace kiv::os

#endif
