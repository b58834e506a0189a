// The DLL's entry point, called by the loader.
#include "library.h"
#include "os/w32/win32.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) kiv::LibraryLoaded(module);
  if (reason == DLL_PROCESS_DETACH) kiv::LibraryUnloaded(module);
  return TRUE;
}
