/* All statuses of the library.
 *
 * A status is a 32-bit unsigned number. 0 is success; a failure is 1130000 + 100 * area + detail.
 * Every operation that takes a context stores its status and the OS error there; context.h explains
 * the OS error.
 *
 * "Could not" means that a call to the operating system or the C runtime failed; the OS error is
 * the reason. "To do" advises a person who meets the status. status_text.h returns both texts. */
#ifndef KIVSDU_STATUS_H
#define KIVSDU_STATUS_H

/* Success.
 * To do: Nothing. The outputs are valid. */
#define KIV_ST_OK 0u

/* ---- General ---- */

/* The operation is not supported on this platform.
 * To do: Do not call the operation on this platform; use the alternative that its header names, if
 * it names one. */
#define KIV_ST_NOT_SUPPORTED 1130000u

/* An argument is invalid: a required pointer is null, a size or count is 0, an index is out of
 * range, or a name is missing.
 * To do: Compare each argument with the operation's header. The OS error is 0, because no system
 * call was made. */
#define KIV_ST_ARGUMENT 1130001u

/* The login user's name could not be obtained.
 * To do: Run the process as a user that the system knows. On Linux the user needs an entry in the
 * password database. */
#define KIV_ST_LOGIN_USER 1130002u

/* ---- Memory ---- */

/* An allocation failed.
 * To do: Free memory, raise "memorylimit" in config.mem, or give the machine more memory. If a
 * limit is set, compare adMemGetUsedMemory with it. */
#define KIV_ST_OUT_OF_MEMORY 1130203u

/* Locked pages could not be committed.
 * To do: Request fewer pages, free memory, or enlarge the paging space. */
#define KIV_ST_PAGE_COMMIT 1130206u

/* Pages could not be locked in memory.
 * To do: Lock fewer pages, or raise the limit on locked memory: the working set on Windows,
 * RLIMIT_MEMLOCK on Linux. */
#define KIV_ST_PAGE_LOCK 1130207u

/* Pages could not be unlocked.
 * To do: Pass the address and page count of an earlier lock, and unlock each page only once. */
#define KIV_ST_PAGE_UNLOCK 1130208u

/* Locked pages could not be released.
 * To do: Pass the address that the allocation returned, and free each block only once. */
#define KIV_ST_PAGE_RELEASE 1130209u

/* Page-aligned memory could not be committed or accounted.
 * To do: Request fewer pages, free memory, or enlarge the paging space. For a host region, raise
 * "memorylimit" in config.mem. */
#define KIV_ST_ALIGNED_COMMIT 1130210u

/* Page-aligned memory could not be released.
 * To do: Pass the address that the allocation returned, and free each block only once. */
#define KIV_ST_ALIGNED_RELEASE 1130211u

/* Message: an allocation was refused or failed while a memory limit is set.
 * To do: Free memory, or raise "memorylimit" in config.mem. The refused request returned
 * KIV_ST_OUT_OF_MEMORY. */
#define KIV_ST_MSG_LIMIT_REFUSED 1130212u

/* Message: accounted memory passed 90% of the limit.
 * To do: Release caches before requests fail, or raise "memorylimit" in config.mem. */
#define KIV_ST_MSG_LIMIT_NEAR 1130213u

/* Message: a configured limit below 10 MiB was rejected.
 * To do: Set "memorylimit" in config.mem to 10M or more, or remove it. Until then no limit and no
 * thread heaps are in use. */
#define KIV_ST_MSG_LIMIT_TOO_LOW 1130214u

/* Message: an allocation failed with no memory limit set.
 * To do: Free memory, give the machine more memory, or enlarge the paging space. */
#define KIV_ST_MSG_NO_MEMORY 1130215u

/* ---- Threads and processes ---- */

/* The thread could not be created.
 * To do: Start fewer threads, request smaller stacks, or raise the system's limit on threads. */
#define KIV_ST_THREAD_CREATE 1130300u

/* The thread handle could not be closed.
 * To do: Pass a handle of KivSdThreadCreate or KivSdThreadHandleGet, and close it only once. */
#define KIV_ST_THREAD_DELETE 1130301u

/* The thread's handle could not be obtained.
 * To do: Close handles that are no longer needed; the system has no more. */
#define KIV_ST_THREAD_HANDLE 1130305u

/* The thread's priority could not be read.
 * To do: Check that the handle is still open. */
#define KIV_ST_THREAD_PRIORITY_GET 1130306u

/* The thread's priority could not be set.
 * To do: Check that the handle is open and the priority is one of the system's. A higher priority
 * can need a privilege. */
#define KIV_ST_THREAD_PRIORITY_SET 1130307u

