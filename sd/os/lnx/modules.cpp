// Linux: a handle is the loader's own, so that a host can pass it to the loader, and every load of a
// module returns the same one. The loader trusts any handle; therefore a list holds those that it
// gave out, and no other one reaches it.
#include "os/modules.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "os/lnx/module_failure.h"
#include "os/lnx/module_needs.h"

namespace kiv::os {
namespace {

// ---- The loaded modules ----

struct Module {
  void* handle;
  uint32_t loads;  // that have not been undone
  char* path;      // null if memory was short
  Module* next;
};

// Guards the list. The loader runs a module's own code while it loads and unloads, so no such call
// is made with it.
pthread_mutex_t listMutex = PTHREAD_MUTEX_INITIALIZER;
Module* modules = nullptr;

class ListLock {
 public:
  ListLock() { pthread_mutex_lock(&listMutex); }
  ~ListLock() { pthread_mutex_unlock(&listMutex); }
  ListLock(const ListLock&) = delete;
  ListLock& operator=(const ListLock&) = delete;
};

// Where the list points to the module; to null at its end. The mutex must be held.
Module** Find(const void* handle) {
  Module** place = &modules;
  while (*place != nullptr && (*place)->handle != handle) place = &(*place)->next;
  return place;
}

const link_map* MapOf(void* handle) {
  link_map* map = nullptr;
  return dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 ? map : nullptr;
}

// The module's real path. The loader has the path by which the module was found, which may be
// relative to a folder that the process has left since. Null without memory.
char* PathOf(void* handle) {
  const link_map* map = MapOf(handle);
  if (map == nullptr) return nullptr;
  char* path = realpath(map->l_name, nullptr);
  return path != nullptr ? path : strdup(map->l_name);
}

// Notes a load. False without memory.
bool Enter(void* handle) {
  const ListLock lock;
  Module** place = Find(handle);
  if (*place == nullptr) {
    auto* made = static_cast<Module*>(std::malloc(sizeof(Module)));
    if (made == nullptr) return false;
    *made = {handle, 0, PathOf(handle), nullptr};
    *place = made;
  }
  ++(*place)->loads;
  return true;
}

// Notes an unload. False if no load is left to undo.
bool Leave(const void* handle) {
  const ListLock lock;
  Module** place = Find(handle);
  Module* found = *place;
  if (found == nullptr) return false;
  if (--found->loads != 0) return true;
  *place = found->next;
  std::free(found->path);
  std::free(found);
  return true;
}

// The handle of the main program, once it has been asked for.
std::atomic<void*> mainModule{nullptr};

// The main program's handle needs no entry in the list: the main program is never unloaded.
bool IsMain(const void* handle) { return handle != nullptr && handle == MainModule(); }

// ---- Errors ----

constexpr size_t kTextBytes = 1029;

// Outcomes that have the same number on every platform and are no errors of this one.
struct Outcome {
  uint32_t number;
  const char* text;
};
constexpr Outcome kOutcomes[] = {
    {38, "End of file"},
    {128, "The mutex's owner ended without releasing it"},
    {258, "The wait timed out"},
    {535, "The pipe is already connected"},
    {997, "The transfer is pending"},
};

// The loader's texts end with the system's text for an error of the system. Other texts say that
// the file is no module for this machine.
uint32_t ErrorOfText(const char* text) {
  constexpr int kLastErrno = 133;
  const size_t length = std::strlen(text);
  for (int error = 1; error <= kLastErrno; ++error) {
    char ending[256];
    const char* described = strerror_r(error, ending, sizeof ending);
    const size_t endingLength = std::strlen(described);
    if (length >= endingLength && std::strcmp(text + length - endingLength, described) == 0) {
      return error == ENOENT ? ELIBACC : static_cast<uint32_t>(error);
    }
  }
  return ELIBBAD;
}

// Keep a text for SystemMessage, and return its error.
uint32_t KeepLoaderFailure() {
  const char* text = dlerror();
  if (text == nullptr) text = "";
  const uint32_t error = ErrorOfText(text);
  KeepFailure(error, text);
  return error;
}

uint32_t KeepMissingEntry(const char* name) {
  char text[kTextBytes];
  std::snprintf(text, sizeof text, "undefined symbol: %s", name);
  KeepFailure(ENOENT, text);
  return ENOENT;
}

ValueResult<uint32_t> StoreMessage(char* buffer, uint32_t sizeBytes, const char* name,
                                   const char* text) {
  const int length = name == nullptr ? std::snprintf(buffer, sizeBytes, "%s", text)
                                     : std::snprintf(buffer, sizeBytes, "%s: %s", name, text);
  const auto count = static_cast<uint32_t>(length);
  if (count >= sizeBytes) return {false, ERANGE, 0};
  return {true, 0, count};
}

const char* TextOf(uint32_t error) {
  for (const Outcome& outcome : kOutcomes) {
    if (outcome.number == error) return outcome.text;
  }
  return error > INT_MAX ? nullptr : strerrordesc_np(static_cast<int>(error));
}

// ---- Entries and paths ----

// Whether an address lies in the module itself and not in one that it needs. The loader also
// searches those: an optional entry named like a function of the C runtime would seem to exist.
bool IsOwn(const void* address, void* module) {
  Dl_info info;
  link_map* map = nullptr;
  return dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0 &&
         map == MapOf(module);
}

ValueResult<uint32_t> StorePath(const char* path, size_t length, char* buffer, uint32_t sizeBytes) {
  const size_t stored = std::min<size_t>(length, sizeBytes);
  std::memcpy(buffer, path, stored);
  if (stored < sizeBytes) buffer[stored] = '\0';
  return {true, 0, static_cast<uint32_t>(stored)};
}

ValueResult<uint32_t> MainPath(char* buffer, uint32_t sizeBytes) {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length == -1) return {false, static_cast<uint32_t>(errno), 0};
  return StorePath(path, static_cast<size_t>(length), buffer, sizeBytes);
}

}  // namespace

