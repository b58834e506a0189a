// Modules: failures of the system calls, the arguments of these calls, and error messages.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/import_patch.h"
#include "support/os_errors.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::GuardWatch;
using kiv::test::ImportPatch;
using kiv::test::kOsNoModule;
using kiv::test::ScriptedImport;

constexpr size_t kNameMost = 1028;
constexpr uint32_t kBufferBytes = 1029;
constexpr uint32_t kErrorWithoutText = 0x2FFFFFFF;
constexpr uint32_t kOtherError = 5555;

KivHandle Handle(uintptr_t value) { return reinterpret_cast<KivHandle>(value); }

// Errors whose texts have a placeholder for the module's name, and their neighbours.
#ifdef _WIN32
constexpr uint32_t kModuleErrors[] = {190, 191, 192, 193};
constexpr uint32_t kOtherErrors[] = {2, 126, 189, 194};
#else
constexpr uint32_t kModuleErrors[] = {79, 80, 81, 82, 83};
constexpr uint32_t kOtherErrors[] = {2, 13, 78, 84};
#endif

// Returns the system's text, with its placeholders unfilled or with the first one filled.
#ifdef _WIN32
std::string SystemText(uint32_t error, const char* name = nullptr) {
  char text[4096] = {};
  const char* inserts[11] = {name, "", "", "", "", "", "", "", "", "", ""};
  const DWORD filling =
      name != nullptr ? FORMAT_MESSAGE_ARGUMENT_ARRAY : FORMAT_MESSAGE_IGNORE_INSERTS;
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | filling, nullptr, error, 0, text, sizeof text,
                 reinterpret_cast<va_list*>(const_cast<char**>(inserts)));
  return text;
}
#else
std::string SystemText(uint32_t error, const char* name = nullptr) {
  const std::string text = strerrordesc_np(static_cast<int>(error));
  return name == nullptr ? text : std::string(name) + ": " + text;
}
#endif

std::string MessageFor(uint32_t error) {
  const KivSdContext ctx = {KIV_ST_MODULE_LOAD, error, 0};
  return KivSdModuleGetErrorMessage(&ctx);
}

// Lets a load of this path fail; messages then name the path.
void FailToLoad(const std::string& path) {
  const ScriptedImport load("LoadLibraryExA", {.result = 0, .error = kOsNoModule});
  KivHandle module = nullptr;
  EXPECT_EQ(KivSdModuleLoad(nullptr, path.c_str(), &module, 0), KIV_ST_MODULE_LOAD);
}

// ---- Failures ----

TEST(ModuleFailure, EachOperationHasItsStatusAndTheSystemsError) {
  Context ctx;
  const ScriptedImport load("LoadLibraryExA", {.result = 0, .error = 14});
  const ScriptedImport unload("FreeLibrary", {.result = 0, .error = 15});
  const ScriptedImport find("GetProcAddress", {.result = 0, .error = 16});
  KivHandle module = &ctx;
  void* address = &ctx;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, "a.dll", &module, 0), KIV_ST_MODULE_LOAD, 14u);
  CHECK_OUTCOME(ctx, KivSdModuleUnload(ctx, Handle(8)), KIV_ST_MODULE_UNLOAD, 15u);
  CHECK_OUTCOME(ctx, KivSdModuleProcAddrGet(ctx, Handle(8), "entry", &address),
                KIV_ST_MODULE_PROCEDURE, 16u);
  EXPECT_EQ(module, nullptr);
  EXPECT_EQ(address, nullptr);
  EXPECT_EQ(KivSdModuleUnload(nullptr, Handle(8)), KIV_ST_MODULE_UNLOAD);
}

TEST(ModuleFailure, IsReportedEvenWithoutASystemError) {
  Context ctx;
  const ScriptedImport load("LoadLibraryExA", {.result = 0, .error = 0});
  const ScriptedImport unload("FreeLibrary", {.result = 0, .error = 0});
  const ScriptedImport find("GetProcAddress", {.result = 0, .error = 0});
  KivHandle module = nullptr;
  void* address = nullptr;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, "a.dll", &module, 0), KIV_ST_MODULE_LOAD, 0u);
  CHECK_OUTCOME(ctx, KivSdModuleUnload(ctx, Handle(8)), KIV_ST_MODULE_UNLOAD, 0u);
  CHECK_OUTCOME(ctx, KivSdModuleProcAddrGet(ctx, Handle(8), "entry", &address),
                KIV_ST_MODULE_PROCEDURE, 0u);
}

