# Ordinary tests, and cases of them, that do not hold for the checked flavour. docs/checked.md lists
# the differences for hosts.

# Tests that script the allocator or the handles of the system, or pin sizes and places of blocks:
# blocks are 16 bytes larger, stay in quarantine after they are freed, and a request that failed is
# repeated. Handles that a script invented are reported.
set(KIV_NOT_CHECKED
  context_failure_test cpp_memory_test direct_io_nowait_test exception_stack_test
  file_search_failure_test kernel_objects_failure_test kernel_wait_failure_test library_test
  lwspinlock_assertion_test manager_accounting_test manager_calls_test manager_exchange_test
  manager_failure_test manager_front_test
  manager_messages_test manager_plain_test manager_races_test
  manager_start_test manager_statistics_test manager_threads_test memory_failure_test
  memory_stack_failure_test paging_test pipe_failure_test pipe_request_test policy_block_test
  rwlock_failure_test segment_failure_test semaphore_set_failure_test shared_block_failure_test
  sync_env_test thread_cache_test thread_failure_test thread_linux_test vorutil_failure_test
  waiting_linux_test write_pause_failure_test pipe_linux_test)

# Cases that release or end a lock that the thread does not hold.
set(KIV_NOT_CHECKED_lwspinlock_test
  LWSpinlockAssertion.FailsOnReleaseByAThreadThatDoesNotHoldTheLock
  */TicketLWSpinlock.DestroyZeroesItsThreeWordsAndNoMore/*
  */WordLWSpinlock.AReleaseBeforeTheFirstAcquireLeavesTheCountBelowZero/*
  */WordLWSpinlock.CanBeReleasedByAnyThread/*
  */WordLWSpinlock.DestroyClearsOwnerAndCountOnly/*
  */WordLWSpinlock.HeldTwiceStaysHeldAfterOneReleaseByAnotherThread/*)
set(KIV_NOT_CHECKED_rwlock_test RWLock.FreeQNodesAlsoFreesNodesOfHeldLocks)
set(KIV_NOT_CHECKED_spinlock_test
  */Spinlock.ASurplusReleaseDoesNoHarmAfterTheFirstAcquire/*
  */Spinlock.CountHas16Bits/*
  */Spinlock.HeldTwiceStaysHeldAfterOneReleaseByAnotherThread/*
  */Spinlock.IsFreedUnderItsHolderByAnyThreadsRelease/*
  */SpinlockFence.*
  */TicketSpinlock.AReleaseBeforeTheFirstAcquireBlocksTheNextAcquire/*
  */TicketSpinlock.GrantsNoEntryAfterTwoToThe31st/*
  */TicketSpinlock.NonReentrantOperationsLeaveTheCountUnchanged/*
  */WordSpinlock.ASurplusReleaseDoesNoHarmBeforeTheFirstAcquireEither/*
  */WordSpinlock.NonReentrantAcquireCountsAndNonReentrantReleaseFreesAtAnyCount/*)

# Cases that use a closed handle, or a number that never was one.
set(KIV_NOT_CHECKED_event_test
  CountingEvent.RefusesNullPointersAndBadHandles
  GateEvent.BadHandlesFailWithTheSystemsError
  GateEvent.CloseLeavesTheVariableUnchanged
  StandardEvent.BadHandlesFailWithTheSystemsError
  StandardEvent.WorksWithoutAContext)
set(KIV_NOT_CHECKED_mutex_test
  Mutex.AFailedCloseAlsoSetsTheVariableToNull
  Mutex.BadHandlesFailWithTheSystemsError
  Mutex.CloseSetsTheVariableToNull)
set(KIV_NOT_CHECKED_pipe_test Pipe.CloseKeepsTheHandleVariableAndFailsTheSecondTime)
set(KIV_NOT_CHECKED_semaphore_test
  CountingSemaphore.BadHandlesFailWithTheSystemsError
  CountingSemaphore.CloseLeavesTheVariableUnchanged
  CountingSemaphore.WorksWithoutAContext)
set(KIV_NOT_CHECKED_shared_block_test SharedBlock.IsUnmappedAndClosedWhenFreed)
set(KIV_NOT_CHECKED_thread_test
  Thread.DeleteClosesTheHandleWhileTheThreadRunsOn
  Thread.DeleteOfABadHandleFails
  Thread.JoinWaitsForTheEndAndIgnoresFailures
  Thread.WorksWithoutAContext
  ThreadPriority.FailsOffTheScaleOrOnABadHandle
  ThreadSuspend.AndResumeIgnoreFailures)

# Cases that pin the sizes and places of blocks, totals, or what fits below a limit.
set(KIV_NOT_CHECKED_short_heap_test
  ShortHeap.AFurtherHeapIsInsertedAfterTheCurrentOneAndBecomesCurrent
  ShortHeap.AnOwnerWithoutAHeapCanHaveLargeBlocks
  ShortHeap.LargeBlocksAreLinkedInTheOwnersRing
  ShortHeap.ServesItsOwnerFromItsHeap
  ShortHeap.WarnsWhenItsArenaCrosses90Percent
  ShortHeap.WithTheNoFreeSwitchFreedAndMovedBlocksStayAllocated
  ShortHeap.WithoutMemory*
  ShortHeapRealloc.AtTheLimitLeavesTheBlockUnchanged
  ShortHeapRealloc.BecomesALargeBlockAndBack
  ShortHeapRealloc.MovesToAnotherHeapWhenItsOwnIsFull
  ShortHeapRealloc.StaysInItsHeap*
  ShortHeapRealloc.TakesOverBlocksOfAdMalloc
  ShortHeapRealloc.TakesTheLow32BitsOfALargeBlocksSize
  ShortPool.CountsItsArenas
  ShortPool.WithRoomForOneHeapReleasesTheOtherTwo)

# kiv_leave_out_misuse(TEST): leaves these tests and cases out.
function(kiv_leave_out_misuse name)
  if(name IN_LIST KIV_NOT_CHECKED)
    set_tests_properties(${name} PROPERTIES DISABLED ON)
  elseif(KIV_NOT_CHECKED_${name})
    list(JOIN KIV_NOT_CHECKED_${name} ":" cases)
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "GTEST_FILTER=-${cases}")
  endif()
endfunction()
