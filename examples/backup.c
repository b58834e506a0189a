/* Backup: copy a file while a thread goes on writing to it.
 *
 * The writer moves money between two accounts. Its two writes belong together and share one lease.
 * The backup pauses writes, copies the file, and lifts the pause. The sum in the copy is right. */
#include <stdio.h>
#include <stdlib.h>

#include "kivsdu/kivsdu.h"

/* Flags of the C runtime: read and write, create, truncate, binary; permissions: read and write. */
enum {
  kOpenFlags = KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY,
  kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE
};
enum { kMoney = 1000000, kPauseSeconds = 30, kMaySleep = 1, kSlot = 0 };

static KivSdWritePause writePause; /* one for the process, initially zero */
static KivHandle moved;            /* signalled after each transfer */
static uint32_t file;
static int32_t stop;

static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "backup: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

/* A disk that becomes full takes a part of a write. */
static void CheckWhole(uint32_t count, uint32_t length, const char* action) {
  Check(count == length ? KIV_ST_OK : KIV_ST_DISK_FULL, action);
}

static uint32_t MoveMoney(void* argument) {
  KivSdWriteLease lease = {.pause = &writePause}; /* one for each thread */
  uint32_t written;
  (void)argument;
  for (int32_t b = 1; b <= kMoney && KivSdAtomicAdd(&stop, 0) == 0; b++) {
    const int32_t a = kMoney - b;
    Check(KivSdGetWriteIOLease(&lease), "take a lease"); /* waits while writes are paused */
    Check(KivSdFilePWrite(KIV_NULL, file, &a, 0, 4, &written, KIV_NULL), "write account a");
    CheckWhole(written, 4, "write all of account a");
    Check(KivSdFilePWrite(KIV_NULL, file, &b, 4, 4, &written, KIV_NULL), "write account b");
    CheckWhole(written, 4, "write all of account b");
    Check(KivSdStdEventSet(KIV_NULL, &moved), "signal a transfer");
    Check(KivSdReleaseWriteIOLease(&lease), "give the lease back");
  }
  return KivRWLockFreeQNodes(&lease.locks);
}

static void Copy(void) {
  int32_t accounts[2] = {0};
  uint32_t copy, count;
  Check(KivSdFileOpen(KIV_NULL, "example-accounts.bak", kOpenFlags, kPermissions, &copy),
        "make the copy");
  Check(KivSdFilePRead(KIV_NULL, file, accounts, 0, sizeof(accounts), &count), "read");
  Check(count == sizeof(accounts) ? KIV_ST_OK : KIV_ST_FILE_READ, "read both accounts");
  Check(KivSdFileWrite(KIV_NULL, copy, accounts, sizeof(accounts), &count), "write the copy");
  CheckWhole(count, sizeof(accounts), "write all of the copy");
  Check(KivSdFileFlush(KIV_NULL, copy), "flush the copy");
  Check(KivSdFileClose(KIV_NULL, copy), "close the copy");
  printf("copied %d + %d = %d\n", accounts[0], accounts[1], accounts[0] + accounts[1]);
}

int main(void) {
  KivSdWriteLease lease = {.pause = &writePause};
  const int32_t accounts[2] = {kMoney, 0};
  KivHandle *gates[] = {&writePause.drained, &writePause.resume}, writer;
  uint32_t id, count;
  for (int i = 0; i < 2; i++) Check(KivSdEventCreate(KIV_NULL, gates[i]), "make an event");
  Check(KivSdStdEventCreate(KIV_NULL, &moved), "make an event");
  Check(KivRWLockInit(KIV_NULL, 0, &writePause.lock, kMaySleep, kSlot), "make a lock");
  Check(KivSdFileOpen(KIV_NULL, "example-accounts.dat", kOpenFlags, kPermissions, &file), "open");
  /* For a single write: takes a lease, writes, and releases the lease. */
  Check(KivSdLeasedFileWrite(&lease, file, accounts, sizeof(accounts), &count), "fill the file");
  Check(KivSdThreadCreate(KIV_NULL, MoveMoney, 0, 0, KIV_NULL, &id, &writer), "start the writer");
  Check(KivSdStdEventWait(KIV_NULL, &moved), "wait for the first transfer");

  Check(KivSdPauseWriteIO(&lease, kPauseSeconds), "pause writes"); /* waits for all leases */
  Copy();
  /* A pause that has lasted longer than its maximum is over: the file may have changed. */
  Check(writePause.paused == 1 ? KIV_ST_OK : KIV_ST_WRITE_PAUSE, "copy within the pause's maximum");
  Check(KivSdStdEventReset(KIV_NULL, &moved), "forget earlier transfers");
  Check(KivSdUnpauseWriteIO(&lease), "lift the pause");
  Check(KivSdStdEventWait(KIV_NULL, &moved), "wait for the next transfer");
  printf("the writer goes on\n");
  KivSdAtomicAdd(&stop, 1);
  Check(KivSdThreadJoin(KIV_NULL, &writer), "wait for the writer's end");
  Check(KivSdThreadDelete(KIV_NULL, &writer), "close the thread's handle");
  for (int i = 0; i < 2; i++) Check(KivSdEventClose(KIV_NULL, gates[i]), "close an event");
  Check(KivSdStdEventClose(KIV_NULL, &moved), "close an event");
  Check(KivSdFileClose(KIV_NULL, file), "close the file");
  return KivRWLockFreeQNodes(&lease.locks) == KIV_ST_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
