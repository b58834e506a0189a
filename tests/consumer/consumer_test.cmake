# Installs the library, moves the folder, and builds and runs consumers against it: with
# find_package, with pkg-config and, for Windows, with Microsoft's kind of linker.
#
#   cmake -DBUILD=folder -DSOURCE=folder -DGENERATOR=name -DC_COMPILER=program
#         -DCXX_COMPILER=program -DTOOLCHAIN=file -DPKG_CONFIG=program -DPC_COMPILER=program
#         -DRUN=emulator -DLLD_LINK=program -P consumer_test.cmake
#
# With -DINSTALLED=folder instead of -DBUILD, the consumers use that installation.
if(INSTALLED)
  set(work ${CMAKE_CURRENT_BINARY_DIR}/consumer_test)
else()
  set(work ${BUILD}/consumer_test)
endif()
set(exe "")
if(TOOLCHAIN)
  set(exe .exe)
endif()

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${result} from ${ARGV}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# run_program(PROGRAM TEXT): runs a consumer, and expects output that matches TEXT
function(run_program program text)
  run(${RUN} ${program})
  if(NOT output MATCHES "${text}")
    message(FATAL_ERROR "${program} printed\n${output}instead of\n${text}")
  endif()
  message(STATUS "${program} works")
endfunction()

# ---- Install, and move the folder ----

file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work})
set(prefix ${INSTALLED})
if(NOT INSTALLED)
  foreach(component runtime development)
    run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/first --component ${component})
  endforeach()
  set(prefix ${work}/moved)
  file(RENAME ${work}/first ${prefix})
endif()
file(GLOB_RECURSE pc ${prefix}/*/kivsdu.pc)
get_filename_component(pkgconfig "${pc}" DIRECTORY)
get_filename_component(libraries ${pkgconfig} DIRECTORY)

# No file of the development component may name the folders of the build.
foreach(folder ${libraries}/cmake ${pkgconfig})
  file(GLOB_RECURSE files ${folder}/*)
  foreach(file IN LISTS files)
    file(READ ${file} text)
    foreach(place "${BUILD}" "${work}/first")
      string(FIND "${text}" "${place}" position)
      if(place AND NOT position EQUAL -1)
        message(FATAL_ERROR "${file} names ${place}")
      endif()
    endforeach()
  endforeach()
endforeach()

# Programs for Windows find the DLLs in their own folder, others by the path of their libraries.
set(programs ${work}/bin)
file(MAKE_DIRECTORY ${programs})
if(TOOLCHAIN)
  file(COPY ${prefix}/bin/kivsdu.dll ${prefix}/bin/kivutlu.dll DESTINATION ${programs})
  set(ENV{KIV_WINEPREFIX} ${BUILD}/wine)
else()
  set(ENV{LD_LIBRARY_PATH} ${libraries})
endif()

# ---- find_package ----

set(options -DCMAKE_RUNTIME_OUTPUT_DIRECTORY=${programs} -Dkivsdu_ROOT=${prefix}
    -DCMAKE_BUILD_TYPE=Release)
if(TOOLCHAIN)
  list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}
       -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH)
else()
  list(APPEND options -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
endif()
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE} -B ${work}/build ${options})
run(${CMAKE_COMMAND} --build ${work}/build)
set(forms shared)
if(NOT TOOLCHAIN)
  list(APPEND forms static)
endif()
foreach(form IN LISTS forms)
  run_program(${programs}/c_${form}${exe} "consumer in C, kivsdu [0-9.]+\n")
  run_program(${programs}/cpp_${form}${exe} "consumer in C\\+\\+, kivsdu [0-9.]+, [a-z]+")
endforeach()
run_program(${programs}/c_utility${exe} "^kivsdu [0-9.]+ ")

# ---- pkg-config ----

# pkg_config(VARIABLE OPTION ...): the options that pkg-config prints, as a list
function(pkg_config variable)
  run(${PKG_CONFIG} ${ARGN})
  separate_arguments(options UNIX_COMMAND "${output}")
  set(${variable} ${options} PARENT_SCOPE)
endfunction()

set(ENV{PKG_CONFIG_LIBDIR} ${pkgconfig})
pkg_config(shared --cflags --libs kivsdu)
pkg_config(with_texts --cflags --libs kivsdu-cpp)
run(${PC_COMPILER} ${SOURCE}/consumer.c ${shared} -o ${programs}/pc_shared${exe})
run_program(${programs}/pc_shared${exe} "consumer in C")
if(NOT TOOLCHAIN)
  run(${CXX_COMPILER} -std=c++20 ${SOURCE}/consumer.cpp ${with_texts} -o ${programs}/pc_cpp)
  run_program(${programs}/pc_cpp "consumer in C\\+\\+")
  pkg_config(static --cflags --libs --static kivsdu)
  list(TRANSFORM static REPLACE "^-lkivsdu$" "-l:libkivsdu.a")
  run(${C_COMPILER} ${SOURCE}/consumer.c ${static} -o ${programs}/pc_static)
  unset(ENV{LD_LIBRARY_PATH})
  run_program(${programs}/pc_static "consumer in C")
endif()

# ---- Microsoft's kind of linker, with the import library kivsdu.lib ----

if(TOOLCHAIN AND LLD_LINK)
  run(${C_COMPILER} --target=x86_64-pc-windows-msvc -std=c11 -O2 -ffreestanding
      -I ${prefix}/include -c ${SOURCE}/../dll/msvc_host.c -o ${work}/msvc_host.obj)
  run(${LLD_LINK} /nologo /nodefaultlib /entry:Start /subsystem:console
      /out:${programs}/msvc_host.exe ${work}/msvc_host.obj ${libraries}/kivsdu.lib)
  run_program(${programs}/msvc_host.exe "")
endif()

file(REMOVE_RECURSE ${work})
