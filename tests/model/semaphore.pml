/* The counting semaphores of Linux (sd/os/lnx/counting_semaphore.cpp), for exhaustive checking with
 * spin; tools/check-model runs it. A step of a process is one access to the word, or one call of the
 * kernel. The time limit of a timed wait can end at any moment.
 *
 * Checked in every order of steps:
 *
 *   - no unit is lost and none is made: units taken and units left are the units given;
 *   - the count stays within the maximum;
 *   - nobody sleeps for ever while there is a unit (assertion when nothing moves any more);
 *   - with CLOSES, the slot of a closed semaphore is freed once, by the last user, and the next
 *     object in the slot stays as it is;
 *   - with SHARED, in memory that processes share, a process can be killed at any step: the others
 *     still get every unit that is left.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_SLEEP_UNSEEN   a taker sleeps without comparing the word
 *   MUTANT_WAKE_AT_ZERO   a give wakes only if the count was 0
 *   MUTANT_WAKE_ONE       (SHARED) a give wakes one taker in place of all
 *   MUTANT_MARK_FOREVER   (SHARED, LEFT_MARK) a starving mark holds others back without a limit
 *   MUTANT_NOBODY_WAITS   a taker sleeps before it counts itself among the users
 *   MUTANT_LATE_FIRST     a taker looks at its time limit before it looks for a unit
 *   MUTANT_LEFT_USER      a taker whose time ends stays among the users
 *   MUTANT_NO_MAXIMUM     a give does not compare with the maximum
 *   MUTANT_TAKE_BLIND     a taker takes a unit without comparing the word
 *   MUTANT_CLOSE_FREES    (CLOSES) closing frees the slot while threads wait
 *   MUTANT_NO_IDENTITY    (CLOSES) a give does not compare the identity */

#ifndef TAKERS
#define TAKERS 2
#endif
#ifndef GIVERS
#define GIVERS 1
#endif
#ifndef GIVES
#define GIVES 2 /* of each giver */
#endif
#ifndef MAXIMUM
#define MAXIMUM 3
#endif
#ifndef UNITS
#define UNITS 0 /* at the start */
#endif
#define SLEEPERS TAKERS

#define COUNT_MASK 7
#define STARVING 8
#define LOW_MASK 15
#define ONE_USER 16
#define USERS_MASK (7 * ONE_USER)
#define CLOSED 128
#define GENERATION 256
#ifdef LEFT_MARK /* by a process that was killed while it waited */
#define INITIAL (UNITS + STARVING + ONE_USER)
#else
#define INITIAL UNITS
#endif

#define HAS_UNITS(value) (((value) & COUNT_MASK) != 0)
#define IS_STARVING(value) (((value) & STARVING) != 0)

#define NOTE_LIMIT ended = true
/* A taker without a time limit gives up when nothing moves any more. */
#define GIVES_UP timeout
#define NOTE_GIVING_UP assert(!HAS_UNITS(word))
#include "futex.pml"

/* For the checks only. */
byte taken;
byte given = UNITS;
bool mayDie; /* the first taker is killed before its next step */

#if defined(SHARED) && !defined(MUTANT_WAKE_ONE)
#define WAKE_TAKERS WakeAll()
#else
#define WAKE_TAKERS WakeOne()
#endif

#ifdef MUTANT_MARK_FOREVER
#define IS_HELD_BACK false
#else
#define IS_HELD_BACK HAS_UNITS(state)
#endif

#ifdef MUTANT_LEFT_USER
#define LEFT(value) ((value) & ~STARVING)
#else
#define LEFT(value) (((value) - ONE_USER) & ~STARVING)
#endif

/* Waiter::Leave */
inline Leave(left, units) {
  d_step {
#ifdef MUTANT_TAKE_BLIND
    if
    :: units == 1 -> state = word; left = LEFT(word - 1)
    :: else
    fi;
#endif
    if
    :: word == state ->
      word = left;
      swapped = true;
      taken = taken + units;
      last = IS_CLOSED_WITHOUT_USERS(word)
    :: else -> state = word; swapped = false
    fi
  }
}

/* Waiter::Rest */
inline Rest() {
  d_step { roused = woken; woken = false }
  SleepOn(me, state, IS_HELD_BACK, timed);
  d_step {
    mayTake = mayTake || woken || (IS_HELD_BACK && (ended || expired));
    woken = woken || roused;
    ended = false
  }
}

