/* The queues, gates and word of the reader-writer lock (sd/sdrwlock/rwlock.cpp), for exhaustive
 * checking with spin; tools/check-model runs it.
 *
 * One step of a process is one access to what threads share. Waiting is a guard: how a thread
 * spins and sleeps makes no difference here. What is checked, in every order of steps:
 *
 *   - a writer works alone, readers work with readers only (assertions at the sections);
 *   - writers enter in the order in which they came (tickets);
 *   - every process ends: none waits for ever for a wake-up (no invalid end state);
 *   - at the end the lock is as it was at the start (the last process's assertion).
 *
 * MUTANT_FRESH_READ makes the reader gate read the flags anew instead of taking them from the
 * value that its addition returned; that must be found faulty. */

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

byte word;
byte readerTail;
byte writerHead;
byte writerTail;
bool blocked[NODES];
byte queueLink[NODES]; /* a writer's next; a reader's previous is its process's own */

/* What the lock does not know. */
byte readersInside;
byte writersInside;
byte nextTicket;
byte nextToEnter;
byte running = READERS + WRITERS;

/* A look without the wake mutex, and one under it. */
inline Wake(node) {
  if
  :: blocked[node] -> blocked[node] = false
  :: else
  fi
}

inline SetFlags(flags, old) { d_step { old = word; word = word | flags } }

/* `before` and `woken` are locals of the process. */
inline WriterGate(writer) {
  writerHead = writer;
  SetFlags(WRITER_INTERESTED, before);
  if
  :: (before & READER_INTERESTED) != 0
  :: else ->
    SetFlags(WRITER_ACTIVE, before);
    if
    :: before < READER_UNIT -> Wake(writer)
    :: else
    fi
  fi
}

inline ReaderGate() {
  d_step { before = word; word = word + READER_UNIT - READER_INTERESTED }
#ifdef MUTANT_FRESH_READ
  before = word;
#endif
  if
  :: (before & (WRITER_INTERESTED | WRITER_ACTIVE)) == WRITER_INTERESTED ->
    word = word | WRITER_ACTIVE
  :: else
  fi;
  d_step { woken = readerTail; readerTail = NOBODY }
  if
  :: woken != NOBODY -> Wake(woken)
  :: else
  fi
}

inline End() {
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
  do
  :: rounds == 0 -> break
  :: else ->
    blocked[node] = true;
    d_step { previous = readerTail; readerTail = node }
    if
    :: previous == NOBODY ->
      SetFlags(READER_INTERESTED, before);
      if
      :: (before & (WRITER_INTERESTED | WRITER_ACTIVE)) == 0 -> ReaderGate()
      :: else
      fi;
      !blocked[node] /* the gate has counted this one */
    :: else ->
      !blocked[node];
      word = word + READER_UNIT;
      Wake(previous)
    fi;
    d_step { readersInside++; assert(writersInside == 0) }

    d_step { readersInside--; before = word; word = word - READER_UNIT }
    if
    :: (before & ~READER_INTERESTED) == READER_UNIT + WRITER_ACTIVE + WRITER_INTERESTED ->
      woken = writerHead;
      Wake(woken)
    :: else
    fi;
    d_step { rounds--; previous = 0; before = 0; woken = 0 }
  od;
  End()
}

proctype Writer(byte node) {
  byte rounds = WRITER_ROUNDS;
  byte previous;
  byte before;
  byte woken;
  byte ticket;
  do
  :: rounds == 0 -> break
  :: else ->
    d_step { blocked[node] = true; queueLink[node] = NOBODY }
    d_step { previous = writerTail; writerTail = node; ticket = nextTicket; nextTicket++ }
    if
    :: previous == NOBODY -> WriterGate(node)
    :: else -> queueLink[previous] = node
    fi;
    !blocked[node];
    d_step {
      writersInside++;
      assert(writersInside == 1 && readersInside == 0);
      assert(ticket == nextToEnter);
      nextToEnter++
    }

    d_step { writersInside--; woken = queueLink[node] }
    if
    :: woken != NOBODY -> Wake(woken)
    :: else ->
      d_step { before = word; word = word & ~(WRITER_INTERESTED | WRITER_ACTIVE) }
      if
      :: (before & READER_INTERESTED) != 0 -> ReaderGate()
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
        WriterGate(previous)
      :: else
      fi
    fi;
    d_step { rounds--; previous = 0; before = 0; woken = 0; ticket = 0 }
  od;
  End()
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
