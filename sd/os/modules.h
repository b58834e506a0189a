// Dynamic modules, and the system's texts for its errors.
#ifndef KIV_OS_MODULES_H
#define KIV_OS_MODULES_H

#include "os/os.h"

namespace kiv::os {

// Where a module's own needs are searched for.
enum class ModuleSearch : uint32_t { kStandard = 0, kOwnFolderFirst = 8 };

// OS errors whose texts have a place for the module's name.
extern const uint32_t kErrorFirstModuleText;
extern const uint32_t kErrorLastModuleText;

ValueResult<void*> LoadModule(const char* path, ModuleSearch search);
Result UnloadModule(void* module);
ValueResult<void*> FindEntry(void* module, const char* name);

// The main program's handle.
void* MainModule();

// A module's path, cut to the buffer; its length, which is the buffer's size when it was cut. A cut
// path may lack its terminator. Null is the main program.
ValueResult<uint32_t> ModulePath(void* module, char* buffer, uint32_t sizeBytes);

// Turns a text into upper case in place, as the C runtime does.
void UpperCase(char* text);

// The text of an error, its inserts filled in from an array, or left as they stand when that is
// null. The count of characters; fails when there is no text or it does not fit.
ValueResult<uint32_t> SystemMessage(uint32_t error, const char* const* inserts, char* buffer,
                                    uint32_t sizeBytes);

}  // namespace kiv::os

#endif