/* The process could not be ended.
 * To do: Check that the process still runs and belongs to the calling user; another user's process
 * needs a privilege. */
#define KIV_ST_PROCESS_DELETE 1130309u

/* The process has ended, or the test failed.
 * To do: If the OS error is 0, treat the process as ended. Otherwise check the handle and the right
 * to query the process. */
#define KIV_ST_PROCESS_ALIVE 1130311u

/* The process's priority could not be read.
 * To do: Check that the handle is open and that the process may be queried. */
#define KIV_ST_PROCESS_PRIORITY_GET 1130312u

/* The process's priority could not be set.
 * To do: Check the handle and the priority class. A higher class can need a privilege. */
#define KIV_ST_PROCESS_PRIORITY_SET 1130313u

/* ---- Semaphores, mutexes, events ---- */

/* The semaphore or semaphore set could not be created.
 * To do: Check that the count does not exceed the maximum, and that no object of another kind has
 * the name. */
#define KIV_ST_SEM_CREATE 1130400u

/* The semaphore could not be opened.
 * To do: Create the semaphore before other processes open it, and check the name and the user's
 * access. */
#define KIV_ST_SEM_OPEN 1130401u

/* The semaphore could not be closed.
 * To do: Close each handle only once, and never use it afterwards. */
#define KIV_ST_SEM_CLOSE 1130402u

/* The semaphore request failed.
 * To do: Check that the handle is open and is a semaphore's. */
#define KIV_ST_SEM_REQUEST 1130403u

/* The semaphore request timed out.
 * To do: Retry, or wait longer. If it persists, look for a thread or a process that ended without
 * releasing the semaphore. */
#define KIV_ST_SEM_TIMEOUT 1130404u

/* The semaphore could not be released.
 * To do: Check that the handle is open and is a semaphore's. */
#define KIV_ST_SEM_CLEAR 1130405u

/* The mutex could not be created.
 * To do: Check that no object of another kind has the name, and that the user may access an
 * existing mutex. */
#define KIV_ST_MUTEX_CREATE 1130406u

/* The mutex could not be opened.
 * To do: Create the mutex before other processes open it, and check the name and the user's
 * access. */
#define KIV_ST_MUTEX_OPEN 1130407u

/* The mutex could not be closed.
 * To do: Close each handle only once, and never use it afterwards. */
#define KIV_ST_MUTEX_CLOSE 1130408u

/* The mutex request timed out.
 * To do: Retry, or wait longer. If it persists, look for an owner that waits for the caller. */
#define KIV_ST_MUTEX_TIMEOUT 1130409u

/* The mutex request failed, or a reader requested a reader-writer lock for writing.
 * To do: If the last owner ended without releasing the mutex, the caller owns it: repair the
 * protected data, then release it. For a reader-writer lock, end the read before starting the
 * write. */
#define KIV_ST_MUTEX_REQUEST 1130410u

/* The mutex, or the reader-writer lock, could not be released.
 * To do: Release the lock only in the thread that owns it, and as often as that thread took it. */
#define KIV_ST_MUTEX_CLEAR 1130411u

/* The event could not be created.
 * To do: Close handles that are no longer needed; the system has no more. */
#define KIV_ST_EVENT_CREATE 1130412u

/* The event could not be closed.
 * To do: Close each handle only once, and never use it afterwards. */
#define KIV_ST_EVENT_CLOSE 1130414u

/* The gate event could not be set, or the standard event could not be reset.
 * To do: Check that the handle is open and is an event's. */
#define KIV_ST_EVENT_SET 1130415u

/* The event wait timed out.
 * To do: Retry, or wait longer. If it persists, check that some thread still signals the event. */
#define KIV_ST_EVENT_TIMEOUT 1130416u

/* The event wait, or the direct I/O wait, failed.
 * To do: Check that the handle is open and is an event's. For direct I/O, wait only after a
 * transfer that was started with the record. */
#define KIV_ST_EVENT_WAIT 1130417u

/* The gate event could not be cleared, or the standard event could not be set.
 * To do: Check that the handle is open and is an event's. */
#define KIV_ST_EVENT_CLEAR 1130418u

/* The completion event of direct I/O could not be reset.
 * To do: Do not use the record again; close its event and prepare the record anew. The transfer
 * itself is collected. */
#define KIV_ST_COMPLETION_RESET 1130422u

/* Releasing the semaphore would exceed its maximum count.
 * To do: Release the semaphore only as often as it was taken, or create it with a larger
 * maximum. */
#define KIV_ST_SEM_OVERFLOW 1130423u

/* ---- Shared memory and pipes ---- */

