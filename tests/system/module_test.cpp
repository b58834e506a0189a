// Modules: loading with dependencies, entries, names, and messages after real failures.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::Context;
using kiv::test::kOsEntryMissing;
using kiv::test::kOsModuleMissing;
using kiv::test::kOsNoModule;
using kiv::test::TemporaryFolder;

constexpr uint8_t kStandard = 0;
constexpr uint8_t kAltered = 1;

// Where the program is, and which modules the system has loaded.
#ifdef _WIN32
constexpr char kSeparator = '\\';
constexpr char kSuffix[] = ".dll";

std::string PathOfProgram() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, sizeof path);
  return path;
}

bool IsLoaded(const std::string& path) { return GetModuleHandleA(path.c_str()) != nullptr; }
#else
constexpr char kSeparator = '/';
constexpr char kSuffix[] = ".so";

std::string PathOfProgram() { return std::filesystem::read_symlink("/proc/self/exe"); }

bool IsLoaded(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}
#endif

// The path of a module that the build made. An absolute path, because the altered search is
// documented for absolute paths only.
std::string InModules(const std::string& name) {
  const std::string program = PathOfProgram();
  return program.substr(0, program.rfind(kSeparator) + 1) + KIV_MODULES_FOLDER + kSeparator + name +
         kSuffix;
}

const std::string kNeeded = InModules("kiv_needed");
const std::string kNeeding = InModules("kiv_needing");
const std::string kOuter = InModules("kiv_outer");
const std::string kMissing = InModules("missing");

std::string Upper(std::string text) {
  for (char& letter : text) {
    letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  }
  return text;
}

// A text file with a module's name.
class NoModule {
 public:
  NoModule() {
    std::string text;
    for (int i = 0; i < 100; ++i) text += "This is a text and no module.\n";
    folder_.Write(kName, text);
  }

  std::string path() const { return folder_.Path(kName); }

 private:
  static constexpr char kName[] = "text.dll";

  TemporaryFolder folder_;
};

using Answer = uint32_t (*)();

Answer AnswerOf(KivHandle module, const char* entry) {
  Context ctx;
  void* address = nullptr;
  CHECK_OK(ctx, KivSdModuleProcAddrGet(ctx, module, entry, &address));
  return reinterpret_cast<Answer>(address);
}

// ---- Loading ----

TEST(ModuleLoad, TheAlteredSearchFindsFilesBesideTheModule) {
  Context ctx;
  KivHandle module = nullptr;
  CHECK_OK(ctx, KivSdModuleLoad(ctx, kNeeding.c_str(), &module, kAltered));
  ASSERT_NE(module, nullptr);
  EXPECT_TRUE(IsLoaded(kNeeding));
  EXPECT_TRUE(IsLoaded(kNeeded));
  const Answer answer = AnswerOf(module, "NeedingAnswer");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 43u);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, module));
  EXPECT_FALSE(IsLoaded(kNeeding));
  EXPECT_FALSE(IsLoaded(kNeeded));
}

TEST(ModuleLoad, TheAlteredSearchAlsoFindsWhatThoseFilesNeed) {
  Context ctx;
  KivHandle module = nullptr;
  CHECK_OK(ctx, KivSdModuleLoad(ctx, kOuter.c_str(), &module, kAltered));
  const Answer answer = AnswerOf(module, "OuterAnswer");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 44u);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, module));
  EXPECT_FALSE(IsLoaded(kNeeded));
}

TEST(ModuleLoad, TheStandardSearchDoesNotFindThem) {
  Context ctx;
  KivHandle module = &ctx;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, kNeeding.c_str(), &module, kStandard), KIV_ST_MODULE_LOAD,
                kOsModuleMissing);
  EXPECT_EQ(module, nullptr);
}

TEST(ModuleLoad, TheStandardSearchLoadsAModuleWithoutDependencies) {
  Context ctx;
  KivHandle module = nullptr;
  CHECK_OK(ctx, KivSdModuleLoad(ctx, kNeeded.c_str(), &module, kStandard));
  const Answer answer = AnswerOf(module, "NeededAnswer");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42u);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, module));
}

TEST(ModuleLoad, EachLoadIsUndoneByAnUnload) {
  Context ctx;
  KivHandle first = nullptr;
  KivHandle second = nullptr;
  CHECK_OK(ctx, KivSdModuleLoad(ctx, kNeeded.c_str(), &first, kStandard));
  CHECK_OK(ctx, KivSdModuleLoad(ctx, kNeeded.c_str(), &second, kAltered));
  EXPECT_EQ(first, second);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, first));
  EXPECT_TRUE(IsLoaded(kNeeded));
  CHECK_OK(ctx, KivSdModuleUnload(ctx, second));
  EXPECT_FALSE(IsLoaded(kNeeded));
}

