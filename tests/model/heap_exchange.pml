/* How a slot of thread heaps exchanges its heap for a spare or a new one, and how threads find the
 * heap of a slot (sd/memsys/slots.cpp, sd/memsys/thread_heaps.cpp), for exhaustive checking with spin;
 * tools/check-model runs it. A step of a process is one access to a slot or to a heap's index, or
 * what happens under a heap's lock. The room of a heap is a number of blocks.
 *
 * Checked in every order of steps:
 *
 *   - every slot settles again, with a heap that has the slot's index;
 *   - every heap is in one place: the current heap of one slot, or once in the ring of spare heaps,
 *     with the index of a spare heap;
 *   - no more heaps are made than the budget allows;
 *   - a thread allocates only from the heap of its slot, and every block has room;
 *   - a request fails only if no heap that was spare had room and no new heap was left;
 *   - every process ends.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_NO_RECHECK     the exchange does not look again under the ring lock
 *   MUTANT_HALF_RECHECK   it looks only at the slot's settled heap, not at the current one
 *   MUTANT_NO_INDEX       a thread does not compare the heap's index after locking it
 *   MUTANT_INDEX_LAST     the slot settles before its heap has the index
 *   MUTANT_DRY_INDEX      the dry heap keeps its index
 *   MUTANT_KEPT_SPARE     a spare heap stays in the ring when a slot takes it
 *   MUTANT_NOT_SETTLED    a failed attempt at a spare heap leaves the slot with that heap
 *   MUTANT_LOST_INDEX     an exchange without success does not restore the dry heap's index
 *   MUTANT_LATE_BUDGET    the budget is counted after the ring lock is released
 *   MUTANT_TAKEN_LATE     a new heap takes the slot before the request that made it is served */

#ifndef SLOTS
#define SLOTS 2
#endif
#ifndef SPARES
#define SPARES 1
#endif
#ifndef BUDGET
#define BUDGET 1 /* heaps that can still be made */
#endif
#ifndef THREADS
#define THREADS 2 /* of each slot */
#endif
#ifndef ROUNDS
#define ROUNDS 2 /* requests of each thread */
#endif
#ifndef ROOM
#define ROOM 1 /* blocks that fit in a heap */
#endif

#define HEAPS (SLOTS + SPARES + BUDGET)
#define SPARE 255 /* kSpareHeapIndex */
#define NONE 255

byte slotHeap[SLOTS];
byte slotCurrent[SLOTS];
byte heapIndex[HEAPS];
byte room[HEAPS];
bool ringLock;
bool inRing[HEAPS];
short remainingBudget = BUDGET;
byte heapsMade = SLOTS + SPARES;

inline LockRing() { atomic { !ringLock -> ringLock = true } }
inline UnlockRing() { ringLock = false }

/* TakeSlot */
inline TakeSlot(heap) {
#ifdef MUTANT_INDEX_LAST
  slotHeap[slot] = heap;
  heapIndex[heap] = slot
#else
  heapIndex[heap] = slot;
  slotHeap[slot] = heap
#endif
}

/* AllocateFromSpares, SwapWithSpare, with the ring lock held. Finds in `served` the heap or NONE. */
inline TrySpares() {
  spare = 0;
  served = NONE;
  do
  :: spare == HEAPS -> break
  :: spare < HEAPS && (!inRing[spare] || room[spare] == 0) -> spare++
  :: spare < HEAPS && inRing[spare] && room[spare] != 0 ->
    slotCurrent[slot] = spare;
    if
    :: d_step { room[spare] != 0 -> room[spare]--; served = spare }
      d_step {
#ifndef MUTANT_KEPT_SPARE
        inRing[spare] = false;
#endif
        inRing[dry] = true
      }
      TakeSlot(served);
      break
    /* The attempt fails: the largest block of the heap is too small. */
    :: mayFail ->
      mayFail = false;
#ifndef MUTANT_NOT_SETTLED
      slotCurrent[slot] = dry;
#endif
      spare++
    fi
  od;
  skip
}

