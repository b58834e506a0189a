// Modules: loading with dependencies, entries, names, and messages after real failures.
#include <gtest/gtest.h>
#include <windows.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

constexpr uint8_t kStandard = 0;
constexpr uint8_t kAltered = 1;

std::string PathOf(HMODULE module) {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(module, path, sizeof path);
  return path;
}

std::string OwnFolder() {
  const std::string path = PathOf(nullptr);
  return path.substr(0, path.rfind('\\') + 1);
}

// An absolute path, because the altered search is documented for absolute paths only.
std::string InModules(const char* file) { return OwnFolder() + KIV_MODULES_FOLDER "\\" + file; }

std::string Upper(std::string text) {
  for (char& letter : text) {
    letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  }
  return text;
}

// A text file with a module's name in the temporary folder; removed at the end.
class NoModule {
 public:
  NoModule() {
    char folder[MAX_PATH] = {};
    GetTempPathA(sizeof folder, folder);
    path_ = std::string(folder) + "kivsdu-" + std::to_string(GetCurrentProcessId()) + ".dll";
    std::FILE* file = std::fopen(path_.c_str(), "w");
    EXPECT_NE(file, nullptr);
    for (int i = 0; i < 100; ++i) std::fputs("This is a text and no module.\n", file);
    std::fclose(file);
  }
  ~NoModule() { EXPECT_EQ(std::remove(path_.c_str()), 0); }
  NoModule(const NoModule&) = delete;
  NoModule& operator=(const NoModule&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
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
  CHECK_OK(ctx, KivSdModuleLoad(ctx, InModules("kiv_needing.dll").c_str(), &module, kAltered));
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(module, GetModuleHandleA("kiv_needing.dll"));
  EXPECT_NE(GetModuleHandleA("kiv_needed.dll"), nullptr);
  const Answer answer = AnswerOf(module, "NeedingAnswer");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 43u);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, module));
  EXPECT_EQ(GetModuleHandleA("kiv_needing.dll"), nullptr);
  EXPECT_EQ(GetModuleHandleA("kiv_needed.dll"), nullptr);
}

TEST(ModuleLoad, TheStandardSearchDoesNotFindThem) {
  Context ctx;
  KivHandle module = &ctx;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, InModules("kiv_needing.dll").c_str(), &module, kStandard),
                KIV_ST_MODULE_LOAD, ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(module, nullptr);
}

TEST(ModuleLoad, TheStandardSearchLoadsAModuleWithoutDependencies) {
  Context ctx;
  KivHandle module = nullptr;
  CHECK_OK(ctx, KivSdModuleLoad(ctx, InModules("kiv_needed.dll").c_str(), &module, kStandard));
  const Answer answer = AnswerOf(module, "NeededAnswer");
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42u);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, module));
}

TEST(ModuleLoad, EachLoadIsUndoneByAnUnload) {
  Context ctx;
  KivHandle first = nullptr;
  KivHandle second = nullptr;
  const std::string path = InModules("kiv_needed.dll");
  CHECK_OK(ctx, KivSdModuleLoad(ctx, path.c_str(), &first, kStandard));
  CHECK_OK(ctx, KivSdModuleLoad(ctx, path.c_str(), &second, kAltered));
  EXPECT_EQ(first, second);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, first));
  EXPECT_NE(GetModuleHandleA("kiv_needed.dll"), nullptr);
  CHECK_OK(ctx, KivSdModuleUnload(ctx, second));
  EXPECT_EQ(GetModuleHandleA("kiv_needed.dll"), nullptr);
}

TEST(ModuleLoad, AMissingFileIsNotFound) {
  Context ctx;
  KivHandle module = &ctx;
  for (const uint8_t altered : {kStandard, kAltered}) {
    CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, InModules("missing.dll").c_str(), &module, altered),
                  KIV_ST_MODULE_LOAD, ERROR_MOD_NOT_FOUND);
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
                KIV_ST_MODULE_LOAD, ERROR_BAD_EXE_FORMAT);
  EXPECT_EQ(module, nullptr);
  EXPECT_NE(std::string(KivSdModuleGetErrorMessage(ctx)).find(file.path()), std::string::npos)
      << KivSdModuleGetErrorMessage(ctx);
}

TEST(ModuleLoad, WorksWithoutAContext) {
  const NoModule file;
  KivHandle module = nullptr;
  EXPECT_EQ(KivSdModuleLoad(nullptr, file.path().c_str(), &module, kAltered), KIV_ST_MODULE_LOAD);
  EXPECT_EQ(KivSdModuleLoad(nullptr, InModules("kiv_needing.dll").c_str(), &module, kAltered),
            KIV_ST_OK);
  void* address = nullptr;
  EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, module, "missing", &address), KIV_ST_MODULE_PROCEDURE);
  EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, module, "NeedingAnswer", &address), KIV_ST_OK);
  EXPECT_NE(address, nullptr);
  EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
}

TEST(ModuleLoad, LeavesTheErrorModeUnchanged) {
  const NoModule file;
  const UINT before = SetErrorMode(0);
  for (const UINT mode : {0u, 0x8000u, 0x8002u, 0x8003u}) {
    SetErrorMode(mode);
    KivHandle module = nullptr;
    EXPECT_EQ(KivSdModuleLoad(nullptr, file.path().c_str(), &module, kStandard),
              KIV_ST_MODULE_LOAD);
    EXPECT_EQ(GetErrorMode(), mode);
    EXPECT_EQ(KivSdModuleLoad(nullptr, InModules("kiv_needed.dll").c_str(), &module, kStandard),
              KIV_ST_OK);
    EXPECT_EQ(GetErrorMode(), mode);
    EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
  }
  SetErrorMode(before);
}

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
                  ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(address, nullptr);
  }
}

TEST(ModuleEntry, IsAlsoFoundByItsNumber) {
  Context ctx;
  KivHandle module = nullptr;
  ASSERT_EQ(KivSdModuleLoad(nullptr, InModules("kiv_needed.dll").c_str(), &module, 0), KIV_ST_OK);
  void* address = nullptr;
  CHECK_OK(ctx, KivSdModuleProcAddrGet(ctx, module, MAKEINTRESOURCEA(1), &address));
  EXPECT_EQ(reinterpret_cast<Answer>(address), AnswerOf(module, "NeededAnswer"));
  EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
}

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
  char name[MAX_PATH];
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, nullptr, sizeof name, name));
  EXPECT_EQ(name, Upper(PathOf(nullptr)));

  const HMODULE library = GetModuleHandleA("kivsdu.dll");
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, library, sizeof name, name));
  EXPECT_EQ(name, Upper(PathOf(library)));
  EXPECT_NE(std::string(name).find("\\KIVSDU.DLL"), std::string::npos);
  EXPECT_EQ(KivSdModuleNameGet(nullptr, nullptr, sizeof name, name), KIV_ST_OK);
  EXPECT_EQ(name, Upper(PathOf(nullptr)));
}

TEST(ModuleName, IsCutToTheBufferAndTerminated) {
  Context ctx;
  const std::string whole = Upper(PathOf(nullptr));
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
  EXPECT_EQ(module, GetModuleHandleA(nullptr));
  CHECK_OK(ctx, KivSdModuleHandleGet(ctx, nullptr));
  EXPECT_EQ(KivSdModuleHandleGet(nullptr, nullptr), KIV_ST_OK);
}

}  // namespace
