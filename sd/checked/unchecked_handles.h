// The operations under the checks of handles. unchecked_handle_names.h gives them these names.
#ifndef KIV_CHECKED_UNCHECKED_HANDLES_H
#define KIV_CHECKED_UNCHECKED_HANDLES_H

#include "kivsdu/event.h"
#include "kivsdu/mutex.h"
#include "kivsdu/pipe.h"
#include "kivsdu/semaphore.h"
#include "kivsdu/sharedmem.h"
#include "kivsdu/thread.h"

extern "C" {

extern decltype(KivSdEventClose) KivUncheckedEventClose;
extern decltype(KivSdEventSet) KivUncheckedEventSet;
extern decltype(KivSdEventClear) KivUncheckedEventClear;
extern decltype(KivSdEventWait) KivUncheckedEventWait;
extern decltype(KivSdStdEventClose) KivUncheckedStdEventClose;
extern decltype(KivSdStdEventSet) KivUncheckedStdEventSet;
extern decltype(KivSdStdEventReset) KivUncheckedStdEventReset;
extern decltype(KivSdStdEventWait) KivUncheckedStdEventWait;
extern decltype(KivSdStdEventTimedWait) KivUncheckedStdEventTimedWait;
extern decltype(KivSdCntSemClose) KivUncheckedCntSemClose;
extern decltype(KivSdCntSemRequest) KivUncheckedCntSemRequest;
extern decltype(KivSdCntSemClear) KivUncheckedCntSemClear;
extern decltype(KivSdMutexClose) KivUncheckedMutexClose;
extern decltype(KivSdMutexRequest) KivUncheckedMutexRequest;
extern decltype(KivSdMutexClear) KivUncheckedMutexClear;
extern decltype(KivSdThreadDelete) KivUncheckedThreadDelete;
extern decltype(KivSdThreadJoin) KivUncheckedThreadJoin;
extern decltype(KivSdThreadSuspend) KivUncheckedThreadSuspend;
extern decltype(KivSdThreadResume) KivUncheckedThreadResume;
extern decltype(KivSdThreadPriorityGet) KivUncheckedThreadPriorityGet;
extern decltype(KivSdThreadPrioritySet) KivUncheckedThreadPrioritySet;
extern decltype(KivSdPipeClose) KivUncheckedPipeClose;
extern decltype(KivSdPipeRead) KivUncheckedPipeRead;
extern decltype(KivSdPipeWrite) KivUncheckedPipeWrite;
extern decltype(KivSdNamedPipeConnect) KivUncheckedNamedPipeConnect;
extern decltype(KivSdNamedPipeDisconnect) KivUncheckedNamedPipeDisconnect;
extern decltype(KivSdNamedPipePeek) KivUncheckedNamedPipePeek;
extern decltype(KivSdSharedMemFree) KivUncheckedSharedMemFree;

}  // extern "C"

#endif
