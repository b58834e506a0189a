// Functions of the runtime that have other names on each platform.
#ifndef KIVSD_PLATFORM_H
#define KIVSD_PLATFORM_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kivsd {

int DescriptorOf(std::FILE* file);
int CopyDescriptor(int descriptor);
void ReplaceDescriptor(int descriptor, int by);
void CloseDescriptor(int descriptor);

// The mode of fopen for a file that ends with its last descriptor, once its name is removed.
const char* ScratchMode();

// Whether a stream leads to a terminal.
bool IsTerminal(std::FILE* file);

// Has a terminal obey escape sequences. A terminal of today does without it, except on Windows.
void EnableEscapes(std::FILE* terminal);

unsigned long ProcessId();

// The folder for temporary files, with a separator at its end, in the encoding of fopen.
std::string TemporaryFolder();

// The processes of the system, as far as the user may see them.
std::vector<uint32_t> ProcessIds();

// The file of a module of this process, from the handle that the module registered with kivutlu.
// Empty if it is not known.
std::string ModulePath(void* handle);

}  // namespace kivsd

#endif
