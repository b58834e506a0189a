#include "platform.h"

#include <link.h>
#include <unistd.h>

namespace kivsd {

int DescriptorOf(std::FILE* file) { return fileno(file); }
int CopyDescriptor(int descriptor) { return dup(descriptor); }
void ReplaceDescriptor(int descriptor, int by) { static_cast<void>(dup2(by, descriptor)); }
void CloseDescriptor(int descriptor) { close(descriptor); }
const char* ScratchMode() { return "w+b"; }
bool IsTerminal(std::FILE* file) { return isatty(fileno(file)) != 0; }
unsigned long ProcessId() { return static_cast<unsigned long>(getpid()); }

// The handle is the loader's record of the module.
std::string ModulePath(void* handle) { return static_cast<const link_map*>(handle)->l_name; }

}  // namespace kivsd
