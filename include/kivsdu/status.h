/* All statuses of the library.
 *
 * A status is a 32-bit unsigned number. 0 is success; a failure is 1130000 + 100 * area + detail.
 * Every operation that takes a context stores its status and the OS error there; context.h explains
 * the OS error.
 *
 * "Could not" means that a call to the operating system or the C runtime failed; the OS error is
 * the reason. */
#ifndef KIVSDU_STATUS_H
#define KIVSDU_STATUS_H

/* Success. */
#define KIV_ST_OK 0u

/* ---- General ---- */

/* The operation is not supported on this platform. */
#define KIV_ST_NOT_SUPPORTED 1130000u

/* An argument is invalid: a required pointer is null, a size or count is 0, an index is out of
 * range, or a name is missing. */
#define KIV_ST_ARGUMENT 1130001u

/* The login user's name could not be obtained. */
#define KIV_ST_LOGIN_USER 1130002u

/* ---- Memory ---- */

/* An allocation failed. */
#define KIV_ST_OUT_OF_MEMORY 1130203u

/* Locked pages could not be committed. */
#define KIV_ST_PAGE_COMMIT 1130206u

/* Pages could not be locked in memory. */
#define KIV_ST_PAGE_LOCK 1130207u

/* Pages could not be unlocked. */
#define KIV_ST_PAGE_UNLOCK 1130208u

/* Locked pages could not be released. */
#define KIV_ST_PAGE_RELEASE 1130209u

/* Page-aligned memory could not be committed or accounted. */
#define KIV_ST_ALIGNED_COMMIT 1130210u

/* Page-aligned memory could not be released. */
#define KIV_ST_ALIGNED_RELEASE 1130211u

/* Message: an allocation was refused or failed while a memory limit is set. */
#define KIV_ST_MSG_LIMIT_REFUSED 1130212u

/* Message: accounted memory passed 90% of the limit. */
#define KIV_ST_MSG_LIMIT_NEAR 1130213u

/* Message: a configured limit below 10 MiB was rejected. */
#define KIV_ST_MSG_LIMIT_TOO_LOW 1130214u

/* Message: an allocation failed with no memory limit set. */
#define KIV_ST_MSG_NO_MEMORY 1130215u

/* ---- Threads and processes ---- */

/* The thread could not be created. */
#define KIV_ST_THREAD_CREATE 1130300u

/* The thread handle could not be closed. */
#define KIV_ST_THREAD_DELETE 1130301u

/* The thread's handle could not be obtained. */
#define KIV_ST_THREAD_HANDLE 1130305u

/* The thread's priority could not be read. */
#define KIV_ST_THREAD_PRIORITY_GET 1130306u

/* The thread's priority could not be set. */
#define KIV_ST_THREAD_PRIORITY_SET 1130307u

/* The process could not be ended. */
#define KIV_ST_PROCESS_DELETE 1130309u

/* The process has ended, or the test failed. */
#define KIV_ST_PROCESS_ALIVE 1130311u

/* The process's priority could not be read. */
#define KIV_ST_PROCESS_PRIORITY_GET 1130312u

/* The process's priority could not be set. */
#define KIV_ST_PROCESS_PRIORITY_SET 1130313u

/* ---- Semaphores, mutexes, events ---- */

/* The semaphore or semaphore set could not be created. */
#define KIV_ST_SEM_CREATE 1130400u

/* The semaphore could not be opened. */
#define KIV_ST_SEM_OPEN 1130401u

/* The semaphore could not be closed. */
#define KIV_ST_SEM_CLOSE 1130402u

/* The semaphore request failed. */
#define KIV_ST_SEM_REQUEST 1130403u

/* The semaphore request timed out. */
#define KIV_ST_SEM_TIMEOUT 1130404u

/* The semaphore could not be released. */
#define KIV_ST_SEM_CLEAR 1130405u

/* The mutex could not be created. */
#define KIV_ST_MUTEX_CREATE 1130406u

/* The mutex could not be opened. */
#define KIV_ST_MUTEX_OPEN 1130407u

/* The mutex could not be closed. */
#define KIV_ST_MUTEX_CLOSE 1130408u

/* The mutex request timed out. */
#define KIV_ST_MUTEX_TIMEOUT 1130409u

/* The mutex request failed, or a reader requested a reader-writer lock for writing. */
#define KIV_ST_MUTEX_REQUEST 1130410u

/* The mutex, or the reader-writer lock, could not be released. */
#define KIV_ST_MUTEX_CLEAR 1130411u