TEST(ModuleLoad, AMissingFileIsNotFound) {
  Context ctx;
  KivHandle module = &ctx;
  for (const uint8_t altered : {kStandard, kAltered}) {
    CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, kMissing.c_str(), &module, altered), KIV_ST_MODULE_LOAD,
                  kOsModuleMissing);
    EXPECT_EQ(module, nullptr);
  }
  const std::string message = KivSdModuleGetErrorMessage(ctx);
  EXPECT_NE(message, "No errors");
  EXPECT_NE(message, "Unknown error");
}

TEST(ModuleLoad, TheMessageNamesAFileThatIsNotAModule) {
  Context ctx;
  const NoModule file;
  KivHandle module = &ctx;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, file.path().c_str(), &module, kStandard),
                KIV_ST_MODULE_LOAD, kOsNoModule);
  EXPECT_EQ(module, nullptr);
  EXPECT_NE(std::string(KivSdModuleGetErrorMessage(ctx)).find(file.path()), std::string::npos)
      << KivSdModuleGetErrorMessage(ctx);
}

TEST(ModuleLoad, WorksWithoutAContext) {
  const NoModule file;
  KivHandle module = nullptr;
  EXPECT_EQ(KivSdModuleLoad(nullptr, file.path().c_str(), &module, kAltered), KIV_ST_MODULE_LOAD);
  EXPECT_EQ(KivSdModuleLoad(nullptr, kNeeding.c_str(), &module, kAltered), KIV_ST_OK);
  void* address = nullptr;
  EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, module, "missing", &address), KIV_ST_MODULE_PROCEDURE);
  EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, module, "NeedingAnswer", &address), KIV_ST_OK);
  EXPECT_NE(address, nullptr);
  EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
}

#ifdef _WIN32
// Only this system has an error mode.
TEST(ModuleLoad, LeavesTheErrorModeUnchanged) {
  const NoModule file;
  const UINT before = SetErrorMode(0);
  for (const UINT mode : {0u, 0x8000u, 0x8002u, 0x8003u}) {
    SetErrorMode(mode);
    KivHandle module = nullptr;
    EXPECT_EQ(KivSdModuleLoad(nullptr, file.path().c_str(), &module, kStandard),
              KIV_ST_MODULE_LOAD);
    EXPECT_EQ(GetErrorMode(), mode);
    EXPECT_EQ(KivSdModuleLoad(nullptr, kNeeded.c_str(), &module, kStandard), KIV_ST_OK);
    EXPECT_EQ(GetErrorMode(), mode);
    EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
  }
  SetErrorMode(before);
}
#endif

TEST(ModuleUnload, RefusesAHandleThatIsNotAModule) {
  Context ctx;
  for (const uintptr_t value : {uintptr_t{0}, uintptr_t{0x10000}}) {
    const auto module = reinterpret_cast<KivHandle>(value);
    EXPECT_EQ(KivSdModuleUnload(ctx, module), KIV_ST_MODULE_UNLOAD);
    EXPECT_EQ(ctx.status(), KIV_ST_MODULE_UNLOAD);
    EXPECT_NE(ctx.osError(), 0u);
    EXPECT_NE(ctx.osError(), Context::kOldError);
  }
}

// ---- Entries ----

TEST(ModuleEntry, AMissingEntryIsNotFound) {
  Context ctx;
  KivHandle module = nullptr;
  ASSERT_EQ(KivSdModuleHandleGet(nullptr, &module), KIV_ST_OK);
  for (const char* name : {"NoSuchEntry", "", "needinganswer"}) {
    void* address = &ctx;
    CHECK_OUTCOME(ctx, KivSdModuleProcAddrGet(ctx, module, name, &address), KIV_ST_MODULE_PROCEDURE,
                  kOsEntryMissing);
    EXPECT_EQ(address, nullptr);
  }
}

#ifdef _WIN32
// Only this system numbers entries.
TEST(ModuleEntry, IsAlsoFoundByItsNumber) {
  Context ctx;
  KivHandle module = nullptr;
  ASSERT_EQ(KivSdModuleLoad(nullptr, kNeeded.c_str(), &module, 0), KIV_ST_OK);
  void* address = nullptr;
  CHECK_OK(ctx, KivSdModuleProcAddrGet(ctx, module, MAKEINTRESOURCEA(1), &address));
  EXPECT_EQ(reinterpret_cast<Answer>(address), AnswerOf(module, "NeededAnswer"));
  EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
}
#endif

