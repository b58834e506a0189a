"""Printers and commands for gdb."""

import functools
import pathlib

import gdb  # the debugger provides it
import gdb.printing

from . import commands, process, summaries

WORD = (1 << 64) - 1


class GdbProcess(process.Process):
    """The process or core file that gdb shows."""

    def read(self, address, size):
        try:
            return bytes(gdb.selected_inferior().read_memory(address, size))
        except (gdb.MemoryError, gdb.error, OverflowError) as problem:
            raise process.CannotTell(f"The memory at {address:#x} cannot be read.") from problem

    def _find_layout(self, name):
        try:
            found = gdb.lookup_type(name).strip_typedefs()
            fields = found.fields()
        except (gdb.error, TypeError):
            return None
        if not fields:
            return None  # only declared
        return process.Layout(found.sizeof, {
            field.name: (field.bitpos // 8, field.type.sizeof)
            for field in fields if hasattr(field, "bitpos") and field.name})

    def _find_variable(self, name):
        symbol = gdb.lookup_global_symbol(name) or gdb.lookup_static_symbol(name)
        return None if symbol is None else int(symbol.value().address)

    def enumerators(self, name):
        try:
            return {field.enumval: field.name.rsplit("::", 1)[-1]
                    for field in gdb.lookup_type(name).fields()}
        except gdb.error:
            return {}

    def thread_numbers(self):
        return {thread.ptid[1]: thread.num for thread in gdb.selected_inferior().threads()}

    def threads_inside(self):
        selected, frame = gdb.selected_thread(), gdb.selected_frame()
        try:
            threads = sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.num)
            found = [_inside(thread) for thread in threads]
        finally:
            selected.switch()
            frame.select()
        return [thread for thread in found if thread is not None]


def _inside(thread):
    thread.switch()
    frames = []
    frame = gdb.newest_frame()
    while frame is not None and len(frames) < process.INNERMOST_FRAMES:
        module = pathlib.Path(gdb.solib_name(frame.pc()) or "").name
        frames.append(process.Frame(frame.name() or "", module,
                                    functools.partial(_registers, frame)))
        frame = frame.older()
    return process.thread_inside(thread.ptid[1], frames)


def _registers(frame):
    for register in frame.architecture().registers("general"):
        try:
            yield int(frame.read_register(register)) & WORD
        except (gdb.error, ValueError):
            pass  # not saved in this frame


# ---- Printers ----


class Printer:
    """Shows a structure as one line. "print /r" shows its fields."""

    def __init__(self, type_name, value):
        self._type_name = type_name
        self._value = value

    def to_string(self):
        """The line."""
        if self._value.address is None:
            return f"{self._type_name} without an address"
        return summaries.describe(GdbProcess(), self._type_name, int(self._value.address))


class HandlePrinter:
    """Shows a handle with what it names."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        """The line."""
        number = int(self._value) & WORD
        known = summaries.handle(GdbProcess(), number)
        return f"{number:#x} {known}".rstrip()


class Printers(gdb.printing.PrettyPrinter):
    """Finds the printer of a value."""

    def __init__(self):
        super().__init__("kivsdu", [gdb.printing.SubPrettyPrinter(name)
                                    for name in [*summaries.BY_TYPE, "KivHandle"]])

    def __call__(self, value):
        if value.type.name == "KivHandle":
            return HandlePrinter(value)
        name = str(value.type.unqualified().strip_typedefs().tag)
        return Printer(name, value) if name in summaries.BY_TYPE else None


# ---- Commands ----


class Command(gdb.Command):
    """A command that prints lines."""

    def __init__(self, name, text, lines):
        self.__doc__ = text  # gdb shows it as help
        super().__init__(name, gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)
        self._lines = lines

    def invoke(self, argument, _from_tty):
        """Runs the command."""
        self.dont_repeat()
        try:
            for line in self._lines(argument.strip()):
                print(line)
        except (process.CannotTell, gdb.error) as problem:
            raise gdb.GdbError(str(problem)) from None


def _number(argument):
    return int(gdb.parse_and_eval(argument)) & WORD if argument else None


def _structure(argument, text):
    """The name and address of the structure that an expression is or points to."""
    if not argument:
        raise gdb.GdbError(text)
    value = gdb.parse_and_eval(argument)
    found = value.type.strip_typedefs()
    if found.code == gdb.TYPE_CODE_PTR:
        found, address = found.target(), value
    elif value.address is None:
        raise gdb.GdbError("The value has no address.")
    else:
        address = value.address
    name = found.unqualified().strip_typedefs().tag or found
    return str(name), int(address)


def _register():
    gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
    Command("kiv-heap", commands.HEAP_HELP,
            lambda text: commands.heap(GdbProcess(), _number(text)))
    Command("kiv-show", commands.SHOW_HELP,
            lambda text: commands.show(GdbProcess(), *_structure(text, commands.SHOW_HELP)))
    Command("kiv-lock", commands.LOCK_HELP,
            lambda text: commands.lock(GdbProcess(), *_structure(text, commands.LOCK_HELP)))
    Command("kiv-handle", commands.HANDLE_HELP,
            lambda text: commands.handle(GdbProcess(), _number(text)))


_register()
