/* kivsdu: the operating-system layer and memory manager of a multidimensional database server.
 *
 * This header includes the whole public interface, one header per family. The functions are C,
 * undecorated; link libkivsdu.dll.a (mingw) or kivsdu.lib (MSVC).
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_KIVSDU_H
#define KIVSDU_KIVSDU_H

#include "api.h"
#include "status.h"
#include "version.h"

#include "console.h"
#include "context.h"
#include "directio.h"
#include "event.h"
#include "file.h"
#include "fileflags.h"
#include "filesearch.h"
#include "manager.h"
#include "mappedfile.h"
#include "memory.h"
#include "memstack.h"
#include "memtags.h"
#include "memusage.h"
#include "module.h"
#include "mutex.h"
#include "numa.h"
#include "path.h"
#include "pipe.h"
#include "rwlock.h"
#include "segment.h"
#include "semaphore.h"
#include "settings.h"
#include "sharedmem.h"
#include "shortheap.h"
#include "spinlock.h"
#include "sync.h"
#include "system.h"
#include "thread.h"
#include "threadcache.h"
#include "time.h"
#include "vorutil.h"
#include "writepause.h"

#endif
