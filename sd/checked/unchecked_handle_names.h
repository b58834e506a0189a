// Renames the operations on handles that the checked flavour replaces, as unchecked_names.h does.
#ifndef KIV_CHECKED_UNCHECKED_HANDLE_NAMES_H
#define KIV_CHECKED_UNCHECKED_HANDLE_NAMES_H

// sdsemw32/gate_event.cpp
#define KivSdEventClose KivUncheckedEventClose
#define KivSdEventSet KivUncheckedEventSet
#define KivSdEventClear KivUncheckedEventClear
#define KivSdEventWait KivUncheckedEventWait

// sdsemw32/standard_event.cpp
#define KivSdStdEventClose KivUncheckedStdEventClose
#define KivSdStdEventSet KivUncheckedStdEventSet
#define KivSdStdEventReset KivUncheckedStdEventReset
#define KivSdStdEventWait KivUncheckedStdEventWait
#define KivSdStdEventTimedWait KivUncheckedStdEventTimedWait

// sdsemw32/semaphore.cpp
#define KivSdCntSemClose KivUncheckedCntSemClose
#define KivSdCntSemRequest KivUncheckedCntSemRequest
#define KivSdCntSemClear KivUncheckedCntSemClear

// sdsemw32/mutex.cpp
#define KivSdMutexClose KivUncheckedMutexClose
#define KivSdMutexRequest KivUncheckedMutexRequest
#define KivSdMutexClear KivUncheckedMutexClear

// sdthrw32/thread.cpp, sdthrw32/thread_control.cpp
#define KivSdThreadDelete KivUncheckedThreadDelete
#define KivSdThreadJoin KivUncheckedThreadJoin
#define KivSdThreadSuspend KivUncheckedThreadSuspend
#define KivSdThreadResume KivUncheckedThreadResume
#define KivSdThreadPriorityGet KivUncheckedThreadPriorityGet
#define KivSdThreadPrioritySet KivUncheckedThreadPrioritySet

// sdipcw32/anonymous_pipe.cpp, sdipcw32/named_pipe.cpp
#define KivSdPipeClose KivUncheckedPipeClose
#define KivSdPipeRead KivUncheckedPipeRead
#define KivSdPipeWrite KivUncheckedPipeWrite
#define KivSdNamedPipeConnect KivUncheckedNamedPipeConnect
#define KivSdNamedPipeDisconnect KivUncheckedNamedPipeDisconnect
#define KivSdNamedPipePeek KivUncheckedNamedPipePeek

// sdipcw32/shared_block.cpp
#define KivSdSharedMemFree KivUncheckedSharedMemFree

#endif
