// The functions that are each exported under several names.
#include "shared_entries.h"

#include "os/entry_names.h"
#include "report.h"

using namespace kiv;

uint32_t KivNotSupported(KivSdContext* ctx) { return Report(ctx, KIV_ST_NOT_SUPPORTED); }

uint32_t KivNothingToDo(KivSdContext* ctx) { return Report(ctx, KIV_ST_OK); }

void KivIgnore() {}

uint32_t KivAnswerYes(KivSdContext* ctx, uint64_t, uint64_t, uint8_t* flag) {
  if (flag != nullptr) *flag = 1;
  return Report(ctx, KIV_ST_OK);
}

int32_t KivAlwaysTrue() { return 1; }

uint32_t KivZero() { return 0; }