/* The event could not be created. */
#define KIV_ST_EVENT_CREATE 1130412u

/* The event could not be closed. */
#define KIV_ST_EVENT_CLOSE 1130414u

/* The gate event could not be set, or the standard event could not be reset. */
#define KIV_ST_EVENT_SET 1130415u

/* The event wait timed out. */
#define KIV_ST_EVENT_TIMEOUT 1130416u

/* The event wait, or the direct I/O wait, failed. */
#define KIV_ST_EVENT_WAIT 1130417u

/* The gate event could not be cleared, or the standard event could not be set. */
#define KIV_ST_EVENT_CLEAR 1130418u

/* The completion event of direct I/O could not be reset. */
#define KIV_ST_COMPLETION_RESET 1130422u

/* Releasing the semaphore would exceed its maximum count. */
#define KIV_ST_SEM_OVERFLOW 1130423u

/* ---- Shared memory and pipes ---- */

/* The named shared memory block could not be created or mapped. */
#define KIV_ST_SHARED_MEM_ALLOC 1130500u

/* The named shared memory block could not be unmapped or closed. */
#define KIV_ST_SHARED_MEM_FREE 1130501u

/* The named pipe could not be created. */
#define KIV_ST_PIPE_CREATE_NAMED 1130502u

/* The named pipe could not be opened. */
#define KIV_ST_PIPE_OPEN 1130503u

/* The named pipe was not connected, or was connected during the call (OS error 0). */
#define KIV_ST_PIPE_CONNECT 1130504u

/* The named pipe could not be disconnected. */
#define KIV_ST_PIPE_DISCONNECT 1130505u

/* The named pipe could not be peeked. */
#define KIV_ST_PIPE_PEEK 1130506u

/* Waiting for the named pipe failed. */
#define KIV_ST_PIPE_WAIT 1130507u

/* The anonymous pipe could not be created. */
#define KIV_ST_PIPE_CREATE 1130508u

/* The pipe could not be closed. */
#define KIV_ST_PIPE_CLOSE 1130509u

/* The pipe is being closed (OS error 232); the read returned no bytes. */
#define KIV_ST_PIPE_CLOSED 1130510u

/* The pipe could not be read for any other reason. */
#define KIV_ST_PIPE_READ 1130511u

/* The pipe could not be written. */
#define KIV_ST_PIPE_WRITE 1130512u

/* ---- Files and directories ---- */

/* The file search could not be started. */
#define KIV_ST_FIND_START 1130600u

/* The file search ended: no more files (OS error 18). */
#define KIV_ST_FIND_END 1130601u

/* The file search could not continue. */
#define KIV_ST_FIND_NEXT 1130602u

/* The file search could not be closed. */
#define KIV_ST_FIND_CLOSE 1130603u

/* The directory could not be created. */
#define KIV_ST_DIR_CREATE 1130604u

/* The directory could not be removed. */
#define KIV_ST_DIR_REMOVE 1130605u

/* The temporary file name could not be made. */
#define KIV_ST_FILE_TEMP_NAME 1130606u

/* The file could not be removed. */
#define KIV_ST_FILE_REMOVE 1130607u

/* The file, link or direct I/O file could not be created. */
#define KIV_ST_FILE_CREATE 1130608u

/* The file could not be opened. */
#define KIV_ST_FILE_OPEN 1130610u

/* The share-mode open failed for a reason other than a sharing violation. */
#define KIV_ST_FILE_SHARE_OPEN 1130611u

/* The file could not be closed. */
#define KIV_ST_FILE_CLOSE 1130612u

/* The file could not be read. */
#define KIV_ST_FILE_READ 1130613u

/* The file could not be written. */
#define KIV_ST_FILE_WRITE 1130614u

/* The file position could not be set. */
#define KIV_ST_FILE_SEEK 1130615u

/* The file position could not be read. */
#define KIV_ST_FILE_TELL 1130616u

/* The file length could not be read, or the canonical path does not fit. */
#define KIV_ST_FILE_LENGTH 1130617u

/* The end of the file was reached. */
#define KIV_ST_FILE_END 1130619u

/* The line could not be read. */
#define KIV_ST_FILE_GETS 1130620u

/* The file could not be flushed. */
#define KIV_ST_FILE_FLUSH 1130622u

/* The disk is full. */
#define KIV_ST_DISK_FULL 1130625u

/* The direct I/O read could not be started. */
#define KIV_ST_DIRECT_READ 1130628u

