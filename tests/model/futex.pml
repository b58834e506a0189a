/* What the models of objects in one word share: the word, compare-and-swap, and sleep and wake-up as
 * the kernel offers them (sd/os/lnx/futex.cpp, sd/os/lnx/object_word.cpp). The model that includes
 * this defines SLEEPERS, the number of processes that can sleep, and the fields of its word:
 *
 *   LOW_MASK    the half on which threads sleep
 *   ONE_USER    a user; USERS_MASK all of them
 *   CLOSED      the mark of a closed object
 *   GENERATION  of the handle; 0 is the first object in the slot, GENERATION the next
 *
 * A closed object without users is freed: the next object takes the slot at once, with the content 0.
 * Threads that still have the old handle must leave it alone. */

int word = INITIAL;
bool asleep[SLEEPERS];
byte freed; /* how often the slot of the first object was freed */

#define LOW(value) ((value) & LOW_MASK)
#define IS_OPEN(value) (((value) & ~(CLOSED - 1)) == 0)
#define HAS_USERS(value) (((value) & USERS_MASK) != 0)
#define IS_CLOSED_WITHOUT_USERS(value) (((value) & (CLOSED | USERS_MASK)) == CLOSED)

/* compare_exchange. `swapped` and `state` are locals of the process. */
inline Swap(next) {
  d_step {
    if
    :: word == state -> word = next; swapped = true
    :: else -> state = word; swapped = false
    fi
  }
}

/* Compares and falls asleep in one step, as the kernel does. A wake-up sets `woken`. A sleep ends by
 * itself
 *
 *   with `limited`  then NOTE_LIMIT notes it;
 *   with `timed`    at the end of the whole wait, which sets `expired`, also beside a wake-up;
 *   without both    if GIVES_UP. */
#ifdef MUTANT_SLEEP_UNSEEN
#define IS_UNCHANGED(expected) true
#else
#define IS_UNCHANGED(expected) (LOW(word) == LOW(expected))
#endif
inline SleepOn(me, expected, limited, timed) {
  if
  :: d_step { IS_UNCHANGED(expected) -> asleep[me] = true }
    if
    :: !asleep[me] -> woken = true
    :: d_step { !asleep[me] && timed -> woken = true; expired = true }
    :: d_step { asleep[me] && limited -> asleep[me] = false; NOTE_LIMIT }
    :: d_step { asleep[me] && timed -> asleep[me] = false; expired = true }
    :: d_step { asleep[me] && !timed && GIVES_UP ->
         NOTE_GIVING_UP; asleep[me] = false; expired = true }
    fi
  :: else
  fi
}

/* The kernel wakes the thread that sleeps longest; here it is any. */
inline WakeOne() {
  atomic {
    if
    :: asleep[0] -> asleep[0] = false
    :: SLEEPERS > 1 && asleep[1 % SLEEPERS] -> asleep[1 % SLEEPERS] = false
    :: SLEEPERS > 2 && asleep[2 % SLEEPERS] -> asleep[2 % SLEEPERS] = false
    :: SLEEPERS > 3 && asleep[3 % SLEEPERS] -> asleep[3 % SLEEPERS] = false
    :: else
    fi
  }
}

inline WakeAll() {
  d_step {
    asleep[0] = false;
    asleep[1 % SLEEPERS] = false;
    asleep[2 % SLEEPERS] = false;
    asleep[3 % SLEEPERS] = false
  }
}

/* FreeSlot, by whoever ended the last use; the slot's next object. */
inline FreeSlot() { d_step { assert(freed == 0); freed++; word = GENERATION } }

/* CloseHandle: only one thread closes the handle. `before` is a local of the process. */
inline CloseHandle(before) {
  d_step { before = word; word = word | CLOSED }
#ifdef MUTANT_CLOSE_FREES
  FreeSlot()
#else
  if
  :: IS_CLOSED_WITHOUT_USERS(before | CLOSED) -> FreeSlot()
  :: else
  fi
#endif
}
