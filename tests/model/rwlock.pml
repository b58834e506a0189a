/* The queues, gates and word of the reader-writer lock (sd/sdrwlock/rwlock.cpp), for exhaustive
 * checking with spin; tools/check-model runs it.
 *
 * One step of a process is one access to a shared variable. Waiting is a guard, because the order
 * of entry does not depend on how a thread waits. With SLEEPING, every blocked thread falls asleep
 * and is woken step by step, as in sd/sdrwlock/wait.cpp, and frees its node at its end. The model
 * checks in every order of steps:
 *
 *   - a writer is alone inside, readers share only with readers (assertions at the sections);
 *   - writers enter in order of arrival (tickets);
 *   - every process ends: none waits forever for a wake-up (no invalid end state);
 *   - at the end the lock is in its initial state (assertion of the last process);
 *   - with SLEEPING, no wake-up is left over and no thread touches a freed node.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_HASTY_READER  a reader does not look for writers before it enters
 *   MUTANT_EAGER_WRITER  a writer does not look for a batch of readers before it enters
 *   MUTANT_IDLE_GATE     the gate that admits readers does not make the waiting writer active
 *   MUTANT_NO_MUTEX      (SLEEPING) a thread is woken without its wake mutex
 *   MUTANT_FREED_SOON    (SLEEPING) a node is freed without waiting for its wake mutex */

#ifndef READERS
#define READERS 2
#endif
#ifndef WRITERS
#define WRITERS 2
#endif
#ifndef READER_ROUNDS
#define READER_ROUNDS 1
#endif
#ifndef WRITER_ROUNDS
#define WRITER_ROUNDS 1
#endif

#define NOBODY 0
#define NODES (READERS + WRITERS + 1) /* node 0 is null */

#define WRITER_INTERESTED 1
#define WRITER_ACTIVE 2
#define READER_INTERESTED 4
#define READER_UNIT 8

/* The flags that send a reader to the queue. */
#ifdef MUTANT_HASTY_READER
#define BARS_READERS READER_INTERESTED
#else
#define BARS_READERS (WRITER_INTERESTED | WRITER_ACTIVE | READER_INTERESTED)
#endif

/* The flag that makes a writer wait for the batch of readers. */
#ifdef MUTANT_EAGER_WRITER
#define BARS_WRITERS 0
#else
#define BARS_WRITERS READER_INTERESTED
#endif

byte word;
byte readerTail;
byte writerHead;
byte writerTail;
bool blocked[NODES];
byte queueLink[NODES]; /* a writer's next node; a reader's previous node is a local of its process */

/* For the checks only; not part of the lock. */
byte readersInside;
byte writersInside;
byte nextTicket;
byte nextToEnter;
byte running = READERS + WRITERS;

#ifdef SLEEPING
bool wakeMutex[NODES]; /* held */
bool sleeping[NODES];
bool waiter[NODES]; /* the condition's count; a node has one sleeper */
byte semaphore[NODES];
bool freed[NODES];

#define LOOK(node) assert(!freed[node])

inline Take(held) { atomic { !wakeMutex[held] -> wakeMutex[held] = true; LOOK(held) } }

/* Releases the mutex and falls asleep in two steps, as on systems without one call for both. */
inline Wait(mine) {
  do
  :: !blocked[mine] -> break
  :: blocked[mine] ->
    Take(mine);
    if
    :: blocked[mine] ->
      d_step { sleeping[mine] = true; waiter[mine] = true }
      wakeMutex[mine] = false;
      atomic { semaphore[mine] > 0 -> semaphore[mine]-- }
      waiter[mine] = false;
      Take(mine);
      sleeping[mine] = false
    :: else
    fi;
    wakeMutex[mine] = false
  od;
  skip /* a loop may not end at a step of several accesses */
}

/* `raise` is a local of the process. The caller's own node needs no mutex, because its thread is
 * awake. */
inline Wake(target, self) {
  if
  :: d_step { !blocked[target] -> LOOK(target) }
  :: d_step { blocked[target] && target == self -> LOOK(target); blocked[target] = false }
  :: d_step { blocked[target] && target != self -> LOOK(target) }
#ifndef MUTANT_NO_MUTEX
    Take(target);
#endif
    if
    :: blocked[target] ->
      raise = sleeping[target] && waiter[target];
      blocked[target] = false;
      if
      :: raise -> d_step { LOOK(target); semaphore[target]++; raise = false }
      :: else
      fi
    :: else
    fi;
#ifndef MUTANT_NO_MUTEX
    d_step { LOOK(target); wakeMutex[target] = false }
#endif
  fi
}

inline Free(ended) {
#ifndef MUTANT_FREED_SOON
  Take(ended);
  wakeMutex[ended] = false;
#endif
  d_step { assert(semaphore[ended] == 0); freed[ended] = true }
}
#else
inline Wait(mine) { !blocked[mine] }

