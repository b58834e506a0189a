// Kinds of transfer. In a source of its own, which needs nothing of a platform: the linker gives
// the entry its names also where files are not bound.
#include "kivsdu/file.h"
#include "report.h"
#include "shared_entries.h"

uint32_t KivAnswerYes(KivSdContext* ctx, uint64_t, uint64_t, uint8_t* flag) {
  if (flag != nullptr) *flag = 1;
  return kiv::Report(ctx, KIV_ST_OK);
}