/* ExchangeHeap, AllocateFromNew */
inline Exchange() {
  LockRing();
  if
#if defined(MUTANT_NO_RECHECK)
  :: false -> skip
#elif defined(MUTANT_HALF_RECHECK)
  :: slotHeap[slot] != dry -> UnlockRing() /* kRetry */
#else
  :: slotHeap[slot] != dry || slotCurrent[slot] != dry -> UnlockRing() /* kRetry */
#endif
  :: else ->
#ifndef MUTANT_DRY_INDEX
    heapIndex[dry] = SPARE;
#endif
    TrySpares();
    if
    :: served != NONE -> UnlockRing()
    :: served == NONE && remainingBudget <= 0 ->
      assert(heapsMade >= HEAPS);
#ifndef MUTANT_LOST_INDEX
      heapIndex[dry] = slot;
#endif
      UnlockRing();
      failed = true
    :: served == NONE && remainingBudget > 0 ->
      d_step {
        served = heapsMade;
        heapsMade++;
        assert(heapsMade <= HEAPS);
        room[served] = ROOM
      }
      slotCurrent[slot] = served;
      inRing[dry] = true;
#ifdef MUTANT_LATE_BUDGET
      UnlockRing();
      remainingBudget = remainingBudget - 1;
#else
      remainingBudget = remainingBudget - 1;
      UnlockRing();
#endif
#ifdef MUTANT_TAKEN_LATE
      TakeSlot(served);
      d_step { assert(room[served] != 0); room[served]-- }
#else
      d_step { assert(room[served] != 0); room[served]-- }
      TakeSlot(served)
#endif
    fi
  fi
}

/* TrySlot: SettledHeap, AwaitSettledHeap, then the attempt under the heap's lock. Waiting for another
 * thread's exchange is a guard. */
inline TrySlot() {
  do
  :: d_step { slotHeap[slot] == slotCurrent[slot]; dry = slotHeap[slot] }
    if
    :: room[dry] == 0 -> break /* MayServe */
    :: room[dry] != 0 ->
      d_step {
        served = NONE;
        if
#ifdef MUTANT_NO_INDEX
        :: true ->
#else
        :: heapIndex[dry] == slot ->
#endif
          assert(slotCurrent[slot] == dry || heapIndex[dry] == slot);
          if
          :: room[dry] != 0 -> room[dry]--; served = dry
          :: else -> served = SPARE - 1
          fi
#ifndef MUTANT_NO_INDEX
        :: else
#endif
        fi
      }
      if
      :: served != NONE -> break
      :: served == NONE -> /* exchanged meanwhile: yields */
        heapIndex[dry] == slot || slotHeap[slot] != dry || slotCurrent[slot] != dry
      fi
    fi
  od;
  if
  :: served == SPARE - 1 -> served = NONE
  :: else
  fi
}

/* AllocateFromSlots, without the attempt at other slots */
proctype Thread(byte slot) {
  byte rounds = ROUNDS;
  byte dry;
  byte spare;
  byte served;
  bool failed;
  bool mayFail = true;
  do
  :: rounds == 0 -> break
  :: else ->
    do
    :: served = NONE;
      TrySlot();
      if
      :: served != NONE -> break
      :: served == NONE ->
        Exchange();
        if
        :: served != NONE || failed -> break
        :: else
        fi
      fi
    od;
    skip; /* a loop may not end at a step of several accesses */
    d_step { rounds--; dry = 0; spare = 0; served = 0; failed = false; mayFail = false }
  od
}

/* Every heap is in one place. */
inline CheckPlaces() {
  d_step {
    i = 0;
    do
    :: i < SLOTS ->
      assert(slotHeap[i] == slotCurrent[i] && heapIndex[slotHeap[i]] == i);
      assert(!inRing[slotHeap[i]]);
      i++
    :: else -> break
    od;
    assert(SLOTS == 1 || slotHeap[0] != slotHeap[SLOTS - 1]);
    i = 0;
    places = SLOTS;
    do
    :: i < HEAPS ->
      if
      :: inRing[i] -> places++; assert(heapIndex[i] == SPARE)
      :: else
      fi;
      i++
    :: else -> break
    od;
    assert(places == heapsMade && remainingBudget == HEAPS - heapsMade)
  }
}

init {
  byte i;
  byte j;
  byte places;
  atomic {
    do
    :: i < HEAPS ->
      heapIndex[i] = SPARE;
      if
      :: i < SLOTS -> slotHeap[i] = i; slotCurrent[i] = i; heapIndex[i] = i; room[i] = ROOM
      :: i >= SLOTS && i < SLOTS + SPARES -> inRing[i] = true; room[i] = ROOM
      :: else
      fi;
      i++
    :: else -> break
    od;
    i = 0;
    do
    :: i < SLOTS ->
      j = 0;
      do
      :: j < THREADS -> run Thread(i); j++
      :: else -> break
      od;
      i++
    :: else -> break
    od
  }
  _nr_pr == 1;
  CheckPlaces()
}
