/* The events of Linux (sd/os/lnx/event.cpp), for exhaustive checking with spin; tools/check-model
 * runs it. A step of a process is one access to the word, or one call of the kernel. The time limit
 * of a timed wait can end at any moment.
 *
 * Checked in every order of steps:
 *
 *   - an automatic event lets one thread through for each signal, and loses no signal;
 *   - no thread that began to wait after a signal passes in place of one that waited before (LATE);
 *   - a manual event (BY_HAND) lets through every thread that waited when it was signalled, even if
 *     it was reset at once, and no thread that came after the reset;
 *   - every wait without a time limit ends (no invalid end state);
 *   - with CLOSES, the slot of a closed event is freed once, by the last user, and the next object in
 *     the slot stays as it is.
 *
 * The round has two bits here, so that it comes full circle within a search.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_SLEEP_UNSEEN   a waiter sleeps without comparing the word
 *   MUTANT_NO_WAKE        a signal wakes only if the event has no grant yet
 *   MUTANT_WAKE_ONE       a manual event wakes one thread
 *   MUTANT_GREEDY         a waiter takes any grant, also one that is older than its wait
 *   MUTANT_GRANTS_SEEN    a waiter takes another's grant when the number of grants has changed
 *   MUTANT_WOKEN_TAKES    (BY_HAND, BESIDE) a waiter takes another's grant when it is woken
 *   MUTANT_WOKEN_WAITS    a waiter of an automatic event does not
 *   MUTANT_RESET_GRANTS   a reset takes the grants back
 *   MUTANT_LATE_FIRST     a waiter looks at its time limit before it looks for a grant
 *   MUTANT_LEFT_USER      a waiter whose time ends stays among the users
 *   MUTANT_CLOSE_FREES    (CLOSES) closing frees the slot while threads wait
 *   MUTANT_NO_IDENTITY    (CLOSES) a signal does not compare the identity */

#ifndef WAITERS
#define WAITERS 2
#endif
#ifndef LATE
#define LATE 0 /* waiters that come after the signals, or with BESIDE at any time, and give up */
#endif
#ifndef SIGNALS
#define SIGNALS WAITERS
#endif
#define SLEEPERS (WAITERS + LATE)

#define SIGNALLED 1
#ifdef BY_HAND
#define MANUAL 2
#else
#define MANUAL 0
#endif
#define ONE_GRANT 4
#define GRANTS_MASK (7 * ONE_GRANT)
#define ONE_ROUND 32
#define ROUND_MASK (3 * ONE_ROUND)
#define LOW_MASK 127
#define ONE_USER 128
#define USERS_MASK (7 * ONE_USER)
#define CLOSED 1024
#define GENERATION 2048
#define INITIAL MANUAL

#define NOTE_LIMIT skip
#define GIVES_UP false
#define NOTE_GIVING_UP skip
#include "futex.pml"

#define HAS_GRANTS(value) (((value) & GRANTS_MASK) != 0)
#define GRANTS_FOR_ALL(value) (((value) & USERS_MASK) / (ONE_USER / ONE_GRANT))
#define ALL_ARE_GRANTED(value) (((value) & GRANTS_MASK) == GRANTS_FOR_ALL(value))
#define WITH_NEXT_ROUND(value) (((value) & ~ROUND_MASK) | (((value) + ONE_ROUND) & ROUND_MASK))

#define AFTER_PASSING(value) ((value) & ~(SIGNALLED - MANUAL / 2))

#ifdef MUTANT_GRANTS_SEEN
#define ARRIVAL(value) LOW(value)
#else
#define ARRIVAL(value) ((value) & ROUND_MASK)
#endif

/* For the checks only. */
byte passes;
byte signals;         /* that changed something */
bool waiting[SLEEPERS];
bool entitled[SLEEPERS]; /* waited when the event was signalled */

#ifdef BESIDE
#define ONLY_ENTITLED false
#else
#define ONLY_ENTITLED (MANUAL != 0 || LATE > 0)
#endif