// Numbers that Linux keeps for failures of loading. Other calls do not fail with them, so that the
// loader's text belongs to the number.
const uint32_t kErrorFirstModuleText = ELIBACC;
const uint32_t kErrorLastModuleText = ELIBEXEC;

ValueResult<void*> LoadModule(const char* path, ModuleSearch search) {
  ForgetFailure();
  if (path[0] == '\0') return {false, ELIBACC, nullptr};  // to the loader, the main program
  const FolderNeeds needs(search == ModuleSearch::kOwnFolderFirst ? path : "");
  void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return {false, KeepLoaderFailure(), nullptr};
  if (Enter(handle)) return {true, 0, handle};
  dlclose(handle);
  return {false, ENOMEM, nullptr};
}

Result UnloadModule(void* module) {
  if (!Leave(module)) return {false, EBADF};
  if (dlclose(module) == 0) return {true, 0};
  return {false, KeepLoaderFailure()};
}

ValueResult<void*> FindEntry(void* module, const char* name) {
  const bool isMain = IsMain(module);
  const ListLock lock;  // so that no other thread unloads the module meanwhile
  if (!isMain && *Find(module) == nullptr) return {false, EBADF, nullptr};
  void* address = dlsym(module, name);
  if (address != nullptr && IsOwn(address, module)) return {true, 0, address};
  return {false, KeepMissingEntry(name), nullptr};
}

void* MainModule() {
  // relaxed: every thread finds the same handle, and only the loader follows it.
  void* known = mainModule.load(std::memory_order_relaxed);
  if (known != nullptr) return known;
  void* handle = dlopen(nullptr, RTLD_LAZY);
  if (handle == nullptr) return nullptr;
  dlclose(handle);  // the handle stays valid while the program runs
  mainModule.store(handle, std::memory_order_relaxed);
  return handle;
}

ValueResult<uint32_t> ModulePath(void* module, char* buffer, uint32_t sizeBytes) {
  if (module == nullptr || IsMain(module)) return MainPath(buffer, sizeBytes);
  const ListLock lock;
  const Module* found = *Find(module);
  if (found == nullptr) return {false, EBADF, 0};
  if (found->path == nullptr) return {false, ENOMEM, 0};
  return StorePath(found->path, std::strlen(found->path), buffer, sizeBytes);
}

void UpperCase(char* text) {
  for (; *text != '\0'; ++text) {
    *text = static_cast<char>(std::toupper(static_cast<unsigned char>(*text)));
  }
}

ValueResult<uint32_t> SystemMessage(uint32_t error, const char* const* inserts, char* buffer,
                                    uint32_t sizeBytes) {
  const char* loaderText = KeptText(error);
  if (loaderText != nullptr) {
    const ValueResult<uint32_t> kept = StoreMessage(buffer, sizeBytes, nullptr, loaderText);
    if (kept.ok) return kept;
  }
  const char* text = TextOf(error);
  if (text == nullptr) return {false, ENOENT, 0};
  return StoreMessage(buffer, sizeBytes, inserts == nullptr ? nullptr : inserts[0], text);
}

}  // namespace kiv::os
