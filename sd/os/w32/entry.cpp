// The DLL's entry point, called by the loader.
#include "library.h"
#include "os/w32/win32.h"

using namespace kiv;

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) LibraryLoaded(module);
  if (reason == DLL_PROCESS_DETACH) LibraryUnloaded(module);
  return TRUE;
}
