// Libraries that a test loads by hand, from the folder of the program.
#ifndef KIV_TESTS_DLL_LOADED_LIBRARY_H
#define KIV_TESTS_DLL_LOADED_LIBRARY_H

#include <string>
#include <vector>

namespace kiv::test {

// File names of the two libraries.
extern const char* const kLibraryFile;
extern const char* const kUtilityFile;

// The path of a file in the program's folder.
std::string PathBesideProgram(const std::string& file);

// Whether the process has a library of this file name loaded.
bool IsLoaded(const std::string& file);

// The names of everything that kivsdu exports, read from its image.
std::vector<std::string> LibraryExports();

class LoadedLibrary {
 public:
  // Fails the test if the file, which is a path from the program's folder, cannot be loaded.
  explicit LoadedLibrary(const std::string& file);
  ~LoadedLibrary() { Unload(); }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  // The loader's handle; null if the library is not loaded.
  void* handle() const { return handle_; }

  // Ends this load before the destructor does.
  void Unload();

  // A function or variable of the library by its name; null if there is none.
  template <typename Pointer>
  Pointer Find(const char* name) const {
    return reinterpret_cast<Pointer>(Address(name));
  }

 private:
  void* Address(const char* name) const;

  void* handle_;
};

}  // namespace kiv::test

#endif
