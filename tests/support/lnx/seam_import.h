// Stand-ins for the imports of the DLL, for native tests.
//
// The linker sends every call that the library makes to a primitive of its platform seam to a
// wrapper here (--wrap). The wrapper calls a stand-in that has the name, the arguments and the
// results of the system's function that the Windows binding would call. Unless a test patches it,
// the stand-in calls the real primitive. A failing stand-in stores its error like the original:
// as the last error or as errno.
//
// One source in seam/ for each header of sd/os:
//
//   KIV_SEAM_PRIMITIVE(GiveMutex, "_ZN3kiv2os9GiveMutexEPv")
//
//   int32_t ReleaseMutex(void* mutex) { return ToBool(RealGiveMutex(mutex)); }
//   SeamImport<decltype(ReleaseMutex)> releaseMutex("ReleaseMutex", ReleaseMutex);
//
//   Result WrapGiveMutex(void* mutex) { return FromBool(releaseMutex.Call(mutex)); }
//
// The linker checks the mangled name: the real primitive of a wrong one is undefined. Several
// primitives may have stand-ins of one name, such as CloseHandle; a patch replaces all of them.
#ifndef KIV_TESTS_LNX_SEAM_IMPORT_H
#define KIV_TESTS_LNX_SEAM_IMPORT_H

#include <cerrno>
#include <cstdint>
#include <type_traits>

#include "os/os.h"
#include "support/last_error.h"

// Declares Real<primitive> and Wrap<primitive>, which a source of seam/ defines. CMake reads the
// symbol's name from this line and passes it to the linker.
#define KIV_SEAM_PRIMITIVE(primitive, symbol)                                  \
  extern decltype(::kiv::os::primitive) Real##primitive asm("__real_" symbol); \
  extern decltype(::kiv::os::primitive) Wrap##primitive asm("__wrap_" symbol);

// As above for a function of the C runtime, which the library calls without a primitive.
#define KIV_SEAM_FUNCTION(function, name, symbol)               \
  extern decltype(::function) Real##name asm("__real_" symbol); \
  extern decltype(::function) Wrap##name asm("__wrap_" symbol);

namespace kiv::test {

// An import by name, and the function that its calls reach: the stand-in, or a patch.
struct SeamImportEntry {
  SeamImportEntry(const char* importName, void* standIn);

  const char* name;
  void* original;
  void* target;
  SeamImportEntry* next;
};

// Notes which stand-in the patched call would have reached, for ImportPatch::original.
void EnterPatchedCall(const SeamImportEntry& entry);

// Whether a call of a stand-in fails, and whether it takes effect in spite of that.
enum class SeamFailure { kNone, kWithoutEffect, kWithEffect };

// Decides about a call of a stand-in, stores what a failed call returns, and sets the errors. With a
// null name it sets the errors once more, after a call that took effect. A null function, as at
// first, lets all calls through.
using SeamFault = SeamFailure (*)(const char* import, intptr_t* result);
void SetSeamFault(SeamFault fault);
SeamFailure DecideFault(const char* import, intptr_t* result);

// A register's content as a call's result of any type.
template <typename Result>
Result FromWord(intptr_t word) {
  if constexpr (std::is_pointer_v<Result>) {
    return reinterpret_cast<Result>(word);  // NOLINT(performance-no-int-to-ptr)
  } else {
    return static_cast<Result>(word);
  }
}

template <typename Function>
class SeamImport {
 public:
  SeamImport(const char* name, Function* standIn)
      : entry_(name, reinterpret_cast<void*>(standIn)) {}

  template <typename... Arguments>
  auto Call(Arguments... arguments) const {
    using Returned = decltype(reinterpret_cast<Function*>(entry_.target)(arguments...));
    intptr_t failed = 0;
    const SeamFailure failure = DecideFault(entry_.name, &failed);
    if (failure == SeamFailure::kWithoutEffect) return FromWord<Returned>(failed);
    if (entry_.target != entry_.original) EnterPatchedCall(entry_);
    if (failure == SeamFailure::kNone) {
      return reinterpret_cast<Function*>(entry_.target)(arguments...);
    }
    reinterpret_cast<Function*>(entry_.target)(arguments...);
    DecideFault(nullptr, &failed);
    return FromWord<Returned>(failed);
  }

 private:
  SeamImportEntry entry_;
};

// The last error of this thread, which SetErrors and the stand-ins set.
uint32_t SeamLastError();

// ---- From the real primitive's outcome to the stand-in's ----

inline void StoreError(const os::Result& result) {
  if (!result.ok) SetErrors(static_cast<int>(result.error), result.error);
}

// A BOOL, with the last error.
inline int32_t ToBool(const os::Result& result) {
  StoreError(result);
  return result.ok ? 1 : 0;
}

// The outcome's value, whatever it is on failure, with the last error and errno.
template <typename Value>
Value ToValue(const os::ValueResult<Value>& result) {
  StoreError({result.ok, result.error});
  return result.value;
}

// 0, or -1 with errno.
inline int32_t ToZero(const os::Result& result) {
  StoreError(result);
  return result.ok ? 0 : -1;
}

// ---- From the stand-in's outcome to the primitive's ----

inline os::Result FromBool(int32_t succeeded) {
  if (succeeded != 0) return {true, 0};
  return {false, SeamLastError()};
}

inline os::ValueResult<void*> FromPointer(void* made) {
  if (made != nullptr) return {true, 0, made};
  return {false, SeamLastError(), nullptr};
}

inline os::Result FromZero(int32_t outcome) {
  if (outcome == 0) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

}  // namespace kiv::test

#endif
