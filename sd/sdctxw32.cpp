// The context record: makes it, reads it, frees it.
#include <cstdio>

#include "kivsdu/context.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"

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
  // A manager that reports success and yields nothing is still out of memory to the caller.
  if (record == nullptr) return KIV_ST_OUT_OF_MEMORY;
  **out = KivSdContext{};
  return KIV_ST_OK;
}

uint32_t KivSdTerm(KivSdContext* ctx) {
  if (ctx == nullptr) return KIV_ST_ARGUMENT;
  // Freeing says nothing that a caller could act on.
  static_cast<void>(adFree(ctx, kSource, kLineRecordFree));
  return KIV_ST_OK;
}

uint32_t KivSdLastErrGet(const KivSdContext* ctx, uint32_t length, char* text, uint32_t* osError) {
  if (ctx == nullptr) return KIV_ST_ARGUMENT;
  // Kept: the length only decides whether there is a text at all. Hosts pass a constant here
  // and a buffer that holds any number.
  if (length > 1 && text != nullptr) {
    std::sprintf(text, "%d", static_cast<int>(ctx->osError));
  }
  if (osError != nullptr) *osError = ctx->osError;
  return KIV_ST_OK;
}
