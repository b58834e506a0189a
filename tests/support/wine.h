// Whether a Windows test runs on Wine, which differs from Windows in a few points.
#ifndef KIV_TESTS_WINE_H
#define KIV_TESTS_WINE_H

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

namespace kiv::test {

inline bool IsOnWine() {
#ifdef _WIN32
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
#else
  return false;
#endif
}

}  // namespace kiv::test

#endif