TEST(ModuleFailure, AnUnreadableNameIsASuccessWithAnEmptyText) {
  Context ctx;
  const ScriptedImport path("GetModuleFileNameA", {.result = 0, .error = 126});
  char name[] = "untouched";
  CHECK_OK(ctx, KivSdModuleNameGet(ctx, Handle(8), sizeof name, name));
  EXPECT_STREQ(name, "");
  ASSERT_EQ(path.calls().size(), 1u);
  EXPECT_EQ(path.calls()[0][0], 8u);
  EXPECT_EQ(static_cast<uint32_t>(path.calls()[0][2]), sizeof name);
}

DWORD WINAPI FillToTheBrim(HMODULE, char* buffer, DWORD size) {
  std::memset(buffer, 'a', size);
  return size;
}

TEST(ModuleFailure, ANameThatTheSystemCutsIsTerminated) {
  const ImportPatch patch("GetModuleFileNameA", reinterpret_cast<void*>(&FillToTheBrim));
  char name[] = "12345678";
  EXPECT_EQ(KivSdModuleNameGet(nullptr, nullptr, 5, name), KIV_ST_OK);
  EXPECT_STREQ(name, "AAAA");
  EXPECT_STREQ(name + 5, "678");
}

DWORD WINAPI FillTwo(HMODULE, char* buffer, DWORD) {
  std::memcpy(buffer, "ab", sizeof "ab");
  return 2;
}

TEST(ModuleFailure, ANameThatFitsLeavesTheBytesAfterItUnchanged) {
  const ImportPatch patch("GetModuleFileNameA", reinterpret_cast<void*>(&FillTwo));
  for (const uint32_t length : {3u, 4u, 8u}) {
    char name[] = "12345678";
    EXPECT_EQ(KivSdModuleNameGet(nullptr, nullptr, length, name), KIV_ST_OK);
    EXPECT_STREQ(name, "AB");
    EXPECT_STREQ(name + 3, "45678") << length;
  }
}

// ---- Arguments of the system calls ----

TEST(ModuleRequest, PassesOnThePathAndTheSearch) {
  Context ctx;
  const ScriptedImport load("LoadLibraryExA", {.result = 0x123456789A});
  const char path[] = "folder/Module.dll";
  uint32_t number = 0;
  for (const int altered : {0, 1, 2, 8, 0x80, 0xFF}) {
    KivHandle module = nullptr;
    CHECK_OK(ctx, KivSdModuleLoad(ctx, path, &module, static_cast<uint8_t>(altered)));
    EXPECT_EQ(module, Handle(0x123456789A));
    const ScriptedImport::Arguments& asked = load.calls().at(number++);
    EXPECT_STREQ(reinterpret_cast<const char*>(asked[0]), path);
    EXPECT_EQ(asked[1], 0u);
    EXPECT_EQ(static_cast<uint32_t>(asked[2]), altered != 0 ? 8u : 0u);
  }
}

TEST(ModuleRequest, HandlesAndNamesArePassedOn) {
  const ScriptedImport unload("FreeLibrary", {.result = 1});
  const ScriptedImport find("GetProcAddress", {.result = 16});
  const char entry[] = "entry";
  void* address = nullptr;
  EXPECT_EQ(KivSdModuleUnload(nullptr, Handle(8)), KIV_ST_OK);
  EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, Handle(9), entry, &address), KIV_ST_OK);
  EXPECT_EQ(address, Handle(16));
  EXPECT_EQ(unload.calls().at(0)[0], 8u);
  EXPECT_EQ(find.calls().at(0)[0], 9u);
  EXPECT_EQ(find.calls().at(0)[1], reinterpret_cast<uintptr_t>(entry));
}

UINT errorMode;  // of the process

UINT WINAPI SetModeAndAnError(UINT mode) {
  SetLastError(kOtherError);
  return std::exchange(errorMode, mode);
}

TEST(ModuleErrorBoxes, AreRestoredWithoutHidingTheError) {
  Context ctx;
  const ImportPatch boxes("SetErrorMode", reinterpret_cast<void*>(&SetModeAndAnError));
  const ScriptedImport load("LoadLibraryExA", {.result = 0, .error = 14});
  KivHandle module = nullptr;
  CHECK_OUTCOME(ctx, KivSdModuleLoad(ctx, "a.dll", &module, 0), KIV_ST_MODULE_LOAD, 14u);
}

UINT modeDuringLoad;
bool loadSucceeds;

HMODULE WINAPI LookAtTheMode(const char*, HANDLE, DWORD) {
  modeDuringLoad = errorMode;
  return loadSucceeds ? reinterpret_cast<HMODULE>(uintptr_t{16}) : nullptr;
}

