// The needs of a module whose file is written by the test: which modules of its folder are loaded, and
// that nothing in the file is trusted.
#include "os/lnx/module_needs.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using kiv::os::FolderNeeds;
using kiv::test::TemporaryFolder;

constexpr char kNeeded[] = "kiv_needed.so";
constexpr uint64_t kLoadAddress = 0x10000;
constexpr uint64_t kDynamicOffset = 8192;
constexpr uint64_t kTextOffset = 16384;

bool IsLoaded(const std::string& name) {
  void* module = dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (module == nullptr) return false;
  dlclose(module);
  return true;
}

// A module's file with one segment that is loaded and one with the list of needs. The loader itself
// would refuse it.
struct Image {
  explicit Image(const std::vector<std::string>& needs) {
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(ElfW(Phdr));
    ElfW(Phdr) load = {};
    load.p_type = PT_LOAD;
    load.p_vaddr = kLoadAddress;
    load.p_filesz = 2 * kTextOffset;
    segments.push_back(load);
    Add(DT_STRTAB, kLoadAddress + kTextOffset);
    for (const std::string& name : needs) {
      Add(DT_NEEDED, texts.size());
      texts += name + '\0';
    }
    Add(DT_NULL, 0);
    dynamic.p_type = PT_DYNAMIC;
    dynamic.p_offset = kDynamicOffset;
    dynamic.p_filesz = entries.size() * sizeof(ElfW(Dyn));
  }

  void Add(int64_t tag, uint64_t value) {
    ElfW(Dyn) entry = {};
    entry.d_tag = tag;
    entry.d_un.d_val = value;
    entries.push_back(entry);
  }

  void Write(const std::string& path) const {
    ElfW(Ehdr) head = header;
    if (head.e_phnum == 0) head.e_phnum = static_cast<uint16_t>(segments.size() + 1);
    std::ofstream file(path, std::ios::binary);
    const auto put = [&](const void* bytes, size_t count) {
      file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
    };
    put(&head, sizeof head);
    put(segments.data(), segments.size() * sizeof segments[0]);
    put(&dynamic, sizeof dynamic);
    file.seekp(kDynamicOffset);
    put(entries.data(), entries.size() * sizeof entries[0]);
    file.seekp(kTextOffset);
    put(texts.data(), texts.size());
  }

  ElfW(Ehdr) header = {};
  std::vector<ElfW(Phdr)> segments;
  ElfW(Phdr) dynamic = {};
  std::vector<ElfW(Dyn)> entries;
  std::string texts = std::string(1, '\0');
};

// A folder with a real module that nothing has loaded yet.
class ModuleNeeds : public testing::Test {
 protected:
  void SetUp() override {
    fs::copy_file(fs::path(KIV_MODULES_FOLDER) / kNeeded, folder_.Path(kNeeded));
    ASSERT_FALSE(IsLoaded(kNeeded));
  }
  void TearDown() override { EXPECT_FALSE(IsLoaded(kNeeded)); }

  std::string Write(const Image& image, const std::string& name = "module.so") const {
    image.Write(folder_.Path(name));
    return folder_.Path(name);
  }

  // Whether the real module is loaded because of this one.
  bool LoadsIt(const Image& image) const {
    const FolderNeeds needs(Write(image).c_str());
    return IsLoaded(kNeeded);
  }

  const TemporaryFolder folder_;
};

TEST_F(ModuleNeeds, AreLoadedFromTheModulesFolderUntilTheyAreDropped) {
  EXPECT_TRUE(LoadsIt(Image({kNeeded})));
  EXPECT_FALSE(IsLoaded(kNeeded));
}

TEST_F(ModuleNeeds, AreNotReadForAModuleWithoutAFolder) {
  Write(Image({kNeeded}));
  const fs::path before = fs::current_path();
  fs::current_path(folder_.Path());
  {
    const FolderNeeds needs("module.so");
    EXPECT_FALSE(IsLoaded(kNeeded));
  }
  fs::current_path(before);
}

TEST_F(ModuleNeeds, ThatHaveAFolderOrAreNotThereAreLeftToTheLoader) {
  EXPECT_FALSE(LoadsIt(Image({folder_.Path(kNeeded)})));
  EXPECT_FALSE(LoadsIt(Image({"kiv_missing.so"})));
}

TEST_F(ModuleNeeds, WhosePathWouldBeTooLongAreLeftToTheLoader) {
  const std::string module = "m.so";
  Write(Image({kNeeded}), module);
  const std::string folder = folder_.Path() + "/";
  std::string same;  // leads to the folder itself
  while (folder.size() + same.size() + module.size() + 3 < PATH_MAX) same += "./";
  const FolderNeeds needs((folder + same + module).c_str());
  EXPECT_FALSE(IsLoaded(kNeeded));
  const FolderNeeds near((folder + same.substr(40) + module).c_str());
  EXPECT_TRUE(IsLoaded(kNeeded));
}

