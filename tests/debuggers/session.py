"""Runs the commands of a test in a debugger: gdb executes this file, lldb imports it."""

import os
import pathlib

COMMANDS = pathlib.Path(__file__).with_name("commands.txt").read_text(encoding="ascii")
CORE = os.environ["KIV_CORE"]
MOST_STOPS = 500
DUMPED = "0x3b"  # what a core file has: what is usual, and shared memory with a name


def run(execute):
    """Runs each command and prints it with its output."""
    for command in COMMANDS.splitlines():
        print(f"KIV> {command}")
        print(execute(command))


# ---- gdb ----


def in_gdb():
    """Runs the host until its threads wait and saves a core file, or takes the core file."""
    import gdb  # pylint: disable=import-error,import-outside-toplevel

    def execute(command):
        try:
            return gdb.execute(command, to_string=True)
        except gdb.error as problem:
            return f"error: {problem}"

    def has_settled():
        asleep = execute("kiv-lock rwlock").count("asleep")
        awaited = [execute(f"kiv-show {lock}") for lock in ("section", "spinlock", "lightweight")]
        objects = [execute(f"kiv-handle {handle}") for handle in ("mutex", "event")]
        waiting = sum("waits in" in execute(f"kiv-lock {lock}")
                      for lock in ("spinlock", "lightweight", "section"))
        return (asleep == 2 and waiting == 3 and "wait" in awaited[0]
                and all("(ticket)" not in text or "1 thread waiting" in text
                        for text in awaited[1:])
                and all("1 thread waiting" in text for text in objects))

    def settle():
        for _ in range(MOST_STOPS):
            execute("continue")
            if has_settled():
                return
        print("the threads do not wait")

    gdb.execute("set language c++")
    if not os.path.exists(CORE):
        gdb.execute("set disable-randomization off")  # a container may not allow it
        gdb.execute("break Settle")
        gdb.execute("run")
        settle()
        pid = gdb.selected_inferior().pid
        pathlib.Path(f"/proc/{pid}/coredump_filter").write_text(DUMPED, encoding="ascii")
        gdb.execute(f"gcore {CORE}")
    run(execute)
    execute("kill")


# ---- lldb ----


def __lldb_init_module(debugger, _dictionary):
    import lldb  # pylint: disable=import-error,import-outside-toplevel

    def execute(command):
        result = lldb.SBCommandReturnObject()
        command = command.replace("print ", "target variable ")
        debugger.GetCommandInterpreter().HandleCommand(command, result)
        return result.GetOutput() if result.Succeeded() else result.GetError()

    execute("settings set target.language c++")
    run(execute)


if __name__ == "__main__":
    in_gdb()
