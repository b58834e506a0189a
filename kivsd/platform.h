// Functions of the runtime that have other names on each platform.
#ifndef KIVSD_PLATFORM_H
#define KIVSD_PLATFORM_H

#include <cstdio>
#include <string>

namespace kivsd {

int DescriptorOf(std::FILE* file);
int CopyDescriptor(int descriptor);
void ReplaceDescriptor(int descriptor, int by);
void CloseDescriptor(int descriptor);

// The mode of fopen for a file that ends with its last descriptor, once its name is removed.
const char* ScratchMode();

// Whether a stream leads to a terminal.
bool IsTerminal(std::FILE* file);

unsigned long ProcessId();

// The file of a module of this process, from the handle that the module registered with kivutlu.
// Empty if it is not known.
std::string ModulePath(void* handle);

}  // namespace kivsd

#endif