TEST(ModuleArgument, NullPointersAreRefusedAndNothingIsWritten) {
  Context ctx;
  KivHandle module = &ctx;
  void* address = &ctx;
  CHECK_ARGUMENT(ctx, KivSdModuleLoad(ctx, nullptr, &module, kStandard));
  CHECK_ARGUMENT(ctx, KivSdModuleLoad(ctx, "kernel32.dll", nullptr, kStandard));
  CHECK_ARGUMENT(ctx, KivSdModuleProcAddrGet(ctx, module, nullptr, &address));
  CHECK_ARGUMENT(ctx, KivSdModuleProcAddrGet(ctx, module, "entry", nullptr));
  EXPECT_EQ(module, &ctx);
  EXPECT_EQ(address, &ctx);
  EXPECT_EQ(KivSdModuleLoad(nullptr, nullptr, nullptr, kStandard), KIV_ST_ARGUMENT);
}

// ---- Names ----

TEST(ModuleName, IsThePathInUpperCase) {
  Context ctx;
  char name[KIV_SYSTEM_PATH_MAX];
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, nullptr, sizeof name, name));
  EXPECT_EQ(name, Upper(PathOfProgram()));

  KivHandle module = nullptr;
  ASSERT_EQ(KivSdModuleLoad(nullptr, kNeeded.c_str(), &module, kStandard), KIV_ST_OK);
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, module, sizeof name, name));
  EXPECT_EQ(name, Upper(kNeeded));
  EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);

  ASSERT_EQ(KivSdModuleHandleGet(nullptr, &module), KIV_ST_OK);
  EXPECT_EQ(KivSdModuleNameGet(nullptr, module, sizeof name, name), KIV_ST_OK);
  EXPECT_EQ(name, Upper(PathOfProgram()));
}

TEST(ModuleName, IsCutToTheBufferAndTerminated) {
  Context ctx;
  const std::string whole = Upper(PathOfProgram());
  for (const size_t size :
       {size_t{1}, size_t{2}, size_t{5}, whole.size(), whole.size() + 1, whole.size() + 2}) {
    std::vector<char> name(size + 8, '#');
    CHECK_OK(ctx, KivSdModuleNameGet(ctx, nullptr, static_cast<uint32_t>(size), name.data()));
    EXPECT_EQ(name.data(), whole.substr(0, size - 1));
    EXPECT_EQ(std::string(name.data() + size, 8), "########");
  }
}

TEST(ModuleName, NoRoomSucceedsAndWritesNothing) {
  Context ctx;
  char name[] = "untouched";
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, nullptr, 0, name));
  EXPECT_STREQ(name, "untouched");
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, nullptr, 100, nullptr));
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, nullptr, 0, nullptr));
}

TEST(ModuleName, OfAnUnknownModuleIsEmpty) {
  Context ctx;
  char name[] = "untouched";
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, reinterpret_cast<KivHandle>(uintptr_t{0x10000}),
                                   sizeof name, name));
  EXPECT_STREQ(name, "");
}

TEST(ModuleHandle, IsTheMainPrograms) {
  Context ctx;
  KivHandle module = nullptr;
  CHECK_OK(ctx, KivSdModuleHandleGet(ctx, &module));
  EXPECT_NE(module, nullptr);
#ifdef _WIN32
  EXPECT_EQ(module, GetModuleHandleA(nullptr));
#else
  EXPECT_EQ(dlsym(module, "malloc"), dlsym(RTLD_DEFAULT, "malloc"));
#endif
  CHECK_OK(ctx, KivSdModuleHandleGet(ctx, nullptr));
  EXPECT_EQ(KivSdModuleHandleGet(nullptr, nullptr), KIV_ST_OK);
}

#ifndef _WIN32

// ---- The loader of Linux ----

constexpr uint32_t kBadHandle = EBADF;

TEST(ModuleLoad, TheMessageIsTheLoadersText) {
  Context ctx;
  KivHandle module = nullptr;
  EXPECT_EQ(KivSdModuleLoad(ctx, kNeeding.c_str(), &module, kStandard), KIV_ST_MODULE_LOAD);
  const std::string message = KivSdModuleGetErrorMessage(ctx);
  EXPECT_EQ(message.find("kiv_needed.so: "), 0u) << message;
}

TEST(ModuleLoad, TheMessageBelongsToTheThreadThatFailed) {
  Context ctx;
  const NoModule file;
  KivHandle module = nullptr;
  EXPECT_EQ(KivSdModuleLoad(ctx, file.path().c_str(), &module, kStandard), KIV_ST_MODULE_LOAD);
  std::thread([] {
    const KivSdContext other = {KIV_ST_MODULE_LOAD, kOsNoModule, 0};
    const std::string message = KivSdModuleGetErrorMessage(&other);
    EXPECT_NE(message.find("Accessing a corrupted shared library"), std::string::npos) << message;
  }).join();
  const std::string message = KivSdModuleGetErrorMessage(ctx);
  EXPECT_NE(message.find("invalid ELF header"), std::string::npos) << message;
}