/* Waiter::Await */
inline Await() {
  do
  :: state = word;
    mayTake = mayTake || !IS_STARVING(state);
    if
#ifdef MUTANT_LATE_FIRST
    :: expired ->
      next = LEFT(state);
      Leave(next, 0);
      if
      :: swapped -> break
      :: else
      fi
    :: !expired && HAS_UNITS(state) && mayTake ->
#else
    :: HAS_UNITS(state) && mayTake ->
#endif
      next = LEFT(state - 1);
      Leave(next, 1);
      if
      :: swapped -> break
      :: else
      fi
    :: else ->
      if
      :: expired ->
        next = LEFT(state);
        Leave(next, 0);
        if
        :: swapped -> break
        :: else
        fi
      :: !expired && woken && !HAS_UNITS(state) && !IS_STARVING(state) ->
        Swap(state | STARVING) /* Starve */
      :: else -> Rest()
      fi
    fi
  od;
  if
  :: last -> FreeSlot()
  :: else
  fi
}

/* TakeUnit, TakeUnitSlowly, with a time limit that is not 0 */
inline Take() {
  state = word;
  do
  :: !IS_OPEN(state) -> break
  :: IS_OPEN(state) && HAS_UNITS(state) && !IS_STARVING(state) ->
    d_step {
      if
      :: word == state -> word = state - 1; taken++; swapped = true
      :: else -> state = word; swapped = false
      fi
    }
    if
    :: swapped -> break
    :: else
    fi
  :: IS_OPEN(state) && (!HAS_UNITS(state) || IS_STARVING(state)) ->
#ifdef MUTANT_NOBODY_WAITS
    SleepOn(me, state, false, timed);
#endif
    Swap(state + ONE_USER);
    if
    :: swapped -> Await(); break
    :: else
    fi
  od;
  skip
}

proctype Taker(byte me; bool timed) {
  int state;
  int next;
  bool swapped;
  bool mayTake;
  bool woken;
  bool roused;
  bool ended;
  bool expired;
  bool last;
  {
    Take();
    goto done
  } unless { mayDie && me == 0 }
  asleep[me] = false;
done:
  skip
}

/* GiveUnits of one unit */
proctype Giver() {
  int state;
  byte left = GIVES;
  bool swapped;
  do
  :: left == 0 -> break
  :: left > 0 ->
    state = word;
    swapped = false;
    do
#ifndef MUTANT_NO_IDENTITY
    :: !swapped && !IS_OPEN(state) -> break
    :: !swapped && IS_OPEN(state) ->
#else
    :: !swapped ->
#endif
      if
#ifndef MUTANT_NO_MAXIMUM
      :: (state & COUNT_MASK) > MAXIMUM - 1 -> break
#endif
      :: else ->
        d_step {
          if
          :: word == state ->
            word = state + 1;
            given++;
            swapped = true;
            assert((word & COUNT_MASK) <= MAXIMUM)
          :: else -> state = word
          fi
        }
      fi
    :: swapped ->
      if
#ifdef MUTANT_WAKE_AT_ZERO
      :: HAS_USERS(state) && !HAS_UNITS(state) -> WAKE_TAKERS
#else
      :: HAS_USERS(state) -> WAKE_TAKERS
#endif
      :: else
      fi;
      break
    od;
    left--
  od
}

#ifdef CLOSES
proctype Closer() {
  int before;
  CloseHandle(before);
}
#endif

#ifdef SHARED
/* Kills one taker at any moment. */
proctype Killer() {
  mayDie = true
}
#endif

#if defined(TIMED) || defined(CLOSES)
#define IS_TIMED(number) true
#else
#define IS_TIMED(number) (number < TIMED_TAKERS)
#endif
#ifndef TIMED_TAKERS
#define TIMED_TAKERS 0
#endif

init {
  byte number;
  atomic {
    do
    :: number < TAKERS -> run Taker(number, IS_TIMED(number)); number++
    :: else -> break
    od;
    number = 0;
    do
    :: number < GIVERS -> run Giver(); number++
    :: else -> break
    od;
#ifdef CLOSES
    run Closer();
#endif
#ifdef SHARED
    run Killer();
#endif
  }
  _nr_pr == 1;
#ifdef CLOSES
  assert(freed == 1 && word == GENERATION)
#else
  assert(taken + (word & COUNT_MASK) == given);
#ifndef SHARED
  assert(!HAS_USERS(word))
#endif
#endif
}
