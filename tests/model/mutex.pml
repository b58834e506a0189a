/* The mutexes of Linux (sd/os/lnx/mutex.cpp, sd/os/lnx/mutex_record.cpp), for exhaustive checking with
 * spin; tools/check-model runs it. The C library's robust mutex is one word here, which names the
 * owning thread; when a thread ends, the kernel marks the mutexes in its list as abandoned. A step of
 * a process is one access to a shared variable or one call of the C library.
 *
 * Threads take the mutex once or twice, release it as often or end while they own it, and try to
 * release it without owning it. Meanwhile another thread closes the handle.
 *
 * Checked in every order of steps:
 *
 *   - one thread at a time owns the mutex, until its last release or its end;
 *   - the thread that takes an abandoned mutex is told so, once;
 *   - a thread that does not own the mutex cannot release it;
 *   - the memory is freed once, after the last use, and never while a living thread owns the mutex,
 *     because the kernel walks the list of its mutexes when the thread ends;
 *   - every process ends.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_NO_OWNER       a release does not look for the owner
 *   MUTANT_NO_DEPTH       the first release of an owner frees the mutex
 *   MUTANT_KEPT_OWNER     a release leaves the thread as owner
 *   MUTANT_LATE_OWNER     a release clears the owner after it has unlocked
 *   MUTANT_NOT_ROBUST     the kernel does not mark the mutex of an ended thread
 *   MUTANT_INCONSISTENT   an abandoned mutex is not made consistent
 *   MUTANT_FREED_OWNED    closing frees a mutex that another thread owns
 *   MUTANT_NO_USERS       closing ends the mutex while threads use the handle */

#ifndef THREADS
#define THREADS 2
#endif

/* The C library's mutex */
byte lock; /* the owning thread; 0 is nobody */
bool ownerDied;
bool unrecoverable;

/* OwnedMutex, and the handle */
byte owner;
byte depth;
byte users;
bool closed;
bool isAside;

/* For the checks only. */
byte freed;
byte inside; /* threads that own the mutex by what they were told */
byte alive = THREADS;
bool abandoned; /* an owner ended, and nobody was told yet */

#define LOOK assert(freed == 0)

/* pthread_mutex_lock, or pthread_mutex_trylock with `waits` false. `error` is a local. */
#define OK 0
#define BUSY 1
#define OWNER_DEAD 2
#define REFUSED 3
inline LockMutex() {
  atomic {
    LOOK;
    if
    :: unrecoverable -> error = REFUSED
    :: !unrecoverable && lock == 0 ->
      lock = me;
      error = (ownerDied -> OWNER_DEAD : OK);
      ownerDied = false
    :: !unrecoverable && lock != 0 -> error = BUSY
    fi
  }
}

/* EndUnnamed, SetAside, FreeWithoutOwner */
inline End() {
  if
#ifdef MUTANT_FREED_OWNED
  :: true -> freed++
#else
  :: lock != 0 && lock != me -> isAside = true
  :: lock == me -> d_step { inside--; lock = 0; owner = 0; freed++ } /* ReleaseMutexWholly */
  :: lock == 0 -> freed++
#endif
  fi
}

/* EnterObject, LeaveObject */
inline Enter() {
  d_step {
    entered = !closed;
    users = users + (entered -> 1 : 0)
  }
}
inline Leave() {
  d_step { users--; last = closed && users == 0 }
#ifndef MUTANT_NO_USERS
  if
  :: last -> End()
  :: else
  fi
#endif
}

/* TakeMutex; without waiting, or until the time ends */
inline Take() {
  Enter();
  if
  :: entered ->
    LOOK;
    if
    :: owner == me -> depth++; error = OK
    :: owner != me ->
      LockMutex();
      if
      :: error == OK || error == OWNER_DEAD ->
        owner = me;
        depth = 1;
        d_step {
          inside++;
          assert(inside == 1);
          assert(abandoned == (error == OWNER_DEAD));
          abandoned = false
        }
#ifndef MUTANT_INCONSISTENT
        skip
#else
        unrecoverable = error == OWNER_DEAD
#endif
      :: error == BUSY
      :: error == REFUSED -> assert(false)
      fi
    fi;
    Leave()
  :: !entered -> error = REFUSED
  fi
}

/* ReleaseMutex */
inline Release() {
  Enter();
  if
  :: entered ->
    LOOK;
    if
#ifndef MUTANT_NO_OWNER
    :: owner != me -> error = REFUSED
    :: owner == me ->
#else
    :: true ->
#endif
      depth--;
      if
#ifdef MUTANT_NO_DEPTH
      :: true ->
#else
      :: depth == 0 ->
#endif
        d_step { assert(inside == 1 && lock == me); inside-- }
#if defined(MUTANT_LATE_OWNER)
        lock = 0;
        owner = 0
#elif defined(MUTANT_KEPT_OWNER)
        lock = 0
#else
        owner = 0;
        lock = 0
#endif
#ifndef MUTANT_NO_DEPTH
      :: else
#endif
      fi;
      error = OK
    fi;
    Leave()
  :: !entered -> error = REFUSED
  fi
}

/* The kernel walks the list of the mutexes that the thread owns. */
inline EndThread() {
  d_step {
    if
    :: lock == me ->
      LOOK;
      inside--;
#ifndef MUTANT_NOT_ROBUST
      lock = 0;
      ownerDied = true;
#endif
      abandoned = true
    :: else
    fi;
    alive--
  }
}

proctype Thread(byte me) {
  byte error;
  byte taken;
  bool entered;
  bool last;
  Take();
  if
  :: error == OK || error == OWNER_DEAD ->
    taken = 1;
    if
    :: Take();
      taken = (error == OK -> 2 : taken)
    :: true
    fi
  :: else
  fi;
  do
  :: taken == 0 -> Release(); assert(error == REFUSED); break
  :: taken > 0 ->
    assert(freed != 0 || (lock == me && owner == me && depth == taken));
    Release();
    if
    :: error == OK -> taken--
    :: else -> break /* the handle is closed */
    fi
  :: taken > 0 -> break /* ends as owner */
  od;
  EndThread()
}

/* CloseHandle, then FreeWithoutOwner by a later call */
proctype Closer(byte me) {
  bool last;
  d_step { closed = true; last = users == 0 }
  if
#ifdef MUTANT_NO_USERS
  :: true -> End()
#else
  :: last -> End()
#endif
  :: else
  fi;
  if
  :: atomic { isAside && lock == 0 -> isAside = false } freed++
  :: alive == 0 && !isAside
  fi
}

init {
  byte i = 1;
  atomic {
    do
    :: i <= THREADS -> run Thread(i); i++
    :: else -> break
    od;
    run Closer(THREADS + 1)
  }
  _nr_pr == 1;
  assert(freed == 1)
}
