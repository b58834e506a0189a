// Dynamic modules: loads and unloads them, finds entry points, and returns module names and the
// system's error messages.
//
// Two buffers belong to the whole process and have no lock: the path that was loaded last, because
// some system messages have an insert for it, and the message that was requested last.
#include <cstring>

#include "kivsdu/memory.h"
#include "kivsdu/module.h"
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/error_boxes.h"
#include "os/modules.h"
#include "report.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr char kNoErrors[] = "No errors";
constexpr char kUnknownError[] = "Unknown error";
constexpr int kEmptyInserts = 10;

char lastModuleName[KIV_SYSTEM_PATH_MAX];
char message[KIV_SYSTEM_PATH_MAX];

bool NamesAModule(uint32_t error) {
  return error >= os::kErrorFirstModuleText && error <= os::kErrorLastModuleText;
}

// Formats the message with the module's name as its first insert. Further inserts are empty.
bool FormatWithModule(uint32_t error) {
  const char* inserts[1 + kEmptyInserts];
  inserts[0] = lastModuleName;
  for (int i = 1; i <= kEmptyInserts; ++i) inserts[i] = "";
  return os::SystemMessage(error, inserts, message, sizeof message).ok;
}

}  // namespace

uint32_t KivSdModuleLoad(KivSdContext* ctx, const char* path, KivHandle* module, uint8_t altered) {
  RunLeaseGuard();
  if (path == nullptr || module == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  static_cast<void>(KivSdMemClear(nullptr, lastModuleName, sizeof lastModuleName));
  CopyText(lastModuleName, sizeof lastModuleName - 1, path);

  const auto search =
      altered != 0 ? os::ModuleSearch::kOwnFolderFirst : os::ModuleSearch::kStandard;
  const uint32_t boxes = os::SetErrorBoxes(os::kErrorBoxesHidden);
  const os::ValueResult<void*> loaded = os::LoadModule(path, search);
  static_cast<void>(os::SetErrorBoxes(boxes));
  *module = loaded.value;
  return ReportOutcome(ctx, loaded, KIV_ST_MODULE_LOAD);
}

uint32_t KivSdModuleUnload(KivSdContext* ctx, KivHandle module) {
  return ReportOutcome(ctx, os::UnloadModule(module), KIV_ST_MODULE_UNLOAD);
}

uint32_t KivSdModuleProcAddrGet(KivSdContext* ctx, KivHandle module, const char* name,
                                void** address) {
  RunLeaseGuard();
  if (name == nullptr || address == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<void*> found = os::FindEntry(module, name);
  *address = found.value;
  return ReportOutcome(ctx, found, KIV_ST_MODULE_PROCEDURE);
}

uint32_t KivSdModuleNameGet(KivSdContext* ctx, KivHandle module, uint32_t length, char* name) {
  RunLeaseGuard();
  if (length == 0 || name == nullptr) return Report(ctx, KIV_ST_OK);
  name[0] = '\0';
  const os::ValueResult<uint32_t> path = os::ModulePath(module, name, length);
  // Older systems cut a path without terminating it. Bytes behind a path that fits stay unchanged.
  if (path.value >= length) name[length - 1] = '\0';
  os::UpperCase(name);
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdModuleHandleGet(KivSdContext* ctx, KivHandle* module) {
  RunLeaseGuard();
  if (module != nullptr) *module = os::MainModule();
  return Report(ctx, KIV_ST_OK);
}

const char* KivSdModuleGetErrorMessage(const KivSdContext* ctx) {
  const uint32_t error = ctx != nullptr ? ctx->osError : os::LastError();
  if (error == 0) return kNoErrors;
  if (NamesAModule(error) && FormatWithModule(error)) return message;
  return os::SystemMessage(error, nullptr, message, sizeof message).ok ? message : kUnknownError;
}
