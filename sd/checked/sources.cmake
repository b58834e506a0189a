# The checked flavour: the library with checks around its operations. It has the exports and the file
# names of the ordinary library. None of this is part of the ordinary one.
set(KIV_CHECKED
  checked/block_list.cpp
  checked/block_record.cpp
  checked/block_registry.cpp
  checked/blocks.cpp
  checked/handle_check.cpp
  checked/handles.cpp
  checked/inspection.cpp
  checked/leaks.cpp
  checked/lock_registry.cpp
  checked/locks.cpp
  checked/misuse.cpp
  checked/place.cpp
  checked/report.cpp
  checked/settings.cpp
  checked/short_blocks.cpp
  checked/start_and_stop.cpp)

# A static library is never unloaded.
set(KIV_CHECKED_UNLOAD checked/unload.cpp)

# kiv_check(HEADER SOURCE ...): the sources define unchecked operations, under the names in the header
function(kiv_check header)
  set(path ${CMAKE_CURRENT_SOURCE_DIR}/checked/${header})
  set(option -include ${path})
  if(MSVC)
    set(option "/FI${path}")
  endif()
  set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS "${option}")
  set_property(SOURCE ${ARGN} APPEND PROPERTY OBJECT_DEPENDS ${path})
endfunction()

kiv_check(unchecked_names.h memsys/front.cpp memsys/initialization.cpp memsys/short_heap.cpp
          memsys/short_owner.cpp sdlibw32.cpp)
kiv_check(unchecked_lock_names.h sdlwsync.cpp sdrwlock/rwlock.cpp sdsync/spinlock.cpp)
kiv_check(unchecked_handle_names.h sdipcw32/anonymous_pipe.cpp sdipcw32/named_pipe.cpp
          sdipcw32/shared_block.cpp sdsemw32/gate_event.cpp sdsemw32/mutex.cpp
          sdsemw32/semaphore.cpp sdsemw32/standard_event.cpp sdthrw32/thread.cpp
          sdthrw32/thread_control.cpp)
# Measures pipes, whose checks would count.
kiv_check(unchecked_handle_names.h sdsync/calibration.cpp)

# Groups of the seam that only the checks use.
target_sources(kiv_seam PRIVATE os/${KIV_PLATFORM}/object_kind.cpp)
