// The DLL's contract with the loader: its exports compared with the list and the headers, its
// imports, the exports that share a body, and the image's properties.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "dll/export_names.h"
#include "kivsdu/kivsdu.h"
#include "support/import_patch.h"

namespace {

struct SharedEntry {
  std::string name;
  std::string body;
};

#include "contract_lists.h"

using kiv::test::ExportsOf;
using kiv::test::Import;
using kiv::test::ImportsOf;

constexpr char kLibrary[] = "kivsdu.dll";

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

void* AddressOf(const std::string& name) {
  return reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA(kLibrary), name.c_str()));
}

std::vector<std::string> FunctionsFrom(const std::string& dll) {
  std::vector<std::string> functions;
  for (const Import& import : ImportsOf(kLibrary)) {
    if (import.dll == dll) functions.push_back(import.function);
  }
  return Sorted(functions);
}

// Loads the library by hand: no test calls it, so the linker would leave it out.
class LoadedLibrary : public testing::Environment {
 public:
  void SetUp() override { ASSERT_NE(LoadLibraryA(kLibrary), nullptr) << GetLastError(); }
};
const testing::Environment* const loadedLibrary =
    testing::AddGlobalTestEnvironment(new LoadedLibrary);

TEST(Exports, AreExactlyThoseOfTheList) {
  ASSERT_GT(kListedExports.size(), 100u);
  EXPECT_EQ(Sorted(ExportsOf(kLibrary)), Sorted(kListedExports));
}

TEST(Exports, AreThePromisedNames) {
  EXPECT_EQ(kiv::test::kPromisedExports.size(), 350u);
  EXPECT_EQ(Sorted(ExportsOf(kLibrary)), Sorted(kiv::test::kPromisedExports));
}

TEST(Exports, AreExactlyThoseThatTheHeadersDeclare) {
  EXPECT_EQ(Sorted(ExportsOf(kLibrary)), Sorted(kDeclaredFunctions));
}

TEST(Exports, AreUndecorated) {
  for (const std::string& name : ExportsOf(kLibrary)) {
    EXPECT_TRUE(name.rfind("KivSd", 0) == 0 || name.rfind("Kiv", 0) == 0 ||
                name.rfind("ad", 0) == 0 || name.rfind("KIV_", 0) == 0)
        << name;
    EXPECT_EQ(name.find_first_of("@?"), std::string::npos) << name;
  }
}

TEST(Exports, HaveOneAddressPerBody) {
  std::map<std::string, std::string> bodyOf;
  for (const SharedEntry& entry : kSharedEntries) bodyOf[entry.name] = entry.body;
  std::map<std::string, void*> addressOfBody;
  std::set<void*> seen;
  for (const std::string& name : kListedExports) {
    void* address = AddressOf(name);
    ASSERT_NE(address, nullptr) << name;
    const auto shared = bodyOf.find(name);
    if (shared == bodyOf.end() || addressOfBody.count(shared->second) == 0) {
      EXPECT_TRUE(seen.insert(address).second) << name << " shares an address it should not";
    }
    if (shared == bodyOf.end()) continue;
    EXPECT_EQ(addressOfBody.emplace(shared->second, address).first->second, address) << name;
  }
}

TEST(Exports, ShareBodiesInSixGroups) {
  std::map<std::string, std::set<std::string>> groups;
  for (const SharedEntry& entry : kSharedEntries) groups[entry.body].insert(entry.name);
  ASSERT_EQ(groups.size(), 6u);
  EXPECT_EQ(groups["KivNotSupported"],
            (std::set<std::string>{"KivSdConsoleRead", "KivSdMemFixedAlloc", "KivSdMemFixedFree",
                                   "KivSdMemPoolFixedInit", "KivSdMemPoolFixedTerm",
                                   "KivSdThreadConcurrencyLevGet", "KivSdThreadConcurrencyLevSet",
                                   "KivSdUIResStringAllocLoad", "KivSdUIResStringLoad"}));
  EXPECT_EQ(groups["KivNothingToDo"],
            (std::set<std::string>{"KivSdFileLock", "KivSdFileLockProcInfo", "KivSdFileUnlock",
                                   "KivSdMemInit", "KivSdMemPoolInit", "KivSdMemPoolTerm",
                                   "KivSdMemTerm"}));
  EXPECT_EQ(groups["KivIgnore"],
            (std::set<std::string>{"KivSdBindThreadToNumaNode", "adMemInfo", "adSetMemTag"}));
  EXPECT_EQ(groups["KivAlwaysTrue"],
            (std::set<std::string>{"adCheckMemTag", "adCheckMemoryMarker"}));
  EXPECT_EQ(groups["KivAnswerYes"], (std::set<std::string>{"KivSdIsDirectIO", "KivSdIsNoWaitIO"}));
  EXPECT_EQ(groups["KivZero"], (std::set<std::string>{"adMmap", "adMremap", "adMunmap"}));
}

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
