// The DLL's image: its imports and its properties.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "dll/loaded_library.h"
#include "support/import_patch.h"

namespace {

using kiv::test::Import;
using kiv::test::ImportsOf;

constexpr char kLibrary[] = "kivsdu.dll";

std::vector<std::string> FunctionsFrom(const std::string& dll) {
  std::vector<std::string> functions;
  for (const Import& import : ImportsOf(kLibrary)) {
    if (import.dll == dll) functions.push_back(import.function);
  }
  std::sort(functions.begin(), functions.end());
  return functions;
}

// Loads the library by hand: no test calls it, so the linker would leave it out.
class LoadedForAll : public testing::Environment {
 public:
  void SetUp() override { ASSERT_NE(library_.handle(), nullptr); }

 private:
  kiv::test::LoadedLibrary library_{kLibrary};
};
const testing::Environment* const loaded = testing::AddGlobalTestEnvironment(new LoadedForAll);

TEST(Imports, ComeFromFourLibrariesOnly) {
  std::set<std::string> libraries;
  for (const Import& import : ImportsOf(kLibrary)) libraries.insert(import.dll);
  EXPECT_EQ(libraries,
            (std::set<std::string>{"advapi32.dll", "kernel32.dll", "kivutlu.dll", "msvcrt.dll"}));
}

TEST(Imports, FromTheUtilityLibraryAreItsTwoFunctions) {
  EXPECT_EQ(FunctionsFrom("kivutlu.dll"), (std::vector<std::string>{"adInitMod", "adTermModLib"}));
}

TEST(Imports, TakeFormattingAndAllocationFromTheSharedRuntime) {
  const std::vector<std::string> functions = FunctionsFrom("msvcrt.dll");
  for (const char* name : {"free", "malloc", "realloc", "sprintf", "_assert", "_errno"}) {
    EXPECT_TRUE(std::binary_search(functions.begin(), functions.end(), name)) << name;
  }
}

// A thread library would install a process-wide exception handler to name its threads.
TEST(Imports, IncludeNoThreadLibrary) {
  for (const std::string& function : FunctionsFrom("kernel32.dll")) {
    EXPECT_EQ(function.find("AddVectored"), std::string::npos) << function;
  }
}

const IMAGE_NT_HEADERS64* HeadersOf(const char* module) {
  const auto* base = reinterpret_cast<const unsigned char*>(GetModuleHandleA(module));
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  return reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
}

TEST(Image, IsRelocatableAndDoesNotExecuteData) {
  const WORD characteristics = HeadersOf(kLibrary)->OptionalHeader.DllCharacteristics;
  EXPECT_TRUE(characteristics & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
  EXPECT_TRUE(characteristics & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
  EXPECT_TRUE(characteristics & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA);
}

TEST(Image, HasAVersionResource) {
  HMODULE module = GetModuleHandleA(kLibrary);
  HRSRC resource = FindResourceA(module, MAKEINTRESOURCEA(VS_VERSION_INFO), RT_VERSION);
  ASSERT_NE(resource, nullptr);
  EXPECT_GT(SizeofResource(module, resource), sizeof(VS_FIXEDFILEINFO));
}

}  // namespace
