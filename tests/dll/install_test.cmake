# Installs the library, moves the folder, builds a host with the shared and one with the static
# library by pkg-config, and runs both.
#
#   cmake -DBUILD=folder -DHOST=source -DCOMPILER=program -DPKG_CONFIG=program -P install_test.cmake
set(work ${BUILD}/install_test)

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${result} from ${ARGV}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# pkg_config(VARIABLE OPTION ...): the options that pkg-config prints, as a list
function(pkg_config variable)
  run(${PKG_CONFIG} ${ARGN} kivsdu)
  separate_arguments(options UNIX_COMMAND "${output}")
  set(${variable} ${options} PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${work})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/first)
file(RENAME ${work}/first ${work}/moved)
file(GLOB_RECURSE files ${work}/moved/*kivsdu.pc)
get_filename_component(folder "${files}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${folder})
pkg_config(libraries --variable=libdir)
pkg_config(shared --cflags --libs)
pkg_config(static --cflags --libs --static)
list(TRANSFORM static REPLACE "^-lkivsdu$" "-l:libkivsdu.a")

run(${COMPILER} ${HOST} ${shared} -o ${work}/shared_host)
run(${COMPILER} ${HOST} ${static} -o ${work}/static_host)
run(${work}/static_host)
set(ENV{LD_LIBRARY_PATH} ${libraries})
run(${work}/shared_host)
file(REMOVE_RECURSE ${work})