/* WhenSignalled */
inline WhenSignalled(old, next) {
  if
  :: !HAS_USERS(old) -> next = old | SIGNALLED
  :: HAS_USERS(old) && MANUAL != 0 ->
    next = WITH_NEXT_ROUND((old & ~GRANTS_MASK) | GRANTS_FOR_ALL(old) | SIGNALLED)
  :: HAS_USERS(old) && MANUAL == 0 && ALL_ARE_GRANTED(old) -> next = old | SIGNALLED
  :: HAS_USERS(old) && MANUAL == 0 && !ALL_ARE_GRANTED(old) ->
    next = WITH_NEXT_ROUND(old + ONE_GRANT)
  fi
}

/* SignalEventIn, SignalWithUsers */
inline Signal() {
  state = word;
  swapped = false;
  do
#ifndef MUTANT_NO_IDENTITY
  :: !swapped && !IS_OPEN(state) -> break
  :: !swapped && IS_OPEN(state) ->
#else
  :: !swapped ->
#endif
    d_step {
      WhenSignalled(state, next);
      if
      :: word == state ->
        if
        :: (next & (SIGNALLED | GRANTS_MASK)) != (state & (SIGNALLED | GRANTS_MASK)) -> signals++
        :: else
        fi;
        word = next;
        swapped = true;
        i = 0;
        do
        :: i < SLEEPERS -> entitled[i] = entitled[i] || waiting[i]; i++
        :: else -> break
        od
      :: else -> state = word
      fi
    }
  :: swapped ->
    if
#ifdef MUTANT_NO_WAKE
    :: !ALL_ARE_GRANTED(state) && HAS_GRANTS(state) -> skip
    :: !ALL_ARE_GRANTED(state) && !HAS_GRANTS(state) ->
#else
    :: !ALL_ARE_GRANTED(state) ->
#endif
#ifndef MUTANT_WAKE_ONE
      if
      :: MANUAL != 0 -> WakeAll()
      :: else -> WakeOne()
      fi
#else
      WakeOne()
#endif
    :: else
    fi;
    break
  od;
  skip
}

/* UnsignalEventIn */
inline Unsignal() {
  state = word;
  swapped = false;
  do
  :: !swapped && !IS_OPEN(state) -> break
  :: !swapped && IS_OPEN(state) ->
#ifdef MUTANT_RESET_GRANTS
    Swap(state & ~(SIGNALLED | GRANTS_MASK))
#else
    Swap(state & ~SIGNALLED)
#endif
  :: swapped -> break
  od;
  skip
}

/* Waiter::Leave */
inline Leave(left, takes) {
  d_step {
    if
    :: word == state ->
      swapped = true;
      word = left;
      assert((word & GRANTS_MASK) <= GRANTS_FOR_ALL(word));
      waiting[me] = false;
      last = IS_CLOSED_WITHOUT_USERS(word);
      if
      :: takes -> passes++; assert(!ONLY_ENTITLED || entitled[me])
      :: else -> assert(MANUAL == 0 || !entitled[me])
      fi
    :: else -> state = word; swapped = false
    fi
  }
}

#ifdef MUTANT_LEFT_USER
#define LEFT(value) (value)
#else
#define LEFT(value) ((value) - ONE_USER)
#endif

/* The kernel may wake a thread that came later in place of one that has a grant. An automatic event
 * lets the woken thread through; a manual event wakes all. */
#ifdef MUTANT_WOKEN_TAKES
#define WOKEN_TAKES true
#elif defined(MUTANT_WOKEN_WAITS)
#define WOKEN_TAKES false
#else
#define WOKEN_TAKES (MANUAL == 0)
#endif

#ifdef MUTANT_GREEDY
#define MAY_TAKE true
#else
#define MAY_TAKE (mayTake || ALL_ARE_GRANTED(state))
#endif

/* Waiter::Await */
inline Await(timed) {
  do
  :: state = word;
    if
    :: ARRIVAL(state) != arrival -> mayTake = true
    :: else
    fi;
    mayTake = mayTake || (woken && WOKEN_TAKES);
    if
#ifdef MUTANT_LATE_FIRST
    :: HAS_GRANTS(state) && MAY_TAKE && !expired ->
#else
    :: HAS_GRANTS(state) && MAY_TAKE ->
#endif
      Leave(state - ONE_GRANT - ONE_USER, true);
      if
      :: swapped -> break
      :: else
      fi
    :: else ->
      if
      :: expired ->
        Leave(LEFT(state), false);
        if
        :: swapped -> break
        :: else
        fi
      :: !expired -> SleepOn(me, state, HAS_GRANTS(state), timed)
      fi
    fi
  od;
  if
  :: last -> FreeSlot()
  :: else
  fi
}

