// Makes names of temporary files.
//
// The runtime makes a name from a prefix of five characters: two from the caller, and a stamp of
// three that encodes the process identifier and the number of the attempt.
//
//   0            1           2                          3           4
//   | caller's   | caller's  | attempt 0-1, process     | process   | process |
//   | or attempt | or attempt| bits 12-15               | bits 6-11 | bits 0-5|
//   | bits 8-13  | bits 2-7  |                          |           |         |
#include <atomic>
#include <cstring>

#include "kivsdu/file.h"
#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/file_names.h"
#include "os/heap.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr uint32_t kAttempts = 16384;
constexpr uint32_t kSymbolMask = 63;
constexpr char kSymbols[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
static_assert(sizeof kSymbols == kSymbolMask + 1 + sizeof '\0');

// Compatibility: these attempts are the last that show the caller's characters, not the first that
// do not. Attempt 4 therefore repeats the prefix of attempt 0. The sequence must not change.
constexpr uint32_t kLastWithSecondCharacter = 4;
constexpr uint32_t kLastWithFirstCharacter = 256;

// Means "not read yet". A process with this identifier reads it every time, with the same result.
constexpr uint64_t kUnread = 1;

// Filled by the first thread that needs it. Relaxed: every thread stores the same identifier.
std::atomic<uint64_t> processId{kUnread};

uint64_t ProcessId() {
  uint64_t id = processId.load(std::memory_order_relaxed);
  if (id == kUnread) {
    id = static_cast<uint64_t>(os::RuntimeProcessId());
    processId.store(id, std::memory_order_relaxed);
  }
  return id;
}

char Symbol(uint64_t value) { return kSymbols[value & kSymbolMask]; }

class Prefix {
 public:
  explicit Prefix(const char* asked) {
    if (asked == nullptr || asked[0] == '\0') return;
    text_[0] = asked[0];
    if (asked[1] != '\0') text_[1] = asked[1];
  }

  // Call with ascending attempts: the caller's characters do not come back once overwritten.
  void Stamp(uint64_t process, uint32_t attempt) {
    text_[4] = Symbol(process);
    text_[3] = Symbol(process >> 6);
    text_[2] = Symbol((attempt & 3) << 4 | (process >> 12 & 15));
    if (attempt > kLastWithSecondCharacter) text_[1] = Symbol(attempt >> 2);
    if (attempt > kLastWithFirstCharacter) text_[0] = Symbol(attempt >> 8);
  }

  const char* text() const { return text_; }

 private:
  char text_[6] = {'q', 'x'};
};

// Returns a name that no file has, in memory of the runtime; free it with os::RawFree. Fails with
// the runtime's error if the runtime makes no name, and with error 0 if all names are taken.
os::ValueResult<char*> FindFreeName(const char* asked) {
  Prefix prefix(asked);
  for (uint32_t attempt = 0; attempt < kAttempts; ++attempt) {
    prefix.Stamp(ProcessId(), attempt);
    const os::ValueResult<char*> made = os::MakeTemporaryName(prefix.text());
    if (!made.ok) return made;
    if (made.value[0] != '\0' && !os::IsAccessible(made.value, os::kAccessExists)) return made;
    os::RawFree(made.value);
  }
  return {false, 0, nullptr};
}

}  // namespace

uint32_t KivSdFileTempNameGet(KivSdContext* ctx, const char* prefix, char* name) {
  RunLeaseGuard();
  if (name == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<char*> found = FindFreeName(prefix);
  if (!found.ok) return Report(ctx, KIV_ST_FILE_TEMP_NAME, found.error);
  const size_t length = std::strlen(found.value);
  const bool fits = length < KIV_SYSTEM_PATH_MAX;
  if (fits) std::memcpy(name, found.value, length + 1);
  os::RawFree(found.value);
  return Report(ctx, fits ? KIV_ST_OK : KIV_ST_FILE_TEMP_NAME);
}
