#include "dll/loaded_library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "dll/lnx/elf_image.h"

namespace kiv::test {

const char* const kLibraryFile = KIV_LIBRARY_FILE;
const char* const kUtilityFile = KIV_UTILITY_FILE;

std::string PathBesideProgram(const std::string& file) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / file).string();
}

bool IsLoaded(const std::string& file) {
  void* loaded = dlopen(PathBesideProgram(file).c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (loaded != nullptr) dlclose(loaded);
  return loaded != nullptr;
}

std::vector<std::string> LibraryExports() {
  const ElfImage image(PathBesideProgram(kLibraryFile));
  std::vector<std::string> names;
  for (const DynamicSymbol& symbol : image.symbols()) {
    if (symbol.defined) names.push_back(symbol.name);
  }
  return names;
}

LoadedLibrary::LoadedLibrary(const std::string& file)
    : handle_(dlopen(PathBesideProgram(file).c_str(), RTLD_NOW)) {
  EXPECT_NE(handle_, nullptr) << dlerror();
}

void LoadedLibrary::Unload() {
  if (handle_ != nullptr) EXPECT_EQ(dlclose(handle_), 0) << dlerror();
  handle_ = nullptr;
}

void* LoadedLibrary::Address(const char* name) const { return dlsym(handle_, name); }

}  // namespace kiv::test