/* The named shared memory block could not be created or mapped.
 * To do: If the OS error says that the name is missing, create the block first. Otherwise check the
 * size, the flags, the user's access and the free memory. */
#define KIV_ST_SHARED_MEM_ALLOC 1130500u

/* The named shared memory block could not be unmapped or closed.
 * To do: Pass the handle and the view of one KivSdSharedMemAlloc, and free them only once. For a
 * segment, store the view with KivSetSharedMemSegBuffer first. */
#define KIV_ST_SHARED_MEM_FREE 1130501u

/* The named pipe could not be created.
 * To do: Check the name, and whether other instances of the pipe have the same settings and are not
 * at their maximum. */
#define KIV_ST_PIPE_CREATE_NAMED 1130502u

/* The named pipe could not be opened.
 * To do: Start the server first. If all instances are busy, wait with KivSdNamedPipeWaitInstance
 * and retry. Check the user's access. */
#define KIV_ST_PIPE_OPEN 1130503u

/* The named pipe was not connected, or was connected during the call (OS error 0).
 * To do: If the OS error is 0, continue: the client is connected. Otherwise close the instance and
 * create another one. */
#define KIV_ST_PIPE_CONNECT 1130504u

/* The named pipe could not be disconnected.
 * To do: Pass the server's end of a pipe that is still open. */
#define KIV_ST_PIPE_DISCONNECT 1130505u

/* The named pipe could not be peeked.
 * To do: Treat the peer as gone if the OS error says that the pipe is broken; otherwise check the
 * handle. */
#define KIV_ST_PIPE_PEEK 1130506u

/* Waiting for the named pipe failed.
 * To do: If the wait timed out, wait longer or let the server create more instances. If there is no
 * such pipe, start the server. */
#define KIV_ST_PIPE_WAIT 1130507u

/* The anonymous pipe could not be created.
 * To do: Close handles that are no longer needed; the system has no more. */
#define KIV_ST_PIPE_CREATE 1130508u

/* The pipe could not be closed.
 * To do: Close each handle only once, and never use it afterwards. */
#define KIV_ST_PIPE_CLOSE 1130509u

/* The read returned no bytes: the pipe is being closed (OS error 232), or it is in no-wait mode and
 * empty (on Linux with ENODATA).
 * To do: In no-wait mode, read again later. Otherwise close this end; the peer sends nothing
 * more. */
#define KIV_ST_PIPE_CLOSED 1130510u

/* The pipe could not be read for any other reason.
 * To do: Treat the peer as gone if the OS error says that the pipe is broken; otherwise check the
 * handle and its direction. */
#define KIV_ST_PIPE_READ 1130511u

/* The pipe could not be written.
 * To do: Treat the peer as gone if the OS error says that the pipe is broken or has no reader;
 * otherwise check the handle and its direction. */
#define KIV_ST_PIPE_WRITE 1130512u

/* ---- Files and directories ---- */

/* The file search could not be started.
 * To do: If the OS error says that nothing was found, there is no such file. Otherwise check the
 * path and the user's access. */
#define KIV_ST_FIND_START 1130600u

/* The file search ended: no more files (OS error 18).
 * To do: Close the search; this is its usual end. */
#define KIV_ST_FIND_END 1130601u

/* The file search could not continue.
 * To do: Close the search and start it again. If it persists, check the disk or the network
 * share. */
#define KIV_ST_FIND_NEXT 1130602u

/* The file search could not be closed.
 * To do: Close each search only once. */
#define KIV_ST_FIND_CLOSE 1130603u

/* The directory could not be created.
 * To do: Check that the parent exists, that nothing has the name already, and that the user may
 * write there. */
#define KIV_ST_DIR_CREATE 1130604u

/* The directory could not be removed.
 * To do: Empty the directory, leave it in every process, and check the user's access. */
#define KIV_ST_DIR_REMOVE 1130605u

/* The temporary file name could not be made.
 * To do: Remove old temporary files, and check the directory for temporary files. */
#define KIV_ST_FILE_TEMP_NAME 1130606u

/* The file could not be removed.
 * To do: Check that the file exists, that no process has it open, and that the user may remove
 * it. */
#define KIV_ST_FILE_REMOVE 1130607u

/* The file, link or direct I/O file could not be created.
 * To do: Check that the directory exists, that the user may write there, and that no process holds
 * a file of this name. */
#define KIV_ST_FILE_CREATE 1130608u

/* The file could not be opened.
 * To do: Read the errno: 2 no such file, 13 no access, 17 exists already, 24 too many open
 * files. */
#define KIV_ST_FILE_OPEN 1130610u