/* The direct I/O write could not be started. */
#define KIV_ST_DIRECT_WRITE 1130629u

/* The end of the file could not be set. */
#define KIV_ST_DIRECT_SET_END 1130630u

/* The direct I/O transfer did not complete. */
#define KIV_ST_DIRECT_COMPLETION 1130633u

/* The direct I/O file pointer could not be set. */
#define KIV_ST_DIRECT_POINTER_SET 1130634u

/* The direct I/O file pointer could not be read. */
#define KIV_ST_DIRECT_POINTER_GET 1130635u

/* The direct I/O write is in progress (OS error 997), the usual result of a no-wait write. */
#define KIV_ST_DIRECT_WRITE_PENDING 1130637u

/* The direct I/O read is in progress (OS error 997), the usual result of a no-wait read. */
#define KIV_ST_DIRECT_READ_PENDING 1130638u

/* The direct I/O wait was abandoned. */
#define KIV_ST_DIRECT_WAIT_ABANDONED 1130639u

/* The working directory could not be changed. */
#define KIV_ST_DIR_CHANGE 1130643u

/* The working directory could not be changed because it does not exist (errno 2). */
#define KIV_ST_DIR_MISSING 1130644u

/* Sharing violation: the file is open elsewhere. The OS error is 32 after a direct open, and 13
 * after a share-mode open, which reports errno; on Linux it is 16 after both. */
#define KIV_ST_FILE_SHARING 1130646u

/* No more files. KivSdFileFind accepts this status as the end of a search; no operation returns
 * it. */
#define KIV_ST_FIND_NO_MORE 1130647u

/* Write I/O could not be paused. */
#define KIV_ST_WRITE_PAUSE 1130648u

/* ---- Time ---- */

/* The processor clock could not be read. */
#define KIV_ST_CLOCK 1130700u

/* The local time could not be obtained. */
#define KIV_ST_LOCAL_TIME 1130702u

/* The time string could not be made. */
#define KIV_ST_TIME_STRING 1130703u

/* The time could not be formatted. */
#define KIV_ST_TIME_FORMAT 1130704u

/* The fast timer could not be read. */
#define KIV_ST_FAST_TIMER 1130707u

/* ---- Console ---- */

/* The console could not be initialised. */
#define KIV_ST_CONSOLE_INIT 1130800u

/* The console could not be written. */
#define KIV_ST_CONSOLE_WRITE 1130801u

/* The console key could not be tested. */
#define KIV_ST_CONSOLE_KEY 1130802u

/* ---- Modules ---- */

/* The module could not be loaded. */
#define KIV_ST_MODULE_LOAD 1130900u

/* The module could not be unloaded. */
#define KIV_ST_MODULE_UNLOAD 1130901u

/* The procedure's address could not be found. */
#define KIV_ST_MODULE_PROCEDURE 1130902u

/* ---- System information ---- */

/* The OS resources could not be read: the buffer is too small. */
#define KIV_ST_OS_RESOURCES 1131001u

/* The available virtual memory could not be read. */
#define KIV_ST_AVAIL_VIRT_MEM 1131004u

/* The drive has no root directory. */
#define KIV_ST_DRIVE_INFO 1131006u

/* The drive list could not be read. */
#define KIV_ST_DRIVES 1131008u

/* The system directory could not be determined. */
#define KIV_ST_HOME_PATH 1131011u

/* The working-set size could not be set. */
#define KIV_ST_WORKING_SET_SET 1131013u

/* The working-set size could not be read. */
#define KIV_ST_WORKING_SET_GET 1131014u

/* The working-set size could not be set: a privilege is missing (OS error 1313 or 1314). */
#define KIV_ST_WORKING_SET_PRIVILEGE 1131015u

/* The working-set quota was exhausted while locking pages (OS error 1453). */
#define KIV_ST_WORKING_SET_QUOTA 1131016u

/* ---- Shared memory segments ---- */

/* The segment's name has 260 characters or more, or its kind is neither 0 nor 1. */
#define KIV_ST_SEGMENT_NAME 1131100u

/* The chunk that was returned had not been taken. */
#define KIV_ST_CHUNK_NOT_TAKEN 1131101u

/* ---- Per-thread storage ---- */

/* The per-thread slot could not be allocated, or its value could not be set. */
#define KIV_ST_THREAD_SLOT 1131200u

/* ---- Segment messages ---- */

/* The code could not be read: the chunk is blocked for reading. */
#define KIV_ST_CHUNK_CODE 1131917u

#endif
