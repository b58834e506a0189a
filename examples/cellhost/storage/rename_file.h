// Checks whether files and folders exist, renames them, and waits until their names are safe.
#ifndef CELLHOST_STORAGE_RENAME_FILE_H
#define CELLHOST_STORAGE_RENAME_FILE_H

#include <string>

namespace cellhost {

// Finds out whether a file or folder exists. Returns false on failure, after reporting it.
bool Exists(const std::string& path, bool* exists);

// Renames a file, and replaces an existing file of the new name. At every moment the name refers to
// the complete old file or the complete new one. Returns after the change has reached the device,
// if the file system supports waiting for it. Returns false on failure, after reporting it.
bool PutInPlace(const char* path, const char* placePath);

// Renames a folder in which no file is open; the new name must not exist. Returns and fails like
// PutInPlace.
bool GiveName(const char* path, const char* namePath);

// Returns after the name of a file or a folder has reached the device, with all other names in its
// folder, if the file system supports waiting for it. Flushing a file does not do this for its name.
// Returns false on failure, after reporting it.
bool KeepName(const std::string& path);

}  // namespace cellhost

#endif
