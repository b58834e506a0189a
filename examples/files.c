/* Files: write and read lines, check whether a file is in use, search a folder. Works in the
 * current folder. */
#include <stdio.h>
#include <stdlib.h>

#include "kivsdu/kivsdu.h"

static const char kPath[] = "example-journal.txt";

static void Check(const KivSdContext* ctx, uint32_t status, const char* action) {
  if (status == KIV_ST_OK) return;
  fprintf(stderr, "files: cannot %s: status %u, OS error %u\n", action, status, ctx->osError);
  exit(EXIT_FAILURE);
}

static void WriteLines(KivSdContext* ctx, uint32_t file) {
  static const char kLines[] = "first line\nsecond line\n";
  const uint32_t length = sizeof(kLines) - 1;
  uint32_t written;
  Check(ctx, KivSdFileWrite(ctx, file, kLines, length, &written), "write");
  if (written < length) Check(ctx, KIV_ST_DISK_FULL, "write all of it");
  Check(ctx, KivSdFileFlush(ctx, file), "flush"); /* now the lines survive a power cut */
}

static void ReadLines(KivSdContext* ctx, uint32_t file) {
  char line[80];
  uint32_t status;
  Check(ctx, KivSdFileLSeek(ctx, file, 0, KIV_SEEK_START, KIV_NULL), "seek to the start");
  while ((status = KivSdFileGets(ctx, file, line, sizeof(line))) == KIV_ST_OK) {
    printf("read: %s", line);
  }
  if (status != KIV_ST_FILE_END) Check(ctx, status, "read a line");
}

/* KivSdFileGetStatus opens the file for exclusive use and closes it again. */
static void ShowStatus(KivSdContext* ctx, const char* when) {
  uint32_t status = 0;
  Check(ctx, KivSdFileGetStatus(ctx, kPath, &status), "probe the file");
  printf("%s: %s\n", when,
         status & KIV_FSTAT_NOTEXIST ? "does not exist"
         : status & KIV_FSTAT_INUSE  ? "in use"
                                     : "free");
}

static void ListFiles(KivSdContext* ctx) {
  KivSdFindRecord found = {0};
  uint32_t status;
  Check(ctx, KivSdFileFindFirst(ctx, "example-*.txt", 0, &found), "search the folder");
  do {
    printf("found: %s, %u bytes\n", found.name, found.data.sizeLow);
  } while ((status = KivSdFileFindNext(ctx, &found)) == KIV_ST_OK);
  if (status != KIV_ST_FIND_END) Check(ctx, status, "go on searching");
  Check(ctx, KivSdFileFindClose(ctx, &found), "end the search");
}

int main(void) {
  const uint32_t flags =
      KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY;
  const uint32_t permissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;
  KivSdContext* ctx;
  uint32_t file;
  if (KivSdInit(&ctx) != KIV_ST_OK) return EXIT_FAILURE;
  Check(ctx, KivSdFileOpen(ctx, kPath, flags, permissions, &file), "open the file");
  WriteLines(ctx, file);
  ReadLines(ctx, file);
  ShowStatus(ctx, "while open");
  Check(ctx, KivSdFileClose(ctx, file), "close the file");
  ShowStatus(ctx, "after closing");
  ListFiles(ctx);
  Check(ctx, KivSdFileRemove(ctx, kPath), "remove the file");
  ShowStatus(ctx, "after removing");
  return KivSdTerm(ctx) == KIV_ST_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
