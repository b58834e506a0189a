// Dynamic modules, and the system's error messages.
#ifndef KIV_OS_MODULES_H
#define KIV_OS_MODULES_H

#include "os/os.h"

namespace kiv::os {

// Where the loader searches for the modules that the loaded module depends on.
enum class ModuleSearch : uint32_t { kStandard = 0, kOwnFolderFirst = 8 };

// First and last OS error whose message has an insert for the module's name.
extern const uint32_t kErrorFirstModuleText;
extern const uint32_t kErrorLastModuleText;

ValueResult<void*> LoadModule(const char* path, ModuleSearch search);
Result UnloadModule(void* module);
ValueResult<void*> FindEntry(void* module, const char* name);

// The handle of the main program.
void* MainModule();

// Stores the module's path, cut to the buffer. The value is the length stored, which is sizeBytes
// only if the path was cut; such a path may lack its terminator. A null module is the main program.
ValueResult<uint32_t> ModulePath(void* module, char* buffer, uint32_t sizeBytes);

// Converts the text to upper case in place, by the C runtime's rules.
void UpperCase(char* text);

// Stores the message of an OS error; the value is its length. The array fills its inserts; if the
// array is null, the inserts stay as they are. Fails if there is no message or it does not fit.
ValueResult<uint32_t> SystemMessage(uint32_t error, const char* const* inserts, char* buffer,
                                    uint32_t sizeBytes);

}  // namespace kiv::os

#endif
