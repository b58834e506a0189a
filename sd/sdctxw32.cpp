// The context record: create, read, free.
#include "kivsdu/context.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "tail_calls.h"

namespace {

constexpr char kSource[] = "sd/sdctxw32";
constexpr uint32_t kLineRecordAlloc = 52;
constexpr uint32_t kLineRecordFree = 86;

}  // namespace

uint32_t KivSdInit(KivSdContext** out) {
  if (out == nullptr) return KIV_ST_ARGUMENT;

  void* record = nullptr;
  const uint32_t status =
      adMalloc(nullptr, sizeof(KivSdContext), &record, kSource, kLineRecordAlloc);
  *out = static_cast<KivSdContext*>(record);
  if (status != KIV_ST_OK) return status;
  // The manager may report success with a null block; to the caller this is out of memory.
  if (record == nullptr) return KIV_ST_OUT_OF_MEMORY;
  **out = KivSdContext{};
  return KIV_ST_OK;
}

uint32_t KivSdTerm(KivSdContext* ctx) {
  if (ctx == nullptr) return KIV_ST_ARGUMENT;
  // The result is ignored: a caller can do nothing about a failed free.
  static_cast<void>(adFree(ctx, kSource, kLineRecordFree));
  return KIV_ST_OK;
}

uint32_t KivSdLastErrGet(const KivSdContext* ctx, uint32_t length, char* text, uint32_t* osError) {
  if (ctx == nullptr) return KIV_ST_ARGUMENT;
  const uint32_t error = ctx->osError;
  if (osError != nullptr) *osError = error;
  // Compatibility: the length only decides whether the text is written; it does not bound it. Hosts
  // pass a constant and a buffer that holds any number.
  if (length <= 1 || text == nullptr) [[likely]]
    return KIV_ST_OK;
  return kiv::PrintError(text, error);
}
