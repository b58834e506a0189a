#include "os/object_kind.h"

#include <cstring>

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

// NtQueryObject and its result. Only ntdll.dll has it, which every process loads and which the
// library does not import.
using Query = LONG(WINAPI*)(HANDLE object, LONG information, void* result, DWORD sizeBytes,
                            DWORD* neededBytes);

constexpr LONG kTypeInformation = 2;
constexpr auto kInvalidHandle = static_cast<LONG>(0xC0000008);
constexpr size_t kResultBytes = 1024;

struct TypeResult {
  uint16_t nameBytes;  // without a terminator
  uint16_t capacityBytes;
  const wchar_t* name;
  unsigned char rest[kResultBytes];
};

struct NamedKind {
  wchar_t name[10];
  ObjectKind kind;
};

constexpr NamedKind kKinds[] = {
    {L"Event", ObjectKind::kEvent},          {L"Semaphore", ObjectKind::kSemaphore},
    {L"Mutant", ObjectKind::kMutex},         {L"Thread", ObjectKind::kThread},
    {L"Section", ObjectKind::kSharedMemory}, {L"File", ObjectKind::kPipe},
};

bool IsNamed(const TypeResult& type, const NamedKind& kind) {
  return type.nameBytes < sizeof kind.name && kind.name[type.nameBytes / sizeof(wchar_t)] == 0 &&
         std::memcmp(type.name, kind.name, type.nameBytes) == 0;
}

ObjectKind KindOf(const TypeResult& type) {
  for (const NamedKind& kind : kKinds) {
    if (IsNamed(type, kind)) return kind.kind;
  }
  return ObjectKind::kOther;
}

}  // namespace

ObjectKind KindOfObject(void* handle) {
  const HMODULE system = GetModuleHandleA("ntdll.dll");
  if (system == nullptr) return ObjectKind::kUnknown;
  const auto query =
      reinterpret_cast<Query>(reinterpret_cast<void*>(GetProcAddress(system, "NtQueryObject")));
  if (query == nullptr) return ObjectKind::kUnknown;
  TypeResult result = {};
  const LONG status = query(handle, kTypeInformation, &result, sizeof result, nullptr);
  if (status == kInvalidHandle) return ObjectKind::kNone;
  if (status < 0) return ObjectKind::kUnknown;
  return KindOf(result);
}

}  // namespace kiv::os