/* WaitForEvent, WaitSlowly */
inline Wait(timed) {
  state = word;
  swapped = false;
  do
  :: !swapped && !IS_OPEN(state) -> break
  :: !swapped && IS_OPEN(state) && (state & SIGNALLED) != 0 ->
    d_step {
      Swap(AFTER_PASSING(state));
      if
      :: swapped -> passes++; passed = true; swapped = false
      :: else
      fi
    }
    if
    :: passed -> break
    :: else
    fi
  :: !swapped && IS_OPEN(state) && (state & SIGNALLED) == 0 ->
    d_step {
      if
      :: word == state ->
        word = state + ONE_USER;
        swapped = true;
        waiting[me] = true;
        arrival = ARRIVAL(word);
        mayTake = !HAS_GRANTS(word)
      :: else -> state = word
      fi
    }
  :: swapped -> Await(timed); break
  od;
  skip
}

proctype Waiter(byte me; bool timed) {
  int state;
  int arrival;
  bool swapped;
  bool mayTake;
  bool woken;
  bool expired;
  bool last;
  bool passed;
  Wait(timed)
}

byte running;

#ifdef CLOSES
/* Waiters whose time ends, a thread that signals, and one that closes. */
proctype Signaller() {
  int state;
  int next;
  byte i;
  byte left = SIGNALS;
  bool swapped;
  do
  :: left == 0 -> break
  :: left > 0 -> Signal(); left--
  od
}

proctype Closer() {
  int before;
  CloseHandle(before);
}
#elif LATE > 0 && !defined(BESIDE)
/* Threads that wait, then a signal for each or one for all, then threads that come too late. */
proctype Signaller() {
  int state;
  int next;
  byte i;
  byte left = SIGNALS;
  bool swapped;
  GRANTS_FOR_ALL(word) == WAITERS * ONE_GRANT;
  do
  :: left == 0 -> break
  :: left > 0 ->
    Signal();
    if
    :: MANUAL != 0 -> Unsignal()
    :: else
    fi;
    left--
  od;
  atomic {
    i = 0;
    do
    :: i < LATE -> run Waiter(WAITERS + i, true); i++
    :: else -> break
    od
  }
}
#else
/* Gives a signal when the last one was used, so that none coincides with another. A manual event is
 * signalled when all wait that must pass. */
proctype Signaller() {
  int state;
  int next;
  byte i;
  byte left = SIGNALS;
  bool swapped;
  i = 0;
  do
  :: MANUAL != 0 && i < WAITERS -> waiting[i]; i++
  :: else -> break
  od;
  do
  :: left == 0 -> break
  :: left > 0 ->
#ifndef TIMED
    (word & SIGNALLED) == 0;
#endif
    Signal();
    left--
  od
}

/* Resets a manual event after its first signal, also while the signal wakes threads. */
proctype Resetter() {
  int state;
  bool swapped;
  (word & SIGNALLED) != 0;
  Unsignal()
}
#endif

#if defined(TIMED) || defined(CLOSES)
#define IS_TIMED true
#else
#define IS_TIMED false
#endif

init {
  byte number;
  atomic {
    do
    :: number < WAITERS -> run Waiter(number, IS_TIMED); number++
    :: else -> break
    od;
    run Signaller();
#ifdef BESIDE
    number = 0;
    do
    :: number < LATE -> run Waiter(WAITERS + number, true); number++
    :: else -> break
    od;
    if
    :: MANUAL != 0 -> run Resetter()
    :: else
    fi;
#endif
#ifdef CLOSES
    run Closer()
#endif
  }
  _nr_pr == 1;
#ifdef CLOSES
  assert(freed == 1 && word == GENERATION)
#else
  assert(!HAS_USERS(word) && !HAS_GRANTS(word));
#ifndef BY_HAND
  assert(passes + (word & SIGNALLED) == signals)
#endif
#endif
}
