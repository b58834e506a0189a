/* The life of named objects on Linux (sd/os/lnx/names.cpp, sd/os/lnx/holders.cpp), for exhaustive
 * checking with spin; tools/check-model runs it. A step of a process is one call of the system. The
 * processes make, open and close one name in any order. A process can be killed before every step;
 * the kernel then takes back its lock and what it held.
 *
 * A file is a number that is not used again while anybody has it open. An object dies when nobody holds
 * it any more.
 *
 * Checked in every order of steps:
 *
 *   - all living processes that hold the name hold one and the same object (no live name lost);
 *   - an object that died is never attached to, whatever its file;
 *   - opening finds the object while somebody holds it, and none otherwise;
 *   - when all have ended, the next process that makes the name and closes it leaves no file;
 *   - every process ends.
 *
 * Mutants, in which the checker must find a fault:
 *
 *   MUTANT_NO_STEPS       nothing excludes the other processes
 *   MUTANT_EARLY_END      making gives way to the others before it holds the object
 *   MUTANT_KEPT_FILE      making takes over the file that a dead object left
 *   MUTANT_TRUST_FILE     opening attaches to a file that nobody holds
 *   MUTANT_BLIND_UNLINK   closing removes the file although others hold it
 *   MUTANT_NO_UNLINK      closing leaves the file
 *   MUTANT_LATE_DROP      closing asks who holds the object before it drops its own hold. It then
 *                         finds itself
 *   MUTANT_FOREIGN_FILE   (REMOVER) closing removes the name's file although it is another object's */

#ifndef PROCESSES
#define PROCESSES 2
#endif
#ifndef ROUNDS
#define ROUNDS 1
#endif
#ifndef KILLS
#define KILLS 1
#endif
#define FILES 4
#define NOBODY 255
#define ALL (PROCESSES + 1) /* the last process is the one that comes at the end */

byte steps = NOBODY;     /* holds the lock on the steps */
byte name;               /* the file of the name; 0 if it has no file */
bool sized[FILES];       /* the file has its header */
bool holds[ALL * FILES]; /* by process and file */
byte opened[ALL];        /* the file that the process has open; 0 if it has none open */
byte killsLeft = KILLS;
bool die[ALL];

/* For the checks only. */
bool lives[FILES]; /* the object has been held and was not dropped by all */
bool died[FILES];
byte claimed; /* its object was found alive by the process in the steps, which holds it next: the
                object lives on even if the last holder is killed meanwhile */
byte removedFile; /* its object has lost its name to somebody else */

#define HOLDS(process, file) holds[(process) * FILES + (file)]
#define IS_HELD(file) (HOLDS(0, file) || HOLDS(1, file) || HOLDS(PROCESSES - 1, file) || \
                       HOLDS(PROCESSES, file))
#define IS_OPEN(file) (opened[0] == (file) || opened[1] == (file) || \
                       opened[PROCESSES - 1] == (file) || opened[PROCESSES] == (file))
#define IS_FREE(file) (name != (file) && !IS_HELD(file) && !IS_OPEN(file))

#ifdef MUTANT_NO_STEPS
inline BeginSteps() { skip }
#else
inline BeginSteps() { atomic { steps == NOBODY -> steps = me } }
#endif
inline EndSteps() { d_step { steps = (steps == me -> NOBODY : steps); opened[me] = 0 } }

/* OpenObjectFile with O_CREAT: a file whose number nobody uses */
inline OpenOrCreate() {
  d_step {
    if
    :: name != 0 -> skip
    :: name == 0 ->
      if
      :: IS_FREE(1) -> name = 1
      :: !IS_FREE(1) && IS_FREE(2) -> name = 2
      :: !IS_FREE(1) && !IS_FREE(2) -> name = 3
      fi;
      sized[name] = false;
      died[name] = false;
      removedFile = (removedFile == name -> 0 : removedFile)
    fi;
    opened[me] = name
  }
}

/* Notes which objects have died. */
inline NoteDeaths() {
  i = 1;
  do
  :: i < FILES ->
    if
    :: lives[i] && !IS_HELD(i) && claimed != i -> lives[i] = false; died[i] = true
    :: else
    fi;
    i++
  :: else -> break
  od
}