TEST(ModuleErrorBoxes, AreOffDuringTheLoadAndRestoredAfterIt) {
  const ImportPatch boxes("SetErrorMode", reinterpret_cast<void*>(&SetModeAndAnError));
  const ImportPatch patch("LoadLibraryExA", reinterpret_cast<void*>(&LookAtTheMode));
  for (const UINT mode : {0u, 1u, 2u, 0x8002u}) {
    for (const bool succeeds : {false, true}) {
      loadSucceeds = succeeds;
      modeDuringLoad = ~0u;
      errorMode = mode;
      KivHandle module = nullptr;
      static_cast<void>(KivSdModuleLoad(nullptr, "a.dll", &module, 0));
      EXPECT_EQ(modeDuringLoad, 1u);
      EXPECT_EQ(errorMode, mode);
    }
  }
}

// ---- Error messages ----

struct Asked {
  DWORD flags;
  const void* source;
  DWORD error;
  DWORD language;
  DWORD size;
  std::vector<std::string> inserts;
};
std::vector<Asked> asked;
DWORD failingFlag;  // requests with this flag fail
void* originalFormat;

DWORD WINAPI KeepFormat(DWORD flags, const void* source, DWORD error, DWORD language, char* buffer,
                        DWORD size, void* inserts) {
  asked.push_back({flags, source, error, language, size, {}});
  auto* texts = static_cast<const char* const*>(inserts);
  for (int i = 0; texts != nullptr && i < 11; ++i) asked.back().inserts.push_back(texts[i]);
  if ((flags & failingFlag) != 0) return 0;
  return reinterpret_cast<decltype(&KeepFormat)>(originalFormat)(flags, source, error, language,
                                                                 buffer, size, inserts);
}

class ModuleMessage : public testing::Test {
 protected:
  ModuleMessage() {
    asked.clear();
    failingFlag = 0;
    originalFormat = format_.original();
  }

  const ImportPatch format_{"FormatMessageA", reinterpret_cast<void*>(&KeepFormat)};
};

constexpr DWORD kWithInserts = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ARGUMENT_ARRAY;
constexpr DWORD kWithoutInserts = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;

TEST_F(ModuleMessage, NamesTheLastRequestedModuleForFourErrors) {
  FailToLoad("some.dll");
  FailToLoad("100%1%n.dll");
  for (const uint32_t error : kModuleErrors) {
    asked.clear();
    const std::string message = MessageFor(error);
    EXPECT_EQ(message, SystemText(error, "100%1%n.dll"));
    EXPECT_NE(message.find("100%1%n.dll"), std::string::npos) << message;
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].flags, kWithInserts);
    EXPECT_EQ(asked[0].source, nullptr);
    EXPECT_EQ(asked[0].error, error);
    EXPECT_EQ(asked[0].language, 0u);
    EXPECT_EQ(asked[0].size, kBufferBytes);
    std::vector<std::string> inserts(11);
    inserts[0] = "100%1%n.dll";
    EXPECT_EQ(asked[0].inserts, inserts);
  }
}

TEST_F(ModuleMessage, LeavesThePlaceholdersOfOtherErrorsUnfilled) {
  FailToLoad("some.dll");
  for (const uint32_t error : kOtherErrors) {
    asked.clear();
    const std::string message = MessageFor(error);
    EXPECT_EQ(message, SystemText(error));
    EXPECT_EQ(message.find("some.dll"), std::string::npos) << message;
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].flags, kWithoutInserts);
    EXPECT_EQ(asked[0].error, error);
    EXPECT_EQ(asked[0].size, kBufferBytes);
  }
}

TEST_F(ModuleMessage, UsesTheFirst1028CharactersOfTheName) {
  for (const size_t length :
       {size_t{0}, size_t{1027}, size_t{1028}, size_t{1029}, size_t{2000}, size_t{5}}) {
    std::string path;
    while (path.size() < length) path += static_cast<char>('a' + path.size() % 26);
    FailToLoad(path);
    asked.clear();
    static_cast<void>(MessageFor(kOsNoModule));
    ASSERT_GE(asked.size(), 1u);
    EXPECT_EQ(asked[0].inserts.at(0), path.substr(0, kNameMost));
  }
}

