#include "dll/loaded_library.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "support/import_patch.h"

namespace kiv::test {

const char* const kLibraryFile = "kivsdu.dll";
const char* const kUtilityFile = "kivutlu.dll";

std::string PathBesideProgram(const std::string& file) {
  char path[MAX_PATH];
  GetModuleFileNameA(nullptr, path, sizeof path);
  const std::string program = path;
  return program.substr(0, program.find_last_of('\\') + 1) + file;
}

bool IsLoaded(const std::string& file) { return GetModuleHandleA(file.c_str()) != nullptr; }

std::vector<std::string> LibraryExports() {
  const LoadedLibrary library(kLibraryFile);
  return ExportsOf(kLibraryFile);
}

LoadedLibrary::LoadedLibrary(const std::string& file)
    : handle_(LoadLibraryA(PathBesideProgram(file).c_str())) {
  EXPECT_NE(handle_, nullptr) << file << ": " << GetLastError();
}

void LoadedLibrary::Unload() {
  if (handle_ != nullptr) EXPECT_TRUE(FreeLibrary(static_cast<HMODULE>(handle_)));
  handle_ = nullptr;
}

void* LoadedLibrary::Address(const char* name) const {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace kiv::test