/* Without SLEEPING there is no wake mutex: tests the node and unblocks it. */
inline Wake(target, self) {
  if
  :: blocked[target] -> blocked[target] = false
  :: else
  fi
}

inline Free(ended) { skip }
#endif

inline SetFlags(flags, old) { d_step { old = word; word = word | flags } }

/* `before` and `woken` are locals of the process. */
inline WriterGate(writer, caller) {
  writerHead = writer;
  d_step {
    before = word;
    word = word | WRITER_INTERESTED;
    if
    :: (before & BARS_WRITERS) == 0 -> word = word | WRITER_ACTIVE
    :: else
    fi
  }
  if
  :: (before & BARS_WRITERS) == 0 && before < READER_UNIT -> Wake(writer, caller)
  :: else
  fi
}

inline ReaderGate(caller) {
  d_step { before = word; word = word + READER_UNIT - READER_INTERESTED }
#ifndef MUTANT_IDLE_GATE
  if
  :: (before & (WRITER_INTERESTED | WRITER_ACTIVE)) == WRITER_INTERESTED ->
    word = word | WRITER_ACTIVE
  :: else
  fi;
#endif
  d_step { woken = readerTail; readerTail = NOBODY }
  if
  :: woken != NOBODY -> Wake(woken, caller)
  :: else
  fi
}

inline End(ended) {
  Free(ended);
  d_step {
    running--;
    assert(running != 0 || (word == 0 && readerTail == NOBODY && writerTail == NOBODY))
  }
}

proctype Reader(byte node) {
  byte rounds = READER_ROUNDS;
  byte previous;
  byte before;
  byte woken;
#ifdef SLEEPING
  bool raise;
#endif
  do
  :: rounds == 0 -> break
  :: else ->
    if
    /* A thread may miss its chance, because it looks at the word before. */
    :: d_step { (word & BARS_READERS) == 0 -> word = word + READER_UNIT }
    :: blocked[node] = true;
      d_step { previous = readerTail; readerTail = node }
      if
      :: previous == NOBODY ->
        SetFlags(READER_INTERESTED, before);
        if
        :: (before & (WRITER_INTERESTED | WRITER_ACTIVE)) == 0 -> ReaderGate(node)
        :: else
        fi;
        Wait(node) /* the gate has counted this reader */
      :: else ->
        Wait(node);
        word = word + READER_UNIT;
        Wake(previous, NOBODY)
      fi
    fi;
    d_step { readersInside++; assert(writersInside == 0) }

    d_step { readersInside--; before = word; word = word - READER_UNIT }
    if
    :: (before & ~READER_INTERESTED) == READER_UNIT + WRITER_ACTIVE + WRITER_INTERESTED ->
      woken = writerHead;
      Wake(woken, NOBODY)
    :: else
    fi;
    d_step { rounds--; previous = 0; before = 0; woken = 0 }
  od;
  End(node)
}

proctype Writer(byte node) {
  byte rounds = WRITER_ROUNDS;
  byte previous;
  byte before;
  byte woken;
#ifdef SLEEPING
  bool raise;
#endif
  byte ticket;
  do
  :: rounds == 0 -> break
  :: else ->
    d_step { blocked[node] = true; queueLink[node] = NOBODY }
    d_step { previous = writerTail; writerTail = node; ticket = nextTicket; nextTicket++ }
    if
    :: previous == NOBODY -> WriterGate(node, node)
    :: else -> queueLink[previous] = node
    fi;
    Wait(node);
    d_step {
      writersInside++;
      assert(writersInside == 1 && readersInside == 0);
      assert(ticket == nextToEnter);
      nextToEnter++
    }

    d_step { writersInside--; woken = queueLink[node] }
    if
    :: woken != NOBODY -> Wake(woken, NOBODY)
    :: else ->
      d_step { before = word; word = word & ~(WRITER_INTERESTED | WRITER_ACTIVE) }
      if
      :: (before & READER_INTERESTED) != 0 -> ReaderGate(NOBODY)
      :: else
      fi;
      d_step {
        previous = writerTail;
        if
        :: previous == node -> writerTail = NOBODY
        :: else
        fi
      }
      if
      :: previous != node ->
        queueLink[node] != NOBODY;
        previous = queueLink[node];
        WriterGate(previous, NOBODY)
      :: else
      fi
    fi;
    d_step { rounds--; previous = 0; before = 0; woken = 0; ticket = 0 }
  od;
  End(node)
}

init {
  byte i = 1;
  atomic {
    do
    :: i <= READERS -> run Reader(i); i++
    :: i > READERS && i < NODES -> run Writer(i); i++
    :: i == NODES -> break
    od
  }
}
