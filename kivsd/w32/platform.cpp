#include "platform.h"

#include <io.h>
#include <process.h>

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

std::string ModulePath(void* handle) {
  char path[KIV_SYSTEM_PATH_MAX] = "";
  KivSdModuleNameGet(nullptr, handle, sizeof path, path);
  return path;
}

}  // namespace kivsd
