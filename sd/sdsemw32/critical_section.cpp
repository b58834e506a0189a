// Critical sections in the caller's storage.
#include "os/critical_section.h"
#include "kivsdu/mutex.h"
#include "report.h"

using namespace kiv;

namespace {

template <typename Operation>
uint32_t OnSection(KivSdContext* ctx, KivSdCritSec* section, Operation operation) {
  if (section == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  operation(section->opaque);
  return Report(ctx, KIV_ST_OK);
}

}  // namespace

uint32_t KivSdCritSecInit(KivSdContext* ctx, KivSdCritSec* section) {
  return OnSection(ctx, section, os::PrepareCriticalSection);
}

uint32_t KivSdCritSecDelete(KivSdContext* ctx, KivSdCritSec* section) {
  return OnSection(ctx, section, os::EndCriticalSection);
}

uint32_t KivSdCritSecEnter(KivSdContext* ctx, KivSdCritSec* section) {
  return OnSection(ctx, section, os::EnterCriticalSection);
}

uint32_t KivSdCritSecExit(KivSdContext* ctx, KivSdCritSec* section) {
  return OnSection(ctx, section, os::LeaveCriticalSection);
}
