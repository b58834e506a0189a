# Which Windows C runtime this build links, and so which flavour of the DLL it makes:
#
#   KIVSDU_RUNTIME              msvcrt, or ucrt for the universal C runtime
#   KIVSDU_RUNTIME_DEFINITIONS  what the runtime's headers need in addition to the compiler's own
#                               definitions
#
# A toolchain file sets both, or else the compiler's headers decide.
include(CheckSymbolExists)
if(NOT KIVSDU_RUNTIME)
  check_symbol_exists(_UCRT stdlib.h KIV_HAS_UCRT)
  set(KIVSDU_RUNTIME msvcrt)
  if(MSVC OR KIV_HAS_UCRT)
    set(KIVSDU_RUNTIME ucrt)
  endif()
endif()
