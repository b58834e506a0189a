// Puts a file in the place of another. The library has no operation for it, so that the system is
// asked itself.
#ifndef CELLHOST_STORAGE_RENAME_FILE_H
#define CELLHOST_STORAGE_RENAME_FILE_H

namespace cellhost {

// Gives a file the name of another, which goes if it is there: at every moment the name is the
// whole of the one or of the other. Returns when the device has the change, where the file system
// can wait for it. False on failure, which has then been told.
bool PutInPlace(const char* path, const char* placePath);

}  // namespace cellhost

#endif