/* The share-mode open failed for a reason other than a sharing violation.
 * To do: Read the errno: 2 no such file, 13 no access, 17 exists already, 24 too many open
 * files. */
#define KIV_ST_FILE_SHARE_OPEN 1130611u

/* The file could not be closed.
 * To do: Close each descriptor only once. After another error, data can be missing: check the
 * disk. */
#define KIV_ST_FILE_CLOSE 1130612u

/* The file could not be read.
 * To do: Check that the descriptor is open for reading. After an I/O error, check the disk or the
 * network share. */
#define KIV_ST_FILE_READ 1130613u

/* The file could not be written.
 * To do: Check that the descriptor is open for writing. After an I/O error, check the disk or the
 * network share. */
#define KIV_ST_FILE_WRITE 1130614u

/* The file position could not be set.
 * To do: Check the descriptor, the origin, and that the position is not negative. Pipes and
 * consoles have no position. */
#define KIV_ST_FILE_SEEK 1130615u

/* The file position could not be read.
 * To do: Check the descriptor. Pipes and consoles have no position. */
#define KIV_ST_FILE_TELL 1130616u

/* The file length could not be read, or the canonical path does not fit.
 * To do: Check the descriptor or the path. For a canonical path, pass a larger buffer. */
#define KIV_ST_FILE_LENGTH 1130617u

/* The end of the file was reached.
 * To do: Nothing: use the data that was returned, which can be less than requested. */
#define KIV_ST_FILE_END 1130619u

/* The line could not be read.
 * To do: Check that the descriptor is open for reading. After an I/O error, check the disk or the
 * network share. */
#define KIV_ST_FILE_GETS 1130620u

/* The file could not be flushed.
 * To do: Do not count the data as saved: check the descriptor and the disk, then write the data
 * again. */
#define KIV_ST_FILE_FLUSH 1130622u

/* The disk is full.
 * To do: Free space on the volume or raise the user's quota, then repeat the write from its
 * start. */
#define KIV_ST_DISK_FULL 1130625u

/* The direct I/O read could not be started.
 * To do: Check that buffer, offset and length are multiples of the sector size, and that the file
 * is open for reading. */
#define KIV_ST_DIRECT_READ 1130628u

/* The direct I/O write could not be started.
 * To do: Check that buffer, offset and length are multiples of the sector size, and that the file
 * is open for writing. */
#define KIV_ST_DIRECT_WRITE 1130629u

/* The end of the file could not be set.
 * To do: Check that the file is open for writing, that no process maps it, and that the volume has
 * space. */
#define KIV_ST_DIRECT_SET_END 1130630u

/* The direct I/O transfer did not complete.
 * To do: Do not use the data. Check the disk or the network share, then repeat the transfer. */
#define KIV_ST_DIRECT_COMPLETION 1130633u

/* The direct I/O file pointer could not be set.
 * To do: Check the handle and the position. */
#define KIV_ST_DIRECT_POINTER_SET 1130634u

/* The direct I/O file pointer could not be read.
 * To do: Check the handle. */
#define KIV_ST_DIRECT_POINTER_GET 1130635u

/* The direct I/O write is in progress (OS error 997), the usual result of a no-wait write.
 * To do: Keep the buffer and the record unchanged, and collect the transfer with
 * KivSdDirectIOWait. */
#define KIV_ST_DIRECT_WRITE_PENDING 1130637u

/* The direct I/O read is in progress (OS error 997), the usual result of a no-wait read.
 * To do: Keep the buffer and the record unchanged, and collect the transfer with
 * KivSdDirectIOWait. */
#define KIV_ST_DIRECT_READ_PENDING 1130638u

/* The direct I/O wait was abandoned.
 * To do: Treat the transfer as lost, and prepare the record anew before its next use. */
#define KIV_ST_DIRECT_WAIT_ABANDONED 1130639u

/* The working directory could not be changed.
 * To do: Check that the path is a directory and that the user may enter it. */
#define KIV_ST_DIR_CHANGE 1130643u

/* The working directory could not be changed because it does not exist (errno 2).
 * To do: Create the directory first, or correct the path. */
#define KIV_ST_DIR_MISSING 1130644u

/* Sharing violation: the file is open elsewhere (OS error 32).
 * To do: Retry later, or close the file in the other process. The share mode of both opens
 * decides. */
#define KIV_ST_FILE_SHARING 1130646u

/* No more files. KivSdFileFind accepts this status as the end of a search; no operation returns it.
 * To do: Treat it like KIV_ST_FIND_END. */
#define KIV_ST_FIND_NO_MORE 1130647u

