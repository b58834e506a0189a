// The DLL's image: its imports and its properties.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "dll/loaded_library.h"
#include "kivsdu_version.h"
#include "support/import_patch.h"

namespace {

using kiv::test::Import;
using kiv::test::ImportsOf;

constexpr char kLibrary[] = "kivsdu.dll";
constexpr char kUtilityLibrary[] = "kivutlu.dll";

const bool kIsUniversal = std::string(KIVSDU_RUNTIME) == "ucrt";

// The DLLs of the C runtime. The universal one is reached through names for groups of its functions.
const std::set<std::string> kRuntimeLibraries =
    kIsUniversal ? std::set<std::string>{"api-ms-win-crt-conio-l1-1-0.dll",
                                         "api-ms-win-crt-convert-l1-1-0.dll",
                                         "api-ms-win-crt-environment-l1-1-0.dll",
                                         "api-ms-win-crt-filesystem-l1-1-0.dll",
                                         "api-ms-win-crt-heap-l1-1-0.dll",
                                         "api-ms-win-crt-math-l1-1-0.dll",
                                         "api-ms-win-crt-private-l1-1-0.dll",
                                         "api-ms-win-crt-runtime-l1-1-0.dll",
                                         "api-ms-win-crt-stdio-l1-1-0.dll",
                                         "api-ms-win-crt-string-l1-1-0.dll",
                                         "api-ms-win-crt-time-l1-1-0.dll"}
                 : std::set<std::string>{"msvcrt.dll"};

std::vector<std::string> FunctionsFrom(const std::set<std::string>& dlls) {
  std::vector<std::string> functions;
  for (const Import& import : ImportsOf(kLibrary)) {
    if (dlls.count(import.dll) != 0) functions.push_back(import.function);
  }
  std::sort(functions.begin(), functions.end());
  return functions;
}

bool Has(const std::vector<std::string>& functions, const std::string& name) {
  return std::binary_search(functions.begin(), functions.end(), name);
}

// Loads the library by hand: no test calls it, so the linker would leave it out.
class LoadedForAll : public testing::Environment {
 public:
  void SetUp() override { ASSERT_NE(library_.handle(), nullptr); }

 private:
  kiv::test::LoadedLibrary library_{kLibrary};
};
const testing::Environment* const loaded = testing::AddGlobalTestEnvironment(new LoadedForAll);

TEST(Imports, ComeFromTheSystemTheRuntimeAndTheUtilityLibraryOnly) {
  std::set<std::string> libraries;
  for (const Import& import : ImportsOf(kLibrary)) libraries.insert(import.dll);
  std::set<std::string> expected = {"advapi32.dll", "kernel32.dll", "kivutlu.dll"};
  expected.insert(kRuntimeLibraries.begin(), kRuntimeLibraries.end());
  EXPECT_EQ(libraries, expected);
}

TEST(Imports, OfTheUtilityLibraryComeFromTheSystemAndTheRuntimeOnly) {
  for (const Import& import : ImportsOf(kUtilityLibrary)) {
    EXPECT_TRUE(import.dll == "kernel32.dll" || kRuntimeLibraries.count(import.dll) != 0)
        << import.dll;
  }
}

TEST(Imports, FromTheUtilityLibraryAreItsTwoFunctions) {
  EXPECT_EQ(FunctionsFrom({kUtilityLibrary}),
            (std::vector<std::string>{"adInitMod", "adTermModLib"}));
}

TEST(Imports, TakeFormattingAndAllocationFromTheSharedRuntime) {
  const std::vector<std::string> functions = FunctionsFrom(kRuntimeLibraries);
  for (const char* name : {"free", "malloc", "realloc", "_assert", "_errno"}) {
    EXPECT_TRUE(Has(functions, name)) << name;
  }
  EXPECT_TRUE(Has(functions, kIsUniversal ? "__stdio_common_vsprintf" : "sprintf"));
}

TEST(Imports, GuardAgainstInvalidParametersOnlyWhereTheRuntimeEndsTheProcess) {
  EXPECT_EQ(Has(FunctionsFrom(kRuntimeLibraries), "_set_thread_local_invalid_parameter_handler"),
            kIsUniversal);
}

// A thread library would install a process-wide exception handler to name its threads.
TEST(Imports, IncludeNoThreadLibrary) {
  for (const std::string& function : FunctionsFrom({"kernel32.dll"})) {
    EXPECT_EQ(function.find("AddVectored"), std::string::npos) << function;
  }
}

const IMAGE_NT_HEADERS64* HeadersOf(const char* module) {
  const auto* base = reinterpret_cast<const unsigned char*>(GetModuleHandleA(module));
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  return reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
}

class Image : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Libraries, Image, testing::Values(kLibrary, kUtilityLibrary));

TEST_P(Image, IsRelocatableAndDoesNotExecuteData) {
  const WORD characteristics = HeadersOf(GetParam())->OptionalHeader.DllCharacteristics;
  EXPECT_TRUE(characteristics & IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE);
  EXPECT_TRUE(characteristics & IMAGE_DLLCHARACTERISTICS_NX_COMPAT);
  EXPECT_TRUE(characteristics & IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA);
}

TEST_P(Image, ChecksIndirectCallsIfTheToolchainCan) {
  const WORD characteristics = HeadersOf(GetParam())->OptionalHeader.DllCharacteristics;
  EXPECT_EQ((characteristics & IMAGE_DLLCHARACTERISTICS_GUARD_CF) != 0, KIV_GUARDS_CALLS != 0);
}

// The place in the resource of a text in UTF-16, or null.
const void* FindText(const void* resource, size_t sizeBytes, const std::string& text) {
  const std::u16string wide(text.begin(), text.end());
  const auto* first = static_cast<const char16_t*>(resource);
  const auto* last = first + sizeBytes / sizeof *first;
  const auto* found = std::search(first, last, wide.begin(), wide.end());
  return found == last ? nullptr : found;
}

TEST_P(Image, HasAVersionResourceThatNamesTheRuntime) {
  HMODULE module = GetModuleHandleA(GetParam());
  HRSRC resource = FindResourceA(module, MAKEINTRESOURCEA(VS_VERSION_INFO), RT_VERSION);
  ASSERT_NE(resource, nullptr);
  const DWORD sizeBytes = SizeofResource(module, resource);
  const void* bytes = LockResource(LoadResource(module, resource));
  EXPECT_NE(FindText(bytes, sizeBytes, std::string("C runtime: ") + KIVSDU_RUNTIME), nullptr);
  EXPECT_NE(FindText(bytes, sizeBytes, KIVSDU_VERSION_TEXT), nullptr);
}

}  // namespace
