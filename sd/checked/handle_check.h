// Checks of handles: an operation gets a handle that is closed, or that names an object of another
// kind.
#ifndef KIV_CHECKED_HANDLE_CHECK_H
#define KIV_CHECKED_HANDLE_CHECK_H

#include "kivsdu/api.h"
#include "os/object_kind.h"

namespace kiv::checked {

// Both end the process through an assertion that names the operation. They leave a null pointer, a
// null handle, and the system's numbers for the calling thread and for no pipe to the operation.

// Checks that the handle is open and names an object of this kind.
void CheckHandle(const KivHandle* handle, os::ObjectKind kind, const char* operation);

// Checks that the handle is open.
void CheckIsOpen(const KivHandle* handle, const char* operation);

}  // namespace kiv::checked

#endif
