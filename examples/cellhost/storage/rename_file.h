// Where files and folders are: whether there is one, and changing names. The library has no
// operation for the latter, so this asks the system itself.
#ifndef CELLHOST_STORAGE_RENAME_FILE_H
#define CELLHOST_STORAGE_RENAME_FILE_H

#include <string>

namespace cellhost {

// Whether there is a file or a folder. False on failure, which has then been told.
bool Exists(const std::string& path, bool* exists);

// Gives a file the name of another, which goes if it is there: at every moment the name is the
// whole of the one or of the other. Returns when the device has the change, where the file system
// can wait for it. False on failure, which has then been told.
bool PutInPlace(const char* path, const char* placePath);

// Gives a folder, in which no file is open, a name that nothing has yet. Returns and fails like
// PutInPlace.
bool GiveName(const char* path, const char* namePath);

}  // namespace cellhost

#endif