TEST(ModuleLoad, TheMessageOfAnEarlierFailureIsForgotten) {
  Context ctx;
  KivHandle module = nullptr;
  EXPECT_EQ(KivSdModuleLoad(ctx, kNeeding.c_str(), &module, kStandard), KIV_ST_MODULE_LOAD);
  EXPECT_EQ(KivSdModuleLoad(ctx, "", &module, kStandard), KIV_ST_MODULE_LOAD);
  const std::string message = KivSdModuleGetErrorMessage(ctx);
  EXPECT_EQ(message.find("kiv_needed.so"), std::string::npos) << message;
}

TEST(ModuleLoad, AnEmptyPathIsNotTheMainProgram) {
  Context ctx;
  KivHandle module = &ctx;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, "", &module, kStandard), KIV_ST_MODULE_LOAD,
                kOsModuleMissing);
  EXPECT_EQ(module, nullptr);
}

TEST(ModuleLoad, AFolderAndAFileWithoutPermissionHaveTheSystemsErrors) {
  Context ctx;
  const TemporaryFolder folder;
  KivHandle module = nullptr;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, folder.Path().c_str(), &module, kAltered),
                KIV_ST_MODULE_LOAD, uint32_t{EISDIR});
  if (geteuid() == 0) return;  // root may read every file
  folder.Write("module.so", "text");
  std::filesystem::permissions(folder.Path("module.so"), std::filesystem::perms::none);
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, folder.Path("module.so").c_str(), &module, kAltered),
                KIV_ST_MODULE_LOAD, uint32_t{EACCES});
}

// The file claims to be a module, and every number in it leads outside of it.
TEST(ModuleLoad, ADamagedModuleIsNotBelieved) {
  Context ctx;
  const TemporaryFolder folder;
  std::string bytes(4096, '\xFF');
  std::FILE* file = std::fopen(kNeeding.c_str(), "rb");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(std::fread(bytes.data(), 1, 20, file), 20u);
  std::fclose(file);
  KivHandle module = nullptr;
  for (const size_t whole : {size_t{4}, size_t{20}, size_t{54}, size_t{64}, size_t{4096}}) {
    folder.Write("damaged.so", bytes.substr(0, whole));
    EXPECT_EQ(KivSdModuleLoad(ctx, folder.Path("damaged.so").c_str(), &module, kAltered),
              KIV_ST_MODULE_LOAD);
    EXPECT_NE(ctx.osError(), 0u);
  }
}

TEST(ModuleUnload, RefusesAModuleThatIsNoLongerLoaded) {
  Context ctx;
  KivHandle module = nullptr;
  ASSERT_EQ(KivSdModuleLoad(nullptr, kNeeded.c_str(), &module, kStandard), KIV_ST_OK);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, module));
  CHECK_OUTCOME(ctx, KivSdModuleUnload(ctx, module), KIV_ST_MODULE_UNLOAD, kBadHandle);
  void* address = &ctx;
  CHECK_OUTCOME(ctx, KivSdModuleProcAddrGet(ctx, module, "NeededAnswer", &address),
                KIV_ST_MODULE_PROCEDURE, kBadHandle);
  EXPECT_EQ(address, nullptr);
}

TEST(ModuleEntry, OfAnotherModuleIsNotTheModulesOwn) {
  Context ctx;
  KivHandle module = nullptr;
  ASSERT_EQ(KivSdModuleLoad(nullptr, kNeeding.c_str(), &module, kAltered), KIV_ST_OK);
  void* address = &ctx;
  for (const char* name : {"NeededAnswer", "malloc"}) {
    CHECK_OUTCOME(ctx, KivSdModuleProcAddrGet(ctx, module, name, &address), KIV_ST_MODULE_PROCEDURE,
                  kOsEntryMissing);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(std::string(KivSdModuleGetErrorMessage(ctx)),
              std::string("undefined symbol: ") + name);
  }
  EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
}

TEST(ModuleMessage, NamesTheOutcomesThatAreNoErrors) {
  for (const uint32_t number : {38u, 128u, 258u, 535u, 997u}) {
    const KivSdContext ctx = {1, number, 0};
    EXPECT_STRNE(KivSdModuleGetErrorMessage(&ctx), "Unknown error") << number;
  }
}

#endif

}  // namespace
