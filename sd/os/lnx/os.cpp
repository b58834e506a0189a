#include "os/os.h"

#include <cerrno>

#include "kivsdu_version.h"

// An ELF note with version and flavour, which programs and "readelf -n" read: the length of its
// owner's name, the length of its text, its type, the name, the text. The notes of a module are
// padded to words of 4 bytes.
asm(".pushsection .note.kivsdu,\"a\",%note\n"
    ".balign 4\n"
    ".long 7, 2f - 1f, 1\n"
    ".asciz \"kivsdu\"\n"
    ".balign 4\n"
    "1: .asciz \"" KIVSDU_BUILD_TEXT
    "\"\n"
    "2: .balign 4\n"
    ".popsection\n");

namespace kiv::os {

uint32_t LastError() { return static_cast<uint32_t>(errno); }

}  // namespace kiv::os