TEST_F(ModuleNeeds, ThatAreNoModulesDoNotKeepTheOthersFromLoading) {
  folder_.Write("kiv_text.so", "no module");
  EXPECT_TRUE(LoadsIt(Image({"kiv_text.so", kNeeded})));
}

TEST_F(ModuleNeeds, ThatAreLoadedAlreadyStayLoaded) {
  void* module = dlopen(folder_.Path(kNeeded).c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(module, nullptr);
  EXPECT_TRUE(LoadsIt(Image({kNeeded, kNeeded})));
  EXPECT_TRUE(IsLoaded(kNeeded));
  dlclose(module);
}

// There is room for 256 modules, also for those that the needed module needs itself. The loader searches
// for the others.
TEST_F(ModuleNeeds, AreLoadedAsFarAsThereIsRoom) {
  std::vector<std::string> names(240, "libc.so.6");
  names.emplace_back(kNeeded);
  EXPECT_TRUE(LoadsIt(Image(names)));
  names.insert(names.begin(), 15, "libc.so.6");
  EXPECT_FALSE(LoadsIt(Image(names))) << "room for itself, but not for what it needs";
  names.insert(names.begin(), "libc.so.6");
  EXPECT_FALSE(LoadsIt(Image(names)));
}

// A chain: module.so needs 1.so, and each file needs the next. The last file needs the real module.
TEST_F(ModuleNeeds, OfNeedsAreFollowedToADepthOf32) {
  for (const int deepest : {31, 32}) {
    for (int depth = 1; depth < deepest; ++depth) {
      Write(Image({std::to_string(depth + 1) + ".so"}), std::to_string(depth) + ".so");
    }
    Write(Image({kNeeded}), std::to_string(deepest) + ".so");
    EXPECT_EQ(LoadsIt(Image({"1.so"})), deepest == 31) << deepest;
  }
}

TEST_F(ModuleNeeds, ThatNeedEachOtherEnd) {
  Write(Image({"module.so", kNeeded}), "other.so");
  EXPECT_TRUE(LoadsIt(Image({"other.so"})));
}

TEST_F(ModuleNeeds, NeedNoEndOfTheirList) {
  Image image({kNeeded});
  image.entries.pop_back();
  image.dynamic.p_filesz -= sizeof(ElfW(Dyn));
  EXPECT_TRUE(LoadsIt(image));
}

TEST_F(ModuleNeeds, AreFoundBySixtyFourSegments) {
  Image image({kNeeded});
  ElfW(Phdr) other = image.segments.front();
  other.p_vaddr = 0x9000000;
  image.segments.insert(image.segments.begin(), 63, other);
  EXPECT_TRUE(LoadsIt(image));
  image.segments.insert(image.segments.begin(), other);
  EXPECT_FALSE(LoadsIt(image));
}

struct Damage {
  const char* name;
  std::function<void(Image*)> apply;
};

const Damage kDamages[] = {
    {"mark", [](Image* image) { image->header.e_ident[1] = 'X'; }},
    {"size of a segment's record", [](Image* image) { --image->header.e_phentsize; }},
    {"place of the segments", [](Image* image) { image->header.e_phoff = UINT64_MAX / 2; }},
    {"number of segments", [](Image* image) { image->header.e_phnum = UINT16_MAX; }},
    {"no list", [](Image* image) { image->dynamic.p_type = PT_NOTE; }},
    {"list behind the file", [](Image* image) { image->dynamic.p_offset = 1 << 20; }},
    {"list beyond all files", [](Image* image) { image->dynamic.p_offset = UINT64_MAX; }},
    {"no texts", [](Image* image) { image->entries.front().d_tag = DT_SYMTAB; }},
    {"texts before the segment",
     [](Image* image) { image->entries.front().d_un.d_ptr = kLoadAddress - 1; }},
    {"texts behind the segment",
     [](Image* image) { image->entries.front().d_un.d_ptr = kLoadAddress + 2 * kTextOffset; }},
    {"name behind the file", [](Image* image) { image->entries[1].d_un.d_val = 1 << 20; }},
    {"name beyond all files",
     [](Image* image) { image->entries[1].d_un.d_val = std::numeric_limits<int64_t>::max(); }},
};

TEST_F(ModuleNeeds, OfADamagedModuleAreIgnored) {
  for (const Damage& damage : kDamages) {
    Image image({kNeeded});
    damage.apply(&image);
    EXPECT_FALSE(LoadsIt(image)) << damage.name;
  }
}

TEST_F(ModuleNeeds, OfAModuleThatCannotBeReadAreIgnored) {
  const FolderNeeds needs(folder_.Path("missing.so").c_str());
  EXPECT_FALSE(IsLoaded(kNeeded));
}

}  // namespace