/* Write I/O could not be paused.
 * To do: Wait until the present pause is lifted, then retry. Allow only one pauser at a time. */
#define KIV_ST_WRITE_PAUSE 1130648u

/* ---- Time ---- */

/* The processor clock could not be read.
 * To do: Report the OS error: the system's clock does not answer. */
#define KIV_ST_CLOCK 1130700u

/* The local time could not be obtained.
 * To do: Pass a time from 1970 to 3000. */
#define KIV_ST_LOCAL_TIME 1130702u

/* The time string could not be made.
 * To do: Pass a local time whose fields are all in range, as KivSdLocalTimeGet fills them. */
#define KIV_ST_TIME_STRING 1130703u

/* The time could not be formatted.
 * To do: Pass a time from 1970 to 3000. */
#define KIV_ST_TIME_FORMAT 1130704u

/* The fast timer could not be read.
 * To do: Use another clock of time.h: the system has no performance counter. */
#define KIV_ST_FAST_TIMER 1130707u

/* ---- Console ---- */

/* The console could not be initialised.
 * To do: Start the program on a console or a terminal. */
#define KIV_ST_CONSOLE_INIT 1130800u

/* The console could not be written.
 * To do: Check that standard output is open, and that its reader still runs. */
#define KIV_ST_CONSOLE_WRITE 1130801u

/* The console key could not be tested.
 * To do: Start the program on a console or a terminal. */
#define KIV_ST_CONSOLE_KEY 1130802u

/* ---- Modules ---- */

/* The module could not be loaded.
 * To do: Read KivSdModuleGetErrorMessage. Check the path, the modules that this one needs, and that
 * it is built for 64 bits. */
#define KIV_ST_MODULE_LOAD 1130900u

/* The module could not be unloaded.
 * To do: Pass a handle of KivSdModuleLoad, and unload it only once. */
#define KIV_ST_MODULE_UNLOAD 1130901u

/* The procedure's address could not be found.
 * To do: Check the spelling of the name, and that the module exports it undecorated. */
#define KIV_ST_MODULE_PROCEDURE 1130902u

/* ---- System information ---- */

/* The OS resources could not be read: the buffer is too small.
 * To do: Pass a buffer of at least the size that system.h names. */
#define KIV_ST_OS_RESOURCES 1131001u

/* The available virtual memory could not be read.
 * To do: Report the OS error: the system does not say how much memory is available. */
#define KIV_ST_AVAIL_VIRT_MEM 1131004u

/* The drive has no root directory.
 * To do: Insert a medium, or mount the drive. */
#define KIV_ST_DRIVE_INFO 1131006u

/* The drive list could not be read.
 * To do: Report the OS error: the system does not list its drives. */
#define KIV_ST_DRIVES 1131008u

/* The system directory could not be determined.
 * To do: Pass a larger buffer. */
#define KIV_ST_HOME_PATH 1131011u

/* The working-set size could not be set.
 * To do: Check that the minimum does not exceed the maximum, and that both fit into the machine's
 * memory. */
#define KIV_ST_WORKING_SET_SET 1131013u

/* The working-set size could not be read.
 * To do: Check the right to query the process. */
#define KIV_ST_WORKING_SET_GET 1131014u

/* The working-set size could not be set: a privilege is missing (OS error 1313 or 1314).
 * To do: Give the user the privilege to increase the working set, or start the process as another
 * user. */
#define KIV_ST_WORKING_SET_PRIVILEGE 1131015u

/* The working-set quota was exhausted while locking pages (OS error 1453).
 * To do: Enlarge the working set first, or lock fewer pages. */
#define KIV_ST_WORKING_SET_QUOTA 1131016u

/* ---- Shared memory segments ---- */

/* The segment's name has 260 characters or more, or its kind is neither 0 nor 1.
 * To do: Shorten the name, and pass 0 or 1 as the kind. */
#define KIV_ST_SEGMENT_NAME 1131100u

/* The chunk that was returned had not been taken.
 * To do: Return only chunks that this process took, each once. The chunk lock stays taken: set up
 * the segment again. */
#define KIV_ST_CHUNK_NOT_TAKEN 1131101u

/* ---- Per-thread storage ---- */

/* The per-thread slot could not be allocated, or its value could not be set.
 * To do: Call KivSdVorUtilTlsInit once at start-up. If that fails, free per-thread slots: the
 * system has no more. */
#define KIV_ST_THREAD_SLOT 1131200u

/* ---- Segment messages ---- */

/* The code could not be read: the chunk is blocked for reading.
 * To do: Read the chunk's code, then set up the segment again if the peer is gone. */
#define KIV_ST_CHUNK_CODE 1131917u

#endif
