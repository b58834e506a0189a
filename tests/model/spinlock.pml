/* The spinlocks in both designs (sd/sdsync/spinlock.cpp) and the lightweight spinlocks
 * (sd/sdlwsync.cpp), for exhaustive checking with spin; tools/check-model runs it. A step of a process
 * is one access to the lock. Waiting is a guard, because a waiting thread only looks.
 *
 *   default                a spinlock, with tickets
 *   LIGHT                  a lightweight spinlock, with tickets
 *   TEST_AND_SET           either kind without tickets
 *   ONCE                   (default) the acquire and release that do not count
 *
 * Checked in every order of steps:
 *
 *   - one thread at a time is inside, and finds itself the owner all the time;
 *   - a thread outside never finds itself the owner;
 *   - with tickets, threads enter in order of arrival;
 *   - a lock that was acquired twice is free after the second release, not before;
 *   - every process ends, and leaves the lock in its initial state.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_TURN_FIRST     the turn passes on before the owner is cleared
 *   MUTANT_OWNER_FIRST    a thread writes the owner before its turn
 *   MUTANT_TWO_DRAWS      a ticket is read and written in two steps; with TEST_AND_SET, the word
 *   MUTANT_HELD_FIRST     a thread writes the number of its ticket before its turn (not LIGHT)
 *   MUTANT_NEWEST_NEXT    the turn passes to the newest ticket
 *   MUTANT_NO_COUNT       an acquire of the owner is not counted
 *   MUTANT_COUNT_LAST     the count is written after the turn has passed on (LIGHT) */

#ifndef THREADS
#define THREADS 3
#endif
#ifndef ROUNDS
#define ROUNDS 1
#endif

byte nextTicket;
byte serving;
byte held; /* the holder's ticket, not LIGHT */
byte lockWord;
byte owner; /* 0 is nobody */
short count;

/* For the checks only. */
byte inside;
byte arrived;
byte entered;
byte running = THREADS;

/* The owner and the count of a spinlock, and of a lightweight one without tickets, change in one
 * store; a lightweight one with tickets stores them apart. */
#if defined(LIGHT)
inline Own(thread) { count = 1; owner = thread }
#elif defined(ONCE)
inline Own(thread) { d_step { owner = thread } held = ticket }
#elif defined(TEST_AND_SET)
inline Own(thread) { d_step { owner = thread; count = 1 } }
#else
inline Own(thread) { d_step { owner = thread; count = 1 } held = ticket }
#endif

/* DrawTicket */
inline DrawTicket() {
#ifdef MUTANT_TWO_DRAWS
  ticket = nextTicket;
  d_step { nextTicket = ticket + 1; place = arrived; arrived++ }
#else
  d_step { ticket = nextTicket; nextTicket++; place = arrived; arrived++ }
#endif
}

#ifdef TEST_AND_SET
/* Take, TryTake */
#ifdef MUTANT_TWO_DRAWS
inline AwaitTurn() { lockWord == 0; lockWord = 1 }
#else
inline AwaitTurn() { atomic { lockWord == 0 -> lockWord = 1 } }
#endif
#else
inline AwaitTurn() { serving == ticket }
#endif

/* Acquire, AcquireContended, AcquireOnce */
inline Acquire(thread) {
  if
#ifndef ONCE
  :: owner == thread ->
#ifdef MUTANT_NO_COUNT
    skip
#else
    count = count + 1
#endif
  :: owner != thread ->
#else
  :: true ->
#endif
#ifndef TEST_AND_SET
    DrawTicket();
#endif
#ifdef MUTANT_OWNER_FIRST
    owner = thread;
#endif
#ifdef MUTANT_HELD_FIRST
    held = ticket;
#endif
    AwaitTurn();
#ifdef MUTANT_HELD_FIRST
    d_step { owner = thread; count = 1 }
#else
    Own(thread);
#endif
  fi
}

/* Passes the lock on. */
inline PassOn() {
#ifdef TEST_AND_SET
  lockWord = 0
#elif defined(MUTANT_NEWEST_NEXT)
  serving = nextTicket - 1
#elif defined(LIGHT)
  old = serving;
  serving = old + 1
#else
  serving = held + 1
#endif
}

inline Clear(rest) {
#if defined(LIGHT) && !defined(TEST_AND_SET)
  owner = 0
#else
  d_step { owner = 0; count = rest }
#endif
}

/* Free */
inline Free(rest) {
#ifdef MUTANT_TURN_FIRST
  PassOn();
  Clear(rest)
#else
  Clear(rest);
  PassOn()
#endif
}

/* Release, ReleaseNonReentrant */
inline Release() {
#ifdef ONCE
  left = count;
  Free(left);
#else
  left = count - 1;
#if defined(LIGHT) && !defined(TEST_AND_SET) && !defined(MUTANT_COUNT_LAST)
  count = left;
#endif
  if
  :: left <= 0 -> Free(left)
  :: else ->
#if !defined(LIGHT) || defined(TEST_AND_SET)
    count = left
#else
    skip
#endif
  fi;
#if defined(LIGHT) && defined(MUTANT_COUNT_LAST)
  count = left
#endif
#endif
}

proctype Thread(byte thread) {
  byte rounds = ROUNDS;
  byte ticket;
  byte place;
  byte old;
  byte depth;
  short left;
  do
  :: rounds == 0 -> break
  :: else ->
    assert(owner != thread);
    Acquire(thread);
    d_step {
      inside++;
      assert(inside == 1 && owner == thread);
#ifndef TEST_AND_SET
      assert(place == entered);
      entered++
#endif
    }
#ifndef ONCE
    if
    :: true
    :: Acquire(thread);
      assert(inside == 1 && owner == thread);
      Release();
      assert(inside == 1 && owner == thread)
    fi;
#endif
    assert(inside == 1 && owner == thread);
    inside--;
    Release();
    d_step { rounds--; ticket = 0; place = 0; old = 0; left = 0 }
  od;
  assert(owner != thread);
  d_step {
    running--;
    assert(running != 0 ||
           (owner == 0 && count == 0 && lockWord == 0 && serving == nextTicket && inside == 0))
  }
}

init {
  byte i = 1;
  atomic {
    do
    :: i <= THREADS -> run Thread(i); i++
    :: else -> break
    od
  }
}
