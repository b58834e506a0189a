# Linux: compile and link options of the libraries. library_w32.cmake has the same functions.

# Compiles a target's sources for such a library: position independent, no exceptions, no type
# information, debug symbols. Only functions marked in the public headers are visible outside.
# Thread-local variables are at a fixed distance from the thread's pointer: the loader keeps little
# room for that, of which the library may take few bytes.
function(kiv_slim_code target)
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -fno-threadsafe-statics
                         -ffunction-sections -fdata-sections -ftls-model=initial-exec -g)
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON
                        C_VISIBILITY_PRESET hidden CXX_VISIBILITY_PRESET hidden
                        VISIBILITY_INLINES_HIDDEN ON)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The loader never unloads a library that has a unique symbol.
    target_compile_options(${target} PRIVATE -fno-gnu-unique)
  endif()
endfunction()

# kiv_export_list(TARGET): exports exactly the names of TARGET.def, without a version. Their meaning
# never changes, and the library's name carries its major version.
function(kiv_export_list target)
  set(list ${CMAKE_CURRENT_SOURCE_DIR}/${target}.def)
  set(script ${PROJECT_BINARY_DIR}/generated/${target}.map)
  file(STRINGS ${list} names REGEX "^  [A-Za-z]")
  list(TRANSFORM names REPLACE "^  ([A-Za-z0-9_]+).*" "\\1")
  if(KIVSDU_COVERAGE)
    list(APPEND names KivWriteCounters)
  endif()
  list(JOIN names ";\n  " names)
  file(CONFIGURE OUTPUT ${script} CONTENT "{\nglobal:\n  @names@;\nlocal:\n  *;\n};\n" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  target_link_options(${target} PRIVATE -Wl,--version-script=${script})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()

# kiv_slim_library(TARGET DESCRIPTION): makes a shared object that needs only the C library, linked
# as C to keep C++ libraries out. It exports the names of TARGET.def and calls its own functions
# directly. Its debug symbols go into a separate file.
function(kiv_slim_library target description)
  kiv_slim_code(${target})
  kiv_export_list(${target})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C BUILD_WITH_INSTALL_RPATH ON)
  if(NOT KIVSDU_DEBIAN)  # whose libraries lie where the loader looks
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  target_link_options(${target} PRIVATE -Wl,--gc-sections -Wl,--as-needed -Wl,--build-id
                      -Wl,-Bsymbolic-functions -Wl,-z,relro,-z,now,-z,noexecstack)
  if(KIV_INSTRUMENTED)
    return()  # the program brings the functions
  endif()
  target_link_options(${target} PRIVATE -Wl,-z,defs)
  set(symbols ${PROJECT_BINARY_DIR}/bin/lib${target}.debug)
  add_custom_command(TARGET ${target} POST_BUILD VERBATIM
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
    COMMAND ${CMAKE_STRIP} --strip-unneeded $<TARGET_FILE:${target}>
    COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>)
endfunction()
