// The library's contract with its hosts: its exports compared with the list and the headers, and the
// exports that share a body. The tests of the image of each platform are in its folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "dll/export_names.h"
#include "dll/loaded_library.h"

namespace {

struct SharedEntry {
  std::string name;
  std::string body;
};

#include "contract_lists.h"

using kiv::test::kLibraryFile;
using kiv::test::LibraryExports;
using kiv::test::LoadedLibrary;

std::vector<std::string> Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return names;
}

TEST(Exports, AreExactlyThoseOfTheList) {
  ASSERT_GT(kListedExports.size(), 100u);
  EXPECT_EQ(Sorted(LibraryExports()), Sorted(kListedExports));
}

TEST(Exports, AreThePromisedNames) {
  EXPECT_EQ(kiv::test::kPromisedExports.size(), 350u);
  EXPECT_EQ(Sorted(LibraryExports()), Sorted(kiv::test::kPromisedExports));
}

TEST(Exports, AreExactlyThoseThatTheHeadersDeclare) {
  EXPECT_EQ(Sorted(LibraryExports()), Sorted(kDeclaredFunctions));
}

TEST(Exports, AreUndecorated) {
  for (const std::string& name : LibraryExports()) {
    EXPECT_TRUE(name.rfind("KivSd", 0) == 0 || name.rfind("Kiv", 0) == 0 ||
                name.rfind("ad", 0) == 0 || name.rfind("KIV_", 0) == 0)
        << name;
    EXPECT_EQ(name.find_first_of("@?"), std::string::npos) << name;
  }
}

TEST(Exports, HaveOneAddressPerBody) {
  const LoadedLibrary library(kLibraryFile);
  std::map<std::string, std::string> bodyOf;
  for (const SharedEntry& entry : kSharedEntries) bodyOf[entry.name] = entry.body;
  std::map<std::string, void*> addressOfBody;
  std::set<void*> seen;
  for (const std::string& name : kListedExports) {
    void* address = library.Find<void*>(name.c_str());
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

}  // namespace
