#include "platform.h"

#include <windows.h>
// after windows.h
#include <io.h>
#include <process.h>
#include <tlhelp32.h>

#include "kivsdu/module.h"
#include "kivsdu/system.h"

namespace kivsd {

int DescriptorOf(std::FILE* file) { return _fileno(file); }
int CopyDescriptor(int descriptor) { return _dup(descriptor); }
void ReplaceDescriptor(int descriptor, int by) { static_cast<void>(_dup2(by, descriptor)); }
void CloseDescriptor(int descriptor) { _close(descriptor); }
// "D": Windows removes the file when it is closed. Its name cannot be removed before.
const char* ScratchMode() { return "w+bD"; }
bool IsTerminal(std::FILE* file) { return _isatty(_fileno(file)) != 0; }
unsigned long ProcessId() { return static_cast<unsigned long>(_getpid()); }
// Not std::filesystem::path: its string() is UTF-8, which fopen takes for the ANSI code page.
std::string TemporaryFolder() {
  char folder[MAX_PATH + 1] = "";
  return GetTempPathA(sizeof folder, folder) < sizeof folder ? folder : "";
}
void EnableEscapes(std::FILE* terminal) {
  const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(terminal)));
  DWORD mode = 0;
  if (GetConsoleMode(console, &mode) != 0) {
    SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  }
}

std::vector<uint32_t> ProcessIds() {
  std::vector<uint32_t> ids;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return ids;
  PROCESSENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL found = Process32First(snapshot, &entry); found != 0;
       found = Process32Next(snapshot, &entry)) {
    ids.push_back(entry.th32ProcessID);
  }
  CloseHandle(snapshot);
  return ids;
}

std::string ModulePath(void* handle) {
  char path[KIV_SYSTEM_PATH_MAX] = "";
  KivSdModuleNameGet(nullptr, handle, sizeof path, path);
  return path;
}

}  // namespace kivsd
