#include "os/assertion.h"

#include <cstdlib>

// Declared here, because the headers of some compilers lack them or hide them in this build.
extern "C" {
__declspec(dllimport) void __cdecl _assert(const char* condition, const char* source,
                                           unsigned line);
__declspec(dllimport) void __cdecl _wassert(const wchar_t* condition, const wchar_t* source,
                                            unsigned line);
}

namespace kiv::os {
namespace {

constexpr size_t kWideCharacters = 128;

void Widen(const char* text, wchar_t (&wide)[kWideCharacters]) {
  size_t length = 0;
  for (; text[length] != '\0' && length < kWideCharacters - 1; ++length) {
    wide[length] = static_cast<unsigned char>(text[length]);
  }
  wide[length] = L'\0';
}

}  // namespace

void AssertionFailed(const char* condition, const char* source, uint32_t line) {
  _assert(condition, source, line);
  std::abort();  // the runtime's routine may return under a debugger
}

void WideAssertionFailed(const char* condition, const char* source, uint32_t line) {
  wchar_t wideCondition[kWideCharacters];
  wchar_t wideSource[kWideCharacters];
  Widen(condition, wideCondition);
  Widen(source, wideSource);
  _wassert(wideCondition, wideSource, line);
}

}  // namespace kiv::os