/* HoldObject, the last step of attaching */
inline Hold() {
  d_step {
    assert(!died[opened[me]]);
    held = opened[me];
    HOLDS(me, held) = true;
    claimed = 0;
    lives[held] = true;
    i = 1;
    do
    :: i < FILES -> assert(i == held || !IS_HELD(i) || i == removedFile || held == removedFile); i++
    :: else -> break
    od;
    i = 0
  }
}

/* MakeNamed: MakeIn, AttachExisting or AttachNew */
inline Make() {
  BeginSteps();
  OpenOrCreate();
  if
  :: d_step { IS_HELD(opened[me]) -> claimed = opened[me] } Hold()
  :: else ->
#ifndef MUTANT_KEPT_FILE
    if
    :: sized[opened[me]] ->
      d_step { name = 0; opened[me] = 0 }
      OpenOrCreate()
    :: else
    fi;
#endif
    sized[opened[me]] = true;
#ifdef MUTANT_EARLY_END
    steps = NOBODY;
#endif
    Hold()
  fi;
  EndSteps()
}

/* OpenNamed: OpenIn */
inline Open() {
  BeginSteps();
  d_step {
    opened[me] = name;
    found = name != 0
  }
  if
  :: !found -> skip
#ifdef MUTANT_TRUST_FILE
  :: found -> Hold()
#else
  :: d_step { found && IS_HELD(opened[me]) -> claimed = opened[me] } Hold()
  :: found && !IS_HELD(opened[me]) -> name = 0
#endif
  fi;
  d_step { found = false }
  EndSteps()
}

/* ReleaseNamed: DropObject, IsHeldByOthers, EndEntry */
inline Close() {
  BeginSteps();
#ifdef MUTANT_LATE_DROP
  found = IS_HELD(held);
  d_step { HOLDS(me, held) = false; NoteDeaths() }
#else
  d_step { HOLDS(me, held) = false; NoteDeaths() }
#ifdef MUTANT_BLIND_UNLINK
  found = false;
#else
  found = IS_HELD(held);
#endif
#endif
#ifndef MUTANT_NO_UNLINK
  if
#ifdef MUTANT_FOREIGN_FILE
  :: !found -> name = 0
#else
  :: !found && name == held -> name = 0 /* IsStillFileOf */
#endif
  :: else
  fi;
#endif
  d_step { held = 0; found = false }
  EndSteps()
}

proctype Process(byte me) {
  byte rounds = ROUNDS;
  byte held;
  byte i;
  bool found;
  {
    do
    :: rounds == 0 -> break
    :: rounds > 0 ->
      if
      :: Make()
      :: Open()
      fi;
      if
      :: held != 0 ->
        assert(name == held || held == removedFile);
        Close()
      :: else
      fi;
      rounds--
    od;
    goto ended
  } unless { die[me] }
  /* The kernel ends the locks of a killed process. */
  d_step {
    claimed = (steps == me -> 0 : claimed);
    steps = (steps == me -> NOBODY : steps);
    opened[me] = 0;
    i = 1;
    do
    :: i < FILES -> HOLDS(me, i) = false; i++
    :: else -> break
    od;
    NoteDeaths()
  }
ended:
  skip
}

proctype Killer() {
  byte victim;
  do
  :: killsLeft == 0 -> break
  :: killsLeft > 0 ->
    if
    :: victim = 0
    :: victim = PROCESSES - 1
    fi;
    die[victim] = true;
    killsLeft--
  od
}

#ifdef REMOVER
/* Somebody removes the file by hand, or nobody does. The name is then free for another object. */
proctype Remover() {
  if
  :: true
  :: atomic { name != 0 && IS_HELD(name) -> removedFile = name; name = 0 }
  fi
}
#endif

/* Sweep, and the whole life of the name once more. */
inline ComeLast() {
  if
  :: name != 0 && !IS_HELD(name) -> name = 0
  :: else
  fi;
  Make();
  assert(name == held);
  Close();
  assert(name == 0)
}

init {
  byte me = PROCESSES;
  byte held;
  byte i;
  bool found;
  atomic {
    do
    :: i < PROCESSES -> run Process(i); i++
    :: else -> break
    od;
    i = 0;
    run Killer();
#ifdef REMOVER
    run Remover();
#endif
    skip
  }
  _nr_pr == 1;
  assert(KILLS != 0 || name == 0);
  ComeLast()
}
