// Names of a folder's entries.
#ifndef KIV_ENTRY_NAME_H
#define KIV_ENTRY_NAME_H

#include "text.h"

namespace kiv {

// Whether a name is one of the two that every folder has for itself and for the one above it.
constexpr bool IsFolderItselfOrAbove(const char* name) {
  return EqualsIgnoringCase(name, ".") || EqualsIgnoringCase(name, "..");
}

}  // namespace kiv

#endif
