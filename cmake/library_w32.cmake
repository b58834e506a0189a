# Windows: compile and link options of the libraries. library_lnx.cmake has the same functions.

# Control-flow guard: clang 16 and mingw-w64 11 have it, and so has MSVC.
include(CheckLinkerFlag)
if(NOT MSVC)
  check_linker_flag(C -mguard=cf KIV_HAS_GUARD_CF)
endif()

find_package(Python3 COMPONENTS Interpreter)

# Compiles a target's sources for such a DLL: the headers of its C runtime, no exceptions, no type
# information, debug symbols.
function(kiv_slim_code target)
  target_compile_definitions(${target} PRIVATE ${KIVSDU_RUNTIME_DEFINITIONS})
  if(MSVC)
    target_compile_options(${target} PRIVATE /GR- /EHs-c- /Zi /guard:cf)
    return()
  endif()
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics
                         -ffunction-sections -fdata-sections -g
                         $<$<BOOL:${KIV_HAS_GUARD_CF}>:-mguard=cf>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Access the DLL's variables directly. Without the visibility options the compiler assumes that
    # they may lie in another DLL and reaches each through a pointer.
    target_compile_options(${target} PRIVATE -gcodeview -fvisibility-from-dllstorageclass
                           -fvisibility-externs-nodllstorageclass=hidden)
  endif()
endfunction()

# kiv_slim_library(TARGET DESCRIPTION): makes a DLL that needs only the system and the C runtime,
# linked as C to keep C++ libraries out. It exports the names of TARGET.def. Its debug symbols go
# into a separate file, and the description into its version resource. A DLL by clang does not depend
# on the folder or the time of its build; tools/check-reproducible checks that.
function(kiv_slim_library target description)
  kiv_slim_code(${target})
  kiv_version_resource(${target} "${description}")
  target_sources(${target} PRIVATE ${target}.def)
  set_target_properties(${target} PROPERTIES PREFIX "" LINKER_LANGUAGE C)
  if(MSVC)
    # No folding of identical functions: each export has an address of its own, unless the list of
    # exports gives it the function of another.
    target_link_options(${target} PRIVATE /DEBUG /OPT:REF /OPT:NOICF /DYNAMICBASE /HIGHENTROPYVA
                        /NXCOMPAT /GUARD:CF)
    return()
  endif()
  if(NOT KIVSDU_COVERAGE)  # no code refers to the tables of counters' places
    target_link_options(${target} PRIVATE -Wl,--gc-sections)
  endif()
  target_link_options(${target} PRIVATE -static-libgcc
                      -Wl,--dynamicbase,--high-entropy-va,--nxcompat,--no-insert-timestamp
                      $<$<BOOL:${KIV_HAS_GUARD_CF}>:-mguard=cf>)

  set(bin ${PROJECT_BINARY_DIR}/bin)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # The DLL names its symbol file without a folder. The strip removes only the start-up code's
    # debug data, in a format that Windows debuggers do not read.
    target_link_options(${target} PRIVATE -Wl,--pdb=${bin}/${target}.pdb
                        -Wl,-Xlink=-pdbaltpath:${target}.pdb)
    find_program(KIV_STRIP NAMES llvm-strip llvm-strip-14 REQUIRED)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
      COMMAND ${KIV_STRIP} --strip-debug $<TARGET_FILE:${target}>)
    if(Python3_FOUND)
      add_custom_command(TARGET ${target} POST_BUILD VERBATIM
        COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/cmake/stamp-dll
                $<TARGET_FILE:${target}> ${bin}/${target}.pdb)
    endif()
  else()
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
      COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${bin}/${target}.debug
      COMMAND ${CMAKE_STRIP} --strip-debug $<TARGET_FILE:${target}>
      COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${bin}/${target}.debug $<TARGET_FILE:${target}>)
  endif()

  # An import library that MSVC's linker accepts. It is made from the export list without the
  # aliases: users of the DLL need only the exported names.
  find_program(KIV_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14)
  if(KIV_DLLTOOL)
    set(plain ${PROJECT_BINARY_DIR}/generated/${target}-plain.def)
    file(READ ${CMAKE_CURRENT_SOURCE_DIR}/${target}.def list)
    string(REGEX REPLACE " = [A-Za-z0-9_]+" "" list "${list}")
    file(WRITE ${plain} "${list}")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                 ${CMAKE_CURRENT_SOURCE_DIR}/${target}.def)
    add_custom_command(TARGET ${target} POST_BUILD VERBATIM
      COMMAND ${KIV_DLLTOOL} -m i386:x86-64 -d ${plain} -l ${bin}/${target}.lib)
  endif()
endfunction()