TEST_F(ModuleMessage, LeavesThePlaceholdersUnfilledIfTheTextBecomesTooLong) {
  FailToLoad(std::string(kNameMost, 'n'));
  EXPECT_EQ(MessageFor(kOsNoModule), SystemText(kOsNoModule));
  ASSERT_EQ(asked.size(), 2u);
  EXPECT_EQ(asked[0].flags, kWithInserts);
  EXPECT_EQ(asked[1].flags, kWithoutInserts);

  // The longest text that fits is one character shorter than the buffer.
  const size_t around = SystemText(kOsNoModule, "").size();
  const std::string longest(kBufferBytes - 1 - around, 'n');
  FailToLoad(longest);
  EXPECT_EQ(MessageFor(kOsNoModule), SystemText(kOsNoModule, longest.c_str()));
  FailToLoad(longest + "n");
  EXPECT_EQ(MessageFor(kOsNoModule), SystemText(kOsNoModule));
}

TEST_F(ModuleMessage, IsUnknownErrorWithoutASystemText) {
  EXPECT_EQ(MessageFor(kErrorWithoutText), "Unknown error");
  failingFlag = FORMAT_MESSAGE_FROM_SYSTEM;
  for (const uint32_t error : {1u, 189u, 190u, 193u, 194u, 0xFFFFFFFFu}) {
    EXPECT_EQ(MessageFor(error), "Unknown error");
  }
}

TEST_F(ModuleMessage, OmitsTheNameIfItCannotBeInserted) {
  FailToLoad("some.dll");
  failingFlag = FORMAT_MESSAGE_ARGUMENT_ARRAY;
  for (const uint32_t error : kModuleErrors) EXPECT_EQ(MessageFor(error), SystemText(error));
}

TEST_F(ModuleMessage, UsesTheContextsErrorAndNotTheThreads) {
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(MessageFor(0), "No errors");
  SetLastError(0);
  EXPECT_EQ(MessageFor(ERROR_ACCESS_DENIED), SystemText(ERROR_ACCESS_DENIED));
}

TEST_F(ModuleMessage, UsesTheThreadsErrorWithoutAContext) {
  FailToLoad("some.dll");
  SetLastError(0);
  EXPECT_STREQ(KivSdModuleGetErrorMessage(nullptr), "No errors");
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(KivSdModuleGetErrorMessage(nullptr), SystemText(ERROR_ACCESS_DENIED));
  SetLastError(kOsNoModule);
  EXPECT_EQ(KivSdModuleGetErrorMessage(nullptr), SystemText(kOsNoModule, "some.dll"));
}

TEST_F(ModuleMessage, UsesTheNameOfASuccessfulLoadButNotOfARefusedOne) {
  FailToLoad("first.dll");
  {
    const ScriptedImport load("LoadLibraryExA", {.result = 16});
    KivHandle module = nullptr;
    EXPECT_EQ(KivSdModuleLoad(nullptr, "second.dll", &module, 0), KIV_ST_OK);
    EXPECT_EQ(KivSdModuleLoad(nullptr, "third.dll", nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(KivSdModuleLoad(nullptr, nullptr, &module, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(load.calls().size(), 1u);
  }
  EXPECT_EQ(MessageFor(kOsNoModule), SystemText(kOsNoModule, "second.dll"));
}

// ---- The lease guard ----

TEST(ModuleGuard, RunsOnceBeforeTheArgumentsAreChecked) {
  const ScriptedImport load("LoadLibraryExA", {.result = 16});
  const ScriptedImport unload("FreeLibrary", {.result = 1});
  const ScriptedImport find("GetProcAddress", {.result = 16});
  KivHandle module = nullptr;
  void* address = nullptr;
  char name[8];
  for (const int mode : {0, 1, 0x40, 0xFF}) {
    GuardWatch guard(static_cast<uint8_t>(mode));
    const uint32_t once = mode != 0 ? 1 : 0;
    EXPECT_EQ(KivSdModuleLoad(nullptr, nullptr, nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleLoad(nullptr, "a.dll", &module, 0), KIV_ST_OK);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, module, nullptr, nullptr), KIV_ST_ARGUMENT);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleProcAddrGet(nullptr, module, "entry", &address), KIV_ST_OK);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleNameGet(nullptr, nullptr, 0, nullptr), KIV_ST_OK);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleNameGet(nullptr, nullptr, sizeof name, name), KIV_ST_OK);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleHandleGet(nullptr, nullptr), KIV_ST_OK);
    EXPECT_EQ(guard.TakeRuns(), once);
    EXPECT_EQ(KivSdModuleUnload(nullptr, module), KIV_ST_OK);
    EXPECT_EQ(MessageFor(0), "No errors");
    EXPECT_EQ(guard.TakeRuns(), 0u);
  }
}

}  // namespace
