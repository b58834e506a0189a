// Finds the build text of the loaded kivsdu.dll: a resource of the DLL.
#ifndef KIVSDU_CPP_W32_BUILD_TEXT_HPP
#define KIVSDU_CPP_W32_BUILD_TEXT_HPP

#include <cstddef>
#include <string_view>

// The system's own declarations, so that this header needs no <windows.h>.
struct HINSTANCE__;
struct HRSRC__;
extern "C" {
__declspec(dllimport) HINSTANCE__* __stdcall GetModuleHandleA(const char* name);
__declspec(dllimport) HRSRC__* __stdcall FindResourceA(HINSTANCE__* module, const char* name,
                                                       const char* type);
__declspec(dllimport) void* __stdcall LoadResource(HINSTANCE__* module, HRSRC__* resource);
__declspec(dllimport) void* __stdcall LockResource(void* loaded);
__declspec(dllimport) unsigned long __stdcall SizeofResource(HINSTANCE__* module,
                                                             HRSRC__* resource);
}

namespace kivsdu::detail {

// Empty if the library is not loaded or has no such resource. The text is the library's.
inline std::string_view LoadedBuildText() noexcept {
  HINSTANCE__* module = GetModuleHandleA("kivsdu.dll");
  if (module == nullptr) return {};
  HRSRC__* resource = FindResourceA(module, "KIV_BUILD", "KIV_TEXT");
  if (resource == nullptr) return {};
  const void* text = LockResource(LoadResource(module, resource));
  if (text == nullptr) return {};
  return {static_cast<const char*>(text), std::size_t{SizeofResource(module, resource)}};
}

}  // namespace kivsdu::detail

#endif
