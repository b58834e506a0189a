/* Direct: write two blocks past the system's cache without waiting, do other work, collect the
 * writes, and read them back. Works in the current folder. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kivsdu/kivsdu.h"

enum { kOpenFlags = KIV_FILEO_READ_WRITE | KIV_FILEO_BINARY, kNoPermissions = 0 };
enum { kBlocks = 2, kBlockBytes = KIV_PAGE_UNIT };

static const char kPath[] = "example-blocks.dat";

static void Check(uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "direct: cannot %s: status %u\n", action, status);
  exit(EXIT_FAILURE);
}

/* Starts a write. The block and the record must stay where they are until it is collected. */
static void Start(uint32_t file, uint32_t block, const char* bytes, KivSdNoWaitCb* record) {
  uint32_t written;
  const uint32_t status = KivSdDirectIOFileWrite(KIV_NULL, file, block, bytes, 1, record, &written);
  if (status != KIV_ST_DIRECT_WRITE_PENDING) Check(status, "start a write");
}

static void Collect(uint32_t file, KivSdNoWaitCb* record) {
  uint32_t done;
  Check(KivSdDirectIOWait(KIV_NULL, file, record, &done), "collect a transfer");
  if (done != 1) Check(KIV_ST_DIRECT_COMPLETION, "transfer the whole block");
}

/* Sets the size before the writes, and flushes it: a write inside the size changes no more than the
 * block itself. A direct file has no flush, so that the file is opened a second time. */
static void MakeRoom(void) {
  uint32_t file, newBlocks;
  Check(KivSdDirectIOFileCreate(KIV_NULL, kPath), "create the file");
  Check(KivSdFileOpen(KIV_NULL, kPath, kOpenFlags, kNoPermissions, &file), "open for the size");
  Check(KivSdDirectIOFileChangeSize(KIV_NULL, file, kBlocks, &newBlocks), "set the size");
  Check(KivSdFileFlush(KIV_NULL, file), "flush the size");
  Check(KivSdFileClose(KIV_NULL, file), "close the file");
}

static void ReadBack(uint32_t file, char* bytes, KivSdNoWaitCb* record) {
  uint32_t read;
  const uint32_t status = KivSdDirectIOFileRead(KIV_NULL, file, 1, bytes, 1, record, &read);
  if (status != KIV_ST_DIRECT_READ_PENDING) Check(status, "start a read");
  Collect(file, record);
  printf("block 1 begins with '%c'\n", bytes[0]);
}

int main(void) {
  KivSdNoWaitCb records[kBlocks];
  void* pages;
  uint32_t file;
  memset(records, 0, sizeof(records));
  Check(KivSdAlignedMemAlloc(KIV_NULL, kBlocks, &pages), "allocate pages");
  memset(pages, 'a', kBlockBytes);
  memset((char*)pages + kBlockBytes, 'b', kBlockBytes);
  MakeRoom();
  Check(KivSdDirectIOFileOpen(KIV_NULL, kPath, KIV_ACCESS_READ | KIV_ACCESS_WRITE, KIV_SHARE_NONE,
                              KIV_DISPOSITION_OPEN_ALWAYS, KIV_NULL, KIV_OPEN_OVERLAPPED, &file),
        "open the file");
  Check(KivSdDirectIONoWaitCbsInit(KIV_NULL, records, kBlocks), "make the records' events");
  for (uint32_t i = 0; i < kBlocks; i++) {
    Start(file, i, (const char*)pages + i * kBlockBytes, &records[i]);
  }
  printf("both writes have been started\n");
  for (uint32_t i = 0; i < kBlocks; i++) Collect(file, &records[i]);
  ReadBack(file, pages, &records[0]);
  Check(KivSdDirectIONoWaitCbsTerm(KIV_NULL, records, kBlocks), "close the events");
  Check(KivSdDirectIOFileClose(KIV_NULL, file), "close the file");
  Check(KivSdDirectIOFileRemove(KIV_NULL, kPath), "remove the file");
  return KivSdAlignedMemFree(KIV_NULL, pages) == KIV_ST_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
