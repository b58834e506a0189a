/* The write pause with leases (sd/sdfio/write_pause.cpp, sd/sdfio/write_lease.cpp), for exhaustive
 * checking with spin; tools/check-model runs it. A step of a process is one access to the pause block,
 * or one call on the lock or on a gate. The reader-writer lock has a model of its own (rwlock.pml);
 * here it is a count of readers and a writer. A thread takes it again without waiting.
 *
 * Writers take a lease, write and give the lease back. Pausers begin a pause and lift it. With
 * EXPIRES, a pause may expire at any moment, and a waiting writer lifts it.
 *
 * Checked in every order of steps:
 *
 *   - after a pause has begun with success, nobody holds a lease until the pause is lifted;
 *   - a writer reads start and maximum of a pause only while no pauser writes them;
 *   - every process ends; writers need no time-out for that, unless the pause is to expire;
 *   - at the end no pause is in force, no lease is out, the lock is free and the gate is open.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_LOOK_FIRST     a writer looks for a pause before it counts its lease: a processor that
 *                         moves the read before the write
 *   MUTANT_COUNT_FIRST    a pauser counts the leases before it announces the pause
 *   MUTANT_HASTY_PAUSE    a pauser does not wait for the leases
 *   MUTANT_NO_RECOUNT     a pauser does not count again after it was woken
 *   MUTANT_NO_POLL        a pauser waits for its wake-up without a limit
 *   MUTANT_KEPT_LEASE     a writer that sees the pause does not withdraw its lease
 *   MUTANT_NO_PASS_ON     a writer that passes the gate does not open it for the next
 *   MUTANT_OPEN_FIRST     lifting opens the gate before it ends the pause
 *   MUTANT_UNLOCKED_WAIT  (EXPIRES) a writer waits without the lock */

#ifndef WRITERS
#define WRITERS 2
#endif
#ifndef WRITER_ROUNDS
#define WRITER_ROUNDS 1
#endif
#ifndef PAUSERS
#define PAUSERS 1
#endif
#ifndef PAUSER_ROUNDS
#define PAUSER_ROUNDS 1
#endif

bool paused;
byte leases;
bool resumeOpen = true;
bool drainedOpen = true;
byte lockReaders;
bool lockWriter;

/* For the checks only. */
byte writing;
bool inForce[PAUSERS]; /* this pauser's pause */
bool setsLimit; /* a pauser writes the start and the maximum, which are plain */

inline StartRead() { atomic { !lockWriter -> lockReaders++ } }
inline EndRead() { lockReaders-- }
inline StartWrite() { atomic { !lockWriter && lockReaders == 0 -> lockWriter = true } }
inline EndWrite() { lockWriter = false }

/* StorePaused(0): ends the pause of every pauser. */
inline EndPause() { d_step { paused = false; inForce[0] = false; inForce[PAUSERS - 1] = false } }

/* KivSdUnpauseWriteIO, with the lock held for reading */
inline Lift() {
  if
  :: paused ->
#ifdef MUTANT_OPEN_FIRST
    resumeOpen = true;
    EndPause()
#else
    EndPause();
    resumeOpen = true
#endif
  :: else
  fi
}

/* TryLease, with CountLease and WithdrawLease */
inline TryLease() {
#ifdef MUTANT_LOOK_FIRST
  leased = !paused;
  leases++;
#else
  leases++;
  leased = !paused;
#endif
  if
  :: leased
  :: else ->
#ifndef MUTANT_KEPT_LEASE
    d_step { before = leases; leases-- }
    if
    :: before == 1 -> drainedOpen = true
    :: else
    fi
#endif
  fi
}

/* AwaitLease, AwaitResume */
inline AwaitLease() {
  do
  :: atomic { resumeOpen -> resumeOpen = false } /* KivSdEventWait closes the gate behind it */
    if
#ifndef MUTANT_NO_PASS_ON
    :: !paused -> resumeOpen = true
#endif
    :: else
    fi;
    TryLease();
    if
    :: leased -> break
    :: else
    fi
#ifdef EXPIRES
  :: paused -> /* after a time-out: HasExpired */
    assert(!setsLimit);
    Lift()
#endif
  od;
  skip
}

proctype Writer() {
  byte rounds = WRITER_ROUNDS;
  byte before;
  bool leased;
  do
  :: rounds == 0 -> break
  :: else ->
    /* KivSdGetWriteIOLease */
    TryLease();
    if
    :: leased
    :: else ->
#ifndef MUTANT_UNLOCKED_WAIT
      StartRead();
#endif
      AwaitLease();
#ifndef MUTANT_UNLOCKED_WAIT
      EndRead()
#endif
    fi;
    d_step { writing++; assert(!inForce[0] && !inForce[PAUSERS - 1]) }
    writing--;
    /* KivSdReleaseWriteIOLease */
    leases--;
    if
    :: paused ->
      if
      :: leases == 0 -> drainedOpen = true
      :: else
      fi
    :: else
    fi;
    d_step { rounds--; before = 0; leased = false }
  od
}

/* Drain */
inline Drain() {
  do
  :: leases == 0 -> break
  :: else ->
    drainedOpen = false;
    if
    :: atomic { drainedOpen -> drainedOpen = false }
#ifndef MUTANT_NO_POLL
    :: true /* the poll ends */
#endif
    fi
#ifdef MUTANT_NO_RECOUNT
    ; break
#endif
  od;
  skip
}

proctype Pauser(byte me) {
  byte rounds = PAUSER_ROUNDS;
  do
  :: rounds == 0 -> break
  :: else ->
    /* KivSdPauseWriteIO */
    if
    :: paused -> skip /* KIV_ST_WRITE_PAUSE */
    :: else ->
      StartWrite();
      resumeOpen = false;
#ifdef MUTANT_COUNT_FIRST
      Drain();
      paused = true;
#else
      paused = true;
#ifndef MUTANT_HASTY_PAUSE
      Drain();
#endif
#endif
      d_step { inForce[me] = true; assert(writing == 0); setsLimit = true }
      setsLimit = false;
      EndWrite();
      /* KivSdUnpauseWriteIO */
      StartRead();
      Lift();
      EndRead()
    fi;
    rounds--
  od
}

init {
  byte i;
  atomic {
    do
    :: i < WRITERS -> run Writer(); i++
    :: else -> break
    od;
    i = 0;
    do
    :: i < PAUSERS -> run Pauser(i); i++
    :: else -> break
    od
  }
  _nr_pr == 1;
  assert(!paused && leases == 0 && resumeOpen && !lockWriter && lockReaders == 0)
}
